// Records of the heartbeat: the beat sent now and at every tick of the heart timer, and the
// server's answer.
#pragma once

#include <QMetaType>
#include <QString>

#include "vdigrpcrecords.h"

struct tagHeartbeatRequest {
    QString vmIp;
    tagBaseInfo baseInfo;
    tagExtendInfo extendInfo;
};

struct tagHeartbeatReply {
    tagErrorData error;
};

Q_DECLARE_METATYPE(tagHeartbeatRequest)
Q_DECLARE_METATYPE(tagHeartbeatReply)

typedef tagHeartbeatRequest HeartbeatRequest;
typedef tagHeartbeatReply HeartbeatReply;
