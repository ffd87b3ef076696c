// SPDX-License-Identifier: Apache-2.0
// What a request text asks for, and who may ask.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "daemon/vpdd_protocol.h"

namespace vpdd::daemon {

enum class Subject {
    none,
    status,
    components,
    component,
    machine,
    oem_machine,
    log,
    firmware,
    changes,
    refresh,
    clean_log
};

struct Request {
    Subject subject = Subject::none;
    uint32_t fru_id = 0;     ///< component
    uint64_t sequence = 0;   ///< changes: after this one
    uint32_t wait = 0;       ///< changes: seconds
    std::string image_name;  ///< firmware
};

/// @param text without its line feed
/// @return VPDD_REPLY_OK, VPDD_REPLY_UNKNOWN or VPDD_REPLY_MALFORMED
VpddReply parse_request(std::string_view text, Request& request);

/// Whether the request changes anything.
bool is_privileged(Subject subject);

/// Root and the user that the daemon runs as.
bool may_change(const ucred& peer);

}  // namespace vpdd::daemon
