// The one shape of a request handler of the worker, written once. A handler states only its
// own data (an RpcSpec: labels, level, redaction, context, null-stub answer), its stub and RPC,
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

struct RpcSpec {
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

    static RpcSpec at(const char* function, QtMsgType level = QtInfoMsg)
    {
        RpcSpec spec;
        spec.function = function;
        spec.level = level;
        return spec;
    }
    RpcSpec labels(const char* request, const char* reply) const
    {
        RpcSpec spec = *this;
        spec.requestLabel = request;
        spec.replyLabel = reply;
        return spec;
    }
    RpcSpec redact(Redaction how, bool reply = false) const
    {
        RpcSpec spec = *this;
        spec.redaction = how;
        spec.redactReply = reply;
        return spec;
    }
    RpcSpec fixedRequest(const char* text) const
    {
        RpcSpec spec = *this;
        spec.requestText = text;
        return spec;
    }
    RpcSpec labelOnly() const
    {
        RpcSpec spec = *this;
        spec.requestLabelOnly = true;
        return spec;
    }
    RpcSpec onNullStub(const char* text, NullStub answer = NullStub::Answer) const
    {
        RpcSpec spec = *this;
        spec.nullStubText = text;
        spec.nullStub = answer;
        return spec;
    }
    RpcSpec deadline(CallContext kind) const
    {
        RpcSpec spec = *this;
        spec.context = kind;
        return spec;
    }
    // The gateway's own calls: both texts logged after the call, and a failure is the
    // handler's business alone (no error record, no rebuild of the channels).
    RpcSpec gatewayCall() const
    {
        RpcSpec spec = *this;
        spec.logAfterCall = true;
        spec.rebuildOnFailure = false;
        return spec;
    }
    RpcSpec stepped(int* counter, const char* text) const
    {
        RpcSpec spec = deadline(CallContext::Stepped);
        spec.retryDelay = counter;
        spec.deadlineText = text;
        return spec;
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
bool VdiDesktopGrpcWorker::unaryCall(const RpcSpec& spec, const std::shared_ptr<Stub>& stubMember,
                                     grpc::Status (Stub::*rpc)(grpc::ClientContext*, const Request&, Reply*),
                                     Fill fill, Convert convert, RpcResult<Reply, Record>& out,
                                     const RpcHooks& hooks)
{
    if (interruptionRequested(spec.function))
        return false;
    // A local owner: a failure rebuilds the channels and replaces the member.
    const std::shared_ptr<Stub> stub = stubMember;
    if (!stub)
        return answerNullStub(spec.function, spec.nullStubText, spec.nullStub, out.record.error);
    if (hooks.beforeCall)
        hooks.beforeCall();

    const std::shared_ptr<grpc::ClientContext> context = newCallContext();
    prepareContext(spec, *context);

    Request request;
    fill(request);
    if (!spec.logAfterCall)
        logRequest(spec, request);

    out.status = (stub.get()->*rpc)(context.get(), request, &out.reply);
    out.called = true;
    if (spec.logAfterCall)
        logRequest(spec, request);
    logReply(spec, out.reply);

    if (!out.status.ok()) {
        if (hooks.onFailure)
            hooks.onFailure();
        if (spec.rebuildOnFailure)
            statusCodeToErrorData(out.status, out.record.error);
        out.flag = false;
    } else {
        convert(out.reply, out.record);
        out.flag = vdiframe::replyErrorCode(out.reply) == 0;
    }
    return true;
}

template <class Request>
void VdiDesktopGrpcWorker::logRequest(const RpcSpec& spec, const Request& request)
{
    QDebug log = vdiLog(spec.level, spec.function);
    log << spec.requestLabel;
    if (spec.requestLabelOnly)
        return;
    if (spec.requestText) {
        log << spec.requestText;
        return;
    }
    QString text = VdiDesktopGrpcHelper::fromStdString(request.DebugString());
    if (spec.redaction == Redaction::Print)
        printInfoWithoutKeyList(text);
    else if (spec.redaction == Redaction::Debug)
        text = debugInfoWithoutKeyList(text);
    log << text;
}

template <class Reply>
void VdiDesktopGrpcWorker::logReply(const RpcSpec& spec, const Reply& reply)
{
    const std::string text = reply.DebugString();
    if (spec.redactReply) {
        QString redacted = VdiDesktopGrpcHelper::fromStdString(text);
        printInfoWithoutKeyList(redacted);
        vdiLog(spec.level, spec.function) << spec.replyLabel << redacted;
        return;
    }
    vdiLog(spec.level, spec.function) << spec.replyLabel << text.c_str();
}
