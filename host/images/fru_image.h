// SPDX-License-Identifier: Apache-2.0
// Builds FRU images as the IPMI Platform Management FRU Information Storage Definition v1.0 lays them out. Everything
// is right by default; every detail can be made wrong on purpose.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/images/bytes.h"

namespace vpdd::images {

/// A type/length field (FRU 13). A plain text becomes 8-bit ASCII.
class Field {
public:
    Field() : Field(std::string_view{}) {}
    /// At most 63 characters. A single character gets a blank behind it: alone its type/length byte would read 0xC1.
    Field(std::string_view text);  // NOLINT(google-explicit-constructor): a field is written as its text
    Field(const std::string& text) : Field(std::string_view(text)) {}  // NOLINT(google-explicit-constructor)
    Field(const char* text) : Field(std::string_view(text)) {}         // NOLINT(google-explicit-constructor)

    static Field binary(const Bytes& data) { return typed(0, data); }
    static Field bcd_plus(const Bytes& data) { return typed(1, data); }
    /// 6-bit ASCII, packed; characters from ' ' to '_'.
    static Field six_bit(std::string_view text);
    /// Any type/length byte with any data behind it.
    static Field raw(uint8_t type_length, const Bytes& data) { return Field(type_length, data); }

    /// Type/length byte and data.
    const Bytes& bytes() const { return bytes_; }

private:
    Field(uint8_t type_length, const Bytes& data);
    static Field typed(uint8_t type, const Bytes& data);

    Bytes bytes_;
};

constexpr uint8_t end_of_fields = 0xC1;
constexpr uint8_t english = 25;

/// How the field areas end.
struct AreaEnd {
    bool has_end_marker = true;
    std::optional<uint8_t> checksum{};  ///< instead of the right one
};

/// FRU 10.
struct ChassisArea {
    uint8_t type = 0x17;  ///< SMBIOS chassis type; rack mount
    Field part{}, serial{};
    std::vector<Field> custom{};
    AreaEnd end{};
};

/// FRU 11.
struct BoardArea {
    Field manufacturer{}, product{}, serial{}, part{}, file_id{};
    std::vector<Field> custom{};
    uint32_t date = 0;  ///< minutes since 1996-01-01 00:00, 24 bits
    uint8_t language = english;
    AreaEnd end{};
};

/// FRU 12.
struct ProductArea {
    Field manufacturer{}, name{}, part{}, version{}, serial{}, asset_tag{}, file_id{};
    std::vector<Field> custom{};
    uint8_t language = english;
    AreaEnd end{};
};

/// FRU 16.
struct Multirecord {
    uint8_t type;
    Bytes data;
    uint8_t version = 2;
    std::optional<bool> is_last{};             ///< else only the last one of the image is
    std::optional<uint8_t> record_checksum{};  ///< instead of the right one
    std::optional<uint8_t> header_checksum{};  ///< instead of the right one

    /// Header and data.
    Bytes bytes(bool last_of_list) const;
};

/// Data of the maker's OEM processor multirecord, type 0xC0.
struct OemProcessor {
    static constexpr uint8_t record_type = 0xC0;

    uint32_t iana = 32473;
    Field index = Field::binary({0});
    std::array<Field, 11> texts{};
    Field raw = Field::binary({});
    Bytes trailing{};

    Bytes data() const;
};

/// The two custom fields of a power supply's product area; a byte below 16 is one character of its version.
std::vector<Field> power_supply_versions(const Bytes& primary, const Bytes& secondary);

/// The areas in the order of their offsets in the common header (FRU 8), whose byte numbers these are.
enum class FruArea : uint8_t { internal_use = 1, chassis = 2, board = 3, product = 4, multirecord = 5 };

class FruImage {
public:
    FruImage& internal_use(const Bytes& data);
    FruImage& chassis(const ChassisArea& area);
    FruImage& board(const BoardArea& area);
    FruImage& product(const ProductArea& area);
    FruImage& multirecord(const Multirecord& record);
    FruImage& multirecord(uint8_t type, const Bytes& data) { return multirecord(Multirecord{type, data}); }

    /// The whole area as given: nothing is padded or summed.
    FruImage& raw_area(FruArea area, const Bytes& bytes);
    /// Places an area at 8 x `offset`; the areas that follow come behind it.
    FruImage& area_offset(FruArea area, uint8_t offset);
    /// A byte of the common header; the header checksum is made right for it.
    FruImage& header_byte(std::size_t index, uint8_t value);
    FruImage& header_checksum(uint8_t value);
    /// Zeros behind the last area up to this size.
    FruImage& padded_to(std::size_t size);
    /// Overwrites a byte of the finished image.
    FruImage& byte(std::size_t offset, uint8_t value);

    /// @throw std::invalid_argument when an area does not fit the format
    Bytes build() const;

private:
    Bytes area_bytes(FruArea area) const;
    Bytes multirecord_area() const;

    std::map<FruArea, Bytes> areas_;
    std::vector<Multirecord> multirecords_;
    std::map<FruArea, uint8_t> offsets_;
    std::map<std::size_t, uint8_t> header_bytes_;
    std::map<std::size_t, uint8_t> patches_;
    std::optional<uint8_t> header_checksum_;
    std::size_t size_ = 0;
};

}  // namespace vpdd::images
