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
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QThread>

#include <quazip5/JlCompress.h>

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

// A worker connected to its own server; results are collected through a direct connection.
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
    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    QList<Answer> answers;
};

tagOneKeyHelpInfoRequest helpRequest(int getLog, const QString& screenShotUrl,
                                     const QString& ip = QStringLiteral("127.0.0.1"))
{
    return {"02:00:00:00:00:01", "张三", "13800000000", "zs@example.com", "黑屏", "desktop froze",
            getLog, screenShotUrl, ip, "10.1.1.9"};
}

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

QStringList uploadTypes(const vditest::TestServer& server)
{
    QStringList types;
    for (const auto& call : server->calls(kUpload))
        types << text(call.request<client::onekeyHelpUploadReq>(0).onekeyhelpuploadreqmeta().filetype());
    return types;
}

Entries zipEntries(const QByteArray& zip)
{
    QBuffer list, content;
    list.setData(zip);
    content.setData(zip);
    QTemporaryDir out;
    Entries entries;
    JlCompress::extractDir(&content, out.path());
    for (const QString& name : JlCompress::getFileList(&list)) {
        QFile file(out.filePath(name));
        entries[name] = name.endsWith('/') || !file.open(QIODevice::ReadOnly) ? QByteArray() : file.readAll();
    }
    return entries;
}

// Entries of our own tree only (and the named ones): the machine may add its syslog or logs.
Entries ours(Entries entries, const QStringList& also = {})
{
    for (auto it = entries.begin(); it != entries.end();)
        it = it.key().startsWith(QLatin1String("hl-")) || also.contains(it.key()) ? std::next(it) : entries.erase(it);
    return entries;
}

// One upload: the meta message first, then the zip in chunks of 64 KiB and a shorter last one.
// The name's time is checked when a window is given.
void readUpload(const vdifake::RecordedCall& call, qint64 taskId, const QString& prefix, const char* type,
                Entries& entries, const QDateTime& before = {}, const QDateTime& after = {})
{
    QVERIFY(call.requests.size() >= 2);
    const auto first = call.request<client::onekeyHelpUploadReq>(0);
    QVERIFY(first.has_onekeyhelpuploadreqmeta());
    QCOMPARE(first.onekeyhelpuploadreqmeta().taskid(), taskId);
    QCOMPARE(text(first.onekeyhelpuploadreqmeta().filetype()), QString::fromLatin1(type));
    const QString name = text(first.onekeyhelpuploadreqmeta().filename());
    const auto match = QRegularExpression('^' + prefix + "(\\d{8}_\\d{6})\\.zip$").match(name);
    QVERIFY2(match.hasMatch(), qPrintable(name));
    const QDateTime stamp = QDateTime::fromString(match.captured(1), QStringLiteral("yyyyMMdd_hhmmss"));
    QVERIFY2(!before.isValid() || (stamp >= before.addMSecs(-before.time().msec()) && stamp <= after), qPrintable(name));

    QByteArray zip;
    for (size_t i = 1; i < call.requests.size(); ++i) {
        const auto chunk = call.request<client::onekeyHelpUploadReq>(i);
        QCOMPARE(chunk.oneof_content_case(), client::onekeyHelpUploadReq::kContent);
        const int size = int(chunk.content().size());
        if (i + 1 < call.requests.size())
            QCOMPARE(size, kChunk);
        QVERIFY2(size > 0 && size <= kChunk, qPrintable(QString::number(size)));
        zip += QByteArray::fromStdString(chunk.content());
    }
    entries = zipEntries(zip);
}

// Every line of the request's own steps names the request; no line names a lambda. Returns how
// many lines of those steps there were.
int stepLinesNamingRequest(const vditest::LogCapture& log)
{
    static const QStringList steps{"ipList", "TcpSocket Connected, ip =", "ready to send meta data for image package.",
                                   "open image package file = ", "open log package file = ", "broken stream for upload file = ",
                                   "Succeed in sending file = ", "Failed to send file = ", "Succeed in deleting file = ",
                                   "stubUpload is null.", "upload package IMAGE file not exist.",
                                   "upload package LOG file not exist."};
    int named = 0;
    for (const auto& line : log.lines()) {
        if (line.second.contains(QLatin1String("operator()"))) {
            qWarning("a line names a lambda: %s", qPrintable(line.second));
            return -1;
        }
        for (const QString& step : steps) {
            if (!line.second.contains(step))
                continue;
            if (!line.second.startsWith(QLatin1String("[ sendUserAskHelpInfo ]"))) {
                qWarning("a step's line does not name the request: %s", qPrintable(line.second));
                return -1;
            }
            ++named;
        }
    }
    return named;
}

void compareEntries(const Entries& received, const Entries& expected)
{
    QCOMPARE(received.keys(), expected.keys());
    for (const QString& key : expected.keys())
        QVERIFY2(received.value(key) == expected.value(key), qPrintable(key));
}
} // namespace

class TestHelp : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();

    // The report.
    void reportOnTheWire_data();
    void reportOnTheWire();
    void noAddressText_data();
    void noAddressText();
    void facadeAnswersOnce();

    // The upload behind a gateway.
    void packagesOnTheWire();
    void packagesAsked_data();
    void packagesAsked();
    void uploadOutcomes_data();
    void uploadOutcomes();
    void userAskedOnce();
    void missingUploadStub();

    // Packaging of the user's tree.
    void chineseLogColumn();
    void imageFolderChoice_data();
    void imageFolderChoice();
    void versionFromFifthColumn();
    void everyBadEntryDropped_data();
    void everyBadEntryDropped();
    void homeWithoutDownloads();
    void userWithoutHome_data();
    void userWithoutHome();
    void userNameQuoted_data();
    void userNameQuoted();

private:
    QList<QStringList> toolCalls(const QString& tool) const { return m_fakes->calls(tool); }
    QString home() const { return m_tree->path() + QStringLiteral("/u"); }
    QString userName() const { return QStringLiteral("../..") + home(); }
    QString downloads() const { return home() + QStringLiteral("/Downloads"); }
    void setUsers(const QStringList& names) { qputenv(kUsersVariable, names.join('\n').toUtf8()); }
    QByteArray put(const QString& path, const QByteArray& content);
    QByteArray putRandom(const QString& path, int size);
    // A full Latin tree: screenshots with a subfolder; the five log folders, the first with a
    // symbolic link and a subfolder.
    void fillLatinTree(Entries& image, Entries& logs);

    std::unique_ptr<vditest::FakeTools> m_fakes;
    QScopedPointer<QTemporaryDir> m_tree;
    QString m_version3, m_version5;  // third and fifth column of the fake package list
    void fieldMaps_data();
    void fieldMaps() { VDI_RUN_CHECK(); }
};

void TestHelp::initTestCase()
{
    m_version3 = QStringLiteral("3.3.3-help%1").arg(::getpid());
    m_version5 = QStringLiteral("5.5.5-help%1").arg(::getpid());
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

void TestHelp::init()
{
    QVERIFY(m_fakes->ready());
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
    const QString full = home() + '/' + path;
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

void TestHelp::fillLatinTree(Entries& image, Entries& logs)
{
    image["shot-1.png"] = putRandom("Documents/oneKeyHelpImage/shot-1.png", 150000);
    image["sub/"] = QByteArray();
    image["sub/shot-2.png"] = putRandom("Documents/oneKeyHelpImage/sub/shot-2.png", 30000);
    for (int i = 0; i < kLogFolders.size(); ++i) {
        const QString name = QStringLiteral("hl-%1.log").arg(i);
        logs[name] = put("Documents/" + kLogFolders[i] + '/' + name, "log " + name.toUtf8());
    }
    put("Documents/Birchlink/log/sub/hl-nested.log", "nested");
    put("elsewhere/hl-target.log", "linked");
    if (!QFile::link(home() + "/elsewhere/hl-target.log", home() + "/Documents/Birchlink/log/hl-link.log"))
        qFatal("cannot make a symbolic link");
}

// ---- The report ----------------------------------------------------------------------------

void TestHelp::reportOnTheWire_data()
{
    QTest::addColumn<int>("serverType");
    QTest::addColumn<QString>("ip");
    QTest::addColumn<QString>("screenShotUrl");
    QTest::addColumn<QString>("sentIp");
    QTest::addColumn<QString>("sentUrl");
    const QString url = QStringLiteral("http://%1:9001/oneKeyHelpImageCollection");
    const QString shot = QStringLiteral("file:///secret-shot.png");
    QTest::newRow("no address") << 0 << ";;" << shot << "" << url.arg("");
    QTest::newRow("no screenshots") << 0 << "127.0.0.1" << "" << "127.0.0.1" << "";
    QTest::newRow("unbindable first") << 0 << "192.0.2.1;127.0.0.1" << shot << "127.0.0.1" << url.arg("127.0.0.1");
    QTest::newRow("first reaches") << 0 << ";127.0.0.2;;127.0.0.1" << shot << "127.0.0.2" << url.arg("127.0.0.2");
    QTest::newRow("none reaches") << 0 << "192.0.2.1;198.51.100.7" << shot << "198.51.100.7" << url.arg("198.51.100.7");
    QTest::newRow("server type 2") << 2 << "192.0.2.1;127.0.0.1" << shot << "127.0.0.1" << url.arg("127.0.0.1");
    QTest::newRow("gateway, no probe") << 1 << "192.0.2.1;127.0.0.1" << shot << "192.0.2.1" << url.arg("192.0.2.1");
}

void TestHelp::reportOnTheWire()
{
    QFETCH(int, serverType);
    QFETCH(QString, ip);
    QFETCH(QString, screenShotUrl);
    QFETCH(QString, sentIp);
    QFETCH(QString, sentUrl);
    Bed bed(serverType, downloads());  // behind the gateway the tree has no screenshots to send
    bed.server->setReply(kHelp, helpReply(5));

    const tagOneKeyHelpInfoRequest asked = helpRequest(0, screenShotUrl, ip);
    vditest::LogCapture log;
    bed.worker.sendUserAskHelpInfo(asked);
    // The address list, the probe's success where a probe found one, and behind the gateway the
    // missing screenshot package.
    const bool probed = serverType != 1 && sentIp.startsWith(QLatin1String("127."));
    QCOMPARE(stepLinesNamingRequest(log), 1 + (probed ? 1 : 0) + (serverType == 1 ? 1 : 0));
    QCOMPARE(bed.answers.size(), 1);
    QVERIFY(bed.answers[0].flag);
    QCOMPARE(bed.answers[0].reply.taskId, qint64(5));
    QCOMPARE(bed.server->callCount(kHelp), 1);
    const vdifake::RecordedCall call = bed.server->calls(kHelp).at(0);
    const auto sent = call.request<client::OnekeyHelpReq>();
    QCOMPARE(text(sent.ip()), sentIp);
    QCOMPARE(text(sent.screenshoturl()), sentUrl);
    QCOMPARE(sent.usegateway(), serverType);
    const QStringList words{asked.userMac, asked.realName, asked.phoneNumber, asked.email, asked.problemType,
                            asked.problemDesc, asked.vmIp};
    QCOMPARE(QStringList({text(sent.usermac()), text(sent.realname()), text(sent.phonenumber()), text(sent.email()),
                          text(sent.problemtype()), text(sent.problemdesc()), text(sent.vmip())}),
             words);
    QVERIFY(call.requests.at(0).find("secret-shot") == std::string::npos);
    QCOMPARE(call.deadlineSeconds, -1.0);
    QCOMPARE(call.metadata.count("gatewayaccesstoken"), size_t(0));
    QCOMPARE(call.metadata.count("client-language"), size_t(0));
}

void TestHelp::noAddressText_data()
{
    QTest::addColumn<QString>("ip");
    QTest::addColumn<bool>("stopped");
    QTest::addColumn<bool>("callFails");
    QTest::addColumn<QString>("serverText");
    QTest::addColumn<QString>("errorMsgZh");
    QTest::newRow("the server's text") << ";;" << false << false << "服务端说明" << "服务端说明";
    QTest::newRow("an empty answer clears it") << ";;" << false << false << "" << "";
    QTest::newRow("a failed call") << ";;" << false << true << "" << "服务器连接失败，请检查网络等相关配置或联系管理员。";
    // Stopping, the failure fills nothing: what was there before the call stays.
    QTest::newRow("stopped, no address") << ";;" << true << true << "" << "请检查网络等相关配置或联系管理员";
    QTest::newRow("stopped, an address") << "127.0.0.1" << true << true << "" << "";
}

void TestHelp::noAddressText()
{
    QFETCH(QString, ip);
    QFETCH(bool, stopped);
    QFETCH(bool, callFails);
    QFETCH(QString, serverText);
    QFETCH(QString, errorMsgZh);
    QThread thread;
    Bed bed(0, downloads());
    bed.server->setReply(kHelp, helpReply(6, 0, serverText.toStdString()));
    if (callFails)
        bed.server->setStatus(kHelp, grpc::StatusCode::UNAVAILABLE);
    if (stopped) {
        // The worker is asked to stop while the server answers.
        bed.server->setResponder(kHelp, [&thread](const vdifake::RecordedCall&, vdifake::Script*) {
            thread.requestInterruption();
            return false;
        });
        bed.worker.moveToThread(&thread);
        thread.start();
    }
    QMetaObject::invokeMethod(
        &bed.worker,
        [&] {
            bed.worker.sendUserAskHelpInfo(helpRequest(0, QString(), ip));
            bed.worker.moveToThread(QCoreApplication::instance()->thread());
        },
        stopped ? Qt::BlockingQueuedConnection : Qt::DirectConnection);
    thread.quit();
    QVERIFY(thread.wait(5000));
    QCOMPARE(bed.answers.size(), 1);
    QCOMPARE(bed.answers[0].flag, !callFails);
    QCOMPARE(bed.answers[0].reply.error.errorMsgZh, errorMsgZh);
    QCOMPARE(bed.server->callCount(kHelp), 1);
}

void TestHelp::facadeAnswersOnce()
{
    vditest::TestServer server;
    server->setReply(kHelp, helpReply(9090));
    VdiDesktopGrpcThread facade;
    server.connect(facade);
    tagBaseInfo cached;
    cached.mac = QStringLiteral("02:00:00:00:00:99");
    cached.ip = QStringLiteral("10.9.9.9");
    VdiThreadProbe(facade).setBaseInfo(cached);
    QSignalSpy spy(&facade, &VdiDesktopGrpcThread::SendUserAskHelpInfoResult);

    facade.sendUserAskInfo(QString(), QStringLiteral("张三"), QStringLiteral("138"), QStringLiteral("e@x"),
                           QStringLiteral("黑屏"), QStringLiteral("froze"), 0, QString(), QStringLiteral("127.0.0.1"),
                           QStringLiteral("10.1.1.9"));
    QVERIFY(spy.wait(5000));
    QVERIFY(!spy.wait(300));
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(0).value<OneKeyHelpInfoReply>().taskId, qint64(9090));
    QCOMPARE(spy.at(0).at(1).toBool(), true);
    QCOMPARE(server->callCount(kHelp), 1);
    const auto sent = server->calls(kHelp).at(0).request<client::OnekeyHelpReq>();
    QCOMPARE(sent.usermac(), std::string());  // nothing of the cached identity
    QCOMPARE(text(sent.realname()), QStringLiteral("张三"));
    QCOMPARE(sent.ip(), std::string("127.0.0.1"));
    facade.stop();
}

// ---- The upload behind a gateway -------------------------------------------------------------

void TestHelp::packagesOnTheWire()
{
    Entries image, logs;
    fillLatinTree(image, logs);
    Bed bed(1, downloads());
    bed.server->setReply(kHelp, helpReply(4242));
    vditest::LogCapture log;

    const QDateTime before = QDateTime::currentDateTime();
    bed.worker.sendUserAskHelpInfo(helpRequest(1, QStringLiteral("shots")));
    const QDateTime after = QDateTime::currentDateTime();
    QCOMPARE(bed.answers.size(), 1);
    QVERIFY(bed.answers[0].flag);
    QCOMPARE(bed.answers[0].reply.taskId, qint64(4242));
    QCOMPARE(bed.answers[0].uploads, 2);  // the result comes after both uploads and deletions
    QCOMPARE(bed.answers[0].downloads, QStringList());

    const auto calls = bed.server->calls(kUpload);
    QCOMPARE(calls.size(), size_t(2));
    Entries received;
    readUpload(calls[0], 4242, "ClientImage_", "ScreenShot", received, before, after);
    QVERIFY(!QTest::currentTestFailed());
    QVERIFY(calls[0].requests.size() >= 4);  // three chunks at least
    compareEntries(received, image);         // the subfolder included
    readUpload(calls[1], 4242, "Client_", "ClientLog", received, before, after);
    QVERIFY(!QTest::currentTestFailed());
    compareEntries(ours(received), logs);  // no symbolic link, no subfolder
    for (const auto& call : calls) {
        QCOMPARE(call.deadlineSeconds, -1.0);
        QCOMPARE(call.metadata.count("gatewayaccesstoken"), size_t(0));
        QCOMPARE(call.metadata.count("client-language"), size_t(0));
    }
    QCOMPARE(filesIn(downloads()), QStringList());
    // The address, both opens, the meta line, both sendings and both deletions.
    QCOMPARE(stepLinesNamingRequest(log), 8);
}

void TestHelp::packagesAsked_data()
{
    QTest::addColumn<int>("serverType");
    QTest::addColumn<int>("getLog");
    QTest::addColumn<QString>("screenShotUrl");
    QTest::addColumn<QStringList>("types");
    const QStringList none, logs{"ClientLog"}, shots{"ScreenShot"};
    QTest::newRow("getLog 0") << 1 << 0 << "" << none;
    QTest::newRow("getLog 1") << 1 << 1 << "" << logs;
    QTest::newRow("getLog 2") << 1 << 2 << "" << none;
    QTest::newRow("getLog 3") << 1 << 3 << "" << logs;
    QTest::newRow("getLog 5") << 1 << 5 << "" << none;
    QTest::newRow("screenshots") << 1 << 0 << "x" << shots;
    QTest::newRow("screenshots, getLog 3") << 1 << 3 << "x" << (shots + logs);
    QTest::newRow("direct") << 0 << 3 << "x" << none;
    QTest::newRow("server type 2") << 2 << 1 << "x" << none;
}

void TestHelp::packagesAsked()
{
    QFETCH(int, serverType);
    QFETCH(int, getLog);
    QFETCH(QString, screenShotUrl);
    QFETCH(QStringList, types);
    Entries image, logs;
    fillLatinTree(image, logs);
    Bed bed(serverType, downloads());
    bed.server->setReply(kHelp, helpReply(7));

    bed.worker.sendUserAskHelpInfo(helpRequest(getLog, screenShotUrl));
    QCOMPARE(bed.answers.size(), 1);
    QVERIFY(bed.answers[0].flag);
    QCOMPARE(bed.server->calls(kHelp).at(0).request<client::OnekeyHelpReq>().getlog(), getLog);
    QCOMPARE(uploadTypes(bed.server), types);
    // Nobody is looked for and no tool runs when nothing is to be packaged.
    QCOMPARE(toolCalls("w").size(), types.isEmpty() ? 0 : 1);
    for (const char* tool : {"w", "sudo", "dpkg", "chown"})
        QVERIFY2(!types.isEmpty() || toolCalls(tool).isEmpty(), qPrintable(tool));
    QCOMPARE(filesIn(downloads()), QStringList());
}

void TestHelp::uploadOutcomes_data()
{
    QTest::addColumn<bool>("reportFails");
    QTest::addColumn<int>("serverCode");
    QTest::addColumn<int>("failedUploads");
    QTest::addColumn<bool>("flag");
    QTest::addColumn<qint64>("taskId");
    QTest::newRow("accepted") << false << 0 << 0 << true << qint64(31);
    QTest::newRow("report refused") << false << 7 << 0 << false << qint64(32);
    QTest::newRow("report failed") << true << 0 << 0 << false << qint64(0);
    QTest::newRow("uploads fail") << false << 0 << 2 << true << qint64(34);
    QTest::newRow("first upload fails") << false << 0 << 1 << true << qint64(35);
}

void TestHelp::uploadOutcomes()
{
    QFETCH(bool, reportFails);
    QFETCH(int, serverCode);
    QFETCH(int, failedUploads);
    QFETCH(bool, flag);
    QFETCH(qint64, taskId);
    Entries image, logs;
    fillLatinTree(image, logs);
    Bed bed(1, downloads());
    bed.server->setReply(kHelp, helpReply(reportFails ? 99 : taskId, serverCode));
    if (reportFails)
        bed.server->setStatus(kHelp, grpc::StatusCode::UNAVAILABLE);
    if (failedUploads == 2)
        bed.server->setStatus(kUpload, grpc::StatusCode::INTERNAL);
    if (failedUploads == 1)
        bed.server->queueScript(kUpload, vdifake::Script{grpc::StatusCode::INTERNAL, "disk full", {}, 0});
    vditest::LogCapture log;

    bed.worker.sendUserAskHelpInfo(helpRequest(1, QStringLiteral("shots")));
    QCOMPARE(bed.answers.size(), 1);
    QCOMPARE(bed.answers[0].flag, flag);
    QCOMPARE(bed.answers[0].reply.taskId, taskId);
    QCOMPARE(bed.answers[0].reply.error.errorCode, reportFails ? 14 : serverCode);
    QCOMPARE(bed.answers[0].uploads, 2);
    QCOMPARE(uploadTypes(bed.server), QStringList({"ScreenShot", "ClientLog"}));
    for (const auto& call : bed.server->calls(kUpload))
        QCOMPARE(call.request<client::onekeyHelpUploadReq>(0).onekeyhelpuploadreqmeta().taskid(), taskId);
    QCOMPARE(log.count(QStringLiteral("Failed to send file = ")), failedUploads);
    QCOMPARE(log.count(QStringLiteral("Failed to send file = "), QtCriticalMsg), failedUploads > 0 ? 1 : 0);
    QCOMPARE(log.count(QStringLiteral("Succeed in deleting file = ")), 2);
    QCOMPARE(filesIn(downloads()), QStringList());
    QVERIFY(stepLinesNamingRequest(log) >= 8);
}

void TestHelp::userAskedOnce()
{
    Entries image, logs;
    fillLatinTree(image, logs);
    Bed bed(1, downloads());
    bed.worker.sendUserAskHelpInfo(helpRequest(1, QString()));
    bed.worker.sendUserAskHelpInfo(helpRequest(1, QString()));
    QCOMPARE(bed.answers.size(), 2);
    QCOMPARE(uploadTypes(bed.server), QStringList({"ClientLog", "ClientLog"}));
    QCOMPARE(toolCalls("w").size(), 1);
    QCOMPARE(toolCalls("chown").size(), 2);  // the Downloads folder is handed over each time
}

void TestHelp::missingUploadStub()
{
    Entries image, logs;
    fillLatinTree(image, logs);
    Bed bed(0, downloads());  // connected outside a gateway: no upload stub
    bed.worker.initServerType(1);
    QVERIFY(!VdiWorkerProbe(bed.worker).stubUpload());
    bed.server->setReply(kHelp, helpReply(9));
    vditest::LogCapture log;

    bed.worker.sendUserAskHelpInfo(helpRequest(1, QStringLiteral("shots")));
    QCOMPARE(bed.answers.size(), 1);
    QVERIFY(bed.answers[0].flag);
    QCOMPARE(bed.answers[0].reply.taskId, qint64(9));
    QCOMPARE(log.count(QStringLiteral(" stubUpload is null."), QtCriticalMsg), 2);
    QVERIFY(toolCalls("chown").isEmpty() && !log.contains(QStringLiteral("Yes, all in.")));
    QCOMPARE(bed.server->callCount(kHelp), 1);
    QCOMPARE(bed.server->callCount(kUpload), 0);
    QCOMPARE(filesIn(downloads()), QStringList());  // no zip made
}

// ---- Packaging of the user's tree ------------------------------------------------------------

void TestHelp::chineseLogColumn()
{
    // Latin folders, but not the first one.
    put("Documents/Oakdesk/log/hl-latin-1.log", "latin");
    put("Documents/dmp/hl-latin-2.dmp", "latin");
    put("Documents/DiskMapping/hl-latin-3.log", "latin");
    Entries expected;
    for (int i = 0; i < kLogFolders.size(); ++i) {
        const QString name = QStringLiteral("hl-zh-%1.log").arg(i);
        expected[name] = put(QStringLiteral("文档/") + kLogFolders[i] + '/' + name, "中文 " + name.toUtf8());
    }
    Bed bed(1, downloads());
    vditest::LogCapture log;

    bed.worker.sendUserAskHelpInfo(helpRequest(1, QString()));
    QCOMPARE(bed.server->callCount(kUpload), 1);
    Entries received;
    readUpload(bed.server->calls(kUpload).at(0), 0, "Client_", "ClientLog", received);
    QVERIFY(!QTest::currentTestFailed());
    compareEntries(ours(received), expected);
    QVERIFY(log.contains(QStringLiteral("!!! directory path contains Chinese !"), QtDebugMsg));
}

void TestHelp::imageFolderChoice_data()
{
    QTest::addColumn<bool>("latinFolder");
    QTest::newRow("empty Latin folder") << true;
    QTest::newRow("no Latin folder") << false;
}

void TestHelp::imageFolderChoice()
{
    QFETCH(bool, latinFolder);
    if (latinFolder)
        QVERIFY(QDir().mkpath(home() + "/Documents/oneKeyHelpImage"));
    const Entries chinese{{"zh-shot.png", putRandom(QStringLiteral("文档/oneKeyHelpImage/zh-shot.png"), 5000)}};
    Bed bed(1, downloads());
    vditest::LogCapture log;

    bed.worker.sendUserAskHelpInfo(helpRequest(0, QStringLiteral("shots")));
    QCOMPARE(bed.answers.size(), 1);
    QCOMPARE(bed.server->callCount(kUpload), latinFolder ? 0 : 1);
    QCOMPARE(log.count(QStringLiteral("Directory is empty, do nothing. dir = "), QtInfoMsg), latinFolder ? 1 : 0);
    QCOMPARE(log.count(QStringLiteral("gateway upload package IMAGE file not exist."), QtInfoMsg), latinFolder ? 1 : 0);
    if (!latinFolder) {
        Entries received;
        readUpload(bed.server->calls(kUpload).at(0), 0, "ClientImage_", "ScreenShot", received);
        QVERIFY(!QTest::currentTestFailed());
        compareEntries(received, chinese);
    }
    QCOMPARE(filesIn(downloads()), QStringList());
}

// The program files are looked for beside the test binary, under the version of the package list;
// each column gets copies of its own, with different content.
void TestHelp::versionFromFifthColumn()
{
    const QString programs = QCoreApplication::applicationDirPath() + QStringLiteral("/../Oakdesk/");
    struct Cleanup {
        QString root;
        QStringList versions;
        ~Cleanup()
        {
            for (const QString& version : versions)
                QDir(root + version).removeRecursively();
            QDir().rmdir(root);  // only if nothing else is there
        }
    } cleanup{programs, {m_version3, m_version5}};
    Entries expected{{"hl-0.log", put("Documents/Birchlink/log/hl-0.log", "log")}};
    for (const QString file : {"Birchlink", "libspice-client-glib-2.0.so.8.6.0"}) {
        for (const QString& version : {m_version3, m_version5}) {
            if (!QDir().mkpath(programs + version))
                QSKIP("the folder beside the test binary is read-only");
            QFile out(programs + version + '/' + file);
            QVERIFY(out.open(QIODevice::WriteOnly) && out.write((version + ':' + file).toUtf8()) > 0);
        }
        expected[file] = (m_version5 + ':' + file).toUtf8();
    }
    Bed bed(1, downloads());
    vditest::LogCapture log;

    bed.worker.sendUserAskHelpInfo(helpRequest(1, QString()));
    const QString user = userName();
    QCOMPARE(toolCalls("sudo"), QList<QStringList>({{"chown", "-R", user + ':' + user, "/home/" + user + "/Downloads"},
                                                    {"dpkg", "-l", kVersionArgs}}));
    QCOMPARE(toolCalls("dpkg"), QList<QStringList>({{"-l", kVersionArgs}}));
    QCOMPARE(log.count(QStringLiteral("Current oakdesk version = ") + " \"" + m_version5 + '"', QtDebugMsg), 1);
    QCOMPARE(bed.server->callCount(kUpload), 1);
    Entries received;
    readUpload(bed.server->calls(kUpload).at(0), 0, "Client_", "ClientLog", received);
    QVERIFY(!QTest::currentTestFailed());
    compareEntries(ours(received, expected.keys()), expected);
}

void TestHelp::everyBadEntryDropped_data()
{
    // Letters stand for entries: m missing, u unreadable, r readable.
    QTest::addColumn<QString>("entries");
    QTest::newRow("all readable") << "rrr";
    QTest::newRow("two bad at the front") << "mmrr";
    QTest::newRow("two bad at the back") << "rrum";
    QTest::newRow("bad at both ends") << "umrrmu";
    QTest::newRow("alternating") << "mrurmr";
    QTest::newRow("all bad") << "mumu";
}

// The tests run as root, who reads everything: unreadable entries are named by the test.
void TestHelp::everyBadEntryDropped()
{
    QFETCH(QString, entries);
    QStringList files, kept, unreadable;
    for (int i = 0; i < entries.size(); ++i) {
        const QString path = home() + QStringLiteral("/hl-%1-%2.log").arg(i).arg(entries[i]);
        files << path;
        if (entries[i] != 'm')
            put(QFileInfo(path).fileName(), "entry");
        if (entries[i] == 'u')
            unreadable << path;
        if (entries[i] == 'r')
            kept << path;
    }
    vditest::LogCapture log;
    QStringList list = files;
    VdiWorkerProbe::dropUnreadableFiles(list, [](const QString& path) { return QFileInfo::exists(path); },
                                        [&](const QString& path) { return !unreadable.contains(path); });
    QCOMPARE(list, kept);
    for (int i = 0; i < entries.size(); ++i) {
        const QString tail = entries[i] == 'm' ? QStringLiteral(" file NOT exist, remove from downloadlist!")
                                               : QStringLiteral(" file is NOT readable, remove from downloadlist!");
        QCOMPARE(log.count('"' + files[i] + "\" " + tail, QtWarningMsg), entries[i] == 'r' ? 0 : 1);
    }
    // What is left makes a package.
    if (!kept.isEmpty())
        QVERIFY(JlCompress::compressFiles(m_tree->filePath("package.zip"), list));
}

// A home that never had a Downloads folder: it is made, handed to the user, and left without
// zips once both packages are uploaded.
void TestHelp::homeWithoutDownloads()
{
    QVERIFY(QDir(downloads()).removeRecursively());
    Entries image, logs;
    fillLatinTree(image, logs);
    Bed bed(1, downloads());
    vditest::LogCapture log;

    bed.worker.sendUserAskHelpInfo(helpRequest(1, QStringLiteral("shots")));
    QCOMPARE(bed.answers.size(), 1);
    QCOMPARE(uploadTypes(bed.server), QStringList({"ScreenShot", "ClientLog"}));
    Entries received;
    readUpload(bed.server->calls(kUpload).at(0), 0, "ClientImage_", "ScreenShot", received);
    QVERIFY(!QTest::currentTestFailed());
    compareEntries(received, image);
    QVERIFY(QFileInfo(downloads()).isDir());
    QCOMPARE(filesIn(downloads()), QStringList());
    const QString user = userName();
    const QStringList chown{"-R", user + ':' + user, "/home/" + user + "/Downloads"};
    QCOMPARE(toolCalls("chown"), QList<QStringList>({chown, chown}));
    QVERIFY(!log.contains(QStringLiteral("Directory is empty")));
}

void TestHelp::userWithoutHome_data()
{
    QTest::addColumn<bool>("named");
    QTest::newRow("a user whose home does not exist") << true;
    QTest::newRow("no display user") << false;
}

// A user without a home, or none at all, gets no package, no folder and no chown; the log says why.
void TestHelp::userWithoutHome()
{
    QFETCH(bool, named);
    const QString nobody = m_tree->path() + QStringLiteral("/nobody");
    setUsers(named ? QStringList{QStringLiteral("../..") + nobody} : QStringList());
    const bool homeDownloads = QFileInfo::exists(QStringLiteral("/home/Downloads"));
    Bed bed(1, downloads());
    vditest::LogCapture log;

    bed.worker.sendUserAskHelpInfo(helpRequest(1, QStringLiteral("shots")));
    QCOMPARE(bed.answers.size(), 1);
    QCOMPARE(toolCalls("w").size(), 1);
    QVERIFY(toolCalls("chown").isEmpty());
    QVERIFY2(!QFileInfo::exists(nobody), qPrintable(nobody));
    QCOMPARE(QFileInfo::exists(QStringLiteral("/home/Downloads")), homeDownloads);
    QCOMPARE(bed.server->callCount(kUpload), 0);
    QCOMPARE(log.count(QStringLiteral("The login user has no home folder, nothing is packaged."), QtInfoMsg), 2);
    QCOMPARE(log.count(QStringLiteral("gateway upload package IMAGE file not exist."), QtInfoMsg), 1);
    QCOMPARE(log.count(QStringLiteral("gateway upload package LOG file not exist."), QtDebugMsg), 1);
    QVERIFY(!log.contains(QStringLiteral("Directory is empty")));
    QVERIFY(!log.contains(QStringLiteral("Yes, all in.")));
}

void TestHelp::userNameQuoted_data()
{
    QTest::addColumn<QString>("name");        // @T@: the tree, @U@: the user of the tree
    QTest::addColumn<QString>("unsafeForm");  // a command that the name turns into two
    QTest::newRow("ordinary") << "@U@" << "";
    // Two display users: one name with a line break.
    QTest::newRow("two users") << "@U@\nsecond" << "";
    // Under the tree, as the folders of a package may be made there.
    QTest::newRow("command after the name") << "@U@/x;touch${IFS}@T@/pwned;#" << "sudo chown -R %1:%1 /home/%1/Downloads";
    QTest::newRow("quote after the x") << "@U@/x';touch${IFS}@T@/pwned;#" << "sudo chown -R '%1:%1' '/home/%1/Downloads'";
}

void TestHelp::userNameQuoted()
{
    QFETCH(QString, name);
    QFETCH(QString, unsafeForm);
    name.replace("@T@", m_tree->path()).replace("@U@", userName());
    const QString pwned = m_tree->path() + QStringLiteral("/pwned");
    if (!unsafeForm.isEmpty()) {
        // The name is live: written into the command as it stands, it runs a command of its own.
        QProcess sh;
        sh.start("sh", {"-c", unsafeForm.arg(name)});
        QVERIFY(sh.waitForFinished(5000));
        QVERIFY(QFile::remove(pwned));
        m_fakes->clearCalls();
    }
    setUsers({name});  // two lines for two users
    QVERIFY(QDir().mkpath("/home/" + name));  // under the tree: a home of its own for each name
    Bed bed(1, downloads());

    bed.worker.sendUserAskHelpInfo(helpRequest(1, QStringLiteral("shots")));
    QCOMPARE(bed.answers.size(), 1);
    const QStringList args{"-R", name + ':' + name, "/home/" + name + "/Downloads"};
    QCOMPARE(toolCalls("chown"), QList<QStringList>({args, args}));
    QCOMPARE(toolCalls("w").size(), 1);
    QVERIFY(!QFile::exists(pwned));
}

void TestHelp::fieldMaps_data()
{
    using H = VdiDesktopGrpcHelper;
    using vditest::Check;
    QTest::addColumn<Check>("check");
    QTest::newRow("request") << Check([] {
        using R = tagOneKeyHelpInfoRequest;
        return vditest::requestMismatches(
            &H::toOneKeyHelpReq,
            vditest::FieldMap<R>{VDI_FIELD(R, userMac, "userMac"), VDI_FIELD(R, realName, "realName"),
                                 VDI_FIELD(R, phoneNumber, "phoneNumber"), VDI_FIELD(R, email, "email"),
                                 VDI_FIELD(R, problemType, "problemType"), VDI_FIELD(R, problemDesc, "problemDesc"),
                                 VDI_FIELD(R, getLog, "getLog"), VDI_FIELD(R, screenShotUrl, "screenShotUrl"),
                                 VDI_FIELD(R, ip, "ip"), VDI_FIELD(R, vmIp, "vmIp")});
    });
    QTest::newRow("reply") << Check([] {
        using R = tagOneKeyHelpInfoReply;
        return vditest::replyMismatches(&H::fromOneKeyHelpResq, vditest::withError<R>({VDI_FIELD(R, taskId, "taskId")}));
    });
}

VDI_TEST_MAIN(TestHelp)
#include "tst_help.moc"
