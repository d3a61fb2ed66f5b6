// Shared parts of the conversion fuzzers: the table of one family's replies, the run of one input
// through it, and the seed inputs that each fuzzer provides for its corpus.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <google/protobuf/message.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace vdifuzz {

// One file of a seed corpus: its name in the corpus folder and its bytes.
struct Seed {
    std::string name;
    std::string bytes;
};

// The seed corpus of this fuzzer; each fuzzer defines it (replaymain.cpp writes it out).
std::vector<Seed> seeds();

// A property of a conversion that does not hold: prints what and aborts, so that the fuzzer
// records the input.
[[noreturn]] void fail(const char* what);
inline void check(bool condition, const char* what)
{
    if (!condition)
        fail(what);
}

// One reply message of a family: how to make an empty one, the inbound conversions it goes
// through, and believable answers in protobuf text format for the seed corpus.
struct Reply {
    const char* name;
    std::function<std::unique_ptr<google::protobuf::Message>()> make;
    std::function<void(const google::protobuf::Message&)> convert;
    std::vector<const char*> seedTexts;
};

// An entry with a conversion step of its own.
template <class Message>
Reply replyWith(const char* name, std::function<void(const Message&)> convert, std::vector<const char*> seedTexts)
{
    return Reply{name, [] { return std::unique_ptr<google::protobuf::Message>(new Message); },
                 [convert](const google::protobuf::Message& message) {
                     convert(static_cast<const Message&>(message));
                 },
                 std::move(seedTexts)};
}

template <class T>
struct NotDeduced {
    using Type = T;
};

// The usual entry: one conversion into a fresh record, then what must hold of the two, if
// anything.

template <class Message, class Record>
Reply reply(const char* name, void (*convert)(const Message&, Record&), std::vector<const char*> seedTexts,
            typename NotDeduced<std::function<void(const Message&, const Record&)>>::Type property = nullptr)
{
    return replyWith<Message>(
        name,
        [convert, property](const Message& message) {
            Record record;
            convert(message, record);
            if (property)
                property(message, record);
        },
        std::move(seedTexts));
}

// The server's error block and a transport status made from it, through both error mappings;
// every family's table ends with it (VDI_FUZZ_REPLY_TARGET). The status code is brought into 0..16 first.
Reply errorReply();

// The first byte picks the reply (modulo the table's size), the rest is its wire form; what
// does not parse is skipped.
int runReply(const std::vector<Reply>& replies, const uint8_t* data, size_t size);

// The seeds of a table: for each text of each reply, the selector byte and the serialized
// message; and for each reply an empty message.
std::vector<Seed> replySeeds(const std::vector<Reply>& replies);

} // namespace vdifuzz

// The entry points of a fuzzer of one family's replies: `entries()` gives the family's table,
// to which the error block is added at the end.
#define VDI_FUZZ_REPLY_TARGET(entries)                                       \
    static const std::vector<vdifuzz::Reply>& vdiFuzzTable()                 \
    {                                                                        \
        static const std::vector<vdifuzz::Reply> table = [] {                \
            std::vector<vdifuzz::Reply> all = entries();                     \
            all.push_back(vdifuzz::errorReply());                            \
            return all;                                                      \
        }();                                                                 \
        return table;                                                        \
    }                                                                        \
    std::vector<vdifuzz::Seed> vdifuzz::seeds()                              \
    {                                                                        \
        return replySeeds(vdiFuzzTable());                                   \
    }                                                                        \
    extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) \
    {                                                                        \
        return vdifuzz::runReply(vdiFuzzTable(), data, size);                \
    }

// A believable desktop and pool in text form, for the seeds of the families whose replies carry them.
#define VDI_FUZZ_VM                                                                                       \
    "vm_id: 1001 vm_name: \"office-001\" vm_status: \"running\" vm_is_used: \"1\" ip_list: \"10.10.1.11\" " \
    "os_type: 0 os_version: \"Windows 10 Enterprise\" is_port_enable: 1 vmUuid: \"5f0c2d4e-office-001\" "    \
    "domain_name: \"vdi.local\" address_list { mac: \"52:54:00:0a:01:0b\" ip_list: \"10.10.1.11\" } "       \
    "extend_op { shudown: 1 reboot: 1 power_off: 1 disconnection: 1 client_ctrl_alt_del: 1 snapshot: 1 } " \
    "control_policy { share_policy { clipboard: 1 printers: 1 } usb_policy { enable: 1 policy_list: "      \
    "\"0781:5567\" } watermark_policy { enable: 1 color: \"ff0000\" font_size: 14 transparent: 20 "         \
    "user_define: \"Desktop Watermark\" rotation_angle: 30 } reconnection_network_time: 60 }"

#define VDI_FUZZ_POOL                                                                                     \
    "id: 101 name: \"Office desktops\" status: 1 type: 1 vm_os_version: \"Windows 10 Enterprise\" "        \
    "vm_os_type: 0 resource_name: \"cluster-a\" pool_expire_time: 0 extend_op { shudown: 1 reboot: 1 } "   \
    "vm_list { vm_id: 1001 vm_name: \"office-001\" vm_status: \"running\" vmUuid: \"5f0c2d4e-office-001\" " \
    "os_version: \"Windows 10 Enterprise\" vm_expire_time: 4294967293 address_list { mac: "                \
    "\"52:54:00:0a:01:0b\" ip_list: \"10.10.1.11\" } snapshot_list { name: \"before-update\" "              \
    "description: \"Taken before the monthly update\" } }"
