// The gateway settings file under the user's Documents folder.
#include "testsupport.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <QDir>
#include <QFile>
#include <QFileInfo>

// ---- The mode of each file and folder in the gateway folder at the moment it appears -------
// The gateway password is written in the clear, so the file must be owner-only from its first
// byte: a check of the mode after saving cannot tell that from a file tightened afterwards.
// This binary defines its own open, open64, mkdir, linkat and write: the executable comes first
// in symbol lookup, so Qt's and the library's calls land here and are passed on to libc. While
// a GatewayFolderWatch is alive, each file or folder that appears in the watched folder (made
// by open, mkdir, or given a name by linkat, as QSaveFile does with its unnamed temporary) is
// noted with the mode it has right then, and so is each write to a file of the folder.
namespace {

struct Sighting
{
    std::string path;
    unsigned mode = 0;
    bool carriesSecret = false;  // writes only: the data holds the secret
};

struct Watched
{
    std::atomic<bool> on{false};
    std::string folder;
    std::string secret;
    std::mutex mutex;
    std::vector<Sighting> created;
    std::vector<Sighting> written;
    std::map<int, std::pair<std::string, ino_t>> files;  // fd -> path and inode, in the folder

    // Qt names files by absolute path.
    bool covers(const char* path)
    {
        if (!on || !path)
            return false;
        std::lock_guard<std::mutex> lock(mutex);
        return folder == path || (std::strncmp(path, folder.c_str(), folder.size()) == 0 && path[folder.size()] == '/');
    }
};

Watched& watched()
{
    static Watched w;
    return w;
}

template <class Function>
Function libc(const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

bool isUnnamed(int flags)
{
    return (flags & O_TMPFILE) == O_TMPFILE;
}

bool takesMode(int flags)
{
    return (flags & O_CREAT) || isUnnamed(flags);
}

unsigned modeOf(const char* path)
{
    struct stat st;
    return ::stat(path, &st) == 0 ? unsigned(st.st_mode & 07777) : 0;
}

template <class Call>
int noteOpen(const char* path, int flags, Call call)
{
    Watched& w = watched();
    if (!w.covers(path))
        return call();
    struct stat st;
    const bool existed = !isUnnamed(flags) && ::stat(path, &st) == 0;
    const int fd = call();
    if (fd >= 0 && ::fstat(fd, &st) == 0) {
        const std::string name = isUnnamed(flags) ? std::string(path) + "/(unnamed)" : std::string(path);
        std::lock_guard<std::mutex> lock(w.mutex);
        w.files[fd] = std::make_pair(name, st.st_ino);
        if (!existed)
            w.created.push_back({name, unsigned(st.st_mode & 07777), false});
    }
    return fd;
}

void noteCreated(const char* path)
{
    Watched& w = watched();
    if (!w.covers(path))
        return;
    const unsigned mode = modeOf(path);
    std::lock_guard<std::mutex> lock(w.mutex);
    w.created.push_back({path, mode, false});
}

void noteWrite(int fd, const void* data, size_t size)
{
    Watched& w = watched();
    if (!w.on)
        return;
    std::lock_guard<std::mutex> lock(w.mutex);
    const auto file = w.files.find(fd);
    struct stat st;
    if (file == w.files.end() || ::fstat(fd, &st) != 0 || st.st_ino != file->second.second)
        return;
    const bool secret = !w.secret.empty() && memmem(data, size, w.secret.data(), w.secret.size());
    w.written.push_back({file->second.first, unsigned(st.st_mode & 07777), secret});
}

} // namespace

// Qt opens through open64, the library through open.
#define VDI_NOTE_OPEN(name)                                                                        \
    int name(const char* path, int flags, ...)                                                     \
    {                                                                                              \
        static const auto next = libc<int (*)(const char*, int, ...)>(#name);                      \
        va_list args;                                                                              \
        va_start(args, flags);                                                                     \
        const int mode = takesMode(flags) ? va_arg(args, int) : 0;                                 \
        va_end(args);                                                                              \
        return noteOpen(path, flags, [&] { return next(path, flags, mode); });                     \
    }

extern "C" {

VDI_NOTE_OPEN(open)
VDI_NOTE_OPEN(open64)

int mkdir(const char* path, mode_t mode) noexcept
{
    static const auto next = libc<int (*)(const char*, mode_t)>("mkdir");
    const int result = next(path, mode);
    if (result == 0)
        noteCreated(path);
    return result;
}

int linkat(int fromDir, const char* from, int toDir, const char* to, int flags) noexcept
{
    static const auto next = libc<int (*)(int, const char*, int, const char*, int)>("linkat");
    const int result = next(fromDir, from, toDir, to, flags);
    if (result == 0)
        noteCreated(to);
    return result;
}

ssize_t write(int fd, const void* data, size_t size)
{
    static const auto next = libc<ssize_t (*)(int, const void*, size_t)>("write");
    noteWrite(fd, data, size);
    return next(fd, data, size);
}

} // extern "C"

namespace {

// Watches the folder while alive, with umask 022: a file or folder made without an explicit
// owner-only mode comes out 0644 or 0755.
class GatewayFolderWatch
{
public:
    GatewayFolderWatch(const QString& folder, const QString& secret) : m_umask(::umask(022))
    {
        Watched& w = watched();
        std::lock_guard<std::mutex> lock(w.mutex);
        w.folder = QFile::encodeName(folder).toStdString();
        w.secret = secret.toStdString();
        w.created.clear();
        w.written.clear();
        w.files.clear();
        w.on = true;
    }
    ~GatewayFolderWatch()
    {
        watched().on = false;
        ::umask(m_umask);
    }
    GatewayFolderWatch(const GatewayFolderWatch&) = delete;
    GatewayFolderWatch& operator=(const GatewayFolderWatch&) = delete;

    std::vector<Sighting> created() const
    {
        std::lock_guard<std::mutex> lock(watched().mutex);
        return watched().created;
    }
    std::vector<Sighting> written() const
    {
        std::lock_guard<std::mutex> lock(watched().mutex);
        return watched().written;
    }

private:
    mode_t m_umask;
};

// QSettings' lock file ("<file>.lock") holds only a process id, a host and an application
// name: it may keep the umask's mode. Every other file of the folder may carry the password.
std::vector<Sighting> withoutLockFile(const std::vector<Sighting>& sightings)
{
    std::vector<Sighting> kept;
    for (const Sighting& s : sightings) {
        if (!QByteArray::fromStdString(s.path).endsWith(".lock"))
            kept.push_back(s);
    }
    return kept;
}

// "600" for an owner-only file: modes compare and print in octal.
QString octal(unsigned mode)
{
    return QString::number(mode, 8);
}

// The sightings with group or other bits, one a line; empty when all are owner-only.
QString widerThanOwner(const std::vector<Sighting>& sightings)
{
    QString text;
    for (const Sighting& s : sightings) {
        if (s.mode & 077)
            text += QStringLiteral("%1 had mode %2\n").arg(QString::fromStdString(s.path), octal(s.mode));
    }
    return text;
}

bool anyCarriesSecret(const std::vector<Sighting>& writes)
{
    for (const Sighting& s : writes) {
        if (s.carriesSecret)
            return true;
    }
    return false;
}

QString fileMode(const QString& path)
{
    return octal(modeOf(QFile::encodeName(path).constData()));
}

const QString kSecret = QStringLiteral("gateway-secret-4711");

// What appeared in and was written to the folder (lock file aside) while a worker holding
// kSecret as its gateway password saved its settings.
struct SaveSeen {
    std::vector<Sighting> created;
    std::vector<Sighting> written;
};

SaveSeen saveWatched(VdiDesktopGrpcWorker& worker, const QString& folder)
{
    VdiWorkerProbe(worker).setGatewayCredentials("tok", QStringLiteral("user1"), kSecret);
    GatewayFolderWatch watch(folder, kSecret);
    worker.saveGatewayInfo();
    return {withoutLockFile(watch.created()), withoutLockFile(watch.written())};
}

} // namespace

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

    // The file holds the gateway password in the clear.
    void newFileAndFolderAreOwnerOnlyFromCreation();
    void readableFileOfOlderVersionIsTightenedBeforeWrite();
    void saveWithoutDocumentsMakesOwnerOnlyFolders();
    void saveWithoutHomeKeepsNothing();
    void unwritableFileKeepsSessionValues();
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

void TestGatewaySettings::newFileAndFolderAreOwnerOnlyFromCreation()
{
    const QString folder = vditest::makeDocumentsDir() + QStringLiteral("/gateway");
    VdiDesktopGrpcWorker worker;
    const SaveSeen seen = saveWatched(worker, folder);

    std::vector<Sighting> files;
    int folderSightings = 0;
    for (const Sighting& s : seen.created) {
        if (QString::fromStdString(s.path) == folder) {
            ++folderSightings;
            QCOMPARE(octal(s.mode), QStringLiteral("700"));
        } else {
            files.push_back(s);
        }
    }
    QCOMPARE(folderSightings, 1);
    QVERIFY2(!files.empty(), "no file was seen appearing in the gateway folder");
    QVERIFY2(widerThanOwner(files).isEmpty(), qPrintable(widerThanOwner(files)));

    QVERIFY2(anyCarriesSecret(seen.written), "no write of the password was seen");
    QVERIFY2(widerThanOwner(seen.written).isEmpty(), qPrintable(widerThanOwner(seen.written)));
    QCOMPARE(fileMode(worker.getGatewaySettingsFilePath()), QStringLiteral("600"));
}

void TestGatewaySettings::readableFileOfOlderVersionIsTightenedBeforeWrite()
{
    const QString folder = vditest::makeDocumentsDir() + QStringLiteral("/gateway");
    QVERIFY(QDir().mkpath(folder));
    VdiDesktopGrpcWorker worker;
    const QString path = worker.getGatewaySettingsFilePath();
    {
        QFile old(path);
        QVERIFY(old.open(QIODevice::WriteOnly));
        old.write("[GATEWAYINFO]\nuser=old\npassword=old\n");
    }
    QVERIFY(::chmod(QFile::encodeName(path).constData(), 0644) == 0);

    const SaveSeen seen = saveWatched(worker, folder);

    QVERIFY2(anyCarriesSecret(seen.written), "no write of the password was seen");
    QVERIFY2(widerThanOwner(seen.written).isEmpty(), qPrintable(widerThanOwner(seen.written)));
    QVERIFY2(widerThanOwner(seen.created).isEmpty(), qPrintable(widerThanOwner(seen.created)));
    QCOMPARE(fileMode(path), QStringLiteral("600"));

    QString user, password;
    worker.getGatewayAuthInfo(user, password);
    QCOMPARE(password, kSecret);
}

// A terminal image without a Documents folder: the save makes it and "gateway" owner-only and
// keeps the file, owner-only from its first byte.
void TestGatewaySettings::saveWithoutDocumentsMakesOwnerOnlyFolders()
{
    const QString documents = vditest::homePath() + QStringLiteral("/Documents");
    QVERIFY(!QFileInfo::exists(documents));
    VdiDesktopGrpcWorker worker;
    vditest::LogCapture log;
    const SaveSeen seen = saveWatched(worker, documents);

    QStringList created;
    for (const Sighting& s : seen.created)
        created << QString::fromStdString(s.path).mid(documents.size());
    QCOMPARE(created.mid(0, 2), QStringList({QString(), QStringLiteral("/gateway")}));
    QVERIFY2(widerThanOwner(seen.created).isEmpty(), qPrintable(widerThanOwner(seen.created)));
    QVERIFY2(anyCarriesSecret(seen.written), "no write of the password was seen");
    QVERIFY2(widerThanOwner(seen.written).isEmpty(), qPrintable(widerThanOwner(seen.written)));
    QCOMPARE(fileMode(documents), QStringLiteral("700"));
    QCOMPARE(fileMode(documents + QStringLiteral("/gateway")), QStringLiteral("700"));
    QCOMPARE(fileMode(worker.getGatewaySettingsFilePath()), QStringLiteral("600"));
    QVERIFY(!log.contains(QStringLiteral("cannot write the gateway settings file")));

    QString user, password;
    VdiDesktopGrpcWorker().getGatewayAuthInfo(user, password);
    QCOMPARE(password, kSecret);
}

// Where the home itself is missing nothing is made below it, and the save says so.
void TestGatewaySettings::saveWithoutHomeKeepsNothing()
{
    const QByteArray home = qgetenv("HOME");
    const QString missing = vditest::homePath() + QStringLiteral("/no-such-home");
    qputenv("HOME", QFile::encodeName(missing));
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe(worker).setGatewayCredentials("tok", QStringLiteral("user1"), kSecret);
    vditest::LogCapture log;
    worker.saveGatewayInfo();
    qputenv("HOME", home);
    QVERIFY(!QFileInfo::exists(missing));
    QVERIFY(log.contains(QStringLiteral("cannot write the gateway settings file"), QtCriticalMsg));
}

// A settings file that cannot be written is said, naming it, and the session keeps its token
// and credentials through a rebuild instead of reading empty ones back; a later good save
// makes the file the source again.
void TestGatewaySettings::unwritableFileKeepsSessionValues()
{
    // A plain file where the folder should be: not even root can write below it.
    const QString folder = vditest::makeDocumentsDir() + QStringLiteral("/gateway");
    {
        QFile blocker(folder);
        QVERIFY(blocker.open(QIODevice::WriteOnly));
    }
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    probe.setGatewayCredentials("session-token", QStringLiteral("gwuser"), QStringLiteral("gwpass"));
    vditest::LogCapture log;
    worker.saveGatewayInfo();
    QVERIFY(log.contains(QStringLiteral("cannot write the gateway settings file"), QtCriticalMsg));
    QVERIFY(log.contains(folder + QStringLiteral("/gatewaySettings.ini"), QtCriticalMsg));

    worker.initGateway();
    QCOMPARE(probe.gatewayToken(), std::string("session-token"));
    QCOMPARE(probe.gatewayUser(), QStringLiteral("gwuser"));
    QCOMPARE(probe.gatewayPasswd(), QStringLiteral("gwpass"));

    // Writable again: the next save lands, and the file is read once more.
    QVERIFY(QFile::remove(folder));
    QVERIFY(QDir().mkdir(folder));
    worker.saveGatewayInfo();
    probe.setGatewayCredentials("stale", QStringLiteral("stale"), QStringLiteral("stale"));
    worker.initGateway();
    QCOMPARE(probe.gatewayToken(), std::string("session-token"));
    QCOMPARE(probe.gatewayUser(), QStringLiteral("gwuser"));
}

VDI_TEST_MAIN(TestGatewaySettings)
#include "tst_gatewaysettings.moc"
