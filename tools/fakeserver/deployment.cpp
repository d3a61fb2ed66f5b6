#include "deployment.h"

#include "fakeserver.h"

#include <QBuffer>

#include <quazip5/quazip.h>

#include <google/protobuf/descriptor.h>

#include "client/client_core.pb.h"
#include "common/common_messages.pb.h"
#include "gateway/gateway_core.pb.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <mutex>

namespace vdifake {

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

const int64_t kFarFuture = 4102444800;  // 2100-01-01 00:00:00 UTC
const int64_t kTokenLifetimeSeconds = 24 * 3600;
// Where a phone scanning a login code would go; the ticket is appended.
const char* const kQrLoginUrl = "https://127.0.0.1:8443/qrlogin?ticket=";
const size_t kMaxDesktopNameBytes = 64;
// Where the catalogues' icons are; the icon's stem and ".png" are appended.
const char* const kIconUrl = "https://127.0.0.1:8443/icons/";

const char* const kRunning = "running";
const char* const kShutdown = "shutdown";
const char* const kSuspended = "suspended";

// FNV-1a: a hash that stays the same from run to run, so a user always gets the same desktops.
uint32_t stableHash(const std::string& text)
{
    uint32_t h = 2166136261u;
    for (unsigned char c : text) {
        h ^= c;
        h *= 16777619u;
    }
    return h;
}

std::string hex(uint64_t value, int digits)
{
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%0*llx", digits, static_cast<unsigned long long>(value));
    return buffer;
}

Script replyScript(const google::protobuf::Message& reply, const Script& base)
{
    Script s;
    s.delayMs = base.delayMs;  // the method's delay, if the scenario set one
    reply.SerializeToString(&s.replyBytes);
    return s;
}

Script statusScript(grpc::StatusCode code, const std::string& message, const Script& base)
{
    Script s;
    s.code = code;
    s.message = message;
    s.delayMs = base.delayMs;
    return s;
}

template <class M>
bool parseRequest(const RecordedCall& call, M* request)
{
    return call.requests.size() == 1 && request->ParseFromString(call.requests.front());
}

void fillExtendOp(client::ExtendOp* op, bool snapshots)
{
    op->set_shudown(1);
    op->set_reboot(1);
    op->set_power_off_reboot(1);
    op->set_power_off(1);
    op->set_back_home(0);
    op->set_disconnection(1);
    op->set_client_ctrl_alt_del(1);
    op->set_logout_user(1);
    op->set_snapshot(snapshots ? 1 : 0);
    op->set_network_detection(1);
    op->set_interact_shutdown(0);
    op->set_client_occupy(0);
    op->set_modify_name(1);
}

struct PoolTemplate {
    int64_t id;
    const char* name;
    const char* shortName;  // in desktop names
    int type;
    const char* resourceName;
    int gatewayAccessStrategy;
    int64_t expireTime;     // days left; 0: none set
    int osType;
    const char* osVersion;
    bool extra;             // listed in ex_pool_list
    bool snapshots;
    const char* hostNetwork;  // the cluster's hosts: <hostNetwork>11 to 14
    int memoryMb;
    int cpus;
};

const PoolTemplate kPools[] = {
    {101, "Office desktops", "office", 1, "cluster-a", 0, 0, 0, "Windows 10 Enterprise", false, false, "10.10.1.", 4096, 2},
    {102, "Engineering workstations", "eng", 2, "cluster-b", 1, 30, 1, "Ubuntu 22.04", false, true, "10.10.2.", 16384, 8},
    {201, "Training lab", "lab", 1, "cluster-a", 1, 0, 0, "Windows 11 Education", true, false, "10.10.1.", 4096, 2},
};

const char* const kVmStatuses[] = {kRunning, kShutdown, kRunning, kSuspended};

void fillPool(const PoolTemplate& t, client::PoolInfo* pool)
{
    pool->set_id(t.id);
    pool->set_name(t.name);
    pool->set_status(1);
    pool->set_type(t.type);
    pool->set_vm_os_type(t.osType);
    pool->set_vm_os_version(t.osVersion);
    pool->set_resource_name(t.resourceName);
    pool->set_gateway_access_strategy(t.gatewayAccessStrategy);
    pool->set_templetid(t.id * 10);
    pool->set_recovermode(t.extra ? 1 : 0);
    if (t.expireTime != 0)
        pool->set_pool_expire_time(t.expireTime);
    fillExtendOp(pool->mutable_extend_op(), t.snapshots);
}

// The control policy of a desktop or of a remote application. One that keeps data in allows
// no drives and read-only USB storage only, and shows the watermark.
void fillControlPolicy(client::ControlPolicy* policy, bool keepDataIn, const std::string& watermarkText,
                       int watermarkFontSize)
{
    client::SharePolicy* share = policy->mutable_share_policy();
    share->set_drivers(keepDataIn ? 0 : 1);
    share->set_clipboard(1);
    share->set_rdp_clipboard(1);
    share->set_vdp_clipboard(1);
    share->set_printers(1);
    client::USBPolicy* usb = policy->mutable_usb_policy();
    usb->set_enable(1);
    usb->set_usbredirectstorage(1);
    usb->set_store_readonly(keepDataIn ? 1 : 0);
    usb->set_usbredirectprinter(1);
    client::WatermarkPolicy* watermark = policy->mutable_watermark_policy();
    watermark->set_enable(keepDataIn ? 1 : 0);
    watermark->set_show_user_name(1);
    watermark->set_show_time(1);
    watermark->set_color("808080");
    watermark->set_font_size(watermarkFontSize);
    watermark->set_transparent(20);
    watermark->set_user_define(watermarkText);
    watermark->set_rotation_angle(30);
    watermark->set_show_position(1);
    policy->mutable_video_policy()->set_spicetls(1);
    policy->set_reconnection_network_time(60);
}

std::string makeUuid(uint32_t seed, const PoolTemplate& t, int k, uint32_t h)
{
    return hex(seed, 8) + '-' + hex(static_cast<uint64_t>(t.id), 4) + "-4" + hex(static_cast<uint64_t>(k), 3) + "-8"
        + hex(h & 0xfff, 3) + '-' + hex((static_cast<uint64_t>(h) << 16) | (seed & 0xffff), 12);
}

// Made-up secrets of a desktop, the same every time; never logged by the simulator.
std::string desktopSecret(const std::string& uuid, const char* what)
{
    return "Vdi-" + hex(stableHash(uuid + '/' + what), 8);
}

// The load in percent with one decimal, "37.5%".
std::string percent(uint32_t tenths)
{
    return std::to_string(tenths / 10) + '.' + std::to_string(tenths % 10) + '%';
}

void setError(common::ErrorData* error, int code, const char* zh, const char* en)
{
    error->set_error_code(code);
    error->set_error_msg_zh(zh);
    error->set_error_msg_en(en);
}

void setWrongCredentials(common::ErrorData* error)
{
    setError(error, SimulatedDeployment::WrongCredentials, "用户名或密码错误", "wrong user name or password");
}

void setNoSuchDesktop(common::ErrorData* error)
{
    setError(error, SimulatedDeployment::NoSuchDesktop, "虚拟机不存在", "no such desktop");
}

void setNotRunning(common::ErrorData* error)
{
    setError(error, SimulatedDeployment::DesktopNotRunning, "虚拟机未运行", "the desktop is not running");
}

void setNoSuchShareTerminal(common::ErrorData* error)
{
    setError(error, SimulatedDeployment::NoSuchShareTerminal, "共享终端不存在", "no such share terminal");
}

bool answerWith(const google::protobuf::Message& reply, Script* answer)
{
    *answer = replyScript(reply, *answer);
    return true;
}

Script unparsed(const char* what, const Script& base)
{
    return statusScript(grpc::StatusCode::INVALID_ARGUMENT, std::string("the ") + what + " request does not parse", base);
}

// Who is asking: the user name, or the device of a device login.
std::string callerOf(const client::ClientBaseInfo& base)
{
    return base.name().empty() ? base.device_id() : base.name();
}

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

bool passwordMatches(const std::map<std::string, std::string>& users, const std::string& name,
                     const std::string& password)
{
    auto it = users.find(name);
    return it != users.end() && it->second == password;
}

// CheckPassword and CheckAndSaveLdapPassword alike: name and password against one set of users.
bool answerCredentialCheck(const RecordedCall& call, const std::map<std::string, std::string>& users,
                           Script* answer)
{
    client::CheckPasswordReq request;
    if (!parseRequest(call, &request)) {
        *answer = unparsed("password check", *answer);
        return true;
    }
    client::CheckPasswordResp reply;
    const client::ClientBaseInfo& base = request.client_base_info();
    if (!passwordMatches(users, base.name(), base.password()))
        setWrongCredentials(reply.mutable_error());
    return answerWith(reply, answer);
}

// ---- The catalogues and the share terminals -------------------------------------------------

struct RemoteAppTemplate {
    const char* displayName;
    const char* alias;      // the program the terminal server starts; also the icon's stem
    int type;               // as the catalogue sorts it: 1 office, 2 engineering
    const char* host;       // the terminal server
    bool keepDataIn;        // no drives, read-only USB storage and a watermark
    int watermarkFontSize;
};

const RemoteAppTemplate kRemoteApps[] = {
    {"Word", "winword", 1, "10.10.3.21", true, 14},
    {"Excel", "excel", 1, "10.10.3.21", true, 14},
    {"CAD Viewer", "cadviewer", 2, "10.10.3.22", false, 18},
};

struct SaasAppTemplate {
    const char* name;
    const char* iconStem;
    const char* address;
    const char* description;
    const char* ssoProtocol;
    const char* onlyUser;  // the one user who may open it; null: every user
};

const SaasAppTemplate kSaasApps[] = {
    {"Mail", "mail", "https://mail.vdi.local/", "Mail and calendar", "oauth2", nullptr},
    {"Wiki", "wiki", "https://wiki.vdi.local/", "The teams' knowledge base", "saml2", nullptr},
    {"Code review", "review", "https://review.vdi.local/", "Reviews of the engineering changes", "oidc",
     SimulatedDeployment::kDefaultUserName},
    {"Payroll", "payroll", "https://payroll.vdi.local/", "Salaries and payslips", "cas", "payroll-admin"},
};

struct ShareTerminalTemplate {
    const char* deviceId;
    const char* shareName;
};

const ShareTerminalTemplate kShareTerminals[] = {
    {"share-term-01", "Meeting room A"},
    {"share-term-02", "Reception desk"},
};

// The entry of a table whose `key` is `name`, or null.
template <class T, size_t N>
const T* findEntry(const T (&table)[N], const char* const T::*key, const std::string& name)
{
    for (const T& entry : table) {
        if (name == entry.*key)
            return &entry;
    }
    return nullptr;
}

std::string iconUrl(const char* stem)
{
    return std::string(kIconUrl) + stem + ".png";
}

// Adds a record under its lock, then tells the observer, if any, outside that lock, so that a
// reader copying the list never waits for a log line to be written.
template <class Record>
void keepRecord(std::mutex& mutex, std::vector<Record>& records,
                const std::function<void(const Record&)>& observer, const Record& record)
{
    {
        std::lock_guard<std::mutex> lock(mutex);
        records.push_back(record);
    }
    if (observer)
        observer(record);
}

} // namespace

SimulatedDeployment::SimulatedDeployment()
{
    m_users[kDefaultUserName] = kDefaultUserPassword;
    m_gatewayUsers[kDefaultGatewayUserName] = kDefaultGatewayPassword;
    m_ldapUsers[kDefaultLdapUserName] = kDefaultLdapPassword;
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
    std::set<std::string> handled;
    for (const auto& entry : answered) {
        const Answer answerCall = entry.answer;
        const bool guarded = entry.guarded;
        server.setResponder(entry.path, [this, answerCall, guarded](const RecordedCall& call, Script* answer) {
            if (guarded && m_gatewayMode && refuseWithoutToken(call, answer))
                return true;
            return (this->*answerCall)(call, answer);
        });
        handled.insert(entry.path);
    }

    const google::protobuf::ServiceDescriptor* clientCore =
        client::LoginReq::descriptor()->file()->FindServiceByName("ClientCore");
    std::set<std::string> open(std::begin(kOpenClientMethods), std::end(kOpenClientMethods));
    for (int i = 0; clientCore && i < clientCore->method_count(); ++i) {
        const std::string path = FakeServer::methodPath(clientCore->method(i));
        if (handled.count(path) || open.count(path))
            continue;
        if (m_gatewayMode) {
            server.setResponder(path, [this](const RecordedCall& call, Script* answer) {
                return refuseWithoutToken(call, answer);
            });
        } else {
            server.clearResponder(path);
        }
    }

    if (m_gatewayMode) {
        server.setResponder(kCheckAuthStatusMethod, [this](const RecordedCall& call, Script* answer) {
            return answerCheckAuthStatus(call, answer);
        });
        server.setResponder(kLoginGatewayMethod, [this](const RecordedCall& call, Script* answer) {
            return answerLoginGateway(call, answer);
        });
    } else {
        server.clearResponder(kCheckAuthStatusMethod);
        server.clearResponder(kLoginGatewayMethod);
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

bool SimulatedDeployment::answerLogin(const RecordedCall& call, Script* answer)
{
    client::LoginReq request;
    if (!parseRequest(call, &request)) {
        *answer = unparsed("login", *answer);
        return true;
    }
    const client::ClientBaseInfo& base = request.client_base_info();
    const std::string& kind = base.auth_type();

    std::string user;
    bool accepted = false;
    if (kind.empty() || kind == "0" || kind == "3") {
        user = base.name();
        accepted = passwordMatches(kind == "3" ? m_ldapUsers : m_users, user, base.password());
    } else if (kind == "2") {
        user = base.name();
        accepted = !base.sms_code().empty() && passwordMatches(m_users, user, base.password());
    } else if (kind == "1") {
        user = base.device_id();
        accepted = !user.empty();
    } else {
        client::LoginResp reply;
        setError(reply.mutable_error(), 3, "不支持的登录方式", "unsupported login type");
        *answer = replyScript(reply, *answer);
        return true;
    }

    client::LoginResp reply;
    if (!accepted) {
        setWrongCredentials(reply.mutable_error());
        *answer = replyScript(reply, *answer);
        return true;
    }
    reply.set_domain("vdi.local");
    reply.set_netbios("VDI");
    reply.set_name(user);
    reply.set_userloginname(user);
    reply.set_user_id(10000 + static_cast<int64_t>(stableHash(user) % 90000));
    reply.set_update_interval(30);
    reply.set_start_timeout(120);
    reply.set_due_date(kFarFuture);
    reply.set_auth_type(kind.empty() ? 0 : std::stoi(kind));
    reply.set_isopenldap(kind == "3" ? 1 : 0);
    reply.set_use_gateway(m_gatewayMode ? 1 : 0);
    provideDesktops(user);
    fillPools(user, &reply);
    *answer = replyScript(reply, *answer);
    return true;
}

bool SimulatedDeployment::answerCheckAuthStatus(const RecordedCall& call, Script* answer)
{
    gateway::CheckAuthStatusResp reply;
    reply.set_auth_status(hasIssuedToken(call) ? 0 : 1);
    reply.set_auth_type("password");
    *answer = replyScript(reply, *answer);
    return true;
}

bool SimulatedDeployment::answerLoginGateway(const RecordedCall& call, Script* answer)
{
    gateway::LoginGatewayReq request;
    if (!parseRequest(call, &request)) {
        *answer = statusScript(grpc::StatusCode::INVALID_ARGUMENT, "the gateway login request does not parse", *answer);
        return true;
    }
    const gateway::ClientBaseInfo& base = request.client_base_info();
    gateway::LoginGatewayResp reply;
    reply.set_domain("vdi-fake-gateway");
    if (passwordMatches(m_gatewayUsers, base.name(), base.password())) {
        const std::string token = "gw-token-" + std::to_string(++m_tokenCounter);
        m_issuedTokens.insert(token);
        reply.set_gw_access_token(token);
        reply.set_token_due_date(static_cast<int64_t>(std::time(nullptr)) + kTokenLifetimeSeconds);
    } else {
        setError(reply.mutable_error(), 2, "网关用户名或密码错误", "wrong gateway user name or password");
    }
    *answer = replyScript(reply, *answer);
    return true;
}

// ---- Passwords and login codes -------------------------------------------------------------

bool SimulatedDeployment::answerCheckPassword(const RecordedCall& call, Script* answer)
{
    return answerCredentialCheck(call, m_users, answer);
}

bool SimulatedDeployment::answerCheckLdapPassword(const RecordedCall& call, Script* answer)
{
    return answerCredentialCheck(call, m_ldapUsers, answer);
}

bool SimulatedDeployment::answerModifyPassword(const RecordedCall& call, Script* answer)
{
    client::ModifyPasswordReq request;
    if (!parseRequest(call, &request)) {
        *answer = unparsed("password change", *answer);
        return true;
    }
    client::ModifyPasswordResp reply;
    const client::ClientBaseInfo& base = request.client_base_info();
    if (!passwordMatches(m_users, base.name(), base.password()))
        setWrongCredentials(reply.mutable_error());
    else if (request.password_new().empty())
        setError(reply.mutable_error(), NewPasswordMissing, "新密码不能为空", "the new password is empty");
    else
        m_users[base.name()] = request.password_new();
    return answerWith(reply, answer);
}

bool SimulatedDeployment::answerGetCode(const RecordedCall& call, Script* answer)
{
    client::CodeReq request;
    if (!parseRequest(call, &request)) {
        *answer = unparsed("login code", *answer);
        return true;
    }
    client::CodeResp reply;
    const std::string ticket = "qr-ticket-" + std::to_string(++m_codeCounter);
    reply.set_codesource(request.codesource());
    reply.set_codetype(request.codetype());
    reply.set_ticket(ticket);
    reply.set_qrcodeurl(kQrLoginUrl + ticket);
    return answerWith(reply, answer);
}

// ---- Application catalogues ----------------------------------------------------------------

bool SimulatedDeployment::answerRemoteAppList(const RecordedCall& call, Script* answer)
{
    client::LoginReq request;
    if (!parseRequest(call, &request)) {
        *answer = unparsed("remote application list", *answer);
        return true;
    }
    client::RemoteAppListResp reply;
    for (const RemoteAppTemplate& app : kRemoteApps) {
        client::RemoteAppInfo* item = reply.add_app_list();
        item->set_displayname(app.displayName);
        item->set_iconurl(iconUrl(app.alias));
        item->set_type(app.type);
    }
    return answerWith(reply, answer);
}

bool SimulatedDeployment::answerConnectAppInfo(const RecordedCall& call, Script* answer)
{
    client::RemoteAppInfoReq request;
    if (!parseRequest(call, &request)) {
        *answer = unparsed("remote application", *answer);
        return true;
    }
    client::RemoteAppInfoResp reply;
    const RemoteAppTemplate* app = findEntry(kRemoteApps, &RemoteAppTemplate::displayName, request.displayname());
    if (!app) {
        setError(reply.mutable_error(), NoSuchRemoteApp, "远程应用不存在", "no such remote application");
        return answerWith(reply, answer);
    }
    reply.set_appid(std::string("app-") + app->alias);
    reply.set_fulladdress(std::string("rdp://") + app->host + ":3389/" + app->alias);
    reply.set_iconurl(iconUrl(app->alias));
    reply.set_displayname(app->displayName);
    reply.set_alias(app->alias);
    // The watermark names whoever the application was handed to.
    const std::string& user = request.username();
    fillControlPolicy(reply.mutable_control_policy(), app->keepDataIn,
                      user.empty() ? std::string("Internal") : "Internal - " + user, app->watermarkFontSize);
    return answerWith(reply, answer);
}

bool SimulatedDeployment::answerSaasAppList(const RecordedCall& call, Script* answer)
{
    client::ClientBaseInfo request;
    if (!parseRequest(call, &request)) {
        *answer = unparsed("SaaS application list", *answer);
        return true;
    }
    // The whole catalogue, also the applications the caller may not open: querySaasApp tells.
    client::SaasAppListResp reply;
    for (const SaasAppTemplate& app : kSaasApps) {
        client::SaasAppInfo* item = reply.add_app_list();
        item->set_appname(app.name);
        item->set_iconurl(iconUrl(app.iconStem));
        item->set_appaddress(app.address);
        item->set_description(app.description);
        item->set_ssoprotocol(app.ssoProtocol);
    }
    return answerWith(reply, answer);
}

bool SimulatedDeployment::answerSaasApp(const RecordedCall& call, Script* answer)
{
    client::SaasAppReq request;
    if (!parseRequest(call, &request)) {
        *answer = unparsed("SaaS application", *answer);
        return true;
    }
    common_message::VoidResp reply;
    const SaasAppTemplate* app = findEntry(kSaasApps, &SaasAppTemplate::name, request.saasappinfo().appname());
    if (!app)
        setError(reply.mutable_error(), NoSuchSaasApp, "SaaS应用不存在", "no such SaaS application");
    else if (app->onlyUser && callerOf(request.clientbaseinfo()) != app->onlyUser)
        setError(reply.mutable_error(), SaasAppRefused, "无权访问该应用", "you may not open this application");
    return answerWith(reply, answer);
}

// ---- Share terminals -----------------------------------------------------------------------

bool SimulatedDeployment::answerShareTerminalInfo(const RecordedCall& call, Script* answer)
{
    client::ShareTerminalInfoReq request;
    if (!parseRequest(call, &request)) {
        *answer = unparsed("share terminal list", *answer);
        return true;
    }
    client::ShareTerminalInfoResp reply;
    for (const ShareTerminalTemplate& terminal : kShareTerminals) {
        client::ShareTerminalInfo* item = reply.add_terminal_list();
        item->set_device_id(terminal.deviceId);
        item->set_terminal_share_name(terminal.shareName);
    }
    return answerWith(reply, answer);
}

bool SimulatedDeployment::answerShareTerminalTransfer(const RecordedCall& call, Script* answer)
{
    client::TransDeskToShareTerminalReq request;
    if (!parseRequest(call, &request)) {
        *answer = unparsed("share terminal transfer", *answer);
        return true;
    }
    common::ErrorData reply;
    if (!findEntry(kShareTerminals, &ShareTerminalTemplate::deviceId, request.dst_device_id()))
        setNoSuchShareTerminal(&reply);
    else if (!findDesktop(0, request.vm_uuid()))
        setNoSuchDesktop(&reply);

    ShareTerminalTransfer transfer;
    transfer.fromDevice = QString::fromStdString(request.device_id());
    transfer.vmUuid = QString::fromStdString(request.vm_uuid());
    transfer.toDevice = QString::fromStdString(request.dst_device_id());
    transfer.vdpFileBytes = static_cast<int>(request.vdp_file_data().size());
    transfer.errorCode = reply.error_code();
    keepRecord(m_recordsMutex, m_transfers, m_onTransfer, transfer);
    return answerWith(reply, answer);
}

bool SimulatedDeployment::answerShareTerminalLogin(const RecordedCall& call, Script* answer)
{
    client::LoginOakdeskOnShareTerminalReq request;
    if (!parseRequest(call, &request)) {
        *answer = unparsed("share terminal login", *answer);
        return true;
    }
    common::ErrorData reply;
    if (!findEntry(kShareTerminals, &ShareTerminalTemplate::deviceId, request.device_id()))
        setNoSuchShareTerminal(&reply);
    else if (!passwordMatches(m_users, request.username(), request.password()))
        setWrongCredentials(&reply);

    ShareTerminalLogin login;
    login.device = QString::fromStdString(request.device_id());
    login.userName = QString::fromStdString(request.username());
    login.errorCode = reply.error_code();
    keepRecord(m_recordsMutex, m_shareLogins, m_onShareLogin, login);
    return answerWith(reply, answer);
}

// ---- One-key help ----------------------------------------------------------------------------

bool SimulatedDeployment::answerHelpReport(const RecordedCall& call, Script* answer)
{
    client::OnekeyHelpReq request;
    if (!parseRequest(call, &request)) {
        *answer = unparsed("help report", *answer);
        return true;
    }
    client::OnekeyHelpResp reply;
    reply.set_taskid(m_nextTaskId++);
    HelpReport report;
    report.taskId = reply.taskid();
    report.realName = QString::fromStdString(request.realname());
    report.problemType = QString::fromStdString(request.problemtype());
    report.getLog = request.getlog();
    report.screenShotUrl = QString::fromStdString(request.screenshoturl());
    report.ip = QString::fromStdString(request.ip());
    report.useGateway = request.usegateway();
    keepRecord(m_recordsMutex, m_helpReports, m_onHelpReport, report);
    return answerWith(reply, answer);
}

// The zip is put together in memory from its chunks and opened there; nothing is written.
bool SimulatedDeployment::answerHelpUpload(const RecordedCall& call, Script* answer)
{
    HelpUpload upload;
    client::onekeyHelpUploadResp reply;
    QByteArray zip;
    for (size_t i = 0; i < call.requests.size(); ++i) {
        client::onekeyHelpUploadReq message;
        if (!message.ParseFromString(call.requests[i]))
            continue;
        if (message.has_onekeyhelpuploadreqmeta() && i == 0) {
            const client::onekeyHelpUploadReqMeta& meta = message.onekeyhelpuploadreqmeta();
            upload.taskId = meta.taskid();
            upload.fileName = QString::fromStdString(meta.filename());
            upload.fileType = QString::fromStdString(meta.filetype());
        } else if (message.oneof_content_case() == client::onekeyHelpUploadReq::kContent) {
            zip.append(message.content().data(), static_cast<int>(message.content().size()));
            ++upload.chunks;
        }
    }
    upload.bytes = zip.size();
    if (upload.fileName.isEmpty() && upload.fileType.isEmpty()) {
        upload.code = HelpUploadWithoutMeta;
    } else {
        QBuffer buffer(&zip);
        QuaZip archive(&buffer);
        if (archive.open(QuaZip::mdUnzip)) {
            upload.entries = archive.getFileNameList();
            archive.close();
        } else {
            upload.code = HelpUploadNotZip;
        }
    }
    reply.set_code(upload.code);
    if (upload.code == HelpUploadWithoutMeta)
        setError(reply.mutable_error(), HelpUploadWithoutMeta, "上传缺少文件信息", "the upload did not start with its meta data");
    else if (upload.code == HelpUploadNotZip)
        setError(reply.mutable_error(), HelpUploadNotZip, "上传的文件不是zip文件", "the uploaded file is not a readable zip");
    keepRecord(m_recordsMutex, m_helpUploads, m_onHelpUpload, upload);
    return answerWith(reply, answer);
}

// ---- The desktops ---------------------------------------------------------------------------

void SimulatedDeployment::provideDesktops(const std::string& user)
{
    if (m_userDesktops.count(user))
        return;
    std::vector<int64_t>& owned = m_userDesktops[user];
    const uint32_t h = stableHash(user);
    for (size_t p = 0; p < std::size(kPools); ++p) {
        const PoolTemplate& t = kPools[p];
        const int desktops = 1 + static_cast<int>((h + static_cast<uint32_t>(p)) % 3);
        for (int k = 0; k < desktops; ++k) {
            Desktop d;
            d.seed = h ^ (static_cast<uint32_t>(t.id) * 2654435761u) ^ static_cast<uint32_t>(k * 40503);
            d.owner = user;
            d.pool = p;
            // Ids and uuids are unique in the deployment: a user whose figures meet those of
            // an earlier one takes the next free ones.
            d.id = t.id * 1000 + static_cast<int64_t>(h % 90) * 10 + k;
            while (m_desktops.count(d.id))
                d.id += 10;
            uint32_t uuidSeed = d.seed;
            d.uuid = makeUuid(uuidSeed, t, k, h);
            while (m_desktopIds.count(d.uuid))
                d.uuid = makeUuid(++uuidSeed, t, k, h);
            d.name = std::string(t.shortName) + '-' + user + '-' + std::to_string(k + 1);
            d.status = kVmStatuses[(d.seed >> 3) % 4];
            d.mac = "52:54:00:" + hex((d.seed >> 16) & 0xff, 2) + ':' + hex((d.seed >> 8) & 0xff, 2) + ':'
                + hex(d.seed & 0xff, 2);
            d.ip = "10.20." + std::to_string(t.id % 256) + '.' + std::to_string(10 + (h % 200) + static_cast<uint32_t>(k));
            d.hostIp = std::string(t.hostNetwork) + std::to_string(11 + (d.seed >> 9) % 4);
            d.spicePort = 5900 + static_cast<int>(p) * 1000 + static_cast<int>(d.id % 1000);
            if (t.snapshots && k == 0)
                d.snapshots.emplace_back("before-update", "Taken before the monthly update");
            owned.push_back(d.id);
            m_desktopIds[d.uuid] = d.id;
            m_desktops.emplace(d.id, std::move(d));
        }
    }
}

SimulatedDeployment::Desktop* SimulatedDeployment::findDesktop(int64_t id, const std::string& uuid)
{
    if (!uuid.empty()) {
        const auto named = m_desktopIds.find(uuid);
        if (named == m_desktopIds.end())
            return nullptr;
        id = named->second;
    }
    const auto it = m_desktops.find(id);
    return it == m_desktops.end() ? nullptr : &it->second;
}

void SimulatedDeployment::fillPools(const std::string& user, client::LoginResp* reply) const
{
    const auto owned = m_userDesktops.find(user);
    for (size_t p = 0; p < std::size(kPools); ++p) {
        const PoolTemplate& t = kPools[p];
        client::PoolInfo* pool = t.extra ? reply->add_ex_pool_list() : reply->add_pool_list();
        fillPool(t, pool);
        if (owned == m_userDesktops.end())
            continue;
        for (int64_t id : owned->second) {
            const Desktop& desktop = m_desktops.at(id);
            if (desktop.pool == p)
                fillVm(desktop, pool->add_vm_list());
        }
    }
}

void SimulatedDeployment::fillVm(const Desktop& desktop, client::Vm* vm)
{
    const PoolTemplate& t = kPools[desktop.pool];
    vm->set_vm_id(desktop.id);
    vm->set_vm_name(desktop.name);
    vm->set_vm_status(desktop.status);
    vm->set_os_type(t.osType);
    vm->set_os_version(t.osVersion);
    vm->set_is_port_enable(1);
    vm->set_vmuuid(desktop.uuid);
    client::VmAddress* address = vm->add_address_list();
    address->set_mac(desktop.mac);
    address->add_ip_list(desktop.ip);
    fillExtendOp(vm->mutable_extend_op(), t.snapshots);
    for (const auto& taken : desktop.snapshots) {
        client::SnapshotInfo* snapshot = vm->add_snapshot_list();
        snapshot->set_name(taken.first);
        snapshot->set_description(taken.second);
    }
}

void SimulatedDeployment::fillVmInfo(const Desktop& desktop, client::VmInfo* vm)
{
    const PoolTemplate& t = kPools[desktop.pool];
    vm->set_vm_id(desktop.id);
    vm->set_vm_name(desktop.name);
    vm->set_vm_status(desktop.status);
    vm->set_vm_is_used(desktop.inUse ? "1" : "0");
    vm->add_ip_list(desktop.ip);
    vm->set_os_type(t.osType);
    vm->set_os_version(t.osVersion);
    vm->set_is_port_enable(1);
    fillExtendOp(vm->mutable_extend_op(), t.snapshots);
    vm->set_vmuuid(desktop.uuid);
    vm->set_domain_name("vdi.local");
    client::VmAddress* address = vm->add_address_list();
    address->set_mac(desktop.mac);
    address->add_ip_list(desktop.ip);

    // Office pools keep data in.
    fillControlPolicy(vm->mutable_control_policy(), t.type == 1, "Internal", 12);
}

bool SimulatedDeployment::answerOperateForVm(const RecordedCall& call, Script* answer)
{
    client::OperateForVmReq request;
    if (!parseRequest(call, &request)) {
        *answer = unparsed("desktop operation", *answer);
        return true;
    }
    client::OperateForVmResp reply;
    const client::ClientBaseInfo& base = request.client_base_info();
    Desktop* desktop = findDesktop(base.vm_id(), base.vmuuid());
    if (!desktop) {
        setNoSuchDesktop(reply.mutable_error());
        return answerWith(reply, answer);
    }
    const bool running = desktop->status == kRunning;
    switch (request.op_type()) {
    case QueryDesktop:
        break;
    case StartDesktop:
        desktop->status = kRunning;
        break;
    case ShutDownDesktop:
    case PowerOffDesktop:
        desktop->status = kShutdown;
        desktop->inUse = false;
        break;
    case RebootDesktop:
    case DisconnectSession:
        if (running)
            desktop->inUse = false;
        else
            setNotRunning(reply.mutable_error());
        break;
    default:
        setError(reply.mutable_error(), UnsupportedOperation, "不支持的操作", "unsupported operation");
        break;
    }
    fillVmInfo(*desktop, reply.mutable_vm());
    reply.set_hostip(desktop->hostIp);
    if (desktop->status == kRunning)
        reply.set_spice_port(std::to_string(desktop->spicePort));
    reply.set_isusedgateway(m_gatewayMode && kPools[desktop->pool].gatewayAccessStrategy == 1 ? 1 : 0);
    return answerWith(reply, answer);
}

bool SimulatedDeployment::answerRecoverVm(const RecordedCall& call, Script* answer)
{
    client::OperateForVmReq request;
    if (!parseRequest(call, &request)) {
        *answer = unparsed("desktop recovery", *answer);
        return true;
    }
    client::RecoverVmResp reply;
    const client::ClientBaseInfo& base = request.client_base_info();
    Desktop* desktop = findDesktop(base.vm_id(), base.vmuuid());
    if (!desktop) {
        setNoSuchDesktop(reply.mutable_error());
        return answerWith(reply, answer);
    }
    // Back to the pool's template, started afresh.
    desktop->status = kRunning;
    desktop->inUse = false;
    desktop->snapshots.clear();
    reply.set_vm_id(desktop->id);
    reply.set_vmuuid(desktop->uuid);
    reply.set_progress(100);
    return answerWith(reply, answer);
}

bool SimulatedDeployment::answerSnapshot(const RecordedCall& call, Script* answer)
{
    client::SnapshotReq request;
    if (!parseRequest(call, &request)) {
        *answer = unparsed("snapshot", *answer);
        return true;
    }
    client::SnapshotResp reply;
    Desktop* desktop = findDesktop(request.content().vm_id(), request.content().vmuuid());
    if (!desktop) {
        setNoSuchDesktop(reply.mutable_error());
        return answerWith(reply, answer);
    }
    const int op = request.op_type();
    const std::string& name = request.name();
    auto& snapshots = desktop->snapshots;
    const auto named = std::find_if(snapshots.begin(), snapshots.end(),
                                    [&name](const std::pair<std::string, std::string>& s) { return s.first == name; });
    common::ErrorData* error = reply.mutable_error();
    if (op == ListSnapshots) {
        // Listed in every pool, also where none may be taken.
    } else if (op != CreateSnapshot && op != DeleteSnapshot && op != RevertSnapshot) {
        setError(error, UnsupportedOperation, "不支持的快照操作", "unsupported snapshot operation");
    } else if (!kPools[desktop->pool].snapshots) {
        setError(error, SnapshotsNotAllowed, "该桌面池不允许快照", "this pool allows no snapshots");
    } else if (name.empty()) {
        setError(error, SnapshotNameMissing, "快照名称不能为空", "a snapshot needs a name");
    } else if (op == CreateSnapshot) {
        if (named != snapshots.end())
            setError(error, SnapshotExists, "快照名称已存在", "a snapshot of that name exists");
        else
            snapshots.emplace_back(name, request.description());
    } else if (named == snapshots.end()) {
        setError(error, NoSuchSnapshot, "快照不存在", "no such snapshot");
    } else if (op == DeleteSnapshot) {
        snapshots.erase(named);
    } else {
        // Reverted: the session on the desktop is gone.
        desktop->inUse = false;
    }
    if (error->error_code() == 0) {
        reply.clear_error();
        for (const auto& taken : snapshots) {
            client::SnapshotInfo* snapshot = reply.add_snapshot_list();
            snapshot->set_name(taken.first);
            snapshot->set_description(taken.second);
        }
    }
    return answerWith(reply, answer);
}

bool SimulatedDeployment::answerModifyVmName(const RecordedCall& call, Script* answer)
{
    client::ModifyVmNameReq request;
    if (!parseRequest(call, &request)) {
        *answer = unparsed("rename", *answer);
        return true;
    }
    client::ModifyVmNameResp reply;
    const client::ClientBaseInfo& base = request.client_base_info();
    Desktop* desktop = findDesktop(base.vm_id(), base.vmuuid());
    const std::string& name = request.vm_name_new();
    if (!desktop)
        setNoSuchDesktop(reply.mutable_error());
    else if (name.find_first_not_of(" \t") == std::string::npos || name.size() > kMaxDesktopNameBytes)
        setError(reply.mutable_error(), InvalidDesktopName, "虚拟机名称无效", "a desktop name has 1 to 64 bytes");
    else
        desktop->name = name;
    return answerWith(reply, answer);
}

bool SimulatedDeployment::answerApplyForVm(const RecordedCall& call, Script* answer)
{
    int overruns = m_applyOverruns.load();
    while (overruns > 0 && !m_applyOverruns.compare_exchange_weak(overruns, overruns - 1)) {
    }
    if (overruns > 0) {
        *answer = statusScript(grpc::StatusCode::DEADLINE_EXCEEDED, "the desktop is still being prepared", Script());
        return true;
    }

    client::ApplyForVmReq request;
    if (!parseRequest(call, &request)) {
        *answer = unparsed("desktop assignment", *answer);
        return true;
    }
    client::ApplyForVmResp reply;
    const client::ClientBaseInfo& base = request.client_base_info();
    const std::string user = callerOf(base);
    const auto owned = m_userDesktops.find(user);
    size_t pool = std::size(kPools);
    for (size_t p = 0; p < std::size(kPools) && pool == std::size(kPools); ++p) {
        if (request.id() != 0 ? kPools[p].id == request.id() : request.pool_name() == kPools[p].name)
            pool = p;
    }

    Desktop* desktop = nullptr;
    if (owned == m_userDesktops.end()) {
        setError(reply.mutable_error(), NotLoggedIn, "用户未登录", "log in first");
    } else if (pool == std::size(kPools)) {
        setError(reply.mutable_error(), NoSuchPool, "桌面池不存在", "no such pool");
    } else if (!base.vmuuid().empty() || base.vm_id() > 0) {
        desktop = findDesktop(base.vm_id(), base.vmuuid());
        if (!desktop) {
            setNoSuchDesktop(reply.mutable_error());
        } else if (desktop->owner != user || desktop->pool != pool) {
            setError(reply.mutable_error(), DesktopNotInPool, "该桌面不在此用户的桌面池中",
                     "the desktop is not one of the user's in that pool");
            desktop = nullptr;
        }
    } else {
        // The user's first desktop of the pool that no client is using, else the first one.
        for (int64_t id : owned->second) {
            Desktop& candidate = m_desktops.at(id);
            if (candidate.pool == pool && (!desktop || (desktop->inUse && !candidate.inUse)))
                desktop = &candidate;
        }
    }
    if (desktop) {
        desktop->status = kRunning;  // handed out ready to connect to
        fillVmInfo(*desktop, reply.mutable_vm());
        reply.set_name(user);
        reply.set_password(desktopSecret(desktop->uuid, "account"));
        reply.set_host_ip(desktop->hostIp);
        reply.add_host_ips(desktop->hostIp);
        reply.set_spice_password(desktopSecret(desktop->uuid, "spice"));
        reply.set_user_group("vdi-users");
        reply.set_usernameordevicename(user);
        reply.add_grouplist("vdi-users");
    }
    return answerWith(reply, answer);
}

bool SimulatedDeployment::answerApplyForDeviceInfo(const RecordedCall& call, Script* answer)
{
    client::ApplyForDeviceInfoReq request;
    if (!parseRequest(call, &request)) {
        *answer = unparsed("device information", *answer);
        return true;
    }
    client::ApplyForDeviceInfoResp reply;
    const client::ClientBaseInfo& base = request.client_base_info();
    const Desktop* desktop = findDesktop(base.vm_id(), base.vmuuid());
    if (!desktop) {
        setNoSuchDesktop(reply.mutable_error());
        return answerWith(reply, answer);
    }
    client::Device* device = reply.add_device_list();
    device->set_device_id("net0");
    device->mutable_vm_address()->set_mac(desktop->mac);
    device->mutable_vm_address()->add_ip_list(desktop->ip);
    return answerWith(reply, answer);
}

bool SimulatedDeployment::answerQueryVmDetailInfo(const RecordedCall& call, Script* answer)
{
    client::VmReq request;
    if (!parseRequest(call, &request)) {
        *answer = unparsed("desktop detail", *answer);
        return true;
    }
    client::VmDetailInfoResp reply;
    const Desktop* desktop = findDesktop(request.vmid(), request.vmuuid());
    if (!desktop) {
        setNoSuchDesktop(reply.mutable_error());
        return answerWith(reply, answer);
    }
    const PoolTemplate& t = kPools[desktop->pool];
    reply.set_memsize(t.memoryMb);
    reply.set_cpusize(t.cpus);
    if (desktop->status == kRunning) {
        const uint32_t load = stableHash(desktop->uuid + '#' + std::to_string(++m_detailQueries));
        reply.set_memrate(percent(200 + load % 600));          // 20.0% to 79.9%
        reply.set_cpurate(percent(10 + (load >> 12) % 500));   // 1.0% to 50.9%
    } else {
        reply.set_memrate(percent(0));
        reply.set_cpurate(percent(0));
    }
    return answerWith(reply, answer);
}

bool SimulatedDeployment::answerRegisterDevice(const RecordedCall& call, Script* answer)
{
    client::RegisterDevReq request;
    if (!parseRequest(call, &request)) {
        *answer = unparsed("device registration", *answer);
        return true;
    }
    client::RegisterDevResp reply;
    const std::string& device = request.device_id().empty() ? request.mac() : request.device_id();
    if (device.empty()) {
        setError(reply.mutable_error(), DeviceIdMissing, "缺少设备标识", "the device sends neither an id nor a MAC");
        return answerWith(reply, answer);
    }
    const auto registered = m_registeredDevices.emplace(device, m_nextRegisterId);
    if (registered.second)
        ++m_nextRegisterId;
    reply.set_register_id(registered.first->second);
    return answerWith(reply, answer);
}

bool SimulatedDeployment::answerReportSuccess(const RecordedCall& call, Script* answer)
{
    client::ReportSuccessReq request;
    if (!parseRequest(call, &request)) {
        *answer = unparsed("status report", *answer);
        return true;
    }
    client::ReportSuccessResp reply;
    Desktop* desktop = findDesktop(request.content().vm_id(), request.content().vmuuid());
    if (!desktop)
        setNoSuchDesktop(reply.mutable_error());
    else if (desktop->status != kRunning)
        setNotRunning(reply.mutable_error());
    else
        desktop->inUse = true;
    return answerWith(reply, answer);
}

bool SimulatedDeployment::answerUsbNotify(const RecordedCall& call, Script* answer)
{
    client::USBNotifyReq request;
    if (!parseRequest(call, &request)) {
        *answer = unparsed("USB notice", *answer);
        return true;
    }
    client::USBNotifyResp reply;
    // The target desktop, else the one in the identity.
    const client::TargetVm& target = request.target_vm();
    const int64_t id = target.vm_id().empty() ? request.client_base_info().vm_id()
                                              : std::strtoll(target.vm_id().c_str(), nullptr, 10);
    const std::string& uuid = target.vmuuid().empty() ? request.client_base_info().vmuuid() : target.vmuuid();
    const Desktop* desktop = findDesktop(id, uuid);
    if (!desktop)
        setNoSuchDesktop(reply.mutable_error());
    else if (desktop->status != kRunning)
        setNotRunning(reply.mutable_error());
    return answerWith(reply, answer);
}

bool SimulatedDeployment::answerRedirectStatus(const RecordedCall& call, Script* answer)
{
    client::RedirectStatusReq request;
    if (!parseRequest(call, &request)) {
        *answer = unparsed("redirection status", *answer);
        return true;
    }
    common_message::VoidResp reply;
    const std::string& uuid = request.vm_uuid().empty() ? request.client_base_info().vmuuid() : request.vm_uuid();
    if (!findDesktop(request.client_base_info().vm_id(), uuid))
        setNoSuchDesktop(reply.mutable_error());
    return answerWith(reply, answer);
}

} // namespace vdifake
