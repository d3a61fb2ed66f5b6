// Replies of the login and of desktops (pools, desktops, operations on them) through their
// inbound conversions.
#include "fuzzsupport.h"

#include "vdidesktopgrpchelper.h"

namespace {
using H = VdiDesktopGrpcHelper;
using vdifuzz::check;
using vdifuzz::reply;

#define VDI_FUZZ_VM                                                                                       \
    "vm_id: 1001 vm_name: \"office-001\" vm_status: \"running\" vm_is_used: \"1\" ip_list: \"10.10.1.11\" " \
    "os_type: 0 os_version: \"Windows 10 Enterprise\" is_port_enable: 1 vmUuid: \"5f0c2d4e-office-001\" "    \
    "domain_name: \"vdi.local\" address_list { mac: \"52:54:00:0a:01:0b\" ip_list: \"10.10.1.11\" } "       \
    "extend_op { shudown: 1 reboot: 1 power_off: 1 disconnection: 1 client_ctrl_alt_del: 1 snapshot: 1 } " \
    "control_policy { share_policy { clipboard: 1 printers: 1 } usb_policy { enable: 1 policy_list: "      \
    "\"0781:5567\" } watermark_policy { enable: 1 color: \"ff0000\" font_size: 14 transparent: 20 "         \
    "user_define: \"Desktop Watermark\" rotation_angle: 30 } reconnection_network_time: 60 }"

#define VDI_FUZZ_POOL                                                                                     \
    "id: 101 name: \"Office desktops\" status: 1 type: 1 vm_os_version: \"Windows 10 Enterprise\" "        \
    "vm_os_type: 0 resource_name: \"cluster-a\" pool_expire_time: 0 extend_op { shudown: 1 reboot: 1 } "   \
    "vm_list { vm_id: 1001 vm_name: \"office-001\" vm_status: \"running\" vmUuid: \"5f0c2d4e-office-001\" " \
    "os_version: \"Windows 10 Enterprise\" vm_expire_time: 4294967293 address_list { mac: "                \
    "\"52:54:00:0a:01:0b\" ip_list: \"10.10.1.11\" } snapshot_list { name: \"before-update\" "              \
    "description: \"Taken before the monthly update\" } }"

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
        reply("ApplyForVmResp", &H::fromApplyForVMResp,
              {"vm { " VDI_FUZZ_VM " } name: \"demo-user\" password: \"demo-password\" host_ip: \"10.10.1.2\" "
               "host_ips: \"10.10.1.2\" spice_password: \"spice-7f3a\" user_group: \"staff\""}),
        reply("OperateForVmResp", &H::fromOperateForVMResq,
              {"vm { " VDI_FUZZ_VM " } spice_port: \"5901\" hostIp: \"10.10.1.2\" gatewayToken: \"gw-token-1\" "
               "tlsPort: \"5902\""}),
        reply("RecoverVmResp", &H::fromRecoverVMResq, {"vm_id: 1001 progress: 100 vmUuid: \"5f0c2d4e-office-001\""}),
        reply("SnapshotResp", &H::fromSnapshotResq,
              {"snapshot_list { name: \"before-update\" description: \"Taken before the monthly update\" }"},
              [](const client::SnapshotResp& message, const tagSnapshotReply& record) {
                  check(record.snapshotList.size() == message.snapshot_list_size(), "one snapshot per wire entry");
              }),
        reply("ApplyForDeviceInfoResp", &H::fromApplyForDeviceInfoResq,
              {"device_list { device_id: \"dev-0001\" vm_address { mac: \"52:54:00:0a:01:0b\" ip_list: \"10.10.1.11\" } }"},
              [](const client::ApplyForDeviceInfoResp& message, const tagApplyForDeviceInfoReply& record) {
                  check(record.deviceList.size() == message.device_list_size(), "one device per wire entry");
              }),
        reply("DeskTopPoolResp", &H::fromDeskTopPoolResq,
              {"pool { " VDI_FUZZ_POOL " } mac: \"52:54:00:0a:01:0b\" computerName: \"office-001\""}),
        reply("VmDetailInfoResp", &H::fromVmInfoResp, {"memSize: 4096 memRate: \"37%\" cpuSize: 2 cpuRate: \"12%\""}),
    };
}
} // namespace

VDI_FUZZ_REPLY_TARGET(replies)
