// Device utilities against loopback and against stand-ins of sudo, shutdown, dpkg and arch.
#include "testsupport.h"

#include <algorithm>

#include <QNetworkProxy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUuid>

#include "utility.h"

namespace {
const char* const kOutput = "VDI_FAKE_OUTPUT";  // what the stand-ins of arch and dpkg print

// A call of the utility that runs shell tools, and its answer.
using Command = std::function<QString(Utility&)>;

bool isUuidText(const QString& text)
{
    return text.size() == 36 && !text.startsWith('{') && !QUuid::fromString(text).isNull();
}
} // namespace

Q_DECLARE_METATYPE(Command)

class TestUtility : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void connectedServer_data();
    void connectedServer();
    void reviseMac();
    void candidateFilter();
    void candidateChoice_data();
    void candidateChoice();
    void deviceNetworkInfo_data();
    void deviceNetworkInfo();
    void sizeString_data();
    void sizeString();
    void deviceTypeIsUnknown();
    void commands_data();
    void commands();

private:
    std::unique_ptr<vditest::FakeTools> m_fakes;
};

void TestUtility::initTestCase()
{
    // sudo runs the fake of shutdown or dpkg, nothing else.
    m_fakes = std::make_unique<vditest::FakeTools>(QMap<QString, QString>{
        {"sudo", "case \"$1\" in shutdown|dpkg) t=\"$1\"; shift; exec '@DIR@/'\"$t\" \"$@\" ;; esac"},
        {"shutdown", QString()},
        {"dpkg", QString("printf '%s\\n' \"$%1\"").arg(kOutput)},
        {"arch", QString("printf '%s\\n' \"$%1\"").arg(kOutput)},
    });
    QVERIFY2(m_fakes->ready(), "sudo and shutdown do not resolve to the stand-ins; refusing to run");  // no test runs
}

void TestUtility::connectedServer_data()
{
    QTest::addColumn<QString>("ip");
    QTest::addColumn<bool>("listening");
    QTest::addColumn<QString>("bindStatus");
    QTest::newRow("bound, listening") << "127.0.0.1" << true << "true";
    QTest::newRow("bound, port closed") << "127.0.0.1" << false << "true";
    // An address of no interface: the bind fails, the connection is tried all the same.
    QTest::newRow("bind fails, listening") << "198.51.100.7" << true << "false";
}

void TestUtility::connectedServer()
{
    QFETCH(QString, ip);
    QFETCH(bool, listening);
    QFETCH(QString, bindStatus);
    QTcpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    const quint16 port = listening ? server.serverPort() : vditest::unusedPort();
    // An application proxy that leads nowhere must not change the outcome.
    QNetworkProxy::setApplicationProxy(QNetworkProxy(QNetworkProxy::Socks5Proxy, "127.0.0.1", vditest::unusedPort()));

    vditest::LogCapture log;
    const bool connected = Utility().connectedServer("127.0.0.1", port, {ip, "52:54:00:12:34:56"});
    QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
    QCOMPARE(connected, listening);

    const QString line = QString("[ connectedServer ] \"bind local ip: %1, mac: 52:54:00:12:34:56, status: \" %2");
    QVERIFY2(log.count(line.arg(ip, bindStatus), QtDebugMsg) == 1 && log.count("bind local ip") == 1, qPrintable(log.dump()));
}

void TestUtility::reviseMac()
{
    vditest::LogCapture log;
    Utility utility;
    tagLocalNetworkInfo kept{"10.1.2.3", "AA:BB:CC:DD:EE:FF"};
    utility.reviseMAC(kept);
    QCOMPARE(kept.mac, QString("AA:BB:CC:DD:EE:FF"));
    QVERIFY(log.contains("[ reviseMAC ] no need revise, the device mac: ", QtDebugMsg));

    tagLocalNetworkInfo first{"10.1.2.3", QString()}, second = first;
    utility.reviseMAC(first);
    utility.reviseMAC(second);
    QVERIFY2(isUuidText(first.mac) && isUuidText(second.mac), qPrintable(first.mac + " " + second.mac));
    QVERIFY(first.mac != second.mac);  // nothing is cached between calls
    QCOMPARE(first.ip, QString("10.1.2.3"));
    QCOMPARE(log.count("[ reviseMAC ] need revise and the device mac: ", QtDebugMsg), 2);  // none for the kept one
}

// Candidates are the IPv4 addresses of interfaces that are up and running, in their order, but
// loopback, unspecified and link-local ones; a missing MAC is revised later, not here.
void TestUtility::candidateFilter()
{
    const auto up = QNetworkInterface::IsUp | QNetworkInterface::IsRunning;
    const auto addresses = [](const QStringList& texts) {
        QList<QHostAddress> list;
        for (const QString& text : texts)
            list << QHostAddress(text);
        return list;
    };
    const QList<tagNetworkInterfaceData> interfaces{
        {up, "52:54:00:00:00:01", addresses({"10.0.0.2", "127.0.0.1", "::1", "fe80::5054:ff:fe12:3456", "0.0.0.0",
                                             "169.254.1.1", "10.169.254.1", "::ffff:127.0.0.1", "10.0.0.3"})},
        {QNetworkInterface::IsUp, "52:54:00:00:00:02", addresses({"10.0.0.4"})},
        {QNetworkInterface::IsRunning, "52:54:00:00:00:03", addresses({"10.0.0.5"})},
        {up | QNetworkInterface::IsLoopBack, "52:54:00:00:00:04", addresses({"10.0.0.6"})},  // its flag does not matter
        {up, QString(), addresses({"192.168.7.9"})},
    };
    for (const tagNetworkInterfaceData& data : interfaces)
        QVERIFY(std::none_of(data.addresses.begin(), data.addresses.end(), [](const QHostAddress& a) { return a.isNull(); }));
    vditest::LogCapture log;
    QStringList found;
    for (const tagLocalNetworkInfo& candidate : Utility::filterIPv4Candidates(interfaces))
        found << candidate.ip + " " + candidate.mac;
    QCOMPARE(found, QStringList({"10.0.0.2 52:54:00:00:00:01", "10.169.254.1 52:54:00:00:00:01", "10.0.0.3 52:54:00:00:00:01",
                                 "10.0.0.6 52:54:00:00:00:04", "192.168.7.9 "}));
    QCOMPARE(log.count("[ print ] ip: ", QtInfoMsg), found.size());
}

void TestUtility::candidateChoice_data()
{
    // Addresses apart by spaces.
    QTest::addColumn<QString>("candidates");
    QTest::addColumn<QString>("reaching");
    QTest::addColumn<QString>("tried");
    QTest::addColumn<QString>("chosen");  // empty: nothing found
    QTest::newRow("only the second reaches") << "10.0.0.1 10.0.0.2" << "10.0.0.2" << "10.0.0.1 10.0.0.2" << "10.0.0.2";
    QTest::newRow("the first wins, the rest untried") << "10.0.0.1 10.0.0.2" << "10.0.0.1 10.0.0.2" << "10.0.0.1" << "10.0.0.1";
    QTest::newRow("none reaches: the first stands in") << "10.0.0.1 10.0.0.2" << "" << "10.0.0.1 10.0.0.2" << "10.0.0.1";
    QTest::newRow("no candidate") << "" << "" << "" << "";
}

void TestUtility::candidateChoice()
{
    QFETCH(QString, candidates);
    QFETCH(QString, reaching);
    QFETCH(QString, tried);
    QFETCH(QString, chosen);
    QList<tagLocalNetworkInfo> list;
    for (const QString& ip : candidates.split(' ', Qt::SkipEmptyParts))
        list.append({ip, "mac of " + ip});
    QStringList calls;
    const auto reachesServer = [&](const tagLocalNetworkInfo& candidate) {
        calls << candidate.ip;
        return reaching.split(' ').contains(candidate.ip);
    };
    tagLocalNetworkInfo info{"untouched", "untouched mac"};
    const bool found = Utility::chooseDeviceCandidate(list, reachesServer, info);
    QCOMPARE(calls.join(' '), tried);
    QCOMPARE(found, !chosen.isEmpty());
    QCOMPARE(info.ip + "|" + info.mac, found ? chosen + "|mac of " + chosen : QString("untouched|untouched mac"));
}

void TestUtility::deviceNetworkInfo_data()
{
    QTest::addColumn<bool>("listening");
    QTest::newRow("server up") << true;
    QTest::newRow("server down") << false;  // refused at once: no candidate waits long
}

void TestUtility::deviceNetworkInfo()
{
    QFETCH(bool, listening);
    QTcpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    const quint16 port = listening ? server.serverPort() : vditest::unusedPort();
    Utility utility;
    const QList<tagLocalNetworkInfo> candidates = utility.getLocalNetworkIPV4Infos();
    tagLocalNetworkInfo info{"untouched", "untouched mac"};
    const bool found = utility.getDeviceNetworkInfo("127.0.0.1", port, info);

    // Loopback is never a candidate: a host with loopback only must leave the record alone.
    if (candidates.isEmpty()) {
        QVERIFY(!found);
        QCOMPARE(info.ip + "|" + info.mac, QString("untouched|untouched mac"));
        return;
    }
    QVERIFY(found);
    const auto chosen = std::find_if(candidates.begin(), candidates.end(), [&](const auto& c) { return c.ip == info.ip; });
    QVERIFY2(chosen != candidates.end(), qPrintable(info.ip));
    QVERIFY2(chosen->mac.isEmpty() ? isUuidText(info.mac) : info.mac == chosen->mac, qPrintable(info.mac));
    if (!listening)
        QCOMPARE(info.ip, candidates.first().ip);  // nobody reached it: the first stands in
    else if (server.waitForNewConnection(200))  // the handshake came from the chosen address
        QCOMPARE(server.nextPendingConnection()->peerAddress().toString(), info.ip);
}

void TestUtility::sizeString_data()
{
    QTest::addColumn<qlonglong>("size");
    QTest::addColumn<QString>("expected");
    QTest::newRow("negative") << -5LL << "-5";
    QTest::newRow("last plain") << 10240LL << "10240";
    QTest::newRow("first K") << 10241LL << "10K";
    QTest::newRow("K cuts remainder") << 12287LL << "11K";
    QTest::newRow("last K") << 10485760LL << "10240K";
    QTest::newRow("first M") << 10485761LL << "10M";
    QTest::newRow("beyond 32 bits") << 5LL * 1024 * 1024 * 1024 + 1 << "5120M";
}

void TestUtility::sizeString()
{
    QFETCH(qlonglong, size);
    QFETCH(QString, expected);
    QCOMPARE(Utility().sizeString(size), expected);
}

void TestUtility::deviceTypeIsUnknown()
{
    for (const QString& text : {QString(), QString("0"), QString("1"), QString("thin client")})
        QCOMPARE(Utility().parseDeviceType(text), -1);
}

void TestUtility::commands_data()
{
    QTest::addColumn<Command>("command");
    QTest::addColumn<QByteArray>("output");
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QString>("lines");  // the command lines that the stand-ins ran, by tool
    const Command arch = [](Utility& u) { return u.getCpuArch(); };
    QTest::newRow("armv7l") << arch << QByteArray("armv7l") << "armhf" << "arch";
    QTest::newRow("ARMv8, any case") << arch << QByteArray("ARMv8") << "armhf" << "arch";
    QTest::newRow("aarch64 has no 'arm'") << arch << QByteArray("aarch64") << "arm64" << "arch";
    QTest::newRow("nothing") << arch << QByteArray() << "arm64" << "arch";
    const Command current = [](Utility& u) { return u.getPineletCurrentVersion(); };
    const Command forLinux = [](Utility& u) { return u.getPineletVersionForLinux(); };
    // The Version line differs from the word of the Description line on purpose.
    const QByteArray status("Package: pinelet\nVersion: 9.9.9\nDescription: 3.2.1-build7 pinelet agent");
    const QString query = "dpkg --admindir=/userdata/var/lib/dpkg -s pinelet";
    const QString dpkg = "sudo " + query + "\n" + query;
    QTest::newRow("pinelet installed") << current << status << "3.2.1-build7" << dpkg;
    QTest::newRow("pinelet installed, for Linux") << forLinux << status << "3.2.1-build7" << dpkg;
    QTest::newRow("pinelet not installed") << current << QByteArray() << QString() << dpkg;
    const Command restart = [](Utility& u) { u.restartDevice(); return QString(); };
    const Command shutdown = [](Utility& u) { u.shutdownDevice(); return QString(); };
    QTest::newRow("restart") << restart << QByteArray() << QString() << "sudo shutdown -r now\nshutdown -r now";
    QTest::newRow("shutdown") << shutdown << QByteArray() << QString() << "sudo shutdown -h now\nshutdown -h now";
}

// Each runs its command line once, and neither asks nor logs.
void TestUtility::commands()
{
    QFETCH(Command, command);
    QFETCH(QByteArray, output);
    QFETCH(QString, answer);
    QFETCH(QString, lines);
    qputenv(kOutput, output);
    m_fakes->clearCalls();
    vditest::LogCapture log;
    Utility utility;
    QCOMPARE(command(utility), answer);
    QStringList ran;
    for (const QString tool : {"sudo", "shutdown", "dpkg", "arch"}) {
        for (const QString& arguments : m_fakes->callLines(tool))
            ran << (tool + ' ' + arguments).trimmed();
    }
    QCOMPARE(ran.join('\n'), lines);
    QVERIFY2(log.lines().isEmpty(), qPrintable(log.dump()));
}

VDI_TEST_MAIN(TestUtility)
#include "tst_utility.moc"
