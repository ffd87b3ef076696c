// SPDX-License-Identifier: Apache-2.0
#include "spd/latency_list.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>

namespace vpdd::spd {

void LatencyList::append(unsigned latency) {
    char number[std::numeric_limits<unsigned>::digits10 + 2] = {','};
    const char* const end = std::to_chars(number + 1, number + sizeof number, latency).ptr;
    const char* const begin = length_ == 0 ? number + 1 : number;
    const std::size_t room = sizeof text_ - 1 - length_;
    const std::size_t length = std::min<std::size_t>(end - begin, room);
    std::memcpy(text_ + length_, begin, length);
    length_ += length;
}

char* LatencyList::duplicate() const { return strdup(text_); }

}  // namespace vpdd::spd
