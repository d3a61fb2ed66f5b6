// Records of the operations on desktops and devices: VM operations, snapshots and names, the
// assignment of a desktop, device registration and status reports. Numbers that the facade
// always fills start at 0 rather than undefined, so a record built by hand goes out defined.
#pragma once

#include <QList>
#include <QMetaType>
#include <QString>

#include "vdigrpcrecords.h"
#include "vdigrpcrecords_desktop.h"

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
