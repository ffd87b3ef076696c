// SPDX-License-Identifier: Apache-2.0
#include <cstdio>

#include "base/log_line.h"
#include "base/text.h"
#include "ipmi/field_walk.h"
#include "orva_vpdd.h"

namespace {

constexpr int fields_before_versions = 7;

/// A BCD-plus version is written as the hexadecimal codes of its first two characters.
void take_version(vpdd::WalkedField field, const char* which, char (&version)[12]) {
    if (!field.has_data()) return;
    if (field.type == vpdd::field_bcd_plus) {
        char digits[5];
        std::snprintf(digits, sizeof digits, "%02x%02x", static_cast<uint8_t>(field.data[0]),
                      static_cast<uint8_t>(field.data[1]));
        vpdd::assign_text(version, digits);
    } else {
        vpdd::assign_text(version, field.data.data());
    }
    vpdd::log_spaced_line(vpdd::log_error, "get_psu_fw_version", "type = %d, size = %d, %s %s", field.type,
                          field.length, which, version);
}

}  // namespace

extern "C" int get_psu_fw_version(const uint8_t* field, PsuFwVersion* out, const uint8_t* end) {
    if (field == nullptr) {
        vpdd::log_spaced_line(vpdd::log_error, __func__, "input tlv or p_response_bufend is null");
        return -1;
    }
    vpdd::FieldWalk walk(field, end);
    walk.skip(fields_before_versions);
    take_version(walk.next(), "primary", out->primary);
    take_version(walk.next(), "secondary", out->secondary);
    return 0;
}
