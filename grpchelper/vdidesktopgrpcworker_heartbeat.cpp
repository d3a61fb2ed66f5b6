// The heartbeat: a beat now and one at every tick of a coarse five-minute timer.
#include "vdidesktopgrpcworker_frame.h"

#include <QTimerEvent>

void VdiDesktopGrpcWorker::sendHeart(const tagHeartbeatRequest& request)
{
    if (interruptionRequested(__FUNCTION__))
        return;
    m_heartbeatRequest = request;
    mySendHeart();
}

void VdiDesktopGrpcWorker::startSendHeart()
{
    if (m_heartTimerId != -1) {
        VDI_INFO << "heartbeat has started";
        return;
    }
    mySendHeart();
}

void VdiDesktopGrpcWorker::stopSendHeart()
{
    stopHeartTimer();
}

void VdiDesktopGrpcWorker::startHeartTimer()
{
    if (m_heartTimerId == -1)
        m_heartTimerId = startTimer(m_heartInterval, Qt::CoarseTimer);
}

void VdiDesktopGrpcWorker::stopHeartTimer()
{
    if (m_heartTimerId != -1) {
        killTimer(m_heartTimerId);
        m_heartTimerId = -1;
    }
}

void VdiDesktopGrpcWorker::timerEvent(QTimerEvent* event)
{
    if (event->timerId() == m_heartTimerId)
        mySendHeart();
}

void VdiDesktopGrpcWorker::mySendHeart()
{
    const RpcShape shape = RpcShape::at(__FUNCTION__).labels("package request:\n", "package reply:\n");
    RpcHooks<tagHeartbeatReply> hooks;
    hooks.beforeCall = [this] { startHeartTimer(); };  // any beat past the stub check
    RpcResult<client::HeartbeatResp, tagHeartbeatReply> call;
    if (!answers(unaryCall(shape, stub, &client::ClientCore::Stub::Heartbeat,
                           [this](client::HeartbeatReq& message) { VdiDesktopGrpcHelper::toHeartBeatReq(m_heartbeatRequest, message); },
                           &VdiDesktopGrpcHelper::fromHeartbeatResq, call, hooks)))
        return;

    if (call.called()) {
        // A lost or slow server is no failed heartbeat: the code tells the application.
        const int code = call.record.error.errorCode;
        if (call.status.ok())
            call.flag = code == 0 || code == 4;
        if (code == 4 || code == 14)
            call.flag = true;
    }
    emit sendHeartResult(call.record, call.flag);
}
