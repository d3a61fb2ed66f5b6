// The simulator's scenarios: the built-in deployment, a deployment a scenario file describes,
// the faults a file injects per method, the errors of a broken file, the example scenarios that
// ship, and the vdi-simulator program with its record of the calls received, secrets redacted.
#include "testsupport.h"
#include "fieldmap.h"

#include "callrecord.h"
#include "scenario.h"

#include "client/client_core.grpc.pb.h"
#include "common/common_core.grpc.pb.h"
#include "gateway/gateway_core.grpc.pb.h"

#include <google/protobuf/text_format.h>
#include <google/protobuf/util/message_differencer.h>
#include <grpcpp/grpcpp.h>

#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>

#include <functional>
#include <map>
#include <set>

namespace {

using grpc::StatusCode;
using Deployment = vdifake::SimulatedDeployment;
using Core = client::ClientCore::Stub;

QString fileText(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

// Empty where `reply` has the fields that `fields` gives in text format (a repeated field entry by
// entry, all of its entries), else what differs.
QString mismatch(const google::protobuf::Message& reply, const std::string& fields)
{
    std::unique_ptr<google::protobuf::Message> expected(reply.New());
    if (!google::protobuf::TextFormat::ParseFromString(fields, expected.get()))
        return QStringLiteral("does not parse: ") + QString::fromStdString(fields);
    google::protobuf::util::MessageDifferencer differencer;
    differencer.set_scope(google::protobuf::util::MessageDifferencer::PARTIAL);
    std::string differences;
    differencer.ReportDifferencesToString(&differences);
    return differencer.Compare(*expected, reply) ? QString() : QString::fromStdString(differences);
}

// One TLS channel to a played scenario, trusting its certificate under its subject name.
struct RawClient {
    explicit RawClient(const vdifake::ScenarioServer& played)
        : RawClient(played.port(), played.pemPath(), played.commonName())
    {
    }
    RawClient(int port, const QString& pemPath, const QString& commonName)
    {
        grpc::SslCredentialsOptions ssl;
        ssl.pem_root_certs = fileText(pemPath).toStdString();
        grpc::ChannelArguments args;
        args.SetSslTargetNameOverride(commonName.toStdString());
        channel = grpc::CreateCustomChannel("127.0.0.1:" + std::to_string(port), grpc::SslCredentials(ssl), args);
    }

    // A call with its request in text format, a deadline and, once there is one, the gateway's token.
    // The error code of the reply (0 where it has none), or where the call fails minus its status code.
    template <class Stub, class Request, class Reply>
    int ask(grpc::Status (Stub::*method)(grpc::ClientContext*, const Request&, Reply*), const std::string& text,
            Reply* reply, int deadlineMs = 5000) const
    {
        Request request;
        grpc::ClientContext context;
        context.set_deadline(std::chrono::system_clock::now() + std::chrono::milliseconds(deadlineMs));
        if (!token.empty())
            context.AddMetadata("gatewayaccesstoken", token);
        Stub stub(channel);
        last = google::protobuf::TextFormat::ParseFromString(text, &request)
                   ? (stub.*method)(&context, request, reply)
                   : grpc::Status(StatusCode::INVALID_ARGUMENT, "the test's request does not parse");
        return last.ok() ? vditest::wireText(*reply, QStringLiteral("error.error_code")).toInt() : -int(last.error_code());
    }

    int login(const std::string& name, const std::string& password, client::LoginResp* reply,
              const std::string& authType = "0", const std::string& smsCode = {}) const
    {
        return ask(&Core::Login, "client_base_info { name: '" + name + "' password: '" + password + "' auth_type: '" +
                                     authType + "' sms_code: '" + smsCode + "' }",
                   reply);
    }

    // Logs in to the gateway and keeps the token for the next calls.
    bool loginGateway(const std::string& name, const std::string& password)
    {
        gateway::LoginGatewayResp reply;
        ask(&gateway::GatewayCore::Stub::LoginGateway, "client_base_info { name: '" + name + "' password: '" + password + "' }",
            &reply);
        token = reply.gw_access_token();
        return !token.empty();
    }

    std::shared_ptr<grpc::Channel> channel;
    std::string token;
    mutable grpc::Status last;  // of the last call
};

vdifake::ScenarioFile scenarioOf(const QString& text)
{
    vdifake::ScenarioFile file;
    QString error;
    if (!vdifake::parseScenarioFile(text, QStringLiteral("test.scenario"), &file, &error))
        qWarning("%s", qPrintable(error));
    return file;
}

// A scenario played (`prepare` runs before it starts); null, the reason logged, when it does not start.
std::unique_ptr<vdifake::ScenarioServer> play(const vdifake::ScenarioFile& file, const QString& mode = {},
                                              const std::function<void(vdifake::ScenarioServer&)>& prepare = {})
{
    vdifake::ScenarioServer::Options options;
    options.mode = mode;
    auto played = std::make_unique<vdifake::ScenarioServer>(file, options);
    if (prepare)
        prepare(*played);
    QString error;
    if (!played->start(&error)) {
        qWarning("%s", qPrintable(error));
        return nullptr;
    }
    return played;
}

// The built-in deployment with these faults added.
std::unique_ptr<vdifake::ScenarioServer> playFaults(const QString& faults,
                                                    const std::function<void(vdifake::ScenarioServer&)>& prepare = {})
{
    return play(scenarioOf(QStringLiteral("deployment {\n  extends_built_in: true\n%1\n}\n").arg(faults)), {}, prepare);
}

#ifdef VDI_SIMULATOR
// vdi-simulator started with `arguments`, and what it printed on stdout up to "ready".
struct Simulator {
    explicit Simulator(const QStringList& arguments)
    {
        process.start(QStringLiteral(VDI_SIMULATOR), arguments);
        QString out;
        while (!out.endsWith(QStringLiteral("ready\n")) && process.waitForReadyRead(10000))
            out += QString::fromUtf8(process.readAllStandardOutput());
        printed = QRegularExpression(QStringLiteral("^port (\\d+)\npem (.+)\ncommon-name (.*)\nready\n$")).match(out);
    }
    int port() const { return printed.captured(1).toInt(); }
    QString pem() const { return printed.captured(2); }
    QString commonName() const { return printed.captured(3); }
    // Stops it where it still runs; its exit code, -1 when it did not end normally.
    int stop()
    {
        process.terminate();
        process.waitForFinished(10000);
        return process.state() == QProcess::NotRunning && process.exitStatus() == QProcess::NormalExit ? process.exitCode()
                                                                                                      : -1;
    }
    QProcess process;
    QRegularExpressionMatch printed;
};
#endif

} // namespace

class TestSimulator : public QObject
{
    Q_OBJECT
private slots:
    void builtInScenarioIsTheDefault();
    void fileDeploymentIsPlayed();
    void fileMethodWinsOverTheDeployment();
    void fileGatewayUsersAndTokens();
    void faultOnTheCalls_data();
    void faultOnTheCalls();
    void faultDownAndBackUp();
    void brokenScenarioNamesTheLine_data();
    void brokenScenarioNamesTheLine();
    void exampleScenariosLoad();
    void simulatorHintsAndRecord();
    void simulatorKeepsPortAndCertificate();
};

// The built-in scenario plays the deployment the simulator always played: its users, pools,
// standing answers per mode (the gateway's login in gateway mode alone), applications, and the
// gateway's users.
void TestSimulator::builtInScenarioIsTheDefault()
{
    QVERIFY(vdifake::defaultScenario(QStringLiteral("elsewhere")).empty());
    QVERIFY(!vdifake::defaultScenario(QStringLiteral("controller")).count("/gateway.GatewayCore/LoginGateway"));

    const auto played = play(vdifake::builtInScenario());
    QVERIFY(played);
    RawClient raw(*played);
    client::LoginResp reply;
    QCOMPARE(raw.login("demo-user", "demo-password", &reply), 0);
    QCOMPARE(mismatch(reply, R"(domain: "vdi.local" pool_list { name: "Office desktops" }
                                pool_list { name: "Engineering workstations" } ex_pool_list { name: "Training lab" })"),
             QString());
    QCOMPARE(vditest::wireMismatch(reply, "pool_list[0].vm_list[0].vm_name: 'office-demo-user-1' "
                                          "pool_list[1].vm_list[0].snapshot_list[0].name: 'before-update'"),
             QString());
    QCOMPARE(raw.login("ldap-user", "ldap-password", &reply, "3"), 0);
    common_message::VoidResp answer;
    const std::string saas = "clientBaseInfo { name: 'demo-user' } saasAppInfo { appName: ";
    QCOMPARE(raw.ask(&Core::querySaasApp, saas + "'Payroll' }", &answer), int(Deployment::SaasAppRefused));
    QCOMPARE(raw.ask(&Core::querySaasApp, saas + "'Code review' }", &answer), 0);

    // Gateway mode: the gateway's users get tokens of the built-in prefix (what a token opens:
    // fileGatewayUsersAndTokens).
    const auto behindGateway = play(vdifake::builtInScenario(), QStringLiteral("gateway"));
    QVERIFY(behindGateway);
    RawClient viaGateway(*behindGateway);
    QVERIFY(viaGateway.loginGateway("gw-user", "gw-password"));
    QCOMPARE(viaGateway.token, std::string("gw-token-1"));
}

// The file's users get the file's pools and applications, each the ones meant for them; an
// operation changes a desktop's power state, which a later login shows.
void TestSimulator::fileDeploymentIsPlayed()
{
    const auto played = play(scenarioOf(QStringLiteral(R"(# A studio
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
)")));
    QVERIFY(played);
    RawClient raw(*played);
    client::LoginResp alice;
    QCOMPARE(raw.login("alice", "alice-pw", &alice), 0);
    QCOMPARE(mismatch(alice, R"(pool_list { name: "Studio" vm_list { vm_name: "alice-studio" vm_status: "shutdown" } })"),
             QString());  // the lab is bob's alone
    client::LoginResp reply;
    QCOMPARE(raw.login("demo-user", "demo-password", &reply), 1);  // the built-in user is not in this deployment

    client::OperateForVmResp started;
    QCOMPARE(raw.ask(&Core::OperateForVm, "client_base_info { vmUuid: '" + alice.pool_list(0).vm_list(0).vmuuid() +
                                              "' } op_type: " + std::to_string(Deployment::StartDesktop),
                     &started),
             0);
    QCOMPARE(started.vm().vm_status(), std::string("running"));
    QVERIFY(started.hostip().rfind("192.0.2.", 0) == 0);

    // bob sees both pools, two made-up desktops in the lab; his SMS login wants his code.
    QCOMPARE(raw.login("bob", "bob-pw", &reply, "2", "1111"), 1);
    QCOMPARE(raw.login("bob", "bob-pw", &reply, "2", "4242"), 0);
    QCOMPARE(mismatch(reply, R"(pool_list { name: "Studio" } pool_list { name: "Secret lab" vm_list { } vm_list { } })"),
             QString());
    QVERIFY(alice.ex_pool_list_size() == 0 && reply.ex_pool_list_size() == 0);

    // The applications are the file's, the ledger bob's alone.
    client::RemoteAppListResp apps;
    QCOMPARE(raw.ask(&Core::GetRemoteAppList, "client_base_info { name: 'alice' }", &apps), 0);
    QCOMPARE(mismatch(apps, R"(app_list { displayName: "Notes" })"), QString());
    client::RemoteAppInfoResp opened;
    QCOMPARE(raw.ask(&Core::getConnectAppInfo, "userName: 'alice' displayName: 'Ledger'", &opened),
             int(Deployment::RemoteAppRefused));
    QCOMPARE(raw.ask(&Core::getConnectAppInfo, "userName: 'bob' displayName: 'Ledger'", &opened), 0);
    QCOMPARE(opened.fulladdress(), std::string("rdp://192.0.2.5:3389/ledger"));

    // A QR code: its ticket logs alice in once, the built-in ticket prefix kept; her desktop runs now.
    client::CodeResp code;
    QCOMPARE(raw.ask(&Core::getCode, {}, &code), 0);
    QCOMPARE(code.ticket(), std::string("qr-ticket-1"));
    const std::string scanned = "client_base_info { auth_type: '2' ticket: '" + code.ticket() + "' }";
    QCOMPARE(raw.ask(&Core::Login, scanned, &reply), 0);
    QCOMPARE(mismatch(reply, R"(name: "alice" pool_list { vm_list { vm_name: "alice-studio" vm_status: "running" } })"),
             QString());
    QCOMPARE(raw.ask(&Core::Login, scanned, &reply), 1);  // used up

    client::IndividualConfigResp branding;
    QCOMPARE(raw.ask(&Core::queryIndividualConfig, {}, &branding), 0);
    QCOMPARE(branding.systemname(), std::string("Studio cloud"));
}

// A method block of the file answers that method alone, also where the deployment would.
void TestSimulator::fileMethodWinsOverTheDeployment()
{
    const vdifake::ScenarioFile file = scenarioOf(QStringLiteral(
        "method /client.ClientCore/Login\ndomain: \"scripted\"\n\nmethod /common.CommonCore/isUseGateway\nmode gateway\n"
        "useGateway: 7\n"));
    QCOMPARE(file.gatewayMethods.size(), size_t(1));
    const auto played = play(file);
    QVERIFY(played);
    RawClient raw(*played);
    client::LoginResp reply;
    QCOMPARE(raw.login("nobody", "nothing", &reply), 0);
    QCOMPARE(reply.domain(), std::string("scripted"));
    common::isUseGatewayResp gateway;
    QCOMPARE(raw.ask(&common::CommonCore::Stub::isUseGateway, {}, &gateway), 0);
    QCOMPARE(gateway.usegateway(), 0);  // the gateway block is not played in controller mode
}

// The file's gateway: its users get tokens of its prefix, a token it lists counts as issued,
// and the controller behind it wants one.
void TestSimulator::fileGatewayUsersAndTokens()
{
    const auto played = play(scenarioOf(QStringLiteral(R"(deployment {
  mode: "gateway"
  user { name: "erin" password: "erin-pw" }
  gateway { user { name: "edge" password: "edge-pw" } token_prefix: "edge-" token: "kept-token" }
})")));
    QVERIFY(played);
    RawClient raw(*played);
    client::LoginResp reply;
    raw.token = "made-up-token";
    QCOMPARE(raw.login("erin", "erin-pw", &reply), -int(StatusCode::UNAUTHENTICATED));
    raw.token = "kept-token";
    QCOMPARE(raw.login("erin", "erin-pw", &reply), 0);
    QVERIFY(!raw.loginGateway("gw-user", "gw-password"));  // the built-in gateway user is not there
    QVERIFY(raw.loginGateway("edge", "edge-pw"));
    QCOMPARE(raw.token, std::string("edge-1"));
    QCOMPARE(raw.login("erin", "erin-pw", &reply), 0);
    QCOMPARE(reply.use_gateway(), 1);
}

void TestSimulator::faultOnTheCalls_data()
{
    QTest::addColumn<QString>("faults");
    QTest::addColumn<QString>("calls");    // in turn, each method and the status it ends with
    QTest::addColumn<QString>("message");  // of every failed call, where given
    QTest::addColumn<int>("whoDelayMs");   // how long the server holds each WhoAreYou
    QTest::addColumn<QString>("answer");   // fields of every answer that goes through, where given
    QTest::newRow("status, other methods untouched")
        << R"(fault { method: "/client.ClientCore/Login" status: "PERMISSION_DENIED" message: "not today" })"
        << QStringLiteral("Login:%1 Login:%1 WhoAreYou:0").arg(StatusCode::PERMISSION_DENIED) << "not today" << 0 << QString();
    QTest::newRow("the next calls fail, UNAVAILABLE by default")
        << R"(fault { method: "/client.ClientCore/Login" fail_next: 2 })"
        << QStringLiteral("Login:%1 Login:%1 Login:0").arg(StatusCode::UNAVAILABLE) << QString() << 0 << QString();
    QTest::newRow("of every method: the first call of all")
        << R"(fault { method: "*" fail_next: 1 status: "RESOURCE_EXHAUSTED" })"
        << QStringLiteral("WhoAreYou:%1 Login:0 WhoAreYou:0").arg(StatusCode::RESOURCE_EXHAUSTED) << QString() << 0
        << QString();
    QTest::newRow("delay of one method") << R"(fault { method: "/client.ClientCore/WhoAreYou" delay_ms: 250 })"
                                         << "Login:0 WhoAreYou:0" << QString() << 250 << QString();
    QTest::newRow("error code in the reply, the rest kept")
        << R"(fault { method: "/client.ClientCore/Login" error_code: 77 error_msg_en: "licence expired" error_msg_zh: "许可证过期" })"
        << "Login:0" << QString() << 0
        << R"(error { error_code: 77 error_msg_en: "licence expired" error_msg_zh: "许可证过期" } pool_list { } pool_list { })";
    QTest::newRow("error code in a reply that is an ErrorData")
        << R"(fault { method: "/client.ClientCore/LoginOakdeskOnShareTerminal" error_code: 78 })"
        << "LoginOakdeskOnShareTerminal:0" << QString() << 0 << "error_code: 78";
}

// Each call ends as the fault says and answers as the deployment does when it goes through; the
// server records each one with its status and how long it held it, and held it that long.
void TestSimulator::faultOnTheCalls()
{
    QFETCH(QString, faults);
    QFETCH(QString, calls);
    QFETCH(QString, message);
    QFETCH(int, whoDelayMs);
    QFETCH(QString, answer);
    const auto played = playFaults(faults);
    QVERIFY(played);
    RawClient raw(*played);
    const std::map<QString, std::string> usual{{QStringLiteral("Login"), "pool_list { } pool_list { }"},
                                               {QStringLiteral("WhoAreYou"), "name: 'vdi-fake-controller'"}};
    std::map<std::string, std::multiset<std::pair<int, int>>> expected;  // per method: status, held ms
    for (const QString& call : calls.split(QLatin1Char(' '))) {
        const QString method = call.section(QLatin1Char(':'), 0, 0);
        const int code = call.section(QLatin1Char(':'), 1).toInt();
        const int delayMs = method == QLatin1String("WhoAreYou") ? whoDelayMs : 0;
        client::LoginResp reply;
        client::WhoAreYouReply who;
        common::ErrorData shared;
        const std::map<QString, const google::protobuf::Message*> answers{
            {QStringLiteral("Login"), &reply}, {QStringLiteral("WhoAreYou"), &who},
            {QStringLiteral("LoginOakdeskOnShareTerminal"), &shared}};
        QElapsedTimer timer;
        timer.start();
        if (method == QLatin1String("Login"))
            raw.login("demo-user", "demo-password", &reply);
        else if (method == QLatin1String("WhoAreYou"))
            raw.ask(&Core::WhoAreYou, {}, &who);
        else
            raw.ask(&Core::LoginOakdeskOnShareTerminal,
                    "device_id: 'share-term-01' userName: 'demo-user' password: 'demo-password'", &shared);
        QVERIFY2(timer.elapsed() >= delayMs, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(int(raw.last.error_code()), code);
        if (code && !message.isEmpty())
            QCOMPARE(QString::fromStdString(raw.last.error_message()), message);
        if (!code)
            QCOMPARE(mismatch(*answers.at(method), answer.isEmpty() ? usual.at(method) : answer.toStdString()), QString());
        expected["/client.ClientCore/" + method.toStdString()].insert({code, delayMs});
    }
    QVERIFY(played->waitForCalls({}, int(calls.count(QLatin1Char(' ')) + 1), 5000));
    std::map<std::string, std::multiset<std::pair<int, int>>> recorded;  // in the order they end on the server
    for (const vdifake::RecordedCall& call : played->calls())
        recorded[call.method].insert({call.status, call.delayMs});
    QCOMPARE(recorded, expected);
}

// After the second call the server stops serving; it comes back on the same port with the same
// certificate, the deployment's state intact, and the next call succeeds.
void TestSimulator::faultDownAndBackUp()
{
    std::vector<bool> states;
    std::mutex statesMutex;
    const auto played = playFaults(
        QStringLiteral(R"(fault { method: "/client.ClientCore/WhoAreYou" down_after_calls: 2 down_for_ms: 1500 })"),
        [&](vdifake::ScenarioServer& server) {
            server.setStateObserver([&](bool up, const std::string&, int) {
                std::lock_guard<std::mutex> lock(statesMutex);
                states.push_back(up);
            });
        });
    QVERIFY(played);
    const int port = played->port();
    const QString pem = played->pemPath();
    RawClient before(*played);
    client::LoginResp reply;
    QCOMPARE(before.login("demo-user", "demo-password", &reply), 0);
    const std::string firstDesktop = reply.pool_list(0).vm_list(0).vmuuid();
    client::OperateForVmResp operated;
    const std::string shutDown = "op_type: " + std::to_string(Deployment::ShutDownDesktop);
    QCOMPARE(before.ask(&Core::OperateForVm, "client_base_info { vmUuid: '" + firstDesktop + "' } " + shutDown, &operated), 0);

    client::WhoAreYouReply who;
    QCOMPARE(before.ask(&Core::WhoAreYou, {}, &who), 0);
    QCOMPARE(before.ask(&Core::WhoAreYou, {}, &who), 0);  // the second: answered, then the server goes
    QVERIFY(played->waitUntilDown(5000));
    QCOMPARE(before.ask(&Core::WhoAreYou, {}, &who, 500), -int(StatusCode::UNAVAILABLE));

    QVERIFY(played->waitForRestarts(1, 10000));
    QCOMPARE(played->port(), port);
    QCOMPARE(played->pemPath(), pem);
    RawClient after(*played);  // trusts the same certificate file
    QCOMPARE(after.ask(&Core::WhoAreYou, {}, &who), 0);
    QCOMPARE(after.login("demo-user", "demo-password", &reply), 0);
    QCOMPARE(reply.pool_list(0).vm_list(0).vmuuid(), firstDesktop);
    QCOMPARE(reply.pool_list(0).vm_list(0).vm_status(), std::string("shutdown"));
    std::lock_guard<std::mutex> lock(statesMutex);
    QCOMPARE(states, (std::vector<bool>{false, true}));
}

void TestSimulator::brokenScenarioNamesTheLine_data()
{
    QTest::addColumn<int>("line");  // the error begins "test.scenario:<line>:"
    QTest::addColumn<QString>("why");
    QTest::addColumn<QString>("text");
    QTest::newRow("deployment field")
        << 4 << "nmae" << "# a comment\ndeployment {\n  user { name: \"a\" }\n  pool { id: 1 nmae: \"x\" }\n}\n";
    QTest::newRow("unclosed deployment") << 3 << "closing" << "\n\ndeployment {\n  user { name: \"a\" }\n";
    QTest::newRow("fault of no method")
        << 4 << "no such method" << "deployment {\n  user { name: \"a\" }\n\n  fault { method: \"/client.ClientCore/Nope\" }\n}\n";
    QTest::newRow("fault status")
        << 2 << "unknown status SLOW" << "deployment {\n  fault { method: \"*\" status: \"SLOW\" }\n}\n";
    QTest::newRow("error code without error field")
        << 2 << "no error field" << "deployment {\n  fault { method: \"/client.ClientCore/querySSOConfig\" error_code: 3 }\n}\n";
    QTest::newRow("desktop status")
        << 3 << "asleep" << "deployment {\n  pool { id: 3 name: \"p\"\n    desktop { owner: \"a\" status: \"asleep\" } }\n}\n";
    QTest::newRow("reply field")
        << 4 << "no_such_field" << "method /client.ClientCore/Login\ndelay 5\ndomain: \"x\"\nno_such_field: 1\n";
    QTest::newRow("mode") << 2 << "sideways" << "method /client.ClientCore/Login\nmode sideways\n";
}

void TestSimulator::brokenScenarioNamesTheLine()
{
    QFETCH(int, line);
    QFETCH(QString, why);
    QFETCH(QString, text);
    vdifake::ScenarioFile file;
    QString error;
    QVERIFY(!vdifake::parseScenarioFile(text, QStringLiteral("test.scenario"), &file, &error));
    QVERIFY2(error.startsWith(QStringLiteral("test.scenario:%1:").arg(line)) && error.contains(why), qPrintable(error));
}

// Every shipped scenario reads, is played, and a user of its deployment logs in (through its
// gateway when it has one) and gets pools.
void TestSimulator::exampleScenariosLoad()
{
    const QDir dir(QStringLiteral(VDI_SCENARIOS_DIR));
    const QStringList files = dir.entryList({QStringLiteral("*.scenario")}, QDir::Files, QDir::Name);
    QVERIFY2(files.size() >= 3, qPrintable(dir.path()));
    QVERIFY(QFile::exists(dir.filePath(QStringLiteral("README.md"))));
    for (const QString& name : files) {
        vdifake::ScenarioFile file;
        QString error;
        QVERIFY2(vdifake::loadScenarioFile(dir.filePath(name), &file, &error), qPrintable(error));
        const auto played = play(file);
        QVERIFY2(played, qPrintable(name));
        RawClient raw(*played);
        const Deployment& deployment = played->deployment();
        if (played->mode() == QLatin1String("gateway")) {
            const auto gatewayUser = *deployment.gatewayUsers().begin();
            QVERIFY2(raw.loginGateway(gatewayUser.first.toStdString(), gatewayUser.second.toStdString()), qPrintable(name));
        }
        const auto user = *deployment.users().begin();
        client::LoginResp reply;
        int code = -1;
        // A flaky scenario may fail the first logins: three tries.
        for (int i = 0; i < 3 && (code = raw.login(user.first.toStdString(), user.second.toStdString(), &reply)) < 0; ++i) {
        }
        QVERIFY2(code == 0, qPrintable(name + QStringLiteral(": ") + QString::fromStdString(raw.last.error_message())));
        QVERIFY2(reply.pool_list_size() + reply.ex_pool_list_size() > 0, qPrintable(name));
    }
}

// The program: the lines programs read on stdout, the hint for people on stderr, its options
// (--mode over the file's), and the record written at exit: each call with its metadata and
// request, never a password or a token, and the entries of each help upload's zip.
void TestSimulator::simulatorHintsAndRecord()
{
    const QString upload = vdifake::describeRecord({}, {{9001, "help.zip", "zip", 2048, 2, {"logs/client.log", "screenshot.png"}}});
    QCOMPARE(upload, QStringLiteral("# 0 call(s) received; secrets are redacted\n"
                                    "upload task 9001, help.zip (zip), 2048 bytes in 2 chunk(s); 2 entries:\n"
                                    "    logs/client.log\n    screenshot.png\n"));
#ifndef VDI_SIMULATOR
    QSKIP("the simulator is not built here (VDI_BUILD_TOOLS is off)");
#else
    const QTemporaryDir dir;
    const QString recordPath = dir.filePath(QStringLiteral("record.txt"));
    Simulator simulator({"--mode", "gateway", "--scenario", VDI_SCENARIOS_DIR "/small-office.scenario", "--gateway-user",
                         "edge:edge-pw", "--record", recordPath});
    QVERIFY(simulator.printed.hasMatch());

    RawClient raw(simulator.port(), simulator.pem(), simulator.commonName());
    QVERIFY(raw.loginGateway("edge", "edge-pw"));
    client::LoginResp reply;
    QCOMPARE(raw.login("alice", "alice-pw", &reply), 0);
    QCOMPARE(reply.domain(), std::string("smith.local"));
    client::ModifyPasswordResp changed;
    QCOMPARE(raw.ask(&Core::ModifyPassword,
                     "client_base_info { name: 'alice' password: 'alice-pw' } password_new: 'brand-new-secret'", &changed),
             0);

    QCOMPARE(simulator.stop(), 0);
    const QString hint = QString::fromUtf8(simulator.process.readAllStandardError());
    const QString client = QStringLiteral("vdi-client --server 127.0.0.1 --port %1 --pem %2 ").arg(simulator.port());
    for (const QString& shown : {client.arg(simulator.pem()), QStringLiteral("server type 1 (access gateway)"),
                                 QStringLiteral("TLS target name override \"%1\"").arg(simulator.commonName())})
        QVERIFY2(hint.contains(shown), qPrintable(hint));

    // The calls in the order they ended on the server, which back-to-back calls need not keep.
    const QString record = fileText(recordPath);
    for (const char* shown : {"call [1-3] /client\\.ClientCore/Login OK\n", "call [1-3] /client\\.ClientCore/ModifyPassword OK\n",
                              "name: \"alice\"", "metadata gatewayaccesstoken: <redacted>", "password: \"<redacted>\"",
                              "password_new: \"<redacted>\""})
        QVERIFY2(record.contains(QRegularExpression(QLatin1String(shown))), qPrintable(record));
    for (const std::string& secret : {std::string("alice-pw"), std::string("edge-pw"), std::string("brand-new-secret"), raw.token})
        QVERIFY2(!record.contains(QString::fromStdString(secret)), qPrintable(record));
#endif
}

// Started again with --port and --certdir (or --cert-dir), it serves on that port with the
// certificate the first start made and left there, unless another common name is asked for; while
// it serves, another one cannot take its port.
void TestSimulator::simulatorKeepsPortAndCertificate()
{
#ifndef VDI_SIMULATOR
    QSKIP("the simulator is not built here (VDI_BUILD_TOOLS is off)");
#else
    const QTemporaryDir dir;
    const QString certDir = dir.filePath(QStringLiteral("certificates"));  // made by the first start
    const int port = vditest::unusedPort();
    const QStringList served{QStringLiteral("--port"), QString::number(port)};
    QString certificate;
    const std::pair<QStringList, bool> starts[] = {  // the options, and whether the certificate is the one before
        {{"--certdir", certDir}, false},
        {{"--cert-dir", certDir}, true},
        {{"--certdir", certDir, "--common-name", "elsewhere"}, false}};
    for (const auto& start : starts) {
        Simulator simulator(served + start.first);
        QVERIFY2(simulator.printed.hasMatch(), simulator.process.readAllStandardError().constData());
        QCOMPARE(simulator.port(), port);
        QCOMPARE(simulator.pem(), QDir(certDir).absoluteFilePath(QStringLiteral("fake-server.crt.pem")));
        QCOMPARE(simulator.commonName(), start.first.value(3, QStringLiteral("vdi-fake-controller")));
        QCOMPARE(fileText(simulator.pem()) == certificate, start.second);
        certificate = fileText(simulator.pem());
        RawClient raw(simulator.port(), simulator.pem(), simulator.commonName());
        client::LoginResp reply;
        QCOMPARE(raw.login("demo-user", "demo-password", &reply), 0);
        if (&start == starts) {
            Simulator taken(served);
            QCOMPARE(taken.stop(), 1);
            const QString error = QString::fromUtf8(taken.process.readAllStandardError());
            QVERIFY2(error.contains(QStringLiteral("port %1 of 127.0.0.1 is taken").arg(port)), qPrintable(error));
        }
        QCOMPARE(simulator.stop(), 0);
    }
    QCOMPARE(Simulator({"--port", "abc"}).stop(), 2);
#endif
}

VDI_TEST_MAIN(TestSimulator)
#include "tst_simulator.moc"
