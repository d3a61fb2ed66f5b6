#include "deployment.h"

#include "fakeserver.h"
#include "scenario.h"
#include "deployment.pb.h"

#include <QBuffer>

#include <quazip5/quazip.h>

#include <google/protobuf/descriptor.h>

#include "client/client_core.pb.h"
#include "common/common_core.pb.h"
#include "common/common_messages.pb.h"
#include "common/error_data.pb.h"
#include "gateway/gateway_core.pb.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <memory>
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

const char* const kVmStatuses[] = {kRunning, kShutdown, kRunning, kSuspended};

// The operations a pool's desktops allow: the pool's own list, else all but the snapshots
// where the pool allows none.
void fillPoolExtendOp(const config::Pool& t, client::ExtendOp* op)
{
    if (t.has_extend_op())
        *op = t.extend_op();
    else
        fillExtendOp(op, t.snapshots());
}

void fillPool(const config::Pool& t, client::PoolInfo* pool)
{
    pool->set_id(t.id());
    pool->set_name(t.name());
    pool->set_status(1);
    pool->set_type(t.type());
    pool->set_vm_os_type(t.os_type());
    pool->set_vm_os_version(t.os_version());
    pool->set_resource_name(t.resource_name());
    pool->set_gateway_access_strategy(t.gateway_access_strategy());
    pool->set_templetid(t.id() * 10);
    pool->set_recovermode(t.extra() ? 1 : 0);
    if (t.expire_days() != 0)
        pool->set_pool_expire_time(t.expire_days());
    fillPoolExtendOp(t, pool->mutable_extend_op());
}

// Whether a list of permitted users lets `user` in: an empty list lets everyone in.
bool permitted(const google::protobuf::RepeatedPtrField<std::string>& users, const std::string& user)
{
    return users.empty() || std::find(users.begin(), users.end(), user) != users.end();
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

std::string makeUuid(uint32_t seed, const config::Pool& t, int k, uint32_t h)
{
    return hex(seed, 8) + '-' + hex(static_cast<uint64_t>(t.id()), 4) + "-4" + hex(static_cast<uint64_t>(k), 3) + "-8"
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

// The entry of a list whose `key` is `name`, or null.
template <class T>
const T* findEntry(const google::protobuf::RepeatedPtrField<T>& list, const std::string& (T::*key)() const,
                   const std::string& name)
{
    for (const T& entry : list) {
        if (name == (entry.*key)())
            return &entry;
    }
    return nullptr;
}

std::string iconUrl(const std::string& stem)
{
    return std::string(kIconUrl) + stem + ".png";
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

// Puts `code` and its texts into the error field of a reply (or into the reply, when it is a
// common.ErrorData itself); false when the reply has no such field.
bool setReplyError(const std::string& method, Script* answer, int code, const std::string& zh, const std::string& en)
{
    const google::protobuf::MethodDescriptor* descriptor = findMethod(method);
    if (!descriptor)
        return false;
    const google::protobuf::Message* prototype =
        google::protobuf::MessageFactory::generated_factory()->GetPrototype(descriptor->output_type());
    if (!prototype)
        return false;
    std::unique_ptr<google::protobuf::Message> reply(prototype->New());
    reply->ParseFromString(answer->replyBytes);
    common::ErrorData* error = dynamic_cast<common::ErrorData*>(reply.get());
    if (!error) {
        const google::protobuf::FieldDescriptor* field = descriptor->output_type()->FindFieldByName("error");
        if (!field || field->message_type() != common::ErrorData::descriptor())
            return false;
        error = dynamic_cast<common::ErrorData*>(reply->GetReflection()->MutableMessage(reply.get(), field));
        if (!error)
            return false;
    }
    error->set_error_code(code);
    error->set_error_msg_zh(zh);
    error->set_error_msg_en(en);
    answer->replyBytes.clear();
    reply->SerializeToString(&answer->replyBytes);
    return true;
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

    // Faults wrap whatever answers a method: a fault of every method ("*" or no method) wraps
    // every unary and client-streaming method of the services.
    std::map<std::string, std::vector<size_t>> faultsOf;
    for (int i = 0; i < m_config->fault_size(); ++i) {
        const std::string& method = m_config->fault(i).method();
        if (!method.empty() && method != "*") {
            faultsOf[method].push_back(static_cast<size_t>(i));
            continue;
        }
        for (const google::protobuf::Descriptor* inFile : {client::LoginReq::descriptor(), common::ErrorData::descriptor(),
                                                           gateway::LoginGatewayReq::descriptor(),
                                                           common::isUseGatewayResp::descriptor()}) {
            const google::protobuf::FileDescriptor* file = inFile->file();
            for (int sv = 0; sv < file->service_count(); ++sv) {
                for (int m = 0; m < file->service(sv)->method_count(); ++m) {
                    const google::protobuf::MethodDescriptor* descriptor = file->service(sv)->method(m);
                    if (!descriptor->server_streaming())
                        faultsOf[FakeServer::methodPath(descriptor)].push_back(static_cast<size_t>(i));
                }
            }
        }
    }
    for (auto& faulted : faultsOf) {
        FakeServer::Responder inner = responders[faulted.first];
        const std::vector<size_t> faults = faulted.second;
        responders[faulted.first] = [this, inner, faults](const RecordedCall& call, Script* answer) {
            return answerWithFaults(call, answer, inner, faults);
        };
    }

    for (const auto& responder : responders) {
        if (responder.second)
            server.setResponder(responder.first, responder.second);
        else
            server.clearResponder(responder.first);
    }
}

bool SimulatedDeployment::answerWithFaults(const RecordedCall& call, Script* answer,
                                           const std::function<bool(const RecordedCall&, Script*)>& inner,
                                           const std::vector<size_t>& faults)
{
    std::vector<const config::Fault*> active;  // the faults this call meets
    for (size_t index : faults) {
        const config::Fault& fault = m_config->fault(static_cast<int>(index));
        const int calls = ++m_faultCalls[index];
        const int after = fault.down_after_calls();
        if (after > 0 && (calls == after || (fault.down_repeat() && calls % after == 0)) && m_onDown)
            m_onDown(call.method, fault.down_for_ms());
        if (fault.fail_next() == 0 || calls <= fault.fail_next())
            active.push_back(&fault);
    }
    int delayMs = 0;
    for (const config::Fault* fault : active)
        delayMs = std::max(delayMs, fault->delay_ms());
    // A status ends the call without asking anyone; so does a bare fail_next.
    for (const config::Fault* fault : active) {
        const bool bare = fault->fail_next() > 0 && fault->error_code() == 0 && fault->delay_ms() == 0;
        if (fault->status().empty() && !bare)
            continue;
        grpc::StatusCode code = grpc::StatusCode::UNAVAILABLE;
        if (!fault->status().empty())
            statusCodeFromString(QString::fromStdString(fault->status()), &code);
        const std::string message = fault->message().empty() ? "injected fault" : fault->message();
        *answer = statusScript(code, message, *answer);
        answer->delayMs = std::max(answer->delayMs, delayMs);
        return true;
    }
    if (inner)
        inner(call, answer);  // when it declines, *answer stays the standing script
    for (const config::Fault* fault : active) {
        if (fault->error_code() != 0 && answer->code == grpc::StatusCode::OK)
            setReplyError(call.method, answer, fault->error_code(), fault->error_msg_zh(), fault->error_msg_en());
    }
    answer->delayMs = std::max(answer->delayMs, delayMs);
    return true;
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
    const std::string& qrUser = m_config->qr_login().user();
    if (!qrUser.empty() && !base.ticket().empty() && m_openTickets.erase(base.ticket()) > 0) {
        user = qrUser;  // the code was scanned by the QR user
        accepted = true;
    } else if (kind.empty() || kind == "0" || kind == "3") {
        user = base.name();
        accepted = passwordMatches(kind == "3" ? m_ldapUsers : m_users, user, base.password());
    } else if (kind == "2") {
        user = base.name();
        const auto code = m_smsCodes.find(user);
        accepted = !base.sms_code().empty() && (code == m_smsCodes.end() || code->second == base.sms_code())
            && passwordMatches(m_users, user, base.password());
    } else if (kind == "1" && (!m_config->has_device_login() || m_config->device_login())) {
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
    const config::LoginAnswer& login = m_config->login();
    reply.set_domain(login.domain());
    reply.set_netbios(login.netbios());
    reply.set_name(user);
    reply.set_userloginname(user);
    reply.set_user_id(10000 + static_cast<int64_t>(stableHash(user) % 90000));
    reply.set_update_interval(login.update_interval());
    reply.set_start_timeout(login.start_timeout());
    reply.set_due_date(login.due_date());
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
    const config::Gateway& gateway = m_config->gateway();
    reply.set_domain(gateway.domain());
    if (passwordMatches(m_gatewayUsers, base.name(), base.password())) {
        const std::string token = gateway.token_prefix() + std::to_string(++m_tokenCounter);
        m_issuedTokens.insert(token);
        reply.set_gw_access_token(token);
        reply.set_token_due_date(static_cast<int64_t>(std::time(nullptr)) + gateway.token_lifetime_seconds());
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
    const std::string ticket = m_config->qr_login().ticket_prefix() + std::to_string(++m_codeCounter);
    m_openTickets.insert(ticket);
    reply.set_codesource(request.codesource());
    reply.set_codetype(request.codetype());
    reply.set_ticket(ticket);
    reply.set_qrcodeurl(m_config->qr_login().url_prefix() + ticket);
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
    const std::string user = callerOf(request.client_base_info());
    for (const config::RemoteApp& app : m_config->remote_app()) {
        if (!permitted(app.users(), user))
            continue;
        client::RemoteAppInfo* item = reply.add_app_list();
        item->set_displayname(app.display_name());
        item->set_iconurl(iconUrl(app.alias()));
        item->set_type(app.type());
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
    const config::RemoteApp* app =
        findEntry(m_config->remote_app(), &config::RemoteApp::display_name, request.displayname());
    const std::string& user = request.username();
    if (!app) {
        setError(reply.mutable_error(), NoSuchRemoteApp, "远程应用不存在", "no such remote application");
        return answerWith(reply, answer);
    }
    if (!permitted(app->users(), user)) {
        setError(reply.mutable_error(), RemoteAppRefused, "无权访问该应用", "you may not open this application");
        return answerWith(reply, answer);
    }
    reply.set_appid("app-" + app->alias());
    reply.set_fulladdress("rdp://" + app->host() + ":3389/" + app->alias());
    reply.set_iconurl(iconUrl(app->alias()));
    reply.set_displayname(app->display_name());
    reply.set_alias(app->alias());
    // The watermark names whoever the application was handed to.
    fillControlPolicy(reply.mutable_control_policy(), app->keep_data_in(),
                      user.empty() ? std::string("Internal") : "Internal - " + user, app->watermark_font_size());
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
    for (const config::SaasApp& app : m_config->saas_app()) {
        client::SaasAppInfo* item = reply.add_app_list();
        item->set_appname(app.name());
        item->set_iconurl(iconUrl(app.icon()));
        item->set_appaddress(app.address());
        item->set_description(app.description());
        item->set_ssoprotocol(app.sso_protocol());
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
    const config::SaasApp* app = findEntry(m_config->saas_app(), &config::SaasApp::name, request.saasappinfo().appname());
    if (!app)
        setError(reply.mutable_error(), NoSuchSaasApp, "SaaS应用不存在", "no such SaaS application");
    else if (!permitted(app->users(), callerOf(request.clientbaseinfo())))
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
    for (const config::ShareTerminal& terminal : m_config->share_terminal()) {
        client::ShareTerminalInfo* item = reply.add_terminal_list();
        item->set_device_id(terminal.device_id());
        item->set_terminal_share_name(terminal.share_name());
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
    if (!findEntry(m_config->share_terminal(), &config::ShareTerminal::device_id, request.dst_device_id()))
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
    if (!findEntry(m_config->share_terminal(), &config::ShareTerminal::device_id, request.device_id()))
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
    for (size_t p = 0; p < poolCount(); ++p) {
        const config::Pool& t = m_config->pool(static_cast<int>(p));
        if (!permitted(t.users(), user))
            continue;
        // The pool's own desktops of this user, else as many made-up ones as it makes.
        std::vector<const config::Desktop*> described;
        for (const config::Desktop& desktop : t.desktop()) {
            if (desktop.owner() == user)
                described.push_back(&desktop);
        }
        const int desktops = t.desktop_size() > 0 ? static_cast<int>(described.size())
            : t.desktops_per_user() > 0             ? t.desktops_per_user()
                                                    : 1 + static_cast<int>((h + static_cast<uint32_t>(p)) % 3);
        for (int k = 0; k < desktops; ++k) {
            const config::Desktop* given = k < static_cast<int>(described.size()) ? described[static_cast<size_t>(k)] : nullptr;
            Desktop d;
            d.seed = h ^ (static_cast<uint32_t>(t.id()) * 2654435761u) ^ static_cast<uint32_t>(k * 40503);
            d.owner = user;
            d.pool = p;
            // Ids and uuids are unique in the deployment: a user whose figures meet those of
            // an earlier one takes the next free ones.
            d.id = given && given->id() > 0 ? given->id() : t.id() * 1000 + static_cast<int64_t>(h % 90) * 10 + k;
            while (m_desktops.count(d.id))
                d.id += 10;
            uint32_t uuidSeed = d.seed;
            d.uuid = given && !given->uuid().empty() ? given->uuid() : makeUuid(uuidSeed, t, k, h);
            while (m_desktopIds.count(d.uuid))
                d.uuid = makeUuid(++uuidSeed, t, k, h);
            d.name = given && !given->name().empty() ? given->name()
                                                     : t.short_name() + '-' + user + '-' + std::to_string(k + 1);
            d.status = given ? (given->status().empty() ? kShutdown : given->status()) : kVmStatuses[(d.seed >> 3) % 4];
            d.mac = "52:54:00:" + hex((d.seed >> 16) & 0xff, 2) + ':' + hex((d.seed >> 8) & 0xff, 2) + ':'
                + hex(d.seed & 0xff, 2);
            d.ip = given && !given->ip().empty()
                ? given->ip()
                : "10.20." + std::to_string(t.id() % 256) + '.' + std::to_string(10 + (h % 200) + static_cast<uint32_t>(k));
            d.hostIp = given && !given->host_ip().empty() ? given->host_ip()
                                                          : t.host_network() + std::to_string(11 + (d.seed >> 9) % 4);
            d.spicePort = 5900 + static_cast<int>(p) * 1000 + static_cast<int>(d.id % 1000);
            if (given) {
                for (const client::SnapshotInfo& snapshot : given->snapshot())
                    d.snapshots.emplace_back(snapshot.name(), snapshot.description());
            } else if (t.snapshots() && k == 0) {
                d.snapshots.emplace_back("before-update", "Taken before the monthly update");
            }
            owned.push_back(d.id);
            m_desktopIds[d.uuid] = d.id;
            m_desktops.emplace(d.id, std::move(d));
        }
    }
}

size_t SimulatedDeployment::poolCount() const
{
    return static_cast<size_t>(m_config->pool_size());
}

const config::Pool& SimulatedDeployment::poolOf(const Desktop& desktop) const
{
    return m_config->pool(static_cast<int>(desktop.pool));
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
    for (size_t p = 0; p < poolCount(); ++p) {
        const config::Pool& t = m_config->pool(static_cast<int>(p));
        if (!permitted(t.users(), user))
            continue;
        client::PoolInfo* pool = t.extra() ? reply->add_ex_pool_list() : reply->add_pool_list();
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

void SimulatedDeployment::fillVm(const Desktop& desktop, client::Vm* vm) const
{
    const config::Pool& t = poolOf(desktop);
    vm->set_vm_id(desktop.id);
    vm->set_vm_name(desktop.name);
    vm->set_vm_status(desktop.status);
    vm->set_os_type(t.os_type());
    vm->set_os_version(t.os_version());
    vm->set_is_port_enable(1);
    vm->set_vmuuid(desktop.uuid);
    client::VmAddress* address = vm->add_address_list();
    address->set_mac(desktop.mac);
    address->add_ip_list(desktop.ip);
    fillPoolExtendOp(t, vm->mutable_extend_op());
    for (const auto& taken : desktop.snapshots) {
        client::SnapshotInfo* snapshot = vm->add_snapshot_list();
        snapshot->set_name(taken.first);
        snapshot->set_description(taken.second);
    }
}

void SimulatedDeployment::fillVmInfo(const Desktop& desktop, client::VmInfo* vm) const
{
    const config::Pool& t = poolOf(desktop);
    vm->set_vm_id(desktop.id);
    vm->set_vm_name(desktop.name);
    vm->set_vm_status(desktop.status);
    vm->set_vm_is_used(desktop.inUse ? "1" : "0");
    vm->add_ip_list(desktop.ip);
    vm->set_os_type(t.os_type());
    vm->set_os_version(t.os_version());
    vm->set_is_port_enable(1);
    fillPoolExtendOp(t, vm->mutable_extend_op());
    vm->set_vmuuid(desktop.uuid);
    vm->set_domain_name(m_config->login().domain());
    client::VmAddress* address = vm->add_address_list();
    address->set_mac(desktop.mac);
    address->add_ip_list(desktop.ip);

    // Office pools keep data in, unless the pool has a policy of its own.
    if (t.has_control_policy())
        *vm->mutable_control_policy() = t.control_policy();
    else
        fillControlPolicy(vm->mutable_control_policy(), t.type() == 1, "Internal", 12);
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
    reply.set_isusedgateway(m_gatewayMode && poolOf(*desktop).gateway_access_strategy() == 1 ? 1 : 0);
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
    } else if (!poolOf(*desktop).snapshots()) {
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
    // The pool asked for, among those the user sees.
    size_t pool = poolCount();
    for (size_t p = 0; p < poolCount() && pool == poolCount(); ++p) {
        const config::Pool& t = m_config->pool(static_cast<int>(p));
        if ((request.id() != 0 ? t.id() == request.id() : request.pool_name() == t.name()) && permitted(t.users(), user))
            pool = p;
    }

    Desktop* desktop = nullptr;
    if (owned == m_userDesktops.end()) {
        setError(reply.mutable_error(), NotLoggedIn, "用户未登录", "log in first");
    } else if (pool == poolCount()) {
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
    const config::Pool& t = poolOf(*desktop);
    reply.set_memsize(t.memory_mb());
    reply.set_cpusize(t.cpus());
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
