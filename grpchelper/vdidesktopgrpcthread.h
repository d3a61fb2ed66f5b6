// The library's public face. An application creates one VdiDesktopGrpcThread on a thread that
// runs a Qt event loop, calls its request methods and receives every answer as a signal with a
// plain record and a success flag. The work is done by a VdiDesktopGrpcWorker on a thread of
// its own; no request method blocks.
#pragma once

#include "vdidesktopgrpc_export.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QThread>

#include "vdigrpcrecords.h"
#include "vdigrpcrecords_account.h"
#include "vdigrpcrecords_applications.h"
#include "vdigrpcrecords_desktop.h"
#include "vdigrpcrecords_discovery.h"
#include "vdigrpcrecords_help.h"
#include "vdigrpcrecords_operations.h"

class VdiDesktopGrpcWorker;

class VDIDESKTOPGRPC_EXPORT VdiDesktopGrpcThread : public QObject
{
    Q_OBJECT
public:
    explicit VdiDesktopGrpcThread(QObject* parent = nullptr);
    ~VdiDesktopGrpcThread() override;

    // Cached identity, merged or set on the caller's thread; no worker is involved.
    void initBaseInfoParameter(const tagBaseInfo& baseInfo);
    void initExtendInfoParameter(const tagExtendInfo& extendInfo);
    void setUserName(QString name);
    void setUserNameAndPasswd(const QString& name, const QString& password);
    void setLocalIP(const QString& ip);
    void updateLocalIP(const QString& ip);
    void setLocalMAC(const QString& mac);
    void setProtocolType(const QString& protocolType);
    void setComputeType(int computerType);
    void updateDomain(const QString& domain);
    void updateIsOpenldp(int isOpenldap);
    void setClientLanuage(const QString& language);
    void setClientVersion(const QString& version);
    QString getLocalIP();
    QString getLocalMAC();
    QString getUserName() const;
    QString getUserPasswd() const;

    // Stored in the worker at once, without a queue.
    void initServerType(int serverType);

    // Builds (or rebuilds) the TLS channels to the server. No answer signal: a failure shows in
    // the log and as failed results of later requests.
    void initConnection(QString pemFile, QString serverIP, ushort port, bool isEnglish);

    // Server discovery. Answered by deviceNetworkInfo, queryServerTypeInfoResult,
    // queryDeviceConfigInfoResult, queryGatewayInfoResult, queryControllerTypeResultForGrpcThread,
    // queryControllerListResultForGrpcThread and signalQueryServerIpResult.
    void initDeviceInfo(const QString& host, quint16 port);
    void queryServerTypeInfo();
    void queryDeviceConfigInfo(const QString& mac, const QString& ip);
    void queryGatewayInfo();
    void queryControllerTypeForGrpcThread(const QString& serverIp);
    void queryControllerListForGrpcThread(const QString& serverIp);
    void queryServerIpForVm();

    // Login, answered by loginResult. Each variant stamps its kind of login into the cached
    // identity (with computerType 0, vmId -1 and an empty vmUuid) before the request goes out.
    // In a gateway deployment without saved gateway credentials, inputGatewayAuthInfo asks for
    // them; the application answers by emitting loginGateway(user, password).
    void login(const QString& deviceId);
    void login(const QString& name, const QString& password, QString refreshFlag);
    void loginSMS(const QString& name, const QString& password, const QString& smsCode, const QString& ticket);
    void login(const VdiGrpc::LoginType& type, const QString& name, const QString& password, const QString& deviceId,
               const QString& unused1, const QString& smsCode, const QString& unused2);
    // Fetches the desktop list again with the cached identity, answered by
    // updateVmInfoFromServerResult. Leaves refreshFlag "1" in the cache until the next login.
    void updateVmInfoFromServer();

    // Heartbeat, answered by recvHeartbeatResultVDT. A vmId of -1 keeps the cached desktop id.
    void sendHeart(const QString& vmIp, const QString& vmUuid, long long vmId);
    void startSendHeart();
    void stopSendHeart();

    // Operations on a desktop. operateVM and recoverVM keep the desktop's id and UUID in the
    // cached identity (the id read as a 64-bit number), snapshot and modifyVMName too (the id
    // read as an int: above 2147483647 it becomes 0). Answered by operateVMResult,
    // recoverVMResult, snapshotResult (then snapshotQueryResult for a successful query) and
    // modifyVMNameResult, each carrying vmNode back.
    void operateVM(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid,
                   const VdiGrpc::tagOperateVMType& opType, const VdiGrpc::tagOperateVMWay& forceFlag, int startDomain,
                   const QString& port);
    void recoverVM(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid,
                   const VdiGrpc::tagOperateVMType& opType, const VdiGrpc::tagOperateVMWay& forceFlag,
                   const QString& port);
    void snapshot(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid,
                  const VdiGrpc::tagSnapshotType& opType, const QString& description, const QString& name);
    void modifyVMName(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid, const QString& vmNameNew,
                      int computerType, bool resetAuthType);

    // Assignment of a desktop. While the server works on it, applyForVMResult and
    // applyForVMOfQueryResult answer true with errorCode 4 (resp. -1): ask again; the fifth
    // deadline overrun in a row answers false. Both keep the desktop in the cached identity;
    // applyForDeviceInfo does not. queryVmInfo has a fixed 10 s deadline.
    void applyForVM(const tagVmNodeInfo& vmNode, const QString& id, const QString& vmId, const QString& vmUuid,
                    const QString& poolName, const QString& port, int startDomain);
    void applyForVMOfQuery(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid, const QString& port,
                           int startDomain, const VdiGrpc::tagOperateVMWay& forceFlag,
                           const VdiGrpc::tagOperateVMType& opType);
    void applyForDeviceInfo(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid);
    void queryVmInfo(QString& vmId, QString& vmUuid, int deviceType);

    // Reports of the terminal; the desktop ids go into the request only, the cache stays.
    // reportRedirectStatus has no answer.
    void registerDevice(const QString& ip, const QString& mac, const QString& deviceId, const QString& deviceName,
                        VdiGrpc::tagDeviceRegisterType registerType);
    void reportStatusOfVM(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid, const QString& vmIp);
    void usbNotify(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid, const QString& password,
                   const QString& readOnly);
    void reportRedirectStatus(const QString& vmUuid, QList<tagRedirectStatusInfoReust> redirectList);

    // Passwords and client configuration, answered by the result signal of the same name
    // (queryIndividualConfigInfoResultForGrpcThread for the individual configuration, which
    // arrives twice). checkPassword keeps name and password in the cached identity; with webSso
    // it sends nothing and no answer comes. modifyPassword leaves the cache alone.
    // requestTerminalAuthorityPassword waits 10 s at most. checkUpgrade gets no answer in a
    // gateway deployment. A serverIp of "127.0.0.1" in queryNextCloudInfoResult arrives as the
    // address this client connected to.
    void checkUpgrade(const QString& clientVersion);
    void modifyPassword(const QString& name, const QString& password, const QString& passwordNew);
    void checkPassword(const QString& name, const QString& password, bool webSso);
    void requestTerminalAuthorityPassword(const VdiGrpc::tagClientType& clientType);
    void queryNextCloudInfo(long long userId);
    void queryIndividualConfigForVdidesktopGrpcThread();
    void applyForEmail();

    // Login options. queryLoginConfig asks with the cached MAC, answered by
    // signalQueryLoginConfigResult. requestLoginCode leaves clientType, authType and
    // refreshFlag "0" in the cache, answered by signalQueryLoginCodeResult.
    // checkAndSaveLdapPasswd keeps name, password and authType "3" in the cache and asks the
    // server with the domain given; signalCheckAndSaveLdapPasswdResult answers, and on success
    // the facade logs in at once (loginResult), with the cached domain. The quantum requests
    // are signals that the application emits itself: quantumConfigReq gets no answer.
    void queryLoginConfig();
    void requestLoginCode(const QString& codeSource, const QString& codeType, const QString& username);
    void checkAndSaveLdapPasswd(const QString& name, const QString& password, const QString& domain);

    // Application catalogues, answered by signalGrpcThreadGetRemoteAppListResult,
    // signalGrpcThreadApplyRemoteAppResult, signalGrpcThreadGetSaasAppListResult and
    // signalGrpcThreadSaasAppResult (whose flag is the permission). grpcThreadApplyForRemoteApp
    // asks with the cached domain, and with the cached user name unless that is empty.
    // grpcThreadApplyForRemoteApp is dropped without an answer before initConnection.
    // Share terminals have no method: the application emits queryShareTerminalInfo,
    // transferDesktop2ShareTerminal and loginOakdeskHsareTerminal with records of its own.
    void grpcThreadGetRemoteAppList();
    void grpcThreadApplyForRemoteApp(QString displayName, const QString& userName);
    void grpcThreadGetSaasAppList();
    void grpcThreadQuerySaasApp(tagSaasAppInfo app);

    // One-key help: reports the user's problem, answered once by SendUserAskHelpInfoResult,
    // whose flag says whether the server took the report. getLog 1 or 3 asks for logs, a
    // non-empty screenShotUrl says that screenshots exist; ip lists the terminal's addresses,
    // joined by ";". Nothing is taken from the cached identity. Behind an access gateway the
    // worker then packages the login user's screenshots and logs and uploads them before it
    // answers: the worker is busy for as long as that takes, with no deadline (stop() cancels).
    void sendUserAskInfo(const QString& userMac, const QString& realName, const QString& phoneNumber,
                         const QString& email, const QString& problemType, const QString& problemDesc,
                         const int& getLog, const QString& screenShotUrl, const QString& ip, const QString& vmIp);

    // Cancels the call in flight, cuts every connection of the facade and ends the worker's
    // thread, waiting one second at most. A second call does nothing.
    void stop();

    // Registers the names under which the records travel in queued signals. The constructor
    // calls it; code that connects to the worker alone calls it itself.
    static void registerMetaTypes();

signals:
    // Requests, queued to the worker.
    void myInitConnection(QString pemFile, QString serverIP, ushort port, bool isEnglish);
    void myInitDeviceInfo(QString serverIP, ushort port);
    void myQueryDeviceConfigInfo(DeviceConfigInfoReq req);
    void myQueryServerTypeInfo();
    void myQueryGatewayInfo();
    void signalQueryServerIpForVm();
    void signalQueryControllerType(QString serverIp);
    void signalQueryControllerList(QString serverIp);
    void mySendHeart(HeartbeatRequest heartbeatRequest);
    void myStartSendHeart();
    void myStopSendHeart();
    void myLogin(LoginRequest loginRequest);
    void myUpdateVmInfoFromServer(LoginRequest loginRequest);
    void myOperateVM(OperateForVMRequest operateForVMRequest);
    void myRecoverVM(OperateForVMRequest operateForVMRequest);
    void myModifyVMName(ModifyVMNameRequest modifyVMNameRequest);
    void mySnapshot(SnapshotRequest snapshotRequest);
    void myApplyForVM(ApplyForVMRequest applyForVMRequest);
    void myApplyForVMOfQuery(OperateForVMRequest operateForVMRequest);
    void myApplyForDeviceInfo(ApplyForDeviceInfoRequest applyForDeviceInfoRequest);
    void myQueryVmInfo(QueryVmInfoReq req);
    void myRegisterDevice(RegisterDeviceRequest registerDeviceRequest);
    void myReportStatusOfVM(ReportSuccessRequest reportSuccessRequest);
    void myUsbNotify(USBNotifyRequest usbNotifyRequest);
    void myReportRedirectStatus(RedirectStatusReust redirectStatusReust);
    void myCheckUpgrade(UpgradeRequest upgradeRequest);
    void myModifyPassword(ModifyPasswordRequest modifyPasswordRequest);
    void myCheckPassword(CheckPasswordRequest checkPasswordRequest);
    void myApplyForEmail();
    void myRequestTerminalAuthorityPassword(ClientReleasePasswordRequest clientReleasePasswordRequest);
    void myQueryNextCloudInfo(NextCloudInfoReq req);
    void signalQueryIndividualConfigForGrpcThread(IndividualConfigReq individualConfigReq);
    void signalQueryLoginConfig(const QString& uuid);
    void signalRequestLoginCode(const LoginCodeReq& req);
    void signalCheckAndSaveLdapPasswd(const tagCheckPasswordRequest& req);
    // Emitted by the application, in answer to inputGatewayAuthInfo.
    void loginGateway(QString userName, QString password);
    // Emitted by the application; the first is never answered.
    void quantumConfigReq(QString username);
    void userQuantumBindReq(QString username, QString userId, QString spmId);
    void signalGrpcThreadGetRemoteAppList(LoginRequest loginRequest);
    void signalGrpcThreadApplyRemoteApp(RemoteAppApplyReq applyReq);
    void signalGrpcThreadGetSaasAppList(SaasListReq req);
    void signalGrpcThreadQuerySaasApp(SaasAppReq req);
    // Emitted by the application with records of its own.
    void queryShareTerminalInfo(ShareTerminalInfoRequest shareTerminalInfoRequest);
    void transferDesktop2ShareTerminal(TransDesk2ShareTerminalRequest transDesk2ShareTerminalRequest);
    void loginOakdeskHsareTerminal(LoginOakdeskShareTerminalRequest loginOakdeskShareTerminalRequest);
    void mySendUserAskHelpInfo(OneKeyHelpInfoRequest oneKeyHelpInfoRequest);

    // Results, on the facade's thread.
    void deviceNetworkInfo(QString activeDeviceIP, QString activeDeviceMAC, bool status);
    void queryDeviceConfigInfoResult(DeviceConfigInfoResp reply, bool status);
    void queryServerTypeInfoResult(ServerTypeInfoResp reply, bool status);
    void queryGatewayInfoResult(GatewayInfoResp reply, bool status);
    void queryControllerTypeResultForGrpcThread(QueryControllerTypeResp reply, bool status, QString serverIp);
    void queryControllerListResultForGrpcThread(QureyControllerListResp reply, bool status, QString serverIp);
    void signalQueryServerIpResult(VmControllerIpResp controllerIpRsp, bool status);
    void recvHeartbeatResultVDT(HeartbeatReply heartbeatReply, bool status);
    void loginResult(LoginReply reply, bool status);
    void updateVmInfoFromServerResult(LoginReply reply, bool status);
    void inputGatewayAuthInfo();
    void operateVMResult(OperateForVMReply reply, bool status);
    void recoverVMResult(RecoverVMReply reply, bool status);
    void snapshotResult(SnapshotReply reply, bool status, int operType);
    void modifyVMNameResult(ModifyVMNameReply reply, bool status);
    void snapshotQueryResult(int cnt);
    void applyForVMResult(ApplyForVMReply reply, bool status);
    void applyForVMOfQueryResult(OperateForVMReply reply, bool status);
    void applyForDeviceInfoResult(ApplyForDeviceInfoReply reply, bool status);
    void queryVmInfoResult(QueryVmInfoResp reply, bool status);
    void registerDeviceResult(RegisterDeviceReply reply, bool status);
    void reportStatusOfVMResult(ReportSuccessReply reply, bool status);
    void usbNotifyResult(USBNotifyReply reply, bool status);
    void checkUpgradeResult(UpgradeReply reply, bool status);
    void modifyPasswordResult(ModifyPasswordReply reply, bool status);
    void checkPasswordResult(CheckPasswordReply reply, bool status);
    void requestTerminalAuthorityPasswordResult(ClientReleasePasswordReply reply, bool status);
    void applyForEmailResult(ApplyForEmailReply reply, bool status);
    void queryNextCloudInfoResult(NextCloudInfoResp reply, bool status);
    void queryIndividualConfigInfoResultForGrpcThread(IndividualConfigResp reply, bool status);
    void signalQueryLoginConfigResult(const LoginConfigResp& resp, bool status);
    void signalQueryLoginCodeResult(const LoginCodeResp& resp, bool status);
    void signalCheckAndSaveLdapPasswdResult(const tagCheckPasswordResp& resp, bool status);
    void onQuantumConfigResp(bool ack, const QuantumConfigReply& reply);
    void onUserQuantumBindResp(bool ack, const UserQuantumBindReply& reply);
    void signalGrpcThreadGetRemoteAppListResult(RemoteAppListResp remoteAppListResp, bool status);
    void signalGrpcThreadApplyRemoteAppResult(RemoteAppApplyResp remoteAppApplyResp, bool bRet);
    void signalGrpcThreadGetSaasAppListResult(SaasAppListResp saasAppListResp, bool status);
    void signalGrpcThreadSaasAppResult(SaasAppResp resp, bool status);
    void queryShareTerminalInfoResult(ShareTerminalInfoReply reply, bool status);
    void transferDesktop2ShareTerminalResult(TransDesk2ShareTerminalReply reply, bool status);
    void loginOakdeskShareTerminalResult(LoginOakdeskShareTerminalReply reply, bool status);
    void SendUserAskHelpInfoResult(OneKeyHelpInfoReply reply, bool status);

    // For the application; no code of the library emits the second.
    void getSessionInfo();
    void saveCurrentVmUuidVDT(QString uuid);

public slots:
    // The answer to checkAndSaveLdapPasswd: passed on, and on success followed by a login.
    void onCheckAndSaveLdapPasswdResult(const CheckPasswordReply& resp, bool ok);

private:
    void doLogin();
    void cacheDesktop(qint64 vmId, const QString& vmUuid);

    // Guarded: the worker deletes itself when its thread ends, so after stop() this is null and
    // a second stop() or a late initServerType() does nothing.
    QPointer<VdiDesktopGrpcWorker> m_worker;
    tagBaseInfo m_baseInfo;
    QThread m_thread;
    tagExtendInfo m_extendInfo;

    friend class VdiThreadProbe;  // white-box access for the test suite
};
