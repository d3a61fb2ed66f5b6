// The simulator's scenarios: the built-in deployment, a deployment a scenario file describes,
// the faults a file injects per method, the errors of a broken file, the example scenarios that
// ship, and the record of the calls received, secrets redacted.
#include "testsupport.h"

#include "callrecord.h"
#include "deployment.h"
#include "scenario.h"
#include "scenarioserver.h"

#include "client/client_core.grpc.pb.h"
#include "common/common_core.grpc.pb.h"
#include "gateway/gateway_core.grpc.pb.h"

#include <grpcpp/grpcpp.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>

namespace {

const std::string kLogin = "/client.ClientCore/Login";
const std::string kWhoAreYou = "/client.ClientCore/WhoAreYou";

// A raw client of a played scenario: the stubs over one TLS channel that trusts the server's
// certificate under its subject name.
class RawClient
{
public:
    explicit RawClient(const vdifake::ScenarioServer& played)
        : RawClient(played.port(), played.pemPath(), played.commonName())
    {
    }

    RawClient(int port, const QString& pemPath, const QString& commonName)
    {
        QFile pem(pemPath);
        pem.open(QIODevice::ReadOnly);
        grpc::SslCredentialsOptions ssl;
        ssl.pem_root_certs = pem.readAll().toStdString();
        grpc::ChannelArguments args;
        args.SetSslTargetNameOverride(commonName.toStdString());
        auto channel = grpc::CreateCustomChannel("127.0.0.1:" + std::to_string(port), grpc::SslCredentials(ssl), args);
        core = client::ClientCore::NewStub(channel);
        common = common::CommonCore::NewStub(channel);
        gateway = gateway::GatewayCore::NewStub(channel);
    }

    // A context with a short deadline and, when given, the gateway's token.
    std::unique_ptr<grpc::ClientContext> context(int deadlineMs = 5000) const
    {
        auto c = std::make_unique<grpc::ClientContext>();
        c->set_deadline(std::chrono::system_clock::now() + std::chrono::milliseconds(deadlineMs));
        if (!token.empty())
            c->AddMetadata("gatewayaccesstoken", token);
        return c;
    }

    grpc::Status login(const std::string& name, const std::string& password, client::LoginResp* reply,
                       const std::string& authType = "0", const std::string& smsCode = {}) const
    {
        client::LoginReq request;
        request.mutable_client_base_info()->set_name(name);
        request.mutable_client_base_info()->set_password(password);
        request.mutable_client_base_info()->set_auth_type(authType);
        request.mutable_client_base_info()->set_sms_code(smsCode);
        return core->Login(context().get(), request, reply);
    }

    grpc::Status whoAreYou(client::WhoAreYouReply* reply, int deadlineMs = 5000) const
    {
        return core->WhoAreYou(context(deadlineMs).get(), google::protobuf::Empty(), reply);
    }

    // Logs in to the gateway and keeps the token for the next calls.
    bool loginGateway(const std::string& name, const std::string& password)
    {
        gateway::LoginGatewayReq request;
        request.mutable_client_base_info()->set_name(name);
        request.mutable_client_base_info()->set_password(password);
        gateway::LoginGatewayResp reply;
        if (!gateway->LoginGateway(context().get(), request, &reply).ok() || reply.gw_access_token().empty())
            return false;
        token = reply.gw_access_token();
        return true;
    }

    std::unique_ptr<client::ClientCore::Stub> core;
    std::unique_ptr<common::CommonCore::Stub> common;
    std::unique_ptr<gateway::GatewayCore::Stub> gateway;
    std::string token;
};

// Reads a scenario text; fails the test with the error otherwise.
vdifake::ScenarioFile scenarioOf(const QString& text)
{
    vdifake::ScenarioFile file;
    QString error;
    const bool read = vdifake::parseScenarioFile(text, QStringLiteral("test.scenario"), &file, &error);
    if (!read)
        qWarning("%s", qPrintable(error));
    return file;
}

// A scenario text played; null (the reason logged) when it does not read or start.
std::unique_ptr<vdifake::ScenarioServer> play(const QString& text)
{
    auto played = std::make_unique<vdifake::ScenarioServer>(scenarioOf(text));
    QString error;
    if (!played->start(&error)) {
        qWarning("%s", qPrintable(error));
        return nullptr;
    }
    return played;
}

// A scenario whose deployment keeps the built-in one and adds these faults.
QString withFaults(const QString& faults)
{
    return QStringLiteral("deployment {\n  extends_built_in: true\n%1\n}\n").arg(faults);
}

QStringList poolNames(const client::LoginResp& reply)
{
    QStringList names;
    for (const auto& pool : reply.pool_list())
        names << QString::fromStdString(pool.name());
    for (const auto& pool : reply.ex_pool_list())
        names << QString::fromStdString(pool.name()) + QStringLiteral(" (extra)");
    return names;
}

// The example scenarios of the source tree, the ones installed with the tools.
QString scenariosDir()
{
    return QStringLiteral(VDI_SCENARIOS_DIR);
}

} // namespace

class TestSimulator : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { VdiDesktopGrpcThread::registerMetaTypes(); }
    void builtInScenarioIsTheDefault();
    void fileDeploymentIsPlayed();
    void fileMethodWinsOverTheDeployment();
    void fileGatewayUsersAndTokens();
    void faultStatus();
    void faultDelay();
    void faultErrorCode();
    void faultFailNextThenSuccess();
    void faultOfEveryMethod();
    void faultDownAndBackUp();
    void brokenScenarioNamesTheLine_data();
    void brokenScenarioNamesTheLine();
    void exampleScenariosLoad();
    void recordRedactsSecrets();
    void simulatorHintsAndRecords();
};

// The built-in scenario plays the deployment the simulator always played: its users, pools,
// standing answers per mode, and the gateway's users.
void TestSimulator::builtInScenarioIsTheDefault()
{
    vdifake::SimulatedDeployment deployment;
    using Users = std::map<QString, QString>;
    QCOMPARE(deployment.users(), (Users{{QStringLiteral("demo-user"), QStringLiteral("demo-password")}}));
    QCOMPARE(deployment.ldapUsers(), (Users{{QStringLiteral("ldap-user"), QStringLiteral("ldap-password")}}));
    QCOMPARE(deployment.gatewayUsers(), (Users{{QStringLiteral("gw-user"), QStringLiteral("gw-password")}}));

    const vdifake::Scenario controller = vdifake::defaultScenario(QStringLiteral("controller"));
    const vdifake::Scenario gateway = vdifake::defaultScenario(QStringLiteral("gateway"));
    QVERIFY(vdifake::defaultScenario(QStringLiteral("elsewhere")).empty());
    QVERIFY(controller.at("/common.CommonCore/isUseGateway").replyText.find("useGateway: 0") != std::string::npos);
    QVERIFY(gateway.at("/common.CommonCore/isUseGateway").replyText.find("useGateway: 1") != std::string::npos);
    QVERIFY(!controller.count("/gateway.GatewayCore/LoginGateway"));
    QVERIFY(gateway.count("/gateway.GatewayCore/LoginGateway"));
    QVERIFY(controller.count("/client.ClientCore/queryIndividualConfig"));

    vdifake::ScenarioServer played(vdifake::builtInScenario());
    QString error;
    QVERIFY2(played.start(&error), qPrintable(error));
    QCOMPARE(played.mode(), QStringLiteral("controller"));
    RawClient raw(played);
    client::LoginResp reply;
    QVERIFY(raw.login("demo-user", "demo-password", &reply).ok());
    QCOMPARE(reply.error().error_code(), 0);
    QCOMPARE(poolNames(reply), (QStringList{QStringLiteral("Office desktops"), QStringLiteral("Engineering workstations"),
                                            QStringLiteral("Training lab (extra)")}));
    QCOMPARE(reply.domain(), std::string("vdi.local"));
    QVERIFY(reply.pool_list(0).vm_list_size() >= 1);
    QCOMPARE(reply.pool_list(0).vm_list(0).vm_name(), std::string("office-demo-user-1"));
    QCOMPARE(reply.pool_list(1).vm_list(0).snapshot_list(0).name(), std::string("before-update"));
    QVERIFY(raw.login("ldap-user", "ldap-password", &reply, "3").ok());
    QCOMPARE(reply.error().error_code(), 0);
    QVERIFY(raw.login("demo-user", "wrong", &reply).ok());
    QCOMPARE(reply.error().error_code(), 1);

    client::SaasAppReq saas;
    saas.mutable_clientbaseinfo()->set_name("demo-user");
    saas.mutable_saasappinfo()->set_appname("Payroll");
    common_message::VoidResp refused;
    QVERIFY(raw.core->querySaasApp(raw.context().get(), saas, &refused).ok());
    QCOMPARE(refused.error().error_code(), int(vdifake::SimulatedDeployment::SaasAppRefused));
    saas.mutable_saasappinfo()->set_appname("Code review");
    common_message::VoidResp granted;
    QVERIFY(raw.core->querySaasApp(raw.context().get(), saas, &granted).ok());
    QCOMPARE(granted.error().error_code(), 0);

    // Gateway mode: the gateway's users get tokens, and the controller wants one.
    vdifake::ScenarioServer::Options options;
    options.mode = QStringLiteral("gateway");
    vdifake::ScenarioServer behindGateway(vdifake::builtInScenario(), options);
    QVERIFY2(behindGateway.start(&error), qPrintable(error));
    RawClient viaGateway(behindGateway);
    QCOMPARE(viaGateway.login("demo-user", "demo-password", &reply).error_code(), grpc::StatusCode::UNAUTHENTICATED);
    QVERIFY(viaGateway.loginGateway("gw-user", "gw-password"));
    QCOMPARE(viaGateway.token, std::string("gw-token-1"));
    QVERIFY(viaGateway.login("demo-user", "demo-password", &reply).ok());
    QCOMPARE(reply.use_gateway(), 1);
}

// A user of the file logs in through the facade and gets the file's pools; an operation
// changes a desktop's power state, which a later login shows.
void TestSimulator::fileDeploymentIsPlayed()
{
    const vdifake::ScenarioFile file = scenarioOf(QStringLiteral(R"(# A studio
deployment {
  user { name: "alice" password: "alice-pw" }
  user { name: "bob" password: "bob-pw" sms_code: "4242" }
  branding { systemName: "Studio cloud" }
  qr_login { user: "alice" }
  remote_app { display_name: "Notes" alias: "notes" host: "192.0.2.5" }
  remote_app { display_name: "Ledger" alias: "ledger" host: "192.0.2.5" users: "bob" }
  pool { id: 7 name: "Studio" short_name: "studio" type: 2 host_network: "192.0.2."
         desktop { owner: "alice" name: "alice-studio" status: "shutdown" } }
  pool { id: 8 name: "Secret lab" users: "bob" desktops_per_user: 2 }
}
)"));
    QVERIFY(file.deployment);
    vdifake::ScenarioServer played(file);
    QString error;
    QVERIFY2(played.start(&error), qPrintable(error));

    VdiDesktopGrpcThread facade;
    facade.initConnection(played.pemPath(), QStringLiteral("127.0.0.1"), ushort(played.port()), false);
    QSignalSpy spy(&facade, &VdiDesktopGrpcThread::loginResult);
    facade.login(QStringLiteral("alice"), QStringLiteral("alice-pw"), QStringLiteral("0"));
    QTRY_COMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(1).toBool(), true);
    const LoginReply reply = spy.at(0).at(0).value<LoginReply>();
    QCOMPARE(reply.poolList.size(), 1);  // the lab is bob's alone
    QCOMPARE(reply.poolList.at(0).name, QStringLiteral("Studio"));
    QCOMPARE(reply.poolList.at(0).vmList.size(), 1);
    QCOMPARE(reply.poolList.at(0).vmList.at(0).vmName, QStringLiteral("alice-studio"));
    QCOMPARE(reply.poolList.at(0).vmList.at(0).vmStatus, QStringLiteral("shutdown"));
    // The built-in user is not in this deployment.
    facade.login(QStringLiteral("demo-user"), QStringLiteral("demo-password"), QStringLiteral("0"));
    QTRY_COMPARE(spy.count(), 2);
    QCOMPARE(spy.at(1).at(1).toBool(), false);

    RawClient raw(played);
    client::OperateForVmReq start;
    start.mutable_client_base_info()->set_vmuuid(reply.poolList.at(0).vmList.at(0).vmUuid.toStdString());
    start.set_op_type(vdifake::SimulatedDeployment::StartDesktop);
    client::OperateForVmResp started;
    QVERIFY(raw.core->OperateForVm(raw.context().get(), start, &started).ok());
    QCOMPARE(started.error().error_code(), 0);
    QCOMPARE(started.vm().vm_status(), std::string("running"));
    QVERIFY(started.hostip().rfind("192.0.2.", 0) == 0);
    client::LoginResp again;
    QVERIFY(raw.login("alice", "alice-pw", &again).ok());
    QCOMPARE(again.pool_list(0).vm_list(0).vm_status(), std::string("running"));

    // bob sees both pools, two made-up desktops in the lab; his SMS login wants his code.
    client::LoginResp bob;
    QVERIFY(raw.login("bob", "bob-pw", &bob, "2", "1111").ok());
    QCOMPARE(bob.error().error_code(), 1);
    QVERIFY(raw.login("bob", "bob-pw", &bob, "2", "4242").ok());
    QCOMPARE(bob.error().error_code(), 0);
    QCOMPARE(poolNames(bob), (QStringList{QStringLiteral("Studio"), QStringLiteral("Secret lab")}));
    QCOMPARE(bob.pool_list(1).vm_list_size(), 2);

    // The applications are the file's, the ledger bob's alone.
    client::LoginReq asAlice;
    asAlice.mutable_client_base_info()->set_name("alice");
    client::RemoteAppListResp apps;
    QVERIFY(raw.core->GetRemoteAppList(raw.context().get(), asAlice, &apps).ok());
    QCOMPARE(apps.app_list_size(), 1);
    QCOMPARE(apps.app_list(0).displayname(), std::string("Notes"));
    client::RemoteAppInfoReq open;
    open.set_username("alice");
    open.set_displayname("Ledger");
    client::RemoteAppInfoResp opened;
    QVERIFY(raw.core->getConnectAppInfo(raw.context().get(), open, &opened).ok());
    QCOMPARE(opened.error().error_code(), int(vdifake::SimulatedDeployment::RemoteAppRefused));
    open.set_username("bob");
    QVERIFY(raw.core->getConnectAppInfo(raw.context().get(), open, &opened).ok());
    QCOMPARE(opened.error().error_code(), 0);
    QCOMPARE(opened.fulladdress(), std::string("rdp://192.0.2.5:3389/ledger"));

    // A QR code: its ticket logs alice in once, the built-in ticket prefix kept.
    client::CodeResp code;
    QVERIFY(raw.core->getCode(raw.context().get(), client::CodeReq(), &code).ok());
    QCOMPARE(code.ticket(), std::string("qr-ticket-1"));
    client::LoginReq scanned;
    scanned.mutable_client_base_info()->set_auth_type("2");
    scanned.mutable_client_base_info()->set_ticket(code.ticket());
    client::LoginResp viaCode;
    QVERIFY(raw.core->Login(raw.context().get(), scanned, &viaCode).ok());
    QCOMPARE(viaCode.error().error_code(), 0);
    QCOMPARE(viaCode.name(), std::string("alice"));
    QCOMPARE(viaCode.pool_list(0).vm_list(0).vm_name(), std::string("alice-studio"));
    QVERIFY(raw.core->Login(raw.context().get(), scanned, &viaCode).ok());
    QCOMPARE(viaCode.error().error_code(), 1);  // used up

    client::IndividualConfigResp branding;
    QVERIFY(raw.core->queryIndividualConfig(raw.context().get(), client::IndividualConfigReq(), &branding).ok());
    QCOMPARE(branding.systemname(), std::string("Studio cloud"));
}

// A method block of the file answers that method alone, also where the deployment would.
void TestSimulator::fileMethodWinsOverTheDeployment()
{
    const vdifake::ScenarioFile file = scenarioOf(QStringLiteral(
        "method /client.ClientCore/Login\ndomain: \"scripted\"\n\nmethod /common.CommonCore/isUseGateway\nmode gateway\n"
        "useGateway: 7\n"));
    QCOMPARE(file.gatewayMethods.size(), size_t(1));
    vdifake::ScenarioServer played(file);
    QString error;
    QVERIFY2(played.start(&error), qPrintable(error));
    RawClient raw(played);
    client::LoginResp reply;
    QVERIFY(raw.login("nobody", "nothing", &reply).ok());
    QCOMPARE(reply.domain(), std::string("scripted"));
    common::isUseGatewayResp gateway;
    QVERIFY(raw.common->isUseGateway(raw.context().get(), common::isUseGatewayReq(), &gateway).ok());
    QCOMPARE(gateway.usegateway(), 0);  // the gateway block is not played in controller mode
}

// The file's gateway: its users get tokens of its prefix, a token it lists counts as issued,
// and the controller behind it wants one.
void TestSimulator::fileGatewayUsersAndTokens()
{
    const auto played = play(QStringLiteral(R"(deployment {
  mode: "gateway"
  user { name: "erin" password: "erin-pw" }
  gateway { user { name: "edge" password: "edge-pw" } token_prefix: "edge-" token: "kept-token" }
}
)"));
    QVERIFY(played);
    QCOMPARE(played->mode(), QStringLiteral("gateway"));
    RawClient raw(*played);
    client::LoginResp reply;
    raw.token = "made-up-token";
    QCOMPARE(raw.login("erin", "erin-pw", &reply).error_code(), grpc::StatusCode::UNAUTHENTICATED);
    raw.token = "kept-token";
    QVERIFY(raw.login("erin", "erin-pw", &reply).ok());
    QCOMPARE(reply.error().error_code(), 0);
    QVERIFY(!raw.loginGateway("gw-user", "gw-password"));  // the built-in gateway user is not there
    QVERIFY(raw.loginGateway("edge", "edge-pw"));
    QCOMPARE(raw.token, std::string("edge-1"));
    QVERIFY(raw.login("erin", "erin-pw", &reply).ok());
    QCOMPARE(reply.use_gateway(), 1);
}

void TestSimulator::faultStatus()
{
    const auto played = play(withFaults(QStringLiteral(
        R"(fault { method: "/client.ClientCore/Login" status: "PERMISSION_DENIED" message: "not today" })")));
    QVERIFY(played);
    RawClient raw(*played);
    client::LoginResp reply;
    for (int i = 0; i < 2; ++i) {
        const grpc::Status status = raw.login("demo-user", "demo-password", &reply);
        QCOMPARE(status.error_code(), grpc::StatusCode::PERMISSION_DENIED);
        QCOMPARE(status.error_message(), std::string("not today"));
    }
    client::WhoAreYouReply who;
    QVERIFY(raw.whoAreYou(&who).ok());  // other methods are untouched
}

// The server holds the calls of the method as long as the fault says, and no other call: the
// record says how long each call was held, and the delayed call takes at least that long.
void TestSimulator::faultDelay()
{
    const auto played = play(withFaults(QStringLiteral(R"(fault { method: "/client.ClientCore/WhoAreYou" delay_ms: 250 })")));
    QVERIFY(played);
    RawClient raw(*played);
    client::LoginResp reply;
    QVERIFY(raw.login("demo-user", "demo-password", &reply).ok());
    QElapsedTimer timer;
    timer.start();
    client::WhoAreYouReply who;
    QVERIFY(raw.whoAreYou(&who).ok());
    const qint64 elapsed = timer.elapsed();
    QVERIFY2(elapsed >= 250, qPrintable(QString::number(elapsed)));
    QCOMPARE(who.name(), std::string("vdi-fake-controller"));

    QVERIFY(played->waitForCalls(kWhoAreYou, 1, 5000));
    QCOMPARE(played->calls(kWhoAreYou).at(0).delayMs, 250);
    QCOMPARE(played->calls(kLogin).at(0).delayMs, 0);
}

// An error code goes into the reply's error field, also into a reply that is an ErrorData;
// the call itself ends OK and the rest of the reply stays.
void TestSimulator::faultErrorCode()
{
    const auto played = play(withFaults(QStringLiteral(
        R"(fault { method: "/client.ClientCore/Login" error_code: 77 error_msg_en: "licence expired" error_msg_zh: "许可证过期" }
  fault { method: "/client.ClientCore/LoginOakdeskOnShareTerminal" error_code: 78 })")));
    QVERIFY(played);
    RawClient raw(*played);
    client::LoginResp reply;
    QVERIFY(raw.login("demo-user", "demo-password", &reply).ok());
    QCOMPARE(reply.error().error_code(), 77);
    QCOMPARE(reply.error().error_msg_en(), std::string("licence expired"));
    QCOMPARE(reply.error().error_msg_zh(), std::string("许可证过期"));
    QCOMPARE(reply.pool_list_size(), 2);  // the deployment's answer, with the error put in

    client::LoginOakdeskOnShareTerminalReq share;
    share.set_device_id("share-term-01");
    share.set_username("demo-user");
    share.set_password("demo-password");
    common::ErrorData shared;
    QVERIFY(raw.core->LoginOakdeskOnShareTerminal(raw.context().get(), share, &shared).ok());
    QCOMPARE(shared.error_code(), 78);
}

void TestSimulator::faultFailNextThenSuccess()
{
    const auto played = play(withFaults(QStringLiteral(R"(fault { method: "/client.ClientCore/Login" fail_next: 2 })")));
    QVERIFY(played);
    RawClient raw(*played);
    client::LoginResp reply;
    QCOMPARE(raw.login("demo-user", "demo-password", &reply).error_code(), grpc::StatusCode::UNAVAILABLE);
    QCOMPARE(raw.login("demo-user", "demo-password", &reply).error_code(), grpc::StatusCode::UNAVAILABLE);
    QVERIFY(raw.login("demo-user", "demo-password", &reply).ok());
    QCOMPARE(reply.error().error_code(), 0);
    QCOMPARE(reply.pool_list_size(), 2);
    QVERIFY(played->waitForCalls(kLogin, 3, 5000));
    // Recorded as they end on the server, which need not be the order the client saw.
    int failed = 0;
    for (const auto& call : played->calls(kLogin))
        failed += call.status == grpc::StatusCode::UNAVAILABLE;
    QCOMPARE(failed, 2);
    QCOMPARE(played->calls(kLogin).size(), size_t(3));
}

// A fault without a method meets every method: here the first call of all, whichever it is.
void TestSimulator::faultOfEveryMethod()
{
    const auto played = play(withFaults(QStringLiteral(R"(fault { method: "*" fail_next: 1 status: "RESOURCE_EXHAUSTED" })")));
    QVERIFY(played);
    RawClient raw(*played);
    client::WhoAreYouReply who;
    QCOMPARE(raw.whoAreYou(&who).error_code(), grpc::StatusCode::RESOURCE_EXHAUSTED);
    client::LoginResp reply;
    QVERIFY(raw.login("demo-user", "demo-password", &reply).ok());
    QVERIFY(raw.whoAreYou(&who).ok());
}

// After the second call the server stops serving; it comes back on the same port with the same
// certificate, the deployment's state intact, and the next call succeeds.
void TestSimulator::faultDownAndBackUp()
{
    vdifake::ScenarioServer played(scenarioOf(withFaults(
        QStringLiteral(R"(fault { method: "/client.ClientCore/WhoAreYou" down_after_calls: 2 down_for_ms: 1500 })"))));
    std::vector<bool> states;
    std::mutex statesMutex;
    played.setStateObserver([&](bool up, const std::string&, int) {
        std::lock_guard<std::mutex> lock(statesMutex);
        states.push_back(up);
    });
    QString error;
    QVERIFY2(played.start(&error), qPrintable(error));
    const int port = played.port();
    const QString pem = played.pemPath();
    RawClient before(played);
    client::LoginResp reply;
    QVERIFY(before.login("demo-user", "demo-password", &reply).ok());
    const std::string firstDesktop = reply.pool_list(0).vm_list(0).vmuuid();
    client::OperateForVmReq shutDown;
    shutDown.mutable_client_base_info()->set_vmuuid(firstDesktop);
    shutDown.set_op_type(vdifake::SimulatedDeployment::ShutDownDesktop);
    client::OperateForVmResp operated;
    QVERIFY(before.core->OperateForVm(before.context().get(), shutDown, &operated).ok());

    client::WhoAreYouReply who;
    QVERIFY(before.whoAreYou(&who).ok());
    QVERIFY(before.whoAreYou(&who).ok());  // the second: answered, then the server goes
    QVERIFY(played.waitUntilDown(5000));
    QCOMPARE(before.whoAreYou(&who, 500).error_code(), grpc::StatusCode::UNAVAILABLE);

    QVERIFY(played.waitForRestarts(1, 10000));
    QCOMPARE(played.port(), port);
    QCOMPARE(played.pemPath(), pem);
    RawClient after(played);  // trusts the same certificate file
    QVERIFY(after.whoAreYou(&who).ok());
    QCOMPARE(who.name(), std::string("vdi-fake-controller"));
    QVERIFY(after.login("demo-user", "demo-password", &reply).ok());
    QCOMPARE(reply.pool_list(0).vm_list(0).vmuuid(), firstDesktop);
    QCOMPARE(reply.pool_list(0).vm_list(0).vm_status(), std::string("shutdown"));
    std::lock_guard<std::mutex> lock(statesMutex);
    QCOMPARE(states, (std::vector<bool>{false, true}));
}

void TestSimulator::brokenScenarioNamesTheLine_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("where");
    QTest::addColumn<QString>("why");
    QTest::newRow("deployment field") << QStringLiteral("# a comment\ndeployment {\n  user { name: \"a\" }\n  pool { id: 1 nmae: \"x\" }\n}\n")
                                      << QStringLiteral("test.scenario:4:") << QStringLiteral("nmae");
    QTest::newRow("unclosed deployment") << QStringLiteral("\n\ndeployment {\n  user { name: \"a\" }\n")
                                         << QStringLiteral("test.scenario:3:") << QStringLiteral("closing");
    QTest::newRow("fault of no method")
        << QStringLiteral("deployment {\n  user { name: \"a\" }\n\n  fault { method: \"/client.ClientCore/Nope\" }\n}\n")
        << QStringLiteral("test.scenario:4:") << QStringLiteral("no such method");
    QTest::newRow("fault status") << QStringLiteral("deployment {\n  fault { method: \"*\" status: \"SLOW\" }\n}\n")
                                  << QStringLiteral("test.scenario:2:") << QStringLiteral("unknown status SLOW");
    QTest::newRow("error code without error field")
        << QStringLiteral("deployment {\n  fault { method: \"/client.ClientCore/querySSOConfig\" error_code: 3 }\n}\n")
        << QStringLiteral("test.scenario:2:") << QStringLiteral("no error field");
    QTest::newRow("desktop status")
        << QStringLiteral("deployment {\n  pool { id: 3 name: \"p\"\n    desktop { owner: \"a\" status: \"asleep\" } }\n}\n")
        << QStringLiteral("test.scenario:3:") << QStringLiteral("asleep");
    QTest::newRow("reply field") << QStringLiteral("method /client.ClientCore/Login\ndelay 5\ndomain: \"x\"\nno_such_field: 1\n")
                                 << QStringLiteral("test.scenario:4:") << QStringLiteral("no_such_field");
    QTest::newRow("mode") << QStringLiteral("method /client.ClientCore/Login\nmode sideways\n")
                          << QStringLiteral("test.scenario:2:") << QStringLiteral("sideways");
}

void TestSimulator::brokenScenarioNamesTheLine()
{
    QFETCH(QString, text);
    QFETCH(QString, where);
    QFETCH(QString, why);
    vdifake::ScenarioFile file;
    QString error;
    QVERIFY(!vdifake::parseScenarioFile(text, QStringLiteral("test.scenario"), &file, &error));
    QVERIFY2(error.startsWith(where), qPrintable(error));
    QVERIFY2(error.contains(why), qPrintable(error));
}

// Every shipped scenario reads, is played, and a user of its deployment logs in (through its
// gateway when it has one) and gets pools.
void TestSimulator::exampleScenariosLoad()
{
    const QDir dir(scenariosDir());
    const QStringList files = dir.entryList({QStringLiteral("*.scenario")}, QDir::Files, QDir::Name);
    QVERIFY2(files.size() >= 3, qPrintable(dir.path()));
    QVERIFY(QFile::exists(dir.filePath(QStringLiteral("README.md"))));
    for (const QString& name : files) {
        vdifake::ScenarioFile file;
        QString error;
        QVERIFY2(vdifake::loadScenarioFile(dir.filePath(name), &file, &error), qPrintable(error));
        QVERIFY2(QFile(dir.filePath(name)).open(QIODevice::ReadOnly), qPrintable(name));
        vdifake::ScenarioServer played(file);
        QVERIFY2(played.start(&error), qPrintable(name + QStringLiteral(": ") + error));
        RawClient raw(played);
        const vdifake::SimulatedDeployment& deployment = played.deployment();
        if (played.mode() == QLatin1String("gateway")) {
            const auto gatewayUser = *deployment.gatewayUsers().begin();
            QVERIFY2(raw.loginGateway(gatewayUser.first.toStdString(), gatewayUser.second.toStdString()), qPrintable(name));
        }
        const auto user = *deployment.users().begin();
        client::LoginResp reply;
        grpc::Status status;
        // A flaky scenario may fail the first logins: three tries.
        for (int i = 0; i < 3 && !(status = raw.login(user.first.toStdString(), user.second.toStdString(), &reply)).ok(); ++i) {
        }
        QVERIFY2(status.ok(), qPrintable(name + QStringLiteral(": ") + QString::fromStdString(status.error_message())));
        QCOMPARE(reply.error().error_code(), 0);
        QVERIFY2(reply.pool_list_size() + reply.ex_pool_list_size() > 0, qPrintable(name));
    }
}

// The record names each call with its metadata and request, never a password or a token.
void TestSimulator::recordRedactsSecrets()
{
    vdifake::ScenarioServer played(vdifake::builtInScenario());
    QString error;
    QVERIFY2(played.start(&error), qPrintable(error));
    RawClient raw(played);
    raw.token = "token-value-4711";
    client::LoginResp reply;
    QVERIFY(raw.login("demo-user", "demo-password", &reply).ok());
    client::ModifyPasswordReq change;
    change.mutable_client_base_info()->set_name("demo-user");
    change.mutable_client_base_info()->set_password("demo-password");
    change.set_password_new("brand-new-secret");
    client::ModifyPasswordResp changed;
    QVERIFY(raw.core->ModifyPassword(raw.context().get(), change, &changed).ok());
    QCOMPARE(changed.error().error_code(), 0);
    QVERIFY(played.waitForCalls({}, 2, 5000));

    // A help upload as the deployment keeps it: the record lists the entries of its zip.
    std::vector<vdifake::SimulatedDeployment::HelpUpload> uploads = played.deployment().helpUploads();
    QVERIFY(uploads.empty());
    vdifake::SimulatedDeployment::HelpUpload upload;
    upload.taskId = 9001;
    upload.fileName = QStringLiteral("help.zip");
    upload.fileType = QStringLiteral("zip");
    upload.bytes = 2048;
    upload.chunks = 2;
    upload.entries = QStringList{QStringLiteral("logs/client.log"), QStringLiteral("screenshot.png")};
    uploads.push_back(upload);

    const QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("record.txt"));
    QVERIFY2(vdifake::writeRecord(path, played.calls(), uploads, &error), qPrintable(error));
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QString record = QString::fromUtf8(file.readAll());
    QVERIFY2(record.contains(QRegularExpression(QStringLiteral("^call [12] /client.ClientCore/Login OK$"),
                                                QRegularExpression::MultilineOption)),
             qPrintable(record));
    QVERIFY2(record.contains(QRegularExpression(QStringLiteral("^call [12] /client.ClientCore/ModifyPassword OK$"),
                                                QRegularExpression::MultilineOption)),
             qPrintable(record));
    QVERIFY2(record.contains(QStringLiteral("name: \"demo-user\"")), qPrintable(record));
    QVERIFY2(record.contains(QStringLiteral("metadata gatewayaccesstoken: <redacted>")), qPrintable(record));
    QVERIFY2(record.contains(QStringLiteral("password: \"<redacted>\"")), qPrintable(record));
    QVERIFY2(record.contains(QStringLiteral("password_new: \"<redacted>\"")), qPrintable(record));
    QVERIFY2(!record.contains(QStringLiteral("demo-password")), qPrintable(record));
    QVERIFY2(!record.contains(QStringLiteral("brand-new-secret")), qPrintable(record));
    QVERIFY2(!record.contains(QStringLiteral("token-value-4711")), qPrintable(record));
    QVERIFY2(record.contains(QStringLiteral("upload task 9001, help.zip (zip), 2048 bytes in 2 chunk(s); 2 entries:\n"
                                            "    logs/client.log\n    screenshot.png\n")),
             qPrintable(record));
}

// The simulator itself: the lines programs read on stdout, the hint for people on stderr, a
// scenario file's user served, and --record written at exit without the password.
void TestSimulator::simulatorHintsAndRecords()
{
#ifndef VDI_SIMULATOR
    QSKIP("the simulator is not built here (VDI_BUILD_TOOLS is off)");
#else
    const QTemporaryDir dir;
    const QString recordPath = dir.filePath(QStringLiteral("record.txt"));
    QProcess simulator;
    simulator.start(QStringLiteral(VDI_SIMULATOR),
                    {QStringLiteral("--scenario"), QDir(scenariosDir()).filePath(QStringLiteral("small-office.scenario")),
                     QStringLiteral("--record"), recordPath});
    QVERIFY(simulator.waitForStarted());
    QString out;
    while (!out.endsWith(QStringLiteral("ready\n")) && simulator.waitForReadyRead(10000))
        out += QString::fromUtf8(simulator.readAllStandardOutput());
    const QRegularExpression lines(QStringLiteral("^port (\\d+)\npem (.+)\ncommon-name (.+)\nready\n$"));
    const QRegularExpressionMatch printed = lines.match(out);
    QVERIFY2(printed.hasMatch(), qPrintable(out));
    const QString port = printed.captured(1);
    const QString pem = printed.captured(2);
    QVERIFY(QFile::exists(pem));  // made by the simulator itself

    RawClient raw(port.toInt(), pem, printed.captured(3));
    client::LoginResp reply;
    QVERIFY(raw.login("alice", "alice-pw", &reply).ok());
    QCOMPARE(reply.error().error_code(), 0);
    QCOMPARE(reply.domain(), std::string("smith.local"));

    simulator.terminate();
    QVERIFY(simulator.waitForFinished(10000));
    QCOMPARE(simulator.exitStatus(), QProcess::NormalExit);
    QCOMPARE(simulator.exitCode(), 0);
    const QString hint = QString::fromUtf8(simulator.readAllStandardError());
    QVERIFY2(hint.contains(QStringLiteral("vdi-client --server 127.0.0.1 --port %1 --pem %2 ").arg(port, pem)),
             qPrintable(hint));
    QVERIFY2(hint.contains(QStringLiteral("TLS target name override \"%1\"").arg(printed.captured(3))), qPrintable(hint));

    QFile file(recordPath);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QString record = QString::fromUtf8(file.readAll());
    QVERIFY2(record.contains(QStringLiteral("call 1 /client.ClientCore/Login OK\n")), qPrintable(record));
    QVERIFY2(record.contains(QStringLiteral("name: \"alice\"")), qPrintable(record));
    QVERIFY2(!record.contains(QStringLiteral("alice-pw")), qPrintable(record));
#endif
}

VDI_TEST_MAIN(TestSimulator)
#include "tst_simulator.moc"
