#pragma once

// A fake virtual-desktop controller / access gateway for tests and tools: a real gRPC
// server over TLS on 127.0.0.1 that answers every method of every service through one
// generic handler, following per-method scripts, and records every call it receives.
//
// Thread safety: all public members may be called from any thread. The server's own
// threads record calls; the test thread reads them.

#include <QString>

#include <grpcpp/support/status.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace google {
namespace protobuf {
class Message;
class MethodDescriptor;
} // namespace protobuf
} // namespace google

namespace vdifake {

namespace detail {
struct FakeServerImpl;
} // namespace detail

// How the server answers one call of a method.
struct Script {
    grpc::StatusCode code = grpc::StatusCode::OK; // non-OK: the call ends with this status
    std::string message;                          // status message of a non-OK answer
    std::string replyBytes;                       // serialized reply sent with an OK answer
    int delayMs = 0;                              // how long the server holds the call first
};

// One call as the server saw it.
struct RecordedCall {
    std::string method;                                // "/client.ClientCore/Login"
    std::multimap<std::string, std::string> metadata;  // client metadata, keys lower-case
    double deadlineSeconds = -1;  // time left to the deadline on arrival; -1: no deadline
    std::vector<std::string> requests;                 // serialized requests, arrival order
    bool cancelled = false;  // the client cancelled or the deadline passed while held
    int delayMs = 0;         // how long the server held the call before answering it

    // Filled in as the call ends.
    bool finished = false;                               // the call has ended on the server
    grpc::StatusCode status = grpc::StatusCode::OK;      // the status the server ended it with
    std::string statusMessage;

    // The first value of a metadata key (lower-case), or empty.
    std::string metadataValue(const std::string& key) const;

    template <class M>
    M request(size_t i = 0) const
    {
        M m;
        m.ParseFromString(requests.at(i));
        return m;
    }
};

class FakeServer {
public:
    struct Options {
        QString certDir;  // where the certificate is made; empty: a temporary directory
                          // owned by the server
        QString commonName = QStringLiteral("vdi-fake-controller"); // certificate subject CN
        QString dnsName;  // subjectAltName DNS entry; empty: same as commonName (and none
                          // when commonName is empty too)
        int port = 0;     // the port; 0: a free one
        QString host = QStringLiteral("127.0.0.1");  // the loopback address to serve on, or "::1"
        // An existing certificate and key (PEM files) to serve with, in place of a new one:
        // a server started again on the same port that its clients still trust.
        QString certPath;
        QString keyPath;
    };

    // Makes the certificate and starts serving on 127.0.0.1 (a free port). Returns once
    // the server accepts calls, or has failed (isRunning() false, a warning is logged).
    explicit FakeServer(const Options& options);
    FakeServer();  // default options
    // Ends every call in progress (held ones, uploads and open streams) with UNAVAILABLE
    // and stops. Bounded: returns within about a second, normally within milliseconds.
    ~FakeServer();

    FakeServer(const FakeServer&) = delete;
    FakeServer& operator=(const FakeServer&) = delete;

    bool isRunning() const;
    int port() const;
    QString address() const;     // "127.0.0.1:<port>", "[::1]:<port>"
    QString pemPath() const;     // the server certificate, to be trusted by clients
    QString keyPath() const;
    QString commonName() const;  // to be used as the TLS target name override

    // The standing answer for a method (full path, "/client.ClientCore/Login").
    void setScript(const std::string& method, const Script& s);
    // OK with this reply; keeps the method's delay.
    void setReply(const std::string& method, const google::protobuf::Message& reply);
    // Ends calls with this status; keeps the method's delay.
    void setStatus(const std::string& method, grpc::StatusCode code, const std::string& message = {});
    // Holds calls this long before answering; keeps the rest of the method's script.
    void setDelay(const std::string& method, int delayMs);
    // One-shot answers, used in order before the standing one.
    void queueScript(const std::string& method, const Script& s);
    // Removes a method's standing and queued answers (not its responder).
    void clearScript(const std::string& method);

    // A dynamic answer: looks at the call as read (method, metadata, every request) and
    // either fills `*answer` and returns true, or returns false to let the standing
    // script (else the default) answer. `*answer` starts as that standing or default
    // script, so a responder may change just the reply and keep the method's delay.
    //
    // The answer for a call is taken in this order: a queued one-shot script, then the
    // responder, then the standing script, then the default one: OK with an empty reply for
    // a method the generated descriptor pool knows, UNIMPLEMENTED for any other path.
    //
    // A responder runs on a server thread while the server's state lock is held, so
    // responders never run concurrently with each other. It must be quick and must not
    // call back into the FakeServer (that would deadlock). It is not asked about a call
    // that was cancelled or is read while the server stops; the destructor drops every
    // responder, but whatever a responder refers to must outlive the FakeServer.
    using Responder = std::function<bool(const RecordedCall& call, Script* answer)>;
    void setResponder(const std::string& method, Responder responder);
    void clearResponder(const std::string& method);

    // Recorded calls, all or those of one method, in order of recording. A unary or
    // client-streaming call is recorded once the server has read all its requests (the
    // client half-closed, or the reading failed), so its requests are complete. A call of
    // a method that answers with a stream (the bidi ClientStream) is recorded as soon as it
    // opens; its requests are added as they arrive. `finished`/`status` are set when a
    // call ends.
    std::vector<RecordedCall> calls(const std::string& method = {}) const;
    int callCount(const std::string& method = {}) const;
    // True once `count` calls of `method` (empty: any) have been recorded: for a unary
    // call, the server now holds it (its delay runs) or has answered it. False on timeout.
    bool waitForCalls(const std::string& method, int count, int timeoutMs) const;
    // True once `count` recorded calls of `method` (empty: any) have ended.
    bool waitForFinished(const std::string& method, int count, int timeoutMs) const;
    void clearCalls();

    // Called on a server thread whenever a call ends, with the call as recorded. Must be
    // thread-safe and quick; set it before the calls it should see.
    void setCallObserver(std::function<void(const RecordedCall&)> observer);

    // "/package.Service/Method"
    static std::string methodPath(const google::protobuf::MethodDescriptor* method);

private:
    std::unique_ptr<detail::FakeServerImpl> d;
};

} // namespace vdifake
