// SPDX-License-Identifier: Apache-2.0
// The changes since the daemon's start, as far back as they are kept, for clients that follow them.
#pragma once

#include <deque>

#include "daemon/inventory.h"

namespace vpdd::daemon {

class ChangeFeed {
public:
    ChangeFeed();

    /// Numbers them.
    void add(const Changes& changes);
    uint64_t newest() const { return newest_; }
    /// VpddChanges and the entries after a sequence number that fit into `room` bytes, the oldest of them first.
    std::vector<uint8_t> reply(uint64_t after, std::size_t room) const;

private:
    uint64_t daemon_ = 0;
    uint64_t newest_ = 0;
    std::deque<VpddChangeEntry> kept_;
};

}  // namespace vpdd::daemon
