// SPDX-License-Identifier: Apache-2.0
// The steps that both handlers of whole images share. None of them clears what it cannot fill.
#pragma once

#include "orva_vpdd.h"

namespace vpdd::spd {

/// Where a layout has what identifies a module.
struct IdentityBytes {
    unsigned serial_number;
    unsigned week;
    unsigned year;
    unsigned end_user_part;
};

/// False after logging which of the two is null.
bool has_image_and_record(const char* function, const uint8_t* spd, const SpdInfo* record);

void fill_module_type(const uint8_t* spd, uint32_t length, SpdInfo& record);

/// Also logs the serial number.
void fill_serial_and_date(const char* function, const uint8_t* spd, const IdentityBytes& bytes, SpdInfo& record);

/// Name and id word of the module's maker.
void fill_maker(const uint8_t* spd, uint32_t length, SpdInfo& record);

/// The device type's name, unless record's maker makes the NVDIMM persistent memory: then that, and its flag.
void fill_device_type(const uint8_t* spd, const char* type_name, uint32_t persistent_memory_flag, SpdInfo& record);

void fill_end_user_part(const uint8_t* spd, const IdentityBytes& bytes, SpdInfo& record);

}  // namespace vpdd::spd
