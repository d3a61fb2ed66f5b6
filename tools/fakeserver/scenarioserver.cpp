#include "scenarioserver.h"

#include <QTemporaryDir>

#include <chrono>
#include <utility>

namespace vdifake {

namespace {
const int kRestartAttempts = 20;
} // namespace

ScenarioServer::ScenarioServer(const ScenarioFile& scenario) : ScenarioServer(scenario, Options()) {}

ScenarioServer::ScenarioServer(const ScenarioFile& scenario, const Options& options) : m_options(options)
{
    m_mode = !options.mode.isEmpty() ? options.mode
        : !scenario.mode().isEmpty() ? scenario.mode()
                                     : QStringLiteral("controller");
    m_fileMethods = scenario.methodsFor(m_mode);
    // The built-in scenario's own methods are standing answers under the deployment's
    // responders; only a file's methods are answered by the file alone.
    if (&scenario == &builtInScenario())
        m_fileMethods.clear();
    m_methods = defaultScenario(m_mode);
    mergeScenario(&m_methods, m_fileMethods);
    m_deployment = scenario.deployment ? std::make_unique<SimulatedDeployment>(*scenario.deployment)
                                       : std::make_unique<SimulatedDeployment>();
    m_deployment->setDownHandler([this](const std::string& method, int downForMs) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_downPendingMs < 0) {
            m_downPendingMs = downForMs;
            m_downMethod = method;
        }
    });
}

ScenarioServer::~ScenarioServer()
{
    stop();
}

void ScenarioServer::stop()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
        m_changed.notify_all();
    }
    if (m_restarter.joinable())
        m_restarter.join();
    {
        std::lock_guard<std::mutex> lock(m_serverMutex);
        m_server.reset();  // waits for the calls in progress
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_up = false;
    m_changed.notify_all();
}

bool ScenarioServer::start(QString* error)
{
    FakeServer::Options& server = m_options.server;
    if (server.certDir.isEmpty() && (server.certPath.isEmpty() || server.keyPath.isEmpty())) {
        m_certDir = std::make_unique<QTemporaryDir>();
        if (!m_certDir->isValid()) {
            if (error)
                *error = QStringLiteral("cannot create a temporary folder for the certificate");
            return false;
        }
        server.certDir = m_certDir->path();
    }
    {
        std::lock_guard<std::mutex> lock(m_serverMutex);
        if (!startServer(error))
            return false;
    }
    // A restart serves with the same certificate on the same port.
    server.port = m_port;
    server.certPath = m_pemPath;
    server.keyPath = m_keyPath;
    m_restarter = std::thread([this] { runRestarts(); });
    return true;
}

bool ScenarioServer::startServer(QString* error)
{
    auto server = std::make_unique<FakeServer>(m_options.server);
    if (!server->isRunning()) {
        if (error)
            *error = QStringLiteral("the server could not start on 127.0.0.1:%1").arg(m_options.server.port);
        return false;
    }
    if (!applyScenario(*server, m_methods, error))
        return false;
    m_deployment->install(*server, m_mode);
    // A scenario file wins over the deployment for the methods it answers (the deployment's
    // login options and branding included).
    if (!applyScenario(*server, m_fileMethods, error))
        return false;
    for (const auto& entry : m_fileMethods)
        server->clearResponder(entry.first);
    server->setCallObserver([this](const RecordedCall& call) { onCallEnded(call); });
    if (m_port == 0) {
        // Set once, before the restarting thread runs: a restart keeps port and certificate.
        m_port = server->port();
        m_pemPath = server->pemPath();
        m_keyPath = server->keyPath();
        m_commonName = server->commonName();
    }
    m_server = std::move(server);
    std::lock_guard<std::mutex> lock(m_mutex);
    m_up = true;
    m_changed.notify_all();
    return true;
}

void ScenarioServer::onCallEnded(const RecordedCall& call)
{
    std::function<void(const RecordedCall&)> observer;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_options.keepCalls)
            m_calls.push_back(call);
        if (m_downPendingMs >= 0)
            m_downReady = true;
        observer = m_observer;
        m_changed.notify_all();
    }
    if (observer)
        observer(call);
}

void ScenarioServer::runRestarts()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_stopping || m_downReady; });
        if (m_stopping)
            return;
        const int downForMs = m_downPendingMs;
        const std::string method = m_downMethod;
        const auto stateObserver = m_stateObserver;
        lock.unlock();
        {
            std::lock_guard<std::mutex> serverLock(m_serverMutex);
            m_server.reset();  // ends the calls in progress
        }
        lock.lock();
        m_up = false;
        m_downPendingMs = -1;
        m_downReady = false;
        m_changed.notify_all();
        lock.unlock();
        if (stateObserver)
            stateObserver(false, method, downForMs);
        lock.lock();
        if (m_changed.wait_for(lock, std::chrono::milliseconds(downForMs), [this] { return m_stopping; }))
            return;
        // The port may take a moment to be free again: a few tries, 100 ms apart.
        bool started = false;
        for (int attempt = 0; !started && attempt < kRestartAttempts; ++attempt) {
            if (attempt > 0
                && m_changed.wait_for(lock, std::chrono::milliseconds(100), [this] { return m_stopping; }))
                return;
            lock.unlock();
            QString error;
            {
                std::lock_guard<std::mutex> serverLock(m_serverMutex);
                started = startServer(&error);
            }
            lock.lock();
        }
        lock.unlock();
        if (stateObserver)
            stateObserver(started, method, started ? downForMs : -1);
        lock.lock();
        if (started) {
            ++m_restarts;
            m_changed.notify_all();
        } else {
            // Not back: it stays down (the observer has been told).
            return;
        }
    }
}

bool ScenarioServer::isUp() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_up;
}

int ScenarioServer::restarts() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_restarts;
}

bool ScenarioServer::waitForRestarts(int count, int timeoutMs) const
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                              [&] { return m_restarts >= count && m_up; });
}

bool ScenarioServer::waitUntilDown(int timeoutMs) const
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return !m_up; });
}

std::vector<RecordedCall> ScenarioServer::calls(const std::string& method) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<RecordedCall> out;
    for (const RecordedCall& call : m_calls) {
        if (method.empty() || call.method == method)
            out.push_back(call);
    }
    return out;
}

bool ScenarioServer::waitForCalls(const std::string& method, int count, int timeoutMs) const
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
        int n = 0;
        for (const RecordedCall& call : m_calls)
            n += method.empty() || call.method == method;
        return n >= count;
    });
}

void ScenarioServer::setCallObserver(std::function<void(const RecordedCall&)> observer)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_observer = std::move(observer);
}

void ScenarioServer::setStateObserver(std::function<void(bool, const std::string&, int)> observer)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stateObserver = std::move(observer);
}

bool ScenarioServer::withServer(const std::function<void(FakeServer&)>& f)
{
    std::lock_guard<std::mutex> lock(m_serverMutex);
    if (!m_server)
        return false;
    f(*m_server);
    return true;
}

} // namespace vdifake
