// SPDX-License-Identifier: Apache-2.0
// What the record of a memory module says, in the units that people use.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "cli/json_output.h"
#include "orva_vpdd.h"

namespace vpdd::cli {

/// The record holds a decoded SPD image.
bool is_decoded(const SpdInfo& spd);
/// The library turns any week and year into a date.
bool has_manufacture_date(const SpdInfo& spd);

std::optional<uint64_t> capacity_mib(const SpdInfo& spd);
/// "16 GiB", "512 MiB"
std::string capacity_text(uint64_t mib);

/// Transfers per second in millions, as the module's speed class names them.
std::optional<uint32_t> data_rate(const SpdInfo& spd);

/// What the cache does not keep of every generation is empty.
struct Geometry {
    std::optional<uint32_t> ranks;
    std::optional<uint32_t> data_width;  ///< bits; DDR5: of a sub-channel
};

/// As the component cache has it: nothing of a DDR3 module.
Geometry geometry_of(const SpdInfo& spd);
/// As the image of the module has it, which is at least 512 bytes long.
Geometry geometry_of(const SpdInfo& spd, std::span<const uint8_t> image);

/// The module's own four bytes, 8 hex digits.
std::string module_serial_number(const SpdInfo& spd);
/// Manufacturing location, 2 hex digits; empty where the record has none (DDR3).
std::string manufacturing_location(const SpdInfo& spd);

/// Supported CAS latencies in ascending order.
std::vector<uint32_t> cas_latencies(const SpdInfo& spd);

/// "DDR5 RDIMM"
std::string type_text(const SpdInfo& spd);
/// "8 bit" or "none"
std::string ecc_text(const SpdInfo& spd);

enum class Agreement { agrees, differs, unknown };

/// The host's SMBIOS table beside the module's SPD. A value that SMBIOS leaves open is empty.
struct SmbiosCheck {
    Agreement size = Agreement::unknown;
    Agreement speed = Agreement::unknown;
    Agreement configured_speed = Agreement::unknown;
    std::optional<uint64_t> size_mib;
    std::optional<uint32_t> speed_mts;
    std::optional<uint32_t> configured_speed_mts;
    bool size_is_extended = false;  ///< 32 GiB or more: kept in a field that the library does not read
};

SmbiosCheck compare_with_smbios(const SpdInfo& spd);
/// One cell of a table: "agrees", "unknown", or what does not agree. An extended size that the module may have is not
/// mentioned.
std::string smbios_text(const SmbiosCheck& check);

/// The properties of the decoded SPD image, without the identity that every component has.
void add_module_properties(Json& object, const SpdInfo& spd, const Geometry& geometry);
Json smbios_json(const SmbiosCheck& check);
/// Every field of the record as it stands, under its own name.
Json raw_record_json(const SpdInfo& spd);

}  // namespace vpdd::cli
