/// \file
/// Plain value records that cross the public interface of the library, and the enumerations
/// that the application and the server agree on. No generated protobuf type ever appears here.
///
/// \par Who fills a record
/// A request record is filled by the facade's request method, from its arguments and the cached
/// identity (tagBaseInfo, tagExtendInfo); the application builds one itself only for the signals
/// it emits (the share terminals). A reply record is filled by the worker from the server's
/// reply when the call went through (gRPC status OK). After a failed call it holds its defaults,
/// except \c error (the status, see tagErrorData) and the fields echoed from the request, which
/// are noted at the fields. A name in code type (\c vm_id) is the wire field read or written;
/// texts travel as UTF-8.
#pragma once

#include <QList>
#include <QMetaType>
#include <QString>

/// The enumerations that the application and the server agree on.
///
/// The library treats these as plain 32-bit numbers and passes them on unchanged; only the values
/// named below mean something to the library itself. Other values are agreed between the
/// application and the server and are written as casts, e.g. VdiGrpc::tagOperateVMWay(1).
namespace VdiGrpc {

/// Kind of login, written as decimal text into tagBaseInfo::authType (\c auth_type).
enum LoginType : qint32 {
    LoginByUserPassword = 0,  ///< User and password: login(name, password, refreshFlag), requestLoginCode().
    LoginByDevice = 1,        ///< The device alone: login(deviceId).
    LoginBySms = 2,           ///< User, password and SMS code: loginSMS().
    LoginByLdap = 3,          ///< LDAP: checkAndSaveLdapPasswd() and the login after its success.
};

/// Operation on a desktop, the \c op_type of operateVM(), recoverVM() and applyForVMOfQuery().
enum tagOperateVMType : qint32 {
    /// operateVM() answers \c true whenever the server answered (status OK), whatever its error
    /// code; the record's error still tells.
    OperateVMDelivered = 4,
};

/// How an operation is carried out, the \c force_flag of the desktop operations; no value means
/// anything to the library.
enum tagOperateVMWay : qint32 {};

/// Snapshot operation, the \c op_type of snapshot().
enum tagSnapshotType : qint32 {
    /// Lists the snapshots: a successful answer is followed by snapshotQueryResult() with their
    /// number.
    SnapshotQuery = 4,
};

/// Client type of requestTerminalAuthorityPassword() (\c clientType); no value means anything
/// to the library.
enum tagClientType : qint32 {};

/// Kind of registration of registerDevice() (\c register_type); no value means anything to the
/// library.
enum tagDeviceRegisterType : qint32 {};

} // namespace VdiGrpc

/// Who is asking: the cached identity that the facade keeps and copies into nearly every request
/// as \c ClientBaseInfo. The application fills it (initBaseInfoParameter() and the setters); the
/// request methods stamp their own fields into it, as noted at each method.
struct tagBaseInfo {
    QString ip = QStringLiteral("");            ///< Local address of the terminal (\c ip): setLocalIP().
    QString mac = QStringLiteral("");           ///< MAC address (\c mac): setLocalMAC(), which also sets deviceId.
    qint64 vmId = -1;                           ///< Desktop id (\c vm_id); -1: none. A login resets it to -1.
    QString domain = QStringLiteral("");        ///< Domain (\c domain): updateDomain().
    QString smsCode = QStringLiteral("");       ///< SMS code (\c sms_code); loginSMS() clears it after its request.
    QString name = QStringLiteral("");          ///< User name (\c name).
    QString authType = QStringLiteral("");      ///< Kind of login, a VdiGrpc::LoginType as decimal text (\c auth_type).
    QString deviceId = QStringLiteral("");      ///< Device id (\c device_id): the MAC, or login(deviceId)'s argument.
    QString deviceName = QStringLiteral("");    ///< Device name (\c device_name).
    QString clientType = QStringLiteral("");    ///< Client type as text (\c client_type); requestLoginCode(): "0".
    QString refreshFlag = QStringLiteral("");   ///< \c refresh_flag: "1" asks for a fresh desktop list only.
    QString protocolType = QStringLiteral("");  ///< Display protocol type (\c protocol_type): setProtocolType().
    QString password = QStringLiteral("");      ///< Password in the clear (\c password).
    int computerType = -1;                      ///< Computer type (\c computer_type); -1: unset. A login writes 0.
    QString vmUuid = QStringLiteral("");        ///< Desktop UUID (\c vmUuid); empty: none. A login clears it.
    int isOpenldap = 0;                         ///< \c isOpenldap, as updateIsOpenldp() sets it.
    QString ticket;                             ///< \c ticket of the login code, set by loginSMS().
};

/// What is asking: the device and client part of the cached identity, sent as
/// \c ClientExtendInfo. The application fills it (initExtendInfoParameter(), setClientVersion(),
/// setClientLanuage()); the library writes none of it.
struct tagExtendInfo {
    QString model = QStringLiteral("");           ///< Device model (\c model).
    QString vendor = QStringLiteral("");          ///< Device vendor (\c vendor).
    QString osType = QStringLiteral("");          ///< Operating system (\c os_type); also checkUpgrade()'s osType.
    QString osVersion = QStringLiteral("");       ///< Operating system version (\c os_version).
    int computerType = -1;                        ///< Computer type (\c computer_type); -1: unset.
    QString clientVersion = QStringLiteral("");   ///< Client version (\c client_version).
    QString clientLanguage = QStringLiteral("");  ///< Client language (\c client_language).
    QString cpuArch = QStringLiteral("");         ///< CPU architecture (\c cpu_arch).
    QString pineletVersion = QStringLiteral("");  ///< Version of the pinelet package (\c pinelet_version).
};

/// Outcome carried by every reply record. -1 means nobody filled it: not a success.
struct tagErrorData {
    /// The server's \c error_code (0: success) when the call went through; after a failed call
    /// the gRPC status code (4: deadline overrun, 14: server out of reach, 5: no channel yet).
    int errorCode = -1;
    /// The server's \c error_msg_zh; after a failed call a fixed Chinese text for the status
    /// code. Some answers put a text of their own here (noted at their signals and records).
    QString errorMsgZh = QStringLiteral("");
    QString errorMsgEn = QStringLiteral("");  ///< The server's \c error_msg_en; after a failed call the status message.
};

/// The application's handle on a desktop entry, echoed from request to reply untouched; never
/// sent. The request records value-initialise it (\c vmNode{}); a record of your own should too.
struct tagVmNodeInfo {
    QString nodeId;    ///< The application's own.
    QString nodeName;  ///< The application's own.
    int nodeIndex;     ///< The application's own; no default member value.
};



/// Login and refresh of the desktop list (\c LoginReq), and the request of the remote
/// application list; the facade fills it with the cached identity.
struct tagLoginRequest {
    tagBaseInfo baseInfo;      ///< The cached identity (\c client_base_info).
    tagExtendInfo extendInfo;  ///< The cached device and client (\c client_extend_info).
    QString reserved;  ///< Travels with the record, never sent.
};

// ---- Desktops and pools, as login, operations and applications all carry them ---------------

/// Which desktop actions the server allows, in the order of the wire's \c ExtendOp: each member
/// is the server's switch of the same name, as it comes. The defaults show only in a record no
/// reply filled.
struct tagVMOperator {
    int shudown = -1;          ///< \c shudown.
    int reboot = -1;           ///< \c reboot.
    int powerOffReboot = -1;   ///< \c power_off_reboot.
    int powerOff = -1;         ///< \c power_off.
    int backHome = -1;         ///< \c back_home.
    int disconnection = 1;     ///< \c disconnection.
    int clientCtrlAltDel = 1;  ///< \c client_ctrl_alt_del.
    int logoutUser = 0;        ///< \c logout_user.
    int snapshot = 0;          ///< \c snapshot.
    int networkDetection = 0;  ///< \c network_detection.
    int interactShutdown = 0;  ///< \c interact_shutdown.
    int clientOccupy = 0;      ///< \c client_occupy.
    int modifyName = 0;        ///< \c modify_name.
};

/// One network device of a desktop (\c VmAddress).
struct tagVMAddress {
    QString mac = QStringLiteral("");  ///< \c mac.
    QList<QString> ipList;             ///< \c ip_list, each address trimmed; addresses then empty are dropped.
};

/// One snapshot of a desktop (\c SnapshotInfo), from the server.
struct tagSnapshotInfo {
    QString name = QStringLiteral("");         ///< \c name.
    QString description = QStringLiteral("");  ///< \c description.
};

/// One program of the mixed-computing policy (\c mix_cal_policy.program_list), from the server.
struct tagMixCalProgram {
    QString name;       ///< \c name.
    QString path;       ///< \c path.
    QString parameter;  ///< \c parameter.
    QString icon;       ///< \c icon.
};

/// Share, USB, serial, mixed-computing, watermark, video and parallel policies in one record,
/// from the server's \c ControlPolicy. Every member is read from the wire: an absent group gives
/// zeros and empty texts. The defaults show only in a record that no conversion touched.
struct tagControlPolicy {
    int drivers = -1;                        ///< \c share_policy.drivers.
    int clipboard = -1;                      ///< \c share_policy.clipboard.
    int rdpClipboard = -1;                   ///< \c share_policy.rdp_clipboard.
    int vdpClipboard = -1;                   ///< \c share_policy.vdp_clipboard.
    int printers = -1;                       ///< \c share_policy.printers.
    int smartCard = -1;                      ///< \c share_policy.smart_card.
    int comports = -1;                       ///< \c share_policy.comports.
    int pnpDevice = -1;                      ///< \c share_policy.pnp_device.
    int redirectCamera = -1;                 ///< \c share_policy.redirectCamera.
    int usbEnable = -1;                      ///< \c usb_policy.enable.
    int usbRedirectStorage = -1;             ///< \c usb_policy.usbRedirectStorage.
    int usbRedirectCamera = -1;              ///< \c usb_policy.usbRedirectCamera.
    int usbRedirectScanner = -1;             ///< \c usb_policy.usbRedirectScanner.
    int usbRedirectPrinter = -1;             ///< \c usb_policy.usbRedirectPrinter.
    int usbRedirectSmartCard = -1;           ///< \c usb_policy.usbRedirectSmartCard.
    int usbRedirectOther = -1;               ///< \c usb_policy.usbRedirectOther.
    int usbRedirectCommunications = -1;      ///< \c usb_policy.usbRedirectCommunications.
    int usbRedirectBridgeClass = -1;         ///< \c usb_policy.usbRedirectBridgeClass.
    int usbRedirectWirelessController = -1;  ///< \c usb_policy.usbRedirectWirelessController.
    int usbRedirectVendorSpecific = -1;      ///< \c usb_policy.usbRedirectVendorSpecific.
    int storeReadonly = -1;                  ///< \c usb_policy.store_readonly.
    QList<QString> policyList;               ///< \c usb_policy.policy_list, as it stands.
    int serialEnable = 0;                    ///< \c serial_policy.enable.
    QList<tagMixCalProgram> programList;     ///< \c mix_cal_policy.program_list.
    QString color = QStringLiteral("000000");                ///< \c watermark_policy.color.
    QString userDefine = QStringLiteral("Desktop Watermark");  ///< \c watermark_policy.user_define.
    int watermarkEnable = 0;                 ///< \c watermark_policy.enable.
    int showIp = 0;                          ///< \c watermark_policy.show_ip.
    int showMac = 0;                         ///< \c watermark_policy.show_mac.
    int showTime = 0;                        ///< \c watermark_policy.show_time.
    int fullScreen = 0;                      ///< \c watermark_policy.full_screen.
    int fontSize = 12;                       ///< \c watermark_policy.font_size.
    int transparent = 20;                    ///< \c watermark_policy.transparent.
    int showUserName = 0;                    ///< \c watermark_policy.show_user_name.
    int showComptName = 0;                   ///< \c watermark_policy.show_compt_name.
    int rotationAngle = 30;                  ///< \c watermark_policy.rotation_angle.
    int showLoginName = 0;                   ///< \c watermark_policy.show_login_name.
    int showDesktopPoolName = 0;             ///< \c watermark_policy.show_desktop_pool_name.
    int showSystemName = 0;                  ///< \c watermark_policy.show_system_name.
    int showPosition = 1;                    ///< \c watermark_policy.show_position.
    int videoEncode = 0;                     ///< \c video_policy.videoEncode.
    int spiceTls = 0;                        ///< \c video_policy.spiceTls.

    /// \c reconnection_network_time, read for a desktop's policy only: the remote application's
    /// policy leaves it at 0.
    int reconnectionNetworkTime = 0;
    int parallelEnable = 0;                  ///< \c parallel_policy.enable.
};

/// One desktop as an operation reports it (\c VmInfo), from the server. The pool's desktops
/// (tagVM) fill the same fields but for vmIsUsed, ipList, controlPolicy and domainName, which
/// keep their defaults there.
struct tagVMInfo {
    qint64 vmId = -1;                          ///< Desktop id (\c vm_id).
    QString vmName = QStringLiteral("");       ///< Desktop name (\c vm_name).
    QString vmStatus = QStringLiteral("");     ///< Desktop state as text (\c vm_status).
    QString vmIsUsed = QStringLiteral("");     ///< \c vm_is_used; an operation's desktop only.
    QList<QString> ipList;                     ///< \c ip_list, as the texts stand; an operation's desktop only.
    QString osVersion = QStringLiteral("");    ///< \c os_version.
    int osType = -1;                           ///< \c os_type.
    int isPortEnable = -1;                     ///< \c is_port_enable.
    tagVMOperator vmOperator;                  ///< Actions the server allows on the desktop (\c extend_op).
    tagControlPolicy controlPolicy;            ///< \c control_policy; an operation's desktop only.
    QList<tagVMAddress> addressList;           ///< \c address_list.
    QString vmUuid = QStringLiteral("");       ///< Desktop UUID (\c vmUuid).
    QString domainName = QStringLiteral("");   ///< \c domain_name; an operation's desktop only.
};

/// One desktop as a pool lists it (\c Vm): the fields of an operation's desktop, then its own.
struct tagVM : tagVMInfo {
    QString resourceName;  ///< The pool's \c resource_name, copied by the library.
    QList<tagSnapshotInfo> snapshotList;  ///< The desktop's snapshots (\c snapshot_list).

    /// The server's \c vm_expire_time, its low 32 bits, with 0 read as -2 (no expiry set) and -3
    /// as 0 (expired); -1 only in a record no reply filled.
    int vmExpireTime = -1;
};

/// One pool (\c PoolInfo), from the server; the actions the server allows on the pool lead the
/// record (the pool's \c extend_op).
struct tagPoolInfo : tagVMOperator {
    qint64 id = -1;                             ///< Pool id (\c id), the one applyForVM() asks by.
    int type = -1;                              ///< \c type.
    QString name = QStringLiteral("");          ///< Pool name (\c name).
    int status = -1;                            ///< \c status.
    qint64 templetId = -1;                      ///< \c templetId.
    int offlineDate = -1;                       ///< \c offlineDate.
    int recoverMode = -1;                       ///< \c recoverMode.
    int vmOsType = -1;                          ///< \c vm_os_type.
    QString vmOsVersion = QStringLiteral("");   ///< \c vm_os_version.
    QList<tagVM> vmList;                        ///< The pool's desktops (\c vm_list).
    int computerType = -1;                      ///< \c computer_type.
    qint64 reservedNumber = 0;  ///< For the application's own use; the library leaves it at 0.
    QString reservedText;       ///< For the application's own use; the library leaves it empty.

    /// The server's \c pool_expire_time, its low 32 bits, with 0 read as -2 (no expiry set) and
    /// -3 as 0 (expired); -1 only in a record no reply filled.
    int poolExpireTime = -1;
    bool isExPool = false;  ///< True for the entries of the extra pool list (\c ex_pool_list).
    QString serverAddress = QStringLiteral("");          ///< \c server_address.
    QString serverPort = QStringLiteral("");             ///< \c server_port, as text.
    QString gatewayAccessStrategy = QStringLiteral("");  ///< \c gateway_access_strategy, a number as decimal text.
    QString resourceName = QStringLiteral("");           ///< \c resource_name.
};

Q_DECLARE_METATYPE(tagBaseInfo)
Q_DECLARE_METATYPE(tagExtendInfo)
Q_DECLARE_METATYPE(tagErrorData)
Q_DECLARE_METATYPE(tagVmNodeInfo)
Q_DECLARE_METATYPE(tagLoginRequest)
Q_DECLARE_METATYPE(tagVMOperator)
Q_DECLARE_METATYPE(tagVMAddress)
Q_DECLARE_METATYPE(tagSnapshotInfo)
Q_DECLARE_METATYPE(tagMixCalProgram)
Q_DECLARE_METATYPE(tagControlPolicy)
Q_DECLARE_METATYPE(tagVMInfo)
Q_DECLARE_METATYPE(tagVM)
Q_DECLARE_METATYPE(tagPoolInfo)

/// \name Names of the records in signal signatures
/// Queued connections look the records up by these names (VdiDesktopGrpcThread::registerMetaTypes()).
///@{
typedef tagLoginRequest LoginRequest;  ///< Signal name of the record.
typedef tagLoginRequest RefreshRequest;  ///< Signal name of the record.
///@}
