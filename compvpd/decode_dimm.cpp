// SPDX-License-Identifier: Apache-2.0
#include "compvpd/decode_dimm.h"

#include <array>
#include <cstring>
#include <string_view>

#include "base/byte_view.h"
#include "base/dates.h"
#include "base/heap.h"
#include "base/log_line.h"
#include "base/text.h"
#include "ipmi/request.h"
#include "spd/spd_bytes.h"
#include "spd/timing.h"

namespace {

using namespace vpdd::spd;

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

/// What the messages about a failed look-up end with.
struct LookUpTexts {
    const char* serial;
    const char* locator;
};

void look_up_smbios(const vpdd::Run& run, const LookUpTexts& texts, SpdInfo& spd_info) {
    if (vpdd_get_config_speed_from_smbios_by_serial_number(run.smbios, spd_info.serial_number,
                                                           &spd_info.config_speed) != 0) {
        vpdd::log_spaced_line(vpdd::log_info, run.function, "ERROR:Get config speed from smbios table error%s%s",
                              texts.serial, *texts.serial != '\0' ? spd_info.serial_number : "");
    }
    if (vpdd_get_size_speed_from_smbios_by_device_locator(run.smbios, spd_info.description, &spd_info.smbios_size,
                                                          &spd_info.smbios_speed) != 0) {
        vpdd::log_spaced_line(vpdd::log_info, run.function, "ERROR:Get size and speed from smbios table error%s%s",
                              texts.locator, *texts.locator != '\0' ? spd_info.description : "");
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

}  // namespace

namespace vpdd {

void note_failed_dimm_read(const FruImage& image, ComponentVpdRecord& record) {
    // Deliberate: byte 0 is looked at for any failed chunk; only for the first one it is the completion code.
    if (image.bytes()[0] == ipmi_not_present) record.spd_info = {};
}

DimmPath begin_dimm(Run& run, const FruImage& image, ComponentVpdRecord& record) {
    record.spd_info = {};
    switch (layout_of(image.bytes())) {
        case Layout::ddr3:
            return DimmPath::ddr3;
        case Layout::ddr4:
        case Layout::nvdimm_as_ddr4:
            return DimmPath::ddr4;
        case Layout::nvdimm_as_ddr5:
            run.ddr5_length = 1024;
            return DimmPath::ddr5;
        case Layout::ddr5:
            return set_ddr5_length(image.bytes(), run.ddr5_length) ? DimmPath::ddr5 : DimmPath::ddr5_without_size;
        default:
            return DimmPath::none;
    }
}

int check_stored_crc(const FruImage& image, SpdInfo& spd_info) {
    spd_info.crc = little_endian_16(image.bytes() + crc_byte);
    return check_spd_crc(image.bytes(), ddr3_length, &spd_info.crc);
}

uint8_t device_type_of(const FruImage& image) { return image.bytes()[device_type_byte]; }

uint32_t ddr3_bus_width(const FruImage& image) { return get_dimm_bus_width(image.bytes(), ddr3_length); }

void log_ddr5(const Run& run, const FruImage& image) {
    log_text(log_emergency, "== DDR5 DIMM SPD ==(%d)<%d>", image.bytes()[first_byte] & ddr5_size_mask,
             static_cast<int>(run.ddr5_length));
}

void decode_ddr3(const Run& run, const FruImage& image, ComponentVpdRecord& record) {
    const uint8_t* const spd = image.bytes();
    SpdInfo& spd_info = record.spd_info;
    set_locator(record);
    decode_ddr3_identity(spd, spd_info);
    set_manufacture_date(record);
    decode_ddr3_maker_and_size(spd, spd_info);
    look_up_smbios(run, {", serial_number:", ", locator des:"}, spd_info);
    spd_info.module_voltage = spd[ddr3::nominal_voltage];
    decode_ddr3_timing(spd, spd_info);
    spd_info.ecc_bits = get_dimm_eccbit(spd, ddr3_length);
    record.is_cached = 1;
}

bool decode_ddr4(const Run& run, const FruImage& image, const char* locator_text, ComponentVpdRecord& record) {
    set_locator(record);
    const int result = vpdd_Handle_DDR4_SPD(image.bytes(), &record.spd_info);
    if (result != 0) {
        log_spaced_line(log_info, run.function, "ERROR:vpdd_Handle_DDR4_SPD is Failed. rst:%d", result);
        return false;
    }
    look_up_smbios(run, {", serial_number:", locator_text}, record.spd_info);
    set_manufacture_date(record);
    record.is_cached = 1;
    return true;
}

bool decode_ddr5(const Run& run, const FruImage& image, ComponentVpdRecord& record) {
    set_locator(record);
    const int result = vpdd_Handle_DDR5_SPD(image.bytes(), &record.spd_info);
    if (result != 0) {
        log_spaced_line(log_error, run.function, "ERROR:vpdd_Handle_DDR5_SPD is Failed. rst:%d", result);
        return false;
    }
    look_up_smbios(run, {"", ""}, record.spd_info);
    set_manufacture_date(record);
    record.is_cached = 1;
    return true;
}

}  // namespace vpdd
