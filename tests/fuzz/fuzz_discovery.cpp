// Replies of server discovery and of the heartbeat through their inbound conversions.
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
        reply("HeartbeatResp", &H::fromHeartbeatResq, {"error { error_code: 0 }"}),
        reply("DeviceConfigInfoResp", &H::fromDeviceConfigInfoResp,
              {"authType: 0 serverArch: \"x86_64\" displayType: 0 rememberPassword: true",
               "authType: 2 serverArch: \"aarch64\" displayType: 1 outId: \"out-7\" error { error_code: 0 }"}),
        reply("queryGatewayInfoResp", &H::fromGatewayInfoResp,
              {"gateway_list { name: \"fake-gateway\" description: \"Simulated access gateway\" type: \"vdp\" "
               "domain: \"vdi-fake-gateway\" public_ip: \"127.0.0.1\" VDP_port: \"443\" RDP_port: \"3389\" }"},
              [](const common::queryGatewayInfoResp& message, const tagGatewayInfoResp& record) {
                  check(record.gatewayList.size() == message.gateway_list_size(), "one gateway per wire entry");
              }),
        vdifuzz::replyWith<client::ResourceList>(
            "ResourceList",
            [](const client::ResourceList& message) {
                client::ResourceList copy(message);  // the conversion takes the message by non-const reference
                tagQureyControllerListResp record;
                H::fromQureyControllerListResp(copy, record);
                check(record.resourceList.size() == message.resourceinfo_list_size(), "one node per wire entry");
            },
            {"resourceInfo_list { id: 1 name: \"vdi-fake-controller\" ip: \"127.0.0.1\" status: \"online\" "
             "gateway: false port: 443 } resourceInfo_list { id: 2 name: \"vdi-fake-gateway\" ip: \"127.0.0.1\" "
             "status: \"online\" gateway: true port: 443 }"}),
        reply("WhoAreYouReply", &H::fromQueryControllerType, {"name: \"vdi-fake-controller\""}),
        reply("AgentUseControllerIpResp", &H::fromQueryVmControllerIpResq,
              {"ip: \"127.0.0.1\" port: 443 domain_name: \"vdi-fake-controller\""}),
    };
}
} // namespace

VDI_FUZZ_REPLY_TARGET(replies)
