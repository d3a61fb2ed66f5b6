// The main of a fuzzer built without libFuzzer: runs LLVMFuzzerTestOneInput once on every file
// named on the command line and on every file of every folder named there, so that a corpus is
// replayed as a plain test. `--write-seeds DIR` writes the fuzzer's seed corpus into DIR instead.
#include "fuzzsupport.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

int writeSeeds(const fs::path& folder)
{
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        std::fprintf(stderr, "cannot make %s: %s\n", folder.c_str(), error.message().c_str());
        return 1;
    }
    const std::vector<vdifuzz::Seed> seeds = vdifuzz::seeds();
    for (const vdifuzz::Seed& seed : seeds) {
        std::ofstream file(folder / seed.name, std::ios::binary | std::ios::trunc);
        file.write(seed.bytes.data(), static_cast<std::streamsize>(seed.bytes.size()));
        if (!file) {
            std::fprintf(stderr, "cannot write %s\n", (folder / seed.name).c_str());
            return 1;
        }
    }
    std::printf("%zu seeds written to %s\n", seeds.size(), folder.c_str());
    return 0;
}

bool replay(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        std::fprintf(stderr, "cannot read %s\n", path.c_str());
        return false;
    }
    const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    // A copy of its own, so that a read past the input's end shows under AddressSanitizer.
    std::vector<uint8_t> input(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(input.data(), input.size());
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 3 && std::strcmp(argv[1], "--write-seeds") == 0)
        return writeSeeds(argv[2]);
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s FILE|DIR...\n       %s --write-seeds DIR\n", argv[0], argv[0]);
        return 2;
    }
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        const fs::path argument(argv[i]);
        std::vector<fs::path> files;
        if (fs::is_directory(argument)) {
            for (const fs::directory_entry& entry : fs::directory_iterator(argument))
                if (entry.is_regular_file())
                    files.push_back(entry.path());
            std::sort(files.begin(), files.end());
        } else {
            files.push_back(argument);
        }
        for (const fs::path& path : files) {
            if (!replay(path))
                return 1;
            ++replayed;
        }
    }
    if (replayed == 0) {
        std::fprintf(stderr, "no input replayed\n");
        return 1;
    }
    std::printf("%d inputs replayed\n", replayed);
    return 0;
}
