// Facade requests of the login: each variant stamps its kind into the cached identity first.
#include "vdidesktopgrpcthread.h"

#include "vdidesktopgrpcthread_wiring.h"
#include "vdidesktopgrpcworker.h"

#include "vdilog.h"

namespace {
// What every login entry writes besides its own fields.
void resetDesktop(tagBaseInfo& base)
{
    base.computerType = 0;
    base.vmId = -1;
    base.vmUuid = QStringLiteral("");
}

tagLoginRequest loginRequest(const tagBaseInfo& base, const tagExtendInfo& extend)
{
    tagLoginRequest request;
    request.baseInfo = base;
    request.extendInfo = extend;
    return request;
}
} // namespace

void VdiDesktopGrpcThread::login(const QString& deviceId)
{
    m_baseInfo.authType = QString::number(VdiGrpc::LoginByDevice, 10);
    m_baseInfo.deviceId = deviceId;
    m_baseInfo.refreshFlag = QStringLiteral("0");
    resetDesktop(m_baseInfo);
    doLogin();
}

void VdiDesktopGrpcThread::login(const QString& name, const QString& password, QString refreshFlag)
{
    m_baseInfo.authType = QString::number(VdiGrpc::LoginByUserPassword, 10);
    m_baseInfo.name = name;
    m_baseInfo.password = password;
    m_baseInfo.refreshFlag = refreshFlag;
    if (!m_baseInfo.vmUuid.isEmpty())
        VDI_DEBUG << "login:vmId = " << m_baseInfo.vmId << ", vmUuid = " << m_baseInfo.vmUuid;
    resetDesktop(m_baseInfo);
    doLogin();
}

void VdiDesktopGrpcThread::loginSMS(const QString& name, const QString& password, const QString& smsCode,
                                    const QString& ticket)
{
    m_baseInfo.authType = QString::number(VdiGrpc::LoginBySms, 10);
    m_baseInfo.name = name;
    m_baseInfo.password = password;
    m_baseInfo.smsCode = smsCode;
    m_baseInfo.ticket = ticket;
    m_baseInfo.refreshFlag = QStringLiteral("0");
    resetDesktop(m_baseInfo);
    doLogin();
    // A one-time code must not go out with a later login.
    m_baseInfo.smsCode = QStringLiteral("");
}

void VdiDesktopGrpcThread::login(const VdiGrpc::LoginType& type, const QString& name, const QString& password,
                                 const QString& deviceId, const QString& unused1, const QString& smsCode,
                                 const QString& unused2)
{
    Q_UNUSED(unused1)
    Q_UNUSED(unused2)
    m_baseInfo.authType = QString::number(type, 10);
    m_baseInfo.name = name;
    m_baseInfo.password = password;
    m_baseInfo.deviceId = deviceId;
    m_baseInfo.smsCode = smsCode;
    m_baseInfo.refreshFlag = QStringLiteral("0");
    resetDesktop(m_baseInfo);
    doLogin();
}

// The LDAP password check of checkAndSaveLdapPasswd: its answer goes to the application first;
// a success is followed by the LDAP login with the cached name, password and domain.
void VdiDesktopGrpcThread::onCheckAndSaveLdapPasswdResult(const CheckPasswordReply& resp, bool ok)
{
    emit signalCheckAndSaveLdapPasswdResult(resp, ok);
    if (!ok)
        return;
    m_baseInfo.authType = QString::number(VdiGrpc::LoginByLdap, 10);
    m_baseInfo.refreshFlag = QStringLiteral("0");
    resetDesktop(m_baseInfo);
    doLogin();
}

void VdiDesktopGrpcThread::doLogin()
{
    if (m_baseInfo.deviceId.isEmpty() || m_baseInfo.ip.isEmpty()) {
        VDI_INFO << "DeviceId is null, get base info.";
        emit getSessionInfo();  // the application may refill the identity here
    }
    emit myLogin(loginRequest(m_baseInfo, m_extendInfo));
}

void VdiDesktopGrpcThread::updateVmInfoFromServer()
{
    m_baseInfo.refreshFlag = QStringLiteral("1");
    const tagLoginRequest request = loginRequest(m_baseInfo, m_extendInfo);
    VDI_INFO << "emit to update vm info from server.";
    emit myUpdateVmInfoFromServer(request);
}

void vdiwiring::connectLogin(VdiDesktopGrpcThread& facade, VdiDesktopGrpcWorker& worker)
{
    using T = VdiDesktopGrpcThread;
    using W = VdiDesktopGrpcWorker;
    // Login and gateway authentication.
    QObject::connect(&facade, &T::myLogin, &worker, &W::login);
    QObject::connect(&facade, &T::myUpdateVmInfoFromServer, &worker, &W::updateVmInfoFromServer);
    QObject::connect(&facade, &T::loginGateway, &worker, &W::loginGateway);
    QObject::connect(&worker, &W::loginResult, &facade, &T::loginResult);
    QObject::connect(&worker, &W::updateVmInfoFromServerResult, &facade, &T::updateVmInfoFromServerResult);
    QObject::connect(&worker, &W::inputGatewayAuthInfo, &facade, &T::inputGatewayAuthInfo);
}
