// SPDX-License-Identifier: Apache-2.0
#include "sample_reports.h"

#include <algorithm>
#include <cctype>
#include <sstream>

#include "samples.h"
#include "vpdctl_process.h"

namespace vpdd::test {

namespace fs = std::filesystem;

std::string text_beside(const fs::path& image, const std::string& suffix) {
    return file_text(image.parent_path() / (image.stem().string() + suffix));
}

std::map<std::string, std::vector<std::string>> index_of(const std::string& folder) {
    std::map<std::string, std::vector<std::string>> index;
    for (const std::string& line : lines_of(file_text(sample_folder() / folder / "index.tsv"))) {
        std::vector<std::string> row;
        std::istringstream cells(line);
        for (std::string cell; std::getline(cells, cell, '\t');) row.push_back(cell);
        if (!row.empty()) index[row.front()] = row;
    }
    return index;
}

std::string test_name(const fs::path& image) {
    std::string name = image.stem();
    std::replace_if(
        name.begin(), name.end(), [](unsigned char character) { return std::isalnum(character) == 0; }, '_');
    return name;
}

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

}  // namespace vpdd::test
