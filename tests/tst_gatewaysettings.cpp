// The gateway settings file under the user's Documents folder.
#include "testsupport.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <atomic>

// The file holds the gateway password in the clear: it and its folders must be owner-only from
// their first byte. A save runs with umask 0, so anything made without an explicit owner-only
// mode appears readable by all; this binary's own chmod, fchmod and fchmodat, found before libc's
// by Qt and the library alike, note every inode they take group or other bits from. Owner-only
// modes after a save that tightened nothing mean owner-only from the start, in the file's own inode.
namespace {
std::atomic<bool> g_watching{false};
QList<qulonglong> g_tightened;

template <class Function>
Function libc(const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

template <class Stat>
void noteTightening(mode_t mode, Stat statCall)
{
    struct stat st;
    if (g_watching && statCall(&st) == 0 && (st.st_mode & 077 & ~mode))
        g_tightened << qulonglong(st.st_ino);
}
} // namespace

extern "C" {
int chmod(const char* path, mode_t mode) noexcept
{
    static const auto next = libc<int (*)(const char*, mode_t)>("chmod");
    noteTightening(mode, [&](struct stat* st) { return ::stat(path, st); });
    return next(path, mode);
}

int fchmod(int fd, mode_t mode) noexcept
{
    static const auto next = libc<int (*)(int, mode_t)>("fchmod");
    noteTightening(mode, [&](struct stat* st) { return ::fstat(fd, st); });
    return next(fd, mode);
}

int fchmodat(int dir, const char* path, mode_t mode, int flags) noexcept
{
    static const auto next = libc<int (*)(int, const char*, mode_t, int)>("fchmodat");
    noteTightening(mode, [&](struct stat* st) { return ::fstatat(dir, path, st, flags); });
    return next(dir, path, mode, flags);
}
} // extern "C"

namespace {
const QString kSecret = QStringLiteral("gateway-secret-4711");
const QString kNotWritten = QStringLiteral("cannot write the gateway settings file");

// Saves kSecret as the gateway password with umask 0; returns the inodes it tightened.
QList<qulonglong> saveWatched(VdiDesktopGrpcWorker& worker)
{
    VdiWorkerProbe(worker).setGatewayCredentials("tok", QStringLiteral("user1"), kSecret);
    const mode_t umask = ::umask(0);
    g_tightened.clear();
    g_watching = true;
    worker.saveGatewayInfo();
    g_watching = false;
    ::umask(umask);
    return g_tightened;
}

struct stat statOf(const QString& path)
{
    struct stat st{};
    ::stat(QFile::encodeName(path).constData(), &st);
    return st;
}

QString modeOf(const QString& path)
{
    return QString::number(statOf(path).st_mode & 07777, 8);
}

QString documents()
{
    return vditest::homePath() + QStringLiteral("/Documents");
}

// The token, user and password that the worker holds.
QString held(const VdiWorkerProbe& probe)
{
    return QStringLiteral("%1 %2 %3").arg(QString::fromStdString(probe.gatewayToken()), probe.gatewayUser(), probe.gatewayPasswd());
}
} // namespace

class TestGatewaySettings : public QObject
{
    Q_OBJECT
private slots:
    void init() { QDir(documents()).removeRecursively(); }
    void pathUnderDocumentsOfHome();
    void saveAndLoad_data();
    void saveAndLoad();
    void ownerOnlyFromFirstByte_data();
    void ownerOnlyFromFirstByte();
    void unwritableFileKeepsSessionValues();
    void damagedFileIsWrittenAnew();
};

// Before any save the values read empty.
void TestGatewaySettings::pathUnderDocumentsOfHome()
{
    VdiDesktopGrpcWorker worker;
    const QString withoutDocuments = worker.getGatewaySettingsFilePath();
    QVERIFY(!QFileInfo::exists(documents()));
    QString user = QStringLiteral("x"), password = QStringLiteral("y");
    worker.getGatewayAuthInfo(user, password);
    QCOMPARE(user + password + worker.getGatewayToken(), QString());

    vditest::makeDocumentsDir();
    const QString path = worker.getGatewaySettingsFilePath();
    QCOMPARE(path, documents() + QStringLiteral("/gateway/gatewaySettings.ini"));
    QCOMPARE(withoutDocuments, path);
    QVERIFY(QFileInfo(documents() + QStringLiteral("/gateway")).isDir());

    // Where the home itself is missing nothing is made below it, and the save says so.
    const QByteArray home = qgetenv("HOME");
    const QString missing = vditest::homePath() + QStringLiteral("/no-such-home");
    qputenv("HOME", QFile::encodeName(missing));
    vditest::LogCapture log;
    saveWatched(worker);
    qputenv("HOME", home);
    QVERIFY(!QFileInfo::exists(missing));
    QVERIFY(log.contains(kNotWritten, QtCriticalMsg));
}

void TestGatewaySettings::saveAndLoad_data()
{
    QTest::addColumn<QString>("token");
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("password");
    QTest::newRow("empty") << QString() << QString() << QString();
    QTest::newRow("plain") << QStringLiteral("tok") << QStringLiteral("user1") << QStringLiteral("pw1");
    QTest::newRow("Chinese, '=' and ';'") << QStringLiteral("令牌") << QStringLiteral("张三")
                                          << QStringLiteral("密码 with = and ;");
}

// Every key is written, even empty, in UTF-8; a new worker reads the values back, and a gateway
// connection takes them in place of what it held.
void TestGatewaySettings::saveAndLoad()
{
    QFETCH(QString, token);
    QFETCH(QString, user);
    QFETCH(QString, password);
    vditest::makeDocumentsDir();
    VdiDesktopGrpcWorker writer;
    VdiWorkerProbe(writer).setGatewayCredentials(token.toStdString(), user, password);
    writer.saveGatewayInfo();
    QFile file(writer.getGatewaySettingsFilePath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(file.readAll());
    for (const QString& line : {QStringLiteral("[GATEWAYINFO]\n"), QStringLiteral("\nip=\n"), QStringLiteral("\nport=0\n"),
                                QStringLiteral("\ntoken=") + token + '\n', QStringLiteral("\nuser=") + user + '\n',
                                QStringLiteral("\npassword=")})
        QVERIFY2(text.contains(line), qPrintable(text));

    VdiDesktopGrpcWorker reader;
    QString readUser, readPassword;
    reader.getGatewayAuthInfo(readUser, readPassword);
    QCOMPARE(readUser, user);
    QCOMPARE(readPassword, password);
    QCOMPARE(reader.getGatewayToken(), token);

    VdiWorkerProbe probe(reader);
    probe.setGatewayCredentials("stale", QStringLiteral("stale"), QStringLiteral("stale"));
    reader.initGateway();
    QCOMPARE(held(probe), QStringLiteral("%1 %2 %3").arg(token, user, password));
}

void TestGatewaySettings::ownerOnlyFromFirstByte_data()
{
    QTest::addColumn<bool>("hasDocuments");
    QTest::addColumn<bool>("hasOlderFile");  // readable by all, as an older version left it
    QTest::newRow("new file") << true << false;
    QTest::newRow("no Documents folder") << false << false;
    QTest::newRow("older version's file") << true << true;
}

// A minimal terminal image may have no Documents folder: the save makes it too. A file of an
// older version is the one inode whose mode is taken in, before the password is written: the
// save gives its new file the mode of the existing one.
void TestGatewaySettings::ownerOnlyFromFirstByte()
{
    QFETCH(bool, hasDocuments);
    QFETCH(bool, hasOlderFile);
    const QString folder = documents() + QStringLiteral("/gateway");
    const QString path = folder + QStringLiteral("/gatewaySettings.ini");
    if (hasDocuments)
        vditest::makeDocumentsDir();
    QList<qulonglong> tightened;
    if (hasOlderFile) {
        QVERIFY(::mkdir(QFile::encodeName(folder).constData(), 0700) == 0);
        QFile old(path);
        QVERIFY(old.open(QIODevice::WriteOnly) && old.write("[GATEWAYINFO]\nuser=old\npassword=old\n") > 0);
        QVERIFY(old.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther));
        tightened << qulonglong(statOf(path).st_ino);
    }
    VdiDesktopGrpcWorker worker;
    vditest::LogCapture log;
    QCOMPARE(saveWatched(worker), tightened);
    QCOMPARE(modeOf(path), QStringLiteral("600"));
    QCOMPARE(modeOf(folder), QStringLiteral("700"));
    if (!hasDocuments)
        QCOMPARE(modeOf(documents()), QStringLiteral("700"));
    QVERIFY2(!log.contains(kNotWritten), qPrintable(log.dump()));

    QString user, password;
    VdiDesktopGrpcWorker().getGatewayAuthInfo(user, password);
    QCOMPARE(password, kSecret);
}

// A file that cannot be written is said, naming it, and the session keeps its token and
// credentials through a rebuild instead of reading empty ones back; a later good save makes the
// file the source again.
void TestGatewaySettings::unwritableFileKeepsSessionValues()
{
    const QString folder = vditest::makeDocumentsDir() + QStringLiteral("/gateway");
    QFile blocker(folder);  // a plain file where the folder should be: not even root writes below it
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    probe.setGatewayCredentials("session-token", QStringLiteral("gwuser"), QStringLiteral("gwpass"));
    vditest::LogCapture log;
    worker.saveGatewayInfo();
    QVERIFY(log.contains(kNotWritten + QStringLiteral(", token and credentials not saved: \"") + folder
                             + QStringLiteral("/gatewaySettings.ini"),
                         QtCriticalMsg));

    worker.initGateway();
    QVERIFY(log.contains(QStringLiteral("gateway settings file unreadable or not saved, keeping this session's token"),
                         QtWarningMsg));
    QCOMPARE(held(probe), QStringLiteral("session-token gwuser gwpass"));

    QVERIFY(blocker.remove() && QDir().mkdir(folder));
    worker.saveGatewayInfo();
    probe.setGatewayCredentials("stale", QStringLiteral("stale"), QStringLiteral("stale"));
    worker.initGateway();
    QCOMPARE(held(probe), QStringLiteral("session-token gwuser gwpass"));
}

// A file of garbage is no crash: the session keeps its values while the file cannot be read,
// and the next save replaces it with one that reads back whole.
void TestGatewaySettings::damagedFileIsWrittenAnew()
{
    vditest::makeDocumentsDir();
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    QFile file(worker.getGatewaySettingsFilePath());
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QByteArray("\xff\xfe[GATEWAYINFO\x00\ntoken=\x01\x02\n[[[===\n", 26));
    file.close();
    probe.setGatewayCredentials("fresh-token", QStringLiteral("gwuser"), QStringLiteral("gwpass"));
    vditest::LogCapture log;
    worker.initGateway();
    QCOMPARE(held(probe), QStringLiteral("fresh-token gwuser gwpass"));
    worker.saveGatewayInfo();
    QVERIFY(log.contains(QStringLiteral("gateway settings file damaged, written anew: \"") + file.fileName(),
                         QtWarningMsg));
    probe.setGatewayCredentials(std::string(), QString(), QString());
    worker.initGateway();
    QCOMPARE(held(probe), QStringLiteral("fresh-token gwuser gwpass"));
}

VDI_TEST_MAIN(TestGatewaySettings)
#include "tst_gatewaysettings.moc"
