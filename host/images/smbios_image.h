// SPDX-License-Identifier: Apache-2.0
// SMBIOS tables (DMTF DSP0134): a builder for raw structures and whole tables, and a parser that turns stored bytes
// into the lists of structures by type that the firmware's SMBIOS store hands out.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/images/bytes.h"
#include "orva_vpdd.h"

namespace vpdd::images {

/// One raw structure. Setters take offsets of the formatted area; what does not fit there throws std::out_of_range.
class SmbiosStructure {
public:
    SmbiosStructure(uint8_t type, uint8_t length);

    SmbiosStructure& byte(uint8_t offset, uint8_t value) { return number(offset, 1, value); }
    SmbiosStructure& word(uint8_t offset, uint16_t value) { return number(offset, 2, value); }
    SmbiosStructure& dword(uint8_t offset, uint32_t value) { return number(offset, 4, value); }
    SmbiosStructure& qword(uint8_t offset, uint64_t value) { return number(offset, 8, value); }
    /// Puts the text behind the strings that are there and its number into the field. An empty text, which would end
    /// the string set, becomes number 0: no string.
    SmbiosStructure& string(uint8_t offset, std::string_view text);
    /// Cuts the formatted area, or extends it with zeros, as in another version of the standard.
    SmbiosStructure& length(uint8_t length);

    /// Formatted area, strings, and the two NULs at the end.
    Bytes bytes() const;

private:
    SmbiosStructure& number(uint8_t offset, std::size_t width, uint64_t value);

    Bytes formatted_;
    std::vector<std::string> strings_;
};

/// Type 17 as of SMBIOS 3.7. The setters bear the DMTF field names; strings are numbered in the order of their setters.
class MemoryDeviceImage {
public:
    using Self = MemoryDeviceImage;

    MemoryDeviceImage();

    Self& physical_memory_array_handle(uint16_t value) { return word(0x04, value); }
    Self& memory_error_information_handle(uint16_t value) { return word(0x06, value); }
    Self& total_width(uint16_t bits) { return word(0x08, bits); }
    Self& data_width(uint16_t bits) { return word(0x0A, bits); }
    Self& size(uint16_t value) { return word(0x0C, value); }
    Self& form_factor(uint8_t value) { return byte(0x0E, value); }
    Self& device_set(uint8_t value) { return byte(0x0F, value); }
    Self& device_locator(std::string_view text) { return string(0x10, text); }
    Self& bank_locator(std::string_view text) { return string(0x11, text); }
    Self& memory_type(uint8_t value) { return byte(0x12, value); }
    Self& type_detail(uint16_t bits) { return word(0x13, bits); }
    Self& speed(uint16_t megatransfers) { return word(0x15, megatransfers); }
    Self& manufacturer(std::string_view text) { return string(0x17, text); }
    Self& serial_number(std::string_view text) { return string(0x18, text); }
    Self& asset_tag(std::string_view text) { return string(0x19, text); }
    Self& part_number(std::string_view text) { return string(0x1A, text); }
    Self& attributes(uint8_t ranks) { return byte(0x1B, ranks); }
    Self& extended_size(uint32_t megabytes) { return dword(0x1C, megabytes); }
    Self& configured_memory_speed(uint16_t megatransfers) { return word(0x20, megatransfers); }
    Self& minimum_voltage(uint16_t millivolts) { return word(0x22, millivolts); }
    Self& maximum_voltage(uint16_t millivolts) { return word(0x24, millivolts); }
    Self& configured_voltage(uint16_t millivolts) { return word(0x26, millivolts); }
    Self& memory_technology(uint8_t value) { return byte(0x28, value); }
    Self& memory_operating_mode_capability(uint16_t bits) { return word(0x29, bits); }
    Self& firmware_version(std::string_view text) { return string(0x2B, text); }
    Self& module_manufacturer_id(uint16_t value) { return word(0x2C, value); }
    Self& module_product_id(uint16_t value) { return word(0x2E, value); }
    Self& memory_subsystem_controller_manufacturer_id(uint16_t value) { return word(0x30, value); }
    Self& memory_subsystem_controller_product_id(uint16_t value) { return word(0x32, value); }
    Self& non_volatile_size(uint64_t bytes) { return qword(0x34, bytes); }
    Self& volatile_size(uint64_t bytes) { return qword(0x3C, bytes); }
    Self& cache_size(uint64_t bytes) { return qword(0x44, bytes); }
    Self& logical_size(uint64_t bytes) { return qword(0x4C, bytes); }
    Self& extended_speed(uint32_t megatransfers) { return dword(0x54, megatransfers); }
    Self& extended_configured_memory_speed(uint32_t megatransfers) { return dword(0x58, megatransfers); }
    Self& pmic0_manufacturer_id(uint16_t value) { return word(0x5C, value); }
    Self& pmic0_revision_number(uint16_t value) { return word(0x5E, value); }
    Self& rcd_manufacturer_id(uint16_t value) { return word(0x60, value); }
    Self& rcd_revision_number(uint16_t value) { return word(0x62, value); }

    /// The structure of an older standard: 0x15 (SMBIOS 2.1), 0x1B (2.3), 0x22 (2.7), 0x28 (2.8), 0x5C (3.3).
    Self& length(uint8_t length);
    /// For structures that no setter above makes.
    SmbiosStructure& structure() { return structure_; }

    Bytes bytes() const { return structure_.bytes(); }

private:
    Self& byte(uint8_t offset, uint8_t value);
    Self& word(uint8_t offset, uint16_t value);
    Self& dword(uint8_t offset, uint32_t value);
    Self& qword(uint8_t offset, uint64_t value);
    Self& string(uint8_t offset, std::string_view text);

    SmbiosStructure structure_;
};

/// A whole table. The structures are numbered: handle 1, 2 and so on.
class SmbiosImage {
public:
    SmbiosImage& bios(std::string_view vendor, std::string_view version, std::string_view release_date);  // type 0
    SmbiosImage& system(std::string_view maker, std::string_view product, std::string_view serial);       // type 1
    SmbiosImage& baseboard(std::string_view maker, std::string_view product, std::string_view serial);    // type 2
    SmbiosImage& chassis(std::string_view maker, std::string_view serial, std::string_view asset_tag);    // type 3
    SmbiosImage& processor(std::string_view socket, std::string_view maker, std::string_view version);    // type 4
    SmbiosImage& memory_array(uint16_t devices, uint32_t capacity_in_kilobytes);                          // type 16
    /// The device belongs to the latest memory array.
    SmbiosImage& memory_device(MemoryDeviceImage device);
    SmbiosImage& add(SmbiosStructure structure);
    /// Bytes as they stand, for damaged tables.
    SmbiosImage& raw(std::span<const uint8_t> bytes);

    /// The structures with the end-of-table structure (type 127) behind them.
    Bytes table() const;
    /// The file that `dmidecode --dump-bin` writes: the SMBIOS 3 entry point, padded to 32 bytes, then the table.
    Bytes file() const;

private:
    uint16_t latest_handle_ = 0;
    uint16_t memory_array_handle_ = 0xFFFF;  // none
    Bytes structures_;
};

/// A table taken apart. Whatever get() hands out lives as long as this object.
class ParsedSmbiosTable {
public:
    explicit ParsedSmbiosTable(std::span<const uint8_t> table);
    ParsedSmbiosTable(const ParsedSmbiosTable&) = delete;
    ParsedSmbiosTable& operator=(const ParsedSmbiosTable&) = delete;

    SmbiosTable* get() { return &table_; }

private:
    void add(const uint8_t* structure);
    SmbiosTypeGroup& group_of(uint8_t type);

    Bytes bytes_;
    std::deque<SmbiosTypeGroup> groups_;
    std::deque<SmbiosEntry> entries_;
    std::map<uint8_t, SmbiosEntry*> latest_;
    SmbiosTable table_{};
};

/// Takes a table apart, bare or with an entry point (32 or 64 bit) in front, as dmidecode dumps it. Groups and entries
/// keep the table's order; a type's structures beyond 255 are left out. Every structure handed out lies wholly in the
/// table, its strings ended by two NULs; the first damaged one ends the table.
/// Null when there is not one structure, or when the entry point is damaged.
std::unique_ptr<ParsedSmbiosTable> parse_smbios_table(std::span<const uint8_t> bytes);

}  // namespace vpdd::images
