// Replies about passwords, client configuration and login options through their inbound
// conversions.
#include "fuzzsupport.h"

#include "vdidesktopgrpchelper.h"

namespace {
using H = VdiDesktopGrpcHelper;
using vdifuzz::reply;

// The family's replies; the error block comes last (VDI_FUZZ_REPLY_TARGET).
std::vector<vdifuzz::Reply> replies()
{
    return {
        reply("CheckPasswordResp", &H::fromCheckPasswordResq, {"error { error_code: 0 }"}),
        reply("ModifyPasswordResp", &H::fromModifyPasswordResq,
              {"error { error_code: 1012 error_msg_en: \"old password wrong\" }"}),
        reply("ClientReleasePasswordResp", &H::fromClientReleasePasswordResq,
              {"password: \"terminal-authority\" enable: 1"}),
        reply("UpgradeResp", &H::fromUpgradeResq,
              {"client_version: \"2.0.0\" download_type: \"http\" force: 0 "
               "url: \"https://127.0.0.1:8443/upgrade/vdi-client-2.0.0.tar.gz\" "
               "md5: \"9e107d9d372bb6826bd81d3542a419d6\" "
               "description: \"Faster reconnection to a desktop and clearer login errors.\""}),
        reply("NextCloudInfoResp", &H::fromNextCloudInfoResp,
              {"serverIp: \"127.0.0.1\" port: \"8443\" enable: 1 ncSize: 10240"}),
        reply("IndividualConfigResp", &H::fromIndividualConfigResp,
              {"systemName: \"Simulated Desktop Cloud\" copyRight: \"Copyright (C) vdi-simulator\" "
               "logoImgUrl: \"https://127.0.0.1:8443/branding/logo.png\" "
               "backgroundImgUrl: \"https://127.0.0.1:8443/branding/background.jpg\" "
               "content: \"Welcome to the simulated desktop cloud.\" createTime: \"2024-03-01 09:00:00\" "
               "individual: 1 vendor_name: \"vdi-simulator\""}),
        reply("ApplyForEmailResp", &H::fromApplyForEmailResq,
              {"serverAddress: \"127.0.0.1\" serverPort: \"465\" sendName: \"VDI administrator\" "
               "sendEmail: \"vdi-admin@vdi.local\" authName: \"vdi-admin@vdi.local\" authPaw: \"mail-password\""}),
        reply("LoginConfigResp", &H::fromLoginConfigResp,
              {"enableSmsLogin: true enableThirdPartyLogin: true timeout: 300 ticket: \"login-config-ticket-1\" "
               "url: \"https://127.0.0.1:8443/sso/authorize\""}),
        reply("CodeResp", &H::fromLoginCodeResp,
              {"codeSource: \"wechat\" codeType: \"qrcode\" "
               "qrcodeUrl: \"https://127.0.0.1:8443/qrlogin?ticket=qr-ticket-1\" ticket: \"qr-ticket-1\""}),
    };
}
} // namespace

VDI_FUZZ_REPLY_TARGET(replies)
