// vdi-client: the road of a thin client from the command line, over the library's facade, for
// any controller or access gateway: discovery, login (directly or through a gateway), pools and
// desktops, a desktop handed out with its connection data, operations on it, heartbeat,
// applications, share terminals and the one-key help report. Every invocation is one session:
// commands that need a user log in first. Passwords are sent, never printed.

#include "clientsession.h"
#include "doctor.h"
#include "report.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcessEnvironment>
#include <QSslCertificate>

#include <cstdio>
#include <map>

#include <unistd.h>

using namespace vdiclient;

namespace {

using Row = Report::Row;

int failed(const Session& session, Report& report, const Outcome& outcome, const QString& what)
{
    report.failure(outcome.exitCode(), QStringLiteral("%1: %2").arg(what, outcome.describe(session.options().english)),
                   outcome.codes());
    return outcome.exitCode();
}

int usage(Report& report, const QString& text)
{
    report.failure(ExitUsage, text);
    return ExitUsage;
}

// A port the library hands over as text, as a number (null when there is none).
QVariant number(const QString& port)
{
    bool read = false;
    const int value = port.toInt(&read);
    return read ? QVariant(value) : QVariant();
}

QString firstAddress(const tagVMInfo& vm)
{
    for (const tagVMAddress& address : vm.addressList)
        if (!address.ipList.isEmpty())
            return address.ipList.first();
    return vm.ipList.isEmpty() ? QString() : vm.ipList.first();
}

// A desktop of the login's pools by name, UUID or id.
struct Found {
    const tagPoolInfo* pool = nullptr;
    const tagVM* vm = nullptr;
    tagVmNodeInfo node() const { return tagVmNodeInfo{vm->vmUuid, vm->vmName, 0}; }
};

Found findDesktop(const LoginReply& login, const QString& key)
{
    for (const tagPoolInfo& pool : login.poolList)
        for (const tagVM& vm : pool.vmList)
            if (vm.vmName == key || vm.vmUuid == key || QString::number(vm.vmId) == key)
                return Found{&pool, &vm};
    return Found{};
}

// Logs in, or fills the report with why not; returns the exit code. Every command that needs
// a user starts here.
int logIn(Session& session, Report& report, LoginReply* login)
{
    if (session.options().user.isEmpty())
        return usage(report, QStringLiteral("this command logs in: give --user (and --password or VDI_PASSWORD)"));
    const Outcome outcome = session.login(login);
    if (outcome.exitCode() != ExitOk)
        return failed(session, report, outcome, QStringLiteral("login as \"%1\"").arg(session.options().user));
    return ExitOk;
}

// Logs in and finds the desktop that `key` names (pointing into `*login`); returns the exit code.
int logInTo(Session& session, Report& report, const QString& key, LoginReply* login, Found* found)
{
    if (const int code = logIn(session, report, login))
        return code;
    *found = findDesktop(*login, key);
    if (!found->vm)
        return usage(report, QStringLiteral("no desktop \"%1\" among the user's desktops").arg(key));
    return ExitOk;
}

// The answer to one request: waits for `signal`, lets `take` read the record, and fills the
// outcome from the record's error and the flag.
template <class Reply, class... Rest, class Take>
Outcome answer(Session& session, void (VdiDesktopGrpcThread::*signal)(Reply, bool, Rest...), Take take)
{
    Outcome outcome;
    outcome.answered = session.await(signal, [&](Reply reply, bool ok, Rest...) {
        outcome.ok = ok;
        outcome.error = reply.error;
        take(reply);
    });
    return outcome;
}

// ---- Commands -----------------------------------------------------------------------------

int discover(Session& session, const QStringList&, Report& report)
{
    Outcome outcome;
    if (!session.connectToServer(&outcome))
        return failed(session, report, outcome, QStringLiteral("server type"));
    VdiDesktopGrpcThread& facade = session.facade();
    const QJsonObject identity = session.discovery();
    for (auto it = identity.begin(); it != identity.end(); ++it)
        report.field(it.key(), it.value().toVariant());

    if (session.gatewayDeployment()) {
        std::vector<Row> gateways;
        facade.queryGatewayInfo();
        outcome = answer(session, &VdiDesktopGrpcThread::queryGatewayInfoResult, [&](const GatewayInfoResp& reply) {
            for (const tagGatewayInfo& g : reply.gatewayList)
                gateways.push_back({{"name", g.name}, {"type", g.type}, {"domain", g.domain}, {"publicIp", g.publicIp},
                                    {"vdpPort", number(g.vdpPort)}, {"rdpPort", number(g.rdpPort)}});
        });
        if (outcome.exitCode() != ExitOk)
            return failed(session, report, outcome, QStringLiteral("gateways"));
        report.table(QStringLiteral("gateways"), QStringLiteral("Access gateways"), gateways);
    }

    facade.queryControllerTypeForGrpcThread(session.options().server);
    outcome = answer(session, &VdiDesktopGrpcThread::queryControllerTypeResultForGrpcThread,
                     [&](const QueryControllerTypeResp& reply) { report.field(QStringLiteral("serverName"), reply.name); });
    if (outcome.exitCode() != ExitOk)
        return failed(session, report, outcome, QStringLiteral("server name"));

    std::vector<Row> nodes;
    facade.queryControllerListForGrpcThread(session.options().server);
    outcome = answer(session, &VdiDesktopGrpcThread::queryControllerListResultForGrpcThread,
                     [&](const QureyControllerListResp& reply) {
                         for (const tagResourceInfo& n : reply.resourceList)
                             nodes.push_back({{"name", n.name}, {"ip", n.ip}, {"port", n.port}, {"status", n.status},
                                              {"gateway", n.gateway}});
                     });
    if (outcome.exitCode() != ExitOk)
        return failed(session, report, outcome, QStringLiteral("nodes"));
    report.table(QStringLiteral("nodes"), QStringLiteral("Nodes"), nodes);
    return ExitOk;
}

int login(Session& session, const QStringList&, Report& report)
{
    LoginReply reply;
    if (const int code = logIn(session, report, &reply))
        return code;
    report.field(QStringLiteral("user"), reply.name);
    report.field(QStringLiteral("userId"), reply.userId);
    report.field(QStringLiteral("domain"), reply.domain);
    report.field(QStringLiteral("throughGateway"), session.gatewayDeployment());
    report.field(QStringLiteral("pools"), reply.poolList.size());
    return ExitOk;
}

int desktops(Session& session, const QStringList&, Report& report)
{
    LoginReply reply;
    if (const int code = logIn(session, report, &reply))
        return code;
    std::vector<Row> pools, desktops;
    for (const tagPoolInfo& pool : reply.poolList) {
        pools.push_back({{"id", pool.id}, {"name", pool.name}, {"extra", pool.isExPool}, {"desktops", pool.vmList.size()}});
        for (const tagVM& vm : pool.vmList)
            desktops.push_back({{"pool", pool.name}, {"name", vm.vmName}, {"state", vm.vmStatus},
                                {"address", firstAddress(vm)}, {"snapshots", vm.snapshotList.size()}, {"uuid", vm.vmUuid}});
    }
    report.table(QStringLiteral("pools"), QStringLiteral("Pools"), pools);
    report.table(QStringLiteral("desktops"), QStringLiteral("Desktops"), desktops);
    return ExitOk;
}

// Asks for a desktop of the pool again while the controller is still preparing it, then for its
// connection data. The reply's passwords are for a remote-desktop client and never printed.
int apply(Session& session, const QStringList& args, Report& report)
{
    if (args.size() != 1)
        return usage(report, QStringLiteral("apply wants one pool (name or id)"));
    LoginReply login;
    if (const int code = logIn(session, report, &login))
        return code;
    const tagPoolInfo* pool = nullptr;
    for (const tagPoolInfo& p : login.poolList)
        if (p.name == args[0] || QString::number(p.id) == args[0])
            pool = &p;
    if (!pool)
        return usage(report, QStringLiteral("no pool \"%1\" among the user's pools").arg(args[0]));
    VdiDesktopGrpcThread& facade = session.facade();
    const tagVM* wanted = pool->vmList.isEmpty() ? nullptr : &pool->vmList.first();
    const QString vmId = wanted ? QString::number(wanted->vmId) : QString();
    const QString vmUuid = wanted ? wanted->vmUuid : QString();
    const tagVmNodeInfo node{pool->name, wanted ? wanted->vmName : QString(), 0};

    ApplyForVMReply assigned;
    Outcome outcome;
    const int attempts = 5;
    for (int attempt = 1; attempt <= attempts; ++attempt) {
        facade.applyForVM(node, QString::number(pool->id), vmId, vmUuid, pool->name, QString(), 0);
        outcome = answer(session, &VdiDesktopGrpcThread::applyForVMResult, [&](const ApplyForVMReply& r) { assigned = r; });
        if (!(outcome.ok && assigned.error.errorCode == 4))
            break;
        std::fprintf(stderr, "the controller is still preparing the desktop; asking again\n");
        outcome.ok = false;  // still preparing after the last attempt
    }
    if (outcome.exitCode() != ExitOk || (assigned.error.errorCode != 0 && assigned.error.errorCode != -1))
        return failed(session, report, outcome, QStringLiteral("desktop of the pool \"%1\"").arg(pool->name));

    const tagVMInfo& vm = assigned.vmInfo;
    OperateForVMReply connection;
    facade.applyForVMOfQuery(node, QString::number(vm.vmId), vm.vmUuid, QString(), 0, VdiGrpc::tagOperateVMWay(0),
                             VdiGrpc::tagOperateVMType(0));
    outcome = answer(session, &VdiDesktopGrpcThread::applyForVMOfQueryResult,
                     [&](const OperateForVMReply& r) { connection = r; });
    if (outcome.exitCode() != ExitOk)
        return failed(session, report, outcome, QStringLiteral("connection data of \"%1\"").arg(vm.vmName));
    report.field(QStringLiteral("desktop"), vm.vmName);
    report.field(QStringLiteral("uuid"), vm.vmUuid);
    report.field(QStringLiteral("state"), connection.vmInfo.vmStatus);
    report.field(QStringLiteral("address"), firstAddress(vm));
    report.field(QStringLiteral("protocol"), QStringLiteral("spice"));
    report.field(QStringLiteral("host"), connection.hostIp.isEmpty() ? assigned.hostIp : connection.hostIp);
    report.field(QStringLiteral("port"), number(connection.spicePort));
    if (!connection.tlsPort.isEmpty())
        report.field(QStringLiteral("tlsPort"), number(connection.tlsPort));
    report.field(QStringLiteral("account"), assigned.userNameOrDeviceName);
    return ExitOk;
}

int operate(Session& session, const QStringList& args, Report& report)
{
    static const std::map<QString, int> actions = {{QStringLiteral("state"), 0},    {QStringLiteral("start"), 1},
                                                   {QStringLiteral("shutdown"), 2}, {QStringLiteral("reboot"), 3},
                                                   {QStringLiteral("disconnect"), 4}, {QStringLiteral("poweroff"), 5}};
    const auto action = args.size() == 2 ? actions.find(args[1]) : actions.end();
    if (action == actions.end())
        return usage(report, QStringLiteral("operate wants a desktop and one of state, start, shutdown, reboot, "
                                            "disconnect, poweroff"));
    LoginReply login;
    Found found;
    if (const int code = logInTo(session, report, args[0], &login, &found))
        return code;
    OperateForVMReply reply;
    session.facade().operateVM(found.node(), QString::number(found.vm->vmId), found.vm->vmUuid,
                               VdiGrpc::tagOperateVMType(action->second), VdiGrpc::tagOperateVMWay(0), 0, QString());
    Outcome outcome = answer(session, &VdiDesktopGrpcThread::operateVMResult, [&](const OperateForVMReply& r) { reply = r; });
    // A disconnect counts as delivered once the server answered: its error still tells.
    if (outcome.ok && reply.error.errorCode > 0)
        outcome.ok = false;
    if (outcome.exitCode() != ExitOk)
        return failed(session, report, outcome, QStringLiteral("%1 \"%2\"").arg(action->first, found.vm->vmName));
    report.field(QStringLiteral("desktop"), found.vm->vmName);
    report.field(QStringLiteral("state"), reply.vmInfo.vmStatus);
    report.field(QStringLiteral("host"), reply.hostIp);
    report.field(QStringLiteral("port"), number(reply.spicePort));
    return ExitOk;
}

int snapshot(Session& session, const QStringList& args, Report& report)
{
    static const std::map<QString, int> actions = {{QStringLiteral("create"), 1}, {QStringLiteral("delete"), 2},
                                                   {QStringLiteral("revert"), 3}, {QStringLiteral("list"), 4}};
    const auto action = args.size() >= 2 ? actions.find(args[1]) : actions.end();
    if (action == actions.end() || (action->second != 4 && args.size() != 3))
        return usage(report, QStringLiteral("snapshot wants a desktop and list, or create|delete|revert NAME"));
    LoginReply login;
    Found found;
    if (const int code = logInTo(session, report, args[0], &login, &found))
        return code;
    const QString name = args.value(2);
    SnapshotReply reply;
    session.facade().snapshot(found.node(), QString::number(found.vm->vmId), found.vm->vmUuid,
                              VdiGrpc::tagSnapshotType(action->second), name, name);
    const Outcome outcome = answer(session, &VdiDesktopGrpcThread::snapshotResult, [&](const SnapshotReply& r) { reply = r; });
    if (outcome.exitCode() != ExitOk)
        return failed(session, report, outcome, QStringLiteral("snapshot %1 of \"%2\"").arg(action->first, found.vm->vmName));
    std::vector<Row> snapshots;
    for (const tagSnapshotInfo& s : reply.snapshotList)
        snapshots.push_back({{"name", s.name}, {"description", s.description}});
    report.table(QStringLiteral("snapshots"), QStringLiteral("Snapshots of %1").arg(found.vm->vmName), snapshots);
    return ExitOk;
}

int rename(Session& session, const QStringList& args, Report& report)
{
    if (args.size() != 2)
        return usage(report, QStringLiteral("rename wants a desktop and its new name"));
    LoginReply login;
    Found found;
    if (const int code = logInTo(session, report, args[0], &login, &found))
        return code;
    session.facade().modifyVMName(found.node(), QString::number(found.vm->vmId), found.vm->vmUuid, args[1], 0, false);
    const Outcome outcome = answer(session, &VdiDesktopGrpcThread::modifyVMNameResult, [](const ModifyVMNameReply&) {});
    if (outcome.exitCode() != ExitOk)
        return failed(session, report, outcome, QStringLiteral("rename \"%1\"").arg(found.vm->vmName));
    report.field(QStringLiteral("desktop"), args[1]);
    return ExitOk;
}

int heartbeat(Session& session, const QStringList&, Report& report)
{
    LoginReply login;
    if (const int code = logIn(session, report, &login))
        return code;
    session.facade().sendHeart(QString(), QString(), -1);
    Outcome outcome = answer(session, &VdiDesktopGrpcThread::recvHeartbeatResultVDT, [](const HeartbeatReply&) {});
    // The library answers true for a server out of reach (14) or slow (4): here that is a failure.
    if (outcome.ok && outcome.error.errorCode > 0)
        outcome.ok = false;
    if (outcome.exitCode() != ExitOk)
        return failed(session, report, outcome, QStringLiteral("heartbeat"));
    report.field(QStringLiteral("heartbeat"), QStringLiteral("answered"));
    return ExitOk;
}

int apps(Session& session, const QStringList& args, Report& report)
{
    LoginReply login;
    if (const int code = logIn(session, report, &login))
        return code;
    VdiDesktopGrpcThread& facade = session.facade();
    QList<tagRemoteAppInfo> remote;
    QList<tagSaasAppInfo> saas;
    facade.grpcThreadGetRemoteAppList();
    Outcome outcome = answer(session, &VdiDesktopGrpcThread::signalGrpcThreadGetRemoteAppListResult,
                             [&](const RemoteAppListResp& r) { remote = r.appList; });
    if (outcome.exitCode() != ExitOk)
        return failed(session, report, outcome, QStringLiteral("remote applications"));
    facade.grpcThreadGetSaasAppList();
    outcome = answer(session, &VdiDesktopGrpcThread::signalGrpcThreadGetSaasAppListResult,
                     [&](const SaasAppListResp& r) { saas = r.appList; });
    if (outcome.exitCode() != ExitOk)
        return failed(session, report, outcome, QStringLiteral("SaaS applications"));

    if (args.isEmpty()) {
        std::vector<Row> rows;
        for (const tagRemoteAppInfo& a : remote)
            rows.push_back({{"name", a.displayName}, {"kind", QStringLiteral("remote")}, {"address", QString()}});
        for (const tagSaasAppInfo& a : saas)
            rows.push_back({{"name", a.appName}, {"kind", QStringLiteral("saas")}, {"address", a.appAddress}});
        report.table(QStringLiteral("applications"), QStringLiteral("Applications"), rows);
        return ExitOk;
    }
    // One application opened: a remote one's address and policy, or a SaaS one's permission.
    for (const tagRemoteAppInfo& a : remote) {
        if (a.displayName != args[0])
            continue;
        RemoteAppApplyResp opened;
        facade.grpcThreadApplyForRemoteApp(a.displayName, session.options().user);
        outcome = answer(session, &VdiDesktopGrpcThread::signalGrpcThreadApplyRemoteAppResult,
                         [&](const RemoteAppApplyResp& r) { opened = r; });
        if (outcome.exitCode() != ExitOk)
            return failed(session, report, outcome, QStringLiteral("remote application \"%1\"").arg(a.displayName));
        report.field(QStringLiteral("application"), opened.displayName);
        report.field(QStringLiteral("address"), opened.fullAddress);
        report.field(QStringLiteral("watermark"), opened.controlPolicy.watermarkEnable != 0);
        return ExitOk;
    }
    for (const tagSaasAppInfo& a : saas) {
        if (a.appName != args[0])
            continue;
        facade.grpcThreadQuerySaasApp(a);
        outcome = answer(session, &VdiDesktopGrpcThread::signalGrpcThreadSaasAppResult, [](const SaasAppResp&) {});
        if (outcome.exitCode() != ExitOk)
            return failed(session, report, outcome, QStringLiteral("SaaS application \"%1\"").arg(a.appName));
        report.field(QStringLiteral("application"), a.appName);
        report.field(QStringLiteral("address"), a.appAddress);
        report.field(QStringLiteral("permitted"), true);
        return ExitOk;
    }
    return usage(report, QStringLiteral("no application \"%1\"").arg(args[0]));
}

int shareTerminals(Session& session, const QStringList&, Report& report)
{
    LoginReply login;
    if (const int code = logIn(session, report, &login))
        return code;
    tagShareTerminalInfoRequest request;
    request.deviceId = session.facade().getLocalMAC();
    std::vector<Row> rows;
    emit session.facade().queryShareTerminalInfo(request);
    const Outcome outcome = answer(session, &VdiDesktopGrpcThread::queryShareTerminalInfoResult,
                                   [&](const ShareTerminalInfoReply& r) {
                                       for (const tagShareTerminalInfo& t : r.terminalList)
                                           rows.push_back({{"device", t.deviceId}, {"name", t.terminalShareName}});
                                   });
    if (outcome.exitCode() != ExitOk)
        return failed(session, report, outcome, QStringLiteral("share terminals"));
    report.table(QStringLiteral("shareTerminals"), QStringLiteral("Share terminals"), rows);
    return ExitOk;
}

// The ways of logging in that the server offers, and its branding. Behind a gateway the
// controller answers these only to a logged-in client.
int options(Session& session, const QStringList&, Report& report)
{
    Outcome outcome;
    if (!session.connectToServer(&outcome))
        return failed(session, report, outcome, QStringLiteral("server type"));
    if (session.gatewayDeployment()) {
        LoginReply login;
        if (const int code = logIn(session, report, &login))
            return code;
    }
    VdiDesktopGrpcThread& facade = session.facade();
    facade.queryLoginConfig();
    outcome = answer(session, &VdiDesktopGrpcThread::signalQueryLoginConfigResult, [&](const LoginConfigResp& r) {
        report.field(QStringLiteral("smsLogin"), r.enableSmsLogin);
        report.field(QStringLiteral("thirdPartyLogin"), r.enableThirdPartyLogin);
        report.field(QStringLiteral("thirdPartyUrl"), r.url);
        report.field(QStringLiteral("loginTimeout"), r.timeout);
    });
    if (outcome.exitCode() != ExitOk)
        return failed(session, report, outcome, QStringLiteral("login options"));
    facade.queryIndividualConfigForVdidesktopGrpcThread();
    outcome = answer(session, &VdiDesktopGrpcThread::queryIndividualConfigInfoResultForGrpcThread,
                     [&](const IndividualConfigResp& r) {
                         report.field(QStringLiteral("systemName"), r.systemName);
                         report.field(QStringLiteral("copyright"), r.copyRight);
                         report.field(QStringLiteral("logo"), r.logoImgUrl);
                     });
    if (outcome.exitCode() != ExitOk)
        return failed(session, report, outcome, QStringLiteral("branding"));
    return ExitOk;
}

int password(Session& session, const QStringList& args, Report& report)
{
    if (args.size() != 1)
        return usage(report, QStringLiteral("password wants the new password"));
    LoginReply login;
    if (const int code = logIn(session, report, &login))
        return code;
    session.facade().modifyPassword(session.options().user, session.options().password, args[0]);
    const Outcome outcome = answer(session, &VdiDesktopGrpcThread::modifyPasswordResult, [](const ModifyPasswordReply&) {});
    if (outcome.exitCode() != ExitOk)
        return failed(session, report, outcome, QStringLiteral("password change"));
    report.field(QStringLiteral("password"), QStringLiteral("changed"));
    return ExitOk;
}

int upgrade(Session& session, const QStringList&, Report& report)
{
    LoginReply login;
    if (const int code = logIn(session, report, &login))
        return code;
    if (session.gatewayDeployment()) {
        report.note(QStringLiteral("behind an access gateway the library asks for no upgrade"));
        return ExitOk;
    }
    session.facade().checkUpgrade(QCoreApplication::applicationVersion());
    const Outcome outcome = answer(session, &VdiDesktopGrpcThread::checkUpgradeResult, [&](const UpgradeReply& r) {
        report.field(QStringLiteral("version"), r.clientVersion);
        report.field(QStringLiteral("forced"), r.force != 0);
        report.field(QStringLiteral("url"), r.url);
    });
    if (outcome.exitCode() != ExitOk)
        return failed(session, report, outcome, QStringLiteral("upgrade check"));
    return ExitOk;
}

int registerDevice(Session& session, const QStringList&, Report& report)
{
    LoginReply login;
    if (const int code = logIn(session, report, &login))
        return code;
    VdiDesktopGrpcThread& facade = session.facade();
    facade.registerDevice(facade.getLocalIP(), facade.getLocalMAC(), facade.getLocalMAC(), QStringLiteral("vdi-client"),
                          VdiGrpc::tagDeviceRegisterType(0));
    const Outcome outcome = answer(session, &VdiDesktopGrpcThread::registerDeviceResult, [&](const RegisterDeviceReply& r) {
        report.field(QStringLiteral("registerId"), r.registerId);
    });
    if (outcome.exitCode() != ExitOk)
        return failed(session, report, outcome, QStringLiteral("registration"));
    return ExitOk;
}

// The help report; behind a gateway the library then packages and uploads the login user's
// screenshots and logs, for minutes, with no progress of its own: a live line tells the time.
int helpReport(Session& session, const QStringList& args, Report& report)
{
    if (args.size() != 2 && args.size() != 3)
        return usage(report, QStringLiteral("help-report wants a problem type, a description and, when there are "
                                            "screenshots, where they are"));
    Outcome outcome;
    if (!session.connectToServer(&outcome))
        return failed(session, report, outcome, QStringLiteral("server type"));
    VdiDesktopGrpcThread& facade = session.facade();
    QElapsedTimer elapsed;
    elapsed.start();
    QTimer ticker;
    if (::isatty(STDERR_FILENO)) {
        QObject::connect(&ticker, &QTimer::timeout, [&elapsed] {
            std::fprintf(stderr, "\r  sending the help report ... %lld s", elapsed.elapsed() / 1000);
            std::fflush(stderr);
        });
        ticker.start(1000);
    }
    OneKeyHelpInfoReply reply;
    facade.sendUserAskInfo(facade.getLocalMAC(), session.options().user, QString(), QString(), args[0], args[1], 1,
                           args.value(2), facade.getLocalIP(), QString());
    outcome = answer(session, &VdiDesktopGrpcThread::SendUserAskHelpInfoResult, [&](const OneKeyHelpInfoReply& r) { reply = r; });
    if (ticker.isActive())
        std::fputc('\n', stderr);
    if (outcome.exitCode() != ExitOk)
        return failed(session, report, outcome, QStringLiteral("help report"));
    report.field(QStringLiteral("taskId"), reply.taskId);
    report.field(QStringLiteral("seconds"), elapsed.elapsed() / 1000);
    return ExitOk;
}

struct Command {
    const char* name;
    const char* arguments;
    const char* summary;
    const char* details;  // for `vdi-client help NAME` and `vdi-client NAME --help`
    bool logsIn;
    int (*run)(Session&, const QStringList&, Report&);  // null: the doctor, which reads the pem itself
};

const Command kCommands[] = {
    {"discover", "", "server type, gateways, server name and nodes (no login)",
     "Asks the server its type: a controller, or an access gateway in front of one. Behind a gateway\n"
     "it lists the gateways (name, type, domain, public address, display and RDP ports). Then the\n"
     "server's name and its nodes (controllers and gateways with address, port and status). It also\n"
     "shows the local address and MAC that reach the server, and the TLS name that is checked: the\n"
     "subject of the certificate in --pem, whatever the address.",
     false, discover},
    {"login", "", "logs in (password; --sms, --ldap) and tells the user and the number of pools",
     "Logs in and shows the user, its id and domain, whether the login went through an access\n"
     "gateway, and the number of pools. With --sms CODE --ticket TICKET the login is by SMS code;\n"
     "with --ldap DOMAIN the password is checked in that LDAP domain first, and the login follows.",
     true, login},
    {"options", "", "the ways of logging in that the server offers, and its branding",
     "The ways of logging in that the server offers (SMS, third party and its address, the login\n"
     "timeout) and its branding (system name, copyright, logo). Behind an access gateway the\n"
     "controller answers these only after a login, so there it logs in first.",
     true, options},
    {"desktops", "", "the user's pools and desktops with their state",
     "Logs in and lists the user's pools (id, name, extra pool, number of desktops) and desktops\n"
     "(pool, name, power state, address, number of snapshots, UUID).",
     true, desktops},
    {"apply", "POOL", "a desktop of the pool, with its connection data (never its passwords)",
     "Asks the controller for a desktop of POOL (a pool's name or id) and then for its connection\n"
     "data: the desktop, its state and address, the display protocol, the host and port to connect\n"
     "to, and the account. While the controller is still preparing the desktop it answers \"ask\n"
     "again\": the client asks up to five times. The passwords in the reply (the account's and the\n"
     "display's) are never printed.",
     true, apply},
    {"operate", "DESKTOP ACTION", "state, start, shutdown, reboot, disconnect or poweroff a desktop",
     "ACTION is state (only report it), start, shutdown, reboot, disconnect or poweroff. Shows the\n"
     "desktop's state, host and display port as the controller answers them.",
     true, operate},
    {"snapshot", "DESKTOP list|create NAME|delete NAME|revert NAME", "the desktop's snapshots",
     "list shows the desktop's snapshots; create NAME takes one (NAME is its description too),\n"
     "delete NAME and revert NAME act on one. The snapshots are listed after each. A pool that\n"
     "allows no snapshots refuses (exit code 3).",
     true, snapshot},
    {"rename", "DESKTOP NAME", "renames a desktop", "Gives the desktop a new name; later logins show it.", true,
     rename},
    {"heartbeat", "", "one heartbeat after the login",
     "Logs in and sends one heartbeat. A heartbeat the server does not answer fails the command\n"
     "(exit code 2, 4 or 5), although an application would keep its session then.",
     true, heartbeat},
    {"apps", "[NAME]", "remote and SaaS applications; with NAME, opens one",
     "Lists the remote applications (published over RDP) and the SaaS applications (web addresses).\n"
     "With NAME it opens that one: a remote application's address and whether its policy puts a\n"
     "watermark on it, or whether the user may open the SaaS application (refused: exit code 3).",
     true, apps},
    {"share-terminals", "", "the share terminals", "Lists the share terminals (device and name) this terminal can pass a desktop to.",
     true, shareTerminals},
    {"register", "", "registers this terminal",
     "Registers this terminal (its address and MAC) with the controller and shows its register id.", true,
     registerDevice},
    {"password", "NEW", "changes the user's password", "Changes the password of --user from --password to NEW.", true,
     password},
    {"upgrade", "", "asks for a newer client (not behind a gateway)",
     "Asks the controller whether a newer client is offered: its version, whether it is forced, and\n"
     "where to fetch it. Behind an access gateway the library asks nothing.",
     true, upgrade},
    {"help-report", "TYPE DESCRIPTION [SCREENSHOTS]",
     "a one-key help report with the logs, and the screenshots when SCREENSHOTS says where they are (behind a "
     "gateway: packaged and uploaded)",
     "Sends a one-key help report: the problem's TYPE (e.g. display) and DESCRIPTION, asking for the\n"
     "logs; a non-empty SCREENSHOTS says that screenshots exist. Directly to a controller the\n"
     "controller takes the report and answers a task id. Behind an access gateway the library then\n"
     "packages the logs and screenshots of the terminal's login user into zip files and uploads\n"
     "them, which can take minutes with no progress of its own: on a terminal a line counts the\n"
     "seconds on stderr. The --timeout covers the whole upload, so give it room.",
     false, helpReport},
    {"doctor", "", "why this terminal cannot connect, step by step, and what to do",
     "Walks the road to the server one step at a time and says in plain words what each step\n"
     "found: the pem file (its subject, the name that the library checks, alternative names,\n"
     "issuer, dates by this terminal's clock, SHA-256 fingerprint); the address (name resolution\n"
     "and the local address that the library names this terminal by); the port (TCP: refused,\n"
     "timed out or unreachable, and how long it took); TLS (the certificate that the server\n"
     "presents, whether the pem verifies it, whether the checked name matches it as gRPC matches\n"
     "names, its dates); the service (the server-type query through the library and its time;\n"
     "behind an access gateway, whether the saved token is still accepted). The first step that\n"
     "fails is followed by what to do; the steps after it are not tried. --timeout bounds each\n"
     "wait. With --json: {\"steps\": [{name, ok, tried, words, details}], \"advice\"}. Exit code 0\n"
     "when every step passes, 2 when one fails, 1 for a bad command line (no --pem).",
     false, nullptr},
};

const Command* findCommand(const QString& name)
{
    for (const Command& c : kCommands)
        if (name == QLatin1String(c.name))
            return &c;
    return nullptr;
}

const char kLoginHelp[] =
    "Logging in: as --user, with --password (else VDI_PASSWORD, else asked on the terminal\n"
    "without echo). Behind an access gateway the gateway's user and password come from\n"
    "--gateway-user and --gateway-password (else VDI_GATEWAY_PASSWORD, else asked); the library\n"
    "keeps the gateway's token in ~/Documents/gateway/gatewaySettings.ini for the next runs.\n"
    "Where there is no terminal the answers are read from stdin; nothing to read there is a bad\n"
    "command line.\n";

const char kExitCodes[] =
    "Exit codes: 0 done; 1 bad command line; 2 the server cannot be reached (or no TLS\n"
    "channel: check --pem); 3 refused by the server (its code and text are printed);\n"
    "4 another gRPC failure; 5 no answer in time.";

QString helpText()
{
    QString text = QStringLiteral(
        "A thin client's road from the command line, for a controller or an access gateway.\n\n"
        "Commands (DESKTOP: a name, UUID or id of the user's desktops; POOL: a name or id):\n");
    for (const Command& c : kCommands)
        text += QStringLiteral("  %1 %2\n      %3\n").arg(QLatin1String(c.name), QLatin1String(c.arguments),
                                                        QLatin1String(c.summary));
    text += QStringLiteral(
        "  help COMMAND (or COMMAND --help)\n      what a command does\n"
        "\nEvery command is one session: those that need a user discover the server and log in first,\n"
        "through the access gateway when the server says there is one (its user and password from\n"
        "--gateway-user and --gateway-password, else asked on the terminal).\n\n"
        "Results go to stdout; errors, questions and the library's critical lines to stderr. With\n"
        "--json stdout holds one JSON document, an error too: {\"error\": {\"message\", \"exitCode\",\n"
        "and \"grpcStatus\" or \"serverCode\" when there is one}}.\n\n");
    return text + QLatin1String(kExitCodes);
}

QString commandHelp(const Command& c)
{
    QString text = QStringLiteral("Usage: vdi-client [options] %1 %2\n\n%3\n\n")
                       .arg(QLatin1String(c.name), QLatin1String(c.arguments), QLatin1String(c.details));
    if (c.logsIn)
        text += QLatin1String(kLoginHelp) + QLatin1Char('\n');
    return text + QStringLiteral("vdi-client --help lists the options.\n") + QLatin1String(kExitCodes) +
           QLatin1Char('\n');
}

// The name that the library checks, from the certificate in --pem, before anything is asked: a
// file that is missing is a bad command line, one without a certificate with a subject gives no
// TLS channel.
int readPem(Options* options, Report* report)
{
    QFile file(options->pem);
    if (options->pem.isEmpty() || !file.open(QIODevice::ReadOnly)) {
        report->failure(ExitUsage, options->pem.isEmpty()
                                       ? QStringLiteral("give the server's certificate with --pem FILE")
                                       : QStringLiteral("cannot read --pem \"%1\": %2").arg(options->pem, file.errorString()));
        return ExitUsage;
    }
    const QList<QSslCertificate> certificates = QSslCertificate::fromData(file.readAll());
    if (const QSslCertificate* named = namedCertificate(certificates)) {
        options->tlsName = named->subjectDisplayName();
        return ExitOk;
    }
    report->failure(ExitConnection, QStringLiteral("no TLS channel: \"%1\" holds %2 (--pem)")
                                        .arg(options->pem, certificates.isEmpty()
                                                               ? QStringLiteral("no PEM certificate")
                                                               : QStringLiteral("no certificate with a subject, the name "
                                                                                "that is checked")));
    return ExitConnection;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vdi-client"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VDI_CLIENT_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(helpText());
    const QCommandLineOption helpOption = parser.addHelpOption();
    const QCommandLineOption versionOption = parser.addVersionOption();
    const QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    const QCommandLineOption server(QStringLiteral("server"),
                                    QStringLiteral("Controller or gateway (default 127.0.0.1)."),
                                    QStringLiteral("ADDRESS"), QStringLiteral("127.0.0.1"));
    const QCommandLineOption port(QStringLiteral("port"), QStringLiteral("Its port (default 443)."), QStringLiteral("N"),
                                  QStringLiteral("443"));
    const QCommandLineOption pem(QStringLiteral("pem"),
                                 QStringLiteral("Its certificate (PEM); the name checked is the certificate's subject."),
                                 QStringLiteral("FILE"));
    const QCommandLineOption english(QStringLiteral("english"), QStringLiteral("Ask for English texts."));
    const QCommandLineOption timeout(QStringLiteral("timeout"),
                                     QStringLiteral("How long to wait for each answer (default 35)."),
                                     QStringLiteral("SECONDS"), QStringLiteral("35"));
    const QCommandLineOption user(QStringLiteral("user"), QStringLiteral("User to log in as."), QStringLiteral("NAME"));
    const QCommandLineOption password(QStringLiteral("password"),
                                      QStringLiteral("Password (else VDI_PASSWORD, else asked)."), QStringLiteral("PASSWORD"));
    const QCommandLineOption gatewayUser(QStringLiteral("gateway-user"), QStringLiteral("Access gateway user."),
                                         QStringLiteral("NAME"));
    const QCommandLineOption gatewayPassword(QStringLiteral("gateway-password"),
                                             QStringLiteral("Access gateway password (else VDI_GATEWAY_PASSWORD, else asked)."),
                                             QStringLiteral("PASSWORD"));
    const QCommandLineOption sms(QStringLiteral("sms"), QStringLiteral("Log in with this SMS code."), QStringLiteral("CODE"));
    const QCommandLineOption ticket(QStringLiteral("ticket"), QStringLiteral("The SMS login's ticket."),
                                    QStringLiteral("TICKET"));
    const QCommandLineOption ldap(QStringLiteral("ldap"), QStringLiteral("Log in through LDAP in this domain."),
                                  QStringLiteral("DOMAIN"));
    const QCommandLineOption json(QStringLiteral("json"),
                                  QStringLiteral("Print one JSON document on stdout, an error in it too (as \"error\")."));
    const QCommandLineOption verbose(QStringLiteral("verbose"),
                                     QStringLiteral("The library's whole log, and gRPC's, on stderr."));
    parser.addOptions({server, port, pem, english, timeout, user, password, gatewayUser, gatewayPassword, sms, ticket, ldap,
                       json, verbose});
    parser.addPositionalArgument(QStringLiteral("command"), QStringLiteral("One of the commands above."));
    Report report;
    if (!parser.parse(QCoreApplication::arguments())) {
        report.failure(ExitUsage, parser.errorText());
        report.print(false);
        return ExitUsage;
    }
    if (parser.isSet(versionOption))
        parser.showVersion();
    QStringList args = parser.positionalArguments();
    const bool helpCommand = args.value(0) == QLatin1String("help");
    if (parser.isSet(helpOption) || helpCommand) {
        const QString name = args.value(helpCommand ? 1 : 0);
        if (name.isEmpty())
            parser.showHelp(ExitOk);
        if (const Command* described = findCommand(name)) {
            std::fputs(commandHelp(*described).toLocal8Bit().constData(), stdout);
            return ExitOk;
        }
        report.failure(ExitUsage, QStringLiteral("unknown command \"%1\" (vdi-client --help lists them)").arg(name));
        report.print(parser.isSet(json));
        return ExitUsage;
    }
    const Command* command = findCommand(args.value(0));
    bool portRead = false, timeoutRead = false;
    const uint portNumber = parser.value(port).toUInt(&portRead);
    const int seconds = parser.value(timeout).toInt(&timeoutRead);
    QString wrong;
    if (!command)
        wrong = args.isEmpty() ? QStringLiteral("name a command (vdi-client --help lists them)")
                               : QStringLiteral("unknown command \"%1\" (vdi-client --help lists them)").arg(args[0]);
    else if (!portRead || portNumber == 0 || portNumber > 65535)
        wrong = QStringLiteral("--port wants a number from 1 to 65535, not \"%1\"").arg(parser.value(port));
    else if (!timeoutRead || seconds <= 0)
        wrong = QStringLiteral("--timeout wants a number of seconds from 1 up, not \"%1\"").arg(parser.value(timeout));
    if (!wrong.isEmpty()) {
        report.failure(ExitUsage, wrong);
        report.print(parser.isSet(json));
        return ExitUsage;
    }
    args.removeFirst();

    Options options;
    options.server = parser.value(server);
    options.port = quint16(portNumber);
    options.pem = parser.value(pem);
    options.english = parser.isSet(english);
    options.timeoutMs = seconds * 1000;
    options.user = parser.value(user);
    options.password = parser.isSet(password) ? parser.value(password) : env.value(QStringLiteral("VDI_PASSWORD"));
    options.gatewayUser = parser.value(gatewayUser);
    options.gatewayPassword =
        parser.isSet(gatewayPassword) ? parser.value(gatewayPassword) : env.value(QStringLiteral("VDI_GATEWAY_PASSWORD"));
    options.smsCode = parser.value(sms);
    options.ticket = parser.value(ticket);
    options.ldapDomain = parser.value(ldap);
    options.json = parser.isSet(json);
    options.verbose = parser.isSet(verbose);
    options.passwordGiven = parser.isSet(password) || env.contains(QStringLiteral("VDI_PASSWORD"));

    installLogHandler(options.verbose);
    if (!command->run)
        return runDoctor(options);
    const int pemCode = readPem(&options, &report);
    if (pemCode != ExitOk) {
        report.print(options.json);
        return pemCode;
    }
    int code = ExitOk;
    {
        Session session(options);
        code = command->run(session, args, report);
    }
    report.print(options.json);
    return code;
}
