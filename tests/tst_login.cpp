// Login, direct and through the access gateway, as the TLS test server receives it.
#include "testsupport.h"
#include "fieldmap.h"
#include "vdiqtcompat.h"

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

// The gateway's user, password and token in the settings file, as "user/password/token".
QString savedGateway(VdiDesktopGrpcWorker& worker)
{
    QSettings settings(worker.getGatewaySettingsFilePath(), QSettings::IniFormat);
    vdicompat::useUtf8(settings);
    settings.beginGroup(QStringLiteral("GATEWAYINFO"));
    QStringList values;
    for (const char* key : {"user", "password", "token"})
        values << settings.value(QLatin1String(key)).toString();
    return values.join(QLatin1Char('/'));
}

void saveCredentials(const QString& user, const QString& password, const std::string& token)
{
    VdiDesktopGrpcWorker writer;
    VdiWorkerProbe(writer).setGatewayCredentials(token, user, password);
    writer.saveGatewayInfo();
}

// Each login answer that the spy caught, as "flag code 'zh' 'en'", one a line.
QString answers(const QSignalSpy& spy)
{
    QStringList lines;
    for (const QList<QVariant>& answer : spy) {
        const tagErrorData error = answer.at(0).value<tagLoginReply>().error;
        lines << QStringLiteral("%1 %2 '%3' '%4'")
                     .arg(QLatin1String(answer.at(1).toBool() ? "true" : "false"))
                     .arg(error.errorCode)
                     .arg(error.errorMsgZh, error.errorMsgEn);
    }
    return lines.join(QLatin1Char('\n'));
}
const QString kLoggedIn = QStringLiteral("true 0 '' ''");

// A worker in gateway mode on a test server of its own, its login answers and its requests for
// the gateway's credentials caught.
struct GatewayWorker {
    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    QSignalSpy result{&worker, &VdiDesktopGrpcWorker::loginResult};
    QSignalSpy ask{&worker, &VdiDesktopGrpcWorker::inputGatewayAuthInfo};
    GatewayWorker()
    {
        worker.initServerType(1);
        server.connect(worker);
    }
};
} // namespace

class TestLogin : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { VdiDesktopGrpcThread::registerMetaTypes(); }
    void init();
    void variantsOnTheWire();
    void identityBetweenLogins();
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
};

void TestLogin::init()
{
    QDir(vditest::homePath() + QStringLiteral("/Documents")).removeRecursively();
    vditest::makeDocumentsDir();
}

// What each login entry sends; each stamps its kind and resets the desktop in the cache.
void TestLogin::variantsOnTheWire()
{
    vditest::TestServer server;
    VdiDesktopGrpcThread facade;
    VdiThreadProbe cached(facade);
    server.connect(facade);
    tagBaseInfo base;
    base.vmId = 42;
    base.vmUuid = QStringLiteral("uuid-42");
    base.computerType = 3;
    facade.initBaseInfoParameter(base);
    QSignalSpy spy(&facade, &VdiDesktopGrpcThread::loginResult);
    vditest::LogCapture log;

    facade.login(QStringLiteral("alice"), QStringLiteral("pw-a"), QStringLiteral("0"));
    facade.login(QStringLiteral("dev-1"));
    facade.login(VdiGrpc::LoginType(2), QStringLiteral("bob"), QStringLiteral("pw-b"), QStringLiteral("dev-2"),
                 QStringLiteral("ignored"), QStringLiteral("123456"), QStringLiteral("ignored"));
    facade.login(QStringLiteral("alice"), QStringLiteral("pw-a"), QStringLiteral("0"));
    QTRY_COMPARE(spy.count(), 4);
    QCOMPARE(spy.at(0).at(1).toBool(), true);

    const QString expected[] = {
        QStringLiteral("auth_type: '0' name: 'alice' password: 'pw-a' device_id: '' sms_code: ''"),
        QStringLiteral("auth_type: '1' name: 'alice' password: 'pw-a' device_id: 'dev-1' sms_code: ''"),
        QStringLiteral("auth_type: '2' name: 'bob' password: 'pw-b' device_id: 'dev-2' sms_code: '123456'"),
    };
    const QString stamped = QStringLiteral(" refresh_flag: '0' vm_id: -1 vmUuid: '' computer_type: 0");
    for (int i = 0; i < 3; ++i)
        QCOMPARE(vditest::wireMismatch(loginRequest(server, i).client_base_info(), expected[i] + stamped), QString());
    QCOMPARE(cached.baseInfo().smsCode, QStringLiteral("123456"));  // the long overload keeps the code
    // A password login names the desktop it leaves behind, when there is one.
    QCOMPARE(log.count(QStringLiteral("login:vmId =  42 , vmUuid =  \"uuid-42\""), QtDebugMsg), 1);
    QCOMPARE(log.count(QStringLiteral("login:vmId = ")), 1);

    // A refresh sends the cached identity with its own flag, which the cache keeps.
    QSignalSpy refreshed(&facade, &VdiDesktopGrpcThread::updateVmInfoFromServerResult);
    facade.updateVmInfoFromServer();
    QTRY_COMPARE(refreshed.count(), 1);
    QCOMPARE(refreshed.at(0).at(1).toBool(), true);
    QCOMPARE(loginRequest(server, 4).client_base_info().refresh_flag(), std::string("1"));
    QCOMPARE(cached.baseInfo().refreshFlag, QStringLiteral("1"));
    QVERIFY(log.contains(QStringLiteral(" request:\n"), QtDebugMsg));
    facade.stop();
}

// Asked for, the application refills a missing address, once. The SMS code goes out with its
// login only; the ticket stays for later logins.
void TestLogin::identityBetweenLogins()
{
    vditest::TestServer server;
    VdiDesktopGrpcThread facade;
    server.connect(facade);
    facade.setLocalMAC(QStringLiteral("aa:bb"));  // no address yet
    int asked = 0;
    connect(&facade, &VdiDesktopGrpcThread::getSessionInfo, this, [&] {
        ++asked;
        facade.setLocalIP(QStringLiteral("10.7.7.7"));
    });
    QSignalSpy spy(&facade, &VdiDesktopGrpcThread::loginResult);

    facade.loginSMS(QStringLiteral("carol"), QStringLiteral("pw"), QStringLiteral("654321"), QStringLiteral("ticket-7"));
    facade.login(QStringLiteral("aa:bb"));
    QTRY_COMPARE(spy.count(), 2);
    QCOMPARE(asked, 1);
    QCOMPARE(vditest::wireMismatch(loginRequest(server, 0).client_base_info(),
                                   "ip: '10.7.7.7' auth_type: '2' name: 'carol' password: 'pw' sms_code: '654321' "
                                   "ticket: 'ticket-7'"),
             QString());
    QCOMPARE(vditest::wireMismatch(loginRequest(server, 1).client_base_info(), "sms_code: '' ticket: 'ticket-7'"),
             QString());
    facade.stop();
}

// A server too slow to log in gets our text in place of its own; the refresh keeps its words.
void TestLogin::slowServerText()
{
    vditest::TestServer server;
    server->setScript(kLogin, vditest::replyWithCode<client::LoginResp>(4, [](client::LoginResp& reply) {
                          reply.mutable_error()->set_error_msg_zh("服务器忙");
                          reply.mutable_error()->set_error_msg_en("controller busy");
                      }));
    VdiDesktopGrpcWorker worker;
    server.connect(worker, true);
    QSignalSpy spy(&worker, &VdiDesktopGrpcWorker::loginResult);
    QSignalSpy refresh(&worker, &VdiDesktopGrpcWorker::updateVmInfoFromServerResult);
    worker.login(tagLoginRequest());
    worker.updateVmInfoFromServer(tagLoginRequest());
    QCOMPARE(answers(spy), QStringLiteral("false 4 ' 服务器响应登录请求超时，请稍后重试 ' 'controller busy'"));
    QCOMPARE(answers(refresh), QStringLiteral("false 4 '服务器忙' 'controller busy'"));
}

// The first start on a terminal whose home has no Documents folder: the credentials are asked
// for once, and kept.
void TestLogin::gatewayFirstStartAsksForCredentials()
{
    QVERIFY(QDir(vditest::homePath() + QStringLiteral("/Documents")).removeRecursively());
    GatewayWorker gateway;
    const vditest::TestServer& server = gateway.server;
    setAuthStatus(server, 1);
    setGatewayToken(server, "token-1");

    tagLoginRequest request;
    request.baseInfo.name = QStringLiteral("parked-user");
    gateway.worker.login(request);
    QCOMPARE(gateway.ask.count(), 1);
    QCOMPARE(answers(gateway.result), QString());  // parked
    QCOMPARE(server->callCount(kLoginGateway), 0);
    QCOMPARE(server->callCount(kLogin), 0);
    const auto check = server->calls(kCheckAuth).at(0);
    QCOMPARE(check.metadataValue("gatewayaccesstoken"), std::string());
    QCOMPARE(vditest::wireMismatch(check.request<gateway::CheckAuthStatusReq>(),
                                   "ip: '0.0.0.0' mac: '0:0:0:0' client_type: '0'"),
             QString());

    // The application answers; the parked login goes on with the new token.
    gateway.worker.loginGateway(QStringLiteral("网关用户"), QStringLiteral("gw-pw"));
    QCOMPARE(answers(gateway.result), kLoggedIn);
    const auto gatewayLogin = vditest::lastRequest<gateway::LoginGatewayReq>(server, kLoginGateway);
    QCOMPARE(vditest::wireMismatch(gatewayLogin, "client_base_info.name: '网关用户' client_base_info.password: 'gw-pw'"),
             QString());
    QVERIFY(gatewayLogin.has_client_extend_info());
    QCOMPARE(loginRequest(server, 0).client_base_info().name(), std::string("parked-user"));
    QCOMPARE(server->calls(kLogin).at(0).metadataValue("gatewayaccesstoken"), std::string("token-1"));
    QCOMPARE(savedGateway(gateway.worker), QStringLiteral("网关用户/gw-pw/token-1"));

    // Every later call carries the token.
    gateway.worker.onQueryControllerType(QString());
    QCOMPARE(server->calls(kWhoAreYou).at(0).metadataValue("gatewayaccesstoken"), std::string("token-1"));
}

void TestLogin::gatewaySavedCredentials()
{
    saveCredentials(QStringLiteral("saved"), QStringLiteral("saved-pw"), "old-token");
    GatewayWorker gateway;
    setAuthStatus(gateway.server, 1);
    setGatewayToken(gateway.server, "new-token");
    gateway.worker.login(tagLoginRequest());
    QCOMPARE(gateway.ask.count(), 0);
    QCOMPARE(answers(gateway.result), kLoggedIn);
    QCOMPARE(gateway.server->calls(kCheckAuth).at(0).metadataValue("gatewayaccesstoken"), std::string("old-token"));
    QCOMPARE(vditest::lastRequest<gateway::LoginGatewayReq>(gateway.server, kLoginGateway).client_base_info().name(),
             std::string("saved"));
    QCOMPARE(gateway.server->calls(kLogin).at(0).metadataValue("gatewayaccesstoken"), std::string("new-token"));
    QCOMPARE(savedGateway(gateway.worker), QStringLiteral("saved/saved-pw/new-token"));
}

// The next start: the saved token, and nothing asked or saved.
void TestLogin::gatewayNoAuthenticationNeeded()
{
    saveCredentials(QStringLiteral("saved"), QStringLiteral("saved-pw"), "good-token");
    VdiDesktopGrpcWorker probeWorker;
    QFile file(probeWorker.getGatewaySettingsFilePath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray before = file.readAll();
    file.close();
    QVERIFY(QFile::setPermissions(file.fileName(), QFileDevice::ReadOwner));  // a write would now fail loudly

    GatewayWorker gateway;
    setAuthStatus(gateway.server, 0);
    gateway.worker.login(tagLoginRequest());
    QCOMPARE(answers(gateway.result), kLoggedIn);
    QCOMPARE(gateway.ask.count(), 0);
    QCOMPARE(gateway.server->callCount(kLoginGateway), 0);
    QCOMPARE(gateway.server->calls(kLogin).at(0).metadataValue("gatewayaccesstoken"), std::string("good-token"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), before);
    QFile::setPermissions(file.fileName(), QFileDevice::ReadOwner | QFileDevice::WriteOwner);
}

void TestLogin::gatewayRefusal()
{
    saveCredentials(QStringLiteral("saved"), QStringLiteral("stale-pw"), "kept-token");
    GatewayWorker gateway;
    setAuthStatus(gateway.server, 1);
    setGatewayToken(gateway.server, std::string(), "密码错误");
    gateway.worker.login(tagLoginRequest());
    QCOMPARE(answers(gateway.result), QStringLiteral("false -1 '认证网关失败 密码错误' ''"));
    QCOMPARE(gateway.server->callCount(kLogin), 0);
    QCOMPARE(savedGateway(gateway.worker), QStringLiteral("//kept-token"));

    // The next login asks the application.
    gateway.worker.login(tagLoginRequest());
    QCOMPARE(gateway.ask.count(), 1);

    // A transport failure of the gateway login forgets the credentials too.
    saveCredentials(QStringLiteral("saved"), QStringLiteral("pw"), "kept-token");
    gateway.server->setStatus(kLoginGateway, grpc::StatusCode::UNAVAILABLE);
    gateway.worker.login(tagLoginRequest());
    QCOMPARE(answers(gateway.result), QStringLiteral("false -1 '认证网关失败 密码错误' ''\nfalse -1 '认证网关失败' ''"));
    QCOMPARE(savedGateway(gateway.worker), QStringLiteral("//kept-token"));
}

void TestLogin::gatewayEmptyCredentials()
{
    saveCredentials(QStringLiteral("saved"), QStringLiteral("pw"), "token");
    GatewayWorker gateway;
    vditest::LogCapture log;
    gateway.worker.loginGateway(QString(), QStringLiteral("x"));
    QCOMPARE(answers(gateway.result), QStringLiteral("false -1 '认证网关失败' ''"));
    QVERIFY(log.contains(QStringLiteral("user or password empty, cancel login"), QtWarningMsg));
    QCOMPARE(gateway.server->callCount(kLoginGateway), 0);
    QCOMPARE(VdiWorkerProbe(gateway.worker).gatewayUser(), QStringLiteral("saved"));
    QCOMPARE(savedGateway(gateway.worker), QStringLiteral("saved/pw/token"));
}

void TestLogin::gatewayCheckFailureGoesStraightOn()
{
    GatewayWorker gateway;
    gateway.server->setStatus(kCheckAuth, grpc::StatusCode::UNAVAILABLE);
    VdiWorkerProbe probe(gateway.worker);
    const auto stub = probe.stub();
    vditest::LogCapture log;
    gateway.worker.login(tagLoginRequest());
    QCOMPARE(answers(gateway.result), kLoggedIn);  // decided by Login alone
    QCOMPARE(gateway.server->callCount(kLogin), 1);
    QCOMPARE(gateway.server->callCount(kLoginGateway), 0);
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
