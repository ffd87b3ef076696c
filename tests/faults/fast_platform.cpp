// SPDX-License-Identifier: Apache-2.0
#undef _FORTIFY_SOURCE  // the interposed functions are defined here under their plain names
#include "faults/fast_platform.h"

#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <ctime>

#include "platform/configuration.h"
#include "platform/debug_trace.h"
#include "platform/ipmi_stack.h"
#include "platform/messages.h"
#include "platform/sdr_repository.h"
#include "platform/sensors.h"
#include "platform/smbios_store.h"
#include "platform/system_vpd.h"
#include "status/log_world.h"

namespace vpdd::test {

FastPlatform& FastPlatform::instance() {
    static auto* const platform = new FastPlatform;
    return *platform;
}

void FastPlatform::begin(const PlatformFault& fault) {
    fault_ = fault;
    failing_request_.clear();
    calls.clear();
}

bool FastPlatform::fails(CallKind kind, int fru_id, const Image& request) {
    calls.push_back({kind, fru_id});
    const bool is_repeated = !failing_request_.empty() && request == failing_request_;
    failing_request_.clear();
    const bool fails = calls.size() == fault_.number || (fault_.also_retries && is_repeated);
    if (fails) failing_request_ = request;
    return fails;
}

}  // namespace vpdd::test

using namespace vpdd::test;

namespace {

constexpr uint8_t netfn_app = 0x06, netfn_storage = 0x0A;
constexpr uint8_t get_device_id = 0x01, get_fru_area_info = 0x10, read_fru_data = 0x11;
constexpr uint8_t invalid_command = 0xC1, not_present = 0xCB;

FastPlatform& platform() { return FastPlatform::instance(); }

/// Completion code and data.
Image right_answer(uint8_t netfn, uint8_t cmd, const uint8_t* request) {
    if (netfn == netfn_app && cmd == get_device_id) return {0, 0x20, 1, 1, 0, 2, 0xBF};
    if (netfn != netfn_storage) return {invalid_command};
    const Image& image = platform().frus[request[0]];
    if (image.empty()) return {not_present};
    if (cmd == get_fru_area_info) {
        return {0, static_cast<uint8_t>(image.size()), static_cast<uint8_t>(image.size() >> 8U), 0};
    }
    const std::size_t offset = request[1] | static_cast<std::size_t>(request[2]) << 8U;
    const std::size_t count = std::min<std::size_t>(request[3], image.size() - std::min(offset, image.size()));
    Image answer{0, static_cast<uint8_t>(count)};
    const auto first = image.begin() + static_cast<std::ptrdiff_t>(offset);
    answer.insert(answer.end(), first, first + static_cast<std::ptrdiff_t>(count));
    return answer;
}

/// What becomes of the right answer; its stated length, too.
void spoil(const PlatformFault& fault, uint8_t cmd, Image& answer, int32_t& length) {
    constexpr std::size_t surplus = 100;
    switch (fault.failure) {
        case Failure::refused:
            return;
        case Failure::completion_code:
            answer = {fault.code};
            break;
        case Failure::short_answer:
            answer.resize((answer.size() + 1) / 2);
            break;
        case Failure::nothing_but_code:
            answer.resize(1);
            break;
        case Failure::long_answer:
            answer.resize(answer.size() + surplus, 0xEE);
            break;
        case Failure::overstated_answer:
            length = INT32_MAX;
            return;
        case Failure::overstated_count:
            // A FRU that says it is larger than it is; a chunk that says it holds more than was asked for.
            if (answer.size() > 2) answer[cmd == get_fru_area_info ? 2 : 1] = 0xFF;
            break;
    }
    length = static_cast<int32_t>(answer.size());
}

}  // namespace

extern "C" {

int IPMI_DoIPMICmd(uint8_t netfn, uint8_t cmd, const uint8_t* request, uint32_t request_length, uint8_t* response,
                   int32_t* response_length) {
    Image whole{netfn, cmd};
    whole.insert(whole.end(), request, request + request_length);
    const bool fails = platform().fails(CallKind::ipmi, netfn == netfn_storage ? request[0] : -1, whole);
    if (fails && platform().fault().failure == Failure::refused) return -1;
    const auto room = static_cast<std::size_t>(*response_length);
    Image answer = right_answer(netfn, cmd, request);
    auto length = static_cast<int32_t>(answer.size());
    if (fails) spoil(platform().fault(), cmd, answer, length);
    std::memcpy(response, answer.data(), std::min(answer.size(), room));
    *response_length = length;
    return 0;
}

int send_ipmi_cmd(const uint8_t*, uint32_t*, uint8_t*, uint32_t*) { return -1; }
uint32_t c_vpd_read_field_size(uint32_t, uint32_t) { return 0; }
int c_vpd_read_field(uint32_t, uint32_t, uint32_t, uint8_t*) { return 0; }
uint8_t* c_vpd_read(uint32_t, uint32_t, uint32_t, uint8_t*) { return nullptr; }
int c_vpd_write(uint32_t, uint32_t, uint32_t, const uint8_t*, int) { return 0; }

int mosk_sdr_get_entry(int, uint16_t record_id, uint32_t length, uint16_t* next_record_id, int32_t* bytes_read,
                       uint8_t* buffer) {
    const bool fails = platform().fails(CallKind::sdr);
    const Failure failure = platform().fault().failure;
    if (fails && failure == Failure::refused) return -1;
    const std::size_t number = std::max<std::size_t>(record_id, 1);
    const Image& record = platform().sdr.at(number - 1);
    std::size_t count = record.size();
    if (fails && failure == Failure::short_answer) count /= 2;
    if (fails && failure == Failure::nothing_but_code) count = 0;
    std::memcpy(buffer, record.data(), std::min<std::size_t>(count, length));
    if (fails && failure == Failure::long_answer) std::memset(buffer + count, 0xEE, length - count);
    *bytes_read = fails && failure == Failure::overstated_answer ? INT32_MAX : static_cast<int32_t>(count);
    *next_record_id = number == platform().sdr.size() ? 0xFFFF : static_cast<uint16_t>(number + 1);
    return 0;
}

int GetAllSensorInfoByType(uint32_t* size, uint32_t buffer_size, const uint8_t*, void* buffer) {
    const bool fails = platform().fails(CallKind::sensors);
    const Failure failure = platform().fault().failure;
    if (fails && failure == Failure::refused) return -1;
    const Image& sensors = platform().processor_sensors;
    std::size_t count = sensors.size();
    if (fails && failure == Failure::short_answer) count /= 2;
    if (fails && failure == Failure::nothing_but_code) count = 0;
    std::memcpy(buffer, sensors.data(), std::min<std::size_t>(count, buffer_size));
    if (fails && failure == Failure::long_answer) count = buffer_size;
    *size = fails && failure == Failure::overstated_answer ? UINT32_MAX : static_cast<uint32_t>(count);
    return 0;
}

int tarn_config_get_int(const char*, int32_t* value) {
    if (platform().fails(CallKind::configuration)) return 0;
    *value = 1;
    return 1;
}

int tarn_config_set_int(const char*, int32_t, int) { return platform().fails(CallKind::configuration) ? 0 : 1; }
int tarn_config_set_str(const char*, const char*, int) { return platform().fails(CallKind::configuration) ? 0 : 1; }
int tarn_config_set_str_n(const char*, const char*, uint32_t, int) {
    return platform().fails(CallKind::configuration) ? 0 : 1;
}
int tarn_event_type_occurred(int, const char*, int, int) { return platform().fails(CallKind::message) ? -1 : 0; }
int sw_msg_dispatcher(int, void*, int32_t, int32_t) { return platform().fails(CallKind::message) ? -1 : 0; }
int pm_sent_data(int, const void*, uint32_t) { return -1; }
int pm_read_data(int, void*, uint32_t) { return -1; }
int log_debug_log(const char*, int, const char*, ...) { return 0; }

int proc_system(const char* command) { return platform().fails(CallKind::shell) ? 1 : run_command(command); }

int smbt_init(SmbiosTable** table, int, const char*, const char*) {
    if (platform().fails(CallKind::smbios)) return -1;
    *table = platform().smbios;
    return 0;
}

int smbt_release(SmbiosTable*) { return platform().fails(CallKind::smbios) ? -1 : 0; }

// Interposed functions of the C library: nothing is logged, nothing sleeps, and the clock stands still.

void syslog(int, const char*, ...) {}
void __syslog_chk(int, int, const char*, ...) {}
unsigned int sleep(unsigned int) { return 0; }
int usleep(useconds_t) { return 0; }

time_t time(time_t* seconds) noexcept {
    constexpr time_t now = 1700000000;
    if (seconds != nullptr) *seconds = now;
    return now;
}

}  // extern "C"
