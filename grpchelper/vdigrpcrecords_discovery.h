/// \file
/// Records of server discovery: device configuration, server type, gateways and controllers.
#pragma once

#include "vdigrpcrecords.h"

/// Request of queryDeviceConfigInfo() (\c queryDeviceConfigInfo).
struct tagDeviceConfigInfoReq {
    QString ip;        ///< The address given (\c ip).
    QString mac;       ///< The MAC given (\c mac).
    QString deviceId;  ///< The MAC given, again (\c deviceId).
};

/// Answer of queryDeviceConfigInfo(): this device's configuration, each field as the server
/// sends it (the wire's \c spareIp is not read).
struct tagDeviceConfigInfoResp {
    int authType = 0;                          ///< \c authType.
    QString serverArch = QStringLiteral("");   ///< \c serverArch.
    tagErrorData error;                        ///< The server's error block, or the failed call's status.
    int displayType = 0;                       ///< \c displayType.
    bool rememberPassword = true;  ///< \c rememberPassword; the default shows only in the answer to a failed call.
    QString outId = QStringLiteral("");        ///< \c outId.
};

/// Answer of queryServerTypeInfo(). A successful query fills serverType alone: read the signal's
/// flag, not error.errorCode.
struct tagServerTypeInfoResp {
    tagErrorData error;  ///< Left at its defaults by a success (the reply's error block is not read); else the status.

    /// 1: behind an access gateway, 0: a controller reached directly; the server's \c useGateway.
    /// Any other value is logged and the type the worker had stands instead. -1 after a failure.
    int serverType = -1;
};

/// One access gateway (\c GatewayInfo), each field as the server sends it.
struct tagGatewayInfo {
    QString name;         ///< \c name.
    QString description;  ///< \c description.
    QString type;         ///< \c type.
    QString domain;       ///< \c domain.
    QString publicIp;     ///< \c public_ip.
    QString vdpPort;      ///< \c VDP_port, as text.
    QString rdpPort;      ///< \c RDP_port, as text.
};

/// Answer of queryGatewayInfo().
struct tagGatewayInfoResp {
    tagErrorData error;                 ///< The server's error block, or the failed call's status.
    QList<tagGatewayInfo> gatewayList;  ///< The access gateways (\c gateway_list), in the server's order.
};

/// One node of the controller (\c ResourceInfo), each field as the server sends it.
struct tagResourceInfo {
    qint64 id = 0;        ///< \c id.
    QString name;         ///< \c name.
    QString details;      ///< \c details.
    QString ip;           ///< \c ip.
    QString status;       ///< \c status.
    QString platEdition;  ///< \c platEdition.
    QString country;      ///< \c country.
    QString province;     ///< \c province.
    QString city;         ///< \c city.
    QString district;     ///< \c district.
    QString orgName;      ///< \c orgName.
    bool gateway = false;  ///< \c gateway.
    int port = 0;          ///< \c port.
};

/// Answer of queryControllerListForGrpcThread() (\c QueryNodes).
struct tagQureyControllerListResp {
    QList<tagResourceInfo> resourceList;  ///< The nodes (\c resourceInfo_list), in the server's order.
    tagErrorData error;                   ///< The server's error block, or the failed call's status.
};

/// Answer of queryControllerTypeForGrpcThread() (\c WhoAreYou).
struct tagQueryControllerTypeResp {
    QString name;        ///< The server's name for itself (\c name).
    tagErrorData error;  ///< The server's error block, or the failed call's status.
};

/// Answer of queryServerIpForVm() (\c queryAgentUseControllerIp): the controller address that
/// desktops use.
struct tagVmControllerIpResp {
    QString ip;          ///< \c ip.
    int port = 0;        ///< \c port.
    QString domainName;  ///< \c domain_name.
    tagErrorData error;  ///< The server's error block, or the failed call's status.
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

/// \name Names of the records in signal signatures
/// Queued connections look the records up by these names (VdiDesktopGrpcThread::registerMetaTypes()).
///@{
typedef tagDeviceConfigInfoReq DeviceConfigInfoReq;  ///< Signal name of the record.
typedef tagDeviceConfigInfoResp DeviceConfigInfoResp;  ///< Signal name of the record.
typedef tagServerTypeInfoResp ServerTypeInfoResp;  ///< Signal name of the record.
typedef tagGatewayInfoResp GatewayInfoResp;  ///< Signal name of the record.
typedef tagQueryControllerTypeResp QueryControllerTypeResp;  ///< Signal name of the record.
typedef tagQureyControllerListResp QureyControllerListResp;  ///< Signal name of the record.
typedef tagVmControllerIpResp VmControllerIpResp;  ///< Signal name of the record.
///@}
