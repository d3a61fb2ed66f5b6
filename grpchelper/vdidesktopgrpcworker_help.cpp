// One-key help: the user's report to the server and, in a gateway deployment, the packaging of
// screenshots and logs of the terminal's login user and their upload over a client stream.
#include "vdidesktopgrpcworker_frame.h"

#include <vector>

#include <QCoreApplication>
#include <QDataStream>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QNetworkProxy>
#include <QTcpSocket>
#include <QTextCodec>

#include <JlCompress.h>

#include "basesettings.h"
#include "vdishell.h"

namespace {
using Stub = client::ClientCore::Stub;
using vdiinternal::BaseSettings;

const char* const kWhoCommand = "w | awk '$3 ~ /^:[0-9]+$/ {print $1}'";
const char* const kOakdeskVersionCommand =
    "sudo dpkg -l --admindir=/userdata/var/lib/dpkg | grep -i oakdesk | head -n1 | awk '{print $5}'";
const int kVersionTimeoutMs = 30000;
const int kChownTimeoutMs = 1000;
const int kProbeTimeoutMs = 3000;
const int kChunkBytes = 65536;
const char* const kNoAddressText = "请检查网络等相关配置或联系管理员";
const char* const kImageCollectionUrl = "http://%1:9001/oneKeyHelpImageCollection";
// Our own rule: every line of the request's own steps (the address choice, the uploads) names
// the request, wherever in the code it is written, so that one grep of the log finds them all.
const char* const kRequest = "sendUserAskHelpInfo";

// Where the user's files are looked for: the Latin spelling of the folders, else the Chinese one.
const char* const kImageFolder = "/home/%1/Documents/oneKeyHelpImage/";
const char* const kImageFolderZh = "/home/%1/文档/oneKeyHelpImage";
struct LogFolder {
    const char* latin;
    const char* chinese;
};
const LogFolder kUserLogFolders[] = {
    {"/home/%1/Documents/Birchlink/log/", "/home/%1/文档/Birchlink/log/"},
    {"/home/%1/Documents/Oakdesk/log/", "/home/%1/文档/Oakdesk/log/"},
    {"/home/%1/Documents/dmp/", "/home/%1/文档/dmp/"},
    {"/home/%1/Documents/crashreport/log/", "/home/%1/文档/crashreport/log/"},
    {"/home/%1/Documents/DiskMapping/", "/home/%1/文档/DiskMapping/"},
};

// getLog 1 and 3 ask for logs: bit 1 does not count.
bool wantsLogs(int getLog)
{
    return (getLog & ~2) == 1;
}

// Once a Chinese folder is taken, file names are UTF-8 for the whole process, for good.
void turnToChinesePaths(const char* function)
{
    VDI_LOG_IN(QtDebugMsg, function) << "!!! directory path contains Chinese !";
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
}
} // namespace

// What differs between the two packages of a help upload, their log lines included.
struct VdiDesktopGrpcWorker::HelpPackage {
    const char* namePattern;
    bool (VdiDesktopGrpcWorker::*package)(QString&);
    const char* fileType;
    QtMsgType absentLevel;
    const char* absentText;
    const char* openText;
    bool taskIdOnOpen;
    const char* metaText;  // logged at info before the meta message, if set
    const char* brokenText;
    QtMsgType failedLevel;
    bool codeOnStatus;  // the upload's code follows the status lines
    bool flushBeforeClose;
    QtMsgType deletionLevel;         // deleting succeeded
    QtMsgType deletionFailedLevel;   // the first removal failed
};

// ---- The report ----------------------------------------------------------------------------

// No deadline and no metadata on the report and the uploads: a stalled server holds the worker
// until stop() cancels the call. A report the server refused, or never got, still uploads.
void VdiDesktopGrpcWorker::sendUserAskHelpInfo(const tagOneKeyHelpInfoRequest& request)
{
    const RpcShape shape = RpcShape::at(__FUNCTION__, QtDebugMsg).deadline(CallContext::Unlimited);
    RpcResult<client::OnekeyHelpResp, tagOneKeyHelpInfoReply> call;
    QString address;
    RpcHooks<tagOneKeyHelpInfoReply> hooks;
    hooks.beforeCall = [&] { address = chooseHelpAddress(request.ip, call.record.error); };
    // By hand: the url is built on the chosen address, which alone stands for the terminal.
    const auto fill = [&](client::OnekeyHelpReq& message) {
        using H = VdiDesktopGrpcHelper;
        message.set_usermac(H::toStdString(request.userMac));
        message.set_realname(H::toStdString(request.realName));
        message.set_phonenumber(H::toStdString(request.phoneNumber));
        message.set_email(H::toStdString(request.email));
        message.set_problemtype(H::toStdString(request.problemType));
        message.set_problemdesc(H::toStdString(request.problemDesc));
        message.set_getlog(request.getLog);
        if (!request.screenShotUrl.isEmpty())
            message.set_screenshoturl(H::toStdString(QString::fromLatin1(kImageCollectionUrl).arg(address)));
        message.set_ip(H::toStdString(address));
        message.set_vmip(H::toStdString(request.vmIp));
        message.set_usegateway(m_serverType);
    };
    if (!answers(unaryCall(shape, stub, &Stub::onekeyHelp, fill, &VdiDesktopGrpcHelper::fromOneKeyHelpResq, call,
                           hooks)))
        return;
    if (call.flag)
        VDI_INFO << "help success, use ip " << address;

    if (call.called() && m_serverType == BaseSettings::Gateway
        && (wantsLogs(request.getLog) || !request.screenShotUrl.isEmpty())) {
        VDI_DEBUG << "Its gateway mode, task id = " << call.record.taskId;
        if (m_currentActiveUser.isEmpty())
            setCurrentActiveUser(m_currentActiveUser);
        if (!request.screenShotUrl.isEmpty())
            uploadHelpPackage(imageHelpPackage(), call.record.taskId);
        if (wantsLogs(request.getLog))
            uploadHelpPackage(logHelpPackage(), call.record.taskId);
    }
    emit sendUserAskHelpInfoResult(call.record, call.flag);
}

QString VdiDesktopGrpcWorker::chooseHelpAddress(const QString& addresses, tagErrorData& error)
{
    QStringList list = addresses.split(QLatin1Char(';'));
    list.removeAll(QString());
    VDI_LOG_IN(QtDebugMsg, kRequest) << "size " << list.size() << "ipList" << list;
    if (list.isEmpty()) {
        error.errorMsgZh = QString::fromUtf8(kNoAddressText);
        return QString();
    }
    // Behind a gateway the first address stands; else the first that reaches the server, and
    // when none does, the last one tried.
    if (m_serverType == BaseSettings::Gateway)
        return list.first();
    QString chosen;
    for (const QString& candidate : qAsConst(list)) {
        chosen = candidate;
        if (reachesServerFrom(candidate)) {
            VDI_LOG_IN(QtDebugMsg, kRequest) << "TcpSocket Connected, ip =" << candidate;
            break;
        }
    }
    return chosen;
}

// Proves a route from this local address to the server; nothing is sent.
bool VdiDesktopGrpcWorker::reachesServerFrom(const QString& address)
{
    QTcpSocket socket;
    socket.setProxy(QNetworkProxy(QNetworkProxy::NoProxy));
    if (!socket.bind(QHostAddress(address), 0))
        return false;
    socket.connectToHost(m_host, m_port, QIODevice::ReadWrite, QAbstractSocket::AnyIPProtocol);
    if (!socket.waitForConnected(kProbeTimeoutMs))
        return false;
    socket.disconnect();
    socket.close();
    return true;
}

// ---- The upload ----------------------------------------------------------------------------

const VdiDesktopGrpcWorker::HelpPackage& VdiDesktopGrpcWorker::imageHelpPackage()
{
    static const VdiDesktopGrpcWorker::HelpPackage image{
        "ClientImage_%1.zip", &VdiDesktopGrpcWorker::compressAndPackageImage, "ScreenShot",
        QtInfoMsg, "gateway upload package IMAGE file not exist.", "open image package file = ", false,
        "ready to send meta data for image package.", "444 broken stream for upload file = ",
        QtCriticalMsg, false, false, QtDebugMsg, QtCriticalMsg};
    return image;
}

const VdiDesktopGrpcWorker::HelpPackage& VdiDesktopGrpcWorker::logHelpPackage()
{
    static const VdiDesktopGrpcWorker::HelpPackage logs{
        "Client_%1.zip", &VdiDesktopGrpcWorker::compressAndPackageLogs, "ClientLog",
        QtDebugMsg, "gateway upload package LOG file not exist.", "open log package file = ", true,
        nullptr, "555 broken stream for upload file = ",
        QtDebugMsg, true, true, QtInfoMsg, QtInfoMsg};
    return logs;
}

// One package: made, streamed in chunks of 64 KiB from one buffer and one reused message, and
// removed whatever the outcome, once it was opened.
void VdiDesktopGrpcWorker::uploadHelpPackage(const HelpPackage& kind, qint64 taskId)
{
    // Our own rule: without an upload stub no package is made and nothing is sent.
    if (!stubUpload) {
        VDI_LOG_IN(QtCriticalMsg, kRequest) << " stubUpload is null.";
        return;
    }
    const QString shortName = QString::fromLatin1(kind.namePattern)
                                  .arg(QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd_hhmmss")));
    QString path = shortName;
    (this->*kind.package)(path);

    QFile file(path);
    if (!file.exists()) {
        VDI_LOG_IN(kind.absentLevel, kRequest) << kind.absentText;
        return;
    }
    if (kind.taskIdOnOpen)
        VDI_LOG_IN(QtDebugMsg, kRequest) << kind.openText << path << ", task id = " << taskId;
    else
        VDI_LOG_IN(QtDebugMsg, kRequest) << kind.openText << path;
    if (!file.open(QIODevice::ReadOnly))
        return;  // stays on disk

    const RpcShape shape = RpcShape::at(kRequest).deadline(CallContext::Unlimited).onNullStub(" stubUpload is null.");
    StreamResult<client::onekeyHelpUploadResp> upload;
    streamCall(shape, stubUpload, &Stub::onekeyHelpUseGateway,
               [&](grpc::ClientWriter<client::onekeyHelpUploadReq>& writer) {
                   client::onekeyHelpUploadReq message;
                   client::onekeyHelpUploadReqMeta& meta = *message.mutable_onekeyhelpuploadreqmeta();
                   meta.set_taskid(taskId);
                   meta.set_filename(VdiDesktopGrpcHelper::toStdString(shortName));
                   meta.set_filetype(kind.fileType);
                   if (kind.metaText)
                       VDI_LOG_IN(QtInfoMsg, kRequest) << kind.metaText;
                   writer.Write(message);

                   std::vector<char> buffer(kChunkBytes);
                   QDataStream stream(&file);
                   while (!stream.atEnd()) {
                       const int read = stream.readRawData(buffer.data(), kChunkBytes);
                       if (read <= 0)
                           break;
                       message.set_content(buffer.data(), size_t(read));
                       if (!writer.Write(message)) {
                           VDI_LOG_IN(QtDebugMsg, kRequest) << kind.brokenText << path;
                           break;
                       }
                   }
               },
               upload);

    if (upload.status.ok()) {
        if (kind.codeOnStatus)
            VDI_LOG_IN(QtDebugMsg, kRequest) << "Succeed in sending file = " << path << ", code = " << upload.reply.code();
        else
            VDI_LOG_IN(QtDebugMsg, kRequest) << "Succeed in sending file = " << path;
    } else {
        if (kind.codeOnStatus)
            VDI_LOG_IN(kind.failedLevel, kRequest) << "Failed to send file = " << path << ", code = "
                                                       << upload.reply.code();
        else
            VDI_LOG_IN(kind.failedLevel, kRequest) << "Failed to send file = " << path;
    }
    if (kind.flushBeforeClose)
        file.flush();
    file.close();
    if (file.remove()) {
        VDI_LOG_IN(kind.deletionLevel, kRequest) << "Succeed in deleting file = " << path;
        return;
    }
    VDI_LOG_IN(kind.deletionFailedLevel, kRequest) << "delete file failed, remove again, file = " << path;
    file.close();
    file.remove();
}

// ---- Packaging -----------------------------------------------------------------------------

void VdiDesktopGrpcWorker::setCurrentActiveUser(QString& user)
{
    // The users with a display (":0") in the third column, all of them: two give one name with
    // a line break.
    user = vdishell::output(QLatin1String(kWhoCommand), -1);
    VDI_DEBUG << "Linux: current login user = " << user;
}

QString VdiDesktopGrpcWorker::getOakdeskExternalVersion()
{
    // The fifth column of the package list is the description, which carries the version.
    return vdishell::output(QLatin1String(kOakdeskVersionCommand), kVersionTimeoutMs);
}

// A path of the terminal's login user, never $HOME.
QString VdiDesktopGrpcWorker::userPath(const char* pattern) const
{
    return QString::fromUtf8(pattern).arg(m_currentActiveUser);
}

// The packages land in the user's Downloads folder, which is handed to the user first. Our own
// rule: the user name reaches the shell as one quoted word, so that no name can inject a command.
void VdiDesktopGrpcWorker::handDownloadsToUser()
{
    const QString owner = m_currentActiveUser + QLatin1Char(':') + m_currentActiveUser;
    const QString command = QStringLiteral("sudo chown -R %1 %2")
                                .arg(vdishell::quoted(owner), vdishell::quoted(userPath("/home/%1/Downloads")));
    vdishell::run(command, kChownTimeoutMs);
}

// Our own rule: the packages are made only for a login user whose home folder exists, and a
// Downloads folder that is missing there is made first. For an empty or unknown name nothing is
// made anywhere: quazip makes every missing folder on a zip's path, and an empty name gives
// "/home//Downloads/".
bool VdiDesktopGrpcWorker::prepareDownloads(const char* function)
{
    const QString home = userPath("/home/%1");
    if (m_currentActiveUser.isEmpty() || !QFileInfo(home).isDir()) {
        VDI_LOG_IN(QtInfoMsg, function) << "The login user has no home folder, nothing is packaged. home = " << home;
        return false;
    }
    QDir().mkpath(userPath("/home/%1/Downloads"));
    handDownloadsToUser();
    return true;
}

bool VdiDesktopGrpcWorker::compressAndPackageImage(QString& fileName)
{
    fileName = userPath("/home/%1/Downloads/") + fileName;
    if (!prepareDownloads(__FUNCTION__))
        return false;
    QString directory = userPath(kImageFolder);
    if (!QFileInfo::exists(directory)) {
        turnToChinesePaths(__FUNCTION__);
        directory = userPath(kImageFolderZh);
    }
    // The count sees the files directly inside; the zip takes the subfolders too.
    QDir dir(directory);
    dir.setFilter(QDir::Files);
    if (dir.exists() && dir.count() > 0) {
        JlCompress::compressDir(fileName, directory, true);
        VDI_INFO << "Yes, all in. absolute path = " << fileName << ", file count = " << dir.count();
        return true;
    }
    VDI_INFO << "Directory is empty, do nothing. dir = " << directory;
    return false;
}

bool VdiDesktopGrpcWorker::compressAndPackageLogs(QString& fileName)
{
    VDI_DEBUG << "ready to package all log files, zip file name = " << fileName << ", user = " << m_currentActiveUser;
    fileName = userPath("/home/%1/Downloads/") + fileName;
    if (!prepareDownloads(__FUNCTION__))
        return true;

    // The first user folder alone decides the spelling of all five.
    const bool latin = QFileInfo::exists(userPath(kUserLogFolders[0].latin));
    if (!latin)
        turnToChinesePaths(__FUNCTION__);
    QStringList folders;
    for (const LogFolder& folder : kUserLogFolders)
        folders << userPath(latin ? folder.latin : folder.chinese);
    const QString programDir = QCoreApplication::applicationDirPath();
    folders << programDir + QStringLiteral("/log/") << QStringLiteral("/var/log/devRedirect/")
            << programDir + QStringLiteral("/../Ashroll/log/");

    // Files directly inside, no symbolic links, in the folder's own order.
    QStringList files;
    for (const QString& folder : qAsConst(folders)) {
        VDI_DEBUG << "Directory path = " << folder;
        QDir dir(folder);
        if (!dir.exists())
            continue;
        const QStringList entries = dir.entryList(QDir::Files | QDir::NoSymLinks, QDir::NoSort);
        for (const QString& entry : entries)
            if (!entry.isEmpty())
                files << folder + entry;
    }
    const QString version = getOakdeskExternalVersion();
    VDI_DEBUG << "Current oakdesk version = " << version;
    files << QStringLiteral("/var/log/syslog");
    for (const QString& program : {QStringLiteral("/../Oakdesk/%1/Birchlink"),
                                   QStringLiteral("/../Oakdesk/%1/libspice-client-glib-2.0.so.8.6.0")}) {
        const QString path = programDir + program.arg(version);
        if (QFileInfo::exists(path))
            files << path;
    }

    dropUnreadableFiles(files, [](const QString& path) { return QFileInfo::exists(path); },
                        [](const QString& path) { return QFileInfo(path).isReadable(); });
    files.removeDuplicates();
    JlCompress::compressFiles(fileName, files);
    VDI_INFO << "Yes, all in. absolute path = " << fileName;
    return true;
}

// Our own rule: every entry is examined once and every missing or unreadable one is dropped with
// its line, wherever it stands in the list. A single bad entry left behind makes quazip refuse
// the whole package.
void VdiDesktopGrpcWorker::dropUnreadableFiles(QStringList& files, const FileTest& exists, const FileTest& readable)
{
    QStringList kept;
    for (const QString& file : qAsConst(files)) {
        if (!exists(file))
            VDI_LOG_IN(QtWarningMsg, "compressAndPackageLogs") << file << " file NOT exist, remove from downloadlist!";
        else if (!readable(file))
            VDI_LOG_IN(QtWarningMsg, "compressAndPackageLogs") << file << " file is NOT readable, remove from downloadlist!";
        else
            kept << file;
    }
    files = kept;
}
