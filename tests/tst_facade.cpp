// The public object: construction, cached identity and shutdown.
#include "fieldmap.h"
#include "testsupport.h"
#include "vdiqtcompat.h"

#include <functional>

namespace {
const std::string kHeartbeat = "/client.ClientCore/Heartbeat";

// How a merge of the cached identity treats a member of the record it is given: it takes it
// always, never, or only when brought (when it is not what a default record holds).
enum class Merge { Always, IfBrought, Never };

// Seeds the cache with a value of its own in every member, then merges a record that brings only
// the member `index` (given `number`), then one that brings nothing. After each merge every member
// must stand as its rule says; the mismatches are returned.
template <class Record>
QStringList mergeMismatches(const vditest::FieldMap<Record>& map, const QMap<QString, Merge>& rules, int index,
                            int number, const std::function<void(const Record&)>& seed,
                            const std::function<void(const Record&)>& merge, const std::function<Record()>& cache)
{
    Record start;
    for (size_t i = 0; i < map.size(); ++i)
        map[i].give(start, 100 + int(i));
    seed(start);
    Record onlyThis;
    map[index].give(onlyThis, number);

    QStringList mismatches;
    for (const Record& incoming : {onlyThis, Record()}) {
        const Record before = cache();
        merge(incoming);
        const Record after = cache();
        for (const vditest::Field<Record>& field : map) {
            const Merge rule = rules.value(field.member, Merge::IfBrought);
            const QString offered = field.read(incoming);
            const bool taken = rule == Merge::Always || (rule == Merge::IfBrought && offered != field.read(Record()));
            const QString expected = taken ? offered : field.read(before);
            if (field.read(after) != expected)
                mismatches << QStringLiteral("%1: %2 after merging %3 over %4, expected %5")
                                  .arg(field.member, field.read(after), offered, field.read(before), expected);
        }
    }
    return mismatches;
}
using Request = std::function<void(VdiDesktopGrpcThread&)>;

// The methods that the server received, in the order of the calls.
QString received(const vditest::TestServer& server)
{
    QStringList methods;
    for (const vdifake::RecordedCall& call : server->calls())
        methods << QString::fromStdString(call.method).section(QLatin1Char('/'), -1);
    return methods.join(QLatin1Char(' '));
}
} // namespace

Q_DECLARE_METATYPE(Request)

class TestFacade : public QObject
{
    Q_OBJECT
private slots:
    void signalArgumentsAreRegistered();  // first: no other test may have registered a name yet
    void constructionStartsWorkerThread();
    void everyRequestReachesTheServer_data();
    void everyRequestReachesTheServer();
    void identityMerge_data();
    void identityMerge();
    void setters();
    void stopCutsEveryConnection();
    void destructorWithoutStop();
    void destructorLetsQueuedRequestsGo();
    void destructorDropsRequestsNotStarted();
};

void TestFacade::signalArgumentsAreRegistered()
{
    // Only the facade's constructor registers names here. A queued signal whose argument type
    // is unknown by the name in its signature is dropped with a warning, in the application.
    VdiDesktopGrpcThread facade;
    QStringList unknown;
    int checked = 0;
    for (const QMetaObject* meta : {&VdiDesktopGrpcThread::staticMetaObject, &VdiDesktopGrpcWorker::staticMetaObject}) {
        for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
            const QMetaMethod method = meta->method(i);
            if (method.methodType() != QMetaMethod::Signal)
                continue;
            // By the name in the signature, as a queued connection of Qt 5 and a lookup by name
            // (Qt 6's string-based connections among them) find it.
            for (int p = 0; p < method.parameterCount(); ++p, ++checked) {
                const int byName = vdicompat::metaTypeIdOf(method.parameterTypes().at(p).constData());
                if (byName == QMetaType::UnknownType || byName != method.parameterType(p))
                    unknown << QStringLiteral("%1::%2: %3 of type %4")
                                   .arg(QLatin1String(meta->className()), QLatin1String(method.methodSignature()),
                                        QLatin1String(method.parameterNames().at(p)),
                                        QLatin1String(method.parameterTypes().at(p)));
            }
        }
    }
    QVERIFY(checked > 20);
    QVERIFY2(unknown.isEmpty(), qPrintable(unknown.join(QLatin1Char('\n'))));
}

// The worker lives on the facade's thread, where a connection reaches it; the server type is set
// at once, without a queue in between.
void TestFacade::constructionStartsWorkerThread()
{
    vditest::LogCapture log;
    VdiDesktopGrpcThread facade;
    VdiThreadProbe probe(facade);
    QVERIFY(probe.worker() && probe.thread().isRunning());
    QCOMPARE(probe.worker()->thread(), &probe.thread());
    QVERIFY(log.contains(QStringLiteral("vdi desktop grpc thread start!!!"), QtInfoMsg));
    // A name that no signal uses (they are checked in signalArgumentsAreRegistered).
    QCOMPARE(vdicompat::metaTypeIdOf("RefreshRequest"), qMetaTypeId<tagLoginRequest>());

    VdiWorkerProbe worker(*probe.worker());
    QCOMPARE(worker.serverType(), 0);
    facade.initServerType(1);
    QCOMPARE(worker.serverType(), 1);

    facade.initConnection(QStringLiteral("/nonexistent/ca.pem"), QStringLiteral("127.0.0.1"), 8443, false);
    QTRY_VERIFY(log.contains(QStringLiteral(" pem file could not open."), QtCriticalMsg));
    QVERIFY(log.contains(QStringLiteral("/nonexistent/ca.pem")));
}

void TestFacade::everyRequestReachesTheServer_data()
{
    QTest::addColumn<Request>("request");
    QTest::addColumn<QString>("calls");    // what the server received
    QTest::addColumn<QString>("emitted");  // the facade's own signals, queued requests and answers
    using F = VdiDesktopGrpcThread;
    const auto row = [](const char* name, const Request& request, const char* calls, const char* emitted) {
        QTest::newRow(name) << request << QString::fromLatin1(calls) << QString::fromLatin1(emitted);
    };
    const tagVmNodeInfo n{};
    const QString u = QStringLiteral("u"), p = QStringLiteral("p"), id = QStringLiteral("7");
    row("initDeviceInfo", [](F& f) { f.initDeviceInfo(QStringLiteral("127.0.0.1"), 1); }, "", "myInitDeviceInfox1 deviceNetworkInfox1");
    row("queryServerTypeInfo", [](F& f) { f.queryServerTypeInfo(); }, "isUseGateway", "myQueryServerTypeInfox1 queryServerTypeInfoResultx1");
    row("queryDeviceConfigInfo", [=](F& f) { f.queryDeviceConfigInfo(u, p); }, "queryDeviceConfigInfo", "myQueryDeviceConfigInfox1 queryDeviceConfigInfoResultx1");
    row("queryGatewayInfo", [](F& f) { f.queryGatewayInfo(); }, "queryGatewayInfo", "myQueryGatewayInfox1 queryGatewayInfoResultx1");
    row("queryControllerType", [=](F& f) { f.queryControllerTypeForGrpcThread(u); }, "WhoAreYou", "signalQueryControllerTypex1 queryControllerTypeResultForGrpcThreadx1");
    row("queryControllerList", [=](F& f) { f.queryControllerListForGrpcThread(u); }, "QueryNodes", "signalQueryControllerListx1 queryControllerListResultForGrpcThreadx1");
    row("queryServerIpForVm", [](F& f) { f.queryServerIpForVm(); }, "queryAgentUseControllerIp", "signalQueryServerIpForVmx1 signalQueryServerIpResultx1");
    row("login by device", [=](F& f) { f.login(id); }, "Login", "myLoginx1 loginResultx1 getSessionInfox1");
    row("login", [=](F& f) { f.login(u, p, QStringLiteral("0")); }, "Login", "myLoginx1 loginResultx1 getSessionInfox1");
    row("loginSMS", [=](F& f) { f.loginSMS(u, p, id, id); }, "Login", "myLoginx1 loginResultx1 getSessionInfox1");
    row("login by type", [=](F& f) { f.login(VdiGrpc::LoginBySms, u, p, id, {}, {}, {}); }, "Login", "myLoginx1 loginResultx1 getSessionInfox1");
    row("updateVmInfoFromServer", [](F& f) { f.updateVmInfoFromServer(); }, "Login", "myUpdateVmInfoFromServerx1 updateVmInfoFromServerResultx1");
    row("sendHeart", [=](F& f) { f.sendHeart(u, id, 7); }, "Heartbeat", "mySendHeartx1 recvHeartbeatResultVDTx1");
    row("operateVM", [=](F& f) { f.operateVM(n, id, u, VdiGrpc::tagOperateVMType(1), VdiGrpc::tagOperateVMWay(0), 0, p); }, "OperateForVm", "myOperateVMx1 operateVMResultx1");
    row("recoverVM", [=](F& f) { f.recoverVM(n, id, u, VdiGrpc::tagOperateVMType(1), VdiGrpc::tagOperateVMWay(0), p); }, "RecoverVm", "myRecoverVMx1 recoverVMResultx1");
    row("snapshot", [=](F& f) { f.snapshot(n, id, u, VdiGrpc::tagSnapshotType(1), u, p); }, "Snapshot", "mySnapshotx1 snapshotResultx1");
    row("modifyVMName", [=](F& f) { f.modifyVMName(n, id, u, p, 0, false); }, "ModifyVmName", "myModifyVMNamex1 modifyVMNameResultx1");
    row("applyForVM", [=](F& f) { f.applyForVM(n, id, id, u, p, p, 0); }, "ApplyForVm", "myApplyForVMx1 applyForVMResultx1");
    row("applyForVMOfQuery", [=](F& f) { f.applyForVMOfQuery(n, id, u, p, 0, VdiGrpc::tagOperateVMWay(0), VdiGrpc::tagOperateVMType(1)); }, "OperateForVm", "myApplyForVMOfQueryx1 applyForVMOfQueryResultx1");
    row("applyForDeviceInfo", [=](F& f) { f.applyForDeviceInfo(n, id, u); }, "ApplyForDeviceInfo", "myApplyForDeviceInfox1 applyForDeviceInfoResultx1");
    row("queryVmInfo", [=](F& f) { QString vmId = id, vmUuid = u; f.queryVmInfo(vmId, vmUuid, 1); }, "queryVmDetailInfo", "myQueryVmInfox1 queryVmInfoResultx1");
    row("registerDevice", [=](F& f) { f.registerDevice(u, p, id, u, VdiGrpc::tagDeviceRegisterType(0)); }, "RegisterDevice", "myRegisterDevicex1 registerDeviceResultx1");
    row("reportStatusOfVM", [=](F& f) { f.reportStatusOfVM(n, id, u, p); }, "ReportSuccess", "myReportStatusOfVMx1 reportStatusOfVMResultx1");
    row("usbNotify", [=](F& f) { f.usbNotify(n, id, u, p, p); }, "USBNotify", "myUsbNotifyx1 usbNotifyResultx1");
    row("reportRedirectStatus", [=](F& f) { f.reportRedirectStatus(u, {}); }, "reportRedirectStatus", "myReportRedirectStatusx1");
    row("checkUpgrade", [=](F& f) { f.checkUpgrade(id); }, "Upgrade", "myCheckUpgradex1 checkUpgradeResultx1");
    row("modifyPassword", [=](F& f) { f.modifyPassword(u, p, p); }, "ModifyPassword", "myModifyPasswordx1 modifyPasswordResultx1");
    row("checkPassword", [=](F& f) { f.checkPassword(u, p, false); }, "CheckPassword", "myCheckPasswordx1 checkPasswordResultx1");
    row("requestTerminalAuthorityPassword", [](F& f) { f.requestTerminalAuthorityPassword(VdiGrpc::tagClientType(1)); }, "ClientReleasePassword", "myRequestTerminalAuthorityPasswordx1 requestTerminalAuthorityPasswordResultx1");
    row("queryNextCloudInfo", [](F& f) { f.queryNextCloudInfo(7); }, "queryNextCloudInfo", "myQueryNextCloudInfox1 queryNextCloudInfoResultx1");
    row("queryIndividualConfig", [](F& f) { f.queryIndividualConfigForVdidesktopGrpcThread(); }, "queryIndividualConfig", "signalQueryIndividualConfigForGrpcThreadx1 queryIndividualConfigInfoResultForGrpcThreadx2");
    row("applyForEmail", [](F& f) { f.applyForEmail(); }, "ApplyForEmailInfo", "myApplyForEmailx1 applyForEmailResultx1");
    row("queryLoginConfig", [](F& f) { f.queryLoginConfig(); }, "getLoginConfig", "signalQueryLoginConfigx1 signalQueryLoginConfigResultx1");
    row("requestLoginCode", [=](F& f) { f.requestLoginCode(u, p, u); }, "getCode", "signalRequestLoginCodex1 signalQueryLoginCodeResultx1");
    row("checkAndSaveLdapPasswd", [=](F& f) { f.checkAndSaveLdapPasswd(u, p, id); }, "CheckAndSaveLdapPassword Login", "myLoginx1 signalCheckAndSaveLdapPasswdx1 loginResultx1 signalCheckAndSaveLdapPasswdResultx1 getSessionInfox1");
    row("getRemoteAppList", [](F& f) { f.grpcThreadGetRemoteAppList(); }, "GetRemoteAppList", "signalGrpcThreadGetRemoteAppListx1 signalGrpcThreadGetRemoteAppListResultx1");
    row("applyForRemoteApp", [=](F& f) { f.grpcThreadApplyForRemoteApp(u, u); }, "getConnectAppInfo", "signalGrpcThreadApplyRemoteAppx1 signalGrpcThreadApplyRemoteAppResultx1");
    row("getSaasAppList", [](F& f) { f.grpcThreadGetSaasAppList(); }, "querySaasAppList", "signalGrpcThreadGetSaasAppListx1 signalGrpcThreadGetSaasAppListResultx1");
    row("querySaasApp", [](F& f) { f.grpcThreadQuerySaasApp({}); }, "querySaasApp", "signalGrpcThreadQuerySaasAppx1 signalGrpcThreadSaasAppResultx1");
    row("sendUserAskInfo", [=](F& f) { f.sendUserAskInfo(u, u, u, u, u, u, 0, {}, id, id); }, "onekeyHelp", "mySendUserAskHelpInfox1 SendUserAskHelpInfoResultx1");
    row("loginGateway", [=](F& f) { emit f.loginGateway(u, p); }, "", "loginGatewayx1");
    row("quantumConfigReq", [=](F& f) { emit f.quantumConfigReq(u); }, "", "quantumConfigReqx1");
    row("userQuantumBindReq", [=](F& f) { emit f.userQuantumBindReq(u, id, p); }, "confirmQuantumBind", "userQuantumBindReqx1 onUserQuantumBindRespx1");
    row("queryShareTerminalInfo", [](F& f) { emit f.queryShareTerminalInfo({}); }, "queryShareTerminalInfo", "queryShareTerminalInfox1 queryShareTerminalInfoResultx1");
    row("transferDesktop2ShareTerminal", [](F& f) { emit f.transferDesktop2ShareTerminal({}); }, "transferDesktopToShareTerminal", "transferDesktop2ShareTerminalx1 transferDesktop2ShareTerminalResultx1");
    row("loginOakdeskHsareTerminal", [](F& f) { emit f.loginOakdeskHsareTerminal({}); }, "LoginOakdeskOnShareTerminal", "loginOakdeskHsareTerminalx1 loginOakdeskShareTerminalResultx1");
}

// Each request reaches the server through the worker, and each answer the application, once:
// the server answers every call with an empty reply.
void TestFacade::everyRequestReachesTheServer()
{
    QFETCH(Request, request);
    QFETCH(QString, calls);
    QFETCH(QString, emitted);
    vditest::TestServer server;
    VdiDesktopGrpcThread facade;
    server.connect(facade);
    const vditest::EmittedSignals signalled(facade);
    request(facade);
    QTRY_COMPARE(received(server), calls);
    QTRY_COMPARE(signalled.emitted(), emitted);
    QCoreApplication::processEvents();
    QCOMPARE(signalled.emitted(), emitted);
    facade.stop();
}

void TestFacade::identityMerge_data()
{
    QTest::addColumn<bool>("base");
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("number");  // the member's value: one of its own, or a computer type of 0
    const auto rows = [](bool base, const auto& map) {
        for (size_t i = 0; i < map.size(); ++i) {
            const QString name = QLatin1String(base ? "base " : "extend ") + map[i].member;
            QTest::newRow(qPrintable(name)) << base << int(i) << 200 + int(i);
            if (map[i].member == QLatin1String("computerType"))
                QTest::newRow(qPrintable(name + QStringLiteral(" 0"))) << base << int(i) << 0;
        }
    };
    rows(true, vditest::identityMap());
    rows(false, vditest::extendMap());
}

void TestFacade::identityMerge()
{
    QFETCH(bool, base);
    QFETCH(int, index);
    QFETCH(int, number);
    vditest::LogCapture log;
    VdiDesktopGrpcThread facade;
    VdiThreadProbe probe(facade);
    const QMap<QString, Merge> baseRules{
        {"vmId", Merge::Always}, {"vmUuid", Merge::Always}, {"isOpenldap", Merge::Always}, {"ticket", Merge::Never}};
    const QStringList mismatches =
        base ? mergeMismatches<tagBaseInfo>(
                   vditest::identityMap(), baseRules, index, number,
                   [&](const tagBaseInfo& info) { probe.setBaseInfo(info); },
                   [&](const tagBaseInfo& info) { facade.initBaseInfoParameter(info); }, [&] { return probe.baseInfo(); })
             : mergeMismatches<tagExtendInfo>(
                   vditest::extendMap(), {}, index, number, [&](const tagExtendInfo& info) { probe.setExtendInfo(info); },
                   [&](const tagExtendInfo& info) { facade.initExtendInfoParameter(info); },
                   [&] { return probe.extendInfo(); });
    QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join(QLatin1Char('\n'))));

    // A domain that is taken is logged, once, with its value; nothing else is.
    const bool logged = base && vditest::identityMap()[index].member == QLatin1String("domain");
    tagBaseInfo given;
    QCOMPARE(log.count(QStringLiteral("m_baseInfo.domain")), logged ? 1 : 0);
    QVERIFY(!logged || log.contains(QStringLiteral("[ initBaseInfoParameter ]  m_baseInfo.domain =  \"%1\"")
                                        .arg(vditest::identityMap()[index].give(given, number)),
                                    QtInfoMsg));
}

void TestFacade::setters()
{
    vditest::LogCapture log;
    VdiDesktopGrpcThread facade;
    VdiThreadProbe probe(facade);

    // The MAC is also the device id; the address is nothing else.
    facade.setLocalMAC(QStringLiteral("aa:bb"));
    facade.setLocalIP(QStringLiteral("10.0.0.9"));
    QCOMPARE(probe.baseInfo().deviceId, QStringLiteral("aa:bb"));
    QCOMPARE(facade.getLocalMAC(), QStringLiteral("aa:bb"));
    facade.updateLocalIP(QStringLiteral("10.0.0.10"));
    QCOMPARE(facade.getLocalIP(), QStringLiteral("10.0.0.10"));
    QCOMPARE(probe.baseInfo().deviceId, QStringLiteral("aa:bb"));

    facade.setUserNameAndPasswd(QStringLiteral("bob"), QStringLiteral("pw"));
    facade.setUserName(QStringLiteral("carol"));
    QCOMPARE(facade.getUserName(), QStringLiteral("carol"));
    QCOMPARE(facade.getUserPasswd(), QStringLiteral("pw"));

    facade.updateDomain(QStringLiteral("域"));
    QCOMPARE(probe.baseInfo().domain, QStringLiteral("域"));
    QVERIFY(log.contains(QStringLiteral("[ updateDomain ]  m_baseInfo.domain ="), QtInfoMsg));
}

void TestFacade::stopCutsEveryConnection()
{
    vditest::LogCapture log;
    VdiDesktopGrpcThread facade;
    VdiThreadProbe probe(facade);
    QSignalSpy applicationSpy(&facade, &VdiDesktopGrpcThread::saveCurrentVmUuidVDT);
    QElapsedTimer timer;
    timer.start();
    facade.stop();
    QVERIFY(timer.elapsed() < 1500);
    QVERIFY(probe.thread().wait(2000));

    // The application's own connection is gone too.
    emit facade.saveCurrentVmUuidVDT(QStringLiteral("x"));
    QCOMPARE(applicationSpy.count(), 0);

    QVERIFY(log.contains(QStringLiteral("VdiDesktopGrpcWorker::stop"), QtDebugMsg));
    QVERIFY(!log.contains(QStringLiteral("try cancel")));  // no call was in flight
    QVERIFY(log.contains(QStringLiteral("void VdiDesktopGrpcThread::stop() VdiDesktopGrpcThread::stoped"), QtInfoMsg));
    // The worker is deleted on its own thread as that thread ends.
    QTRY_VERIFY(log.contains(QStringLiteral("VdiDesktopGrpcWorker::~VdiDesktopGrpcWorker"), QtInfoMsg));

    // The worker is gone: a second stop() and a late initServerType() leave it alone.
    QVERIFY(probe.worker() == nullptr);
    facade.stop();
    facade.initServerType(1);
}

void TestFacade::destructorWithoutStop()
{
    vditest::LogCapture log;
    {
        VdiDesktopGrpcThread facade;
        log.clear();
    }
    // The destructor waited for the thread: only the worker said anything on the way out.
    QVERIFY(log.contains(QStringLiteral("VdiDesktopGrpcWorker::~VdiDesktopGrpcWorker")));
    QCOMPARE(log.lines().size(), 1);
}

// Requests queued behind a held call return at their interruption check when the facade is
// destroyed without stop(): the server sees the held call alone, which is waited for.
void TestFacade::destructorLetsQueuedRequestsGo()
{
    vditest::TestServer server;
    server->setDelay(kHeartbeat, 1000);
    vditest::LogCapture log;
    {
        VdiDesktopGrpcThread facade;
        server.connect(facade);
        for (int i = 0; i < 4; ++i)
            facade.sendHeart(QStringLiteral("10.0.0.1"), QStringLiteral("uuid"), 7);
        QVERIFY(server->waitForCalls(kHeartbeat, 1, 5000));
    }
    QCOMPARE(server->callCount(kHeartbeat), 1);
    QVERIFY(server->waitForFinished(kHeartbeat, 1, 5000));
    QCOMPARE(server->calls(kHeartbeat).front().cancelled, false);
    QCOMPARE(log.count(QStringLiteral("isInterruptionRequested")), 3);
}

// With no call in flight, a request made just before the facade is destroyed is dropped too:
// the worker's thread, held by a task until the destructor asks it to end, never starts it.
void TestFacade::destructorDropsRequestsNotStarted()
{
    vditest::TestServer server;
    int answers = 0;
    {
        VdiDesktopGrpcThread facade;
        server.connect(facade);
        QObject::connect(&facade, &VdiDesktopGrpcThread::recvHeartbeatResultVDT, [&answers] { ++answers; });
        QSemaphore held;
        QMetaObject::invokeMethod(VdiThreadProbe(facade).worker(), [&held] {
            held.release();
            QDeadlineTimer limit(5000);
            while (!QThread::currentThread()->isInterruptionRequested() && !limit.hasExpired())
                QThread::msleep(1);
        });
        QVERIFY(held.tryAcquire(1, 5000));
        facade.sendHeart(QStringLiteral("10.0.0.1"), QStringLiteral("uuid"), 7);
    }
    QCoreApplication::processEvents();
    QCOMPARE(server->callCount(kHeartbeat), 0);
    QCOMPARE(answers, 0);
}

VDI_TEST_MAIN(TestFacade)
#include "tst_facade.moc"
