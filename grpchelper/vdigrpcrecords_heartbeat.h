/// \file
/// Records of the heartbeat: the beat sent now and at every tick of the heart timer, and the
/// server's answer.
#pragma once

#include <QMetaType>
#include <QString>

#include "vdigrpcrecords.h"

/// Request of sendHeart() (\c Heartbeat); the worker keeps the last one and sends it again at
/// every tick of the heart timer.
struct tagHeartbeatRequest {
    QString vmIp;              ///< The desktop's address given (\c vm_ip).
    tagBaseInfo baseInfo;      ///< The cached identity with the desktop's UUID, and its id unless -1 was given.
    tagExtendInfo extendInfo;  ///< The cached device and client (\c client_extend_info).
};

/// Answer of a heartbeat.
struct tagHeartbeatReply {
    tagErrorData error;  ///< The server's error block, or the failed call's status (14 and 4 still answer true).
};

Q_DECLARE_METATYPE(tagHeartbeatRequest)
Q_DECLARE_METATYPE(tagHeartbeatReply)

/// \name Names of the records in signal signatures
/// Queued connections look the records up by these names (VdiDesktopGrpcThread::registerMetaTypes()).
///@{
typedef tagHeartbeatRequest HeartbeatRequest;  ///< Signal name of the record.
typedef tagHeartbeatReply HeartbeatReply;  ///< Signal name of the record.
///@}
