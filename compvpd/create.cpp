// SPDX-License-Identifier: Apache-2.0
#include "base/log_line.h"
#include "base/scoped_lock.h"
#include "base/text.h"
#include "compvpd/cache.h"
#include "compvpd/decode_areas.h"
#include "compvpd/decode_dimm.h"
#include "compvpd/locator.h"
#include "compvpd/scan.h"
#include "ipmi/multirecord.h"

namespace {

constexpr char create_name[] = "CreateComponentVPDCache";

constexpr unsigned first_wait = 5;   // seconds
constexpr unsigned retry_wait = 10;  // seconds
constexpr int retries = 3;

constexpr int sdr_unreadable = -3;
constexpr int module_without_size = -1;

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

void begin_record(ComponentVpdNode& node) {
    node.record.status = 0;
    node.record.timestamp = 0;
    node.record.is_cached = 0;  // until its image has been read and decoded
    vpdd::assign_text(node.record.name, node.locator.id_string);
    vpdd::set_address(node);
}

void note_failed_fru_read(const vpdd::FruImage::ReadEnd& at, const ComponentVpdRecord& record) {
    // The areas have not been looked for yet: their positions are null.
    const void* const none = nullptr;
    vpdd::log_text(vpdd::log_error,
                   "%s(%d) Read FRU fail! FRU_NAME=%s, FRU_ID=%d, mfg_id=%s board=%p, product=%p, fru_size=%d, "
                   "offset=%d",
                   create_name, __LINE__, record.name, record.fru_id, record.mfg_id, none, none,
                   static_cast<int>(at.remaining), static_cast<int>(at.offset));
}

void decode_fru(const vpdd::Run& run, const vpdd::FruImage& image, ComponentVpdRecord& record) {
    FruAreaPointers areas{};
    parse_fru_header(image.bytes(), &areas);
    if (areas.board != nullptr) {
        const vpdd::BoardFields fields = vpdd::decode_board(areas.board, image, record);
        vpdd::decode_psu_versions(run, fields, image, record);
    } else if (areas.product != nullptr) {
        vpdd::decode_product(areas.product, image, record);
    }
    if (vpdd::has_any_area(areas)) record.is_cached = 1;
    vpdd::process_multirecords(areas.multirecord, image.end(), &record);
}

/// Logs at the highest priority, so that the dump is never filtered.
void dump_ddr5(const vpdd::Run& run, const vpdd::FruImage& image) {
    vpdd::log_ddr5(run, image);
    const uint8_t* const end = image.bytes() + run.ddr5_length;
    for (const uint8_t* line = image.bytes(); line < end; line += 8) {
        vpdd::log_text(vpdd::log_emergency, "%02x %02x %02x %02x %02x %02x %02x %02x ", line[0], line[1], line[2],
                       line[3], line[4], line[5], line[6], line[7]);
    }
}

/// False for a module without a size.
bool decode_dimm(vpdd::Run& run, const vpdd::FruImage& image, ComponentVpdRecord& record) {
    switch (vpdd::begin_dimm(run, image, record)) {
        case vpdd::DimmPath::ddr3:
            if (vpdd::check_stored_crc(image, record.spd_info) == 1) vpdd::decode_ddr3(run, image, record);
            return true;
        case vpdd::DimmPath::ddr4:
            vpdd::decode_ddr4(run, image, ", locator des:", record);
            return true;
        case vpdd::DimmPath::ddr5:
            dump_ddr5(run, image);
            vpdd::decode_ddr5(run, image, record);
            return true;
        case vpdd::DimmPath::ddr5_without_size:
            return false;
        case vpdd::DimmPath::none:
            return true;
    }
    return true;
}

/// Reads and decodes one component. False: a module without a size ends the whole run.
bool decode_node(vpdd::Run& run, ComponentVpdNode& node) {
    ComponentVpdRecord& record = node.record;
    begin_record(node);
    if (!vpdd::is_handled_format(run, node)) return true;

    vpdd::PreparedImage prepared = vpdd::prepare_image(run, record.fru_id, "");
    if (prepared.state != vpdd::Preparation::ready) return true;
    vpdd::FruImage& image = prepared.image;
    const vpdd::FruImage::ReadEnd end = image.read(record.fru_id, prepared.size);

    switch (node.locator.device_type_modifier) {
        case vpdd::modifier_fru_unspecified:
        case vpdd::modifier_fru_inventory:
            if (end.result != 0) {
                note_failed_fru_read(end, record);
            } else {
                decode_fru(run, image, record);
            }
            return true;
        case vpdd::modifier_dimm:
            if (end.result != 0) {
                vpdd::note_failed_dimm_read(image, record);
                return true;
            }
            if (decode_dimm(run, image, record)) return true;
            image.leave_allocated_for_good();
            return false;
        default:
            return true;
    }
}

bool decode_all_nodes(vpdd::Run& run) {
    for (ComponentVpdNode* node = vpdd::component_vpd_list.head; node != nullptr; node = node->next) {
        if (!decode_node(run, *node)) return false;
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

    vpdd::Run run{__func__};
    vpdd_load_smbios_table(&run.smbios);
    if (!decode_all_nodes(run)) {
        // Deliberate: the mutex stays locked and nothing is released; every later cache call blocks.
        lock.leave_locked_for_good();
        return module_without_size;
    }
    vpdd_free_smbios_table(&run.smbios);

    vpdd::fru_index.build(vpdd::component_vpd_list);
    vpdd::vpd_cache_status = vpdd::cache_created;
    vpdd::trace_line(vpdd::TraceLevel::progress, __func__, "VPDCACHE Status -> %d (Created)", vpdd::cache_created);
    return 0;
}
