// Replies of the application catalogues and of share terminals through their inbound
// conversions.
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
        reply("RemoteAppInfo", &H::grpc2RemoteAppInfo,
              {"displayName: \"Word\" iconUrl: \"https://127.0.0.1:8443/icons/winword.png\" type: 1"}),
        reply("RemoteAppListResp", &H::fromRemoteAppListResp,
              {"app_list { displayName: \"Word\" type: 1 } app_list { displayName: \"Excel\" type: 1 } "
               "app_list { displayName: \"CAD Viewer\" type: 2 }"},
              [](const client::RemoteAppListResp& message, const tagRemoteAppListResp& record) {
                  check(record.appList.size() == message.app_list_size(), "one application per wire entry");
              }),
        reply("RemoteAppInfoResp", &H::fromRemoteAppApplyResp,
              {"appId: \"app-winword\" fullAddress: \"10.10.3.21\" displayName: \"Word\" alias: \"winword\" "
               "control_policy { watermark_policy { enable: 1 font_size: 14 } }"}),
        reply("SaasAppInfo", &H::grpc2SaasAppInfo,
              {"appName: \"Mail\" iconUrl: \"mail\" appAddress: \"https://mail.vdi.local/\" "
               "description: \"Mail and calendar\" ssoProtocol: \"oauth2\""}),
        reply("SaasAppListResp", &H::fromSaasAppListResp,
              {"app_list { appName: \"Mail\" iconUrl: \"mail\" appAddress: \"https://mail.vdi.local/\" "
               "ssoProtocol: \"oauth2\" } app_list { appName: \"Wiki\" iconUrl: \"wiki\" "
               "appAddress: \"https://wiki.vdi.local/\" ssoProtocol: \"saml2\" }"},
              [](const client::SaasAppListResp& message, const tagSaasAppListResp& record) {
                  check(record.appList.size() == message.app_list_size(), "one application per wire entry");
              }),
        reply("VoidResp", &H::fromSaasAppResp, {"error { error_code: 0 }"}),
        reply("ShareTerminalInfoResp", &H::fromShareTerminalInfoResp,
              {"terminal_list { device_id: \"share-term-01\" terminal_share_name: \"Meeting room A\" } "
               "terminal_list { device_id: \"share-term-02\" terminal_share_name: \"Reception desk\" }"},
              [](const client::ShareTerminalInfoResp& message, const tagShareTerminalInfoReply& record) {
                  check(record.terminalList.size() == message.terminal_list_size(), "one terminal per wire entry");
              }),
        reply("TransDeskToShareTerminal", &H::fromeTransDesk2ShareTerminalResp, {"error_code: 0"}),
        reply("LoginOakdeskOnShareTerminal", &H::fromLoginOakdeskTerminalReq,
              {"error_code: 1012 error_msg_en: \"user or password wrong\""}),
    };
}
} // namespace

VDI_FUZZ_REPLY_TARGET(replies)
