// vdi-demo: a short session of an application against the bundled simulator. It starts
// vdi-simulator on 127.0.0.1, drives the public VdiDesktopGrpcThread as an application would and
// tells in plain words what happened at each step. The library's own log goes to a file.
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMutex>
#include <QProcess>
#include <QStringList>
#include <QTextStream>
#include <QThread>

#include <cstdio>

#include "vdidesktopgrpcthread.h"

namespace {

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

void say(const QString& text)
{
    std::fputs((text + QLatin1Char('\n')).toUtf8().constData(), stdout);
    std::fflush(stdout);
}

struct Simulator {
    QProcess process;
    int port = 0;
    QString pem;
    QString commonName;

    bool start(const QString& program)
    {
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start(program, {QStringLiteral("--mode"), QStringLiteral("controller"),
                                QStringLiteral("--until-stdin-closes")});
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

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QString logPath = QDir::current().filePath(QStringLiteral("vdi-demo.log"));
    g_logFile.setFileName(logPath);
    g_logFile.open(QIODevice::WriteOnly | QIODevice::Truncate);
    qInstallMessageHandler(collectLog);

    say(QStringLiteral("== libvdidesktopgrpc demo session =="));
    Simulator simulator;
    const QString simulatorProgram = QCoreApplication::applicationDirPath() + QStringLiteral("/vdi-simulator");
    if (!simulator.start(simulatorProgram)) {
        say(QStringLiteral("FAILED: the simulator %1 did not start").arg(simulatorProgram));
        return 1;
    }
    say(QStringLiteral("1. Simulated controller listening on 127.0.0.1:%1; its certificate is %2 "
                       "(subject \"%3\", which is not the host name).")
            .arg(simulator.port).arg(simulator.pem, simulator.commonName));

    int failures = 0;
    {
        VdiDesktopGrpcThread facade;
        say(QStringLiteral("2. Created the client object; its worker runs on a thread of its own."));

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
        facade.setLocalIP(QStringLiteral("127.0.0.1"));
        facade.setLocalMAC(QStringLiteral("02:00:00:00:00:01"));
        say(QStringLiteral("3. Identity cached: user %1, address %2, MAC %3 (also the device id).")
                .arg(facade.getUserName(), facade.getLocalIP(), facade.getLocalMAC()));

        facade.initServerType(0);
        facade.initConnection(simulator.pem, QStringLiteral("127.0.0.1"), ushort(simulator.port), false);
        const int outcome = waitForLog({QStringLiteral(" grpcheader language: "),
                                        QStringLiteral("pem file could not open"),
                                        QStringLiteral("subject name is null"),
                                        QStringLiteral("Failed to create")},
                                       5000);
        if (outcome == 0) {
            say(QStringLiteral("4. TLS channels to the controller are built, trusting %1 under the name \"%2\"; "
                               "calls will carry the language \"zh\".")
                    .arg(simulator.pem, simulator.commonName));
        } else {
            say(QStringLiteral("4. FAILED: the connection could not be set up (see %1).").arg(logPath));
            ++failures;
        }

        facade.stop();
        say(QStringLiteral("5. Stopped: pending calls cancelled, the worker thread has ended."));
    }

    simulator.stop();
    say(QStringLiteral("6. Simulator stopped. The library's log is in %1.").arg(logPath));
    say(failures == 0 ? QStringLiteral("Demo finished: every step worked.")
                      : QStringLiteral("Demo finished with %1 failed step(s).").arg(failures));
    return failures == 0 ? 0 : 1;
}
