// Converting a large login reply into records, against protobuf's own parse of the same bytes,
// measured side by side in one run. Usage: vdi-bench-loginreply [pools] [desktops-per-pool] [rounds]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "vdidesktopgrpchelper.h"

namespace {

client::LoginResp makeReply(int pools, int desktops)
{
    client::LoginResp reply;
    reply.set_domain("corp.example");
    reply.set_name("benchmark-user");
    reply.set_user_id(1001);
    for (int p = 0; p < pools; ++p) {
        client::PoolInfo* pool = reply.add_pool_list();
        pool->set_id(p);
        pool->set_name("pool-" + std::to_string(p));
        pool->set_resource_name("resource-" + std::to_string(p));
        pool->set_pool_expire_time(1700000000 + p);
        pool->set_gateway_access_strategy(p % 3);
        pool->mutable_extend_op()->set_reboot(1);
        for (int d = 0; d < desktops; ++d) {
            client::Vm* vm = pool->add_vm_list();
            vm->set_vm_id(int64_t(p) * 1000 + d);
            vm->set_vm_name("desktop-" + std::to_string(p) + "-" + std::to_string(d));
            vm->set_vm_status("running");
            vm->set_os_version("Windows 10");
            vm->set_os_type(1);
            vm->set_vmuuid("6f1c2a7e-0000-4000-8000-" + std::to_string(100000000000LL + p * 1000 + d));
            vm->set_vm_expire_time(0);
            for (int a = 0; a < 2; ++a) {
                client::VmAddress* address = vm->add_address_list();
                address->set_mac("52:54:00:00:" + std::to_string(p % 100) + ":" + std::to_string(d));
                address->add_ip_list(" 10." + std::to_string(p % 250) + "." + std::to_string(d) + "." + std::to_string(a) + " ");
                address->add_ip_list("");
            }
            client::ExtendOp* op = vm->mutable_extend_op();
            op->set_shudown(1);
            op->set_reboot(1);
            op->set_power_off(1);
            op->set_disconnection(1);
            op->set_snapshot(1);
            op->set_modify_name(1);
            for (int s = 0; s < 3; ++s) {
                client::SnapshotInfo* snapshot = vm->add_snapshot_list();
                snapshot->set_name("snapshot-" + std::to_string(s));
                snapshot->set_description("taken before update " + std::to_string(s));
            }
        }
    }
    return reply;
}

using Clock = std::chrono::steady_clock;

template <class Work>
double secondsOf(Work work)
{
    const auto start = Clock::now();
    work();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char* argv[])
{
    const int pools = argc > 1 ? std::atoi(argv[1]) : 500;
    const int desktops = argc > 2 ? std::atoi(argv[2]) : 20;
    const int rounds = argc > 3 ? std::atoi(argv[3]) : 9;

    const std::string bytes = makeReply(pools, desktops).SerializeAsString();
    client::LoginResp parsed;
    parsed.ParseFromString(bytes);

    std::vector<double> parse, convert;
    size_t sink = 0;
    for (int round = 0; round < rounds; ++round) {
        // Alternate the two so that both see the same machine state.
        parse.push_back(secondsOf([&] {
            client::LoginResp message;
            message.ParseFromString(bytes);
            sink += size_t(message.pool_list_size());
        }));
        convert.push_back(secondsOf([&] {
            tagLoginReply reply;
            VdiDesktopGrpcHelper::fromLoginResp(parsed, reply);
            sink += size_t(reply.poolList.size());
        }));
    }
    const double p = median(parse);
    const double c = median(convert);
    std::printf("login reply: %d pools x %d desktops, %zu bytes, %d rounds (median)\n", pools, desktops, bytes.size(), rounds);
    std::printf("protobuf parse:     %8.2f ms\n", p * 1e3);
    std::printf("fromLoginResp:      %8.2f ms\n", c * 1e3);
    std::printf("conversion / parse: %8.2f\n", c / p);
    return sink == 0 ? 1 : 0;
}
