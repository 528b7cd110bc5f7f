// Turns the golden messages into inputs that fuzzing starts from: their bytes, with the zeros before them that a target
// takes for "nothing special".
// SPDX-License-Identifier: Apache-2.0
#include "golden_bytes.h"

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s GOLDEN-FOLDER ZEROS OUTPUT-FOLDER\n", argv[0]);
        return 2;
    }
    const std::string before(static_cast<std::size_t>(std::atoi(argv[2])), '\0');
    std::filesystem::create_directories(argv[3]);
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        if (entry.path().extension() != ".golden")
            continue;
        const std::string bytes = goldenBytes(entry.path());
        std::ofstream seed(std::filesystem::path(argv[3]) / entry.path().stem(), std::ios::binary);
        if (bytes.empty() || !(seed << before << bytes)) {
            std::fprintf(stderr, "no seed from %s\n", entry.path().c_str());
            return 1;
        }
        ++count;
    }
    return count > 0 ? 0 : 1;
}
