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
#include "vdigrpcrecords_discovery.h"
#include "vdigrpcrecords_heartbeat.h"
#include "vdigrpcrecords_login.h"
#include "vdigrpcrecords_help.h"
#include "vdigrpcrecords_operations.h"

class VdiDesktopGrpcWorker;

/**
 * \brief The client of a virtual-desktop controller and its access gateway.
 *
 * Create one object on a thread that runs a Qt event loop (normally the GUI thread). The
 * constructor starts a worker (VdiDesktopGrpcWorker) on a QThread of its own; every network call
 * is made there, one at a time, as a blocking grpc++ call over TLS.
 *
 * \par Threads
 * Request methods run on the caller's thread and return at once: they merge their arguments with
 * the cached identity (see the accessors), fill a request record and emit one of the internal
 * plumbing signals (listed last), which Qt queues to the worker. The worker runs the requests in
 * the order they were made; a slow call delays every request behind it (the one-key help upload
 * may take minutes). Each answer comes back as a result signal, emitted on the facade's own
 * thread, with a plain record and a flag.
 *
 * \par Flags and errors
 * The flag is \c true when the call succeeded (gRPC status OK) and the server's business error
 * code is 0; the exceptions are noted at the signals concerned. Every reply record holds a
 * tagErrorData: \c errorCode is the server's code, or the gRPC status code for a failed call
 * (14 when the server cannot be reached, 4 for an overrun deadline); a record nobody filled
 * holds -1. Any failed call makes the worker rebuild its channels; the request is not repeated.
 * The calls carry a deadline of 30 seconds unless noted.
 *
 * \par The road of a session
 * -# Create the facade and set the cached identity (initBaseInfoParameter(),
 *    initExtendInfoParameter(), setLocalMAC(), ...).
 * -# initDeviceInfo() for the local address and MAC that reach the server.
 * -# initConnection() with the server's certificate, address and port.
 * -# queryServerTypeInfo() (a gateway deployment?), then log in with one of the login() variants.
 * -# Any other request, and the heartbeat (startSendHeart()).
 * -# stop() before the facade is destroyed (the destructor waits for the call in flight).
 *
 * Requests made after stop() are dropped without an answer, and so is every request not yet
 * started when the facade is destroyed: to send a last request (a device report, a desktop shut
 * down), wait for its answer before destroying the facade.
 */
class VDIDESKTOPGRPC_EXPORT VdiDesktopGrpcThread : public QObject
{
    Q_OBJECT
public:
    /// Starts the worker and its thread. Registers the record types for queued signals
    /// (registerMetaTypes()). No network traffic yet.
    explicit VdiDesktopGrpcThread(QObject* parent = nullptr);
    /// Ends the worker's thread. A call in flight is waited for (not cancelled). Every request not
    /// yet started is dropped without a call and without an answer, whether or not a call is in
    /// flight: a request made just before the facade is destroyed is never sent. To send a last
    /// request (a device report, a desktop shut down), wait for its answer before destroying the
    /// facade. Call stop() first to cancel the call in flight as well.
    ~VdiDesktopGrpcThread() override;

    /// \name Cached identity
    /// The identity that requests carry (user, device, desktop), kept on the facade. These take
    /// effect at once on the caller's thread; no worker and no network are involved.
    ///@{

    /// Merges \a baseInfo into the cached identity: non-empty texts replace the cached ones,
    /// \c computerType unless it is -1; \c vmId, \c vmUuid and \c isOpenldap are always taken.
    void initBaseInfoParameter(const tagBaseInfo& baseInfo);
    /// Merges \a extendInfo (device model, OS, client version and language, CPU architecture):
    /// non-empty texts replace the cached ones, \c computerType unless it is -1.
    void initExtendInfoParameter(const tagExtendInfo& extendInfo);
    /// Sets the cached user name.
    void setUserName(QString name);
    /// Sets the cached user name and password.
    void setUserNameAndPasswd(const QString& name, const QString& password);
    /// Sets the cached local address.
    void setLocalIP(const QString& ip);
    /// Same as setLocalIP().
    void updateLocalIP(const QString& ip);
    /// Sets the cached MAC address, which also becomes the device id.
    void setLocalMAC(const QString& mac);
    /// Sets the cached display protocol type.
    void setProtocolType(const QString& protocolType);
    /// Sets the cached computer type.
    void setComputeType(int computerType);
    /// Sets the cached domain (logged at info level).
    void updateDomain(const QString& domain);
    /// Sets whether the cached identity logs in through OpenLDAP.
    void updateIsOpenldp(int isOpenldap);
    /// Sets the client language that requests carry.
    void setClientLanuage(const QString& language);
    /// Sets the client version that requests carry.
    void setClientVersion(const QString& version);
    /// The cached local address.
    QString getLocalIP();
    /// The cached MAC address.
    QString getLocalMAC();
    /// The cached user name.
    QString getUserName() const;
    /// The cached password.
    QString getUserPasswd() const;
    ///@}

    /// \name Connection
    ///@{

    /// Tells the worker the deployment's type at once, without a queue and without a call:
    /// 1 for a deployment behind an access gateway, 0 for a controller reached directly.
    /// Does nothing after stop().
    void initServerType(int serverType);

    /// Strict redaction of the log, off by default. Off, the library logs as it always has: a
    /// request text loses a fixed span of characters behind each "password", which leaves the
    /// tail of a password longer than 26 characters in the log, and replies, the connection data
    /// of a desktop included, are logged as they come; checkAndSaveLdapPasswd() logs its
    /// password. On, every request and reply text that the library logs has the value of each
    /// field whose name contains "password", "passwd", "pwd", "token" or "secret" replaced by
    /// the same mask, whatever its length and wherever it stands (nested messages and lists
    /// included), and checkAndSaveLdapPasswd() logs the name and the mask; the lines, their
    /// levels and their order stay as they are. Turn it on when logs leave the terminal: the
    /// one-key help (sendUserAskInfo()) packages them for the help desk. Takes effect at once,
    /// for the next line logged; call it before or between requests.
    void setStrictRedaction(bool on);

    /// Builds (or rebuilds) the TLS channels to \a serverIP : \a port, trusting the certificate
    /// in the PEM file \a pemFile; the certificate's subject is used as the TLS target name.
    /// \a isEnglish selects the language of the "client-language" metadata. No answer signal:
    /// a failure shows in the log and as failed results of later requests. Requests made before
    /// it find no channel: most answer \c false at once, some are dropped without an answer.
    void initConnection(QString pemFile, QString serverIP, ushort port, bool isEnglish);
    ///@}

    /// \name Server discovery
    ///@{

    /// Finds the local address and MAC of the interface that reaches \a host : \a port (no gRPC
    /// call). Answered by deviceNetworkInfo().
    void initDeviceInfo(const QString& host, quint16 port);
    /// Asks whether the deployment uses an access gateway (CommonCore \c isUseGateway). Answered
    /// by queryServerTypeInfoResult(); a gateway answer also prepares the gateway channels. The
    /// deadline starts short and doubles with every failed attempt.
    void queryServerTypeInfo();
    /// Asks for this device's configuration (ClientCore \c queryDeviceConfigInfo) with \a mac
    /// and \a ip. Answered by queryDeviceConfigInfoResult().
    void queryDeviceConfigInfo(const QString& mac, const QString& ip);
    /// Asks for the access gateways (CommonCore \c queryGatewayInfo). Answered by
    /// queryGatewayInfoResult().
    void queryGatewayInfo();
    /// Asks the server what it is (ClientCore \c WhoAreYou). Answered by
    /// queryControllerTypeResultForGrpcThread(), which carries \a serverIp back.
    void queryControllerTypeForGrpcThread(const QString& serverIp);
    /// Asks for the controller's nodes (ClientCore \c QueryNodes). Answered by
    /// queryControllerListResultForGrpcThread(), which carries \a serverIp back.
    void queryControllerListForGrpcThread(const QString& serverIp);
    /// Asks which controller address desktops use (ClientCore \c queryAgentUseControllerIp).
    /// Answered by signalQueryServerIpResult().
    void queryServerIpForVm();
    ///@}

    /// \name Login
    /// Each variant stamps its kind of login into the cached identity (with computer type 0,
    /// desktop id -1 and no desktop UUID) and sends ClientCore \c Login; loginResult() answers
    /// with the user's pools and desktops. In a gateway deployment the worker first checks the
    /// gateway (GatewayCore \c CheckAuthStatus) and logs in there (\c LoginGateway) with the saved
    /// gateway credentials; without saved ones it emits inputGatewayAuthInfo() and waits for the
    /// application to emit loginGateway(user, password).
    ///@{

    /// Device login: \a deviceId names the device, no user.
    void login(const QString& deviceId);
    /// User and password login; \a refreshFlag "1" asks only for a fresh desktop list.
    void login(const QString& name, const QString& password, QString refreshFlag);
    /// SMS login with the code \a smsCode and the \a ticket of the login options. The code is
    /// forgotten after the request, so that no later login sends it again.
    void loginSMS(const QString& name, const QString& password, const QString& smsCode, const QString& ticket);
    /// Login of the kind \a type with every credential at hand; \a unused1 and \a unused2 are
    /// ignored.
    void login(const VdiGrpc::LoginType& type, const QString& name, const QString& password, const QString& deviceId,
               const QString& unused1, const QString& smsCode, const QString& unused2);
    /// Fetches the desktop list again with the cached identity (ClientCore \c Login with refresh
    /// flag "1"), answered by updateVmInfoFromServerResult(). The flag "1" stays in the cache
    /// until the next login.
    void updateVmInfoFromServer();
    ///@}

    /// \name Heartbeat
    ///@{

    /// Sends one heartbeat (ClientCore \c Heartbeat) for the desktop at \a vmIp / \a vmUuid,
    /// \a vmId -1 keeping the cached desktop id; it becomes the beat that the timer repeats.
    /// Answered by recvHeartbeatResultVDT().
    void sendHeart(const QString& vmIp, const QString& vmUuid, long long vmId);
    /// Sends the last heartbeat now and then every five minutes. Each beat is answered by
    /// recvHeartbeatResultVDT(). A second start while the timer runs does nothing.
    void startSendHeart();
    /// Stops the five-minute heartbeat timer.
    void stopSendHeart();
    ///@}

    /// \name Operations on a desktop
    /// \a vmNode is the application's own cookie, carried back in the answer. \a vmId and
    /// \a vmUuid name the desktop. operateVM() and recoverVM() keep the desktop's id and UUID in
    /// the cached identity (the id read as a 64-bit number), snapshot() and modifyVMName() too
    /// (the id read as an int: above 2147483647 it becomes 0).
    ///@{

    /// Starts, shuts down, reboots, disconnects or powers off the desktop, or only asks for its
    /// state (ClientCore \c OperateForVm). Answered by operateVMResult().
    void operateVM(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid,
                   const VdiGrpc::tagOperateVMType& opType, const VdiGrpc::tagOperateVMWay& forceFlag, int startDomain,
                   const QString& port);
    /// Puts the desktop back to its template (ClientCore \c RecoverVm). Answered by
    /// recoverVMResult().
    void recoverVM(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid,
                   const VdiGrpc::tagOperateVMType& opType, const VdiGrpc::tagOperateVMWay& forceFlag,
                   const QString& port);
    /// Creates, deletes, reverts to or lists snapshots (ClientCore \c Snapshot). Answered by
    /// snapshotResult(), and for a successful list also by snapshotQueryResult().
    void snapshot(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid,
                  const VdiGrpc::tagSnapshotType& opType, const QString& description, const QString& name);
    /// Renames the desktop to \a vmNameNew (ClientCore \c ModifyVmName). Answered by
    /// modifyVMNameResult().
    void modifyVMName(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid, const QString& vmNameNew,
                      int computerType, bool resetAuthType);
    ///@}

    /// \name Assignment of a desktop
    ///@{

    /// Asks for a desktop of the pool \a id / \a poolName (ClientCore \c ApplyForVm). Answered by
    /// applyForVMResult() with the connection data. While the controller prepares the desktop
    /// the answer is \c true with \c errorCode 4: ask again; the fifth overrun in a row answers
    /// \c false. Keeps the desktop in the cached identity.
    void applyForVM(const tagVmNodeInfo& vmNode, const QString& id, const QString& vmId, const QString& vmUuid,
                    const QString& poolName, const QString& port, int startDomain);
    /// Asks for a desktop already known by id (ClientCore \c OperateForVm). Answered by
    /// applyForVMOfQueryResult(); while the controller works on it, \c true with \c errorCode -1:
    /// ask again. Keeps the desktop in the cached identity.
    void applyForVMOfQuery(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid, const QString& port,
                           int startDomain, const VdiGrpc::tagOperateVMWay& forceFlag,
                           const VdiGrpc::tagOperateVMType& opType);
    /// Asks for the desktop's network devices (ClientCore \c ApplyForDeviceInfo). Answered by
    /// applyForDeviceInfoResult(). The cache stays.
    void applyForDeviceInfo(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid);
    /// Asks for the desktop's memory and CPU figures (ClientCore \c queryVmDetailInfo), with a
    /// fixed deadline of 10 seconds. Answered by queryVmInfoResult().
    void queryVmInfo(QString& vmId, QString& vmUuid, int deviceType);
    ///@}

    /// \name Reports of the terminal
    /// The desktop ids go into the request only; the cache stays.
    ///@{

    /// Registers this terminal (ClientCore \c RegisterDevice). Answered by registerDeviceResult().
    void registerDevice(const QString& ip, const QString& mac, const QString& deviceId, const QString& deviceName,
                        VdiGrpc::tagDeviceRegisterType registerType);
    /// Reports a connection to the desktop (ClientCore \c ReportSuccess). Answered by
    /// reportStatusOfVMResult().
    void reportStatusOfVM(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid, const QString& vmIp);
    /// Reports a USB device for the desktop (ClientCore \c USBNotify). Answered by
    /// usbNotifyResult().
    void usbNotify(const tagVmNodeInfo& vmNode, const QString& vmId, const QString& vmUuid, const QString& password,
                   const QString& readOnly);
    /// Reports the state of redirected devices (ClientCore \c reportRedirectStatus). No answer.
    void reportRedirectStatus(const QString& vmUuid, QList<tagRedirectStatusInfoReust> redirectList);
    ///@}

    /// \name Passwords and client configuration
    ///@{

    /// Asks whether a newer client than \a clientVersion exists (ClientCore \c Upgrade).
    /// Answered by checkUpgradeResult(); in a gateway deployment nothing is sent and no answer
    /// comes.
    void checkUpgrade(const QString& clientVersion);
    /// Changes the user's password (ClientCore \c ModifyPassword). Answered by
    /// modifyPasswordResult(). The cache stays.
    void modifyPassword(const QString& name, const QString& password, const QString& passwordNew);
    /// Checks a user's password (ClientCore \c CheckPassword) and keeps name and password in the
    /// cached identity. Answered by checkPasswordResult(). With \a webSso nothing is sent and no
    /// answer comes.
    void checkPassword(const QString& name, const QString& password, bool webSso);
    /// Asks for the terminal's authority password (ClientCore \c ClientReleasePassword), with a
    /// fixed deadline of 10 seconds. Answered by requestTerminalAuthorityPasswordResult().
    void requestTerminalAuthorityPassword(const VdiGrpc::tagClientType& clientType);
    /// Asks for the file-sharing server of the user \a userId (ClientCore \c queryNextCloudInfo).
    /// Answered by queryNextCloudInfoResult().
    void queryNextCloudInfo(long long userId);
    /// Asks for the branding of the client (ClientCore \c queryIndividualConfig). Answered twice
    /// by queryIndividualConfigInfoResultForGrpcThread().
    void queryIndividualConfigForVdidesktopGrpcThread();
    /// Asks for the mail server (ClientCore \c ApplyForEmailInfo). Answered by
    /// applyForEmailResult().
    void applyForEmail();
    ///@}

    /// \name Login options
    ///@{

    /// Asks for the login options (ClientCore \c getLoginConfig) with the cached MAC. Answered
    /// by signalQueryLoginConfigResult().
    void queryLoginConfig();
    /// Asks for a QR login code (ClientCore \c getCode). Leaves client type, auth type and
    /// refresh flag "0" in the cache. Answered by signalQueryLoginCodeResult().
    void requestLoginCode(const QString& codeSource, const QString& codeType, const QString& username);
    /// Checks an LDAP password in \a domain (ClientCore \c CheckAndSaveLdapPassword) and keeps
    /// name, password and auth type "3" in the cache. Answered by
    /// signalCheckAndSaveLdapPasswdResult(); on success the facade then logs in at once with the
    /// cached domain, answered by loginResult().
    void checkAndSaveLdapPasswd(const QString& name, const QString& password, const QString& domain);
    ///@}

    /// \name Application catalogues
    /// Share terminals have no method: the application emits queryShareTerminalInfo(),
    /// transferDesktop2ShareTerminal() and loginOakdeskHsareTerminal() with records of its own.
    ///@{

    /// Asks for the remote applications (ClientCore \c GetRemoteAppList). Answered by
    /// signalGrpcThreadGetRemoteAppListResult().
    void grpcThreadGetRemoteAppList();
    /// Asks how to connect to the remote application \a displayName (ClientCore
    /// \c getConnectAppInfo), with the cached domain, and the cached user name unless that is
    /// empty. Answered by signalGrpcThreadApplyRemoteAppResult(). Dropped without an answer
    /// before initConnection().
    void grpcThreadApplyForRemoteApp(QString displayName, const QString& userName);
    /// Asks for the SaaS applications (ClientCore \c querySaasAppList). Answered by
    /// signalGrpcThreadGetSaasAppListResult().
    void grpcThreadGetSaasAppList();
    /// Asks whether the user may open the SaaS application \a app (ClientCore \c querySaasApp).
    /// Answered by signalGrpcThreadSaasAppResult(), whose flag is the permission.
    void grpcThreadQuerySaasApp(tagSaasAppInfo app);
    ///@}

    /// \name One-key help
    ///@{

    /// Reports the user's problem (ClientCore \c onekeyHelp), answered once by
    /// SendUserAskHelpInfoResult(), whose flag says whether the server took the report.
    /// \a getLog 1 or 3 asks for logs, a non-empty \a screenShotUrl says that screenshots exist;
    /// \a ip lists the terminal's addresses, joined by ";". Nothing is taken from the cached
    /// identity. Behind an access gateway the worker then packages the login user's screenshots
    /// and logs into zip files and uploads them (ClientCore \c onekeyHelpUseGateway, a client
    /// stream) before it answers: the worker is busy for as long as that takes, with no
    /// deadline; only stop() cancels it.
    void sendUserAskInfo(const QString& userMac, const QString& realName, const QString& phoneNumber,
                         const QString& email, const QString& problemType, const QString& problemDesc,
                         const int& getLog, const QString& screenShotUrl, const QString& ip, const QString& vmIp);
    ///@}

    /// Cancels the call in flight, cuts every connection of the facade (no signal arrives after
    /// it) and ends the worker's thread, waiting one second at most. Call it from the facade's
    /// thread. A second call does nothing.
    void stop();

    /// Registers the names under which the records travel in queued signals. The constructor
    /// calls it; code that connects to a VdiDesktopGrpcWorker alone calls it itself.
    static void registerMetaTypes();

signals:
    // The plumbing and the application's requests are groups of several blocks each, so that the
    // signals keep their order; Doxygen takes a group's text from its last block.
    /// \name Internal plumbing: signals queued to the worker
    ///@{

    /// Queued to the worker by initConnection().
    void myInitConnection(QString pemFile, QString serverIP, ushort port, bool isEnglish);
    /// Queued to the worker by initDeviceInfo().
    void myInitDeviceInfo(QString serverIP, ushort port);
    /// Queued to the worker by queryDeviceConfigInfo().
    void myQueryDeviceConfigInfo(DeviceConfigInfoReq req);
    /// Queued to the worker by queryServerTypeInfo().
    void myQueryServerTypeInfo();
    /// Queued to the worker by queryGatewayInfo().
    void myQueryGatewayInfo();
    /// Queued to the worker by queryServerIpForVm().
    void signalQueryServerIpForVm();
    /// Queued to the worker by queryControllerTypeForGrpcThread().
    void signalQueryControllerType(QString serverIp);
    /// Queued to the worker by queryControllerListForGrpcThread().
    void signalQueryControllerList(QString serverIp);
    /// Queued to the worker by sendHeart().
    void mySendHeart(HeartbeatRequest heartbeatRequest);
    /// Queued to the worker by startSendHeart().
    void myStartSendHeart();
    /// Queued to the worker by stopSendHeart().
    void myStopSendHeart();
    /// Queued to the worker by the login() variants and loginSMS().
    void myLogin(LoginRequest loginRequest);
    /// Queued to the worker by updateVmInfoFromServer().
    void myUpdateVmInfoFromServer(LoginRequest loginRequest);
    /// Queued to the worker by operateVM().
    void myOperateVM(OperateForVMRequest operateForVMRequest);
    /// Queued to the worker by recoverVM().
    void myRecoverVM(OperateForVMRequest operateForVMRequest);
    /// Queued to the worker by modifyVMName().
    void myModifyVMName(ModifyVMNameRequest modifyVMNameRequest);
    /// Queued to the worker by snapshot().
    void mySnapshot(SnapshotRequest snapshotRequest);
    /// Queued to the worker by applyForVM().
    void myApplyForVM(ApplyForVMRequest applyForVMRequest);
    /// Queued to the worker by applyForVMOfQuery().
    void myApplyForVMOfQuery(OperateForVMRequest operateForVMRequest);
    /// Queued to the worker by applyForDeviceInfo().
    void myApplyForDeviceInfo(ApplyForDeviceInfoRequest applyForDeviceInfoRequest);
    /// Queued to the worker by queryVmInfo().
    void myQueryVmInfo(QueryVmInfoReq req);
    /// Queued to the worker by registerDevice().
    void myRegisterDevice(RegisterDeviceRequest registerDeviceRequest);
    /// Queued to the worker by reportStatusOfVM().
    void myReportStatusOfVM(ReportSuccessRequest reportSuccessRequest);
    /// Queued to the worker by usbNotify().
    void myUsbNotify(USBNotifyRequest usbNotifyRequest);
    /// Queued to the worker by reportRedirectStatus().
    void myReportRedirectStatus(RedirectStatusReust redirectStatusReust);
    /// Queued to the worker by checkUpgrade().
    void myCheckUpgrade(UpgradeRequest upgradeRequest);
    /// Queued to the worker by modifyPassword().
    void myModifyPassword(ModifyPasswordRequest modifyPasswordRequest);
    /// Queued to the worker by checkPassword().
    void myCheckPassword(CheckPasswordRequest checkPasswordRequest);
    /// Queued to the worker by applyForEmail().
    void myApplyForEmail();
    /// Queued to the worker by requestTerminalAuthorityPassword().
    void myRequestTerminalAuthorityPassword(ClientReleasePasswordRequest clientReleasePasswordRequest);
    /// Queued to the worker by queryNextCloudInfo().
    void myQueryNextCloudInfo(NextCloudInfoReq req);
    /// Queued to the worker by queryIndividualConfigForVdidesktopGrpcThread().
    void signalQueryIndividualConfigForGrpcThread(IndividualConfigReq individualConfigReq);
    /// Queued to the worker by queryLoginConfig().
    void signalQueryLoginConfig(const QString& uuid);
    /// Queued to the worker by requestLoginCode().
    void signalRequestLoginCode(const LoginCodeReq& req);
    /// Queued to the worker by checkAndSaveLdapPasswd().
    void signalCheckAndSaveLdapPasswd(const tagCheckPasswordRequest& req);
    ///@}

    /// \name Requests the application emits
    ///@{

    /// Emit it in answer to inputGatewayAuthInfo(): logs in at the access gateway (GatewayCore
    /// \c LoginGateway) with \a userName and \a password, saves the token and the credentials
    /// for later sessions, then sends the parked login; loginResult() answers. Empty
    /// credentials or a refusal answer loginResult() with \c false.
    void loginGateway(QString userName, QString password);
    /// Emit it to ask for the user's quantum configuration; no answer comes.
    void quantumConfigReq(QString username);
    /// Emit it to bind the user to a quantum key (ClientCore \c confirmQuantumBind). Answered by
    /// onUserQuantumBindResp().
    void userQuantumBindReq(QString username, QString userId, QString spmId);
    ///@}

    /// \name Internal plumbing: signals queued to the worker
    ///@{

    /// Queued to the worker by grpcThreadGetRemoteAppList().
    void signalGrpcThreadGetRemoteAppList(LoginRequest loginRequest);
    /// Queued to the worker by grpcThreadApplyForRemoteApp().
    void signalGrpcThreadApplyRemoteApp(RemoteAppApplyReq applyReq);
    /// Queued to the worker by grpcThreadGetSaasAppList().
    void signalGrpcThreadGetSaasAppList(SaasListReq req);
    /// Queued to the worker by grpcThreadQuerySaasApp().
    void signalGrpcThreadQuerySaasApp(SaasAppReq req);
    ///@}

    /// \name Requests the application emits
    /// The application emits these itself, with arguments or records of its own, and Qt queues
    /// them to the worker; their answers come as result signals.
    ///@{

    /// Emit it with a record of your own to list the share terminals (ClientCore
    /// \c queryShareTerminalInfo). Answered by queryShareTerminalInfoResult().
    void queryShareTerminalInfo(ShareTerminalInfoRequest shareTerminalInfoRequest);
    /// Emit it with a record of your own to hand a desktop to a share terminal (ClientCore
    /// \c transferDesktopToShareTerminal). The vdp file is sent up to its first zero byte.
    /// Answered by transferDesktop2ShareTerminalResult().
    void transferDesktop2ShareTerminal(TransDesk2ShareTerminalRequest transDesk2ShareTerminalRequest);
    /// Emit it with a record of your own to log a user in on a share terminal (ClientCore
    /// \c LoginOakdeskOnShareTerminal). Answered by loginOakdeskShareTerminalResult().
    void loginOakdeskHsareTerminal(LoginOakdeskShareTerminalRequest loginOakdeskShareTerminalRequest);
    ///@}

    /// \name Internal plumbing: signals queued to the worker
    ///@{

    /// Queued to the worker by sendUserAskInfo().
    void mySendUserAskHelpInfo(OneKeyHelpInfoRequest oneKeyHelpInfoRequest);
    ///@}

    /// \name Results
    /// Emitted on the facade's thread. Unless noted, \a status is \c true when the call
    /// succeeded and the server's error code is 0; the record's \c error tells why not.
    ///@{

    /// Answer to initDeviceInfo(): the local address and MAC that reach the server; \a status
    /// is \c false (and both empty) when none was found.
    void deviceNetworkInfo(QString activeDeviceIP, QString activeDeviceMAC, bool status);
    /// Answer to queryDeviceConfigInfo().
    void queryDeviceConfigInfoResult(DeviceConfigInfoResp reply, bool status);
    /// Answer to queryServerTypeInfo(): \c serverType 1 for a gateway deployment, 0 without.
    /// Read \a status, not \c errorCode: a success leaves the error record at its defaults.
    void queryServerTypeInfoResult(ServerTypeInfoResp reply, bool status);
    /// Answer to queryGatewayInfo(): the access gateways.
    void queryGatewayInfoResult(GatewayInfoResp reply, bool status);
    /// Answer to queryControllerTypeForGrpcThread(), with its \a serverIp.
    void queryControllerTypeResultForGrpcThread(QueryControllerTypeResp reply, bool status, QString serverIp);
    /// Answer to queryControllerListForGrpcThread(), with its \a serverIp.
    void queryControllerListResultForGrpcThread(QureyControllerListResp reply, bool status, QString serverIp);
    /// Answer to queryServerIpForVm().
    void signalQueryServerIpResult(VmControllerIpResp controllerIpRsp, bool status);
    /// Answer to every heartbeat. \a status is also \c true when the server is out of reach
    /// (\c errorCode 14) or slow (4): a lost server is no failed heartbeat; the code tells.
    void recvHeartbeatResultVDT(HeartbeatReply heartbeatReply, bool status);
    /// Answer to a login: the user's identity, pools and desktops.
    void loginResult(LoginReply reply, bool status);
    /// Answer to updateVmInfoFromServer(): the fresh desktop list.
    void updateVmInfoFromServerResult(LoginReply reply, bool status);
    /// A login behind an access gateway needs the gateway's credentials: ask the user, then emit
    /// loginGateway().
    void inputGatewayAuthInfo();
    /// Answer to operateVM(): the desktop's state and host. For a disconnect (op type 4),
    /// \a status is \c true whenever the server answered; read the record's error.
    void operateVMResult(OperateForVMReply reply, bool status);
    /// Answer to recoverVM().
    void recoverVMResult(RecoverVMReply reply, bool status);
    /// Answer to snapshot(), with its \a operType; the reply lists the snapshots.
    void snapshotResult(SnapshotReply reply, bool status, int operType);
    /// Answer to modifyVMName().
    void modifyVMNameResult(ModifyVMNameReply reply, bool status);
    /// After a successful snapshot list: the number of snapshots (\a cnt), following
    /// snapshotResult().
    void snapshotQueryResult(int cnt);
    /// Answer to applyForVM(): the desktop and its connection data. \c true with \c errorCode 4
    /// means "still being prepared, ask again".
    void applyForVMResult(ApplyForVMReply reply, bool status);
    /// Answer to applyForVMOfQuery(). \c true with \c errorCode -1 means "ask again".
    void applyForVMOfQueryResult(OperateForVMReply reply, bool status);
    /// Answer to applyForDeviceInfo().
    void applyForDeviceInfoResult(ApplyForDeviceInfoReply reply, bool status);
    /// Answer to queryVmInfo().
    void queryVmInfoResult(QueryVmInfoResp reply, bool status);
    /// Answer to registerDevice().
    void registerDeviceResult(RegisterDeviceReply reply, bool status);
    /// Answer to reportStatusOfVM().
    void reportStatusOfVMResult(ReportSuccessReply reply, bool status);
    /// Answer to usbNotify().
    void usbNotifyResult(USBNotifyReply reply, bool status);
    /// Answer to checkUpgrade().
    void checkUpgradeResult(UpgradeReply reply, bool status);
    /// Answer to modifyPassword().
    void modifyPasswordResult(ModifyPasswordReply reply, bool status);
    /// Answer to checkPassword().
    void checkPasswordResult(CheckPasswordReply reply, bool status);
    /// Answer to requestTerminalAuthorityPassword().
    void requestTerminalAuthorityPasswordResult(ClientReleasePasswordReply reply, bool status);
    /// Answer to applyForEmail().
    void applyForEmailResult(ApplyForEmailReply reply, bool status);
    /// Answer to queryNextCloudInfo(). A server address of "127.0.0.1" arrives as the address
    /// this client connected to.
    void queryNextCloudInfoResult(NextCloudInfoResp reply, bool status);
    /// Answer to queryIndividualConfigForVdidesktopGrpcThread(); arrives twice with the same
    /// record.
    void queryIndividualConfigInfoResultForGrpcThread(IndividualConfigResp reply, bool status);
    /// Answer to queryLoginConfig(): which kinds of login the server offers.
    void signalQueryLoginConfigResult(const LoginConfigResp& resp, bool status);
    /// Answer to requestLoginCode(): the QR code's ticket and address.
    void signalQueryLoginCodeResult(const LoginCodeResp& resp, bool status);
    /// Answer to checkAndSaveLdapPasswd(); on success a login follows.
    void signalCheckAndSaveLdapPasswdResult(const tagCheckPasswordResp& resp, bool status);
    /// For the application's quantum configuration; the library never emits it.
    void onQuantumConfigResp(bool ack, const QuantumConfigReply& reply);
    /// Answer to userQuantumBindReq(); \a ack is the flag.
    void onUserQuantumBindResp(bool ack, const UserQuantumBindReply& reply);
    /// Answer to grpcThreadGetRemoteAppList().
    void signalGrpcThreadGetRemoteAppListResult(RemoteAppListResp remoteAppListResp, bool status);
    /// Answer to grpcThreadApplyForRemoteApp(): the application's address and control policy.
    void signalGrpcThreadApplyRemoteAppResult(RemoteAppApplyResp remoteAppApplyResp, bool bRet);
    /// Answer to grpcThreadGetSaasAppList().
    void signalGrpcThreadGetSaasAppListResult(SaasAppListResp saasAppListResp, bool status);
    /// Answer to grpcThreadQuerySaasApp(): \a status is the permission; the reply names the
    /// application asked for.
    void signalGrpcThreadSaasAppResult(SaasAppResp resp, bool status);
    /// Answer to queryShareTerminalInfo(). An empty list is \c false, with a text saying that no
    /// share terminal is available.
    void queryShareTerminalInfoResult(ShareTerminalInfoReply reply, bool status);
    /// Answer to transferDesktop2ShareTerminal().
    void transferDesktop2ShareTerminalResult(TransDesk2ShareTerminalReply reply, bool status);
    /// Answer to loginOakdeskHsareTerminal().
    void loginOakdeskShareTerminalResult(LoginOakdeskShareTerminalReply reply, bool status);
    /// Answer to sendUserAskInfo(), after the upload where there is one: the report's task id;
    /// \a status says whether the server took the report.
    void SendUserAskHelpInfoResult(OneKeyHelpInfoReply reply, bool status);
    ///@}

    /// \name Other signals
    ///@{

    /// Emitted by a login whose cached identity lacks the device id or the local address, just
    /// before the request is made: a slot connected directly may refill the identity (the
    /// accessors above), and the login then carries it.
    void getSessionInfo();
    /// For the application's own use; the library never emits it.
    void saveCurrentVmUuidVDT(QString uuid);
    ///@}

public slots:
    /// \name Internal plumbing: signals queued to the worker
    /// The request methods emit these signals and Qt queues them to the worker, one per
    /// request; onCheckAndSaveLdapPasswdResult() takes the worker's answer to the LDAP check.
    /// They are not meant for the application, which may connect to the signals to watch the
    /// requests go out.
    ///@{

    /// The worker's answer to checkAndSaveLdapPasswd(): passed on as
    /// signalCheckAndSaveLdapPasswdResult(), and on success followed by a login.
    void onCheckAndSaveLdapPasswdResult(const CheckPasswordReply& resp, bool ok);
    ///@}

private:
    void doLogin();
    void cacheDesktop(qint64 vmId, const QString& vmUuid);

    // Guarded: the worker deletes itself when its thread ends, so after stop() this is null and
    // a second stop() or a late initServerType() does nothing.
    QPointer<VdiDesktopGrpcWorker> m_worker;
    bool m_strictRedaction = false;
    tagBaseInfo m_baseInfo;
    QThread m_thread;
    tagExtendInfo m_extendInfo;

    friend class VdiThreadProbe;  // white-box access for the test suite
};
