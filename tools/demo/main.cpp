// vdi-demo: short sessions of an application against the bundled simulator, once with a
// controller reached directly and once through an access gateway. It starts vdi-simulator on
// 127.0.0.1, drives the public VdiDesktopGrpcThread as an application would (discovery; with
// a controller reached directly, the login options and the branding; login, the desktop list,
// device registration, a desktop handed out with its connection data, its status report and
// snapshots; the remote and SaaS application catalogues, a remote application handed out with
// its address and policy, the SaaS permission for one application granted and one refused; the
// share terminals, the desktop handed on to one and a login on another; an upgrade check where
// the library makes one, a password change and, with a controller reached directly, a login
// through LDAP; gateways, controllers, heartbeat) and tells in plain words what happened at
// each step. Passwords are passed on, never printed. The simulator lets the first desktop
// assignment overrun its deadline, so the demo shows how an application asks again. The
// library's own log goes to a file.
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
#include <QFileInfo>
#include <QMutex>
#include <QProcess>
#include <QSettings>
#include <QStandardPaths>
#include <QStringList>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <algorithm>
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
// The version this demo reports as its own, in the identity and when it asks for an upgrade.
const char* const kClientVersion = "1.0.0";

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

// Who logs in: to the controller, to the access gateway in gateway deployments, and through
// the controller's LDAP directory.
struct Credentials {
    QString user;
    QString password;
    QString gatewayUser;
    QString gatewayPassword;
    QString ldapUser;
    QString ldapPassword;
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

// Both texts of a server's error, as far as it sent them.
QString errorText(const tagErrorData& error)
{
    return error.errorMsgEn.isEmpty() ? error.errorMsgZh
                                      : QStringLiteral("%1 / %2").arg(error.errorMsgZh, error.errorMsgEn);
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

// The ways of logging in that the server may offer besides user and password, as the demo
// names them.
struct LoginSwitch {
    bool LoginConfigResp::*enabled;
    const char* name;
};

const LoginSwitch kLoginSwitches[] = {
    {&LoginConfigResp::enableSmsLogin, "SMS"},
    {&LoginConfigResp::enableThirdPartyLogin, "third-party"},
    {&LoginConfigResp::enableWechatEnterpriseLogin, "WeChat Work"},
    {&LoginConfigResp::enableDingtalkLogin, "DingTalk"},
    {&LoginConfigResp::enableFaceLogin, "face"},
    {&LoginConfigResp::enableJjtLogin, "JJT"},
};

// Before the login, with a controller reached directly: the ways of logging in that it offers
// and its branding (steps 5 and 6).
void runLoginOptionSteps(VdiDesktopGrpcThread& facade, Tally& tally)
{
    facade.queryLoginConfig();
    tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::signalQueryLoginConfigResult,
                               [&](const LoginConfigResp& reply, bool status) {
                                   QStringList on;
                                   QStringList off;
                                   for (const LoginSwitch& option : kLoginSwitches)
                                       (reply.*option.enabled ? on : off) << QLatin1String(option.name);
                                   say(QStringLiteral("5. Login options besides user and password: %1 (off: %2); "
                                                      "timeout %3, third-party login at %4 (%5).")
                                           .arg(on.isEmpty() ? QStringLiteral("none") : on.join(QStringLiteral(", ")),
                                                off.isEmpty() ? QStringLiteral("none") : off.join(QStringLiteral(", ")))
                                           .arg(reply.timeout)
                                           .arg(reply.url.isEmpty() ? QStringLiteral("no address") : reply.url,
                                                outcome(status, reply.error)));
                                   tally.require(status, QStringLiteral("the login options were refused"));
                               }),
                   QStringLiteral("the login options query"));

    // The library delivers every branding answer twice. Both copies are counted from before the
    // request on, and the demo waits for the second, so that no later step can meet it.
    int copies = 0;
    const QMetaObject::Connection copyConnection =
        QObject::connect(&facade, &VdiDesktopGrpcThread::queryIndividualConfigInfoResultForGrpcThread, &facade,
                         [&copies] { ++copies; });
    facade.queryIndividualConfigForVdidesktopGrpcThread();
    tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::queryIndividualConfigInfoResultForGrpcThread,
                               [&](IndividualConfigResp reply, bool status) {
                                   if (copies > 1)
                                       return;  // the second copy, delivered in the same go
                                   say(QStringLiteral("6. Branding: \"%1\", %2, logo %3, greeting \"%4\" (%5).")
                                           .arg(reply.systemName, reply.copyRight, reply.logoImgUrl, reply.content,
                                                outcome(status, reply.error)));
                                   tally.require(status && !reply.systemName.isEmpty(),
                                                 QStringLiteral("no branding came"));
                               }),
                   QStringLiteral("the branding query"));
    const bool secondCame = waitUntil([&copies] { return copies >= 2; }, kAnswerTimeoutMs);
    tally.answered(secondCame, QStringLiteral("the second copy of the branding"));
    if (secondCame)
        say(QStringLiteral("    The library delivers this answer twice per request; the second copy came too "
                           "and is set aside."));
    QObject::disconnect(copyConnection);
}

// The name this terminal registers under and hands desktops on from.
QString terminalDeviceId(VdiDesktopGrpcThread& facade)
{
    return QStringLiteral("demo-") + facade.getLocalMAC().remove(QLatin1Char(':'));
}

// After the login: the terminal registers, gets a desktop of the user's first pool with its
// connection data, reports it connected and lists its snapshots (steps 11 to 15). Returns the
// uuid of the desktop handed out, empty when none was.
QString runDesktopSteps(VdiDesktopGrpcThread& facade, const LoginReply& login, Tally& tally)
{
    const QString mac = facade.getLocalMAC();
    const QString deviceId = terminalDeviceId(facade);
    facade.registerDevice(facade.getLocalIP(), mac, deviceId, QStringLiteral("demo-terminal"),
                          VdiGrpc::tagDeviceRegisterType(0));
    tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::registerDeviceResult,
                               [&](RegisterDeviceReply reply, bool status) {
                                   say(QStringLiteral("11. This terminal registered as \"%1\": register id %2 (%3).")
                                           .arg(deviceId)
                                           .arg(reply.registerId)
                                           .arg(outcome(status, reply.error)));
                                   tally.require(status && reply.registerId > 0,
                                                 QStringLiteral("the terminal was not registered"));
                               }),
                   QStringLiteral("the device registration"));

    const tagPoolInfo& pool = login.poolList.first();
    if (pool.vmList.isEmpty()) {
        say(QStringLiteral("12.-15. The pool \"%1\" lists no desktop to apply for.").arg(pool.name));
        tally.require(false, QStringLiteral("the user's first pool has no desktop"));
        return QString();
    }
    const tagVM& wanted = pool.vmList.first();
    const QString vmId = QString::number(wanted.vmId);
    // The application's own handle on the desktop entry; every answer brings it back.
    const tagVmNodeInfo node{QStringLiteral("pool-%1/desktop-%2").arg(pool.id).arg(wanted.vmId), wanted.vmName, 0};
    const auto sameNode = [&node](const tagVmNodeInfo& echoed) {
        return echoed.nodeId == node.nodeId && echoed.nodeName == node.nodeName && echoed.nodeIndex == node.nodeIndex;
    };

    // 12. While the controller is still preparing the desktop, the answer is true with error
    // code 4: the application asks again.
    say(QStringLiteral("12. Applying for the desktop \"%1\" of the pool \"%2\".").arg(wanted.vmName, pool.name));
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
        return QString();
    if (!assignedOk) {
        say(QStringLiteral("    Not handed out: %1.").arg(outcome(false, assigned.error)));
        tally.require(false, QStringLiteral("no desktop was handed out"));
        return QString();
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
                                   say(QStringLiteral("13. Connection data: spice at %1 port %2, the desktop %3 (%4).")
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
                                   say(QStringLiteral("14. Reported the desktop %1 (id %2) as connected (%3).")
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
                                   say(QStringLiteral("15. Snapshots of \"%1\" (query, type %2): %3 (%4).")
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
    return vm.vmUuid;
}

// The applications the demo asks for, as the simulator's catalogues name them: a remote one, a
// SaaS one open to every user and a SaaS one open to another user alone.
const char* const kRemoteAppName = "Word";
const char* const kGrantedSaasApp = "Mail";
const char* const kRefusedSaasApp = "Payroll";

// A row of a table below a step: every cell but the last padded to its column's width.
void sayRow(const QStringList& cells, const QList<int>& widths)
{
    QStringList padded;
    for (int i = 0; i < cells.size(); ++i)
        padded << (i + 1 < cells.size() ? cells.at(i).leftJustified(widths.value(i)) : cells.at(i));
    say(QStringLiteral("     ") + padded.join(QLatin1Char(' ')));
}

// After the desktop steps: both application catalogues, a remote application handed out with
// its address and policy, and the permission for two SaaS applications (steps 16 to 19).
void runApplicationSteps(VdiDesktopGrpcThread& facade, Tally& tally)
{
    facade.grpcThreadGetRemoteAppList();
    tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::signalGrpcThreadGetRemoteAppListResult,
                               [&](RemoteAppListResp reply, bool status) {
                                   say(QStringLiteral("16. Remote applications: %1 (%2).")
                                           .arg(reply.appList.size())
                                           .arg(outcome(status, reply.error)));
                                   const QList<int> widths{14};
                                   sayRow({QStringLiteral("Application"), QStringLiteral("Icon")}, widths);
                                   for (const tagRemoteAppInfo& app : qAsConst(reply.appList))
                                       sayRow({app.displayName, app.iconUrl}, widths);
                                   tally.require(status && !reply.appList.isEmpty(),
                                                 QStringLiteral("no remote applications were listed"));
                               }),
                   QStringLiteral("the remote application list"));

    // The library asks with the cached user name; the argument counts only when there is none.
    facade.grpcThreadApplyForRemoteApp(QLatin1String(kRemoteAppName), facade.getUserName());
    tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::signalGrpcThreadApplyRemoteAppResult,
                               [&](RemoteAppApplyResp reply, bool status) {
                                   say(QStringLiteral("17. Remote application \"%1\" handed out as %2: %3 (%4).")
                                           .arg(QLatin1String(kRemoteAppName), reply.appId,
                                                reply.fullAddress.isEmpty() ? QStringLiteral("no address")
                                                                            : reply.fullAddress,
                                                outcome(status, reply.error)));
                                   tally.require(status && !reply.fullAddress.isEmpty(),
                                                 QStringLiteral("the remote application was not handed out"));
                                   if (!status)
                                       return;  // the policy holds the library's defaults only
                                   const tagControlPolicy& policy = reply.controlPolicy;
                                   say(QStringLiteral("    Its policy: watermark \"%1\" in %2 pt, colour #%3, %4; "
                                                      "drives %5, USB storage %6.")
                                           .arg(policy.userDefine)
                                           .arg(policy.fontSize)
                                           .arg(policy.color,
                                                policy.watermarkEnable ? QStringLiteral("shown")
                                                                       : QStringLiteral("not shown"),
                                                policy.drivers ? QStringLiteral("shared") : QStringLiteral("blocked"),
                                                policy.storeReadonly ? QStringLiteral("read-only")
                                                                     : QStringLiteral("read-write")));
                               }),
                   QStringLiteral("the remote application request"));

    QList<tagSaasAppInfo> saasApps;
    facade.grpcThreadGetSaasAppList();
    tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::signalGrpcThreadGetSaasAppListResult,
                               [&](SaasAppListResp reply, bool status) {
                                   say(QStringLiteral("18. SaaS applications: %1 (%2).")
                                           .arg(reply.appList.size())
                                           .arg(outcome(status, reply.error)));
                                   const QList<int> widths{12, 8, 27};
                                   sayRow({QStringLiteral("Application"), QStringLiteral("Sign-on"),
                                           QStringLiteral("Address"), QStringLiteral("Description")},
                                          widths);
                                   for (const tagSaasAppInfo& app : qAsConst(reply.appList))
                                       sayRow({app.appName, app.ssoProtocol, app.appAddress, app.description}, widths);
                                   tally.require(status && !reply.appList.isEmpty(),
                                                 QStringLiteral("no SaaS applications were listed"));
                                   saasApps = reply.appList;
                               }),
                   QStringLiteral("the SaaS application list"));

    // Asked with the record the list brought, as an application does when the user picks one.
    // Only the first must be granted: the second is refused to this user, and shows how.
    const QString user = facade.getUserName();
    const auto askPermission = [&](const QString& label, const char* name, bool mustBeGranted) {
        const auto listed = std::find_if(saasApps.cbegin(), saasApps.cend(), [name](const tagSaasAppInfo& app) {
            return app.appName == QLatin1String(name);
        });
        if (listed == saasApps.cend()) {
            say(QStringLiteral("%1 The SaaS catalogue has no \"%2\" to ask about.").arg(label, QLatin1String(name)));
            if (mustBeGranted)
                tally.require(false, QStringLiteral("no SaaS application to ask the permission for"));
            return;
        }
        facade.grpcThreadQuerySaasApp(*listed);
        tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::signalGrpcThreadSaasAppResult,
                                   [&](SaasAppResp reply, bool granted) {
                                       say(QStringLiteral("%1 May \"%2\" open the SaaS application \"%3\"? %4.")
                                               .arg(label, user, reply.appInfo.appName,
                                                    granted ? QStringLiteral("Yes")
                                                            : QStringLiteral("No, refused: %1 (code %2)")
                                                                  .arg(errorText(reply.error))
                                                                  .arg(reply.error.errorCode)));
                                       if (mustBeGranted)
                                           tally.require(granted, QStringLiteral("the SaaS application was refused"));
                                   }),
                       QStringLiteral("the SaaS permission query"));
    };
    askPermission(QStringLiteral("19."), kGrantedSaasApp, true);
    askPermission(QStringLiteral("   "), kRefusedSaasApp, false);
}

// After the application steps: the share terminals, the desktop handed out earlier moved on to
// the first of them, and a login on the last one (steps 20 to 22).
void runShareTerminalSteps(VdiDesktopGrpcThread& facade, const Credentials& credentials, const QString& desktopUuid,
                           Tally& tally)
{
    const QString deviceId = terminalDeviceId(facade);
    QList<tagShareTerminalInfo> terminals;
    emit facade.queryShareTerminalInfo(tagShareTerminalInfoRequest{deviceId});
    tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::queryShareTerminalInfoResult,
                               [&](ShareTerminalInfoReply reply, bool status) {
                                   QStringList names;
                                   for (const tagShareTerminalInfo& terminal : qAsConst(reply.terminalList))
                                       names << QStringLiteral("%1 \"%2\"").arg(terminal.deviceId, terminal.terminalShareName);
                                   say(QStringLiteral("20. Share terminals: %1 (%2).")
                                           .arg(names.isEmpty() ? QStringLiteral("none") : names.join(QStringLiteral(", ")),
                                                outcome(status, reply.error)));
                                   tally.require(status, QStringLiteral("no share terminals were listed"));
                                   if (status)
                                       terminals = reply.terminalList;
                               }),
                   QStringLiteral("the share terminal list"));
    if (terminals.isEmpty()) {
        say(QStringLiteral("21.-22. No share terminal to hand the desktop to or to log in on."));
        return;
    }

    const tagShareTerminalInfo& first = terminals.first();
    if (desktopUuid.isEmpty()) {
        // Already counted where the desktop was asked for.
        say(QStringLiteral("21. No desktop was handed out earlier, so none goes to \"%1\".").arg(first.terminalShareName));
    } else {
        // Made up for the demo: what the share terminal would open the desktop with. It holds
        // no secrets.
        const QByteArray vdpFile = QByteArrayLiteral("[vdp]\nprotocol=spice\nvm-uuid=") + desktopUuid.toUtf8()
            + QByteArrayLiteral("\nhanded-over-by=vdi-demo\n");
        emit facade.transferDesktop2ShareTerminal(
            tagTransDesk2ShareTerminalRequest{deviceId, desktopUuid, first.deviceId, vdpFile});
        tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::transferDesktop2ShareTerminalResult,
                                   [&](TransDesk2ShareTerminalReply reply, bool status) {
                                       say(QStringLiteral("21. The desktop %1 handed on to the share terminal %2 \"%3\" "
                                                          "with a %4-byte vdp file (%5).")
                                               .arg(desktopUuid, first.deviceId, first.terminalShareName)
                                               .arg(vdpFile.size())
                                               .arg(outcome(status, reply.error)));
                                       tally.require(status, QStringLiteral("the desktop was not handed on"));
                                   }),
                       QStringLiteral("the desktop transfer"));
    }

    // The password goes to the server only; the demo never prints it.
    const tagShareTerminalInfo& last = terminals.last();
    emit facade.loginOakdeskHsareTerminal(
        tagLoginOakdeskShareTerminalRequest{last.deviceId, credentials.user, credentials.password});
    tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::loginOakdeskShareTerminalResult,
                               [&](LoginOakdeskShareTerminalReply reply, bool status) {
                                   say(QStringLiteral("22. \"%1\" logged in on the share terminal %2 \"%3\" with a "
                                                      "password (%4).")
                                           .arg(credentials.user, last.deviceId, last.terminalShareName,
                                                outcome(status, reply.error)));
                                   tally.require(status, QStringLiteral("the share terminal login was refused"));
                               }),
                   QStringLiteral("the share terminal login"));
}

// After the desktop, application and share terminal steps: an upgrade check, a password
// change, and, with a controller reached directly, a login through LDAP (steps 23 to 25).
void runAccountSteps(VdiDesktopGrpcThread& facade, const Credentials& credentials, const LoginReply& login,
                     bool gatewayMode, Tally& tally)
{
    if (gatewayMode) {
        say(QStringLiteral("23. No upgrade check: behind an access gateway the library never asks for one, "
                           "and checkUpgrade would get no answer."));
    } else {
        facade.checkUpgrade(QLatin1String(kClientVersion));
        tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::checkUpgradeResult,
                                   [&](UpgradeReply reply, bool status) {
                                       say(QStringLiteral("23. Upgrade check from version %1: version %2 offered, %3, "
                                                          "at %4: \"%5\" (%6).")
                                               .arg(QLatin1String(kClientVersion),
                                                    reply.clientVersion.isEmpty() ? QStringLiteral("none")
                                                                                  : reply.clientVersion,
                                                    reply.force ? QStringLiteral("forced") : QStringLiteral("optional"),
                                                    reply.url, reply.description, outcome(status, reply.error)));
                                       tally.require(status && !reply.clientVersion.isEmpty(),
                                                     QStringLiteral("no upgrade was offered"));
                                   }),
                       QStringLiteral("the upgrade check"));
    }

    // Changed and changed back, so that the user's password stays the one given to the demo.
    const auto changePassword = [&](const QString& from, const QString& to, const QString& what) {
        bool changed = false;
        facade.modifyPassword(credentials.user, from, to);
        tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::modifyPasswordResult,
                                   [&](ModifyPasswordReply reply, bool status) {
                                       say(QStringLiteral("%1 (%2).").arg(what, outcome(status, reply.error)));
                                       tally.require(status, QStringLiteral("the password was not changed"));
                                       changed = status;
                                   }),
                       QStringLiteral("the password change"));
        return changed;
    };
    const QString newPassword = credentials.password + QStringLiteral("-changed");
    if (changePassword(credentials.password, newPassword,
                       QStringLiteral("24. The password of \"%1\" changed to a new one").arg(credentials.user)))
        changePassword(newPassword, credentials.password, QStringLiteral("    And back to the old one"));

    if (gatewayMode) {
        say(QStringLiteral("25. No LDAP login here: the session with a controller reached directly shows one."));
        return;
    }
    // On a successful check the library logs in at once with the cached domain: the demo
    // caches the one the controller named at the first login. The login is caught from before
    // the request on, as it may come right behind the check's answer.
    facade.updateDomain(login.domain);
    bool ldapAnswered = false;
    bool ldapLoggedIn = false;
    LoginReply ldapLogin;
    const QMetaObject::Connection loginConnection =
        QObject::connect(&facade, &VdiDesktopGrpcThread::loginResult, &facade, [&](LoginReply reply, bool status) {
            ldapLogin = reply;
            ldapLoggedIn = status;
            ldapAnswered = true;
        });
    bool checked = false;
    facade.checkAndSaveLdapPasswd(credentials.ldapUser, credentials.ldapPassword, login.domain);
    tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::signalCheckAndSaveLdapPasswdResult,
                               [&](const tagCheckPasswordResp& reply, bool status) {
                                   say(QStringLiteral("25. The LDAP password of \"%1\" in the domain %2 checked (%3); %4.")
                                           .arg(credentials.ldapUser, login.domain, outcome(status, reply.error),
                                                status ? QStringLiteral("the library logs in with it at once")
                                                       : QStringLiteral("no login follows")));
                                   tally.require(status, QStringLiteral("the LDAP password was refused"));
                                   checked = status;
                               }),
                   QStringLiteral("the LDAP password check"));
    if (checked) {
        const bool loginCame = waitUntil([&ldapAnswered] { return ldapAnswered; }, kAnswerTimeoutMs);
        tally.answered(loginCame, QStringLiteral("the LDAP login"));
        if (loginCame) {
            say(QStringLiteral("    Logged in through LDAP as \"%1\": %2 pool(s), %3 desktop(s) (%4).")
                    .arg(ldapLogin.name)
                    .arg(ldapLogin.poolList.size())
                    .arg(desktopCount(ldapLogin))
                    .arg(outcome(ldapLoggedIn, ldapLogin.error)));
            tally.require(ldapLoggedIn && ldapLogin.name == credentials.ldapUser,
                          QStringLiteral("the LDAP login did not succeed"));
        }
    }
    QObject::disconnect(loginConnection);
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
// A terminal of the demo's own for the one-key help: the login user's screenshots and logs in a
// temporary folder, and stand-ins for the shell tools the library runs (w, sudo, dpkg, chown),
// first on PATH, so that nothing of this machine's is asked or changed. The stand-in of `w`
// names a display user whose "/home/<user>" is that folder.
class HelpTerminal
{
public:
    bool prepare()
    {
        if (!m_dir.isValid())
            return false;
        const QString root = m_dir.path();
        const QString user = root + QStringLiteral("/demo");
        const QList<QPair<QString, QByteArray>> files = {
            {QStringLiteral("/Documents/oneKeyHelpImage/screen-1.png"), QByteArray(48 * 1024, '\x5a')},
            {QStringLiteral("/Documents/oneKeyHelpImage/screen-2.png"), QByteArray(96 * 1024, '\x3c')},
            {QStringLiteral("/Documents/Birchlink/log/birchlink.log"), QByteArrayLiteral("12:00:01 session opened\n")},
            {QStringLiteral("/Documents/Oakdesk/log/oakdesk.log"), QByteArrayLiteral("12:00:02 login ok\n")},
        };
        for (const auto& file : files) {
            if (!writeFile(user + file.first, file.second))
                return false;
        }
        QDir().mkpath(user + QStringLiteral("/Downloads"));
        const QString bin = root + QStringLiteral("/bin");
        // "/home/" followed by this name is the folder above.
        const QString userName = QStringLiteral("..") + user;
        const QPair<QString, QString> tools[] = {
            {QStringLiteral("w"), QStringLiteral("echo ' 12:00:00 up 1 day,  1 user,  load average: 0.00'\n"
                                                 "echo 'USER     TTY      FROM     LOGIN@   IDLE   JCPU   PCPU WHAT'\n"
                                                 "echo '%1 tty7     :0       11:58    1:00m  0.10s  0.01s xsession'\n")
                                      .arg(userName)},
            {QStringLiteral("sudo"), QStringLiteral("case \"$1\" in dpkg|chown) t=\"$1\"; shift; exec '%1/'\"$t\" \"$@\" ;; esac\n"
                                                    "exit 1\n").arg(bin)},
            {QStringLiteral("dpkg"), QStringLiteral("echo 'ii  oakdesk  2.1.0  amd64  3.4.5-demo  Oakdesk desktop client'\n")},
            {QStringLiteral("chown"), QStringLiteral("exit 0\n")},
        };
        for (const auto& tool : tools) {
            const QString path = bin + QLatin1Char('/') + tool.first;
            if (!writeFile(path, (QStringLiteral("#!/bin/sh\n") + tool.second).toUtf8())
                || !QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner))
                return false;
        }
        m_oldPath = qgetenv("PATH");
        qputenv("PATH", QFile::encodeName(bin) + ':' + m_oldPath);
        m_user = user;
        return true;
    }
    ~HelpTerminal()
    {
        if (!m_user.isEmpty())
            qputenv("PATH", m_oldPath);
    }
    // Zip files left behind in the user's Downloads folder.
    QStringList leftovers() const
    {
        return QDir(m_user + QStringLiteral("/Downloads")).entryList(QDir::Files);
    }

private:
    static bool writeFile(const QString& path, const QByteArray& content)
    {
        QDir().mkpath(QFileInfo(path).path());
        QFile file(path);
        return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
    }

    QTemporaryDir m_dir{QDir::tempPath() + QStringLiteral("/vdi-demo-help-XXXXXX")};
    QString m_user;
    QByteArray m_oldPath;
};

// Step 29: a help report. Behind a gateway the library then packages the user's screenshots and
// logs and uploads them (the simulator lists what it received); with a controller reached
// directly it only tells the server where the screenshots can be fetched.
void runHelpStep(VdiDesktopGrpcThread& facade, bool gatewayMode, Tally& tally)
{
    HelpTerminal terminal;
    if (gatewayMode && !terminal.prepare()) {
        tally.require(false, QStringLiteral("the help step could not prepare its sample terminal"));
        return;
    }
    facade.sendUserAskInfo(facade.getLocalMAC(), QStringLiteral("Demo User"), QStringLiteral("010-12345678"),
                           QStringLiteral("demo-user@example.com"), QStringLiteral("display"),
                           QStringLiteral("The desktop freezes when a video plays."), 1,
                           QStringLiteral("screenshots"), facade.getLocalIP(), QString());
    tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::SendUserAskHelpInfoResult,
                               [&](OneKeyHelpInfoReply reply, bool status) {
                                   say(QStringLiteral("29. Help report sent: task %1 (%2).")
                                           .arg(reply.taskId)
                                           .arg(outcome(status, reply.error)));
                                   tally.require(status, QStringLiteral("the help report was refused"));
                               }),
                   QStringLiteral("the help report"));
    if (!gatewayMode) {
        say(QStringLiteral("    Reached directly, the controller fetches the screenshots itself: nothing was packaged."));
        return;
    }
    const QStringList left = terminal.leftovers();
    say(QStringLiteral("    Screenshots and logs packaged and uploaded (the simulator lists them above); %1 left in "
                       "Downloads.")
            .arg(left.isEmpty() ? QStringLiteral("no zip") : left.join(QStringLiteral(", "))));
    tally.require(left.isEmpty(), QStringLiteral("zip files were left behind"));
}

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
        extend.clientVersion = QLatin1String(kClientVersion);
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

        if (gatewayMode)
            say(QStringLiteral("5.-6. No login options or branding before the login: behind the gateway every "
                               "controller call but discovery wants the token that the login brings."));
        else
            runLoginOptionSteps(facade, tally);

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
                say(QStringLiteral("7. The library asks for the access gateway's user and password (none saved yet); "
                                   "the demo answers as \"%1\".")
                        .arg(credentials.gatewayUser));
                emit facade.loginGateway(credentials.gatewayUser, credentials.gatewayPassword);
            });
        if (!gatewayMode)
            say(QStringLiteral("7. No gateway in this deployment: the login goes straight to the controller."));
        bool loggedIn = false;
        LoginReply loginReply;
        facade.login(credentials.user, credentials.password, QStringLiteral("0"));
        const bool loginAnswered =
            awaitAnswer(facade, &VdiDesktopGrpcThread::loginResult, [&](LoginReply reply, bool status) {
                loggedIn = status;
                loginReply = reply;
                if (status)
                    say(QStringLiteral("8. Logged in as \"%1\" (user id %2, domain %3%4): %5 pool(s), %6 desktop(s).")
                            .arg(reply.name)
                            .arg(reply.userId)
                            .arg(reply.domain, gatewayMode ? QStringLiteral(", through the gateway") : QString())
                            .arg(reply.poolList.size())
                            .arg(desktopCount(reply)));
                else
                    say(QStringLiteral("8. Login as \"%1\" refused: %2 (code %3).")
                            .arg(credentials.user, errorText(reply.error))
                            .arg(reply.error.errorCode));
            });
        QObject::disconnect(askConnection);
        tally.answered(loginAnswered, QStringLiteral("the login"));
        if (loginAnswered)
            tally.require(loggedIn, QStringLiteral("the login did not succeed"));
        if (gatewayMode)
            tally.require(askedForGateway, QStringLiteral("the library never asked for the gateway's credentials"));

        if (loggedIn) {
            say(QStringLiteral("9. The pools and desktops of \"%1\":").arg(loginReply.name));
            printPools(loginReply);
            tally.require(!loginReply.poolList.isEmpty(), QStringLiteral("the user has no pools"));

            facade.updateVmInfoFromServer();
            tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::updateVmInfoFromServerResult,
                             [&](LoginReply reply, bool status) {
                                 say(QStringLiteral("10. Desktop list fetched again: %1 pool(s), %2 desktop(s) (%3).")
                                         .arg(reply.poolList.size())
                                         .arg(desktopCount(reply))
                                         .arg(outcome(status, reply.error)));
                                 tally.require(status && reply.poolList.size() == loginReply.poolList.size(),
                                             QStringLiteral("the refreshed desktop list differs from the login's"));
                             }),
                 QStringLiteral("the desktop list refresh"));
            const QString desktopUuid =
                loginReply.poolList.isEmpty() ? QString() : runDesktopSteps(facade, loginReply, tally);
            runApplicationSteps(facade, tally);
            runShareTerminalSteps(facade, credentials, desktopUuid, tally);
            runAccountSteps(facade, credentials, loginReply, gatewayMode, tally);
        } else {
            say(QStringLiteral("9.-25. Not logged in: no pools to show, no desktop or application to apply for, no "
                               "share terminal to use, no password to change."));
        }

        facade.queryGatewayInfo();
        tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::queryGatewayInfoResult, [](GatewayInfoResp reply, bool status) {
                 QStringList names;
                 for (const tagGatewayInfo& gateway : qAsConst(reply.gatewayList))
                     names << QStringLiteral("%1 at %2 (VDP %3, RDP %4)").arg(gateway.name, gateway.publicIp, gateway.vdpPort, gateway.rdpPort);
                 say(QStringLiteral("26. Gateways: %1 (%2).")
                         .arg(names.isEmpty() ? QStringLiteral("none") : names.join(QStringLiteral("; ")), outcome(status, reply.error)));
             }),
             QStringLiteral("the gateway list query"));

        facade.queryControllerListForGrpcThread(QStringLiteral("127.0.0.1"));
        tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::queryControllerListResultForGrpcThread,
                         [](QureyControllerListResp reply, bool status, QString serverIp) {
                             QStringList names;
                             for (const tagResourceInfo& resource : qAsConst(reply.resourceList))
                                 names << QStringLiteral("%1%2").arg(resource.name, resource.gateway ? QStringLiteral(" (gateway)") : QString());
                             say(QStringLiteral("27. Controllers known to %1: %2 (%3).")
                                     .arg(serverIp, names.join(QStringLiteral(", ")), outcome(status, reply.error)));
                         }),
             QStringLiteral("the controller list query"));

        facade.sendHeart(facade.getLocalIP(), QString(), -1);
        tally.answered(awaitAnswer(facade, &VdiDesktopGrpcThread::recvHeartbeatResultVDT, [](HeartbeatReply reply, bool status) {
                 say(QStringLiteral("28. Heartbeat sent; the next one follows in five minutes (%1).").arg(outcome(status, reply.error)));
             }),
             QStringLiteral("the heartbeat"));

        runHelpStep(facade, gatewayMode, tally);

        facade.stop();
        say(QStringLiteral("30. Stopped: pending calls cancelled, the worker thread has ended."));
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
    const QCommandLineOption ldapUserOption(QStringLiteral("ldap-user"), QStringLiteral("LDAP user to log in as."),
                                            QStringLiteral("NAME"),
                                            QString::fromUtf8(vdifake::SimulatedDeployment::kDefaultLdapUserName));
    const QCommandLineOption ldapPasswordOption(QStringLiteral("ldap-password"), QStringLiteral("Its password."),
                                                QStringLiteral("PASSWORD"),
                                                QString::fromUtf8(vdifake::SimulatedDeployment::kDefaultLdapPassword));
    parser.addOptions({userOption, passwordOption, gatewayUserOption, gatewayPasswordOption, ldapUserOption,
                       ldapPasswordOption});
    parser.process(app);
    Credentials credentials;
    credentials.user = parser.value(userOption);
    credentials.password = parser.value(passwordOption);
    credentials.gatewayUser = parser.value(gatewayUserOption);
    credentials.gatewayPassword = parser.value(gatewayPasswordOption);
    credentials.ldapUser = parser.value(ldapUserOption);
    credentials.ldapPassword = parser.value(ldapPasswordOption);

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
