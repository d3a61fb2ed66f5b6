// Device utilities: network identity, platform queries and device control.
#pragma once

#include "vdidesktopgrpc_export.h"

#include <functional>

#include <QHostAddress>
#include <QList>
#include <QNetworkInterface>
#include <QObject>
#include <QString>

// One local IPv4 address with the hardware address of its interface.
struct tagLocalNetworkInfo
{
    QString ip;   // dotted IPv4 text
    QString mac;  // hardware address, or a UUID text once revised
};

// What the search for candidates reads of one local interface.
struct tagNetworkInterfaceData
{
    QNetworkInterface::InterfaceFlags flags;
    QString hardwareAddress;
    QList<QHostAddress> addresses;  // of its address entries, in order
};

// Stateless helpers for the terminal: every operation depends only on its arguments and on
// the machine, and every one of them blocks the calling thread.
class VDIDESKTOPGRPC_EXPORT Utility : public QObject
{
    Q_OBJECT
public:
    explicit Utility(QObject* parent = nullptr);
    ~Utility() override;

    // ---- Network identity ----
    // IPv4 addresses of the interfaces that are up and running, without loopback, link-local
    // and 0.0.0.0 addresses, in the order of the interfaces and of their addresses.
    QList<tagLocalNetworkInfo> getLocalNetworkIPV4Infos() const;
    // The rule behind it, on interface data given by the caller.
    static QList<tagLocalNetworkInfo> filterIPv4Candidates(const QList<tagNetworkInterfaceData>& interfaces);
    // TCP handshake with host:port from the candidate's address, 2 seconds at most.
    bool connectedServer(const QString& host, unsigned short port, const tagLocalNetworkInfo& info);
    // An empty MAC becomes a fresh random UUID text; a non-empty one is kept.
    void reviseMAC(tagLocalNetworkInfo& info);
    // Fills the record with the first candidate that reaches host:port or, if none does, with
    // the first candidate. False, with the record untouched, only when there is no candidate.
    bool getDeviceNetworkInfo(const QString& host, unsigned short port, tagLocalNetworkInfo& info);
    // The choice behind it: the candidates are tried in order with `reachesServer` until one
    // answers true. Copies the chosen one (or the first) into the record, unrevised.
    static bool chooseDeviceCandidate(const QList<tagLocalNetworkInfo>& candidates,
                                      const std::function<bool(const tagLocalNetworkInfo&)>& reachesServer,
                                      tagLocalNetworkInfo& info);

    // ---- Platform queries ----
    // "armhf" when `arch` prints something with "arm" in it, "arm64" in every other case.
    QString getCpuArch();
    bool isArm();
    bool isMips();
    // Second word of the Description line of the pinelet package; empty when not installed.
    QString getPineletVersionForLinux();
    QString getPineletCurrentVersion();
    // Placeholder of the interface: -1 for any text.
    int parseDeviceType(const QString& text);
    // Compact size with binary units: "123", "10K", "10M".
    QString sizeString(long long size) const;

    // ---- Device control, through sudo ----
    void restartDevice();
    void shutdownDevice();
};
