// Runs a fuzz target over inputs kept in files, as an ordinary test under any compiler. Exit status 0: all went
// through.
// SPDX-License-Identifier: Apache-2.0
#include "fuzz_input.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

int main(int argc, char** argv)
{
    std::vector<std::filesystem::path> files;
    for (int index = 1; index < argc; ++index) {
        if (!std::filesystem::is_directory(argv[index])) {
            std::fprintf(stderr, "replay: no folder %s\n", argv[index]);
            return 2;
        }
        for (const auto& entry : std::filesystem::directory_iterator(argv[index]))
            files.push_back(entry.path());
    }
    if (files.empty()) {
        std::fprintf(stderr, "usage: %s FOLDER...\nreplays every file in the folders; there are none\n", argv[0]);
        return 2;
    }
    std::sort(files.begin(), files.end());
    for (const std::filesystem::path& path : files) {
        std::ifstream file(path, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        if (!file) {
            std::fprintf(stderr, "replay: cannot read %s\n", path.c_str());
            return 2;
        }
        // Flushed and named beforehand: a crash then tells which input it was.
        std::printf("%s: %zu bytes\n", path.filename().c_str(), bytes.size());
        std::fflush(stdout);
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("replayed %zu inputs\n", files.size());
}
