// SPDX-License-Identifier: Apache-2.0
#include "base/log_line.h"
#include "base/scoped_lock.h"
#include "base/text.h"
#include "compvpd/cache.h"
#include "compvpd/decode.h"
#include "compvpd/locator.h"
#include "compvpd/scan.h"

namespace {

constexpr char create_name[] = "CreateComponentVPDCache";

constexpr unsigned first_wait = 5;   // seconds
constexpr unsigned retry_wait = 10;  // seconds
constexpr int retries = 3;

constexpr int sdr_unreadable = -3;
constexpr int module_without_size = -1;

constexpr uint32_t usual_image_size = 512;
constexpr uint32_t cartridge_format = 3;

void wait_for_ipmi() {
    sleep(first_wait);
    int result = test_ipmi_stack();
    int retried = 0;
    for (; result == -1 && retried < retries; ++retried) {
        sleep(retry_wait);
        vpdd::log_line(vpdd::log_warning, create_name, "IPMI stack isn't ready yet..");
        result = test_ipmi_stack();
    }
    // Deliberate: also logged when the third retry found the stack ready.
    if (retried == retries) {
        vpdd::log_line(vpdd::log_warning, create_name, "Wait IPMI stack timeout.. ,execute anyway..");
    }
}

void set_identity(ComponentVpdNode& node) {
    ComponentVpdRecord& record = node.record;
    record.status = 0;
    record.timestamp = 0;
    vpdd::assign_text(record.name, node.locator.id_string);
    record.fru_id = node.locator.fru_device_id;
    record.entity_id = node.locator.entity_id;
    record.entity_instance = vpdd::instance_of(node.locator);
}

/// False for formats that are not read; processor cartridges are marked as such.
bool is_handled_format(ComponentVpdNode& node) {
    const FruLocatorCopy& locator = node.locator;
    const bool is_cartridge = locator.device_type == vpdd::device_type_fru &&
                              locator.device_type_modifier == vpdd::modifier_processor_cartridge;
    if (locator.device_type == vpdd::device_type_fru && !is_cartridge) return true;
    vpdd::log_text(vpdd::log_warning, "%s %02X.%02X skip unhandled format=%02X.%02X.", create_name,
                   node.record.entity_id, node.record.entity_instance, locator.device_type,
                   locator.device_type_modifier);
    if (is_cartridge) node.record.vpd_format = cartridge_format;
    return false;
}

/// Room for the FRU's image; false when the node is to be passed over.
bool prepare_image(ComponentVpdRecord& record, vpdd::FruImage& image, uint32_t& size) {
    if (!image.allocate(usual_image_size)) {
        vpdd::log_text(vpdd::log_warning, "%s(%d) - calloc FRU data fail", create_name, __LINE__);
        return false;
    }
    if (read_fru_size(record.fru_id, &size) != 0) {
        record.is_cached = 0;
        return false;
    }
    if (size <= usual_image_size) return true;
    vpdd::log_text(vpdd::log_warning, "%s(%d) - FRU size is larger than %d, fru_size=%d", create_name, __LINE__,
                   static_cast<int>(usual_image_size), static_cast<int>(size));
    if (image.enlarge(size)) return true;
    vpdd::log_text(vpdd::log_warning, "%s(%d) - realloc FRU data fail", create_name, __LINE__);
    return false;
}

void note_failed_fru_read(const vpdd::FruImage::ReadEnd& at, ComponentVpdRecord& record) {
    record.is_cached = 0;
    // The areas have not been looked for yet: their positions are null.
    const void* const none = nullptr;
    vpdd::log_text(vpdd::log_error,
                   "%s(%d) Read FRU fail! FRU_NAME=%s, FRU_ID=%d, mfg_id=%s board=%p, product=%p, fru_size=%d, "
                   "offset=%d",
                   create_name, __LINE__, record.name, record.fru_id, record.mfg_id, none, none,
                   static_cast<int>(at.remaining), static_cast<int>(at.offset));
}

/// Reads and decodes one component. False: a module without a size ends the whole run.
bool decode_node(ComponentVpdNode& node, vpdd::DimmRun& run) {
    ComponentVpdRecord& record = node.record;
    set_identity(node);
    if (!is_handled_format(node)) return true;

    vpdd::FruImage image;
    uint32_t size = 0;
    if (!prepare_image(record, image, size)) return true;
    const vpdd::FruImage::ReadEnd end = image.read(record.fru_id, size);

    switch (node.locator.device_type_modifier) {
        case vpdd::modifier_fru_unspecified:
        case vpdd::modifier_fru_inventory:
            if (end.result != 0) {
                note_failed_fru_read(end, record);
            } else {
                vpdd::decode_fru_areas(image, record);
            }
            return true;
        case vpdd::modifier_dimm:
            if (end.result != 0) {
                vpdd::note_failed_dimm_read(image, record);
                return true;
            }
            if (vpdd::decode_dimm(image, record, run)) return true;
            image.leave_allocated_for_good();
            return false;
        default:
            return true;
    }
}

bool decode_all_nodes(vpdd::DimmRun& run) {
    for (ComponentVpdNode* node = vpdd::component_vpd_list.head; node != nullptr; node = node->next) {
        if (!decode_node(*node, run)) return false;
    }
    return true;
}

}  // namespace

extern "C" int CreateComponentVPDCache() {
    wait_for_ipmi();

    vpdd::ScopedLock lock(compvpd_access_mutex);
    if (vpdd::vpd_cache_status == vpdd::cache_created) {
        vpdd::log_line(vpdd::log_warning, __func__, "Cache was created already.");
        return 0;
    }
    if (UpdateFRUID0InfoToTARNForDCMI() != 0) {
        vpdd::log_line(vpdd::log_info, __func__, "ERROR:UpdateFRUID0InfoToTARNForDCMI error.");
    }

    vpdd::ComponentCounts counts;
    if (!vpdd::scan_sdr_repository(counts)) return sdr_unreadable;
    vpdd::publish_counts(counts);

    vpdd::DimmRun run;
    vpdd_load_smbios_table(&run.smbios);
    if (!decode_all_nodes(run)) {
        // Deliberate: the mutex stays locked and nothing is released; every later cache call blocks.
        lock.leave_locked_for_good();
        return module_without_size;
    }
    vpdd_free_smbios_table(&run.smbios);

    vpdd::vpd_cache_status = vpdd::cache_created;
    vpdd::trace_line(vpdd::TraceLevel::progress, __func__, "VPDCACHE Status -> %d (Created)", vpdd::cache_created);
    return 0;
}
