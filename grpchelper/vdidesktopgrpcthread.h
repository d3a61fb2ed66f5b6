// The library's public face. An application creates one VdiDesktopGrpcThread on a thread that
// runs a Qt event loop, calls its request methods and receives every answer as a signal with a
// plain record and a success flag. The work is done by a VdiDesktopGrpcWorker on a thread of
// its own; no request method blocks.
#pragma once

#include "vdidesktopgrpc_export.h"

#include <QObject>
#include <QString>
#include <QThread>

#include "vdigrpcrecords.h"
#include "vdigrpcrecords_desktop.h"
#include "vdigrpcrecords_discovery.h"

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

    // Cancels the call in flight, cuts every connection of the facade and ends the worker's
    // thread, waiting one second at most. Call it once, before destruction.
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
    // Emitted by the application, in answer to inputGatewayAuthInfo.
    void loginGateway(QString userName, QString password);

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

    // For the application; no code of the library emits the second.
    void getSessionInfo();
    void saveCurrentVmUuidVDT(QString uuid);

private:
    void doLogin();

    VdiDesktopGrpcWorker* m_worker;
    tagBaseInfo m_baseInfo;
    QThread m_thread;
    tagExtendInfo m_extendInfo;

    friend class VdiThreadProbe;  // white-box access for the test suite
};
