// Application catalogues and share terminals: results through the facade, what the server
// receives, the rules of the remote application's policy and of the share-terminal list, and
// requests made before any connection.
#include "testsupport.h"
#include "fieldmap.h"

namespace {
using H = VdiDesktopGrpcHelper;

const std::string kRemoteList = "/client.ClientCore/GetRemoteAppList";
const std::string kRemoteApply = "/client.ClientCore/getConnectAppInfo";
const std::string kSaasList = "/client.ClientCore/querySaasAppList";
const std::string kSaasApp = "/client.ClientCore/querySaasApp";
const std::string kShareList = "/client.ClientCore/queryShareTerminalInfo";
const std::string kTransfer = "/client.ClientCore/transferDesktopToShareTerminal";
const QString kNoShareTerminal = QStringLiteral("无可用共享终端");

using vditest::lastRequest;
using vditest::wireMismatch;

tagSaasAppInfo saasApp()
{
    return tagSaasAppInfo{QStringLiteral("https://icons/crm.png"), QStringLiteral("CRM"),
                          QStringLiteral("https://crm.example"), QStringLiteral("the sales tool"),
                          QStringLiteral("saml")};
}

} // namespace

class TestApplications : public QObject
{
    Q_OBJECT
private slots:
    void resultsReachTheApplication();
    void applyUserName_data();
    void applyUserName();
    void remoteAppPolicy();
    void remoteAppListLogged();
    void shareTerminalList_data();
    void shareTerminalList();
    void beforeAnyConnection();
    void fieldMaps_data();
    void fieldMaps() { VDI_RUN_CHECK(); }
};

// Runs first, and nothing in this suite registers a meta-type: every record of these signals
// must be known to queued connections through the facade alone.
void TestApplications::resultsReachTheApplication()
{
    vditest::TestServer server;
    client::ShareTerminalInfoResp shareList;
    shareList.add_terminal_list();
    server->setReply(kShareList, shareList);
    VdiDesktopGrpcThread facade;
    server.connect(facade);
    tagBaseInfo base;
    base.name = QStringLiteral("alice");
    base.domain = QStringLiteral("corp");
    facade.initBaseInfoParameter(base);
    QSignalSpy remoteListed(&facade, &VdiDesktopGrpcThread::signalGrpcThreadGetRemoteAppListResult);
    QSignalSpy remoteApplied(&facade, &VdiDesktopGrpcThread::signalGrpcThreadApplyRemoteAppResult);
    QSignalSpy saasListed(&facade, &VdiDesktopGrpcThread::signalGrpcThreadGetSaasAppListResult);
    QSignalSpy permitted(&facade, &VdiDesktopGrpcThread::signalGrpcThreadSaasAppResult);
    QSignalSpy shared(&facade, &VdiDesktopGrpcThread::queryShareTerminalInfoResult);
    QSignalSpy transferred(&facade, &VdiDesktopGrpcThread::transferDesktop2ShareTerminalResult);
    QSignalSpy sharedLogin(&facade, &VdiDesktopGrpcThread::loginOakdeskShareTerminalResult);
    vditest::LogCapture log;

    facade.grpcThreadGetRemoteAppList();
    facade.grpcThreadApplyForRemoteApp(QStringLiteral("Word"), QString());
    facade.grpcThreadGetSaasAppList();
    facade.grpcThreadQuerySaasApp(saasApp());
    emit facade.queryShareTerminalInfo(tagShareTerminalInfoRequest{QStringLiteral("device-1")});
    emit facade.transferDesktop2ShareTerminal(tagTransDesk2ShareTerminalRequest{
        QStringLiteral("device-1"), QStringLiteral("uuid-1"), QStringLiteral("device-2"), QByteArray("ab\0cd", 5)});
    emit facade.loginOakdeskHsareTerminal(
        tagLoginOakdeskShareTerminalRequest{QStringLiteral("device-2"), QStringLiteral("bob"), QStringLiteral("pw-9876543")});

    QTRY_COMPARE(sharedLogin.count(), 1);
    for (QSignalSpy* spy : {&remoteListed, &remoteApplied, &saasListed, &permitted, &shared, &transferred, &sharedLogin}) {
        QCOMPARE(spy->count(), 1);
        QVERIFY(spy->at(0).at(1).toBool());
    }

    // What the server received: a whole login request, the bare identity, an application
    // without its description, the file data up to its zero byte.
    QCOMPARE(lastRequest<client::LoginReq>(server, kRemoteList).client_base_info().name(), std::string("alice"));
    QCOMPARE(lastRequest<client::ClientBaseInfo>(server, kSaasList).domain(), std::string("corp"));
    QCOMPARE(wireMismatch(lastRequest<client::SaasAppReq>(server, kSaasApp),
                          "clientBaseInfo.name: 'alice' saasAppInfo.appName: 'CRM' saasAppInfo.description: ''"),
             QString());
    QCOMPARE(lastRequest<client::TransDeskToShareTerminalReq>(server, kTransfer).vdp_file_data(), std::string("ab"));

    // The share-terminal login's password reaches no log line.
    QVERIFY(log.contains(QStringLiteral("loginOakdeskHsareTerminal ]  request:\n"), QtInfoMsg));
    QCOMPARE(log.count(QStringLiteral("pw-9876543")), 0);
    QVERIFY(log.contains(QStringLiteral("void VdiDesktopGrpcWorker::slotGrpcWorkerGetSaasAppList(const SaasListReq&) TRACE"),
                         QtCriticalMsg));
    facade.stop();
}

void TestApplications::applyUserName_data()
{
    QTest::addColumn<QString>("cachedName");
    QTest::addColumn<QString>("sent");
    QTest::newRow("cached name wins") << "alice" << "alice";
    QTest::newRow("argument when none is cached") << "" << "other";
}

void TestApplications::applyUserName()
{
    QFETCH(QString, cachedName);
    QFETCH(QString, sent);
    vditest::TestServer server;
    VdiDesktopGrpcThread facade;
    server.connect(facade);
    facade.setUserName(cachedName);
    facade.updateDomain(QStringLiteral("corp"));
    QSignalSpy spy(&facade, &VdiDesktopGrpcThread::signalGrpcThreadApplyRemoteAppResult);
    vditest::LogCapture log;

    facade.grpcThreadApplyForRemoteApp(QStringLiteral("app"), QStringLiteral("other"));
    QTRY_COMPARE(spy.count(), 1);
    QCOMPARE(wireMismatch(lastRequest<client::RemoteAppInfoReq>(server, kRemoteApply),
                          QStringLiteral("userName: '%1' displayName: 'app' domain: 'corp'").arg(sent)),
             QString());
    // A line of its own making: no bracketed function name in front.
    QVERIFY(log.lines().contains(
        qMakePair(QtInfoMsg, QStringLiteral("grpcThreadApplyForRemoteApp  m_baseInfo.domain is  \"corp\""))));
    facade.stop();
}

// The remote application's policy is made anew from the wire: absent groups give zeros and empty
// texts, not the record's defaults, which a failed call keeps.
void TestApplications::remoteAppPolicy()
{
    vditest::TestServer server;
    server->setStatus(kRemoteApply, grpc::StatusCode::UNAVAILABLE);
    VdiDesktopGrpcWorker worker;
    server.connect(worker);
    QSignalSpy failed(&worker, &VdiDesktopGrpcWorker::signalGrpcWorkerApplyRemoteAppResult);
    worker.slotGrpcWorkerApplyRemoteApp(tagRemoteAppApplyReq());
    QCOMPARE(failed.count(), 1);
    QCOMPARE(failed.at(0).at(1).toBool(), false);
    const tagControlPolicy kept = failed.at(0).at(0).value<RemoteAppApplyResp>().controlPolicy;
    QCOMPARE(kept.fontSize, 12);
    QCOMPARE(kept.color, QStringLiteral("000000"));
    QCOMPARE(kept.userDefine, QStringLiteral("Desktop Watermark"));

    tagRemoteAppApplyResp withoutPolicy;
    H::fromRemoteAppApplyResp(client::RemoteAppInfoResp(), withoutPolicy);
    QCOMPARE(withoutPolicy.controlPolicy.fontSize, 0);
    QCOMPARE(withoutPolicy.controlPolicy.color, QString());
    QCOMPARE(withoutPolicy.controlPolicy.userDefine, QString());
    QCOMPARE(withoutPolicy.controlPolicy.showPosition, 0);
}

void TestApplications::remoteAppListLogged()
{
    client::RemoteAppListResp message;
    message.add_app_list();
    message.add_app_list();
    vditest::LogCapture log;
    tagRemoteAppListResp reply;
    H::fromRemoteAppListResp(message, reply);
    QVERIFY2(log.contains(QStringLiteral("[ fromRemoteAppListResp ] static void VdiDesktopGrpcHelper::fromRemoteAppListResp("),
                          QtDebugMsg),
             qPrintable(log.dump()));
    QVERIFY(log.contains(QStringLiteral(" grpcRemoteAppListResp.app_list_size() =  2"), QtDebugMsg));
}

void TestApplications::shareTerminalList_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("serverCode");
    QTest::addColumn<int>("terminals");
    QTest::addColumn<bool>("flag");
    QTest::addColumn<int>("errorCode");
    QTest::addColumn<QString>("text");
    const QString server = QStringLiteral("server text");
    QTest::newRow("empty list") << 0 << 0 << 0 << false << 0 << kNoShareTerminal;
    QTest::newRow("empty list, server error") << 0 << 7 << 0 << false << 7 << kNoShareTerminal;
    QTest::newRow("one terminal, server error") << 0 << 5 << 1 << false << 5 << server;
    QTest::newRow("one terminal") << 0 << 0 << 1 << true << 0 << server;
    QTest::newRow("failed call") << int(grpc::StatusCode::UNAVAILABLE) << 0 << 0 << false << 14
                                 << QStringLiteral("服务器连接失败，请检查网络等相关配置或联系管理员。");
}

void TestApplications::shareTerminalList()
{
    QFETCH(int, status);
    QFETCH(int, serverCode);
    QFETCH(int, terminals);
    QFETCH(bool, flag);
    QFETCH(int, errorCode);
    QFETCH(QString, text);
    vditest::TestServer server;
    vdifake::Script script = vditest::replyWithCode<client::ShareTerminalInfoResp>(serverCode, [&](auto& r) {
        r.mutable_error()->set_error_msg_zh("server text");
        for (int i = 0; i < terminals; ++i)
            r.add_terminal_list()->set_device_id("share-" + std::to_string(i));
    });
    script.code = grpc::StatusCode(status);
    server->setScript(kShareList, script);
    VdiDesktopGrpcThread facade;
    server.connect(facade);
    QSignalSpy spy(&facade, &VdiDesktopGrpcThread::queryShareTerminalInfoResult);

    emit facade.queryShareTerminalInfo(tagShareTerminalInfoRequest{QStringLiteral("me")});
    QTRY_COMPARE(spy.count(), 1);
    const ShareTerminalInfoReply answer = spy.at(0).at(0).value<ShareTerminalInfoReply>();
    QCOMPARE(spy.at(0).at(1).toBool(), flag);
    QCOMPARE(answer.error.errorCode, errorCode);
    QCOMPARE(answer.error.errorMsgZh, text);
    QCOMPARE(answer.terminalList.size(), status == 0 ? terminals : 0);
    facade.stop();
}

// Before initConnection: the permission is refused naming the application, the remote
// application is dropped without an answer, and the worker goes on serving.
void TestApplications::beforeAnyConnection()
{
    VdiDesktopGrpcThread facade;
    QSignalSpy permitted(&facade, &VdiDesktopGrpcThread::signalGrpcThreadSaasAppResult);
    QSignalSpy applied(&facade, &VdiDesktopGrpcThread::signalGrpcThreadApplyRemoteAppResult);
    QSignalSpy listed(&facade, &VdiDesktopGrpcThread::signalGrpcThreadGetSaasAppListResult);
    vditest::LogCapture log;

    facade.grpcThreadQuerySaasApp(saasApp());
    QTRY_COMPARE(permitted.count(), 1);
    QCOMPARE(permitted.at(0).at(1).toBool(), false);
    const tagSaasAppInfo named = permitted.at(0).at(0).value<SaasAppResp>().appInfo;
    const tagSaasAppInfo asked = saasApp();
    QCOMPARE(named.iconUrl, asked.iconUrl);
    QCOMPARE(named.appName, asked.appName);
    QCOMPARE(named.appAddress, asked.appAddress);
    QCOMPARE(named.description, asked.description);
    QCOMPARE(named.ssoProtocol, asked.ssoProtocol);

    facade.grpcThreadApplyForRemoteApp(QStringLiteral("app"), QStringLiteral("someone"));
    QVERIFY(!applied.wait(300));
    QVERIFY(log.contains(QStringLiteral("slotGrpcWorkerApplyRemoteApp ]  stub is null."), QtCriticalMsg));

    facade.grpcThreadGetSaasAppList();
    QTRY_COMPARE(listed.count(), 1);
    QCOMPARE(listed.at(0).at(1).toBool(), false);
    facade.stop();
}

void TestApplications::fieldMaps_data()
{
    using namespace vditest;
    QTest::addColumn<Check>("check");
    using A = tagRemoteAppApplyReq;
    requestRow("remote app request", &H::toApplyRemoteAppReq,
               {VDI_FIELD(A, userName, "userName"), VDI_FIELD(A, displayName, "displayName"),
                VDI_FIELD(A, domain, "domain")});
    requestRow<tagSaasListReq, client::ClientBaseInfo>("saas list request", &H::toSaasAppListReq,
                                                       withIdentity<tagSaasListReq>({}, QString()));
    using S = tagSaasAppReq;
    requestRow("saas app request", &H::toSaasAppReq,
               withIdentity<S>({VDI_FIELD(S, appInfo.appName, "saasAppInfo.appName"),
                                VDI_FIELD(S, appInfo.appAddress, "saasAppInfo.appAddress"),
                                VDI_FIELD(S, appInfo.iconUrl, "saasAppInfo.iconUrl"),
                                VDI_FIELD(S, appInfo.ssoProtocol, "saasAppInfo.ssoProtocol")},
                               QStringLiteral("clientBaseInfo")));
    using T = tagShareTerminalInfoRequest;
    requestRow("share terminals request", &H::toShareTerminalInfoReq, {VDI_FIELD(T, deviceId, "device_id")});
    using D = tagTransDesk2ShareTerminalRequest;
    requestRow("hand over request", &H::toTransDesk2ShareTerminalReq,
               {VDI_FIELD(D, deviceId, "device_id"), VDI_FIELD(D, vmUuid, "vm_uuid"),
                VDI_FIELD(D, dstDeviceId, "dst_device_id"), VDI_FIELD(D, vdpFileData, "vdp_file_data")});
    using O = tagLoginOakdeskShareTerminalRequest;
    requestRow("share terminal login request", &H::toLoginOakdeskTerminalReq,
               {VDI_FIELD(O, deviceId, "device_id"), VDI_FIELD(O, userName, "userName"),
                VDI_FIELD(O, password, "password")});

    using RL = tagRemoteAppListResp;
    using RI = tagRemoteAppInfo;
    replyRow("remote app list reply", &H::fromRemoteAppListResp,
             withError<RL>({}) + VDI_LIST(RL, appList, "app_list",
                                          FieldMap<RI>({VDI_FIELD(RI, iconUrl, "iconUrl"),
                                                        VDI_FIELD(RI, displayName, "displayName")})),
             {"app_list.type"});
    // The reconnection time of an application's policy is not read.
    FieldMap<tagControlPolicy> policy = controlPolicyMap();
    for (auto& field : policy) {
        if (field.member == QLatin1String("reconnectionNetworkTime"))
            field.wire.clear();
    }
    using RA = tagRemoteAppApplyResp;
    replyRow("remote app reply", &H::fromRemoteAppApplyResp,
             withError<RA>({VDI_FIELD(RA, appId, "appId"), VDI_FIELD(RA, fullAddress, "fullAddress"),
                            VDI_FIELD(RA, iconUrl, "iconUrl"), VDI_FIELD(RA, displayName, "displayName"),
                            VDI_FIELD(RA, alias, "alias")})
                 + VDI_PART(RA, controlPolicy, "control_policy", policy),
             {"control_policy.reconnection_network_time"});
    using E = tagSaasAppInfo;
    const FieldMap<E> saasApp{VDI_FIELD(E, iconUrl, "iconUrl"), VDI_FIELD(E, appName, "appName"),
                              VDI_FIELD(E, appAddress, "appAddress"), VDI_FIELD(E, description, "description"),
                              VDI_FIELD(E, ssoProtocol, "ssoProtocol")};
    using RS = tagSaasAppListResp;
    replyRow("saas list reply", &H::fromSaasAppListResp, withError<RS>({}) + VDI_LIST(RS, appList, "app_list", saasApp));
    using RP = tagSaasAppResp;
    FieldMap<RP> echoed = VDI_PART(RP, appInfo, "", saasApp);
    for (auto& field : echoed)
        field.wire.clear();  // the request's, echoed by the handler
    replyRow("saas app reply", &H::fromSaasAppResp, withError<RP>(echoed));
    using RT = tagShareTerminalInfoReply;
    using ST = tagShareTerminalInfo;
    replyRow("share terminals reply", &H::fromShareTerminalInfoResp,
             withError<RT>({}) + VDI_LIST(RT, terminalList, "terminal_list",
                                          FieldMap<ST>({VDI_FIELD(ST, deviceId, "device_id"),
                                                        VDI_FIELD(ST, terminalShareName, "terminal_share_name")})));
    // These two replies are the error block itself.
    using RH = tagTransDesk2ShareTerminalReply;
    replyRow("hand over reply", &H::fromeTransDesk2ShareTerminalResp,
             VDI_PART(RH, error, "", FieldMap<tagErrorData>(errorMap())));
    using RO = tagLoginOakdeskShareTerminalReply;
    replyRow("share terminal login reply", &H::fromLoginOakdeskTerminalReq,
             VDI_PART(RO, error, "", FieldMap<tagErrorData>(errorMap())));
}

VDI_TEST_MAIN(TestApplications)
#include "tst_applications.moc"
