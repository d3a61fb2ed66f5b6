// Pieces shared by the benchmarks that run the library against a fake server in a process of
// its own: an isolated home folder, figures of this process read from /proc, the server
// process and its commands, a bare grpc++ heartbeat on a channel of its own.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include "client/client_core.grpc.pb.h"
#include "isolatedhome.h"

class VdiDesktopGrpcThread;

namespace vdibench {

using Clock = std::chrono::steady_clock;

double microsSince(Clock::time_point start);
double median(std::vector<double> values);

// "--name N" among the arguments, at least 1; `fallback` when absent.
int positiveOption(const QStringList& args, const QString& name, int fallback);

// The tests' isolated home, and besides no log rules from outside and no info or debug output.
// Make it before the QCoreApplication.
class IsolatedHome : public vdifake::IsolatedHome
{
public:
    IsolatedHome();
};

// Drops every log line of the library and counts them instead, so that the benchmark's own
// figures stay readable (failing requests log warnings and critical lines by design).
void dropLogLines();
long droppedLogLines();

// A "Key:" of /proc/self/status in KiB (VmRSS:, VmHWM:), -1 if absent.
long long statusKib(const char* key);
// Entries of a folder such as /proc/self/fd or /proc/self/task, "." and ".." aside.
int entriesOf(const char* dir);
// Open descriptors and threads of this process.
int openDescriptors();
int threadCount();
// Threads of this process that gRPC starts for itself (its executors, event engine, timers and
// resolver), told by their names; they grow on demand up to a bound of gRPC's choosing.
int grpcThreadCount();
// Resident KiB of the mappings that look like thread stacks: anonymous, writable, of the
// default thread stack size, right behind a guard page. Pages of a stack count only once
// touched, like any other anonymous memory. `areas`, when given, receives how many were found.
long long threadStackKib(int* areas = nullptr);
// The default thread stack size in KiB (what a QThread without a size gets).
long long defaultStackKib();
// Raises the soft limit of open descriptors to the hard one; returns the new soft limit.
long long raiseDescriptorLimit();

// The identity a thin client gives the facade before it connects.
void fillIdentity(VdiDesktopGrpcThread& facade);

// ---- The server process ---------------------------------------------------------------------

// Run by the benchmark itself as `<program> --serve DIR`: the fake controller with the
// simulated deployment (the simulator's controller mode), its certificate made in DIR, on a
// free port of 127.0.0.1. Prints "port N", "pem PATH", "common-name NAME" and "ready", then
// takes commands on standard input, one a line, each answered by one line:
//   down                 stops serving (every call in progress ends UNAVAILABLE)    -> "down"
//   up                   serves again on the same port with the same certificate    -> "up"
//   fail METHOD CODE     the next call of METHOD ends with the gRPC status CODE       -> "queued"
//   calls                the calls served so far                                    -> "calls N"
// It ends when standard input closes.
int serve(const QString& dir);
// serve() when the arguments are "--serve DIR", else -1.
int serveIfAsked(const QStringList& args);

class ServerProcess
{
public:
    // Starts `<this program> --serve <a folder of its own>` and reads its address.
    ServerProcess();
    ~ServerProcess();
    bool isReady() const { return m_port > 0; }
    int port() const { return m_port; }
    QString pem() const { return m_pem; }
    QString commonName() const { return m_commonName; }
    qint64 pid() const { return m_process.processId(); }
    // Sends one command line and returns the answer line (empty on failure).
    QString command(const QString& line);

private:
    QString readLine(int timeoutMs);

    QTemporaryDir m_dir;
    QProcess m_process;
    int m_port = 0;
    QString m_pem;
    QString m_commonName;
};

// ---- A bare grpc++ heartbeat ----------------------------------------------------------------

// The heartbeat a facade sends, made by hand on a channel of its own to the same server with
// the same TLS settings, metadata and deadline.
class RawHeartbeat
{
public:
    RawHeartbeat(const ServerProcess& server, const std::string& pemText);
    // One blocking call; true when answered OK with error code 0.
    bool call();

private:
    client::HeartbeatReq m_request;
    std::unique_ptr<client::ClientCore::Stub> m_stub;
};

// The text of a pem file.
std::string readFile(const QString& path);

} // namespace vdibench
