// vdi-client as a user runs it: the program against the built-in deployment served in this
// process (and once against the vdi-simulator program), its JSON read back, its exit codes, its
// help, and never a password in what it prints.
#include "scenarioserver.h"
#include "testsupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

namespace {

struct Run {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
    QJsonObject json() const { return QJsonDocument::fromJson(out).object(); }
};

class Deployment {
public:
    explicit Deployment(const QString& mode)
        : m_server(vditest::serveBuiltInDeployment(mode))
    {
    }
    bool started() const { return m_server != nullptr; }
    vdifake::ScenarioServer& server() { return *m_server; }

    // vdi-client with the server's address and certificate, in a home of the run's own (the
    // gateway's token is saved there), stdin fed with `input`.
    Run client(QStringList args, const QByteArray& input = QByteArray(), const QString& pem = QString())
    {
        args = QStringList{QStringLiteral("--port"), QString::number(m_server->port()), QStringLiteral("--pem"),
                           pem.isNull() ? m_server->pemPath() : pem, QStringLiteral("--timeout"), QStringLiteral("10")}
            + args;
        return runClient(args, input);
    }

    static Run runClient(const QStringList& args, const QByteArray& input = QByteArray())
    {
        QTemporaryDir home;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOME"), home.path());
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.path());
        env.remove(QStringLiteral("VDI_PASSWORD"));
        QProcess process;
        process.setProcessEnvironment(env);
        process.start(QStringLiteral(VDI_CLIENT), args);
        Run run;
        if (!process.waitForStarted(10000))
            return run;
        process.write(input);
        process.closeWriteChannel();
        if (!process.waitForFinished(60000)) {
            process.kill();
            process.waitForFinished();
            return run;
        }
        run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
        run.out = process.readAllStandardOutput();
        run.err = process.readAllStandardError();
        return run;
    }

private:
    std::unique_ptr<vdifake::ScenarioServer> m_server;
};

const QStringList kDemoUser{QStringLiteral("--user"), QStringLiteral("demo-user"), QStringLiteral("--password"),
                            QStringLiteral("demo-password")};

QStringList names(const QJsonArray& rows, const QString& key)
{
    QStringList list;
    for (const QJsonValue& row : rows)
        list << row.toObject().value(key).toString();
    return list;
}

QString stateOf(const QJsonObject& desktops, const QString& name)
{
    for (const QJsonValue& row : desktops.value(QStringLiteral("desktops")).toArray())
        if (row.toObject().value(QStringLiteral("name")).toString() == name)
            return row.toObject().value(QStringLiteral("state")).toString();
    return QString();
}

} // namespace

class TestClient : public QObject
{
    Q_OBJECT
private slots:
    void discoversAndListsDesktops();
    void operationsChangeTheDesktop();
    void applyPrintsConnectionDataWithoutPasswords();
    void exitCodesTellWhatFailed();
    void gatewayRoad();
    void againstTheSimulatorProgram();
    void helpPerCommand();
};

void TestClient::discoversAndListsDesktops()
{
    Deployment deployment(QStringLiteral("controller"));
    QVERIFY(deployment.started());

    // A user given, but discovery logs in as nobody: no password asked.
    const Run discovered = deployment.client({QStringLiteral("--user"), QStringLiteral("demo-user"), QStringLiteral("--json"),
                                              QStringLiteral("discover")});
    QCOMPARE(discovered.exitCode, 0);
    QVERIFY2(!discovered.err.contains("Password"), discovered.err.constData());
    QCOMPARE(discovered.json().value(QStringLiteral("tlsName")).toString(), deployment.server().commonName());
    QCOMPARE(discovered.json().value(QStringLiteral("serverType")).toString(), QStringLiteral("controller"));
    QCOMPARE(discovered.json().value(QStringLiteral("serverName")).toString(), QStringLiteral("vdi-fake-controller"));
    QCOMPARE(discovered.json().value(QStringLiteral("nodes")).toArray().size(), 2);

    const Run listed = deployment.client(kDemoUser + QStringList{QStringLiteral("--json"), QStringLiteral("desktops")});
    QCOMPARE(listed.exitCode, 0);
    const QJsonObject json = listed.json();
    QCOMPARE(names(json.value(QStringLiteral("pools")).toArray(), QStringLiteral("name")),
             (QStringList{QStringLiteral("Office desktops"), QStringLiteral("Engineering workstations"),
                          QStringLiteral("Training lab")}));
    QCOMPARE(json.value(QStringLiteral("desktops")).toArray().size(), 6);
    QVERIFY(names(json.value(QStringLiteral("desktops")).toArray(), QStringLiteral("name"))
                .contains(QStringLiteral("office-demo-user-2")));

    // The branding comes twice from the library; the client shows it once.
    const Run options = deployment.client(kDemoUser + QStringList{QStringLiteral("options")});
    QCOMPARE(options.exitCode, 0);
    QCOMPARE(options.out.count("systemName: Simulated Desktop Cloud"), 1);
    QVERIFY(options.out.contains("smsLogin: yes"));

    // Without --password or VDI_PASSWORD the password is asked (read from stdin when it is no terminal).
    const Run asked = deployment.client({QStringLiteral("--user"), QStringLiteral("demo-user"), QStringLiteral("--json"),
                                         QStringLiteral("login")},
                                        "demo-password\n");
    QCOMPARE(asked.exitCode, 0);
    QVERIFY(asked.err.contains("Password for demo-user: "));
    QCOMPARE(asked.json().value(QStringLiteral("user")).toString(), QStringLiteral("demo-user"));

    // The same values as a table for people.
    const Run table = deployment.client(kDemoUser + QStringList{QStringLiteral("desktops")});
    QCOMPARE(table.exitCode, 0);
    QVERIFY2(table.out.contains("Desktops (6):"), table.out.constData());
    QVERIFY(table.out.contains("office-demo-user-2"));
}

void TestClient::operationsChangeTheDesktop()
{
    Deployment deployment(QStringLiteral("controller"));
    QVERIFY(deployment.started());
    const QString desktop = QStringLiteral("office-demo-user-2");
    const QStringList json{QStringLiteral("--json")};
    QCOMPARE(stateOf(deployment.client(kDemoUser + json + QStringList{QStringLiteral("desktops")}).json(), desktop),
             QStringLiteral("shutdown"));

    const Run started = deployment.client(kDemoUser + json + QStringList{QStringLiteral("operate"), desktop,
                                                                         QStringLiteral("start")});
    QCOMPARE(started.exitCode, 0);
    QCOMPARE(started.json().value(QStringLiteral("state")).toString(), QStringLiteral("running"));
    QVERIFY(!started.json().value(QStringLiteral("port")).toString().isEmpty());
    QCOMPARE(stateOf(deployment.client(kDemoUser + json + QStringList{QStringLiteral("desktops")}).json(), desktop),
             QStringLiteral("running"));

    // Snapshots where the pool allows them.
    const Run created = deployment.client(kDemoUser + json + QStringList{QStringLiteral("snapshot"), QStringLiteral("eng-demo-user-3"),
                                                                         QStringLiteral("create"), QStringLiteral("s1")});
    QCOMPARE(created.exitCode, 0);
    QVERIFY(names(created.json().value(QStringLiteral("snapshots")).toArray(), QStringLiteral("name"))
                .contains(QStringLiteral("s1")));
    const Run refused = deployment.client(kDemoUser + QStringList{QStringLiteral("snapshot"), desktop,
                                                                  QStringLiteral("create"), QStringLiteral("s1")});
    QCOMPARE(refused.exitCode, 3);  // a pool without snapshots

    const Run unknown = deployment.client(kDemoUser + QStringList{QStringLiteral("operate"), QStringLiteral("nowhere"),
                                                                  QStringLiteral("start")});
    QCOMPARE(unknown.exitCode, 1);
    const Run badAction = deployment.client(kDemoUser + QStringList{QStringLiteral("operate"), desktop,
                                                                    QStringLiteral("explode")});
    QCOMPARE(badAction.exitCode, 1);
}

void TestClient::applyPrintsConnectionDataWithoutPasswords()
{
    Deployment deployment(QStringLiteral("controller"));
    QVERIFY(deployment.started());
    const Run json = deployment.client(kDemoUser + QStringList{QStringLiteral("--json"), QStringLiteral("apply"),
                                                               QStringLiteral("Office desktops")});
    QCOMPARE(json.exitCode, 0);
    const QJsonObject data = json.json();
    QCOMPARE(data.value(QStringLiteral("protocol")).toString(), QStringLiteral("spice"));
    QVERIFY(!data.value(QStringLiteral("host")).toString().isEmpty());
    QVERIFY(!data.value(QStringLiteral("port")).toString().isEmpty());
    QCOMPARE(data.value(QStringLiteral("state")).toString(), QStringLiteral("running"));

    // The reply holds the desktop account's and the spice passwords: neither key nor value is shown.
    const std::vector<vdifake::RecordedCall> calls = deployment.server().calls("/client.ClientCore/ApplyForVm");
    QVERIFY(!calls.empty());
    const Run text = deployment.client(kDemoUser + QStringList{QStringLiteral("--verbose"), QStringLiteral("apply"),
                                                               QStringLiteral("Office desktops")});
    QCOMPARE(text.exitCode, 0);
    for (const QByteArray& out : {json.out, text.out}) {
        QVERIFY2(!out.toLower().contains("password"), out.constData());
        QVERIFY(!out.contains("demo-password"));
        QVERIFY(!out.contains("Vdi-"));  // the simulator's desktop account and spice passwords
    }
    QVERIFY(!text.err.contains("demo-password"));  // the library's own log redacts it too
}

void TestClient::exitCodesTellWhatFailed()
{
    Deployment deployment(QStringLiteral("controller"));
    QVERIFY(deployment.started());

    const Run refused = deployment.client({QStringLiteral("--user"), QStringLiteral("demo-user"), QStringLiteral("--password"),
                                           QStringLiteral("wrong"), QStringLiteral("--json"), QStringLiteral("login")});
    QCOMPARE(refused.exitCode, 3);
    QVERIFY(refused.json().value(QStringLiteral("error")).toObject().value(QStringLiteral("message")).toString().contains(
        QStringLiteral("wrong user name or password")));

    const Run unreachable = Deployment::runClient({QStringLiteral("--port"), QString::number(vditest::unusedPort()),
                                                   QStringLiteral("--pem"), deployment.server().pemPath(),
                                                   QStringLiteral("discover")});
    QCOMPARE(unreachable.exitCode, 2);
    QCOMPARE(deployment.client({QStringLiteral("discover")}, QByteArray(), QStringLiteral("/nonexistent.pem")).exitCode, 2);

    deployment.server().withServer([](vdifake::FakeServer& server) {
        server.setStatus("/client.ClientCore/Heartbeat", grpc::StatusCode::INTERNAL, "broken");
    });
    QCOMPARE(deployment.client(kDemoUser + QStringList{QStringLiteral("heartbeat")}).exitCode, 4);

    deployment.server().withServer([](vdifake::FakeServer& server) {
        server.setStatus("/client.ClientCore/Heartbeat", grpc::StatusCode::DEADLINE_EXCEEDED, "slow");
    });
    QCOMPARE(deployment.client(kDemoUser + QStringList{QStringLiteral("heartbeat")}).exitCode, 5);

    QCOMPARE(deployment.client({QStringLiteral("no-such-command")}).exitCode, 1);
    QCOMPARE(deployment.client({QStringLiteral("desktops")}).exitCode, 1);  // no user
}

void TestClient::gatewayRoad()
{
    Deployment deployment(QStringLiteral("gateway"));
    QVERIFY(deployment.started());
    const QStringList login{QStringLiteral("--json"), QStringLiteral("login")};

    const Run byOption = deployment.client(kDemoUser + QStringList{QStringLiteral("--gateway-user"), QStringLiteral("gw-user"),
                                                                   QStringLiteral("--gateway-password"),
                                                                   QStringLiteral("gw-password")}
                                           + login);
    QCOMPARE(byOption.exitCode, 0);
    QCOMPARE(byOption.json().value(QStringLiteral("throughGateway")).toBool(), true);
    QCOMPARE(byOption.json().value(QStringLiteral("user")).toString(), QStringLiteral("demo-user"));

    // Not given: asked for, read from stdin here, and the password not echoed into the output.
    const Run prompted = deployment.client(kDemoUser + login, "gw-user\ngw-password\n");
    QCOMPARE(prompted.exitCode, 0);
    QVERIFY(prompted.err.contains("Gateway user: "));
    QVERIFY(!prompted.out.contains("gw-password") && !prompted.err.contains("gw-password"));

    const Run refused = deployment.client(kDemoUser + login, "gw-user\nwrong\n");
    QCOMPARE(refused.exitCode, 3);
    QCOMPARE(deployment.server().calls("/client.ClientCore/Login").size(), size_t(2));
}

// The client and the simulator as a user starts them: the simulator's stdout lines give the port
// and the certificate, and the client walks the gateway road with the gateway's user and password
// answered on its stdin.
void TestClient::againstTheSimulatorProgram()
{
    QProcess simulator;
    simulator.start(QStringLiteral(VDI_SIMULATOR), {QStringLiteral("--mode"), QStringLiteral("gateway")});
    QVERIFY(simulator.waitForStarted());
    QString out;
    while (!out.endsWith(QStringLiteral("ready\n")) && simulator.waitForReadyRead(10000))
        out += QString::fromUtf8(simulator.readAllStandardOutput());
    const QRegularExpressionMatch printed =
        QRegularExpression(QStringLiteral("^port (\\d+)\npem (.+)\ncommon-name (.+)\nready\n$")).match(out);
    QVERIFY2(printed.hasMatch(), qPrintable(out));
    const QStringList server{QStringLiteral("--port"), printed.captured(1), QStringLiteral("--pem"), printed.captured(2),
                             QStringLiteral("--timeout"), QStringLiteral("10"), QStringLiteral("--json")};

    const Run discovered = Deployment::runClient(server + QStringList{QStringLiteral("discover")});
    QCOMPARE(discovered.exitCode, 0);
    QCOMPARE(discovered.json().value(QStringLiteral("serverType")).toString(), QStringLiteral("gateway"));
    QCOMPARE(discovered.json().value(QStringLiteral("tlsName")).toString(), printed.captured(3));
    QVERIFY(!discovered.json().value(QStringLiteral("gateways")).toArray().isEmpty());

    const Run listed = Deployment::runClient(server + kDemoUser + QStringList{QStringLiteral("desktops")},
                                             "gw-user\ngw-password\n");
    QCOMPARE(listed.exitCode, 0);
    QVERIFY(listed.err.contains("Gateway password: "));
    QCOMPARE(listed.json().value(QStringLiteral("pools")).toArray().size(), 3);
    QCOMPARE(listed.json().value(QStringLiteral("desktops")).toArray().size(), 6);

    simulator.terminate();
    QVERIFY(simulator.waitForFinished(10000));
    const Run down = Deployment::runClient(server + QStringList{QStringLiteral("discover")});
    QCOMPARE(down.exitCode, 2);
    QCOMPARE(down.json().value(QStringLiteral("error")).toObject().value(QStringLiteral("exitCode")).toInt(), 2);
}

void TestClient::helpPerCommand()
{
    const Run general = Deployment::runClient({QStringLiteral("--help")});
    QCOMPARE(general.exitCode, 0);
    QVERIFY(general.out.contains("Exit codes: 0 done"));
    QVERIFY(general.out.contains("help-report TYPE DESCRIPTION"));

    for (const QStringList& args : {QStringList{QStringLiteral("help"), QStringLiteral("apply")},
                                    QStringList{QStringLiteral("apply"), QStringLiteral("--help")}}) {
        const Run described = Deployment::runClient(args);
        QCOMPARE(described.exitCode, 0);
        QVERIFY2(described.out.startsWith("Usage: vdi-client [options] apply POOL\n"), described.out.constData());
        QVERIFY(described.out.contains("never printed"));
        QVERIFY(described.out.contains("VDI_PASSWORD"));  // it logs in
        QVERIFY(described.out.contains("Exit codes: 0 done"));
    }
    const Run discover = Deployment::runClient({QStringLiteral("help"), QStringLiteral("discover")});
    QCOMPARE(discover.exitCode, 0);
    QVERIFY(discover.out.contains("TLS name"));
    QVERIFY(!discover.out.contains("VDI_PASSWORD"));  // no login
    QCOMPARE(Deployment::runClient({QStringLiteral("help"), QStringLiteral("explode")}).exitCode, 1);
    QCOMPARE(Deployment::runClient({QStringLiteral("--no-such-option"), QStringLiteral("discover")}).exitCode, 1);
}

VDI_TEST_MAIN(TestClient)
#include "tst_client.moc"
