// SPDX-License-Identifier: Apache-2.0
// The MAC addresses of the host's network ports: on the system board (LOM) and on an extra module (XLOM).
#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

#include "base/heap.h"
#include "base/host_macs.h"
#include "base/log_line.h"
#include "orva_vpdd.h"
#include "property/tlv.h"

using namespace vpdd;

namespace {

constexpr char name[] = "vpdd_property_change_cache";

constexpr char lom_path[] = "/ac/zeltc/lom-active";
constexpr char xlom_path[] = "/ac/zeltc/xlom-active";

constexpr std::size_t slots = std::size(host_mac_cache);
constexpr std::size_t last_slot = slots - 1;
constexpr uint32_t field_before_first_mac = 18;  // system VPD: MAC n is field 18 + n

constexpr std::array<uint8_t, mac_size> no_mac{};

void clear_slots(std::size_t from) {
    for (std::size_t i = from; i < slots; ++i) assign_mac(host_mac_cache[i], no_mac.data());
}

/// The properties below a path.
class Properties {
public:
    Properties() = default;
    ~Properties() { freeVpddAllProperites(&list_); }
    Properties(const Properties&) = delete;
    Properties& operator=(const Properties&) = delete;

    bool read(const char* path) {
        uint8_t* data = nullptr;
        const int result = vpdd_get_properties(path, &data, &length_);
        data_.reset(data);
        return result == 0;
    }
    bool is_empty() const { return length_ == 0; }
    bool format() {
        if (vpdd_format_all_properties(data_.get(), length_, &list_) == 0) return true;
        log_line(log_warning, name, "vpdd_format_all_properties error.\n");
        return false;
    }
    const VpddAllProperties* first() const { return list_; }

private:
    HeapBlock<uint8_t> data_;
    uint32_t length_ = 0;
    VpddAllProperties* list_ = nullptr;
};

bool is_mac(const VpddAllProperties& property) { return property.type == tlv_bytes && property.length == mac_size; }

int cache_lom_list(const VpddAllProperties* property) {
    int result = 0;
    std::size_t slot = 0;
    for (; property != nullptr; property = property->next) {
        if (!is_mac(*property)) {
            log_line(log_warning, name, "LOM properties type or size is error.\n");
            result = -1;
            continue;
        }
        assign_mac(host_mac_cache[slot++], property->value);
        if (slot > last_slot) {
            slot = last_slot;
            log_line(log_warning, name, "The number of LOM is larger than 8.\n");
        }
    }
    clear_slots(slot);  // deliberate: with eight MACs and more also the slot that holds the last of them
    return result;
}

int cache_lom() {
    Properties properties;
    if (!properties.read(lom_path)) {
        log_line(log_warning, name, "vpdd_get_properties error.\n");
        return -1;
    }
    if (properties.is_empty()) {
        clear_slots(0);
        return 0;
    }
    if (!properties.format()) {
        clear_slots(0);
        return -1;
    }
    return cache_lom_list(properties.first());
}

/// Fills all slots from the system VPD. `used` counts them up to the last one that holds an address.
bool cache_system_vpd(std::size_t& used) {
    for (std::size_t number = 1; number <= slots; ++number) {
        std::array<uint8_t, mac_size> mac{};
        if (sysvpd_read_field(field_before_first_mac + static_cast<uint32_t>(number), mac.size(), mac.data()) == 0) {
            log_line(log_warning, name, "read MAC %d Fail\n", static_cast<int>(number));
            return false;
        }
        assign_mac(host_mac_cache[number - 1], mac.data());
        if (mac != no_mac) used = number;
    }
    return true;
}

int cache_xlom(std::size_t slot) {
    Properties properties;
    if (!properties.read(xlom_path) || properties.is_empty()) return 0;  // deliberate: no failure either
    if (!properties.format()) return -1;

    int result = 0;
    const VpddAllProperties* property = properties.first();
    for (; property != nullptr && slot < slots; property = property->next) {
        if (!is_mac(*property)) {
            log_line(log_warning, name, "XLOM properties type or size is error.\n");
            result = -1;
            continue;
        }
        assign_mac(host_mac_cache[slot++], property->value);
    }
    return result;
}

}  // namespace

extern "C" int vpdd_property_change_cache(const char* path) {
    log_line(log_info, name, "LOM properties Caching.\n");
    if (path == nullptr) return -1;
    const std::string_view changed = path;
    std::size_t system_vpd_slots = 0;
    int result = 0;
    if (changed == lom_path) {
        result = cache_lom();
    } else if (changed == xlom_path) {
        if (!cache_system_vpd(system_vpd_slots)) return -1;
        result = cache_xlom(system_vpd_slots);
    } else {
        return -1;
    }
    remember_host_macs();  // also after a failure of the properties
    return result;
}
