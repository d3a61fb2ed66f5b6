// The handler frame on its own: its roads and outcomes, its switches and hooks, the context's
// life, the client stream, and stop() racing handlers that start.
#include "testsupport.h"

#include <atomic>
#include <functional>
#include <memory>
#include <utility>
#include <vector>
#include <thread>

namespace {
const std::string kWhoAreYou = "/client.ClientCore/WhoAreYou";
const std::string kUpload = "/client.ClientCore/onekeyHelpUseGateway";
const std::string kControllerIp = "/client.ClientCore/queryAgentUseControllerIp";
const int kHeldMs = 20000;  // longer than any wait of these tests

using Record = tagQueryControllerTypeResp;
using Call = RpcResult<client::WhoAreYouReply, Record>;

void noRequest(google::protobuf::Empty&) {}

enum class GateKind { None, Proceed, ProceedWithText, Decline, NullStub };

RpcHooks<Record> gateHooks(GateKind kind, int* copied, int* copiedAfterCall)
{
    RpcHooks<Record> hooks;
    switch (kind) {
    case GateKind::None:
        break;
    case GateKind::Proceed:
        hooks.precondition = [] { return Gate::proceed(); };
        break;
    case GateKind::ProceedWithText:
        hooks.precondition = [] { return Gate::proceed("own null-stub text"); };
        break;
    case GateKind::Decline:
        hooks.precondition = [] { return Gate::decline(); };
        break;
    case GateKind::NullStub:
        hooks.precondition = [] { return Gate::nullStub("other stub is missing"); };
        break;
    }
    hooks.copy = [copied](Record& record) {
        ++*copied;
        record.name = QStringLiteral("copied");
    };
    hooks.copyAfterCall = [copiedAfterCall](Record&) { ++*copiedAfterCall; };
    return hooks;
}
} // namespace

Q_DECLARE_METATYPE(GateKind)
Q_DECLARE_METATYPE(CallOutcome)
Q_DECLARE_METATYPE(NullStub)

// ---- Every handler of the worker, and what it answers ----------------------------------------
using Handler = std::function<void(VdiDesktopGrpcWorker&)>;
Q_DECLARE_METATYPE(Handler)

// The signals that a worker emitted, by name, with their counts.
class EmittedSignals
{
public:
    explicit EmittedSignals(VdiDesktopGrpcWorker& worker)
    {
        const QMetaObject& meta = VdiDesktopGrpcWorker::staticMetaObject;
        for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
            const QMetaMethod method = meta.method(i);
            if (method.methodType() == QMetaMethod::Signal)
                m_spies.emplace_back(method.name(), std::make_unique<QSignalSpy>(&worker, method));
        }
    }
    // "namexcount" for every signal emitted at least once, in declaration order.
    QString emitted() const
    {
        QStringList list;
        for (const auto& spy : m_spies) {
            if (spy.second->count() > 0)
                list << QStringLiteral("%1x%2").arg(QString::fromLatin1(spy.first)).arg(spy.second->count());
        }
        return list.join(QLatin1Char(' '));
    }

private:
    std::vector<std::pair<QByteArray, std::unique_ptr<QSignalSpy>>> m_spies;
};

class TestFrame : public QObject
{
    Q_OBJECT
private slots:
    void roads_data();
    void roads();
    void everyHandlerAnswers_data();
    void everyHandlerAnswers();
    void switches_data();
    void switches();
    void replyConvertedBeforeStatus();
    void contextAliveUntilEmitted();
    void stopBeforePublishingCancelsAtOnce();
    void streamUpload();
    void stopBreaksStream();
    void streamWithoutStubIsSkipped();
    void stopRacesHandlerStarts();
};

void TestFrame::roads_data()
{
    QTest::addColumn<bool>("connected");
    QTest::addColumn<GateKind>("gate");
    QTest::addColumn<int>("serverStatus");
    QTest::addColumn<NullStub>("nullStub");
    QTest::addColumn<CallOutcome>("outcome");
    QTest::addColumn<int>("statusCode");
    QTest::addColumn<int>("errorCode");
    QTest::addColumn<bool>("flag");
    QTest::addColumn<int>("copies");  // copy hook runs
    QTest::addColumn<int>("copiesAfterCall");
    QTest::addColumn<QString>("criticalLine");
    QTest::addColumn<bool>("rebuilds");

    const int ok = int(grpc::StatusCode::OK);
    const int notFound = int(grpc::StatusCode::NOT_FOUND);
    const int unavailable = int(grpc::StatusCode::UNAVAILABLE);
    const QString nullText = QStringLiteral(" stub is null.");
    // clang-format off
    QTest::newRow("null stub answered") << false << GateKind::None << ok << NullStub::Answer
        << CallOutcome::NullStubAnswered << notFound << 5 << false << 1 << 0 << nullText << true;
    QTest::newRow("null stub silent") << false << GateKind::None << ok << NullStub::Silent
        << CallOutcome::NullStubSilent << notFound << 5 << false << 0 << 0 << nullText << true;
    QTest::newRow("null stub ignored") << false << GateKind::None << ok << NullStub::Ignore
        << CallOutcome::NullStubIgnored << notFound << -1 << false << 0 << 0 << nullText << false;
    QTest::newRow("precondition's own null-stub text") << false << GateKind::ProceedWithText << ok << NullStub::Answer
        << CallOutcome::NullStubAnswered << notFound << 5 << false << 1 << 0 << QStringLiteral("own null-stub text") << true;
    QTest::newRow("precondition declines") << true << GateKind::Decline << ok << NullStub::Answer
        << CallOutcome::Declined << int(grpc::StatusCode::UNKNOWN) << -1 << false << 0 << 0 << QString() << false;
    QTest::newRow("precondition takes the null-stub road") << true << GateKind::NullStub << ok << NullStub::Answer
        << CallOutcome::NullStubAnswered << notFound << 5 << false << 1 << 0 << QStringLiteral("other stub is missing") << true;
    QTest::newRow("call") << true << GateKind::Proceed << ok << NullStub::Answer
        << CallOutcome::Called << ok << 0 << true << 1 << 1 << QString() << false;
    QTest::newRow("failed call") << true << GateKind::None << unavailable << NullStub::Answer
        << CallOutcome::Called << unavailable << 14 << false << 1 << 1 << QString() << true;
    // clang-format on
}

void TestFrame::roads()
{
    QFETCH(bool, connected);
    QFETCH(GateKind, gate);
    QFETCH(int, serverStatus);
    QFETCH(NullStub, nullStub);
    QFETCH(CallOutcome, outcome);
    QFETCH(int, statusCode);
    QFETCH(int, errorCode);
    QFETCH(bool, flag);
    QFETCH(int, copies);
    QFETCH(int, copiesAfterCall);
    QFETCH(QString, criticalLine);
    QFETCH(bool, rebuilds);

    vditest::TestServer server;
    server->setStatus(kWhoAreYou, grpc::StatusCode(serverStatus));
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    if (connected)
        server.connect(worker);
    int copied = 0;
    int copiedAfterCall = 0;
    const RpcShape shape = RpcShape::at("roads").onNullStub(" stub is null.", nullStub);
    vditest::LogCapture log;
    Call call;
    QCOMPARE(probe.unaryCall(shape, probe.stub(), &client::ClientCore::Stub::WhoAreYou, noRequest,
                             &VdiDesktopGrpcHelper::fromQueryControllerType, call,
                             gateHooks(gate, &copied, &copiedAfterCall)),
             outcome);
    QCOMPARE(call.outcome, outcome);
    // No road but a successful call reads as OK.
    QCOMPARE(int(call.status.error_code()), statusCode);
    QCOMPARE(call.record.error.errorCode, errorCode);
    QCOMPARE(call.flag, flag);
    QCOMPARE(copied, copies);
    QCOMPARE(copiedAfterCall, copiesAfterCall);
    QCOMPARE(call.record.name == QLatin1String("copied"), copies > 0);
    QCOMPARE(log.count(QStringLiteral("stub is null.")) + log.count(QStringLiteral("other stub is missing"))
                 + log.count(QStringLiteral("own null-stub text")),
             criticalLine.isEmpty() ? 0 : 1);
    if (!criticalLine.isEmpty())
        QVERIFY2(log.contains(criticalLine, QtCriticalMsg), qPrintable(log.dump()));
    QCOMPARE(log.contains(vditest::kRebuildLine), rebuilds);
    QCOMPARE(server->callCount(kWhoAreYou), outcome == CallOutcome::Called ? 1 : 0);
}

// Every handler answers its request with its signal exactly once, on the road of a call and on
// the road of a missing stub, but where a rule says that it answers nothing. A handler whose emit
// is lost, or that answers twice or with another family's signal, shows here.
void TestFrame::everyHandlerAnswers_data()
{
    using W = VdiDesktopGrpcWorker;
    QTest::addColumn<Handler>("handler");
    QTest::addColumn<QString>("called");    // emitted with the server in reach
    QTest::addColumn<QString>("nullStub");  // emitted before any connection
    // Without a stub the frame answers NOT_FOUND and rebuilds the channels (the rebuild signal is
    // declared first), but where a handler's rule says otherwise.
    enum Rebuild { Rebuilds, Keeps };
    const auto row = [](const char* name, Handler handler, const char* called, const char* nullStub,
                        Rebuild rebuild = Rebuilds) {
        QStringList expectedNull;
        if (rebuild == Rebuilds)
            expectedNull << QStringLiteral("signalGrpcErrorUnavailablex1");
        if (*nullStub)
            expectedNull << QString::fromLatin1(nullStub);
        QTest::newRow(name) << handler << QString::fromLatin1(called) << expectedNull.join(QLatin1Char(' '));
    };
    // Discovery. The controller's type and list say nothing without a stub; the device's address
    // needs none.
    row("initDeviceInfo", [](W& w) { w.initDeviceInfo(QStringLiteral("127.0.0.1"), 1); }, "deviceNetworkInfox1", "deviceNetworkInfox1", Keeps);
    row("queryDeviceConfigInfo", [](W& w) { w.queryDeviceConfigInfo({}); }, "queryDeviceConfigInfoResultx1", "queryDeviceConfigInfoResultx1");
    row("queryServerTypeInfo", [](W& w) { w.queryServerTypeInfo(); }, "queryServerTypeInfoResultx1", "queryServerTypeInfoResultx1");
    row("queryGatewayInfo", [](W& w) { w.queryGatewayInfo(); }, "queryGatewayInfoResultx1", "queryGatewayInfoResultx1");
    row("onQueryControllerType", [](W& w) { w.onQueryControllerType(QString()); }, "queryControllerTypeResultForGrpcWorkerx1", "");
    row("onQueryControllerList", [](W& w) { w.onQueryControllerList(QString()); }, "queryControllerListResultForGrpcWorkerx1", "");
    row("slotQueryServerIpForVm", [](W& w) { w.slotQueryServerIpForVm(); }, "queryServerIpResultx1", "queryServerIpResultx1");
    // Heartbeat: a beat now, and a beat of the timer.
    row("sendHeart", [](W& w) { w.sendHeart({}); }, "sendHeartResultx1", "sendHeartResultx1");
    row("mySendHeart", [](W& w) { w.mySendHeart(); }, "sendHeartResultx1", "sendHeartResultx1");
    // Login.
    row("login", [](W& w) { w.login({}); }, "loginResultx1", "loginResultx1");
    row("updateVmInfoFromServer", [](W& w) { w.updateVmInfoFromServer({}); }, "updateVmInfoFromServerResultx1", "updateVmInfoFromServerResultx1");
    // Operations, assignment, device reports.
    row("operateVM", [](W& w) { w.operateVM({}); }, "operateVMResultx1", "operateVMResultx1");
    row("recoverVM", [](W& w) { w.recoverVM({}); }, "recoverVMResultx1", "recoverVMResultx1");
    row("snapshot", [](W& w) { w.snapshot({}); }, "snapshotResultx1", "snapshotResultx1");
    row("modifyVMName", [](W& w) { w.modifyVMName({}); }, "modifyVMNameResultx1", "modifyVMNameResultx1");
    row("applyForVM", [](W& w) { w.applyForVM({}); }, "applyForVMResultx1", "applyForVMResultx1");
    row("applyForVMOfQuery", [](W& w) { w.applyForVMOfQuery({}); }, "applyForVMOfQueryResultx1", "applyForVMOfQueryResultx1");
    row("applyForDeviceInfo", [](W& w) { w.applyForDeviceInfo({}); }, "applyForDeviceInfoResultx1", "applyForDeviceInfoResultx1");
    row("queryVmInfo", [](W& w) { w.queryVmInfo({}); }, "queryVmInfoResultx1", "queryVmInfoResultx1");
    row("registerDevice", [](W& w) { w.registerDevice({}); }, "registerDeviceResultx1", "registerDeviceResultx1");
    row("reportStatusOfVM", [](W& w) { w.reportStatusOfVM({}); }, "reportStatusOfVMResultx1", "reportStatusOfVMResultx1");
    row("usbNotify", [](W& w) { w.usbNotify({}); }, "usbNotifyResultx1", "usbNotifyResultx1");
    row("reportRedirectStatus", [](W& w) { w.reportRedirectStatus({}); }, "reportRedirectStatusResultx1", "reportRedirectStatusResultx1");
    // Passwords, client configuration, login options. Nothing answers the quantum configuration;
    // the individual configuration says nothing without a stub, and the quantum binding keeps
    // the channels.
    row("checkPassword", [](W& w) { w.checkPassword({}); }, "checkPasswordResultx1", "checkPasswordResultx1");
    row("modifyPassword", [](W& w) { w.modifyPassword({}); }, "modifyPasswordResultx1", "modifyPasswordResultx1");
    row("requestTerminalAuthorityPassword", [](W& w) { w.requestTerminalAuthorityPassword({}); }, "requestTerminalAuthorityPasswordResultx1", "requestTerminalAuthorityPasswordResultx1");
    row("checkUpgrade", [](W& w) { w.checkUpgrade({}); }, "checkUpgradeResultx1", "checkUpgradeResultx1");
    row("queryNextCloudInfo", [](W& w) { w.queryNextCloudInfo({}); }, "queryNextCloudInfoResultx1", "queryNextCloudInfoResultx1");
    row("slotQueryIndividualConfigForGrpcWorker", [](W& w) { w.slotQueryIndividualConfigForGrpcWorker({}); }, "queryIndividualConfigInfoResultForGrpcWorkerx1", "");
    row("applyForEmail", [](W& w) { w.applyForEmail(); }, "applyForEmailResultx1", "applyForEmailResultx1");
    row("handleQueryLoginConfig", [](W& w) { w.handleQueryLoginConfig(QString()); }, "queryLoginConfigResultx1", "queryLoginConfigResultx1");
    row("handleRequestLoginCode", [](W& w) { w.handleRequestLoginCode({}); }, "queryLoginCodeResultx1", "queryLoginCodeResultx1");
    row("handleCheckAndSaveLdapPasswd", [](W& w) { w.handleCheckAndSaveLdapPasswd({}); }, "checkAndSaveLdapPasswdResultx1", "checkAndSaveLdapPasswdResultx1");
    row("quantumConfigReq", [](W& w) { w.quantumConfigReq(QString()); }, "", "", Keeps);
    row("userQuantumBindReq", [](W& w) { w.userQuantumBindReq(QString(), QString(), QString()); }, "onUserQuantumBindRespx1", "onUserQuantumBindRespx1", Keeps);
    // Applications and share terminals. A remote application's address is not asked for
    // without a stub, and the channels stay.
    row("slotGrpcWorkerGetRemoteAppList", [](W& w) { w.slotGrpcWorkerGetRemoteAppList({}); }, "signalGrpcWorkerGetRemoteAppListResultx1", "signalGrpcWorkerGetRemoteAppListResultx1");
    row("slotGrpcWorkerApplyRemoteApp", [](W& w) { w.slotGrpcWorkerApplyRemoteApp({}); }, "signalGrpcWorkerApplyRemoteAppResultx1", "", Keeps);
    row("slotGrpcWorkerGetSaasAppList", [](W& w) { w.slotGrpcWorkerGetSaasAppList({}); }, "signalGrpcWorkerGetSaasAppListResultx1", "signalGrpcWorkerGetSaasAppListResultx1");
    row("slotGrpcWorkerQuerySaasApp", [](W& w) { w.slotGrpcWorkerQuerySaasApp({}); }, "signalGrpcWorkerSaasAppPermissionResultx1", "signalGrpcWorkerSaasAppPermissionResultx1");
    row("queryShareTerminalInfo", [](W& w) { w.queryShareTerminalInfo({}); }, "queryShareTerminalInfoResultx1", "queryShareTerminalInfoResultx1");
    row("transferDesktop2ShareTerminal", [](W& w) { w.transferDesktop2ShareTerminal({}); }, "transferDesktop2ShareTerminalResultx1", "transferDesktop2ShareTerminalResultx1");
    row("loginOakdeskHsareTerminal", [](W& w) { w.loginOakdeskHsareTerminal({}); }, "loginOakdeskShareTerminalResultx1", "loginOakdeskShareTerminalResultx1");
    // One-key help.
    row("sendUserAskHelpInfo", [](W& w) { w.sendUserAskHelpInfo({}); }, "sendUserAskHelpInfoResultx1", "sendUserAskHelpInfoResultx1");
}

void TestFrame::everyHandlerAnswers()
{
    QFETCH(Handler, handler);
    QFETCH(QString, called);
    QFETCH(QString, nullStub);
    {
        vditest::TestServer server;  // every method answers OK with an empty reply
        VdiDesktopGrpcWorker worker;
        server.connect(worker);
        EmittedSignals emitted(worker);
        handler(worker);
        QCOMPARE(emitted.emitted(), called);
    }
    VdiDesktopGrpcWorker worker;  // never connected
    EmittedSignals emitted(worker);
    handler(worker);
    QCOMPARE(emitted.emitted(), nullStub);
}

void TestFrame::switches_data()
{
    QTest::addColumn<bool>("logAfterCall");
    QTest::addColumn<bool>("failureToHandler");
    QTest::newRow("standard") << false << false;
    QTest::newRow("logged after the call") << true << false;
    QTest::newRow("failure left to the handler") << false << true;
    QTest::newRow("both, as the gateway calls") << true << true;
}

// The two switches work each on its own.
void TestFrame::switches()
{
    QFETCH(bool, logAfterCall);
    QFETCH(bool, failureToHandler);

    vditest::TestServer server;
    server->setStatus(kWhoAreYou, grpc::StatusCode::UNAVAILABLE);
    // A line of the server's, logged when it has read the call and before it answers.
    server->setResponder(kWhoAreYou, [](const vdifake::RecordedCall&, vdifake::Script*) {
        qInfo("server has the call");
        return false;
    });
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    server.connect(worker);
    const auto stubBefore = probe.stub();

    RpcShape shape = RpcShape::at("switches").labels("switch request:\n", "switch reply:\n");
    if (logAfterCall)
        shape = shape.loggedAfterCall();
    if (failureToHandler)
        shape = shape.failureLeftToHandler();
    vditest::LogCapture log;
    Call call;
    QCOMPARE(probe.unaryCall(shape, probe.stub(), &client::ClientCore::Stub::WhoAreYou, noRequest,
                             &VdiDesktopGrpcHelper::fromQueryControllerType, call),
             CallOutcome::Called);
    QCOMPARE(call.status.error_code(), grpc::StatusCode::UNAVAILABLE);
    QCOMPARE(call.flag, false);

    int requestLine = -1;
    int serverLine = -1;
    const auto lines = log.lines();
    for (int i = 0; i < lines.size(); ++i) {
        if (lines.at(i).second.contains(QLatin1String("switch request:")))
            requestLine = i;
        if (lines.at(i).second.contains(QLatin1String("server has the call")))
            serverLine = i;
    }
    QVERIFY2(requestLine >= 0 && serverLine >= 0, qPrintable(log.dump()));
    QCOMPARE(requestLine > serverLine, logAfterCall);

    QCOMPARE(call.record.error.errorCode, failureToHandler ? -1 : 14);
    QCOMPARE(log.contains(vditest::kRebuildLine), !failureToHandler);
    QCOMPARE(probe.stub() == stubBefore, failureToHandler);
}

void TestFrame::replyConvertedBeforeStatus()
{
    vditest::TestServer server;
    server->setStatus(kWhoAreYou, grpc::StatusCode::DEADLINE_EXCEEDED);
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    server.connect(worker);
    int conversions = 0;
    auto convert = [&conversions](const client::WhoAreYouReply& reply, Record& record) {
        ++conversions;
        VdiDesktopGrpcHelper::fromQueryControllerType(reply, record);
    };
    for (bool first : {false, true}) {
        conversions = 0;
        RpcShape shape = RpcShape::at("convert");
        if (first)
            shape = shape.convertedBeforeStatus();
        Call call;
        probe.unaryCall(shape, probe.stub(), &client::ClientCore::Stub::WhoAreYou, noRequest, convert, call);
        QCOMPARE(conversions, first ? 1 : 0);
        // The failure has the last word on the error.
        QCOMPARE(call.record.error.errorCode, 4);
    }
}

// Context and request belong to the handler until it has emitted its result.
void TestFrame::contextAliveUntilEmitted()
{
    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    server.connect(worker);
    int emitted = 0;
    bool aliveAtEmit = false;
    connect(&worker, &VdiDesktopGrpcWorker::queryServerIpResult, this, [&] {
        ++emitted;
        aliveAtEmit = probe.hasCurrentContext();
    });
    worker.slotQueryServerIpForVm();
    QCOMPARE(emitted, 1);
    QVERIFY(aliveAtEmit);
    QVERIFY(!probe.hasCurrentContext());  // and no longer
}

// A stop() that lands after the entry check but before the context is published finds no
// context to cancel; the handler must see the request itself and not sit out the deadline.
void TestFrame::stopBeforePublishingCancelsAtOnce()
{
    vditest::TestServer server;
    server->setDelay(kWhoAreYou, kHeldMs);
    QThread thread;
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    server.connect(worker);
    worker.moveToThread(&thread);
    thread.start();

    vditest::LogCapture log;
    Call call;
    QElapsedTimer timer;
    timer.start();
    QMetaObject::invokeMethod(
        &worker,
        [&] {
            RpcHooks<Record> hooks;
            hooks.beforeCall = [] { QThread::currentThread()->requestInterruption(); };
            probe.unaryCall(RpcShape::at("late stop"), probe.stub(), &client::ClientCore::Stub::WhoAreYou, noRequest,
                            &VdiDesktopGrpcHelper::fromQueryControllerType, call, hooks);
            worker.moveToThread(QCoreApplication::instance()->thread());
        },
        Qt::BlockingQueuedConnection);
    thread.quit();
    QVERIFY(thread.wait(5000));

    QVERIFY2(timer.elapsed() < kHeldMs / 4, QByteArray::number(timer.elapsed()).constData());
    QCOMPARE(call.outcome, CallOutcome::Called);
    QCOMPARE(call.status.error_code(), grpc::StatusCode::CANCELLED);
    QVERIFY(!log.contains(vditest::kRebuildLine));  // a stopping worker rebuilds nothing
}

namespace {
using UploadResult = StreamResult<client::onekeyHelpUploadResp>;

void writeMeta(grpc::ClientWriter<client::onekeyHelpUploadReq>& writer, client::onekeyHelpUploadReq& message)
{
    auto* meta = message.mutable_onekeyhelpuploadreqmeta();
    meta->set_taskid(77);
    meta->set_filename("Client_20261123_101500.zip");
    meta->set_filetype("ClientLog");
    writer.Write(message);
}
} // namespace

void TestFrame::streamUpload()
{
    vditest::TestServer server;
    client::onekeyHelpUploadResp answer;
    answer.set_code(7);
    server->setReply(kUpload, answer);
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    worker.initServerType(1);  // the upload stub exists in a gateway deployment
    server.connect(worker);

    const std::string chunk(65536, 'x');
    UploadResult result;
    auto write = [&](grpc::ClientWriter<client::onekeyHelpUploadReq>& writer) {
        client::onekeyHelpUploadReq message;  // one message, reused
        writeMeta(writer, message);
        for (const std::string& content : {chunk, std::string("tail")}) {
            message.set_content(content);
            QVERIFY(writer.Write(message));
        }
    };
    const RpcShape shape = RpcShape::at("upload").deadline(CallContext::Unlimited);
    QCOMPARE(probe.streamCall(shape, probe.stubUpload(), &client::ClientCore::Stub::onekeyHelpUseGateway, write, result),
             CallOutcome::Called);
    QVERIFY2(result.status.ok(), result.status.error_message().c_str());
    QCOMPARE(result.reply.code(), 7);

    const auto calls = server->calls(kUpload);
    QCOMPARE(calls.size(), size_t(1));
    QCOMPARE(calls[0].requests.size(), size_t(3));
    const auto meta = calls[0].request<client::onekeyHelpUploadReq>(0);
    QVERIFY(meta.has_onekeyhelpuploadreqmeta());
    QCOMPARE(meta.onekeyhelpuploadreqmeta().taskid(), int64_t(77));
    QCOMPARE(meta.onekeyhelpuploadreqmeta().filetype(), std::string("ClientLog"));
    QCOMPARE(calls[0].request<client::onekeyHelpUploadReq>(1).content().size(), chunk.size());
    QCOMPARE(calls[0].request<client::onekeyHelpUploadReq>(2).content(), std::string("tail"));
    // Uploads carry no deadline and no metadata of ours.
    QCOMPARE(calls[0].deadlineSeconds, -1.0);
    QCOMPARE(calls[0].metadata.count("gatewayaccesstoken"), size_t(0));
    QCOMPARE(calls[0].metadata.count("client-language"), size_t(0));
}

// The stream's context is published: stop() breaks the upload, and a write then fails.
void TestFrame::stopBreaksStream()
{
    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    worker.initServerType(1);
    server.connect(worker);

    bool failedAfterStop = false;
    UploadResult result;
    auto write = [&](grpc::ClientWriter<client::onekeyHelpUploadReq>& writer) {
        client::onekeyHelpUploadReq message;
        writeMeta(writer, message);
        worker.stop();
        message.set_content(std::string(65536, 'y'));
        for (int i = 0; i < 100 && !failedAfterStop; ++i)
            failedAfterStop = !writer.Write(message);
    };
    probe.streamCall(RpcShape::at("upload").deadline(CallContext::Unlimited), probe.stubUpload(),
                     &client::ClientCore::Stub::onekeyHelpUseGateway, write, result);
    QVERIFY(failedAfterStop);
    QCOMPARE(result.status.error_code(), grpc::StatusCode::CANCELLED);
}

void TestFrame::streamWithoutStubIsSkipped()
{
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    vditest::LogCapture log;
    bool wrote = false;
    UploadResult result;
    QCOMPARE(probe.streamCall(RpcShape::at("upload").onNullStub("upload stub is null."), probe.stubUpload(),
                              &client::ClientCore::Stub::onekeyHelpUseGateway,
                              [&wrote](grpc::ClientWriter<client::onekeyHelpUploadReq>&) { wrote = true; }, result),
             CallOutcome::NullStubIgnored);
    QVERIFY(!wrote);
    QVERIFY(log.contains(QStringLiteral("upload stub is null."), QtCriticalMsg));
}

// stop(), initServerType() and setTimeout() come from the caller's thread while handlers start
// one after the other on another. Built with -DVDI_SANITIZE=thread this is the data-race check
// of the worker's shared members; without the sanitizer it checks that nothing hangs or breaks.
void TestFrame::stopRacesHandlerStarts()
{
    const int rounds = qEnvironmentVariableIntValue("VDI_RACE_ROUNDS") > 0 ? qEnvironmentVariableIntValue("VDI_RACE_ROUNDS")
                                                                           : 300;
    vditest::TestServer server;
    server->setDelay(kControllerIp, 1);
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    server.connect(worker);
    vditest::LogCapture log;  // thousands of lines: kept out of the test output

    std::atomic<bool> done{false};
    std::atomic<int> started{0};
    std::thread handlers([&] {
        for (int i = 0; i < rounds; ++i) {
            started = i + 1;
            if (i % 2)
                worker.slotQueryServerIpForVm();  // reads the timeout
            else
                worker.queryDeviceConfigInfo(tagDeviceConfigInfoReq());  // reads the server type
        }
        done = true;
    });
    int stops = 0;
    while (!done) {
        worker.stop();
        worker.initServerType(0);
        worker.setTimeout(30);
        ++stops;
        if (stops % 64 == 0)
            std::this_thread::yield();
    }
    handlers.join();

    QCOMPARE(started.load(), rounds);
    QVERIFY(stops > 0);
    // Every handler made its call, cancelled or not, and logged the reply.
    QCOMPARE(log.count(QStringLiteral("reply:")), rounds);
    QVERIFY(!probe.hasCurrentContext());
    QCOMPARE(probe.timeoutSeconds(), 30);
}

VDI_TEST_MAIN(TestFrame)
#include "tst_frame.moc"
