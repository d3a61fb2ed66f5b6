// Facade requests of server discovery and the heartbeat.
#include "vdidesktopgrpcthread.h"

#include "vdilog.h"

void VdiDesktopGrpcThread::initDeviceInfo(const QString& host, quint16 port)
{
    emit myInitDeviceInfo(host, port);
}

void VdiDesktopGrpcThread::queryServerTypeInfo()
{
    emit myQueryServerTypeInfo();
}

void VdiDesktopGrpcThread::queryDeviceConfigInfo(const QString& mac, const QString& ip)
{
    tagDeviceConfigInfoReq request;
    request.ip = ip;
    request.mac = mac;
    request.deviceId = mac;
    VDI_INFO << "going to query device config info.";
    emit myQueryDeviceConfigInfo(request);
}

void VdiDesktopGrpcThread::queryGatewayInfo()
{
    emit myQueryGatewayInfo();
}

void VdiDesktopGrpcThread::queryControllerTypeForGrpcThread(const QString& serverIp)
{
    emit signalQueryControllerType(serverIp);
}

void VdiDesktopGrpcThread::queryControllerListForGrpcThread(const QString& serverIp)
{
    emit signalQueryControllerList(serverIp);
}

void VdiDesktopGrpcThread::queryServerIpForVm()
{
    emit signalQueryServerIpForVm();
}

void VdiDesktopGrpcThread::sendHeart(const QString& vmIp, const QString& vmUuid, long long vmId)
{
    tagHeartbeatRequest request;
    request.vmIp = vmIp;
    request.baseInfo = m_baseInfo;
    if (vmId != -1)
        request.baseInfo.vmId = vmId;
    request.baseInfo.vmUuid = vmUuid;
    request.extendInfo = m_extendInfo;
    VDI_INFO << "going to send Heart";
    emit mySendHeart(request);
}

void VdiDesktopGrpcThread::startSendHeart()
{
    VDI_INFO << "going to start send Heart";
    emit myStartSendHeart();
}

void VdiDesktopGrpcThread::stopSendHeart()
{
    VDI_INFO << "going to stop send Heart";
    emit myStopSendHeart();
}
