// Records of the account and the client's configuration: password checks and changes, the
// terminal's authority password, upgrade, the file-sharing server, branding, the mail settings
// for the administrator, and the login options (what the server offers, login codes, LDAP and
// the quantum binding). Numbers start at 0 (false) rather than undefined.
#pragma once

#include <QMetaType>
#include <QString>

#include "vdigrpcrecords.h"

// ---- Passwords -----------------------------------------------------------------------------

// Serves the password check and the LDAP check alike.
struct tagCheckPasswordRequest {
    tagBaseInfo baseInfo;
};

struct tagCheckPasswordResp {
    tagErrorData error;
};

// The old password travels in baseInfo.password.
struct tagModifyPasswordRequest {
    tagBaseInfo baseInfo;
    QString passwordNew;
};

struct tagModifyPasswordReply {
    tagErrorData error;
};

struct tagClientReleasePasswordRequest {
    int clientType = 0;
};

// The password comes whether or not the server has it enabled.
struct tagClientReleasePasswordReply {
    QString password;
    tagErrorData error;
};

// ---- Client configuration ------------------------------------------------------------------

struct tagUpgradeRequest {
    QString clientName;
    QString clientVersion;
    QString clientType;
    QString osType;
    QString cpuArch;
    QString ip;
    QString deviceId;
    QString deviceName;
    QString state;
};

struct tagUpgradeReply {
    QString clientVersion;
    QString downloadType;
    QString url;
    int force = 0;
    QString md5;
    QString description;
    tagErrorData error;
};

struct tagNextCloudInfoReq {
    qint64 userId = 0;
};

// A serverIp of "127.0.0.1" means the server this client reaches, and arrives as its address.
struct tagNextCloudInfoResp {
    QString serverIp;
    QString port;
    qint64 ncSize = 0;
    int enable = 0;
    tagErrorData error;
};

struct tagIndividualConfigReq {
    int type = 0;
};

// Branding of the client.
struct tagIndividualConfigResp {
    QString systemName;
    QString copyRight;
    QString logoImgUrl;
    QString backgroundImgUrl;
    QString content;
    QString createTime;
    int individual = 0;
    tagErrorData error;
};

// The administrator's mail server, with its credentials.
struct tagApplyForEmailReply {
    QString serverAddress;
    QString serverPort;
    QString sendName;
    QString sendEmail;
    QString authName;
    QString authPaw;
    tagErrorData error;
};

// ---- Login options -------------------------------------------------------------------------

// The ways of logging in that the server offers; each switch stands alone.
struct LoginConfigResp {
    qint64 timeout = 0;
    QString ticket;
    QString url;
    QString oakdeskIp;
    tagErrorData error;
    bool enableJjtLogin = false;
    bool enableThirdPartyLogin = false;
    bool enableWechatEnterpriseLogin = false;
    bool enableFaceLogin = false;
    bool enableSmsLogin = false;
    bool enableDingtalkLogin = false;
};

struct LoginCodeReq {
    tagBaseInfo baseInfo;
    tagExtendInfo extendInfo;
    QString codeSource;
    QString codeType;
    QString username;
};

// A login code or QR address; loginSMS carries code and ticket into the login.
struct LoginCodeResp {
    QString codeSource;
    QString codeType;
    QString qrcodeUrl;
    QString ticket;
    tagErrorData error;
};

// This client does not support the quantum feature: nothing ever fills or sends this record.
struct QuantumConfigReply {
    bool quantumEncryptEnable = false;
    QString clientAuthData;
    QString targetId;
    tagErrorData error;
};

// The signal's flag says that the call went through; bindResult whether the binding was made.
// The server's error block is not copied.
struct UserQuantumBindReply {
    tagErrorData error;
    bool bindResult = false;
};

Q_DECLARE_METATYPE(tagCheckPasswordRequest)
Q_DECLARE_METATYPE(tagCheckPasswordResp)
Q_DECLARE_METATYPE(tagModifyPasswordRequest)
Q_DECLARE_METATYPE(tagModifyPasswordReply)
Q_DECLARE_METATYPE(tagClientReleasePasswordRequest)
Q_DECLARE_METATYPE(tagClientReleasePasswordReply)
Q_DECLARE_METATYPE(tagUpgradeRequest)
Q_DECLARE_METATYPE(tagUpgradeReply)
Q_DECLARE_METATYPE(tagNextCloudInfoReq)
Q_DECLARE_METATYPE(tagNextCloudInfoResp)
Q_DECLARE_METATYPE(tagIndividualConfigReq)
Q_DECLARE_METATYPE(tagIndividualConfigResp)
Q_DECLARE_METATYPE(tagApplyForEmailReply)
Q_DECLARE_METATYPE(LoginConfigResp)
Q_DECLARE_METATYPE(LoginCodeReq)
Q_DECLARE_METATYPE(LoginCodeResp)
Q_DECLARE_METATYPE(QuantumConfigReply)
Q_DECLARE_METATYPE(UserQuantumBindReply)

typedef tagCheckPasswordRequest CheckPasswordRequest;
typedef tagCheckPasswordResp CheckPasswordReply;
typedef tagModifyPasswordRequest ModifyPasswordRequest;
typedef tagModifyPasswordReply ModifyPasswordReply;
typedef tagClientReleasePasswordRequest ClientReleasePasswordRequest;
typedef tagClientReleasePasswordReply ClientReleasePasswordReply;
typedef tagUpgradeRequest UpgradeRequest;
typedef tagUpgradeReply UpgradeReply;
typedef tagNextCloudInfoReq NextCloudInfoReq;
typedef tagNextCloudInfoResp NextCloudInfoResp;
typedef tagIndividualConfigReq IndividualConfigReq;
typedef tagIndividualConfigResp IndividualConfigResp;
typedef tagApplyForEmailReply ApplyForEmailReply;
