// Conversions of the application catalogues and of the share terminals.
#include "vdidesktopgrpchelper.h"

#include "vdiconversions.h"
#include "vdilog.h"

// ---- Remote applications -------------------------------------------------------------------

void VdiDesktopGrpcHelper::toApplyRemoteAppReq(const tagRemoteAppApplyReq& request, client::RemoteAppInfoReq& message)
{
    message.set_username(toStdString(request.userName));
    message.set_displayname(toStdString(request.displayName));
    message.set_domain(toStdString(request.domain));
}

// The application's type is dropped.
void VdiDesktopGrpcHelper::grpc2RemoteAppInfo(const client::RemoteAppInfo& message, tagRemoteAppInfo& app)
{
    app.iconUrl = fromStdString(message.iconurl());
    app.displayName = fromStdString(message.displayname());
}

void VdiDesktopGrpcHelper::fromRemoteAppListResp(const client::RemoteAppListResp& message, tagRemoteAppListResp& reply)
{
    VDI_LOG_IN(QtDebugMsg, "fromRemoteAppListResp") << Q_FUNC_INFO << " grpcRemoteAppListResp.app_list_size() = "
                                                    << message.app_list_size();
    fromRepeated(message.app_list(), reply.appList, &grpc2RemoteAppInfo);
    grpc2ErrorData(message.error(), reply.error);
}

// The policy is read as a desktop's is, but for its reconnection time, which stays 0.
void VdiDesktopGrpcHelper::fromRemoteAppApplyResp(const client::RemoteAppInfoResp& message, tagRemoteAppApplyResp& reply)
{
    reply.appId = fromStdString(message.appid());
    reply.fullAddress = fromStdString(message.fulladdress());
    reply.iconUrl = fromStdString(message.iconurl());
    reply.displayName = fromStdString(message.displayname());
    reply.alias = fromStdString(message.alias());
    grpc2ErrorData(message.error(), reply.error);
    tagControlPolicy policy;
    vdiconvert::grpc2ControlPolicy(message.control_policy(), policy, vdiconvert::ReconnectionTime::Ignored);
    reply.controlPolicy = policy;
}

// ---- SaaS applications ---------------------------------------------------------------------

// The request is the identity itself.
void VdiDesktopGrpcHelper::toSaasAppListReq(const tagSaasListReq& request, client::ClientBaseInfo& message)
{
    baseInfo2Grpc(request.baseInfo, message);
}

// The description is left out on purpose.
void VdiDesktopGrpcHelper::toSaasAppReq(const tagSaasAppReq& request, client::SaasAppReq& message)
{
    baseInfo2Grpc(request.baseInfo, *message.mutable_clientbaseinfo());
    client::SaasAppInfo& app = *message.mutable_saasappinfo();
    app.set_appname(toStdString(request.appInfo.appName));
    app.set_appaddress(toStdString(request.appInfo.appAddress));
    app.set_iconurl(toStdString(request.appInfo.iconUrl));
    app.set_ssoprotocol(toStdString(request.appInfo.ssoProtocol));
}

void VdiDesktopGrpcHelper::grpc2SaasAppInfo(const client::SaasAppInfo& message, tagSaasAppInfo& app)
{
    app.iconUrl = fromStdString(message.iconurl());
    app.appName = fromStdString(message.appname());
    app.appAddress = fromStdString(message.appaddress());
    app.description = fromStdString(message.description());
    app.ssoProtocol = fromStdString(message.ssoprotocol());
}

void VdiDesktopGrpcHelper::fromSaasAppListResp(const client::SaasAppListResp& message, tagSaasAppListResp& reply)
{
    fromRepeated(message.app_list(), reply.appList, &grpc2SaasAppInfo);
    grpc2ErrorData(message.error(), reply.error);
}

// Only the error comes from the wire; the handler names the application.
void VdiDesktopGrpcHelper::fromSaasAppResp(const common_message::VoidResp& message, tagSaasAppResp& reply)
{
    grpc2ErrorData(message.error(), reply.error);
}

// ---- Share terminals -----------------------------------------------------------------------

void VdiDesktopGrpcHelper::toShareTerminalInfoReq(const tagShareTerminalInfoRequest& request,
                                                  client::ShareTerminalInfoReq& message)
{
    message.set_device_id(toStdString(request.deviceId));
}

void VdiDesktopGrpcHelper::fromShareTerminalInfoResp(const client::ShareTerminalInfoResp& message,
                                                     tagShareTerminalInfoReply& reply)
{
    grpc2ErrorData(message.error(), reply.error);
    fromRepeated(message.terminal_list(), reply.terminalList,
                 [](const client::ShareTerminalInfo& item, tagShareTerminalInfo& terminal) {
                     terminal.deviceId = fromStdString(item.device_id());
                     terminal.terminalShareName = fromStdString(item.terminal_share_name());
                 });
}

// The file's bytes go out as a zero-terminated string: a zero byte ends them.
void VdiDesktopGrpcHelper::toTransDesk2ShareTerminalReq(const tagTransDesk2ShareTerminalRequest& request,
                                                        client::TransDeskToShareTerminalReq& message)
{
    message.set_device_id(toStdString(request.deviceId));
    message.set_vm_uuid(toStdString(request.vmUuid));
    message.set_dst_device_id(toStdString(request.dstDeviceId));
    message.set_vdp_file_data(request.vdpFileData.constData());
}

void VdiDesktopGrpcHelper::fromeTransDesk2ShareTerminalResp(const common::ErrorData& message,
                                                            tagTransDesk2ShareTerminalReply& reply)
{
    grpc2ErrorData(message, reply.error);
}

void VdiDesktopGrpcHelper::toLoginOakdeskTerminalReq(const tagLoginOakdeskShareTerminalRequest& request,
                                                     client::LoginOakdeskOnShareTerminalReq& message)
{
    message.set_device_id(toStdString(request.deviceId));
    message.set_username(toStdString(request.userName));
    message.set_password(toStdString(request.password));
}

void VdiDesktopGrpcHelper::fromLoginOakdeskTerminalReq(const common::ErrorData& message,
                                                       tagLoginOakdeskShareTerminalReply& reply)
{
    grpc2ErrorData(message, reply.error);
}
