// SPDX-License-Identifier: Apache-2.0
// The BMC's SDR repository (IPMI 2.0 section 33), read in parts under a reservation.
#pragma once

#include <mutex>

#include "host/ipmi/exchange.h"

namespace vpdd::host::ipmi {

struct SdrRecord {
    uint16_t next_id = 0;
    Bytes bytes{};  ///< header and body
};

/// When records were last added and erased.
struct SdrTimes {
    Bytes timestamps{};
    friend bool operator==(const SdrTimes&, const SdrTimes&) = default;
};

inline constexpr uint16_t first_sdr_record = 0, no_sdr_record = 0xFFFF;

/// Its functions may be called on any thread.
class SdrRepository {
public:
    explicit SdrRepository(Exchange exchange) : exchange_(std::move(exchange)) {}

    /// None when it cannot be read, or not whole.
    std::optional<SdrRecord> read(uint16_t id);
    /// None when the BMC does not say.
    std::optional<SdrTimes> times() const;

private:
    bool reserve();
    std::optional<Answer> read_part(uint16_t id, std::size_t offset, std::size_t count);
    std::optional<SdrRecord> read_whole(uint16_t id, bool& is_cancelled);

    Exchange exchange_;
    std::mutex mutex_;
    std::optional<uint16_t> reservation_;
    std::size_t part_size_ = 64;  ///< bytes at once, less where the BMC hands out less
};

}  // namespace vpdd::host::ipmi
