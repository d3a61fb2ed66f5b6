/// \file
/// Records of the application catalogues (remote applications, SaaS applications) and of the
/// share terminals.
#pragma once

#include <QByteArray>
#include <QList>
#include <QMetaType>
#include <QString>

#include "vdigrpcrecords.h"

// ---- Remote applications -------------------------------------------------------------------

/// One remote application of the list (\c RemoteAppInfo; its \c type is not read).
struct tagRemoteAppInfo {
    QString iconUrl;      ///< \c iconUrl.
    QString displayName;  ///< \c displayName.
};

/// Answer of grpcThreadGetRemoteAppList() (\c GetRemoteAppList, asked with a tagLoginRequest).
struct tagRemoteAppListResp {
    QList<tagRemoteAppInfo> appList;  ///< The applications (\c app_list), in the server's order.
    tagErrorData error;               ///< The server's error block, or the failed call's status.
};

/// Request of grpcThreadApplyForRemoteApp() (\c getConnectAppInfo), filled by the facade.
struct tagRemoteAppApplyReq {
    QString userName;     ///< The cached user name, or the argument when that is empty (\c userName).
    QString displayName;  ///< The application's name (\c displayName).
    QString domain;       ///< The cached domain (\c domain).
};

/// Answer of grpcThreadApplyForRemoteApp(): how to connect to the application. A failed request
/// hands on the policy's defaults, watermark included.
struct tagRemoteAppApplyResp {
    QString appId;        ///< \c appId.
    QString fullAddress;  ///< \c fullAddress.
    QString iconUrl;      ///< \c iconUrl.
    QString displayName;  ///< \c displayName.
    QString alias;        ///< \c alias.

    /// \c control_policy; its reconnectionNetworkTime is never read from the wire here and stays 0.
    tagControlPolicy controlPolicy;
    tagErrorData error;   ///< The server's error block, or the failed call's status.
};

// ---- SaaS applications ---------------------------------------------------------------------

/// One SaaS application (\c SaasAppInfo): an entry of the list, or the application asked about.
struct tagSaasAppInfo {
    QString iconUrl;      ///< \c iconUrl.
    QString appName;      ///< \c appName.
    QString appAddress;   ///< \c appAddress.
    QString description;  ///< \c description, from the list; never sent.
    QString ssoProtocol;  ///< \c ssoProtocol.
};

/// Answer of grpcThreadGetSaasAppList().
struct tagSaasAppListResp {
    QList<tagSaasAppInfo> appList;  ///< The applications (\c app_list), in the server's order.
    tagErrorData error;             ///< The server's error block, or the failed call's status.
};

/// Request of grpcThreadGetSaasAppList() (\c querySaasAppList): the identity alone.
struct tagSaasListReq {
    tagBaseInfo baseInfo;  ///< The cached identity, sent as the whole request.
};

/// Request of grpcThreadQuerySaasApp() (\c querySaasApp).
struct tagSaasAppReq {
    tagBaseInfo baseInfo;    ///< The cached identity (\c clientBaseInfo).
    tagSaasAppInfo appInfo;  ///< The application given (\c saasAppInfo), without its description.
};

/// Answer of grpcThreadQuerySaasApp(). The answer's flag is the permission.
struct tagSaasAppResp {
    tagSaasAppInfo appInfo;  ///< The application asked about, copied from the request into every answer.
    tagErrorData error;      ///< The server's error block, or the failed call's status.
};

// ---- Share terminals -----------------------------------------------------------------------

/// Request of queryShareTerminalInfo() (\c queryShareTerminalInfo); the application fills it.
struct tagShareTerminalInfoRequest {
    QString deviceId;  ///< \c device_id.
};

/// Request of transferDesktop2ShareTerminal() (\c transferDesktopToShareTerminal); the
/// application fills it.
struct tagTransDesk2ShareTerminalRequest {
    QString deviceId;        ///< \c device_id.
    QString vmUuid;          ///< The desktop's UUID (\c vm_uuid).
    QString dstDeviceId;     ///< The share terminal's device id (\c dst_device_id).
    QByteArray vdpFileData;  ///< The vdp file (\c vdp_file_data); it goes out up to its first zero byte.
};

/// Request of loginOakdeskHsareTerminal() (\c LoginOakdeskOnShareTerminal); the application
/// fills it.
struct tagLoginOakdeskShareTerminalRequest {
    QString deviceId;  ///< \c device_id.
    QString userName;  ///< \c userName.
    QString password;  ///< \c password, in the clear.
};

/// One share terminal (\c ShareTerminalInfo).
struct tagShareTerminalInfo {
    QString deviceId;           ///< \c device_id.
    QString terminalShareName;  ///< \c terminal_share_name.
};

/// Answer of queryShareTerminalInfo(). An empty list is a failure, whatever the server's error
/// code says.
struct tagShareTerminalInfoReply {
    QList<tagShareTerminalInfo> terminalList;  ///< The share terminals (\c terminal_list).

    /// The server's error block, or the failed call's status. An empty list leaves the server's
    /// code and puts "无可用共享终端" (no share terminal available) in errorMsgZh.
    tagErrorData error;
};

/// Answer of transferDesktop2ShareTerminal(); the server's reply is an error block alone.
struct tagTransDesk2ShareTerminalReply {
    tagErrorData error;  ///< The server's reply, or the failed call's status.
};

/// Answer of loginOakdeskHsareTerminal(); the server's reply is an error block alone.
struct tagLoginOakdeskShareTerminalReply {
    tagErrorData error;  ///< The server's reply, or the failed call's status.
};

Q_DECLARE_METATYPE(tagRemoteAppInfo)
Q_DECLARE_METATYPE(tagRemoteAppListResp)
Q_DECLARE_METATYPE(tagRemoteAppApplyReq)
Q_DECLARE_METATYPE(tagRemoteAppApplyResp)
Q_DECLARE_METATYPE(tagSaasAppInfo)
Q_DECLARE_METATYPE(tagSaasAppListResp)
Q_DECLARE_METATYPE(tagSaasListReq)
Q_DECLARE_METATYPE(tagSaasAppReq)
Q_DECLARE_METATYPE(tagSaasAppResp)
Q_DECLARE_METATYPE(tagShareTerminalInfoRequest)
Q_DECLARE_METATYPE(tagTransDesk2ShareTerminalRequest)
Q_DECLARE_METATYPE(tagLoginOakdeskShareTerminalRequest)
Q_DECLARE_METATYPE(tagShareTerminalInfo)
Q_DECLARE_METATYPE(tagShareTerminalInfoReply)
Q_DECLARE_METATYPE(tagTransDesk2ShareTerminalReply)
Q_DECLARE_METATYPE(tagLoginOakdeskShareTerminalReply)

/// \name Names of the records in signal signatures
/// Queued connections look the records up by these names (VdiDesktopGrpcThread::registerMetaTypes()).
///@{
typedef tagRemoteAppListResp RemoteAppListResp;  ///< Signal name of the record.
typedef tagRemoteAppApplyReq RemoteAppApplyReq;  ///< Signal name of the record.
typedef tagRemoteAppApplyResp RemoteAppApplyResp;  ///< Signal name of the record.
typedef tagSaasAppListResp SaasAppListResp;  ///< Signal name of the record.
typedef tagSaasListReq SaasListReq;  ///< Signal name of the record.
typedef tagSaasAppReq SaasAppReq;  ///< Signal name of the record.
typedef tagSaasAppResp SaasAppResp;  ///< Signal name of the record.
typedef tagShareTerminalInfoRequest ShareTerminalInfoRequest;  ///< Signal name of the record.
typedef tagTransDesk2ShareTerminalRequest TransDesk2ShareTerminalRequest;  ///< Signal name of the record.
typedef tagLoginOakdeskShareTerminalRequest LoginOakdeskShareTerminalRequest;  ///< Signal name of the record.
typedef tagShareTerminalInfoReply ShareTerminalInfoReply;  ///< Signal name of the record.
typedef tagTransDesk2ShareTerminalReply TransDesk2ShareTerminalReply;  ///< Signal name of the record.
typedef tagLoginOakdeskShareTerminalReply LoginOakdeskShareTerminalReply;  ///< Signal name of the record.
///@}
