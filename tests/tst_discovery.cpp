// The handler frame, through the server discovery handlers, against the TLS fake server.
#include "testsupport.h"
#include "fieldmap.h"

#include <QProcess>
#include <QThread>

#include "utility.h"

namespace {
const std::string kIsUseGateway = "/common.CommonCore/isUseGateway";
const std::string kDeviceConfig = "/client.ClientCore/queryDeviceConfigInfo";
const std::string kGatewayInfo = "/common.CommonCore/queryGatewayInfo";
const std::string kWhoAreYou = "/client.ClientCore/WhoAreYou";
const std::string kQueryNodes = "/client.ClientCore/QueryNodes";
const std::string kControllerIp = "/client.ClientCore/queryAgentUseControllerIp";

vdifake::Script status(grpc::StatusCode code)
{
    vdifake::Script script;
    script.code = code;
    return script;
}

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
} // namespace

class TestDiscovery : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void serverTypeDeadlineLadder();
    void serverTypeAnswers_data();
    void serverTypeAnswers();
    void deviceConfigStep();
    void deviceConfigInGatewayModeWantsGatewayStub();
    void controllerQueries();
    void controllerQueriesSilentOnNullStub();
    void nullStubIsNoSuccess();
    void gatewayListAndControllerIp();
    void stopCancelsHeldCall();
    void interruptedWorkerAnswersNothing();
    void facadeRoundTrip();
    void noInterfaceGivesEmptyTexts();
    void fieldMaps_data();
    void fieldMaps() { VDI_RUN_CHECK(); }
};

void TestDiscovery::initTestCase()
{
    VdiDesktopGrpcThread::registerMetaTypes();
}

void TestDiscovery::serverTypeDeadlineLadder()
{
    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    server.connect(worker);
    QSignalSpy spy(&worker, &VdiDesktopGrpcWorker::queryServerTypeInfoResult);

    server->setScript(kIsUseGateway, status(grpc::StatusCode::DEADLINE_EXCEEDED));
    for (int i = 0; i < 7; ++i)
        worker.queryServerTypeInfo();
    QCOMPARE(spy.count(), 7);
    QCOMPARE(argumentOf<bool>(spy, 6, 1), false);
    QCOMPARE(argumentOf<tagServerTypeInfoResp>(spy, 6).serverType, -1);
    QCOMPARE(argumentOf<tagServerTypeInfoResp>(spy, 6).error.errorCode, 4);

    common::isUseGatewayResp reply;
    server->setReply(kIsUseGateway, reply);
    worker.queryServerTypeInfo();  // succeeds at the step the last failure left
    worker.queryServerTypeInfo();  // back at the bottom
    QCOMPARE(argumentOf<bool>(spy, 7, 1), true);

    const QList<double> expected{0.2, 0.4, 0.8, 1.0, 2.0, 4.0, 0.2, 0.4, 0.2};
    QCOMPARE(deadlinesSeen(server, kIsUseGateway), expected);
    // Discovery must work before anything is known: no metadata at all.
    for (const auto& call : server->calls(kIsUseGateway)) {
        QCOMPARE(call.metadata.count("gatewayaccesstoken"), size_t(0));
        QCOMPARE(call.metadata.count("client-language"), size_t(0));
    }
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
    worker.initServerType(0);
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

void TestDiscovery::deviceConfigStep()
{
    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    server.connect(worker);
    QSignalSpy spy(&worker, &VdiDesktopGrpcWorker::queryDeviceConfigInfoResult);
    tagDeviceConfigInfoReq request;
    request.ip = QStringLiteral("10.0.0.7");
    request.mac = request.deviceId = QStringLiteral("aa:bb:cc");

    server->queueScript(kDeviceConfig, status(grpc::StatusCode::UNAVAILABLE));
    client::DeviceConfigInfoResp refusal;
    refusal.mutable_error()->set_error_code(7);
    refusal.mutable_error()->set_error_msg_en("not registered");
    vdifake::Script refused;
    refused.replyBytes = refusal.SerializeAsString();
    server->queueScript(kDeviceConfig, refused);
    client::DeviceConfigInfoResp accepted;
    accepted.set_authtype(2);
    accepted.set_serverarch("x86");
    accepted.set_outid("out-1");
    server->setReply(kDeviceConfig, accepted);

    worker.queryDeviceConfigInfo(request);  // transport failure: the step doubles
    QCOMPARE(probe.deviceConfigRetryDelay(), 2);
    worker.queryDeviceConfigInfo(request);  // a refusal keeps the step
    QCOMPARE(probe.deviceConfigRetryDelay(), 2);
    worker.queryDeviceConfigInfo(request);  // success resets it
    worker.queryDeviceConfigInfo(request);
    QCOMPARE(probe.serverTypeRetryDelay(), 1);  // each counter by itself

    const QList<double> expected{0.2, 0.4, 0.4, 0.2};
    QCOMPARE(deadlinesSeen(server, kDeviceConfig), expected);
    QCOMPARE(spy.count(), 4);
    QCOMPARE(argumentOf<tagDeviceConfigInfoResp>(spy, 0).error.errorCode, 14);
    QCOMPARE(argumentOf<tagDeviceConfigInfoResp>(spy, 0).rememberPassword, true);  // untouched default
    QCOMPARE(argumentOf<bool>(spy, 1, 1), false);
    QCOMPARE(argumentOf<tagDeviceConfigInfoResp>(spy, 1).error.errorCode, 7);
    QCOMPARE(argumentOf<tagDeviceConfigInfoResp>(spy, 1).error.errorMsgEn, QStringLiteral("not registered"));
    QCOMPARE(argumentOf<bool>(spy, 2, 1), true);
    const auto record = argumentOf<tagDeviceConfigInfoResp>(spy, 2);
    QCOMPARE(record.authType, 2);
    QCOMPARE(record.serverArch, QStringLiteral("x86"));
    QCOMPARE(record.outId, QStringLiteral("out-1"));
    QCOMPARE(record.rememberPassword, false);  // absent on the wire
    QCOMPARE(record.error.errorCode, 0);

    const auto sent = server->calls(kDeviceConfig).at(0).request<client::DeviceConfigInfoReq>();
    QCOMPARE(sent.ip(), std::string("10.0.0.7"));
    QCOMPARE(sent.mac(), std::string("aa:bb:cc"));
    QCOMPARE(sent.deviceid(), std::string("aa:bb:cc"));
    QCOMPARE(server->calls(kDeviceConfig).at(0).metadata.count("gatewayaccesstoken"), size_t(0));
    QCOMPARE(server->calls(kDeviceConfig).at(0).metadata.count("client-language"), size_t(0));
}

void TestDiscovery::deviceConfigInGatewayModeWantsGatewayStub()
{
    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    server.connect(worker);  // controller mode: no gateway stub
    worker.initServerType(1);
    QSignalSpy spy(&worker, &VdiDesktopGrpcWorker::queryDeviceConfigInfoResult);
    vditest::LogCapture log;
    worker.queryDeviceConfigInfo(tagDeviceConfigInfoReq());
    QCOMPARE(spy.count(), 1);
    QCOMPARE(argumentOf<bool>(spy, 0, 1), false);
    QCOMPARE(argumentOf<tagDeviceConfigInfoResp>(spy).error.errorCode, 5);
    QVERIFY(log.contains(QStringLiteral(" gateway stub is null."), QtCriticalMsg));
    QCOMPARE(server->callCount(kDeviceConfig), 0);

    // The rebuild made the gateway stubs, so the next query goes out.
    log.clear();
    worker.queryDeviceConfigInfo(tagDeviceConfigInfoReq());
    QVERIFY(log.contains(QStringLiteral("gateway type, query device config info")));
    QCOMPARE(server->callCount(kDeviceConfig), 1);
    QCOMPARE(argumentOf<bool>(spy, 1, 1), true);
}

void TestDiscovery::controllerQueries()
{
    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    server.connect(worker, true);
    QSignalSpy typeSpy(&worker, &VdiDesktopGrpcWorker::queryControllerTypeResultForGrpcWorker);
    QSignalSpy listSpy(&worker, &VdiDesktopGrpcWorker::queryControllerListResultForGrpcWorker);

    client::WhoAreYouReply who;
    who.set_name("控制器-A");
    server->setReply(kWhoAreYou, who);
    client::ResourceList list;
    auto* first = list.add_resourceinfo_list();
    first->set_id(7);
    first->set_name("east");
    first->set_gateway(true);
    first->set_port(0);
    auto* second = list.add_resourceinfo_list();
    second->set_id(8);
    second->set_ip("10.2.0.1");
    second->set_port(443);
    second->set_orgname("org");
    server->setReply(kQueryNodes, list);

    // The argument selects nothing: it is handed back with the answer.
    worker.onQueryControllerType(QStringLiteral("10.9.9.9"));
    worker.onQueryControllerList(QStringLiteral("10.8.8.8"));
    QCOMPARE(typeSpy.count(), 1);
    QCOMPARE(argumentOf<tagQueryControllerTypeResp>(typeSpy).name, QStringLiteral("控制器-A"));
    QCOMPARE(argumentOf<bool>(typeSpy, 0, 1), true);
    QCOMPARE(argumentOf<QString>(typeSpy, 0, 2), QStringLiteral("10.9.9.9"));
    const auto resources = argumentOf<tagQureyControllerListResp>(listSpy);
    QCOMPARE(argumentOf<QString>(listSpy, 0, 2), QStringLiteral("10.8.8.8"));
    QCOMPARE(resources.resourceList.size(), 2);
    QCOMPARE(resources.resourceList[0].id, qint64(7));
    QCOMPARE(resources.resourceList[0].gateway, true);
    QCOMPARE(resources.resourceList[0].port, 0);
    QCOMPARE(resources.resourceList[1].ip, QStringLiteral("10.2.0.1"));
    QCOMPARE(resources.resourceList[1].port, 443);
    QCOMPARE(resources.resourceList[1].orgName, QStringLiteral("org"));
    QCOMPARE(resources.error.errorCode, 0);
    // These go through the standard context.
    QCOMPARE(server->calls(kWhoAreYou).at(0).metadataValue("client-language"), std::string("en"));
    QVERIFY(server->calls(kQueryNodes).at(0).deadlineSeconds > 29.0);
}

void TestDiscovery::controllerQueriesSilentOnNullStub()
{
    VdiDesktopGrpcWorker worker;  // never connected
    QSignalSpy typeSpy(&worker, &VdiDesktopGrpcWorker::queryControllerTypeResultForGrpcWorker);
    QSignalSpy ipSpy(&worker, &VdiDesktopGrpcWorker::queryServerIpResult);
    vditest::LogCapture log;
    worker.onQueryControllerType(QStringLiteral("x"));
    QCOMPARE(typeSpy.count(), 0);
    QVERIFY(log.contains(QStringLiteral(" stub is null."), QtCriticalMsg));
    QVERIFY(log.contains(vditest::kRebuildLine));  // the rebuild runs all the same
    QVERIFY(log.contains(QStringLiteral(" pem file could not open.")));

    // The other handlers answer a null stub with NOT_FOUND.
    worker.slotQueryServerIpForVm();
    QCOMPARE(ipSpy.count(), 1);
    QCOMPARE(argumentOf<bool>(ipSpy, 0, 1), false);
    QCOMPARE(argumentOf<tagVmControllerIpResp>(ipSpy).error.errorCode, 5);
    QCOMPARE(argumentOf<tagVmControllerIpResp>(ipSpy).error.errorMsgZh, QStringLiteral("找不到某些请求文件或目录。"));
}

// Before any connection (or after one whose pem file could not be read) every query fails:
// none may read the untouched status of a call that never happened as a success.
void TestDiscovery::nullStubIsNoSuccess()
{
    VdiDesktopGrpcWorker worker;  // never connected
    VdiWorkerProbe probe(worker);
    worker.initServerType(1);     // a configured gateway deployment
    QSignalSpy typeSpy(&worker, &VdiDesktopGrpcWorker::queryServerTypeInfoResult);
    QSignalSpy gatewaySpy(&worker, &VdiDesktopGrpcWorker::queryGatewayInfoResult);
    QSignalSpy listSpy(&worker, &VdiDesktopGrpcWorker::queryControllerListResultForGrpcWorker);
    vditest::LogCapture log;

    worker.queryServerTypeInfo();
    QCOMPARE(typeSpy.count(), 1);
    QCOMPARE(argumentOf<bool>(typeSpy, 0, 1), false);
    QCOMPARE(argumentOf<tagServerTypeInfoResp>(typeSpy).serverType, -1);
    QCOMPARE(argumentOf<tagServerTypeInfoResp>(typeSpy).error.errorCode, 5);
    QCOMPARE(probe.serverType(), 1);  // the configured mode stands
    QCOMPARE(probe.serverTypeRetryDelay(), 1);
    QVERIFY(log.contains(QStringLiteral("stub is null."), QtCriticalMsg));
    QVERIFY(!log.contains(QStringLiteral("query server type result")));
    QVERIFY(!log.contains(QStringLiteral("count changed")));

    worker.queryGatewayInfo();
    QCOMPARE(gatewaySpy.count(), 1);
    QCOMPARE(argumentOf<bool>(gatewaySpy, 0, 1), false);
    QCOMPARE(argumentOf<tagGatewayInfoResp>(gatewaySpy).error.errorCode, 5);

    log.clear();
    worker.onQueryControllerList(QStringLiteral("10.1.1.1"));
    QVERIFY(!listSpy.wait(100));
    QVERIFY(log.contains(QStringLiteral(" stub is null."), QtCriticalMsg));
    QVERIFY(log.contains(vditest::kRebuildLine));
}

void TestDiscovery::gatewayListAndControllerIp()
{
    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    server.connect(worker);
    QSignalSpy gatewaySpy(&worker, &VdiDesktopGrpcWorker::queryGatewayInfoResult);
    QSignalSpy ipSpy(&worker, &VdiDesktopGrpcWorker::queryServerIpResult);

    common::queryGatewayInfoResp gateways;
    for (const char* name : {"gw-1", "gw-2"}) {
        auto* entry = gateways.add_gateway_list();
        entry->set_name(name);
        entry->set_public_ip(std::string("198.51.100.") + name[3]);
        entry->set_vdp_port("4443");
        entry->set_rdp_port("3389");
    }
    server->setReply(kGatewayInfo, gateways);
    common_message::AgentUseControllerIpResp controller;
    controller.set_ip("10.3.0.1");
    controller.set_port(8443);
    controller.set_domain_name("ctl.local");
    server->setReply(kControllerIp, controller);

    vditest::LogCapture log;
    worker.queryGatewayInfo();
    worker.slotQueryServerIpForVm();

    const auto list = argumentOf<tagGatewayInfoResp>(gatewaySpy);
    QCOMPARE(argumentOf<bool>(gatewaySpy, 0, 1), true);
    QCOMPARE(list.gatewayList.size(), 2);
    QCOMPARE(list.gatewayList[1].name, QStringLiteral("gw-2"));
    QCOMPARE(list.gatewayList[1].publicIp, QStringLiteral("198.51.100.2"));
    QCOMPARE(list.gatewayList[0].vdpPort, QStringLiteral("4443"));
    QCOMPARE(list.gatewayList[0].rdpPort, QStringLiteral("3389"));
    const auto gatewayCall = server->calls(kGatewayInfo).at(0);
    QVERIFY(gatewayCall.deadlineSeconds > 9.0 && gatewayCall.deadlineSeconds <= 10.2);
    QCOMPARE(gatewayCall.metadata.count("gatewayaccesstoken"), size_t(0));
    QVERIFY(log.contains(QStringLiteral("Begin to query gateway info"), QtInfoMsg));

    const auto ip = argumentOf<tagVmControllerIpResp>(ipSpy);
    QCOMPARE(ip.ip, QStringLiteral("10.3.0.1"));
    QCOMPARE(ip.port, 8443);
    QCOMPARE(ip.domainName, QStringLiteral("ctl.local"));
    QVERIFY(log.contains(QStringLiteral(" query server ip for vm."), QtInfoMsg));
}

void TestDiscovery::stopCancelsHeldCall()
{
    vditest::TestServer server;
    vdifake::Script held;
    held.delayMs = 20000;
    server->setScript(kWhoAreYou, held);

    vditest::LogCapture log;
    VdiDesktopGrpcThread facade;
    server.connect(facade);
    QSignalSpy spy(&facade, &VdiDesktopGrpcThread::queryControllerTypeResultForGrpcThread);
    facade.queryControllerTypeForGrpcThread(QStringLiteral("x"));
    QVERIFY(server->waitForCalls(kWhoAreYou, 1, 5000));

    QElapsedTimer timer;
    timer.start();
    facade.stop();
    QVERIFY2(timer.elapsed() < 1500, QByteArray::number(timer.elapsed()).constData());
    QVERIFY(server->waitForFinished(kWhoAreYou, 1, 5000));
    QVERIFY(server->calls(kWhoAreYou).at(0).cancelled);
    QVERIFY(!spy.wait(300));
    QVERIFY(log.contains(QStringLiteral("VdiDesktopGrpcWorker::stop try cancel"), QtDebugMsg));
    // The cancelled call rebuilds nothing: the thread was asked to stop first.
    QTRY_VERIFY(log.contains(QStringLiteral("VdiDesktopGrpcWorker::~VdiDesktopGrpcWorker")));
    QVERIFY(!log.contains(vditest::kRebuildLine));
}

void TestDiscovery::interruptedWorkerAnswersNothing()
{
    vditest::TestServer server;
    QThread thread;
    auto* worker = new VdiDesktopGrpcWorker;
    worker->moveToThread(&thread);
    connect(&thread, &QThread::finished, worker, &QObject::deleteLater);
    QSignalSpy spy(worker, &VdiDesktopGrpcWorker::queryGatewayInfoResult);
    thread.start();
    QMetaObject::invokeMethod(worker, "initConnection", Qt::BlockingQueuedConnection, Q_ARG(QString, server.pemPath()),
                              Q_ARG(QString, QStringLiteral("127.0.0.1")), Q_ARG(ushort, server.port()), Q_ARG(bool, false));

    vditest::LogCapture log;
    thread.requestInterruption();
    QMetaObject::invokeMethod(worker, "queryGatewayInfo", Qt::BlockingQueuedConnection);
    QVERIFY(log.contains(QStringLiteral("isInterruptionRequested"), QtDebugMsg));
    QCOMPARE(spy.count(), 0);
    QCOMPARE(server->callCount(kGatewayInfo), 0);
    thread.quit();
    QVERIFY(thread.wait(5000));
}

void TestDiscovery::facadeRoundTrip()
{
    vditest::TestServer server;
    VdiDesktopGrpcThread facade;
    server.connect(facade);
    QSignalSpy configSpy(&facade, &VdiDesktopGrpcThread::queryDeviceConfigInfoResult);
    QSignalSpy typeSpy(&facade, &VdiDesktopGrpcThread::queryServerTypeInfoResult);
    QSignalSpy identitySpy(&facade, &VdiDesktopGrpcThread::deviceNetworkInfo);

    facade.queryServerTypeInfo();
    facade.queryDeviceConfigInfo(QStringLiteral("02:00:00:00:00:09"), QStringLiteral("10.0.0.9"));
    facade.initDeviceInfo(QStringLiteral("127.0.0.1"), server.port());
    QTRY_COMPARE(configSpy.count(), 1);
    QTRY_COMPARE(identitySpy.count(), 1);
    QCOMPARE(typeSpy.count(), 1);
    QCOMPARE(typeSpy.at(0).at(1).toBool(), true);
    QCOMPARE(configSpy.at(0).at(1).toBool(), true);
    const auto sent = server->calls(kDeviceConfig).at(0).request<client::DeviceConfigInfoReq>();
    QCOMPARE(sent.deviceid(), std::string("02:00:00:00:00:09"));
    QCOMPARE(sent.mac(), std::string("02:00:00:00:00:09"));
    QCOMPARE(sent.ip(), std::string("10.0.0.9"));
    // Found or not, the identity comes with a consistent flag.
    const bool found = identitySpy.at(0).at(2).toBool();
    QCOMPARE(identitySpy.at(0).at(0).toString().isEmpty(), !found);
    facade.stop();
}

// Without any interface but loopback (a network namespace of its own, where this test runs itself
// again) no address reaches the server: the texts are empty, not null.
void TestDiscovery::noInterfaceGivesEmptyTexts()
{
    if (qEnvironmentVariableIsEmpty("VDI_TEST_IN_EMPTY_NETNS")) {
        QProcess child;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("VDI_TEST_IN_EMPTY_NETNS"), QStringLiteral("1"));
        child.setProcessEnvironment(env);
        child.setProcessChannelMode(QProcess::ForwardedChannels);
        QProcess probe;
        probe.start(QStringLiteral("unshare"), {QStringLiteral("-n"), QStringLiteral("true")});
        if (!probe.waitForFinished(5000) || probe.exitStatus() != QProcess::NormalExit || probe.exitCode() != 0)
            QSKIP("no network namespace of our own here (unshare -n)");
        child.start(QStringLiteral("unshare"), {QStringLiteral("-n"), QCoreApplication::applicationFilePath(),
                                                QStringLiteral("noInterfaceGivesEmptyTexts")});
        QVERIFY(child.waitForFinished(30000));
        QCOMPARE(child.exitStatus(), QProcess::NormalExit);
        QCOMPARE(child.exitCode(), 0);
        return;
    }
    QVERIFY(Utility().getLocalNetworkIPV4Infos().isEmpty());
    VdiDesktopGrpcWorker worker;
    QSignalSpy spy(&worker, &VdiDesktopGrpcWorker::deviceNetworkInfo);
    worker.initDeviceInfo(QStringLiteral("127.0.0.1"), 1);
    QCOMPARE(spy.count(), 1);
    for (int i : {0, 1}) {
        const QString text = spy.at(0).at(i).toString();
        QVERIFY(text.isEmpty() && !text.isNull());
    }
    QCOMPARE(spy.at(0).at(2).toBool(), false);
}

void TestDiscovery::fieldMaps_data()
{
    using H = VdiDesktopGrpcHelper;
    using vditest::Check;
    using vditest::FieldMap;
    QTest::addColumn<Check>("check");
    QTest::newRow("device config request") << Check([] {
        using R = tagDeviceConfigInfoReq;
        return vditest::requestMismatches(&H::toDeviceConfigInfoReq,
                                          FieldMap<R>{VDI_FIELD(R, ip, "ip"), VDI_FIELD(R, mac, "mac"),
                                                      VDI_FIELD(R, deviceId, "deviceId")});
    });
    QTest::newRow("device config reply") << Check([] {
        using R = tagDeviceConfigInfoResp;
        return vditest::replyMismatches(&H::fromDeviceConfigInfoResp,
                                        vditest::withError<R>({VDI_FIELD(R, authType, "authType"),
                                                               VDI_FIELD(R, serverArch, "serverArch"),
                                                               VDI_FIELD(R, displayType, "displayType"),
                                                               VDI_FIELD(R, rememberPassword, "rememberPassword"),
                                                               VDI_FIELD(R, outId, "outId")}),
                                        {QStringLiteral("spareIp")});
    });
    QTest::newRow("gateway list reply") << Check([] {
        using R = tagGatewayInfoResp;
        using E = tagGatewayInfo;
        FieldMap<R> map = vditest::withError<R>({});
        vditest::addList(map,
                         FieldMap<E>{VDI_FIELD(E, name, "name"), VDI_FIELD(E, description, "description"),
                                     VDI_FIELD(E, type, "type"), VDI_FIELD(E, domain, "domain"),
                                     VDI_FIELD(E, publicIp, "public_ip"), VDI_FIELD(E, vdpPort, "VDP_port"),
                                     VDI_FIELD(E, rdpPort, "RDP_port")},
                         QStringLiteral("gatewayList"), QStringLiteral("gateway_list"),
                         [](R& r) -> QList<E>& { return r.gatewayList; });
        return vditest::replyMismatches(&H::fromGatewayInfoResp, map);
    });
    QTest::newRow("controller list reply") << Check([] {
        using R = tagQureyControllerListResp;
        using E = tagResourceInfo;
        FieldMap<R> map = vditest::withError<R>({});
        vditest::addList(map,
                         FieldMap<E>{VDI_FIELD(E, id, "id"), VDI_FIELD(E, name, "name"),
                                     VDI_FIELD(E, details, "details"), VDI_FIELD(E, ip, "ip"),
                                     VDI_FIELD(E, status, "status"), VDI_FIELD(E, platEdition, "platEdition"),
                                     VDI_FIELD(E, country, "country"), VDI_FIELD(E, province, "province"),
                                     VDI_FIELD(E, city, "city"), VDI_FIELD(E, district, "district"),
                                     VDI_FIELD(E, orgName, "orgName"), VDI_FIELD(E, gateway, "gateway"),
                                     VDI_FIELD(E, port, "port")},
                         QStringLiteral("resourceList"), QStringLiteral("resourceInfo_list"),
                         [](R& r) -> QList<E>& { return r.resourceList; });
        return vditest::replyMismatches(+[](const client::ResourceList& message, R& reply) {
            client::ResourceList copy = message;  // the conversion takes it by reference
            H::fromQureyControllerListResp(copy, reply);
        }, map);
    });
    QTest::newRow("controller type reply") << Check([] {
        using R = tagQueryControllerTypeResp;
        return vditest::replyMismatches(&H::fromQueryControllerType, vditest::withError<R>({VDI_FIELD(R, name, "name")}));
    });
    QTest::newRow("desktop's controller reply") << Check([] {
        using R = tagVmControllerIpResp;
        return vditest::replyMismatches(&H::fromQueryVmControllerIpResq,
                                        vditest::withError<R>({VDI_FIELD(R, ip, "ip"), VDI_FIELD(R, port, "port"),
                                                               VDI_FIELD(R, domainName, "domain_name")}));
    });
}

VDI_TEST_MAIN(TestDiscovery)
#include "tst_discovery.moc"
