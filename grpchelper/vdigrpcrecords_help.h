/// \file
/// Records of the one-key help: the user's report and the server's answer.
#pragma once

#include <QMetaType>
#include <QString>

#include "vdigrpcrecords.h"

/// Request of sendUserAskInfo() (\c onekeyHelp): the user's report, from the arguments alone.
struct tagOneKeyHelpInfoRequest {
    QString userMac;      ///< \c userMac.
    QString realName;     ///< \c realName.
    QString phoneNumber;  ///< \c phoneNumber.
    QString email;        ///< \c email.
    QString problemType;  ///< \c problemType.
    QString problemDesc;  ///< \c problemDesc.
    int getLog = 0;       ///< \c getLog; 1 and 3 ask for a log package (behind a gateway, uploaded).

    /// Non-empty: screenshots exist. Its text is never sent: \c screenShotUrl is then
    /// "http://ADDRESS:9001/oneKeyHelpImageCollection" on the address chosen from ip.
    QString screenShotUrl;
    /// The terminal's local addresses joined by ";". One goes out as \c ip: behind a gateway the
    /// first, else the first that reaches the server (else the last tried).
    QString ip;
    QString vmIp;  ///< \c vmIp.
};

/// Answer of sendUserAskInfo(). The signal's flag says whether the server took the report;
/// uploads never change it.
struct tagOneKeyHelpInfoReply {
    tagErrorData error;  ///< The server's error block, or the failed call's status.
    qint64 taskId = 0;   ///< The report's task id (\c taskId), which the uploads carry.
};

Q_DECLARE_METATYPE(tagOneKeyHelpInfoRequest)
Q_DECLARE_METATYPE(tagOneKeyHelpInfoReply)

/// \name Names of the records in signal signatures
/// Queued connections look the records up by these names (VdiDesktopGrpcThread::registerMetaTypes()).
///@{
typedef tagOneKeyHelpInfoRequest OneKeyHelpInfoRequest;  ///< Signal name of the record.
typedef tagOneKeyHelpInfoReply OneKeyHelpInfoReply;  ///< Signal name of the record.
///@}
