// What a terminal meets on a poor network, tried against the test bed: a server that is not
// there yet, one that dies while it holds a call and comes back on the same port, one that stops
// answering. Each time the failed call is a value, and the next call after the rebuild works.
#include "testsupport.h"

#include "testcertificate.h"

namespace {
const std::string kCheckPassword = "/client.ClientCore/CheckPassword";

// A fake controller that can be taken down and started again on the same port with the same
// certificate, so that its clients' trust and target stay valid.
class RestartableServer
{
public:
    RestartableServer()
    {
        m_cert = vdifake::makeSelfSignedCertificate(m_dir.path(), QStringLiteral("vdi-fake-controller"), QString(),
                                                    QStringLiteral("restartable"));
        m_port = vditest::unusedPort();
    }
    void start()
    {
        vdifake::FakeServer::Options options;
        options.port = m_port;
        options.certPath = m_cert.certPath;
        options.keyPath = m_cert.keyPath;
        m_server.reset(new vdifake::FakeServer(options));
    }
    void kill() { m_server.reset(); }
    vdifake::FakeServer* operator->() const { return m_server.get(); }
    bool running() const { return m_server && m_server->isRunning() && m_server->port() == m_port; }
    QString pem() const { return m_cert.certPath; }
    ushort port() const { return ushort(m_port); }

private:
    QTemporaryDir m_dir;
    vdifake::CertificateFiles m_cert;
    int m_port = 0;
    std::unique_ptr<vdifake::FakeServer> m_server;
};

tagCheckPasswordResp resultOf(const QSignalSpy& spy, int i)
{
    return spy.at(i).at(0).value<tagCheckPasswordResp>();
}
} // namespace

class TestFaults : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { VdiDesktopGrpcThread::registerMetaTypes(); }
    void serverDownAtStartThenUp();
    void serverKilledDuringHeldCallThenBack();
    void silentServerHeldToTheDeadline();
    void unusablePem_data();
    void unusablePem();
    void certificateOfAnotherServer_data();
    void certificateOfAnotherServer();
    void settingsFileOfGarbage();
};

// Nothing listens at the first call: UNAVAILABLE, the channels rebuilt. Once the server is
// there the next call goes through, without a new initConnection.
void TestFaults::serverDownAtStartThenUp()
{
    RestartableServer server;
    VdiDesktopGrpcWorker worker;
    worker.initConnection(server.pem(), QStringLiteral("127.0.0.1"), server.port(), false);
    QSignalSpy spy(&worker, &VdiDesktopGrpcWorker::checkPasswordResult);
    vditest::LogCapture log;

    worker.checkPassword(tagCheckPasswordRequest());
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(1).toBool(), false);
    QCOMPARE(resultOf(spy, 0).error.errorCode, int(grpc::StatusCode::UNAVAILABLE));
    QVERIFY(log.contains(vditest::kRebuildLine));

    server.start();
    QVERIFY(server.running());
    worker.checkPassword(tagCheckPasswordRequest());
    QCOMPARE(spy.count(), 2);
    QCOMPARE(spy.at(1).at(1).toBool(), true);
    QCOMPARE(server->callCount(kCheckPassword), 1);
}

// The server goes away while it holds a call: the application gets the failure, and after the
// server is back on the same port the next request succeeds.
void TestFaults::serverKilledDuringHeldCallThenBack()
{
    RestartableServer server;
    server.start();
    QVERIFY(server.running());
    server->setDelay(kCheckPassword, 20000);

    VdiDesktopGrpcThread facade;
    facade.initConnection(server.pem(), QStringLiteral("127.0.0.1"), server.port(), false);
    QSignalSpy spy(&facade, &VdiDesktopGrpcThread::checkPasswordResult);
    facade.checkPassword(QStringLiteral("u"), QStringLiteral("p"), false);
    QVERIFY(server->waitForCalls(kCheckPassword, 1, 5000));

    server.kill();
    QVERIFY(spy.wait(5000));
    QCOMPARE(spy.at(0).at(1).toBool(), false);
    QCOMPARE(resultOf(spy, 0).error.errorCode, int(grpc::StatusCode::UNAVAILABLE));

    server.start();
    QVERIFY(server.running());
    facade.checkPassword(QStringLiteral("u"), QStringLiteral("p"), false);
    QVERIFY(spy.wait(5000));
    QCOMPARE(spy.at(1).at(1).toBool(), true);
    QCOMPARE(server->callCount(kCheckPassword), 1);
    facade.stop();
}

// A server that takes the call and never answers: the call ends at the worker's deadline, which
// the server saw, with DEADLINE_EXCEEDED; the worker then serves the next request.
void TestFaults::silentServerHeldToTheDeadline()
{
    vditest::TestServer server;
    server->setDelay(kCheckPassword, 30000);
    VdiDesktopGrpcWorker worker;
    worker.setTimeout(1);
    server.connect(worker);
    QSignalSpy spy(&worker, &VdiDesktopGrpcWorker::checkPasswordResult);

    worker.checkPassword(tagCheckPasswordRequest());
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(1).toBool(), false);
    QCOMPARE(resultOf(spy, 0).error.errorCode, int(grpc::StatusCode::DEADLINE_EXCEEDED));
    QVERIFY(server->waitForFinished(kCheckPassword, 1, 5000));
    const vdifake::RecordedCall held = server->calls(kCheckPassword).front();
    QVERIFY(held.deadlineSeconds > 0 && held.deadlineSeconds <= 1.0);
    QVERIFY(held.cancelled);

    server->setDelay(kCheckPassword, 0);
    worker.checkPassword(tagCheckPasswordRequest());
    QCOMPARE(spy.count(), 2);
    QCOMPARE(spy.at(1).at(1).toBool(), true);
}

// A pem file that holds no certificate with a subject builds no channel: every call then meets
// a null stub (NOT_FOUND), a value and no crash.
void TestFaults::unusablePem_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("garbage") << QByteArray("-----BEGIN CERTIFICATE-----\n\x01\xff not base64 ***\n");
    QTest::newRow("binary") << QByteArray("\x00\x30\x82\x01\x0a", 5);
}

void TestFaults::unusablePem()
{
    QFETCH(QByteArray, content);
    QTemporaryDir dir;
    const QString pem = dir.filePath(QStringLiteral("server.pem"));
    QFile file(pem);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content);
    file.close();

    VdiDesktopGrpcWorker worker;
    vditest::LogCapture log;
    worker.initConnection(pem, QStringLiteral("127.0.0.1"), vditest::unusedPort(), false);
    QVERIFY(log.contains(QStringLiteral("subject name is null"), QtCriticalMsg));
    QSignalSpy spy(&worker, &VdiDesktopGrpcWorker::checkPasswordResult);
    worker.checkPassword(tagCheckPasswordRequest());
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(1).toBool(), false);
    QCOMPARE(resultOf(spy, 0).error.errorCode, int(grpc::StatusCode::NOT_FOUND));
}

// Trusting the certificate of another server, under the server's own name or another name:
// the handshake fails, the call is UNAVAILABLE and never reaches the server.
void TestFaults::certificateOfAnotherServer_data()
{
    QTest::addColumn<QString>("subject");
    QTest::newRow("same name, other key") << QStringLiteral("vdi-fake-controller");
    QTest::newRow("other name") << QStringLiteral("vdi-other-controller");
}

void TestFaults::certificateOfAnotherServer()
{
    QFETCH(QString, subject);
    vditest::TestServer server;
    QTemporaryDir dir;
    const vdifake::CertificateFiles other =
        vdifake::makeSelfSignedCertificate(dir.path(), subject, QString(), QStringLiteral("other"));
    QVERIFY(other.isValid());

    VdiDesktopGrpcWorker worker;
    worker.initConnection(other.certPath, QStringLiteral("127.0.0.1"), server.port(), false);
    QSignalSpy spy(&worker, &VdiDesktopGrpcWorker::checkPasswordResult);
    worker.checkPassword(tagCheckPasswordRequest());
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(1).toBool(), false);
    QCOMPARE(resultOf(spy, 0).error.errorCode, int(grpc::StatusCode::UNAVAILABLE));
    QCOMPARE(server->callCount(kCheckPassword), 0);
}

// A settings file of garbage is no crash: the session keeps its values while the file cannot
// be read, and the next save replaces the damaged file with one that reads back whole.
void TestFaults::settingsFileOfGarbage()
{
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    vditest::makeDocumentsDir();
    {
        QFile file(worker.getGatewaySettingsFilePath());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(QByteArray("\xff\xfe[GATEWAYINFO\x00\ntoken=\x01\x02\n[[[===\n", 26));
    }
    worker.initGateway();
    probe.setGatewayCredentials("fresh-token", QStringLiteral("gwuser"), QStringLiteral("gwpass"));
    worker.saveGatewayInfo();
    probe.setGatewayCredentials(std::string(), QString(), QString());
    worker.initGateway();
    QCOMPARE(probe.gatewayToken(), std::string("fresh-token"));
    QCOMPARE(probe.gatewayUser(), QStringLiteral("gwuser"));
    QCOMPARE(probe.gatewayPasswd(), QStringLiteral("gwpass"));
}

VDI_TEST_MAIN(TestFaults)
#include "tst_faults.moc"
