// SPDX-License-Identifier: Apache-2.0
#include "cli/fru_contents.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>

#include "cli/display_text.h"

namespace vpdd::cli {

namespace {

struct Free {
    void operator()(void* block) const { std::free(block); }
};

// Common header (section 8): format version, then the offsets of the areas in units of 8 bytes.
constexpr std::size_t header_format = 0;
constexpr std::size_t header_internal_use = 1;
constexpr std::size_t header_chassis = 2;
constexpr std::size_t header_board = 3;
constexpr std::size_t header_product = 4;
constexpr std::size_t header_multirecord = 5;
constexpr std::size_t unit = 8;

// Start of an information area (sections 10 to 12): format version, length in units, chassis type or language code.
constexpr std::size_t area_length = 1;
constexpr std::size_t area_kind = 2;
constexpr std::size_t board_date = 3;
constexpr std::size_t chassis_first_field = 3;
constexpr std::size_t board_first_field = 6;
constexpr std::size_t product_first_field = 3;

constexpr uint8_t format_bits = 0x0F;
constexpr uint8_t known_format = 1;
constexpr uint8_t end_of_fields = 0xC1;
constexpr uint8_t length_bits = 0x3F;

// Multirecord header (section 16.1): type, format version and end of list, length, record checksum, header checksum.
constexpr std::size_t record_header_size = 5;
constexpr std::size_t record_format = 1;
constexpr std::size_t record_length = 2;
constexpr std::size_t record_checksum = 3;
constexpr uint8_t end_of_list = 0x80;
constexpr uint8_t oem_processor_type = 0xC0;

// An area begins at most 255 units into the image, is at most 255 units long and ends with a field of at most 63 bytes.
constexpr std::size_t padding = std::size_t{2} * 255 * unit + 64;

using FieldNames = std::span<const char* const>;
constexpr auto chassis_fields = std::to_array<const char*>({"PartNumber", "SerialNumber"});
constexpr auto board_fields =
    std::to_array<const char*>({"Manufacturer", "ProductName", "SerialNumber", "PartNumber", "FruFileId"});
constexpr auto product_fields = std::to_array<const char*>(
    {"Manufacturer", "ProductName", "PartNumber", "Version", "SerialNumber", "AssetTag", "FruFileId"});

/// The image with zeros behind it, because the library's decoders do not know where it ends.
class PaddedImage {
public:
    explicit PaddedImage(std::span<const uint8_t> image) : bytes_(image.begin(), image.end()), size_(image.size()) {
        bytes_.resize(size_ + padding);
    }

    std::size_t size() const { return size_; }
    const uint8_t* at(std::size_t offset) const { return bytes_.data() + offset; }
    std::size_t offset_of(const uint8_t* position) const { return static_cast<std::size_t>(position - bytes_.data()); }

    /// The bytes of a range that the image really has.
    std::span<const uint8_t> present(std::size_t offset, std::size_t length) const {
        const std::size_t first = std::min(offset, size_);
        return {bytes_.data() + first, std::min(length, size_ - first)};
    }

    AreaChecksum checksum(std::size_t offset, std::size_t length) const {
        if (offset + length > size_) return AreaChecksum::cut_off;
        const int sum = ipmi_fru_get_checksum(at(offset), static_cast<int32_t>(length));
        return length > 0 && sum == 0 ? AreaChecksum::right : AreaChecksum::wrong;
    }

private:
    std::vector<uint8_t> bytes_;
    std::size_t size_;
};

/// Section 13: two digits a byte, the high one first.
std::string bcd_plus_text(std::span<const uint8_t> bytes) {
    std::string text;
    for (const uint8_t byte : bytes) text += {fru_bcd_array[byte >> 4U], fru_bcd_array[byte & 0x0FU]};
    return text;
}

/// Section 13: four characters in three bytes, the first in the lowest bits; 0 is a blank.
std::string six_bit_text(std::span<const uint8_t> bytes) {
    std::string text;
    uint32_t bits = 0;
    unsigned available = 0;
    for (const uint8_t byte : bytes) {
        bits |= static_cast<uint32_t>(byte) << available;
        for (available += 8; available >= 6; available -= 6, bits >>= 6U)
            text += static_cast<char>(' ' + (bits & 0x3FU));
    }
    return text;
}

std::string latin_1_to_utf8(const std::string& text) {
    std::string converted;
    for (const char character : text) {
        const auto byte = static_cast<uint8_t>(character);
        if (byte < 0x80) {
            converted += character;
        } else {
            converted += {static_cast<char>(0xC0U | byte >> 6U), static_cast<char>(0x80U | (byte & 0x3FU))};
        }
    }
    return converted;
}

/// Text whose language is English is Latin 1 by the standard; many makers write UTF-8 all the same.
/// Zeros at its end are padding.
std::string plain_text(std::span<const uint8_t> bytes) {
    std::string text(bytes.begin(), bytes.end());
    text.erase(text.find_last_not_of('\0') + 1);
    return is_utf8(text) ? text : latin_1_to_utf8(text);
}

std::string standard_value(FieldEncoding encoding, std::span<const uint8_t> bytes) {
    switch (encoding) {
        case FieldEncoding::binary:
            return hex_bytes(bytes);
        case FieldEncoding::bcd_plus:
            return bcd_plus_text(bytes);
        case FieldEncoding::six_bit:
            return six_bit_text(bytes);
        case FieldEncoding::text:
            break;
    }
    return plain_text(bytes);
}

FruText field_from(const PaddedImage& image, const uint8_t* position, const FruField& field) {
    const std::size_t stated_length = *position & length_bits;
    const std::span<const uint8_t> stored = image.present(image.offset_of(position) + 1, stated_length);
    FruText text;
    text.encoding = static_cast<FieldEncoding>(*position >> 6U);
    text.stored.assign(stored.begin(), stored.end());
    text.cut_off = stored.size() < stated_length;
    text.value = standard_value(text.encoding, stored);
    if (field.data == nullptr) return text;
    text.library_value.assign(reinterpret_cast<const char*>(field.data),
                              std::min<std::size_t>(field.length, stored.size()));
    return text;
}

void read_fields(const PaddedImage& image, FruArea& area, std::size_t first_field, FieldNames names) {
    const std::size_t area_end = area.length == 0 ? image.size() : area.offset + area.length;
    const std::size_t end_offset = std::min(area_end, image.size());
    const uint8_t* const end = image.at(end_offset);
    const uint8_t* position = image.at(area.offset + first_field);
    while (position != nullptr && position < end) {
        area.fields_end = *position == end_of_fields;
        if (area.fields_end) return;
        FruField field{};
        const uint8_t* next = nullptr;
        if (fru_tlv2raw(position, &field, &next, end) != 0) return;
        const std::unique_ptr<uint8_t, Free> owner(field.data);
        FruText text = field_from(image, position, field);
        text.name = area.fields.size() < names.size() ? names[area.fields.size()] : custom_field_name;
        area.fields.push_back(std::move(text));
        position = next;
    }
}

/// Where the header says that an area begins; nothing when there is none, or it would begin behind the image.
std::optional<std::size_t> stated_offset(const PaddedImage& image, std::size_t header_byte, const char* name,
                                         FruContents& contents) {
    const std::size_t offset = *image.at(header_byte) * unit;
    if (offset == 0) return std::nullopt;
    if (offset < image.size()) return offset;
    contents.faults.push_back(std::string(name) + " at byte " + std::to_string(offset) + ": the image ends before it");
    return std::nullopt;
}

void note_unseen(const char* name, std::size_t offset, FruContents& contents) {
    contents.notes.push_back(std::string(name) + ": begins at byte " + std::to_string(offset) +
                             ", beyond the library's limit: the component cache ignores it");
}

void note_area(const char* name, const FruArea& area, FruContents& contents) {
    const auto complain = [&](const std::string& text) { contents.faults.push_back(std::string(name) + ": " + text); };
    if (!area.read_by_library) note_unseen(name, area.offset, contents);
    if ((area.format_version & format_bits) != known_format) {
        complain("unknown format version " + std::to_string(area.format_version & format_bits));
    }
    if (area.length == 0) complain("states a length of 0");
    if (area.checksum == AreaChecksum::cut_off) complain("the image ends inside it");
    if (area.checksum == AreaChecksum::wrong) complain("wrong checksum");
    if (!area.fields_end && area.checksum != AreaChecksum::cut_off) complain("no end marker behind its fields");
}

std::optional<FruArea> read_area(const PaddedImage& image, std::size_t header_byte, const char* name,
                                 const uint8_t* found_by_library, std::size_t first_field, FieldNames names,
                                 FruContents& contents) {
    const std::optional<std::size_t> offset = stated_offset(image, header_byte, name, contents);
    if (!offset) return std::nullopt;
    FruArea area;
    area.offset = *offset;
    area.read_by_library = found_by_library != nullptr;
    area.format_version = *image.at(*offset);
    area.length = *image.at(*offset + area_length) * unit;
    area.kind = *image.at(*offset + area_kind);
    area.checksum = image.checksum(area.offset, area.length);
    read_fields(image, area, first_field, names);
    note_area(name, area, contents);
    return area;
}

std::optional<BoardDate> read_board_date(const PaddedImage& image, const FruArea& board) {
    const uint8_t* bytes = image.at(board.offset + board_date);
    if (board.offset + board_date + 3 > image.size()) return std::nullopt;
    int year = 0;
    int month = 0;
    int day = 0;
    fru_minutes_to_date(bytes, &year, &month, &day);
    char text[40];
    std::snprintf(text, sizeof text, "%d-%02d-%02d", year, month, day);
    return BoardDate{bytes[0] | static_cast<uint32_t>(bytes[1]) << 8U | static_cast<uint32_t>(bytes[2]) << 16U, text};
}

FruMultirecord read_multirecord(const PaddedImage& image, std::size_t offset) {
    const uint8_t* header = image.at(offset);
    FruMultirecord record;
    record.offset = offset;
    record.type = header[0];
    record.format_version = header[record_format] & format_bits;
    record.ends_list = (header[record_format] & end_of_list) != 0;
    record.length = header[record_length];
    record.header_right = ipmi_fru_get_checksum(header, record_header_size) == 0;

    const std::size_t content = offset + record_header_size;
    const std::span<const uint8_t> present = image.present(content, record.length);
    record.content.assign(present.begin(), present.end());
    if (present.size() < record.length) {
        record.checksum = AreaChecksum::cut_off;
        return record;
    }
    const int sum = ipmi_fru_get_checksum(image.at(content), static_cast<int32_t>(record.length));
    const bool right = ((sum + header[record_checksum]) & 0xFF) == 0;
    record.checksum = right ? AreaChecksum::right : AreaChecksum::wrong;

    OemCpuRecord processor{};
    if (record.type != oem_processor_type || !right) return record;
    if (process_zelt_oem_cpu_rec(image.at(content), static_cast<uint32_t>(record.length), &processor) == 0) {
        record.oem_processor = processor;
    }
    return record;
}

void note_multirecord(const FruMultirecord& record, FruContents& contents) {
    const auto complain = [&](const std::string& text) {
        contents.faults.push_back("Multirecord at byte " + std::to_string(record.offset) + ": " + text);
    };
    if (!record.header_right) complain("wrong header checksum; the list cannot be followed further");
    if (record.checksum == AreaChecksum::wrong) complain("wrong record checksum");
    if (record.checksum == AreaChecksum::cut_off) complain("the image ends inside it");
}

/// Its sums are right, but it is no record: the library ends its walk there, too.
bool is_blank_header(const uint8_t* header) {
    return std::all_of(header, header + record_header_size, [](uint8_t byte) { return byte == 0; });
}

void read_multirecords(const PaddedImage& image, bool found_by_library, FruContents& contents) {
    const auto first = stated_offset(image, header_multirecord, "Multirecord area", contents);
    if (!first) return;
    contents.multirecords_read_by_library = found_by_library;
    if (!found_by_library) note_unseen("Multirecord area", *first, contents);
    std::size_t offset = *first;
    while (offset + record_header_size <= image.size()) {
        if (is_blank_header(image.at(offset))) {
            contents.faults.push_back("Multirecord area: no end mark before the blank record at byte " +
                                      std::to_string(offset));
            return;
        }
        const FruMultirecord record = read_multirecord(image, offset);
        contents.multirecords.push_back(record);
        note_multirecord(record, contents);
        if (record.ends_list || !record.header_right) return;
        offset += record_header_size + record.length;
    }
    contents.faults.emplace_back("Multirecord area: the image ends before the last record");
}

}  // namespace

bool looks_like_fru(std::span<const uint8_t> image) {
    const bool known = (image[header_format] & format_bits) == known_format;
    return known || ipmi_fru_get_checksum(image.data(), fru_common_header_size) == 0;
}

FruContents take_apart(std::span<const uint8_t> bytes) {
    const PaddedImage image(bytes);
    FruAreaPointers found{};
    parse_fru_header(image.at(0), &found);

    FruContents contents;
    contents.size = bytes.size();
    contents.format_version = bytes[header_format] & format_bits;
    contents.header_right = ipmi_fru_get_checksum(image.at(0), fru_common_header_size) == 0;
    if (!contents.header_right) contents.faults.emplace_back("Common header: wrong checksum");
    if (contents.format_version != known_format) {
        contents.faults.push_back("Common header: unknown format version " + std::to_string(contents.format_version));
    }
    contents.internal_use = stated_offset(image, header_internal_use, "Internal use area", contents);
    contents.chassis =
        read_area(image, header_chassis, "Chassis area", found.chassis, chassis_first_field, chassis_fields, contents);
    contents.board =
        read_area(image, header_board, "Board area", found.board, board_first_field, board_fields, contents);
    contents.product =
        read_area(image, header_product, "Product area", found.product, product_first_field, product_fields, contents);
    if (contents.board) contents.board_date = read_board_date(image, *contents.board);
    read_multirecords(image, found.multirecord != nullptr, contents);
    return contents;
}

std::string field_value(const FruArea& area, const std::string& name) {
    for (const FruText& field : area.fields) {
        if (field.name == name) return field.value;
    }
    return {};
}

std::vector<std::string> custom_values(const FruArea& area) {
    std::vector<std::string> values;
    for (const FruText& field : area.fields) {
        if (field.name == custom_field_name) values.push_back(field.value);
    }
    return values;
}

}  // namespace vpdd::cli
