// SPDX-License-Identifier: Apache-2.0
#include "host/images/smbios_image.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <utility>

#include "host/images/bytes.h"

namespace vpdd::images {

namespace {

/// A little-endian number: offset and width in bytes.
struct Field {
    std::size_t offset;
    std::size_t width;
};

void put(std::span<uint8_t> bytes, Field field, uint64_t value) {
    if (field.offset + field.width > bytes.size()) throw std::out_of_range("SMBIOS field behind its structure");
    for (std::size_t i = 0; i < field.width; ++i) bytes[field.offset + i] = static_cast<uint8_t>(value >> 8 * i);
}

uint64_t number(std::span<const uint8_t> bytes, Field field) {
    uint64_t value = 0;
    for (std::size_t i = field.width; i > 0; --i) value = value << 8U | bytes[field.offset + i - 1];
    return value;
}

// ---- structure header (DSP0134, "Structure header format")

constexpr Field structure_type{0x00, 1};
constexpr Field structure_length{0x01, 1};
constexpr Field structure_handle{0x02, 2};
constexpr std::size_t header_size = 4;

constexpr uint8_t memory_array_type = 16;
constexpr uint8_t memory_device_type = 17;
constexpr uint8_t end_of_table_type = 127;

constexpr uint8_t memory_device_length = 0x64;  // SMBIOS 3.7
constexpr uint8_t unknown = 0x02;               // in every enumeration used here
constexpr uint16_t no_error_information = 0xFFFE;

// ---- entry points (DSP0134, "SMBIOS structure table entry point")

struct EntryPoint {
    std::string_view anchor;
    std::size_t size;
    Field checksum, length, table_size, table_address;
};

constexpr EntryPoint entry_point_64{"_SM3_", 0x18, {0x05, 1}, {0x06, 1}, {0x0C, 4}, {0x10, 8}};
constexpr EntryPoint entry_point_32{"_SM_", 0x1F, {0x04, 1}, {0x05, 1}, {0x16, 2}, {0x18, 4}};

constexpr Field entry_point_64_major{0x07, 1};
constexpr Field entry_point_64_minor{0x08, 1};
constexpr Field entry_point_64_revision{0x0A, 1};

constexpr std::size_t dumped_table_offset = 32;  // where dmidecode puts the table in its dumps

bool starts_with(std::span<const uint8_t> bytes, std::string_view anchor) {
    return bytes.size() >= anchor.size() && std::equal(anchor.begin(), anchor.end(), bytes.begin());
}

/// The table that an entry point at the start of the bytes speaks of; empty when the entry point is damaged.
std::span<const uint8_t> table_behind(const EntryPoint& entry_point, std::span<const uint8_t> bytes) {
    if (bytes.size() < dumped_table_offset) return {};
    const uint64_t length = number(bytes, entry_point.length);
    if (length < entry_point.size || length > dumped_table_offset || zero_checksum(bytes.first(length)) != 0) return {};

    // An address of the host's memory, in a dump that kept it, says nothing about the place in the file.
    const uint64_t address = number(bytes, entry_point.table_address);
    const auto table = bytes.subspan(address >= length && address < bytes.size() ? address : dumped_table_offset);
    return table.first(std::min<uint64_t>(table.size(), number(bytes, entry_point.table_size)));
}

std::span<const uint8_t> table_in(std::span<const uint8_t> bytes) {
    for (const EntryPoint& entry_point : {entry_point_64, entry_point_32}) {
        if (starts_with(bytes, entry_point.anchor)) return table_behind(entry_point, bytes);
    }
    return bytes;
}

/// Size of the structure at the start of the bytes with its string set, unless it is damaged.
std::optional<std::size_t> structure_size(std::span<const uint8_t> bytes) {
    if (bytes.size() < header_size) return std::nullopt;
    const std::size_t length = number(bytes, structure_length);
    if (length < header_size || length > bytes.size()) return std::nullopt;

    static constexpr std::array<uint8_t, 2> end_of_strings{};
    const auto strings = bytes.subspan(length);
    const auto end = std::search(strings.begin(), strings.end(), end_of_strings.begin(), end_of_strings.end());
    if (end == strings.end()) return std::nullopt;
    return length + static_cast<std::size_t>(end - strings.begin()) + end_of_strings.size();
}

}  // namespace

// ---- SmbiosStructure

SmbiosStructure::SmbiosStructure(uint8_t type, uint8_t length)
    : formatted_(std::max<std::size_t>(length, header_size)) {
    put(formatted_, structure_type, type);
    put(formatted_, structure_length, formatted_.size());
}

SmbiosStructure& SmbiosStructure::string(uint8_t offset, std::string_view text) {
    if (text.empty()) return byte(offset, 0);
    strings_.emplace_back(text);
    return byte(offset, static_cast<uint8_t>(strings_.size()));
}

SmbiosStructure& SmbiosStructure::length(uint8_t length) {
    formatted_.resize(std::max<std::size_t>(length, header_size));
    put(formatted_, structure_length, formatted_.size());
    return *this;
}

SmbiosStructure& SmbiosStructure::number(uint8_t offset, std::size_t width, uint64_t value) {
    put(formatted_, {offset, width}, value);
    return *this;
}

Bytes SmbiosStructure::bytes() const {
    Bytes all = formatted_;
    for (const std::string& text : strings_) {
        append(all, text_bytes(text));
        all.push_back(0);
    }
    if (strings_.empty()) all.push_back(0);
    all.push_back(0);
    return all;
}

// ---- MemoryDeviceImage

MemoryDeviceImage::MemoryDeviceImage() : structure_(memory_device_type, memory_device_length) {
    memory_error_information_handle(no_error_information)
        .form_factor(unknown)
        .memory_type(unknown)
        .memory_technology(unknown);
}

MemoryDeviceImage& MemoryDeviceImage::length(uint8_t length) {
    structure_.length(length);
    return *this;
}

MemoryDeviceImage& MemoryDeviceImage::byte(uint8_t offset, uint8_t value) {
    structure_.byte(offset, value);
    return *this;
}

MemoryDeviceImage& MemoryDeviceImage::word(uint8_t offset, uint16_t value) {
    structure_.word(offset, value);
    return *this;
}

MemoryDeviceImage& MemoryDeviceImage::dword(uint8_t offset, uint32_t value) {
    structure_.dword(offset, value);
    return *this;
}

MemoryDeviceImage& MemoryDeviceImage::qword(uint8_t offset, uint64_t value) {
    structure_.qword(offset, value);
    return *this;
}

MemoryDeviceImage& MemoryDeviceImage::string(uint8_t offset, std::string_view text) {
    structure_.string(offset, text);
    return *this;
}

// ---- SmbiosImage

SmbiosImage& SmbiosImage::bios(std::string_view vendor, std::string_view version, std::string_view release_date) {
    SmbiosStructure structure(0, 0x18);  // SMBIOS 2.4
    structure.string(0x04, vendor).string(0x05, version).string(0x08, release_date);
    return add(structure);
}

SmbiosImage& SmbiosImage::system(std::string_view maker, std::string_view product, std::string_view serial) {
    SmbiosStructure structure(1, 0x1B);  // SMBIOS 2.4
    structure.string(0x04, maker).string(0x05, product).string(0x07, serial);
    return add(structure);
}

SmbiosImage& SmbiosImage::baseboard(std::string_view maker, std::string_view product, std::string_view serial) {
    constexpr uint8_t hosting_board = 0x01;
    constexpr uint8_t motherboard = 0x0A;
    SmbiosStructure structure(2, 0x0F);
    structure.string(0x04, maker).string(0x05, product).string(0x07, serial);
    structure.byte(0x09, hosting_board).byte(0x0D, motherboard);
    return add(structure);
}

SmbiosImage& SmbiosImage::chassis(std::string_view maker, std::string_view serial, std::string_view asset_tag) {
    constexpr uint8_t rack_mount = 0x17;
    constexpr uint8_t safe = 0x03;
    SmbiosStructure structure(3, 0x15);  // SMBIOS 2.3, no contained elements
    structure.byte(0x05, rack_mount).string(0x04, maker).string(0x07, serial).string(0x08, asset_tag);
    structure.byte(0x09, safe).byte(0x0A, safe).byte(0x0B, safe).byte(0x0C, safe);
    return add(structure);
}

SmbiosImage& SmbiosImage::processor(std::string_view socket, std::string_view maker, std::string_view version) {
    constexpr uint8_t central_processor = 0x03;
    constexpr uint8_t populated_enabled = 0x41;
    constexpr uint16_t no_cache = 0xFFFF;
    SmbiosStructure structure(4, 0x20);  // SMBIOS 2.1
    structure.string(0x04, socket).string(0x07, maker).string(0x10, version);
    structure.byte(0x05, central_processor).byte(0x06, unknown).byte(0x18, populated_enabled).byte(0x19, unknown);
    structure.word(0x1A, no_cache).word(0x1C, no_cache).word(0x1E, no_cache);
    return add(structure);
}

SmbiosImage& SmbiosImage::memory_array(uint16_t devices, uint32_t capacity_in_kilobytes) {
    constexpr uint8_t on_system_board = 0x03;
    constexpr uint8_t system_memory = 0x03;
    constexpr uint8_t multi_bit_ecc = 0x06;
    SmbiosStructure structure(memory_array_type, 0x0F);  // SMBIOS 2.1
    structure.byte(0x04, on_system_board).byte(0x05, system_memory).byte(0x06, multi_bit_ecc);
    structure.dword(0x07, capacity_in_kilobytes).word(0x0B, no_error_information).word(0x0D, devices);
    add(structure);
    memory_array_handle_ = latest_handle_;
    return *this;
}

SmbiosImage& SmbiosImage::memory_device(MemoryDeviceImage device) {
    return add(device.physical_memory_array_handle(memory_array_handle_).structure());
}

SmbiosImage& SmbiosImage::add(SmbiosStructure structure) {
    structure.word(static_cast<uint8_t>(structure_handle.offset), ++latest_handle_);
    return raw(structure.bytes());
}

SmbiosImage& SmbiosImage::raw(std::span<const uint8_t> bytes) {
    append(structures_, bytes);
    return *this;
}

Bytes SmbiosImage::table() const {
    SmbiosStructure end(end_of_table_type, header_size);
    end.word(static_cast<uint8_t>(structure_handle.offset), static_cast<uint16_t>(latest_handle_ + 1));
    return SmbiosImage(*this).raw(end.bytes()).structures_;
}

Bytes SmbiosImage::file() const {
    const Bytes structures = table();
    Bytes all(dumped_table_offset);
    std::copy(entry_point_64.anchor.begin(), entry_point_64.anchor.end(), all.begin());
    put(all, entry_point_64.length, entry_point_64.size);
    put(all, entry_point_64_major, 3);
    put(all, entry_point_64_minor, 7);
    put(all, entry_point_64_revision, 1);
    put(all, entry_point_64.table_size, structures.size());
    put(all, entry_point_64.table_address, dumped_table_offset);
    put(all, entry_point_64.checksum, zero_checksum(all));
    append(all, structures);
    return all;
}

// ---- parser

ParsedSmbiosTable::ParsedSmbiosTable(std::span<const uint8_t> table) : bytes_(table.begin(), table.end()) {
    std::span<const uint8_t> rest = bytes_;
    while (const auto size = structure_size(rest)) {
        add(rest.data());
        if (number(rest, structure_type) == end_of_table_type) return;
        rest = rest.subspan(*size);
    }
}

void ParsedSmbiosTable::add(const uint8_t* structure) {
    SmbiosTypeGroup& group = group_of(structure[structure_type.offset]);
    if (group.count == UINT8_MAX) return;
    SmbiosEntry& entry = entries_.emplace_back(SmbiosEntry{structure, nullptr});
    SmbiosEntry*& latest = latest_[group.type];
    (latest != nullptr ? latest->next : group.entries) = &entry;
    latest = &entry;
    ++group.count;
}

SmbiosTypeGroup& ParsedSmbiosTable::group_of(uint8_t type) {
    const auto known = std::find_if(groups_.begin(), groups_.end(),
                                    [type](const SmbiosTypeGroup& group) { return group.type == type; });
    if (known != groups_.end()) return *known;
    SmbiosTypeGroup& group = groups_.emplace_back(SmbiosTypeGroup{type, 0, nullptr, nullptr});
    (groups_.size() == 1 ? table_.groups : std::prev(groups_.end(), 2)->next) = &group;
    return group;
}

std::unique_ptr<ParsedSmbiosTable> parse_smbios_table(std::span<const uint8_t> bytes) {
    auto table = std::make_unique<ParsedSmbiosTable>(table_in(bytes));
    if (table->get()->groups == nullptr) return nullptr;
    return table;
}

}  // namespace vpdd::images
