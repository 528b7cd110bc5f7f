// Reads the bytes of a golden message; see tests/golden/README.md.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

/// Empty if @p path is no golden message.
inline std::string goldenBytes(const std::filesystem::path& path)
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
        while (inside && words >> word) {
            bytes += static_cast<char>(std::stoi(word, nullptr, 16));
        }
    }
    return bytes;
}
