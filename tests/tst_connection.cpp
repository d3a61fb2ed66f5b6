// The worker's connection frame against a real TLS server on loopback whose certificate
// subject is not the host name, so every call goes through the target name override.
#include "testsupport.h"

#include <QFile>
#include <QTcpServer>

#include <google/protobuf/empty.pb.h>

#include "fakeserver.h"
#include "testcertificate.h"

namespace {
const char* const kWhoAreYou = "/client.ClientCore/WhoAreYou";
const char* const kIsUseGateway = "/common.CommonCore/isUseGateway";
const char* const kCheckAuthStatus = "/gateway.GatewayCore/CheckAuthStatus";
const char* const kHeartbeat = "/client.ClientCore/Heartbeat";

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString writeFile(const QString& path, const QByteArray& contents)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(contents) != contents.size())
        return QString();
    return path;
}
} // namespace

class TestConnection : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void connectsThroughTargetNameOverride();
    void badPemKeepsConnection_data();
    void badPemKeepsConnection();
    void laterCertificateWithSubjectIsUsed();
    void rootCertificatesEndAtNul();
    void contextCarriesMetadataAndDeadline();
    void tokenIsRefilledFromSettingsFile();
    void reconnectReplacesEveryStub();
    void failedCallRebuildsChannels_data();
    void failedCallRebuildsChannels();
    void stopCancelsLiveContext();
    void probeOfRemoteHost();

private:
    grpc::Status whoAreYou(VdiDesktopGrpcWorker& worker, bool withContext = true);
    QString emptySubjectPem();

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<vdifake::FakeServer> m_server;
};

void TestConnection::init()
{
    m_dir.reset(new QTemporaryDir);
    QVERIFY(m_dir->isValid());
    vdifake::FakeServer::Options options;
    options.certDir = m_dir->path();
    options.commonName = QStringLiteral("vdi-fake-controller");
    m_server.reset(new vdifake::FakeServer(options));
    QVERIFY(m_server->isRunning());
    QVERIFY(QSslCertificate::fromPath(m_server->pemPath()).value(0).subjectDisplayName()
            != QStringLiteral("127.0.0.1"));
}

void TestConnection::cleanup()
{
    m_server.reset();
    m_dir.reset();
}

grpc::Status TestConnection::whoAreYou(VdiDesktopGrpcWorker& worker, bool withContext)
{
    grpc::ClientContext context;
    if (withContext)
        worker.buildClientContext(&context);
    else
        context.set_deadline(std::chrono::system_clock::now() + std::chrono::seconds(10));
    google::protobuf::Empty request;
    client::WhoAreYouReply reply;
    return VdiWorkerProbe(worker).stub()->WhoAreYou(&context, request, &reply);
}

QString TestConnection::emptySubjectPem()
{
    const vdifake::CertificateFiles files =
        vdifake::makeSelfSignedCertificate(m_dir->path(), QString(), QString(), QStringLiteral("nosubject"));
    if (!files.isValid())
        return QString();
    const QList<QSslCertificate> certificates = QSslCertificate::fromPath(files.certPath);
    if (certificates.size() != 1 || !certificates.first().subjectDisplayName().isEmpty())
        return QString();
    return files.certPath;
}

void TestConnection::connectsThroughTargetNameOverride()
{
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    QVERIFY(!probe.stub());
    QCOMPARE(probe.language(), QStringLiteral("zn"));

    vditest::LogCapture log;
    worker.initConnection(m_server->pemPath(), QStringLiteral("127.0.0.1"), ushort(m_server->port()), false);
    QCOMPARE(probe.host(), QStringLiteral("127.0.0.1"));
    QCOMPARE(probe.port(), ushort(m_server->port()));
    QCOMPARE(probe.target(), QStringLiteral("127.0.0.1:%1").arg(m_server->port()));
    QCOMPARE(probe.targetNameOverride(), std::string("vdi-fake-controller"));
    QVERIFY(probe.stub());
    QVERIFY(probe.stubCommon());
    QVERIFY(!probe.stubGateway());  // controller deployment
    QVERIFY(!probe.stubUpload());
    QCOMPARE(probe.language(), QStringLiteral("zh"));
    QVERIFY(log.contains(QStringLiteral(", type =  Controller"), QtDebugMsg));
    QVERIFY(log.contains(QStringLiteral(" grpcheader language: "), QtDebugMsg));

    const grpc::Status status = whoAreYou(worker);
    QVERIFY2(status.ok(), status.error_message().c_str());
    QCOMPARE(m_server->callCount(kWhoAreYou), 1);
}

void TestConnection::badPemKeepsConnection_data()
{
    QTest::addColumn<bool>("emptySubject");
    QTest::addColumn<QString>("criticalLine");
    QTest::newRow("missing file") << false << QStringLiteral(" pem file could not open.");
    QTest::newRow("empty subject") << true
                                   << QStringLiteral("fail to get ssl certificate infomation for SimpleRPC, "
                                                     "subject name is null. Pem file is :");
}

void TestConnection::badPemKeepsConnection()
{
    QFETCH(bool, emptySubject);
    QFETCH(QString, criticalLine);
    const QString pem = emptySubject ? emptySubjectPem() : m_dir->path() + QStringLiteral("/missing.pem");
    QVERIFY2(!pem.isEmpty(), "could not make a certificate with an empty subject");

    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    worker.initConnection(m_server->pemPath(), QStringLiteral("127.0.0.1"), ushort(m_server->port()), false);
    const auto stub = probe.stub();
    const auto stubCommon = probe.stubCommon();

    vditest::LogCapture log;
    worker.initConnection(pem, QStringLiteral("10.99.0.1"), 1, true);
    QVERIFY(log.contains(criticalLine, QtCriticalMsg));
    QCOMPARE(probe.pemFile(), pem);  // stored before the open
    QCOMPARE(probe.host(), QStringLiteral("127.0.0.1"));
    QCOMPARE(probe.port(), ushort(m_server->port()));
    QCOMPARE(probe.stub(), stub);
    QCOMPARE(probe.stubCommon(), stubCommon);
    QCOMPARE(probe.language(), QStringLiteral("zh"));
    // A readable file's text is taken before the subject check.
    if (emptySubject)
        QCOMPARE(QByteArray::fromStdString(probe.rootCertificates()), readFile(pem));
    QVERIFY(whoAreYou(worker).ok());
}

void TestConnection::laterCertificateWithSubjectIsUsed()
{
    const QString first = emptySubjectPem();
    QVERIFY(!first.isEmpty());
    const QString pem = writeFile(m_dir->path() + QStringLiteral("/two.pem"),
                                  readFile(first) + readFile(m_server->pemPath()));
    QVERIFY(!pem.isEmpty());

    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    worker.initConnection(pem, QStringLiteral("127.0.0.1"), ushort(m_server->port()), false);
    QCOMPARE(probe.targetNameOverride(), std::string("vdi-fake-controller"));
    const grpc::Status status = whoAreYou(worker);
    QVERIFY2(status.ok(), status.error_message().c_str());
}

void TestConnection::rootCertificatesEndAtNul()
{
    const QByteArray certificate = readFile(m_server->pemPath());
    const QString pem = writeFile(m_dir->path() + QStringLiteral("/nul.pem"),
                                  certificate + QByteArray("\0 trailing junk", 15));
    QVERIFY(!pem.isEmpty());

    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    worker.initConnection(pem, QStringLiteral("127.0.0.1"), ushort(m_server->port()), false);
    QCOMPARE(QByteArray::fromStdString(probe.rootCertificates()), certificate);
    QVERIFY(whoAreYou(worker).ok());
}

void TestConnection::contextCarriesMetadataAndDeadline()
{
    VdiDesktopGrpcWorker worker;
    worker.initConnection(m_server->pemPath(), QStringLiteral("127.0.0.1"), ushort(m_server->port()), false);
    QVERIFY(whoAreYou(worker).ok());

    worker.initConnection(m_server->pemPath(), QStringLiteral("127.0.0.1"), ushort(m_server->port()), true);
    worker.setTimeout(5);
    QVERIFY(whoAreYou(worker).ok());

    const auto calls = m_server->calls(kWhoAreYou);
    QCOMPARE(calls.size(), size_t(2));
    // No settings file, no token: the key is sent all the same, empty.
    QCOMPARE(calls[0].metadata.count("gatewayaccesstoken"), size_t(1));
    QCOMPARE(calls[0].metadataValue("gatewayaccesstoken"), std::string());
    QCOMPARE(calls[0].metadataValue("client-language"), std::string("zh"));
    // The deadline travels rounded up to the transport's unit: a little over the span is fine.
    QVERIFY2(calls[0].deadlineSeconds > 29.0 && calls[0].deadlineSeconds <= 30.2,
             QByteArray::number(calls[0].deadlineSeconds).constData());
    QCOMPARE(calls[1].metadataValue("client-language"), std::string("en"));
    QVERIFY2(calls[1].deadlineSeconds > 4.0 && calls[1].deadlineSeconds <= 5.2,
             QByteArray::number(calls[1].deadlineSeconds).constData());
}

// An empty token is looked up in the settings file for every call, and a token that appears in
// the file (or changes there while none is held) is the one the next call carries.
void TestConnection::tokenIsRefilledFromSettingsFile()
{
    vditest::makeDocumentsDir();
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    worker.initConnection(m_server->pemPath(), QStringLiteral("127.0.0.1"), ushort(m_server->port()), false);
    const auto save = [&](const std::string& token) {
        probe.setGatewayCredentials(token, QStringLiteral("u"), QStringLiteral("p"));
        worker.saveGatewayInfo();
        probe.setGatewayCredentials(std::string(), QString(), QString());
    };
    const auto sentToken = [&] {
        m_server->clearCalls();
        whoAreYou(worker);
        return m_server->calls(kWhoAreYou).at(0).metadataValue("gatewayaccesstoken");
    };

    QCOMPARE(sentToken(), std::string());  // no file yet
    save(std::string());
    QCOMPARE(sentToken(), std::string());  // a file without a token
    QCOMPARE(sentToken(), std::string());
    save("token-from-file");
    QCOMPARE(sentToken(), std::string("token-from-file"));
    QCOMPARE(probe.gatewayToken(), std::string("token-from-file"));

    // A new file gives its new token; a removed one gives none.
    save("second-token");
    QCOMPARE(sentToken(), std::string("second-token"));
    QVERIFY(QFile::remove(worker.getGatewaySettingsFilePath()));
    probe.setGatewayCredentials(std::string(), QString(), QString());
    QCOMPARE(sentToken(), std::string());
}

void TestConnection::reconnectReplacesEveryStub()
{
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    worker.initServerType(1);
    worker.initConnection(m_server->pemPath(), QStringLiteral("127.0.0.1"), ushort(m_server->port()), false);
    QVERIFY(probe.stub() && probe.stubCommon() && probe.stubGateway() && probe.stubUpload());
    const auto before = std::make_tuple(probe.stub(), probe.stubCommon(), probe.stubGateway(), probe.stubUpload());

    vditest::LogCapture log;
    worker.initConnection(m_server->pemPath(), QStringLiteral("127.0.0.1"), ushort(m_server->port()), false);
    QCOMPARE(probe.targetNameOverrideCount(), 1);  // replaced, never appended
    QVERIFY(probe.stub() != std::get<0>(before));
    QVERIFY(probe.stubCommon() != std::get<1>(before));
    QVERIFY(probe.stubGateway() != std::get<2>(before));
    QVERIFY(probe.stubUpload() != std::get<3>(before));
    for (const char* name : {"stub", "stubCommon", "stubGateway", "stubUpload"})
        QCOMPARE(log.count(QStringLiteral("ready to create new stub for %1, info = ").arg(QLatin1String(name))), 1);

    // Each of the new channels works.
    QVERIFY(whoAreYou(worker).ok());
    {
        grpc::ClientContext context;
        worker.buildClientContext(&context);
        common::isUseGatewayResp reply;
        QVERIFY(probe.stubCommon()->isUseGateway(&context, common::isUseGatewayReq(), &reply).ok());
    }
    {
        grpc::ClientContext context;
        worker.buildClientContext(&context);
        gateway::CheckAuthStatusResp reply;
        QVERIFY(probe.stubGateway()->CheckAuthStatus(&context, gateway::CheckAuthStatusReq(), &reply).ok());
    }
    QCOMPARE(m_server->callCount(kIsUseGateway), 1);
    QCOMPARE(m_server->callCount(kCheckAuthStatus), 1);
}

void TestConnection::failedCallRebuildsChannels_data()
{
    QTest::addColumn<int>("code");
    QTest::newRow("unavailable") << int(grpc::StatusCode::UNAVAILABLE);
    QTest::newRow("deadline exceeded") << int(grpc::StatusCode::DEADLINE_EXCEEDED);  // answered at once
}

void TestConnection::failedCallRebuildsChannels()
{
    QFETCH(int, code);
    vdifake::Script failure;
    failure.code = grpc::StatusCode(code);
    m_server->queueScript(kHeartbeat, failure);  // the second beat is answered OK

    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    worker.initConnection(m_server->pemPath(), QStringLiteral("127.0.0.1"), ushort(m_server->port()), true);
    const auto stub = probe.stub();
    const auto stubCommon = probe.stubCommon();

    vditest::LogCapture log;
    worker.sendHeart(tagHeartbeatRequest());
    QVERIFY(log.contains(vditest::kRebuildLine, QtInfoMsg));
    QVERIFY(probe.stub() && probe.stub() != stub);
    QVERIFY(probe.stubCommon() && probe.stubCommon() != stubCommon);
    QCOMPARE(probe.host(), QStringLiteral("127.0.0.1"));
    QCOMPARE(probe.port(), ushort(m_server->port()));

    // The rebuilt channels speak the language chosen at the connection.
    worker.sendHeart(tagHeartbeatRequest());
    const auto calls = m_server->calls(kHeartbeat);
    QCOMPARE(calls.size(), size_t(2));
    QCOMPARE(calls[0].metadataValue("client-language"), std::string("en"));
    QCOMPARE(calls[1].metadataValue("client-language"), std::string("en"));
}

void TestConnection::stopCancelsLiveContext()
{
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    worker.initConnection(m_server->pemPath(), QStringLiteral("127.0.0.1"), ushort(m_server->port()), false);

    vditest::LogCapture log;
    worker.stop();
    QVERIFY(!log.contains(QStringLiteral("VdiDesktopGrpcWorker::stop try cancel")));

    const std::shared_ptr<grpc::ClientContext> context = probe.newCallContext();
    worker.buildClientContext(context.get());
    QVERIFY(probe.hasCurrentContext());
    worker.stop();
    QVERIFY(log.contains(QStringLiteral("VdiDesktopGrpcWorker::stop try cancel"), QtDebugMsg));

    google::protobuf::Empty request;
    client::WhoAreYouReply reply;
    const grpc::Status status = probe.stub()->WhoAreYou(context.get(), request, &reply);
    QCOMPARE(int(status.error_code()), int(grpc::StatusCode::CANCELLED));
}

void TestConnection::probeOfRemoteHost()
{
    VdiDesktopGrpcWorker worker;
    worker.initConnection(m_server->pemPath(), QStringLiteral("127.0.0.1"), ushort(m_server->port()), false);
    vditest::LogCapture log;
    QVERIFY(worker.tryConnetRemoteHost());
    QVERIFY(log.contains(QStringLiteral("seccess to connect remote host: "), QtInfoMsg));

    // A port nobody listens on.
    QTcpServer listener;
    QVERIFY(listener.listen(QHostAddress::LocalHost));
    const ushort closedPort = listener.serverPort();
    listener.close();
    worker.initConnection(m_server->pemPath(), QStringLiteral("127.0.0.1"), closedPort, false);
    log.clear();
    QVERIFY(!worker.tryConnetRemoteHost());
    QVERIFY(!log.contains(QStringLiteral("seccess")));

    // The probe speaks IPv4 only.
    QTcpServer v6;
    if (v6.listen(QHostAddress::LocalHostIPv6)) {
        worker.initConnection(m_server->pemPath(), QStringLiteral("::1"), v6.serverPort(), false);
        QVERIFY(!worker.tryConnetRemoteHost());
    }
}

VDI_TEST_MAIN(TestConnection)
#include "tst_connection.moc"
