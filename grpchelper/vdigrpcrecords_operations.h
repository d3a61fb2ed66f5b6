// Records of the operations on desktops and devices: VM operations, snapshots and names, the
// assignment of a desktop, device registration and status reports. Numbers that the facade
// always fills start at 0 rather than undefined, so a record built by hand goes out defined.
#pragma once

#include <QList>
#include <QMetaType>
#include <QString>

#include "vdigrpcrecords.h"

// ---- VM operations -------------------------------------------------------------------------

// Serves operateVM, recoverVM and applyForVMOfQuery alike; vmNode stays with the worker and is
// echoed in the reply.
struct tagOperateForVMRequest {
    tagVmNodeInfo vmNode{};
    tagBaseInfo baseInfo;
    int opType = 0;
    int forceFlag = 0;
    int startDomain = 0;
    QString port;
};

// The identity travels in the message's `content`.
struct tagSnapshotRequest {
    tagVmNodeInfo vmNode{};
    tagBaseInfo baseInfo;
    int opType = 0;
    QString name;
    QString description;
};

struct tagModifyVMNameRequest {
    tagVmNodeInfo vmNode{};
    QString vmNameNew;
    tagBaseInfo baseInfo;
};

struct tagModifyVMNameReply {
    tagVmNodeInfo vmNode{};
    QString vmNameNew;  // echoed from the request
    tagErrorData error;
};

// ---- Desktop assignment --------------------------------------------------------------------

// Unlike everywhere else, the identity stands first here.
struct tagApplyForVMRequest {
    tagBaseInfo baseInfo;
    tagVmNodeInfo vmNode{};
    qint64 id = 0;
    QString poolName;
    QString port;
    int startDomain = 0;
};

struct tagApplyForDeviceInfoRequest {
    tagVmNodeInfo vmNode{};
    tagBaseInfo baseInfo;
};

// The desktop's load figures; vmId is text here and a number on the wire.
struct tagQueryVmInfoReq {
    QString vmId;
    QString vmUuid;
    int deviceType = 0;
};

struct tagDeskTopPoolRequest {
    int vmId = 0;
    QString vmUuid;
};

// ---- Device and status reports -------------------------------------------------------------

// The desktop id goes out twice: as a number in the identity, as text in vmId.
struct tagUSBNotifyRequest {
    tagVmNodeInfo vmNode{};
    tagBaseInfo baseInfo;
    QString password;
    QString readOnly;
    QString vmId;
    QString vmUuid;
};

struct tagUSBNotifyReply {
    tagVmNodeInfo vmNode{};
    tagErrorData error;
};

struct tagReportSuccessRequest {
    tagVmNodeInfo vmNode{};
    QString vmIp;
    tagBaseInfo baseInfo;
    tagExtendInfo extendInfo;
};

struct tagReportSuccessReply {
    tagVmNodeInfo vmNode{};
    qint64 vmId = 0;  // echoed from the request's identity after a call
    tagErrorData error;
};

struct tagRegisterDeviceRequest {
    QString ip;
    QString mac;
    QString deviceId;
    QString deviceName;
    tagExtendInfo extendInfo;
    int registerType = 0;
    tagBaseInfo baseInfo;
};

struct tagRegisterDeviceReply {
    qint64 registerId = 0;
    tagErrorData error;
};

struct tagRedirectStatusInfoReust {
    QString redirectDeviceName;
    QString pid;
    QString vid;
    QString redirectDeviceType;
    QString subClass;
    int redirectStatus = 0;
    QString description;
};

struct tagRedirectStatusReust {
    tagBaseInfo baseInfo;
    QString vmUuid;
    QList<tagRedirectStatusInfoReust> redirectList;
};

struct tagVoidReply {
    QString reserved;  // never filled
    tagErrorData error;
};

// ---- Replies of the desktop operations and the assignment ----------------------------------

struct tagDevice {
    QString deviceId = QStringLiteral("");
    tagVMAddress address;
};

struct tagApplyForVMReply {
    tagVMInfo vmInfo;
    QString name;
    QString password;
    QString hostIp;
    QList<QString> hostIps;
    QString spicePassword;
    QString userGroup;
    qint64 reservedNumber = 0;  // for the application's own use
    QString userNameOrDeviceName;
    QList<QString> grouplist;
    tagVmNodeInfo vmNode{};
    qint64 id = 0;
    QString port;
    int startDomain = 0;
    QString reservedText;  // for the application's own use
    tagErrorData error;
};

struct tagOperateForVMReply {
    tagVmNodeInfo vmNode{};
    int opType = 0;
    tagVMInfo vmInfo;
    QString spicePort;
    QString hostIp;
    tagErrorData error;
    QString gatewayToken;
    QString tlsPort;
};

struct tagRecoverVMReply {
    tagVmNodeInfo vmNode{};
    qint64 vmId = 0;
    int progress = 0;
    tagErrorData error;
    QString vmUuid;
};

struct tagSnapshotReply {
    tagVmNodeInfo vmNode{};
    QString vmId;
    QList<tagSnapshotInfo> snapshotList;
    tagErrorData error;
};

struct tagApplyForDeviceInfoReply {
    tagVmNodeInfo vmNode{};
    QList<tagDevice> deviceList;
    tagErrorData error;
};

struct tagDeskTopPoolReply {
    tagPoolInfo pool;
    tagErrorData error;
};

struct tagQueryVmInfoResp {
    int memSize = 0;
    QString memRate;
    int cpuSize = 0;
    QString cpuRate;
    tagErrorData error;
};

Q_DECLARE_METATYPE(tagDevice)
Q_DECLARE_METATYPE(tagApplyForVMReply)
Q_DECLARE_METATYPE(tagOperateForVMReply)
Q_DECLARE_METATYPE(tagRecoverVMReply)
Q_DECLARE_METATYPE(tagSnapshotReply)
Q_DECLARE_METATYPE(tagApplyForDeviceInfoReply)
Q_DECLARE_METATYPE(tagDeskTopPoolReply)
Q_DECLARE_METATYPE(tagQueryVmInfoResp)
Q_DECLARE_METATYPE(tagOperateForVMRequest)
Q_DECLARE_METATYPE(tagSnapshotRequest)
Q_DECLARE_METATYPE(tagModifyVMNameRequest)
Q_DECLARE_METATYPE(tagModifyVMNameReply)
Q_DECLARE_METATYPE(tagApplyForVMRequest)
Q_DECLARE_METATYPE(tagApplyForDeviceInfoRequest)
Q_DECLARE_METATYPE(tagQueryVmInfoReq)
Q_DECLARE_METATYPE(tagUSBNotifyRequest)
Q_DECLARE_METATYPE(tagUSBNotifyReply)
Q_DECLARE_METATYPE(tagReportSuccessRequest)
Q_DECLARE_METATYPE(tagReportSuccessReply)
Q_DECLARE_METATYPE(tagRegisterDeviceRequest)
Q_DECLARE_METATYPE(tagRegisterDeviceReply)
Q_DECLARE_METATYPE(tagRedirectStatusInfoReust)
Q_DECLARE_METATYPE(tagRedirectStatusReust)
Q_DECLARE_METATYPE(tagVoidReply)

typedef tagOperateForVMRequest OperateForVMRequest;
typedef tagSnapshotRequest SnapshotRequest;
typedef tagModifyVMNameRequest ModifyVMNameRequest;
typedef tagModifyVMNameReply ModifyVMNameReply;
typedef tagApplyForVMRequest ApplyForVMRequest;
typedef tagApplyForDeviceInfoRequest ApplyForDeviceInfoRequest;
typedef tagQueryVmInfoReq QueryVmInfoReq;
typedef tagUSBNotifyRequest USBNotifyRequest;
typedef tagUSBNotifyReply USBNotifyReply;
typedef tagReportSuccessRequest ReportSuccessRequest;
typedef tagReportSuccessReply ReportSuccessReply;
typedef tagRegisterDeviceRequest RegisterDeviceRequest;
typedef tagRegisterDeviceReply RegisterDeviceReply;
typedef tagRedirectStatusInfoReust RedirectStatusInfoReust;
typedef tagRedirectStatusReust RedirectStatusReust;
typedef tagVoidReply VoidReply;
typedef tagApplyForVMReply ApplyForVMReply;
typedef tagOperateForVMReply OperateForVMReply;
typedef tagRecoverVMReply RecoverVMReply;
typedef tagSnapshotReply SnapshotReply;
typedef tagApplyForDeviceInfoReply ApplyForDeviceInfoReply;
typedef tagQueryVmInfoResp QueryVmInfoResp;
