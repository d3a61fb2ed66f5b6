// Conversions of server discovery.
#include "vdidesktopgrpchelper.h"

using H = VdiDesktopGrpcHelper;

void VdiDesktopGrpcHelper::toDeviceConfigInfoReq(const tagDeviceConfigInfoReq& request,
                                                 client::DeviceConfigInfoReq& message)
{
    message.set_ip(toStdString(request.ip));
    message.set_mac(toStdString(request.mac));
    message.set_deviceid(toStdString(request.deviceId));
}

void VdiDesktopGrpcHelper::fromDeviceConfigInfoResp(const client::DeviceConfigInfoResp& message,
                                                    tagDeviceConfigInfoResp& reply)
{
    reply.authType = message.authtype();
    reply.serverArch = fromStdString(message.serverarch());
    grpc2ErrorData(message.error(), reply.error);
    reply.displayType = message.displaytype();
    reply.rememberPassword = message.rememberpassword();
    reply.outId = fromStdString(message.outid());
}

void VdiDesktopGrpcHelper::fromGatewayInfoResp(const common::queryGatewayInfoResp& message, tagGatewayInfoResp& reply)
{
    grpc2ErrorData(message.error(), reply.error);
    fromRepeated(message.gateway_list(), reply.gatewayList, [](const common::GatewayInfo& item, tagGatewayInfo& entry) {
        entry.name = H::fromStdString(item.name());
        entry.description = H::fromStdString(item.description());
        entry.type = H::fromStdString(item.type());
        entry.domain = H::fromStdString(item.domain());
        entry.publicIp = H::fromStdString(item.public_ip());
        entry.vdpPort = H::fromStdString(item.vdp_port());
        entry.rdpPort = H::fromStdString(item.rdp_port());
    });
}

void VdiDesktopGrpcHelper::fromQureyControllerListResp(client::ResourceList& message, tagQureyControllerListResp& reply)
{
    fromRepeated(message.resourceinfo_list(), reply.resourceList, [](const client::ResourceInfo& item, tagResourceInfo& entry) {
        entry.id = item.id();
        entry.name = H::fromStdString(item.name());
        entry.details = H::fromStdString(item.details());
        entry.ip = H::fromStdString(item.ip());
        entry.status = H::fromStdString(item.status());
        entry.platEdition = H::fromStdString(item.platedition());
        entry.country = H::fromStdString(item.country());
        entry.province = H::fromStdString(item.province());
        entry.city = H::fromStdString(item.city());
        entry.district = H::fromStdString(item.district());
        entry.orgName = H::fromStdString(item.orgname());
        entry.gateway = item.gateway();
        entry.port = item.port();
    });
    grpc2ErrorData(message.error(), reply.error);
}

void VdiDesktopGrpcHelper::fromQueryControllerType(const client::WhoAreYouReply& message, tagQueryControllerTypeResp& reply)
{
    reply.name = fromStdString(message.name());
    grpc2ErrorData(message.error(), reply.error);
}

void VdiDesktopGrpcHelper::fromQueryVmControllerIpResq(const common_message::AgentUseControllerIpResp& message,
                                                       tagVmControllerIpResp& reply)
{
    reply.ip = fromStdString(message.ip());
    reply.port = message.port();
    reply.domainName = fromStdString(message.domain_name());
    grpc2ErrorData(message.error(), reply.error);
}
