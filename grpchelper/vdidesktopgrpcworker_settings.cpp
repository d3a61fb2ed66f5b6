// The gateway settings file: the only state of the library that survives a restart.
#include "vdidesktopgrpcworker.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QStandardPaths>

#include "vdidesktopgrpchelper.h"
#include "vdiqtcompat.h"
#include "vdilog.h"

namespace {
const QString kGroup = QStringLiteral("GATEWAYINFO");

// The file holds the gateway password in the clear: it is owner-only from its first byte.
// QSettings replaces the file through QSaveFile, which gives every new version the mode of
// the existing file, so the file is made (or, left wider by an older version, tightened to)
// 0600 before anything is written to it.
bool makeOwnerOnlyFile(const QString& path)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (fd < 0)
        return false;
    const bool ownerOnly = ::fchmod(fd, S_IRUSR | S_IWUSR) == 0;
    ::close(fd);
    return ownerOnly;
}

// Our own rule: a save makes the missing folders of the file's path owner-only (0700), up to and
// including "gateway", as a plain QSettings save would make them but without the umask's wider
// modes: a minimal terminal image often has no Documents folder, and without it no token would
// ever be kept. Folders are made only below a home folder that exists; where the home is missing
// or cannot hold them, nothing is made and nothing is kept.
bool makeOwnerOnlyFolders(const QString& folder)
{
    // A missing home ends the walk up: it is not below itself.
    const QString home = QDir::cleanPath(QDir::homePath());
    const QString below = home.endsWith(QLatin1Char('/')) ? home : home + QLatin1Char('/');
    QStringList missing;
    for (QString dir = QDir::cleanPath(folder); !QFileInfo::exists(dir); dir = QFileInfo(dir).path()) {
        if (!dir.startsWith(below))
            return false;
        missing.prepend(dir);
    }
    for (const QString& dir : qAsConst(missing)) {
        if (::mkdir(QFile::encodeName(dir).constData(), S_IRWXU) != 0 && errno != EEXIST)
            return false;
    }
    return QFileInfo(folder).isDir();
}
} // namespace

QString VdiDesktopGrpcWorker::getGatewaySettingsFilePath() const
{
    const QString dir =
        QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation) + QStringLiteral("/gateway");
    // Only the owner may list the folder of the password file.
    if (!QDir(dir).exists())
        ::mkdir(QFile::encodeName(dir).constData(), S_IRWXU);
    return dir + QStringLiteral("/gatewaySettings.ini");
}

void VdiDesktopGrpcWorker::getGatewayAuthInfo(QString& user, QString& password)
{
    QSettings settings(getGatewaySettingsFilePath(), QSettings::IniFormat);
    vdicompat::useUtf8(settings);
    settings.beginGroup(kGroup);
    user = settings.value(QStringLiteral("user")).toString();
    password = settings.value(QStringLiteral("password")).toString();
    settings.endGroup();
}

QString VdiDesktopGrpcWorker::getGatewayToken() const
{
    QSettings settings(getGatewaySettingsFilePath(), QSettings::IniFormat);
    vdicompat::useUtf8(settings);
    settings.beginGroup(kGroup);
    const QString token = settings.value(QStringLiteral("token")).toString();
    settings.endGroup();
    return token;
}

// A deployment without a gateway has no token, so every call asks the file again. The answer is
// the one getGatewayToken() would give: the file is parsed again whenever it is not the same
// file as last time, and a QSettings save always makes a new file (a new inode).
QString VdiDesktopGrpcWorker::gatewayTokenFromFile()
{
    const QString path = getGatewaySettingsFilePath();
    std::array<qint64, 6> stamp{};  // all zero: no file
    struct stat info;
    if (::stat(QFile::encodeName(path).constData(), &info) == 0) {
        stamp = {qint64(info.st_dev), qint64(info.st_ino), qint64(info.st_size),
                 qint64(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec,
                 qint64(info.st_ctim.tv_sec) * 1000000000 + info.st_ctim.tv_nsec, 1};
    }
    if (!m_fileTokenRead || stamp != m_fileTokenStamp || path != m_fileTokenPath) {
        m_fileToken = getGatewayToken();
        m_fileTokenPath = path;
        m_fileTokenStamp = stamp;
        m_fileTokenRead = true;
    }
    return m_fileToken;
}

void VdiDesktopGrpcWorker::saveGatewayInfo()
{
    const QString path = getGatewaySettingsFilePath();
    QSettings::Status status = writeGatewayInfo(path);
    // Our own rule: QSettings never writes over a file it cannot parse, which would keep every
    // later token out of it; a damaged file is replaced by a new one.
    if (status == QSettings::FormatError) {
        VDI_WARNING << "gateway settings file damaged, written anew:" << path;
        QFile::remove(path);
        status = writeGatewayInfo(path);
    }
    // Our own rule: a file that could not be written (a full disk, a read-only folder) is
    // said, and until a save succeeds the session keeps what it holds (initGateway).
    m_gatewayInfoUnsaved = status != QSettings::NoError;
    if (m_gatewayInfoUnsaved)
        VDI_CRITICAL << "cannot write the gateway settings file, token and credentials not saved:" << path;
}

QSettings::Status VdiDesktopGrpcWorker::writeGatewayInfo(const QString& path)
{
    // Without owner-only folders and file the password is not written at all: QSettings would
    // create them with the umask's wider modes.
    if (!makeOwnerOnlyFolders(QFileInfo(path).path()) || !makeOwnerOnlyFile(path))
        return QSettings::AccessError;
    QSettings settings(path, QSettings::IniFormat);
    vdicompat::useUtf8(settings);
    settings.beginGroup(kGroup);
    settings.setValue(QStringLiteral("ip"), m_host);
    settings.setValue(QStringLiteral("port"), m_port);
    settings.setValue(QStringLiteral("token"), VdiDesktopGrpcHelper::fromStdString(m_gatewayToken));
    settings.setValue(QStringLiteral("user"), m_gatewayUser);
    settings.setValue(QStringLiteral("password"), m_gatewayPasswd);
    settings.endGroup();
    settings.sync();
    return settings.status();
}

// The file, unless this session could not write its own values there or the file cannot be
// read: then the values in memory are newer than anything the file could give.
bool VdiDesktopGrpcWorker::gatewayInfoReadable()
{
    if (m_gatewayInfoUnsaved)
        return false;
    const QString path = getGatewaySettingsFilePath();
    const QFileInfo info(path);
    if (info.exists() && !info.isReadable())
        return false;
    QSettings settings(path, QSettings::IniFormat);
    return settings.status() == QSettings::NoError;
}
