// vdi-demo: short sessions of an application against the bundled simulator, once with a
// controller reached directly and once through an access gateway. It starts vdi-simulator on
// 127.0.0.1, drives the public VdiDesktopGrpcThread as an application would and tells in plain
// words what happened at each step. The library's own log goes to a file.
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QMutex>
#include <QProcess>
#include <QStringList>
#include <QThread>
#include <QTimer>

#include <cstdio>

#include "vdidesktopgrpcthread.h"

namespace {

const int kAnswerTimeoutMs = 15000;

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

void say(const QString& text)
{
    std::fputs((text + QLatin1Char('\n')).toUtf8().constData(), stdout);
    std::fflush(stdout);
}

QString outcome(bool status, const tagErrorData& error)
{
    if (status)
        return QStringLiteral("ok");
    return QStringLiteral("failed, code %1 (%2)").arg(error.errorCode).arg(error.errorMsgZh);
}

struct Simulator {
    QProcess process;
    int port = 0;
    QString pem;
    QString commonName;

    bool start(const QString& program, const QString& mode)
    {
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start(program, {QStringLiteral("--mode"), mode, QStringLiteral("--until-stdin-closes")});
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
int runSession(const QString& mode)
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

    int failures = 0;
    auto step = [&failures](bool answered, const QString& what) {
        if (!answered) {
            say(QStringLiteral("  FAILED: no answer to %1").arg(what));
            ++failures;
        }
    };
    {
        VdiDesktopGrpcThread facade;
        tagBaseInfo base;
        base.name = QStringLiteral("demo-user");
        base.password = QStringLiteral("demo-password");
        base.deviceName = QStringLiteral("demo-terminal");
        base.clientType = QStringLiteral("1");
        facade.initBaseInfoParameter(base);
        tagExtendInfo extend;
        extend.clientVersion = QStringLiteral("1.0.0");
        extend.osType = QStringLiteral("linux");
        facade.initExtendInfoParameter(extend);

        facade.initDeviceInfo(QStringLiteral("127.0.0.1"), quint16(simulator.port));
        step(awaitAnswer(facade, &VdiDesktopGrpcThread::deviceNetworkInfo, [&](QString ip, QString mac, bool found) {
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
            ++failures;
        } else {
            say(QStringLiteral("2. TLS channels built, trusting the simulator's certificate under the name \"%1\".")
                    .arg(simulator.commonName));
        }

        facade.queryServerTypeInfo();
        step(awaitAnswer(facade, &VdiDesktopGrpcThread::queryServerTypeInfoResult, [](ServerTypeInfoResp reply, bool status) {
                 say(QStringLiteral("3. Server type: %1 (%2).")
                         .arg(reply.serverType == 1 ? QStringLiteral("access gateway")
                                                    : reply.serverType == 0 ? QStringLiteral("controller")
                                                                            : QStringLiteral("unknown"))
                         .arg(outcome(status, reply.error)));
             }),
             QStringLiteral("the server type query"));

        facade.queryDeviceConfigInfo(facade.getLocalMAC(), facade.getLocalIP());
        step(awaitAnswer(facade, &VdiDesktopGrpcThread::queryDeviceConfigInfoResult, [](DeviceConfigInfoResp reply, bool status) {
                 say(QStringLiteral("4. Device configuration: login kind %1, server architecture %2, remember password %3 (%4).")
                         .arg(reply.authType)
                         .arg(reply.serverArch, reply.rememberPassword ? QStringLiteral("yes") : QStringLiteral("no"),
                              outcome(status, reply.error)));
             }),
             QStringLiteral("the device configuration query"));

        facade.queryGatewayInfo();
        step(awaitAnswer(facade, &VdiDesktopGrpcThread::queryGatewayInfoResult, [](GatewayInfoResp reply, bool status) {
                 QStringList names;
                 for (const tagGatewayInfo& gateway : qAsConst(reply.gatewayList))
                     names << QStringLiteral("%1 at %2 (VDP %3, RDP %4)").arg(gateway.name, gateway.publicIp, gateway.vdpPort, gateway.rdpPort);
                 say(QStringLiteral("5. Gateways: %1 (%2).")
                         .arg(names.isEmpty() ? QStringLiteral("none") : names.join(QStringLiteral("; ")), outcome(status, reply.error)));
             }),
             QStringLiteral("the gateway list query"));

        facade.queryControllerListForGrpcThread(QStringLiteral("127.0.0.1"));
        step(awaitAnswer(facade, &VdiDesktopGrpcThread::queryControllerListResultForGrpcThread,
                         [](QureyControllerListResp reply, bool status, QString serverIp) {
                             QStringList names;
                             for (const tagResourceInfo& resource : qAsConst(reply.resourceList))
                                 names << QStringLiteral("%1%2").arg(resource.name, resource.gateway ? QStringLiteral(" (gateway)") : QString());
                             say(QStringLiteral("6. Controllers known to %1: %2 (%3).")
                                     .arg(serverIp, names.join(QStringLiteral(", ")), outcome(status, reply.error)));
                         }),
             QStringLiteral("the controller list query"));

        facade.sendHeart(facade.getLocalIP(), QString(), -1);
        step(awaitAnswer(facade, &VdiDesktopGrpcThread::recvHeartbeatResultVDT, [](HeartbeatReply reply, bool status) {
                 say(QStringLiteral("7. Heartbeat sent; the next one follows in five minutes (%1).").arg(outcome(status, reply.error)));
             }),
             QStringLiteral("the heartbeat"));

        facade.stop();
        say(QStringLiteral("8. Stopped: pending calls cancelled, the worker thread has ended."));
    }
    simulator.stop();
    return failures;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QString logPath = QDir::current().filePath(QStringLiteral("vdi-demo.log"));
    g_logFile.setFileName(logPath);
    g_logFile.open(QIODevice::WriteOnly | QIODevice::Truncate);
    qInstallMessageHandler(collectLog);

    say(QStringLiteral("== libvdidesktopgrpc demo =="));
    const int failures = runSession(QStringLiteral("controller")) + runSession(QStringLiteral("gateway"));
    say(QStringLiteral("\nThe library's log is in %1.").arg(logPath));
    say(failures == 0 ? QStringLiteral("Demo finished: every step worked.")
                      : QStringLiteral("Demo finished with %1 failed step(s).").arg(failures));
    return failures == 0 ? 0 : 1;
}
