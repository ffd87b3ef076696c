// SPDX-License-Identifier: Apache-2.0
#include "sysvpd/machine_record.h"

#include <array>
#include <cstdio>
#include <cstring>

#include "base/byte_view.h"
#include "base/dates.h"
#include "base/host_macs.h"
#include "base/log_line.h"
#include "base/scoped_lock.h"
#include "base/text.h"
#include "platform/configuration.h"

namespace {

using vpdd::trace_line;
using vpdd::TraceLevel;

constexpr char impl_name[] = "GetMachineVPDImpl";

constexpr uint32_t longest_field = 128;  // of those read here

/// A field of the system VPD, zero-filled and terminated behind what was read.
struct Field {
    bool was_read;
    std::array<uint8_t, longest_field + 1> bytes{};

    const char* text() const { return reinterpret_cast<const char*>(bytes.data()); }
};

Field read_field(uint32_t id, uint32_t length, const char* failure) {
    Field field{};
    field.was_read = sysvpd_read_field(id, length, field.bytes.data()) != 0;
    if (!field.was_read) trace_line(TraceLevel::failure, impl_name, "%s", failure);
    return field;
}

template <std::size_t Size>
void read_text(uint32_t id, uint32_t length, const char* failure, char (&slot)[Size]) {
    static_assert(Size - 1 <= longest_field);
    const Field field = read_field(id, length, failure);
    if (field.was_read) vpdd::assign_text(slot, field.text(), length);
}

/// What the machine says about the form of its own VPD.
struct VpdForm {
    bool is_oem = false;
    uint16_t version = 0;
    uint8_t serial_format = 0;

    bool is_extended() const { return version >= 0x0300; }
    bool has_10_digit_type() const { return (serial_format & 0x40U) != 0; }
};

bool read_is_oem() {
    const Field extension = read_field(6, 2, "GET VPD POS ID EXTENSION FAIL");
    return extension.bytes[0] == 0xFF && extension.bytes[1] == 0xEE;
}

void publish_platform_id() {
    constexpr char variable[] = "tarn_var_int_platform_id";
    const Field vpd_id = read_field(5, 2, "GET VPD ID FAIL");
    const Field pos_id = read_field(7, 2, "GET VPD POS ID FAIL");
    const uint32_t id = static_cast<uint32_t>(vpdd::big_endian_16(vpd_id.bytes.data())) << 16U |
                        vpdd::big_endian_16(pos_id.bytes.data());
    if (tarn_config_set_int(variable, static_cast<int32_t>(id), 1) == 0) {
        trace_line(TraceLevel::failure, impl_name, "SET TARN VAR[%s] FAIL", variable);
    }
}

uint16_t read_version(MachineVpdRecord& record) {
    const Field field = read_field(1, 2, "GET VPD VERSION FAIL");
    const uint16_t version = vpdd::big_endian_16(field.bytes.data());
    char text[8];
    std::snprintf(text, sizeof text, "0x%4.4X", version);
    vpdd::assign_text(record.vpd_version, text);
    return version;
}

/// The fields that VPD version 0x0300 introduced; the serial-number format byte.
uint8_t read_extended_fields(MachineVpdRecord& record) {
    static constexpr std::array<const char*, 4> formats{"11S", "8S", "11S and 8S", "Unknown"};
    const Field format = read_field(4, 1, "GET SERIAL NUMBER FORMAT FAIL");
    if (format.was_read) vpdd::assign_text(record.serial_number_format, formats[format.bytes[0] & 0x03U]);
    read_text(50, 10, "GET EC LEVEL FORMAT FAIL", record.ec_level);
    read_text(51, 12, "GET 2nd PART NO. FAIL", record.second_part_number);
    read_text(52, 12, "GET 2nd SERIAL NO. FAIL", record.second_serial_number);
    read_text(53, 32, "GET FULL MFG NAME FAIL", record.full_manufacturer_name);
    read_text(54, 16, "GET ISMP NAME FAIL", record.ismp_name);
    return format.bytes[0];
}

void read_type_and_serial(const VpdForm& form, MachineVpdRecord& record) {
    if (form.is_oem) {
        read_text(60, 33, "GET OEM MTM FAIL", record.machine_type_model);
        read_text(61, 33, "GET OEM SERIAL NO. FAIL", record.serial_number);
    } else if (form.has_10_digit_type()) {
        read_text(56, 33, "GET 10D MTM FAIL", record.machine_type_model);
        read_text(57, 33, "GET 10D SERIAL NO. FAIL", record.serial_number);
    } else {
        read_text(8, 33, "GET 7D MTM FAIL", record.machine_type_model);
        read_text(9, 33, "GET 7D SERIAL NO. FAIL", record.serial_number);
    }
    // Published even when empty.
    tarn_config_set_str("tarn_str_machine_vpd_MTM", record.machine_type_model, 1);
    tarn_config_set_str("tarn_str_machine_vpd_serial_number", record.serial_number, 1);
}

void read_uuid(MachineVpdRecord& record) {
    constexpr uint32_t uuid_size = 16;
    const Field field = read_field(27, 32, "GET UUID FAIL");
    if (!field.was_read) return;
    if (hex_to_string(record.uuid, sizeof record.uuid, field.bytes.data(), uuid_size) != 0) {
        trace_line(TraceLevel::failure, impl_name, "GET CVT UUID FROM HEX TO STRING");
    }
    tarn_config_set_str("tarn_str_machine_vpd_id", record.uuid, 1);
}

void read_card_identity(const VpdForm& form, MachineVpdRecord& record) {
    if (form.is_oem) {
        read_text(62, 33, "GET OEM CARD PART NO. FAIL", record.card_part_number);
        read_text(12, 12, "GET CARD FRU NO. FAIL", record.card_fru_number);
        read_text(63, 33, "GET OEM CARD SERIAL NO. FAIL", record.card_serial_number);
        read_text(65, 33, "GET OEM MFG ID FAIL", record.manufacturer_id);
        return;
    }
    read_text(11, 33, "GET CARD PART NO. FAIL", record.card_part_number);
    read_text(12, 12, "GET CARD FRU NO. FAIL", record.card_fru_number);
    read_text(13, form.is_extended() ? 33 : 12, "GET CARD SERIAL NO. FAIL", record.card_serial_number);
    read_text(14, 33, "GET MFG ID FAIL", record.manufacturer_id);
}

/// Four digits: the week, then the year.
void read_card_date(MachineVpdRecord& record) {
    const Field field = read_field(18, 10, "GET CARD MFG DATE FAIL");
    int week = 0;
    int year = 0;
    // NOLINTNEXTLINE(cert-err34-c): two digits cannot overflow
    if (!field.was_read || std::sscanf(field.text(), "%2d%2d", &week, &year) != 2) return;

    int calendar_year = 0;
    int month = 0;
    int day = 0;
    spd_week_to_date(static_cast<uint32_t>(year), static_cast<uint32_t>(week), &calendar_year, &month, &day);
    vpdd::assign_date(record.card_mfg_date, calendar_year, month, day);
}

void read_code_levels(MachineVpdRecord& record) {
    constexpr uint32_t first_code_level = 81;
    uint32_t number = 0;
    for (auto& slot : record.code_levels) {
        char failure[32];
        std::snprintf(failure, sizeof failure, "GET CODE LEVEL %d FAIL", static_cast<int>(number + 1));
        read_text(first_code_level + number++, 36, failure, slot);
    }
}

void read_port_macs(MachineVpdRecord& record) {
    constexpr uint32_t mac_size = 8;
    const Field field = read_field(108, 64, "GET PORT MAC 1 FAIL");
    if (!field.was_read) return;
    const uint8_t* mac = field.bytes.data();
    for (auto& slot : record.port_macs) {
        hex_to_string(slot, sizeof slot, mac, mac_size);
        mac += mac_size;
    }
}

void read_iana(MachineVpdRecord& record) {
    constexpr uint32_t iana_size = 4;
    const Field field = read_field(40, iana_size, "GET IANA FAIL");
    if (field.was_read && hex_to_string(record.iana, sizeof record.iana, field.bytes.data(), iana_size) != 0) {
        trace_line(TraceLevel::failure, impl_name, "CONVERT IANA TO STRING FAIL");
    }
    tarn_config_set_str("tarn_str_machine_vpd_iana", record.iana, 1);
}

void copy_host_macs(MachineVpdRecord& record) {
    trace_line(TraceLevel::progress, impl_name, "UPDATE MAC CACHE");
    if (!vpdd::host_macs_are_cached()) updateSysvpdMacAddressCache();
    static_assert(sizeof record.host_macs == sizeof host_mac_cache);
    std::memcpy(record.host_macs, host_mac_cache, sizeof record.host_macs);
}

void read_product_name(MachineVpdRecord& record) {
    trace_line(TraceLevel::progress, impl_name, "GET PRODUCT NAME");
    read_text(48, 128, "GET PRODUCT NAME FAIL", record.product_name);
    tarn_config_set_str("tarn_str_machine_vpd_product_name", record.product_name, 1);
}

/// The order of the steps is the order in which the rest of the firmware sees the variables change.
void assemble(MachineVpdRecord& record) {
    VpdForm form;
    form.is_oem = read_is_oem();
    publish_platform_id();
    form.version = read_version(record);
    if (form.is_extended()) form.serial_format = read_extended_fields(record);
    read_type_and_serial(form, record);
    read_text(46, 4, "GET SUB MFG FAIL", record.sub_manufacturer);
    read_uuid(record);
    read_text(10, 32, "GET ASSET ID FAIL", record.asset_id);
    read_card_identity(form, record);
    read_card_date(record);
    read_code_levels(record);
    read_port_macs(record);
    read_iana(record);
    copy_host_macs(record);
    read_product_name(record);
}

bool asks_for_oem_record(const char* request) {
    return request != nullptr && std::strncmp(request, "_req_oem", 8) == 0;
}

int get_oem_record(uint8_t* out) {
    constexpr char name[] = "GetMachineVPD";
    MachineVpdRecord machine{};
    uint32_t length = 0;
    int result = GetMachineVPDImpl(&length, sizeof machine, nullptr, reinterpret_cast<uint8_t*>(&machine));
    if (result != 0) {
        vpdd::log_line(vpdd::log_warning, name, "OEMed info query, GetMachineVPD implementation error report ret=%d.\n",
                       result);
        return result;
    }
    MachineFieldsRecord fields{};
    result = GetMachineFields(&length, sizeof fields, 0, reinterpret_cast<uint8_t*>(&fields));
    if (result != 0) {
        vpdd::log_line(vpdd::log_warning, name, "OEMed info query, GetMachineFields error report ret=%d.\n", result);
        return result;
    }

    const int posid = read_POSID_ext();
    const char* const manufacturer = vpdd::product_manufacturer(posid);
    if (*manufacturer == '\0') {
        vpdd::log_line(vpdd::log_warning, name, "OEMed info query, read POS ID extension field error, ret=%d.\n",
                       posid);
    }
    std::printf("vpdd:%s, line:%d - read_POSID_ext, productmfg=%s, ret=%d\n", name, __LINE__, manufacturer, posid);
    vpdd::fill_oem_machine_record(machine, fields, manufacturer, *reinterpret_cast<OemMachineRecord*>(out));
    return 0;
}

}  // namespace

extern "C" int GetMachineVPDImpl(uint32_t* out_length, uint32_t /*capacity*/, const char* /*request*/,
                                 uint8_t* record) {
    if (record == nullptr) {
        trace_line(TraceLevel::failure, __func__, "INPUT PARAMETER IS NULL");
        return -1;
    }
    {
        const vpdd::ScopedLock lock(sysvpd_access_mutex);
        auto& machine = *reinterpret_cast<MachineVpdRecord*>(record);
        machine = {};
        assemble(machine);
        if (out_length != nullptr) *out_length = sizeof machine;
    }
    trace_line(TraceLevel::progress, __func__, "DONE~~~~~~~");
    return 0;
}

extern "C" int GetMachineVPD(uint32_t* out_length, uint32_t capacity, const char* request, uint8_t* record) {
    if (record == nullptr) {
        vpdd::log_line(vpdd::log_warning, __func__, "response buffer is null.\n");
        return -1;
    }
    if (asks_for_oem_record(request)) return get_oem_record(record);
    const int result = GetMachineVPDImpl(out_length, capacity, request, record);
    if (result != 0) {
        vpdd::log_line(vpdd::log_warning, __func__, "GetMachineVPD implementation error report ret=%d.\n", result);
    }
    return result;
}
