// SPDX-License-Identifier: Apache-2.0
// A server as the platform functions need it: images of its storage devices and tables.
#pragma once

#include <map>
#include <optional>
#include <set>

#include "host/document.h"
#include "host/property_tree.h"

namespace vpdd::host {

/// What goes wrong on purpose when a FRU is read.
struct Fault {
    std::optional<uint8_t> size_completion_code;
    std::optional<uint8_t> read_completion_code;
    uint32_t read_from = 0;  ///< first offset that the read fault concerns
};

/// A FRU inventory device.
struct Fru {
    std::optional<Bytes> image;  ///< none: the FRU is absent
    Fault fault;
    uint32_t position = 0;  ///< of its locator among the locators, from 1
};

struct SdrRecord {
    uint16_t id = 0;
    Bytes bytes;
};

struct SystemVpdImage {
    Bytes bytes;
    std::set<uint32_t> unreadable;  ///< field ids
};

struct Sensor {
    std::string name;
    uint8_t type = 0;
    uint16_t state = 0;
    std::string text;
};

struct Description {
    std::string name;
    uint32_t iana = 0;
    SystemVpdImage system_vpd;
    std::map<uint8_t, Fru> frus;
    std::vector<SdrRecord> sdr;
    Bytes smbios;
    std::vector<Sensor> sensors;
    PropertyTree properties;
};

/// @param document agrees with the schema
/// @param folder where the files stand that the document names
/// @throws DescriptionError
Description read_description(const Json& document, const std::filesystem::path& folder);

/// Nothing but one memory module, FRU 1. @throws std::length_error
Description lone_memory_module(std::span<const uint8_t> image);

}  // namespace vpdd::host
