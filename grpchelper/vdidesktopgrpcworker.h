// The one object of the library that talks to the network. It lives on the facade's worker
// thread; every slot runs there, one at a time, and makes blocking gRPC calls over TLS.
#pragma once

#include "vdidesktopgrpc_export.h"

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include <QObject>
#include <QSettings>
#include <QString>
#include <QStringList>

#include <grpcpp/grpcpp.h>

#include "vdigrpcrecords.h"
#include "vdigrpcrecords_account.h"
#include "vdigrpcrecords_applications.h"
#include "vdigrpcrecords_help.h"
#include "vdigrpcrecords_discovery.h"
#include "vdigrpcrecords_heartbeat.h"
#include "vdigrpcrecords_login.h"
#include "vdigrpcrecords_operations.h"

#include "client/client_core.grpc.pb.h"
#include "common/common_core.grpc.pb.h"
#include "gateway/gateway_core.grpc.pb.h"

struct RpcShape;
enum class CallOutcome;
template <class Record>
struct RpcHooks;
template <class Reply, class Record>
struct RpcResult;
template <class Reply>
struct StreamResult;

class VDIDESKTOPGRPC_EXPORT VdiDesktopGrpcWorker : public QObject
{
    Q_OBJECT
public:
    explicit VdiDesktopGrpcWorker(QObject* parent = nullptr);
    ~VdiDesktopGrpcWorker() override;

    // Called directly from the caller's thread: atomic stores, read at the next call.
    void initServerType(int serverType);
    void setTimeout(int seconds);
    // Off (the default): request texts lose the fixed span behind "password" and replies are
    // logged as they stand. On: every logged request and reply has the text of each field named
    // like a secret masked, whatever its length and depth (maskedDebugString).
    void setStrictRedaction(bool on);
    bool strictRedaction() const { return m_strictRedaction; }

    // Called directly from the caller's thread while a call may be in flight: drops every
    // connection of the worker's signals and cancels the call in flight.
    void stop();

    // Fills deadline and metadata of a new call context.
    void buildClientContext(grpc::ClientContext* context);
    // Blocking 200 ms TCP probe of the connected host and port.
    bool tryConnetRemoteHost();

    // Gateway settings file.
    void getGatewayAuthInfo(QString& user, QString& password);
    QString getGatewayToken() const;
    void saveGatewayInfo();
    QString getGatewaySettingsFilePath() const;

    // Passwords are cut out of request texts before they reach the log.
    void printInfoWithoutKeyList(QString& text);
    QString debugInfoWithoutKeyList(QString text);
    void printInfoWithoutKeyValue(QString& text, QString& key);
    // The message's debug text with the value of every text field whose name contains
    // "password", "passwd", "pwd", "token" or "secret" (any case) replaced by kSecretMask,
    // in nested messages and list entries too. Numbers and flags stay: none of them is a secret.
    static QString maskedDebugString(const google::protobuf::Message& message);
    static const char* const kSecretMask;

signals:
    void signalGrpcErrorUnavailable();

    // Server discovery.
    void deviceNetworkInfo(QString activeDeviceIP, QString activeDeviceMAC, bool status);
    void queryDeviceConfigInfoResult(DeviceConfigInfoResp reply, bool status);
    void queryServerTypeInfoResult(ServerTypeInfoResp reply, bool status);
    void queryGatewayInfoResult(GatewayInfoResp reply, bool status);
    void queryControllerTypeResultForGrpcWorker(QueryControllerTypeResp reply, bool status, QString serverIp);
    void queryControllerListResultForGrpcWorker(QureyControllerListResp reply, bool status, QString serverIp);
    void queryServerIpResult(VmControllerIpResp controllerIpRsp, bool status);

    // Heartbeat.
    void sendHeartResult(HeartbeatReply heartbeatReply, bool status);

    // Login, and the gateway's request for credentials.
    void loginResult(LoginReply reply, bool status);
    void updateVmInfoFromServerResult(LoginReply reply, bool status);
    void inputGatewayAuthInfo();

    // VM operations.
    void operateVMResult(OperateForVMReply reply, bool status);
    void recoverVMResult(RecoverVMReply reply, bool status);
    void snapshotResult(SnapshotReply reply, bool status, int operType);
    void snapshotQueryResult(int cnt);
    void modifyVMNameResult(ModifyVMNameReply reply, bool status);

    // Desktop assignment.
    void applyForVMResult(ApplyForVMReply reply, bool status);
    void applyForVMOfQueryResult(OperateForVMReply reply, bool status);
    void applyForDeviceInfoResult(ApplyForDeviceInfoReply reply, bool status);
    void queryVmInfoResult(QueryVmInfoResp reply, bool status);

    // Device and status reports; the last one is passed on to no one.
    void registerDeviceResult(RegisterDeviceReply reply, bool status);
    void reportStatusOfVMResult(ReportSuccessReply reply, bool status);
    void usbNotifyResult(USBNotifyReply reply, bool status);
    void reportRedirectStatusResult(VoidReply reply, bool status);

    // Passwords and client configuration. The facade passes the individual configuration on
    // twice.
    void checkPasswordResult(CheckPasswordReply reply, bool status);
    void modifyPasswordResult(ModifyPasswordReply reply, bool status);
    void requestTerminalAuthorityPasswordResult(ClientReleasePasswordReply reply, bool status);
    void checkUpgradeResult(UpgradeReply reply, bool status);
    void queryNextCloudInfoResult(NextCloudInfoResp reply, bool status);
    void queryIndividualConfigInfoResultForGrpcWorker(IndividualConfigResp reply, bool status);
    void applyForEmailResult(ApplyForEmailReply reply, bool status);

    // Login options. Nothing emits onQuantumConfigResp: this client has no quantum feature.
    void queryLoginConfigResult(LoginConfigResp resp, bool status);
    void queryLoginCodeResult(LoginCodeResp resp, bool status);
    void checkAndSaveLdapPasswdResult(CheckPasswordReply reply, bool status);
    void onQuantumConfigResp(bool ack, QuantumConfigReply reply);
    void onUserQuantumBindResp(bool ack, UserQuantumBindReply reply);

    // Application catalogues; the SaaS answer's flag is the permission.
    void signalGrpcWorkerGetRemoteAppListResult(RemoteAppListResp remoteAppListResp, bool status);
    void signalGrpcWorkerApplyRemoteAppResult(RemoteAppApplyResp remoteAppApplyResp, bool bRet);
    void signalGrpcWorkerGetSaasAppListResult(SaasAppListResp saasAppListResp, bool status);
    void signalGrpcWorkerSaasAppPermissionResult(SaasAppResp resp, bool status);

    // Share terminals.
    void queryShareTerminalInfoResult(ShareTerminalInfoReply reply, bool status);
    void transferDesktop2ShareTerminalResult(TransDesk2ShareTerminalReply reply, bool status);
    void loginOakdeskShareTerminalResult(LoginOakdeskShareTerminalReply reply, bool status);

    // One-key help: once per request, after every upload.
    void sendUserAskHelpInfoResult(OneKeyHelpInfoReply reply, bool status);

public slots:
    void initConnection(QString pemFile, QString serverIP, ushort port, bool isEnglish);
    void initGateway();
    void slotGrpcErrorUnavailable();

    // Server discovery.
    void initDeviceInfo(QString serverIP, ushort port);
    void queryDeviceConfigInfo(const tagDeviceConfigInfoReq& req);
    void queryServerTypeInfo();
    void queryGatewayInfo();
    void onQueryControllerType(QString serverIp);
    void onQueryControllerList(QString serverIp);
    void slotQueryServerIpForVm();

    // Heartbeat.
    void sendHeart(const tagHeartbeatRequest& request);
    void startSendHeart();
    void stopSendHeart();
    void mySendHeart();

    // Login, direct or through the access gateway.
    void login(const tagLoginRequest& request);
    void updateVmInfoFromServer(const tagLoginRequest& request);
    void loginGateway(const QString& user, const QString& password);

    // VM operations.
    void operateVM(const tagOperateForVMRequest& request);
    void recoverVM(const tagOperateForVMRequest& request);
    void snapshot(const tagSnapshotRequest& request);
    void modifyVMName(const tagModifyVMNameRequest& request);

    // Desktop assignment.
    void applyForVM(const tagApplyForVMRequest& request);
    void applyForVMOfQuery(const tagOperateForVMRequest& request);
    void applyForDeviceInfo(const tagApplyForDeviceInfoRequest& request);
    void queryVmInfo(const tagQueryVmInfoReq& request);

    // Device and status reports.
    void registerDevice(const tagRegisterDeviceRequest& request);
    void reportStatusOfVM(const tagReportSuccessRequest& request);
    void usbNotify(const tagUSBNotifyRequest& request);
    void reportRedirectStatus(const tagRedirectStatusReust& request);

    // Passwords and client configuration.
    void checkPassword(const tagCheckPasswordRequest& request);
    void modifyPassword(const tagModifyPasswordRequest& request);
    void requestTerminalAuthorityPassword(const tagClientReleasePasswordRequest& request);
    void checkUpgrade(const tagUpgradeRequest& request);
    void queryNextCloudInfo(const tagNextCloudInfoReq& request);
    void slotQueryIndividualConfigForGrpcWorker(tagIndividualConfigReq request);
    void applyForEmail();

    // Login options.
    void handleQueryLoginConfig(const QString& uuid);
    void handleRequestLoginCode(const LoginCodeReq& request);
    void handleCheckAndSaveLdapPasswd(const tagCheckPasswordRequest& request);
    void quantumConfigReq(const QString& userName);
    void userQuantumBindReq(const QString& userName, const QString& userId, const QString& spmId);

    // Application catalogues.
    void slotGrpcWorkerGetRemoteAppList(tagLoginRequest request);
    void slotGrpcWorkerApplyRemoteApp(tagRemoteAppApplyReq request);
    void slotGrpcWorkerGetSaasAppList(const tagSaasListReq& request);
    void slotGrpcWorkerQuerySaasApp(const tagSaasAppReq& request);

    // Share terminals.
    void queryShareTerminalInfo(const tagShareTerminalInfoRequest& request);
    void transferDesktop2ShareTerminal(const tagTransDesk2ShareTerminalRequest& request);
    void loginOakdeskHsareTerminal(const tagLoginOakdeskShareTerminalRequest& request);

    // One-key help: the report, and in a gateway deployment the upload of screenshots and logs.
    // Blocks the worker until every upload is over.
    void sendUserAskHelpInfo(const tagOneKeyHelpInfoRequest& request);

public:
    // Diagnostics packaging for the help upload, in the Downloads folder of the terminal's
    // login user (m_currentActiveUser). The packaging functions turn the bare zip name into
    // its absolute path.
    void setCurrentActiveUser(QString& user);
    bool compressAndPackageImage(QString& fileName);
    bool compressAndPackageLogs(QString& fileName);
    QString getOakdeskExternalVersion();

protected:
    void timerEvent(QTimerEvent* event) override;

private:
    // Turns a failed status into an error record and rebuilds every channel, unless stopping.
    void statusCodeToErrorData(const grpc::Status& status, tagErrorData& errorData);

    // The handler frame (vdidesktopgrpcworker_frame.h).
    template <class Result, class Record>
    CallOutcome enterHandler(const RpcShape& shape, bool hasStub, const RpcHooks<Record>& hooks, Result& out);
    template <class Stub, class Request, class Reply, class Record, class Fill, class Convert>
    CallOutcome unaryCall(const RpcShape& shape, const std::shared_ptr<Stub>& stubMember,
                          grpc::Status (Stub::*rpc)(grpc::ClientContext*, const Request&, Reply*), Fill fill,
                          Convert convert, RpcResult<Reply, Record>& out,
                          const RpcHooks<Record>& hooks = RpcHooks<Record>());
    template <class Stub, class Request, class Reply, class Write>
    CallOutcome streamCall(const RpcShape& shape, const std::shared_ptr<Stub>& stubMember,
                           std::unique_ptr<grpc::ClientWriter<Request>> (Stub::*rpc)(grpc::ClientContext*, Reply*),
                           Write write, StreamResult<Reply>& out);
    bool interruptionRequested(const char* function) const;
    void prepareContext(const RpcShape& shape, grpc::ClientContext& context);
    // Makes the context of the call in flight visible to stop(); cancels it at once when a stop
    // has been requested since the handler's entry.
    void publishContext(const std::shared_ptr<grpc::ClientContext>& context);
    template <class Request>
    void logRequest(const RpcShape& shape, const Request& request);
    template <class Request>
    QString requestLogText(const RpcShape& shape, const Request& request);
    template <class Reply>
    void logReply(const RpcShape& shape, const Reply& reply);
    template <class Reply, class Record>
    bool serverTimeoutInReach(const RpcResult<Reply, Record>& call);
    struct HelpPackage;
    static const HelpPackage& imageHelpPackage();
    static const HelpPackage& logHelpPackage();
    // The address of the help report: the first of the list, or in a direct deployment the
    // first from which the server answers (else the last). Presets the error text when the
    // list is empty.
    QString chooseHelpAddress(const QString& addresses, tagErrorData& error);
    bool reachesServerFrom(const QString& address);
    void uploadHelpPackage(const HelpPackage& kind, qint64 taskId);
    void handDownloadsToUser();
    // False, with a line of the caller's, when the login user has no home folder; else the
    // Downloads folder exists and belongs to the user.
    bool prepareDownloads(const char* function);
    using FileTest = std::function<bool(const QString&)>;
    static void dropUnreadableFiles(QStringList& files, const FileTest& exists, const FileTest& readable);
    QString userPath(const char* pattern) const;

    // The overrun rule of the desktop assignment; true when the handler answers true now.
    bool answerApplyOverrun(const char* function, const char* line, const QString& vmUuid);

    void loginInternal(const tagLoginRequest& request);
    // True when the gateway wants this terminal to authenticate.
    bool checkAuthStatus();

    // The token of the settings file, for the calls that refill an empty token: read again only
    // when the file is not the one read last time (path, inode, size and change times).
    QString gatewayTokenFromFile();
    // False while this session's last save failed or the settings file cannot be read.
    bool gatewayInfoReadable();
    QSettings::Status writeGatewayInfo(const QString& path);

    void startHeartTimer();
    void stopHeartTimer();

    // One channel of its own for each stub, all to m_target with the same credentials.
    template <class Service>
    bool rebuildStub(std::shared_ptr<typename Service::Stub>& slot, const char* caller,
                     const char* readyText, const char* failureText);

    int m_heartInterval = 300000;
    int m_heartTimerId = -1;
    tagHeartbeatRequest m_heartbeatRequest;
    QString m_host;
    QString m_pemFile;
    ushort m_port = 0;
    std::atomic<int> m_serverType{0};      // also written from the caller's thread
    std::atomic<int> m_timeoutSeconds{30}; // also written from the caller's thread
    std::atomic<bool> m_strictRedaction{false};  // also written from the caller's thread
    std::shared_ptr<client::ClientCore::Stub> stub;
    std::shared_ptr<gateway::GatewayCore::Stub> stubGateway;
    std::shared_ptr<common::CommonCore::Stub> stubCommon;
    std::string m_gatewayToken;
    QString m_gatewayUser;
    QString m_gatewayPasswd;
    tagLoginRequest m_loginRequest;
    QString m_currentActiveUser;
    std::shared_ptr<client::ClientCore::Stub> stubUpload;
    int m_applyRetryCount = 0;
    grpc::SslCredentialsOptions m_sslOptions;
    grpc::ChannelArguments m_channelArgs;
    QString m_target;
    QString m_language = QStringLiteral("zn");
    int m_serverTypeRetryDelay = 1;
    int m_deviceConfigRetryDelay = 1;
    std::weak_ptr<grpc::ClientContext> m_currentContext;  // guarded by m_contextMutex
    bool m_isEnglish = false;
    // stop() reads m_currentContext on the caller's thread while a handler assigns it.
    std::mutex m_contextMutex;
    // What gatewayTokenFromFile() read last, and from which file.
    QString m_fileTokenPath;
    std::array<qint64, 6> m_fileTokenStamp{};
    QString m_fileToken;
    bool m_fileTokenRead = false;
    bool m_gatewayInfoUnsaved = false;  // the last save of the settings file failed

    friend class VdiWorkerProbe;  // white-box access for the test suite
};
