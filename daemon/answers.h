// SPDX-License-Identifier: Apache-2.0
// Answers to requests, from what the daemon holds.
#pragma once

#include "daemon/change_feed.h"
#include "daemon/reply.h"
#include "daemon/requests.h"

namespace vpdd::daemon {

/// What the answers are made from; without an inventory only the status can be told.
struct Holdings {
    SharedInventory inventory;  ///< null until the first one is complete
    ChangeFeed feed;
    const char* platform = "";
    int64_t started = 0;  ///< seconds since the Unix epoch
    std::size_t clients = 0;
    std::size_t waiting = 0;  ///< clients whose answer is to come later
    uint64_t requests = 0;
};

/// For what is answered from the holdings: everything but firmware.
/// @param room bytes that the client has
Reply answer(const Holdings& holdings, const Request& request, std::size_t room);

}  // namespace vpdd::daemon
