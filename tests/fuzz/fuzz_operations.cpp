// Replies of the operations on desktops and devices through their inbound conversions.
#include "fuzzsupport.h"

#include "vdidesktopgrpchelper.h"

namespace {
using H = VdiDesktopGrpcHelper;
using vdifuzz::reply;

// The family's replies; the error block comes last (VDI_FUZZ_REPLY_TARGET).
std::vector<vdifuzz::Reply> replies()
{
    return {
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
