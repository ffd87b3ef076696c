// SPDX-License-Identifier: Apache-2.0
#include "cli/fru_diagnosis.h"

#include <algorithm>
#include <vector>

#include "cli/display_text.h"
#include "cli/entity_names.h"
#include "cli/spd_layout.h"

namespace vpdd::cli {

namespace {

constexpr uint32_t processor_cartridge_format = 3;
constexpr uint32_t chunk_size = 128;

// What is looked at in an image: a common header, or the bytes of an SPD image that its checksum covers.
constexpr std::size_t smallest_image = 512;
constexpr uint32_t crc_covered_size = 224;  ///< what the cache hands to the check

/// Completion code 0xCB is the only one that the library tells apart.
std::string failure_text(int result, const std::string& otherwise) {
    return result == VPDD_IPMI_NOT_PRESENT ? "not present (completion code 0xCB)" : otherwise;
}

std::string why_areas_not_decoded(const std::vector<uint8_t>& image) {
    FruAreaPointers areas{};
    parse_fru_header(image.data(), &areas);
    const bool any =
        areas.chassis != nullptr || areas.board != nullptr || areas.product != nullptr || areas.multirecord != nullptr;
    return any ? "this kind of FRU device is not decoded" : "no chassis, board, product or multirecord area";
}

}  // namespace

bool ends_cache_creation(std::span<const uint8_t> image) {
    // JESD400-5, byte 0, bits 6-4: bytes in the device; 0 is undefined.
    constexpr uint8_t total_size_bits = 0x70;
    return image[spd_memory_type] == memory_ddr5 && (image[0] & total_size_bits) == 0;
}

std::string why_module_not_decoded(std::span<const uint8_t> image) {
    const uint8_t memory_type = image[spd_memory_type];
    switch (memory_type) {
        case memory_ddr3: {
            const int32_t stored = stored_crc(image);
            const int result = check_spd_crc(image.data(), crc_covered_size, &stored);
            return result == 1 ? "" : "wrong SPD checksum";
        }
        case memory_ddr4:
            return "";
        case memory_nvdimm:
            if (image[0] == nvdimm_ddr4_layout || image[0] == nvdimm_ddr5_layout) return "";
            return "NVDIMM of unknown layout " + hex_number(image[0]);
        case memory_ddr5:
            return ends_cache_creation(image) ? "the image states no size (byte 0)" : "";
        default:
            return "memory type " + hex_number(memory_type) + " is not decoded";
    }
}

std::string why_unread(const ComponentVpdRecord& record) {
    if (record.vpd_format == processor_cartridge_format) return "processor cartridge format, not decoded";

    uint32_t size = 0;
    const int size_result = read_fru_size(record.fru_id, &size);
    if (size_result != 0) return failure_text(size_result, "its size cannot be read");

    // The size is two bytes on the wire; the decoders look beyond the end of a short image.
    std::vector<uint8_t> image(std::max<std::size_t>(size, smallest_image) + chunk_size);
    for (uint32_t offset = 0; offset < size; offset += chunk_size) {
        const auto count = static_cast<uint8_t>(std::min(size - offset, chunk_size));
        const int result = read_fru(record.fru_id, static_cast<uint16_t>(offset), count, image.data() + offset);
        if (result != 0) {
            const std::string place = "byte " + std::to_string(offset) + " of " + std::to_string(size);
            return failure_text(result, "reading fails at " + place);
        }
    }
    if (size == 0) return "the FRU is empty";
    if (record.entity_id != entity_memory_device) return why_areas_not_decoded(image);
    const std::string reason = why_module_not_decoded(image);
    return reason.empty() ? "the SPD image was not decoded" : reason;
}

}  // namespace vpdd::cli
