// SPDX-License-Identifier: Apache-2.0
#undef _FORTIFY_SOURCE  // the interposed functions are defined here under their plain names
#include "bench/platform.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <utility>

#include "platform/configuration.h"
#include "platform/debug_trace.h"
#include "platform/ipmi_stack.h"
#include "platform/messages.h"
#include "platform/sdr_repository.h"
#include "platform/sensors.h"
#include "platform/smbios_store.h"
#include "platform/system_vpd.h"

namespace vpdd::bench {

namespace {

constexpr uint8_t get_fru_inventory_area_info = 0x10;  // IPMI 2.0, 34.1
constexpr uint8_t read_fru_data = 0x11;                // IPMI 2.0, 34.2
constexpr uint8_t not_present = 0xCB;                  // IPMI 2.0, table 5-2

std::array<Bytes, 256> frus;
std::vector<Bytes> repository;
SmbiosTable* smbios = nullptr;

}  // namespace

uint64_t ipmi_requests = 0;

void set_fru(uint8_t fru_id, Bytes image) { frus[fru_id] = std::move(image); }
void set_repository(std::vector<Bytes> records) { repository = std::move(records); }
void set_smbios(SmbiosTable* table) { smbios = table; }

}  // namespace vpdd::bench

using namespace vpdd::bench;

extern "C" {

int IPMI_DoIPMICmd(uint8_t, uint8_t cmd, const uint8_t* request, uint32_t, uint8_t* response, int32_t* length) {
    ++ipmi_requests;
    response[0] = 0;
    *length = 1;
    if (cmd != get_fru_inventory_area_info && cmd != read_fru_data) return 0;

    const Bytes& image = frus[request[0]];
    if (image.empty()) {
        response[0] = not_present;
        return 0;
    }
    if (cmd == get_fru_inventory_area_info) {
        response[1] = static_cast<uint8_t>(image.size());
        response[2] = static_cast<uint8_t>(image.size() >> 8U);
        response[3] = 0;
        *length = 4;
        return 0;
    }
    const std::size_t offset = request[1] | static_cast<std::size_t>(request[2]) << 8U;
    const std::size_t count = std::min<std::size_t>(request[3], image.size() - std::min(offset, image.size()));
    response[1] = static_cast<uint8_t>(count);
    std::memcpy(response + 2, image.data() + offset, count);
    *length = static_cast<int32_t>(2 + count);
    return 0;
}

int send_ipmi_cmd(const uint8_t*, uint32_t*, uint8_t*, uint32_t*) { return -1; }

int mosk_sdr_get_entry(int, uint16_t record_id, uint32_t length, uint16_t* next_record_id, int32_t* bytes_read,
                       uint8_t* buffer) {
    // Record n has the id n; 0 asks for the first.
    const std::size_t position = record_id == 0 ? 0 : record_id - 1U;
    const Bytes& record = repository[position];
    const std::size_t count = std::min<std::size_t>(length, record.size());
    std::memcpy(buffer, record.data(), count);
    *bytes_read = static_cast<int32_t>(count);
    const bool is_last = position + 1 == repository.size();
    *next_record_id = is_last ? uint16_t{0xFFFF} : static_cast<uint16_t>(position + 2);
    return 0;
}

int tarn_config_get_int(const char*, int32_t*) { return 0; }
int tarn_config_set_int(const char*, int32_t, int) { return 1; }
int tarn_config_set_str(const char*, const char*, int) { return 1; }
int tarn_config_set_str_n(const char*, const char*, uint32_t, int) { return 1; }
int tarn_event_type_occurred(int, const char*, int, int) { return 1; }

int GetAllSensorInfoByType(uint32_t*, uint32_t, const uint8_t*, void*) { return -1; }

int smbt_init(SmbiosTable** table, int, const char*, const char*) {
    *table = smbios;
    return 0;
}
int smbt_release(SmbiosTable*) { return 0; }

uint32_t c_vpd_read_field_size(uint32_t, uint32_t) { return 0; }
int c_vpd_read_field(uint32_t, uint32_t, uint32_t, uint8_t*) { return 0; }
uint8_t* c_vpd_read(uint32_t, uint32_t, uint32_t, uint8_t* buffer) { return buffer; }
int c_vpd_write(uint32_t, uint32_t, uint32_t, const uint8_t*, int) { return 1; }

int log_debug_log(const char*, int, const char*, ...) { return 0; }

int pm_sent_data(int, const void*, uint32_t) { return -1; }
int pm_read_data(int, void*, uint32_t) { return -1; }
int sw_msg_dispatcher(int, void*, int32_t, int32_t) { return 0; }
/// The log's backup is another name of the log: a shell that really copies is not what is measured.
int proc_system(const char* command) {
    constexpr char log[] = "/flash/data0/component_activity.log";
    constexpr char backup[] = "/flash/data0/component_activity.log.backup";
    const std::string_view text(command);
    if (text.starts_with("/bin/cp")) return link(log, backup);
    if (text.starts_with("/bin/rm")) return unlink(backup);
    return rename(backup, log);
}

// ---- interposed functions of the C library

void syslog(int, const char*, ...) {}
unsigned int sleep(unsigned int) { return 0; }
int usleep(useconds_t) { return 0; }

}  // extern "C"
