// Facade requests of server discovery.
#include "vdidesktopgrpcthread.h"

#include "vdidesktopgrpcthread_wiring.h"
#include "vdidesktopgrpcworker.h"

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

void vdiwiring::connectDiscovery(VdiDesktopGrpcThread& facade, VdiDesktopGrpcWorker& worker)
{
    using T = VdiDesktopGrpcThread;
    using W = VdiDesktopGrpcWorker;
    // Server discovery.
    QObject::connect(&facade, &T::myInitDeviceInfo, &worker, &W::initDeviceInfo);
    QObject::connect(&facade, &T::myQueryDeviceConfigInfo, &worker, &W::queryDeviceConfigInfo);
    QObject::connect(&facade, &T::myQueryServerTypeInfo, &worker, &W::queryServerTypeInfo);
    QObject::connect(&facade, &T::myQueryGatewayInfo, &worker, &W::queryGatewayInfo);
    QObject::connect(&facade, &T::signalQueryServerIpForVm, &worker, &W::slotQueryServerIpForVm);
    QObject::connect(&facade, &T::signalQueryControllerType, &worker, &W::onQueryControllerType);
    QObject::connect(&facade, &T::signalQueryControllerList, &worker, &W::onQueryControllerList);
    QObject::connect(&worker, &W::deviceNetworkInfo, &facade, &T::deviceNetworkInfo);
    QObject::connect(&worker, &W::queryDeviceConfigInfoResult, &facade, &T::queryDeviceConfigInfoResult);
    QObject::connect(&worker, &W::queryServerTypeInfoResult, &facade, &T::queryServerTypeInfoResult);
    QObject::connect(&worker, &W::queryGatewayInfoResult, &facade, &T::queryGatewayInfoResult);
    QObject::connect(&worker, &W::queryControllerTypeResultForGrpcWorker, &facade, &T::queryControllerTypeResultForGrpcThread);
    QObject::connect(&worker, &W::queryControllerListResultForGrpcWorker, &facade, &T::queryControllerListResultForGrpcThread);
    QObject::connect(&worker, &W::queryServerIpResult, &facade, &T::signalQueryServerIpResult);
}
