// The library's public face. An application creates one VdiDesktopGrpcThread on a thread that
// runs a Qt event loop, calls its request methods and receives every answer as a signal with a
// plain record and a success flag. The work is done by a VdiDesktopGrpcWorker on a thread of
// its own; no request method blocks.
#pragma once

#include <QObject>
#include <QString>
#include <QThread>

#include "vdigrpcrecords.h"

class VdiDesktopGrpcWorker;

class VdiDesktopGrpcThread : public QObject
{
    Q_OBJECT
public:
    explicit VdiDesktopGrpcThread(QObject* parent = nullptr);
    ~VdiDesktopGrpcThread() override;

    // Cached identity, merged or set on the caller's thread; no worker is involved.
    void initBaseInfoParameter(const tagBaseInfo& baseInfo);
    void initExtendInfoParameter(const tagExtendInfo& extendInfo);
    void setUserName(QString name);
    void setUserNameAndPasswd(const QString& name, const QString& password);
    void setLocalIP(const QString& ip);
    void updateLocalIP(const QString& ip);
    void setLocalMAC(const QString& mac);
    void setProtocolType(const QString& protocolType);
    void setComputeType(int computerType);
    void updateDomain(const QString& domain);
    void updateIsOpenldp(int isOpenldap);
    void setClientLanuage(const QString& language);
    void setClientVersion(const QString& version);
    QString getLocalIP();
    QString getLocalMAC();
    QString getUserName() const;
    QString getUserPasswd() const;

    // Stored in the worker at once, without a queue.
    void initServerType(int serverType);

    // Builds (or rebuilds) the TLS channels to the server. No answer signal: a failure shows in
    // the log and as failed results of later requests.
    void initConnection(QString pemFile, QString serverIP, ushort port, bool isEnglish);

    // Cancels the call in flight, cuts every connection of the facade and ends the worker's
    // thread, waiting one second at most. Call it once, before destruction.
    void stop();

signals:
    void myInitConnection(QString pemFile, QString serverIP, ushort port, bool isEnglish);

    // For the application; no code of the library emits the second.
    void getSessionInfo();
    void saveCurrentVmUuidVDT(QString uuid);

private:
    void registerMetaTypes();

    VdiDesktopGrpcWorker* m_worker;
    tagBaseInfo m_baseInfo;
    QThread m_thread;
    tagExtendInfo m_extendInfo;

    friend class VdiThreadProbe;  // white-box access for the test suite
};
