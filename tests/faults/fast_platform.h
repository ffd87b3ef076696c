// SPDX-License-Identifier: Apache-2.0
// A platform for thousands of runs: it answers from the images of a server, numbers its calls, and lets one of them
// fail. Nothing is kept of them but what they concerned.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "orva_vpdd.h"

namespace vpdd::test {

using Image = std::vector<uint8_t>;

enum class CallKind { ipmi, sdr, sensors, smbios, configuration, message, shell };

/// What a call concerned.
struct PlatformCall {
    CallKind kind;
    int fru_id = -1;  ///< of an IPMI request for a FRU
};

enum class Failure {
    refused,            ///< the stack or store says that it failed and leaves nothing
    completion_code,    ///< of IPMI
    short_answer,       ///< half of the data
    nothing_but_code,   ///< a completion code of 0 without data
    long_answer,        ///< more data than was asked for, as far as the stated room goes
    overstated_answer,  ///< the right data under a length that cannot be
    overstated_count,   ///< the right data; the count in front of it says more
};

struct PlatformFault {
    std::size_t number = 0;  ///< of the call, from 1; 0: none
    Failure failure = Failure::refused;
    uint8_t code = 0;
    bool also_retries = false;  ///< the same request, as long as it is repeated
};

class FastPlatform {
public:
    static FastPlatform& instance();

    std::array<Image, 256> frus{};  ///< an empty one is not present
    std::vector<Image> sdr{};       ///< ids 1, 2, 3 ...
    SmbiosTable* smbios = nullptr;
    Image processor_sensors{};

    /// Numbers the calls from here on.
    void begin(const PlatformFault& fault);
    std::vector<PlatformCall> calls{};  ///< since begin()

    // For the platform functions.

    /// Whether this call fails.
    bool fails(CallKind kind, int fru_id = -1, const Image& request = {});
    const PlatformFault& fault() const { return fault_; }

private:
    PlatformFault fault_;
    Image failing_request_;
};

}  // namespace vpdd::test
