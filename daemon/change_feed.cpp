// SPDX-License-Identifier: Apache-2.0
#include "daemon/change_feed.h"

#include <algorithm>
#include <cstring>
#include <random>

namespace vpdd::daemon {

ChangeFeed::ChangeFeed() {
    std::random_device random;
    daemon_ = static_cast<uint64_t>(random()) << 32U | random();
}

void ChangeFeed::add(const Changes& changes) {
    for (VpddChangeEntry entry : changes) {
        entry.sequence = ++newest_;
        kept_.push_back(entry);
        if (kept_.size() > VPDD_KEPT_CHANGES) kept_.pop_front();
    }
}

std::vector<uint8_t> ChangeFeed::reply(uint64_t after, std::size_t room) const {
    const auto is_wanted = [after](const VpddChangeEntry& entry) { return entry.sequence > after; };
    const auto first = std::find_if(kept_.begin(), kept_.end(), is_wanted);
    const auto wanted = static_cast<std::size_t>(kept_.end() - first);
    const std::size_t count = std::min(wanted, (room - sizeof(VpddChanges)) / sizeof(VpddChangeEntry));

    VpddChanges header{};
    header.daemon = daemon_;
    header.newest = newest_;
    header.count = static_cast<uint32_t>(count);
    header.is_gap = newest_ > after && (kept_.empty() || kept_.front().sequence > after + 1) ? 1 : 0;

    std::vector<uint8_t> bytes(sizeof header + count * sizeof(VpddChangeEntry));
    std::memcpy(bytes.data(), &header, sizeof header);
    std::size_t position = sizeof header;
    std::for_each_n(first, count, [&](const VpddChangeEntry& entry) {
        std::memcpy(bytes.data() + position, &entry, sizeof entry);
        position += sizeof entry;
    });
    return bytes;
}

}  // namespace vpdd::daemon
