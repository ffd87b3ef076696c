// SPDX-License-Identifier: Apache-2.0
#include "host/ipmi/fru_reads.h"

#include <algorithm>
#include <span>

namespace vpdd::host::ipmi {

namespace {

// Bytes of the request, IPMI 2.0 section 34.2.
enum : std::size_t { fru_id = 0, offset_low = 1, offset_high = 2, count = 3, request_length = 4 };

constexpr uint8_t least = 8;  // bytes; no BMC refuses the unit of the FRU format

uint16_t offset_of(const Command& command) {
    return static_cast<uint16_t>(command.data[offset_low] | command.data[offset_high] << 8);
}

/// The request for `wanted` bytes behind the first `read` ones.
Command part_of(const Command& whole, std::size_t read, std::size_t wanted) {
    Command part = whole;
    const std::size_t offset = offset_of(whole) + read;
    part.data[offset_low] = static_cast<uint8_t>(offset);
    part.data[offset_high] = static_cast<uint8_t>(offset >> 8U);
    part.data[count] = static_cast<uint8_t>(wanted);
    return part;
}

/// The bytes of an answer, whose first one counts them.
std::span<const uint8_t> bytes_of(const Answer& answer, std::size_t wanted) {
    if (answer.data.empty()) return {};
    const std::size_t there = std::min<std::size_t>(answer.data[0], answer.data.size() - 1);
    return std::span(answer.data).subspan(1, std::min(there, wanted));
}

}  // namespace

bool FruReads::is_read(const Command& command) {
    constexpr uint8_t read_fru_data = 0x11;
    return command.netfn == netfn_storage && command.cmd == read_fru_data && command.data.size() == request_length;
}

std::optional<Answer> FruReads::carry_out(const Command& command) {
    const std::size_t wanted = command.data[count];
    Answer whole{completed, {0}};
    while (whole.data.size() - 1 < wanted || wanted == 0) {
        const std::size_t read = whole.data.size() - 1;
        auto part = read_part(part_of(command, read, wanted - read));
        if (!part || part->completion_code != completed) return part;
        const auto bytes = bytes_of(*part, wanted - read);
        if (bytes.empty()) break;  // the end of the FRU
        whole.data.insert(whole.data.end(), bytes.begin(), bytes.end());
    }
    whole.data[0] = static_cast<uint8_t>(whole.data.size() - 1);
    return whole;
}

/// Asks for less until the BMC agrees, and keeps in mind what it agreed to.
std::optional<Answer> FruReads::read_part(Command part) {
    const uint8_t limit = most(part.data[fru_id]);
    if (limit != 0) part.data[count] = std::min(part.data[count], limit);
    for (bool was_refused = false;; was_refused = true) {
        auto answer = exchange_(part);
        const bool is_refused = answer && asks_for_too_much(*answer);
        if (is_refused && part.data[count] > least) {
            part.data[count] = std::max(least, static_cast<uint8_t>(part.data[count] / 2));
            continue;
        }
        if (was_refused && answer && answer->completion_code == completed) {
            set_most(part.data[fru_id], part.data[count]);
        }
        return answer;
    }
}

uint8_t FruReads::most(uint8_t fru_id) {
    const std::scoped_lock lock(mutex_);
    return most_[fru_id];
}

void FruReads::set_most(uint8_t fru_id, uint8_t count) {
    const std::scoped_lock lock(mutex_);
    most_[fru_id] = count;
}

}  // namespace vpdd::host::ipmi
