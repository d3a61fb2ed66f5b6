// vdi-simulator: a fake virtual-desktop controller / access gateway on 127.0.0.1 for
// developing applications against libvdidesktopgrpc without a real deployment.
//
// On start it prints, on stdout, one per line:
//   port <number>
//   pem <path of the server certificate to trust>
//   common-name <name to use as the TLS target name>
//   ready
// then, on stderr, how to connect to it, and logs every call it serves, until SIGINT or
// SIGTERM (or, with --until-stdin-closes, until its standard input closes). With --record
// FILE it writes every call it received, secrets redacted, to FILE at exit and on SIGUSR1.
//
// What it plays is a scenario (tools/simulator/scenarios/README.md): the built-in one, or a
// file given with --scenario whose method blocks replace standing answers and whose
// deployment block replaces the deployment, faults included.
//
// Besides the standing answers of its mode (among them the login options, an upgrade offer,
// the branding and the file-sharing and mail servers) it plays a small deployment
// (deployment.h): users who log in, directly or through LDAP, and get their desktop pools;
// password checks and changes, and QR login codes; desktops that start, stop, reboot, take
// snapshots, get renamed and are handed out with their connection data; device registration
// and status reports; a remote and a SaaS application catalogue, with a permission per user
// for the SaaS applications; two share terminals that desktops are handed to and users log in
// on, each such call logged with its details (never the password); and, in gateway mode, an
// access gateway that issues tokens and wants one on the controller's calls.

#include "callrecord.h"
#include "deployment.h"
#include "fakeserver.h"
#include "scenario.h"
#include "scenarioserver.h"

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QSslCertificate>
#include <QStringList>
#include <QTemporaryDir>

#include "deployment.pb.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <map>
#include <memory>
#include <thread>
#include <utility>

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

void printLine(const QString& line)
{
    std::fputs(line.toLocal8Bit().constData(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void logLine(const QString& line)
{
    // One write per line, so that lines from the server's threads do not interleave.
    const QByteArray bytes = (QStringLiteral("vdi-simulator: ") + line + QLatin1Char('\n')).toLocal8Bit();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stderr);
    std::fflush(stderr);
}

void logCall(const vdifake::RecordedCall& call)
{
    QString line = QStringLiteral("%1 %2").arg(QString::fromStdString(call.method),
                                               vdifake::statusCodeName(call.status));
    if (!call.statusMessage.empty())
        line += QStringLiteral(" (%1)").arg(QString::fromStdString(call.statusMessage));
    if (call.cancelled)
        line += QStringLiteral(" [cancelled by the client]");
    if (call.requests.size() != 1)
        line += QStringLiteral(" [%1 request messages]").arg(call.requests.size());
    logLine(line);
}

QString outcomeOf(int errorCode)
{
    return errorCode == 0 ? QStringLiteral("done") : QStringLiteral("refused with error %1").arg(errorCode);
}

// The details of the share terminal calls, logged as the deployment records them, before the
// call's own line.
void logTransfer(const vdifake::SimulatedDeployment::ShareTerminalTransfer& transfer)
{
    logLine(QStringLiteral("/client.ClientCore/transferDesktopToShareTerminal: desktop %1 from %2 to the share "
                           "terminal %3, %4 bytes of vdp file; %5")
                .arg(transfer.vmUuid, transfer.fromDevice, transfer.toDevice)
                .arg(transfer.vdpFileBytes)
                .arg(outcomeOf(transfer.errorCode)));
}

void logShareLogin(const vdifake::SimulatedDeployment::ShareTerminalLogin& login)
{
    logLine(QStringLiteral("/client.ClientCore/LoginOakdeskOnShareTerminal: user \"%1\" on the share terminal %2; %3")
                .arg(login.userName, login.device, outcomeOf(login.errorCode)));
}

void logHelpReport(const vdifake::SimulatedDeployment::HelpReport& report)
{
    logLine(QStringLiteral("/client.ClientCore/onekeyHelp: \"%1\" reports \"%2\" from %3 (logs wanted: %4, "
                           "screenshots at: %5, useGateway %6); task %7")
                .arg(report.realName, report.problemType, report.ip.isEmpty() ? QStringLiteral("no address") : report.ip)
                .arg(report.getLog)
                .arg(report.screenShotUrl.isEmpty() ? QStringLiteral("none") : report.screenShotUrl)
                .arg(report.useGateway)
                .arg(report.taskId));
}

void logHelpUpload(const vdifake::SimulatedDeployment::HelpUpload& upload)
{
    const QStringList lines = vdifake::describeHelpUpload(upload);
    logLine(QStringLiteral("/client.ClientCore/onekeyHelpUseGateway: ") + lines.first());
    for (int i = 1; i < lines.size(); ++i)
        logLine(QStringLiteral("    ") + lines.at(i));
}

// "NAME:PASSWORD" (the password may hold ':' itself) -> the pair; false without a name.
bool parseUser(const QString& text, QString* name, QString* password)
{
    const int colon = text.indexOf(QLatin1Char(':'));
    if (colon <= 0)
        return false;
    *name = text.left(colon);
    *password = text.mid(colon + 1);
    return true;
}

QString describeUsers(const std::map<QString, QString>& users)
{
    QStringList list;
    for (const auto& user : users)
        list << QStringLiteral("%1 (password \"%2\")").arg(user.first, user.second);
    return list.isEmpty() ? QStringLiteral("none") : list.join(QStringLiteral(", "));
}

// How to reach the simulator, for people: the settings of an application, and vdi-client
// command lines that check the road and log a user in.
void logConnectionHint(const vdifake::ScenarioServer& played, const QString& mode, const QString& someUser)
{
    const bool gateway = mode == QLatin1String("gateway");
    logLine(QStringLiteral("connect with: address 127.0.0.1, port %1, server type %2 (%3), certificate (pem) %4, "
                           "TLS target name override \"%5\"")
                .arg(played.port())
                .arg(gateway ? 1 : 0)
                .arg(gateway ? QStringLiteral("access gateway") : QStringLiteral("controller"))
                .arg(played.pemPath(), played.commonName()));
    logLine(QStringLiteral("  in an application: grpc.initServerType(%1); grpc.initConnection(\"%2\", \"127.0.0.1\", %3, "
                           "false); the library takes the target name from the pem's subject")
                .arg(gateway ? 1 : 0)
                .arg(played.pemPath())
                .arg(played.port()));
    const QString client = QStringLiteral("vdi-client --server 127.0.0.1 --port %1 --pem %2")
                               .arg(played.port())
                               .arg(played.pemPath());
    logLine(QStringLiteral("  from a shell: %1 discover").arg(client));
    if (!someUser.isEmpty())
        logLine(QStringLiteral("  from a shell: %1 --user %2 login").arg(client, someUser));
}

void logFaults(const vdifake::SimulatedDeployment& deployment)
{
    const auto& description = deployment.description();
    for (const auto& fault : description.fault()) {
        QStringList what;
        if (!fault.status().empty())
            what << QStringLiteral("status %1").arg(QString::fromStdString(fault.status()));
        if (fault.delay_ms() > 0)
            what << QStringLiteral("delay %1 ms").arg(fault.delay_ms());
        if (fault.error_code() != 0)
            what << QStringLiteral("error %1 in the reply").arg(fault.error_code());
        if (fault.fail_next() > 0)
            what << QStringLiteral("on the next %1 call(s) only").arg(fault.fail_next());
        if (fault.down_after_calls() > 0)
            what << QStringLiteral("down for %1 ms after %2 call(s)%3")
                        .arg(fault.down_for_ms())
                        .arg(fault.down_after_calls())
                        .arg(fault.down_repeat() ? QStringLiteral(", again and again") : QString());
        logLine(QStringLiteral("fault of %1: %2")
                    .arg(fault.method().empty() ? QStringLiteral("every method") : QString::fromStdString(fault.method()),
                         what.join(QStringLiteral(", "))));
    }
}

// Whether 127.0.0.1:port is free. gRPC serves with SO_REUSEPORT and would share a port that
// another simulator serves on: a socket without it finds out first. Connections of an earlier
// run still in TIME_WAIT do not count (SO_REUSEADDR).
bool portFree(int port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0)
        return true;  // gRPC's own bind decides
    const int on = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool free = ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    return free;
}

// The certificate of --certdir: the one an earlier start left there while it is valid for an
// hour more and has the common name of `server` (or any); else a new one is made there.
// Returns what was done, for the log.
QString keepCertificate(const QString& dir, bool anyName, vdifake::FakeServer::Options* server)
{
    const QDir folder(dir);
    server->certDir = folder.absolutePath();
    const QString certPath = folder.absoluteFilePath(QStringLiteral("fake-server.crt.pem"));
    const QString keyPath = folder.absoluteFilePath(QStringLiteral("fake-server.key.pem"));
    QFile file(certPath);
    const QList<QSslCertificate> kept =
        file.open(QIODevice::ReadOnly) ? QSslCertificate::fromData(file.readAll()) : QList<QSslCertificate>();
    if (!kept.isEmpty() && QFile::exists(keyPath)) {
        const QString keptName = kept.first().subjectInfo(QSslCertificate::CommonName).value(0);
        const QDateTime expiry = kept.first().expiryDate();
        if (expiry > QDateTime::currentDateTimeUtc().addSecs(3600) && (anyName || server->commonName == keptName)) {
            server->certPath = certPath;
            server->keyPath = keyPath;
            server->commonName = keptName;
            return QStringLiteral("the certificate kept in %1 (valid until %2)")
                .arg(server->certDir, expiry.toString(Qt::ISODate));
        }
    }
    return QStringLiteral("a new certificate in %1, kept for the next starts").arg(server->certDir);
}

std::atomic<bool> stdinClosed{false};

// Reads standard input until it closes, then asks the main thread to stop.
void watchStdin()
{
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (n > 0 || (n < 0 && errno == EINTR))
            continue;
        break;
    }
    stdinClosed = true;
    ::kill(::getpid(), SIGTERM);
}

} // namespace

int main(int argc, char* argv[])
{
    // Stop signals are taken by sigwait() in the main thread only: block them before any
    // thread starts, so that every thread inherits the mask.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGUSR1);  // writes the record
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vdi-simulator"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Fake virtual-desktop controller and access gateway on 127.0.0.1 (TLS).\n"
        "Prints \"port N\", \"pem PATH\", \"common-name NAME\" and \"ready\" on stdout,\n"
        "logs each call on stderr, and runs until SIGINT/SIGTERM.\n"
        "\n"
        "It plays a small deployment: Login checks the controller users (default\n"
        "demo-user / demo-password) and answers their desktop pools; an LDAP login\n"
        "(auth_type 3) checks the LDAP users (default ldap-user / ldap-password) instead.\n"
        "In gateway mode, LoginGateway checks the gateway users (default gw-user /\n"
        "gw-password) and issues a token, which Login and the other controller calls\n"
        "(discovery and Heartbeat aside) must carry in the \"gatewayaccesstoken\" metadata.\n"
        "\n"
        "CheckPassword checks a controller user's password, CheckAndSaveLdapPassword an\n"
        "LDAP user's; ModifyPassword changes a controller user's password, which later\n"
        "logins want; getCode hands out QR login codes with fresh tickets. The login\n"
        "options (getLoginConfig), an upgrade offer (Upgrade), the branding\n"
        "(queryIndividualConfig), the file-sharing server (queryNextCloudInfo), the mail\n"
        "server (ApplyForEmailInfo), the terminal's authority password\n"
        "(ClientReleasePassword) and the quantum binding (confirmQuantumBind) are\n"
        "standing answers.\n"
        "\n"
        "The desktops the login lists keep a state: OperateForVm starts (op_type 1),\n"
        "shuts down (2), reboots (3), disconnects (4) or powers off (5) one, 0 only asks;\n"
        "the answer carries its host ip and, while it runs, its spice port. Snapshot\n"
        "creates (1), deletes (2), reverts (3) or lists (4); ModifyVmName renames;\n"
        "RecoverVm resets. ApplyForVm hands out a desktop of a pool with its connection\n"
        "data; RegisterDevice, ReportSuccess, USBNotify, reportRedirectStatus,\n"
        "ApplyForDeviceInfo and queryVmDetailInfo answer too. An unknown desktop gets an\n"
        "error in the reply.\n"
        "\n"
        "GetRemoteAppList lists three remote applications (Word, Excel, CAD Viewer);\n"
        "getConnectAppInfo answers one by displayName with its rdp:// address and its\n"
        "control policy (watermark included). querySaasAppList lists four SaaS\n"
        "applications; querySaasApp grants Mail and Wiki to every user, Code review to\n"
        "demo-user alone and Payroll to payroll-admin alone (error 42 otherwise).\n"
        "queryShareTerminalInfo lists share-term-01 and share-term-02;\n"
        "transferDesktopToShareTerminal hands a listed desktop to one of them and\n"
        "LoginOakdeskOnShareTerminal logs a controller user in on one. Both are logged\n"
        "with their devices, desktop, file size and user name, never the password.\n"
        "\n"
        "A method a scenario file answers is answered by the file alone. A scenario file\n"
        "may also describe the whole deployment (users per login kind, login options and\n"
        "branding, pools and desktops, applications and who may open them, share\n"
        "terminals, the gateway's users and tokens) and faults per method: a status, a\n"
        "delay, an error code in the reply, failing the next N calls, the server going\n"
        "down and coming back. The format and the example scenarios are in\n"
        "tools/simulator/scenarios/README.md (installed in\n"
        "share/vdidesktopgrpc/scenarios/); --print-default prints the built-in scenario.\n"
        "\n"
        "To restart it without new client settings, give --port and --certdir.\n"
        "Exit codes: 0 stopped; 1 could not serve (the port is taken, no certificate);\n"
        "2 bad command line or scenario."));
    const QCommandLineOption helpOption = parser.addHelpOption();
    const QCommandLineOption modeOption(QStringLiteral("mode"),
        QStringLiteral("Default answers: controller (no gateway in use) or gateway (default: the"
                       " scenario's mode, else controller)."),
        QStringLiteral("controller|gateway"), QStringLiteral("controller"));
    const QCommandLineOption scenarioOption(QStringLiteral("scenario"),
        QStringLiteral("Scenario file whose answers and deployment replace the defaults"
                       " (format: tools/simulator/scenarios/README.md)."), QStringLiteral("FILE"));
    const QCommandLineOption printDefaultOption(QStringLiteral("print-default"),
        QStringLiteral("Prints the built-in scenario, a starting point for scenario files, and exits."));
    const QCommandLineOption recordOption(QStringLiteral("record"),
        QStringLiteral("Writes every call received (method, metadata, requests; passwords and"
                       " tokens redacted) and the help uploads' zip entries to FILE at exit and"
                       " on SIGUSR1."),
        QStringLiteral("FILE"));
    const QCommandLineOption certDirOption(QStringList{QStringLiteral("certdir"), QStringLiteral("cert-dir")},
        QStringLiteral("Folder that keeps the certificate and key: made there on the first start,"
                       " reused by later ones (default: a temporary folder, removed on exit)."),
        QStringLiteral("DIR"));
    const QCommandLineOption portOption(QStringLiteral("port"),
        QStringLiteral("Port to serve on (default: a free one)."), QStringLiteral("N"));
    const QCommandLineOption commonNameOption(QStringLiteral("common-name"),
        QStringLiteral("Common name of the server certificate (may be empty)."), QStringLiteral("NAME"));
    const QCommandLineOption stdinOption(QStringLiteral("until-stdin-closes"),
        QStringLiteral("Also stop when standard input closes."));
    const QCommandLineOption userOption(QStringLiteral("user"),
        QStringLiteral("Adds a controller user, or sets a user's password (repeatable). The user"
                       " demo-user, password demo-password, is there unless a scenario describes the users."),
        QStringLiteral("NAME:PASSWORD"));
    const QCommandLineOption gatewayUserOption(QStringLiteral("gateway-user"),
        QStringLiteral("Adds a gateway user, or sets one's password (repeatable; gateway mode). The"
                       " user gw-user, password gw-password, is there unless a scenario describes the users."),
        QStringLiteral("NAME:PASSWORD"));
    const QCommandLineOption ldapUserOption(QStringLiteral("ldap-user"),
        QStringLiteral("Adds an LDAP user, or sets one's password (repeatable). The user ldap-user,"
                       " password ldap-password, is there unless a scenario describes the users."),
        QStringLiteral("NAME:PASSWORD"));
    const QCommandLineOption applyOverrunsOption(QStringLiteral("apply-overruns"),
        QStringLiteral("The first N ApplyForVm calls end with DEADLINE_EXCEEDED at once, as when the"
                       " controller is slow to prepare a desktop (default 0)."),
        QStringLiteral("N"), QStringLiteral("0"));
    parser.addOptions({modeOption, scenarioOption, portOption, certDirOption, commonNameOption, stdinOption, userOption,
                       gatewayUserOption, ldapUserOption, applyOverrunsOption, printDefaultOption, recordOption});
    if (!parser.parse(QCoreApplication::arguments())) {
        logLine(parser.errorText());
        return 2;
    }
    if (parser.isSet(helpOption))
        parser.showHelp(0);

    if (parser.isSet(printDefaultOption)) {
        std::fputs(vdifake::builtInScenarioText(), stdout);
        return 0;
    }

    vdifake::ScenarioFile file;  // empty: the built-in scenario alone
    const bool haveFile = parser.isSet(scenarioOption);
    if (haveFile) {
        QString error;
        if (!vdifake::loadScenarioFile(parser.value(scenarioOption), &file, &error)) {
            logLine(error);
            return 2;
        }
    }
    const QString mode = parser.isSet(modeOption) || file.mode().isEmpty() ? parser.value(modeOption) : file.mode();
    if (!vdifake::scenarioModes().contains(mode)) {
        logLine(QStringLiteral("unknown mode \"%1\" (use %2)")
                    .arg(mode, vdifake::scenarioModes().join(QLatin1Char('|'))));
        return 2;
    }

    vdifake::ScenarioServer::Options serverOptions;
    serverOptions.mode = mode;
    serverOptions.keepCalls = parser.isSet(recordOption);
    if (parser.isSet(portOption)) {
        bool portRead = false;
        serverOptions.server.port = parser.value(portOption).toInt(&portRead);
        if (!portRead || serverOptions.server.port < 1 || serverOptions.server.port > 65535) {
            logLine(QStringLiteral("--port wants a number from 1 to 65535, not \"%1\"").arg(parser.value(portOption)));
            return 2;
        }
        if (!portFree(serverOptions.server.port)) {
            logLine(QStringLiteral("port %1 of 127.0.0.1 is taken: another program serves there (give another --port, "
                                   "or none for a free one)")
                        .arg(serverOptions.server.port));
            return 1;
        }
    }
    if (parser.isSet(commonNameOption))
        serverOptions.server.commonName = parser.value(commonNameOption);
    std::unique_ptr<QTemporaryDir> temporaryDir;
    QString certificateNote;
    if (parser.isSet(certDirOption)) {
        certificateNote =
            keepCertificate(parser.value(certDirOption), !parser.isSet(commonNameOption), &serverOptions.server);
    } else {
        temporaryDir.reset(new QTemporaryDir);
        if (!temporaryDir->isValid()) {
            logLine(QStringLiteral("cannot create a temporary directory"));
            return 1;
        }
        serverOptions.server.certDir = temporaryDir->path();
    }

    // Outlives the server, whose responders refer to its deployment.
    auto server = std::make_unique<vdifake::ScenarioServer>(haveFile ? file : vdifake::builtInScenario(), serverOptions);
    vdifake::ScenarioServer& played = *server;
    vdifake::SimulatedDeployment& deployment = played.deployment();
    // Each option adds users of one kind.
    using AddUser = void (vdifake::SimulatedDeployment::*)(const QString&, const QString&);
    const std::pair<const QCommandLineOption*, AddUser> userOptions[] = {
        {&userOption, &vdifake::SimulatedDeployment::addUser},
        {&gatewayUserOption, &vdifake::SimulatedDeployment::addGatewayUser},
        {&ldapUserOption, &vdifake::SimulatedDeployment::addLdapUser},
    };
    for (const auto& option : userOptions) {
        for (const QString& value : parser.values(*option.first)) {
            QString name, password;
            if (!parseUser(value, &name, &password)) {
                logLine(QStringLiteral("--%1 wants NAME:PASSWORD, not \"%2\"").arg(option.first->names().first(), value));
                return 2;
            }
            (deployment.*option.second)(name, password);
        }
    }
    deployment.setShareTerminalObservers(logTransfer, logShareLogin);
    deployment.setHelpObservers(logHelpReport, logHelpUpload);
    // Described now, before the server runs: once it does, a password change may alter them.
    const QString controllerUsers = describeUsers(deployment.users());
    const QString gatewayUsers = describeUsers(deployment.gatewayUsers());
    const QString ldapUsers = describeUsers(deployment.ldapUsers());
    const auto users = deployment.users();
    const QString someUser = users.empty() ? QString() : users.begin()->first;  // for the hint
    if (parser.isSet(applyOverrunsOption)) {
        bool countRead = false;
        const int applyOverruns = parser.value(applyOverrunsOption).toInt(&countRead);
        if (!countRead || applyOverruns < 0) {
            logLine(QStringLiteral("--apply-overruns wants a number from 0 up, not \"%1\"")
                        .arg(parser.value(applyOverrunsOption)));
            return 2;
        }
        deployment.setApplyOverruns(applyOverruns);
    }
    const int applyOverruns = deployment.applyOverrunsLeft();
    played.setCallObserver(logCall);
    played.setStateObserver([](bool up, const std::string& method, int downForMs) {
        if (up)
            logLine(QStringLiteral("serving again on the same port with the same certificate"));
        else if (downForMs < 0)
            logLine(QStringLiteral("could not serve again on the same port: staying down"));
        else
            logLine(QStringLiteral("going down for %1 ms after %2 (a fault of the scenario)")
                        .arg(downForMs)
                        .arg(QString::fromStdString(method)));
    });

    int exitCode = 0;
    QString error;
    if (!played.start(&error)) {
        logLine(error);
        return 1;
    }
    const QString recordPath = parser.value(recordOption);
    auto writeRecordFile = [&] {
        QString why;
        if (vdifake::writeRecord(recordPath, played.calls(), deployment.helpUploads(), &why))
            logLine(QStringLiteral("record of %1 call(s) written to %2").arg(played.calls().size()).arg(recordPath));
        else
            logLine(QStringLiteral("cannot write the record: %1").arg(why));
    };

    printLine(QStringLiteral("port %1").arg(played.port()));
    printLine(QStringLiteral("pem %1").arg(played.pemPath()));
    printLine(QStringLiteral("common-name %1").arg(played.commonName()));
    printLine(QStringLiteral("ready"));
    logLine(QStringLiteral("serving %1 mode on 127.0.0.1:%2%3")
                .arg(mode)
                .arg(played.port())
                .arg(haveFile ? QStringLiteral(" (scenario %1)").arg(parser.value(scenarioOption)) : QString()));
    if (!certificateNote.isEmpty())
        logLine(QStringLiteral("serving with ") + certificateNote);
    logConnectionHint(played, mode, someUser);
    logLine(QStringLiteral("controller users: %1").arg(controllerUsers));
    logLine(QStringLiteral("LDAP users: %1").arg(ldapUsers));
    if (mode == QLatin1String("gateway"))
        logLine(QStringLiteral("gateway users: %1").arg(gatewayUsers));
    if (applyOverruns > 0)
        logLine(QStringLiteral("the first %1 ApplyForVm call(s) end with DEADLINE_EXCEEDED").arg(applyOverruns));
    for (const auto& entry : played.fileMethods())
        logLine(QStringLiteral("%1 answered by the scenario file only").arg(QString::fromStdString(entry.first)));
    logFaults(deployment);

    if (parser.isSet(stdinOption))
        std::thread(watchStdin).detach();

    for (;;) {
        int caught = 0;
        if (sigwait(&stopSignals, &caught) != 0) {
            exitCode = 1;
            break;
        }
        if (caught == SIGUSR1) {
            if (recordPath.isEmpty())
                logLine(QStringLiteral("SIGUSR1: nothing to write without --record FILE"));
            else
                writeRecordFile();
            continue;
        }
        logLine(QStringLiteral("stopping (%1)")
                    .arg(stdinClosed ? QStringLiteral("standard input closed")
                                     : caught == SIGINT ? QStringLiteral("SIGINT") : QStringLiteral("SIGTERM")));
        break;
    }
    played.stop();  // every call ended and recorded
    if (!recordPath.isEmpty())
        writeRecordFile();
    server.reset();
    logLine(QStringLiteral("stopped"));
    return exitCode;
}
