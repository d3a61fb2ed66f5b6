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
    QVERIFY(log.contains(QStringLiteral("checked grpc server was unavailable, restart now!")));

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

VDI_TEST_MAIN(TestFaults)
#include "tst_faults.moc"
