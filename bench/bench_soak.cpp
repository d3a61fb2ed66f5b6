// A long run of mixed requests through the facade, as an application makes them, against the
// fake controller with its simulated deployment in a process of its own (so that nothing of the
// server counts in this process's figures). One request at a time; each is answered by its
// result signal, waited for with a time limit.
//
// - The requests go round heartbeats, logins, desktop list refreshes, desktop queries and
//   snapshot lists, device and detail queries of the desktop, the remote and SaaS application
//   catalogues, a SaaS permission, password checks, the login options and the share terminals.
// - Every tenth request has its reply scripted to fail at the server (UNAVAILABLE and INTERNAL
//   in turn), and in the middle of every block the server goes down for a few requests and
//   comes back on the same port with the same certificate.
// - After every block: the requests so far, resident memory, open descriptors and threads of
//   this process (of which gRPC's own pools), and the mean time of the requests that failed and
//   of those that succeeded.
// - At the end the figures after the warm-up against the targets. Threads: the process's own
//   (all but gRPC's pools) must stay flat; gRPC's pools grow on demand to a bound, so the whole
//   count must be flat over the second half. Failing request: the median of the last quarter of
//   the blocks against the first quarter's, so that one slow block of a busy machine does not
//   decide; the failing request's time over the succeeding one's is shown beside it, which the
//   machine's speed does not move.
//
// A request is ok when its flag is true and the record's error code is 0 (or unset): a
// heartbeat that the library answers true with code 14 while the server is down counts as
// failed here. A request not answered within the limit is missing.
//
// Usage: vdi-bench-soak [--calls N] [--block N] [--warmup N] [--down N]
#include <algorithm>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include "benchsupport.h"
#include "vdidesktopgrpcthread.h"

using namespace vdibench;

namespace {

const int kAnswerLimitMs = 10000;  // a request not answered by then counts as missing

// One kind of request: the RPC it makes and how the application asks for it.
struct Kind {
    const char* name;
    std::string method;
    std::function<void()> issue;
};

// What happened to one request.
enum class Outcome { Ok, Failed, Missing };

struct BlockFigures {
    long calls = 0;  // requests so far
    long long rssKib = 0;
    int fds = 0;
    int threads = 0;
    int grpcThreads = 0;  // of `threads`
    long ok = 0, failed = 0, missing = 0;
    double okMicros = 0, failedMicros = 0;          // sums
    long scripted = 0, outage = 0;                  // failures by cause
    double scriptedMicros = 0, outageMicros = 0;    // sums
    long unexpected = 0;  // a failure nobody scripted, or a scripted failure that succeeded

    double okMean() const { return ok ? okMicros / double(ok) : 0; }
    double failedMean() const { return failed ? failedMicros / double(failed) : 0; }
};

// Sends requests through the facade and waits for each answer in a local event loop.
class Driver
{
public:
    explicit Driver(VdiDesktopGrpcThread& facade) : m_facade(facade)
    {
        m_limit.setSingleShot(true);
        QObject::connect(&m_limit, &QTimer::timeout, &m_loop, [this] { m_loop.exit(1); });
        QObject::connect(&facade, &VdiDesktopGrpcThread::loginResult, &m_loop, [this](LoginReply reply, bool status) {
            for (const tagPoolInfo& pool : reply.poolList) {
                if (status && !pool.vmList.isEmpty()) {
                    m_vmId = QString::number(pool.vmList.first().vmId);
                    m_vmUuid = pool.vmList.first().vmUuid;
                    break;
                }
            }
        });
    }

    // A kind of request, answered by `signal`.
    template <class Signal>
    void add(const char* name, const char* method, Signal signal, std::function<void()> issue)
    {
        watch(int(m_kinds.size()), signal);
        m_kinds.push_back({name, method, std::move(issue)});
    }
    const std::vector<Kind>& kinds() const { return m_kinds; }

    Outcome run(int kind)
    {
        m_kind = kind;
        m_answered = false;
        m_kinds[size_t(kind)].issue();
        m_limit.start(kAnswerLimitMs);
        const int code = m_answered ? 0 : m_loop.exec();
        m_limit.stop();
        m_kind = -1;
        if (code != 0)
            return Outcome::Missing;
        return m_ok ? Outcome::Ok : Outcome::Failed;
    }

    QString vmId() const { return m_vmId; }
    QString vmUuid() const { return m_vmUuid; }
    long strays() const { return m_strays; }

private:
    template <class Reply>
    void watch(int kind, void (VdiDesktopGrpcThread::*signal)(Reply, bool))
    {
        QObject::connect(&m_facade, signal, &m_loop,
                         [this, kind](Reply reply, bool status) { answered(kind, status && reply.error.errorCode <= 0); });
    }
    template <class Reply>
    void watch(int kind, void (VdiDesktopGrpcThread::*signal)(Reply, bool, int))
    {
        QObject::connect(&m_facade, signal, &m_loop, [this, kind](Reply reply, bool status, int) {
            answered(kind, status && reply.error.errorCode <= 0);
        });
    }

    void answered(int kind, bool ok)
    {
        if (kind != m_kind || m_answered) {
            ++m_strays;  // late, or a second answer: no request of this kind is waiting
            return;
        }
        m_answered = true;
        m_ok = ok;
        m_loop.quit();
    }

    VdiDesktopGrpcThread& m_facade;
    std::vector<Kind> m_kinds;
    QEventLoop m_loop;
    QTimer m_limit;
    int m_kind = -1;
    bool m_answered = false;
    bool m_ok = false;
    long m_strays = 0;
    QString m_vmId = QStringLiteral("0");
    QString m_vmUuid;
};

} // namespace

int main(int argc, char* argv[])
{
    IsolatedHome home;
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (const int served = serveIfAsked(args); served >= 0)
        return served;

    const int calls = positiveOption(args, QStringLiteral("--calls"), 20000);
    const int blockSize = positiveOption(args, QStringLiteral("--block"), 1000);
    const int warmup = positiveOption(args, QStringLiteral("--warmup"), 2000);
    const int downCalls = positiveOption(args, QStringLiteral("--down"), 10);

    ServerProcess server;
    if (!server.isReady()) {
        std::fprintf(stderr, "vdi-bench-soak: the server did not start\n");
        return 1;
    }

    dropLogLines();
    VdiDesktopGrpcThread facade;
    fillIdentity(facade);
    facade.initConnection(server.pem(), QStringLiteral("127.0.0.1"), ushort(server.port()), false);
    Driver driver(facade);

    const tagVmNodeInfo node{QStringLiteral("node-1"), QStringLiteral("bench"), 0};
    const auto vmId = [&] { return driver.vmId(); };
    const auto vmUuid = [&] { return driver.vmUuid(); };
    using F = VdiDesktopGrpcThread;
    driver.add("heartbeat", "/client.ClientCore/Heartbeat", &F::recvHeartbeatResultVDT, [&] {
        facade.sendHeart(QStringLiteral("10.20.30.41"), vmUuid(), -1);
        facade.stopSendHeart();  // no beat of the five-minute timer in the run
    });
    const int login = int(driver.kinds().size());
    driver.add("login", "/client.ClientCore/Login", &F::loginResult, [&] {
        facade.login(QStringLiteral("demo-user"), QStringLiteral("demo-password"), QStringLiteral("0"));
    });
    driver.add("refresh", "/client.ClientCore/Login", &F::updateVmInfoFromServerResult,
               [&] { facade.updateVmInfoFromServer(); });
    driver.add("desktop state", "/client.ClientCore/OperateForVm", &F::operateVMResult, [&] {
        facade.operateVM(node, vmId(), vmUuid(), VdiGrpc::tagOperateVMType(0), VdiGrpc::tagOperateVMWay(0), 0, QString());
    });
    driver.add("snapshot list", "/client.ClientCore/Snapshot", &F::snapshotResult,
               [&] { facade.snapshot(node, vmId(), vmUuid(), VdiGrpc::SnapshotQuery, QString(), QString()); });
    driver.add("device info", "/client.ClientCore/ApplyForDeviceInfo", &F::applyForDeviceInfoResult,
               [&] { facade.applyForDeviceInfo(node, vmId(), vmUuid()); });
    driver.add("desktop details", "/client.ClientCore/queryVmDetailInfo", &F::queryVmInfoResult, [&] {
        QString id = vmId(), uuid = vmUuid();
        facade.queryVmInfo(id, uuid, 0);
    });
    driver.add("remote apps", "/client.ClientCore/GetRemoteAppList", &F::signalGrpcThreadGetRemoteAppListResult,
               [&] { facade.grpcThreadGetRemoteAppList(); });
    driver.add("saas apps", "/client.ClientCore/querySaasAppList", &F::signalGrpcThreadGetSaasAppListResult,
               [&] { facade.grpcThreadGetSaasAppList(); });
    driver.add("saas permission", "/client.ClientCore/querySaasApp", &F::signalGrpcThreadSaasAppResult, [&] {
        tagSaasAppInfo app;
        app.appName = QStringLiteral("Mail");
        facade.grpcThreadQuerySaasApp(app);
    });
    driver.add("password check", "/client.ClientCore/CheckPassword", &F::checkPasswordResult, [&] {
        facade.checkPassword(QStringLiteral("demo-user"), QStringLiteral("demo-password"), false);
    });
    driver.add("login options", "/client.ClientCore/getLoginConfig", &F::signalQueryLoginConfigResult,
               [&] { facade.queryLoginConfig(); });
    driver.add("share terminals", "/client.ClientCore/queryShareTerminalInfo", &F::queryShareTerminalInfoResult, [&] {
        tagShareTerminalInfoRequest request;
        request.deviceId = QStringLiteral("52:54:00:12:34:56");
        emit facade.queryShareTerminalInfo(request);
    });
    const std::vector<Kind>& kinds = driver.kinds();

    // The login that lists the user's desktops, before anything is counted.
    if (driver.run(login) != Outcome::Ok || driver.vmUuid().isEmpty()) {
        std::fprintf(stderr, "vdi-bench-soak: the first login failed\n");
        facade.stop();
        return 1;
    }

    std::printf("soak: %d requests of %zu kinds through the facade, blocks of %d, warm-up %d; every 10th reply "
                "scripted to fail; server down for %d requests in the middle of every block; server pid %lld, "
                "client pid %lld\n",
                calls, kinds.size(), blockSize, warmup, downCalls, static_cast<long long>(server.pid()),
                static_cast<long long>(QCoreApplication::applicationPid()));
    std::printf("%7s %9s %5s %7s %4s | %6s %9s | %6s %9s | %8s %9s | %6s %9s | %7s %10s\n", "calls", "rss KiB", "fds",
                "threads", "grpc", "ok", "mean us", "failed", "mean us", "scripted", "mean us", "outage", "mean us", "missing",
                "unexpected");
    std::fflush(stdout);

    std::vector<BlockFigures> blocks;
    BlockFigures block;
    long missingTotal = 0;
    bool serverLost = false;
    for (int i = 0; i < calls && !serverLost; ++i) {
        const int inBlock = i % blockSize;
        const int downAt = blockSize / 2;
        if (inBlock == downAt)
            serverLost |= server.command(QStringLiteral("down")) != QLatin1String("down");
        if (inBlock == downAt + downCalls)
            serverLost |= server.command(QStringLiteral("up")) != QLatin1String("up");
        const bool down = inBlock >= downAt && inBlock < downAt + downCalls;
        const int kindIndex = i % int(kinds.size());
        const Kind& kind = kinds[size_t(kindIndex)];
        const bool scripted = !down && i % 10 == 9;
        if (scripted) {
            const int code = (i / 10) % 2 ? 14 : 13;
            serverLost |= server.command(QStringLiteral("fail %1 %2").arg(QString::fromStdString(kind.method)).arg(code)) !=
                          QLatin1String("queued");
        }

        const Clock::time_point start = Clock::now();
        const Outcome outcome = driver.run(kindIndex);
        const double micros = microsSince(start);
        switch (outcome) {
        case Outcome::Ok:
            ++block.ok;
            block.okMicros += micros;
            block.unexpected += scripted || down;
            break;
        case Outcome::Failed:
            ++block.failed;
            block.failedMicros += micros;
            if (scripted) {
                ++block.scripted;
                block.scriptedMicros += micros;
            } else if (down) {
                ++block.outage;
                block.outageMicros += micros;
            } else {
                ++block.unexpected;
                std::fprintf(stderr, "request %d (%s) failed unscripted\n", i, kind.name);
            }
            break;
        case Outcome::Missing:
            ++block.missing;
            ++missingTotal;
            std::fprintf(stderr, "request %d (%s) not answered within %d ms\n", i, kind.name, kAnswerLimitMs);
            break;
        }

        if ((i + 1) % blockSize == 0 || i + 1 == calls) {
            block.calls = i + 1;
            block.rssKib = statusKib("VmRSS:");
            block.fds = openDescriptors();
            block.threads = threadCount();
            block.grpcThreads = grpcThreadCount();
            std::printf("%7ld %9lld %5d %7d %4d | %6ld %9.0f | %6ld %9.0f | %8ld %9.0f | %6ld %9.0f | %7ld %10ld\n",
                        block.calls, block.rssKib, block.fds, block.threads, block.grpcThreads, block.ok, block.okMean(), block.failed,
                        block.failedMean(), block.scripted, block.scripted ? block.scriptedMicros / double(block.scripted) : 0,
                        block.outage, block.outage ? block.outageMicros / double(block.outage) : 0, block.missing,
                        block.unexpected);
            std::fflush(stdout);
            blocks.push_back(block);
            block = BlockFigures();
        }
    }
    facade.stop();
    if (serverLost) {
        std::fprintf(stderr, "vdi-bench-soak: the server process stopped answering its commands\n");
        return 1;
    }

    // The figures after the warm-up.
    std::vector<BlockFigures> measured;
    for (const BlockFigures& b : blocks) {
        if (b.calls > warmup)
            measured.push_back(b);
    }
    if (measured.size() < 2) {
        std::printf("too few blocks after the warm-up for a summary\n");
        return 0;
    }
    const auto spanOf = [](auto first, auto last, auto field) {
        const auto [low, high] = std::minmax_element(first, last,
                                                     [&](const BlockFigures& a, const BlockFigures& b) {
                                                         return field(a) < field(b);
                                                     });
        return std::make_pair(field(*low), field(*high));
    };
    const auto span = [&](auto field) { return spanOf(measured.begin(), measured.end(), field); };
    // The median of a field over a quarter of the measured blocks, the first or the last.
    const size_t quarter = std::max<size_t>(1, measured.size() / 4);
    const auto quarterMedian = [&](bool last, auto field) {
        std::vector<double> values;
        for (size_t i = 0; i < quarter; ++i)
            values.push_back(field(measured[last ? measured.size() - quarter + i : i]));
        return median(values);
    };
    const auto rss = span([](const BlockFigures& b) { return double(b.rssKib); });
    const auto fds = span([](const BlockFigures& b) { return double(b.fds); });
    const auto threads = span([](const BlockFigures& b) { return double(b.threads); });
    const auto ownThreads = span([](const BlockFigures& b) { return double(b.threads - b.grpcThreads); });
    const auto lateThreads = spanOf(measured.begin() + std::ptrdiff_t(measured.size() / 2), measured.end(),
                                    [](const BlockFigures& b) { return double(b.threads); });
    long answered = 0, ok = 0, failedCount = 0, unexpected = 0;
    for (const BlockFigures& b : blocks) {
        answered += b.ok + b.failed;
        ok += b.ok;
        failedCount += b.failed;
        unexpected += b.unexpected;
    }
    const auto failed = [](const BlockFigures& b) { return b.failedMean(); };
    const auto failedOverOk = [](const BlockFigures& b) { return b.okMean() > 0 ? b.failedMean() / b.okMean() : 0; };
    const double firstFail = quarterMedian(false, failed);
    const double lastFail = quarterMedian(true, failed);
    const bool rssHolds = rss.second - rss.first <= 2048;
    const bool fdsHold = fds.second - fds.first <= 2;
    const bool threadsHold = ownThreads.second == ownThreads.first && lateThreads.second - lateThreads.first <= 2;
    const bool failHolds = lastFail <= 1.5 * firstFail;
    std::printf("\nrequests %d: answered %ld (ok %ld, failed %ld), missing %ld, unexpected outcomes %ld, "
                "stray answers %ld; %ld log lines of warning level and above dropped\n",
                calls, answered, ok, failedCount, missingTotal, unexpected, driver.strays(), droppedLogLines());
    std::printf("after the warm-up (%zu blocks from request %d on):\n", measured.size(), warmup);
    std::printf("  resident memory  min %.0f KiB max %.0f KiB, spread %.0f KiB   target <= 2048 KiB: %s\n", rss.first,
                rss.second, rss.second - rss.first, rssHolds ? "holds" : "MISSED");
    std::printf("  descriptors      min %.0f max %.0f                       target flat (spread <= 2): %s\n",
                fds.first, fds.second, fdsHold ? "holds" : "MISSED");
    std::printf("  threads          min %.0f max %.0f, own min %.0f max %.0f, second half min %.0f max %.0f   "
                "target own flat, all flat in the second half (spread <= 2): %s\n",
                threads.first, threads.second, ownThreads.first, ownThreads.second, lateThreads.first,
                lateThreads.second, threadsHold ? "holds" : "MISSED");
    std::printf("  failing request  median of the first %zu blocks %.0f us, of the last %zu %.0f us, ratio %.2f   "
                "target <= 1.5: %s\n",
                quarter, firstFail, quarter, lastFail, firstFail > 0 ? lastFail / firstFail : 0,
                failHolds ? "holds" : "MISSED");
    std::printf("                   its time over a succeeding request's: %.2f first, %.2f last\n",
                quarterMedian(false, failedOverOk), quarterMedian(true, failedOverOk));
    std::printf("  every request answered: %s\n", missingTotal == 0 ? "holds" : "MISSED");
    return 0;
}
