#pragma once

// What the answers of the simulated deployment are made of, shared by its families
// (deployment_*.cpp): scripts from replies and statuses, requests read from a call, the
// error field of a reply, who may use what, records kept for the tests. Internal to the fake
// server.

#include "deployment.h"

#include "fakeserver.h"
#include "deployment.pb.h"

#include "client/client_core.pb.h"
#include "common/error_data.pb.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace vdifake {
namespace detail {

// A desktop's states.
const char* const kRunning = "running";
const char* const kShutdown = "shutdown";
const char* const kSuspended = "suspended";

// FNV-1a: a hash that stays the same from run to run, so a user always gets the same desktops.
inline uint32_t stableHash(const std::string& text)
{
    uint32_t h = 2166136261u;
    for (unsigned char c : text) {
        h ^= c;
        h *= 16777619u;
    }
    return h;
}

inline std::string hex(uint64_t value, int digits)
{
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%0*llx", digits, static_cast<unsigned long long>(value));
    return buffer;
}

inline Script replyScript(const google::protobuf::Message& reply, const Script& base)
{
    Script s;
    s.delayMs = base.delayMs;  // the method's delay, if the scenario set one
    reply.SerializeToString(&s.replyBytes);
    return s;
}

inline Script statusScript(grpc::StatusCode code, const std::string& message, const Script& base)
{
    Script s;
    s.code = code;
    s.message = message;
    s.delayMs = base.delayMs;
    return s;
}

inline bool answerWith(const google::protobuf::Message& reply, Script* answer)
{
    *answer = replyScript(reply, *answer);
    return true;
}

// Reads the call's one request; when there is not one that parses, answers INVALID_ARGUMENT
// "the <what> request does not parse" and returns false.
template <class M>
bool parseRequest(const RecordedCall& call, M* request, const char* what, Script* answer)
{
    if (call.requests.size() == 1 && request->ParseFromString(call.requests.front()))
        return true;
    *answer = statusScript(grpc::StatusCode::INVALID_ARGUMENT, std::string("the ") + what + " request does not parse",
                           *answer);
    return false;
}

inline void setError(common::ErrorData* error, int code, const char* zh, const char* en)
{
    error->set_error_code(code);
    error->set_error_msg_zh(zh);
    error->set_error_msg_en(en);
}

inline void setWrongCredentials(common::ErrorData* error)
{
    setError(error, SimulatedDeployment::WrongCredentials, "用户名或密码错误", "wrong user name or password");
}

inline void setNoSuchDesktop(common::ErrorData* error)
{
    setError(error, SimulatedDeployment::NoSuchDesktop, "虚拟机不存在", "no such desktop");
}

// Who is asking: the user name, or the device of a device login.
inline std::string callerOf(const client::ClientBaseInfo& base)
{
    return base.name().empty() ? base.device_id() : base.name();
}

inline bool passwordMatches(const std::map<std::string, std::string>& users, const std::string& name,
                            const std::string& password)
{
    auto it = users.find(name);
    return it != users.end() && it->second == password;
}

// Whether a list of permitted users lets `user` in: an empty list lets everyone in.
inline bool permitted(const google::protobuf::RepeatedPtrField<std::string>& users, const std::string& user)
{
    return users.empty() || std::find(users.begin(), users.end(), user) != users.end();
}

// The control policy of a desktop or of a remote application. One that keeps data in allows
// no drives and read-only USB storage only, and shows the watermark.
inline void fillControlPolicy(client::ControlPolicy* policy, bool keepDataIn, const std::string& watermarkText,
                              int watermarkFontSize)
{
    client::SharePolicy* share = policy->mutable_share_policy();
    share->set_drivers(keepDataIn ? 0 : 1);
    share->set_clipboard(1);
    share->set_rdp_clipboard(1);
    share->set_vdp_clipboard(1);
    share->set_printers(1);
    client::USBPolicy* usb = policy->mutable_usb_policy();
    usb->set_enable(1);
    usb->set_usbredirectstorage(1);
    usb->set_store_readonly(keepDataIn ? 1 : 0);
    usb->set_usbredirectprinter(1);
    client::WatermarkPolicy* watermark = policy->mutable_watermark_policy();
    watermark->set_enable(keepDataIn ? 1 : 0);
    watermark->set_show_user_name(1);
    watermark->set_show_time(1);
    watermark->set_color("808080");
    watermark->set_font_size(watermarkFontSize);
    watermark->set_transparent(20);
    watermark->set_user_define(watermarkText);
    watermark->set_rotation_angle(30);
    watermark->set_show_position(1);
    policy->mutable_video_policy()->set_spicetls(1);
    policy->set_reconnection_network_time(60);
}

// Adds a record under its lock, then tells the observer, if any, outside that lock, so that a
// reader copying the list never waits for a log line to be written.
template <class Record>
void keepRecord(std::mutex& mutex, std::vector<Record>& records,
                const std::function<void(const Record&)>& observer, const Record& record)
{
    {
        std::lock_guard<std::mutex> lock(mutex);
        records.push_back(record);
    }
    if (observer)
        observer(record);
}

} // namespace detail
} // namespace vdifake
