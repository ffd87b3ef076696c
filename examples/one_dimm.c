/* SPDX-License-Identifier: Apache-2.0 */
/* A server of one memory module: the platform functions that liborva_vpdd.so calls, and the record that it makes.
 *     cc one_dimm.c $(pkg-config --cflags --libs orva_vpdd) -o one_dimm */
#include <orva_vpdd.h>
#include <orva_vpdd/platform/configuration.h>
#include <orva_vpdd/platform/debug_trace.h>
#include <orva_vpdd/platform/ipmi_stack.h>
#include <orva_vpdd/platform/messages.h>
#include <orva_vpdd/platform/sdr_repository.h>
#include <orva_vpdd/platform/sensors.h>
#include <orva_vpdd/platform/smbios_store.h>
#include <orva_vpdd/platform/system_vpd.h>
#include <stdio.h>
#include <string.h>

enum { dimm_fru_id = 3 };

/* The module's serial EEPROM, JEDEC 21-C 4.1.2.L: an RDIMM of 32 GiB, DDR4-2666, two ranks of 8 Gb x4 chips, ECC. */
static const uint8_t spd[512] = {
    [0] = 0x23,   0x11, 0x0C, 0x01, 0x85, 0x21, /* sizes, revision, DDR4, RDIMM, 8 Gb in 4 x 4 banks, 16 x 10 bits */
    [11] = 0x03,  0x08, 0x0B,                   /* 1.2 V, two ranks of x4, 64 bits and 8 of ECC */
    [18] = 0x06,  0x0D, 0xF8, 0x0F,             /* tCKmin 0.75 ns, tCKmax, CAS latencies 10 to 19 */
    [24] = 0x6E,                                /* tAAmin 13.75 ns */
    [320] = 0x80, 0x2C, 0x00, 0x21, 0x14,       /* Micron, place, year 21, week 14 */
    [325] = 0x12, 0x34, 0x56, 0x78,             /* serial number */
    [329] = 'E',  'X',  '-',  '3',  '2',  'G',  '-', 'D', 'D', 'R', '4', '-', '2', '6', '6', '6', '-', 'R', 'E', 'G',
};

/* The SDR repository's only record: where the module is read (IPMI 2.0 section 43.8). */
static const uint8_t locator[] = {
    0x01, 0x00,        0x51, 0x11, 17,              /* record id, SDR version, FRU Device Locator, length of the rest */
    0x20, dimm_fru_id, 0x80, 0,    0,   0x10, 0x01, /* BMC, logical FRU, device type with the modifier of a DIMM */
    32,   1,           0,    0xC6, 'D', 'I',  'M',  'M', ' ', '1', /* memory device 1, a name of 6 characters */
};

int mosk_sdr_get_entry(int repository, uint16_t record_id, uint32_t length, uint16_t* next_record_id,
                       int32_t* bytes_read, uint8_t* buffer) {
    const uint32_t count = length < sizeof locator ? length : (uint32_t)sizeof locator;
    memcpy(buffer, locator, count);
    *bytes_read = (int32_t)count;
    *next_record_id = 0xFFFF;
    return 0;
}

enum { app = 0x06, storage = 0x0A };                                                     /* network functions */
enum { get_device_id = 0x01, get_fru_inventory_area_info = 0x10, read_fru_data = 0x11 }; /* IPMI 2.0 sections 20, 34 */

/* The data behind the completion code; -1 for what this BMC does not answer. */
static int32_t answer(uint8_t netfn, uint8_t cmd, const uint8_t* request, uint8_t* data) {
    if (netfn == app && cmd == get_device_id) {
        memset(data, 0, 11);
        return 11;
    }
    if (netfn != storage || request[0] != dimm_fru_id) return -1;
    if (cmd == get_fru_inventory_area_info) {
        const uint8_t info[] = {(uint8_t)sizeof spd, sizeof spd >> 8, 0};
        memcpy(data, info, sizeof info);
        return sizeof info;
    }
    if (cmd != read_fru_data) return -1;
    const uint32_t offset = request[1] | (uint32_t)request[2] << 8;
    const uint8_t count = request[3];
    if (offset + count > sizeof spd) return -1;
    data[0] = count;
    memcpy(data + 1, spd + offset, count);
    return 1 + count;
}

int IPMI_DoIPMICmd(uint8_t netfn, uint8_t cmd, const uint8_t* request, uint32_t request_length, uint8_t* response,
                   int32_t* response_length) {
    const int32_t count = answer(netfn, cmd, request, response + 1);
    response[0] = count < 0 ? 0xC1 : 0; /* completion code: invalid command, or done */
    *response_length = count < 0 ? 1 : 1 + count;
    return 0;
}

/* What this server does not have. The functions of the configuration and of the system VPD return 0 for a failure. */
int send_ipmi_cmd(const uint8_t* raw_request, uint32_t* raw_request_length, uint8_t* response,
                  uint32_t* response_length) {
    return -1;
}
int GetAllSensorInfoByType(uint32_t* size, uint32_t buffer_size, const uint8_t* sensor_type, void* buffer) {
    return -1;
}
int smbt_init(SmbiosTable** table, int flags, const char* name, const char* directory) { return -1; }
int smbt_release(SmbiosTable* table) { return 0; }
uint32_t c_vpd_read_field_size(uint32_t instance, uint32_t id) { return 0; }
int c_vpd_read_field(uint32_t instance, uint32_t id, uint32_t size, uint8_t* buffer) { return 0; }
uint8_t* c_vpd_read(uint32_t instance, uint32_t offset, uint32_t length, uint8_t* buffer) { return NULL; }
int c_vpd_write(uint32_t instance, uint32_t offset, uint32_t length, const uint8_t* buffer, int flag) { return 0; }
int tarn_config_get_int(const char* name, int32_t* value) { return 0; }
int tarn_config_set_int(const char* name, int32_t value, int flag) { return 1; }
int tarn_config_set_str(const char* name, const char* value, int flag) { return 1; }
int tarn_config_set_str_n(const char* name, const char* value, uint32_t length, int flag) { return 1; }
int tarn_event_type_occurred(int type, const char* name, int argument0, int argument1) { return 1; }
int log_debug_log(const char* path, int level, const char* format, ...) { return 0; }
int pm_sent_data(int fd, const void* data, uint32_t length) { return -1; }
int pm_read_data(int fd, void* data, uint32_t length) { return -1; }
int sw_msg_dispatcher(int message, void* payload, int32_t argument0, int32_t argument1) { return -1; }
int proc_system(const char* command) { return -1; }

int main(void) {
    const uint8_t fru_id = dimm_fru_id;
    uint32_t length = 0;
    ComponentVpdRecord record;
    if (CreateComponentVPDCache() != 0) return 1;
    const int result = GetComponentVPDByFruID(&length, sizeof record, &fru_id, &record);
    DestroyComponentVPDCache();
    if (result != 0) return 1;

    const SpdInfo* const module = &record.spd_info;
    printf("%s (FRU %u)\n", record.name, record.fru_id);
    printf("  %s %s, %u MB, %d MHz, ECC of %u bits\n", module->device_type, module->module_type, module->ram_size,
           module->sdram_frequency, module->ecc_bits);
    printf("  maker %s, part %s, serial number %s, made %s\n", module->mfg_id, module->part_number,
           module->serial_number, record.mfg_date);
    return 0;
}
