// SPDX-License-Identifier: Apache-2.0
#include "base/host_macs.h"

#include <array>
#include <cstring>

#include "base/log_line.h"

using namespace vpdd;

char host_mac_cache[8][26];
uint8_t isHostMacCache;

namespace {

constexpr uint32_t first_mac_field = 19;
constexpr uint32_t mac_field_size = 8;  // the first six bytes are the address

}  // namespace

extern "C" void updateSysvpdMacAddressCache() {
    uint32_t number = 0;
    for (auto& slot : host_mac_cache) {
        const uint32_t id = first_mac_field + number++;
        std::memset(slot, 0, sizeof slot);
        std::array<uint8_t, mac_field_size> mac{};
        if (sysvpd_read_field(id, mac_field_size, mac.data()) == 0) {
            trace_line(TraceLevel::failure, __func__, "READ MAC %d FAIL", static_cast<int>(number));
            continue;
        }
        assign_mac(slot, mac.data());
    }
    remember_host_macs();  // also when none could be read
}
