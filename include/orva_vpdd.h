/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file orva_vpdd.h
 * @brief Vital product data of a managed server: the public interface of liborva_vpdd.so.
 *
 * Conventions
 * -----------
 * Result codes. Unless a function says otherwise an `int` result is 0 for success and negative for a failure: -1 a bad
 * argument or a general failure, -3 SDR repository unreadable, -4/-5 cache not created, -7 no such FRU record, -9 FRU
 * read failure. 203 (VPDD_IPMI_NOT_PRESENT) reports IPMI completion code 0xCB, "requested data not present".
 *
 * Memory. Callers own the buffers they pass in and receive copies. What a function allocates for its caller comes from
 * `malloc` and is released with `free`, or with the release function that its description names. The component list and
 * its records belong to the library.
 *
 * Texts. Text fields in records have a fixed size, are zero-filled and end with a NUL inside the field. Numbers in
 * records stand in the processor's byte order (little-endian on every supported target).
 *
 * Threads. Functions over caller buffers may run on any thread at once. Functions that use shared state say which mutex
 * guards it. Only vpd_sysvpd_changed_notify_callback() may be cancelled. Lock order: an outer "readonly" mutex before
 * `compvpd_access_mutex`, `g_list_access_mutex` only inside it; `fwvpd_access_mutex`, `compvpd_getstringproperty_mutex`
 * or `compvpd_getbyteproperty_mutex` before `compvpd_getproperty_mutex`.
 *
 * Layout. Records have the same layout on 32-bit ARM and on 64-bit Linux; only structures that hold pointers differ.
 */
#ifndef ORVA_VPDD_H
#define ORVA_VPDD_H

#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/types.h>
#include <unistd.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** Result of a request that the BMC answered with completion code 0xCB: requested data not present. */
#define VPDD_IPMI_NOT_PRESENT 203

/* ---- Records ---------------------------------------------------------------------------------------------------- */

/** Decoded Serial Presence Detect data of one memory module, 400 bytes. */
typedef struct SpdInfo {
    char description[17];       /**< free text, not set by the SPD decoders */
    char part_number[31];       /**< module part number */
    char serial_number[25];     /**< 18 hex digits: maker, location, date, serial number, in SPD order */
    char udi_part_number[12];   /**< 7 raw bytes of the end-user area */
    char mfg_id[33];            /**< module manufacturer, JEP106 name */
    char device_type[21];       /**< "DDR3", "DDR4", "DDR5", "NVM", "NVDIMM-N" or "Intel Optane PMem" */
    char module_type[17];       /**< "RDIMM", "UDIMM", ... */
    char sdram_freq_string[33]; /**< e.g. "DDR4-2400 (1200 MHz clock)"; DDR3 and DDR4 only */
    uint8_t reserved_189;
    uint16_t vendor_product_id; /**< DDR4 and NVM only */
    uint16_t module_vendor_id;  /**< module manufacturer id word */
    uint16_t subsys_vendor_id;  /**< DDR4 path only */
    uint16_t subsys_device_id;  /**< DDR4 path only */
    uint8_t sdram_row_bits;     /**< not set by the decoders */
    uint8_t sdram_col_bits;     /**< not set by the decoders */
    uint8_t module_voltage;     /**< raw voltage byte */
    uint8_t module_ranks;       /**< DDR3/DDR4: rank code (ranks - 1); DDR5: ranks */
    uint8_t device_width;       /**< not set by the decoders */
    uint8_t reserved_203;
    uint32_t module_bus_width;        /**< primary bus width in bits */
    float fine_timebase;              /**< ns (DDR3: ps) */
    float medium_timebase;            /**< ns */
    int32_t sdram_frequency;          /**< DDR3/DDR4: clock in MHz; DDR5: data rate in MT/s */
    float sdram_clock;                /**< tCKmin in ns; DDR3 and DDR4 only */
    char cas_latencies_supports[132]; /**< supported CAS latencies, comma separated */
    float cas_latency;                /**< tAAmin in ns; DDR3 and DDR4 only */
    int32_t crc;                      /**< SPD CRC as kept by the component cache */
    uint32_t mfg_week;                /**< manufacturing week, BCD decoded */
    uint32_t mfg_year;                /**< manufacturing year, two digits, BCD decoded */
    uint32_t ram_size;                /**< MB (flash DIMMs: flash capacity in GB) */
    uint32_t speed_in_MBpsec;         /**< peak transfer rate in MB/s; DDR3 and DDR4 only */
    uint32_t ecc_bits;                /**< ECC width in bits, 0 for none */
    uint32_t config_speed;            /**< configured speed from SMBIOS, MT/s */
    uint32_t AEP_Flag;                /**< persistent memory: 1 decoded by the DDR4 path, 2 by the DDR5 path */
    uint32_t smbios_size;             /**< SMBIOS type 17 Size word, not decoded */
    uint32_t smbios_speed;            /**< SMBIOS type 17 Speed word */
} SpdInfo;

/** OEM processor multirecord, 776 bytes. */
typedef struct OemCpuRecord {
    uint32_t index;
    char text[11][64];
    uint32_t raw_length; /**< bytes used in `raw` */
    uint8_t raw[64];
} OemCpuRecord;

/** Firmware versions of a power supply, 24 bytes. */
typedef struct PsuFwVersion {
    char primary[12];
    char secondary[12];
} PsuFwVersion;

/** One component of the server, 1512 bytes; also the image of an activity-log entry. */
typedef struct ComponentVpdRecord {
    uint8_t reserved_0;
    uint8_t fru_id;       /**< FRU device id */
    uint8_t next_fru_id;  /**< only in copies: FRU id of the next record, 0xFF behind the last */
    char board_extra[13]; /**< first custom field of the board area */
    char name[86];        /**< device id string of the locator */
    uint8_t reserved_102;
    char ppin[10]; /**< processor PPIN text */
    char serial_number[25];
    char mfg_id[31];   /**< manufacturer name */
    char mfg_date[11]; /**< "%d-%02d-%02d" */
    char part_number[31];
    char product_version[65];
    uint8_t entity_id; /**< IPMI entity id: 3 processor, 10 power supply, 32 memory device */
    uint8_t entity_instance;
    uint8_t reserved_278[2];
    SpdInfo spd_info;  /**< memory modules only */
    uint32_t crc;      /**< CRC-32 of bytes 0-679 as last logged */
    uint8_t is_cached; /**< 1 when the FRU image was read and decoded */
    uint8_t reserved_685[3];
    int32_t status; /**< 1 present, 0 absent, 255 presence sensor missing */
    uint8_t reserved_692[4];
    int64_t timestamp;   /**< last status change, seconds since the Unix epoch */
    uint32_t vpd_format; /**< 3 skipped cartridge format, 2 OEM processor record decoded, else 0 */
    OemCpuRecord oem_cpu;
    PsuFwVersion psu_fw; /**< power supplies only */
    uint32_t ppin_dump;  /**< holds the PPIN dump while its text has not been taken; 0 at rest */
} ComponentVpdRecord;

/** Bytes 5 to 32 of a FRU Device Locator SDR (IPMI 2.0 table 43-7), 28 bytes. */
typedef struct FruLocatorCopy {
    uint8_t access_address;
    uint8_t fru_device_id;
    uint8_t access_lun_bus;
    uint8_t channel;
    uint8_t reserved;
    uint8_t device_type;
    uint8_t device_type_modifier;
    uint8_t entity_id;
    uint8_t entity_instance; /**< bit 7: logical entity; low 7 bits: instance */
    uint8_t oem;
    uint8_t id_string_type_length;
    char id_string[17]; /**< always NUL-terminated */
} FruLocatorCopy;

typedef struct ComponentVpdNode {
    struct ComponentVpdNode* prev; /**< null at the head */
    struct ComponentVpdNode* next; /**< null at the tail */
    FruLocatorCopy locator;
    ComponentVpdRecord record;
} ComponentVpdNode;

typedef struct ComponentVpdList {
    ComponentVpdNode* head;
    ComponentVpdNode* tail;
} ComponentVpdList;

/** Request of GetComponentVPD, 8 bytes. */
typedef struct ComponentRequest {
    uint8_t fru_id; /**< 0 and 0xFF: the first record */
    uint32_t probe; /**< non-zero: only ask whether records exist */
} ComponentRequest;

/** One loaded entry of the activity log. */
typedef struct StatusNode {
    struct StatusNode* prev; /**< null at the oldest entry */
    struct StatusNode* next; /**< null at the newest entry */
    ComponentVpdRecord entry;
} StatusNode;

/** A loaded activity log. */
typedef struct StatusList {
    StatusNode* head; /**< oldest */
    StatusNode* tail; /**< newest */
} StatusList;

typedef struct PciNode {
    struct PciNode* prev;
    struct PciNode* next;
    uint8_t record[158];
} PciNode;

typedef struct PciList {
    PciNode* head;
    PciNode* tail;
} PciList;

/** A row for the change-history database, 616 bytes. */
typedef struct ChangeHistoryRecord {
    uint32_t reserved_0;
    char time_text[64]; /**< "11/14/2023,22:13:20", local time; empty when it cannot be converted */
    char time_iso[64];  /**< "2023-11-14T22:13", local time */
    uint32_t time;      /**< seconds since the Unix epoch, low 32 bits */
    uint32_t one;       /**< always 1 */
    uint32_t reserved_140;
    int32_t status; /**< 1 installed, 0 removed, 255 presence sensor missing */
    uint8_t reserved_148[76];
    char board_extra[64];
    char name[64];
    char serial_number[64];
    char mfg_id[64];
    char part_number[64];  /**< processors: a text of the OEM processor record */
    uint32_t cpu_words[3]; /**< processors only: the record's bytes 103 to 114 */
    uint8_t reserved_556[52];
    uint32_t entity_instance;
    uint32_t reserved_612;
} ChangeHistoryRecord;

/** The machine VPD record, 1106 bytes; every text is zero-terminated inside its field. */
typedef struct MachineVpdRecord {
    char vpd_version[9]; /**< "0x0300" */
    char machine_type_model[34];
    char serial_number[34];
    char uuid[34]; /**< 32 hex digits */
    char asset_id[34];
    char manufacturer_id[35];
    char card_part_number[34];
    char card_fru_number[13];
    char card_serial_number[41];
    char card_mfg_date[11]; /**< "%d-%02d-%02d" */
    char host_macs[8][26];  /**< "XX:XX:XX:XX:XX:XX" */
    char product_name[129];
    char code_levels[6][37];
    char port_macs[8][19]; /**< 16 hex digits */
    char iana[9];          /**< 8 hex digits */
    char sub_manufacturer[6];
    char serial_number_format[13]; /**< "11S", "8S", "11S and 8S" or "Unknown" */
    char ec_level[11];
    char second_part_number[13];
    char second_serial_number[13];
    char full_manufacturer_name[33];
    char ismp_name[18];
} MachineVpdRecord;

/** A label and its value from FRU 0. */
typedef struct MachineFieldPair {
    char label[30];
    char value[30];
} MachineFieldPair;

/** What FRU 0 of an OEM machine shows instead of the standard identity, 420 bytes. */
typedef struct MachineFieldsRecord {
    MachineFieldPair pairs[7];
} MachineFieldsRecord;

/** The OEM machine record, 1342 bytes. Some of its fields are only the beginning or the end of a standard field. */
typedef struct OemMachineRecord {
    char request[8]; /**< "_req_oem", no terminator */
    char reserved_8;
    char product_manufacturer[9]; /**< "oem", "zelt" or empty */
    char vpd_version[9];
    MachineFieldPair pair_0;
    MachineFieldPair pair_1;
    char uuid[34];
    MachineFieldPair pair_6;
    char reserved_241[4];
    MachineFieldPair pair_5;
    MachineFieldPair pair_2;
    char card_fru_number[13];
    MachineFieldPair pair_3;
    char card_serial_number_end[7]; /**< the last seven bytes of the standard field */
    MachineFieldPair pair_4;
    char card_mfg_date[11];
    char host_macs[194]; /**< the first 194 bytes of the standard field */
    char reserved_710[14];
    char product_name[129];
    char code_levels[217]; /**< the first 217 bytes of the standard field */
    char reserved_1070[5];
    char port_macs[138]; /**< the first 138 bytes of the standard field */
    char reserved_1213[14];
    char iana[9];
    char sub_manufacturer[6];
    char serial_format_to_ismp[100]; /**< from VPD version 0x0300 on: serial-number format to ISMP name, less a byte */
} OemMachineRecord;

/* ---- IPMI command path and FRU access --------------------------------------------------------------------------- */

/** One IPMI request. `response` needs room for the longest answer; its byte 0 receives the completion code. */
typedef struct IpmiRequest {
    const uint8_t* request;  /**< request data, may be empty */
    uint8_t* response;       /**< caller's zero-filled response buffer */
    uint32_t request_length; /**< bytes */
    int32_t response_length; /**< out: bytes returned by the stack, completion code included */
    uint8_t netfn;
    uint8_t cmd;
} IpmiRequest;

/**
 * @brief Send one request, up to three times, sleeping 300 ms after each failed attempt.
 * @return 0; 203 for completion code 0xCB; -1 for any other failure or a null response pointer.
 */
int ipmi_cmd_retry(IpmiRequest* request);

/** @brief Probe the IPMI stack with Get Device ID. @return 0 when it answers, otherwise -1. */
int test_ipmi_stack(void);

/** @brief Ask whether the sensor initialization agent has finished. @return 1 when it has, otherwise 0. */
int is_ipmi_sensor_ready(void);

/**
 * @brief Read the size of a FRU inventory area.
 * @param size out: bytes; untouched on failure
 * @return as ipmi_cmd_retry()
 */
int read_fru_size(uint8_t fru_id, uint32_t* size);

/**
 * @brief Read `count` bytes of FRU data at `offset`.
 * @param dest `count` bytes; null only discards a successful answer. After a failure it holds the raw response.
 * @return as ipmi_cmd_retry()
 */
int read_fru(uint8_t fru_id, uint16_t offset, uint8_t count, uint8_t* dest);

/**
 * @brief Read system VPD from offset 0 through the BMC's OEM command. Exact for up to 244 bytes; longer reads keep the
 *        completion code of every later chunk inside the data.
 * @param dest `length` bytes
 * @return 0; the non-zero result of the IPMI stack; -1 for a short answer, no memory or a null `dest`
 */
int readvpd_from_ipmi(uint32_t length, uint8_t* dest);

/** @brief Read the system-VPD device. @return null for a null `buf`, otherwise what the device driver returns. */
uint8_t* sysvpd_read(uint32_t offset, uint32_t length, uint8_t* buf);

/** @brief Write the system-VPD device. @return 0 for a null `buf`, otherwise what the device driver returns. */
int sysvpd_write(uint32_t offset, uint32_t length, uint8_t* buf);

/* ---- IPMI FRU format -------------------------------------------------------------------------------------------- */

/** Area positions inside a FRU image, null for an absent area. */
typedef struct FruAreaPointers {
    const uint8_t *chassis, *board, *product, *multirecord;
} FruAreaPointers;

/** One decoded type/length field. */
typedef struct FruField {
    uint8_t type;   /**< 0 binary, 1 BCD plus, 2 6-bit ASCII (still packed), 3 text; untouched by an empty field */
    uint8_t length; /**< bytes of `data` */
    uint8_t* data;  /**< `malloc`ed, zero-terminated, the caller frees it; null for an empty field or the end marker */
} FruField;

/**
 * @brief Find the areas of a FRU image. Offsets are not checked against the image's size.
 * @param image at least 8 bytes
 * @return 0, or -1 when a pointer is null
 */
int parse_fru_header(const uint8_t* image, FruAreaPointers* out);

/**
 * @brief Decode one type/length field. The caller frees `out->data` and sets it to null before the next call.
 * @param next out: the following field, or null when the walk ends
 * @param end where the walk ends: `next` is null for a field that reaches it or lies behind it. It does not bound the
 *            reading: such a field is decoded whole, up to 63 bytes behind `end` when it begins there.
 * @return 0; -1 when an argument is null; the `errno` value of a failed allocation
 */
int fru_tlv2raw(const uint8_t* field, FruField* out, const uint8_t** next, const uint8_t* end);

/** @brief Sum of `count` bytes modulo 256, 0 when `count` is below 1: a valid area or header gives 0. */
int ipmi_fru_get_checksum(const uint8_t* bytes, int32_t count);

/**
 * @brief Walk a multirecord list and decode the OEM processor record into `record`.
 *
 * The list ends at its end-of-list bit or at a header of five zero bytes; the caller guarantees that it does.
 * @return 0, also for a null header; -1 for a wrong checksum
 */
int process_multirec(const uint8_t* first_header, ComponentVpdRecord* record);

/** @brief Decode the data of an OEM processor record. @return 0, or -1 for a short record or another maker's. */
int process_zelt_oem_cpu_rec(const uint8_t* data, uint32_t length, OemCpuRecord* out);

/** @brief Take the firmware versions from the 8th and 9th field from `field` on. @return 0, or -1 for a null `field`.
 */
int get_psu_fw_version(const uint8_t* field, PsuFwVersion* out, const uint8_t* end);

/**
 * @brief Keep a heap copy of the ten bytes from `end` - 9 to `end` in the record. remove_vpd_node() frees it. A dump
 *        that the record already holds is not freed but lost.
 * @return 0, or the `errno` value of a failed allocation
 */
int get_ppin_hexdump(ComponentVpdRecord* record, const uint8_t* end);

/** The IPMI BCD-plus alphabet: 16 characters and a terminator. */
extern const char fru_bcd_array[17];

/* ---- System VPD fields and text --------------------------------------------------------------------------------- */

/**
 * @brief Read one field of the system VPD and normalise its padding.
 * @param dest receives min(field size, `max_length`) bytes and no terminator, nothing on failure: pass a zeroed buffer
 *             one byte longer. The padding rule of the id concerns these bytes alone.
 * @return the device's non-zero result, 0 on failure (logged to the trace file)
 */
int sysvpd_read_field(uint32_t id, uint32_t max_length, uint8_t* dest);

/** @brief Remove trailing spaces in place. Null-safe. */
void left_justified(char* text);

/** @brief Remove leading spaces in place; an all-blank text stays. Null-safe. */
void right_justified(char* text);

/** @brief Move the text behind the first zero byte of a 32-byte field to its start. Null-safe. */
void oem_justified(char* text);

/** @brief Remove leading blanks and control characters and trailing tab, line feed, form feed, space. Null-safe. */
void trim_string(char* text);

/**
 * @brief Write `count` bytes as upper-case hexadecimal digits; the rest of `dest` is zeroed. A destination of exactly
 *        2 x `count` bytes holds all digits and no terminator.
 * @return 0; -2 when an argument is zero or null; -3 when `dest_size` is below 2 x `count`
 */
int hex_to_string(char* dest, uint32_t dest_size, const uint8_t* src, uint32_t count);

/** @brief Fill `host_mac_cache` from the system VPD and set `isHostMacCache`. Call it under `sysvpd_access_mutex`. */
void updateSysvpdMacAddressCache(void);

/** @brief Classify the machine. @return 0 read failed, 1 standard machine, 2 OEM machine, 3 unrecognised. */
int read_POSID_ext(void);

/** Host MAC addresses 1-8 as "XX:XX:XX:XX:XX:XX", empty where unreadable. */
extern char host_mac_cache[8][26];
/** 1 once `host_mac_cache` has been filled. */
extern uint8_t isHostMacCache;

/* ---- Machine VPD ------------------------------------------------------------------------------------------------ */

/**
 * @brief Read the label/value pairs of FRU 0 and publish the first two labels. May wait 30 s for the IPMI stack.
 * @param out_length out: 420; untouched without a product area
 * @param capacity, reserved not used
 * @param record 420 bytes, a MachineFieldsRecord
 * @return 0, also without a product area; -1 for a null record; -9 when FRU 0 cannot be read or there is no memory
 */
int GetMachineFields(uint32_t* out_length, uint32_t capacity, uint32_t reserved, uint8_t* record);

/**
 * @brief Fill the seven label/value pairs from the custom fields of a product area. When the fields end early, the last
 *        texts read go into every further pair.
 * @param end one past the FRU image
 * @param record 420 bytes, a MachineFieldsRecord
 * @return 0
 */
int process_oemfields(const uint8_t* first_custom_field, const uint8_t* end, uint8_t* record);

/**
 * @brief Assemble the machine VPD record and publish the machine's identity. Holds `sysvpd_access_mutex`.
 * @param out_length out: 1106
 * @param capacity, request not used
 * @param record 1106 bytes, a MachineVpdRecord
 * @return 0, fields that cannot be read stay empty; -1 for a null record
 */
int GetMachineVPDImpl(uint32_t* out_length, uint32_t capacity, const char* request, uint8_t* record);

/**
 * @brief The machine VPD record, or the OEM machine record when `request` begins with "_req_oem".
 * @param out_length out: 1106; untouched for the OEM record
 * @param request may be null; no more than 8 characters are looked at
 * @param record 1106 bytes, 1342 for the OEM record
 * @return 0; -1 for a null record; the result of a failed GetMachineFields()
 */
int GetMachineVPD(uint32_t* out_length, uint32_t capacity, const char* request, uint8_t* record);

/** @brief Copy "/tmp/machine.cache" under its lock. @param size 1106 @return 0 or -1. */
int vpdd_machine_vpd_read(uint8_t* buffer, uint32_t size);
/** @brief Copy "/tmp/oemMachine.cache" under its lock. @param size 1342 @return 0 or -1. */
int vpdd_machine_oem_vpd_read(uint8_t* buffer, uint32_t size);
/** @brief Copy a machine cache file without locking. @param oem 0 standard, 1 OEM @return 0 or -1. */
int read_machine_vpd_cache_file(uint8_t* buffer, uint32_t size, uint32_t oem);
/**
 * @brief Replace a machine cache file as a whole: no reader finds a part of it. Takes the lock that its readers take,
 * or goes on without it where another process does not release it within a second.
 * @param size 1106 or 1342
 * @param oem 0 standard, 1 OEM
 * @return 0 or -1
 */
int create_machine_vpd_cache_file(const uint8_t* buffer, uint32_t size, uint32_t oem);
/** @brief Build both records and write both files. @return 0 or the result of the first step that failed. */
int init_machine_vpd_cache_file(void);
/** @brief Build both files, at most thirty times, sleeping 1 s after each. @return the last result, 0 on success. */
int update_machine_vpd_cache_file(void);
/**
 * @brief The platform calls this when the system VPD changed. Not cancellable until both files are built or thirty
 *        attempts have failed; afterwards the thread is cancellable, whatever it was before.
 */
void vpd_sysvpd_changed_notify_callback(void);
/**
 * @brief Wait for the lock of a machine cache file, however long another process holds it. Where the kernel calls the
 *        wait a deadlock, it goes on for about 30 s.
 * @param fd out: the lock's descriptor; -1 when locking failed; untouched when the lock file cannot be opened or is a
 *           link or no regular file
 * @return 0, or negative
 */
int vpdd_machine_cache_file_lock_wait(int32_t* fd);
/** @brief As vpdd_machine_cache_file_lock_wait(), for the OEM file. */
int vpdd_machine_oem_cache_file_lock_wait(int32_t* fd);
/** @brief As vpdd_file_unlock(). */
int vpdd_machine_cache_file_unlock(int32_t fd);
/** @brief As vpdd_file_unlock(). */
int vpdd_machine_oem_cache_file_unlock(int32_t fd);

/** The machine cache files: standard, OEM. */
extern const char* const machine_vpd_cache_file[2];

/* ---- Component cache: record list, flag, dates ------------------------------------------------------------------ */

/** @brief Insert `node` behind `at`. @return `list`. Nothing happens when an argument is null. Takes no lock. */
ComponentVpdList* insert_vpd_node_back(ComponentVpdList* list, ComponentVpdNode* at, ComponentVpdNode* node);

/** @brief Insert `node` before `at`. Nothing happens when an argument is null. Takes no lock. */
void insert_vpd_node(ComponentVpdList* list, ComponentVpdNode* at, ComponentVpdNode* node);

/**
 * @brief Append `node`. Takes no lock.
 * @return `list`; null when the node became the only element
 */
ComponentVpdList* insert_vpd_node_last(ComponentVpdList* list, ComponentVpdNode* node);

/** @brief Unlink `node` and free it with what it holds. Takes no lock. */
void remove_vpd_node(ComponentVpdList* list, ComponentVpdNode* node);

/** @brief The FRU-changed flag, 0 or 1, under `g_fru_changed_flag_mutex`. */
int vpd_get_fru_changed_flag(void);

/** @brief Set the FRU-changed flag. @return 0, or -1 when it had that value already. */
int vpd_set_fru_changed_flag(uint8_t value);

/** @brief The platform calls this when FRU data changed. @return the result of setting the flag to 1. */
int vpd_compvpd_changed_notify_callback(int fru);

/** @brief Kernel thread id of the calling thread. */
#ifdef __THROW
pid_t gettid(void) __THROW;
#else
pid_t gettid(void);
#endif

/** @brief Local calendar date of a FRU board date: 3 bytes, minutes since 1996-01-01 00:00 UTC, low byte first. */
void fru_minutes_to_date(const uint8_t* minutes, int* year, int* month, int* day);

/** @brief Calendar date of the first day of a manufacturing week (two-digit year, plain numbers). */
void spd_week_to_date(uint32_t year, uint32_t week, int* out_year, int* out_month, int* out_day);

/** Raised by the platform's notification; guarded by `g_fru_changed_flag_mutex`. */
extern uint8_t gb_fru_changed_flag;

/** Cache status, list and records. */
extern pthread_mutex_t compvpd_access_mutex;
/** Single list insertions during creation. */
extern pthread_mutex_t g_list_access_mutex;
/** Outer lock of GetComponentVPD() and GetComponentVPDByFruID(). */
extern pthread_mutex_t compvpd_readonly_mutex;
/** Outer lock of GetComponentVPD_KIVA(). */
extern pthread_mutex_t compvpd_kiva_readonly_mutex;
/** `gb_fru_changed_flag`. */
extern pthread_mutex_t g_fru_changed_flag_mutex;
/** Single property queries; innermost of the property locks. */
extern pthread_mutex_t compvpd_getproperty_mutex;
/** Outer locks of GetStringPropertyViaVpdd() and GetBytePropertyViaVpdd(). */
extern pthread_mutex_t compvpd_getstringproperty_mutex, compvpd_getbyteproperty_mutex;
/** Firmware VPD queries. */
extern pthread_mutex_t fwvpd_access_mutex;
/** One machine VPD assembly and the host MAC cache. */
extern pthread_mutex_t sysvpd_access_mutex;

/* ---- Component cache: life and look-ups ------------------------------------------------------------------------- */

/**
 * @brief Build the component cache from the SDR repository, the FRU images and SMBIOS.
 *
 * Waits at least 5 s for the IPMI stack and holds `compvpd_access_mutex` across all FRU reads.
 * @return 0, also when the cache exists already or single FRUs could not be read; -3 when the SDR repository cannot be
 *         read; -1 for a DDR5 image without a size, with the mutex left locked
 */
int CreateComponentVPDCache(void);

/**
 * @brief Read every FRU of the cache again and publish the totals. Holds `compvpd_access_mutex` across all FRU reads.
 * @return 0; 64 when the SMBIOS table could not be loaded; -10, whatever SMBIOS did, when a FRU could not be read or
 *         there was no memory for its image (a FRU whose size request answers 203, not present, does not count); -4 no
 *         cache; -1 for a DDR5 image without a size
 */
int UpdateComponentVPDCache(void);

/** @brief Empty the cache; it can be created again. @return 0, or -5 without a cache. */
int DestroyComponentVPDCache(void);

/**
 * @brief Publish asset-tag type and language code of FRU 0's product area.
 * @return 0, also without a product area; -1 when memory or the FRU could not be had
 */
int UpdateFRUID0InfoToTARNForDCMI(void);

/**
 * @brief Copy a record by FRU id, or probe for records.
 *
 * The ids 0 and 0xFF mean the first record of the cache, any other the first record that has it. `next_fru_id` of the
 * copy names the record that follows; it is 0xFF behind the last one. A probe sets nothing but `next_fru_id` of `out`:
 * to the first record's own id when the cache has two records or more, otherwise to 0xFF. It succeeds also on an empty
 * cache.
 * @param out_length out: 1512 after a copy, untouched by a probe; may be null
 * @param size not used; `out` must hold 1512 bytes
 * @return 0; -1 for a bad argument or no cache; -7 for no such record
 */
int GetComponentVPD(uint32_t* out_length, uint32_t size, const ComponentRequest* request, ComponentVpdRecord* out);

/**
 * @brief Copy the record of the FRU id that `fru_id` points at; 0 and 0xFF mean the first record. There is no probe.
 * @return as GetComponentVPD()
 */
int GetComponentVPDByFruID(uint32_t* out_length, uint32_t size, const uint8_t* fru_id, ComponentVpdRecord* out);

/**
 * @brief Copy as many records as fit, at least one and at most 2048; `next_fru_id` of the first copy says where to go
 * on.
 * @param out_length out: bytes copied
 * @param size room in `out` in bytes; a size below one record counts as one record
 * @return 0; -1 for no cache or a null buffer; -7 for an empty cache
 */
int GetComponentVPD_KIVA(uint32_t* out_length, uint32_t size, const void* ignored, void* out);

/**
 * @brief Find the cached record itself. It stays valid until the cache is destroyed; hold `compvpd_access_mutex` while
 *        changing it. Look-ups by FRU id walk the list from now on, since its id may change.
 * @param fru_id its low byte counts
 * @param out out: the record, null when there is none
 * @return 0; -1 not found; -4 no cache
 */
int FindFRURecord(uint32_t fru_id, ComponentVpdRecord** out);

/* ---- Activity log ----------------------------------------------------------------------------------------------- */

/** @brief CRC-32 of IEEE 802.3 (reflected polynomial 0xEDB88320). */
uint32_t calc_crc(const uint8_t* buffer, uint32_t length);

/**
 * @brief Append the valid entries of the activity log to `list`, oldest first. Takes no lock; the caller frees the
 * nodes.
 * @return entries loaded; -1 null list or no log; -6 no memory; -32 seek failure
 */
int log_inventory(StatusList* list);

/** @brief Write one entry of 1512 bytes; a null stream is left alone. */
void log_write_node(FILE* stream, const ComponentVpdRecord* record);

/**
 * @brief Rewrite the log with `record` added. The log must exist. "/tmp/vpdd_lock" is taken once the log has been
 * backed up and truncated. Waits up to 30 seconds for another rewrite of this or another process. Writes nothing, and
 * says so in the system log, when that one does not end, or when log or backup cannot be read or made.
 * @param mode 0 append; 1 first close the newest open entry of the same FRU id
 */
void log_update(const ComponentVpdRecord* record, int mode);

/** @brief 0 back the log up, 1 discard the backup, 2 recover from it. @return the command's result, or -1. */
int log_handle(int flag);

/**
 * @brief Wait for the activity log's lock, as vpdd_machine_cache_file_lock_wait() does for its own.
 * @param fd_out out: the lock's descriptor; -1 when locking failed; untouched when the lock file cannot be opened or is
 *               a link or no regular file
 * @return 0, or negative
 */
int vpdd_file_lock_wait(int* fd_out);

/** @brief Release a file lock and close its descriptor. Sleeps at least 100 ms. @return the result of closing. */
int vpdd_file_unlock(int fd);

/** @brief Insert `node` behind `at`. @return `list`. Nothing happens when an argument is null. Takes no lock. */
StatusList* insert_status_node_back(StatusList* list, StatusNode* at, StatusNode* node);
/** @brief Insert `node` before `at`. Nothing happens when an argument is null. Takes no lock. */
void insert_status_node(StatusList* list, StatusNode* at, StatusNode* node);
/** @brief Append `node`. @return `list`; null when the node became the only element. Takes no lock. */
StatusList* insert_status_node_last(StatusList* list, StatusNode* node);
/** @brief Unlink `node` and free it. Takes no lock. */
void remove_status_node(StatusList* list, StatusNode* node);

/** CRC register after eight shift steps from each byte value. */
extern const uint32_t crc_table[256];

/* ---- Component status ------------------------------------------------------------------------------------------- */

/**
 * @brief Carry the logged statuses into the cache (mode 0), or find out which components are present (any other mode).
 *        Holds `compvpd_access_mutex`.
 * @return 0; -4 no cache; -32 the log cannot be created; -1 the cache went away during the pass: fatal, the mutex stays
 *         locked
 */
int UpdateComponentStatus(int mode);

/** @brief Replace the newest log entry of the same component and status by `record`. @return 0 or -1. */
int UpdateHardwareActivityLog(const ComponentVpdRecord* record);

/**
 * @brief Merge the components of the change-history database into the log.
 * @param current loaded records to compare with, newest last; may be null
 * @return what the database's release function returns, 0 without a database
 */
int UpdateExtendComponentStatus(void* reserved, StatusList* current);

/* ---- Clients ---------------------------------------------------------------------------------------------------- */

/**
 * @brief Ask the VPD daemon for a block of data over "/tmp/vpdd.sock".
 * @param size_out out: size of the reply; untouched for an empty one
 * @param buffer room for the largest reply to this request, whatever `expected_size` says
 * @return 0, or -1 without a connection
 */
int vpdd_read_component_data(const char* request, uint32_t* size_out, uint32_t reserved, uint32_t expected_size,
                             void* buffer);

/** @brief Activity log: 51 read, 53 free, 54 clean. @return 0; -1 failed; -2 unknown operation. Takes no lock. */
int access_vpd_log(int operation, StatusList** handle);
/** @brief PCI log: 51 read, 53 free. @return 0; -1 failed; -2 unknown operation. */
int access_pci_log(int operation, PciList** handle);
/** @brief Load the activity log under its lock; release it with vpdd_serv_freelog(). @return 0 or -1. */
int vpdd_serv_readlog(StatusList** handle_out);
/** @brief Free a loaded log. @return the result of unlocking; the characters of the message when locking failed. */
int vpdd_serv_freelog(StatusList** handle_inout);
/** @brief Empty the activity log. @return as vpdd_serv_freelog(). */
int vpdd_serv_cleanlog(void);
/** @brief The PCI log cannot be read. @return -1, with a null handle. */
int vpdd_pci_readlog(PciList** handle_out);
/** @return 0, or -1 for a null handle. */
int vpdd_pci_freelog(PciList** handle_inout);

/** @brief As insert_status_node_back(). */
PciList* insert_pci_node_back(PciList* list, PciNode* at, PciNode* node);
/** @brief As insert_status_node(). */
void insert_pci_node(PciList* list, PciNode* at, PciNode* node);
/** @brief As insert_status_node_last(). */
PciList* insert_pci_node_last(PciList* list, PciNode* node);
/** @brief As remove_status_node(). */
void remove_pci_node(PciList* list, PciNode* node);

/* ---- Change history --------------------------------------------------------------------------------------------- */

/** @brief Open liborvadb_chghist.so; the library's constructor does. @return 1, or -1. */
int vpdd_load_chghist_lib(void);
/** @brief Close it; the library's destructor does. @return the result of closing, 0 when nothing was loaded. */
int vpdd_close_chghist_lib(void);
/** @brief Fill a zeroed change-history record. @return 0. */
int get_chghist_md_data(const ComponentVpdRecord* record, ChangeHistoryRecord* out);
/** @brief Announce a component's status as a software event. @return the dispatcher's result. */
int send_swe_vpdd(const ComponentVpdRecord* record);

/* ---- Properties: encoding --------------------------------------------------------------------------------------- */

/*
 * A property TLV is a head byte and its data. The head's high bits name the type, looked at in this order: 0x80 string
 * (0x80 + length, 1 to 127 characters, no terminator), 0x10 bytes (0x10 + count, 1 to 15; 0x10 itself: 16), 0x20 words
 * (count in bits 1 to 3, 16 bits each, least significant byte first), 0x40 a type that is not decoded. The conversions
 * take no lock. What they allocate is released with `free`; after a failure the pointer output is null.
 */

/**
 * @brief Encode a text, of which at most 127 characters are kept. The head holds the length modulo 128.
 * @param out out: 129 bytes, zero behind the text
 * @return 0; -1 null argument; -3 no memory
 */
int vpdd_string2tlv(const char* text, uint8_t** out);

/**
 * @brief Encode 1 to 16 bytes.
 * @param out out: 129 bytes, zero behind the data
 * @return 0; -1 null argument; -3 no memory; -4 `count` outside 1 to 16
 */
int vpdd_byte2tlv(const uint8_t* bytes, uint8_t** out, uint32_t count);

/**
 * @brief Decode a string. The copy ends at a zero byte in the data.
 * @param tlv the head and as much data as it announces
 * @param length_out out: characters that the head announces, also when the copy ended earlier
 * @return 0; -1 null argument; -2 not a string, or without characters; -3 no memory
 */
int vpdd_tlv2string(const uint8_t* tlv, char** out, uint32_t* length_out);

/**
 * @brief Decode bytes. Of the type bits only 0x10 is looked at.
 * @param out out: the bytes and a zero byte that is not counted
 * @return 0; -1 null argument; -2 not bytes; -3 no memory
 */
int vpdd_tlv2byte(const uint8_t* tlv, uint8_t** out, uint32_t* length_out);

/**
 * @brief Decode words. Of the type bits only 0x20 is looked at.
 * @param out out: exactly the words
 * @param count_out out: words
 * @return 0; -1 null argument; -2 not words, or none; -3 no memory
 */
int vpdd_tlv2word(const uint8_t* tlv, uint16_t** out, uint32_t* count_out);

/** @brief Type of a TLV. @return 128 string, 16 bytes, 32 words, 64, or 0 for none and for a null pointer. */
int check_property_type(const uint8_t* tlv);

/**
 * @brief Data length that a head byte announces.
 * @param type_out out: as check_property_type()
 * @return characters, bytes or words; length bits of zero stand for 16 bytes, 8 words, 4 of type 64; 0 for no type, for
 *         a string without characters and for a null `type_out`
 */
uint32_t vpdd_path_size(uint8_t head, uint32_t* type_out);

/* ---- Properties: queries ---------------------------------------------------------------------------------------- */

/**
 * @brief Read one property of the management controller. Takes no lock; a refusal by the controller is logged unless
 *        its message equals the last such message of the process.
 * @param path_tlv a string TLV
 * @param value_out out: decoded text, bytes or words, released with `free`; null after a failure
 * @param length_out out: characters, bytes or words; 0 after a failure
 * @return 0; -1 null argument (outputs untouched) or a value of another type; -2 IPMI failure; -3 the controller
 * refused or had no value; -4 the value does not decode
 */
int vpdd_get_single_property(const uint8_t* path_tlv, void** value_out, uint32_t* length_out);

/**
 * @brief Read one property by its path text. Holds `compvpd_getproperty_mutex`, up to 900 ms and three requests.
 * @param value_out, length_out as vpdd_get_single_property()
 * @return 0 or -1
 */
int vpdd_get_property(const char* path, void** value_out, uint32_t* length_out);

/**
 * @brief Copy a text property without the blanks around it. Holds `compvpd_getstringproperty_mutex` and inside it
 *        `compvpd_getproperty_mutex`.
 * @param length_out out: bytes copied, which is the length with the blanks; of a words value the number of words
 * @param size not used
 * @param dest zeroed, 128 bytes are enough for any text; receives `*length_out` bytes and no terminator
 * @return 0 or -1
 */
int GetStringPropertyViaVpdd(uint32_t* length_out, uint32_t size, const char* path, void* dest);

/**
 * @brief Copy a property as it stands. Holds `compvpd_getbyteproperty_mutex` and inside it `compvpd_getproperty_mutex`.
 * @param length_out, size, dest as GetStringPropertyViaVpdd()
 * @return 0 or -1
 */
int GetBytePropertyViaVpdd(uint32_t* length_out, uint32_t size, const char* path, void* dest);

/** One property of a list; the list is released with freeVpddAllProperites(). */
typedef struct VpddAllProperties {
    uint32_t type;      /**< of the value: 16 bytes, 128 string */
    uint32_t length;    /**< of the value in bytes, as its head announces */
    char path[128];     /**< NUL-terminated */
    uint8_t value[128]; /**< a string is NUL-terminated */
    struct VpddAllProperties* next;
} VpddAllProperties;

/**
 * @brief Read all properties below a key, page by page. Takes no lock: the caller serialises transfers.
 * @param key_tlv a path (string TLV) or a continuation handle (bytes TLV)
 * @param data_out out: path and value TLVs one behind the other, released with `free`; null after a failure and when
 *                 there is nothing below the key
 * @param length_out out: bytes; 0 after a failure
 * @return 0; -1 null argument, or whatever failed on a page behind the first, or 4096 pages without an end; -2 IPMI
 *         failure; -3 unexpected page status, or a page length that an answer cannot have; -5 `key_tlv` is neither
 *         string nor bytes; -6 no memory
 */
int vpdd_get_all_properties(const uint8_t* key_tlv, uint8_t** data_out, uint32_t* length_out);

/**
 * @brief vpdd_get_all_properties() by a path text.
 * @return 0 or -1
 */
int vpdd_get_properties(const char* path, uint8_t** data_out, uint32_t* length_out);

/**
 * @brief Turn the data of vpdd_get_all_properties() into a list in the same order.
 * @param length bytes; nothing behind them is read: a value that reaches behind them has zeros there, and ends the list
 * @param list_out out: released with freeVpddAllProperites(); null after a failure and for a `length` of 0
 * @return 0; -1 a TLV without a type or without data; -2 null argument; -3 a TLV does not decode; -4 a path that is no
 *         string, a value that is neither string nor bytes, or no memory
 */
int vpdd_format_all_properties(const uint8_t* data, uint32_t length, VpddAllProperties** list_out);

/** @brief Free a list and set its head to null. Null-safe. */
void freeVpddAllProperites(VpddAllProperties** head);

/* ---- Firmware VPD ----------------------------------------------------------------------------------------------- */

/** What is installed of a firmware image, 74 bytes. "*" stands for a value that cannot be read. */
typedef struct FirmwareVpd {
    char name[22];          /**< display name */
    char build_id[18];      /**< at most 16 characters */
    char build_date[18];    /**< at most 16 characters */
    char build_version[16]; /**< at most 15 characters */
} FirmwareVpd;

/**
 * @brief Tell which build of a firmware image is installed. Holds `fwvpd_access_mutex` and inside it, for each
 * property, `compvpd_getproperty_mutex`; a controller that does not answer costs up to six times 900 ms.
 * @param size_out out: 74
 * @param reserved not used
 * @param image_name "orva", "orva2", "orva3", each also with "_primary" or "_backup"; "orva3_primary_pending", "uefi",
 *                   "uefi_pending", "qsv", "drvwn", "drvln" or "nexol"; any other name leaves the record zero
 * @param out zeroed first
 * @return 0; -1 for a null name or record
 */
int GetFirmwareVPD(uint32_t* size_out, uint32_t reserved, const char* image_name, FirmwareVpd* out);

/* ---- Network ports ---------------------------------------------------------------------------------------------- */

/**
 * @brief Rewrite `host_mac_cache` after a change of the ports' properties and set `isHostMacCache`. Takes no lock: the
 *        caller serialises calls.
 * @param path "/ac/zeltc/lom-active": the ports of the system board fill the slots from the first one on, seven at
 * most.
 *             "/ac/zeltc/xlom-active": the slots are read from the system VPD, and the ports of the extra module follow
 *             the last one that is not zero. Any other path changes nothing.
 * @return 0; -1 for another path, and when a property or a system VPD field could not be used
 */
int vpdd_property_change_cache(const char* path);

/* ---- SPD decoding ----------------------------------------------------------------------------------------------- */

typedef struct DimmTypeRow {
    uint8_t code;
    const char* name;
} DimmTypeRow;

typedef struct Jep106Row {
    uint8_t bank; /**< continuation codes before the id */
    uint8_t code; /**< with its odd-parity bit 7 */
    const char* name;
} Jep106Row;

typedef struct DimmFrequencyRow {
    uint32_t low;
    uint32_t high;
    const char* text;
} DimmFrequencyRow;

typedef struct CasLatencyMaskRow {
    char bin[8];
    char key[16];
} CasLatencyMaskRow;

/*
 * An SPD image handed to a decoder holds at least 1024 bytes, whatever its generation: what the image says of itself
 * decides which bytes are read. check_spd_crc() reads at most 128 bytes. The decoders do not look at their length
 * argument unless it says so.
 */

/** @brief CRC-16, polynomial 0x1021, initial value 0 (JEDEC SPD). @return 0 when `length` is below 1. */
uint16_t __crc16(const uint8_t* data, int32_t length);
/** @brief Low byte. */
uint8_t __getlsb(uint16_t value);
/** @brief High byte. */
uint8_t __getmsb(uint16_t value);

/**
 * @brief Check the SPD checksum in bytes 126 and 127.
 * @param length looked at for a DDR3 image alone, which needs the bytes that its checksum covers: 117 or 126
 * @return 1 right and equal to `*expected_crc`; 0 right but not equal; -1 wrong; -2 DDR3 image too short
 */
int check_spd_crc(const uint8_t* spd, uint32_t length, const int32_t* expected_crc);

/** @brief Name of SPD byte 2. @return 0, or -1 with "UNKNOWN". */
int translate_dimm_type(uint8_t type_code, const char** out_name);
/**
 * @brief Name of the module type; may be null for an NVDIMM.
 * @return 0; -1 for a device type without module types, a `length` of 0 (`*out_name` is null then) and a null output
 */
int parse_module_type(const uint8_t* spd, uint32_t length, const char** out_name);
/** @brief Name of the DRAM's maker. @return 0, or -1 with `*out_name` untouched. */
int parse_manufacturer_id(const uint8_t* spd, uint32_t length, const char** out_name);
/** @brief Name of the module's maker. @return 0, or -1 with `*out_name` untouched. */
int parse_vendor_manufacturer_id(const uint8_t* spd, uint32_t length, const char** out_name);
/** @brief Id word of the module's maker. */
void parse_vendor_mfg_id(const uint8_t* spd, uint32_t length, uint16_t* out_word);
/** @brief Product word of DDR4 and NVM images, otherwise 0. */
void parse_vendor_product_id(const uint8_t* spd, uint32_t length, uint16_t* out_word);
/** @brief Print to standard error when `enabled` and `format` are set. @return characters printed. */
int DBG_DIMM(int enabled, const char* format, ...) __attribute__((format(printf, 2, 3)));
/** @brief Dump a record to the system log. */
void vpdd_print(const SpdInfo* record);

extern const DimmTypeRow dimm_type_map[];
extern const char* const dimm_module_type_table_ddr3[14];
extern const char* const dimm_module_type_table_ddr4[14];
extern const char* const dimm_module_type_table_ddr5[14];
extern const char* const dimm_module_type_table_nvdm[14];
extern const Jep106Row jep_106[1119];

/** @brief Decode a DDR4 or DDR4-layout image. The record is not cleared first. @return 0, or -1 for a null pointer. */
int vpdd_Handle_DDR4_SPD(const uint8_t* spd, SpdInfo* record);
/** @brief Module size in MB, 0 for a wrong type. */
uint32_t calculate_dimm_size(const uint8_t* spd);
/** @brief Flash capacity in GB. Prints to standard error. */
uint32_t calculate_flashdimm_capacity(const uint8_t* spd);
/** @brief Fine timebase in ns (DDR3: ps). */
float calculate_fine_timebase(const uint8_t* spd, uint32_t length);
/** @brief Medium timebase in ns. */
float calculate_medium_timebase(const uint8_t* spd, uint32_t length);
/** @brief Minimum clock period in ns. */
float calculate_sdram_clock(const uint8_t* spd, uint32_t length, float fine, float medium);
/** @brief DDR3 frequency text. @return 0, or -1 with a null text. */
int translate_sdram_frequency(uint32_t mhz, const char** out_text);
/** @brief DDR4 frequency text. @return 0, or -1 with a null text. */
int translate_sdram_frequency_ddr4(uint32_t mhz, const char** out_text);
/** @brief Minimum CAS latency time in ns. */
float calculate_cas_latency(const uint8_t* spd, uint32_t length, float fine, float medium);
/** @brief Supported CAS latencies. The caller frees the text. @return 0, or -1 when the copy fails. */
int parse_cas_supported_latencies(const uint8_t* spd, uint32_t length, char** out_text);
/** @brief Peak transfer rate in MB/s; 0 when `length` is below 127. */
uint32_t calculate_dimm_speed_inmbspsec(const uint8_t* spd, uint32_t length);
/** @brief Primary bus width in bits; 0 when `length` is below 127. */
uint32_t get_dimm_bus_width(const uint8_t* spd, uint32_t length);
/** @brief ECC bits; 0 when `length` is below 127. */
uint32_t get_dimm_eccbit(const uint8_t* spd, uint32_t length);
/** @brief Rank code (ranks - 1); 0 when `length` is below 127. */
uint32_t get_dimm_ranks(const uint8_t* spd, uint32_t length);
/** @brief Bus width in bytes of a width code; 0 for codes above 3. */
uint32_t bus_width_inbytes(uint8_t code);

extern const DimmFrequencyRow dimm_freq_ddr4_table[];
extern const DimmFrequencyRow dimm_frequency_table[];

/** @brief Decode a DDR5 image. The record is not cleared first. @return 0, or -1 for a null pointer. */
int vpdd_Handle_DDR5_SPD(const uint8_t* spd, SpdInfo* record);
/** @brief Module size in GB. */
int32_t calculate_dimm_ddr5_size(const uint8_t* spd, uint32_t length);
/** @brief Data rate in MT/s, 0 when the image has no clock period. */
int32_t get_ddr5_dimm_freq(const uint8_t* spd, uint32_t length);
/** @brief Supported CAS latencies. The caller frees the text. @return 1. */
int get_cas_supported_latencies(const uint8_t* spd, uint32_t length, char** out_text);
/** @brief Log the timing and the speed bin. */
void calculate_tWRmin(const uint8_t* spd, uint32_t length);

extern const CasLatencyMaskRow cas_latency_mask[36];

/* ---- SMBIOS memory devices -------------------------------------------------------------------------------------- */

/** One structure of the parsed SMBIOS table. */
typedef struct SmbiosEntry {
    const uint8_t* raw; /**< formatted area followed by its string set */
    struct SmbiosEntry* next;
} SmbiosEntry;

/** All structures of one type. */
typedef struct SmbiosTypeGroup {
    uint8_t type;
    uint8_t count;
    SmbiosEntry* entries;
    struct SmbiosTypeGroup* next;
} SmbiosTypeGroup;

typedef struct SmbiosTable {
    SmbiosTypeGroup* groups;
} SmbiosTable;

/** @brief Open the host's SMBIOS table; release it with vpdd_free_smbios_table(). @return 0 or -1. */
int vpdd_load_smbios_table(SmbiosTable** table);
/** @brief Release the table and clear the handle; a null handle is left alone. */
void vpdd_free_smbios_table(SmbiosTable** table);
/** @brief First group of a type, or null. */
SmbiosTypeGroup* vpdd_get_the_smbios_info(SmbiosTable* table, uint8_t type);
/**
 * @brief Copy a string of a type 17 structure: 0 Device Locator, 1 Bank Locator, 2 Manufacturer, 3 Serial Number,
 *        4 Asset Tag, 5 Part Number, 7 the string whose number the Memory Type byte happens to be.
 * @param size room in `out`, terminator included
 * @return 0; -2 null entry or buffer; -3 not type 17; -4 no such string (`out` emptied); -5 string too long
 */
int getStringFromDimmSmbiosEntry(const SmbiosEntry* entry, int index, char* out, uint32_t size);
/**
 * @brief Type 17 entry whose serial number ends the FRU serial, or null. An entry with a longer serial number than the
 *        FRU serial ends the whole search with null, also when a later one would match.
 */
SmbiosEntry* vpdd_get_the_smbios_dimm_info(SmbiosTypeGroup* group, const char* fru_serial);
/** @brief Type 17 entry whose locator's digits equal the slot number, or null. */
SmbiosEntry* vpdd_get_the_smbios_dimm_info_by_device_locator(SmbiosTypeGroup* group, const char* slot);
/** @return 0; -2 bad argument; -3 no type 17 group or no match; -4 no serial string. */
int vpdd_get_serial_num_from_smbios_by_serial_number(SmbiosTable* table, const char* fru_serial, char* out,
                                                     uint32_t size);
/** @brief Configured Memory Speed word. @return 0; -2 bad argument; -3 not found. */
int vpdd_get_config_speed_from_smbios_by_serial_number(SmbiosTable* table, const char* fru_serial, uint32_t* speed);
/** @brief Size (not decoded) and Speed words. @return 0; -2 bad argument; -3 not found. */
int vpdd_get_size_speed_from_smbios_by_serial_number(SmbiosTable* table, const char* fru_serial, uint32_t* size,
                                                     uint32_t* speed);
/** @brief Size (not decoded) and Speed words by slot. @return 0; -2 bad argument; -3 not found. */
int vpdd_get_size_speed_from_smbios_by_device_locator(SmbiosTable* table, const char* locator, uint32_t* size,
                                                      uint32_t* speed);

/** Non-zero: the look-ups also log their debug messages. */
extern int vpdd_smbios_debug;

/* ---- DIMM slot maps --------------------------------------------------------------------------------------------- */

/** Where one DIMM slot sits in the memory topology of its board; 20 bytes. The library does not interpret it. */
typedef struct DimmSlotMapRow {
    uint32_t socket;          /**< processor socket, from 0 */
    uint32_t controller;      /**< memory controller within the socket, from 0, in the platform's own numbering */
    uint32_t channel;         /**< channel within the socket, from 0 */
    uint32_t dimm_in_channel; /**< position of the slot on its channel, 0 or 1 */
    uint32_t slot;            /**< slot number, from 1: the row's position in its map plus one */
} DimmSlotMapRow;

/** A slot map. */
typedef struct DimmSlotMapRef {
    const DimmSlotMapRow* rows; /**< in the order of the slots */
    uint32_t count;             /**< rows, and so slots */
} DimmSlotMapRef;

/** A platform and its slot map. */
typedef struct PlatMemSlot {
    uint32_t platform_id; /**< the upper byte marks a variant: a hardware revision or a number of sockets */
    DimmSlotMapRef map;
} PlatMemSlot;

/**
 * @brief The slot map of the running platform, by the configuration variable "tarn_var_int_platform_id" and the
 *        environment variables "hw_rev" and "VSK_NUM_SOCKETS".
 *
 * With "hw_rev" above 6 it first changes the ids of rows 2 and 3 of platMemSlots to 0x0050002F and 0x00500030, for the
 * life of the process. It takes no lock: threads that call it at once write the same ids. Only the environment must not
 * change meanwhile.
 * @return a map inside platMemSlots, never to be freed; null when the variable cannot be read, or for an unknown id
 */
DimmSlotMapRef* GetMemSlot(void);

/** The known platforms, searched in this order; a program may change the rows. */
extern PlatMemSlot platMemSlots[30];

/** The maps, each by the id of the first platform that has it. */
extern const DimmSlotMapRow mem_slots_0050005e[16];
extern const DimmSlotMapRow mem_slots_00500062[32];
extern const DimmSlotMapRow mem_slots_00500063[32];
extern const DimmSlotMapRow mem_slots_00500061[32];
extern const DimmSlotMapRow mem_slots_0050006d[24];
extern const DimmSlotMapRow mem_slots_00500070[24];
extern const DimmSlotMapRow mem_slots_00500071[12];
extern const DimmSlotMapRow mem_slots_00500072[12];
extern const DimmSlotMapRow mem_slots_01500071[24];
extern const DimmSlotMapRow mem_slots_01500072[24];
extern const DimmSlotMapRow mem_slots_0050006c[24];
extern const DimmSlotMapRow mem_slots_0050006f[24]; /**< of 0x0050008A as well */
extern const DimmSlotMapRow mem_slots_00500074[64];
extern const DimmSlotMapRow mem_slots_0050005c[10];
extern const DimmSlotMapRow mem_slots_00500073[4];
extern const DimmSlotMapRow mem_slots_00500078[4];
extern const DimmSlotMapRow mem_slots_00500079[4];
extern const DimmSlotMapRow mem_slots_00500076[128];
extern const DimmSlotMapRow mem_slots_04500076[64];
extern const DimmSlotMapRow mem_slots_02500076[32];
extern const DimmSlotMapRow mem_slots_00500077[6];
extern const DimmSlotMapRow mem_slots_0050007a[16];
extern const DimmSlotMapRow mem_slots_0050007c[12]; /**< of 0x0050007E as well */
extern const DimmSlotMapRow mem_slots_00500083[16];
extern const DimmSlotMapRow mem_slots_00500084[4];
extern const DimmSlotMapRow mem_slots_00500088[2];
extern const DimmSlotMapRow mem_slots_00500085[32];
extern const DimmSlotMapRow mem_slots_0050008b[32];

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
