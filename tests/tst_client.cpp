// vdi-client as a user runs it against the built-in deployment served in this process: its JSON
// read back, its exit codes, its help, and never a password in what it prints.
#include "testsupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

namespace {

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
};

const QString kDemoUser = QStringLiteral("--user demo-user --password demo-password ");

// The built-in deployment in a mode, and vdi-client pointed at it.
struct Deployment {
    explicit Deployment(const char* mode) : server(vditest::serveBuiltInDeployment(QLatin1String(mode))) {}
    // vdi-client with the words of `line` (whose options win), then `more`, in a home of its own (the
    // gateway's token is saved there), stdin fed with `input`.
    Run client(const QString& line, const QByteArray& input = {}, const QStringList& more = {}) const
    {
        const QTemporaryDir home;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOME"), home.path());
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.path());
        env.remove(QStringLiteral("VDI_PASSWORD"));
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
    void discoversAndListsDesktops();
    void operationsAndConnectionData();
    void answers_data();
    void answers();
    void gatewayRoad();
};

void TestClient::discoversAndListsDesktops()
{
    const Deployment deployment("controller");
    QVERIFY(deployment.server);

    // A user given, but discovery logs in as nobody: no password asked.
    const Run discovered = deployment.client("--user demo-user --json discover");
    QCOMPARE(discovered.exitCode, 0);
    QVERIFY2(!discovered.err.contains("Password"), discovered.err.constData());
    QCOMPARE(discovered.text("tlsName"), deployment.server->commonName());
    QCOMPARE(discovered.text("serverType"), QStringLiteral("controller"));
    QCOMPARE(discovered.text("serverName"), QStringLiteral("vdi-fake-controller"));
    QCOMPARE(discovered.json().value("nodes").toArray().size(), 2);

    const Run listed = deployment.client(kDemoUser + "--json desktops");
    QCOMPARE(listed.exitCode, 0);
    QCOMPARE(listed.column("pools", "name"), (QStringList{QStringLiteral("Office desktops"),
                                                          QStringLiteral("Engineering workstations"),
                                                          QStringLiteral("Training lab")}));
    const QStringList desktops = listed.column("desktops", "name");
    QCOMPARE(desktops.size(), 6);
    QVERIFY(desktops.contains(QStringLiteral("office-demo-user-2")));

    // The branding comes twice from the library; the client shows it once.
    const Run options = deployment.client(kDemoUser + "options");
    QCOMPARE(options.exitCode, 0);
    QCOMPARE(options.out.count("systemName: Simulated Desktop Cloud"), 1);
    QVERIFY(options.out.contains("smsLogin: yes"));

    // Without --password or VDI_PASSWORD the password is asked (read from stdin when it is no terminal).
    const Run asked = deployment.client("--user demo-user --json login", "demo-password\n");
    QCOMPARE(asked.exitCode, 0);
    QVERIFY(asked.err.contains("Password for demo-user: "));
    QCOMPARE(asked.text("user"), QStringLiteral("demo-user"));
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
    QVERIFY(!started.text("port").isEmpty());
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
    QVERIFY(!json.text("port").isEmpty());
    QCOMPARE(json.text("state"), QStringLiteral("running"));
    QVERIFY(!deployment.server->calls("/client.ClientCore/ApplyForVm").empty());

    // The reply holds the desktop account's and the spice passwords: neither key nor value is shown.
    const Run text = deployment.client(kDemoUser + "--verbose apply", {}, pool);
    QCOMPARE(text.exitCode, 0);
    for (const QByteArray& out : {json.out, text.out}) {
        QVERIFY2(!out.toLower().contains("password"), out.constData());
        QVERIFY(!out.contains("demo-password"));
        QVERIFY(!out.contains("Vdi-"));  // the simulator's desktop account and spice passwords
    }
    QVERIFY(!text.err.contains("demo-password"));  // the library's own log redacts it too
}

void TestClient::answers_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<int>("heartbeat");  // the status the server ends the heartbeat with
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("shown");   // texts between '|', the first one at the start
    QTest::addColumn<QString>("absent");
    const QString user = "--json " + kDemoUser;
    const char* apply = "Usage: vdi-client [options] apply POOL\n|never printed|VDI_PASSWORD|Exit codes: 0 done";
    QTest::newRow("help") << "--help" << 0 << 0 << "Usage: |Exit codes: 0 done|help-report TYPE DESCRIPTION"
                          << "never printed";
    QTest::newRow("help apply") << "help apply" << 0 << 0 << apply << "TLS name";
    QTest::newRow("apply --help") << "apply --help" << 0 << 0 << apply << "TLS name";
    QTest::newRow("desktops as a table") << kDemoUser + "desktops" << 0 << 0 << "|Desktops (6):|office-demo-user-2"
                                         << "password";
    QTest::newRow("help discover, no login") << "help discover" << 0 << 0
                                             << "Usage: vdi-client [options] discover|TLS name" << "VDI_PASSWORD";
    QTest::newRow("refused login") << "--json --user demo-user --password wrong login" << 0 << 3
                                   << "login as \"demo-user\": refused by the server, code 1: 用户名或密码错误 / wrong "
                                      "user name or password" << QString();
    QTest::newRow("pool without snapshots") << user + "snapshot office-demo-user-2 create s1" << 0 << 3
                                            << "snapshot create of \"office-demo-user-2\": refused by the server" << QString();
    QTest::newRow("nobody listens") << QStringLiteral("--json --port %1 discover").arg(vditest::unusedPort()) << 0 << 2
                                    << "server type: the server cannot be reached (code 14" << QString();
    QTest::newRow("no certificate") << "--json --pem /nonexistent.pem discover" << 0 << 2
                                    << "cannot read the server's certificate \"/nonexistent.pem\" (--pem)" << QString();
    QTest::newRow("server error") << user + "heartbeat" << int(grpc::StatusCode::INTERNAL) << 4
                                  << "heartbeat: the call failed with gRPC status 13 (failed)" << QString();
    QTest::newRow("deadline") << user + "heartbeat" << int(grpc::StatusCode::DEADLINE_EXCEEDED) << 5
                              << "heartbeat: the server did not answer in time (code 4)" << QString();
    QTest::newRow("no such desktop") << user + "operate nowhere start" << 0 << 1
                                     << "no desktop \"nowhere\" among the user's desktops" << QString();
    QTest::newRow("no such action") << user + "operate office-demo-user-2 explode" << 0 << 1
                                    << "operate wants a desktop and one of state, start" << QString();
    QTest::newRow("no such command") << "--json no-such-command" << 0 << 1 << "name a command" << QString();
    QTest::newRow("no user") << "--json desktops" << 0 << 1 << "this command logs in: give --user" << QString();
    QTest::newRow("help of no command") << "--json help explode" << 0 << 1 << "no command \"explode\"" << QString();
    QTest::newRow("no such option") << "--no-such-option discover" << 0 << 1 << "error: Unknown option 'no-such-option'"
                                    << QString();
}

// The exit code and what the client prints: with --json a failure's reason, and its exit code
// again, in the output's error.
void TestClient::answers()
{
    QFETCH(QString, line);
    QFETCH(int, heartbeat);
    QFETCH(int, exitCode);
    QFETCH(QString, shown);
    QFETCH(QString, absent);
    const Deployment deployment("controller");
    QVERIFY(deployment.server);
    deployment.server->withServer([heartbeat](vdifake::FakeServer& server) {
        if (heartbeat)
            server.setStatus("/client.ClientCore/Heartbeat", grpc::StatusCode(heartbeat), "failed");
    });
    const Run run = deployment.client(line);
    QCOMPARE(run.exitCode, exitCode);
    const QJsonObject error = run.json().value("error").toObject();
    const bool json = line.startsWith(QLatin1String("--json"));
    if (json)
        QCOMPARE(error.value("exitCode").toInt(), exitCode);
    const QString out = json ? error.value("message").toString() : QString::fromUtf8(run.out);
    QVERIFY2(out.startsWith(shown.section(QLatin1Char('|'), 0, 0)), qPrintable(out));
    for (const QString& text : shown.split(QLatin1Char('|')))
        QVERIFY2(out.contains(text), qPrintable(text));
    QVERIFY2(absent.isNull() || !out.contains(absent), qPrintable(absent));
}

void TestClient::gatewayRoad()
{
    const Deployment deployment("gateway");
    QVERIFY(deployment.server);
    const Run discovered = deployment.client("--json discover");
    QCOMPARE(discovered.exitCode, 0);
    QCOMPARE(discovered.text("serverType"), QStringLiteral("gateway"));
    QVERIFY(!discovered.json().value("gateways").toArray().isEmpty());

    const Run byOption = deployment.client(kDemoUser + "--gateway-user gw-user --gateway-password gw-password --json login");
    QCOMPARE(byOption.exitCode, 0);
    QCOMPARE(byOption.json().value("throughGateway").toBool(), true);
    QCOMPARE(byOption.text("user"), QStringLiteral("demo-user"));

    // Not given: asked for, read from stdin here, and the password not echoed into the output.
    const Run prompted = deployment.client(kDemoUser + "--json desktops", "gw-user\ngw-password\n");
    QCOMPARE(prompted.exitCode, 0);
    QVERIFY2(prompted.err.contains("Gateway user: ") && prompted.err.contains("Gateway password: "),
             prompted.err.constData());
    QVERIFY(!prompted.out.contains("gw-password") && !prompted.err.contains("gw-password"));
    QCOMPARE(prompted.column("pools", "name").size(), 3);
    QCOMPARE(prompted.column("desktops", "name").size(), 6);

    QCOMPARE(deployment.client(kDemoUser + "--json login", "gw-user\nwrong\n").exitCode, 3);
    QCOMPARE(deployment.server->calls("/client.ClientCore/Login").size(), size_t(2));
}

VDI_TEST_MAIN(TestClient)
#include "tst_client.moc"
