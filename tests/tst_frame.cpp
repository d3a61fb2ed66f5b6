// The handler frame on its own: its roads and outcomes, its switches and hooks, the context's
// life, the client stream, and stop() racing handlers that start.
#include "testsupport.h"

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

namespace {
const std::string kWhoAreYou = "/client.ClientCore/WhoAreYou";
const std::string kControllerIp = "/client.ClientCore/queryAgentUseControllerIp";
const int kHeldMs = 20000;  // longer than any wait of these tests

using Record = tagQueryControllerTypeResp;
using Call = RpcResult<client::WhoAreYouReply, Record>;

void noRequest(google::protobuf::Empty&) {}

// A worker and a server of its own, connected unless said otherwise.
struct Bed {
    explicit Bed(bool connected = true)
    {
        if (connected)
            server.connect(worker);
    }
    // The frame's call of WhoAreYou.
    CallOutcome whoAreYou(const RpcShape& shape, Call& call, const RpcHooks<Record>& hooks = {})
    {
        return probe.unaryCall(shape, probe.stub(), &client::ClientCore::Stub::WhoAreYou, noRequest,
                               &VdiDesktopGrpcHelper::fromQueryControllerType, call, hooks);
    }

    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe{worker};
};

// One road through the frame, and what it gives.
struct Road {
    bool connected;
    std::function<Gate()> precondition;
    grpc::StatusCode serverStatus;
    NullStub nullStub;
    CallOutcome outcome;
    grpc::StatusCode statusCode;  // no road but a successful call reads as OK
    int errorCode;
    bool flag;
    int copies;  // runs of the copy hook
    int copiesAfterCall;
    QString criticalLine;
    bool rebuilds;
};

using Handler = std::function<void(VdiDesktopGrpcWorker&)>;

} // namespace

Q_DECLARE_METATYPE(Road)
Q_DECLARE_METATYPE(Handler)

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
    void stopBreaksStream();
    void streamWithoutStubIsSkipped();
    void stopRacesHandlerStarts();
};

void TestFrame::roads_data()
{
    QTest::addColumn<Road>("road");
    using S = grpc::StatusCode;
    const std::function<Gate()> none;
    const QString nullText = QStringLiteral(" stub is null.");
    // clang-format off
    QTest::newRow("null stub answered") << Road{false, none, S::OK, NullStub::Answer,
        CallOutcome::NullStubAnswered, S::NOT_FOUND, 5, false, 1, 0, nullText, true};
    QTest::newRow("null stub silent") << Road{false, none, S::OK, NullStub::Silent,
        CallOutcome::NullStubSilent, S::NOT_FOUND, 5, false, 0, 0, nullText, true};
    QTest::newRow("null stub ignored") << Road{false, none, S::OK, NullStub::Ignore,
        CallOutcome::NullStubIgnored, S::NOT_FOUND, -1, false, 0, 0, nullText, false};
    QTest::newRow("precondition's own null-stub text") << Road{false, [] { return Gate::proceed("own null-stub text"); },
        S::OK, NullStub::Answer, CallOutcome::NullStubAnswered, S::NOT_FOUND, 5, false, 1, 0, QStringLiteral("own null-stub text"), true};
    QTest::newRow("precondition declines") << Road{true, [] { return Gate::decline(); }, S::OK, NullStub::Answer,
        CallOutcome::Declined, S::UNKNOWN, -1, false, 0, 0, QString(), false};
    QTest::newRow("precondition takes the null-stub road") << Road{true, [] { return Gate::nullStub("other stub is missing"); },
        S::OK, NullStub::Answer, CallOutcome::NullStubAnswered, S::NOT_FOUND, 5, false, 1, 0, QStringLiteral("other stub is missing"), true};
    QTest::newRow("call") << Road{true, [] { return Gate::proceed(); }, S::OK, NullStub::Answer,
        CallOutcome::Called, S::OK, 0, true, 1, 1, QString(), false};
    QTest::newRow("failed call") << Road{true, none, S::UNAVAILABLE, NullStub::Answer,
        CallOutcome::Called, S::UNAVAILABLE, 14, false, 1, 1, QString(), true};
    // clang-format on
}

void TestFrame::roads()
{
    QFETCH(Road, road);
    Bed bed(road.connected);
    bed.server->setStatus(kWhoAreYou, road.serverStatus);
    int copies = 0;
    int copiesAfterCall = 0;
    RpcHooks<Record> hooks;
    hooks.precondition = road.precondition;
    hooks.copy = [&copies](Record& record) {
        ++copies;
        record.name = QStringLiteral("copied");
    };
    hooks.copyAfterCall = [&copiesAfterCall](Record&) { ++copiesAfterCall; };
    vditest::LogCapture log;
    Call call;
    QCOMPARE(bed.whoAreYou(RpcShape::at("roads").onNullStub(" stub is null.", road.nullStub), call, hooks), road.outcome);
    QCOMPARE(call.outcome, road.outcome);
    QCOMPARE(call.status.error_code(), road.statusCode);
    QCOMPARE(call.record.error.errorCode, road.errorCode);
    QCOMPARE(call.flag, road.flag);
    QCOMPARE(copies, road.copies);
    QCOMPARE(copiesAfterCall, road.copiesAfterCall);
    QCOMPARE(call.record.name == QLatin1String("copied"), road.copies > 0);
    QCOMPARE(log.count(QStringLiteral("stub is null.")) + log.count(QStringLiteral("other stub is missing"))
                 + log.count(QStringLiteral("own null-stub text")),
             road.criticalLine.isEmpty() ? 0 : 1);
    if (!road.criticalLine.isEmpty())
        QVERIFY2(log.contains(road.criticalLine, QtCriticalMsg), qPrintable(log.dump()));
    QCOMPARE(log.contains(vditest::kRebuildLine), road.rebuilds);
    QCOMPARE(bed.server->callCount(kWhoAreYou), road.outcome == CallOutcome::Called ? 1 : 0);
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
        Bed bed;  // every method answers OK with an empty reply
        vditest::EmittedSignals emitted(bed.worker);
        handler(bed.worker);
        QCOMPARE(emitted.emitted(), called);
    }
    VdiDesktopGrpcWorker worker;  // never connected
    vditest::EmittedSignals emitted(worker);
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
    Bed bed;
    bed.server->setStatus(kWhoAreYou, grpc::StatusCode::UNAVAILABLE);
    // A line of the server's, logged when it has read the call and before it answers.
    bed.server->setResponder(kWhoAreYou, [](const vdifake::RecordedCall&, vdifake::Script*) {
        qInfo("server has the call");
        return false;
    });
    const auto stubBefore = bed.probe.stub();
    RpcShape shape = RpcShape::at("switches").labels("switch request:\n", "switch reply:\n");
    if (logAfterCall)
        shape = shape.loggedAfterCall();
    if (failureToHandler)
        shape = shape.failureLeftToHandler();
    vditest::LogCapture log;
    Call call;
    QCOMPARE(bed.whoAreYou(shape, call), CallOutcome::Called);
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
    QCOMPARE(bed.probe.stub() == stubBefore, failureToHandler);
}

void TestFrame::replyConvertedBeforeStatus()
{
    Bed bed;
    bed.server->setStatus(kWhoAreYou, grpc::StatusCode::DEADLINE_EXCEEDED);
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
        bed.probe.unaryCall(shape, bed.probe.stub(), &client::ClientCore::Stub::WhoAreYou, noRequest, convert, call);
        QCOMPARE(conversions, first ? 1 : 0);
        QCOMPARE(call.record.error.errorCode, 4);  // the failure has the last word on the error
    }
}

// Context and request belong to the handler until it has emitted its result.
void TestFrame::contextAliveUntilEmitted()
{
    Bed bed;
    int emitted = 0;
    bool aliveAtEmit = false;
    connect(&bed.worker, &VdiDesktopGrpcWorker::queryServerIpResult, this, [&] {
        ++emitted;
        aliveAtEmit = bed.probe.hasCurrentContext();
    });
    bed.worker.slotQueryServerIpForVm();
    QCOMPARE(emitted, 1);
    QVERIFY(aliveAtEmit);
    QVERIFY(!bed.probe.hasCurrentContext());  // and no longer
}

// A stop() that lands after the entry check but before the context is published finds no
// context to cancel; the handler must see the request itself and not sit out the deadline.
void TestFrame::stopBeforePublishingCancelsAtOnce()
{
    Bed bed;
    bed.server->setDelay(kWhoAreYou, kHeldMs);
    QThread thread;
    bed.worker.moveToThread(&thread);
    thread.start();

    vditest::LogCapture log;
    Call call;
    QElapsedTimer timer;
    timer.start();
    QMetaObject::invokeMethod(
        &bed.worker,
        [&] {
            RpcHooks<Record> hooks;
            hooks.beforeCall = [] { QThread::currentThread()->requestInterruption(); };
            bed.whoAreYou(RpcShape::at("late stop"), call, hooks);
            bed.worker.moveToThread(QCoreApplication::instance()->thread());
        },
        Qt::BlockingQueuedConnection);
    thread.quit();
    QVERIFY(thread.wait(5000));

    QVERIFY2(timer.elapsed() < kHeldMs / 4, QByteArray::number(timer.elapsed()).constData());
    QCOMPARE(call.outcome, CallOutcome::Called);
    QCOMPARE(call.status.error_code(), grpc::StatusCode::CANCELLED);
    QVERIFY(!log.contains(vditest::kRebuildLine));  // a stopping worker rebuilds nothing
}

using UploadResult = StreamResult<client::onekeyHelpUploadResp>;
using UploadWriter = grpc::ClientWriter<client::onekeyHelpUploadReq>;

// The stream's context is published: stop() cancels it, says so, and a write then fails.
void TestFrame::stopBreaksStream()
{
    Bed bed;
    bed.worker.initServerType(1);  // the upload stub exists in a gateway deployment
    bed.server.connect(bed.worker);
    bool failedAfterStop = false;
    UploadResult result;
    auto write = [&](UploadWriter& writer) {
        client::onekeyHelpUploadReq message;
        message.mutable_onekeyhelpuploadreqmeta()->set_taskid(77);
        writer.Write(message);
        bed.worker.stop();
        message.set_content(std::string(65536, 'y'));
        for (int i = 0; i < 100 && !failedAfterStop; ++i)
            failedAfterStop = !writer.Write(message);
    };
    vditest::LogCapture log;
    bed.probe.streamCall(RpcShape::at("upload").deadline(CallContext::Unlimited), bed.probe.stubUpload(),
                         &client::ClientCore::Stub::onekeyHelpUseGateway, write, result);
    QVERIFY(failedAfterStop);
    QCOMPARE(result.status.error_code(), grpc::StatusCode::CANCELLED);
    QVERIFY(log.contains(QStringLiteral("VdiDesktopGrpcWorker::stop try cancel"), QtDebugMsg));
}

void TestFrame::streamWithoutStubIsSkipped()
{
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    vditest::LogCapture log;
    bool wrote = false;
    UploadResult result;
    QCOMPARE(probe.streamCall(RpcShape::at("upload").onNullStub("upload stub is null."), probe.stubUpload(),
                              &client::ClientCore::Stub::onekeyHelpUseGateway, [&wrote](UploadWriter&) { wrote = true; },
                              result),
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
    Bed bed;
    bed.server->setDelay(kControllerIp, 1);
    VdiDesktopGrpcWorker& worker = bed.worker;
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
    QVERIFY(!bed.probe.hasCurrentContext());
    QCOMPARE(bed.probe.timeoutSeconds(), 30);
}

VDI_TEST_MAIN(TestFrame)
#include "tst_frame.moc"
