// Plain value records that cross the public interface of the library, and the enumerations
// that the application and the server agree on. No generated protobuf type ever appears here.
#pragma once

#include <QList>
#include <QMetaType>
#include <QString>

namespace VdiGrpc {

// The library treats these as plain 32-bit numbers and passes them on unchanged; only the values
// named below mean something to the library itself. Other values are agreed between the
// application and the server and are written as casts, e.g. VdiGrpc::tagOperateVMWay(1).
enum LoginType : qint32 {
    LoginByUserPassword = 0,
    LoginByDevice = 1,
    LoginBySms = 2,
    LoginByLdap = 3,
};

enum tagOperateVMType : qint32 {
    OperateVMDelivered = 4,  // answered as delivered whatever the server's error code
};

enum tagOperateVMWay : qint32 {};

enum tagSnapshotType : qint32 {
    SnapshotQuery = 4,
};

enum tagClientType : qint32 {};

enum tagDeviceRegisterType : qint32 {};

} // namespace VdiGrpc

// Who is asking: copied into nearly every request.
struct tagBaseInfo {
    QString ip = QStringLiteral("");
    QString mac = QStringLiteral("");
    qint64 vmId = -1;
    QString domain = QStringLiteral("");
    QString smsCode = QStringLiteral("");
    QString name = QStringLiteral("");
    QString authType = QStringLiteral("");
    QString deviceId = QStringLiteral("");
    QString deviceName = QStringLiteral("");
    QString clientType = QStringLiteral("");
    QString refreshFlag = QStringLiteral("");
    QString protocolType = QStringLiteral("");
    QString password = QStringLiteral("");
    int computerType = -1;
    QString vmUuid = QStringLiteral("");
    int isOpenldap = 0;
    QString ticket;
};

// What is asking.
struct tagExtendInfo {
    QString model = QStringLiteral("");
    QString vendor = QStringLiteral("");
    QString osType = QStringLiteral("");
    QString osVersion = QStringLiteral("");
    int computerType = -1;
    QString clientVersion = QStringLiteral("");
    QString clientLanguage = QStringLiteral("");
    QString cpuArch = QStringLiteral("");
    QString pineletVersion = QStringLiteral("");
};

// Outcome carried by every reply record. -1 means nobody filled it: not a success.
struct tagErrorData {
    int errorCode = -1;
    QString errorMsgZh = QStringLiteral("");
    QString errorMsgEn = QStringLiteral("");
};

// The application's handle on a desktop entry, echoed from request to reply untouched.
struct tagVmNodeInfo {
    QString nodeId;
    QString nodeName;
    int nodeIndex;
};

// Heartbeat, sent now and at every tick of the heart timer.
struct tagHeartbeatRequest {
    QString vmIp;
    tagBaseInfo baseInfo;
    tagExtendInfo extendInfo;
};

struct tagHeartbeatReply {
    tagErrorData error;
};

// Login and refresh of the desktop list.
struct tagLoginRequest {
    tagBaseInfo baseInfo;
    tagExtendInfo extendInfo;
    QString reserved;  // travels with the record, never sent
};

Q_DECLARE_METATYPE(tagBaseInfo)
Q_DECLARE_METATYPE(tagExtendInfo)
Q_DECLARE_METATYPE(tagErrorData)
Q_DECLARE_METATYPE(tagVmNodeInfo)
Q_DECLARE_METATYPE(tagHeartbeatRequest)
Q_DECLARE_METATYPE(tagHeartbeatReply)
Q_DECLARE_METATYPE(tagLoginRequest)

// Names under which the records travel in signal signatures; queued connections look them up.
typedef tagLoginRequest LoginRequest;
typedef tagLoginRequest RefreshRequest;
typedef tagHeartbeatRequest HeartbeatRequest;
typedef tagHeartbeatReply HeartbeatReply;
