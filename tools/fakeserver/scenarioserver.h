#pragma once

// A scenario played on a fake server: the standing answers of the built-in scenario and of a
// scenario file for a mode, the deployment the file describes (else the built-in one) and its
// faults, the server going down among them. It owns the FakeServer and starts it again, on the
// same port with the same certificate, when a fault has taken it down.
//
//   vdifake::ScenarioFile file;
//   vdifake::loadScenarioFile(path, &file, &error);
//   vdifake::ScenarioServer played(file);            // or ScenarioServer(builtInScenario())
//   played.deployment().addUser("alice", "secret");  // before start()
//   if (!played.start(&error)) ...
//   ... connect to 127.0.0.1:played.port(), trusting played.pemPath() as played.commonName()
//
// Thread safety: start() and the setters before it on one thread; then every member may be
// called from any thread.

#include "deployment.h"
#include "fakeserver.h"
#include "scenario.h"

#include <QString>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class QTemporaryDir;

namespace vdifake {

class ScenarioServer {
public:
    struct Options {
        // "controller" or "gateway"; empty: the mode the file's deployment names, else
        // "controller".
        QString mode;
        // The server's certificate and port. An empty certDir (and no certPath): a temporary
        // folder that lives as long as this object, so that a restart finds the certificate.
        FakeServer::Options server;
        // Keep every call that ended, across restarts, for calls() (a long-running simulator
        // that records nothing may turn this off).
        bool keepCalls = true;
    };

    explicit ScenarioServer(const ScenarioFile& scenario);
    ScenarioServer(const ScenarioFile& scenario, const Options& options);
    // Stops the server, and any restart still to come.
    ~ScenarioServer();

    ScenarioServer(const ScenarioServer&) = delete;
    ScenarioServer& operator=(const ScenarioServer&) = delete;

    // The deployment played; configure it (users, observers, overruns) before start().
    SimulatedDeployment& deployment() { return *m_deployment; }
    QString mode() const { return m_mode; }
    // The methods a scenario file answers alone: the deployment does not answer them.
    const Scenario& fileMethods() const { return m_fileMethods; }

    // Starts serving; false with the reason when the server or the scenario cannot start.
    bool start(QString* error);
    // Stops serving for good, once the calls in progress have ended (their observers
    // called), and any restart still to come; calls() still lists every call.
    void stop();

    int port() const { return m_port; }
    QString pemPath() const { return m_pemPath; }
    QString commonName() const { return m_commonName; }
    bool isUp() const;
    // How many times the server came back after going down.
    int restarts() const;
    bool waitForRestarts(int count, int timeoutMs) const;
    // Waits until the server is down (true) or the time is over (false).
    bool waitUntilDown(int timeoutMs) const;

    // Every call that ended, in the order they ended, across restarts (Options::keepCalls).
    std::vector<RecordedCall> calls(const std::string& method = {}) const;
    bool waitForCalls(const std::string& method, int count, int timeoutMs) const;

    // Called on a server thread for every call that ends; set before start().
    void setCallObserver(std::function<void(const RecordedCall&)> observer);
    // Called on the restarting thread when the server goes down (up false, with how long
    // it stays down), when it is back (up true) and when it could not start again for two
    // seconds after that time (up false, -1: it stays down); set before start().
    void setStateObserver(std::function<void(bool up, const std::string& method, int downForMs)> observer);

    // Runs `f` with the server while it is up; false when it is down.
    bool withServer(const std::function<void(FakeServer&)>& f);

private:
    bool startServer(QString* error);  // with m_serverMutex held
    void onCallEnded(const RecordedCall& call);
    void runRestarts();

    QString m_mode;
    Scenario m_methods;      // the standing answers played: built-in ones, then the file's
    Scenario m_fileMethods;  // the file's alone
    std::unique_ptr<SimulatedDeployment> m_deployment;
    Options m_options;
    std::unique_ptr<QTemporaryDir> m_certDir;
    int m_port = 0;
    QString m_pemPath;
    QString m_keyPath;
    QString m_commonName;

    std::mutex m_serverMutex;  // guards m_server (held while it starts and stops)
    std::unique_ptr<FakeServer> m_server;

    mutable std::mutex m_mutex;  // guards what follows; never held while calling the server
    mutable std::condition_variable m_changed;
    std::vector<RecordedCall> m_calls;
    bool m_up = false;
    bool m_stopping = false;
    int m_restarts = 0;
    int m_downPendingMs = -1;        // a fault asked for the server to go down: for how long
    std::string m_downMethod;
    bool m_downReady = false;        // ... and a call has ended since
    std::function<void(const RecordedCall&)> m_observer;
    std::function<void(bool, const std::string&, int)> m_stateObserver;
    std::thread m_restarter;
};

} // namespace vdifake
