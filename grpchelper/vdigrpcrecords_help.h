// Records of the one-key help: the user's report and the server's answer.
#pragma once

#include <QMetaType>
#include <QString>

#include "vdigrpcrecords.h"

// getLog 1 and 3 ask for a log package; a non-empty screenShotUrl says that screenshots exist
// (its text is never sent). ip holds the terminal's local addresses joined by ";".
struct tagOneKeyHelpInfoRequest {
    QString userMac;
    QString realName;
    QString phoneNumber;
    QString email;
    QString problemType;
    QString problemDesc;
    int getLog = 0;
    QString screenShotUrl;
    QString ip;
    QString vmIp;
};

// The signal's flag says whether the server took the report; uploads never change it.
struct tagOneKeyHelpInfoReply {
    tagErrorData error;
    qint64 taskId = 0;
};

Q_DECLARE_METATYPE(tagOneKeyHelpInfoRequest)
Q_DECLARE_METATYPE(tagOneKeyHelpInfoReply)

typedef tagOneKeyHelpInfoRequest OneKeyHelpInfoRequest;
typedef tagOneKeyHelpInfoReply OneKeyHelpInfoReply;
