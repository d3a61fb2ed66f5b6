// A fleet of terminals in one process: many facades, each with its worker on a thread of its
// own, against one fake controller in a process of its own. One round is a heartbeat from every
// facade at once, all answers waited for. Side by side in the same run, the same number of bare
// grpc++ heartbeats, each on a channel of its own (the channels made once), made at once by as
// many threads of a pool that lives for the whole run (as the facades' threads do), to the same
// server with the same TLS settings. The two kinds take turns round by round.
//
// Reported: that every heartbeat was answered, the resident memory a facade costs beyond the
// pages of its thread's stack, and the round times of both kinds (median, min, max).
//
// Memory: the growth of VmRSS from before the facades are made to after their first heartbeat
// (which connects them), divided by their number. A thread's stack is a mapping of the default
// stack size, but only the pages it has touched are resident; those pages are read from
// /proc/self/smaps (the stack areas, each behind its guard page) and reported apart, so that
// the figure per facade is the growth less the resident stack pages of the new threads.
//
// Usage: vdi-bench-fleet [--facades N] [--rounds R]
#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include "benchsupport.h"
#include "vdidesktopgrpcthread.h"

using namespace vdibench;

namespace {

const int kRoundLimitMs = 60000;  // a round not complete by then fails the run

// The facades of the fleet and the answers of a round.
class Fleet
{
public:
    explicit Fleet(const ServerProcess& server) : m_server(server)
    {
        m_limit.setSingleShot(true);
        QObject::connect(&m_limit, &QTimer::timeout, &m_loop, [this] { m_loop.exit(1); });
    }
    ~Fleet()
    {
        for (auto& facade : m_facades)
            facade->stop();
    }

    void add(int count)
    {
        for (int i = 0; i < count; ++i) {
            auto facade = std::make_unique<VdiDesktopGrpcThread>();
            fillIdentity(*facade);
            facade->initConnection(m_server.pem(), QStringLiteral("127.0.0.1"), ushort(m_server.port()), false);
            QObject::connect(facade.get(), &VdiDesktopGrpcThread::recvHeartbeatResultVDT, &m_loop,
                             [this](HeartbeatReply reply, bool status) {
                                 ++m_answered;
                                 m_ok += status && reply.error.errorCode == 0;
                                 if (m_answered == m_expected)
                                     m_loop.quit();
                             });
            m_facades.push_back(std::move(facade));
        }
    }

    // A heartbeat from every facade at once; the time until the last answer, -1 on time-out.
    double round(long* answered, long* ok)
    {
        m_answered = m_ok = 0;
        m_expected = long(m_facades.size());
        const Clock::time_point start = Clock::now();
        for (auto& facade : m_facades)
            facade->sendHeart(QStringLiteral("10.20.30.41"), QStringLiteral("6f1c2a7e-5b3d-4c8e-9a01-2b7d4e6f8a90"), 1042);
        m_limit.start(kRoundLimitMs);
        const int code = m_answered == m_expected ? 0 : m_loop.exec();
        const double micros = microsSince(start);
        m_limit.stop();
        // The beat started each worker's five-minute timer: stopped again, out of the timing.
        for (auto& facade : m_facades)
            facade->stopSendHeart();
        *answered = m_answered;
        *ok = m_ok;
        return code == 0 ? micros : -1;
    }

private:
    const ServerProcess& m_server;
    std::vector<std::unique_ptr<VdiDesktopGrpcThread>> m_facades;
    QEventLoop m_loop;
    QTimer m_limit;
    long m_expected = 0;
    long m_answered = 0;
    long m_ok = 0;
};

// Bare heartbeats, one channel each, made at once by a pool of one thread per channel.
class RawFleet
{
public:
    RawFleet(const ServerProcess& server, int count)
    {
        const std::string pem = readFile(server.pem());
        for (int i = 0; i < count; ++i)
            m_clients.push_back(std::make_unique<RawHeartbeat>(server, pem));
        for (int i = 0; i < count; ++i)
            m_threads.emplace_back([this, i] { work(size_t(i)); });
    }
    ~RawFleet()
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_quit = true;
        }
        m_wake.notify_all();
        for (std::thread& thread : m_threads)
            thread.join();
    }

    double round(long* answered, long* ok)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_answered = m_ok = 0;
        const Clock::time_point start = Clock::now();
        ++m_generation;
        m_wake.notify_all();
        const bool done = m_done.wait_for(lock, std::chrono::milliseconds(kRoundLimitMs),
                                          [this] { return m_answered == long(m_clients.size()); });
        const double micros = microsSince(start);
        *answered = m_answered;
        *ok = m_ok;
        return done ? micros : -1;
    }

private:
    void work(size_t index)
    {
        long seen = 0;
        for (;;) {
            {
                std::unique_lock<std::mutex> lock(m_mutex);
                m_wake.wait(lock, [&] { return m_quit || m_generation != seen; });
                if (m_quit)
                    return;
                seen = m_generation;
            }
            const bool ok = m_clients[index]->call();
            std::lock_guard<std::mutex> lock(m_mutex);
            ++m_answered;
            m_ok += ok;
            if (m_answered == long(m_clients.size()))
                m_done.notify_one();
        }
    }

    std::vector<std::unique_ptr<RawHeartbeat>> m_clients;
    std::vector<std::thread> m_threads;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::condition_variable m_done;
    long m_generation = 0;
    long m_answered = 0;
    long m_ok = 0;
    bool m_quit = false;
};

// Lets queued events and the threads just started settle before a memory figure is read.
void settle()
{
    QEventLoop loop;
    QTimer::singleShot(300, &loop, &QEventLoop::quit);
    loop.exec();
}

struct Footprint {
    long long rssKib;
    long long stackKib;
    int stacks;
    int threads;
    int fds;
};

Footprint footprint()
{
    settle();
    Footprint f;
    f.rssKib = statusKib("VmRSS:");
    f.stackKib = threadStackKib(&f.stacks);
    f.threads = threadCount();
    f.fds = openDescriptors();
    return f;
}

struct Times {
    std::vector<double> micros;
    double med() const { return median(micros); }
    double min() const { return *std::min_element(micros.begin(), micros.end()); }
    double max() const { return *std::max_element(micros.begin(), micros.end()); }
};

} // namespace

int main(int argc, char* argv[])
{
    IsolatedHome home;
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (const int served = serveIfAsked(args); served >= 0)
        return served;

    const int count = positiveOption(args, QStringLiteral("--facades"), 200);
    const int rounds = positiveOption(args, QStringLiteral("--rounds"), 20);
    // A facade holds a connection, a raw client too, and Qt and gRPC wake-up descriptors on top.
    const long long descriptorLimit = raiseDescriptorLimit();
    if (descriptorLimit < 8LL * count + 256) {
        std::fprintf(stderr, "vdi-bench-fleet: %lld open descriptors allowed, %d facades want about %d\n",
                     descriptorLimit, count, 8 * count + 256);
        return 1;
    }

    dropLogLines();
    ServerProcess server;  // also raises its limit: it is a child of this process
    if (!server.isReady()) {
        std::fprintf(stderr, "vdi-bench-fleet: the server did not start\n");
        return 1;
    }
    std::printf("fleet: %d facades against %d bare grpc++ channels (a pool of %d threads, one blocking call each), "
                "%d rounds each, taking turns; descriptor limit %lld; default thread stack %lld KiB; server pid %lld\n",
                count, count, count, rounds, descriptorLimit, defaultStackKib(), static_cast<long long>(server.pid()));

    // One facade and one heartbeat first, so that what the library, Qt and gRPC set up once is
    // in the baseline.
    Fleet warmUp(server);
    warmUp.add(1);
    long answered = 0, ok = 0;
    if (warmUp.round(&answered, &ok) < 0 || ok != 1) {
        std::fprintf(stderr, "vdi-bench-fleet: the first heartbeat failed\n");
        return 1;
    }

    // The facades: made, connected, and their first heartbeat answered.
    const Footprint before = footprint();
    Fleet fleet(server);
    fleet.add(count);
    const double connectRound = fleet.round(&answered, &ok);
    if (connectRound < 0 || ok != count) {
        std::fprintf(stderr, "vdi-bench-fleet: the connecting round answered %ld of %d (%ld ok)\n", answered, count, ok);
        return 1;
    }
    const Footprint withFacades = footprint();

    // The raw clients likewise, for comparison.
    RawFleet raw(server, count);
    const double rawConnectRound = raw.round(&answered, &ok);
    if (rawConnectRound < 0 || ok != count) {
        std::fprintf(stderr, "vdi-bench-fleet: the raw connecting round answered %ld of %d (%ld ok)\n", answered, count,
                     ok);
        return 1;
    }
    const Footprint withRaw = footprint();

    const auto perClient = [count](long long kib) { return double(kib) / count; };
    const long long facadeGrowth = withFacades.rssKib - before.rssKib;
    const long long facadeStacks = withFacades.stackKib - before.stackKib;
    const long long rawGrowth = withRaw.rssKib - withFacades.rssKib;
    const long long rawStacks = withRaw.stackKib - withFacades.stackKib;
    std::printf("connecting round: facades %.1f ms, raw %.1f ms\n", connectRound / 1000, rawConnectRound / 1000);
    std::printf("facades: resident +%lld KiB, threads %d -> %d, descriptors %d -> %d; thread stacks %d -> %d, their "
                "resident pages +%lld KiB\n",
                facadeGrowth, before.threads, withFacades.threads, before.fds, withFacades.fds, before.stacks,
                withFacades.stacks, facadeStacks);
    std::printf("raw:     resident +%lld KiB, threads %d -> %d, descriptors %d -> %d; thread stacks %d -> %d, their "
                "resident pages +%lld KiB\n",
                rawGrowth, withFacades.threads, withRaw.threads, withFacades.fds, withRaw.fds, withFacades.stacks,
                withRaw.stacks, rawStacks);
    std::printf("per facade: %.1f KiB in all, of which %.1f KiB resident stack pages: %.1f KiB beyond its thread's "
                "stack (raw client: %.1f KiB in all, %.1f KiB beyond its thread's stack)\n",
                perClient(facadeGrowth), perClient(facadeStacks), perClient(facadeGrowth - facadeStacks),
                perClient(rawGrowth), perClient(rawGrowth - rawStacks));
    std::fflush(stdout);

    Times facadeTimes, rawTimes;
    long facadeAnswered = 0, facadeOk = 0, rawAnswered = 0, rawOk = 0;
    bool complete = true;
    for (int r = 1; r <= rounds && complete; ++r) {
        // Take turns in the order too, so that neither kind always follows the other.
        double times[2] = {0, 0};
        for (int turn = 0; turn < 2; ++turn) {
            const bool facadeTurn = (turn == 0) == (r % 2 == 1);
            const double micros = facadeTurn ? fleet.round(&answered, &ok) : raw.round(&answered, &ok);
            (facadeTurn ? facadeAnswered : rawAnswered) += answered;
            (facadeTurn ? facadeOk : rawOk) += ok;
            complete &= micros >= 0;
            times[facadeTurn ? 0 : 1] = micros;
            (facadeTurn ? facadeTimes : rawTimes).micros.push_back(micros);
        }
        std::printf("round %2d  facades %8.1f ms  raw %8.1f ms  ratio %5.2f\n", r, times[0] / 1000, times[1] / 1000,
                    times[0] / times[1]);
        std::fflush(stdout);
    }
    if (!complete) {
        std::fprintf(stderr, "vdi-bench-fleet: a round was not answered within %d ms\n", kRoundLimitMs);
        return 1;
    }

    const long expected = long(rounds) * count;
    const double ratio = facadeTimes.med() / rawTimes.med();
    const double beyondStack = perClient(facadeGrowth - facadeStacks);
    std::printf("\nrounds of %d heartbeats    median       min       max  (ms)\n", count);
    std::printf("facades               %9.1f %9.1f %9.1f\n", facadeTimes.med() / 1000, facadeTimes.min() / 1000,
                facadeTimes.max() / 1000);
    std::printf("raw grpc++            %9.1f %9.1f %9.1f\n", rawTimes.med() / 1000, rawTimes.min() / 1000,
                rawTimes.max() / 1000);
    std::printf("answered: facades %ld of %ld (ok %ld), raw %ld of %ld (ok %ld)   target all answered: %s\n",
                facadeAnswered, expected, facadeOk, rawAnswered, expected, rawOk,
                facadeAnswered == expected && facadeOk == expected ? "holds" : "MISSED");
    std::printf("memory per facade beyond its thread's stack: %.1f KiB   target <= 1024 KiB: %s\n", beyondStack,
                beyondStack <= 1024 ? "holds" : "MISSED");
    std::printf("round time, median facades / median raw: %.2f   target <= 2: %s\n", ratio,
                ratio <= 2 ? "holds" : "MISSED");
    return 0;
}
