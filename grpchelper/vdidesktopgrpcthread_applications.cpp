// Facade requests of the application catalogues. Share terminals have no method here: the
// application emits their signals with records of its own.
#include "vdidesktopgrpcthread.h"

#include <QDebug>

void VdiDesktopGrpcThread::grpcThreadGetRemoteAppList()
{
    tagLoginRequest request;
    request.baseInfo = m_baseInfo;
    request.extendInfo = m_extendInfo;
    emit signalGrpcThreadGetRemoteAppList(request);
}

// The cached user name wins over the argument; only an empty one lets the argument through.
void VdiDesktopGrpcThread::grpcThreadApplyForRemoteApp(QString displayName, const QString& userName)
{
    tagRemoteAppApplyReq request;
    request.displayName = displayName;
    request.domain = m_baseInfo.domain;
    request.userName = m_baseInfo.name.isEmpty() ? userName : m_baseInfo.name;
    qInfo() << "grpcThreadApplyForRemoteApp" << " m_baseInfo.domain is " << m_baseInfo.domain;
    emit signalGrpcThreadApplyRemoteApp(request);
}

void VdiDesktopGrpcThread::grpcThreadGetSaasAppList()
{
    tagSaasListReq request;
    request.baseInfo = m_baseInfo;
    emit signalGrpcThreadGetSaasAppList(request);
}

void VdiDesktopGrpcThread::grpcThreadQuerySaasApp(tagSaasAppInfo app)
{
    tagSaasAppReq request;
    request.baseInfo = m_baseInfo;
    request.appInfo = app;
    emit signalGrpcThreadQuerySaasApp(request);
}
