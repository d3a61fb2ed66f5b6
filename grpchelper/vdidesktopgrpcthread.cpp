// The facade's frame: construction, cached identity, connection set-up and shutdown.
#include "vdidesktopgrpcthread.h"

#include "vdidesktopgrpcthread_wiring.h"
#include "vdidesktopgrpcworker.h"
#include "vdilog.h"

namespace {
// Identity merges keep the cached text when the caller gives none.
void mergeText(QString& cached, const QString& given)
{
    if (!given.isEmpty())
        cached = given;
}
} // namespace

VdiDesktopGrpcThread::VdiDesktopGrpcThread(QObject* parent)
    : QObject(parent)
    , m_worker(new VdiDesktopGrpcWorker(nullptr))
    , m_thread(nullptr)
{
    registerMetaTypes();
    if (!m_worker)
        VDI_CRITICAL << "fail to create VdiDesktopGrpcWorker instance, maybe memroy short!";
    m_worker->moveToThread(&m_thread);
    connect(&m_thread, &QThread::finished, m_worker, &QObject::deleteLater);

    connect(this, &VdiDesktopGrpcThread::myInitConnection, m_worker, &VdiDesktopGrpcWorker::initConnection);
    // Each family connects its requests and answers in its own file.
    vdiwiring::connectDiscovery(*this, *m_worker);
    vdiwiring::connectHeartbeat(*this, *m_worker);
    vdiwiring::connectLogin(*this, *m_worker);
    vdiwiring::connectOperations(*this, *m_worker);
    vdiwiring::connectAccount(*this, *m_worker);
    vdiwiring::connectApplications(*this, *m_worker);
    vdiwiring::connectHelp(*this, *m_worker);

    m_thread.start(QThread::InheritPriority);
    VDI_INFO << "vdi desktop grpc thread start!!!";
}

VdiDesktopGrpcThread::~VdiDesktopGrpcThread()
{
    // Our own rule: every request not yet started returns at its interruption check, without a
    // call and without an answer, whether or not a call is in flight; an application that ends
    // its session expects pending work cancelled, as with Qt's network classes. The call in
    // flight is not cancelled and is still waited for.
    m_thread.requestInterruption();
    m_thread.quit();
    m_thread.wait();
}

// Queued connections find argument types by these names. Besides the names that the library
// uses itself, the reply aliases of its result signals are registered too, so that an
// application that forgets one does not lose results without a word.
void VdiDesktopGrpcThread::registerMetaTypes()
{
    qRegisterMetaType<tagLoginRequest>("LoginRequest");
    qRegisterMetaType<tagLoginRequest>("RefreshRequest");
    qRegisterMetaType<tagUpgradeRequest>("UpgradeRequest");
    qRegisterMetaType<tagSnapshotRequest>("SnapshotRequest");
    qRegisterMetaType<tagUSBNotifyRequest>("USBNotifyRequest");
    qRegisterMetaType<tagHeartbeatRequest>("HeartbeatRequest");
    qRegisterMetaType<tagApplyForVMRequest>("ApplyForVMRequest");
    qRegisterMetaType<tagApplyForEmailReply>("ApplyForEmailReply");
    qRegisterMetaType<tagModifyVMNameRequest>("ModifyVMNameRequest");
    qRegisterMetaType<tagOperateForVMRequest>("OperateForVMRequest");
    qRegisterMetaType<tagReportSuccessRequest>("ReportSuccessRequest");
    qRegisterMetaType<tagModifyPasswordRequest>("ModifyPasswordRequest");
    qRegisterMetaType<tagRegisterDeviceRequest>("RegisterDeviceRequest");
    qRegisterMetaType<tagApplyForDeviceInfoRequest>("ApplyForDeviceInfoRequest");
    qRegisterMetaType<tagClientReleasePasswordRequest>("ClientReleasePasswordRequest");
    qRegisterMetaType<tagDeviceConfigInfoReq>("DeviceConfigInfoReq");
    qRegisterMetaType<tagNextCloudInfoReq>("NextCloudInfoReq");
    qRegisterMetaType<tagGatewayInfoResp>("GatewayInfoResp");
    qRegisterMetaType<tagQueryVmInfoReq>("QueryVmInfoReq");
    qRegisterMetaType<tagShareTerminalInfoRequest>("ShareTerminalInfoRequest");
    qRegisterMetaType<tagTransDesk2ShareTerminalRequest>("tagTransDesk2ShareTerminalRequest");
    qRegisterMetaType<tagLoginOakdeskShareTerminalRequest>("tagLoginOakdeskShareTerminalRequest");
    qRegisterMetaType<tagModifyPasswordReply>("ModifyPasswordReply");
    qRegisterMetaType<tagCheckPasswordRequest>("CheckPasswordRequest");
    qRegisterMetaType<tagCheckPasswordResp>("CheckPasswordReply");
    qRegisterMetaType<tagModifyVMNameReply>("ModifyVMNameReply");
    qRegisterMetaType<tagDeviceConfigInfoResp>("DeviceConfigInfoResp");
    qRegisterMetaType<tagServerTypeInfoResp>("ServerTypeInfoResp");
    qRegisterMetaType<tagNextCloudInfoResp>("NextCloudInfoResp");
    qRegisterMetaType<tagShareTerminalInfoReply>("ShareTerminalInfoReply");
    qRegisterMetaType<tagTransDesk2ShareTerminalReply>("TransDesk2ShareTerminalReply");
    qRegisterMetaType<tagLoginOakdeskShareTerminalReply>("LoginOakdeskShareTerminalReply");
    qRegisterMetaType<tagClientReleasePasswordReply>("ClientReleasePasswordReply");
    qRegisterMetaType<tagOneKeyHelpInfoRequest>("OneKeyHelpInfoRequest");
    qRegisterMetaType<tagOneKeyHelpInfoReply>("OneKeyHelpInfoReply");
    qRegisterMetaType<tagRedirectStatusReust>("RedirectStatusReust");
    qRegisterMetaType<tagRedirectStatusInfoReust>("RedirectStatusInfoReust");
    qRegisterMetaType<tagVoidReply>("VoidReply");
    qRegisterMetaType<tagQueryVmInfoResp>("QueryVmInfoResp");
    qRegisterMetaType<tagQueryVmInfoResp>("QueryVmInfoResp");
    qRegisterMetaType<tagQueryControllerTypeResp>("QueryControllerTypeResp");
    qRegisterMetaType<tagQureyControllerListResp>("QureyControllerListResp");
    qRegisterMetaType<tagIndividualConfigReq>("IndividualConfigReq");
    qRegisterMetaType<tagIndividualConfigResp>("IndividualConfigResp");
    qRegisterMetaType<tagVmControllerIpResp>("VmControllerIpResp");
    qRegisterMetaType<LoginConfigResp>("LoginConfigResp");
    qRegisterMetaType<LoginCodeReq>("LoginCodeReq");
    qRegisterMetaType<LoginCodeResp>("LoginCodeResp");

    // Reply aliases of result signals that an application would otherwise have to register.
    qRegisterMetaType<tagApplyForDeviceInfoReply>("ApplyForDeviceInfoReply");
    qRegisterMetaType<tagApplyForVMReply>("ApplyForVMReply");
    qRegisterMetaType<tagHeartbeatReply>("HeartbeatReply");
    qRegisterMetaType<tagLoginReply>("LoginReply");
    qRegisterMetaType<tagLoginOakdeskShareTerminalRequest>("LoginOakdeskShareTerminalRequest");
    qRegisterMetaType<tagOperateForVMReply>("OperateForVMReply");
    qRegisterMetaType<QuantumConfigReply>("QuantumConfigReply");
    qRegisterMetaType<tagRecoverVMReply>("RecoverVMReply");
    qRegisterMetaType<tagRegisterDeviceReply>("RegisterDeviceReply");
    qRegisterMetaType<tagRemoteAppApplyReq>("RemoteAppApplyReq");
    qRegisterMetaType<tagRemoteAppApplyResp>("RemoteAppApplyResp");
    qRegisterMetaType<tagRemoteAppListResp>("RemoteAppListResp");
    qRegisterMetaType<tagReportSuccessReply>("ReportSuccessReply");
    qRegisterMetaType<tagSaasAppListResp>("SaasAppListResp");
    qRegisterMetaType<tagSaasAppReq>("SaasAppReq");
    qRegisterMetaType<tagSaasAppResp>("SaasAppResp");
    qRegisterMetaType<tagSaasListReq>("SaasListReq");
    qRegisterMetaType<tagSnapshotReply>("SnapshotReply");
    qRegisterMetaType<tagTransDesk2ShareTerminalRequest>("TransDesk2ShareTerminalRequest");
    qRegisterMetaType<tagUSBNotifyReply>("USBNotifyReply");
    qRegisterMetaType<tagUpgradeReply>("UpgradeReply");
    qRegisterMetaType<UserQuantumBindReply>("UserQuantumBindReply");
}

void VdiDesktopGrpcThread::initBaseInfoParameter(const tagBaseInfo& info)
{
    m_baseInfo.vmId = info.vmId;
    mergeText(m_baseInfo.ip, info.ip);
    mergeText(m_baseInfo.mac, info.mac);
    if (!info.domain.isEmpty()) {
        m_baseInfo.domain = info.domain;
        VDI_INFO << " m_baseInfo.domain = " << m_baseInfo.domain;
    }
    mergeText(m_baseInfo.smsCode, info.smsCode);
    mergeText(m_baseInfo.name, info.name);
    mergeText(m_baseInfo.authType, info.authType);
    mergeText(m_baseInfo.deviceId, info.deviceId);
    mergeText(m_baseInfo.deviceName, info.deviceName);
    mergeText(m_baseInfo.clientType, info.clientType);
    mergeText(m_baseInfo.refreshFlag, info.refreshFlag);
    mergeText(m_baseInfo.protocolType, info.protocolType);
    mergeText(m_baseInfo.password, info.password);
    if (info.computerType != -1)
        m_baseInfo.computerType = info.computerType;
    m_baseInfo.vmUuid = info.vmUuid;
    m_baseInfo.isOpenldap = info.isOpenldap;
}

void VdiDesktopGrpcThread::initExtendInfoParameter(const tagExtendInfo& info)
{
    mergeText(m_extendInfo.model, info.model);
    mergeText(m_extendInfo.osType, info.osType);
    mergeText(m_extendInfo.vendor, info.vendor);
    mergeText(m_extendInfo.osVersion, info.osVersion);
    if (info.computerType != -1)
        m_extendInfo.computerType = info.computerType;
    mergeText(m_extendInfo.clientVersion, info.clientVersion);
    mergeText(m_extendInfo.clientLanguage, info.clientLanguage);
    mergeText(m_extendInfo.cpuArch, info.cpuArch);
    mergeText(m_extendInfo.pineletVersion, info.pineletVersion);
}

void VdiDesktopGrpcThread::setUserName(QString name)
{
    m_baseInfo.name = name;
}

void VdiDesktopGrpcThread::setUserNameAndPasswd(const QString& name, const QString& password)
{
    m_baseInfo.name = name;
    m_baseInfo.password = password;
}

void VdiDesktopGrpcThread::setLocalIP(const QString& ip)
{
    m_baseInfo.ip = ip;
}

void VdiDesktopGrpcThread::updateLocalIP(const QString& ip)
{
    setLocalIP(ip);
}

void VdiDesktopGrpcThread::setLocalMAC(const QString& mac)
{
    m_baseInfo.mac = mac;
    m_baseInfo.deviceId = mac;
}

void VdiDesktopGrpcThread::setProtocolType(const QString& protocolType)
{
    m_baseInfo.protocolType = protocolType;
}

void VdiDesktopGrpcThread::setComputeType(int computerType)
{
    m_baseInfo.computerType = computerType;
}

void VdiDesktopGrpcThread::updateDomain(const QString& domain)
{
    m_baseInfo.domain = domain;
    VDI_INFO << " m_baseInfo.domain = " << m_baseInfo.domain;
}

void VdiDesktopGrpcThread::updateIsOpenldp(int isOpenldap)
{
    m_baseInfo.isOpenldap = isOpenldap;
}

void VdiDesktopGrpcThread::setClientLanuage(const QString& language)
{
    m_extendInfo.clientLanguage = language;
}

void VdiDesktopGrpcThread::setClientVersion(const QString& version)
{
    m_extendInfo.clientVersion = version;
}

QString VdiDesktopGrpcThread::getLocalIP()
{
    return m_baseInfo.ip;
}

QString VdiDesktopGrpcThread::getLocalMAC()
{
    return m_baseInfo.mac;
}

QString VdiDesktopGrpcThread::getUserName() const
{
    return m_baseInfo.name;
}

QString VdiDesktopGrpcThread::getUserPasswd() const
{
    return m_baseInfo.password;
}

void VdiDesktopGrpcThread::initServerType(int serverType)
{
    if (m_worker)
        m_worker->initServerType(serverType);
}

void VdiDesktopGrpcThread::setStrictRedaction(bool on)
{
    m_strictRedaction = on;
    if (m_worker)
        m_worker->setStrictRedaction(on);
}

void VdiDesktopGrpcThread::initConnection(QString pemFile, QString serverIP, ushort port, bool isEnglish)
{
    emit myInitConnection(pemFile, serverIP, port, isEnglish);
}

void VdiDesktopGrpcThread::stop()
{
    m_thread.requestInterruption();
    if (m_worker)
        m_worker->stop();
    QObject::disconnect(this, nullptr, nullptr, nullptr);
    m_thread.quit();
    m_thread.wait(1000);
    VDI_INFO << "void VdiDesktopGrpcThread::stop()" << "VdiDesktopGrpcThread::stoped";
}
