// SPDX-License-Identifier: Apache-2.0
#include "cli/activity_log.h"

#include <stdexcept>

namespace vpdd::cli {

namespace {

constexpr int32_t status_absent = 0;
constexpr int32_t status_present = 1;
constexpr int32_t status_no_sensor = 255;

}  // namespace

std::vector<ComponentVpdRecord> read_activity_log() {
    StatusList* log = nullptr;
    if (vpdd_serv_readlog(&log) != 0) throw std::runtime_error("the activity log cannot be read");
    std::vector<ComponentVpdRecord> entries;
    for (const StatusNode* node = log->head; node != nullptr; node = node->next) entries.push_back(node->entry);
    vpdd_serv_freelog(&log);
    return entries;
}

void clean_activity_log() {
    vpdd_serv_cleanlog();
    if (!read_activity_log().empty()) throw std::runtime_error("the activity log cannot be emptied");
}

std::string presence_text(int32_t status) {
    switch (status) {
        case status_absent:
            return "absent";
        case status_present:
            return "present";
        case status_no_sensor:
            return "no sensor";
        default:
            return "status " + std::to_string(status);
    }
}

std::string event_text(const ComponentVpdRecord& entry) {
    if (entry.status == status_present) return "installed";
    return entry.status == status_absent ? "removed" : presence_text(entry.status);
}

}  // namespace vpdd::cli
