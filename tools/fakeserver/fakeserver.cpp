#include "fakeserver.h"

#include "scenario.h"
#include "testcertificate.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtDebug>

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>
#include <grpcpp/generic/async_generic_service.h>
#include <grpcpp/security/server_credentials.h>
#include <grpcpp/server.h>
#include <grpcpp/server_builder.h>
#include <grpcpp/support/byte_buffer.h>
#include <grpcpp/support/slice.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

namespace vdifake {

namespace {

using Clock = std::chrono::steady_clock;

class CallReactor;

// What a call's method is, as far as the generated descriptor pool knows.
struct MethodInfo {
    bool known = false;
    bool serverStreaming = false;
};

MethodInfo lookUpMethod(const std::string& path)
{
    MethodInfo info;
    if (const google::protobuf::MethodDescriptor* method = findMethod(path)) {
        info.known = true;
        info.serverStreaming = method->server_streaming();
    }
    return info;
}

std::string toString(const grpc::string_ref& ref)
{
    return std::string(ref.data(), ref.size());
}

} // namespace

namespace detail {

// The state shared by the server object, its timer thread and the calls in progress.
// Every call holds a reference, so a call that outlives the server object stays safe.
struct SharedState {
    mutable std::mutex mutex;
    mutable std::condition_variable callsChanged; // a call was recorded or ended
    std::condition_variable timerWake;            // held calls or stop flags changed

    std::map<std::string, Script> standing;
    std::map<std::string, std::deque<Script>> queued;
    std::map<std::string, FakeServer::Responder> responders;
    std::vector<std::shared_ptr<RecordedCall>> calls;

    struct Held {
        Clock::time_point due;
        Script script;
    };
    std::map<CallReactor*, Held> held;
    std::set<CallReactor*> reading;  // calls still reading requests (listed once started)

    bool stopping = false;  // the server is shutting down: answer at once, UNAVAILABLE
    bool stopTimer = false;
    int liveCalls = 0;
    std::function<void(const RecordedCall&)> observer;

    // The answer for a call that has been read: a queued one-shot script, else the
    // method's responder (when it takes the call), else the standing script, else the
    // default one.
    Script takeScriptLocked(const RecordedCall& call, const MethodInfo& info)
    {
        const std::string& method = call.method;
        auto q = queued.find(method);
        if (q != queued.end() && !q->second.empty()) {
            Script s = std::move(q->second.front());
            q->second.pop_front();
            if (q->second.empty())
                queued.erase(q);
            return s;
        }
        Script fallback;  // a known method without a script: OK with an empty reply
        auto st = standing.find(method);
        if (st != standing.end()) {
            fallback = st->second;
        } else if (!info.known) {
            fallback.code = grpc::StatusCode::UNIMPLEMENTED;
            fallback.message = "the fake server does not know " + method;
        }
        // A call the client cancelled, or one read while the server stops, is answered
        // CANCELLED / UNAVAILABLE whatever the script says: its responder is not asked.
        auto r = stopping || call.cancelled ? responders.end() : responders.find(method);
        if (r != responders.end() && r->second) {
            Script answer = fallback;
            if (r->second(call, &answer))
                return answer;
        }
        return fallback;
    }

    // The script a setter starts from: the standing one, else OK with an empty reply.
    Script& standingLocked(const std::string& method)
    {
        auto it = standing.find(method);
        if (it == standing.end())
            it = standing.emplace(method, Script()).first;
        return it->second;
    }

    int countLocked(const std::string& method, bool finishedOnly) const
    {
        int n = 0;
        for (const auto& call : calls) {
            if ((method.empty() || call->method == method) && (!finishedOnly || call->finished))
                ++n;
        }
        return n;
    }

    void runTimer();
};

} // namespace detail

namespace {

using detail::SharedState;

// One call, of any method: reads every request until the client half-closes, then answers
// according to the method's script, possibly after holding the call for a while.
//
// Lifetime: grpc calls OnDone once Finish has completed and no operation is pending;
// OnDone deletes the reactor. Finish is called exactly once: whoever moves `phase` to
// Finishing (under the shared mutex) owns that call, and makes it after unlocking.
class CallReactor final : public grpc::ServerGenericBidiReactor {
public:
    enum class Phase { Reading, Held, Finishing };

    CallReactor(std::shared_ptr<SharedState> state, grpc::GenericCallbackServerContext* context)
        : m_state(std::move(state))
        , m_call(std::make_shared<RecordedCall>())
        , m_info(lookUpMethod(context->method()))
    {
        m_call->method = context->method();
        for (const auto& entry : context->client_metadata())
            m_call->metadata.emplace(toString(entry.first), toString(entry.second));

        const auto deadline = context->deadline();
        if (deadline == std::chrono::system_clock::time_point::max()) {
            m_call->deadlineSeconds = -1;
        } else {
            const double left =
                std::chrono::duration<double>(deadline - std::chrono::system_clock::now()).count();
            // grpc reports "no deadline" as the far future.
            m_call->deadlineSeconds = left > 1e8 ? -1 : left;
        }

        {
            std::lock_guard<std::mutex> lock(m_state->mutex);
            ++m_state->liveCalls;
            // A stream the server answers with a stream (the bidi ClientStream) may stay
            // open for the whole session: it is recorded as soon as it opens, and its
            // requests are added as they come.
            if (m_info.serverStreaming)
                publishLocked();
        }
        StartRead(&m_readBuffer);
        // Listed only once the read is started, so that a shutdown can end the call.
        std::lock_guard<std::mutex> lock(m_state->mutex);
        if (!m_readingEnded && m_phase == Phase::Reading)
            m_state->reading.insert(this);
    }

    void OnReadDone(bool ok) override
    {
        if (ok) {
            std::string bytes;
            std::vector<grpc::Slice> slices;
            if (m_readBuffer.Dump(&slices).ok()) {
                for (const grpc::Slice& slice : slices)
                    bytes.append(reinterpret_cast<const char*>(slice.begin()), slice.size());
            }
            m_readBuffer.Clear();
            {
                std::lock_guard<std::mutex> lock(m_state->mutex);
                m_call->requests.push_back(std::move(bytes));
                if (m_phase == Phase::Finishing) {
                    // Ended by the server's shutdown meanwhile: read no further.
                    m_readingEnded = true;
                    publishLocked();
                    return;
                }
            }
            StartRead(&m_readBuffer);
            return;
        }
        readingEnded();
    }

    void OnCancel() override
    {
        bool finishNow = false;
        Script script;
        {
            std::lock_guard<std::mutex> lock(m_state->mutex);
            if (m_phase == Phase::Finishing)
                return;  // already answered (or answering); not the client's doing
            if (!m_state->stopping)
                m_call->cancelled = true;
            if (m_phase == Phase::Held) {
                m_state->held.erase(this);
                script = cancelledScript();
                markFinishingLocked(script);
                finishNow = true;
            }
            // While reading, the pending read fails and readingEnded() answers.
        }
        if (finishNow)
            finish(script);
    }

    void OnDone() override
    {
        RecordedCall snapshot;
        std::function<void(const RecordedCall&)> observer;
        {
            std::lock_guard<std::mutex> lock(m_state->mutex);
            m_call->finished = true;
            --m_state->liveCalls;
            observer = m_state->observer;
            if (observer)
                snapshot = *m_call;
            m_state->callsChanged.notify_all();
        }
        if (observer)
            observer(snapshot);
        delete this;
    }

    // Sets the final status; the caller then calls finish() outside the lock.
    void markFinishingLocked(const Script& script)
    {
        m_phase = Phase::Finishing;
        m_call->status = script.code;
        m_call->statusMessage = script.code == grpc::StatusCode::OK ? std::string() : script.message;
    }

    // Exactly once per call, without holding the shared mutex. The reactor may be deleted
    // as soon as Finish/StartWriteAndFinish is issued: nothing may touch it afterwards.
    void finish(const Script& script)
    {
        if (script.code != grpc::StatusCode::OK) {
            Finish(grpc::Status(script.code, script.message));
        } else if (!script.replyBytes.empty() || !m_info.serverStreaming) {
            // A unary or client-streaming call needs exactly one reply, empty or not.
            grpc::Slice slice(script.replyBytes);
            m_writeBuffer = grpc::ByteBuffer(&slice, 1);
            StartWriteAndFinish(&m_writeBuffer, grpc::WriteOptions(), grpc::Status::OK);
        } else {
            Finish(grpc::Status::OK);
        }
    }

private:
    static Script cancelledScript()
    {
        Script s;
        s.code = grpc::StatusCode::CANCELLED;
        s.message = "cancelled";
        return s;
    }

    static Script shuttingDownScript()
    {
        Script s;
        s.code = grpc::StatusCode::UNAVAILABLE;
        s.message = "the fake server is shutting down";
        return s;
    }

    void publishLocked()
    {
        if (m_published)
            return;
        m_published = true;
        m_state->calls.push_back(m_call);
        m_state->callsChanged.notify_all();
    }

    void readingEnded()
    {
        Script script;
        bool finishNow = true;
        {
            std::lock_guard<std::mutex> lock(m_state->mutex);
            m_readingEnded = true;
            m_state->reading.erase(this);
            publishLocked();
            if (m_phase == Phase::Finishing)
                return;  // ended by the server's shutdown while still reading
            script = m_state->takeScriptLocked(*m_call, m_info);
            if (m_call->cancelled) {
                script = cancelledScript();
            } else if (m_state->stopping) {
                script = shuttingDownScript();
            } else if (script.delayMs > 0) {
                m_call->delayMs = script.delayMs;
                m_phase = Phase::Held;
                m_state->held[this] = {Clock::now() + std::chrono::milliseconds(script.delayMs), script};
                m_state->timerWake.notify_all();
                finishNow = false;
            }
            if (finishNow)
                markFinishingLocked(script);
        }
        if (finishNow)
            finish(script);
    }

    std::shared_ptr<SharedState> m_state;
    std::shared_ptr<RecordedCall> m_call;  // fields guarded by m_state->mutex
    const MethodInfo m_info;
    Phase m_phase = Phase::Reading;        // guarded by m_state->mutex
    bool m_readingEnded = false;           // guarded by m_state->mutex
    bool m_published = false;              // in m_state->calls; guarded by m_state->mutex
    grpc::ByteBuffer m_readBuffer;
    grpc::ByteBuffer m_writeBuffer;
};

class GenericService final : public grpc::CallbackGenericService {
public:
    explicit GenericService(std::shared_ptr<SharedState> state) : m_state(std::move(state)) {}

    grpc::ServerGenericBidiReactor* CreateReactor(grpc::GenericCallbackServerContext* context) override
    {
        return new CallReactor(m_state, context);
    }

private:
    std::shared_ptr<SharedState> m_state;
};

} // namespace

namespace detail {

// Answers held calls when their delay is over. Runs in a thread of its own so that
// grpc's callback threads never wait.
void SharedState::runTimer()
{
    std::unique_lock<std::mutex> lock(mutex);
    while (!stopTimer) {
        const auto now = Clock::now();
        auto next = Clock::time_point::max();
        std::vector<std::pair<CallReactor*, Script>> due;
        for (auto it = held.begin(); it != held.end();) {
            if (it->second.due <= now) {
                it->first->markFinishingLocked(it->second.script);
                due.emplace_back(it->first, std::move(it->second.script));
                it = held.erase(it);
            } else {
                next = std::min(next, it->second.due);
                ++it;
            }
        }
        if (!due.empty()) {
            lock.unlock();
            for (auto& d : due)
                d.first->finish(d.second);
            lock.lock();
            continue;
        }
        if (next == Clock::time_point::max())
            timerWake.wait(lock);
        else
            timerWake.wait_until(lock, next);
    }
}

struct FakeServerImpl {
    std::shared_ptr<SharedState> state = std::make_shared<SharedState>();
    std::unique_ptr<QTemporaryDir> ownCertDir;
    QString pemPath;
    QString keyPath;
    QString commonName;
    QString host;  // as a gRPC address: "127.0.0.1", "[::1]"
    int port = 0;
    std::unique_ptr<GenericService> service;
    std::unique_ptr<grpc::Server> server;
    std::thread timer;
};

} // namespace detail

std::string RecordedCall::metadataValue(const std::string& key) const
{
    auto it = metadata.lower_bound(key);
    return it != metadata.end() && it->first == key ? it->second : std::string();
}

FakeServer::FakeServer(const Options& options) : d(new detail::FakeServerImpl)
{
    d->commonName = options.commonName;

    QString certDir = options.certDir;
    const bool ownCertificate = options.certPath.isEmpty() || options.keyPath.isEmpty();
    if (ownCertificate && certDir.isEmpty()) {
        d->ownCertDir.reset(new QTemporaryDir);
        if (!d->ownCertDir->isValid()) {
            qWarning("vdifake: cannot create a temporary directory for the certificate");
            return;
        }
        certDir = d->ownCertDir->path();
    }
    const QString dnsName = options.dnsName.isEmpty() ? options.commonName : options.dnsName;
    const CertificateFiles files = ownCertificate
        ? makeSelfSignedCertificate(certDir, options.commonName, dnsName, QStringLiteral("fake-server"))
        : CertificateFiles{options.certPath, options.keyPath};
    if (!files.isValid())
        return;
    d->pemPath = files.certPath;
    d->keyPath = files.keyPath;

    QFile certFile(files.certPath);
    QFile keyFile(files.keyPath);
    if (!certFile.open(QIODevice::ReadOnly) || !keyFile.open(QIODevice::ReadOnly)) {
        qWarning("vdifake: cannot read the certificate files");
        return;
    }
    grpc::SslServerCredentialsOptions ssl;
    ssl.pem_key_cert_pairs.push_back(
        {keyFile.readAll().toStdString(), certFile.readAll().toStdString()});

    d->service.reset(new GenericService(d->state));
    grpc::ServerBuilder builder;
    d->host = options.host.contains(QLatin1Char(':')) ? QLatin1Char('[') + options.host + QLatin1Char(']') : options.host;
    builder.AddListeningPort(d->host.toStdString() + ":" + std::to_string(options.port), grpc::SslServerCredentials(ssl),
                             &d->port);
    builder.RegisterCallbackGenericService(d->service.get());
    builder.SetMaxReceiveMessageSize(-1);
    builder.SetMaxSendMessageSize(-1);
    d->server = builder.BuildAndStart();
    if (!d->server || d->port <= 0) {
        qWarning("vdifake: the fake server could not start on %s", qPrintable(d->host));
        d->server.reset();
        d->port = 0;
        return;
    }
    auto state = d->state;
    d->timer = std::thread([state] { state->runTimer(); });
}

FakeServer::FakeServer() : FakeServer(Options()) {}

FakeServer::~FakeServer()
{
    const auto state = d->state;
    if (d->server) {
        // End every call in progress at once, then stop taking calls.
        std::vector<std::pair<CallReactor*, Script>> toFinish;
        {
            std::lock_guard<std::mutex> lock(state->mutex);
            state->stopping = true;
            Script s;
            s.code = grpc::StatusCode::UNAVAILABLE;
            s.message = "the fake server is shutting down";
            for (auto& h : state->held) {
                h.first->markFinishingLocked(s);
                toFinish.emplace_back(h.first, s);
            }
            state->held.clear();
            // Calls still streaming requests (an upload, an open bidi stream) end too;
            // their pending read then fails and they are recorded.
            for (CallReactor* r : state->reading) {
                r->markFinishingLocked(s);
                toFinish.emplace_back(r, s);
            }
            state->reading.clear();
        }
        for (auto& f : toFinish)
            f.first->finish(f.second);
        d->server->Shutdown(std::chrono::system_clock::now() + std::chrono::milliseconds(200));
    }
    if (d->timer.joinable()) {
        {
            std::lock_guard<std::mutex> lock(state->mutex);
            state->stopTimer = true;
            state->timerWake.notify_all();
        }
        d->timer.join();
    }
    {
        // Let the last reactions run before the server goes (they only touch `state`,
        // which they share, so a straggler would still be safe).
        std::unique_lock<std::mutex> lock(state->mutex);
        state->callsChanged.wait_for(lock, std::chrono::seconds(1), [&] { return state->liveCalls == 0; });
        state->observer = nullptr;
        state->responders.clear();
    }
    d->server.reset();
    d->service.reset();
}

bool FakeServer::isRunning() const
{
    return d->server != nullptr;
}

int FakeServer::port() const
{
    return d->port;
}

QString FakeServer::address() const
{
    return QStringLiteral("%1:%2").arg(d->host).arg(d->port);
}

QString FakeServer::pemPath() const
{
    return d->pemPath;
}

QString FakeServer::keyPath() const
{
    return d->keyPath;
}

QString FakeServer::commonName() const
{
    return d->commonName;
}

void FakeServer::setScript(const std::string& method, const Script& s)
{
    std::lock_guard<std::mutex> lock(d->state->mutex);
    d->state->standing[method] = s;
}

void FakeServer::setReply(const std::string& method, const google::protobuf::Message& reply)
{
    std::string bytes;
    reply.SerializeToString(&bytes);
    std::lock_guard<std::mutex> lock(d->state->mutex);
    Script& s = d->state->standingLocked(method);
    s.code = grpc::StatusCode::OK;
    s.message.clear();
    s.replyBytes = std::move(bytes);
}

void FakeServer::setStatus(const std::string& method, grpc::StatusCode code, const std::string& message)
{
    std::lock_guard<std::mutex> lock(d->state->mutex);
    Script& s = d->state->standingLocked(method);
    s.code = code;
    s.message = message;
}

void FakeServer::setDelay(const std::string& method, int delayMs)
{
    std::lock_guard<std::mutex> lock(d->state->mutex);
    d->state->standingLocked(method).delayMs = delayMs;
}

void FakeServer::queueScript(const std::string& method, const Script& s)
{
    std::lock_guard<std::mutex> lock(d->state->mutex);
    d->state->queued[method].push_back(s);
}

void FakeServer::clearScript(const std::string& method)
{
    std::lock_guard<std::mutex> lock(d->state->mutex);
    d->state->standing.erase(method);
    d->state->queued.erase(method);
}

void FakeServer::setResponder(const std::string& method, Responder responder)
{
    std::lock_guard<std::mutex> lock(d->state->mutex);
    if (responder)
        d->state->responders[method] = std::move(responder);
    else
        d->state->responders.erase(method);
}

void FakeServer::clearResponder(const std::string& method)
{
    std::lock_guard<std::mutex> lock(d->state->mutex);
    d->state->responders.erase(method);
}

std::vector<RecordedCall> FakeServer::calls(const std::string& method) const
{
    std::vector<RecordedCall> out;
    std::lock_guard<std::mutex> lock(d->state->mutex);
    for (const auto& call : d->state->calls) {
        if (method.empty() || call->method == method)
            out.push_back(*call);
    }
    return out;
}

int FakeServer::callCount(const std::string& method) const
{
    std::lock_guard<std::mutex> lock(d->state->mutex);
    return d->state->countLocked(method, false);
}

bool FakeServer::waitForCalls(const std::string& method, int count, int timeoutMs) const
{
    const auto& state = d->state;
    std::unique_lock<std::mutex> lock(state->mutex);
    return state->callsChanged.wait_for(lock, std::chrono::milliseconds(std::max(0, timeoutMs)),
                                        [&] { return state->countLocked(method, false) >= count; });
}

bool FakeServer::waitForFinished(const std::string& method, int count, int timeoutMs) const
{
    const auto& state = d->state;
    std::unique_lock<std::mutex> lock(state->mutex);
    return state->callsChanged.wait_for(lock, std::chrono::milliseconds(std::max(0, timeoutMs)),
                                        [&] { return state->countLocked(method, true) >= count; });
}

void FakeServer::clearCalls()
{
    std::lock_guard<std::mutex> lock(d->state->mutex);
    d->state->calls.clear();
}

void FakeServer::setCallObserver(std::function<void(const RecordedCall&)> observer)
{
    std::lock_guard<std::mutex> lock(d->state->mutex);
    d->state->observer = std::move(observer);
}

std::string FakeServer::methodPath(const google::protobuf::MethodDescriptor* method)
{
    if (!method)
        return {};
    return '/' + method->service()->full_name() + '/' + method->name();
}

} // namespace vdifake
