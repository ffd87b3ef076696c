// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cstring>

#include "base/byte_view.h"
#include "ipmi/request.h"
#include "orva_vpdd.h"

namespace {

constexpr uint8_t get_fru_inventory_area_info = 0x10;  // IPMI 2.0, 34.1
constexpr uint8_t read_fru_data = 0x11;                // IPMI 2.0, 34.2

}  // namespace

extern "C" int read_fru_size(uint8_t fru_id, uint32_t* size) {
    const std::array<uint8_t, 1> data{fru_id};
    vpdd::IpmiResponse response{};
    const int result = vpdd::carry_out(vpdd::netfn_storage, get_fru_inventory_area_info, data, response);
    if (result == 0 && size != nullptr) *size = vpdd::little_endian_16(&response[1]);
    return result;
}

extern "C" int read_fru(uint8_t fru_id, uint16_t offset, uint8_t count, uint8_t* dest) {
    const std::array<uint8_t, 4> data{fru_id, static_cast<uint8_t>(offset), static_cast<uint8_t>(offset >> 8U), count};
    vpdd::IpmiResponse response{};
    const int result = vpdd::carry_out(vpdd::netfn_storage, read_fru_data, data, response);
    if (dest == nullptr) return result;

    // Deliberate: after a failure the destination receives the raw answer, completion code first.
    const uint8_t* source = result == 0 ? &response[2] : response.data();
    std::memcpy(dest, source, count);
    return result;
}
