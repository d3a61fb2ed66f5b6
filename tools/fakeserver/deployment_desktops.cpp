// The desktops a login lists: made for each user at the first login, always the same ones for
// the same user, then found by id or uuid and described as they now stand.
#include "deployment_answers.h"

namespace vdifake {

using namespace detail;

namespace {

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

std::string makeUuid(uint32_t seed, const config::Pool& t, int k, uint32_t h)
{
    return hex(seed, 8) + '-' + hex(static_cast<uint64_t>(t.id()), 4) + "-4" + hex(static_cast<uint64_t>(k), 3) + "-8"
        + hex(h & 0xfff, 3) + '-' + hex((static_cast<uint64_t>(h) << 16) | (seed & 0xffff), 12);
}

} // namespace

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

} // namespace vdifake
