// The reply of the one-key help through its inbound conversion.
#include "fuzzsupport.h"

#include "vdidesktopgrpchelper.h"

namespace {
// The family's replies; the error block comes last (VDI_FUZZ_REPLY_TARGET).
std::vector<vdifuzz::Reply> replies()
{
    return {
        vdifuzz::reply("OnekeyHelpResp", &VdiDesktopGrpcHelper::fromOneKeyHelpResq,
                       {"taskId: 90017", "error { error_code: 13 error_msg_en: \"help service busy\" }"}),
    };
}
} // namespace

VDI_FUZZ_REPLY_TARGET(replies)
