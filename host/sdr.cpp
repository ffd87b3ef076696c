// SPDX-License-Identifier: Apache-2.0
// The SDR repository: records in the description's order, whose ids need not follow each other.
#include <algorithm>

#include "host/server.h"
#include "platform/sdr_repository.h"

extern "C" int mosk_sdr_get_entry(int repository, uint16_t record_id, uint32_t length, uint16_t* next_record_id,
                                  int32_t* bytes_read, uint8_t* buffer) {
    constexpr int own_repository = 1;
    constexpr uint16_t first_record = 0;
    constexpr uint16_t no_record = 0xFFFF;
    const auto server = vpdd::host::current_server();
    if (!server || repository != own_repository || next_record_id == nullptr || bytes_read == nullptr ||
        buffer == nullptr)
        return -1;

    const auto& records = server->description.sdr;
    const auto record =
        record_id == first_record ? records.begin() : std::ranges::find(records, record_id, &vpdd::host::SdrRecord::id);
    if (record == records.end()) return -1;

    const std::size_t count = std::min<std::size_t>(record->bytes.size(), length);
    std::copy_n(record->bytes.begin(), count, buffer);
    *bytes_read = static_cast<int32_t>(count);
    *next_record_id = record + 1 == records.end() ? no_record : (record + 1)->id;
    return 0;
}
