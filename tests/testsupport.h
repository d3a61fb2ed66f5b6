// Shared pieces of the test suite: an isolated home folder, log capture and white-box probes
// of the facade and the worker.
#pragma once

#include <functional>
#include <memory>
#include <mutex>

#include <QtTest>

#include "fakeserver.h"
#include "isolatedhome.h"
#include "scenarioserver.h"
#include "vdidesktopgrpcthread.h"
#include "vdidesktopgrpcworker.h"
#include "vdidesktopgrpcworker_frame.h"

namespace vditest {

// A home of its own for the whole test binary (vdifake::IsolatedHome). Call before QCoreApplication.
void isolateHome();
QString homePath();
// "<home>/Documents", created.
QString makeDocumentsDir();

// Stand-ins for shell tools, first on PATH while alive (PATH is restored after), so that no test
// reaches a real `sudo`, `shutdown` or `chown`. Each records every call's arguments, then runs the
// shell body given for it, with "@DIR@" standing for the folder of the stand-ins.
class FakeTools
{
public:
    explicit FakeTools(const QMap<QString, QString>& bodies);
    ~FakeTools();
    FakeTools(const FakeTools&) = delete;
    FakeTools& operator=(const FakeTools&) = delete;

    // The stand-ins are written and `sh` finds every one of them first: check before a test runs.
    bool ready() const;
    QString path() const { return m_dir.path(); }
    // The arguments of each call of the tool so far, and the same as lines ("$*").
    QList<QStringList> calls(const QString& tool) const;
    QStringList callLines(const QString& tool) const;
    void clearCalls();

private:
    QTemporaryDir m_dir;
    QStringList m_tools;
    QByteArray m_oldPath;
    bool m_written = false;
};

// The line of the channels' rebuild after a failed call.
const QString kRebuildLine = QStringLiteral("checked grpc server was unavailable, restart now!");

// Collects every log line of every thread while alive.
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    QList<QPair<QtMsgType, QString>> lines() const;
    // Lines of this level (any level for -1) that contain the text.
    int count(const QString& text, int type = -1) const;
    bool contains(const QString& text, int type = -1) const { return count(text, type) > 0; }
    void clear();
    QString dump() const;
};

// A fake controller on 127.0.0.1 with a certificate made for this test in a folder of its own;
// the certificate's subject is not the host name.
class TestServer
{
public:
    TestServer();
    vdifake::FakeServer* operator->() const { return m_server.get(); }
    vdifake::FakeServer& operator*() const { return *m_server; }
    QString pemPath() const { return m_options.certPath; }
    ushort port() const { return ushort(m_options.port); }
    QString dir() const { return m_dir.path(); }
    // initConnection of the worker (on the calling thread) or of the facade.
    void connect(VdiDesktopGrpcWorker& worker, bool isEnglish = false) const;
    void connect(VdiDesktopGrpcThread& facade, bool isEnglish = false) const;
    // Down: every call in progress ends UNAVAILABLE. Up again on the same port with the same
    // certificate, so that its clients' trust and target stay valid; true once it serves there.
    void stop() { m_server.reset(); }
    bool restart();

private:
    QTemporaryDir m_dir;
    std::unique_ptr<vdifake::FakeServer> m_server;
    vdifake::FakeServer::Options m_options;
};

// The built-in simulated deployment in a mode ("controller" or "gateway"), served in this
// process on a certificate of its own; null (with a warning) when it cannot start.
std::unique_ptr<vdifake::ScenarioServer> serveBuiltInDeployment(const QString& mode);

// The signals of the object's own class that it emitted while this lived.
class EmittedSignals
{
public:
    explicit EmittedSignals(QObject& object);
    // "namexcount" for every signal emitted at least once, in declaration order.
    QString emitted() const;

private:
    std::vector<std::pair<QByteArray, std::unique_ptr<QSignalSpy>>> m_spies;
};

// A loopback port on which nobody listens.
ushort unusedPort();

// The last request of the method that the server received; a default one when none came.
template <class Request>
Request lastRequest(const TestServer& server, const std::string& method)
{
    const std::vector<vdifake::RecordedCall> calls = server->calls(method);
    return calls.empty() ? Request() : calls.back().template request<Request>();
}

// A script answering with a reply whose error code is `code`; `fill` sets the rest.
template <class Reply>
vdifake::Script replyWithCode(int code, const std::function<void(Reply&)>& fill = {})
{
    Reply reply;
    reply.mutable_error()->set_error_code(code);
    if (fill)
        fill(reply);
    vdifake::Script script;
    script.replyBytes = reply.SerializeAsString();
    return script;
}

} // namespace vditest

// Reads and drives private state of the worker for tests that must look behind the facade.
class VdiWorkerProbe
{
public:
    explicit VdiWorkerProbe(VdiDesktopGrpcWorker& worker) : w(worker) {}

    QString host() const { return w.m_host; }
    ushort port() const { return w.m_port; }
    // The port that the reachability probe knocks at; the channels keep the one they were made for.
    void setPort(ushort port) { w.m_port = port; }
    QString pemFile() const { return w.m_pemFile; }
    QString target() const { return w.m_target; }
    QString language() const { return w.m_language; }
    int serverType() const { return w.m_serverType; }
    int timeoutSeconds() const { return w.m_timeoutSeconds; }
    std::string rootCertificates() const { return w.m_sslOptions.pem_root_certs; }
    // The target name overrides among the channel arguments, kept across connections: the
    // channel takes the last one.
    QStringList targetNameOverrides() const
    {
        grpc_channel_args args;
        w.m_channelArgs.SetChannelArgs(&args);
        QStringList names;
        for (size_t i = 0; i < args.num_args; ++i) {
            if (std::string(args.args[i].key) == GRPC_SSL_TARGET_NAME_OVERRIDE_ARG)
                names << QString::fromUtf8(args.args[i].value.string);
        }
        return names;
    }
    std::string gatewayToken() const { return w.m_gatewayToken; }
    QString gatewayUser() const { return w.m_gatewayUser; }
    QString gatewayPasswd() const { return w.m_gatewayPasswd; }
    void setGatewayCredentials(const std::string& token, const QString& user, const QString& password)
    {
        w.m_gatewayToken = token;
        w.m_gatewayUser = user;
        w.m_gatewayPasswd = password;
    }

    std::shared_ptr<client::ClientCore::Stub> stub() const { return w.stub; }
    std::shared_ptr<common::CommonCore::Stub> stubCommon() const { return w.stubCommon; }
    std::shared_ptr<gateway::GatewayCore::Stub> stubGateway() const { return w.stubGateway; }
    std::shared_ptr<client::ClientCore::Stub> stubUpload() const { return w.stubUpload; }

    int heartTimerId() const { return w.m_heartTimerId; }
    int serverTypeRetryDelay() const { return w.m_serverTypeRetryDelay; }
    int deviceConfigRetryDelay() const { return w.m_deviceConfigRetryDelay; }
    const tagHeartbeatRequest& heartbeatRequest() const { return w.m_heartbeatRequest; }

    // A context published as a handler publishes the one of its call.
    std::shared_ptr<grpc::ClientContext> newCallContext()
    {
        auto context = std::make_shared<grpc::ClientContext>();
        w.publishContext(context);
        return context;
    }
    // The frame itself, for tests of its steps with shapes and hooks of their own.
    template <class... Args>
    CallOutcome unaryCall(Args&&... args)
    {
        return w.unaryCall(std::forward<Args>(args)...);
    }
    template <class... Args>
    CallOutcome streamCall(Args&&... args)
    {
        return w.streamCall(std::forward<Args>(args)...);
    }
    static void dropUnreadableFiles(QStringList& files, const VdiDesktopGrpcWorker::FileTest& exists,
                                    const VdiDesktopGrpcWorker::FileTest& readable)
    {
        VdiDesktopGrpcWorker::dropUnreadableFiles(files, exists, readable);
    }
    bool hasCurrentContext() const
    {
        std::lock_guard<std::mutex> lock(w.m_contextMutex);
        return !w.m_currentContext.expired();
    }

private:
    VdiDesktopGrpcWorker& w;
};

class VdiThreadProbe
{
public:
    explicit VdiThreadProbe(VdiDesktopGrpcThread& facade) : f(facade) {}
    const tagBaseInfo& baseInfo() const { return f.m_baseInfo; }
    const tagExtendInfo& extendInfo() const { return f.m_extendInfo; }
    void setBaseInfo(const tagBaseInfo& info) { f.m_baseInfo = info; }
    void setExtendInfo(const tagExtendInfo& info) { f.m_extendInfo = info; }
    VdiDesktopGrpcWorker* worker() const { return f.m_worker; }
    QThread& thread() const { return f.m_thread; }

private:
    VdiDesktopGrpcThread& f;
};

// QTEST_GUILESS_MAIN with an isolated home folder.
#define VDI_TEST_MAIN(TestObject)                                                                  \
    int main(int argc, char* argv[])                                                               \
    {                                                                                              \
        vditest::isolateHome();                                                                    \
        QCoreApplication app(argc, argv);                                                          \
        app.setAttribute(Qt::AA_Use96Dpi, true);                                                   \
        TestObject tc;                                                                             \
        QTEST_SET_MAIN_SOURCE_PATH                                                                 \
        return QTest::qExec(&tc, argc, argv);                                                      \
    }
