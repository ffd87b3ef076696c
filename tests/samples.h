// SPDX-License-Identifier: Apache-2.0
// Sample images with what independent tools say about them. They stand beside the source tree; the environment variable
// VPDD_SAMPLES names another place. Tests skip where there are none.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace vpdd::test {

inline std::filesystem::path sample_folder() {
    const char* folder = std::getenv("VPDD_SAMPLES");
    return folder != nullptr ? folder : VPDD_SAMPLE_FOLDER;
}

/// The images of a folder in the order of their names; empty when there is no such folder.
inline std::vector<std::filesystem::path> sample_images(const std::filesystem::path& folder) {
    std::vector<std::filesystem::path> images;
    std::error_code missing;
    for (const auto& entry : std::filesystem::directory_iterator(sample_folder() / folder, missing)) {
        if (entry.path().extension() == ".bin") images.push_back(entry.path());
    }
    std::sort(images.begin(), images.end());
    return images;
}

inline std::vector<uint8_t> file_bytes(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline std::string file_text(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace vpdd::test
