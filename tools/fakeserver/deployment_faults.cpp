// The faults a description injects: around whatever answers a method (the deployment, the
// scenario's script or the built-in one) they hold calls, end them with a status, put an error
// code into the reply, or take the server down for a while.
#include "deployment_answers.h"

#include "scenario.h"

#include <google/protobuf/descriptor.h>

#include "common/common_core.pb.h"
#include "common/common_messages.pb.h"
#include "gateway/gateway_core.pb.h"

#include <memory>

namespace vdifake {

using namespace detail;

namespace {

// Puts `code` and its texts into the error field of a reply (or into the reply, when it is a
// common.ErrorData itself); false when the reply has no such field.
bool setReplyError(const std::string& method, Script* answer, int code, const std::string& zh, const std::string& en)
{
    const google::protobuf::MethodDescriptor* descriptor = findMethod(method);
    if (!descriptor)
        return false;
    const google::protobuf::Message* prototype =
        google::protobuf::MessageFactory::generated_factory()->GetPrototype(descriptor->output_type());
    if (!prototype)
        return false;
    std::unique_ptr<google::protobuf::Message> reply(prototype->New());
    reply->ParseFromString(answer->replyBytes);
    common::ErrorData* error = dynamic_cast<common::ErrorData*>(reply.get());
    if (!error) {
        const google::protobuf::FieldDescriptor* field = descriptor->output_type()->FindFieldByName("error");
        if (!field || field->message_type() != common::ErrorData::descriptor())
            return false;
        error = dynamic_cast<common::ErrorData*>(reply->GetReflection()->MutableMessage(reply.get(), field));
        if (!error)
            return false;
    }
    error->set_error_code(code);
    error->set_error_msg_zh(zh);
    error->set_error_msg_en(en);
    answer->replyBytes.clear();
    reply->SerializeToString(&answer->replyBytes);
    return true;
}

} // namespace

void SimulatedDeployment::wrapWithFaults(Responders* responders)
{
    // Faults wrap whatever answers a method: a fault of every method ("*" or no method) wraps
    // every unary and client-streaming method of the services.
    std::map<std::string, std::vector<size_t>> faultsOf;
    for (int i = 0; i < m_config->fault_size(); ++i) {
        const std::string& method = m_config->fault(i).method();
        if (!method.empty() && method != "*") {
            faultsOf[method].push_back(static_cast<size_t>(i));
            continue;
        }
        for (const google::protobuf::Descriptor* inFile : {client::LoginReq::descriptor(), common::ErrorData::descriptor(),
                                                           gateway::LoginGatewayReq::descriptor(),
                                                           common::isUseGatewayResp::descriptor()}) {
            const google::protobuf::FileDescriptor* file = inFile->file();
            for (int sv = 0; sv < file->service_count(); ++sv) {
                for (int m = 0; m < file->service(sv)->method_count(); ++m) {
                    const google::protobuf::MethodDescriptor* descriptor = file->service(sv)->method(m);
                    if (!descriptor->server_streaming())
                        faultsOf[FakeServer::methodPath(descriptor)].push_back(static_cast<size_t>(i));
                }
            }
        }
    }
    for (auto& faulted : faultsOf) {
        FakeServer::Responder inner = (*responders)[faulted.first];
        const std::vector<size_t> faults = faulted.second;
        (*responders)[faulted.first] = [this, inner, faults](const RecordedCall& call, Script* answer) {
            return answerWithFaults(call, answer, inner, faults);
        };
    }
}

bool SimulatedDeployment::answerWithFaults(const RecordedCall& call, Script* answer,
                                           const std::function<bool(const RecordedCall&, Script*)>& inner,
                                           const std::vector<size_t>& faults)
{
    std::vector<const config::Fault*> active;  // the faults this call meets
    for (size_t index : faults) {
        const config::Fault& fault = m_config->fault(static_cast<int>(index));
        const int calls = ++m_faultCalls[index];
        const int after = fault.down_after_calls();
        if (after > 0 && (calls == after || (fault.down_repeat() && calls % after == 0)) && m_onDown)
            m_onDown(call.method, fault.down_for_ms());
        if (fault.fail_next() == 0 || calls <= fault.fail_next())
            active.push_back(&fault);
    }
    int delayMs = 0;
    for (const config::Fault* fault : active)
        delayMs = std::max(delayMs, fault->delay_ms());
    // A status ends the call without asking anyone; so does a bare fail_next.
    for (const config::Fault* fault : active) {
        const bool bare = fault->fail_next() > 0 && fault->error_code() == 0 && fault->delay_ms() == 0;
        if (fault->status().empty() && !bare)
            continue;
        grpc::StatusCode code = grpc::StatusCode::UNAVAILABLE;
        if (!fault->status().empty())
            statusCodeFromString(QString::fromStdString(fault->status()), &code);
        const std::string message = fault->message().empty() ? "injected fault" : fault->message();
        *answer = statusScript(code, message, *answer);
        answer->delayMs = std::max(answer->delayMs, delayMs);
        return true;
    }
    if (inner)
        inner(call, answer);  // when it declines, *answer stays the standing script
    for (const config::Fault* fault : active) {
        if (fault->error_code() != 0 && answer->code == grpc::StatusCode::OK)
            setReplyError(call.method, answer, fault->error_code(), fault->error_msg_zh(), fault->error_msg_en());
    }
    answer->delayMs = std::max(answer->delayMs, delayMs);
    return true;
}

} // namespace vdifake
