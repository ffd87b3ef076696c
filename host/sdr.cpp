// SPDX-License-Identifier: Apache-2.0
// The SDR repository: records in the description's order, whose ids need not follow each other, or those of the BMC.
#include <algorithm>

#include "host/server.h"
#include "platform/sdr_repository.h"

namespace vpdd::host {

namespace {

constexpr uint16_t first_record = 0;
constexpr uint16_t no_record = 0xFFFF;

/// Where a record goes.
struct RecordRoom {
    uint16_t* next_record_id;
    int32_t* bytes_read;
    std::span<uint8_t> bytes;
};

int described_record(const std::vector<SdrRecord>& records, uint16_t id, const RecordRoom& room) {
    const auto record = id == first_record ? records.begin() : std::ranges::find(records, id, &SdrRecord::id);
    if (record == records.end()) return -1;

    const std::size_t count = std::min(record->bytes.size(), room.bytes.size());
    std::copy_n(record->bytes.begin(), count, room.bytes.begin());
    *room.bytes_read = static_cast<int32_t>(count);
    *room.next_record_id = record + 1 == records.end() ? no_record : (record + 1)->id;
    return 0;
}

/// The progress of reading FRUs counts their locators.
void note_locator(Server& server, std::span<const uint8_t> record) {
    constexpr std::size_t record_type = 3, fru_id = 6;  // bytes of the record, IPMI 2.0 table 43-7
    constexpr uint8_t fru_device_locator = 0x11;
    if (record.size() > fru_id && record[record_type] == fru_device_locator) server.seen_locators.add(record[fru_id]);
}

int bmc_record(Server& server, uint16_t id, const RecordRoom& room) {
    auto length = static_cast<uint32_t>(room.bytes.size());
    if (server.bmc->sdr_record(server.bmc->context, id, room.next_record_id, room.bytes.data(), &length) != 0)
        return -1;
    *room.bytes_read = static_cast<int32_t>(length);
    note_locator(server, room.bytes.first(length));
    return 0;
}

}  // namespace

}  // namespace vpdd::host

extern "C" int mosk_sdr_get_entry(int repository, uint16_t record_id, uint32_t length, uint16_t* next_record_id,
                                  int32_t* bytes_read, uint8_t* buffer) {
    constexpr int own_repository = 1;
    const auto server = vpdd::host::current_server();
    if (!server || repository != own_repository || next_record_id == nullptr || bytes_read == nullptr ||
        buffer == nullptr)
        return -1;
    const vpdd::host::RecordRoom room{next_record_id, bytes_read, {buffer, length}};
    if (server->bmc) return vpdd::host::bmc_record(*server, record_id, room);
    return vpdd::host::described_record(server->description.sdr, record_id, room);
}
