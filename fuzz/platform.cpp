// SPDX-License-Identifier: Apache-2.0
#include "fuzz/platform.h"

#include <poll.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <string>

#include "host/images/sdr_record.h"
#include "platform/change_history.h"
#include "platform/configuration.h"
#include "platform/debug_trace.h"
#include "platform/ipmi_stack.h"
#include "platform/messages.h"
#include "platform/sdr_repository.h"
#include "platform/sensors.h"
#include "platform/smbios_store.h"
#include "platform/system_vpd.h"

namespace vpdd::fuzz {

namespace {

constexpr uint8_t netfn_app = 0x06, get_device_id = 0x01;
constexpr uint8_t netfn_storage = 0x0A, get_area_info = 0x10, read_data = 0x11;
constexpr uint8_t netfn_oem = 0x3A, read_system_vpd = 0x0B;

constexpr uint8_t invalid_command = 0xC1, not_present = 0xCB;
constexpr uint32_t pos_id_extension = 6;  // field of the system VPD

IpmiAnswer completed(std::span<const uint8_t> data) {
    IpmiAnswer answer{.bytes{0}};
    answer.bytes.insert(answer.bytes.end(), data.begin(), data.end());
    return answer;
}

IpmiAnswer refused(uint8_t completion_code) { return {.bytes{completion_code}}; }

IpmiAnswer area_info(std::span<const uint8_t> image) {
    const std::size_t size = std::min<std::size_t>(image.size(), 0xFFFF);
    return completed(Bytes{static_cast<uint8_t>(size), static_cast<uint8_t>(size >> 8U), 0});
}

/// `request` holds FRU id, offset and count.
IpmiAnswer fru_data(std::span<const uint8_t> image, std::span<const uint8_t> request) {
    const std::size_t offset = std::min<std::size_t>(request[1] | request[2] << 8U, image.size());
    const auto chunk = image.subspan(offset, std::min<std::size_t>(request[3], image.size() - offset));
    Bytes data{static_cast<uint8_t>(chunk.size())};
    data.insert(data.end(), chunk.begin(), chunk.end());
    return completed(data);
}

template <std::size_t Size>
void require_ended(const char (&text)[Size]) {
    require(strnlen(text, Size) < Size, "a text has no end");
}

void require_ended_texts(const SpdInfo& module) {
    require_ended(module.description);
    require_ended(module.part_number);
    require_ended(module.serial_number);
    require_ended(module.udi_part_number);
    require_ended(module.mfg_id);
    require_ended(module.device_type);
    require_ended(module.module_type);
    require_ended(module.sdram_freq_string);
    require_ended(module.cas_latencies_supports);
}

void require_good(const ComponentVpdRecord& record) {
    require_ended(record.board_extra);
    require_ended(record.name);
    require_ended(record.ppin);
    require_ended(record.serial_number);
    require_ended(record.mfg_id);
    require_ended(record.mfg_date);
    require_ended(record.part_number);
    require_ended(record.product_version);
    require_ended_texts(record.spd_info);
    for (const auto& text : record.oem_cpu.text) require_ended(text);
    require(record.oem_cpu.raw_length <= sizeof record.oem_cpu.raw, "more raw bytes than there is room");
    require_ended(record.psu_fw.primary);
    require_ended(record.psu_fw.secondary);
    require(record.ppin_dump == 0, "a PPIN dump was left over");
}

void require_free(pthread_mutex_t& mutex) {
    require(pthread_mutex_trylock(&mutex) == 0, "a mutex was left locked");
    pthread_mutex_unlock(&mutex);
}

/// Also takes away what an unreadable repository has left in the list.
void empty_cache() {
    if (DestroyComponentVPDCache() == 0) return;
    world() = {};
    world().sdr = {images::full_sensor_record(1, "Ambient")};
    require(CreateComponentVPDCache() == 0, "the cache cannot be created again");
    require(DestroyComponentVPDCache() == 0, "the cache cannot be destroyed");
}

/// The fuzzer's own threads sleep as usual.
thread_local bool is_in_round = false;

}  // namespace

World& world() {
    static World the_world;
    return the_world;
}

IpmiAnswer standard_ipmi_answer(const IpmiCall& call) {
    if (call.is(netfn_app, get_device_id)) return completed(Bytes(15));
    if (call.is(netfn_oem, read_system_vpd)) return completed(world().fields[pos_id_extension]);
    if (call.netfn != netfn_storage || call.data.empty()) return refused(invalid_command);
    const auto fru = world().frus.find(call.data[0]);
    if (fru == world().frus.end()) return refused(not_present);
    if (call.cmd == get_area_info) return area_info(fru->second);
    if (call.cmd == read_data && call.data.size() == 4) return fru_data(fru->second, call.data);
    return refused(invalid_command);
}

SdrAnswer standard_sdr_answer(uint16_t record_id) {
    const auto& records = world().sdr;
    if (record_id >= records.size()) return {.result = -1};
    const bool is_last = record_id + 1U == records.size();
    return {0, records[record_id], is_last ? uint16_t{0xFFFF} : static_cast<uint16_t>(record_id + 1)};
}

void require(bool is_so, const char* what) {
    if (is_so) return;
    // Standard error may be closed: fuzz/run_target shows a finding again with it open.
    std::fprintf(stderr, "requirement: %s\n", what);
    std::abort();
}

Round::Round() {
    is_in_round = true;
    world() = {};
    // Each input finds the caches of a new process.
    std::memset(host_mac_cache, 0, sizeof host_mac_cache);
    isHostMacCache = 0;
}

Round::~Round() {
    empty_cache();
    for (pthread_mutex_t* mutex :
         {&compvpd_access_mutex, &g_list_access_mutex, &compvpd_readonly_mutex, &compvpd_kiva_readonly_mutex,
          &g_fru_changed_flag_mutex, &sysvpd_access_mutex, &compvpd_getproperty_mutex, &compvpd_getstringproperty_mutex,
          &compvpd_getbyteproperty_mutex, &fwvpd_access_mutex}) {
        require_free(*mutex);
    }
    is_in_round = false;
}

int Round::create() {
    constexpr int sdr_unreadable = -3;
    const int result = CreateComponentVPDCache();
    require(result == 0 || result == sdr_unreadable, "creation has an unknown result");
    return result;
}

std::vector<ComponentVpdRecord> cached_records() {
    constexpr std::size_t bulk_limit = 2048;  // of one call
    std::vector<ComponentVpdRecord> records(8);
    uint32_t length = 0;
    for (;;) {
        const auto room = static_cast<uint32_t>(records.size() * sizeof records[0]);
        if (GetComponentVPD_KIVA(&length, room, nullptr, records.data()) != 0) length = 0;
        if (length < room || records.size() >= bulk_limit) break;
        records.resize(2 * records.size());
    }
    records.resize(length / sizeof records[0]);
    for (const ComponentVpdRecord& record : records) require_good(record);
    return records;
}

}  // namespace vpdd::fuzz

// ---- the platform's functions

using namespace vpdd::fuzz;

namespace {

void format(const char* text, va_list arguments) {
    static char line[4096];
    std::vsnprintf(line, sizeof line, text, arguments);
}

/// Copies as much of `bytes` as there is room for, and returns that count.
std::size_t deliver(std::span<const uint8_t> bytes, void* to, std::size_t room) {
    const std::size_t count = std::min(bytes.size(), room);
    if (count > 0) std::memcpy(to, bytes.data(), count);
    return count;
}

IpmiAnswer answer_to(const IpmiCall& call) {
    return world().answer_ipmi ? world().answer_ipmi(call) : standard_ipmi_answer(call);
}

/// A module without a size ends a creation with a mutex locked and an image left for good: here every one has a size.
/// The answer is looked at as the library finds it, with what an earlier attempt left behind its end.
void give_size(const IpmiCall& call, std::span<uint8_t> response) {
    const bool is_first_chunk = call.is(netfn_storage, read_data) && call.data[1] == 0 && call.data[2] == 0;
    if (!is_first_chunk) return;
    const auto image = response.subspan(2);  // completion code, count
    if (image[2] == 0x12 && (image[0] & 0x70) == 0) image[0] |= 0x10;
}

/// What the shell would do, for the commands that the activity log needs.
int carry_out(const std::vector<std::string>& words) {
    namespace fs = std::filesystem;
    std::error_code failure;
    if (words.size() == 4 && words[0] == "/bin/cp") {
        fs::copy_file(words[2], words[3], fs::copy_options::overwrite_existing, failure);
    } else if (words.size() == 3 && words[0] == "/bin/mv") {
        fs::rename(words[1], words[2], failure);
    } else if (words.size() == 3 && words[0] == "/bin/rm") {
        fs::remove(words[2], failure);
    } else {
        require(false, "an unknown command");
    }
    return failure ? 1 : 0;
}

}  // namespace

extern "C" {

int IPMI_DoIPMICmd(uint8_t netfn, uint8_t cmd, const uint8_t* request, uint32_t request_length, uint8_t* response,
                   int32_t* response_length) {
    const IpmiCall call{netfn, cmd, {request, request_length}};
    const IpmiAnswer answer = answer_to(call);
    const std::span room(response, static_cast<std::size_t>(*response_length));
    const std::size_t count = deliver(answer.bytes, room.data(), room.size());
    give_size(call, room);
    *response_length = answer.length.value_or(static_cast<int32_t>(count));
    return answer.result;
}

int send_ipmi_cmd(const uint8_t* raw_request, uint32_t* raw_request_length, uint8_t* response,
                  uint32_t* response_length) {
    // Target address, NetFn, LUN, command, data.
    const std::span request(raw_request, *raw_request_length);
    const IpmiAnswer answer = answer_to({request[1], request[3], request.subspan(4)});
    const std::size_t count = deliver(answer.bytes, response, *response_length);
    *response_length = static_cast<uint32_t>(answer.length.value_or(static_cast<int32_t>(count)));
    return answer.result;
}

uint32_t c_vpd_read_field_size(uint32_t, uint32_t id) {
    const auto field = world().fields.find(id);
    if (field == world().fields.end()) return 0;
    return world().field_size.value_or(static_cast<uint32_t>(field->second.size()));
}

int c_vpd_read_field(uint32_t, uint32_t id, uint32_t size, uint8_t* buffer) {
    const auto field = world().fields.find(id);
    if (field == world().fields.end()) return 0;
    deliver(field->second, buffer, size);
    return 1;
}

uint8_t* c_vpd_read(uint32_t, uint32_t, uint32_t, uint8_t*) { return nullptr; }

int c_vpd_write(uint32_t, uint32_t, uint32_t, const uint8_t*, int) { return 1; }

int mosk_sdr_get_entry(int, uint16_t record_id, uint32_t length, uint16_t* next_record_id, int32_t* bytes_read,
                       uint8_t* buffer) {
    const SdrAnswer answer = world().answer_sdr ? world().answer_sdr(record_id) : standard_sdr_answer(record_id);
    if (answer.result != 0) return answer.result;
    *bytes_read = static_cast<int32_t>(deliver(answer.record, buffer, length));
    *next_record_id = answer.next_record_id;
    return 0;
}

int GetAllSensorInfoByType(uint32_t* size, uint32_t buffer_size, const uint8_t*, void* buffer) {
    *size = static_cast<uint32_t>(deliver(world().sensors, buffer, buffer_size));
    return 0;
}

int tarn_config_get_int(const char*, int32_t*) { return 0; }
int tarn_config_set_int(const char*, int32_t, int) { return 1; }

int tarn_config_set_str(const char* name, const char* value, int) {
    require(name != nullptr && std::strlen(value) < 4096, "a variable's text");
    return 1;
}

int tarn_config_set_str_n(const char*, const char* value, uint32_t length, int) {
    require(std::strlen(value) == length, "a variable's length");
    return 1;
}

int tarn_event_type_occurred(int, const char*, int, int) { return 0; }

int log_debug_log(const char*, int, const char* text, ...) {
    va_list arguments;
    va_start(arguments, text);
    format(text, arguments);
    va_end(arguments);
    return 0;
}

int pm_sent_data(int, const void*, uint32_t) { return -1; }
int pm_read_data(int, void*, uint32_t) { return -1; }
int sw_msg_dispatcher(int, void*, int32_t, int32_t) { return 0; }

int proc_system(const char* command) {
    std::istringstream words(command);
    return carry_out({std::istream_iterator<std::string>(words), {}});
}

int smbt_init(SmbiosTable** table, int, const char*, const char*) {
    if (world().smbios == nullptr) return -1;
    *table = world().smbios;
    return 0;
}

int smbt_release(SmbiosTable*) { return 0; }

// ---- interposed functions of the C library

void syslog(int, const char* text, ...) {
    va_list arguments;
    va_start(arguments, text);
    format(text, arguments);
    va_end(arguments);
}

unsigned int sleep(unsigned int seconds) {
    if (!is_in_round) poll(nullptr, 0, static_cast<int>(seconds) * 1000);
    return 0;
}

int usleep(useconds_t microseconds) {
    if (!is_in_round) poll(nullptr, 0, static_cast<int>(microseconds / 1000));
    return 0;
}

}  // extern "C"
