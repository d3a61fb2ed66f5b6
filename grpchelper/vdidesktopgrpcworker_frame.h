// The one shape of a request handler of the worker, written once. A handler states only its
// own data (an RpcShape: labels, level, redaction, context, null-stub answer), its stub and RPC,
// its conversions, and what it does on top of the common steps; the frame does the rest:
//
//   interruption check, null-stub branch, heap context published for stop(), redacted request
//   log, the blocking call, reply log, status or reply error, flag.
//
// The handler emits its result itself when the frame returns true.
#pragma once

#include <functional>

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
};

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
    bool rebuildOnFailure = true;       // a failed status goes through statusCodeToErrorData

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
    // The gateway's own calls: both texts logged after the call, and a failure is the
    // handler's business alone (no error record, no rebuild of the channels).
    RpcShape gatewayCall() const
    {
        RpcShape shape = *this;
        shape.logAfterCall = true;
        shape.rebuildOnFailure = false;
        return shape;
    }
    RpcShape stepped(int* counter, const char* text) const
    {
        RpcShape shape = deadline(CallContext::Stepped);
        shape.retryDelay = counter;
        shape.deadlineText = text;
        return shape;
    }
};

// Steps of the frame at which a handler adds lines of its own.
struct RpcHooks {
    std::function<void()> beforeCall;  // after the stub check, before the context is made
    std::function<void()> onFailure;   // non-OK status, before it becomes an error record
};

template <class Reply, class Record>
struct RpcResult {
    grpc::Status status;
    Reply reply;
    Record record;
    bool flag = false;     // status OK and the reply's error code 0, unless the handler decides
    bool called = false;   // false: the null-stub branch answered
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

template <class Stub, class Request, class Reply, class Record, class Fill, class Convert>
bool VdiDesktopGrpcWorker::unaryCall(const RpcShape& shape, const std::shared_ptr<Stub>& stubMember,
                                     grpc::Status (Stub::*rpc)(grpc::ClientContext*, const Request&, Reply*),
                                     Fill fill, Convert convert, RpcResult<Reply, Record>& out,
                                     const RpcHooks& hooks)
{
    if (interruptionRequested(shape.function))
        return false;
    // A local owner: a failure rebuilds the channels and replaces the member.
    const std::shared_ptr<Stub> stub = stubMember;
    if (!stub)
        return answerNullStub(shape.function, shape.nullStubText, shape.nullStub, out.record.error);
    if (hooks.beforeCall)
        hooks.beforeCall();

    const std::shared_ptr<grpc::ClientContext> context = newCallContext();
    prepareContext(shape, *context);

    Request request;
    fill(request);
    if (!shape.logAfterCall)
        logRequest(shape, request);

    out.status = (stub.get()->*rpc)(context.get(), request, &out.reply);
    out.called = true;
    if (shape.logAfterCall)
        logRequest(shape, request);
    logReply(shape, out.reply);

    if (!out.status.ok()) {
        if (hooks.onFailure)
            hooks.onFailure();
        if (shape.rebuildOnFailure)
            statusCodeToErrorData(out.status, out.record.error);
        out.flag = false;
    } else {
        convert(out.reply, out.record);
        out.flag = vdiframe::replyErrorCode(out.reply) == 0;
    }
    return true;
}

template <class Request>
void VdiDesktopGrpcWorker::logRequest(const RpcShape& shape, const Request& request)
{
    QDebug log = vdiLog(shape.level, shape.function);
    log << shape.requestLabel;
    if (shape.requestLabelOnly)
        return;
    if (shape.requestText) {
        log << shape.requestText;
        return;
    }
    QString text = VdiDesktopGrpcHelper::fromStdString(request.DebugString());
    if (shape.redaction == Redaction::Print)
        printInfoWithoutKeyList(text);
    else if (shape.redaction == Redaction::Debug)
        text = debugInfoWithoutKeyList(text);
    log << text;
}

template <class Reply>
void VdiDesktopGrpcWorker::logReply(const RpcShape& shape, const Reply& reply)
{
    const std::string text = reply.DebugString();
    if (shape.redactReply) {
        QString redacted = VdiDesktopGrpcHelper::fromStdString(text);
        printInfoWithoutKeyList(redacted);
        vdiLog(shape.level, shape.function) << shape.replyLabel << redacted;
        return;
    }
    vdiLog(shape.level, shape.function) << shape.replyLabel << text.c_str();
}
