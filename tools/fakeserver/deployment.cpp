// The simulated deployment as a whole: its construction from a description, its users and
// records, the installation of its answers on a server, and the gateway's token check. The
// answers themselves are in deployment_<family>.cpp.
#include "deployment_answers.h"

#include "scenario.h"

#include <google/protobuf/descriptor.h>

#include "gateway/gateway_core.pb.h"

#include <iterator>
#include <set>

namespace vdifake {

using namespace detail;

const char* const SimulatedDeployment::kDefaultUserName = "demo-user";
const char* const SimulatedDeployment::kDefaultUserPassword = "demo-password";
const char* const SimulatedDeployment::kDefaultGatewayUserName = "gw-user";
const char* const SimulatedDeployment::kDefaultGatewayPassword = "gw-password";
const char* const SimulatedDeployment::kDefaultLdapUserName = "ldap-user";
const char* const SimulatedDeployment::kDefaultLdapPassword = "ldap-password";

namespace {

const char* const kLoginMethod = "/client.ClientCore/Login";
const char* const kOperateForVmMethod = "/client.ClientCore/OperateForVm";
const char* const kRecoverVmMethod = "/client.ClientCore/RecoverVm";
const char* const kSnapshotMethod = "/client.ClientCore/Snapshot";
const char* const kModifyVmNameMethod = "/client.ClientCore/ModifyVmName";
const char* const kApplyForVmMethod = "/client.ClientCore/ApplyForVm";
const char* const kApplyForDeviceInfoMethod = "/client.ClientCore/ApplyForDeviceInfo";
const char* const kQueryVmDetailInfoMethod = "/client.ClientCore/queryVmDetailInfo";
const char* const kRegisterDeviceMethod = "/client.ClientCore/RegisterDevice";
const char* const kReportSuccessMethod = "/client.ClientCore/ReportSuccess";
const char* const kUsbNotifyMethod = "/client.ClientCore/USBNotify";
const char* const kRedirectStatusMethod = "/client.ClientCore/reportRedirectStatus";
const char* const kCheckPasswordMethod = "/client.ClientCore/CheckPassword";
const char* const kCheckLdapPasswordMethod = "/client.ClientCore/CheckAndSaveLdapPassword";
const char* const kModifyPasswordMethod = "/client.ClientCore/ModifyPassword";
const char* const kGetCodeMethod = "/client.ClientCore/getCode";
const char* const kRemoteAppListMethod = "/client.ClientCore/GetRemoteAppList";
const char* const kConnectAppInfoMethod = "/client.ClientCore/getConnectAppInfo";
const char* const kSaasAppListMethod = "/client.ClientCore/querySaasAppList";
const char* const kSaasAppMethod = "/client.ClientCore/querySaasApp";
const char* const kShareTerminalInfoMethod = "/client.ClientCore/queryShareTerminalInfo";
const char* const kShareTerminalTransferMethod = "/client.ClientCore/transferDesktopToShareTerminal";
const char* const kShareTerminalLoginMethod = "/client.ClientCore/LoginOakdeskOnShareTerminal";
const char* const kHelpReportMethod = "/client.ClientCore/onekeyHelp";
const char* const kHelpUploadMethod = "/client.ClientCore/onekeyHelpUseGateway";
const char* const kCheckAuthStatusMethod = "/gateway.GatewayCore/CheckAuthStatus";
const char* const kLoginGatewayMethod = "/gateway.GatewayCore/LoginGateway";
const char* const kLoginConfigMethod = "/client.ClientCore/getLoginConfig";
const char* const kBrandingMethod = "/client.ClientCore/queryIndividualConfig";
const char* const kTokenKey = "gatewayaccesstoken";

// ClientCore methods a client calls before it has logged in to the gateway, and the
// heartbeat: the gateway lets them through without a token.
const char* const kOpenClientMethods[] = {
    "/client.ClientCore/WhoAreYou",
    "/client.ClientCore/QueryNodes",
    "/client.ClientCore/queryAgentUseControllerIp",
    "/client.ClientCore/queryDeviceConfigInfo",
    "/client.ClientCore/Heartbeat",
};

std::map<std::string, std::string> toStd(const std::map<QString, QString>& users)
{
    std::map<std::string, std::string> out;
    for (const auto& u : users)
        out[u.first.toStdString()] = u.second.toStdString();
    return out;
}

std::map<QString, QString> toQt(const std::map<std::string, std::string>& users)
{
    std::map<QString, QString> out;
    for (const auto& u : users)
        out[QString::fromStdString(u.first)] = QString::fromStdString(u.second);
    return out;
}

// The built-in deployment with its lists emptied: what a described deployment starts from,
// so that the scalars it leaves out (the login answer, the login codes, the gateway's domain
// and tokens) keep the built-in values.
config::Deployment describedDefaults()
{
    config::Deployment d;
    if (builtInScenario().deployment)
        d = *builtInScenario().deployment;
    d.clear_mode();
    d.clear_user();
    d.clear_ldap_user();
    d.clear_pool();
    d.clear_remote_app();
    d.clear_saas_app();
    d.clear_share_terminal();
    d.clear_fault();
    d.clear_login_config();
    d.clear_branding();
    d.clear_apply_overruns();
    d.mutable_gateway()->clear_user();
    d.mutable_gateway()->clear_token();
    return d;
}

std::map<std::string, std::string> usersOf(const google::protobuf::RepeatedPtrField<config::User>& list)
{
    std::map<std::string, std::string> users;
    for (const config::User& user : list)
        users[user.name()] = user.password();
    return users;
}

} // namespace

SimulatedDeployment::SimulatedDeployment() : m_config(new config::Deployment)
{
    // The built-in scenario's deployment (default.scenario).
    configure(builtInScenario().deployment ? *builtInScenario().deployment : config::Deployment());
}

SimulatedDeployment::SimulatedDeployment(const config::Deployment& description) : m_config(new config::Deployment)
{
    configure(description);
}

SimulatedDeployment::~SimulatedDeployment() = default;

void SimulatedDeployment::configure(const config::Deployment& description)
{
    if (description.extends_built_in() && builtInScenario().deployment)
        *m_config = *builtInScenario().deployment;
    else
        *m_config = describedDefaults();
    m_config->MergeFrom(description);
    m_users = usersOf(m_config->user());
    m_ldapUsers = usersOf(m_config->ldap_user());
    m_gatewayUsers = usersOf(m_config->gateway().user());
    m_smsCodes.clear();
    for (const config::User& user : m_config->user()) {
        if (!user.sms_code().empty())
            m_smsCodes[user.name()] = user.sms_code();
    }
    m_issuedTokens = std::set<std::string>(m_config->gateway().token().begin(), m_config->gateway().token().end());
    m_faultCalls.assign(static_cast<size_t>(m_config->fault_size()), 0);
    m_applyOverruns = std::max(m_config->apply_overruns(), 0);
}

const config::Deployment& SimulatedDeployment::description() const
{
    return *m_config;
}

void SimulatedDeployment::setDownHandler(std::function<void(const std::string& method, int downForMs)> handler)
{
    m_onDown = std::move(handler);
}

void SimulatedDeployment::addUser(const QString& name, const QString& password)
{
    m_users[name.toStdString()] = password.toStdString();
}

void SimulatedDeployment::setUsers(const std::map<QString, QString>& users)
{
    m_users = toStd(users);
}

void SimulatedDeployment::addGatewayUser(const QString& name, const QString& password)
{
    m_gatewayUsers[name.toStdString()] = password.toStdString();
}

void SimulatedDeployment::setGatewayUsers(const std::map<QString, QString>& users)
{
    m_gatewayUsers = toStd(users);
}

void SimulatedDeployment::addLdapUser(const QString& name, const QString& password)
{
    m_ldapUsers[name.toStdString()] = password.toStdString();
}

void SimulatedDeployment::setLdapUsers(const std::map<QString, QString>& users)
{
    m_ldapUsers = toStd(users);
}

std::map<QString, QString> SimulatedDeployment::users() const
{
    return toQt(m_users);
}

std::map<QString, QString> SimulatedDeployment::gatewayUsers() const
{
    return toQt(m_gatewayUsers);
}

std::map<QString, QString> SimulatedDeployment::ldapUsers() const
{
    return toQt(m_ldapUsers);
}

void SimulatedDeployment::setApplyOverruns(int count)
{
    m_applyOverruns = std::max(count, 0);
}

int SimulatedDeployment::applyOverrunsLeft() const
{
    return m_applyOverruns;
}

std::vector<SimulatedDeployment::ShareTerminalTransfer> SimulatedDeployment::shareTerminalTransfers() const
{
    std::lock_guard<std::mutex> lock(m_recordsMutex);
    return m_transfers;
}

std::vector<SimulatedDeployment::ShareTerminalLogin> SimulatedDeployment::shareTerminalLogins() const
{
    std::lock_guard<std::mutex> lock(m_recordsMutex);
    return m_shareLogins;
}

void SimulatedDeployment::setShareTerminalObservers(std::function<void(const ShareTerminalTransfer&)> onTransfer,
                                                    std::function<void(const ShareTerminalLogin&)> onLogin)
{
    m_onTransfer = std::move(onTransfer);
    m_onShareLogin = std::move(onLogin);
}

std::vector<SimulatedDeployment::HelpReport> SimulatedDeployment::helpReports() const
{
    std::lock_guard<std::mutex> lock(m_recordsMutex);
    return m_helpReports;
}

std::vector<SimulatedDeployment::HelpUpload> SimulatedDeployment::helpUploads() const
{
    std::lock_guard<std::mutex> lock(m_recordsMutex);
    return m_helpUploads;
}

void SimulatedDeployment::setHelpObservers(std::function<void(const HelpReport&)> onReport,
                                           std::function<void(const HelpUpload&)> onUpload)
{
    m_onHelpReport = std::move(onReport);
    m_onHelpUpload = std::move(onUpload);
}

void SimulatedDeployment::install(FakeServer& server, const QString& mode)
{
    m_gatewayMode = mode == QLatin1String("gateway");

    // The controller methods this deployment answers itself, behind the gateway's token check
    // but for the help calls, which a client sends without any metadata.
    struct Answered {
        const char* path;
        Answer answer;
        bool guarded = true;
    };
    const Answered answered[] = {
        {kLoginMethod, &SimulatedDeployment::answerLogin},
        {kOperateForVmMethod, &SimulatedDeployment::answerOperateForVm},
        {kRecoverVmMethod, &SimulatedDeployment::answerRecoverVm},
        {kSnapshotMethod, &SimulatedDeployment::answerSnapshot},
        {kModifyVmNameMethod, &SimulatedDeployment::answerModifyVmName},
        {kApplyForVmMethod, &SimulatedDeployment::answerApplyForVm},
        {kApplyForDeviceInfoMethod, &SimulatedDeployment::answerApplyForDeviceInfo},
        {kQueryVmDetailInfoMethod, &SimulatedDeployment::answerQueryVmDetailInfo},
        {kRegisterDeviceMethod, &SimulatedDeployment::answerRegisterDevice},
        {kReportSuccessMethod, &SimulatedDeployment::answerReportSuccess},
        {kUsbNotifyMethod, &SimulatedDeployment::answerUsbNotify},
        {kRedirectStatusMethod, &SimulatedDeployment::answerRedirectStatus},
        {kCheckPasswordMethod, &SimulatedDeployment::answerCheckPassword},
        {kCheckLdapPasswordMethod, &SimulatedDeployment::answerCheckLdapPassword},
        {kModifyPasswordMethod, &SimulatedDeployment::answerModifyPassword},
        {kGetCodeMethod, &SimulatedDeployment::answerGetCode},
        {kRemoteAppListMethod, &SimulatedDeployment::answerRemoteAppList},
        {kConnectAppInfoMethod, &SimulatedDeployment::answerConnectAppInfo},
        {kSaasAppListMethod, &SimulatedDeployment::answerSaasAppList},
        {kSaasAppMethod, &SimulatedDeployment::answerSaasApp},
        {kShareTerminalInfoMethod, &SimulatedDeployment::answerShareTerminalInfo},
        {kShareTerminalTransferMethod, &SimulatedDeployment::answerShareTerminalTransfer},
        {kShareTerminalLoginMethod, &SimulatedDeployment::answerShareTerminalLogin},
        {kHelpReportMethod, &SimulatedDeployment::answerHelpReport, false},
        {kHelpUploadMethod, &SimulatedDeployment::answerHelpUpload, false},
    };
    // Every method this deployment may answer, with its responder (none: cleared).
    std::map<std::string, FakeServer::Responder> responders;
    for (const auto& entry : answered) {
        const Answer answerCall = entry.answer;
        const bool guarded = entry.guarded;
        responders[entry.path] = [this, answerCall, guarded](const RecordedCall& call, Script* answer) {
            if (guarded && m_gatewayMode && refuseWithoutToken(call, answer))
                return true;
            return (this->*answerCall)(call, answer);
        };
    }

    const google::protobuf::ServiceDescriptor* clientCore =
        client::LoginReq::descriptor()->file()->FindServiceByName("ClientCore");
    std::set<std::string> open(std::begin(kOpenClientMethods), std::end(kOpenClientMethods));
    for (int i = 0; clientCore && i < clientCore->method_count(); ++i) {
        const std::string path = FakeServer::methodPath(clientCore->method(i));
        if (responders.count(path) || open.count(path))
            continue;
        if (m_gatewayMode) {
            responders[path] = [this](const RecordedCall& call, Script* answer) {
                return refuseWithoutToken(call, answer);
            };
        } else {
            responders[path] = nullptr;
        }
    }

    if (m_gatewayMode) {
        responders[kCheckAuthStatusMethod] = [this](const RecordedCall& call, Script* answer) {
            return answerCheckAuthStatus(call, answer);
        };
        responders[kLoginGatewayMethod] = [this](const RecordedCall& call, Script* answer) {
            return answerLoginGateway(call, answer);
        };
    } else {
        responders[kCheckAuthStatusMethod] = nullptr;
        responders[kLoginGatewayMethod] = nullptr;
    }

    // The login options and the branding the description gives replace the standing answers.
    if (m_config->has_login_config())
        server.setReply(kLoginConfigMethod, m_config->login_config());
    if (m_config->has_branding())
        server.setReply(kBrandingMethod, m_config->branding());

    // The faults of the description wrap whatever answers their methods.
    wrapWithFaults(&responders);

    for (const auto& responder : responders) {
        if (responder.second)
            server.setResponder(responder.first, responder.second);
        else
            server.clearResponder(responder.first);
    }
}

bool SimulatedDeployment::hasIssuedToken(const RecordedCall& call) const
{
    const std::string token = call.metadataValue(kTokenKey);
    return !token.empty() && m_issuedTokens.count(token) > 0;
}

bool SimulatedDeployment::refuseWithoutToken(const RecordedCall& call, Script* answer) const
{
    if (hasIssuedToken(call))
        return false;  // let the method's script answer
    *answer = statusScript(grpc::StatusCode::UNAUTHENTICATED, "the gateway wants a token", *answer);
    return true;
}

} // namespace vdifake
