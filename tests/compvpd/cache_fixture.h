// SPDX-License-Identifier: Apache-2.0
// What the tests of the component cache share: a repository, the FRUs behind it, and the records that come of them.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "fake_platform.h"
#include "host/images/fru_image.h"
#include "host/images/sdr_record.h"

namespace vpdd::test {

inline constexpr int emergency = 8, error = 11, warning = 12, info = 14;

inline constexpr uint8_t processor = 0x03, power_supply = 0x0A, drive_backplane = 0x0F, memory_device = 0x20;
inline constexpr uint8_t dimm = 1;  // device type modifier

inline constexpr uint8_t netfn_storage = 0x0A, area_info = 0x10, read_data = 0x11;

/// The requests that read a FRU of this size: its size, then chunks of 128 bytes.
inline std::vector<IpmiCall> requests_for(uint8_t fru_id, std::size_t size) {
    std::vector<IpmiCall> calls{{netfn_storage, area_info, {fru_id}}};
    std::size_t offset = 0;
    do {
        const std::size_t count = std::min<std::size_t>(size - offset, 128);
        calls.push_back(
            {netfn_storage,
             read_data,
             {fru_id, static_cast<uint8_t>(offset), static_cast<uint8_t>(offset >> 8), static_cast<uint8_t>(count)}});
        offset += count;
    } while (offset < size);
    return calls;
}

/// Matches the Read FRU Data request of one chunk.
inline auto reads(uint8_t fru_id, std::size_t offset) {
    return [=](const IpmiCall& call) {
        return call.is(netfn_storage, read_data) && call.data.at(0) == fru_id &&
               (call.data.at(1) | static_cast<std::size_t>(call.data.at(2)) << 8) == offset;
    };
}

inline Bytes bytes_of_record(const ComponentVpdRecord& record) {
    Bytes bytes(sizeof record);
    std::memcpy(bytes.data(), &record, sizeof record);
    return bytes;
}

/// Whether all 1512 bytes are equal. The failure message names the first bytes that are not.
inline testing::AssertionResult is_same_record(const ComponentVpdRecord& actual, const ComponentVpdRecord& expected) {
    const Bytes is = bytes_of_record(actual), should = bytes_of_record(expected);
    std::string differences;
    int count = 0;
    for (std::size_t i = 0; i < is.size(); ++i) {
        if (is[i] == should[i] || ++count > 16) continue;
        differences += formatted("\n  byte %zu is %02X, should be %02X", i, is[i], should[i]);
    }
    if (count == 0) return testing::AssertionSuccess();
    return testing::AssertionFailure() << count << " bytes differ" << differences;
}

inline bool is_free(pthread_mutex_t& mutex) {
    if (pthread_mutex_trylock(&mutex) != 0) return false;
    pthread_mutex_unlock(&mutex);
    return true;
}

/// Whether nothing is left locked.
inline bool all_locks_are_free() {
    return is_free(compvpd_access_mutex) && is_free(g_list_access_mutex) && is_free(compvpd_readonly_mutex) &&
           is_free(compvpd_kiva_readonly_mutex) && is_free(g_fru_changed_flag_mutex);
}

class ComponentCacheTest : public PlatformTest {
protected:
    /// Records of the repository, in order. One without any cannot be read at all: a sensor stands for none.
    void repository(std::vector<Bytes> records) {
        if (records.empty()) records.push_back(images::full_sensor_record(1, "Ambient"));
        platform.sdr(images::numbered(std::move(records)));
    }

    void create() { ASSERT_EQ(CreateComponentVPDCache(), 0); }
    void create(std::vector<Bytes> records) {
        repository(std::move(records));
        create();
    }

    /// All records in list order. The first copy's next_fru_id is the bulk copy's mark.
    static std::vector<ComponentVpdRecord> records() {
        std::vector<ComponentVpdRecord> copies(2048);
        uint32_t length = 0;
        const auto size = static_cast<uint32_t>(copies.size() * sizeof copies[0]);
        if (GetComponentVPD_KIVA(&length, size, nullptr, copies.data()) != 0) length = 0;
        copies.resize(length / sizeof copies[0]);
        return copies;
    }

    /// The cached record itself.
    static ComponentVpdRecord* cached(uint8_t fru_id) {
        const CaptureStdout silence;
        ComponentVpdRecord* record = nullptr;
        FindFRURecord(fru_id, &record);
        return record;
    }

    /// Requests for one FRU.
    std::vector<IpmiCall> requests_of(uint8_t fru_id) const {
        std::vector<IpmiCall> calls = platform.requests();
        std::erase_if(calls, [&](const IpmiCall& call) {
            return call.netfn != netfn_storage || call.data.empty() || call.data[0] != fru_id;
        });
        return calls;
    }
};

}  // namespace vpdd::test
