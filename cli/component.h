// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string>
#include <vector>

#include "cli/json_output.h"
#include "orva_vpdd.h"

namespace vpdd::cli {

/// What identifies a component to people. A memory module keeps these values in its SPD, everything else in its FRU.
struct Identity {
    std::string manufacturer;
    std::string part_number;
    std::string serial_number;
    std::string manufactured;
};

Identity identity(const ComponentVpdRecord& record);

/// "Processor 2": entity and instance.
std::string entity_text(const ComponentVpdRecord& record);

/// The record carries a decoded OEM processor record.
bool has_oem_processor_record(const ComponentVpdRecord& record);
/// Its texts that are not empty.
std::vector<std::string> oem_processor_texts(const OemCpuRecord& record);
/// Its bytes at the end.
std::span<const uint8_t> oem_processor_bytes(const OemCpuRecord& record);
/// Logical processors of a processor, 0 where it does not say.
uint32_t logical_processors(const ComponentVpdRecord& record);

/// Every property of a component that has a value.
Json component_json(const ComponentVpdRecord& record);

}  // namespace vpdd::cli
