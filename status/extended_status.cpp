// SPDX-License-Identifier: Apache-2.0
#include <strings.h>

#include <cstring>
#include <span>

#include "base/log_line.h"
#include "base/text.h"
#include "platform/change_history.h"
#include "status/activity_log.h"
#include "status/presence.h"

namespace {

using vpdd::log_text;
using vpdd::Terminated;

constexpr int append_entry = 0;
constexpr std::size_t compared_part_number = 4;  // bytes
constexpr std::size_t compared_serial = sizeof(ComponentVpdRecord::serial_number);

void correct_crc(ComponentVpdRecord& record) {
    const uint32_t crc = vpdd::crc_of(record);
    if (crc == record.crc) return;
    log_text(vpdd::log_error, "chghist db calc error, overwrite it\n");
    record.crc = crc;
}

bool is_same_part(const ComponentVpdRecord& one, const ComponentVpdRecord& other) {
    return std::memcmp(one.part_number, other.part_number, compared_part_number) == 0 &&
           strncasecmp(one.serial_number, other.serial_number, compared_serial) == 0;
}

const ComponentVpdRecord* find_current(const StatusList* current, const ComponentVpdRecord& record) {
    if (current == nullptr) return nullptr;
    const StatusNode* node = current->tail;
    while (node != nullptr && !is_same_part(node->entry, record)) node = node->prev;
    return node != nullptr ? &node->entry : nullptr;
}

bool has_changed(int32_t status, int32_t current) {
    return (status == vpdd::status_present && current == vpdd::status_absent) ||
           (status == vpdd::status_absent && current == vpdd::status_present);
}

void append(const char* mark, const ComponentVpdRecord& record) {
    log_text(vpdd::log_info, "[%s] FRU_Name %s, MFG ID %s, SN %s\n", mark, Terminated(record.name).c_str(),
             Terminated(record.mfg_id).c_str(), Terminated(record.serial_number).c_str());
    log_update(&record, append_entry);
}

void merge(std::span<ComponentVpdRecord> records, const StatusList* current) {
    bool has_matched = false;  // from the first match on, unmatched records are ignored
    for (ComponentVpdRecord& record : records) {
        correct_crc(record);
        const ComponentVpdRecord* const found = find_current(current, record);
        if (found != nullptr) {
            has_matched = true;
            if (has_changed(record.status, found->status)) append("Status Change", record);
        } else if (!has_matched) {
            append("New", record);
        }
    }
}

}  // namespace

extern "C" int UpdateExtendComponentStatus(void* /*reserved*/, StatusList* current) {
    if (chghist_read_components == nullptr) return 0;
    ComponentVpdRecord* records = nullptr;
    const int count = chghist_read_components(&records, current);
    if (count > 0 && records != nullptr) merge({records, static_cast<std::size_t>(count)}, current);
    return chghist_release_components != nullptr ? chghist_release_components(records) : 0;
}
