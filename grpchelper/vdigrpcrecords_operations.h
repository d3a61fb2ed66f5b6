/// \file
/// Records of the operations on desktops and devices: VM operations, snapshots and names, the
/// assignment of a desktop, device registration and status reports. Numbers that the facade
/// always fills start at 0 rather than undefined, so a record built by hand goes out defined.
#pragma once

#include <QList>
#include <QMetaType>
#include <QString>

#include "vdigrpcrecords.h"

// ---- VM operations -------------------------------------------------------------------------

/// Request of operateVM(), recoverVM() and applyForVMOfQuery() alike (\c OperateForVmReq).
struct tagOperateForVMRequest {
    tagVmNodeInfo vmNode{};  ///< The application's cookie; it stays with the worker and is echoed in the reply.

    /// The cached identity, into which the method has just written the desktop's id and UUID
    /// (\c client_base_info).
    tagBaseInfo baseInfo;
    int opType = 0;       ///< The VdiGrpc::tagOperateVMType given (\c op_type).
    int forceFlag = 0;    ///< The VdiGrpc::tagOperateVMWay given (\c force_flag).
    int startDomain = 0;  ///< The start domain given (\c start_domain); recoverVM() sends 0.
    QString port;         ///< The port given, as text (\c port).
};

/// Request of snapshot() (\c Snapshot).
struct tagSnapshotRequest {
    tagVmNodeInfo vmNode{};  ///< The application's cookie, echoed in the reply.

    /// The cached identity with the desktop just written into it; it travels in the message's
    /// \c content.
    tagBaseInfo baseInfo;
    int opType = 0;       ///< The VdiGrpc::tagSnapshotType given (\c op_type).
    QString name;         ///< The snapshot's name (\c name).
    QString description;  ///< The snapshot's description (\c description).
};

/// Request of modifyVMName() (\c ModifyVmName).
struct tagModifyVMNameRequest {
    tagVmNodeInfo vmNode{};  ///< The application's cookie, echoed in the reply.
    QString vmNameNew;       ///< The new name (\c vm_name_new).

    /// The cached identity with the desktop and the computer type given written into it; auth
    /// type "0" in this copy alone when resetAuthType is set (\c client_base_info).
    tagBaseInfo baseInfo;
};

/// Answer of modifyVMName().
struct tagModifyVMNameReply {
    tagVmNodeInfo vmNode{};  ///< Echoed from the request.
    QString vmNameNew;       ///< Echoed from the request.
    tagErrorData error;      ///< The server's error block, or the failed call's status.
};

// ---- Desktop assignment --------------------------------------------------------------------

/// Request of applyForVM() (\c ApplyForVm). Unlike everywhere else, the identity stands first
/// here.
struct tagApplyForVMRequest {
    tagBaseInfo baseInfo;    ///< The cached identity with the desktop just written into it (\c client_base_info).
    tagVmNodeInfo vmNode{};  ///< The application's cookie, echoed in the reply.
    qint64 id = 0;           ///< The pool id given, its text read as an int (\c id).
    QString poolName;        ///< The pool's name (\c pool_name).
    QString port;            ///< The port given, as text (\c port).
    int startDomain = 0;     ///< The start domain given (\c start_domain).
};

/// Request of applyForDeviceInfo() (\c ApplyForDeviceInfo).
struct tagApplyForDeviceInfoRequest {
    tagVmNodeInfo vmNode{};  ///< The application's cookie, echoed in the reply.
    tagBaseInfo baseInfo;    ///< The cached identity with the desktop in this copy only (\c client_base_info).
};

/// Request of queryVmInfo() (\c queryVmDetailInfo): the desktop's load figures.
struct tagQueryVmInfoReq {
    QString vmId;        ///< The desktop id as text; a number on the wire (\c vmId), 0 for a text that is none.
    QString vmUuid;      ///< The desktop's UUID (\c vmUuid).
    int deviceType = 0;  ///< The device type given (\c deviceType).
};

/// A desktop pool query (\c DeskTopPoolReq). No request of the facade sends it: only
/// VdiDesktopGrpcHelper converts it.
struct tagDeskTopPoolRequest {
    int vmId = 0;    ///< \c vmId.
    QString vmUuid;  ///< \c vmUuid.
};

// ---- Device and status reports -------------------------------------------------------------

/// Request of usbNotify() (\c USBNotify). The desktop id goes out twice: as a number in the
/// identity, as text in vmId.
struct tagUSBNotifyRequest {
    tagVmNodeInfo vmNode{};  ///< The application's cookie, echoed in the reply.

    /// The cached identity with the desktop id given, read as an int, in this copy only; its
    /// UUID stays the cached one (\c client_base_info).
    tagBaseInfo baseInfo;
    QString password;  ///< \c client_info.password.
    QString readOnly;  ///< \c client_info.read_only.
    QString vmId;      ///< The desktop id as given (\c target_vm.vm_id).
    QString vmUuid;    ///< The desktop's UUID given (\c target_vm.vmUuid).
};

/// Answer of usbNotify().
struct tagUSBNotifyReply {
    tagVmNodeInfo vmNode{};  ///< Echoed from the request.
    tagErrorData error;      ///< The server's error block, or the failed call's status.
};

/// Request of reportStatusOfVM() (\c ReportSuccess).
struct tagReportSuccessRequest {
    tagVmNodeInfo vmNode{};  ///< The application's cookie, echoed in the reply.
    QString vmIp;            ///< The desktop's address given (\c vm_ip).

    /// The cached identity with the desktop and computer type 0 in this copy only; it travels in
    /// the message's \c content.
    tagBaseInfo baseInfo;
    tagExtendInfo extendInfo;  ///< The cached device and client (\c client_extend_info).
};

/// Answer of reportStatusOfVM().
struct tagReportSuccessReply {
    tagVmNodeInfo vmNode{};  ///< Echoed from the request.
    qint64 vmId = 0;  ///< Echoed from the request's identity after a call; 0 when no call was made.

    /// The server's error block, or the failed call's status. A server that answered code 4
    /// (timeout) while it is still in reach gets a text of its own in errorMsgZh.
    tagErrorData error;
};

/// Request of registerDevice() (\c RegisterDevice): the caller's own address and names go in the
/// message's own fields, next to the identity.
struct tagRegisterDeviceRequest {
    QString ip;                ///< The address given (\c ip).
    QString mac;               ///< The MAC given (\c mac).
    QString deviceId;          ///< The device id given (\c device_id).
    QString deviceName;        ///< The device name given (\c device_name).
    tagExtendInfo extendInfo;  ///< The cached device and client (\c client_extend_info).
    int registerType = 0;      ///< The VdiGrpc::tagDeviceRegisterType given (\c register_type).
    tagBaseInfo baseInfo;      ///< The cached identity (\c client_base_info).
};

/// Answer of registerDevice().
struct tagRegisterDeviceReply {
    qint64 registerId = 0;  ///< \c register_id.

    /// The server's error block, or the failed call's status. A server that answered code 4
    /// (timeout) while it is still in reach gets a text of its own in errorMsgZh.
    tagErrorData error;
};

/// The state of one redirected device (\c RedirectStatusInfo), as the application reports it.
struct tagRedirectStatusInfoReust {
    QString redirectDeviceName;  ///< \c redirect_device_name.
    QString pid;                 ///< \c pid.
    QString vid;                 ///< \c vid.
    QString redirectDeviceType;  ///< \c redirect_device_type.
    QString subClass;            ///< \c subClass.
    int redirectStatus = 0;      ///< \c redirect_status.
    QString description;         ///< \c description.
};

/// Request of reportRedirectStatus() (\c reportRedirectStatus).
struct tagRedirectStatusReust {
    tagBaseInfo baseInfo;  ///< The cached identity (\c client_base_info).
    QString vmUuid;        ///< The desktop's UUID given (\c vm_uuid).
    QList<tagRedirectStatusInfoReust> redirectList;  ///< The devices given (\c redirect_list).
};

/// Answer of reportRedirectStatus(): the worker emits it, the facade passes it on to no one.
struct tagVoidReply {
    QString reserved;  ///< Never filled.
    tagErrorData error;  ///< The server's error block, or the failed call's status.
};

// ---- Replies of the desktop operations and the assignment ----------------------------------

/// One network device of a desktop (\c Device).
struct tagDevice {
    QString deviceId = QStringLiteral("");  ///< \c device_id.
    tagVMAddress address;                   ///< Its MAC and addresses (\c vm_address).
};

/// Answer of applyForVM(): the desktop and its connection data, each field as the server sends it
/// unless noted.
struct tagApplyForVMReply {
    tagVMInfo vmInfo;              ///< The desktop (\c vm).
    QString name;                  ///< \c name.
    QString password;              ///< \c password.
    QString hostIp;                ///< \c host_ip.
    QList<QString> hostIps;        ///< \c host_ips, as the texts stand.
    QString spicePassword;         ///< \c spice_password.
    QString userGroup;             ///< \c user_group.
    qint64 reservedNumber = 0;  ///< For the application's own use; the library leaves it at 0.
    QString userNameOrDeviceName;  ///< \c userNameOrDeviceName.
    QList<QString> grouplist;      ///< \c grouplist, as the texts stand.
    tagVmNodeInfo vmNode{};        ///< Echoed from the request.
    qint64 id = 0;                 ///< The pool id, echoed from the request after a call.
    QString port;                  ///< Echoed from the request after a call.
    int startDomain = 0;           ///< Echoed from the request after a call.
    QString reservedText;  ///< For the application's own use; the library leaves it empty.

    /// The server's error block, or the failed call's status. Code 4 with the flag \c true: the
    /// desktop is still being prepared. A server that answered code 4 (timeout) while it is
    /// still in reach gets a text of its own in errorMsgZh.
    tagErrorData error;
};

/// Answer of operateVM() and of applyForVMOfQuery(), each field as the server sends it unless
/// noted (the wire's \c isUsedGateway is not read).
struct tagOperateForVMReply {
    tagVmNodeInfo vmNode{};  ///< Echoed from the request.
    int opType = 0;          ///< Echoed from operateVM()'s request; 0 in applyForVMOfQuery()'s answer.
    tagVMInfo vmInfo;        ///< The desktop (\c vm).
    QString spicePort;       ///< \c spice_port, as text.
    QString hostIp;          ///< \c hostIp.

    /// The server's error block, or the failed call's status. applyForVMOfQuery()'s \c true
    /// with errorCode -1 (left unfilled): the controller is still at work, ask again.
    tagErrorData error;
    QString gatewayToken;  ///< \c gatewayToken.
    QString tlsPort;       ///< \c tlsPort, as text.
};

/// Answer of recoverVM(), each field as the server sends it.
struct tagRecoverVMReply {
    tagVmNodeInfo vmNode{};  ///< Echoed from the request.
    qint64 vmId = 0;         ///< \c vm_id.
    int progress = 0;        ///< \c progress.
    tagErrorData error;      ///< The server's error block, or the failed call's status.
    QString vmUuid;          ///< \c vmUuid.
};

/// Answer of snapshot().
struct tagSnapshotReply {
    tagVmNodeInfo vmNode{};  ///< Echoed from the request.
    QString vmId;            ///< The request identity's desktop id as decimal text, after a call.
    QList<tagSnapshotInfo> snapshotList;  ///< The desktop's snapshots (\c snapshot_list).
    tagErrorData error;      ///< The server's error block, or the failed call's status.
};

/// Answer of applyForDeviceInfo().
struct tagApplyForDeviceInfoReply {
    tagVmNodeInfo vmNode{};      ///< Echoed from the request.
    QList<tagDevice> deviceList;  ///< The desktop's network devices (\c device_list).
    tagErrorData error;          ///< The server's error block, or the failed call's status.
};

/// Answer of a desktop pool query (\c DeskTopPoolResp). No signal carries it: only
/// VdiDesktopGrpcHelper converts it.
struct tagDeskTopPoolReply {
    tagPoolInfo pool;    ///< \c pool.
    tagErrorData error;  ///< The server's error block.
};

/// Answer of queryVmInfo(): the desktop's memory and CPU figures, each as the server sends it.
struct tagQueryVmInfoResp {
    int memSize = 0;     ///< \c memSize, cut to an int.
    QString memRate;     ///< \c memRate, as text.
    int cpuSize = 0;     ///< \c cpuSize, cut to an int.
    QString cpuRate;     ///< \c cpuRate, as text.
    tagErrorData error;  ///< The server's error block, or the failed call's status.
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

/// \name Names of the records in signal signatures
/// Queued connections look the records up by these names (VdiDesktopGrpcThread::registerMetaTypes()).
///@{
typedef tagOperateForVMRequest OperateForVMRequest;  ///< Signal name of the record.
typedef tagSnapshotRequest SnapshotRequest;  ///< Signal name of the record.
typedef tagModifyVMNameRequest ModifyVMNameRequest;  ///< Signal name of the record.
typedef tagModifyVMNameReply ModifyVMNameReply;  ///< Signal name of the record.
typedef tagApplyForVMRequest ApplyForVMRequest;  ///< Signal name of the record.
typedef tagApplyForDeviceInfoRequest ApplyForDeviceInfoRequest;  ///< Signal name of the record.
typedef tagQueryVmInfoReq QueryVmInfoReq;  ///< Signal name of the record.
typedef tagUSBNotifyRequest USBNotifyRequest;  ///< Signal name of the record.
typedef tagUSBNotifyReply USBNotifyReply;  ///< Signal name of the record.
typedef tagReportSuccessRequest ReportSuccessRequest;  ///< Signal name of the record.
typedef tagReportSuccessReply ReportSuccessReply;  ///< Signal name of the record.
typedef tagRegisterDeviceRequest RegisterDeviceRequest;  ///< Signal name of the record.
typedef tagRegisterDeviceReply RegisterDeviceReply;  ///< Signal name of the record.
typedef tagRedirectStatusInfoReust RedirectStatusInfoReust;  ///< Signal name of the record.
typedef tagRedirectStatusReust RedirectStatusReust;  ///< Signal name of the record.
typedef tagVoidReply VoidReply;  ///< Signal name of the record.
typedef tagApplyForVMReply ApplyForVMReply;  ///< Signal name of the record.
typedef tagOperateForVMReply OperateForVMReply;  ///< Signal name of the record.
typedef tagRecoverVMReply RecoverVMReply;  ///< Signal name of the record.
typedef tagSnapshotReply SnapshotReply;  ///< Signal name of the record.
typedef tagApplyForDeviceInfoReply ApplyForDeviceInfoReply;  ///< Signal name of the record.
typedef tagQueryVmInfoResp QueryVmInfoResp;  ///< Signal name of the record.
///@}
