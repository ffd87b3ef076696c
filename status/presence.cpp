// SPDX-License-Identifier: Apache-2.0
#include "status/presence.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "base/log_line.h"
#include "base/text.h"
#include "ipmi/request.h"
#include "platform/debug_trace.h"
#include "platform/ipmi_stack.h"
#include "platform/sensors.h"

namespace {

using vpdd::bounded_view;
using vpdd::Finding;
using vpdd::log_text;
using vpdd::Presence;

constexpr char status_name[] = "UpdateComponentStatus";
constexpr char reading_name[] = "get_sensor_reading_by_fruname";
constexpr int progress = static_cast<int>(vpdd::TraceLevel::progress);

constexpr uint8_t processor_sensor = 0x07;    // IPMI 2.0, table 42-3
constexpr uint16_t presence_detected = 0x80;  // processor sensor, offset 7

constexpr uint8_t read_fru_data = 0x11;  // IPMI 2.0, 34.2
constexpr uint8_t probe_length = 8;      // bytes of the FRU's header
constexpr uint8_t fru_device_busy = 0x81;
constexpr uint8_t no_answer = 0xFF;  // unspecified error
constexpr int probe_attempts = 3;
constexpr useconds_t pause_after_failure = 300000;  // microseconds

Presence no_sensor(const ComponentVpdRecord& record) {
    log_text(vpdd::log_info, "%s(%d): Can't found the %s's sensor\n", status_name, __LINE__,
             vpdd::Terminated(record.name).c_str());
    return {Finding::no_sensor, vpdd::status_no_sensor};
}

}  // namespace

namespace vpdd {

/// A sensor as the platform returns it.
struct ProcessorSensors::Entry {
    uint8_t reserved_0[2];
    uint16_t is_valid;
    uint8_t reserved_4[2];
    char name[192];
    uint16_t state;
    uint8_t reserved_200[2];
    char state_text[1290];
};

struct ProcessorSensors::Buffer {
    static constexpr std::size_t most_sensors = 768;
    std::array<Entry, most_sensors> sensors;
};

/// Nothing that the platform wrote the time before is left. False without memory.
bool ProcessorSensors::prepare() {
    static_assert(sizeof(Entry) == 1492);
    static_assert(offsetof(Entry, is_valid) == 2);
    static_assert(offsetof(Entry, name) == 6);
    static_assert(offsetof(Entry, state) == 198);
    static_assert(offsetof(Entry, state_text) == 202);
    static_assert(sizeof(Buffer) == 1145856);
    if (buffer_ == nullptr) {
        buffer_ = allocate_zeroed<Buffer>();
    } else {
        std::memset(buffer_.get(), 0, written_);
    }
    return buffer_ != nullptr;
}

/// False when there are none.
bool ProcessorSensors::read() {
    uint32_t size = 1;
    const int result = GetAllSensorInfoByType(&size, sizeof(Buffer), &processor_sensor, buffer_.get());
    if (result != 0) {
        written_ = sizeof(Buffer);  // as much as it can be
        log_text(log_info, "%s(%d): Get sensor info fail, return=%d\n", reading_name, __LINE__, result);
        return false;
    }
    written_ = std::min<std::size_t>(size, sizeof(Buffer));
    count_ = written_ / sizeof(Entry);
    if (count_ > 0) return true;
    log_text(log_info, "%s(%d): No sensor info for type %d\n", reading_name, __LINE__, processor_sensor);
    return false;
}

/// The first valid sensor whose name contains the component's; null when there is none.
const ProcessorSensors::Entry* ProcessorSensors::find(const ComponentVpdRecord& record) const {
    const std::string_view wanted = bounded_view(record.name, sizeof record.name);
    for (std::size_t i = 0; i < count_; ++i) {
        const Entry& sensor = buffer_->sensors[i];
        if (sensor.is_valid == 0) continue;
        log_debug_log(trace_file, progress, "[%s]:(%d) - fruName:[%s] saTheSensorInstance[%d].szName:[%s] \n",
                      reading_name, __LINE__, Terminated(record.name).c_str(), static_cast<int>(i),
                      Terminated(sensor.name).c_str());
        if (bounded_view(sensor.name, sizeof sensor.name).find(wanted) != std::string_view::npos) return &sensor;
    }
    return nullptr;
}

Presence ProcessorSensors::probe(const ComponentVpdRecord& record) {
    if (!prepare() || !read()) return no_sensor(record);

    const Entry absent{};  // a processor without a sensor of its name reads as absent
    const Entry* const found = find(record);
    const Entry& sensor = found != nullptr ? *found : absent;
    const int32_t status = (sensor.state & presence_detected) != 0 ? status_present : status_absent;
    log_debug_log(trace_file, progress,
                  "[%s]:(%d) - fruName:[%s] entityId(comp):[0x%x] status:[0x%x] (sensor name: %s, stateValue:%d)\n",
                  status_name, __LINE__, Terminated(record.name).c_str(), record.entity_id,
                  static_cast<unsigned>(status), Terminated(sensor.name).c_str(), sensor.state);

    const std::string_view state_text = bounded_view(sensor.state_text, sizeof sensor.state_text);
    if (state_text.find("Unavailable") == std::string_view::npos) return {Finding::known, status};
    log_text(log_info,
             "%s(%d): Sensor State Unavailable %s status=%d, cur_status=%d, is_cached=%d, stateValue=%d, szState=%s\n",
             status_name, __LINE__, Terminated(record.name).c_str(), status, record.status, record.is_cached,
             sensor.state, Terminated(sensor.state_text).c_str());
    return {Finding::unavailable, status};
}

Presence probe_fru(const ComponentVpdRecord& record) {
    const std::array<uint8_t, 4> request{record.fru_id, 0, 0, probe_length};
    uint8_t completion_code = no_answer;  // the last one that came
    for (int attempt = 0; attempt < probe_attempts; ++attempt) {
        IpmiResponse response{};
        int32_t length = response.size();
        const int result =
            IPMI_DoIPMICmd(netfn_storage, read_fru_data, request.data(), request.size(), response.data(), &length);
        const bool answered = result == 0 && length >= 1;
        if (answered) completion_code = response[0];
        if (answered && (completion_code == ipmi_ok || completion_code == ipmi_not_present)) break;
        usleep(pause_after_failure);
    }
    log_debug_log(trace_file, progress, "[%s]:(%d) - fruName:[%s] entityId(comp):[0x%x] cur_status:%d\n", status_name,
                  __LINE__, Terminated(record.name).c_str(), record.entity_id, record.status);
    const bool is_there = completion_code == ipmi_ok || completion_code == fru_device_busy;
    return {Finding::known, is_there ? status_present : status_absent};
}

}  // namespace vpdd
