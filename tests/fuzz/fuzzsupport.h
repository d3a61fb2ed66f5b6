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
