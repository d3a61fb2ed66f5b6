// vdi-demo: short sessions of an application against the bundled simulator, once with a
// controller reached directly and once through an access gateway. It starts vdi-simulator on
// 127.0.0.1, drives the public VdiDesktopGrpcThread as an application would (discovery, login,
// the desktop list, device registration, a desktop handed out with its connection data, its
// status report and snapshots, heartbeat) and tells in plain words what happened at each step.
// The simulator lets the first desktop assignment overrun its deadline, so the demo shows how
// an application asks again. The library's own log goes to a file.
//
// The library keeps the gateway's token and credentials in <Documents>/gateway/. The demo runs
// with HOME and XDG_CONFIG_HOME pointing at a temporary directory, so that the user's own
// Documents folder is never touched.
#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QMutex>
#include <QProcess>
#include <QSettings>
#include <QStandardPaths>
#include <QStringList>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <cstdio>
#include <functional>
#include <memory>

#include "deployment.h"
#include "vdidesktopgrpcthread.h"

namespace {

const int kAnswerTimeoutMs = 15000;
// How often the demo applies for a desktop while the server is still preparing it.
const int kApplyAttempts = 4;
// Desktop assignments that the simulator lets overrun their deadline first.
const int kSimulatedApplyOverruns = 1;

QFile g_logFile;
QMutex g_logMutex;
QStringList g_logLines;

void collectLog(QtMsgType, const QMessageLogContext&, const QString& message)
{
    QMutexLocker lock(&g_logMutex);
    g_logLines << message;
    if (g_logFile.isOpen()) {
        g_logFile.write(message.toUtf8() + '\n');
        g_logFile.flush();
    }
}

bool logSeen(const QString& text)
{
    QMutexLocker lock(&g_logMutex);
    for (const QString& line : qAsConst(g_logLines))
        if (line.contains(text))
            return true;
    return false;
}

// Runs the event loop until one of the texts shows up in the library's log; returns its index.
int waitForLog(const QStringList& texts, int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < timeoutMs) {
        for (int i = 0; i < texts.size(); ++i)
            if (logSeen(texts.at(i)))
                return i;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return -1;
}

// Runs the event loop until the facade emits the signal, and hands its arguments on.
template <class... Args, class Handler>
bool awaitAnswer(VdiDesktopGrpcThread& facade, void (VdiDesktopGrpcThread::*signal)(Args...), Handler handler)
{
    QEventLoop loop;
    bool answered = false;
    const QMetaObject::Connection connection = QObject::connect(&facade, signal, &loop, [&](Args... args) {
        handler(args...);
        answered = true;
        loop.quit();
    });
    QTimer::singleShot(kAnswerTimeoutMs, &loop, &QEventLoop::quit);
    loop.exec();
    QObject::disconnect(connection);
    return answered;
}

// Runs the event loop until `done` holds; false when the time ran out first.
bool waitUntil(const std::function<bool()>& done, int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() >= timeoutMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return true;
}

void say(const QString& text)
{
    std::fputs((text + QLatin1Char('\n')).toUtf8().constData(), stdout);
    std::fflush(stdout);
}

// Who logs in: to the controller, and to the access gateway in gateway deployments.
struct Credentials {
    QString user;
    QString password;
    QString gatewayUser;
    QString gatewayPassword;
};

QString expiryText(int poolExpireTime)
{
    switch (poolExpireTime) {
    case -2:
        return QStringLiteral("none");
    case -1:
        return QStringLiteral("not reported");
    case 0:
        return QStringLiteral("expired");
    default:
        return QStringLiteral("%1 day(s) left").arg(poolExpireTime);
    }
}

int desktopCount(const LoginReply& reply)
{
    int n = 0;
    for (const tagPoolInfo& pool : reply.poolList)
        n += pool.vmList.size();
    return n;
}

// The user's pools, one line each, and their desktops indented below.
void printPools(const LoginReply& reply)
{
    say(QStringLiteral("     %1 %2 %3 %4")
            .arg(QStringLiteral("Pool").leftJustified(28), QStringLiteral("Extra").leftJustified(6),
                 QStringLiteral("Expiry").leftJustified(16), QStringLiteral("Desktops")));
    for (const tagPoolInfo& pool : reply.poolList) {
        say(QStringLiteral("     %1 %2 %3 %4")
                .arg(pool.name.leftJustified(28), (pool.isExPool ? QStringLiteral("yes") : QStringLiteral("no")).leftJustified(6),
                     expiryText(pool.poolExpireTime).leftJustified(16))
                .arg(pool.vmList.size()));
        for (const tagVM& vm : pool.vmList) {
            QStringList ips;
            for (const tagVMAddress& address : vm.addressList)
                ips << address.ipList;
            QString line = QStringLiteral("       - %1 %2 %3 %4")
                               .arg(vm.vmName.leftJustified(22), vm.vmStatus.leftJustified(10),
                                    (ips.isEmpty() ? QStringLiteral("no address") : ips.join(QStringLiteral(", "))).leftJustified(15),
                                    vm.vmUuid);
            if (!vm.snapshotList.isEmpty())
                line += QStringLiteral("  (%1 snapshot(s))").arg(vm.snapshotList.size());
            say(line);
        }
    }
}

QString outcome(bool status, const tagErrorData& error)
{
    if (status)
        return QStringLiteral("ok");
    return QStringLiteral("failed, code %1 (%2)").arg(error.errorCode).arg(error.errorMsgZh);
}

// Counts the failed steps of a session.
struct Tally {
    int failures = 0;

    void answered(bool came, const QString& what)
    {
        if (!came) {
            say(QStringLiteral("  FAILED: no answer to %1").arg(what));
            ++failures;
        }
    }
    // For steps the rest of the session builds on: a refusal counts as a failure too.
    void require(bool ok, const QString& what)
    {
        if (!ok) {
            say(QStringLiteral("  FAILED: %1").arg(what));
            ++failures;
        }
    }
};

QString firstAddress(const tagVMInfo& vm)
{
    for (const tagVMAddress& address : vm.addressList)
        if (!address.ipList.isEmpty())
            return address.ipList.first();
    return vm.ipList.isEmpty() ? QString() : vm.ipList.first();
}

// After the login: the terminal registers, gets a desktop of the user's first pool with its
// connection data, reports it connected and lists its snapshots (steps 9 to 13).
void runDesktopSteps(VdiDesktopGrpcThread& facade, const LoginReply& login, Tally& tally)
{
    const QString mac = facade.getLocalMAC();
    const QString deviceId = QStringLiteral("demo-") + QString(mac).remove(QLatin1Char(':'));
    facade.registerDevice(facade.getLocalIP(), mac, deviceId, QStringLiteral("demo-terminal"),
                          VdiGrpc::tagDeviceRegisterType(0));
    tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::registerDeviceResult,
                               [&](RegisterDeviceReply reply, bool status) {
                                   say(QStringLiteral("9. This terminal registered as \"%1\": register id %2 (%3).")
                                           .arg(deviceId)
                                           .arg(reply.registerId)
                                           .arg(outcome(status, reply.error)));
                                   tally.require(status && reply.registerId > 0,
                                                 QStringLiteral("the terminal was not registered"));
                               }),
                   QStringLiteral("the device registration"));

    const tagPoolInfo& pool = login.poolList.first();
    if (pool.vmList.isEmpty()) {
        say(QStringLiteral("10.-13. The pool \"%1\" lists no desktop to apply for.").arg(pool.name));
        tally.require(false, QStringLiteral("the user's first pool has no desktop"));
        return;
    }
    const tagVM& wanted = pool.vmList.first();
    const QString vmId = QString::number(wanted.vmId);
    // The application's own handle on the desktop entry; every answer brings it back.
    const tagVmNodeInfo node{QStringLiteral("pool-%1/desktop-%2").arg(pool.id).arg(wanted.vmId), wanted.vmName, 0};
    const auto sameNode = [&node](const tagVmNodeInfo& echoed) {
        return echoed.nodeId == node.nodeId && echoed.nodeName == node.nodeName && echoed.nodeIndex == node.nodeIndex;
    };

    // 10. While the controller is still preparing the desktop, the answer is true with error
    // code 4: the application asks again.
    say(QStringLiteral("10. Applying for the desktop \"%1\" of the pool \"%2\".").arg(wanted.vmName, pool.name));
    ApplyForVMReply assigned;
    bool assignedOk = false;
    bool answered = true;
    for (int attempt = 1; attempt <= kApplyAttempts && answered; ++attempt) {
        bool status = false;
        facade.applyForVM(node, QString::number(pool.id), vmId, wanted.vmUuid, pool.name, QString(), 0);
        answered = awaitAnswer(facade, &VdiDesktopGrpcThread::applyForVMResult, [&](ApplyForVMReply reply, bool ok) {
            assigned = reply;
            status = ok;
        });
        if (!answered)
            break;
        if (status && assigned.error.errorCode == 4) {
            say(QStringLiteral("    The controller is still preparing it (code 4: %1); %2.")
                    .arg(assigned.error.errorMsgEn, attempt < kApplyAttempts ? QStringLiteral("asking again")
                                                                             : QStringLiteral("giving up")));
            continue;
        }
        assignedOk = status && assigned.error.errorCode == 0;
        break;
    }
    tally.answered(answered, QStringLiteral("the desktop assignment"));
    if (!answered)
        return;
    if (!assignedOk) {
        say(QStringLiteral("    Not handed out: %1.").arg(outcome(false, assigned.error)));
        tally.require(false, QStringLiteral("no desktop was handed out"));
        return;
    }
    const tagVMInfo& vm = assigned.vmInfo;
    // The reply holds the desktop's account and spice passwords too: an application passes
    // them to the remote-desktop client and never shows them.
    say(QStringLiteral("    Handed out: \"%1\" (uuid %2), %3, address %4, on the host %5; account \"%6\".")
            .arg(vm.vmName, vm.vmUuid, vm.vmStatus, firstAddress(vm), assigned.hostIp, assigned.userNameOrDeviceName));
    tally.require(vm.vmUuid == wanted.vmUuid, QStringLiteral("another desktop was handed out than the one asked for"));
    tally.require(sameNode(assigned.vmNode), QStringLiteral("the desktop's handle came back changed"));

    facade.applyForVMOfQuery(node, vmId, vm.vmUuid, QString(), 0, VdiGrpc::tagOperateVMWay(0),
                             VdiGrpc::tagOperateVMType(vdifake::SimulatedDeployment::QueryDesktop));
    tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::applyForVMOfQueryResult,
                               [&](OperateForVMReply reply, bool status) {
                                   say(QStringLiteral("11. Connection data: spice at %1 port %2, the desktop %3 (%4).")
                                           .arg(reply.hostIp, reply.spicePort.isEmpty() ? QStringLiteral("none") : reply.spicePort,
                                                reply.vmInfo.vmStatus, outcome(status, reply.error)));
                                   tally.require(status && !reply.hostIp.isEmpty() && !reply.spicePort.isEmpty(),
                                                 QStringLiteral("no connection data for the desktop"));
                               }),
                   QStringLiteral("the connection data query"));

    const QString vmIp = firstAddress(vm);
    facade.reportStatusOfVM(node, vmId, vm.vmUuid, vmIp);
    tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::reportStatusOfVMResult,
                               [&](ReportSuccessReply reply, bool status) {
                                   say(QStringLiteral("12. Reported the desktop %1 (id %2) as connected (%3).")
                                           .arg(vmIp)
                                           .arg(reply.vmId)
                                           .arg(outcome(status, reply.error)));
                                   tally.require(status, QStringLiteral("the status report was refused"));
                               }),
                   QStringLiteral("the status report"));

    // A query answers twice: the list, then its count. Both may arrive in one go, so the
    // count is caught from before the request on.
    int counted = -1;
    const QMetaObject::Connection countConnection = QObject::connect(
        &facade, &VdiDesktopGrpcThread::snapshotQueryResult, &facade, [&counted](int count) { counted = count; });
    facade.snapshot(node, vmId, vm.vmUuid, VdiGrpc::SnapshotQuery, QString(), QString());
    bool listed = false;
    int listSize = 0;
    tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::snapshotResult,
                               [&](SnapshotReply reply, bool status, int opType) {
                                   QStringList names;
                                   for (const tagSnapshotInfo& snapshot : qAsConst(reply.snapshotList))
                                       names << QStringLiteral("\"%1\" (%2)").arg(snapshot.name, snapshot.description);
                                   say(QStringLiteral("13. Snapshots of \"%1\" (query, type %2): %3 (%4).")
                                           .arg(vm.vmName)
                                           .arg(opType)
                                           .arg(names.isEmpty() ? QStringLiteral("none") : names.join(QStringLiteral(", ")),
                                                outcome(status, reply.error)));
                                   listed = status;
                                   listSize = reply.snapshotList.size();
                               }),
                   QStringLiteral("the snapshot query"));
    if (listed) {
        const bool countCame = waitUntil([&counted] { return counted >= 0; }, kAnswerTimeoutMs);
        tally.answered(countCame, QStringLiteral("the snapshot count"));
        if (countCame) {
            say(QStringLiteral("    The library counted %1 snapshot(s).").arg(counted));
            tally.require(counted == listSize, QStringLiteral("the count differs from the list"));
        }
    } else {
        tally.require(false, QStringLiteral("the snapshot query was refused"));
    }
    QObject::disconnect(countConnection);
}

struct Simulator {
    QProcess process;
    int port = 0;
    QString pem;
    QString commonName;

    bool start(const QString& program, const QString& mode)
    {
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start(program, {QStringLiteral("--mode"), mode, QStringLiteral("--until-stdin-closes"),
                                QStringLiteral("--apply-overruns"), QString::number(kSimulatedApplyOverruns)});
        if (!process.waitForStarted(5000))
            return false;
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < 10000) {
            if (!process.canReadLine() && !process.waitForReadyRead(200))
                continue;
            while (process.canReadLine()) {
                const QString line = QString::fromUtf8(process.readLine()).trimmed();
                const QString value = line.section(QLatin1Char(' '), 1);
                if (line.startsWith(QLatin1String("port ")))
                    port = value.toInt();
                else if (line.startsWith(QLatin1String("pem ")))
                    pem = value;
                else if (line.startsWith(QLatin1String("common-name ")))
                    commonName = value;
                else if (line == QLatin1String("ready"))
                    return port > 0 && !pem.isEmpty();
            }
        }
        return false;
    }

    void stop()
    {
        process.closeWriteChannel();
        if (!process.waitForFinished(5000)) {
            process.terminate();
            process.waitForFinished(2000);
        }
    }
};

// One session against a simulator in the given mode; returns the number of failed steps.
int runSession(const QString& mode, const Credentials& credentials)
{
    say(QStringLiteral("\n== Session against a simulated %1 ==").arg(mode));
    Simulator simulator;
    const QString program = QCoreApplication::applicationDirPath() + QStringLiteral("/vdi-simulator");
    if (!simulator.start(program, mode)) {
        say(QStringLiteral("FAILED: the simulator %1 did not start").arg(program));
        return 1;
    }
    say(QStringLiteral("Simulator listening on 127.0.0.1:%1; certificate %2 with the subject \"%3\" "
                       "(not the host name).")
            .arg(simulator.port).arg(simulator.pem, simulator.commonName));

    Tally tally;
    const bool gatewayMode = mode == QLatin1String("gateway");
    {
        VdiDesktopGrpcThread facade;
        tagBaseInfo base;
        base.name = credentials.user;
        base.password = credentials.password;
        base.deviceName = QStringLiteral("demo-terminal");
        base.clientType = QStringLiteral("1");
        facade.initBaseInfoParameter(base);
        tagExtendInfo extend;
        extend.clientVersion = QStringLiteral("1.0.0");
        extend.osType = QStringLiteral("linux");
        facade.initExtendInfoParameter(extend);

        facade.initDeviceInfo(QStringLiteral("127.0.0.1"), quint16(simulator.port));
        tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::deviceNetworkInfo, [&](QString ip, QString mac, bool found) {
                 if (found) {
                     facade.setLocalIP(ip);
                     facade.setLocalMAC(mac);
                     say(QStringLiteral("1. This terminal is %1, MAC %2.").arg(ip, mac));
                 } else {
                     facade.setLocalIP(QStringLiteral("127.0.0.1"));
                     facade.setLocalMAC(QStringLiteral("02:00:00:00:00:01"));
                     say(QStringLiteral("1. No network interface besides loopback; using 127.0.0.1 and a made-up MAC."));
                 }
             }),
             QStringLiteral("the device identity"));

        facade.initServerType(0);
        facade.initConnection(simulator.pem, QStringLiteral("127.0.0.1"), ushort(simulator.port), false);
        if (waitForLog({QStringLiteral(" grpcheader language: ")}, 5000) < 0) {
            say(QStringLiteral("2. FAILED: the TLS channels could not be set up."));
            ++tally.failures;
        } else {
            say(QStringLiteral("2. TLS channels built, trusting the simulator's certificate under the name \"%1\".")
                    .arg(simulator.commonName));
        }

        facade.queryServerTypeInfo();
        tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::queryServerTypeInfoResult, [](ServerTypeInfoResp reply, bool status) {
                 say(QStringLiteral("3. Server type: %1 (%2).")
                         .arg(reply.serverType == 1 ? QStringLiteral("access gateway")
                                                    : reply.serverType == 0 ? QStringLiteral("controller")
                                                                            : QStringLiteral("unknown"))
                         .arg(outcome(status, reply.error)));
             }),
             QStringLiteral("the server type query"));

        facade.queryDeviceConfigInfo(facade.getLocalMAC(), facade.getLocalIP());
        tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::queryDeviceConfigInfoResult, [](DeviceConfigInfoResp reply, bool status) {
                 say(QStringLiteral("4. Device configuration: login kind %1, server architecture %2, remember password %3 (%4).")
                         .arg(reply.authType)
                         .arg(reply.serverArch, reply.rememberPassword ? QStringLiteral("yes") : QStringLiteral("no"),
                              outcome(status, reply.error)));
             }),
             QStringLiteral("the device configuration query"));

        // Login. Through a gateway, the library first asks the application for the gateway's
        // credentials (none are saved yet in this fresh home) and logs in to the gateway.
        bool askedForGateway = false;
        const QMetaObject::Connection askConnection =
            QObject::connect(&facade, &VdiDesktopGrpcThread::inputGatewayAuthInfo, &facade, [&]() {
                if (askedForGateway) {
                    // Answered once already: the same credentials would not do better.
                    say(QStringLiteral("   The library asks for the gateway's credentials again; the demo has no others."));
                    return;
                }
                askedForGateway = true;
                say(QStringLiteral("5. The library asks for the access gateway's user and password (none saved yet); "
                                   "the demo answers as \"%1\".")
                        .arg(credentials.gatewayUser));
                emit facade.loginGateway(credentials.gatewayUser, credentials.gatewayPassword);
            });
        if (!gatewayMode)
            say(QStringLiteral("5. No gateway in this deployment: the login goes straight to the controller."));
        bool loggedIn = false;
        LoginReply loginReply;
        facade.login(credentials.user, credentials.password, QStringLiteral("0"));
        const bool loginAnswered =
            awaitAnswer(facade, &VdiDesktopGrpcThread::loginResult, [&](LoginReply reply, bool status) {
                loggedIn = status;
                loginReply = reply;
                if (status)
                    say(QStringLiteral("6. Logged in as \"%1\" (user id %2, domain %3%4): %5 pool(s), %6 desktop(s).")
                            .arg(reply.name)
                            .arg(reply.userId)
                            .arg(reply.domain, gatewayMode ? QStringLiteral(", through the gateway") : QString())
                            .arg(reply.poolList.size())
                            .arg(desktopCount(reply)));
                else
                    say(QStringLiteral("6. Login as \"%1\" refused: %2 (code %3).")
                            .arg(credentials.user,
                                 reply.error.errorMsgEn.isEmpty()
                                     ? reply.error.errorMsgZh
                                     : QStringLiteral("%1 / %2").arg(reply.error.errorMsgZh, reply.error.errorMsgEn))
                            .arg(reply.error.errorCode));
            });
        QObject::disconnect(askConnection);
        tally.answered(loginAnswered, QStringLiteral("the login"));
        if (loginAnswered)
            tally.require(loggedIn, QStringLiteral("the login did not succeed"));
        if (gatewayMode)
            tally.require(askedForGateway, QStringLiteral("the library never asked for the gateway's credentials"));

        if (loggedIn) {
            say(QStringLiteral("7. The pools and desktops of \"%1\":").arg(loginReply.name));
            printPools(loginReply);
            tally.require(!loginReply.poolList.isEmpty(), QStringLiteral("the user has no pools"));

            facade.updateVmInfoFromServer();
            tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::updateVmInfoFromServerResult,
                             [&](LoginReply reply, bool status) {
                                 say(QStringLiteral("8. Desktop list fetched again: %1 pool(s), %2 desktop(s) (%3).")
                                         .arg(reply.poolList.size())
                                         .arg(desktopCount(reply))
                                         .arg(outcome(status, reply.error)));
                                 tally.require(status && reply.poolList.size() == loginReply.poolList.size(),
                                             QStringLiteral("the refreshed desktop list differs from the login's"));
                             }),
                 QStringLiteral("the desktop list refresh"));
            if (!loginReply.poolList.isEmpty())
                runDesktopSteps(facade, loginReply, tally);
        } else {
            say(QStringLiteral("7.-13. Not logged in: no pools to show, no desktop to apply for."));
        }

        facade.queryGatewayInfo();
        tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::queryGatewayInfoResult, [](GatewayInfoResp reply, bool status) {
                 QStringList names;
                 for (const tagGatewayInfo& gateway : qAsConst(reply.gatewayList))
                     names << QStringLiteral("%1 at %2 (VDP %3, RDP %4)").arg(gateway.name, gateway.publicIp, gateway.vdpPort, gateway.rdpPort);
                 say(QStringLiteral("14. Gateways: %1 (%2).")
                         .arg(names.isEmpty() ? QStringLiteral("none") : names.join(QStringLiteral("; ")), outcome(status, reply.error)));
             }),
             QStringLiteral("the gateway list query"));

        facade.queryControllerListForGrpcThread(QStringLiteral("127.0.0.1"));
        tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::queryControllerListResultForGrpcThread,
                         [](QureyControllerListResp reply, bool status, QString serverIp) {
                             QStringList names;
                             for (const tagResourceInfo& resource : qAsConst(reply.resourceList))
                                 names << QStringLiteral("%1%2").arg(resource.name, resource.gateway ? QStringLiteral(" (gateway)") : QString());
                             say(QStringLiteral("15. Controllers known to %1: %2 (%3).")
                                     .arg(serverIp, names.join(QStringLiteral(", ")), outcome(status, reply.error)));
                         }),
             QStringLiteral("the controller list query"));

        facade.sendHeart(facade.getLocalIP(), QString(), -1);
        tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::recvHeartbeatResultVDT, [](HeartbeatReply reply, bool status) {
                 say(QStringLiteral("16. Heartbeat sent; the next one follows in five minutes (%1).").arg(outcome(status, reply.error)));
             }),
             QStringLiteral("the heartbeat"));

        facade.stop();
        say(QStringLiteral("17. Stopped: pending calls cancelled, the worker thread has ended."));
    }
    simulator.stop();
    return tally.failures;
}

} // namespace

int main(int argc, char* argv[])
{
    // A home of its own for the whole run, set before the application object reads the
    // environment: the library's gateway settings land in <home>/Documents/gateway/, not in
    // the user's Documents folder. Removed when the demo ends.
    QTemporaryDir home(QDir::tempPath() + QStringLiteral("/vdi-demo-home-XXXXXX"));
    if (!home.isValid()) {
        std::fputs("vdi-demo: cannot create a temporary home directory\n", stderr);
        return 1;
    }
    const QString homePath = home.path();
    QDir().mkpath(homePath + QStringLiteral("/Documents"));
    QDir().mkpath(homePath + QStringLiteral("/.config"));
    qputenv("HOME", QFile::encodeName(homePath));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(homePath + QStringLiteral("/.config")));

    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vdi-demo"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Runs a controller session and a gateway session of libvdidesktopgrpc against vdi-simulator."));
    parser.addHelpOption();
    const QCommandLineOption userOption(QStringLiteral("user"), QStringLiteral("Controller user to log in as."),
                                        QStringLiteral("NAME"), QString::fromUtf8(vdifake::SimulatedDeployment::kDefaultUserName));
    const QCommandLineOption passwordOption(QStringLiteral("password"), QStringLiteral("Its password."),
                                            QStringLiteral("PASSWORD"),
                                            QString::fromUtf8(vdifake::SimulatedDeployment::kDefaultUserPassword));
    const QCommandLineOption gatewayUserOption(QStringLiteral("gateway-user"),
                                               QStringLiteral("Access gateway user, given when the library asks."),
                                               QStringLiteral("NAME"),
                                               QString::fromUtf8(vdifake::SimulatedDeployment::kDefaultGatewayUserName));
    const QCommandLineOption gatewayPasswordOption(QStringLiteral("gateway-password"), QStringLiteral("Its password."),
                                                   QStringLiteral("PASSWORD"),
                                                   QString::fromUtf8(vdifake::SimulatedDeployment::kDefaultGatewayPassword));
    parser.addOptions({userOption, passwordOption, gatewayUserOption, gatewayPasswordOption});
    parser.process(app);
    Credentials credentials;
    credentials.user = parser.value(userOption);
    credentials.password = parser.value(passwordOption);
    credentials.gatewayUser = parser.value(gatewayUserOption);
    credentials.gatewayPassword = parser.value(gatewayPasswordOption);

    const QString logPath = QDir::current().filePath(QStringLiteral("vdi-demo.log"));
    g_logFile.setFileName(logPath);
    g_logFile.open(QIODevice::WriteOnly | QIODevice::Truncate);
    qInstallMessageHandler(collectLog);

    say(QStringLiteral("== libvdidesktopgrpc demo =="));
    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    say(QStringLiteral("Running with the temporary home %1; the library's Documents folder is %2.").arg(homePath, documents));
    const int failures = runSession(QStringLiteral("controller"), credentials)
        + runSession(QStringLiteral("gateway"), credentials);

    const QString settingsPath = documents + QStringLiteral("/gateway/gatewaySettings.ini");
    if (QFile::exists(settingsPath)) {
        QSettings settings(settingsPath, QSettings::IniFormat);
        const QString token = settings.value(QStringLiteral("GATEWAYINFO/token")).toString();
        say(QStringLiteral("\nThe gateway settings file was written to %1%2 (removed with the temporary home).")
                .arg(settingsPath, token.isEmpty() ? QString() : QStringLiteral(", holding the token \"%1\"").arg(token)));
    } else {
        say(QStringLiteral("\nNo gateway settings file was written (it would be %1).").arg(settingsPath));
    }
    say(QStringLiteral("The library's log is in %1.").arg(logPath));
    say(failures == 0 ? QStringLiteral("Demo finished: every step worked.")
                      : QStringLiteral("Demo finished with %1 failed step(s).").arg(failures));
    return failures == 0 ? 0 : 1;
}
