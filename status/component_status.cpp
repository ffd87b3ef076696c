// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <string_view>

#include "base/log_line.h"
#include "base/scoped_lock.h"
#include "base/text.h"
#include "compvpd/cache.h"
#include "compvpd/locator.h"
#include "platform/configuration.h"
#include "status/activity_log.h"
#include "status/change_history.h"
#include "status/presence.h"

namespace {

using vpdd::bounded_view;
using vpdd::crc_of;
using vpdd::log_text;
using vpdd::Terminated;

constexpr char status_name[] = "UpdateComponentStatus";

constexpr int not_created_at_entry = -4;
constexpr int not_created_during_pass = -1;
constexpr int log_not_created = -32;

constexpr int append_entry = 0;
constexpr int replace_open_entry = 1;

constexpr int restore_mode = 0;
constexpr int state_event_type = 4;

/// The last logged record of the processor in each slot; touched only under compvpd_access_mutex.
constexpr int highest_cpu_slot = 32;
std::array<ComponentVpdRecord, highest_cpu_slot + 1> cpu_slots{};

bool is_processor(const ComponentVpdRecord& record) { return record.entity_id == vpdd::entity_processor; }

/// Memory devices are tracked in the cache, but never logged.
bool is_logged(const ComponentVpdRecord& record) { return record.entity_id != vpdd::entity_memory_device; }

/// What an entry that was read from flash says of its raw bytes may not be true.
void bound_raw_length(OemCpuRecord& oem_cpu) {
    oem_cpu.raw_length = std::min<uint32_t>(oem_cpu.raw_length, sizeof oem_cpu.raw);
}

/// A text of an entry that was read from flash may lack its terminator; in the cache each has one.
void terminate_texts(ComponentVpdRecord& record) {
    const auto terminate = [](auto& text) { text[sizeof text - 1] = '\0'; };
    terminate(record.board_extra);
    terminate(record.name);
    terminate(record.ppin);
    terminate(record.serial_number);
    terminate(record.mfg_id);
    terminate(record.mfg_date);
    terminate(record.part_number);
    terminate(record.product_version);
    for (auto& text : record.oem_cpu.text) terminate(text);
    terminate(record.psu_fw.primary);
    terminate(record.psu_fw.secondary);
    SpdInfo& spd_info = record.spd_info;
    terminate(spd_info.description);
    terminate(spd_info.part_number);
    terminate(spd_info.serial_number);
    terminate(spd_info.udi_part_number);
    terminate(spd_info.mfg_id);
    terminate(spd_info.device_type);
    terminate(spd_info.module_type);
    terminate(spd_info.sdram_freq_string);
    terminate(spd_info.cas_latencies_supports);
}

/// A logged entry takes the place of a record, except for the word that may stand for an address.
void restore_entry(const ComponentVpdRecord& entry, ComponentVpdRecord& record) {
    const uint32_t ppin_dump = record.ppin_dump;
    record = entry;
    record.ppin_dump = ppin_dump;
    terminate_texts(record);
    bound_raw_length(record.oem_cpu);
}

/// The slot copy of a processor; null above the highest slot.
ComponentVpdRecord* cpu_slot_of(const ComponentVpdRecord& record) {
    if (record.entity_instance <= highest_cpu_slot) return &cpu_slots[record.entity_instance];
    log_text(vpdd::log_info, "%s(%d): CPU slot num %d is over limit %d", status_name, __LINE__, record.entity_instance,
             highest_cpu_slot);
    return nullptr;
}

void remember_cpu(const ComponentVpdRecord& record) {
    if (ComponentVpdRecord* const slot = cpu_slot_of(record)) restore_entry(record, *slot);
}

void log_update_line(const char* mark, const ComponentVpdRecord& record) {
    log_text(vpdd::log_info, "%s: [%s]FRU = %s, FRUID = %d, status = %d, crc = %u.\n", status_name, mark,
             Terminated(record.name).c_str(), record.fru_id, record.status, record.crc);
}

StatusNode* newest_entry(const StatusList& log, uint8_t fru_id) {
    StatusNode* node = log.tail;
    while (node != nullptr && node->entry.fru_id != fru_id) node = node->prev;
    return node;
}

template <std::size_t Size>
bool are_equal(const char (&one)[Size], const char (&other)[Size]) {
    return bounded_view(one, Size) == bounded_view(other, Size);
}

bool is_same_component(const ComponentVpdRecord& one, const ComponentVpdRecord& other) {
    return one.fru_id == other.fru_id && one.status == other.status && are_equal(one.name, other.name) &&
           are_equal(one.serial_number, other.serial_number);
}

ComponentVpdRecord* cached_record(uint8_t fru_id) {
    ComponentVpdNode* const node = vpdd::find_node(fru_id);
    return node != nullptr ? &node->record : nullptr;
}

/// One pass over the cache, with the log as it was when the pass began.
class StatusPass {
public:
    explicit StatusPass(StatusList& log) : log_(log) {}

    bool has_changed() const { return has_changed_; }

    void restore();
    void poll(ComponentVpdRecord& record);

private:
    void restore_record(const ComponentVpdRecord& entry, ComponentVpdRecord& record);
    void close_vanished(ComponentVpdRecord& entry);

    void apply(ComponentVpdRecord& record, int32_t found);
    void check_identity(ComponentVpdRecord& record);
    bool is_same_processor(const ComponentVpdRecord& record);
    void update_in_place(ComponentVpdRecord& record, uint32_t crc);
    void replace(ComponentVpdRecord& record, uint32_t crc);
    void remove(ComponentVpdRecord& record);
    void install(ComponentVpdRecord& record, int32_t status);

    void notify(const ComponentVpdRecord& record);

    StatusList& log_;
    vpdd::ProcessorSensors sensors_;
    bool has_changed_ = false;
};

/// By position in the log, not by time: the newest entry of each FRU id counts.
void StatusPass::restore() {
    std::array<bool, 256> is_seen{};
    for (StatusNode* node = log_.tail; node != nullptr; node = node->prev) {
        ComponentVpdRecord& entry = node->entry;
        if (is_seen[entry.fru_id]) continue;
        is_seen[entry.fru_id] = true;
        if (ComponentVpdRecord* const record = cached_record(entry.fru_id)) {
            restore_record(entry, *record);
        } else {
            close_vanished(entry);
        }
    }
}

void StatusPass::restore_record(const ComponentVpdRecord& entry, ComponentVpdRecord& record) {
    if (is_processor(entry)) {
        log_text(vpdd::log_info, "%s(%d): CPU slot num:%d, fru id:%d", status_name, __LINE__, entry.entity_instance,
                 entry.fru_id);
        remember_cpu(entry);
    }
    record.crc = entry.crc;
    record.status = entry.status;
    record.timestamp = entry.timestamp;
    if (entry.status == vpdd::status_absent) restore_entry(entry, record);  // it keeps its last logged identity
    log_text(vpdd::log_info, "%s: [UPDATE_F]FRU = %s, FRUID = %d, status = %d.\n", status_name,
             Terminated(record.name).c_str(), record.fru_id, record.status);
}

/// A component that was present and is no longer known. Deliberate: no change-history record.
void StatusPass::close_vanished(ComponentVpdRecord& entry) {
    if (!is_logged(entry) || entry.status != vpdd::status_present) return;
    entry.status = vpdd::status_absent;
    send_swe_vpdd(&entry);
    entry.timestamp = time(nullptr);
    entry.crc = crc_of(entry);
    log_update(&entry, append_entry);
    log_update_line("UPDATE_3", entry);
    has_changed_ = true;
}

void StatusPass::poll(ComponentVpdRecord& record) {
    const vpdd::Presence presence = is_processor(record) ? sensors_.probe(record) : vpdd::probe_fru(record);
    switch (presence.finding) {
        case vpdd::Finding::unavailable:
            return;
        case vpdd::Finding::no_sensor:
            if (record.status != vpdd::status_no_sensor) install(record, vpdd::status_no_sensor);
            return;
        case vpdd::Finding::known:
            apply(record, presence.status);
            return;
    }
}

/// `found` is present or absent.
void StatusPass::apply(ComponentVpdRecord& record, int32_t found) {
    if (found == vpdd::status_absent) {
        if (record.status != vpdd::status_absent) remove(record);
        return;
    }
    if (record.is_cached == 0) {
        log_text(vpdd::log_info, "%s(%d):FRU Name=%s isn't cached!!!\n", status_name, __LINE__, record.name);
        return;
    }
    if (record.status == vpdd::status_present) {
        check_identity(record);
    } else {
        install(record, vpdd::status_present);
    }
}

/// A component that stayed: is it still the same?
void StatusPass::check_identity(ComponentVpdRecord& record) {
    const uint32_t crc = crc_of(record);
    if (crc == record.crc) return;
    if (is_same_processor(record)) {
        update_in_place(record, crc);
    } else {
        replace(record, crc);
    }
}

bool StatusPass::is_same_processor(const ComponentVpdRecord& record) {
    if (!is_processor(record)) return false;
    const ComponentVpdRecord* const slot = cpu_slot_of(record);
    return slot != nullptr && slot->product_version[0] != '\0' && are_equal(slot->ppin, record.ppin);
}

/// The same processor with other VPD: no event, and its time stays.
void StatusPass::update_in_place(ComponentVpdRecord& record, uint32_t crc) {
    log_text(vpdd::log_info, "[%s]: FRU=%s, FRUID=%d, New_CRC=%x, Old_CRC=%x.\n", status_name, record.name,
             record.fru_id, crc, record.crc);
    record.crc = crc;
    if (UpdateHardwareActivityLog(&record) != 0) {
        log_text(vpdd::log_error, "[%s]: UpdateHardwareActivityLog FAIL!!!\n", status_name);
    }
    log_update_line("UPDATE_LOG", record);
    remember_cpu(record);  // also when the log could not be updated
}

/// Another part in the same place.
void StatusPass::replace(ComponentVpdRecord& record, uint32_t crc) {
    record.crc = crc;
    record.timestamp = time(nullptr);
    if (!is_logged(record)) return;

    log_update(&record, replace_open_entry);
    send_swe_vpdd(&record);
    if (StatusNode* const old = newest_entry(log_, record.fru_id)) {
        log_text(vpdd::log_info, "%s(%d): FRU Name=%s,fru_serial=%s\n", status_name, __LINE__,
                 Terminated(old->entry.name).c_str(), Terminated(old->entry.serial_number).c_str());
        old->entry.status = vpdd::status_absent;
        vpdd::record_change(old->entry);
    }
    ComponentVpdRecord installed = record;
    installed.status = vpdd::status_present;
    vpdd::record_change(installed);
    log_update_line("UPDATE_2", record);
    if (is_processor(record)) remember_cpu(record);
    has_changed_ = true;
}

void StatusPass::remove(ComponentVpdRecord& record) {
    record.status = vpdd::status_absent;
    record.timestamp = time(nullptr);
    record.crc = crc_of(record);
    if (!is_logged(record)) return;

    StatusNode* const old = newest_entry(log_, record.fru_id);
    if (old == nullptr) {  // never logged: nothing to close
        notify(record);
        return;
    }
    old->entry.status = vpdd::status_absent;
    old->entry.timestamp = time(nullptr);
    old->entry.crc = crc_of(old->entry);
    log_text(vpdd::log_error, "Update from previous information\n");
    log_update(&old->entry, append_entry);
    notify(old->entry);
}

/// A component that appeared, or a processor whose sensor is missing.
void StatusPass::install(ComponentVpdRecord& record, int32_t status) {
    record.status = status;
    record.timestamp = time(nullptr);
    record.crc = crc_of(record);
    if (!is_logged(record)) return;
    log_update(&record, append_entry);
    notify(record);
}

void StatusPass::notify(const ComponentVpdRecord& record) {
    send_swe_vpdd(&record);
    vpdd::record_change(record);
    log_update_line("UPDATE_1", record);
    has_changed_ = true;
}

/// Creates the log when there is none. False when it cannot be.
bool ensure_log_exists() {
    const vpdd::File file(std::fopen(vpdd::activity_log, "a"));
    if (file != nullptr) return true;
    vpdd::log_line(vpdd::log_info, status_name, "ERROR:Create log file error.\n");
    return false;
}

/// Under the mutex, so that the rewrite of another thread's pass is not taken for one that was cut short.
void finish_cut_rewrite() {
    const vpdd::ScopedLock lock(compvpd_access_mutex);
    vpdd::recover_cut_rewrite();
}

/// False when the cache went away during the pass.
bool poll_all(StatusPass& pass) {
    for (ComponentVpdNode* node = vpdd::component_vpd_list.head; node != nullptr;) {
        ComponentVpdNode* const next = node->next;
        pass.poll(node->record);
        if (next != nullptr && vpdd::vpd_cache_status != vpdd::cache_created) {
            vpdd::log_cache_not_created(status_name, __LINE__, "\n");
            return false;
        }
        node = next;
    }
    return true;
}

}  // namespace

extern "C" int UpdateComponentStatus(int mode) {
    if (vpdd::vpd_cache_status != vpdd::cache_created) {
        vpdd::log_cache_not_created(__func__, __LINE__, "\n");
        return not_created_at_entry;
    }
    if (!ensure_log_exists()) return log_not_created;
    if (mode == restore_mode && vpdd::rewrite_was_cut()) finish_cut_rewrite();

    vpdd::LoadedLog log;
    log_inventory(&log);
    vpdd::ScopedLock lock(compvpd_access_mutex);
    StatusPass pass(log);
    if (vpdd::component_vpd_list.head == nullptr) return 0;
    if (mode == restore_mode) {
        pass.restore();
    } else if (!poll_all(pass)) {
        // Deliberate: the mutex stays locked and the loaded log allocated; callers treat this result as fatal.
        lock.leave_locked_for_good();
        log.leave_allocated_for_good();
        return not_created_during_pass;
    }
    lock.unlock();

    if (pass.has_changed()) tarn_event_type_occurred(state_event_type, "compvpd_state_event", 0, 0);
    return 0;
}

extern "C" int UpdateHardwareActivityLog(const ComponentVpdRecord* record) {
    if (record == nullptr) {
        log_text(vpdd::log_info, "[%s]: INPUT BUFFER IS EMPTY!!\n", __func__);
        return -1;
    }
    vpdd::LoadedLog log;
    vpdd::LogRewrite rewrite(__func__);
    if (!rewrite.load(log)) {
        log_text(vpdd::log_info, "[%s]: log_inventory FAILED!!\n", __func__);
        return -1;
    }
    for (StatusNode* node = log.tail; node != nullptr; node = node->prev) {
        if (!is_same_component(node->entry, *record)) continue;
        node->entry = *record;
        break;
    }
    if (!rewrite.begin(log)) return -1;
    rewrite.write(log);
    return rewrite.end(log.tail != nullptr ? &log.tail->entry : nullptr) ? 0 : -1;
}
