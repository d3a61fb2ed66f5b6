// vdi-simulator: a fake virtual-desktop controller / access gateway on 127.0.0.1 for
// developing applications against libvdidesktopgrpc without a real deployment.
//
// On start it prints, on stdout, one per line:
//   port <number>
//   pem <path of the server certificate to trust>
//   common-name <name to use as the TLS target name>
//   ready
// then logs every call it serves on stderr, until SIGINT or SIGTERM (or, with
// --until-stdin-closes, until its standard input closes).
//
// Besides the standing answers of its mode it plays a small deployment (deployment.h):
// users who log in and get their desktop pools; desktops that start, stop, reboot, take
// snapshots, get renamed and are handed out with their connection data; device registration
// and status reports; and, in gateway mode, an access gateway that issues tokens and wants
// one on the controller's calls.

#include "deployment.h"
#include "fakeserver.h"
#include "scenario.h"

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QStringList>
#include <QTemporaryDir>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <map>
#include <memory>
#include <thread>

#include <cerrno>
#include <pthread.h>
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
        "demo-user / demo-password) and answers their desktop pools; in gateway mode,\n"
        "LoginGateway checks the gateway users (default gw-user / gw-password) and issues\n"
        "a token, which Login and the other controller calls (discovery and Heartbeat\n"
        "aside) must carry in the \"gatewayaccesstoken\" metadata.\n"
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
        "A method a scenario file answers is answered by the file alone."));
    parser.addHelpOption();
    const QCommandLineOption modeOption(QStringLiteral("mode"),
        QStringLiteral("Default answers: controller (no gateway in use) or gateway."),
        QStringLiteral("controller|gateway"), QStringLiteral("controller"));
    const QCommandLineOption scenarioOption(QStringLiteral("scenario"),
        QStringLiteral("Scenario file whose answers replace the defaults."), QStringLiteral("FILE"));
    const QCommandLineOption certDirOption(QStringLiteral("cert-dir"),
        QStringLiteral("Directory for the certificate and key (default: a new temporary one,"
                       " removed on exit)."),
        QStringLiteral("DIR"));
    const QCommandLineOption commonNameOption(QStringLiteral("common-name"),
        QStringLiteral("Common name of the server certificate (may be empty)."), QStringLiteral("NAME"));
    const QCommandLineOption stdinOption(QStringLiteral("until-stdin-closes"),
        QStringLiteral("Also stop when standard input closes."));
    const QCommandLineOption userOption(QStringLiteral("user"),
        QStringLiteral("Adds a controller user, or sets a user's password (repeatable). The user"
                       " demo-user, password demo-password, is always there."),
        QStringLiteral("NAME:PASSWORD"));
    const QCommandLineOption gatewayUserOption(QStringLiteral("gateway-user"),
        QStringLiteral("Adds a gateway user, or sets one's password (repeatable; gateway mode). The"
                       " user gw-user, password gw-password, is always there."),
        QStringLiteral("NAME:PASSWORD"));
    const QCommandLineOption applyOverrunsOption(QStringLiteral("apply-overruns"),
        QStringLiteral("The first N ApplyForVm calls end with DEADLINE_EXCEEDED at once, as when the"
                       " controller is slow to prepare a desktop (default 0)."),
        QStringLiteral("N"), QStringLiteral("0"));
    parser.addOptions({modeOption, scenarioOption, certDirOption, commonNameOption, stdinOption, userOption,
                       gatewayUserOption, applyOverrunsOption});
    parser.process(app);

    const QString mode = parser.value(modeOption);
    if (!vdifake::scenarioModes().contains(mode)) {
        logLine(QStringLiteral("unknown mode \"%1\" (use %2)")
                    .arg(mode, vdifake::scenarioModes().join(QLatin1Char('|'))));
        return 2;
    }
    vdifake::Scenario scenario = vdifake::defaultScenario(mode);
    vdifake::Scenario fileScenario;  // the methods the scenario file answers
    if (parser.isSet(scenarioOption)) {
        QString error;
        if (!vdifake::loadScenarioFile(parser.value(scenarioOption), &fileScenario, &error)) {
            logLine(error);
            return 2;
        }
        vdifake::mergeScenario(&scenario, fileScenario);
    }

    // Outlives the server below, whose responders refer to it.
    vdifake::SimulatedDeployment deployment;
    for (const QString& value : parser.values(userOption)) {
        QString name, password;
        if (!parseUser(value, &name, &password)) {
            logLine(QStringLiteral("--user wants NAME:PASSWORD, not \"%1\"").arg(value));
            return 2;
        }
        deployment.addUser(name, password);
    }
    for (const QString& value : parser.values(gatewayUserOption)) {
        QString name, password;
        if (!parseUser(value, &name, &password)) {
            logLine(QStringLiteral("--gateway-user wants NAME:PASSWORD, not \"%1\"").arg(value));
            return 2;
        }
        deployment.addGatewayUser(name, password);
    }
    bool countRead = false;
    const int applyOverruns = parser.value(applyOverrunsOption).toInt(&countRead);
    if (!countRead || applyOverruns < 0) {
        logLine(QStringLiteral("--apply-overruns wants a number from 0 up, not \"%1\"")
                    .arg(parser.value(applyOverrunsOption)));
        return 2;
    }
    deployment.setApplyOverruns(applyOverruns);

    std::unique_ptr<QTemporaryDir> temporaryDir;
    vdifake::FakeServer::Options options;
    if (parser.isSet(certDirOption)) {
        options.certDir = parser.value(certDirOption);
    } else {
        temporaryDir.reset(new QTemporaryDir);
        if (!temporaryDir->isValid()) {
            logLine(QStringLiteral("cannot create a temporary directory"));
            return 1;
        }
        options.certDir = temporaryDir->path();
    }
    if (parser.isSet(commonNameOption))
        options.commonName = parser.value(commonNameOption);

    int exitCode = 0;
    {
        vdifake::FakeServer server(options);
        if (!server.isRunning()) {
            logLine(QStringLiteral("the server could not start"));
            return 1;
        }
        QString error;
        if (!vdifake::applyScenario(server, scenario, &error)) {
            logLine(error);
            return 2;
        }
        deployment.install(server, mode);
        // The scenario file wins over the deployment for the methods it answers.
        for (const auto& entry : fileScenario)
            server.clearResponder(entry.first);
        server.setCallObserver(logCall);

        printLine(QStringLiteral("port %1").arg(server.port()));
        printLine(QStringLiteral("pem %1").arg(server.pemPath()));
        printLine(QStringLiteral("common-name %1").arg(server.commonName()));
        printLine(QStringLiteral("ready"));
        logLine(QStringLiteral("serving %1 mode on 127.0.0.1:%2").arg(mode).arg(server.port()));
        logLine(QStringLiteral("controller users: %1").arg(describeUsers(deployment.users())));
        if (mode == QLatin1String("gateway"))
            logLine(QStringLiteral("gateway users: %1").arg(describeUsers(deployment.gatewayUsers())));
        if (applyOverruns > 0)
            logLine(QStringLiteral("the first %1 ApplyForVm call(s) end with DEADLINE_EXCEEDED").arg(applyOverruns));
        for (const auto& entry : fileScenario)
            logLine(QStringLiteral("%1 answered by the scenario file only").arg(QString::fromStdString(entry.first)));

        if (parser.isSet(stdinOption))
            std::thread(watchStdin).detach();

        int caught = 0;
        if (sigwait(&stopSignals, &caught) != 0)
            exitCode = 1;
        logLine(QStringLiteral("stopping (%1)")
                    .arg(stdinClosed ? QStringLiteral("standard input closed")
                                     : caught == SIGINT ? QStringLiteral("SIGINT") : QStringLiteral("SIGTERM")));
    }
    logLine(QStringLiteral("stopped"));
    return exitCode;
}
