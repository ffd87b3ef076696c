// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <span>

#include "base/byte_view.h"
#include "base/log_line.h"
#include "orva_vpdd.h"
#include "spd/debug.h"
#include "spd/spd_bytes.h"

const DimmTypeRow dimm_type_map[] = {
    {0x08, "DDR2"}, {0x0B, "DDR3"}, {0x0C, "DDR4"}, {0x0D, "NVM"}, {0x12, "DDR5"}, {0xFF, "UNKNOWN"},
};

const char* const dimm_module_type_table_ddr3[14] = {
    "Undefined",  "RDIMM",        "UDIMM",        "SO-DIMM",      "Micro-DIMM", "Mini-RDIMM",  "Mini-UDIMM",
    "Mini-CDIMM", "72b-SO-UDIMM", "72b-SO-RDIMM", "72b-SO-CDIMM", "LRDIMM",     "16b-SO-DIMM", "32b-SO-DIMM",
};

const char* const dimm_module_type_table_ddr4[14] = {
    "Undefined", "RDIMM",        "UDIMM",        "SO-DIMM",  "LRDIMM",      "Mini-RDIMM",  "Mini-UDIMM",
    "Reserved",  "72b-SO-UDIMM", "72b-SO-RDIMM", "Reserved", "16b-SO-DIMM", "32b-SO-DIMM", "Reserved",
};

const char* const dimm_module_type_table_ddr5[14] = {
    "Undefined", "RDIMM",     "UDIMM",     "SO-DIMM", "LRDIMM",      "Undefined", "Undefined",
    "Undefined", "Undefined", "Undefined", "DDIMM",   "Solder down", "Undefined", "Reserved",
};

const char* const dimm_module_type_table_nvdm[14] = {
    "Undefined", "RDIMM", "UDIMM", "SO-DIMM", "LRDIMM", "FET Switches on DQs", "Reserved", nullptr, nullptr,
    nullptr,     nullptr, nullptr, nullptr,   nullptr,
};

namespace {

using namespace vpdd;
using namespace vpdd::spd;

constexpr uint8_t type_map_end = 0xFF;
/// What the list is sorted by: the bank, then the code without its parity bit.
constexpr uint32_t place_of(uint8_t bank, uint8_t code) { return bank << 7U | (code & 0x7FU); }

constexpr unsigned module_type_count = 14;
constexpr unsigned undefined_module_type = 0;

constexpr uint8_t no_maker[2] = {0, 0};  // stands in no list

const char* const* module_types_of(const uint8_t* spd) {
    switch (device_type(spd)) {
        case DeviceType::ddr3:
            return dimm_module_type_table_ddr3;
        case DeviceType::ddr4:
            return dimm_module_type_table_ddr4;
        case DeviceType::nvdimm:
            return dimm_module_type_table_nvdm;
        case DeviceType::ddr5:
            return dimm_module_type_table_ddr5;
    }
    return nullptr;
}

/// The two id bytes of the module's maker.
const uint8_t* module_maker_id(const uint8_t* spd) {
    switch (layout_of(spd)) {
        case Layout::ddr3:
            return spd + ddr3::module_maker;
        case Layout::ddr4:
        case Layout::nvdimm_as_ddr4:
            return spd + ddr4::module_maker;
        case Layout::ddr5:
        case Layout::nvdimm_as_ddr5:
            return spd + ddr5::module_maker;
        case Layout::nvdimm_other:
        case Layout::unknown:
            break;
    }
    return no_maker;
}

/// The two id bytes of the DRAM's maker; DDR5 images are deliberately not asked.
const uint8_t* dram_maker_id(const uint8_t* spd) {
    switch (device_type(spd)) {
        case DeviceType::ddr3:
            return spd + ddr3::dram_maker;
        case DeviceType::ddr4:
            return spd + ddr4::dram_maker;
        case DeviceType::nvdimm:  // deliberate: the module's maker stands for the DRAM's, whatever the layout
            return spd + ddr4::module_maker;
        case DeviceType::ddr5:
            break;
    }
    return no_maker;
}

/// Null for an id that the list does not have. The first id byte counts continuation codes under a parity bit; the
/// second is listed with its parity bit.
const char* maker_name(const uint8_t* id) {
    const uint8_t bank = id[0] & 0x7FU;
    const std::span<const Jep106Row> makers(jep_106, std::size(jep_106) - 1);  // the last row only ends the list
    const auto is_before = [](const Jep106Row& row, uint32_t place) { return place_of(row.bank, row.code) < place; };
    const auto row = std::lower_bound(makers.begin(), makers.end(), place_of(bank, id[1]), is_before);
    return row != makers.end() && row->bank == bank && row->code == id[1] ? row->name : nullptr;
}

}  // namespace

extern "C" int translate_dimm_type(uint8_t type_code, const char** out_name) {
    const DimmTypeRow* row = dimm_type_map;
    while (row->code != type_map_end && row->code != type_code) ++row;
    *out_name = row->name;
    return row->code == type_map_end ? -1 : 0;
}

extern "C" int parse_module_type(const uint8_t* spd, uint32_t length, const char** out_name) {
    const char* const* const types = module_types_of(spd);
    if (types == nullptr) {
        log_line(log_info, __func__, "ERROR:DIMM Device Type Error\n");
        return -1;
    }
    if (length == 0 || out_name == nullptr) {
        if (out_name != nullptr) *out_name = nullptr;
        log_line(log_info, __func__, "ERROR:input parameters are invalid..\n");
        return -1;
    }

    const uint32_t type = bits(spd[module_type_byte], 0, 4);
    *out_name = types[type < module_type_count ? type : undefined_module_type];
    DBG_DIMM(debug_off, "--> %s: Module Type = %s.\n", __func__, *out_name);
    return 0;
}

extern "C" int parse_manufacturer_id(const uint8_t* spd, uint32_t, const char** out_name) {
    const char* const name = maker_name(dram_maker_id(spd));
    if (name == nullptr) return -1;
    *out_name = name;
    DBG_DIMM(debug_off, "--> %s: SDRAM Manufacturer ID = %s.\n", __func__, name);
    return 0;
}

extern "C" int parse_vendor_manufacturer_id(const uint8_t* spd, uint32_t, const char** out_name) {
    const char* const name = maker_name(module_maker_id(spd));
    if (name == nullptr) return -1;
    *out_name = name;
    DBG_DIMM(debug_off, "--> %s: Vendor Manufacturer ID = %s.\n", __func__, name);
    return 0;
}

extern "C" void parse_vendor_mfg_id(const uint8_t* spd, uint32_t, uint16_t* out_word) {
    // Deliberate: DDR5 takes another word than its maker's, and in the other byte order.
    *out_word = device_type(spd) == DeviceType::ddr5 ? big_endian_16(spd + ddr5::module_vendor_id)
                                                     : little_endian_16(module_maker_id(spd));
}

extern "C" void parse_vendor_product_id(const uint8_t* spd, uint32_t, uint16_t* out_word) {
    const DeviceType type = device_type(spd);
    const bool has_product = type == DeviceType::ddr4 || type == DeviceType::nvdimm;
    *out_word = has_product ? little_endian_16(spd + ddr4::product_id) : uint16_t{0};
}
