// SPDX-License-Identifier: Apache-2.0
#include "host/ipmi/sdr_repository.h"

#include <algorithm>

namespace vpdd::host::ipmi {

namespace {

// Commands of IPMI 2.0 section 33.
constexpr uint8_t get_repository_info = 0x20, reserve_repository = 0x22, get_sdr = 0x23;

constexpr std::size_t header_size = 5;    // bytes of a record, IPMI 2.0 section 43
constexpr std::size_t length_offset = 4;  // of the length of what follows the header
constexpr std::size_t next_id_size = 2;   // in front of an answer's bytes
constexpr std::size_t smallest_part = 8;  // bytes; a BMC that refuses them hands out nothing

// A BMC whose repository changes all the time cannot be read; the attempts bound the wait.
constexpr int attempts = 8;

Command storage_command(uint8_t cmd, Bytes data) { return {bmc_address, netfn_storage, 0, cmd, std::move(data)}; }

uint16_t word_at(const Bytes& bytes, std::size_t offset) {
    return static_cast<uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
}

uint8_t low(uint16_t word) { return static_cast<uint8_t>(word); }
uint8_t high(uint16_t word) { return static_cast<uint8_t>(word >> 8); }

}  // namespace

std::optional<SdrRecord> SdrRepository::read(uint16_t id) {
    const std::scoped_lock lock(mutex_);
    for (int attempt = 0; attempt < attempts; ++attempt) {
        if (!reservation_ && !reserve()) return {};
        bool is_cancelled = false;
        auto record = read_whole(id, is_cancelled);
        if (!is_cancelled) return record;
        reservation_.reset();
    }
    return {};
}

std::optional<SdrTimes> SdrRepository::times() const {
    constexpr std::size_t timestamps = 5, end_of_timestamps = 13;  // IPMI 2.0 section 33.9
    const auto answer = exchange_(storage_command(get_repository_info, {}));
    if (!answer || answer->completion_code != completed || answer->data.size() < end_of_timestamps) return {};
    return SdrTimes{Bytes(answer->data.begin() + timestamps, answer->data.begin() + end_of_timestamps)};
}

bool SdrRepository::reserve() {
    const auto answer = exchange_(storage_command(reserve_repository, {}));
    if (!answer) return false;
    // A BMC without reservations takes the number 0.
    const bool is_reserved = answer->completion_code == completed && answer->data.size() >= 2;
    reservation_ = is_reserved ? word_at(answer->data, 0) : uint16_t{0};
    return true;
}

/// Asks for less until the BMC agrees.
std::optional<Answer> SdrRepository::read_part(uint16_t id, std::size_t offset, std::size_t count) {
    for (;;) {
        const std::size_t wanted = std::min(count, part_size_);
        auto answer = exchange_(storage_command(get_sdr, {low(*reservation_), high(*reservation_), low(id), high(id),
                                                          static_cast<uint8_t>(offset), static_cast<uint8_t>(wanted)}));
        if (!answer || !asks_for_too_much(*answer) || wanted <= smallest_part) return answer;
        part_size_ = std::max(smallest_part, wanted / 2);
    }
}

std::optional<SdrRecord> SdrRepository::read_whole(uint16_t id, bool& is_cancelled) {
    SdrRecord record;
    std::size_t size = header_size;
    while (record.bytes.size() < size) {
        const std::size_t offset = record.bytes.size();
        // The offset is one byte; a body may be longer than that.
        if (offset > 0xFF) break;
        const auto part = read_part(id, offset, size - offset);
        is_cancelled = part && part->completion_code == reservation_cancelled;
        if (!part || part->completion_code != completed || part->data.size() <= next_id_size) return {};
        record.next_id = word_at(part->data, 0);
        const std::size_t taken = std::min(part->data.size() - next_id_size, size - offset);
        const auto bytes = part->data.begin() + next_id_size;
        record.bytes.insert(record.bytes.end(), bytes, bytes + static_cast<std::ptrdiff_t>(taken));
        if (record.bytes.size() >= header_size) size = header_size + record.bytes[length_offset];
    }
    return record;
}

}  // namespace vpdd::host::ipmi
