// The one shape of a request handler of the worker, written once. A handler states only its
// own data (an RpcShape: labels, level, redaction, context, null-stub answer, switches), its
// stub and RPC, its conversions, and its hooks (RpcHooks: precondition, a step before the call,
// the failure, the copy of request fields into the reply); the frame does the rest:
//
//   interruption check, precondition, null-stub branch, context made and published for stop(),
//   redacted request log, the blocking call, reply log, status or reply error, flag, copy.
//
// The frame returns an explicit CallOutcome. A handler answers (emits its result) exactly when
// the outcome says so (answers()), and only a Called outcome carries a status and a reply of
// the server: on the null-stub roads the status is the fabricated NOT_FOUND, never an untouched
// OK. Context and request live in the handler's RpcResult, so they stay alive until the handler
// has emitted and returned.
//
// Internal to the library: not installed.
#pragma once

#include <functional>
#include <memory>

#include <QThread>

#include "vdidesktopgrpchelper.h"
#include "vdidesktopgrpcworker.h"
#include "vdilog.h"

enum class Redaction {
    None,   // request text as it stands
    Print,  // printInfoWithoutKeyList
    Debug,  // debugInfoWithoutKeyList
};

enum class CallContext {
    Standard,        // buildClientContext: m_timeoutSeconds, token and language
    FixedWithToken,  // 10 s, the gateway token alone
    Fixed,           // 10 s, no metadata
    Stepped,         // deadline from a doubling counter, no metadata
    Unlimited,       // no deadline, no metadata
};

enum class NullStub : int {
    Answer,  // fabricate NOT_FOUND (which rebuilds the channels) and answer false
    Silent,  // fabricate NOT_FOUND, but answer nothing
    Ignore,  // log and return
    Bare,    // answer false with the record as constructed: no error record, no rebuild
};

// How a handler's run through the frame ended.
enum class CallOutcome {
    Interrupted,       // stop was requested before the call: nothing is answered
    Declined,          // the handler's precondition ended it: nothing is answered
    NullStubIgnored,   // no stub, logged only: nothing is answered
    NullStubSilent,    // no stub, NOT_FOUND went the failure way, but nothing is answered
    NullStubAnswered,  // no stub: the handler answers false with the NOT_FOUND error record
    Admitted,          // entry steps passed; only seen by handlers that dispatch by themselves
    Called,            // the call took place: status and reply are the server's
};

// True for the outcomes after which the handler emits its result.
inline bool answers(CallOutcome outcome)
{
    return outcome == CallOutcome::NullStubAnswered || outcome == CallOutcome::Called;
}

struct RpcShape {
    const char* function = "";
    QtMsgType level = QtInfoMsg;
    const char* requestLabel = " request:\n";
    const char* replyLabel = " reply:\n";
    Redaction redaction = Redaction::Print;
    bool redactReply = false;
    const char* requestText = nullptr;  // fixed text logged in place of the request
    bool requestLabelOnly = false;      // the request label alone, without any text
    const char* nullStubText = " stub is null.";
    NullStub nullStub = NullStub::Answer;
    CallContext context = CallContext::Standard;
    int* retryDelay = nullptr;          // counter of a stepped deadline
    const char* deadlineText = nullptr; // log line of a stepped deadline
    bool logAfterCall = false;          // both the request and the reply are logged after the call
    bool failureToHandler = false;      // a failed status gets no error record and no rebuild here
    bool convertBeforeStatus = false;   // the reply is converted whatever the status

    static RpcShape at(const char* function, QtMsgType level = QtInfoMsg)
    {
        RpcShape shape;
        shape.function = function;
        shape.level = level;
        return shape;
    }
    RpcShape labels(const char* request, const char* reply) const
    {
        RpcShape shape = *this;
        shape.requestLabel = request;
        shape.replyLabel = reply;
        return shape;
    }
    RpcShape redact(Redaction how, bool reply = false) const
    {
        RpcShape shape = *this;
        shape.redaction = how;
        shape.redactReply = reply;
        return shape;
    }
    RpcShape fixedRequest(const char* text) const
    {
        RpcShape shape = *this;
        shape.requestText = text;
        return shape;
    }
    RpcShape labelOnly() const
    {
        RpcShape shape = *this;
        shape.requestLabelOnly = true;
        return shape;
    }
    RpcShape onNullStub(const char* text, NullStub answer = NullStub::Answer) const
    {
        RpcShape shape = *this;
        shape.nullStubText = text;
        shape.nullStub = answer;
        return shape;
    }
    RpcShape deadline(CallContext kind) const
    {
        RpcShape shape = *this;
        shape.context = kind;
        return shape;
    }
    RpcShape stepped(int* counter, const char* text) const
    {
        RpcShape shape = deadline(CallContext::Stepped);
        shape.retryDelay = counter;
        shape.deadlineText = text;
        return shape;
    }
    // Request and reply texts are both logged once the call has returned.
    RpcShape loggedAfterCall() const
    {
        RpcShape shape = *this;
        shape.logAfterCall = true;
        return shape;
    }
    // A failed status is the handler's business: the frame neither fills the error record nor
    // rebuilds the channels; the handler calls statusCodeToErrorData where it wants to.
    RpcShape failureLeftToHandler() const
    {
        RpcShape shape = *this;
        shape.failureToHandler = true;
        return shape;
    }
    // The reply is converted before the status is looked at, so a failed call first fills the
    // record from the empty reply and the failure then overwrites only the error.
    RpcShape convertedBeforeStatus() const
    {
        RpcShape shape = *this;
        shape.convertBeforeStatus = true;
        return shape;
    }
    // The gateway's own calls: logged after the call, and a failure is left to the handler.
    RpcShape gatewayCall() const { return loggedAfterCall().failureLeftToHandler(); }
};

// What a handler's precondition decides, between the interruption check and the stub test.
struct Gate {
    enum Kind {
        Proceed,   // go on to the stub test
        Decline,   // end the handler here: no log about the stub, no answer
        NullStub,  // take the null-stub road now, with this text
    };
    Kind kind = Proceed;
    const char* nullStubText = nullptr;  // replaces the shape's null-stub text when set

    static Gate proceed(const char* nullStubText = nullptr) { return {Proceed, nullStubText}; }
    static Gate decline() { return {Decline, nullptr}; }
    static Gate nullStub(const char* text) { return {NullStub, text}; }
};

// Steps of the frame at which a handler adds work of its own.
template <class Record>
struct RpcHooks {
    std::function<Gate()> precondition;  // after the interruption check, before the stub test
    std::function<void()> beforeCall;    // after the stub test, before the context is made
    std::function<void()> onFailure;     // non-OK status, before it becomes an error record
    // Request fields copied into the reply, on every road that answers (null stub included).
    std::function<void(Record&)> copy;
    // Copied only after a call took place.
    std::function<void(Record&)> copyAfterCall;
};

template <class Reply, class Record>
struct RpcResult {
    CallOutcome outcome = CallOutcome::Interrupted;
    // The call's status after a call, NOT_FOUND on the null-stub roads, and never OK otherwise.
    grpc::Status status{grpc::StatusCode::UNKNOWN, "no call was made"};
    Reply reply;
    Record record;
    bool flag = false;  // status OK and the reply's error code 0, unless the handler decides
    // Owners of the call's context and request: alive until the handler returns.
    std::shared_ptr<grpc::ClientContext> context;
    std::unique_ptr<google::protobuf::Message> request;

    bool called() const { return outcome == CallOutcome::Called; }
    bool answers() const { return ::answers(outcome); }
};

// The outcome of a client-streaming call.
template <class Reply>
struct StreamResult {
    CallOutcome outcome = CallOutcome::Interrupted;
    grpc::Status status{grpc::StatusCode::UNKNOWN, "no call was made"};
    Reply reply;
    std::shared_ptr<grpc::ClientContext> context;
};

namespace vdiframe {
// The reply's error code; an absent error block reads as 0. Replies that are an error block
// themselves carry the code directly.
inline int replyErrorCode(const common::ErrorData& reply)
{
    return reply.error_code();
}
template <class Reply>
int replyErrorCode(const Reply& reply)
{
    return reply.error().error_code();
}

// A relative deadline.
inline gpr_timespec timespan(int64_t seconds, int32_t nanoseconds)
{
    gpr_timespec span;
    span.tv_sec = seconds;
    span.tv_nsec = nanoseconds;
    span.clock_type = GPR_TIMESPAN;
    return span;
}

// The request message filled from a record by one of the helper's to... conversions.
template <class Record, class Message>
auto filledBy(void (*to)(const Record&, Message&), const Record& record)
{
    return [to, &record](Message& message) { to(record, message); };
}

// For handlers that answer with no record of their own.
struct NoRecord {
    tagErrorData error;
};

// For handlers whose reply needs no conversion.
struct NoConversion {
    template <class Reply, class Record>
    void operator()(const Reply&, Record&) const {}
};
} // namespace vdiframe

template <class Result, class Record>
CallOutcome VdiDesktopGrpcWorker::enterHandler(const RpcShape& shape, bool hasStub,
                                               const RpcHooks<Record>& hooks, Result& out)
{
    if (interruptionRequested(shape.function))
        return out.outcome = CallOutcome::Interrupted;

    const char* nullStubText = shape.nullStubText;
    if (hooks.precondition) {
        const Gate gate = hooks.precondition();
        if (gate.kind == Gate::Decline)
            return out.outcome = CallOutcome::Declined;
        if (gate.nullStubText)
            nullStubText = gate.nullStubText;
        if (gate.kind == Gate::NullStub)
            hasStub = false;
    }
    if (hasStub)
        return out.outcome = CallOutcome::Admitted;

    VDI_LOG_IN(QtCriticalMsg, shape.function) << nullStubText;
    out.status = grpc::Status(grpc::StatusCode::NOT_FOUND, std::string());
    if (shape.nullStub == NullStub::Ignore)
        return out.outcome = CallOutcome::NullStubIgnored;
    out.flag = false;
    if (shape.nullStub != NullStub::Bare) {
        // Not a transport error, but it takes the same way as one, rebuild included.
        statusCodeToErrorData(out.status, out.record.error);
        if (shape.nullStub == NullStub::Silent)
            return out.outcome = CallOutcome::NullStubSilent;
    }
    if (hooks.copy)
        hooks.copy(out.record);
    return out.outcome = CallOutcome::NullStubAnswered;
}

template <class Stub, class Request, class Reply, class Record, class Fill, class Convert>
CallOutcome VdiDesktopGrpcWorker::unaryCall(const RpcShape& shape, const std::shared_ptr<Stub>& stubMember,
                                            grpc::Status (Stub::*rpc)(grpc::ClientContext*, const Request&, Reply*),
                                            Fill fill, Convert convert, RpcResult<Reply, Record>& out,
                                            const RpcHooks<Record>& hooks)
{
    // A local owner: a failure rebuilds the channels and replaces the member.
    const std::shared_ptr<Stub> stub = stubMember;
    if (enterHandler(shape, stub != nullptr, hooks, out) != CallOutcome::Admitted)
        return out.outcome;
    if (hooks.beforeCall)
        hooks.beforeCall();

    out.context = std::make_shared<grpc::ClientContext>();
    prepareContext(shape, *out.context);
    publishContext(out.context);

    auto request = std::make_unique<Request>();
    fill(*request);
    out.request.reset(request.release());
    const Request& message = static_cast<const Request&>(*out.request);
    if (!shape.logAfterCall)
        logRequest(shape, message);

    out.status = (stub.get()->*rpc)(out.context.get(), message, &out.reply);
    out.outcome = CallOutcome::Called;
    if (shape.logAfterCall)
        logRequest(shape, message);
    logReply(shape, out.reply);

    if (shape.convertBeforeStatus)
        convert(out.reply, out.record);
    if (!out.status.ok()) {
        if (hooks.onFailure)
            hooks.onFailure();
        if (!shape.failureToHandler)
            statusCodeToErrorData(out.status, out.record.error);
        out.flag = false;
    } else {
        if (!shape.convertBeforeStatus)
            convert(out.reply, out.record);
        out.flag = vdiframe::replyErrorCode(out.reply) == 0;
    }
    if (hooks.copy)
        hooks.copy(out.record);
    if (hooks.copyAfterCall)
        hooks.copyAfterCall(out.record);
    return out.outcome;
}

template <class Stub, class Request, class Reply, class Write>
CallOutcome VdiDesktopGrpcWorker::streamCall(const RpcShape& shape, const std::shared_ptr<Stub>& stubMember,
                                             std::unique_ptr<grpc::ClientWriter<Request>> (Stub::*rpc)(grpc::ClientContext*, Reply*),
                                             Write write, StreamResult<Reply>& out)
{
    const std::shared_ptr<Stub> stub = stubMember;
    // Our own guard: a stream on a missing stub is skipped, never dereferenced.
    if (!stub) {
        VDI_LOG_IN(QtCriticalMsg, shape.function) << shape.nullStubText;
        out.status = grpc::Status(grpc::StatusCode::NOT_FOUND, std::string());
        return out.outcome = CallOutcome::NullStubIgnored;
    }
    out.context = std::make_shared<grpc::ClientContext>();
    prepareContext(shape, *out.context);
    publishContext(out.context);

    std::unique_ptr<grpc::ClientWriter<Request>> writer = (stub.get()->*rpc)(out.context.get(), &out.reply);
    write(*writer);
    writer->WritesDone();
    out.status = writer->Finish();
    return out.outcome = CallOutcome::Called;
}

// A server that answered with a timeout of its own (error code 4) and still answers the network
// has only been too slow: the handlers that say so put their own text in its place.
template <class Reply, class Record>
bool VdiDesktopGrpcWorker::serverTimeoutInReach(const RpcResult<Reply, Record>& call)
{
    return call.called() && call.status.ok() && vdiframe::replyErrorCode(call.reply) == 4 && tryConnetRemoteHost();
}

template <class Request>
void VdiDesktopGrpcWorker::logRequest(const RpcShape& shape, const Request& request)
{
    if (shape.requestLabelOnly) {
        VDI_LOG_IN(shape.level, shape.function) << shape.requestLabel;
        return;
    }
    if (shape.requestText) {
        VDI_LOG_IN(shape.level, shape.function) << shape.requestLabel << shape.requestText;
        return;
    }
    // The text is built only when the level is switched on.
    VDI_LOG_IN(shape.level, shape.function) << shape.requestLabel << requestLogText(shape, request);
}

template <class Request>
QString VdiDesktopGrpcWorker::requestLogText(const RpcShape& shape, const Request& request)
{
    if (m_strictRedaction)
        return maskedDebugString(request);
    QString text = VdiDesktopGrpcHelper::fromStdString(request.DebugString());
    if (shape.redaction == Redaction::Print)
        printInfoWithoutKeyList(text);
    else if (shape.redaction == Redaction::Debug)
        text = debugInfoWithoutKeyList(text);
    return text;
}

template <class Reply>
void VdiDesktopGrpcWorker::logReply(const RpcShape& shape, const Reply& reply)
{
    if (!vdiLogEnabled(shape.level))
        return;
    if (m_strictRedaction) {  // in the form the text has when not strict: quoted where redacted
        const QString masked = maskedDebugString(reply);
        if (shape.redactReply) {
            VDI_LOG_IN(shape.level, shape.function) << shape.replyLabel << masked;
        } else {
            VDI_LOG_IN(shape.level, shape.function) << shape.replyLabel << masked.toUtf8().constData();
        }
        return;
    }
    const std::string text = reply.DebugString();
    if (shape.redactReply) {
        QString redacted = VdiDesktopGrpcHelper::fromStdString(text);
        printInfoWithoutKeyList(redacted);
        VDI_LOG_IN(shape.level, shape.function) << shape.replyLabel << redacted;
        return;
    }
    VDI_LOG_IN(shape.level, shape.function) << shape.replyLabel << text.c_str();
}
