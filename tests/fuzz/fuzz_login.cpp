// Replies of the login, and the pools and desktops it carries, through their inbound conversions.
#include "fuzzsupport.h"

#include "vdidesktopgrpchelper.h"

namespace {
using H = VdiDesktopGrpcHelper;
using vdifuzz::check;
using vdifuzz::reply;

// The family's replies; the error block comes last (VDI_FUZZ_REPLY_TARGET).
std::vector<vdifuzz::Reply> replies()
{
    return {
        reply("LoginResp", &H::fromLoginResp,
              {"domain: \"vdi.local\" netBIOS: \"VDI\" name: \"demo-user\" update_interval: 30 start_timeout: 120 "
               "user_id: 1001 due_date: 4102444800 pool_list { " VDI_FUZZ_POOL " } ex_pool_list { id: 201 "
               "name: \"Training lab\" status: 1 type: 1 gateway_access_strategy: 1 }"},
              [](const client::LoginResp& message, const tagLoginReply& record) {
                  check(record.poolList.size() == message.pool_list_size() + message.ex_pool_list_size(),
                        "the pools, then the extra pools");
              }),
        reply("PoolInfo", &H::grpc2PoolInfo, {VDI_FUZZ_POOL},
              [](const client::PoolInfo& message, const tagPoolInfo& record) {
                  check(record.vmList.size() == message.vm_list_size(), "one desktop per wire entry");
              }),
        reply("VmInfo", &H::grpc2VMInfo, {VDI_FUZZ_VM}),
        reply("ExtendOp", &H::grpc2VMOperator,
              {"shudown: 1 reboot: 1 power_off_reboot: 0 power_off: 1 back_home: 0 disconnection: 1"}),
        reply("VmAddress", &H::grpc2VMAddress,
              {"mac: \"52:54:00:0a:01:0b\" ip_list: \"10.10.1.11\" ip_list: \"fe80::5054:ff:fe0a:10b\""}),
        reply("SnapshotInfo", &H::grpc2SnapshotInfo,
              {"name: \"before-update\" description: \"Taken before the monthly update\""}),
    };
}
} // namespace

VDI_FUZZ_REPLY_TARGET(replies)
