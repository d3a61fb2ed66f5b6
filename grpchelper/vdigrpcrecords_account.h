/// \file
/// Records of the account and the client's configuration: password checks and changes, the
/// terminal's authority password, upgrade, the file-sharing server, branding, the mail settings
/// for the administrator, and the login options (what the server offers, login codes, LDAP and
/// the quantum binding). Numbers start at 0 (false) rather than undefined.
#pragma once

#include <QMetaType>
#include <QString>

#include "vdigrpcrecords.h"

// ---- Passwords -----------------------------------------------------------------------------

/// Request of checkPassword() (\c CheckPassword) and of checkAndSaveLdapPasswd()
/// (\c CheckAndSaveLdapPassword) alike.
struct tagCheckPasswordRequest {
    /// The cached identity with the name and password given, which the cache keeps too; the LDAP
    /// check also writes auth type "3" into both and puts its domain into the request alone.
    tagBaseInfo baseInfo;
};

/// Answer of a password check or an LDAP check.
struct tagCheckPasswordResp {
    tagErrorData error;  ///< The server's verdict, or the failed call's status.
};

/// Request of modifyPassword() (\c ModifyPassword); the old password travels in baseInfo.password.
struct tagModifyPasswordRequest {
    tagBaseInfo baseInfo;  ///< The cached identity with the name and old password given; the cache stays.
    QString passwordNew;   ///< The new password (\c password_new).
};

/// Answer of modifyPassword().
struct tagModifyPasswordReply {
    tagErrorData error;  ///< The server's verdict, or the failed call's status.
};

/// Request of requestTerminalAuthorityPassword() (\c ClientReleasePassword).
struct tagClientReleasePasswordRequest {
    int clientType = 0;  ///< The VdiGrpc::tagClientType given (\c clientType).
};

/// Answer of requestTerminalAuthorityPassword(). The password comes whether or not the server
/// has it enabled: the wire's \c enable is not read.
struct tagClientReleasePasswordReply {
    QString password;    ///< The terminal's authority password in the clear (\c password).
    tagErrorData error;  ///< The server's error block, or the failed call's status.
};

// ---- Client configuration ------------------------------------------------------------------

/// Request of checkUpgrade() (\c Upgrade), filled by the facade.
struct tagUpgradeRequest {
    QString clientName;     ///< The application's name, QCoreApplication::applicationName() (\c client_name).
    QString clientVersion;  ///< checkUpgrade()'s argument (\c client_version).
    QString clientType;     ///< The cached tagBaseInfo::clientType (\c client_type).
    QString osType;         ///< The cached tagExtendInfo::osType (\c os_type).
    QString cpuArch;        ///< QSysInfo::currentCpuArchitecture() (\c cpu_arch).
    QString ip;             ///< The cached local address (\c ip).
    QString deviceId;       ///< The cached device id (\c device_id).
    QString deviceName;     ///< The cached device name (\c device_name).
    QString state;          ///< Always "ask" (\c state).
};

/// Answer of checkUpgrade(): the client the server offers, each field as the server sends it.
struct tagUpgradeReply {
    QString clientVersion;  ///< \c client_version.
    QString downloadType;   ///< \c download_type.
    QString url;            ///< \c url.
    int force = 0;          ///< \c force.
    QString md5;            ///< \c md5.
    QString description;    ///< \c description.
    tagErrorData error;     ///< The server's error block, or the failed call's status.
};

/// Request of queryNextCloudInfo() (\c queryNextCloudInfo).
struct tagNextCloudInfoReq {
    qint64 userId = 0;  ///< queryNextCloudInfo()'s user id (\c userId).
};

/// Answer of queryNextCloudInfo(): the file-sharing server.
struct tagNextCloudInfoResp {
    /// \c serverIp; in a successful answer "127.0.0.1" (the server itself) is replaced by the
    /// address this client connected to.
    QString serverIp;
    QString port;        ///< \c port, as text.
    qint64 ncSize = 0;   ///< \c ncSize.
    int enable = 0;      ///< \c enable.
    tagErrorData error;  ///< The server's error block, or the failed call's status.
};

/// Request of queryIndividualConfigForVdidesktopGrpcThread() (\c queryIndividualConfig).
struct tagIndividualConfigReq {
    int type = 0;  ///< The kind of branding asked for (\c type); the facade asks for 1.
};

/// Answer of queryIndividualConfigForVdidesktopGrpcThread(): branding of the client, each field
/// as the server sends it (the wire's \c vendor_name is not read).
struct tagIndividualConfigResp {
    QString systemName;        ///< \c systemName.
    QString copyRight;         ///< \c copyRight.
    QString logoImgUrl;        ///< \c logoImgUrl.
    QString backgroundImgUrl;  ///< \c backgroundImgUrl.
    QString content;           ///< \c content.
    QString createTime;        ///< \c createTime, as text.
    int individual = 0;        ///< \c individual.
    tagErrorData error;        ///< The server's error block, or the failed call's status.
};

/// Answer of applyForEmail(): the administrator's mail server, with its credentials, each field
/// as the server sends it.
struct tagApplyForEmailReply {
    QString serverAddress;  ///< \c serverAddress.
    QString serverPort;     ///< \c serverPort, as text.
    QString sendName;       ///< \c sendName.
    QString sendEmail;      ///< \c sendEmail.
    QString authName;       ///< \c authName.
    QString authPaw;        ///< \c authPaw.
    tagErrorData error;     ///< The server's error block, or the failed call's status.
};

// ---- Login options -------------------------------------------------------------------------

/// Answer of queryLoginConfig(): the ways of logging in that the server offers; each switch
/// stands alone. Each field as the server sends it.
struct LoginConfigResp {
    qint64 timeout = 0;  ///< \c timeout.
    QString ticket;      ///< \c ticket.
    QString url;         ///< \c url.
    QString oakdeskIp;   ///< \c oakdeskIp.
    tagErrorData error;  ///< The server's error block, or the failed call's status.
    bool enableJjtLogin = false;               ///< \c enableJjtLogin.
    bool enableThirdPartyLogin = false;        ///< \c enableThirdPartyLogin.
    bool enableWechatEnterpriseLogin = false;  ///< \c enableWechatEnterpriseLogin.
    bool enableFaceLogin = false;              ///< \c enableFaceLogin.
    bool enableSmsLogin = false;               ///< \c enableSmsLogin.
    bool enableDingtalkLogin = false;          ///< \c enableDingtalkLogin.
};

/// Request of requestLoginCode() (\c getCode), filled by the facade.
struct LoginCodeReq {
    /// The cached identity, after requestLoginCode() has written client type "0", auth type "0"
    /// and refresh flag "0" into the cache; computer type 0 in this copy only.
    tagBaseInfo baseInfo;
    tagExtendInfo extendInfo;  ///< The cached device and client, computer type 0 in this copy only.
    QString codeSource;        ///< requestLoginCode()'s argument (\c codeSource).
    QString codeType;          ///< requestLoginCode()'s argument (\c codeType).
    QString username;          ///< requestLoginCode()'s argument (\c username).
};

/// Answer of requestLoginCode(): a login code or QR address; loginSMS() carries code and ticket
/// into the login.
struct LoginCodeResp {
    QString codeSource;  ///< \c codeSource.
    QString codeType;    ///< \c codeType.
    QString qrcodeUrl;   ///< Address of the QR code (\c qrcodeUrl).
    QString ticket;      ///< \c ticket, for loginSMS().
    tagErrorData error;  ///< The server's error block, or the failed call's status.
};

/// For onQuantumConfigResp(). This client does not support the quantum feature: nothing ever
/// fills or sends this record, and every member keeps its default.
struct QuantumConfigReply {
    bool quantumEncryptEnable = false;  ///< Never filled.
    QString clientAuthData;             ///< Never filled.
    QString targetId;                   ///< Never filled.
    tagErrorData error;                 ///< Never filled.
};

/// Answer of userQuantumBindReq(). The signal's flag says that the call went through;
/// bindResult whether the binding was made.
struct UserQuantumBindReply {
    tagErrorData error;       ///< Never filled: the server's error block is not copied, nor a failed status.
    bool bindResult = false;  ///< The server's \c bindResult after a call that went through; else false.
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

/// \name Names of the records in signal signatures
/// Queued connections look the records up by these names (VdiDesktopGrpcThread::registerMetaTypes()).
///@{
typedef tagCheckPasswordRequest CheckPasswordRequest;  ///< Signal name of the record.
typedef tagCheckPasswordResp CheckPasswordReply;  ///< Signal name of the record.
typedef tagModifyPasswordRequest ModifyPasswordRequest;  ///< Signal name of the record.
typedef tagModifyPasswordReply ModifyPasswordReply;  ///< Signal name of the record.
typedef tagClientReleasePasswordRequest ClientReleasePasswordRequest;  ///< Signal name of the record.
typedef tagClientReleasePasswordReply ClientReleasePasswordReply;  ///< Signal name of the record.
typedef tagUpgradeRequest UpgradeRequest;  ///< Signal name of the record.
typedef tagUpgradeReply UpgradeReply;  ///< Signal name of the record.
typedef tagNextCloudInfoReq NextCloudInfoReq;  ///< Signal name of the record.
typedef tagNextCloudInfoResp NextCloudInfoResp;  ///< Signal name of the record.
typedef tagIndividualConfigReq IndividualConfigReq;  ///< Signal name of the record.
typedef tagIndividualConfigResp IndividualConfigResp;  ///< Signal name of the record.
typedef tagApplyForEmailReply ApplyForEmailReply;  ///< Signal name of the record.
///@}
