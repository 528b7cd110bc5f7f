// Runs a fuzz target over inputs kept in files, as an ordinary test under any compiler. Exit status 0: all passed.
// SPDX-License-Identifier: Apache-2.0
#include "golden_bytes.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

using Target = int(const std::uint8_t* data, std::size_t size);

// CITP_FUZZ_TARGETS comes from the build: TARGET(messages) and so on.
#define TARGET(name) extern "C" Target citp_fuzz_##name;
CITP_FUZZ_TARGETS
#undef TARGET

namespace {
Target* targetCalled(const char* wanted)
{
#define TARGET(name)                       \
    if (std::strcmp(wanted, #name) == 0) { \
        return citp_fuzz_##name;           \
    }
    CITP_FUZZ_TARGETS
#undef TARGET
    return nullptr;
}

std::vector<std::filesystem::path> filesIn(const char* folder)
{
    std::vector<std::filesystem::path> files;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::string contentOf(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void replay(Target* target, const std::filesystem::path& path, const std::string& bytes)
{
    // Flushed and named beforehand: after a crash, the last line names the input.
    std::printf("%s: %zu bytes\n", path.filename().c_str(), bytes.size());
    std::fflush(stdout);
    target(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}
} // namespace

int main(int argc, char** argv)
{
    Target* const target = argc == 5 ? targetCalled(argv[1]) : nullptr;
    if (!target) {
        std::fprintf(stderr, "usage: %s TARGET CORPUS-FOLDER GOLDEN-FOLDER ZEROS\n", argv[0]);
        return 2;
    }
    int count = 0;
    for (const std::filesystem::path& path : filesIn(argv[2])) {
        replay(target, path, contentOf(path));
        ++count;
    }
    const int inputs = count;
    const std::string before(static_cast<std::size_t>(std::atoi(argv[4])), '\0');
    for (const std::filesystem::path& path : filesIn(argv[3])) {
        if (path.extension() == ".golden") {
            replay(target, path, before + goldenBytes(path));
            ++count;
        }
    }
    std::printf("replayed %d inputs and %d golden messages\n", inputs, count - inputs);
    return inputs > 0 && count > inputs ? 0 : 1;
}
