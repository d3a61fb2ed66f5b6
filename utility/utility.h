/// \file
/// Device utilities: network identity, platform queries and device control.
#pragma once

#include "vdidesktopgrpc_export.h"

#include <functional>

#include <QHostAddress>
#include <QList>
#include <QNetworkInterface>
#include <QObject>
#include <QString>

/// One local IPv4 address with the hardware address of its interface.
struct tagLocalNetworkInfo
{
    QString ip;   ///< Dotted IPv4 text.
    QString mac;  ///< Hardware address, or a UUID text once revised (Utility::reviseMAC()).
};

/// What the search for candidates reads of one local interface (Utility::filterIPv4Candidates()).
struct tagNetworkInterfaceData
{
    QNetworkInterface::InterfaceFlags flags;  ///< The interface's flags: it must be up and running.
    QString hardwareAddress;                  ///< Its hardware address, as QNetworkInterface gives it.
    QList<QHostAddress> addresses;  ///< The addresses of its address entries, in order.
};

/// Stateless helpers for the terminal: every operation depends only on its arguments and on
/// the machine, and every one of them blocks the calling thread. The worker finds the local
/// address and MAC of initDeviceInfo() with getDeviceNetworkInfo().
class VDIDESKTOPGRPC_EXPORT Utility : public QObject
{
    Q_OBJECT
public:
    /// Holds no state of its own.
    explicit Utility(QObject* parent = nullptr);
    /// Nothing to release.
    ~Utility() override;

    // ---- Network identity ----
    /// IPv4 addresses of this machine's interfaces as filterIPv4Candidates() keeps them, in the
    /// order of the interfaces and of their addresses.
    QList<tagLocalNetworkInfo> getLocalNetworkIPV4Infos() const;
    /// The rule of getLocalNetworkIPV4Infos(), on interface data given by the caller: only
    /// interfaces both up and running count, and of their addresses IPv6 ones, 0.0.0.0, those in
    /// 169.254.0.0/16 and any whose text contains 127.0.0.1 are left out.
    static QList<tagLocalNetworkInfo> filterIPv4Candidates(const QList<tagNetworkInterfaceData>& interfaces);
    /// TCP handshake with \a host : \a port from the candidate's address, 2 seconds at most, no
    /// proxy; true when it connected. A failed bind to the address does not stop the attempt.
    bool connectedServer(const QString& host, unsigned short port, const tagLocalNetworkInfo& info);
    /// An empty MAC becomes a fresh random UUID text (no braces); a non-empty one is kept.
    void reviseMAC(tagLocalNetworkInfo& info);
    /// Fills the record with the first candidate that reaches \a host : \a port or, if none
    /// does, with the first candidate, its MAC revised (reviseMAC()). False, with the record
    /// untouched, only when there is no candidate.
    bool getDeviceNetworkInfo(const QString& host, unsigned short port, tagLocalNetworkInfo& info);
    /// The choice of getDeviceNetworkInfo(): the candidates are tried in order with
    /// \a reachesServer until one answers true. Copies the chosen one (or the first) into the
    /// record, unrevised.
    static bool chooseDeviceCandidate(const QList<tagLocalNetworkInfo>& candidates,
                                      const std::function<bool(const tagLocalNetworkInfo&)>& reachesServer,
                                      tagLocalNetworkInfo& info);

    /// \name Platform queries
    ///@{

    /// "armhf" when `arch` prints something with "arm" in it (any case), "arm64" in every other
    /// case, a failed or silent `arch` included. Waits 30 seconds at most.
    QString getCpuArch();
    /// True when QSysInfo::currentCpuArchitecture() contains "arm".
    bool isArm();
    /// True when QSysInfo::currentCpuArchitecture() contains "mips".
    bool isMips();
    /// Second word of the Description line of the pinelet package (dpkg, through sudo, in the
    /// package database under /userdata); empty when not installed. Waits 30 seconds at most.
    QString getPineletVersionForLinux();
    /// Same as getPineletVersionForLinux().
    QString getPineletCurrentVersion();
    /// Placeholder of the interface: -1 for any text.
    int parseDeviceType(const QString& text);
    /// Compact size with binary units, rounded down: the bytes up to 10240 ("123"), whole KiB
    /// up to 10 MiB ("11K"), whole MiB above ("12M").
    QString sizeString(long long size) const;
    ///@}

    /// \name Device control, through sudo
    /// Each runs its command and waits for it; the outcome is not looked at.
    ///@{

    /// Restarts the terminal: `sudo shutdown -r now`.
    void restartDevice();
    /// Switches the terminal off: `sudo shutdown -h now`.
    void shutdownDevice();
    ///@}
};
