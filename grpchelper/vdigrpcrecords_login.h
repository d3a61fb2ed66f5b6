// Records of the login: the reply with the user's pools and desktops (the request, which the
// application catalogue carries too, is a shared record).
#pragma once

#include <QList>
#include <QMetaType>
#include <QString>

#include "vdigrpcrecords.h"

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

Q_DECLARE_METATYPE(tagLoginReply)

typedef tagLoginReply LoginReply;
