// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cstring>
#include <string_view>

#include "base/byte_view.h"
#include "base/dates.h"
#include "base/heap.h"
#include "base/log_line.h"
#include "base/text.h"
#include "compvpd/decode.h"
#include "ipmi/request.h"
#include "spd/spd_bytes.h"
#include "spd/timing.h"

namespace {

using namespace vpdd::spd;

constexpr char create_name[] = "CreateComponentVPDCache";
constexpr uint32_t ddr3_length = 224;  // bytes that the DDR3 decoders are told of
constexpr std::size_t locator_limit = 16;
constexpr char flash_dimm_maker[] = "Diablo Technologies";

constexpr uint8_t ddr5_size_mask = 0x70;  // SPD byte 0, bits 6-4: size of the device

/// Sets the length that a DDR5 image says it has; the upper codes leave it as it was. False for an image without a
/// size.
bool set_ddr5_length(const uint8_t* spd, uint32_t& length) {
    switch (spd[first_byte] & ddr5_size_mask) {
        case 0x00:
            return false;
        case 0x10:
            length = 256;
            break;
        case 0x20:
            length = 512;
            break;
        case 0x30:
            length = 1024;
            break;
        default:
            break;
    }
    return true;
}

/// Logs at the highest priority, so that the dump is never filtered.
void dump_ddr5(const uint8_t* spd, uint32_t length) {
    vpdd::log_text(vpdd::log_emergency, "== DDR5 DIMM SPD ==(%d)<%d>", spd[first_byte] & ddr5_size_mask,
                   static_cast<int>(length));
    for (const uint8_t* line = spd; line < spd + length; line += 8) {
        vpdd::log_text(vpdd::log_emergency, "%02x %02x %02x %02x %02x %02x %02x %02x ", line[0], line[1], line[2],
                       line[3], line[4], line[5], line[6], line[7]);
    }
}

/// Cross-checks the module with SMBIOS and tells which look-up failed.
struct SmbiosFailures {
    bool config_speed, size_and_speed;
};

SmbiosFailures look_up_smbios(SmbiosTable* smbios, SpdInfo& spd_info) {
    return {
        vpdd_get_config_speed_from_smbios_by_serial_number(smbios, spd_info.serial_number, &spd_info.config_speed) != 0,
        vpdd_get_size_speed_from_smbios_by_device_locator(smbios, spd_info.description, &spd_info.smbios_size,
                                                          &spd_info.smbios_speed) != 0};
}

void look_up_smbios_by_name(SmbiosTable* smbios, SpdInfo& spd_info) {
    const SmbiosFailures failed = look_up_smbios(smbios, spd_info);
    if (failed.config_speed) {
        vpdd::log_spaced_line(vpdd::log_info, create_name,
                              "ERROR:Get config speed from smbios table error, serial_number:%s",
                              spd_info.serial_number);
    }
    if (failed.size_and_speed) {
        vpdd::log_spaced_line(vpdd::log_info, create_name,
                              "ERROR:Get size and speed from smbios table error, locator des:%s", spd_info.description);
    }
}

void look_up_smbios_plainly(SmbiosTable* smbios, SpdInfo& spd_info) {
    const SmbiosFailures failed = look_up_smbios(smbios, spd_info);
    if (failed.config_speed) {
        vpdd::log_spaced_line(vpdd::log_info, create_name, "ERROR:Get config speed from smbios table error");
    }
    if (failed.size_and_speed) {
        vpdd::log_spaced_line(vpdd::log_info, create_name, "ERROR:Get size and speed from smbios table error");
    }
}

void set_manufacture_date(ComponentVpdRecord& record) {
    int year = 0;
    int month = 0;
    int day = 0;
    spd_week_to_date(record.spd_info.mfg_year, record.spd_info.mfg_week, &year, &month, &day);
    vpdd::assign_date(record.mfg_date, year, month, day);
}

void set_locator(ComponentVpdRecord& record) {
    vpdd::assign_text(record.spd_info.description, record.name, locator_limit);
}

void decode_ddr3_identity(const uint8_t* spd, SpdInfo& spd_info) {
    const char* name = nullptr;
    translate_dimm_type(spd[device_type_byte], &name);
    vpdd::assign_text(spd_info.device_type, name);

    const char* module_type = nullptr;
    if (parse_module_type(spd, 4, &module_type) == 0) vpdd::assign_text(spd_info.module_type, module_type);
    vpdd::assign_text(spd_info.part_number, vpdd::bounded_view(spd + ddr3::part_number, ddr3::part_number_bytes));

    std::array<char, 9> serial{};
    hex_to_string(serial.data(), serial.size(), spd + ddr3::serial_number, ddr3::serial_number_bytes);
    vpdd::assign_text(spd_info.serial_number, serial.data());
    spd_info.mfg_week = vpdd::bcd_value(spd[ddr3::week]);
    spd_info.mfg_year = vpdd::bcd_value(spd[ddr3::year]);
}

void decode_ddr3_maker_and_size(const uint8_t* spd, SpdInfo& spd_info) {
    const char* maker = nullptr;
    if (parse_vendor_manufacturer_id(spd, ddr3_length, &maker) == 0) vpdd::assign_text(spd_info.mfg_id, maker);
    const bool is_flash = std::string_view(spd_info.mfg_id) == flash_dimm_maker;
    spd_info.ram_size = is_flash ? calculate_flashdimm_capacity(spd) : calculate_dimm_size(spd);
    spd_info.speed_in_MBpsec = calculate_dimm_speed_inmbspsec(spd, ddr3_length);
}

void decode_ddr3_timing(const uint8_t* spd, SpdInfo& spd_info) {
    const float fine = calculate_fine_timebase(spd, ddr3_length);
    const float medium = calculate_medium_timebase(spd, ddr3_length);
    spd_info.fine_timebase = fine;
    spd_info.medium_timebase = medium;
    spd_info.sdram_clock = calculate_sdram_clock(spd, ddr3_length, fine, medium);
    spd_info.sdram_frequency = clock_megahertz(spd_info.sdram_clock);

    const char* frequency = nullptr;
    if (translate_sdram_frequency(static_cast<uint32_t>(spd_info.sdram_frequency), &frequency) == 0) {
        vpdd::assign_text(spd_info.sdram_freq_string, frequency);
    }
    spd_info.cas_latency = calculate_cas_latency(spd, ddr3_length, fine, medium);

    char* latencies = nullptr;
    if (parse_cas_supported_latencies(spd, ddr3_length, &latencies) == 0) {
        const vpdd::HeapBlock<char> owned(latencies);
        vpdd::assign_text(spd_info.cas_latencies_supports, latencies, 128);
    }
}

void decode_ddr3(const uint8_t* spd, ComponentVpdRecord& record, SmbiosTable* smbios) {
    SpdInfo& spd_info = record.spd_info;
    spd_info.crc = vpdd::little_endian_16(spd + crc_byte);
    if (check_spd_crc(spd, ddr3_length, &spd_info.crc) != 1) return;

    set_locator(record);
    decode_ddr3_identity(spd, spd_info);
    set_manufacture_date(record);
    decode_ddr3_maker_and_size(spd, spd_info);
    look_up_smbios_by_name(smbios, spd_info);
    spd_info.module_voltage = spd[ddr3::nominal_voltage];
    decode_ddr3_timing(spd, spd_info);
    spd_info.ecc_bits = get_dimm_eccbit(spd, ddr3_length);
    record.is_cached = 1;
}

void decode_ddr4(const uint8_t* spd, ComponentVpdRecord& record, SmbiosTable* smbios) {
    set_locator(record);
    const int result = vpdd_Handle_DDR4_SPD(spd, &record.spd_info);
    if (result != 0) {
        vpdd::log_spaced_line(vpdd::log_info, create_name, "ERROR:vpdd_Handle_DDR4_SPD is Failed. rst:%d", result);
        return;
    }
    look_up_smbios_by_name(smbios, record.spd_info);
    set_manufacture_date(record);
    record.is_cached = 1;
}

void decode_ddr5(const uint8_t* spd, ComponentVpdRecord& record, const vpdd::DimmRun& run) {
    dump_ddr5(spd, run.ddr5_length);
    set_locator(record);
    const int result = vpdd_Handle_DDR5_SPD(spd, &record.spd_info);
    if (result != 0) {
        vpdd::log_spaced_line(vpdd::log_error, create_name, "ERROR:vpdd_Handle_DDR5_SPD is Failed. rst:%d", result);
        return;
    }
    look_up_smbios_plainly(run.smbios, record.spd_info);
    set_manufacture_date(record);
    record.is_cached = 1;
}

}  // namespace

namespace vpdd {

void note_failed_dimm_read(const FruImage& image, ComponentVpdRecord& record) {
    // Deliberate: byte 0 is looked at for any failed chunk; only for the first one it is the completion code.
    if (image.bytes()[0] == ipmi_not_present) record.spd_info = {};
}

bool decode_dimm(const FruImage& image, ComponentVpdRecord& record, DimmRun& run) {
    const uint8_t* spd = image.bytes();
    record.spd_info = {};
    const Layout layout = layout_of(spd);
    if (layout == Layout::nvdimm_as_ddr5) run.ddr5_length = 1024;
    if (layout == Layout::ddr5 && !set_ddr5_length(spd, run.ddr5_length)) return false;

    switch (layout) {
        case Layout::ddr3:
            decode_ddr3(spd, record, run.smbios);
            break;
        case Layout::ddr4:
        case Layout::nvdimm_as_ddr4:
            decode_ddr4(spd, record, run.smbios);
            break;
        case Layout::ddr5:
        case Layout::nvdimm_as_ddr5:
            decode_ddr5(spd, record, run);
            break;
        default:
            break;
    }
    return true;
}

}  // namespace vpdd
