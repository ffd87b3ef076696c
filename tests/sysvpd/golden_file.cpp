// SPDX-License-Identifier: Apache-2.0
#include "golden_file.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace vpdd::test {

namespace {

/// "4A" or "00*12".
void append_token(Bytes& bytes, const std::string& token) {
    const std::size_t star = token.find('*');
    const std::size_t count = star == std::string::npos ? 1 : std::stoul(token.substr(star + 1));
    bytes.insert(bytes.end(), count, static_cast<uint8_t>(std::stoul(token.substr(0, star), nullptr, 16)));
}

}  // namespace

Bytes golden_bytes(const std::string& name) {
    std::ifstream file(std::string(GOLDEN_FILES) + "/" + name);
    EXPECT_TRUE(file) << name;
    Bytes bytes;
    std::string line;
    while (std::getline(file, line)) {
        if (line.empty() || line.front() == '#') continue;
        std::istringstream tokens(line);
        std::string offset;
        tokens >> offset;
        EXPECT_EQ(std::stoul(offset), bytes.size()) << name << ": " << line;
        for (std::string token; tokens >> token;) append_token(bytes, token);
    }
    return bytes;
}

testing::AssertionResult same_bytes(const Bytes& actual, const Bytes& expected) {
    if (actual == expected) return testing::AssertionSuccess();
    if (actual.size() != expected.size()) {
        return testing::AssertionFailure() << actual.size() << " bytes instead of " << expected.size();
    }
    const auto first = std::mismatch(actual.begin(), actual.end(), expected.begin()).first - actual.begin();
    return testing::AssertionFailure() << "byte " << first << " is " << formatted("%02X", actual[first])
                                       << " instead of " << formatted("%02X", expected[first]);
}

}  // namespace vpdd::test
