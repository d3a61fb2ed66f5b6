// Facade requests of the application catalogues. Share terminals have no method here: the
// application emits their signals with records of its own.
#include "vdidesktopgrpcthread.h"

#include "vdidesktopgrpcthread_wiring.h"
#include "vdidesktopgrpcworker.h"

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

void vdiwiring::connectApplications(VdiDesktopGrpcThread& facade, VdiDesktopGrpcWorker& worker)
{
    using T = VdiDesktopGrpcThread;
    using W = VdiDesktopGrpcWorker;
    // Application catalogues and share terminals.
    QObject::connect(&facade, &T::signalGrpcThreadApplyRemoteApp, &worker, &W::slotGrpcWorkerApplyRemoteApp);
    QObject::connect(&facade, &T::signalGrpcThreadGetRemoteAppList, &worker, &W::slotGrpcWorkerGetRemoteAppList);
    QObject::connect(&facade, &T::signalGrpcThreadGetSaasAppList, &worker, &W::slotGrpcWorkerGetSaasAppList);
    QObject::connect(&facade, &T::signalGrpcThreadQuerySaasApp, &worker, &W::slotGrpcWorkerQuerySaasApp);
    QObject::connect(&facade, &T::queryShareTerminalInfo, &worker, &W::queryShareTerminalInfo);
    QObject::connect(&facade, &T::transferDesktop2ShareTerminal, &worker, &W::transferDesktop2ShareTerminal);
    QObject::connect(&facade, &T::loginOakdeskHsareTerminal, &worker, &W::loginOakdeskHsareTerminal);
    QObject::connect(&worker, &W::signalGrpcWorkerApplyRemoteAppResult, &facade, &T::signalGrpcThreadApplyRemoteAppResult);
    QObject::connect(&worker, &W::signalGrpcWorkerGetRemoteAppListResult, &facade, &T::signalGrpcThreadGetRemoteAppListResult);
    QObject::connect(&worker, &W::signalGrpcWorkerGetSaasAppListResult, &facade, &T::signalGrpcThreadGetSaasAppListResult);
    QObject::connect(&worker, &W::signalGrpcWorkerSaasAppPermissionResult, &facade, &T::signalGrpcThreadSaasAppResult);
    QObject::connect(&worker, &W::queryShareTerminalInfoResult, &facade, &T::queryShareTerminalInfoResult);
    QObject::connect(&worker, &W::transferDesktop2ShareTerminalResult, &facade, &T::transferDesktop2ShareTerminalResult);
    QObject::connect(&worker, &W::loginOakdeskShareTerminalResult, &facade, &T::loginOakdeskShareTerminalResult);
}
