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



// Login and refresh of the desktop list.
struct tagLoginRequest {
    tagBaseInfo baseInfo;
    tagExtendInfo extendInfo;
    QString reserved;  // travels with the record, never sent
};

// ---- Desktops and pools, as login, operations and applications all carry them ---------------

// Which desktop actions the server allows, in the order of the wire's ExtendOp.
struct tagVMOperator {
    int shudown = -1;
    int reboot = -1;
    int powerOffReboot = -1;
    int powerOff = -1;
    int backHome = -1;
    int disconnection = 1;
    int clientCtrlAltDel = 1;
    int logoutUser = 0;
    int snapshot = 0;
    int networkDetection = 0;
    int interactShutdown = 0;
    int clientOccupy = 0;
    int modifyName = 0;
};

struct tagVMAddress {
    QString mac = QStringLiteral("");
    QList<QString> ipList;
};

struct tagSnapshotInfo {
    QString name = QStringLiteral("");
    QString description = QStringLiteral("");
};

struct tagMixCalProgram {
    QString name;
    QString path;
    QString parameter;
    QString icon;
};

// Share, USB, serial, mixed-computing, watermark, video and parallel policies in one record.
// The defaults show only in a record that no conversion touched.
struct tagControlPolicy {
    int drivers = -1;
    int clipboard = -1;
    int rdpClipboard = -1;
    int vdpClipboard = -1;
    int printers = -1;
    int smartCard = -1;
    int comports = -1;
    int pnpDevice = -1;
    int redirectCamera = -1;
    int usbEnable = -1;
    int usbRedirectStorage = -1;
    int usbRedirectCamera = -1;
    int usbRedirectScanner = -1;
    int usbRedirectPrinter = -1;
    int usbRedirectSmartCard = -1;
    int usbRedirectOther = -1;
    int usbRedirectCommunications = -1;
    int usbRedirectBridgeClass = -1;
    int usbRedirectWirelessController = -1;
    int usbRedirectVendorSpecific = -1;
    int storeReadonly = -1;
    QList<QString> policyList;
    int serialEnable = 0;
    QList<tagMixCalProgram> programList;
    QString color = QStringLiteral("000000");
    QString userDefine = QStringLiteral("Desktop Watermark");
    int watermarkEnable = 0;
    int showIp = 0;
    int showMac = 0;
    int showTime = 0;
    int fullScreen = 0;
    int fontSize = 12;
    int transparent = 20;
    int showUserName = 0;
    int showComptName = 0;
    int rotationAngle = 30;
    int showLoginName = 0;
    int showDesktopPoolName = 0;
    int showSystemName = 0;
    int showPosition = 1;
    int videoEncode = 0;
    int spiceTls = 0;
    int reconnectionNetworkTime = 0;
    int parallelEnable = 0;
};

// One desktop as an operation reports it.
struct tagVMInfo {
    qint64 vmId = -1;
    QString vmName = QStringLiteral("");
    QString vmStatus = QStringLiteral("");
    QString vmIsUsed = QStringLiteral("");
    QList<QString> ipList;
    QString osVersion = QStringLiteral("");
    int osType = -1;
    int isPortEnable = -1;
    tagVMOperator vmOperator;
    tagControlPolicy controlPolicy;
    QList<tagVMAddress> addressList;
    QString vmUuid = QStringLiteral("");
    QString domainName = QStringLiteral("");
};

// One desktop as a pool lists it: the fields of an operation's desktop, then its own.
struct tagVM : tagVMInfo {
    QString resourceName;  // the pool's
    QList<tagSnapshotInfo> snapshotList;
    int vmExpireTime = -1;  // -2: no expiry set; 0: expired (see the pool's)
};

// One pool; the actions the server allows on the pool lead the record.
struct tagPoolInfo : tagVMOperator {
    qint64 id = -1;
    int type = -1;
    QString name = QStringLiteral("");
    int status = -1;
    qint64 templetId = -1;
    int offlineDate = -1;
    int recoverMode = -1;
    int vmOsType = -1;
    QString vmOsVersion = QStringLiteral("");
    QList<tagVM> vmList;
    int computerType = -1;
    qint64 reservedNumber = 0;  // for the application's own use
    QString reservedText;       // for the application's own use
    int poolExpireTime = -1;
    bool isExPool = false;  // true for the entries of the extra pool list
    QString serverAddress = QStringLiteral("");
    QString serverPort = QStringLiteral("");
    QString gatewayAccessStrategy = QStringLiteral("");
    QString resourceName = QStringLiteral("");
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

// Names under which the records travel in signal signatures; queued connections look them up.
typedef tagLoginRequest LoginRequest;
typedef tagLoginRequest RefreshRequest;
