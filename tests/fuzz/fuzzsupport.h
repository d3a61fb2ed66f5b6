// What the fuzzers share: the seeds that each one provides for its corpus (replaymain.cpp writes
// them out), and the check of a property that must hold.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace vdifuzz {

// One file of a seed corpus: its name in the corpus folder and its bytes.
struct Seed {
    std::string name;
    std::string bytes;
};

// The seed corpus of this fuzzer; each fuzzer defines it.
std::vector<Seed> seeds();

// A property that does not hold: says which and aborts, so that the fuzzer records the input.
inline void check(bool condition, const char* what)
{
    if (condition)
        return;
    std::fprintf(stderr, "conversion property violated: %s\n", what);
    std::abort();
}

} // namespace vdifuzz
