// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace vpdd::spd {

/// Latencies as decimal numbers with commas between them, in the order of their arrival; 127 characters at most.
class LatencyList {
public:
    void append(unsigned latency);
    const char* c_str() const { return text_; }
    /// A copy that the caller releases with free(); null when there is no memory for it.
    char* duplicate() const;

private:
    char text_[128]{};
    std::size_t length_ = 0;
};

}  // namespace vpdd::spd
