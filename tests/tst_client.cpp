// vdi-client as a user runs it against the built-in deployment served in this process: its JSON
// read back, its exit codes, which stream says what, its help, and never a password in what it
// prints.
#include "testsupport.h"
#include "testcertificate.h"
#include "scenario.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

namespace {

const QString kErrorPrefix = QStringLiteral("vdi-client: error: ");

struct Run {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
    QJsonObject json() const { return QJsonDocument::fromJson(out).object(); }
    QString text(const QString& key) const { return json().value(key).toString(); }
    // The `key` of every row of the table `table`.
    QStringList column(const QString& table, const QString& key) const
    {
        QStringList values;
        for (const QJsonValue& row : json().value(table).toArray())
            values << row.toObject().value(key).toString();
        return values;
    }
    // The error line on stderr, where the JSON document's error (with --json) has the same text
    // and stdout nothing (without); else what the streams hold.
    QString error(bool inJson) const
    {
        const QString lines = QString::fromUtf8(err);
        const int at = lines.indexOf(kErrorPrefix);
        const QString line = at < 0 ? QString() : lines.mid(at + kErrorPrefix.size()).section(QLatin1Char('\n'), 0, 0);
        if (line.isEmpty() || (inJson ? json().value("error").toObject().value("message").toString() != line : !out.isEmpty()))
            return QStringLiteral("stdout: %1\nstderr: %2").arg(QString::fromUtf8(out), lines);
        return line;
    }
};

const QString kDemoUser = QStringLiteral("--user demo-user --password demo-password ");

// The built-in deployment in a mode, and vdi-client pointed at it.
struct Deployment {
    explicit Deployment(const char* mode) : server(vditest::serveBuiltInDeployment(QLatin1String(mode))) {}
    explicit Deployment(std::unique_ptr<vdifake::ScenarioServer> played) : server(std::move(played)) {}
    // vdi-client with the words of `line` (whose options win), then `more`, in a home of its own (the
    // gateway's token is saved there), stdin fed with `input`.
    Run client(const QString& line, const QByteArray& input = {}, const QStringList& more = {}) const
    {
        const QTemporaryDir home;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOME"), home.path());
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.path());
        env.remove(QStringLiteral("VDI_PASSWORD"));
        env.remove(QStringLiteral("GRPC_VERBOSITY"));
        QProcess process;
        process.setProcessEnvironment(env);
        process.start(QStringLiteral(VDI_CLIENT), QStringList{"--port", QString::number(server->port()), "--pem",
                                                              server->pemPath(), "--timeout", "10"} +
                                                      line.split(QLatin1Char(' '), Qt::SkipEmptyParts) + more);
        Run run;
        if (!process.waitForStarted(10000))
            return run;
        process.write(input);
        process.closeWriteChannel();
        if (process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit)
            run.exitCode = process.exitCode();
        else
            process.kill(), process.waitForFinished();
        run.out = process.readAllStandardOutput();
        run.err = process.readAllStandardError();
        return run;
    }
    std::unique_ptr<vdifake::ScenarioServer> server;
};

} // namespace

class TestClient : public QObject
{
    Q_OBJECT
private slots:
    void discoversAndShowsOptions();
    void operationsAndConnectionData();
    void answers_data();
    void answers();
    void gatewayRoad();
    void verboseShowsNoSecret();
};

void TestClient::discoversAndShowsOptions()
{
    const Deployment deployment("controller");
    QVERIFY(deployment.server);

    // A user given, but discovery logs in as nobody: no password asked, nothing on stderr.
    const Run discovered = deployment.client("--user demo-user --json discover");
    QCOMPARE(discovered.exitCode, 0);
    QCOMPARE(discovered.err, QByteArray());
    QCOMPARE(discovered.text("tlsName"), deployment.server->commonName());
    QCOMPARE(discovered.text("serverType"), QStringLiteral("controller"));
    QCOMPARE(discovered.text("serverName"), QStringLiteral("vdi-fake-controller"));
    QCOMPARE(discovered.json().value("nodes").toArray().size(), 2);

    // The branding comes twice from the library; the client shows it once.
    const Run options = deployment.client(kDemoUser + "options");
    QCOMPARE(options.exitCode, 0);
    QCOMPARE(options.out.count("systemName: Simulated Desktop Cloud"), 1);
    QVERIFY(options.out.contains("smsLogin: yes"));
}

// The operations change the desktop; a desktop applied for comes with its connection data, without
// the passwords of the reply.
void TestClient::operationsAndConnectionData()
{
    const Deployment deployment("controller");
    QVERIFY(deployment.server);
    const auto stateOf = [&deployment](const QString& desktop) {
        const Run listed = deployment.client(kDemoUser + "--json desktops");
        return listed.column("desktops", "state").value(listed.column("desktops", "name").indexOf(desktop));
    };
    QCOMPARE(stateOf(QStringLiteral("office-demo-user-2")), QStringLiteral("shutdown"));
    const Run started = deployment.client(kDemoUser + "--json operate office-demo-user-2 start");
    QCOMPARE(started.exitCode, 0);
    QCOMPARE(started.text("state"), QStringLiteral("running"));
    QVERIFY(started.json().value("port").toInt() > 0);
    QCOMPARE(stateOf(QStringLiteral("office-demo-user-2")), QStringLiteral("running"));

    // Snapshots where the pool allows them (where not: answers).
    const Run created = deployment.client(kDemoUser + "--json snapshot eng-demo-user-3 create s1");
    QCOMPARE(created.exitCode, 0);
    QVERIFY(created.column("snapshots", "name").contains(QStringLiteral("s1")));

    // A desktop of a pool with its connection data.
    const QStringList pool{QStringLiteral("Office desktops")};
    const Run json = deployment.client(kDemoUser + "--json apply", {}, pool);
    QCOMPARE(json.exitCode, 0);
    QCOMPARE(json.text("protocol"), QStringLiteral("spice"));
    QVERIFY(!json.text("host").isEmpty());
    QVERIFY(json.json().value("port").toInt() > 0);
    QCOMPARE(json.text("state"), QStringLiteral("running"));

    // The reply holds the desktop account's and the spice passwords: neither key nor value is shown.
    const Run text = deployment.client(kDemoUser + "--verbose apply", {}, pool);
    QCOMPARE(text.exitCode, 0);
    for (const QByteArray& out : {json.out, text.out}) {
        QVERIFY2(!out.toLower().contains("password"), out.constData());
        QVERIFY(!out.contains("Vdi-"));  // the simulator's desktop account and spice passwords
    }
    QVERIFY(text.err.contains("[ loginInternal ]"));  // the library's own log, with --verbose
}

void TestClient::answers_data()
{
    QTest::addColumn<QString>("line");     // @BINARY@, @OTHER@, @NOSUBJECT@: a pem that is no certificate,
                                           // another server's, one without a subject
    QTest::addColumn<int>("heartbeat");    // the status the server ends the heartbeat with
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("codes");    // of the JSON error: "grpcStatus N", "serverCode N" or none
    QTest::addColumn<QString>("shown");    // texts between '|': the first one starts the error (else stdout)
    QTest::addColumn<QString>("absent");   // from stdout and stderr
    const auto row = [](const char* name, const QString& line, int exitCode, const QString& shown,
                        const QString& absent = {}, const QString& codes = {}, int heartbeat = 0) {
        QTest::newRow(name) << line << heartbeat << exitCode << codes << shown << absent;
    };
    const QString user = "--json " + kDemoUser;
    const char* apply = "Usage: vdi-client [options] apply POOL\n|never printed|VDI_PASSWORD|Exit codes: 0 done";
    const QString unreached = QStringLiteral("server type: the server cannot be reached (gRPC status 14");
    row("help", "--help", 0,
        "Usage: |Exit codes: 0 done|help-report TYPE DESCRIPTION|(default 127.0.0.1)|(default 443)|(default 35)",
        "never printed");
    row("help apply", "help apply", 0, apply, "TLS name");
    row("apply --help", "apply --help", 0, apply, "TLS name");
    row("desktops as a table", kDemoUser + "desktops", 0,
        "|Pools (3):|Office desktops|Engineering workstations|Training lab|Desktops (6):|office-demo-user-2", "password");
    row("applications, no trace", kDemoUser + "apps", 0, "Applications (7):|Word|Payroll", "TRACE");
    row("help discover, no login", "help discover", 0, "Usage: vdi-client [options] discover|TLS name", "VDI_PASSWORD");
    row("refused login", "--json --user demo-user --password wrong login", 3,
        "login as \"demo-user\": refused by the server, code 1: 用户名或密码错误 / wrong user name or password", {},
        "serverCode 1");
    row("refused login in English", "--english --user demo-user --password wrong login", 3,
        "login as \"demo-user\": refused by the server, code 1: wrong user name or password", "用户名");
    row("pool without snapshots", user + "snapshot office-demo-user-2 create s1", 3,
        "snapshot create of \"office-demo-user-2\": refused by the server", {}, "serverCode 13");
    row("nobody listens", QStringLiteral("--json --english --port %1 discover").arg(vditest::unusedPort()), 2,
        unreached, "服务器", "grpcStatus 14");
    row("another server's certificate: gRPC silent", "--pem @OTHER@ discover", 2, unreached, "Handshake failed");
    row("another server's certificate, verbose", "--verbose --pem @OTHER@ discover", 2, unreached + "|Handshake failed");
    row("no certificate file", "--json --pem /nonexistent.pem discover", 1, "cannot read --pem \"/nonexistent.pem\"");
    row("no certificate in the pem", "--json --pem @BINARY@ discover", 2, "no TLS channel: |holds no PEM certificate");
    row("no subject in the certificate", "--pem @NOSUBJECT@ discover", 2, "no TLS channel: |no certificate with a subject");
    row("server error", user + "heartbeat", 4,
        "heartbeat: an internal error of the server (gRPC status 13: failed) / 内部错误", {}, "grpcStatus 13",
        int(grpc::StatusCode::INTERNAL));
    row("not authenticated", "--english " + kDemoUser + "heartbeat", 4,
        "heartbeat: not authenticated (gRPC status 16: failed)", {}, {}, int(grpc::StatusCode::UNAUTHENTICATED));
    row("deadline", user + "heartbeat", 5, "heartbeat: no answer in time (gRPC status 4: failed)", {}, "grpcStatus 4",
        int(grpc::StatusCode::DEADLINE_EXCEEDED));
    row("no such desktop", user + "operate nowhere start", 1, "no desktop \"nowhere\" among the user's desktops");
    row("no such action", user + "operate office-demo-user-2 explode", 1, "operate wants a desktop and one of state, start");
    row("no command", "--json", 1, "name a command");
    row("no such command", "--json frobnicate", 1, "unknown command \"frobnicate\"");
    row("no user", "--json desktops", 1, "this command logs in: give --user");
    row("help of no command", "--json help explode", 1, "unknown command \"explode\"");
    row("no such option", "--no-such-option discover", 1, "Unknown option 'no-such-option'");
    row("port not a number", "--port abc discover", 1, "--port wants a number from 1 to 65535, not \"abc\"", "--timeout");
    row("no time", "--timeout 0 discover", 1, "--timeout wants a number of seconds from 1 up, not \"0\"", "--port");
    row("no password to read", "--json --user demo-user login", 1,
        "login as \"demo-user\": nothing to read for the password of \"demo-user\": give --password or VDI_PASSWORD");
}

// The exit code and what the client prints: the results on stdout; an error on stderr, and with
// --json in the document on stdout too, with its exit code and the codes behind it.
void TestClient::answers()
{
    QFETCH(QString, line);
    QFETCH(int, heartbeat);
    QFETCH(int, exitCode);
    QFETCH(QString, codes);
    QFETCH(QString, shown);
    QFETCH(QString, absent);
    const Deployment deployment("controller"), other("controller");
    QVERIFY(deployment.server && other.server);
    const QTemporaryDir dir;
    const vdifake::CertificateFiles noSubject =
        vdifake::makeSelfSignedCertificate(dir.path(), QString(), QStringLiteral("nosubject.test"), QStringLiteral("s"));
    QVERIFY(noSubject.isValid());
    line.replace(QLatin1String("@BINARY@"), QStringLiteral(VDI_CLIENT))
        .replace(QLatin1String("@OTHER@"), other.server->pemPath())
        .replace(QLatin1String("@NOSUBJECT@"), noSubject.certPath);
    deployment.server->withServer([heartbeat](vdifake::FakeServer& server) {
        if (heartbeat)
            server.setStatus("/client.ClientCore/Heartbeat", grpc::StatusCode(heartbeat), "failed");
    });
    const Run run = deployment.client(line);
    QCOMPARE(run.exitCode, exitCode);
    const bool json = line.startsWith(QLatin1String("--json"));
    const QJsonObject error = run.json().value("error").toObject();
    if (json && exitCode) {
        QJsonObject expected{{"exitCode", exitCode}, {"message", error.value("message")}};
        if (!codes.isEmpty())
            expected.insert(codes.section(QLatin1Char(' '), 0, 0), codes.section(QLatin1Char(' '), 1).toInt());
        QVERIFY2(error == expected, QJsonDocument(error).toJson(QJsonDocument::Compact).constData());
    }
    const QString said = exitCode ? run.error(json) : QString::fromUtf8(run.out);
    QVERIFY2(said.startsWith(shown.section(QLatin1Char('|'), 0, 0)), qPrintable(said));
    const QString both = QString::fromUtf8(run.out + run.err);
    for (const QString& text : shown.split(QLatin1Char('|')))
        QVERIFY2(both.contains(text), qPrintable(text + QStringLiteral(" in ") + both));
    QVERIFY2(absent.isNull() || !both.contains(absent), qPrintable(absent + QStringLiteral(" in ") + both));
}

void TestClient::gatewayRoad()
{
    const Deployment deployment("gateway");
    QVERIFY(deployment.server);
    const Run discovered = deployment.client("--json discover");
    QCOMPARE(discovered.exitCode, 0);
    QCOMPARE(discovered.text("serverType"), QStringLiteral("gateway"));
    const QJsonObject gateway = discovered.json().value("gateways").toArray().first().toObject();
    QVERIFY(gateway.value("vdpPort").toInt() > 0 && gateway.value("rdpPort").toInt() > 0);

    const Run byOption = deployment.client(kDemoUser + "--gateway-user gw-user --gateway-password gw-password --json login");
    QCOMPARE(byOption.exitCode, 0);
    QCOMPARE(byOption.json().value("throughGateway").toBool(), true);
    QCOMPARE(byOption.text("user"), QStringLiteral("demo-user"));
    QCOMPARE(byOption.err, QByteArray());

    // Not given: the user's password and the gateway's user and password asked for, read from
    // stdin here (no terminal), and no password echoed into the output.
    const Run prompted = deployment.client("--user demo-user --json desktops", "demo-password\ngw-user\ngw-password\n");
    QCOMPARE(prompted.exitCode, 0);
    for (const char* prompt : {"Password for demo-user: ", "Gateway user: ", "Gateway password: "})
        QVERIFY2(prompted.err.contains(prompt), prompted.err.constData());
    for (const QByteArray& password : {QByteArray("demo-password"), QByteArray("gw-password")})
        QVERIFY(!prompted.out.contains(password) && !prompted.err.contains(password));
    QCOMPARE(prompted.column("pools", "name").size(), 3);
    QCOMPARE(prompted.column("desktops", "name").size(), 6);

    // Refused: the library's critical line tells why, without --verbose.
    const Run refused = deployment.client(kDemoUser + "--json login", "gw-user\nwrong\n");
    QCOMPARE(refused.exitCode, 3);
    QVERIFY2(refused.err.contains("\nvdi-client: [ loginGateway ] token empty, login gateway error"), refused.err.constData());

    // Nothing to read: the option to give, and no gateway login tried.
    for (const auto& missing : {std::make_pair(QString(), "the access gateway's user: give --gateway-user"),
                                std::make_pair(QStringLiteral("--gateway-user gw-user "),
                                               "the access gateway's password: give --gateway-password or "
                                               "VDI_GATEWAY_PASSWORD")}) {
        const Run run = deployment.client(kDemoUser + missing.first + "desktops");
        QCOMPARE(run.exitCode, 1);
        QCOMPARE(run.error(false), QStringLiteral("login as \"demo-user\": nothing to read for ") + missing.second);
    }
    QCOMPARE(deployment.server->calls("/gateway.GatewayCore/LoginGateway").size(), size_t(3));
    QCOMPARE(deployment.server->calls("/client.ClientCore/Login").size(), size_t(2));
}

// The client logs strictly: with --verbose no password and no token of any length shows, neither
// through a gateway with an apply whose reply carries the desktop's passwords, nor in an LDAP login.
void TestClient::verboseShowsNoSecret()
{
    const QString user = QStringLiteral("user-pw-") + QString(50, QLatin1Char('u'));
    const QString ldap = QStringLiteral("ldap-pw-") + QString(50, QLatin1Char('l'));
    const QString gateway = QStringLiteral("gw-pw-") + QString(50, QLatin1Char('g'));
    vdifake::ScenarioFile file;
    QString error;
    QVERIFY2(vdifake::parseScenarioFile(QStringLiteral(R"(deployment {
  user { name: "alice" password: "%1" }
  ldap_user { name: "alice" password: "%2" }
  gateway { user { name: "edge" password: "%3" } }
  pool { id: 7 name: "Studio" desktop { owner: "alice" name: "alice-studio" status: "running" } }
})").arg(user, ldap, gateway),
                                        QStringLiteral("long.scenario"), &file, &error),
             qPrintable(error));
    const auto played = [&](const char* mode) {
        vdifake::ScenarioServer::Options options;
        options.mode = QLatin1String(mode);
        auto server = std::make_unique<vdifake::ScenarioServer>(file, options);
        return server->start(&error) ? std::move(server) : nullptr;
    };
    const Deployment deployment(played("gateway")), controller(played("controller"));
    QVERIFY2(deployment.server && controller.server, qPrintable(error));
    const Run applied = deployment.client(QStringLiteral("--user alice --password %1 --gateway-user edge "
                                                         "--gateway-password %2 --verbose apply Studio").arg(user, gateway));
    const Run byLdap = controller.client(QStringLiteral("--user alice --password %1 --verbose --ldap corp login").arg(ldap));
    QVERIFY2(applied.exitCode == 0, applied.err.right(900).constData());
    QVERIFY2(byLdap.exitCode == 0, byLdap.err.right(900).constData());
    const auto calls = deployment.server->calls("/client.ClientCore/ApplyForVm");
    QCOMPARE(calls.size(), size_t(1));
    const QByteArray token = QByteArray::fromStdString(calls.at(0).metadataValue("gatewayaccesstoken"));
    QVERIFY(!token.isEmpty());
    QVERIFY2(byLdap.err.contains(QByteArray("checkAndSaveLdapPasswd \"alice\" , \"") + VdiDesktopGrpcWorker::kSecretMask),
             byLdap.err.constData());
    for (const Run* run : {&applied, &byLdap}) {
        const QByteArray shown = run->out + run->err;
        QVERIFY2(shown.count(VdiDesktopGrpcWorker::kSecretMask) >= 2, shown.constData());  // a request and a reply
        for (const QByteArray& secret : {user.toUtf8(), ldap.toUtf8(), gateway.toUtf8(), token, QByteArray("Vdi-")})
            QVERIFY2(!shown.contains(secret), secret.constData());
    }
}

VDI_TEST_MAIN(TestClient)
#include "tst_client.moc"
