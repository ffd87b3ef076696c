// SPDX-License-Identifier: Apache-2.0
#include "compvpd/walk.h"

#include "base/log_line.h"
#include "compvpd/locator.h"

namespace {

constexpr uint32_t usual_image_size = 512;
constexpr uint32_t cartridge_format = 3;

}  // namespace

namespace vpdd {

void set_address(ComponentVpdNode& node) {
    node.record.fru_id = node.locator.fru_device_id;
    node.record.entity_id = node.locator.entity_id;
    node.record.entity_instance = instance_of(node.locator);
}

bool is_handled_format(const Run& run, ComponentVpdNode& node) {
    const FruLocatorCopy& locator = node.locator;
    const bool is_fru = locator.device_type == device_type_fru;
    const bool is_cartridge = is_fru && locator.device_type_modifier == modifier_processor_cartridge;
    if (is_fru && !is_cartridge) return true;
    log_text(log_warning, "%s %02X.%02X skip unhandled format=%02X.%02X.", run.function, node.record.entity_id,
             node.record.entity_instance, locator.device_type, locator.device_type_modifier);
    if (is_cartridge) node.record.vpd_format = cartridge_format;
    return false;
}

PreparedImage prepare_image(const Run& run, uint8_t fru_id, const char* mark) {
    PreparedImage prepared;
    if (!prepared.image.allocate(usual_image_size)) {
        log_text(log_warning, "%s(%d) - calloc FRU data fail%s", run.function, __LINE__, mark);
        prepared.state = Preparation::no_memory;
        return prepared;
    }
    prepared.size_result = read_fru_size(fru_id, &prepared.size);
    if (prepared.size_result != 0) {
        prepared.state = Preparation::size_unreadable;
        return prepared;
    }
    if (prepared.size <= usual_image_size) return prepared;

    log_text(log_warning, "%s(%d) - FRU size is larger than %d, fru_size=%d", run.function, __LINE__,
             static_cast<int>(usual_image_size), static_cast<int>(prepared.size));
    if (!prepared.image.enlarge(prepared.size)) {
        log_text(log_warning, "%s(%d) - realloc FRU data fail%s", run.function, __LINE__, mark);
        prepared.state = Preparation::no_memory;
    }
    return prepared;
}

}  // namespace vpdd
