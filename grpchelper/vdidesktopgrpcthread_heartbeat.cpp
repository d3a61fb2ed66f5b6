// Facade requests of the heartbeat: one beat now, or one every interval of the heart timer.
#include "vdidesktopgrpcthread.h"

#include "vdidesktopgrpcthread_wiring.h"
#include "vdidesktopgrpcworker.h"

#include "vdilog.h"

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

void vdiwiring::connectHeartbeat(VdiDesktopGrpcThread& facade, VdiDesktopGrpcWorker& worker)
{
    using T = VdiDesktopGrpcThread;
    using W = VdiDesktopGrpcWorker;
    // Heartbeat.
    QObject::connect(&facade, &T::mySendHeart, &worker, &W::sendHeart);
    QObject::connect(&facade, &T::myStartSendHeart, &worker, &W::startSendHeart);
    QObject::connect(&facade, &T::myStopSendHeart, &worker, &W::stopSendHeart);
    QObject::connect(&worker, &W::sendHeartResult, &facade, &T::recvHeartbeatResultVDT);
}
