// SPDX-License-Identifier: Apache-2.0
#include "spd/latency_list.h"

#include <cstdio>
#include <cstring>

namespace vpdd::spd {

void LatencyList::append(unsigned latency) {
    const std::size_t room = sizeof text_ - length_;
    const int written = std::snprintf(text_ + length_, room, "%s%u", length_ == 0 ? "" : ",", latency);
    if (written > 0) length_ += static_cast<std::size_t>(written) < room ? written : room - 1;
}

char* LatencyList::duplicate() const { return strdup(text_); }

}  // namespace vpdd::spd
