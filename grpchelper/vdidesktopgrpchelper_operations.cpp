// Conversions of the operations on desktops and devices.
#include "vdidesktopgrpchelper.h"

#include "vdiconversions.h"
#include "vdilog.h"

using H = VdiDesktopGrpcHelper;

void VdiDesktopGrpcHelper::toOperateForVMReq(const tagOperateForVMRequest& request, client::OperateForVmReq& message)
{
    baseInfo2Grpc(request.baseInfo, *message.mutable_client_base_info());
    message.set_op_type(request.opType);
    message.set_force_flag(request.forceFlag);
    message.set_start_domain(request.startDomain);
    message.set_port(toStdString(request.port));
}

void VdiDesktopGrpcHelper::toSnapshotReq(const tagSnapshotRequest& request, client::SnapshotReq& message)
{
    baseInfo2Grpc(request.baseInfo, *message.mutable_content());
    message.set_op_type(request.opType);
    message.set_name(toStdString(request.name));
    message.set_description(toStdString(request.description));
}

void VdiDesktopGrpcHelper::toModifyVMNameReq(const tagModifyVMNameRequest& request, client::ModifyVmNameReq& message)
{
    message.set_vm_name_new(toStdString(request.vmNameNew));
    baseInfo2Grpc(request.baseInfo, *message.mutable_client_base_info());
}

void VdiDesktopGrpcHelper::fromModifyVMNameResq(const client::ModifyVmNameResp& message, tagModifyVMNameReply& reply)
{
    grpc2ErrorData(message.error(), reply.error);
}

void VdiDesktopGrpcHelper::toApplyForVMReq(const tagApplyForVMRequest& request, client::ApplyForVmReq& message)
{
    baseInfo2Grpc(request.baseInfo, *message.mutable_client_base_info());
    message.set_id(request.id);
    message.set_pool_name(toStdString(request.poolName));
    message.set_port(toStdString(request.port));
    message.set_start_domain(request.startDomain);
}

void VdiDesktopGrpcHelper::toApplyForDeviceInfoReq(const tagApplyForDeviceInfoRequest& request,
                                                   client::ApplyForDeviceInfoReq& message)
{
    baseInfo2Grpc(request.baseInfo, *message.mutable_client_base_info());
}

void VdiDesktopGrpcHelper::toDeskTopPoolReq(const tagDeskTopPoolRequest& request, client::DeskTopPoolReq& message)
{
    message.set_vmid(request.vmId);
    message.set_vmuuid(toStdString(request.vmUuid));
}

// The id is text in the record: a text that is no number goes out as 0.
void VdiDesktopGrpcHelper::toVmInfoReq(const tagQueryVmInfoReq& request, client::VmReq& message)
{
    VDI_LOG_IN(QtDebugMsg, "toVmInfoReq") << " vmid:" << request.vmId << "   , " << request.deviceType;
    message.set_vmid(request.vmId.toInt(nullptr, 10));
    message.set_vmuuid(toStdString(request.vmUuid));
    message.set_devicetype(request.deviceType);
}

// The caller's own address and names go in the message's own fields, next to the identity.
void VdiDesktopGrpcHelper::toRegisterDevReq(const tagRegisterDeviceRequest& request, client::RegisterDevReq& message)
{
    message.set_ip(toStdString(request.ip));
    message.set_mac(toStdString(request.mac));
    message.set_device_id(toStdString(request.deviceId));
    message.set_device_name(toStdString(request.deviceName));
    extendInfo2Grpc(request.extendInfo, *message.mutable_client_extend_info());
    message.set_register_type(request.registerType);
    baseInfo2Grpc(request.baseInfo, *message.mutable_client_base_info());
}

void VdiDesktopGrpcHelper::fromRegisterDevReq(const client::RegisterDevResp& message, tagRegisterDeviceReply& reply)
{
    grpc2ErrorData(message.error(), reply.error);
    reply.registerId = message.register_id();
}

void VdiDesktopGrpcHelper::toReportSuccessReq(const tagReportSuccessRequest& request, client::ReportSuccessReq& message)
{
    message.set_vm_ip(toStdString(request.vmIp));
    baseInfo2Grpc(request.baseInfo, *message.mutable_content());
    extendInfo2Grpc(request.extendInfo, *message.mutable_client_extend_info());
}

void VdiDesktopGrpcHelper::fromReportSuccessResq(const client::ReportSuccessResp& message, tagReportSuccessReply& reply)
{
    grpc2ErrorData(message.error(), reply.error);
}

// Both sub-messages go out whatever the record holds.
void VdiDesktopGrpcHelper::toUSBNotifyReq(const tagUSBNotifyRequest& request, client::USBNotifyReq& message)
{
    baseInfo2Grpc(request.baseInfo, *message.mutable_client_base_info());
    client::ClientInfo& client = *message.mutable_client_info();
    client.set_password(toStdString(request.password));
    client.set_read_only(toStdString(request.readOnly));
    client::TargetVm& target = *message.mutable_target_vm();
    target.set_vm_id(toStdString(request.vmId));
    target.set_vmuuid(toStdString(request.vmUuid));
}

void VdiDesktopGrpcHelper::fromUSBNotifyResq(const client::USBNotifyResp& message, tagUSBNotifyReply& reply)
{
    grpc2ErrorData(message.error(), reply.error);
}

void VdiDesktopGrpcHelper::RedirectStatusInfo2Grpc(const tagRedirectStatusInfoReust& info,
                                                   client::RedirectStatusInfo& message)
{
    message.set_redirect_device_name(toStdString(info.redirectDeviceName));
    message.set_pid(toStdString(info.pid));
    message.set_vid(toStdString(info.vid));
    message.set_redirect_device_type(toStdString(info.redirectDeviceType));
    message.set_subclass(toStdString(info.subClass));
    message.set_redirect_status(info.redirectStatus);
    message.set_description(toStdString(info.description));
}

void VdiDesktopGrpcHelper::toRedirectStatusReq(const tagRedirectStatusReust& request, client::RedirectStatusReq& message)
{
    baseInfo2Grpc(request.baseInfo, *message.mutable_client_base_info());
    message.set_vm_uuid(toStdString(request.vmUuid));
    for (const tagRedirectStatusInfoReust& info : request.redirectList)
        RedirectStatusInfo2Grpc(info, *message.add_redirect_list());
}

void VdiDesktopGrpcHelper::fromVoidResp(const common_message::VoidResp& message, tagVoidReply& reply)
{
    grpc2ErrorData(message.error(), reply.error);
}

void VdiDesktopGrpcHelper::fromApplyForVMResp(const client::ApplyForVmResp& message, tagApplyForVMReply& reply)
{
    grpc2VMInfo(message.vm(), reply.vmInfo);
    reply.name = fromStdString(message.name());
    reply.password = fromStdString(message.password());
    reply.hostIp = fromStdString(message.host_ip());
    vdiconvert::appendTexts(message.host_ips(), reply.hostIps);
    reply.spicePassword = fromStdString(message.spice_password());
    reply.userGroup = fromStdString(message.user_group());
    reply.userNameOrDeviceName = fromStdString(message.usernameordevicename());
    vdiconvert::appendTexts(message.grouplist(), reply.grouplist);
    grpc2ErrorData(message.error(), reply.error);
}

void VdiDesktopGrpcHelper::fromOperateForVMResq(const client::OperateForVmResp& message, tagOperateForVMReply& reply)
{
    grpc2VMInfo(message.vm(), reply.vmInfo);
    reply.spicePort = fromStdString(message.spice_port());
    reply.hostIp = fromStdString(message.hostip());
    grpc2ErrorData(message.error(), reply.error);
    reply.gatewayToken = fromStdString(message.gatewaytoken());
    reply.tlsPort = fromStdString(message.tlsport());
}

void VdiDesktopGrpcHelper::fromRecoverVMResq(const client::RecoverVmResp& message, tagRecoverVMReply& reply)
{
    reply.vmId = message.vm_id();
    reply.progress = message.progress();
    grpc2ErrorData(message.error(), reply.error);
    reply.vmUuid = fromStdString(message.vmuuid());
}

void VdiDesktopGrpcHelper::fromSnapshotResq(const client::SnapshotResp& message, tagSnapshotReply& reply)
{
    fromRepeated(message.snapshot_list(), reply.snapshotList, &H::grpc2SnapshotInfo);
    grpc2ErrorData(message.error(), reply.error);
}

void VdiDesktopGrpcHelper::fromApplyForDeviceInfoResq(const client::ApplyForDeviceInfoResp& message,
                                                      tagApplyForDeviceInfoReply& reply)
{
    fromRepeated(message.device_list(), reply.deviceList, [](const client::Device& item, tagDevice& device) {
        device.deviceId = H::fromStdString(item.device_id());
        grpc2VMAddress(item.vm_address(), device.address);
    });
    grpc2ErrorData(message.error(), reply.error);
}

void VdiDesktopGrpcHelper::fromDeskTopPoolResq(const client::DeskTopPoolResp& message, tagDeskTopPoolReply& reply)
{
    grpc2PoolInfo(message.pool(), reply.pool);
    grpc2ErrorData(message.error(), reply.error);
}

void VdiDesktopGrpcHelper::fromVmInfoResp(const client::VmDetailInfoResp& message, tagQueryVmInfoResp& reply)
{
    reply.memSize = static_cast<int>(message.memsize());
    reply.memRate = fromStdString(message.memrate());
    reply.cpuSize = static_cast<int>(message.cpusize());
    reply.cpuRate = fromStdString(message.cpurate());
    grpc2ErrorData(message.error(), reply.error);
    VDI_DEBUG << " reply:" << reply.cpuRate << "   , " << reply.memRate << "  , " << reply.cpuSize << "   , "
              << reply.memSize;
}
