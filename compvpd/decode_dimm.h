// SPDX-License-Identifier: Apache-2.0
// A memory module's SPD image into the record of its component. Creation and update put these steps together, each with
// its own view of a wrong checksum.
#pragma once

#include "compvpd/walk.h"

namespace vpdd {

/// Looks at what a failed read left in the image.
void note_failed_dimm_read(const FruImage& image, ComponentVpdRecord& record);

enum class DimmPath { none, ddr3, ddr4, ddr5, ddr5_without_size };

/// Clears the DIMM information and chooses the decoder; sets the run's DDR5 length where the image says it.
DimmPath begin_dimm(Run& run, const FruImage& image, ComponentVpdRecord& record);

/// Keeps the checksum that the image carries; the result of check_spd_crc() with it.
int check_stored_crc(const FruImage& image, SpdInfo& spd_info);

/// SPD byte 2.
uint8_t device_type_of(const FruImage& image);

/// Primary bus width in bits, which only an update stores for DDR3.
uint32_t ddr3_bus_width(const FruImage& image);

void log_ddr5(const Run& run, const FruImage& image);

void decode_ddr3(const Run& run, const FruImage& image, ComponentVpdRecord& record);

/// `locator_text` stands before the locator in the message about a failed look-up. False when the decoder failed.
bool decode_ddr4(const Run& run, const FruImage& image, const char* locator_text, ComponentVpdRecord& record);

/// False when the decoder failed.
bool decode_ddr5(const Run& run, const FruImage& image, ComponentVpdRecord& record);

}  // namespace vpdd
