// Login, direct and through the access gateway, as the TLS test server receives it.
#include "testsupport.h"
#include "fieldmap.h"

#include <QDir>
#include <QFile>
#include <QSettings>

namespace {
const std::string kLogin = "/client.ClientCore/Login";
const std::string kCheckAuth = "/gateway.GatewayCore/CheckAuthStatus";
const std::string kLoginGateway = "/gateway.GatewayCore/LoginGateway";
const std::string kWhoAreYou = "/client.ClientCore/WhoAreYou";

client::LoginReq loginRequest(const vditest::TestServer& server, int index)
{
    return server->calls(kLogin).at(size_t(index)).request<client::LoginReq>();
}

void setAuthStatus(const vditest::TestServer& server, int status)
{
    gateway::CheckAuthStatusResp reply;
    reply.set_auth_status(status);
    server->setReply(kCheckAuth, reply);
}

void setGatewayToken(const vditest::TestServer& server, const std::string& token, const std::string& refusal = {})
{
    gateway::LoginGatewayResp reply;
    reply.set_gw_access_token(token);
    if (!refusal.empty()) {
        reply.mutable_error()->set_error_code(2);
        reply.mutable_error()->set_error_msg_zh(refusal);
    }
    server->setReply(kLoginGateway, reply);
}

QMap<QString, QString> settingsFile(VdiDesktopGrpcWorker& worker)
{
    QSettings settings(worker.getGatewaySettingsFilePath(), QSettings::IniFormat);
    settings.setIniCodec("UTF-8");
    settings.beginGroup(QStringLiteral("GATEWAYINFO"));
    QMap<QString, QString> values;
    for (const QString& key : settings.childKeys())
        values[key] = settings.value(key).toString();
    return values;
}
} // namespace

class TestLogin : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void variantsOnTheWire();
    void desktopOfPasswordLoginLogged();
    void smsCodeIsOneTime();
    void sessionInfoRefill();
    void refreshKeepsFlag();
    void slowServerText();
    void gatewayFirstStartAsksForCredentials();
    void gatewaySavedCredentials();
    void gatewayNoAuthenticationNeeded();
    void gatewayRefusal();
    void gatewayEmptyCredentials();
    void gatewayCheckFailureGoesStraightOn();
    void gatewayStubMissing();
    void fieldMaps_data();
    void fieldMaps() { VDI_RUN_CHECK(); }
    void extraPoolsFollowMarked();

private:
    // A worker in gateway mode, connected to the server, on the test thread.
    void connectGateway(VdiDesktopGrpcWorker& worker, const vditest::TestServer& server);
    void saveCredentials(const QString& user, const QString& password, const std::string& token);
};

void TestLogin::initTestCase()
{
    VdiDesktopGrpcThread::registerMetaTypes();
}

void TestLogin::init()
{
    QDir(vditest::homePath() + QStringLiteral("/Documents")).removeRecursively();
    vditest::makeDocumentsDir();
}

void TestLogin::connectGateway(VdiDesktopGrpcWorker& worker, const vditest::TestServer& server)
{
    worker.initServerType(1);
    server.connect(worker);
}

void TestLogin::saveCredentials(const QString& user, const QString& password, const std::string& token)
{
    VdiDesktopGrpcWorker writer;
    VdiWorkerProbe(writer).setGatewayCredentials(token, user, password);
    writer.saveGatewayInfo();
}

void TestLogin::variantsOnTheWire()
{
    vditest::TestServer server;
    VdiDesktopGrpcThread facade;
    VdiThreadProbe cached(facade);
    server.connect(facade);
    tagBaseInfo base;
    base.ip = QStringLiteral("10.0.0.2");
    base.deviceId = QStringLiteral("dev-0");
    base.name = QStringLiteral("cached-user");
    base.password = QStringLiteral("cached-pw");
    base.vmId = 42;
    base.vmUuid = QStringLiteral("uuid-42");
    base.computerType = 3;
    facade.initBaseInfoParameter(base);
    QSignalSpy spy(&facade, &VdiDesktopGrpcThread::loginResult);

    facade.login(QStringLiteral("dev-1"));
    facade.login(QStringLiteral("alice"), QStringLiteral("pw-a"), QStringLiteral("0"));
    facade.login(VdiGrpc::LoginType(2), QStringLiteral("bob"), QStringLiteral("pw-b"), QStringLiteral("dev-2"),
                 QStringLiteral("ignored"), QStringLiteral("123456"), QStringLiteral("ignored"));
    QTRY_COMPARE(spy.count(), 3);
    QCOMPARE(spy.at(0).at(1).toBool(), true);

    struct Expected {
        const char* authType;
        const char* name;
        const char* password;
        const char* deviceId;
        const char* smsCode;
    };
    const Expected expected[] = {
        {"1", "cached-user", "cached-pw", "dev-1", ""},
        {"0", "alice", "pw-a", "dev-1", ""},
        {"2", "bob", "pw-b", "dev-2", "123456"},
    };
    for (int i = 0; i < 3; ++i) {
        const client::ClientBaseInfo sent = loginRequest(server, i).client_base_info();
        QCOMPARE(sent.auth_type(), std::string(expected[i].authType));
        QCOMPARE(sent.name(), std::string(expected[i].name));
        QCOMPARE(sent.password(), std::string(expected[i].password));
        QCOMPARE(sent.device_id(), std::string(expected[i].deviceId));
        QCOMPARE(sent.sms_code(), std::string(expected[i].smsCode));
        QCOMPARE(sent.refresh_flag(), std::string("0"));
        QCOMPARE(sent.vm_id(), int64_t(-1));
        QVERIFY(sent.vmuuid().empty());
        QCOMPARE(sent.computer_type(), 0);
    }
    // The long overload keeps the code in the cache; so does the cache keep the stamped fields.
    QCOMPARE(cached.baseInfo().smsCode, QStringLiteral("123456"));
    QCOMPARE(cached.baseInfo().vmId, qint64(-1));
    QCOMPARE(cached.baseInfo().computerType, 0);
    facade.stop();
}

// A password login names the desktop it leaves behind, when there is one.
void TestLogin::desktopOfPasswordLoginLogged()
{
    VdiDesktopGrpcThread facade;
    tagBaseInfo base;
    base.vmId = 42;
    base.vmUuid = QStringLiteral("uuid-42");
    facade.initBaseInfoParameter(base);
    vditest::LogCapture log;
    facade.login(QStringLiteral("u"), QStringLiteral("p"), QStringLiteral("0"));
    facade.login(QStringLiteral("u"), QStringLiteral("p"), QStringLiteral("0"));  // the desktop is reset by now
    QCOMPARE(log.count(QStringLiteral("login:vmId =  42 , vmUuid =  \"uuid-42\""), QtDebugMsg), 1);
    QCOMPARE(log.count(QStringLiteral("login:vmId = ")), 1);
    facade.stop();
}

void TestLogin::smsCodeIsOneTime()
{
    vditest::TestServer server;
    VdiDesktopGrpcThread facade;
    VdiThreadProbe cached(facade);
    server.connect(facade);
    facade.setLocalIP(QStringLiteral("10.0.0.3"));
    facade.setLocalMAC(QStringLiteral("aa:bb"));
    QSignalSpy spy(&facade, &VdiDesktopGrpcThread::loginResult);

    facade.loginSMS(QStringLiteral("carol"), QStringLiteral("pw"), QStringLiteral("654321"), QStringLiteral("ticket-7"));
    QCOMPARE(cached.baseInfo().smsCode, QString());
    QCOMPARE(cached.baseInfo().ticket, QStringLiteral("ticket-7"));
    facade.login(QStringLiteral("aa:bb"));
    QTRY_COMPARE(spy.count(), 2);

    const client::ClientBaseInfo sms = loginRequest(server, 0).client_base_info();
    QCOMPARE(sms.auth_type(), std::string("2"));
    QCOMPARE(sms.sms_code(), std::string("654321"));
    QCOMPARE(sms.ticket(), std::string("ticket-7"));
    const client::ClientBaseInfo next = loginRequest(server, 1).client_base_info();
    QVERIFY(next.sms_code().empty());
    QCOMPARE(next.ticket(), std::string("ticket-7"));
    facade.stop();
}

void TestLogin::sessionInfoRefill()
{
    vditest::TestServer server;
    VdiDesktopGrpcThread facade;
    server.connect(facade);
    facade.setLocalMAC(QStringLiteral("aa:cc"));  // no ip yet
    int asked = 0;
    connect(&facade, &VdiDesktopGrpcThread::getSessionInfo, this, [&] {
        ++asked;
        facade.setLocalIP(QStringLiteral("10.7.7.7"));
    });
    QSignalSpy spy(&facade, &VdiDesktopGrpcThread::loginResult);
    facade.login(QStringLiteral("u"), QStringLiteral("p"), QStringLiteral("0"));
    facade.login(QStringLiteral("u"), QStringLiteral("p"), QStringLiteral("0"));
    QTRY_COMPARE(spy.count(), 2);
    QCOMPARE(asked, 1);  // the second time the identity is complete
    QCOMPARE(loginRequest(server, 0).client_base_info().ip(), std::string("10.7.7.7"));
    facade.stop();
}

void TestLogin::refreshKeepsFlag()
{
    vditest::TestServer server;
    VdiDesktopGrpcThread facade;
    VdiThreadProbe cached(facade);
    server.connect(facade);
    QSignalSpy spy(&facade, &VdiDesktopGrpcThread::updateVmInfoFromServerResult);
    vditest::LogCapture log;
    facade.updateVmInfoFromServer();
    QTRY_COMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(1).toBool(), true);
    QCOMPARE(loginRequest(server, 0).client_base_info().refresh_flag(), std::string("1"));
    QCOMPARE(cached.baseInfo().refreshFlag, QStringLiteral("1"));
    QVERIFY(log.contains(QStringLiteral(" request:\n"), QtDebugMsg));
    facade.stop();
}

void TestLogin::slowServerText()
{
    vditest::TestServer server;
    client::LoginResp slow;
    slow.mutable_error()->set_error_code(4);
    slow.mutable_error()->set_error_msg_zh("服务器忙");
    slow.mutable_error()->set_error_msg_en("controller busy");
    server->setReply(kLogin, slow);

    VdiDesktopGrpcWorker worker;
    server.connect(worker, true);
    QSignalSpy spy(&worker, &VdiDesktopGrpcWorker::loginResult);
    QSignalSpy refresh(&worker, &VdiDesktopGrpcWorker::updateVmInfoFromServerResult);
    worker.login(tagLoginRequest());
    worker.updateVmInfoFromServer(tagLoginRequest());

    const auto reply = spy.at(0).at(0).value<tagLoginReply>();
    QCOMPARE(spy.at(0).at(1).toBool(), false);
    QCOMPARE(reply.error.errorMsgZh, QStringLiteral(" 服务器响应登录请求超时，请稍后重试 "));
    QCOMPARE(reply.error.errorMsgEn, QStringLiteral("controller busy"));
    QCOMPARE(reply.error.errorCode, 4);
    // The refresh keeps the server's words.
    QCOMPARE(refresh.at(0).at(0).value<tagLoginReply>().error.errorMsgZh, QStringLiteral("服务器忙"));
}

// The first start on a terminal whose home has no Documents folder: the credentials are asked
// for once, and kept for the next start.
void TestLogin::gatewayFirstStartAsksForCredentials()
{
    QVERIFY(QDir(vditest::homePath() + QStringLiteral("/Documents")).removeRecursively());
    vditest::TestServer server;
    setAuthStatus(server, 1);
    setGatewayToken(server, "token-1");
    VdiDesktopGrpcWorker worker;
    connectGateway(worker, server);
    QSignalSpy ask(&worker, &VdiDesktopGrpcWorker::inputGatewayAuthInfo);
    QSignalSpy result(&worker, &VdiDesktopGrpcWorker::loginResult);

    tagLoginRequest request;
    request.baseInfo.name = QStringLiteral("parked-user");
    worker.login(request);
    QCOMPARE(ask.count(), 1);
    QCOMPARE(result.count(), 0);  // parked
    QCOMPARE(server->callCount(kLoginGateway), 0);
    QCOMPARE(server->callCount(kLogin), 0);
    const auto check = server->calls(kCheckAuth).at(0);
    QCOMPARE(check.metadataValue("gatewayaccesstoken"), std::string());
    QCOMPARE(check.request<gateway::CheckAuthStatusReq>().ip(), std::string("0.0.0.0"));
    QCOMPARE(check.request<gateway::CheckAuthStatusReq>().mac(), std::string("0:0:0:0"));

    // The application answers; the parked login goes on with the new token.
    worker.loginGateway(QStringLiteral("网关用户"), QStringLiteral("gw-pw"));
    QCOMPARE(result.count(), 1);
    QCOMPARE(result.at(0).at(1).toBool(), true);
    const auto gatewayLogin = server->calls(kLoginGateway).at(0).request<gateway::LoginGatewayReq>();
    QCOMPARE(QString::fromStdString(gatewayLogin.client_base_info().name()), QStringLiteral("网关用户"));
    QCOMPARE(gatewayLogin.client_base_info().password(), std::string("gw-pw"));
    QVERIFY(gatewayLogin.has_client_extend_info());
    QCOMPARE(loginRequest(server, 0).client_base_info().name(), std::string("parked-user"));
    QCOMPARE(server->calls(kLogin).at(0).metadataValue("gatewayaccesstoken"), std::string("token-1"));

    const auto saved = settingsFile(worker);
    QCOMPARE(saved.value(QStringLiteral("user")), QStringLiteral("网关用户"));
    QCOMPARE(saved.value(QStringLiteral("password")), QStringLiteral("gw-pw"));
    QCOMPARE(saved.value(QStringLiteral("token")), QStringLiteral("token-1"));

    // Every later call carries the token.
    worker.onQueryControllerType(QString());
    QCOMPARE(server->calls(kWhoAreYou).at(0).metadataValue("gatewayaccesstoken"), std::string("token-1"));

    // The next start logs in with the saved token and asks nothing.
    setAuthStatus(server, 0);
    VdiDesktopGrpcWorker next;
    connectGateway(next, server);
    QSignalSpy askedAgain(&next, &VdiDesktopGrpcWorker::inputGatewayAuthInfo);
    QSignalSpy nextResult(&next, &VdiDesktopGrpcWorker::loginResult);
    next.login(tagLoginRequest());
    QCOMPARE(askedAgain.count(), 0);
    QCOMPARE(nextResult.count(), 1);
    QCOMPARE(nextResult.at(0).at(1).toBool(), true);
    QCOMPARE(server->calls(kLogin).at(1).metadataValue("gatewayaccesstoken"), std::string("token-1"));
}

void TestLogin::gatewaySavedCredentials()
{
    saveCredentials(QStringLiteral("saved"), QStringLiteral("saved-pw"), "old-token");
    vditest::TestServer server;
    setAuthStatus(server, 1);
    setGatewayToken(server, "new-token");
    VdiDesktopGrpcWorker worker;
    connectGateway(worker, server);
    QSignalSpy ask(&worker, &VdiDesktopGrpcWorker::inputGatewayAuthInfo);
    QSignalSpy result(&worker, &VdiDesktopGrpcWorker::loginResult);
    worker.login(tagLoginRequest());
    QCOMPARE(ask.count(), 0);
    QCOMPARE(result.count(), 1);
    QCOMPARE(result.at(0).at(1).toBool(), true);
    QCOMPARE(server->calls(kCheckAuth).at(0).metadataValue("gatewayaccesstoken"), std::string("old-token"));
    QCOMPARE(server->calls(kLoginGateway).at(0).request<gateway::LoginGatewayReq>().client_base_info().name(),
             std::string("saved"));
    QCOMPARE(server->calls(kLogin).at(0).metadataValue("gatewayaccesstoken"), std::string("new-token"));
    QCOMPARE(settingsFile(worker).value(QStringLiteral("token")), QStringLiteral("new-token"));
}

void TestLogin::gatewayNoAuthenticationNeeded()
{
    saveCredentials(QStringLiteral("saved"), QStringLiteral("saved-pw"), "good-token");
    VdiDesktopGrpcWorker probeWorker;
    QFile file(probeWorker.getGatewaySettingsFilePath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray before = file.readAll();
    file.close();
    QVERIFY(QFile::setPermissions(file.fileName(), QFileDevice::ReadOwner));  // a write would now fail loudly

    vditest::TestServer server;
    setAuthStatus(server, 0);
    VdiDesktopGrpcWorker worker;
    connectGateway(worker, server);
    QSignalSpy result(&worker, &VdiDesktopGrpcWorker::loginResult);
    worker.login(tagLoginRequest());
    QCOMPARE(result.count(), 1);
    QCOMPARE(server->callCount(kLoginGateway), 0);
    QCOMPARE(server->calls(kLogin).at(0).metadataValue("gatewayaccesstoken"), std::string("good-token"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), before);
    QFile::setPermissions(file.fileName(), QFileDevice::ReadOwner | QFileDevice::WriteOwner);
}

void TestLogin::gatewayRefusal()
{
    saveCredentials(QStringLiteral("saved"), QStringLiteral("stale-pw"), "kept-token");
    vditest::TestServer server;
    setAuthStatus(server, 1);
    setGatewayToken(server, std::string(), "密码错误");
    VdiDesktopGrpcWorker worker;
    connectGateway(worker, server);
    QSignalSpy result(&worker, &VdiDesktopGrpcWorker::loginResult);
    QSignalSpy ask(&worker, &VdiDesktopGrpcWorker::inputGatewayAuthInfo);
    worker.login(tagLoginRequest());

    QCOMPARE(result.count(), 1);
    QCOMPARE(result.at(0).at(1).toBool(), false);
    const auto reply = result.at(0).at(0).value<tagLoginReply>();
    QCOMPARE(reply.error.errorMsgZh, QStringLiteral("认证网关失败 密码错误"));
    QCOMPARE(reply.error.errorCode, -1);
    QVERIFY(reply.error.errorMsgEn.isEmpty());
    QCOMPARE(server->callCount(kLogin), 0);
    const auto saved = settingsFile(worker);
    QCOMPARE(saved.value(QStringLiteral("user")), QString());
    QCOMPARE(saved.value(QStringLiteral("password")), QString());
    QCOMPARE(saved.value(QStringLiteral("token")), QStringLiteral("kept-token"));

    // The next login asks the application.
    worker.login(tagLoginRequest());
    QCOMPARE(ask.count(), 1);

    // A transport failure of the gateway login forgets the credentials too.
    saveCredentials(QStringLiteral("saved"), QStringLiteral("pw"), "kept-token");
    server->setStatus(kLoginGateway, grpc::StatusCode::UNAVAILABLE);
    worker.login(tagLoginRequest());
    QCOMPARE(result.count(), 2);
    QCOMPARE(result.at(1).at(0).value<tagLoginReply>().error.errorMsgZh, QStringLiteral("认证网关失败"));
    QCOMPARE(settingsFile(worker).value(QStringLiteral("user")), QString());
}

void TestLogin::gatewayEmptyCredentials()
{
    saveCredentials(QStringLiteral("saved"), QStringLiteral("pw"), "token");
    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    connectGateway(worker, server);
    QSignalSpy result(&worker, &VdiDesktopGrpcWorker::loginResult);
    vditest::LogCapture log;
    worker.loginGateway(QString(), QStringLiteral("x"));
    QCOMPARE(result.count(), 1);
    QCOMPARE(result.at(0).at(1).toBool(), false);
    QCOMPARE(result.at(0).at(0).value<tagLoginReply>().error.errorMsgZh, QStringLiteral("认证网关失败"));
    QVERIFY(log.contains(QStringLiteral("user or password empty, cancel login"), QtWarningMsg));
    QCOMPARE(server->callCount(kLoginGateway), 0);
    QCOMPARE(probe.gatewayUser(), QStringLiteral("saved"));
    QCOMPARE(settingsFile(worker).value(QStringLiteral("password")), QStringLiteral("pw"));
}

void TestLogin::gatewayCheckFailureGoesStraightOn()
{
    vditest::TestServer server;
    server->setStatus(kCheckAuth, grpc::StatusCode::UNAVAILABLE);
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    connectGateway(worker, server);
    const auto stub = probe.stub();
    QSignalSpy result(&worker, &VdiDesktopGrpcWorker::loginResult);
    vditest::LogCapture log;
    worker.login(tagLoginRequest());
    QCOMPARE(result.count(), 1);
    QCOMPARE(result.at(0).at(1).toBool(), true);  // decided by Login alone
    QCOMPARE(server->callCount(kLogin), 1);
    QCOMPARE(server->callCount(kLoginGateway), 0);
    QVERIFY(log.contains(QStringLiteral("check gateway auth status error: "), QtCriticalMsg));
    QVERIFY(log.contains(QStringLiteral("no need auth gateway, login now")));
    QCOMPARE(probe.stub(), stub);  // no rebuild for the gateway check
}

void TestLogin::gatewayStubMissing()
{
    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    server.connect(worker);  // controller mode: no gateway stub
    worker.initServerType(1);
    QSignalSpy result(&worker, &VdiDesktopGrpcWorker::loginResult);
    vditest::LogCapture log;
    worker.login(tagLoginRequest());
    QCOMPARE(result.count(), 1);
    QCOMPARE(result.at(0).at(1).toBool(), false);
    QCOMPARE(result.at(0).at(0).value<tagLoginReply>().error.errorCode, 5);
    QVERIFY(log.contains(QStringLiteral("gateway stub null"), QtCriticalMsg));
    QCOMPARE(server->callCount(kLogin), 0);
}

void TestLogin::fieldMaps_data()
{
    using namespace vditest;
    using H = VdiDesktopGrpcHelper;
    QTest::addColumn<Check>("check");
    tagLoginRequest request;
    request.reserved = QStringLiteral("never sent");
    requestRow("request", &H::toLoginReq, withExtend(withIdentity<tagLoginRequest>({})), request);

    // The pools, then the extra pools; that these are marked is tested below.
    using L = tagLoginReply;
    const auto pools = [](L& r) -> QList<tagPoolInfo>& { return r.poolList; };
    replyRow("reply", &H::fromLoginResp,
             withError<L>({VDI_FIELD(L, domain, "domain"), VDI_FIELD(L, netBIOS, "netBIOS"),
                           VDI_FIELD(L, updateInterval, "update_interval"), VDI_FIELD(L, startTimeout, "start_timeout"),
                           VDI_FIELD(L, authType, "auth_type"), VDI_FIELD(L, name, "name"),
                           VDI_FIELD(L, password, "password"), VDI_FIELD(L, dueDate, "due_date"),
                           VDI_FIELD(L, userExpireTime, "user_expire_time"), VDI_FIELD(L, userId, "user_id"),
                           VDI_FIELD(L, smsAuthIsReLogin, "smsAuthIsReLogin"), VDI_FIELD(L, smsTimout, "smsTimout"),
                           VDI_FIELD(L, isOpenldap, "isOpenldap"), VDI_FIELD(L, headShot, "headShot"),
                           VDI_FIELD(L, userLoginName, "userLoginName"), VDI_FIELD(L, userPassword, "userPassword"),
                           VDI_FIELD(L, spmIdBinding, "spmIdBinding")})
                 + listOf<L>(poolMap(), "poolList", "pool_list", pools)
                 + listOf<L>(without(poolMap(), {"isExPool"}), "poolList", "ex_pool_list", pools, 2),
             {"idvUsbPolicy.", "userGroupId", "web_app_set.", "use_gateway", "pool_list.authDevice.",
              "pool_list.imageUuid", "pool_list.accessAccount", "pool_list.accessPassword", "ex_pool_list.authDevice.",
              "ex_pool_list.imageUuid", "ex_pool_list.accessAccount", "ex_pool_list.accessPassword"});
}

void TestLogin::extraPoolsFollowMarked()
{
    client::LoginResp reply;
    reply.add_ex_pool_list()->set_name("extra");
    reply.add_pool_list()->set_name("first");
    tagLoginReply converted;
    VdiDesktopGrpcHelper::fromLoginResp(reply, converted);
    QCOMPARE(converted.poolList.size(), 2);
    QCOMPARE(converted.poolList[0].name, QStringLiteral("first"));
    QVERIFY(!converted.poolList[0].isExPool);
    QVERIFY(converted.poolList[1].isExPool);
}

VDI_TEST_MAIN(TestLogin)
#include "tst_login.moc"
