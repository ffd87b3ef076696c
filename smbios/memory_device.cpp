// SPDX-License-Identifier: Apache-2.0
#include "smbios/memory_device.h"

#include <strings.h>
#include <syslog.h>

#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "base/byte_view.h"
#include "base/log_line.h"
#include "orva_vpdd.h"
#include "smbios/lookup_log.h"

namespace vpdd {

uint8_t MemoryDevice::byte(MemoryDeviceField field) const { return holds(field) ? raw_[field.offset] : 0; }

uint16_t MemoryDevice::word(MemoryDeviceField field) const {
    return holds(field) ? little_endian_16(raw_ + field.offset) : 0;
}

const char* MemoryDevice::string(uint8_t number) const {
    if (number == 0) return nullptr;
    const char* text = reinterpret_cast<const char*>(raw_) + length();
    for (; number > 1; --number) {
        if (*text == '\0') return nullptr;  // an empty string is the end of the set
        text += std::strlen(text) + 1;
    }
    return text;
}

}  // namespace vpdd

using namespace vpdd;

namespace {

constexpr int not_found = -3;

constexpr int device_locator_string = 0;
constexpr int serial_number_string = 3;

struct StringField {
    int index;
    MemoryDeviceField field;
};

/// The string indexes of getStringFromDimmSmbiosEntry(); the others mean nothing.
constexpr StringField string_fields[] = {
    {device_locator_string, memory_device_field::device_locator},
    {1, memory_device_field::bank_locator},
    {2, memory_device_field::manufacturer},
    {serial_number_string, memory_device_field::serial_number},
    {4, memory_device_field::asset_tag},
    {5, memory_device_field::part_number},
    {7, memory_device_field::memory_type},  // deliberate: this byte is no string number, but is taken for one
};

/// 0, which no string has, for an index without meaning.
uint8_t string_number(const MemoryDevice& device, int index) {
    for (const StringField& row : string_fields) {
        if (row.index == index) return device.byte(row.field);
    }
    return 0;
}

constexpr std::size_t string_buffer_size = 255;
constexpr std::size_t most_slot_digits = 9;

/// The decimal digits of a text in their order, the first nine of them.
struct SlotDigits {
    explicit SlotDigits(const char* text) {
        std::size_t count = 0;
        for (; *text != '\0' && count < most_slot_digits; ++text) {
            if (*text >= '0' && *text <= '9') digits[count++] = *text;
        }
    }

    char digits[most_slot_digits + 1] = {};
};

long decimal_value(const char* text) { return std::strtol(text, nullptr, 10); }

struct Argument {
    const void* pointer;
    const char* name;
};

/// Says which argument is the first null one, if any.
bool has_null(const char* function, std::initializer_list<Argument> arguments) {
    for (const Argument& argument : arguments) {
        if (argument.pointer != nullptr) continue;
        lookup_debug(function, "%s is NULL\n", argument.name);
        return true;
    }
    return false;
}

using Match = SmbiosEntry* (*)(SmbiosTypeGroup*, const char*);

/// The entry of `table` that `match` finds under `key`, or null; `wanted` names it in the message of `function`.
const SmbiosEntry* find_entry(const char* function, SmbiosTable* table, Match match, const char* key,
                              const char* wanted) {
    SmbiosTypeGroup* group = vpdd_get_the_smbios_info(table, memory_device_type);
    if (group == nullptr) {
        lookup_debug(function, "There is no DIMM type(0x11) in SMBIOS Table\n");
        return nullptr;
    }
    const SmbiosEntry* entry = match(group, key);
    if (entry == nullptr) lookup_debug(function, "Can't find the %s in smbios table\n", wanted);
    return entry;
}

const SmbiosEntry* find_by_serial_number(const char* function, SmbiosTable* table, const char* fru_serial) {
    return find_entry(function, table, vpdd_get_the_smbios_dimm_info, fru_serial, fru_serial);
}

bool is_memory_device(const char* function, const MemoryDevice& device) {
    if (device.type() == memory_device_type) return true;
    lookup_debug(function, "This is not dimm type 0x11(%02x)\n", device.type());
    return false;
}

int read_size_and_speed(const char* function, const SmbiosEntry* entry, uint32_t* size, uint32_t* speed) {
    if (entry == nullptr) return not_found;
    const MemoryDevice device(entry->raw);
    if (!is_memory_device(function, device)) {
        *size = *speed = UINT32_MAX;
        return not_found;
    }
    *size = device.word(memory_device_field::size);
    *speed = device.word(memory_device_field::speed);
    return 0;
}

}  // namespace

extern "C" int getStringFromDimmSmbiosEntry(const SmbiosEntry* entry, int index, char* out, uint32_t size) {
    if (entry == nullptr || entry->raw == nullptr || out == nullptr) {
        lookup_debug(__func__, "Entry or pSerialNumber is NULL\n");
        return -2;
    }
    const MemoryDevice device(entry->raw);
    if (!is_memory_device(__func__, device)) return -3;

    const char* text = device.string(string_number(device, index));
    if (text == nullptr) {
        if (size > 0) *out = '\0';
        return -4;
    }
    const std::size_t length = std::strlen(text);
    if (length >= size) {
        lookup_debug(__func__, "Memory size is less than %d\n", static_cast<int>(length));
        return -5;
    }
    std::memcpy(out, text, length + 1);
    return 0;
}

extern "C" SmbiosEntry* vpdd_get_the_smbios_dimm_info(SmbiosTypeGroup* group, const char* fru_serial) {
    if (group == nullptr) {
        lookup_debug(__func__, "smbiosType is NULL\n");
        return nullptr;
    }
    if (has_null(__func__, {{fru_serial, "name"}})) return nullptr;
    if (group->type != memory_device_type) {
        lookup_debug(__func__, "It is not memory type\n");
        return nullptr;
    }

    const std::size_t fru_length = std::strlen(fru_serial);
    SmbiosEntry* entry = group->entries;
    for (unsigned left = group->count; left > 0 && entry != nullptr; --left, entry = entry->next) {
        char serial[string_buffer_size];
        if (getStringFromDimmSmbiosEntry(entry, serial_number_string, serial, sizeof serial) != 0) continue;
        const std::size_t length = std::strlen(serial);
        if (fru_length < length) {
            // Deliberate: a longer serial ends the whole search, also when a later entry would match.
            log_text(LOG_ERR, "Unexpected! DIMM SN (FRU):[%s] (SMBIOS):[%s]", fru_serial, serial);
            return nullptr;
        }
        const char* tail = fru_serial + (fru_length - length);
        if (length == 0 || strcasecmp(tail, serial) != 0) continue;
        log_text(log_info, "Match! DIMM SN (FRU):[%s] (SMBIOS):[%s]\n", tail, serial);
        return entry;
    }
    lookup_error(LOG_ERR, __func__, "There is no %s infomation\n", fru_serial);
    return nullptr;
}

extern "C" SmbiosEntry* vpdd_get_the_smbios_dimm_info_by_device_locator(SmbiosTypeGroup* group, const char* slot) {
    if (group == nullptr) {
        lookup_debug(__func__, "smbiosType is NULL\n");
        return nullptr;
    }
    if (slot == nullptr || *slot == '\0') {
        lookup_debug(__func__, "searchDeviceLocator is NULL\n");
        return nullptr;
    }
    if (group->type != memory_device_type) {
        lookup_debug(__func__, "It is not memory type\n");
        return nullptr;
    }

    const long wanted = decimal_value(slot);
    SmbiosEntry* entry = group->entries;
    for (unsigned left = group->count; left > 0 && entry != nullptr; --left, entry = entry->next) {
        char locator[string_buffer_size];
        if (getStringFromDimmSmbiosEntry(entry, device_locator_string, locator, sizeof locator) != 0) continue;
        const SlotDigits found(locator);
        if (found.digits[0] != '\0' && decimal_value(found.digits) == wanted) return entry;
    }
    lookup_debug(__func__, "There is no %s infomation\n", slot);
    return nullptr;
}

extern "C" int vpdd_get_serial_num_from_smbios_by_serial_number(SmbiosTable* table, const char* fru_serial, char* out,
                                                                uint32_t size) {
    if (has_null(__func__, {{table, "pSMTSMBiosTable"}, {fru_serial, "name"}, {out, "serialNum"}})) return -2;
    const SmbiosEntry* entry = find_by_serial_number(__func__, table, fru_serial);
    if (entry == nullptr) return not_found;
    if (getStringFromDimmSmbiosEntry(entry, serial_number_string, out, size) != 0) {
        lookup_debug(__func__, "There is no serial number\n");
        return -4;
    }
    return 0;
}

extern "C" int vpdd_get_config_speed_from_smbios_by_serial_number(SmbiosTable* table, const char* fru_serial,
                                                                  uint32_t* speed) {
    if (has_null(__func__, {{table, "pSMTSMBiosTable"}, {fru_serial, "name"}, {speed, "configSpeed"}})) return -2;
    const SmbiosEntry* entry = find_by_serial_number(__func__, table, fru_serial);
    if (entry == nullptr) return not_found;
    const MemoryDevice device(entry->raw);
    if (!is_memory_device(__func__, device)) return not_found;
    *speed = device.word(memory_device_field::configured_memory_speed);
    return 0;
}

extern "C" int vpdd_get_size_speed_from_smbios_by_serial_number(SmbiosTable* table, const char* fru_serial,
                                                                uint32_t* size, uint32_t* speed) {
    if (has_null(__func__, {{table, "pSMTSMBiosTable"}, {fru_serial, "name"}, {size, "size"}, {speed, "speed"}})) {
        return -2;
    }
    return read_size_and_speed(__func__, find_by_serial_number(__func__, table, fru_serial), size, speed);
}

extern "C" int vpdd_get_size_speed_from_smbios_by_device_locator(SmbiosTable* table, const char* locator,
                                                                 uint32_t* size, uint32_t* speed) {
    if (has_null(__func__,
                 {{table, "pSMTSMBiosTable"}, {locator, "pdeviceLocator"}, {size, "size"}, {speed, "speed"}})) {
        return -2;
    }
    const SlotDigits slot(locator);
    const SmbiosEntry* entry =
        find_entry(__func__, table, vpdd_get_the_smbios_dimm_info_by_device_locator, slot.digits, locator);
    return read_size_and_speed(__func__, entry, size, speed);
}
