// One-key help: the report as the TLS test server receives it and, behind a gateway, the packages
// of screenshots and logs streamed to it. The shell tools of the packaging (w, sudo, dpkg, chown)
// are fakes first on PATH, and the login user's home is a tree in a temporary folder of the test:
// the fake `w` names the user "../../<tree>/u", so that "/home/<user>/..." lands inside it.
#include "testsupport.h"
#include "fieldmap.h"

#include <unistd.h>

#include <QBuffer>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QThread>

#include <JlCompress.h>

namespace {
const std::string kHelp = "/client.ClientCore/onekeyHelp";
const std::string kUpload = "/client.ClientCore/onekeyHelpUseGateway";
const char* const kUsersVariable = "VDI_FAKE_W_USERS";  // display users of the fake w, one a line
const QString kVersionArgs = QStringLiteral("--admindir=/userdata/var/lib/dpkg");
const QStringList kLogFolders{"Birchlink/log", "Oakdesk/log", "dmp", "crashreport/log", "DiskMapping"};
const int kChunk = 65536;

using Entries = QMap<QString, QByteArray>;  // zip entry or tree file -> content (folders: empty)

// The result as it came, with what the server and the Downloads folder held at that moment.
struct Answer {
    tagOneKeyHelpInfoReply reply;
    bool flag = false;
    int uploads = 0;
    QStringList downloads;
};

QStringList filesIn(const QString& dir)
{
    return QDir(dir).entryList(QDir::Files | QDir::Hidden | QDir::System);
}

// A worker connected to its own server, with the log from then on; results are collected
// through a direct connection.
struct Bed {
    Bed(int serverType, const QString& downloadsDir)
    {
        worker.initServerType(serverType);
        server.connect(worker);
        // A token that a standard context would carry.
        VdiWorkerProbe(worker).setGatewayCredentials("help-token", QStringLiteral("gw"), QStringLiteral("gw-pw"));
        QObject::connect(&worker, &VdiDesktopGrpcWorker::sendUserAskHelpInfoResult,
                         [this, downloadsDir](const OneKeyHelpInfoReply& reply, bool flag) {
                             answers.append({reply, flag, server->callCount(kUpload), filesIn(downloadsDir)});
                         });
    }
    // True when the request was answered, once.
    bool ask(int getLog, const QString& screenShotUrl, const QString& ip = QStringLiteral("127.0.0.1"))
    {
        const int before = answers.size();
        worker.sendUserAskHelpInfo({"02:00:00:00:00:01", "张三", "13800000000", "zs@example.com", "黑屏", "desktop froze",
                                    getLog, screenShotUrl, ip, "10.1.1.9"});
        return answers.size() == before + 1;
    }
    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    vditest::LogCapture log;
    QList<Answer> answers;
};

client::OnekeyHelpResp helpReply(qint64 taskId, int code = 0, const std::string& textZh = {})
{
    client::OnekeyHelpResp reply;
    reply.set_taskid(taskId);
    reply.mutable_error()->set_error_code(code);
    reply.mutable_error()->set_error_msg_zh(textZh);
    return reply;
}

QString text(const std::string& bytes)
{
    return QString::fromStdString(bytes);
}

QStringList chownArgs(const QString& user)
{
    return {"-R", user + ':' + user, "/home/" + user + "/Downloads"};
}

// The entries of a zip; with `onlyOurs`, those of our own tree and the expected ones alone: the
// machine may add its syslog or logs.
Entries zipEntries(const QByteArray& zip, bool onlyOurs, const Entries& expected)
{
    QBuffer buffer;
    buffer.setData(zip);
    QTemporaryDir out;
    JlCompress::extractDir(&buffer, out.path());
    Entries entries;
    for (const QString& name : JlCompress::getFileList(&buffer)) {
        QFile file(out.filePath(name));
        if (!onlyOurs || name.startsWith(QLatin1String("hl-")) || expected.contains(name))
            entries[name] = name.endsWith('/') || !file.open(QIODevice::ReadOnly) ? QByteArray() : file.readAll();
    }
    return entries;
}

// What is wrong with one upload, if anything. It has no deadline and no metadata; the meta message
// comes first, with a name that bears the time of the request when a window is given, then the
// zip in chunks of 64 KiB and a shorter last one, holding the expected entries (of a log package:
// ours and the expected ones).
QString uploadMismatch(const vdifake::RecordedCall& call, qint64 taskId, const QString& type, const Entries& expected,
                       const QDateTime& before = {}, const QDateTime& after = {})
{
    if (call.requests.size() < 2 || call.deadlineSeconds != -1.0 || call.metadata.count("gatewayaccesstoken")
        || call.metadata.count("client-language"))
        return QStringLiteral("%1 messages, or a deadline or metadata").arg(call.requests.size());
    const auto meta = call.request<client::onekeyHelpUploadReq>(0).onekeyhelpuploadreqmeta();
    const QString name = text(meta.filename());
    const QString prefix = type == QLatin1String("ScreenShot") ? QStringLiteral("ClientImage_") : QStringLiteral("Client_");
    const QDateTime stamp = QDateTime::fromString(name, '\'' + prefix + "'yyyyMMdd_hhmmss'.zip'");
    if (meta.taskid() != taskId || text(meta.filetype()) != type || !stamp.isValid()
        || (before.isValid() && (stamp < before.addMSecs(-before.time().msec()) || stamp > after)))
        return QStringLiteral("meta: %1 %2 %3").arg(meta.taskid()).arg(text(meta.filetype()), name);
    QByteArray zip;
    for (size_t i = 1; i < call.requests.size(); ++i) {
        const auto chunk = call.request<client::onekeyHelpUploadReq>(i);
        const int size = int(chunk.content().size());
        if (chunk.oneof_content_case() != client::onekeyHelpUploadReq::kContent || size <= 0 || size > kChunk
            || (i + 1 < call.requests.size() && size != kChunk))
            return QStringLiteral("chunk %1 of %2 bytes").arg(i).arg(size);
        zip += QByteArray::fromStdString(chunk.content());
    }
    const Entries received = zipEntries(zip, type == QLatin1String("ClientLog"), expected);
    return received == expected ? QString() : QStringLiteral("entries: ") + received.keys().join(' ');
}

// Every line of the request's own steps names the request; no line names a lambda. Returns how
// many lines of those steps there were, or -1.
int stepLinesNamingRequest(const vditest::LogCapture& log)
{
    static const QRegularExpression steps(QStringLiteral(
        "ipList|TcpSocket Connected, ip =|ready to send meta data for image package\\.|open (image|log) package file = "
        "|broken stream for upload file = |Succeed in (sending|deleting) file = |Failed to send file = "
        "|stubUpload is null\\.|upload package (IMAGE|LOG) file not exist\\."));
    int named = 0;
    for (const auto& line : log.lines()) {
        const bool step = line.second.contains(steps);
        if (line.second.contains(QLatin1String("operator()"))
            || (step && !line.second.startsWith(QLatin1String("[ sendUserAskHelpInfo ]")))) {
            qWarning("a line names a lambda, or a step's line not the request: %s", qPrintable(line.second));
            return -1;
        }
        named += step ? 1 : 0;
    }
    return named;
}

// A report, and what the server receives and the application gets.
struct Report {
    int serverType;
    QString ip, screenShotUrl, serverText;
    int failure;  // 1: the call fails, 2: and the worker is asked to stop meanwhile
    QString sentIp, errorMsgZh;
};
} // namespace

Q_DECLARE_METATYPE(Report)

class TestHelp : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void report_data();
    void report();
    void facadeSendsTheUsersWordsAlone();
    void packagesUploaded_data();
    void packagesUploaded();
    void packagesAsked_data();
    void packagesAsked();
    void nothingPackaged_data();
    void nothingPackaged();
    void chineseFolders_data();
    void chineseFolders();
    void everyBadEntryDropped();
    void userNameQuoted_data();
    void userNameQuoted();
    void fieldMaps_data();
    void fieldMaps() { VDI_RUN_CHECK(); }

private:
    QList<QStringList> toolCalls(const QString& tool) const { return m_fakes->calls(tool); }
    QString home() const { return m_tree->path() + QStringLiteral("/u"); }
    QString userName() const { return QStringLiteral("../..") + home(); }
    QString downloads() const { return home() + QStringLiteral("/Downloads"); }
    QString programs() const { return QCoreApplication::applicationDirPath() + QStringLiteral("/../Oakdesk/"); }
    void setUsers(const QStringList& names) { qputenv(kUsersVariable, names.join('\n').toUtf8()); }
    QByteArray put(const QString& path, const QByteArray& content);  // under the home, unless absolute
    QByteArray putRandom(const QString& path, int size);
    // A full Latin tree into m_image and m_logs (with the program files): screenshots with a
    // subfolder; the five log folders, the first with a symbolic link and a subfolder.
    void fillLatinTree();

    std::unique_ptr<vditest::FakeTools> m_fakes;
    QScopedPointer<QTemporaryDir> m_tree;
    Entries m_image, m_logs, m_programs;
    QString m_version3, m_version5;  // third and fifth column of the fake package list
};

void TestHelp::initTestCase()
{
    m_version3 = QStringLiteral("3.3.3-help%1").arg(::getpid());
    m_version5 = QStringLiteral("5.5.5-help%1").arg(::getpid());
    // The program files are looked for beside the test binary, under the version of the package
    // list; each column gets copies of its own: the fifth column's are packaged.
    for (const QString file : {"Birchlink", "libspice-client-glib-2.0.so.8.6.0"}) {
        for (const QString& version : {m_version3, m_version5})
            m_programs[file] = put(programs() + version + '/' + file, (version + ':' + file).toUtf8());
    }
    m_fakes = std::make_unique<vditest::FakeTools>(QMap<QString, QString>{
        {"w", QStringLiteral("echo ' 10:00:00 up 1 day,  2 users,  load average: 0.00, 0.00, 0.00'\n"
                             "echo 'USER     TTY      FROM             LOGIN@   IDLE   JCPU   PCPU WHAT'\n"
                             "echo 'remote   pts/1    198.51.100.4     09:00    1:00   0.01s  0.01s -bash'\n"
                             "printf '%s\\n' \"$%1\" | while IFS= read -r n; do\n"
                             "  [ -n \"$n\" ] && printf '%s tty7     :0               09:00    2:00m  0.10s  0.01s x\\n' \"$n\"\n"
                             "done").arg(kUsersVariable)},
        // Only dpkg and chown pass, and to the fakes.
        {"sudo", QStringLiteral("case \"$1\" in dpkg|chown) t=\"$1\"; shift; exec '@DIR@/'\"$t\" \"$@\" ;; esac")},
        {"dpkg", QStringLiteral("echo '||/ Name            Version      Architecture Description'\n"
                                "echo 'ii  libfoo          1.0          amd64        foo library'\n"
                                "echo 'ii  oakdesk-client  %1  amd64        %2 Oakdesk client'\n"
                                "echo 'ii  oakdesk-extra   0.1          amd64        0.0.1 extras'")
                     .arg(m_version3, m_version5)},
        {"chown", QString()},
    });
    QVERIFY(m_fakes->ready());
}

void TestHelp::cleanupTestCase()
{
    for (const QString& version : {m_version3, m_version5})
        QDir(programs() + version).removeRecursively();
    QDir().rmdir(programs());  // only if nothing else is there
}

void TestHelp::init()
{
    m_fakes->clearCalls();
    m_tree.reset(new QTemporaryDir);
    QVERIFY(m_tree->isValid() && !m_tree->path().contains(' ') && !m_tree->path().contains('\''));
    QVERIFY(QDir().mkpath(downloads()));
    // The user's paths resolve into the tree.
    QCOMPARE(QFileInfo("/home/" + userName() + "/Downloads").canonicalFilePath(),
             QFileInfo(downloads()).canonicalFilePath());
    setUsers({userName()});
}

QByteArray TestHelp::put(const QString& path, const QByteArray& content)
{
    const QString full = path.startsWith('/') ? path : home() + '/' + path;
    QDir().mkpath(QFileInfo(full).path());
    QFile file(full);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(full));
    return content;
}

QByteArray TestHelp::putRandom(const QString& path, int size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (char& c : bytes)
        c = char(QRandomGenerator::global()->bounded(256));
    return put(path, bytes);
}

void TestHelp::fillLatinTree()
{
    m_image = {{"shot-1.png", putRandom("Documents/oneKeyHelpImage/shot-1.png", 150000)},
               {"sub/", QByteArray()},
               {"sub/shot-2.png", putRandom("Documents/oneKeyHelpImage/sub/shot-2.png", 30000)}};
    m_logs = m_programs;
    for (int i = 0; i < kLogFolders.size(); ++i) {
        const QString name = QStringLiteral("hl-%1.log").arg(i);
        m_logs[name] = put("Documents/" + kLogFolders[i] + '/' + name, "log " + name.toUtf8());
    }
    put("Documents/Birchlink/log/sub/hl-nested.log", "nested");
    put("elsewhere/hl-target.log", "linked");
    if (!QFile::link(home() + "/elsewhere/hl-target.log", home() + "/Documents/Birchlink/log/hl-link.log"))
        qFatal("cannot make a symbolic link");
}

void TestHelp::report_data()
{
    QTest::addColumn<Report>("row");
    const QString shot = QStringLiteral("file:///secret-shot.png");
    const QString none;
    QTest::newRow("no address") << Report{0, ";;", shot, none, 0, none, none};
    QTest::newRow("unbindable first") << Report{0, "192.0.2.1;127.0.0.1", shot, none, 0, "127.0.0.1", none};
    QTest::newRow("first reaches") << Report{0, ";127.0.0.2;;127.0.0.1", shot, none, 0, "127.0.0.2", none};
    QTest::newRow("none reaches") << Report{0, "192.0.2.1;198.51.100.7", shot, none, 0, "198.51.100.7", none};
    QTest::newRow("server type 2") << Report{2, "192.0.2.1;127.0.0.1", shot, none, 0, "127.0.0.1", none};
    QTest::newRow("gateway, no probe") << Report{1, "192.0.2.1;127.0.0.1", shot, none, 0, "192.0.2.1", none};
    // The text of a missing address gives way to the server's, empty or not, and to a failure's;
    // stopping, the failure fills nothing and what was there before the call stays. Without
    // screenshots no url is sent.
    QTest::newRow("the server's text") << Report{0, ";;", none, "服务端说明", 0, none, "服务端说明"};
    QTest::newRow("a failed call") << Report{0, ";;", none, none, 1, none, "服务器连接失败，请检查网络等相关配置或联系管理员。"};
    QTest::newRow("stopped, no address") << Report{0, ";;", none, none, 2, none, "请检查网络等相关配置或联系管理员"};
    QTest::newRow("stopped, an address") << Report{0, "127.0.0.1", none, none, 2, "127.0.0.1", none};
}

void TestHelp::report()
{
    QFETCH(Report, row);
    Bed bed(row.serverType, downloads());  // behind the gateway the tree has no screenshots to send
    bed.server->setReply(kHelp, helpReply(5, 0, row.serverText.toStdString()));
    if (row.failure)
        bed.server->setStatus(kHelp, grpc::StatusCode::UNAVAILABLE);
    // On a thread of its own, which is asked to stop while the server answers.
    std::unique_ptr<QThread> asker(QThread::create([&] { bed.ask(0, row.screenShotUrl, row.ip); }));
    bed.server->setResponder(kHelp, [&](const vdifake::RecordedCall&, vdifake::Script*) {
        if (row.failure == 2)
            asker->requestInterruption();
        return false;
    });
    asker->start();
    QVERIFY(asker->wait(10000));
    QCOMPARE(bed.answers.size(), 1);
    QCOMPARE(bed.answers[0].flag, row.failure == 0);
    QCOMPARE(bed.answers[0].reply.taskId, qint64(row.failure ? 0 : 5));
    QCOMPARE(bed.answers[0].reply.error.errorMsgZh, row.errorMsgZh);
    // The address list, the probe's success where a probe found one, and behind the gateway the
    // missing screenshot package.
    const bool probed = row.serverType != 1 && row.sentIp.startsWith(QLatin1String("127."));
    QCOMPARE(stepLinesNamingRequest(bed.log), 1 + (probed ? 1 : 0) + (row.serverType == 1 ? 1 : 0));
    QCOMPARE(bed.server->callCount(kHelp), 1);
    const vdifake::RecordedCall call = bed.server->calls(kHelp).at(0);
    // Screenshots are fetched from the chosen address; the terminal's own url is not sent.
    const QString url = row.screenShotUrl.isEmpty() ? QString() : "http://" + row.sentIp + ":9001/oneKeyHelpImageCollection";
    QCOMPARE(vditest::wireMismatch(call.request<client::OnekeyHelpReq>(),
                                   QStringLiteral("ip: '%1' screenShotUrl: '%2' useGateway: %3")
                                       .arg(row.sentIp, url, QString::number(row.serverType))),
             QString());
    QVERIFY(call.requests.at(0).find("secret-shot") == std::string::npos);
    QVERIFY(call.deadlineSeconds == -1.0 && !call.metadata.count("gatewayaccesstoken")
            && !call.metadata.count("client-language"));
}

// The facade sends the user's words alone, each where the worker puts it: nothing of its cached identity.
void TestHelp::facadeSendsTheUsersWordsAlone()
{
    vditest::TestServer server;
    VdiDesktopGrpcThread facade;
    server.connect(facade);
    facade.setLocalMAC(QStringLiteral("02:00:00:00:00:99"));
    facade.setLocalIP(QStringLiteral("10.9.9.9"));
    QSignalSpy spy(&facade, &VdiDesktopGrpcThread::SendUserAskHelpInfoResult);

    facade.sendUserAskInfo("02:00:00:00:00:07", "张三", "138", "e@x", "黑屏", "froze", 3, "x", "127.0.0.1", "10.1.1.9");
    QVERIFY(spy.wait(5000));
    QCOMPARE(vditest::wireMismatch(vditest::lastRequest<client::OnekeyHelpReq>(server, kHelp),
                                   "userMac: '02:00:00:00:00:07' realName: '张三' phoneNumber: '138' email: 'e@x' "
                                   "problemType: '黑屏' problemDesc: 'froze' getLog: 3 ip: '127.0.0.1' vmIp: '10.1.1.9' "
                                   "screenShotUrl: 'http://127.0.0.1:9001/oneKeyHelpImageCollection'"),
             QString());
    facade.stop();
}

void TestHelp::packagesUploaded_data()
{
    QTest::addColumn<bool>("downloadsFolder");
    QTest::addColumn<bool>("reportFails");
    QTest::addColumn<int>("serverCode");
    QTest::addColumn<int>("failedUploads");
    QTest::newRow("accepted") << true << false << 0 << 0;
    QTest::newRow("report refused, home without Downloads") << false << false << 7 << 0;
    QTest::newRow("report and uploads failed") << true << true << 0 << 2;
    QTest::newRow("first upload fails") << true << false << 0 << 1;
}

// Both packages, made in the Downloads folder (made first where missing, and handed to the user
// each time) and removed whatever the upload's outcome; the program files of the installed
// version go with the logs. A report that the server refused, or never got, still uploads; the
// flag is the report's.
void TestHelp::packagesUploaded()
{
    QFETCH(bool, downloadsFolder);
    QFETCH(bool, reportFails);
    QFETCH(int, serverCode);
    QFETCH(int, failedUploads);
    if (!downloadsFolder)
        QVERIFY(QDir(downloads()).removeRecursively());
    fillLatinTree();
    Bed bed(1, downloads());
    const qint64 taskId = reportFails ? 0 : 4242;
    bed.server->setReply(kHelp, helpReply(reportFails ? 99 : taskId, serverCode));
    if (reportFails)
        bed.server->setStatus(kHelp, grpc::StatusCode::UNAVAILABLE);
    for (int i = 0; i < failedUploads; ++i)  // the first ones fail
        bed.server->queueScript(kUpload, vdifake::Script{grpc::StatusCode::INTERNAL, "disk full", {}, 0});

    const QDateTime before = QDateTime::currentDateTime();
    QVERIFY(bed.ask(1, QStringLiteral("shots")));
    const QDateTime after = QDateTime::currentDateTime();
    QCOMPARE(bed.answers[0].flag, !reportFails && serverCode == 0);
    QCOMPARE(bed.answers[0].reply.taskId, taskId);
    QCOMPARE(bed.answers[0].reply.error.errorCode, reportFails ? 14 : serverCode);
    QCOMPARE(bed.answers[0].uploads, 2);  // the result comes after both uploads and deletions
    QCOMPARE(bed.answers[0].downloads, QStringList());
    const auto calls = bed.server->calls(kUpload);
    QCOMPARE(calls.size(), size_t(2));
    QVERIFY(calls[0].requests.size() >= 4);  // three chunks at least
    QCOMPARE(uploadMismatch(calls[0], taskId, "ScreenShot", m_image, before, after), QString());  // the subfolder too
    QCOMPARE(uploadMismatch(calls[1], taskId, "ClientLog", m_logs, before, after), QString());  // no link, no subfolder
    QVERIFY(QFileInfo(downloads()).isDir());
    // The fake sudo hands chown and dpkg their arguments as they came.
    const QStringList chown = QStringList("chown") + chownArgs(userName());
    QCOMPARE(toolCalls("sudo"), QList<QStringList>({chown, chown, {"dpkg", "-l", kVersionArgs}}));
    QCOMPARE(bed.log.count(QStringLiteral("Current oakdesk version = ") + " \"" + m_version5 + '"', QtDebugMsg), 1);
    QCOMPARE(bed.log.count(QStringLiteral("Failed to send file = ")), failedUploads);
    QCOMPARE(bed.log.count(QStringLiteral("Failed to send file = "), QtCriticalMsg), failedUploads > 0 ? 1 : 0);
    // The address, both opens, the meta line, both sendings and both deletions.
    QCOMPARE(stepLinesNamingRequest(bed.log), 8);
}

void TestHelp::packagesAsked_data()
{
    QTest::addColumn<int>("serverType");
    QTest::addColumn<int>("getLog");
    QTest::addColumn<QString>("screenShotUrl");
    QTest::addColumn<QStringList>("types");
    const QStringList none, logs{"ClientLog"}, shots{"ScreenShot"};
    QTest::newRow("getLog 1") << 1 << 1 << "" << logs;
    QTest::newRow("getLog 5") << 1 << 5 << "" << none;
    QTest::newRow("screenshots") << 1 << 0 << "x" << shots;
    QTest::newRow("screenshots, getLog 2") << 1 << 2 << "x" << shots;
    QTest::newRow("screenshots, getLog 3") << 1 << 3 << "x" << (shots + logs);
    QTest::newRow("direct") << 0 << 3 << "x" << none;
    QTest::newRow("server type 2") << 2 << 1 << "x" << none;
}

// Nobody is looked for and no tool runs when nothing is to be packaged. Asked twice, the login user
// is looked for once; the Downloads folder is handed over for each package.
void TestHelp::packagesAsked()
{
    QFETCH(int, serverType);
    QFETCH(int, getLog);
    QFETCH(QString, screenShotUrl);
    QFETCH(QStringList, types);
    fillLatinTree();
    Bed bed(serverType, downloads());
    bed.server->setReply(kHelp, helpReply(7));
    QVERIFY(bed.ask(getLog, screenShotUrl));
    QVERIFY(bed.ask(getLog, screenShotUrl));
    QStringList uploaded;
    for (const auto& call : bed.server->calls(kUpload))
        uploaded << text(call.request<client::onekeyHelpUploadReq>(0).onekeyhelpuploadreqmeta().filetype());
    QCOMPARE(uploaded, types + types);
    QCOMPARE(toolCalls("w").size(), types.isEmpty() ? 0 : 1);
    QCOMPARE(toolCalls("chown").size(), 2 * types.size());
    QVERIFY(!types.isEmpty() || toolCalls("sudo").isEmpty());  // dpkg is reached through sudo alone
}

void TestHelp::nothingPackaged_data()
{
    QTest::addColumn<int>("users");  // 0: none, 1: one whose home does not exist, 2: the tree's own
    QTest::addColumn<bool>("uploadStub");
    QTest::newRow("a user whose home does not exist") << 1 << true;
    QTest::newRow("no display user") << 0 << true;
    QTest::newRow("no upload stub") << 2 << false;
}

// A user without a home, or none at all, gets no package, no folder and no chown; the log says
// why. Without an upload stub no package is made either. The report is answered all the same.
void TestHelp::nothingPackaged()
{
    QFETCH(int, users);
    QFETCH(bool, uploadStub);
    fillLatinTree();
    const QString nobody = m_tree->path() + QStringLiteral("/nobody");
    if (users < 2)
        setUsers(users ? QStringList{QStringLiteral("../..") + nobody} : QStringList());
    const bool homeDownloads = QFileInfo::exists(QStringLiteral("/home/Downloads"));
    Bed bed(uploadStub ? 1 : 0, downloads());  // connected outside a gateway: no upload stub
    bed.worker.initServerType(1);
    QCOMPARE(bool(VdiWorkerProbe(bed.worker).stubUpload()), uploadStub);
    bed.server->setReply(kHelp, helpReply(9));

    QVERIFY(bed.ask(1, QStringLiteral("shots")));
    QVERIFY(bed.answers[0].flag);
    QCOMPARE(bed.server->callCount(kUpload), 0);
    QCOMPARE(toolCalls("w").size(), 1);
    QVERIFY(toolCalls("chown").isEmpty());
    QVERIFY2(!QFileInfo::exists(nobody), qPrintable(nobody));
    QCOMPARE(QFileInfo::exists(QStringLiteral("/home/Downloads")), homeDownloads);
    QCOMPARE(filesIn(downloads()), QStringList());
    const int noHome = uploadStub ? 1 : 0;
    QCOMPARE(bed.log.count(QStringLiteral(" stubUpload is null."), QtCriticalMsg), uploadStub ? 0 : 2);
    QCOMPARE(bed.log.count(QStringLiteral("The login user has no home folder, nothing is packaged."), QtInfoMsg), 2 * noHome);
    QCOMPARE(bed.log.count(QStringLiteral("gateway upload package IMAGE file not exist."), QtInfoMsg), noHome);
    QCOMPARE(bed.log.count(QStringLiteral("gateway upload package LOG file not exist."), QtDebugMsg), noHome);
    QVERIFY(!bed.log.contains(QStringLiteral("Directory is empty")));
    QVERIFY(!bed.log.contains(QStringLiteral("Yes, all in.")));
}

void TestHelp::chineseFolders_data()
{
    QTest::addColumn<bool>("latinImages");  // an empty Latin screenshot folder
    QTest::newRow("empty Latin screenshot folder") << true;
    QTest::newRow("no Latin screenshot folder") << false;
}

// Where the Latin folder is missing the Chinese one is taken. The first log folder alone decides
// the spelling of all five; an empty Latin screenshot folder gives no screenshot package.
void TestHelp::chineseFolders()
{
    QFETCH(bool, latinImages);
    if (latinImages)
        QVERIFY(QDir().mkpath(home() + "/Documents/oneKeyHelpImage"));
    const Entries images{{"zh-shot.png", putRandom(QStringLiteral("文档/oneKeyHelpImage/zh-shot.png"), 5000)}};
    put("Documents/Oakdesk/log/hl-latin-1.log", "latin");
    put("Documents/dmp/hl-latin-2.dmp", "latin");
    put("Documents/DiskMapping/hl-latin-3.log", "latin");
    Entries logs;
    for (int i = 0; i < kLogFolders.size(); ++i) {
        const QString name = QStringLiteral("hl-zh-%1.log").arg(i);
        logs[name] = put(QStringLiteral("文档/") + kLogFolders[i] + '/' + name, "中文 " + name.toUtf8());
    }
    Bed bed(1, downloads());
    QVERIFY(bed.ask(1, QStringLiteral("shots")));
    const auto calls = bed.server->calls(kUpload);
    QCOMPARE(calls.size(), size_t(latinImages ? 1 : 2));
    if (!latinImages)
        QCOMPARE(uploadMismatch(calls.front(), 0, "ScreenShot", images), QString());
    QCOMPARE(uploadMismatch(calls.back(), 0, "ClientLog", logs), QString());
    QCOMPARE(bed.log.count(QStringLiteral("!!! directory path contains Chinese !"), QtDebugMsg), latinImages ? 1 : 2);
    QCOMPARE(bed.log.count(QStringLiteral("Directory is empty, do nothing. dir = "), QtInfoMsg), latinImages ? 1 : 0);
    QCOMPARE(bed.log.count(QStringLiteral("gateway upload package IMAGE file not exist."), QtInfoMsg), latinImages ? 1 : 0);
}

// Every entry is examined once, whatever stands before it: bad ones at both ends and between
// (letters stand for entries: m missing, u unreadable, r readable).
void TestHelp::everyBadEntryDropped()
{
    const QString entries = QStringLiteral("mumrrurmum");
    QStringList files, kept;
    for (int i = 0; i < entries.size(); ++i) {
        files << QStringLiteral("/logs/%1-%2.log").arg(entries[i]).arg(i);
        if (entries[i] == 'r')
            kept << files.last();
    }
    vditest::LogCapture log;
    QStringList list = files;
    VdiWorkerProbe::dropUnreadableFiles(list, [](const QString& path) { return !path.startsWith("/logs/m"); },
                                        [](const QString& path) { return !path.startsWith("/logs/u"); });
    QCOMPARE(list, kept);
    for (int i = 0; i < entries.size(); ++i) {
        const QString tail = entries[i] == 'm' ? QStringLiteral(" file NOT exist, remove from downloadlist!")
                                               : QStringLiteral(" file is NOT readable, remove from downloadlist!");
        QCOMPARE(log.count('"' + files[i] + "\" " + tail, QtWarningMsg), entries[i] == 'r' ? 0 : 1);
    }
}

void TestHelp::userNameQuoted_data()
{
    QTest::addColumn<QString>("name");  // @T@: the tree, @U@: the user of the tree
    // Two display users: one name with a line break.
    QTest::newRow("two users") << "@U@\nsecond";
    // Under the tree, as the folders of a package may be made there. Unquoted, or quoted without
    // care for its quote, the name runs a command of its own.
    QTest::newRow("command after the name") << "@U@/x;touch${IFS}@T@/pwned;#";
    QTest::newRow("quote after the x") << "@U@/x';touch${IFS}@T@/pwned;#";
}

void TestHelp::userNameQuoted()
{
    QFETCH(QString, name);
    name.replace("@T@", m_tree->path()).replace("@U@", userName());
    const QString pwned = m_tree->path() + QStringLiteral("/pwned");
    setUsers({name});  // two lines for two users
    QVERIFY(QDir().mkpath("/home/" + name));  // under the tree: a home of its own for each name
    Bed bed(1, downloads());
    QVERIFY(bed.ask(1, QStringLiteral("shots")));
    QCOMPARE(toolCalls("chown"), QList<QStringList>({chownArgs(name), chownArgs(name)}));
    QVERIFY(!QFile::exists(pwned));
}

void TestHelp::fieldMaps_data()
{
    using H = VdiDesktopGrpcHelper;
    using vditest::Check;
    QTest::addColumn<Check>("check");
    using R = tagOneKeyHelpInfoRequest;
    vditest::requestRow("request", &H::toOneKeyHelpReq,
                        vditest::FieldMap<R>{VDI_FIELD(R, userMac, "userMac"), VDI_FIELD(R, realName, "realName"),
                                             VDI_FIELD(R, phoneNumber, "phoneNumber"), VDI_FIELD(R, email, "email"),
                                             VDI_FIELD(R, problemType, "problemType"),
                                             VDI_FIELD(R, problemDesc, "problemDesc"), VDI_FIELD(R, getLog, "getLog"),
                                             VDI_FIELD(R, screenShotUrl, "screenShotUrl"), VDI_FIELD(R, ip, "ip"),
                                             VDI_FIELD(R, vmIp, "vmIp")});
    using Y = tagOneKeyHelpInfoReply;
    vditest::replyRow("reply", &H::fromOneKeyHelpResq, vditest::withError<Y>({VDI_FIELD(Y, taskId, "taskId")}));
}

VDI_TEST_MAIN(TestHelp)
#include "tst_help.moc"
