// The worker's connection against a real TLS server on loopback whose certificate subject is
// not the host name, so every call goes through the target name override.
#include "testsupport.h"

#include <QFile>
#include <QTcpServer>

#include <google/protobuf/empty.pb.h>

#include "testcertificate.h"

namespace {
const std::string kWhoAreYou = "/client.ClientCore/WhoAreYou";

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray certificateWithoutSubject()
{
    QTemporaryDir dir;
    return readFile(vdifake::makeSelfSignedCertificate(dir.path(), QString(), QString(), QStringLiteral("none")).certPath);
}

grpc::Status whoAreYou(VdiDesktopGrpcWorker& worker)
{
    grpc::ClientContext context;
    worker.buildClientContext(&context);
    client::WhoAreYouReply reply;
    return VdiWorkerProbe(worker).stub()->WhoAreYou(&context, google::protobuf::Empty(), &reply);
}
} // namespace

class TestConnection : public QObject
{
    Q_OBJECT
private slots:
    void connectionsMakeEveryStub();
    void ipv6Literal();
    void pemFiles_data();
    void pemFiles();
    void tokenIsRefilledFromSettingsFile();
    void probeOfRemoteHost();
};

// A controller's connection makes the client and common stubs, a gateway's the gateway and
// upload stubs too; every connection replaces them all, and the target name override.
void TestConnection::connectionsMakeEveryStub()
{
    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    QVERIFY(!probe.stub());
    QCOMPARE(probe.language(), QStringLiteral("zn"));

    vditest::LogCapture log;
    server.connect(worker);
    QCOMPARE(probe.host(), QStringLiteral("127.0.0.1"));
    QCOMPARE(probe.port(), server.port());
    QCOMPARE(probe.target(), QStringLiteral("127.0.0.1:%1").arg(server.port()));
    QVERIFY(probe.stub() && probe.stubCommon());
    QVERIFY(!probe.stubGateway() && !probe.stubUpload());
    QCOMPARE(probe.language(), QStringLiteral("zh"));
    QVERIFY(log.contains(QStringLiteral(", type =  Controller"), QtDebugMsg));
    QVERIFY(log.contains(QStringLiteral(" grpcheader language: "), QtDebugMsg));

    worker.initServerType(1);
    server.connect(worker);
    const auto stubs = [&] { return std::make_tuple(probe.stub(), probe.stubCommon(), probe.stubGateway(), probe.stubUpload()); };
    const auto before = stubs();
    QVERIFY(std::get<0>(before) && std::get<1>(before) && std::get<2>(before) && std::get<3>(before));
    log.clear();
    server.connect(worker);
    QCOMPARE(probe.targetNameOverrides(), QStringList{QStringLiteral("vdi-fake-controller")});  // never appended
    const auto after = stubs();
    QVERIFY(std::get<0>(after) != std::get<0>(before) && std::get<1>(after) != std::get<1>(before)
            && std::get<2>(after) != std::get<2>(before) && std::get<3>(after) != std::get<3>(before));
    for (const char* name : {"stub", "stubCommon", "stubGateway", "stubUpload"})
        QCOMPARE(log.count(QStringLiteral("ready to create new stub for %1, info = ").arg(QLatin1String(name))), 1);
}

// An IPv6 literal reaches its server as the address it is.
void TestConnection::ipv6Literal()
{
    vdifake::FakeServer::Options options;
    options.host = QStringLiteral("::1");
    vdifake::FakeServer server(options);
    QVERIFY(server.isRunning());
    QCOMPARE(server.address(), QStringLiteral("[::1]:%1").arg(server.port()));
    VdiDesktopGrpcWorker worker;
    worker.initConnection(server.pemPath(), QStringLiteral("::1"), server.port(), false);
    const grpc::Status status = whoAreYou(worker);
    QVERIFY2(status.ok(), status.error_message().c_str());
}

void TestConnection::pemFiles_data()
{
    QTest::addColumn<bool>("exists");
    QTest::addColumn<QByteArray>("content");  // "@CERT@": the server's certificate
    QTest::addColumn<bool>("usable");
    QTest::newRow("missing file") << false << QByteArray() << false;
    QTest::newRow("certificate without subject") << true << certificateWithoutSubject() << false;
    QTest::newRow("empty") << true << QByteArray("") << false;
    QTest::newRow("garbage") << true << QByteArray("-----BEGIN CERTIFICATE-----\n\x01\xff not base64 ***\n") << false;
    QTest::newRow("binary") << true << QByteArray("\x00\x30\x82\x01\x0a", 5) << false;
    QTest::newRow("a later certificate has the subject") << true << certificateWithoutSubject() + "@CERT@" << true;
    QTest::newRow("junk after a NUL") << true << QByteArray("@CERT@\0 trailing junk", 21) << true;
}

// A pem file that cannot be opened or holds no certificate with a subject builds no channel: the
// connection made before stays. A readable file's text, up to a NUL, is taken all the same.
void TestConnection::pemFiles()
{
    vditest::TestServer server;
    QFETCH(bool, exists);
    QFETCH(QByteArray, content);
    QFETCH(bool, usable);
    const QString pem = server.dir() + QStringLiteral("/tried.pem");
    content.replace("@CERT@", readFile(server.pemPath()));
    QFile file(pem);
    QVERIFY(!exists || (file.open(QIODevice::WriteOnly) && file.write(content) == content.size()));
    file.close();

    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    server.connect(worker);
    const auto stubs = std::make_pair(probe.stub(), probe.stubCommon());
    const std::string roots = probe.rootCertificates();

    vditest::LogCapture log;
    worker.initConnection(pem, usable ? QStringLiteral("127.0.0.1") : QStringLiteral("10.99.0.1"),
                          usable ? server.port() : 1, true);
    const QString missing = QStringLiteral(" pem file could not open.");
    const QString noSubject = QStringLiteral("fail to get ssl certificate infomation for SimpleRPC, subject name is null. "
                                             "Pem file is :");
    QCOMPARE(log.count(missing, QtCriticalMsg) + log.count(noSubject, QtCriticalMsg), usable ? 0 : 1);
    QVERIFY2(usable || log.contains(exists ? noSubject : missing), qPrintable(log.dump()));
    QCOMPARE(probe.pemFile(), pem);
    QCOMPARE(probe.host(), QStringLiteral("127.0.0.1"));
    QCOMPARE(probe.port(), server.port());
    QCOMPARE(std::make_pair(probe.stub(), probe.stubCommon()) == stubs, !usable);
    QCOMPARE(probe.language(), usable ? QStringLiteral("en") : QStringLiteral("zh"));
    QCOMPARE(QByteArray::fromStdString(probe.rootCertificates()),
             exists ? QByteArray(content.constData()) : QByteArray::fromStdString(roots));
    QCOMPARE(probe.targetNameOverrides(), QStringList{QStringLiteral("vdi-fake-controller")});
    const grpc::Status status = whoAreYou(worker);
    QVERIFY2(status.ok(), status.error_message().c_str());
}

// An empty token is looked up in the settings file for every call: a token that appears in the
// file, changes there or goes is what the next call carries.
void TestConnection::tokenIsRefilledFromSettingsFile()
{
    vditest::TestServer server;
    vditest::makeDocumentsDir();
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    server.connect(worker);
    const auto sentTokenAfterSave = [&](const char* saved) {
        if (saved) {
            probe.setGatewayCredentials(saved, QStringLiteral("u"), QStringLiteral("p"));
            worker.saveGatewayInfo();
        }
        probe.setGatewayCredentials(std::string(), QString(), QString());
        server->clearCalls();
        whoAreYou(worker);
        return server->calls(kWhoAreYou).at(0).metadataValue("gatewayaccesstoken");
    };
    QCOMPARE(sentTokenAfterSave(nullptr), std::string());  // no file yet
    QCOMPARE(sentTokenAfterSave(""), std::string());
    QCOMPARE(sentTokenAfterSave(nullptr), std::string());
    QCOMPARE(sentTokenAfterSave("token-from-file"), std::string("token-from-file"));
    QCOMPARE(probe.gatewayToken(), std::string("token-from-file"));
    QCOMPARE(sentTokenAfterSave("second-token"), std::string("second-token"));
    QVERIFY(QFile::remove(worker.getGatewaySettingsFilePath()));
    QCOMPARE(sentTokenAfterSave(nullptr), std::string());
}

// The reachability probe knocks at the port over IPv4 only.
void TestConnection::probeOfRemoteHost()
{
    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    server.connect(worker);
    vditest::LogCapture log;
    QVERIFY(worker.tryConnetRemoteHost());
    QVERIFY(log.contains(QStringLiteral("seccess to connect remote host: "), QtInfoMsg));

    worker.initConnection(server.pemPath(), QStringLiteral("127.0.0.1"), vditest::unusedPort(), false);
    log.clear();
    QVERIFY(!worker.tryConnetRemoteHost());
    QVERIFY(!log.contains(QStringLiteral("seccess")));

    QTcpServer v6;
    if (v6.listen(QHostAddress::LocalHostIPv6)) {
        worker.initConnection(server.pemPath(), QStringLiteral("::1"), v6.serverPort(), false);
        QVERIFY(!worker.tryConnetRemoteHost());
    }
}

VDI_TEST_MAIN(TestConnection)
#include "tst_connection.moc"
