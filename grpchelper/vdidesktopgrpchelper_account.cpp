// Conversions of passwords, client configuration and login options.
#include "vdidesktopgrpchelper.h"

// ---- Passwords -----------------------------------------------------------------------------

void VdiDesktopGrpcHelper::toCheckPasswordReq(const tagCheckPasswordRequest& request, client::CheckPasswordReq& message)
{
    baseInfo2Grpc(request.baseInfo, *message.mutable_client_base_info());
}

void VdiDesktopGrpcHelper::fromCheckPasswordResq(const client::CheckPasswordResp& message, tagCheckPasswordResp& reply)
{
    grpc2ErrorData(message.error(), reply.error);
}

void VdiDesktopGrpcHelper::toModifyPasswordReq(const tagModifyPasswordRequest& request,
                                               client::ModifyPasswordReq& message)
{
    baseInfo2Grpc(request.baseInfo, *message.mutable_client_base_info());
    message.set_password_new(toStdString(request.passwordNew));
}

void VdiDesktopGrpcHelper::fromModifyPasswordResq(const client::ModifyPasswordResp& message,
                                                  tagModifyPasswordReply& reply)
{
    grpc2ErrorData(message.error(), reply.error);
}

void VdiDesktopGrpcHelper::toClientReleasePasswordReq(const tagClientReleasePasswordRequest& request,
                                                      client::ClientReleasePasswordReq& message)
{
    message.set_clienttype(request.clientType);
}

// `enable` is not looked at: a disabled password still arrives.
void VdiDesktopGrpcHelper::fromClientReleasePasswordResq(const client::ClientReleasePasswordResp& message,
                                                         tagClientReleasePasswordReply& reply)
{
    reply.password = fromStdString(message.password());
    grpc2ErrorData(message.error(), reply.error);
}

// ---- Client configuration ------------------------------------------------------------------

void VdiDesktopGrpcHelper::toUpgradeReq(const tagUpgradeRequest& request, client::UpgradeReq& message)
{
    message.set_client_name(toStdString(request.clientName));
    message.set_client_version(toStdString(request.clientVersion));
    message.set_client_type(toStdString(request.clientType));
    message.set_os_type(toStdString(request.osType));
    message.set_cpu_arch(toStdString(request.cpuArch));
    message.set_ip(toStdString(request.ip));
    message.set_device_id(toStdString(request.deviceId));
    message.set_device_name(toStdString(request.deviceName));
    message.set_state(toStdString(request.state));
}

void VdiDesktopGrpcHelper::fromUpgradeResq(const client::UpgradeResp& message, tagUpgradeReply& reply)
{
    reply.clientVersion = fromStdString(message.client_version());
    reply.downloadType = fromStdString(message.download_type());
    reply.url = fromStdString(message.url());
    reply.force = message.force();
    reply.md5 = fromStdString(message.md5());
    reply.description = fromStdString(message.description());
    grpc2ErrorData(message.error(), reply.error);
}

void VdiDesktopGrpcHelper::toNextCloudInfoReq(const tagNextCloudInfoReq& request, client::NextCloudInfoReq& message)
{
    message.set_userid(request.userId);
}

void VdiDesktopGrpcHelper::fromNextCloudInfoResp(const client::NextCloudInfoResp& message, tagNextCloudInfoResp& reply)
{
    reply.serverIp = fromStdString(message.serverip());
    reply.port = fromStdString(message.port());
    reply.ncSize = message.ncsize();
    reply.enable = message.enable();
    grpc2ErrorData(message.error(), reply.error);
}

void VdiDesktopGrpcHelper::toIndividualConfigReq(const tagIndividualConfigReq& request,
                                                 client::IndividualConfigReq& message)
{
    message.set_type(request.type);
}

// `vendor_name` is dropped.
void VdiDesktopGrpcHelper::fromIndividualConfigResp(const client::IndividualConfigResp& message,
                                                    tagIndividualConfigResp& reply)
{
    reply.systemName = fromStdString(message.systemname());
    reply.copyRight = fromStdString(message.copyright());
    reply.logoImgUrl = fromStdString(message.logoimgurl());
    reply.backgroundImgUrl = fromStdString(message.backgroundimgurl());
    reply.content = fromStdString(message.content());
    reply.createTime = fromStdString(message.createtime());
    reply.individual = message.individual();
    grpc2ErrorData(message.error(), reply.error);
}

void VdiDesktopGrpcHelper::fromApplyForEmailResq(const client::ApplyForEmailResp& message, tagApplyForEmailReply& reply)
{
    reply.serverAddress = fromStdString(message.serveraddress());
    reply.serverPort = fromStdString(message.serverport());
    reply.sendName = fromStdString(message.sendname());
    reply.sendEmail = fromStdString(message.sendemail());
    reply.authName = fromStdString(message.authname());
    reply.authPaw = fromStdString(message.authpaw());
    grpc2ErrorData(message.error(), reply.error);
}

// ---- Login options -------------------------------------------------------------------------

void VdiDesktopGrpcHelper::toLoginConfigReq(const QString& deviceUuid, client::LoginConfigReq& message)
{
    message.set_deviceuuid(toStdString(deviceUuid));
}

void VdiDesktopGrpcHelper::fromLoginConfigResp(const client::LoginConfigResp& message, LoginConfigResp& reply)
{
    reply.timeout = message.timeout();
    reply.ticket = fromStdString(message.ticket());
    reply.url = fromStdString(message.url());
    reply.oakdeskIp = fromStdString(message.oakdeskip());
    grpc2ErrorData(message.error(), reply.error);
    reply.enableJjtLogin = message.enablejjtlogin();
    reply.enableThirdPartyLogin = message.enablethirdpartylogin();
    reply.enableWechatEnterpriseLogin = message.enablewechatenterpriselogin();
    reply.enableFaceLogin = message.enablefacelogin();
    reply.enableSmsLogin = message.enablesmslogin();
    reply.enableDingtalkLogin = message.enabledingtalklogin();
}

void VdiDesktopGrpcHelper::toLoginCodeReq(const LoginCodeReq& request, client::CodeReq& message)
{
    baseInfo2Grpc(request.baseInfo, *message.mutable_client_base_info());
    extendInfo2Grpc(request.extendInfo, *message.mutable_client_extend_info());
    message.set_codesource(toStdString(request.codeSource));
    message.set_codetype(toStdString(request.codeType));
    message.set_username(toStdString(request.username));
}

void VdiDesktopGrpcHelper::fromLoginCodeResp(const client::CodeResp& message, LoginCodeResp& reply)
{
    reply.codeSource = fromStdString(message.codesource());
    reply.codeType = fromStdString(message.codetype());
    reply.qrcodeUrl = fromStdString(message.qrcodeurl());
    reply.ticket = fromStdString(message.ticket());
    grpc2ErrorData(message.error(), reply.error);
}
