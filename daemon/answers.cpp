// SPDX-License-Identifier: Apache-2.0
#include "daemon/answers.h"

#include <algorithm>
#include <string>

namespace vpdd::daemon {

namespace {

constexpr uint32_t also_first = 0xFF;

template <class Object>
Reply share(const Holdings& holdings, const Object* first, std::size_t count) {
    const SharedInventory& inventory = holdings.inventory;
    return {VPDD_REPLY_OK,
            static_cast<uint32_t>(inventory->pass),
            {reinterpret_cast<const uint8_t*>(first), count * sizeof(Object)},
            inventory};
}

Reply status_reply(const Holdings& holdings, std::size_t room) {
    if (room < VPDD_STATUS_ROOM) return refusal(VPDD_REPLY_NO_ROOM);
    std::string text = "version=" VPDD_VERSION "\nplatform=" + std::string(holdings.platform);
    const auto add = [&text](const char* key, auto value) { text += std::string(key) + std::to_string(value); };
    text += holdings.inventory ? "\nstate=ready" : "\nstate=starting";
    add("\nstarted=", holdings.started);
    add("\nclients=", holdings.clients);
    add("\nwaiting=", holdings.waiting);
    add("\nrequests=", holdings.requests);
    add("\nchanges=", holdings.feed.newest());
    if (holdings.inventory) {
        add("\npass=", holdings.inventory->pass);
        add("\ntaken=", holdings.inventory->taken);
        add("\nlooked=", holdings.inventory->looked);
        add("\ncomponents=", holdings.inventory->components.size());
        add("\nlog_entries=", holdings.inventory->log.size());
        if (!holdings.inventory->trouble.empty()) text += "\ntrouble=" + holdings.inventory->trouble;
    }
    text.resize(std::min<std::size_t>(text.size(), VPDD_STATUS_ROOM - 1));
    text += '\n';
    return reply_with({text.begin(), text.end()}, holdings.inventory ? holdings.inventory->pass : 0);
}

/// The first records that fit.
Reply components_reply(const Holdings& holdings, std::size_t room) {
    const Records& records = holdings.inventory->components;
    const std::size_t count = std::min(records.size(), room / sizeof(ComponentVpdRecord));
    if (count == 0 && !records.empty()) return refusal(VPDD_REPLY_NO_ROOM);
    return share(holdings, records.data(), count);
}

/// As the library's look-up finds it: 0 and 255 stand for the first record.
Reply component_reply(const Holdings& holdings, uint32_t fru_id, std::size_t room) {
    if (room < sizeof(ComponentVpdRecord)) return refusal(VPDD_REPLY_NO_ROOM);
    const Records& records = holdings.inventory->components;
    const bool is_first_wanted = fru_id == 0 || fru_id == also_first;
    const auto found = is_first_wanted
                           ? records.begin()
                           : std::ranges::find(records, static_cast<uint8_t>(fru_id), &ComponentVpdRecord::fru_id);
    if (found == records.end()) return refusal(VPDD_REPLY_NOT_FOUND);
    return share(holdings, &*found, 1);
}

template <class Record>
Reply record_reply(const Holdings& holdings, const std::optional<Record>& record, std::size_t room) {
    if (room < sizeof(Record)) return refusal(VPDD_REPLY_NO_ROOM);
    if (!record) return refusal(VPDD_REPLY_NOT_FOUND);
    return share(holdings, &*record, 1);
}

/// The newest entries that fit, the oldest of them first.
Reply log_reply(const Holdings& holdings, std::size_t room) {
    const Records& log = holdings.inventory->log;
    const std::size_t count = std::min({log.size(), room / sizeof(ComponentVpdRecord), std::size_t{VPDD_MOST_RECORDS}});
    if (count == 0 && !log.empty()) return refusal(VPDD_REPLY_NO_ROOM);
    return share(holdings, log.data() + (log.size() - count), count);
}

Reply changes_reply(const Holdings& holdings, uint64_t after, std::size_t room) {
    if (room < sizeof(VpddChanges) + sizeof(VpddChangeEntry)) return refusal(VPDD_REPLY_NO_ROOM);
    return reply_with(holdings.feed.reply(after, room), holdings.inventory->pass);
}

}  // namespace

Reply answer(const Holdings& holdings, const Request& request, std::size_t room) {
    const bool wants_status = request.subject == Subject::status || is_privileged(request.subject);
    if (wants_status) return status_reply(holdings, room);
    if (!holdings.inventory) return refusal(VPDD_REPLY_NOT_READY);
    switch (request.subject) {
        case Subject::components:
            return components_reply(holdings, room);
        case Subject::component:
            return component_reply(holdings, request.fru_id, room);
        case Subject::machine:
            return record_reply(holdings, holdings.inventory->machine, room);
        case Subject::oem_machine:
            return record_reply(holdings, holdings.inventory->oem_machine, room);
        case Subject::log:
            return log_reply(holdings, room);
        case Subject::changes:
            return changes_reply(holdings, request.sequence, room);
        default:
            return refusal(VPDD_REPLY_UNKNOWN);
    }
}

}  // namespace vpdd::daemon
