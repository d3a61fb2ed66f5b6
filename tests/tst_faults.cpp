// What a terminal meets on a poor network, tried against the test bed: a server that is not
// there yet or dies while it holds a call and comes back on the same port, one that stops
// answering, one of another certificate. Each time the failed call is a value, and the next
// call works.
#include "testsupport.h"

#include "testcertificate.h"

namespace {
const std::string kCheckPassword = "/client.ClientCore/CheckPassword";

// The success flag and error code of a checkPasswordResult.
QString answer(const QSignalSpy& spy, int i)
{
    if (i >= spy.count())
        return QStringLiteral("no answer");
    return QStringLiteral("%1 %2").arg(spy.at(i).at(1).toBool()).arg(spy.at(i).at(0).value<tagCheckPasswordResp>().error.errorCode);
}
const QString kUnavailable = QStringLiteral("0 %1").arg(int(grpc::StatusCode::UNAVAILABLE));
const QString kAnswered = QStringLiteral("1 0");
} // namespace

class TestFaults : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { VdiDesktopGrpcThread::registerMetaTypes(); }
    void serverGoneThenBack_data();
    void serverGoneThenBack();
    void silentServerHeldToTheDeadline();
    void certificateOfAnotherServer_data();
    void certificateOfAnotherServer();
};

void TestFaults::serverGoneThenBack_data()
{
    QTest::addColumn<bool>("whileHeld");
    QTest::newRow("down at the first call") << false;
    QTest::newRow("killed while it holds the call") << true;
}

// Without a new initConnection: the channels are rebuilt after the failure, in the language of
// the connection.
void TestFaults::serverGoneThenBack()
{
    QFETCH(bool, whileHeld);
    vditest::TestServer server;
    server->setDelay(kCheckPassword, 20000);
    if (!whileHeld)
        server.stop();
    VdiDesktopGrpcThread facade;
    server.connect(facade, true);
    QSignalSpy spy(&facade, &VdiDesktopGrpcThread::checkPasswordResult);
    facade.checkPassword(QStringLiteral("u"), QStringLiteral("p"), false);
    if (whileHeld) {
        QVERIFY(server->waitForCalls(kCheckPassword, 1, 5000));
        server.stop();
    }
    QVERIFY(spy.wait(5000));
    QCOMPARE(answer(spy, 0), kUnavailable);

    QVERIFY(server.restart());
    facade.checkPassword(QStringLiteral("u"), QStringLiteral("p"), false);
    QVERIFY(spy.wait(5000));
    QCOMPARE(answer(spy, 1), kAnswered);
    QCOMPARE(server->callCount(kCheckPassword), 1);
    QCOMPARE(server->calls(kCheckPassword).at(0).metadataValue("client-language"), std::string("en"));
}

// A server that takes the call and never answers: the call ends at the worker's deadline, which
// the server saw, with DEADLINE_EXCEEDED.
void TestFaults::silentServerHeldToTheDeadline()
{
    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    worker.setTimeout(1);
    server.connect(worker);
    QSignalSpy spy(&worker, &VdiDesktopGrpcWorker::checkPasswordResult);
    worker.checkPassword(tagCheckPasswordRequest());  // the channel is up before the held call
    QCOMPARE(answer(spy, 0), kAnswered);

    server->setDelay(kCheckPassword, 30000);
    worker.checkPassword(tagCheckPasswordRequest());
    QCOMPARE(answer(spy, 1), QStringLiteral("0 %1").arg(int(grpc::StatusCode::DEADLINE_EXCEEDED)));
    QVERIFY(server->waitForFinished(kCheckPassword, 2, 5000));
    const vdifake::RecordedCall held = server->calls(kCheckPassword).back();
    QVERIFY2(held.deadlineSeconds > 0 && held.deadlineSeconds <= 1.2, QByteArray::number(held.deadlineSeconds));
    QVERIFY(held.cancelled);

    server->setDelay(kCheckPassword, 0);
    worker.checkPassword(tagCheckPasswordRequest());
    QCOMPARE(answer(spy, 2), kAnswered);
}

void TestFaults::certificateOfAnotherServer_data()
{
    QTest::addColumn<QString>("subject");
    QTest::newRow("same name, other key") << QStringLiteral("vdi-fake-controller");
    QTest::newRow("other name") << QStringLiteral("vdi-other-controller");
}

// The handshake fails: UNAVAILABLE, and the call never reaches the server.
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
    QCOMPARE(answer(spy, 0), kUnavailable);
    QCOMPARE(server->callCount(kCheckPassword), 0);
}

VDI_TEST_MAIN(TestFaults)
#include "tst_faults.moc"
