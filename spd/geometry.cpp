// SPDX-License-Identifier: Apache-2.0
#include "spd/geometry.h"

#include <array>

#include "base/byte_view.h"
#include "base/log_line.h"
#include "orva_vpdd.h"
#include "spd/debug.h"
#include "spd/spd_bytes.h"

namespace vpdd::spd {

namespace {

// By rank code. Deliberate: code 4 means 8 ranks in DDR4 images as well.
constexpr std::array<uint32_t, 8> rank_counts{1, 2, 3, 4, 8, 0, 0, 0};

// By the ECC code of DDR5: bits of each sub-channel.
constexpr std::array<uint32_t, 4> ddr5_ecc_bits{0, 4, 8, 0};

constexpr uint32_t single_load_stack = 2;  // signal loading of DDR4 byte 6

/// Dies of a stack; they count towards the size only where they share one load.
uint32_t stack_factor(uint8_t package) {
    return bits(package, 0, 2) == single_load_stack ? bits(package, 4, 2) + 1 : 1;
}

/// Size in MB of ranks that are filled with one kind of device. The powers are 2^23 at most; the product may wrap.
uint32_t dram_size(uint8_t density, uint8_t organization, uint8_t bus_width, uint32_t stack) {
    const uint32_t bus_bits = 8U << bits(bus_width, 0, 3);
    const uint32_t device_bits = 4U << bits(organization, 0, 3);
    const uint32_t device_megabits = 256U << bits(density, 0, 4);
    return rank_counts[bits(organization, 3, 3)] * (stack * (bus_bits * (device_megabits >> 3U) / device_bits));
}

uint32_t dimm_size(const uint8_t* spd) {
    switch (device_type(spd)) {
        case DeviceType::ddr3:
            return dram_size(spd[ddr3::density], spd[ddr3::organization], spd[ddr3::bus_width], 1);
        case DeviceType::ddr4:
            return dram_size(spd[ddr4::density], spd[ddr4::organization], spd[ddr4::bus_width],
                             stack_factor(spd[ddr4::package]));
        case DeviceType::nvdimm:
            return hybrid_size(spd + ddr4::hybrid_area);
        case DeviceType::ddr5:
            break;
    }
    log_line(log_info, "calculate_dimm_size", "ERROR:DIMM Device Type Error\n");
    return 0;
}

uint32_t flash_capacity(const uint8_t* spd) {
    switch (device_type(spd)) {
        case DeviceType::ddr3:
            return little_endian_16(spd + ddr3::flash_capacity);
        case DeviceType::ddr4:
            return little_endian_16(spd + ddr4::flash_capacity);
        case DeviceType::nvdimm:
        case DeviceType::ddr5:
            break;
    }
    return 0;
}

uint32_t bus_bytes(const uint8_t* spd) {
    switch (layout_of(spd)) {
        case Layout::ddr3:
            return bus_width_inbytes(bits(spd[ddr3::bus_width], 0, 3));
        case Layout::ddr4:
            return bus_width_inbytes(bits(spd[ddr4::bus_width], 0, 3));
        case Layout::ddr5:
            return bus_width_inbytes(bits(spd[ddr5::bus_width], 0, 3));
        case Layout::nvdimm_as_ddr4:
            return bus_width_inbytes(bits(spd[ddr4::hybrid_area + hybrid::bus_width], 0, 3));
        case Layout::nvdimm_as_ddr5:
            return bus_width_inbytes(bits(spd[ddr5::hybrid_area + hybrid::bus_width], 0, 3));
        case Layout::nvdimm_other:
        case Layout::unknown:
            break;
    }
    return 0;
}

uint32_t ecc_bits(const uint8_t* spd) {
    switch (layout_of(spd)) {
        case Layout::ddr3:
            return spd[ddr3::bus_width] & 0x08U;  // extension of 8 bits, and 8 is the bit's value too
        case Layout::ddr4:
            return spd[ddr4::bus_width] & 0x08U;
        case Layout::ddr5:
            return ddr5_ecc_bits[bits(spd[ddr5::bus_width], 3, 2)];
        case Layout::nvdimm_as_ddr4:
            return spd[ddr4::hybrid_area + hybrid::bus_width] & 0x38U;  // deliberate: the raw bits
        case Layout::nvdimm_as_ddr5:
            return bits(spd[ddr5::bus_width], 3, 2) * 4;
        case Layout::nvdimm_other:
        case Layout::unknown:
            break;
    }
    return 0;
}

uint32_t nvdimm_rank_code(uint8_t organization) { return bits(organization, 3, 3) + bits(organization, 6, 1); }

uint32_t rank_code(const uint8_t* spd) {
    switch (layout_of(spd)) {
        case Layout::ddr3:
            return bits(spd[ddr3::organization], 3, 3);
        case Layout::ddr4:
            return bits(spd[ddr4::organization], 3, 3);
        case Layout::ddr5:
            return bits(spd[ddr5::organization], 3, 3);
        case Layout::nvdimm_as_ddr4:
            return nvdimm_rank_code(spd[ddr4::hybrid_area + hybrid::organization]);
        case Layout::nvdimm_as_ddr5:
            return nvdimm_rank_code(spd[ddr5::hybrid_area + hybrid::organization]);
        case Layout::nvdimm_other:  // deliberate: an image of unknown layout is read at byte 0
            return nvdimm_rank_code(spd[first_byte]);
        case Layout::unknown:
            break;
    }
    return bits(spd[first_byte], 3, 3);
}

}  // namespace

uint32_t hybrid_size(const uint8_t* area) {
    const uint32_t capacity = 1U << bits(area[hybrid::capacity], 0, 4);
    const uint32_t bus = 1U << bits(area[hybrid::bus_width], 0, 3);
    const uint32_t dies = (bits(area[hybrid::package], 4, 3) + 1) / (bits(area[hybrid::package], 2, 2) + 1);
    const uint32_t asymmetric_dies = bits(area[hybrid::organization], 7, 1) * dies;
    return bus * (capacity * (dies + asymmetric_dies)) * 32;
}

}  // namespace vpdd::spd

using namespace vpdd;
using namespace vpdd::spd;

extern "C" uint32_t bus_width_inbytes(uint8_t code) {
    constexpr uint8_t widest_code = 3;
    const uint32_t width = code <= widest_code ? 1U << code : 0;
    DBG_DIMM(debug_off, "--> %s: Bus Width size = %d byte(s).\n", __func__, static_cast<int>(width));
    return width;
}

extern "C" uint32_t calculate_dimm_size(const uint8_t* spd) {
    const uint32_t size = dimm_size(spd);
    DBG_DIMM(debug_off, "--> %s: DIMM size = %d.\n", __func__, static_cast<int>(size));
    return size;
}

extern "C" uint32_t calculate_flashdimm_capacity(const uint8_t* spd) {
    const uint32_t capacity = flash_capacity(spd);
    DBG_DIMM(debug_on, "--> %s: Flash DIMM size = %d GB.\n", __func__, static_cast<int>(capacity));
    return capacity;
}

extern "C" uint32_t get_dimm_bus_width(const uint8_t* spd, uint32_t length) {
    if (length < shortest_image) return 0;
    const uint32_t width = bus_bytes(spd);
    DBG_DIMM(debug_off, "--> %s: Bus width = %u bytes\n", __func__, width);
    return width * 8;
}

extern "C" uint32_t get_dimm_eccbit(const uint8_t* spd, uint32_t length) {
    log_text(log_emergency, "DIMM type:0x%2x", spd[device_type_byte]);
    return length < shortest_image ? 0 : ecc_bits(spd);
}

extern "C" uint32_t get_dimm_ranks(const uint8_t* spd, uint32_t length) {
    return length < shortest_image ? 0 : rank_code(spd);
}
