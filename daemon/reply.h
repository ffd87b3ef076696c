// SPDX-License-Identifier: Apache-2.0
// An answer as it goes to a client: steps 3 to 6 of the protocol.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "daemon/vpdd_protocol.h"

namespace vpdd::daemon {

struct Reply {
    VpddReply word = VPDD_REPLY_OK;
    uint32_t pass = 0;  ///< the second word: which inventory it comes from
    std::span<const uint8_t> bytes;
    std::shared_ptr<const void> owner;  ///< of the bytes, so that all clients of an inventory share them
};

inline Reply refusal(VpddReply word) { return {word, 0, {}, nullptr}; }

inline Reply reply_with(std::vector<uint8_t> bytes, uint64_t pass) {
    auto owned = std::make_shared<const std::vector<uint8_t>>(std::move(bytes));
    return {VPDD_REPLY_OK, static_cast<uint32_t>(pass), {owned->data(), owned->size()}, owned};
}

}  // namespace vpdd::daemon
