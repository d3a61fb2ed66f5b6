#include "deployment.h"

#include "fakeserver.h"

#include <google/protobuf/descriptor.h>

#include "client/client_core.pb.h"
#include "gateway/gateway_core.pb.h"

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <iterator>

namespace vdifake {

const char* const SimulatedDeployment::kDefaultUserName = "demo-user";
const char* const SimulatedDeployment::kDefaultUserPassword = "demo-password";
const char* const SimulatedDeployment::kDefaultGatewayUserName = "gw-user";
const char* const SimulatedDeployment::kDefaultGatewayPassword = "gw-password";

namespace {

const char* const kLoginMethod = "/client.ClientCore/Login";
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
};

const PoolTemplate kPools[] = {
    {101, "Office desktops", "office", 1, "cluster-a", 0, 0, 0, "Windows 10 Enterprise", false, false},
    {102, "Engineering workstations", "eng", 2, "cluster-b", 1, 30, 1, "Ubuntu 22.04", false, true},
    {201, "Training lab", "lab", 1, "cluster-a", 1, 0, 0, "Windows 11 Education", true, false},
};

const char* const kVmStatuses[] = {"running", "shutdown", "running", "suspended"};

// The user's pools and desktops; the same every time for the same user.
void fillPools(const std::string& user, client::LoginResp* reply)
{
    const uint32_t h = stableHash(user);
    int poolIndex = 0;
    for (const PoolTemplate& t : kPools) {
        client::PoolInfo* pool = t.extra ? reply->add_ex_pool_list() : reply->add_pool_list();
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

        const int desktops = 1 + static_cast<int>((h + static_cast<uint32_t>(poolIndex)) % 3);
        for (int k = 0; k < desktops; ++k) {
            const uint32_t seed = h ^ (static_cast<uint32_t>(t.id) * 2654435761u) ^ static_cast<uint32_t>(k * 40503);
            client::Vm* vm = pool->add_vm_list();
            vm->set_vm_id(t.id * 1000 + static_cast<int64_t>(h % 90) * 10 + k);
            vm->set_vm_name(std::string(t.shortName) + '-' + user + '-' + std::to_string(k + 1));
            vm->set_vm_status(kVmStatuses[(seed >> 3) % 4]);
            vm->set_os_type(t.osType);
            vm->set_os_version(t.osVersion);
            vm->set_is_port_enable(1);
            vm->set_vmuuid(hex(seed, 8) + '-' + hex(static_cast<uint64_t>(t.id), 4) + "-4" + hex(static_cast<uint64_t>(k), 3)
                           + "-8" + hex(h & 0xfff, 3) + '-' + hex((static_cast<uint64_t>(h) << 16) | (seed & 0xffff), 12));
            client::VmAddress* address = vm->add_address_list();
            address->set_mac("52:54:00:" + hex((seed >> 16) & 0xff, 2) + ':' + hex((seed >> 8) & 0xff, 2) + ':'
                             + hex(seed & 0xff, 2));
            address->add_ip_list("10.20." + std::to_string(t.id % 256) + '.' + std::to_string(10 + (h % 200) + k));
            fillExtendOp(vm->mutable_extend_op(), t.snapshots);
            if (t.snapshots && k == 0) {
                client::SnapshotInfo* snapshot = vm->add_snapshot_list();
                snapshot->set_name("before-update");
                snapshot->set_description("Taken before the monthly update");
            }
        }
        ++poolIndex;
    }
}

void setError(common::ErrorData* error, int code, const char* zh, const char* en)
{
    error->set_error_code(code);
    error->set_error_msg_zh(zh);
    error->set_error_msg_en(en);
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

void SimulatedDeployment::install(FakeServer& server, const QString& mode)
{
    m_gatewayMode = mode == QLatin1String("gateway");

    server.setResponder(kLoginMethod, [this](const RecordedCall& call, Script* answer) {
        return answerLogin(call, answer);
    });

    const google::protobuf::ServiceDescriptor* clientCore =
        client::LoginReq::descriptor()->file()->FindServiceByName("ClientCore");
    std::set<std::string> open(std::begin(kOpenClientMethods), std::end(kOpenClientMethods));
    for (int i = 0; clientCore && i < clientCore->method_count(); ++i) {
        const std::string path = FakeServer::methodPath(clientCore->method(i));
        if (path == kLoginMethod || open.count(path))
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
    if (m_gatewayMode && refuseWithoutToken(call, answer))
        return true;

    client::LoginReq request;
    if (!parseRequest(call, &request)) {
        *answer = statusScript(grpc::StatusCode::INVALID_ARGUMENT, "the login request does not parse", *answer);
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

} // namespace vdifake
