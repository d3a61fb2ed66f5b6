// Conversions between the library's plain records and the generated protobuf messages.
// Stateless: every function needs nothing but its arguments and runs where it is called.
#pragma once

#include <string>

#include <QString>
#include <grpcpp/support/status.h>

#include "vdigrpcrecords.h"

#include "client/client_core.pb.h"
#include "common/error_data.pb.h"
#include "gateway/gateway_core.pb.h"

class VdiDesktopGrpcHelper
{
public:
    // Text from the wire: UTF-8 over the string's explicit size, embedded NUL bytes kept.
    static QString fromStdString(std::string const& text);

    // A failed transport status: its code and message, with the fixed Chinese wording.
    static void toErrorData(grpc::Status const& status, tagErrorData& errorData);
    // The server's own error block, copied as it stands.
    static void grpc2ErrorData(common::ErrorData const& error, tagErrorData& errorData);

    static void baseInfo2Grpc(const tagBaseInfo& info, client::ClientBaseInfo& message);
    static void baseInfo2Grpc(const tagBaseInfo& info, gateway::ClientBaseInfo& message);
    static void extendInfo2Grpc(const tagExtendInfo& info, client::ClientExtendInfo& message);
    static void extendInfo2Grpc(const tagExtendInfo& info, gateway::ClientExtendInfo& message);
};
