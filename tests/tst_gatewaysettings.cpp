// The gateway settings file under the user's Documents folder.
#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

class TestGatewaySettings : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void pathUnderDocuments();
    void saveWritesAllKeys();
    void chineseTextSurvivesSaveAndLoad();
    void missingKeysReadEmpty();
    void gatewayConnectionLoadsCredentials();
};

void TestGatewaySettings::init()
{
    QDir(vditest::homePath() + QStringLiteral("/Documents")).removeRecursively();
}

void TestGatewaySettings::pathUnderDocuments()
{
    VdiDesktopGrpcWorker worker;
    // Without a Documents folder the one-level mkdir cannot make "gateway".
    const QString withoutDocuments = worker.getGatewaySettingsFilePath();
    QVERIFY(!QFileInfo::exists(vditest::homePath() + QStringLiteral("/Documents")));

    const QString documents = vditest::makeDocumentsDir();
    const QString path = worker.getGatewaySettingsFilePath();
    QCOMPARE(path, documents + QStringLiteral("/gateway/gatewaySettings.ini"));
    QCOMPARE(withoutDocuments, path);
    QVERIFY(QFileInfo(documents + QStringLiteral("/gateway")).isDir());
    QVERIFY(path.startsWith(vditest::homePath()));
}

void TestGatewaySettings::saveWritesAllKeys()
{
    vditest::makeDocumentsDir();
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    worker.saveGatewayInfo();  // all five keys even when empty
    QFile file(worker.getGatewaySettingsFilePath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QString empty = QString::fromUtf8(file.readAll());
    file.close();
    QVERIFY2(empty.contains(QStringLiteral("[GATEWAYINFO]")), qPrintable(empty));
    for (const char* key : {"ip=", "port=0", "token=", "user=", "password="})
        QVERIFY2(empty.contains(QLatin1String(key)), key);

    probe.setGatewayCredentials("tok", QStringLiteral("user1"), QStringLiteral("pw1"));
    worker.saveGatewayInfo();
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(file.readAll());
    for (const char* line : {"token=tok", "user=user1", "password=pw1"})
        QVERIFY2(text.contains(QLatin1String(line)), line);
    // The password is in the clear: only the owner may read the file.
    QCOMPARE(int(QFileInfo(file).permissions() & (QFileDevice::ReadGroup | QFileDevice::ReadOther)), 0);
    QVERIFY(QFileInfo(file).permissions() & QFileDevice::ReadOwner);
}

void TestGatewaySettings::chineseTextSurvivesSaveAndLoad()
{
    vditest::makeDocumentsDir();
    VdiDesktopGrpcWorker writer;
    VdiWorkerProbe(writer).setGatewayCredentials("令牌", QStringLiteral("张三"), QStringLiteral("密码 with = and ;"));
    writer.saveGatewayInfo();

    QFile file(writer.getGatewaySettingsFilePath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(QString::fromUtf8(file.readAll()).contains(QStringLiteral("张三")));  // UTF-8, not escaped

    VdiDesktopGrpcWorker reader;
    QString user, password;
    reader.getGatewayAuthInfo(user, password);
    QCOMPARE(user, QStringLiteral("张三"));
    QCOMPARE(password, QStringLiteral("密码 with = and ;"));
    QCOMPARE(reader.getGatewayToken(), QStringLiteral("令牌"));
}

void TestGatewaySettings::missingKeysReadEmpty()
{
    vditest::makeDocumentsDir();
    VdiDesktopGrpcWorker worker;
    QString user = QStringLiteral("x"), password = QStringLiteral("y");
    worker.getGatewayAuthInfo(user, password);
    QVERIFY(user.isEmpty());
    QVERIFY(password.isEmpty());
    QVERIFY(worker.getGatewayToken().isEmpty());
}

void TestGatewaySettings::gatewayConnectionLoadsCredentials()
{
    vditest::makeDocumentsDir();
    {
        VdiDesktopGrpcWorker writer;
        VdiWorkerProbe(writer).setGatewayCredentials("saved-token", QStringLiteral("gwuser"), QStringLiteral("gwpass"));
        writer.saveGatewayInfo();
    }
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    probe.setGatewayCredentials("stale", QStringLiteral("stale"), QStringLiteral("stale"));
    worker.initGateway();
    QCOMPARE(probe.gatewayToken(), std::string("saved-token"));
    QCOMPARE(probe.gatewayUser(), QStringLiteral("gwuser"));
    QCOMPARE(probe.gatewayPasswd(), QStringLiteral("gwpass"));
}

VDI_TEST_MAIN(TestGatewaySettings)
#include "tst_gatewaysettings.moc"
