// A heartbeat through the facade (queued to the worker's thread, a blocking call over TLS on
// loopback, the answer queued back) against a bare grpc++ call that carries the same request,
// metadata and deadline to the same fake controller, measured side by side in one run: once
// with info and debug output off, once with every line written to a log file.
// Usage: vdi-bench-heartbeat [--rounds R] [--calls N] [--warmup W] [--block B]
//        vdi-bench-heartbeat --profile facade|raw [--logs off|file] [--calls N]   (for a profiler)
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <grpcpp/grpcpp.h>

#include "benchsupport.h"
#include "client/client_core.grpc.pb.h"
#include "fakeserver.h"
#include "vdidesktopgrpcthread.h"

namespace {

using Clock = std::chrono::steady_clock;
const std::string kHeartbeat = "/client.ClientCore/Heartbeat";
const auto kCallLimit = std::chrono::seconds(10);  // a round trip taking longer fails the run
const char* const kPattern = "%{time yyyy-MM-dd hh:mm:ss.zzz} %{type} %{message}";

double microsSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

// The log file of the second configuration. Both threads write; stdio locks each call.
std::FILE* g_logFile = nullptr;
std::atomic<long> g_logLines{0};

void writeToLogFile(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    QByteArray line = qFormatLogMessage(type, context, message).toUtf8();
    line.append('\n');
    std::fwrite(line.constData(), 1, size_t(line.size()), g_logFile);
    g_logLines.fetch_add(1, std::memory_order_relaxed);
}

struct Config {
    const char* name;
    bool toFile;
};
const Config kConfigs[] = {{"logs-off", false}, {"logs-to-file", true}};

void apply(const Config& config)
{
    if (config.toFile) {
        QLoggingCategory::setFilterRules(QStringLiteral("*.debug=true\n*.info=true"));
        qInstallMessageHandler(writeToLogFile);
    } else {
        qInstallMessageHandler(nullptr);
        QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\n*.info=false"));
    }
}

// Sends heartbeats through the facade and waits for each answer in a local event loop. A
// watchdog ends the wait of a call that is not answered within kCallLimit.
class FacadeClient
{
public:
    explicit FacadeClient(VdiDesktopGrpcThread& facade) : m_facade(facade)
    {
        QObject::connect(&facade, &VdiDesktopGrpcThread::recvHeartbeatResultVDT, &m_loop,
                         [this](const tagHeartbeatReply& reply, bool status) {
                             ++m_received;
                             m_ok = status && reply.error.errorCode == 0;
                             if (m_received >= m_sent)
                                 m_loop.quit();
                         });
        QObject::connect(&m_watchdog, &QTimer::timeout, &m_loop, [this] {
            if (m_waiting && Clock::now() - m_started > kCallLimit)
                m_loop.exit(1);
        });
        m_watchdog.start(250);
    }

    bool call(double* micros)
    {
        m_started = Clock::now();
        m_waiting = true;
        ++m_sent;
        m_facade.sendHeart(QStringLiteral("10.20.30.41"), QStringLiteral("6f1c2a7e-5b3d-4c8e-9a01-2b7d4e6f8a90"), 1042);
        while (m_received < m_sent) {
            if (m_loop.exec() != 0) {
                m_waiting = false;
                std::fprintf(stderr, "facade heartbeat not answered within %lld s\n", (long long)kCallLimit.count());
                return false;
            }
        }
        *micros = microsSince(m_started);
        m_waiting = false;
        if (!m_ok)
            std::fprintf(stderr, "facade heartbeat answered with a failure\n");
        return m_ok;
    }

private:
    VdiDesktopGrpcThread& m_facade;
    QEventLoop m_loop;
    QTimer m_watchdog;
    Clock::time_point m_started;
    bool m_waiting = false;
    bool m_ok = false;
    long m_sent = 0;
    long m_received = 0;
};

// The same heartbeat on a channel of its own: the request, the metadata and the deadline the
// facade's call carried, as the server recorded them; a new context per call.
class RawClient
{
public:
    RawClient(const vdifake::FakeServer& server, const vdifake::RecordedCall& sample)
        : m_token(sample.metadataValue("gatewayaccesstoken"))
        , m_language(sample.metadataValue("client-language"))
    {
        m_request.ParseFromString(sample.requests.at(0));
        QFile pem(server.pemPath());
        pem.open(QIODevice::ReadOnly);
        grpc::SslCredentialsOptions ssl;
        ssl.pem_root_certs = pem.readAll().toStdString();
        grpc::ChannelArguments args;
        args.SetSslTargetNameOverride(server.commonName().toStdString());
        m_stub = client::ClientCore::NewStub(
            grpc::CreateCustomChannel(server.address().toStdString(), grpc::SslCredentials(ssl), args));
    }

    bool call(double* micros)
    {
        const auto start = Clock::now();
        grpc::ClientContext context;
        context.set_deadline(gpr_timespec{30, 0, GPR_TIMESPAN});  // the worker's relative 30 s
        context.AddMetadata("gatewayaccesstoken", m_token);
        context.AddMetadata("client-language", m_language);
        client::HeartbeatResp reply;
        const grpc::Status status = m_stub->Heartbeat(&context, m_request, &reply);
        *micros = microsSince(start);
        if (status.ok() && reply.error().error_code() == 0 && *micros < kCallLimit.count() * 1e6)
            return true;
        std::fprintf(stderr, "raw heartbeat failed after %.0f us: %d %s\n", *micros, int(status.error_code()),
                     status.error_message().c_str());
        return false;
    }

private:
    std::string m_token;
    std::string m_language;
    client::HeartbeatReq m_request;
    std::unique_ptr<client::ClientCore::Stub> m_stub;
};

// The floor under any facade of this design: the same bare call, made on a thread of its own
// that a queued signal wakes and that queues the answer back: the two hops every facade call
// makes, with nothing else on either side.
class Hop : public QObject
{
    Q_OBJECT
public:
    explicit Hop(RawClient& raw) : m_raw(raw) {}
public slots:
    void call()
    {
        double micros = 0;
        emit done(m_raw.call(&micros));
    }
signals:
    void start();
    void done(bool ok);

private:
    RawClient& m_raw;
};

class FloorClient
{
public:
    explicit FloorClient(RawClient& raw) : m_front(raw), m_hop(raw)
    {
        m_hop.moveToThread(&m_thread);
        QObject::connect(&m_front, &Hop::start, &m_hop, &Hop::call);
        QObject::connect(&m_hop, &Hop::done, &m_loop, [this](bool ok) {
            m_ok = ok;
            m_loop.quit();
        });
        m_thread.start();
    }
    ~FloorClient()
    {
        m_thread.quit();
        m_thread.wait();
    }
    bool call(double* micros)
    {
        const auto start = Clock::now();
        emit m_front.start();
        m_loop.exec();
        *micros = microsSince(start);
        return m_ok;
    }

private:
    QThread m_thread;
    Hop m_front;
    Hop m_hop;
    QEventLoop m_loop;
    bool m_ok = false;
};

struct Figures {
    double median;
    double p95;
};

Figures figuresOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    const double median = n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
    const size_t rank = size_t(std::ceil(0.95 * double(n)));  // nearest rank
    return {median, values[std::max<size_t>(rank, 1) - 1]};
}

// Runs `count` calls, appending each latency; false at the first failure.
template <class Client>
bool runBlock(Client& client, int count, std::vector<double>* samples)
{
    for (int i = 0; i < count; ++i) {
        double micros = 0;
        if (!client.call(&micros))
            return false;
        if (samples)
            samples->push_back(micros);
    }
    return true;
}

const char* textOption(int argc, char* argv[], const char* name)
{
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], name) == 0)
            return argv[i + 1];
    }
    return nullptr;
}

int positiveOption(int argc, char* argv[], const char* name, int fallback)
{
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], name) == 0)
            return std::max(1, std::atoi(argv[i + 1]));
    }
    return fallback;
}

// Whatever happens, the worker's thread is stopped and the log file closed.
int finish(VdiDesktopGrpcThread& facade, int code)
{
    facade.stop();
    qInstallMessageHandler(nullptr);
    std::fclose(g_logFile);
    g_logFile = nullptr;
    return code;
}

} // namespace

int main(int argc, char* argv[])
{
    const int rounds = positiveOption(argc, argv, "--rounds", 3);
    const int calls = positiveOption(argc, argv, "--calls", 1000);
    const int warmup = positiveOption(argc, argv, "--warmup", 200);
    const int blockSize = positiveOption(argc, argv, "--block", 100);

    // A home of our own before anything reads it (the worker keeps gateway settings under
    // ~/Documents/gateway); no proxy on loopback; nothing from outside overrides the log rules.
    vdibench::IsolatedHome home;
    QCoreApplication app(argc, argv);
    qSetMessagePattern(QString::fromLatin1(kPattern));
    const QString logPath = home.path() + QStringLiteral("/heartbeat.log");
    g_logFile = std::fopen(QFile::encodeName(logPath).constData(), "w");
    if (!g_logFile) {
        std::fprintf(stderr, "cannot open %s\n", qPrintable(logPath));
        return 1;
    }
    std::setvbuf(g_logFile, nullptr, _IOFBF, 1 << 16);

    vdifake::FakeServer::Options options;
    options.certDir = home.path() + QStringLiteral("/cert");
    QDir().mkpath(options.certDir);
    options.commonName = QStringLiteral("vdi-fake-controller");
    vdifake::FakeServer server(options);
    if (!server.isRunning()) {
        std::fprintf(stderr, "the fake controller did not start\n");
        std::fclose(g_logFile);
        return 1;
    }

    std::printf("context: Qt %s (built with %s), grpc %s, %d rounds x %d calls per kind and configuration, "
                "blocks of %d, %d warm-up calls, log pattern \"%s\"\n",
                qVersion(), QT_VERSION_STR, grpc::Version().c_str(), rounds, calls, std::min(blockSize, calls), warmup,
                kPattern);
    std::fflush(stdout);

    apply(kConfigs[0]);
    VdiDesktopGrpcThread facade;
    vdibench::fillIdentity(facade);
    facade.initConnection(server.pemPath(), QStringLiteral("127.0.0.1"), ushort(server.port()), false);

    // Warm both configurations up; the raw client is made from a call the facade just sent.
    FacadeClient viaFacade(facade);
    if (!runBlock(viaFacade, warmup, nullptr))
        return finish(facade, 1);
    const vdifake::RecordedCall sample = server.calls(kHeartbeat).back();
    RawClient raw(server, sample);
    server.clearCalls();
    if (!runBlock(raw, warmup, nullptr))
        return finish(facade, 1);
    const vdifake::RecordedCall rawSample = server.calls(kHeartbeat).back();
    const bool same = rawSample.requests == sample.requests &&
                      rawSample.metadataValue("gatewayaccesstoken") == sample.metadataValue("gatewayaccesstoken") &&
                      rawSample.metadataValue("client-language") == sample.metadataValue("client-language");
    std::printf("request: %zu bytes, token \"%s\", language \"%s\", deadline left on arrival %.1f s (raw %.1f s); "
                "raw call the same: %s\n",
                sample.requests.at(0).size(), sample.metadataValue("gatewayaccesstoken").c_str(),
                sample.metadataValue("client-language").c_str(), sample.deadlineSeconds, rawSample.deadlineSeconds,
                same ? "yes" : "NO");
    apply(kConfigs[1]);
    if (!runBlock(viaFacade, warmup, nullptr) || !runBlock(raw, warmup, nullptr))
        return finish(facade, 1);

    // For a profiler (callgrind, perf): only `calls` calls of one kind in one configuration.
    if (const char* kind = textOption(argc, argv, "--profile")) {
        const bool toFile = textOption(argc, argv, "--logs") && std::strcmp(textOption(argc, argv, "--logs"), "file") == 0;
        apply(kConfigs[toFile ? 1 : 0]);
        const bool ok = std::strcmp(kind, "raw") == 0 ? runBlock(raw, calls, nullptr) : runBlock(viaFacade, calls, nullptr);
        std::printf("profiled %d %s calls, logs %s\n", calls, kind, toFile ? "to file" : "off");
        return finish(facade, ok ? 0 : 1);
    }

    // Rounds of `calls` calls per kind and configuration, alternating in short blocks (facade
    // then raw, logs off then logs to the file), so that every figure sees the same machine
    // conditions. Each block is checked against the calls the server saw.
    FloorClient floor(raw);
    if (!runBlock(floor, warmup, nullptr))
        return finish(facade, 1);
    std::vector<double> samples[2][3];  // [configuration][facade, raw, floor]
    long fileLinesInFacade = 0;
    bool extraBeats = false;
    const auto block = [&](auto& client, int count, int c, int kind) {
        server.clearCalls();
        const bool ok = runBlock(client, count, &samples[c][kind]);
        extraBeats |= ok && server.callCount(kHeartbeat) != count;
        return ok;
    };
    for (int round = 1; round <= rounds; ++round) {
        // Restarts the worker's five-minute timer, so that its own beat stays out of the round.
        facade.stopSendHeart();
        for (int done = 0; done < calls; done += blockSize) {
            const int count = std::min(blockSize, calls - done);
            for (int c = 0; c < 2; ++c) {
                apply(kConfigs[c]);
                const long linesBefore = g_logLines.load();
                if (!block(viaFacade, count, c, 0))
                    return finish(facade, 1);
                fileLinesInFacade += g_logLines.load() - linesBefore;
                if (!block(raw, count, c, 1))
                    return finish(facade, 1);
                if (!block(floor, count, c, 2))
                    return finish(facade, 1);
            }
        }
        for (int c = 0; c < 2; ++c) {
            const auto lastRound = [&](int kind) {
                return figuresOf(std::vector<double>(samples[c][kind].end() - calls, samples[c][kind].end())).median;
            };
            std::printf("round %d  %-12s  facade median %8.1f us  raw median %8.1f us  ratio %5.2f\n", round,
                        kConfigs[c].name, lastRound(0), lastRound(1), lastRound(0) / lastRound(1));
        }
        std::fflush(stdout);
    }

    apply(kConfigs[0]);
    std::fflush(g_logFile);
    for (int c = 0; c < 2; ++c) {
        const Figures f = figuresOf(samples[c][0]);
        const Figures r = figuresOf(samples[c][1]);
        const Figures h = figuresOf(samples[c][2]);
        std::printf("%-12s  facade median %8.1f us p95 %8.1f us   raw median %8.1f us p95 %8.1f us   "
                    "ratio median %5.2f p95 %5.2f\n",
                    kConfigs[c].name, f.median, f.p95, r.median, r.p95, f.median / r.median, f.p95 / r.p95);
        // What no facade of this design goes below: the bare call behind two queued hops.
        std::printf("%-12s  floor  median %8.1f us p95 %8.1f us   floor / raw: median %5.2f   facade / floor: "
                    "median %5.2f\n",
                    kConfigs[c].name, h.median, h.p95, h.median / r.median, f.median / h.median);
    }
    std::printf("log file: %ld lines in all, %.1f lines per facade call, %lld bytes\n", g_logLines.load(),
                double(fileLinesInFacade) / (double(rounds) * calls), (long long)QFile(logPath).size());
    if (extraBeats)
        std::printf("note: a block saw more heartbeats than it sent (the worker's own timer); its figures are skewed\n");
    return finish(facade, 0);
}

#include "bench_heartbeat.moc"
