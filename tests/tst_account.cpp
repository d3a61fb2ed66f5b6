// Passwords, client configuration and login options: what the facade sends, the LDAP road to a
// login, the calls with rules of their own, and the reply conversions.
#include "testsupport.h"
#include "fieldmap.h"

#include <QCoreApplication>
#include <QSysInfo>

namespace {
using H = VdiDesktopGrpcHelper;

const std::string kUpgrade = "/client.ClientCore/Upgrade";
const std::string kModifyPassword = "/client.ClientCore/ModifyPassword";
const std::string kCheckPassword = "/client.ClientCore/CheckPassword";
const std::string kLdap = "/client.ClientCore/CheckAndSaveLdapPassword";
const std::string kLogin = "/client.ClientCore/Login";
const std::string kReleasePassword = "/client.ClientCore/ClientReleasePassword";
const std::string kNextCloud = "/client.ClientCore/queryNextCloudInfo";
const std::string kIndividual = "/client.ClientCore/queryIndividualConfig";
const std::string kLoginConfig = "/client.ClientCore/getLoginConfig";
const std::string kCode = "/client.ClientCore/getCode";
const std::string kBind = "/client.ClientCore/confirmQuantumBind";

using vditest::lastRequest;
using vditest::wireMismatch;

// The cached identity of the facade tests, a distinct text in every member the tests read.
tagBaseInfo cachedIdentity()
{
    tagBaseInfo base;
    base.ip = QStringLiteral("10.0.0.7");
    base.mac = QStringLiteral("52:54:00:aa:bb:cc");
    base.deviceId = QStringLiteral("device-7");
    base.deviceName = QStringLiteral("terminal-7");
    base.clientType = QStringLiteral("1");
    base.authType = QStringLiteral("2");
    base.refreshFlag = QStringLiteral("1");
    base.name = QStringLiteral("cached-user");
    base.password = QStringLiteral("cached-pw");
    base.computerType = 5;
    base.vmId = 42;
    base.vmUuid = QStringLiteral("uuid-42");
    return base;
}

} // namespace

class TestAccount : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void facadeRequestsOnTheWire();
    void ldapRoad_data();
    void ldapRoad();
    void cacheAcrossRequests();
    void terminalAuthorityPassword();
    void checkUpgradeBehindGateway();
    void nextCloudAddress_data();
    void nextCloudAddress();
    void loginOptionFailures();
    void quantumBind_data();
    void quantumBind();
    void fieldMaps_data();
    void fieldMaps() { VDI_RUN_CHECK(); }
};

void TestAccount::initTestCase()
{
    QCoreApplication::setApplicationName(QStringLiteral("tst-account-client"));
}

// Runs first: nothing in this suite registers a meta-type before it, so the facade alone must
// have made every record of these signals known to queued connections. The individual
// configuration is answered twice from one call; the quantum configuration is never answered.
void TestAccount::facadeRequestsOnTheWire()
{
    vditest::TestServer server;
    VdiDesktopGrpcThread facade;
    server.connect(facade);
    facade.initBaseInfoParameter(cachedIdentity());
    tagExtendInfo extend;
    extend.osType = QStringLiteral("linux");
    facade.initExtendInfoParameter(extend);
    QSignalSpy upgrade(&facade, &VdiDesktopGrpcThread::checkUpgradeResult);
    QSignalSpy modified(&facade, &VdiDesktopGrpcThread::modifyPasswordResult);
    QSignalSpy release(&facade, &VdiDesktopGrpcThread::requestTerminalAuthorityPasswordResult);
    QSignalSpy nextCloud(&facade, &VdiDesktopGrpcThread::queryNextCloudInfoResult);
    QSignalSpy individual(&facade, &VdiDesktopGrpcThread::queryIndividualConfigInfoResultForGrpcThread);
    QSignalSpy config(&facade, &VdiDesktopGrpcThread::signalQueryLoginConfigResult);
    vditest::LogCapture log;

    facade.checkUpgrade(QStringLiteral("1.0.3"));
    emit facade.userQuantumBindReq(QStringLiteral("alice"), QStringLiteral("1001"), QStringLiteral("spm-9"));
    facade.modifyPassword(QStringLiteral("other-user"), QStringLiteral("old-pw"), QStringLiteral("new-pw"));
    facade.requestTerminalAuthorityPassword(VdiGrpc::tagClientType(3));
    facade.queryNextCloudInfo(5000000000LL);
    facade.queryIndividualConfigForVdidesktopGrpcThread();
    emit facade.quantumConfigReq(QStringLiteral("anyone"));
    facade.queryLoginConfig();

    // The worker answers in order: every answer is in once the last one is.
    QTRY_COMPARE(config.count(), 1);
    for (QSignalSpy* spy : {&upgrade, &modified, &release, &nextCloud, &config}) {
        QCOMPARE(spy->count(), 1);
        QCOMPARE(spy->at(0).at(1).toBool(), true);
    }
    for (const QList<QVariant>& result : qAsConst(individual))
        QCOMPARE(result.at(1).toBool(), true);
    QCOMPARE(lastRequest<client::IndividualConfigReq>(server, kIndividual).type(), 1);
    QVERIFY(log.contains(QStringLiteral("quantum not surpported by this client! stay tuned!"), QtInfoMsg));

    QCOMPARE(wireMismatch(lastRequest<client::UpgradeReq>(server, kUpgrade),
                          QStringLiteral("client_name: 'tst-account-client' client_version: '1.0.3' client_type: '1' "
                                         "os_type: 'linux' cpu_arch: '%1' ip: '10.0.0.7' device_id: 'device-7' "
                                         "device_name: 'terminal-7' state: 'ask'")
                              .arg(QSysInfo::currentCpuArchitecture())),
             QString());
    QCOMPARE(wireMismatch(lastRequest<client::UserQuantumBindReq>(server, kBind),
                          "userName: 'alice' userId: '1001' spmId: 'spm-9'"),
             QString());
    // The names go into the request only; the cache keeps its own.
    QCOMPARE(wireMismatch(lastRequest<client::ModifyPasswordReq>(server, kModifyPassword),
                          "client_base_info.name: 'other-user' client_base_info.password: 'old-pw' "
                          "client_base_info.device_id: 'device-7' password_new: 'new-pw'"),
             QString());
    QCOMPARE(facade.getUserName(), QStringLiteral("cached-user"));
    QCOMPARE(facade.getUserPasswd(), QStringLiteral("cached-pw"));

    QCOMPARE(lastRequest<client::ClientReleasePasswordReq>(server, kReleasePassword).clienttype(), 3);
    QCOMPARE(lastRequest<client::NextCloudInfoReq>(server, kNextCloud).userid(), int64_t(5000000000LL));
    QCOMPARE(lastRequest<client::LoginConfigReq>(server, kLoginConfig).deviceuuid(), std::string("52:54:00:aa:bb:cc"));
    facade.stop();
}

void TestAccount::ldapRoad_data()
{
    QTest::addColumn<int>("serverCode");
    QTest::newRow("accepted") << 0;
    QTest::newRow("refused") << 1;
}

// The check goes out with the domain given; a success is followed by the LDAP login, which
// takes the cached domain.
void TestAccount::ldapRoad()
{
    QFETCH(int, serverCode);
    const bool accepted = serverCode == 0;
    vditest::TestServer server;
    server->setScript(kLdap, vditest::replyWithCode<client::CheckPasswordResp>(serverCode));
    VdiDesktopGrpcThread facade;
    server.connect(facade);
    facade.initBaseInfoParameter(cachedIdentity());
    facade.updateDomain(QStringLiteral("CACHED"));
    QStringList order;
    connect(&facade, &VdiDesktopGrpcThread::signalCheckAndSaveLdapPasswdResult, this,
            [&order](const tagCheckPasswordResp&, bool ok) { order << QStringLiteral("ldap %1").arg(ok); });
    connect(&facade, &VdiDesktopGrpcThread::loginResult, this,
            [&order](LoginReply, bool) { order << QStringLiteral("login"); });
    QSignalSpy login(&facade, &VdiDesktopGrpcThread::loginResult);
    vditest::LogCapture log;

    facade.checkAndSaveLdapPasswd(QStringLiteral("u"), QStringLiteral("p"), QStringLiteral("ARG"));
    QTRY_VERIFY(!order.isEmpty());
    QVERIFY(log.contains(QStringLiteral("VdiDesktopGrpcThread::checkAndSaveLdapPasswd \"u\" , \"p\""), QtInfoMsg));
    QCOMPARE(wireMismatch(lastRequest<client::CheckPasswordReq>(server, kLdap).client_base_info(),
                          "domain: 'ARG' name: 'u' password: 'p' auth_type: '3'"),
             QString());

    if (!accepted) {
        QVERIFY(!login.wait(300));
        QCOMPARE(order, QStringList{QStringLiteral("ldap 0")});
        QCOMPARE(server->callCount(kLogin), 0);
        // What the failed check wrote stays.
        QCOMPARE(facade.getUserName(), QStringLiteral("u"));
        QCOMPARE(facade.getUserPasswd(), QStringLiteral("p"));
        facade.stop();
        return;
    }
    QTRY_COMPARE(login.count(), 1);
    QCOMPARE(order, (QStringList{QStringLiteral("ldap 1"), QStringLiteral("login")}));
    QCOMPARE(wireMismatch(lastRequest<client::LoginReq>(server, kLogin).client_base_info(),
                          "auth_type: '3' name: 'u' password: 'p' domain: 'CACHED' computer_type: 0 vm_id: -1 "
                          "vmUuid: '' refresh_flag: '0'"),
             QString());
    facade.stop();
}

// The three texts written by requestLoginCode go out with every later request; computerType 0
// goes into the code request's copies only. With web SSO the credentials are cached but nothing
// is sent: the check that follows is the only one the server sees.
void TestAccount::cacheAcrossRequests()
{
    vditest::TestServer server;
    VdiDesktopGrpcThread facade;
    server.connect(facade);
    facade.initBaseInfoParameter(cachedIdentity());
    tagExtendInfo extend;
    extend.computerType = 6;
    facade.initExtendInfoParameter(extend);
    QSignalSpy code(&facade, &VdiDesktopGrpcThread::signalQueryLoginCodeResult);
    QSignalSpy checked(&facade, &VdiDesktopGrpcThread::checkPasswordResult);
    vditest::LogCapture log;

    facade.requestLoginCode(QStringLiteral("wechat"), QStringLiteral("qr"), QStringLiteral("someone"));
    facade.checkPassword(QStringLiteral("sso-user"), QStringLiteral("sso-pw"), true);
    QCOMPARE(facade.getUserName(), QStringLiteral("sso-user"));
    QCOMPARE(facade.getUserPasswd(), QStringLiteral("sso-pw"));
    QVERIFY(log.contains(QStringLiteral("web sso feature login, does NOT check password."), QtDebugMsg));
    QVERIFY(!log.contains(QStringLiteral("emit to check password.")));

    facade.checkPassword(QStringLiteral("later"), QStringLiteral("later-pw"), false);
    QTRY_COMPARE(checked.count(), 1);
    QCOMPARE(server->callCount(kCheckPassword), 1);
    QCOMPARE(code.count(), 1);
    QCOMPARE(code.at(0).at(1).toBool(), true);
    QCOMPARE(wireMismatch(lastRequest<client::CodeReq>(server, kCode),
                          "codeSource: 'wechat' codeType: 'qr' username: 'someone' client_base_info.computer_type: 0 "
                          "client_extend_info.computer_type: 0 client_base_info.device_id: 'device-7'"),
             QString());
    QCOMPARE(wireMismatch(lastRequest<client::CheckPasswordReq>(server, kCheckPassword).client_base_info(),
                          "name: 'later' client_type: '0' auth_type: '0' refresh_flag: '0' computer_type: 5"),
             QString());
    facade.stop();
}

// Ten seconds whatever the worker's timeout, the token of the settings file alone, and a password
// that reaches no log line of the call.
void TestAccount::terminalAuthorityPassword()
{
    {
        VdiDesktopGrpcWorker writer;
        VdiWorkerProbe(writer).setGatewayCredentials("file-token", QStringLiteral("gw"), QStringLiteral("gw-pw"));
        writer.saveGatewayInfo();
    }
    vditest::TestServer server;
    const std::string password = "abcdefghijklmnopqrstuvwxyz";  // the longest that is cut whole
    server->setScript(kReleasePassword, vditest::replyWithCode<client::ClientReleasePasswordResp>(0, [&](auto& r) {
                          r.set_password(password);
                          r.set_enable(0);
                      }));
    VdiDesktopGrpcWorker worker;
    server.connect(worker);
    worker.setTimeout(60);
    QCOMPARE(VdiWorkerProbe(worker).gatewayToken(), std::string());
    QSignalSpy spy(&worker, &VdiDesktopGrpcWorker::requestTerminalAuthorityPasswordResult);
    vditest::LogCapture log;

    tagClientReleasePasswordRequest request;
    request.clientType = 2;
    worker.requestTerminalAuthorityPassword(request);

    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(1).toBool(), true);
    QCOMPARE(spy.at(0).at(0).value<ClientReleasePasswordReply>().password, QString::fromStdString(password));
    const vdifake::RecordedCall call = server->calls(kReleasePassword).at(0);
    QVERIFY2(call.deadlineSeconds > 9 && call.deadlineSeconds <= 10.5, qPrintable(QString::number(call.deadlineSeconds)));
    QCOMPARE(call.metadataValue("gatewayaccesstoken"), std::string("file-token"));
    QCOMPARE(call.metadata.count("client-language"), size_t(0));
    QCOMPARE(log.count(QStringLiteral("requestTerminalAuthorityPassword ]  request:\n"), QtInfoMsg), 1);
    QCOMPARE(log.count(QStringLiteral("requestTerminalAuthorityPassword ]  reply:\n"), QtInfoMsg), 1);
    QCOMPARE(log.count(QString::fromStdString(password)), 0);
}

// A gateway deployment offers no upgrade: a warning, no call and no answer.
void TestAccount::checkUpgradeBehindGateway()
{
    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    worker.initServerType(1);
    server.connect(worker);
    QSignalSpy spy(&worker, &VdiDesktopGrpcWorker::checkUpgradeResult);
    vditest::LogCapture log;

    worker.checkUpgrade(tagUpgradeRequest());
    QCOMPARE(log.count(QStringLiteral("gateway type, no check upgrade"), QtWarningMsg), 1);
    QCOMPARE(spy.count(), 0);
    QCOMPARE(server->callCount(kUpgrade), 0);
}

void TestAccount::nextCloudAddress_data()
{
    QTest::addColumn<QString>("serverIp");
    QTest::addColumn<int>("serverCode");
    QTest::addColumn<bool>("flag");
    QTest::addColumn<QString>("delivered");
    QTest::newRow("the server itself") << "127.0.0.1" << 0 << true << "localhost";
    QTest::newRow("another loopback address") << "127.0.0.2" << 0 << true << "127.0.0.2";
    QTest::newRow("a host name") << "nc.example" << 0 << true << "nc.example";
    QTest::newRow("padded") << " 127.0.0.1" << 0 << true << " 127.0.0.1";
    QTest::newRow("refused") << "127.0.0.1" << 1 << false << "127.0.0.1";
}

// Connected as "localhost", so that the replacement shows.
void TestAccount::nextCloudAddress()
{
    QFETCH(QString, serverIp);
    QFETCH(int, serverCode);
    QFETCH(bool, flag);
    QFETCH(QString, delivered);
    vditest::TestServer server;
    server->setScript(kNextCloud, vditest::replyWithCode<client::NextCloudInfoResp>(
                                      serverCode, [&](auto& r) { r.set_serverip(serverIp.toStdString()); }));
    VdiDesktopGrpcWorker worker;
    worker.initConnection(server.pemPath(), QStringLiteral("localhost"), server.port(), false);
    QSignalSpy spy(&worker, &VdiDesktopGrpcWorker::queryNextCloudInfoResult);

    worker.queryNextCloudInfo(tagNextCloudInfoReq());
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(1).toBool(), flag);
    QCOMPARE(spy.at(0).at(0).value<NextCloudInfoResp>().serverIp, delivered);
}

// Failures of the two login option handlers and of the LDAP check, each with its own lines.
void TestAccount::loginOptionFailures()
{
    VdiDesktopGrpcWorker bare;
    QSignalSpy config(&bare, &VdiDesktopGrpcWorker::queryLoginConfigResult);
    QSignalSpy code(&bare, &VdiDesktopGrpcWorker::queryLoginCodeResult);
    QSignalSpy ldap(&bare, &VdiDesktopGrpcWorker::checkAndSaveLdapPasswdResult);
    vditest::LogCapture log;
    bare.handleQueryLoginConfig(QString());
    bare.handleRequestLoginCode(LoginCodeReq());
    bare.handleCheckAndSaveLdapPasswd(tagCheckPasswordRequest());
    for (QSignalSpy* spy : {&config, &code, &ldap}) {
        QCOMPARE(spy->count(), 1);
        QCOMPARE(spy->at(0).at(1).toBool(), false);
    }
    QVERIFY(log.contains(QStringLiteral("VdiDesktopGrpcWorker::handleQueryLoginConfig: stub is null."), QtCriticalMsg));
    QVERIFY(log.contains(QStringLiteral("VdiDesktopGrpcWorker::handleRequestLoginCode: stub is null."), QtCriticalMsg));
    QVERIFY(log.contains(QStringLiteral("handleCheckAndSaveLdapPasswd ]  stub is null."), QtCriticalMsg));
    QVERIFY(!log.contains(QStringLiteral("handleQueryLoginConfig: failed")));

    vditest::TestServer server;
    server->setStatus(kLoginConfig, grpc::StatusCode::UNAVAILABLE);
    VdiDesktopGrpcWorker worker;
    server.connect(worker);
    log.clear();
    worker.handleQueryLoginConfig(QStringLiteral("uuid-1"));
    QVERIFY(log.contains(QStringLiteral("VdiDesktopGrpcWorker::handleQueryLoginConfig: failed 14")));
    QVERIFY(log.contains(QStringLiteral("VdiDesktopGrpcWorker::handleQueryLoginConfig ] request:\n"), QtInfoMsg));
    QVERIFY(log.contains(QStringLiteral("VdiDesktopGrpcWorker::handleQueryLoginConfig ] reply:\n"), QtInfoMsg));
}

void TestAccount::quantumBind_data()
{
    QTest::addColumn<bool>("withStub");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("bindResult");
    QTest::addColumn<bool>("ack");
    QTest::addColumn<QString>("line");
    QTest::newRow("refused binding, server error") << true << 0 << false << true << "confirmQuantumBind reply.bindResult:\n false";
    QTest::newRow("bound") << true << 0 << true << true << "confirmQuantumBind reply.bindResult:\n true";
    QTest::newRow("transport failure") << true << int(grpc::StatusCode::UNAVAILABLE) << false << false
                                       << "confirmQuantumBind reply:\n";
    QTest::newRow("no stub") << false << 0 << false << false << "userQuantumBindReq ]  stub is null.";
}

// The flag says that the call went through; nothing but bindResult is taken from the reply, and
// a failure neither fills the error nor rebuilds the channels.
void TestAccount::quantumBind()
{
    QFETCH(bool, withStub);
    QFETCH(int, status);
    QFETCH(bool, bindResult);
    QFETCH(bool, ack);
    QFETCH(QString, line);
    vditest::TestServer server;
    vdifake::Script script = vditest::replyWithCode<client::UserQuantumBindResp>(9, [&](auto& r) {
        r.set_bindresult(bindResult);
        r.mutable_error()->set_error_msg_zh("refused");
    });
    script.code = grpc::StatusCode(status);
    server->setScript(kBind, script);
    VdiDesktopGrpcWorker worker;
    if (withStub)
        server.connect(worker);
    QSignalSpy spy(&worker, &VdiDesktopGrpcWorker::onUserQuantumBindResp);
    vditest::LogCapture log;

    worker.userQuantumBindReq(QStringLiteral("u"), QStringLiteral("1"), QStringLiteral("s"));
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(0).toBool(), ack);
    const UserQuantumBindReply reply = spy.at(0).at(1).value<UserQuantumBindReply>();
    QCOMPARE(reply.bindResult, bindResult);
    QCOMPARE(reply.error.errorCode, -1);
    QCOMPARE(reply.error.errorMsgZh, QString());
    QCOMPARE(reply.error.errorMsgEn, QString());
    QVERIFY2(log.contains(line), qPrintable(log.dump()));
    QVERIFY(!log.contains(vditest::kRebuildLine));
    QCOMPARE(server->callCount(kBind), withStub ? 1 : 0);
}

void TestAccount::fieldMaps_data()
{
    using namespace vditest;
    QTest::addColumn<Check>("check");
    requestRow("check password request", &H::toCheckPasswordReq, withIdentity<tagCheckPasswordRequest>({}));
    using M = tagModifyPasswordRequest;
    requestRow("modify password request", &H::toModifyPasswordReq,
               withIdentity<M>({VDI_FIELD(M, passwordNew, "password_new")}));
    using P = tagClientReleasePasswordRequest;
    requestRow("release password request", &H::toClientReleasePasswordReq, {VDI_FIELD(P, clientType, "clientType")});
    using G = tagUpgradeRequest;
    requestRow("upgrade request", &H::toUpgradeReq,
               {VDI_FIELD(G, clientName, "client_name"), VDI_FIELD(G, clientVersion, "client_version"),
                VDI_FIELD(G, clientType, "client_type"), VDI_FIELD(G, osType, "os_type"),
                VDI_FIELD(G, cpuArch, "cpu_arch"), VDI_FIELD(G, ip, "ip"), VDI_FIELD(G, deviceId, "device_id"),
                VDI_FIELD(G, deviceName, "device_name"), VDI_FIELD(G, state, "state")});
    using N = tagNextCloudInfoReq;
    requestRow("next cloud request", &H::toNextCloudInfoReq, {VDI_FIELD(N, userId, "userId")});
    using I = tagIndividualConfigReq;
    requestRow("individual config request", &H::toIndividualConfigReq, {VDI_FIELD(I, type, "type")});
    using C = LoginCodeReq;
    requestRow("login code request", &H::toLoginCodeReq,
               withExtend(withIdentity<C>({VDI_FIELD(C, codeSource, "codeSource"), VDI_FIELD(C, codeType, "codeType"),
                                           VDI_FIELD(C, username, "username")})));

    using RU = tagUpgradeReply;
    replyRow("upgrade", &H::fromUpgradeResq,
             withError<RU>({VDI_FIELD(RU, clientVersion, "client_version"), VDI_FIELD(RU, downloadType, "download_type"),
                            VDI_FIELD(RU, url, "url"), VDI_FIELD(RU, force, "force"), VDI_FIELD(RU, md5, "md5"),
                            VDI_FIELD(RU, description, "description")}));
    using RN = tagNextCloudInfoResp;
    replyRow("next cloud", &H::fromNextCloudInfoResp,
             withError<RN>({VDI_FIELD(RN, serverIp, "serverIp"), VDI_FIELD(RN, port, "port"),
                            VDI_FIELD(RN, ncSize, "ncSize"), VDI_FIELD(RN, enable, "enable")}));
    using RI = tagIndividualConfigResp;
    replyRow("individual config", &H::fromIndividualConfigResp,
             withError<RI>({VDI_FIELD(RI, systemName, "systemName"), VDI_FIELD(RI, copyRight, "copyRight"),
                            VDI_FIELD(RI, logoImgUrl, "logoImgUrl"), VDI_FIELD(RI, backgroundImgUrl, "backgroundImgUrl"),
                            VDI_FIELD(RI, content, "content"), VDI_FIELD(RI, createTime, "createTime"),
                            VDI_FIELD(RI, individual, "individual")}),
             {"vendor_name"});
    using RE = tagApplyForEmailReply;
    replyRow("mail settings", &H::fromApplyForEmailResq,
             withError<RE>({VDI_FIELD(RE, serverAddress, "serverAddress"), VDI_FIELD(RE, serverPort, "serverPort"),
                            VDI_FIELD(RE, sendName, "sendName"), VDI_FIELD(RE, sendEmail, "sendEmail"),
                            VDI_FIELD(RE, authName, "authName"), VDI_FIELD(RE, authPaw, "authPaw")}));
    using RR = tagClientReleasePasswordReply;
    replyRow("release password", &H::fromClientReleasePasswordResq,
             withError<RR>({VDI_FIELD(RR, password, "password")}), {"enable"});
    replyRow("modify password", &H::fromModifyPasswordResq, withError<tagModifyPasswordReply>({}));
    replyRow("check password", &H::fromCheckPasswordResq, withError<tagCheckPasswordResp>({}));
    using RC = LoginConfigResp;
    replyRow("login config", &H::fromLoginConfigResp,
             withError<RC>({VDI_FIELD(RC, timeout, "timeout"), VDI_FIELD(RC, ticket, "ticket"), VDI_FIELD(RC, url, "url"),
                            VDI_FIELD(RC, oakdeskIp, "oakdeskIp"), VDI_FIELD(RC, enableJjtLogin, "enableJjtLogin"),
                            VDI_FIELD(RC, enableThirdPartyLogin, "enableThirdPartyLogin"),
                            VDI_FIELD(RC, enableWechatEnterpriseLogin, "enableWechatEnterpriseLogin"),
                            VDI_FIELD(RC, enableFaceLogin, "enableFaceLogin"),
                            VDI_FIELD(RC, enableSmsLogin, "enableSmsLogin"),
                            VDI_FIELD(RC, enableDingtalkLogin, "enableDingtalkLogin")}));
    using RL = LoginCodeResp;
    replyRow("login code", &H::fromLoginCodeResp,
             withError<RL>({VDI_FIELD(RL, codeSource, "codeSource"), VDI_FIELD(RL, codeType, "codeType"),
                            VDI_FIELD(RL, qrcodeUrl, "qrcodeUrl"), VDI_FIELD(RL, ticket, "ticket")}));
}

VDI_TEST_MAIN(TestAccount)
#include "tst_account.moc"
