// Server discovery against the TLS test server: the server type and the device configuration
// with their stepped deadlines, the gateway list, the controller's type and list, the desktop's
// controller address, and the terminal's own address (initDeviceInfo).
#include "testsupport.h"
#include "fieldmap.h"

#include <functional>

#include <QProcess>

#include "utility.h"

namespace {
const std::string kIsUseGateway = "/common.CommonCore/isUseGateway";
const std::string kDeviceConfig = "/client.ClientCore/queryDeviceConfigInfo";
const std::string kGatewayInfo = "/common.CommonCore/queryGatewayInfo";
const std::string kWhoAreYou = "/client.ClientCore/WhoAreYou";
const std::string kQueryNodes = "/client.ClientCore/QueryNodes";
const std::string kControllerIp = "/client.ClientCore/queryAgentUseControllerIp";

template <class T>
T argumentOf(const QSignalSpy& spy, int index = 0, int argument = 0)
{
    return spy.at(index).at(argument).value<T>();
}

// The deadlines the server saw, to the nearest tenth of a second.
QList<double> deadlinesSeen(const vditest::TestServer& server, const std::string& method)
{
    QList<double> seen;
    for (const auto& call : server->calls(method))
        seen << qRound(call.deadlineSeconds * 10.0) / 10.0;
    return seen;
}

// A handler's call and what it puts on the wire and in the log.
struct HandlerCall {
    std::function<void(VdiDesktopGrpcWorker&)> handler;
    std::string method;
    double deadline;
    bool metadata;         // the standard context's token and language ("en")
    QString line;          // at info, on the call's road
    QString nullStubLine;  // critical, never connected and set for a gateway
};
} // namespace

Q_DECLARE_METATYPE(HandlerCall)

class TestDiscovery : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { VdiDesktopGrpcThread::registerMetaTypes(); }
    void serverTypeDeadlineLadder();
    void serverTypeAnswers_data();
    void serverTypeAnswers();
    void deviceConfigStep();
    void deviceConfigInGatewayModeWantsGatewayStub();
    void eachHandler_data();
    void eachHandler();
    void facadeRoundTrip();
    void noInterfaceGivesEmptyTexts();
    void fieldMaps_data();
    void fieldMaps() { VDI_RUN_CHECK(); }
};

void TestDiscovery::serverTypeDeadlineLadder()
{
    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    server.connect(worker);
    QSignalSpy spy(&worker, &VdiDesktopGrpcWorker::queryServerTypeInfoResult);

    server->setScript(kIsUseGateway, vdifake::Script{grpc::StatusCode::DEADLINE_EXCEEDED, {}, {}, 0});
    for (int i = 0; i < 7; ++i)
        worker.queryServerTypeInfo();
    QCOMPARE(spy.count(), 7);
    QCOMPARE(argumentOf<bool>(spy, 6, 1), false);
    QCOMPARE(argumentOf<tagServerTypeInfoResp>(spy, 6).serverType, -1);
    QCOMPARE(argumentOf<tagServerTypeInfoResp>(spy, 6).error.errorCode, 4);

    server->setReply(kIsUseGateway, common::isUseGatewayResp());
    worker.queryServerTypeInfo();  // succeeds at the step the last failure left
    worker.queryServerTypeInfo();  // back at the bottom
    QCOMPARE(argumentOf<bool>(spy, 7, 1), true);
    const QList<double> expected{0.2, 0.4, 0.8, 1.0, 2.0, 4.0, 0.2, 0.4, 0.2};
    QCOMPARE(deadlinesSeen(server, kIsUseGateway), expected);
}

void TestDiscovery::serverTypeAnswers_data()
{
    QTest::addColumn<int>("configured");
    QTest::addColumn<int>("useGateway");
    QTest::addColumn<int>("expected");
    QTest::addColumn<bool>("illegal");
    QTest::newRow("controller overrides gateway setting") << 1 << 0 << 0 << false;
    QTest::newRow("gateway") << 0 << 1 << 1 << false;
    QTest::newRow("2 keeps configured controller") << 0 << 2 << 0 << true;
    QTest::newRow("-1 keeps configured gateway") << 1 << -1 << 1 << true;
}

void TestDiscovery::serverTypeAnswers()
{
    QFETCH(int, configured);
    QFETCH(int, useGateway);
    QFETCH(int, expected);
    QFETCH(bool, illegal);
    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    server.connect(worker);
    worker.initServerType(configured);
    QSignalSpy spy(&worker, &VdiDesktopGrpcWorker::queryServerTypeInfoResult);
    common::isUseGatewayResp reply;
    reply.set_usegateway(useGateway);
    reply.mutable_error()->set_error_code(9);  // not looked at
    server->setReply(kIsUseGateway, reply);
    vditest::LogCapture log;

    worker.queryServerTypeInfo();
    QCOMPARE(spy.count(), 1);
    QCOMPARE(argumentOf<bool>(spy, 0, 1), true);
    const auto record = argumentOf<tagServerTypeInfoResp>(spy);
    QCOMPARE(record.serverType, expected);
    QCOMPARE(record.error.errorCode, -1);  // a success fills serverType alone
    QCOMPARE(probe.serverType(), expected);
    QCOMPARE(bool(probe.stubGateway()), expected == 1);
    QVERIFY(log.contains(useGateway ? QStringLiteral("GATEWAY") : QStringLiteral("CONTROLLER"), QtInfoMsg));
    QCOMPARE(log.contains(QStringLiteral(" type of reply is not legal. use type of setting.ini"), QtCriticalMsg), illegal);
}

// A transport failure doubles the step, a refusal keeps it, a success resets it; the server
// type's counter stays apart.
void TestDiscovery::deviceConfigStep()
{
    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    server.connect(worker);
    QSignalSpy spy(&worker, &VdiDesktopGrpcWorker::queryDeviceConfigInfoResult);
    server->queueScript(kDeviceConfig, vdifake::Script{grpc::StatusCode::UNAVAILABLE, {}, {}, 0});
    client::DeviceConfigInfoResp refusal;
    refusal.mutable_error()->set_error_code(7);
    server->queueScript(kDeviceConfig, vdifake::Script{grpc::StatusCode::OK, {}, refusal.SerializeAsString(), 0});
    server->setReply(kDeviceConfig, client::DeviceConfigInfoResp());

    for (int i = 0; i < 4; ++i)
        worker.queryDeviceConfigInfo(tagDeviceConfigInfoReq());
    QCOMPARE(probe.serverTypeRetryDelay(), 1);
    const QList<double> expected{0.2, 0.4, 0.4, 0.2};
    QCOMPARE(deadlinesSeen(server, kDeviceConfig), expected);
    QCOMPARE(spy.count(), 4);
    QCOMPARE(argumentOf<tagDeviceConfigInfoResp>(spy, 0).error.errorCode, 14);
    QCOMPARE(argumentOf<tagDeviceConfigInfoResp>(spy, 0).rememberPassword, true);  // no reply converted
    QCOMPARE(argumentOf<bool>(spy, 1, 1), false);
    QCOMPARE(argumentOf<tagDeviceConfigInfoResp>(spy, 1).error.errorCode, 7);
    QCOMPARE(argumentOf<bool>(spy, 2, 1), true);
}

// Connected to a controller, then set to a gateway: the query wants the gateway stub although it
// does not use it, and makes no call; the rebuild that follows makes that stub.
void TestDiscovery::deviceConfigInGatewayModeWantsGatewayStub()
{
    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    server.connect(worker);
    worker.initServerType(1);
    QSignalSpy spy(&worker, &VdiDesktopGrpcWorker::queryDeviceConfigInfoResult);
    vditest::LogCapture log;
    worker.queryDeviceConfigInfo(tagDeviceConfigInfoReq());
    QCOMPARE(argumentOf<tagDeviceConfigInfoResp>(spy).error.errorCode, 5);
    QCOMPARE(server->callCount(kDeviceConfig), 0);
    QVERIFY(!log.contains(QStringLiteral("gateway type, query device config info")));

    worker.queryDeviceConfigInfo(tagDeviceConfigInfoReq());
    QVERIFY(log.contains(QStringLiteral("gateway type, query device config info"), QtInfoMsg));
    QCOMPARE(server->callCount(kDeviceConfig), 1);
    QCOMPARE(argumentOf<bool>(spy, 1, 1), true);
}

void TestDiscovery::eachHandler_data()
{
    using W = VdiDesktopGrpcWorker;
    QTest::addColumn<HandlerCall>("row");
    // Discovery must work before anything is known: the server type and the device configuration
    // carry no metadata.
    QTest::newRow("server type") << HandlerCall{[](W& w) { w.queryServerTypeInfo(); }, kIsUseGateway, 0.2, false,
        "[ queryServerTypeInfo ]  query server type result, ip:  \"127.0.0.1\"  type:  CONTROLLER",
        "[ queryServerTypeInfo ] stub is null."};
    QTest::newRow("device config") << HandlerCall{[](W& w) { w.queryDeviceConfigInfo({}); }, kDeviceConfig, 0.2, false,
        "[ queryDeviceConfigInfo ] succeed to query device config and query device config count changed to init: 1",
        "[ queryDeviceConfigInfo ]  gateway stub is null."};
    QTest::newRow("gateway list") << HandlerCall{[](W& w) { w.queryGatewayInfo(); }, kGatewayInfo, 10, false,
                                                 "[ queryGatewayInfo ] Begin to query gateway info",
                                                 "[ queryGatewayInfo ] stub is null."};
    QTest::newRow("controller type") << HandlerCall{[](W& w) { w.onQueryControllerType(QString()); }, kWhoAreYou, 30, true,
                                                    "[ onQueryControllerType ]  package QueryControllerType reply:\n",
                                                    "[ onQueryControllerType ]  stub is null."};
    QTest::newRow("controller list") << HandlerCall{[](W& w) { w.onQueryControllerList(QString()); }, kQueryNodes, 30, true,
                                                    "[ onQueryControllerList ]  package QueryControllerList reply:\n",
                                                    "[ onQueryControllerList ]  stub is null."};
    QTest::newRow("desktop's controller") << HandlerCall{
        [](W& w) { w.slotQueryServerIpForVm(); }, kControllerIp, 30, true,
        "[ slotQueryServerIpForVm ]  request:\n  query server ip for vm.", "[ slotQueryServerIpForVm ]  stub is null."};
}

// The context and the log line of each call; without a stub, the handler's own line.
void TestDiscovery::eachHandler()
{
    QFETCH(HandlerCall, row);
    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    server.connect(worker, true);
    vditest::LogCapture log;
    row.handler(worker);
    QCOMPARE(server->callCount(), 1);
    const auto call = server->calls(row.method).at(0);
    QVERIFY2(call.deadlineSeconds > row.deadline - qMin(1.0, row.deadline / 2) && call.deadlineSeconds <= row.deadline + 0.2,
             QByteArray::number(call.deadlineSeconds).constData());
    QCOMPARE(call.metadata.count("gatewayaccesstoken"), size_t(row.metadata ? 1 : 0));
    QCOMPARE(call.metadataValue("client-language"), std::string(row.metadata ? "en" : ""));
    QVERIFY2(log.contains(row.line, QtInfoMsg), qPrintable(log.dump()));

    VdiDesktopGrpcWorker bare;
    bare.initServerType(1);
    log.clear();
    row.handler(bare);
    QVERIFY2(log.count(row.nullStubLine, QtCriticalMsg) == 1, qPrintable(log.dump()));
}

// Through the facade: the device configuration's request takes the MAC as the device id too;
// the controller queries hand their argument back with the answer, as it selects nothing.
void TestDiscovery::facadeRoundTrip()
{
    vditest::TestServer server;
    VdiDesktopGrpcThread facade;
    server.connect(facade);
    QSignalSpy configSpy(&facade, &VdiDesktopGrpcThread::queryDeviceConfigInfoResult);
    QSignalSpy typeSpy(&facade, &VdiDesktopGrpcThread::queryControllerTypeResultForGrpcThread);
    QSignalSpy listSpy(&facade, &VdiDesktopGrpcThread::queryControllerListResultForGrpcThread);
    facade.queryDeviceConfigInfo(QStringLiteral("02:00:00:00:00:09"), QStringLiteral("10.0.0.9"));
    facade.queryControllerTypeForGrpcThread(QStringLiteral("10.9.9.9"));
    facade.queryControllerListForGrpcThread(QStringLiteral("10.8.8.8"));
    QTRY_COMPARE(listSpy.count(), 1);
    QCOMPARE(argumentOf<bool>(configSpy, 0, 1), true);
    QCOMPARE(argumentOf<QString>(typeSpy, 0, 2), QStringLiteral("10.9.9.9"));
    QCOMPARE(argumentOf<QString>(listSpy, 0, 2), QStringLiteral("10.8.8.8"));
    QCOMPARE(vditest::wireMismatch(vditest::lastRequest<client::DeviceConfigInfoReq>(server, kDeviceConfig),
                                   "deviceId: '02:00:00:00:00:09' mac: '02:00:00:00:00:09' ip: '10.0.0.9'"),
             QString());
    facade.stop();
}

// Without any interface but loopback (a network namespace of its own, where this test runs itself
// again) no address reaches the server: the texts are empty, not null.
void TestDiscovery::noInterfaceGivesEmptyTexts()
{
    if (qEnvironmentVariableIsEmpty("VDI_TEST_IN_EMPTY_NETNS")) {
        if (QProcess::execute(QStringLiteral("unshare"), {QStringLiteral("-n"), QStringLiteral("true")}) != 0)
            QSKIP("no network namespace of our own here (unshare -n)");
        qputenv("VDI_TEST_IN_EMPTY_NETNS", "1");
        const int exitCode = QProcess::execute(QStringLiteral("unshare"), {QStringLiteral("-n"), QCoreApplication::applicationFilePath(),
                                                                           QStringLiteral("noInterfaceGivesEmptyTexts")});
        qunsetenv("VDI_TEST_IN_EMPTY_NETNS");
        QCOMPARE(exitCode, 0);
        return;
    }
    QVERIFY(Utility().getLocalNetworkIPV4Infos().isEmpty());
    VdiDesktopGrpcWorker worker;
    QSignalSpy spy(&worker, &VdiDesktopGrpcWorker::deviceNetworkInfo);
    worker.initDeviceInfo(QStringLiteral("127.0.0.1"), 1);
    QCOMPARE(spy.count(), 1);
    for (int i : {0, 1})
        QVERIFY(spy.at(0).at(i).toString().isEmpty() && !spy.at(0).at(i).toString().isNull());
    QCOMPARE(spy.at(0).at(2).toBool(), false);
}

void TestDiscovery::fieldMaps_data()
{
    using namespace vditest;
    using H = VdiDesktopGrpcHelper;
    QTest::addColumn<Check>("check");
    using Q = tagDeviceConfigInfoReq;
    requestRow("device config request", &H::toDeviceConfigInfoReq,
               FieldMap<Q>{VDI_FIELD(Q, ip, "ip"), VDI_FIELD(Q, mac, "mac"), VDI_FIELD(Q, deviceId, "deviceId")});
    using R = tagDeviceConfigInfoResp;
    replyRow("device config reply", &H::fromDeviceConfigInfoResp,
             withError<R>({VDI_FIELD(R, authType, "authType"), VDI_FIELD(R, serverArch, "serverArch"),
                           VDI_FIELD(R, displayType, "displayType"), VDI_FIELD(R, rememberPassword, "rememberPassword"),
                           VDI_FIELD(R, outId, "outId")}),
             {QStringLiteral("spareIp")}, {QStringLiteral("rememberPassword")});  // shown by a failed call
    using GR = tagGatewayInfoResp;
    using GE = tagGatewayInfo;
    replyRow("gateway list reply", &H::fromGatewayInfoResp,
             withError<GR>({}) + VDI_LIST(GR, gatewayList, "gateway_list",
                                          FieldMap<GE>({VDI_FIELD(GE, name, "name"), VDI_FIELD(GE, description, "description"),
                                                        VDI_FIELD(GE, type, "type"), VDI_FIELD(GE, domain, "domain"),
                                                        VDI_FIELD(GE, publicIp, "public_ip"), VDI_FIELD(GE, vdpPort, "VDP_port"),
                                                        VDI_FIELD(GE, rdpPort, "RDP_port")})));
    using CR = tagQureyControllerListResp;
    using CE = tagResourceInfo;
    replyRow(
        "controller list reply",
        +[](const client::ResourceList& message, CR& reply) {
            client::ResourceList copy = message;  // the conversion takes it by reference
            H::fromQureyControllerListResp(copy, reply);
        },
        withError<CR>({})
            + VDI_LIST(CR, resourceList, "resourceInfo_list",
                       FieldMap<CE>({VDI_FIELD(CE, id, "id"), VDI_FIELD(CE, name, "name"),
                                     VDI_FIELD(CE, details, "details"), VDI_FIELD(CE, ip, "ip"),
                                     VDI_FIELD(CE, status, "status"), VDI_FIELD(CE, platEdition, "platEdition"),
                                     VDI_FIELD(CE, country, "country"), VDI_FIELD(CE, province, "province"),
                                     VDI_FIELD(CE, city, "city"), VDI_FIELD(CE, district, "district"),
                                     VDI_FIELD(CE, orgName, "orgName"), VDI_FIELD(CE, gateway, "gateway"),
                                     VDI_FIELD(CE, port, "port")})));
    using TR = tagQueryControllerTypeResp;
    replyRow("controller type reply", &H::fromQueryControllerType, withError<TR>({VDI_FIELD(TR, name, "name")}));
    using VR = tagVmControllerIpResp;
    replyRow("desktop's controller reply", &H::fromQueryVmControllerIpResq,
             withError<VR>({VDI_FIELD(VR, ip, "ip"), VDI_FIELD(VR, port, "port"), VDI_FIELD(VR, domainName, "domain_name")}));
}

VDI_TEST_MAIN(TestDiscovery)
#include "tst_discovery.moc"
