// The operations on the desktops: power, recovery, snapshots and names; their assignment to a
// user, their devices and figures; and the reports a client makes of a desktop (connection,
// USB, redirection) and of its own device.
#include "deployment_answers.h"

#include "common/common_messages.pb.h"

#include <cstdlib>

namespace vdifake {

using namespace detail;

namespace {

const size_t kMaxDesktopNameBytes = 64;

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

void setNotRunning(common::ErrorData* error)
{
    setError(error, SimulatedDeployment::DesktopNotRunning, "虚拟机未运行", "the desktop is not running");
}

} // namespace

bool SimulatedDeployment::answerOperateForVm(const RecordedCall& call, Script* answer)
{
    client::OperateForVmReq request;
    if (!parseRequest(call, &request, "desktop operation", answer))
        return true;
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
    if (!parseRequest(call, &request, "desktop recovery", answer))
        return true;
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
    if (!parseRequest(call, &request, "snapshot", answer))
        return true;
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
    if (!parseRequest(call, &request, "rename", answer))
        return true;
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
    if (!parseRequest(call, &request, "desktop assignment", answer))
        return true;
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
    if (!parseRequest(call, &request, "device information", answer))
        return true;
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
    if (!parseRequest(call, &request, "desktop detail", answer))
        return true;
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
    if (!parseRequest(call, &request, "device registration", answer))
        return true;
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
    if (!parseRequest(call, &request, "status report", answer))
        return true;
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
    if (!parseRequest(call, &request, "USB notice", answer))
        return true;
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
    if (!parseRequest(call, &request, "redirection status", answer))
        return true;
    common_message::VoidResp reply;
    const std::string& uuid = request.vm_uuid().empty() ? request.client_base_info().vmuuid() : request.vm_uuid();
    if (!findDesktop(request.client_base_info().vm_id(), uuid))
        setNoSuchDesktop(reply.mutable_error());
    return answerWith(reply, answer);
}

} // namespace vdifake
