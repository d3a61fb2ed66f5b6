/// \file
/// Records of the login: the reply with the user's pools and desktops (the request, which the
/// application catalogue carries too, is a shared record).
#pragma once

#include <QList>
#include <QMetaType>
#include <QString>

#include "vdigrpcrecords.h"

/// Answer of a login and of updateVmInfoFromServer() (\c LoginResp): the user's identity, pools
/// and desktops, each field as the server sends it unless noted. A login behind an access
/// gateway that the gateway refused, or with empty gateway credentials, answers a fresh record
/// whose errorMsgZh starts with "认证网关失败" (gateway authentication failed).
struct tagLoginReply {
    QString domain;               ///< \c domain.
    QString netBIOS;              ///< \c netBIOS.
    int updateInterval = 0;       ///< \c update_interval.
    int startTimeout = 0;         ///< \c start_timeout.
    int authType = 0;             ///< \c auth_type.
    QList<tagPoolInfo> poolList;  ///< The pools (\c pool_list), then the extra pools (\c ex_pool_list).
    QString name;                 ///< \c name.
    QString password;             ///< \c password.
    qint64 dueDate = 0;           ///< \c due_date.
    qint64 userExpireTime = 0;    ///< \c user_expire_time.
    qint64 userId = 0;            ///< \c user_id.
    int smsAuthIsReLogin = 0;     ///< \c smsAuthIsReLogin.
    int smsTimout = 0;            ///< \c smsTimout.
    int isOpenldap = 0;           ///< \c isOpenldap.
    QString headShot;             ///< \c headShot.
    QString userLoginName;        ///< \c userLoginName.
    QString userPassword;         ///< \c userPassword.

    /// The server's error block, or the failed call's status. A login whose server answered code 4
    /// (timeout) while it is still in reach gets a text of its own in errorMsgZh.
    tagErrorData error;
    bool spmIdBinding = false;    ///< \c spmIdBinding.
};

Q_DECLARE_METATYPE(tagLoginReply)

/// \name Names of the records in signal signatures
/// Queued connections look the records up by these names (VdiDesktopGrpcThread::registerMetaTypes()).
///@{
typedef tagLoginReply LoginReply;  ///< Signal name of the record.
///@}
