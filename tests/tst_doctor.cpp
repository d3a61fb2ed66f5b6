// vdi-client doctor against the built-in deployment and deliberate faults: for each, the exit
// code, which steps pass, fail or are not tried, the failing step's words and the advice; and
// that the library connects exactly where the doctor finds the road clear.
#include "testsupport.h"
#include "testcertificate.h"
#include "scenario.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSettings>
#include <QStandardPaths>
#include <QTcpServer>

namespace {

struct Run {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
    QJsonObject json() const { return QJsonDocument::fromJson(out).object(); }
    QJsonObject step(int i) const { return json().value("steps").toArray().at(i).toObject(); }
    // "ok ok ok FAIL --": a mark a step.
    QString marks() const
    {
        QStringList marks;
        for (const QJsonValue& step : json().value("steps").toArray())
            marks << (step["ok"].toBool() ? "ok" : step["tried"].toBool() ? "FAIL" : "--");
        return marks.join(' ');
    }
};

// vdi-client with these arguments (it inherits the test's own home: the gateway token is saved there).
Run vdiClient(const QStringList& args)
{
    QProcess process;
    process.start(QStringLiteral(VDI_CLIENT), args);
    const bool ended = process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit;
    if (!ended)
        process.kill(), process.waitForFinished();
    return Run{ended ? process.exitCode() : -1, process.readAllStandardOutput(), process.readAllStandardError()};
}

bool openssl(const QString& dir, const QStringList& args)
{
    QProcess process;
    process.setWorkingDirectory(dir);
    process.start(QStringLiteral("openssl"), args);
    if (process.waitForFinished(30000) && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
        return true;
    qWarning().noquote() << "openssl" << args.join(' ') << "failed:" << process.readAllStandardError();
    return false;
}

// A self-signed certificate for "vdi-expired.example" that was valid on the first day of 2024
// alone. `openssl req` makes no certificate that has expired already; `openssl ca` takes the dates.
vdifake::CertificateFiles makeExpiredCertificate(const QString& dir)
{
    QFile config(dir + "/ca.cnf");
    if (!config.open(QIODevice::WriteOnly))
        return {};
    config.write("[ca]\ndefault_ca = self\n"
                 "[self]\ndatabase = index.txt\nnew_certs_dir = .\nserial = serial\ndefault_md = sha256\n"
                 "policy = any\nx509_extensions = v3\n"
                 "[any]\ncommonName = supplied\n"
                 "[req]\ndistinguished_name = dn\nprompt = no\n[dn]\n"
                 "[v3]\nbasicConstraints = critical, CA:TRUE\nkeyUsage = critical, digitalSignature, keyCertSign\n"
                 "extendedKeyUsage = serverAuth\nsubjectAltName = DNS:vdi-expired.example\n");
    config.close();
    QFile(dir + "/index.txt").open(QIODevice::WriteOnly);
    QFile serial(dir + "/serial");
    if (!serial.open(QIODevice::WriteOnly) || serial.write("01\n") != 3)
        return {};
    serial.close();
    const bool made =
        openssl(dir, {"req", "-new", "-config", "ca.cnf", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
                      "-nodes", "-keyout", "expired.key.pem", "-out", "expired.csr", "-subj", "/CN=vdi-expired.example"}) &&
        openssl(dir, {"ca", "-batch", "-config", "ca.cnf", "-selfsign", "-keyfile", "expired.key.pem", "-in", "expired.csr",
                      "-startdate", "20240101000000Z", "-enddate", "20240102000000Z", "-notext", "-out", "expired.crt.pem"});
    return made ? vdifake::CertificateFiles{dir + "/expired.crt.pem", dir + "/expired.key.pem"} : vdifake::CertificateFiles{};
}

enum Fault { RightPem, OtherPem, NameMismatch, Expired, ClosedPort, NotTls };

// What the doctor is pointed at: the built-in controller deployment (with a fault of its
// certificate), or nobody, or a TCP listener that never says a word; and the pem it is given.
struct Scene {
    QTemporaryDir dir;
    std::unique_ptr<vdifake::ScenarioServer> server;
    QTcpServer silent;
    QString pem;
    quint16 port = 0;

    bool serve(const vdifake::FakeServer::Options& certificate)
    {
        server.reset(new vdifake::ScenarioServer(vdifake::builtInScenario(), {QStringLiteral("controller"), certificate}));
        QString error;
        const bool started = server->start(&error);
        if (!started)
            qWarning() << "the deployment does not start:" << error;
        pem = server->pemPath();
        port = quint16(server->port());
        return started;
    }

    bool setUp(Fault fault)
    {
        vdifake::FakeServer::Options certificate;
        const vdifake::CertificateFiles other =
            vdifake::makeSelfSignedCertificate(dir.path(), QStringLiteral("vdi-other"), {}, QStringLiteral("other"));
        switch (fault) {
        case RightPem:
            return serve(certificate);
        case OtherPem:
            return serve(certificate) && !(pem = other.certPath).isEmpty();
        case NameMismatch:
            certificate.commonName = QStringLiteral("vdi-ctl.example");
            certificate.dnsName = QStringLiteral("vdi-alt.example");
            return serve(certificate);
        case Expired: {
            const vdifake::CertificateFiles expired = makeExpiredCertificate(dir.path());
            certificate.certPath = expired.certPath;
            certificate.keyPath = expired.keyPath;
            return expired.isValid() && serve(certificate);
        }
        case ClosedPort:
            port = vditest::unusedPort();
            break;
        case NotTls:
            if (!silent.listen(QHostAddress::LocalHost))
                return false;
            port = silent.serverPort();
            break;
        }
        pem = other.certPath;
        return other.isValid();
    }
};

} // namespace

class TestDoctor : public QObject
{
    Q_OBJECT
private slots:
    void road_data();
    void road();
    void gatewayToken();
    void commandLine();
};

void TestDoctor::road_data()
{
    QTest::addColumn<int>("fault");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("marks");
    QTest::addColumn<QStringList>("words");   // of the failing step (else of the last one)
    QTest::addColumn<QStringList>("advice");  // none: every step passes
    QTest::newRow("right pem") << int(RightPem) << 0 << "ok ok ok ok ok"
                               << QStringList{"a controller answered the server-type query in", "(status OK)"}
                               << QStringList();
    QTest::newRow("another certificate's pem")
        << int(OtherPem) << 2 << "ok ok ok FAIL --"
        << QStringList{"the server presents CN=vdi-fake-controller, SAN vdi-fake-controller, self-signed (SHA-256 ",
                       "; your pem is another certificate (CN=vdi-other, no SAN, self-signed, SHA-256 ",
                       ") and does not verify it"}
        << QStringList{"copy the server's certificate (SHA-256 ", ") to the terminal and give it with --pem",
                       "-showcerts"};
    QTest::newRow("alternative name differs from the subject")
        << int(NameMismatch) << 2 << "ok ok ok FAIL --"
        << QStringList{"the server presents CN=vdi-ctl.example, SAN vdi-alt.example",
                       "the name that the library checks, \"vdi-ctl.example\" (your pem's subject), is not among its names",
                       "gRPC does not look at the CN", "gRPC says only \"No match found for server name\""}
        << QStringList{"reissue the server's certificate with \"vdi-ctl.example\" among its alternative names "
                       "(subjectAltName DNS:vdi-ctl.example)"};
    QTest::newRow("expired certificate")
        << int(Expired) << 2 << "ok ok ok FAIL --"
        << QStringList{"the server presents CN=vdi-expired.example, SAN vdi-expired.example",
                       "the server's certificate expired on 2024-01-02 00:00 UTC, ", " days before this terminal's clock ("}
        << QStringList{"renew the server's certificate", "if this terminal's clock is wrong, set it"};
    QTest::newRow("closed port") << int(ClosedPort) << 2 << "ok ok FAIL -- --"
                                 << QStringList{"refused the connection (", "): nothing listens on port "}
                                 << QStringList{"check --port"};
    QTest::newRow("plain TCP listener") << int(NotTls) << 2 << "ok ok ok FAIL --"
                                        << QStringList{"accepted TCP but did not answer the TLS handshake within 1 s"}
                                        << QStringList{"something other than the controller's TLS service listens on port"};
}

void TestDoctor::road()
{
    QFETCH(int, fault);
    QFETCH(int, exitCode);
    QFETCH(QString, marks);
    QFETCH(QStringList, words);
    QFETCH(QStringList, advice);
    Scene scene;
    QVERIFY(scene.setUp(Fault(fault)));
    // Only the listener that never answers is waited for, and only that briefly.
    const QStringList args{"--port", QString::number(scene.port), "--pem", scene.pem,
                           "--timeout", fault == NotTls ? "1" : "10"};

    const Run json = vdiClient(args + QStringList{"--json", "doctor"});
    QCOMPARE(json.exitCode, exitCode);
    QCOMPARE(json.err, QByteArray());
    QCOMPARE(json.marks(), marks);
    const int failing = marks.split(' ').indexOf("FAIL");
    const QJsonObject step = json.step(failing < 0 ? 4 : failing);
    for (const QString& text : words)
        QVERIFY2(step["words"].toString().contains(text), qPrintable(step["words"].toString()));
    const QString advised = json.json().value("advice").toString();
    QCOMPARE(advised.isEmpty(), advice.isEmpty());
    for (const QString& text : advice)
        QVERIFY2(advised.contains(text), qPrintable(advised));

    // The lines say the same: one a step with its mark, the advice last.
    const Run text = vdiClient(args + QStringList{"doctor"});
    QCOMPARE(text.exitCode, exitCode);
    const QStringList lines = QString::fromUtf8(text.out).split('\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), advice.isEmpty() ? 5 : 6);
    const QString line = lines.at(failing < 0 ? 4 : failing);
    QVERIFY2(line.startsWith(QStringLiteral("%1 %2: ").arg(failing < 0 ? "[ ok ]" : "[FAIL]", step["name"].toString())),
             qPrintable(line));
    for (const QString& text : words)
        QVERIFY2(line.contains(text), qPrintable(line));
    if (!advice.isEmpty())
        QCOMPARE(lines.last(), "what to do: " + advised);
    if (failing >= 0)
        QVERIFY(lines.at(4).startsWith("[ -- ] service: not tried"));

    // The library connects exactly where the doctor finds the road clear.
    const Run discover = vdiClient(args + QStringList{"discover"});
    QCOMPARE(discover.exitCode == 0, exitCode == 0);
}

// Behind a gateway the service step tells whether the saved token still passes; a refused one
// leaves the road clear (the next login logs in at the gateway again).
void TestDoctor::gatewayToken()
{
    const std::unique_ptr<vdifake::ScenarioServer> gateway = vditest::serveBuiltInDeployment(QStringLiteral("gateway"));
    QVERIFY(gateway);
    const QStringList args{"--port", QString::number(gateway->port()), "--pem", gateway->pemPath(), "--timeout", "10"};
    const auto service = [&args] {
        const Run run = vdiClient(args + QStringList{"--json", "doctor"});
        return run.exitCode == 0 ? run.step(4)["words"].toString() : QString::fromUtf8(run.out + run.err);
    };
    const QString first = service();
    QVERIFY2(first.startsWith("an access gateway answered the server-type query in "), qPrintable(first));
    QVERIFY(first.endsWith("; no saved token (the first login asks for the gateway's user and password)"));

    const Run login = vdiClient(args + QStringList{"--user", "demo-user", "--password", "demo-password", "--gateway-user",
                                                "gw-user", "--gateway-password", "gw-password", "login"});
    QCOMPARE(login.exitCode, 0);
    QVERIFY(service().endsWith("; saved token accepted"));

    QSettings saved(QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation) + "/gateway/gatewaySettings.ini",
                    QSettings::IniFormat);
    QVERIFY(saved.value("GATEWAYINFO/token").toString().startsWith("gw-token-"));
    saved.setValue("GATEWAYINFO/token", "gw-token-of-another-day");
    saved.sync();
    QVERIFY(service().endsWith("; saved token refused (the next login logs in at the gateway again)"));
}

void TestDoctor::commandLine()
{
    const Run bare = vdiClient({"--json", "doctor"});
    QCOMPARE(bare.exitCode, 1);
    QCOMPARE(bare.json().value("error").toObject().value("message").toString(),
             QStringLiteral("give the server's certificate with --pem FILE: the doctor starts there"));
    const Run help = vdiClient({"help", "doctor"});
    QCOMPARE(help.exitCode, 0);
    QVERIFY(help.out.contains("Usage: vdi-client [options] doctor"));
    QVERIFY(help.out.contains("Exit code 0\nwhen every step passes, 2 when one fails"));
}

VDI_TEST_MAIN(TestDoctor)
#include "tst_doctor.moc"
