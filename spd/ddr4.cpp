// SPDX-License-Identifier: Apache-2.0
#include "base/byte_view.h"
#include "base/heap.h"
#include "base/log_line.h"
#include "base/text.h"
#include "orva_vpdd.h"
#include "spd/identity.h"
#include "spd/spd_bytes.h"
#include "spd/timing.h"

namespace {

using namespace vpdd;
using namespace vpdd::spd;

constexpr uint32_t image_length = 224;  // what the calculators are told; the image is longer

constexpr IdentityBytes identity_bytes{ddr4::serial_number, ddr4::week, ddr4::year, ddr4::end_user_part};

constexpr uint32_t nvdimm_n = 33;  // in the low six bits of the media byte
constexpr uint32_t persistent_memory = 1;

const char* device_type_name(const uint8_t* spd) {
    if (bits(spd[ddr4::hybrid_media], 0, 6) == nvdimm_n) return "NVDIMM-N";
    const char* name = nullptr;
    translate_dimm_type(spd[device_type_byte], &name);
    return name;
}

void fill_part_number(const uint8_t* spd, SpdInfo& record) {
    constexpr std::size_t part_number_bytes = 20;
    assign_text(record.part_number, bounded_view(spd + ddr4::part_number, part_number_bytes));
}

void fill_size(const uint8_t* spd, SpdInfo& record) {
    const bool is_flash_dimm = bounded_view(record.mfg_id, sizeof record.mfg_id) == "Diablo Technologies";
    record.ram_size = is_flash_dimm ? calculate_flashdimm_capacity(spd) : calculate_dimm_size(spd);
}

void fill_geometry(const uint8_t* spd, SpdInfo& record) {
    record.module_bus_width = get_dimm_bus_width(spd, image_length);
    record.ecc_bits = get_dimm_eccbit(spd, image_length);
    record.speed_in_MBpsec = calculate_dimm_speed_inmbspsec(spd, image_length);
    record.module_voltage = spd[ddr4::voltage];
    record.fine_timebase = calculate_fine_timebase(spd, image_length);
    record.medium_timebase = calculate_medium_timebase(spd, image_length);
    record.module_ranks = static_cast<uint8_t>(get_dimm_ranks(spd, image_length));  // deliberate: the code, ranks - 1
}

void fill_clock(const uint8_t* spd, SpdInfo& record) {
    record.sdram_clock = calculate_sdram_clock(spd, image_length, record.fine_timebase, record.medium_timebase);
    record.sdram_frequency = clock_megahertz(record.sdram_clock);

    const char* text = nullptr;
    if (translate_sdram_frequency_ddr4(static_cast<uint32_t>(record.sdram_frequency), &text) != 0) return;
    assign_text(record.sdram_freq_string, text);
}

void fill_cas_latencies(const uint8_t* spd, SpdInfo& record) {
    constexpr std::size_t latencies_limit = 128;
    record.cas_latency = calculate_cas_latency(spd, image_length, record.fine_timebase, record.medium_timebase);

    char* text = nullptr;
    if (parse_cas_supported_latencies(spd, image_length, &text) != 0) return;
    const HeapBlock<char> latencies(text);
    assign_text(record.cas_latencies_supports, latencies.get(), latencies_limit);
}

}  // namespace

extern "C" int vpdd_Handle_DDR4_SPD(const uint8_t* spd, SpdInfo* record) {
    if (!has_image_and_record(__func__, spd, record)) return -1;

    const char* const type_name = device_type_name(spd);
    fill_module_type(spd, image_length, *record);
    fill_part_number(spd, *record);
    fill_serial_and_date(__func__, spd, identity_bytes, *record);
    fill_maker(spd, image_length, *record);
    parse_vendor_product_id(spd, image_length, &record->vendor_product_id);
    fill_device_type(spd, type_name, persistent_memory, *record);
    fill_size(spd, *record);
    fill_geometry(spd, *record);
    fill_clock(spd, *record);
    if (device_type(spd) != DeviceType::nvdimm) fill_cas_latencies(spd, *record);
    fill_end_user_part(spd, identity_bytes, *record);
    record->subsys_vendor_id = little_endian_16(spd + ddr4::subsystem_vendor_id);
    record->subsys_device_id = little_endian_16(spd + ddr4::subsystem_device_id);
    return 0;
}
