// Records of server discovery: device configuration, server type, gateways and controllers.
#pragma once

#include "vdigrpcrecords.h"

struct tagDeviceConfigInfoReq {
    QString ip;
    QString mac;
    QString deviceId;
};

struct tagDeviceConfigInfoResp {
    int authType = 0;
    QString serverArch = QStringLiteral("");
    tagErrorData error;
    int displayType = 0;
    bool rememberPassword = true;  // shows only in the answer to a failed call
    QString outId = QStringLiteral("");
};

// A successful query fills serverType alone: read the signal's flag, not error.errorCode.
struct tagServerTypeInfoResp {
    tagErrorData error;
    int serverType = -1;
};

struct tagGatewayInfo {
    QString name;
    QString description;
    QString type;
    QString domain;
    QString publicIp;
    QString vdpPort;
    QString rdpPort;
};

struct tagGatewayInfoResp {
    tagErrorData error;
    QList<tagGatewayInfo> gatewayList;
};

struct tagResourceInfo {
    qint64 id = 0;
    QString name;
    QString details;
    QString ip;
    QString status;
    QString platEdition;
    QString country;
    QString province;
    QString city;
    QString district;
    QString orgName;
    bool gateway = false;
    int port = 0;
};

struct tagQureyControllerListResp {
    QList<tagResourceInfo> resourceList;
    tagErrorData error;
};

struct tagQueryControllerTypeResp {
    QString name;
    tagErrorData error;
};

struct tagVmControllerIpResp {
    QString ip;
    int port = 0;
    QString domainName;
    tagErrorData error;
};

Q_DECLARE_METATYPE(tagDeviceConfigInfoReq)
Q_DECLARE_METATYPE(tagDeviceConfigInfoResp)
Q_DECLARE_METATYPE(tagServerTypeInfoResp)
Q_DECLARE_METATYPE(tagGatewayInfo)
Q_DECLARE_METATYPE(tagGatewayInfoResp)
Q_DECLARE_METATYPE(tagResourceInfo)
Q_DECLARE_METATYPE(tagQureyControllerListResp)
Q_DECLARE_METATYPE(tagQueryControllerTypeResp)
Q_DECLARE_METATYPE(tagVmControllerIpResp)

typedef tagDeviceConfigInfoReq DeviceConfigInfoReq;
typedef tagDeviceConfigInfoResp DeviceConfigInfoResp;
typedef tagServerTypeInfoResp ServerTypeInfoResp;
typedef tagGatewayInfoResp GatewayInfoResp;
typedef tagQueryControllerTypeResp QueryControllerTypeResp;
typedef tagQureyControllerListResp QureyControllerListResp;
typedef tagVmControllerIpResp VmControllerIpResp;
