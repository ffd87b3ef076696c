// SPDX-License-Identifier: Apache-2.0
// A saved FRU image taken apart with the library's FRU functions (IPMI Platform Management FRU Information Storage
// Definition 1.0).
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "orva_vpdd.h"

namespace vpdd::cli {

enum class AreaChecksum { right, wrong, cut_off };

enum class FieldEncoding : uint8_t { binary = 0, bcd_plus = 1, six_bit = 2, text = 3 };

struct FruText {
    std::string name;
    FieldEncoding encoding = FieldEncoding::text;
    std::vector<uint8_t> stored;  ///< the bytes in the image, as far as it has them
    std::string value;            ///< as the standard reads them, UTF-8; hexadecimal digits for binary data
    std::string library_value;    ///< as the library hands them out: one BCD digit a byte, 6-bit text still packed
    bool cut_off = false;         ///< the image ends inside the field
};

struct FruArea {
    std::size_t offset = 0;
    std::size_t length = 0;        ///< as the area states it
    bool read_by_library = false;  ///< parse_fru_header() takes areas up to a limit of its own
    AreaChecksum checksum = AreaChecksum::wrong;
    uint8_t format_version = 0;
    uint8_t kind = 0;  ///< chassis type, or language code
    std::vector<FruText> fields;
    bool fields_end = false;  ///< the end marker was found
};

struct BoardDate {
    uint32_t minutes;  ///< since 1996-01-01 00:00 UTC; 0 is unspecified
    std::string text;  ///< local date, as the library has it
};

struct FruMultirecord {
    std::size_t offset = 0;
    uint8_t type = 0;
    uint8_t format_version = 0;
    bool ends_list = false;
    bool header_right = false;
    AreaChecksum checksum = AreaChecksum::wrong;
    std::size_t length = 0;        ///< as the header states it
    std::vector<uint8_t> content;  ///< as far as the image has it
    std::optional<OemCpuRecord> oem_processor;
};

struct FruContents {
    std::size_t size = 0;
    uint8_t format_version = 0;
    bool header_right = false;
    std::optional<std::size_t> internal_use;  ///< offset
    std::optional<FruArea> chassis;
    std::optional<FruArea> board;
    std::optional<FruArea> product;
    std::optional<BoardDate> board_date;
    bool multirecords_read_by_library = false;
    std::vector<FruMultirecord> multirecords;
    std::vector<std::string> faults;  ///< what is wrong with the image, in words
    std::vector<std::string> notes;   ///< what else one should know
};

inline constexpr std::size_t fru_common_header_size = 8;

/// Whether the first bytes can be a common header: its format or its checksum is right.
bool looks_like_fru(std::span<const uint8_t> image);

/// Takes an image of at least 8 bytes apart, as far as it goes.
FruContents take_apart(std::span<const uint8_t> bytes);

/// The value of the field with this name, empty without one.
std::string field_value(const FruArea& area, const std::string& name);
/// The fields behind those that the standard names.
std::vector<std::string> custom_values(const FruArea& area);

inline constexpr const char* custom_field_name = "Custom";

}  // namespace vpdd::cli
