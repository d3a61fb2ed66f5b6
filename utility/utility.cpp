// Device utilities: which local interface reaches the server, what the terminal runs on, and
// the two commands that restart or switch it off.
#include "utility.h"

#include <QHostAddress>
#include <QNetworkAddressEntry>
#include <QNetworkInterface>
#include <QNetworkProxy>
#include <QProcess>
#include <QStringList>
#include <QSysInfo>
#include <QTcpSocket>
#include <QUuid>

#include "vdilog.h"
#include "vdishell.h"

namespace {
const int kConnectTimeoutMs = 2000;
const int kShellTimeoutMs = 30000;

const char* const kArchCommand = "arch";
const char* const kPineletVersionCommand =
    "sudo dpkg --admindir=/userdata/var/lib/dpkg -s pinelet | grep Description | awk '{print $2}'";
const char* const kRestartCommand = "sudo shutdown -r now";
const char* const kShutdownCommand = "sudo shutdown -h now";

// Runs a command line and waits for it; its outcome is of no interest.
void execute(const QString& commandLine)
{
    QStringList arguments = QProcess::splitCommand(commandLine);
    if (arguments.isEmpty())
        return;
    const QString program = arguments.takeFirst();
    QProcess::execute(program, arguments);
}
} // namespace

Utility::Utility(QObject* parent)
    : QObject(parent)
{
}

Utility::~Utility() = default;

QList<tagLocalNetworkInfo> Utility::getLocalNetworkIPV4Infos() const
{
    QList<tagNetworkInterfaceData> interfaces;
    const QList<QNetworkInterface> all = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface& networkInterface : all) {
        tagNetworkInterfaceData data;
        data.flags = networkInterface.flags();
        data.hardwareAddress = networkInterface.hardwareAddress();
        const QList<QNetworkAddressEntry> entries = networkInterface.addressEntries();
        for (const QNetworkAddressEntry& entry : entries)
            data.addresses.append(entry.ip());
        interfaces.append(data);
    }
    return filterIPv4Candidates(interfaces);
}

QList<tagLocalNetworkInfo> Utility::filterIPv4Candidates(const QList<tagNetworkInterfaceData>& interfaces)
{
    QList<tagLocalNetworkInfo> candidates;
    for (const tagNetworkInterfaceData& networkInterface : interfaces) {
        if (!networkInterface.flags.testFlag(QNetworkInterface::IsUp))
            continue;
        if (!networkInterface.flags.testFlag(QNetworkInterface::IsRunning))
            continue;
        // Loopback interfaces are not skipped by kind: their addresses fall to the tests below.
        for (const QHostAddress& address : networkInterface.addresses) {
            if (address == QHostAddress::LocalHost)
                continue;
            if (address == QHostAddress::LocalHostIPv6)
                continue;
            if (address.toIPv4Address() == 0)  // IPv6 and 0.0.0.0
                continue;
            const QString text = address.toString();
            if (text.startsWith(QLatin1String("169.254")))
                continue;
            if (text.contains(QLatin1String("127.0.0.1")))
                continue;

            tagLocalNetworkInfo info;
            info.mac = networkInterface.hardwareAddress;
            info.ip = text;
            VDI_LOG_IN(QtInfoMsg, "print") << "ip: " << info.ip << " mac: " << info.mac;
            candidates.append(info);
        }
    }
    return candidates;
}

bool Utility::connectedServer(const QString& host, unsigned short port, const tagLocalNetworkInfo& info)
{
    QTcpSocket socket;
    // An application proxy must not decide whether this address reaches the server.
    socket.setProxy(QNetworkProxy::NoProxy);

    // A failed bind does not end the test: the connection is tried all the same.
    const bool bound = socket.bind(QHostAddress(info.ip), 0, QAbstractSocket::DefaultForPlatform);
    VDI_DEBUG << QStringLiteral("bind local ip: %1, mac: %2, status: ").arg(info.ip, info.mac) << bound;

    socket.connectToHost(host, port, QIODevice::ReadWrite, QAbstractSocket::AnyIPProtocol);
    const bool connected = socket.waitForConnected(kConnectTimeoutMs);
    if (connected)
        QObject::disconnect(&socket, nullptr, nullptr, nullptr);
    socket.close();
    return connected;
}

void Utility::reviseMAC(tagLocalNetworkInfo& info)
{
    if (!info.mac.isEmpty()) {
        VDI_DEBUG << "no need revise, the device mac: " << info.mac;
        return;
    }
    // A new value on every call, on purpose: nothing is cached.
    info.mac = QUuid::createUuid().toString(QUuid::WithoutBraces);
    VDI_DEBUG << "need revise and the device mac: " << info.mac;
}

bool Utility::getDeviceNetworkInfo(const QString& host, unsigned short port, tagLocalNetworkInfo& info)
{
    const QList<tagLocalNetworkInfo> candidates = getLocalNetworkIPV4Infos();
    const auto reachesServer = [&](const tagLocalNetworkInfo& candidate) {
        return connectedServer(host, port, candidate);
    };
    if (!chooseDeviceCandidate(candidates, reachesServer, info))
        return false;
    reviseMAC(info);
    return true;
}

bool Utility::chooseDeviceCandidate(const QList<tagLocalNetworkInfo>& candidates,
                                    const std::function<bool(const tagLocalNetworkInfo&)>& reachesServer,
                                    tagLocalNetworkInfo& info)
{
    for (const tagLocalNetworkInfo& candidate : candidates) {
        if (reachesServer(candidate)) {
            info.ip = candidate.ip;
            info.mac = candidate.mac;
            return true;
        }
    }
    if (candidates.isEmpty())
        return false;

    // Nothing reached the server: the first candidate stands in all the same.
    info.ip = candidates.first().ip;
    info.mac = candidates.first().mac;
    return true;
}

QString Utility::getCpuArch()
{
    const QString output = vdishell::output(QLatin1String(kArchCommand), kShellTimeoutMs);
    if (output.contains(QLatin1String("arm"), Qt::CaseInsensitive))
        return QStringLiteral("armhf");
    return QStringLiteral("arm64");
}

bool Utility::isArm()
{
    return QSysInfo::currentCpuArchitecture().contains(QLatin1String("arm"));
}

bool Utility::isMips()
{
    return QSysInfo::currentCpuArchitecture().contains(QLatin1String("mips"));
}

QString Utility::getPineletVersionForLinux()
{
    return vdishell::output(QLatin1String(kPineletVersionCommand), kShellTimeoutMs);
}

QString Utility::getPineletCurrentVersion()
{
    return getPineletVersionForLinux();
}

int Utility::parseDeviceType(const QString& text)
{
    Q_UNUSED(text)
    return -1;
}

QString Utility::sizeString(long long size) const
{
    if (size > 10485760)
        return QString::number(size >> 20) + QLatin1Char('M');
    if (size > 10240)
        return QString::number(size >> 10) + QLatin1Char('K');
    return QString::number(size);
}

void Utility::restartDevice()
{
    execute(QLatin1String(kRestartCommand));
}

void Utility::shutdownDevice()
{
    execute(QLatin1String(kShutdownCommand));
}
