// Facade requests of the operations on desktops and devices. Ids arrive as text: operateVM and
// recoverVM read them as 64-bit numbers, all the others as int, so that an id beyond the range
// of a 32-bit int goes out as 0 there.
#include "vdidesktopgrpcthread.h"

#include "vdidesktopgrpcthread_wiring.h"
#include "vdidesktopgrpcworker.h"

#include "vdilog.h"

namespace {
qint64 wideId(const QString& text)
{
    return text.toLongLong(nullptr, 10);
}

int narrowId(const QString& text)
{
    return text.toInt(nullptr, 10);
}

// The identity with another desktop in it, for a request that leaves the cache alone.
tagBaseInfo withDesktop(tagBaseInfo base, qint64 vmId, const QString& vmUuid)
{
    base.vmId = vmId;
    base.vmUuid = vmUuid;
    return base;
}

tagOperateForVMRequest operateRequest(const tagVmNodeInfo& vmNode, const tagBaseInfo& base, int opType, int forceFlag,
                                      int startDomain, const QString& port)
{
    tagOperateForVMRequest request;
    request.vmNode = vmNode;
    request.baseInfo = base;
    request.opType = opType;
    request.forceFlag = forceFlag;
    request.startDomain = startDomain;
    request.port = port;
    return request;
}
} // namespace

// Operations on a desktop keep it in the cached identity for every later request.
void VdiDesktopGrpcThread::cacheDesktop(qint64 vmId, const QString& vmUuid)
{
    m_baseInfo.vmId = vmId;
    m_baseInfo.vmUuid = vmUuid;
}

void VdiDesktopGrpcThread::operateVM(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid,
                                     const VdiGrpc::tagOperateVMType& opType,
                                     const VdiGrpc::tagOperateVMWay& forceFlag, int startDomain, const QString& port)
{
    VDI_DEBUG << " force flag = " << forceFlag;
    cacheDesktop(wideId(vmId), vmUuid);
    const tagOperateForVMRequest request = operateRequest(vmNode, m_baseInfo, opType, forceFlag, startDomain, port);
    VDI_INFO << "emit to operate vm.";
    emit myOperateVM(request);
}

void VdiDesktopGrpcThread::recoverVM(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid,
                                     const VdiGrpc::tagOperateVMType& opType,
                                     const VdiGrpc::tagOperateVMWay& forceFlag, const QString& port)
{
    cacheDesktop(wideId(vmId), vmUuid);
    const tagOperateForVMRequest request = operateRequest(vmNode, m_baseInfo, opType, forceFlag, 0, port);
    VDI_INFO << "emit to recover vm.";
    emit myRecoverVM(request);
}

void VdiDesktopGrpcThread::snapshot(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid,
                                    const VdiGrpc::tagSnapshotType& opType, const QString& description,
                                    const QString& name)
{
    VDI_DEBUG << " snapshot is called, vmId = " << narrowId(vmId) << ", snapshot type = " << opType;
    cacheDesktop(narrowId(vmId), vmUuid);
    tagSnapshotRequest request;
    request.vmNode = vmNode;
    request.baseInfo = m_baseInfo;
    request.opType = opType;
    request.description = description;
    request.name = name;
    VDI_INFO << "emit to snap shot.";
    emit mySnapshot(request);
}

void VdiDesktopGrpcThread::modifyVMName(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid,
                                        const QString& vmNameNew, int computerType, bool resetAuthType)
{
    cacheDesktop(narrowId(vmId), vmUuid);
    m_baseInfo.computerType = computerType;
    tagModifyVMNameRequest request;
    request.vmNode = vmNode;
    request.vmNameNew = vmNameNew;
    request.baseInfo = m_baseInfo;
    // Only the request says "password login"; the cache keeps its kind of login.
    if (resetAuthType)
        request.baseInfo.authType = QStringLiteral("0");
    VDI_INFO << "emit to modify vm name.";
    emit myModifyVMName(request);
}

void VdiDesktopGrpcThread::applyForVM(const tagVmNodeInfo& vmNode, const QString& id, const QString& vmId,
                                      const QString& vmUuid, const QString& poolName, const QString& port,
                                      int startDomain)
{
    cacheDesktop(narrowId(vmId), vmUuid);
    tagApplyForVMRequest request;
    request.baseInfo = m_baseInfo;
    request.vmNode = vmNode;
    request.id = narrowId(id);
    request.poolName = poolName;
    request.port = port;
    request.startDomain = startDomain;
    VDI_INFO << "emit to apply for vm.";
    emit myApplyForVM(request);
}

void VdiDesktopGrpcThread::applyForVMOfQuery(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid,
                                             const QString& port, int startDomain,
                                             const VdiGrpc::tagOperateVMWay& forceFlag,
                                             const VdiGrpc::tagOperateVMType& opType)
{
    cacheDesktop(narrowId(vmId), vmUuid);
    const tagOperateForVMRequest request = operateRequest(vmNode, m_baseInfo, opType, forceFlag, startDomain, port);
    VDI_INFO << "emit to apply for vm information.";
    emit myApplyForVMOfQuery(request);
}

void VdiDesktopGrpcThread::applyForDeviceInfo(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid)
{
    tagApplyForDeviceInfoRequest request;
    request.vmNode = vmNode;
    request.baseInfo = withDesktop(m_baseInfo, narrowId(vmId), vmUuid);
    VDI_INFO << "emit to apply for device information.";
    emit myApplyForDeviceInfo(request);
}

void VdiDesktopGrpcThread::queryVmInfo(QString& vmId, QString& vmUuid, int deviceType)
{
    tagQueryVmInfoReq request;
    request.vmId = vmId;
    request.vmUuid = vmUuid;
    request.deviceType = deviceType;
    emit myQueryVmInfo(request);
}

void VdiDesktopGrpcThread::registerDevice(const QString& ip, const QString& mac, const QString& deviceId,
                                          const QString& deviceName, VdiGrpc::tagDeviceRegisterType registerType)
{
    tagRegisterDeviceRequest request;
    request.ip = ip;
    request.mac = mac;
    request.deviceId = deviceId;
    request.deviceName = deviceName;
    request.extendInfo = m_extendInfo;
    request.registerType = registerType;
    request.baseInfo = m_baseInfo;
    VDI_INFO << "emit to register deveice.";
    emit myRegisterDevice(request);
}

void VdiDesktopGrpcThread::reportStatusOfVM(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid,
                                            const QString& vmIp)
{
    tagReportSuccessRequest request;
    request.vmNode = vmNode;
    request.vmIp = vmIp;
    request.baseInfo = withDesktop(m_baseInfo, narrowId(vmId), vmUuid);
    request.baseInfo.computerType = 0;
    request.extendInfo = m_extendInfo;
    VDI_DEBUG << "report vm status: vm ip = " << vmIp << ", vmUuid = " << vmUuid;
    emit myReportStatusOfVM(request);
}

void VdiDesktopGrpcThread::usbNotify(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid,
                                     const QString& password, const QString& readOnly)
{
    tagUSBNotifyRequest request;
    request.vmNode = vmNode;
    request.baseInfo = m_baseInfo;
    request.baseInfo.vmId = narrowId(vmId);
    request.password = password;
    request.readOnly = readOnly;
    request.vmId = vmId;
    request.vmUuid = vmUuid;
    VDI_INFO << "DesktopGrpcThread emit to usb notify";
    emit myUsbNotify(request);
}

void VdiDesktopGrpcThread::reportRedirectStatus(const QString& vmUuid, QList<tagRedirectStatusInfoReust> redirectList)
{
    tagRedirectStatusReust request;
    request.baseInfo = m_baseInfo;
    request.vmUuid = vmUuid;
    request.redirectList = redirectList;
    emit myReportRedirectStatus(request);
}

void vdiwiring::connectOperations(VdiDesktopGrpcThread& facade, VdiDesktopGrpcWorker& worker)
{
    using T = VdiDesktopGrpcThread;
    using W = VdiDesktopGrpcWorker;
    // VM operations.
    QObject::connect(&facade, &T::myOperateVM, &worker, &W::operateVM);
    QObject::connect(&facade, &T::myRecoverVM, &worker, &W::recoverVM);
    QObject::connect(&facade, &T::myModifyVMName, &worker, &W::modifyVMName);
    QObject::connect(&facade, &T::mySnapshot, &worker, &W::snapshot);
    QObject::connect(&worker, &W::operateVMResult, &facade, &T::operateVMResult);
    QObject::connect(&worker, &W::recoverVMResult, &facade, &T::recoverVMResult);
    QObject::connect(&worker, &W::snapshotResult, &facade, &T::snapshotResult);
    QObject::connect(&worker, &W::modifyVMNameResult, &facade, &T::modifyVMNameResult);
    QObject::connect(&worker, &W::snapshotQueryResult, &facade, &T::snapshotQueryResult);

    // Desktop assignment.
    QObject::connect(&facade, &T::myApplyForVM, &worker, &W::applyForVM);
    QObject::connect(&facade, &T::myApplyForVMOfQuery, &worker, &W::applyForVMOfQuery);
    QObject::connect(&facade, &T::myApplyForDeviceInfo, &worker, &W::applyForDeviceInfo);
    QObject::connect(&facade, &T::myQueryVmInfo, &worker, &W::queryVmInfo);
    QObject::connect(&worker, &W::applyForVMResult, &facade, &T::applyForVMResult);
    QObject::connect(&worker, &W::applyForVMOfQueryResult, &facade, &T::applyForVMOfQueryResult);
    QObject::connect(&worker, &W::applyForDeviceInfoResult, &facade, &T::applyForDeviceInfoResult);
    QObject::connect(&worker, &W::queryVmInfoResult, &facade, &T::queryVmInfoResult);

    // Device and status reports; the redirect status has no answer for the application.
    QObject::connect(&facade, &T::myRegisterDevice, &worker, &W::registerDevice);
    QObject::connect(&facade, &T::myReportStatusOfVM, &worker, &W::reportStatusOfVM);
    QObject::connect(&facade, &T::myUsbNotify, &worker, &W::usbNotify);
    QObject::connect(&facade, &T::myReportRedirectStatus, &worker, &W::reportRedirectStatus);
    QObject::connect(&worker, &W::registerDeviceResult, &facade, &T::registerDeviceResult);
    QObject::connect(&worker, &W::reportStatusOfVMResult, &facade, &T::reportStatusOfVMResult);
    QObject::connect(&worker, &W::usbNotifyResult, &facade, &T::usbNotifyResult);
}
