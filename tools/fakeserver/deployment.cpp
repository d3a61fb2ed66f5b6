#include "deployment.h"

#include "fakeserver.h"

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

namespace vdifake {

const char* const SimulatedDeployment::kDefaultUserName = "demo-user";
const char* const SimulatedDeployment::kDefaultUserPassword = "demo-password";
const char* const SimulatedDeployment::kDefaultGatewayUserName = "gw-user";
const char* const SimulatedDeployment::kDefaultGatewayPassword = "gw-password";

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
const size_t kMaxDesktopNameBytes = 64;

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

void setNoSuchDesktop(common::ErrorData* error)
{
    setError(error, SimulatedDeployment::NoSuchDesktop, "虚拟机不存在", "no such desktop");
}

void setNotRunning(common::ErrorData* error)
{
    setError(error, SimulatedDeployment::DesktopNotRunning, "虚拟机未运行", "the desktop is not running");
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

} // namespace

SimulatedDeployment::SimulatedDeployment()
{
    m_users[kDefaultUserName] = kDefaultUserPassword;
    m_gatewayUsers[kDefaultGatewayUserName] = kDefaultGatewayPassword;
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

std::map<QString, QString> SimulatedDeployment::users() const
{
    return toQt(m_users);
}

std::map<QString, QString> SimulatedDeployment::gatewayUsers() const
{
    return toQt(m_gatewayUsers);
}

void SimulatedDeployment::setApplyOverruns(int count)
{
    m_applyOverruns = std::max(count, 0);
}

int SimulatedDeployment::applyOverrunsLeft() const
{
    return m_applyOverruns;
}

void SimulatedDeployment::install(FakeServer& server, const QString& mode)
{
    m_gatewayMode = mode == QLatin1String("gateway");

    // The controller methods this deployment answers itself, behind the gateway's token check.
    const std::pair<const char*, Answer> answered[] = {
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
    };
    std::set<std::string> handled;
    for (const auto& entry : answered) {
        const Answer answerCall = entry.second;
        server.setResponder(entry.first, [this, answerCall](const RecordedCall& call, Script* answer) {
            if (m_gatewayMode && refuseWithoutToken(call, answer))
                return true;
            return (this->*answerCall)(call, answer);
        });
        handled.insert(entry.first);
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
        accepted = passwordMatches(m_users, user, base.password());
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
        setError(reply.mutable_error(), 1, "用户名或密码错误", "wrong user name or password");
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

    // Office pools keep data in: no drives, read-only USB storage and a watermark.
    const bool office = t.type == 1;
    client::ControlPolicy* policy = vm->mutable_control_policy();
    client::SharePolicy* share = policy->mutable_share_policy();
    share->set_drivers(office ? 0 : 1);
    share->set_clipboard(1);
    share->set_rdp_clipboard(1);
    share->set_vdp_clipboard(1);
    share->set_printers(1);
    client::USBPolicy* usb = policy->mutable_usb_policy();
    usb->set_enable(1);
    usb->set_usbredirectstorage(1);
    usb->set_store_readonly(office ? 1 : 0);
    usb->set_usbredirectprinter(1);
    client::WatermarkPolicy* watermark = policy->mutable_watermark_policy();
    watermark->set_enable(office ? 1 : 0);
    watermark->set_show_user_name(1);
    watermark->set_show_time(1);
    watermark->set_color("808080");
    watermark->set_font_size(12);
    watermark->set_transparent(20);
    watermark->set_user_define("Internal");
    watermark->set_rotation_angle(30);
    watermark->set_show_position(1);
    policy->mutable_video_policy()->set_spicetls(1);
    policy->set_reconnection_network_time(60);
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
