// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fake_platform.h"
#include "host/images/smbios_image.h"
#include "orva_vpdd.h"

namespace vpdd::test {

inline constexpr uint8_t memory_device = 17;

inline constexpr int plain_error = 3;  // a bare level, without facility
inline constexpr int info = 14;

/// "pid=%d, %s() - ERROR:" and the text.
inline LogLine error_line(int priority, std::string_view function, std::string_view text) {
    const std::string line = std::string(function) + "() - ERROR:" + std::string(text);
    return {priority, pid_line("%s", line.c_str())};
}

/// As the look-ups log while they are being debugged.
inline LogLine debug_line(std::string_view function, std::string_view text) { return error_line(info, function, text); }

/// One entry over a structure of exactly its own size, so that a byte read behind it is an error to the sanitizer.
class LoneEntry {
public:
    explicit LoneEntry(const Bytes& bytes) : bytes_(std::make_unique<uint8_t[]>(bytes.size())) {
        std::copy(bytes.begin(), bytes.end(), bytes_.get());
        entry.raw = bytes_.get();
    }

    SmbiosEntry entry{};

private:
    std::unique_ptr<uint8_t[]> bytes_;
};

/// The look-ups with their debug messages off, as they are at the start, and tables to look into.
class SmbiosTest : public PlatformTest {
protected:
    ~SmbiosTest() override { vpdd_smbios_debug = 0; }

    static void debug() { vpdd_smbios_debug = 1; }

    SmbiosTable* table_of(const std::vector<images::MemoryDeviceImage>& devices) {
        images::SmbiosImage image;
        for (const auto& device : devices) image.memory_device(device);
        return table_of(image);
    }

    SmbiosTable* table_of(const images::SmbiosImage& image) {
        table_ = images::parse_smbios_table(image.table());
        return table_->get();
    }

    SmbiosTypeGroup* group_of(const std::vector<images::MemoryDeviceImage>& devices) {
        return vpdd_get_the_smbios_info(table_of(devices), memory_device);
    }

    /// The n-th entry of a group, from 0.
    static SmbiosEntry* entry(SmbiosTypeGroup* group, int number) {
        SmbiosEntry* found = group->entries;
        for (; number > 0; --number) found = found->next;
        return found;
    }

private:
    std::unique_ptr<images::ParsedSmbiosTable> table_;
};

}  // namespace vpdd::test
