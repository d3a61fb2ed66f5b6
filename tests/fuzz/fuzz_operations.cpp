// Replies of the operations on desktops and devices, their assignment and the device reports,
// through their inbound conversions.
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
        reply("ModifyVmNameResp", &H::fromModifyVMNameResq, {"error { error_code: 0 }"}),
        reply("RegisterDevResp", &H::fromRegisterDevReq,
              {"register_id: 7001", "error { error_code: 3 error_msg_en: \"device exists\" }"}),
        reply("ReportSuccessResp", &H::fromReportSuccessResq, {"error { error_code: 0 }"}),
        reply("USBNotifyResp", &H::fromUSBNotifyResq, {"error { error_code: 0 }"}),
        reply("VoidResp", &H::fromVoidResp, {"error { error_code: 0 error_msg_en: \"ok\" }"}),
    };
}
} // namespace

VDI_FUZZ_REPLY_TARGET(replies)
