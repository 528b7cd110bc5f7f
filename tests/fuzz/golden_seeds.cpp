// Turns the golden messages into inputs that fuzzing starts from: their bytes, with the zeros before them that a target
// takes for "nothing special".
// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace {
/// The bytes of a golden file; see tests/golden/README.md.
std::string bytesOf(const std::filesystem::path& path)
{
    std::ifstream file(path);
    std::string bytes;
    std::string line;
    bool inside = false;
    while (std::getline(file, line)) {
        line = line.substr(0, line.find('#'));
        if (line.find('[') != std::string::npos) {
            inside = line.find("[bytes]") != std::string::npos;
            continue;
        }
        std::istringstream words(line);
        std::string word;
        while (inside && words >> word)
            bytes += static_cast<char>(std::stoi(word, nullptr, 16));
    }
    return bytes;
}
} // namespace

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
        const std::string bytes = bytesOf(entry.path());
        std::ofstream seed(std::filesystem::path(argv[3]) / entry.path().stem(), std::ios::binary);
        if (bytes.empty() || !(seed << before << bytes)) {
            std::fprintf(stderr, "no seed from %s\n", entry.path().c_str());
            return 1;
        }
        ++count;
    }
    return count > 0 ? 0 : 1;
}
