// Records of desktops: pools, virtual machines, their control policies and the replies of the
// login and of the desktop operations.
#pragma once

#include "vdigrpcrecords.h"

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

struct tagDevice {
    QString deviceId = QStringLiteral("");
    tagVMAddress address;
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

struct tagLoginReply {
    QString domain;
    QString netBIOS;
    int updateInterval = 0;
    int startTimeout = 0;
    int authType = 0;
    QList<tagPoolInfo> poolList;  // the pools, then the extra pools
    QString name;
    QString password;
    qint64 dueDate = 0;
    qint64 userExpireTime = 0;
    qint64 userId = 0;
    int smsAuthIsReLogin = 0;
    int smsTimout = 0;
    int isOpenldap = 0;
    QString headShot;
    QString userLoginName;
    QString userPassword;
    tagErrorData error;
    bool spmIdBinding = false;
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

Q_DECLARE_METATYPE(tagVMOperator)
Q_DECLARE_METATYPE(tagVMAddress)
Q_DECLARE_METATYPE(tagSnapshotInfo)
Q_DECLARE_METATYPE(tagMixCalProgram)
Q_DECLARE_METATYPE(tagDevice)
Q_DECLARE_METATYPE(tagControlPolicy)
Q_DECLARE_METATYPE(tagVMInfo)
Q_DECLARE_METATYPE(tagVM)
Q_DECLARE_METATYPE(tagPoolInfo)
Q_DECLARE_METATYPE(tagLoginReply)
Q_DECLARE_METATYPE(tagApplyForVMReply)
Q_DECLARE_METATYPE(tagOperateForVMReply)
Q_DECLARE_METATYPE(tagRecoverVMReply)
Q_DECLARE_METATYPE(tagSnapshotReply)
Q_DECLARE_METATYPE(tagApplyForDeviceInfoReply)
Q_DECLARE_METATYPE(tagDeskTopPoolReply)
Q_DECLARE_METATYPE(tagQueryVmInfoResp)

typedef tagLoginReply LoginReply;
typedef tagApplyForVMReply ApplyForVMReply;
typedef tagOperateForVMReply OperateForVMReply;
typedef tagRecoverVMReply RecoverVMReply;
typedef tagSnapshotReply SnapshotReply;
typedef tagApplyForDeviceInfoReply ApplyForDeviceInfoReply;
typedef tagQueryVmInfoResp QueryVmInfoResp;
