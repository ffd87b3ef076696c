// SPDX-License-Identifier: Apache-2.0
#include "host/ipmi/remote_bmc.h"

#include <algorithm>
#include <span>

namespace vpdd::host::ipmi {

namespace {

RemoteBmc& bmc_of(void* context) { return *static_cast<RemoteBmc*>(context); }

/// Completion code and data, as far as they fit.
uint32_t put(const Answer& answer, std::span<uint8_t> out) {
    if (out.empty()) return 0;
    out[0] = answer.completion_code;
    const std::size_t length = std::min(answer.data.size(), out.size() - 1);
    std::copy_n(answer.data.begin(), length, out.begin() + 1);
    return static_cast<uint32_t>(length + 1);
}

int command(void* context, uint8_t address, uint8_t netfn, uint8_t lun, uint8_t cmd, const uint8_t* request,
            uint32_t request_length, uint8_t* response, uint32_t* response_length) try {
    const auto answer = bmc_of(context).carry_out({address, netfn, lun, cmd, Bytes(request, request + request_length)});
    if (!answer) return -1;
    *response_length = put(*answer, {response, *response_length});
    return 0;
} catch (const std::exception&) {
    return -1;
}

int sdr_record(void* context, uint16_t record_id, uint16_t* next_record_id, uint8_t* buffer, uint32_t* length) try {
    const auto record = bmc_of(context).repository().read(record_id);
    if (!record) return -1;
    *next_record_id = record->next_id;
    *length = static_cast<uint32_t>(std::min<std::size_t>(record->bytes.size(), *length));
    std::copy_n(record->bytes.begin(), *length, buffer);
    return 0;
} catch (const std::exception&) {
    return -1;
}

int each_sensor(void* context, uint8_t type, VpddHostSensorVisitor visitor, void* visitor_context) try {
    const auto readings = bmc_of(context).sensors().read(type);
    if (!readings) return -1;
    for (const SensorReading& reading : *readings) {
        // The word by which the library knows a sensor that says nothing.
        const VpddHostSensor sensor{reading.name.c_str(), reading.state, reading.is_available ? "" : "Unavailable"};
        visitor(visitor_context, &sensor);
    }
    return 0;
} catch (const std::exception&) {
    return -1;
}

void release(void* context) { const std::unique_ptr<RemoteBmc> owner(&bmc_of(context)); }

}  // namespace

RemoteBmc::RemoteBmc(const Settings& settings, Connection::Report report) : connection_(settings, std::move(report)) {}

VpddHostBmc RemoteBmc::functions() { return {this, command, sdr_record, each_sensor, release}; }

std::optional<Answer> RemoteBmc::carry_out(const Command& command) {
    return FruReads::is_read(command) ? fru_reads_.carry_out(command) : connection_.carry_out(command);
}

}  // namespace vpdd::host::ipmi
