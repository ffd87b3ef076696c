// SPDX-License-Identifier: Apache-2.0
#include "spd/identity.h"

#include <strings.h>

#include "base/log_line.h"
#include "base/text.h"
#include "spd/spd_bytes.h"

namespace vpdd::spd {

namespace {

bool is_persistent_memory(const uint8_t* spd, const SpdInfo& record) {
    constexpr char maker[] = "Intel";
    return device_type(spd) == DeviceType::nvdimm && strncasecmp(record.mfg_id, maker, sizeof maker) == 0;
}

}  // namespace

bool has_image_and_record(const char* function, const uint8_t* spd, const SpdInfo* record) {
    if (spd == nullptr) log_spaced_line(log_info, function, "ERROR:rsp buffer is NULL");
    if (spd != nullptr && record == nullptr) log_spaced_line(log_info, function, "ERROR:spd_info is NULL");
    return spd != nullptr && record != nullptr;
}

void fill_module_type(const uint8_t* spd, uint32_t length, SpdInfo& record) {
    const char* name = nullptr;
    if (parse_module_type(spd, length, &name) != 0 || name == nullptr) return;
    assign_text(record.module_type, name);
}

void fill_serial_and_date(const char* function, const uint8_t* spd, const IdentityBytes& bytes, SpdInfo& record) {
    hex_to_string(record.serial_number, sizeof record.serial_number, spd + bytes.serial_number, serial_number_bytes);
    log_spaced_line(log_info, function, "spd_info->serial_number:[%s]", record.serial_number);
    record.mfg_week = bcd_value(spd[bytes.week]);
    record.mfg_year = bcd_value(spd[bytes.year]);
}

void fill_maker(const uint8_t* spd, uint32_t length, SpdInfo& record) {
    const char* name = nullptr;
    if (parse_vendor_manufacturer_id(spd, length, &name) == 0) assign_text(record.mfg_id, name);
    parse_vendor_mfg_id(spd, length, &record.module_vendor_id);
}

void fill_device_type(const uint8_t* spd, const char* type_name, uint32_t persistent_memory_flag, SpdInfo& record) {
    const bool is_persistent = is_persistent_memory(spd, record);
    record.AEP_Flag = is_persistent ? persistent_memory_flag : 0;
    assign_text(record.device_type, is_persistent ? "Intel Optane PMem" : type_name);
}

void fill_end_user_part(const uint8_t* spd, const IdentityBytes& bytes, SpdInfo& record) {
    // Raw bytes: a zero among them does not end the field.
    const auto* const part = reinterpret_cast<const char*>(spd + bytes.end_user_part);
    assign_text(record.udi_part_number, std::string_view(part, end_user_part_bytes));
}

}  // namespace vpdd::spd
