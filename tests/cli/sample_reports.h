// SPDX-License-Identifier: Apache-2.0
// What independent tools said about the sample images.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace vpdd::test {

/// The text that a tool printed for an image: `image` without ".bin", plus `suffix`. Empty without it.
std::string text_beside(const std::filesystem::path& image, const std::string& suffix);

/// Rows of an index.tsv, by their first column.
std::map<std::string, std::vector<std::string>> index_of(const std::string& folder);

/// A name for a test.
std::string test_name(const std::filesystem::path& image);

/// Without the blanks around it.
std::string trimmed(const std::string& text);

/// What an image shows differently from the tool, on purpose.
struct Difference {
    const char* image;
    const char* property;
    const char* tool;    ///< what the tool says
    const char* vpdctl;  ///< what vpdctl shows
    const char* reason;
};

}  // namespace vpdd::test
