// SPDX-License-Identifier: Apache-2.0
// The management controller's properties, as its OEM commands answer for them.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "failing_allocator.h"
#include "fake_platform.h"
#include "host/images/property_tlv.h"
#include "lock_journal.h"

namespace vpdd::test {

inline constexpr int warning = 12;
inline constexpr int informational = 14;

inline constexpr uint8_t netfn_single = 0x2E, cmd_single = 0x32;
inline constexpr uint8_t netfn_paged = 0x3A, cmd_paged = 0xC4;

struct Freed {
    void operator()(void* block) const { std::free(block); }
};

inline Bytes operator+(Bytes first, const Bytes& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

inline Bytes string_tlv(std::string_view text) { return images::property_tlv(text); }
inline Bytes bytes_tlv(const Bytes& bytes) { return images::property_tlv(bytes); }
/// Not among the images: the controller has no property of this type, an answer may.
inline Bytes words_tlv(const Bytes& little_endian) {
    return Bytes{static_cast<uint8_t>(0x20 | little_endian.size())} + little_endian;
}

/// Answer to a single query; the IANA number is none that anybody has.
inline IpmiReply single_answer(uint8_t status, uint8_t length_high, uint8_t length_low, const Bytes& value) {
    return ipmi_data(Bytes{0xA1, 0xA2, 0xA3, status, length_high, length_low} + value);
}
inline IpmiReply value_answer(const Bytes& value) {
    return single_answer(0, 0, static_cast<uint8_t>(value.size()), value);
}

/// The path that a single query asks for.
inline std::string asked_path(const IpmiCall& call) { return {call.data.begin() + 7, call.data.end()}; }

/// One page of a transfer.
struct Page {
    uint8_t status;
    Bytes data;
    uint8_t handle = 0;

    IpmiReply reply() const {
        const std::size_t length = 1 + data.size();
        return ipmi_data(Bytes{status, static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length), handle} + data);
    }
};
inline Page more(const Bytes& data, uint8_t handle) { return {0, data, handle}; }
inline Page last(const Bytes& data) { return {9, data}; }
inline Page nothing() { return {8, {}}; }

/// Single queries answer what the test sets; a path that is not set is refused. Nothing else is there.
class ControllerTest : public PlatformTest {
protected:
    static constexpr uint8_t unknown_path = 0x81;

    ControllerTest() {
        platform.ipmi.model([this](const IpmiCall& call) {
            if (!call.is(netfn_single, cmd_single)) return ipmi_completion(0xC1);
            const auto found = values_.find(asked_path(call));
            return found == values_.end() ? single_answer(unknown_path, 0, 0, {}) : value_answer(found->second);
        });
    }

    void set(const std::string& path, const Bytes& tlv) { values_[path] = tlv; }
    void set(const std::string& path, std::string_view text) { values_[path] = string_tlv(text); }

    /// Paged transfers are answered by these, in order.
    void pages(const std::vector<Page>& pages) {
        for (const Page& page : pages) platform.ipmi.then(page.reply());
    }

    /// The paths of the single queries so far, retries of a failed one included.
    std::vector<std::string> asked_paths() const {
        std::vector<std::string> paths;
        for (const IpmiCall& call : platform.requests()) {
            if (call.is(netfn_single, cmd_single)) paths.push_back(asked_path(call));
        }
        return paths;
    }

    testing::AssertionResult warned(const char* function, const std::string& text) const {
        return platform.logged(warning, pid_line("%s - %s", function, text.c_str()));
    }
    std::size_t times_warned(const char* function, const std::string& text) const {
        return platform.times_logged(warning, pid_line("%s - %s", function, text.c_str()));
    }

private:
    std::map<std::string, Bytes> values_;
};

}  // namespace vpdd::test
