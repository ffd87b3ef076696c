// SPDX-License-Identifier: Apache-2.0
#include "host/images/fru_image.h"

#include <algorithm>
#include <stdexcept>

namespace vpdd::images {

namespace {

constexpr std::size_t unit = 8;  // areas begin at and are long a multiple of this
constexpr std::size_t header_size = 8;
constexpr uint8_t format_version = 1;
constexpr std::size_t max_field_length = 63;
constexpr uint8_t text_type = 3, six_bit_type = 2;

constexpr FruArea all_areas[] = {FruArea::internal_use, FruArea::chassis, FruArea::board, FruArea::product,
                                 FruArea::multirecord};

std::size_t rounded_up(std::size_t size) { return (size + unit - 1) / unit * unit; }

Bytes finished_area(Bytes area, const std::vector<Field>& fields, const AreaEnd& end) {
    for (const Field& field : fields) append(area, field.bytes());
    if (end.has_end_marker) area.push_back(end_of_fields);

    constexpr std::size_t length_byte = 1, checksum_size = 1;
    area.resize(rounded_up(area.size() + checksum_size));
    if (area.size() / unit > 0xFF) throw std::invalid_argument("FRU area longer than 2040 bytes");
    area[length_byte] = static_cast<uint8_t>(area.size() / unit);
    area.back() = end.checksum.value_or(zero_checksum(area));
    return area;
}

std::vector<Field> with_custom(std::vector<Field> standard, const std::vector<Field>& custom) {
    standard.insert(standard.end(), custom.begin(), custom.end());
    return standard;
}

Bytes text_data(std::string_view text) {
    Bytes data = text_bytes(text);
    if (data.size() == 1) data.push_back(' ');
    return data;
}

}  // namespace

Field::Field(uint8_t type_length, const Bytes& data) : bytes_{type_length} { append(bytes_, data); }

Field Field::typed(uint8_t type, const Bytes& data) {
    if (data.size() > max_field_length) throw std::invalid_argument("FRU field longer than 63 bytes");
    return Field(static_cast<uint8_t>(type << 6 | data.size()), data);
}

Field::Field(std::string_view text) : Field(typed(text_type, text_data(text))) {}

Field Field::six_bit(std::string_view text) {
    // Four characters to three bytes, the first in the low bits (FRU 13.3).
    Bytes packed((text.size() * 6 + 7) / 8);
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] < ' ' || text[i] > '_') throw std::invalid_argument("character outside 6-bit ASCII");
        const std::size_t bit = i * 6;
        const unsigned code = static_cast<unsigned>(text[i] - ' ') << bit % 8;
        packed[bit / 8] |= static_cast<uint8_t>(code);
        if (bit % 8 > 2) packed[bit / 8 + 1] |= static_cast<uint8_t>(code >> 8);
    }
    return typed(six_bit_type, packed);
}

Bytes Multirecord::bytes(bool last_of_list) const {
    if (data.size() > 0xFF) throw std::invalid_argument("multirecord longer than 255 bytes");
    constexpr uint8_t end_of_list = 0x80;
    const bool ends = is_last.value_or(last_of_list);
    Bytes record{type, static_cast<uint8_t>(version | (ends ? end_of_list : 0)), static_cast<uint8_t>(data.size()),
                 record_checksum.value_or(zero_checksum(data))};
    record.push_back(header_checksum.value_or(zero_checksum(record)));
    append(record, data);
    return record;
}

Bytes OemProcessor::data() const {
    Bytes data{static_cast<uint8_t>(iana), static_cast<uint8_t>(iana >> 8), static_cast<uint8_t>(iana >> 16)};
    append(data, index.bytes());
    for (const Field& text : texts) append(data, text.bytes());
    append(data, raw.bytes());
    append(data, trailing);
    return data;
}

std::vector<Field> power_supply_versions(const Bytes& primary, const Bytes& secondary) {
    return {Field::bcd_plus(primary), Field::bcd_plus(secondary)};
}

FruImage& FruImage::internal_use(const Bytes& data) {
    Bytes area{format_version};
    append(area, data);
    area.resize(rounded_up(area.size()));
    return raw_area(FruArea::internal_use, area);
}

FruImage& FruImage::chassis(const ChassisArea& area) {
    const auto fields = with_custom({area.part, area.serial}, area.custom);
    return raw_area(FruArea::chassis, finished_area({format_version, 0, area.type}, fields, area.end));
}

FruImage& FruImage::board(const BoardArea& area) {
    const auto fields =
        with_custom({area.manufacturer, area.product, area.serial, area.part, area.file_id}, area.custom);
    const Bytes head{format_version,
                     0,
                     area.language,
                     static_cast<uint8_t>(area.date),
                     static_cast<uint8_t>(area.date >> 8),
                     static_cast<uint8_t>(area.date >> 16)};
    return raw_area(FruArea::board, finished_area(head, fields, area.end));
}

FruImage& FruImage::product(const ProductArea& area) {
    const auto fields =
        with_custom({area.manufacturer, area.name, area.part, area.version, area.serial, area.asset_tag, area.file_id},
                    area.custom);
    return raw_area(FruArea::product, finished_area({format_version, 0, area.language}, fields, area.end));
}

FruImage& FruImage::multirecord(const Multirecord& record) {
    multirecords_.push_back(record);
    return *this;
}

FruImage& FruImage::raw_area(FruArea area, const Bytes& bytes) {
    areas_[area] = bytes;
    return *this;
}

FruImage& FruImage::area_offset(FruArea area, uint8_t offset) {
    offsets_[area] = offset;
    return *this;
}

FruImage& FruImage::header_byte(std::size_t index, uint8_t value) {
    header_bytes_[index] = value;
    return *this;
}

FruImage& FruImage::header_checksum(uint8_t value) {
    header_checksum_ = value;
    return *this;
}

FruImage& FruImage::padded_to(std::size_t size) {
    size_ = size;
    return *this;
}

FruImage& FruImage::byte(std::size_t offset, uint8_t value) {
    patches_[offset] = value;
    return *this;
}

Bytes FruImage::multirecord_area() const {
    Bytes area;
    for (const Multirecord& record : multirecords_) append(area, record.bytes(&record == &multirecords_.back()));
    return area;
}

Bytes FruImage::area_bytes(FruArea area) const {
    if (const auto found = areas_.find(area); found != areas_.end()) return found->second;
    return area == FruArea::multirecord ? multirecord_area() : Bytes{};
}

Bytes FruImage::build() const {
    Bytes image(header_size);
    image[0] = format_version;
    for (const FruArea area : all_areas) {
        const Bytes bytes = area_bytes(area);
        if (bytes.empty()) continue;
        const auto wanted = offsets_.find(area);
        const std::size_t position = wanted != offsets_.end() ? wanted->second * unit : rounded_up(image.size());
        if (position / unit > 0xFF) throw std::invalid_argument("FRU area beyond byte 2040");
        image.resize(std::max(image.size(), position + bytes.size()));
        std::copy(bytes.begin(), bytes.end(), image.begin() + static_cast<std::ptrdiff_t>(position));
        image[static_cast<std::size_t>(area)] = static_cast<uint8_t>(position / unit);
    }
    image.resize(std::max(rounded_up(image.size()), size_));

    constexpr std::size_t checksum_byte = header_size - 1;
    for (const auto& [index, value] : header_bytes_) image.at(index) = value;
    image[checksum_byte] = 0;
    image[checksum_byte] = header_checksum_.value_or(zero_checksum(std::span(image).first(checksum_byte)));
    for (const auto& [offset, value] : patches_) image.at(offset) = value;
    return image;
}

}  // namespace vpdd::images
