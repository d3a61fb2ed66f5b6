// Conversions of the heartbeat.
#include "vdidesktopgrpchelper.h"

void VdiDesktopGrpcHelper::toHeartBeatReq(const tagHeartbeatRequest& request, client::HeartbeatReq& message)
{
    message.set_vm_ip(toStdString(request.vmIp));
    baseInfo2Grpc(request.baseInfo, *message.mutable_client_base_info());
    extendInfo2Grpc(request.extendInfo, *message.mutable_client_extend_info());
}

void VdiDesktopGrpcHelper::fromHeartbeatResq(const client::HeartbeatResp& message, tagHeartbeatReply& reply)
{
    grpc2ErrorData(message.error(), reply.error);
}
