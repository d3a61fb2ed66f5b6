// Records of the application catalogues (remote applications, SaaS applications) and of the
// share terminals.
#pragma once

#include <QByteArray>
#include <QList>
#include <QMetaType>
#include <QString>

#include "vdigrpcrecords.h"

// ---- Remote applications -------------------------------------------------------------------

struct tagRemoteAppInfo {
    QString iconUrl;
    QString displayName;
};

struct tagRemoteAppListResp {
    QList<tagRemoteAppInfo> appList;
    tagErrorData error;
};

struct tagRemoteAppApplyReq {
    QString userName;
    QString displayName;
    QString domain;
};

// A failed request hands on the policy's defaults, watermark included. The policy's
// reconnectionNetworkTime is never read from the wire here and stays 0.
struct tagRemoteAppApplyResp {
    QString appId;
    QString fullAddress;
    QString iconUrl;
    QString displayName;
    QString alias;
    tagControlPolicy controlPolicy;
    tagErrorData error;
};

// ---- SaaS applications ---------------------------------------------------------------------

struct tagSaasAppInfo {
    QString iconUrl;
    QString appName;
    QString appAddress;
    QString description;  // never sent: the server knows an application without it
    QString ssoProtocol;
};

struct tagSaasAppListResp {
    QList<tagSaasAppInfo> appList;
    tagErrorData error;
};

struct tagSaasListReq {
    tagBaseInfo baseInfo;
};

struct tagSaasAppReq {
    tagBaseInfo baseInfo;
    tagSaasAppInfo appInfo;
};

// The answer's flag is the permission; appInfo names the application asked about, on every
// answer.
struct tagSaasAppResp {
    tagSaasAppInfo appInfo;
    tagErrorData error;
};

// ---- Share terminals -----------------------------------------------------------------------

struct tagShareTerminalInfoRequest {
    QString deviceId;
};

// vdpFileData goes out up to its first zero byte.
struct tagTransDesk2ShareTerminalRequest {
    QString deviceId;
    QString vmUuid;
    QString dstDeviceId;
    QByteArray vdpFileData;
};

struct tagLoginOakdeskShareTerminalRequest {
    QString deviceId;
    QString userName;
    QString password;
};

struct tagShareTerminalInfo {
    QString deviceId;
    QString terminalShareName;
};

// An empty list is a failure, whatever the server's error code says.
struct tagShareTerminalInfoReply {
    QList<tagShareTerminalInfo> terminalList;
    tagErrorData error;
};

struct tagTransDesk2ShareTerminalReply {
    tagErrorData error;
};

struct tagLoginOakdeskShareTerminalReply {
    tagErrorData error;
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

typedef tagRemoteAppListResp RemoteAppListResp;
typedef tagRemoteAppApplyReq RemoteAppApplyReq;
typedef tagRemoteAppApplyResp RemoteAppApplyResp;
typedef tagSaasAppListResp SaasAppListResp;
typedef tagSaasListReq SaasListReq;
typedef tagSaasAppReq SaasAppReq;
typedef tagSaasAppResp SaasAppResp;
typedef tagShareTerminalInfoRequest ShareTerminalInfoRequest;
typedef tagTransDesk2ShareTerminalRequest TransDesk2ShareTerminalRequest;
typedef tagLoginOakdeskShareTerminalRequest LoginOakdeskShareTerminalRequest;
typedef tagShareTerminalInfoReply ShareTerminalInfoReply;
typedef tagTransDesk2ShareTerminalReply TransDesk2ShareTerminalReply;
typedef tagLoginOakdeskShareTerminalReply LoginOakdeskShareTerminalReply;
