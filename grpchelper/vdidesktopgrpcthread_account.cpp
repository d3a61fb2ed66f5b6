// Facade requests of passwords, client configuration and login options.
#include "vdidesktopgrpcthread.h"

#include "vdidesktopgrpcthread_wiring.h"
#include "vdidesktopgrpcworker.h"

#include <QCoreApplication>
#include <QSysInfo>

#include "vdilog.h"

namespace {
// The kind of branding this client asks for.
const int kIndividualConfigType = 1;

tagBaseInfo withCredentials(tagBaseInfo base, const QString& name, const QString& password)
{
    base.name = name;
    base.password = password;
    return base;
}
} // namespace

// ---- Passwords and client configuration ----------------------------------------------------

void VdiDesktopGrpcThread::checkUpgrade(const QString& clientVersion)
{
    tagUpgradeRequest request;
    request.clientName = QCoreApplication::applicationName();
    request.clientVersion = clientVersion;
    request.clientType = m_baseInfo.clientType;
    request.osType = m_extendInfo.osType;
    request.cpuArch = QSysInfo::currentCpuArchitecture();
    request.ip = m_baseInfo.ip;
    request.deviceId = m_baseInfo.deviceId;
    request.deviceName = m_baseInfo.deviceName;
    request.state = QStringLiteral("ask");
    VDI_INFO << "emit to check upgrade.";
    emit myCheckUpgrade(request);
}

// The cache is left alone: the names go into the request only.
void VdiDesktopGrpcThread::modifyPassword(const QString& name, const QString& password, const QString& passwordNew)
{
    tagModifyPasswordRequest request;
    request.baseInfo = withCredentials(m_baseInfo, name, password);
    request.passwordNew = passwordNew;
    VDI_INFO << "emit to modify password.";
    emit myModifyPassword(request);
}

void VdiDesktopGrpcThread::checkPassword(const QString& name, const QString& password, bool webSso)
{
    m_baseInfo = withCredentials(m_baseInfo, name, password);
    if (webSso) {
        VDI_DEBUG << "web sso feature login, does NOT check password.";
        return;
    }
    tagCheckPasswordRequest request;
    request.baseInfo = m_baseInfo;
    VDI_INFO << "emit to check password.";
    emit myCheckPassword(request);
}

void VdiDesktopGrpcThread::requestTerminalAuthorityPassword(const VdiGrpc::tagClientType& clientType)
{
    tagClientReleasePasswordRequest request;
    request.clientType = clientType;
    VDI_INFO << "emit to request terminal authority password.";
    emit myRequestTerminalAuthorityPassword(request);
}

void VdiDesktopGrpcThread::queryNextCloudInfo(long long userId)
{
    tagNextCloudInfoReq request;
    request.userId = userId;
    emit myQueryNextCloudInfo(request);
}

void VdiDesktopGrpcThread::queryIndividualConfigForVdidesktopGrpcThread()
{
    tagIndividualConfigReq request;
    request.type = kIndividualConfigType;
    VDI_INFO << "DesktopGrpcThread emit to query individual config info.";
    emit signalQueryIndividualConfigForGrpcThread(request);
}

void VdiDesktopGrpcThread::applyForEmail()
{
    emit myApplyForEmail();
}

// ---- Login options -------------------------------------------------------------------------

void VdiDesktopGrpcThread::queryLoginConfig()
{
    emit signalQueryLoginConfig(m_baseInfo.mac);
}

// The three texts stay in the cache for every later request; computerType 0 goes into the
// request's copies only.
void VdiDesktopGrpcThread::requestLoginCode(const QString& codeSource, const QString& codeType,
                                            const QString& username)
{
    m_baseInfo.clientType = QStringLiteral("0");
    m_baseInfo.authType = QString::number(VdiGrpc::LoginByUserPassword, 10);
    m_baseInfo.refreshFlag = QStringLiteral("0");
    LoginCodeReq request;
    request.baseInfo = m_baseInfo;
    request.extendInfo = m_extendInfo;
    request.baseInfo.computerType = 0;
    request.extendInfo.computerType = 0;
    request.codeSource = codeSource;
    request.codeType = codeType;
    request.username = username;
    VDI_INFO << "VdiDesktopGrpcThread::requestLoginCode";
    emit signalRequestLoginCode(request);
}

// The domain given goes into this request only; the login that follows a success takes the
// cached one (updateDomain).
void VdiDesktopGrpcThread::checkAndSaveLdapPasswd(const QString& name, const QString& password,
                                                  const QString& domain)
{
    VDI_INFO << "VdiDesktopGrpcThread::checkAndSaveLdapPasswd" << name << ","
             << (m_strictRedaction ? QString::fromLatin1(VdiDesktopGrpcWorker::kSecretMask) : password);
    m_baseInfo = withCredentials(m_baseInfo, name, password);
    m_baseInfo.authType = QString::number(VdiGrpc::LoginByLdap, 10);
    tagCheckPasswordRequest request;
    request.baseInfo = m_baseInfo;
    request.baseInfo.domain = domain;
    emit signalCheckAndSaveLdapPasswd(request);
}

void vdiwiring::connectAccount(VdiDesktopGrpcThread& facade, VdiDesktopGrpcWorker& worker)
{
    using T = VdiDesktopGrpcThread;
    using W = VdiDesktopGrpcWorker;
    // Passwords and client configuration. The individual configuration is connected twice on
    // purpose: the application gets every reply two times.
    QObject::connect(&facade, &T::myCheckUpgrade, &worker, &W::checkUpgrade);
    QObject::connect(&facade, &T::myModifyPassword, &worker, &W::modifyPassword);
    QObject::connect(&facade, &T::myCheckPassword, &worker, &W::checkPassword);
    QObject::connect(&facade, &T::myApplyForEmail, &worker, &W::applyForEmail);
    QObject::connect(&facade, &T::myRequestTerminalAuthorityPassword, &worker, &W::requestTerminalAuthorityPassword);
    QObject::connect(&facade, &T::myQueryNextCloudInfo, &worker, &W::queryNextCloudInfo);
    QObject::connect(&facade, &T::signalQueryIndividualConfigForGrpcThread, &worker, &W::slotQueryIndividualConfigForGrpcWorker);
    QObject::connect(&worker, &W::checkUpgradeResult, &facade, &T::checkUpgradeResult);
    QObject::connect(&worker, &W::modifyPasswordResult, &facade, &T::modifyPasswordResult);
    QObject::connect(&worker, &W::checkPasswordResult, &facade, &T::checkPasswordResult);
    QObject::connect(&worker, &W::requestTerminalAuthorityPasswordResult, &facade, &T::requestTerminalAuthorityPasswordResult);
    QObject::connect(&worker, &W::applyForEmailResult, &facade, &T::applyForEmailResult);
    QObject::connect(&worker, &W::queryNextCloudInfoResult, &facade, &T::queryNextCloudInfoResult);
    for (int twice = 0; twice < 2; ++twice)
        QObject::connect(&worker, &W::queryIndividualConfigInfoResultForGrpcWorker, &facade,
                         &T::queryIndividualConfigInfoResultForGrpcThread);

    // Login options.
    QObject::connect(&facade, &T::quantumConfigReq, &worker, &W::quantumConfigReq);
    QObject::connect(&facade, &T::userQuantumBindReq, &worker, &W::userQuantumBindReq);
    QObject::connect(&facade, &T::signalQueryLoginConfig, &worker, &W::handleQueryLoginConfig);
    QObject::connect(&facade, &T::signalRequestLoginCode, &worker, &W::handleRequestLoginCode);
    QObject::connect(&facade, &T::signalCheckAndSaveLdapPasswd, &worker, &W::handleCheckAndSaveLdapPasswd);
    QObject::connect(&worker, &W::onUserQuantumBindResp, &facade, &T::onUserQuantumBindResp);
    QObject::connect(&worker, &W::onQuantumConfigResp, &facade, &T::onQuantumConfigResp);
    QObject::connect(&worker, &W::queryLoginConfigResult, &facade, &T::signalQueryLoginConfigResult);
    QObject::connect(&worker, &W::queryLoginCodeResult, &facade, &T::signalQueryLoginCodeResult);
    QObject::connect(&worker, &W::checkAndSaveLdapPasswdResult, &facade, &T::onCheckAndSaveLdapPasswdResult);
}
