// The facade's frame: construction, cached identity, connection set-up and shutdown.
#include "vdidesktopgrpcthread.h"

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

    using T = VdiDesktopGrpcThread;
    using W = VdiDesktopGrpcWorker;
    connect(this, &T::myInitConnection, m_worker, &W::initConnection);

    // Server discovery.
    connect(this, &T::myInitDeviceInfo, m_worker, &W::initDeviceInfo);
    connect(this, &T::myQueryDeviceConfigInfo, m_worker, &W::queryDeviceConfigInfo);
    connect(this, &T::myQueryServerTypeInfo, m_worker, &W::queryServerTypeInfo);
    connect(this, &T::myQueryGatewayInfo, m_worker, &W::queryGatewayInfo);
    connect(this, &T::signalQueryServerIpForVm, m_worker, &W::slotQueryServerIpForVm);
    connect(this, &T::signalQueryControllerType, m_worker, &W::onQueryControllerType);
    connect(this, &T::signalQueryControllerList, m_worker, &W::onQueryControllerList);
    connect(m_worker, &W::deviceNetworkInfo, this, &T::deviceNetworkInfo);
    connect(m_worker, &W::queryDeviceConfigInfoResult, this, &T::queryDeviceConfigInfoResult);
    connect(m_worker, &W::queryServerTypeInfoResult, this, &T::queryServerTypeInfoResult);
    connect(m_worker, &W::queryGatewayInfoResult, this, &T::queryGatewayInfoResult);
    connect(m_worker, &W::queryControllerTypeResultForGrpcWorker, this, &T::queryControllerTypeResultForGrpcThread);
    connect(m_worker, &W::queryControllerListResultForGrpcWorker, this, &T::queryControllerListResultForGrpcThread);
    connect(m_worker, &W::queryServerIpResult, this, &T::signalQueryServerIpResult);

    // Heartbeat.
    connect(this, &T::mySendHeart, m_worker, &W::sendHeart);
    connect(this, &T::myStartSendHeart, m_worker, &W::startSendHeart);
    connect(this, &T::myStopSendHeart, m_worker, &W::stopSendHeart);
    connect(m_worker, &W::sendHeartResult, this, &T::recvHeartbeatResultVDT);

    // Login and gateway authentication.
    connect(this, &T::myLogin, m_worker, &W::login);
    connect(this, &T::myUpdateVmInfoFromServer, m_worker, &W::updateVmInfoFromServer);
    connect(this, &T::loginGateway, m_worker, &W::loginGateway);
    connect(m_worker, &W::loginResult, this, &T::loginResult);
    connect(m_worker, &W::updateVmInfoFromServerResult, this, &T::updateVmInfoFromServerResult);
    connect(m_worker, &W::inputGatewayAuthInfo, this, &T::inputGatewayAuthInfo);

    // VM operations.
    connect(this, &T::myOperateVM, m_worker, &W::operateVM);
    connect(this, &T::myRecoverVM, m_worker, &W::recoverVM);
    connect(this, &T::myModifyVMName, m_worker, &W::modifyVMName);
    connect(this, &T::mySnapshot, m_worker, &W::snapshot);
    connect(m_worker, &W::operateVMResult, this, &T::operateVMResult);
    connect(m_worker, &W::recoverVMResult, this, &T::recoverVMResult);
    connect(m_worker, &W::snapshotResult, this, &T::snapshotResult);
    connect(m_worker, &W::modifyVMNameResult, this, &T::modifyVMNameResult);
    connect(m_worker, &W::snapshotQueryResult, this, &T::snapshotQueryResult);

    // Desktop assignment.
    connect(this, &T::myApplyForVM, m_worker, &W::applyForVM);
    connect(this, &T::myApplyForVMOfQuery, m_worker, &W::applyForVMOfQuery);
    connect(this, &T::myApplyForDeviceInfo, m_worker, &W::applyForDeviceInfo);
    connect(this, &T::myQueryVmInfo, m_worker, &W::queryVmInfo);
    connect(m_worker, &W::applyForVMResult, this, &T::applyForVMResult);
    connect(m_worker, &W::applyForVMOfQueryResult, this, &T::applyForVMOfQueryResult);
    connect(m_worker, &W::applyForDeviceInfoResult, this, &T::applyForDeviceInfoResult);
    connect(m_worker, &W::queryVmInfoResult, this, &T::queryVmInfoResult);

    // Device and status reports; the redirect status has no answer for the application.
    connect(this, &T::myRegisterDevice, m_worker, &W::registerDevice);
    connect(this, &T::myReportStatusOfVM, m_worker, &W::reportStatusOfVM);
    connect(this, &T::myUsbNotify, m_worker, &W::usbNotify);
    connect(this, &T::myReportRedirectStatus, m_worker, &W::reportRedirectStatus);
    connect(m_worker, &W::registerDeviceResult, this, &T::registerDeviceResult);
    connect(m_worker, &W::reportStatusOfVMResult, this, &T::reportStatusOfVMResult);
    connect(m_worker, &W::usbNotifyResult, this, &T::usbNotifyResult);

    // Passwords and client configuration. The individual configuration is connected twice on
    // purpose: the application gets every reply two times.
    connect(this, &T::myCheckUpgrade, m_worker, &W::checkUpgrade);
    connect(this, &T::myModifyPassword, m_worker, &W::modifyPassword);
    connect(this, &T::myCheckPassword, m_worker, &W::checkPassword);
    connect(this, &T::myApplyForEmail, m_worker, &W::applyForEmail);
    connect(this, &T::myRequestTerminalAuthorityPassword, m_worker, &W::requestTerminalAuthorityPassword);
    connect(this, &T::myQueryNextCloudInfo, m_worker, &W::queryNextCloudInfo);
    connect(this, &T::signalQueryIndividualConfigForGrpcThread, m_worker, &W::slotQueryIndividualConfigForGrpcWorker);
    connect(m_worker, &W::checkUpgradeResult, this, &T::checkUpgradeResult);
    connect(m_worker, &W::modifyPasswordResult, this, &T::modifyPasswordResult);
    connect(m_worker, &W::checkPasswordResult, this, &T::checkPasswordResult);
    connect(m_worker, &W::requestTerminalAuthorityPasswordResult, this, &T::requestTerminalAuthorityPasswordResult);
    connect(m_worker, &W::applyForEmailResult, this, &T::applyForEmailResult);
    connect(m_worker, &W::queryNextCloudInfoResult, this, &T::queryNextCloudInfoResult);
    for (int twice = 0; twice < 2; ++twice)
        connect(m_worker, &W::queryIndividualConfigInfoResultForGrpcWorker, this,
                &T::queryIndividualConfigInfoResultForGrpcThread);

    // Login options.
    connect(this, &T::quantumConfigReq, m_worker, &W::quantumConfigReq);
    connect(this, &T::userQuantumBindReq, m_worker, &W::userQuantumBindReq);
    connect(this, &T::signalQueryLoginConfig, m_worker, &W::handleQueryLoginConfig);
    connect(this, &T::signalRequestLoginCode, m_worker, &W::handleRequestLoginCode);
    connect(this, &T::signalCheckAndSaveLdapPasswd, m_worker, &W::handleCheckAndSaveLdapPasswd);
    connect(m_worker, &W::onUserQuantumBindResp, this, &T::onUserQuantumBindResp);
    connect(m_worker, &W::onQuantumConfigResp, this, &T::onQuantumConfigResp);
    connect(m_worker, &W::queryLoginConfigResult, this, &T::signalQueryLoginConfigResult);
    connect(m_worker, &W::queryLoginCodeResult, this, &T::signalQueryLoginCodeResult);
    connect(m_worker, &W::checkAndSaveLdapPasswdResult, this, &T::onCheckAndSaveLdapPasswdResult);

    // Application catalogues and share terminals.
    connect(this, &T::signalGrpcThreadApplyRemoteApp, m_worker, &W::slotGrpcWorkerApplyRemoteApp);
    connect(this, &T::signalGrpcThreadGetRemoteAppList, m_worker, &W::slotGrpcWorkerGetRemoteAppList);
    connect(this, &T::signalGrpcThreadGetSaasAppList, m_worker, &W::slotGrpcWorkerGetSaasAppList);
    connect(this, &T::signalGrpcThreadQuerySaasApp, m_worker, &W::slotGrpcWorkerQuerySaasApp);
    connect(this, &T::queryShareTerminalInfo, m_worker, &W::queryShareTerminalInfo);
    connect(this, &T::transferDesktop2ShareTerminal, m_worker, &W::transferDesktop2ShareTerminal);
    connect(this, &T::loginOakdeskHsareTerminal, m_worker, &W::loginOakdeskHsareTerminal);
    connect(m_worker, &W::signalGrpcWorkerApplyRemoteAppResult, this, &T::signalGrpcThreadApplyRemoteAppResult);
    connect(m_worker, &W::signalGrpcWorkerGetRemoteAppListResult, this, &T::signalGrpcThreadGetRemoteAppListResult);
    connect(m_worker, &W::signalGrpcWorkerGetSaasAppListResult, this, &T::signalGrpcThreadGetSaasAppListResult);
    connect(m_worker, &W::signalGrpcWorkerSaasAppPermissionResult, this, &T::signalGrpcThreadSaasAppResult);
    connect(m_worker, &W::queryShareTerminalInfoResult, this, &T::queryShareTerminalInfoResult);
    connect(m_worker, &W::transferDesktop2ShareTerminalResult, this, &T::transferDesktop2ShareTerminalResult);
    connect(m_worker, &W::loginOakdeskShareTerminalResult, this, &T::loginOakdeskShareTerminalResult);

    // One-key help.
    connect(this, &T::mySendUserAskHelpInfo, m_worker, &W::sendUserAskHelpInfo);
    connect(m_worker, &W::sendUserAskHelpInfoResult, this, &T::SendUserAskHelpInfoResult);

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
