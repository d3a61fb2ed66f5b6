#include "fuzzsupport.h"

#include <cstdio>
#include <cstdlib>

#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/text_format.h>
#include <grpcpp/support/status.h>

#include "vdidesktopgrpchelper.h"

namespace {
// Wire forms with invalid UTF-8 in a text are common input here; protobuf's log line for each
// would only slow the fuzzer down.
[[maybe_unused]] const bool kProtobufQuiet = (google::protobuf::SetLogHandler(nullptr), true);
} // namespace

namespace vdifuzz {

void fail(const char* what)
{
    std::fprintf(stderr, "conversion property violated: %s\n", what);
    std::abort();
}

Reply errorReply()
{
    return replyWith<common::ErrorData>(
        "ErrorData",
        [](const common::ErrorData& message) {
            tagErrorData fromServer;
            VdiDesktopGrpcHelper::grpc2ErrorData(message, fromServer);
            check(fromServer.errorCode == message.error_code(), "grpc2ErrorData keeps the code");
            // Only the codes that grpc::StatusCode defines: another value would be undefined.
            const int64_t wire = message.error_code();
            const int code = static_cast<int>(((wire % 17) + 17) % 17);
            const grpc::Status status(static_cast<grpc::StatusCode>(code), message.error_msg_en(),
                                      message.error_msg_zh());
            tagErrorData fromStatus;
            VdiDesktopGrpcHelper::toErrorData(status, fromStatus);
            check(fromStatus.errorCode == code, "toErrorData keeps the code");
            check(fromStatus.errorMsgEn == VdiDesktopGrpcHelper::fromStdString(message.error_msg_en()),
                  "toErrorData keeps the status message");
            check((code == 0) == (fromStatus.errorMsgZh == tagErrorData().errorMsgZh),
                  "toErrorData words every failure code and no success");
        },
        {"error_code: 14 error_msg_en: \"failed to connect to all addresses\" "
         "error_msg_zh: \"\\346\\234\\215\\345\\212\\241\\345\\231\\250\\350\\277\\236\\346\\216\\245\\345\\244\\261\\350\\264\\245\"",
         "error_code: 4 error_msg_en: \"Deadline Exceeded\"",
         "error_code: 1012 error_msg_en: \"user or password wrong\""});
}

int runReply(const std::vector<Reply>& replies, const uint8_t* data, size_t size)
{
    if (size == 0 || replies.empty())
        return 0;
    const Reply& entry = replies[data[0] % replies.size()];
    std::unique_ptr<google::protobuf::Message> message = entry.make();
    if (!message->ParseFromArray(data + 1, static_cast<int>(size - 1)))
        return 0;
    entry.convert(*message);
    return 0;
}

std::vector<Seed> replySeeds(const std::vector<Reply>& replies)
{
    std::vector<Seed> result;
    for (size_t index = 0; index < replies.size(); ++index) {
        const Reply& entry = replies[index];
        const std::string selector(1, static_cast<char>(index));
        result.push_back({std::string(entry.name) + "-empty", selector});
        int number = 0;
        for (const char* text : entry.seedTexts) {
            std::unique_ptr<google::protobuf::Message> message = entry.make();
            if (!google::protobuf::TextFormat::ParseFromString(text, message.get())) {
                std::fprintf(stderr, "seed of %s does not parse: %s\n", entry.name, text);
                std::abort();
            }
            result.push_back({std::string(entry.name) + "-" + std::to_string(++number),
                              selector + message->SerializeAsString()});
        }
    }
    return result;
}

} // namespace vdifuzz
