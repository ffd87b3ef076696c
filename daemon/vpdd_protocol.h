/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file vpdd_protocol.h
 * @brief What clients ask of `vpdd`, and what it answers (docs/protocol.md).
 *
 * A client hands one of the request texts to vpdd_read_component_data() of liborva_vpdd.so, with a buffer of
 * `expected_size` bytes: the daemon never sends more than that. Every request text ends with a line feed.
 */
#ifndef ORVA_VPDD_PROTOCOL_H
#define ORVA_VPDD_PROTOCOL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Requests. What stands in capitals is a number in decimal or a name. -------------------------------------------
 */

#define VPDD_REQUEST_STATUS "status\n"           /**< lines "key=value" */
#define VPDD_REQUEST_COMPONENTS "components\n"   /**< ComponentVpdRecord, all of them */
#define VPDD_REQUEST_COMPONENT "component %u\n"  /**< ComponentVpdRecord; 0 and 255: the first one */
#define VPDD_REQUEST_MACHINE "machine\n"         /**< MachineVpdRecord */
#define VPDD_REQUEST_OEM_MACHINE "machine oem\n" /**< OemMachineRecord */
#define VPDD_REQUEST_LOG "log\n"                 /**< ComponentVpdRecord for each entry, oldest first */
#define VPDD_REQUEST_FIRMWARE "firmware %s\n"    /**< FirmwareVpd of an image */
#define VPDD_REQUEST_CHANGES "changes %llu %u\n" /**< after a sequence number; seconds to wait for one: VpddChanges */
#define VPDD_REQUEST_REFRESH "refresh\n"         /**< privileged: read every FRU again, then answer as "status" */
#define VPDD_REQUEST_CLEAN_LOG "clean-log\n"     /**< privileged: empty the activity log, then answer as "status" */

/* ---- Limits --------------------------------------------------------------------------------------------------------
 */

#define VPDD_LONGEST_REQUEST 128 /**< bytes, the line feed included */
#define VPDD_STATUS_ROOM 1024    /**< bytes that an answer in lines needs at most */
#define VPDD_MOST_RECORDS 2048   /**< records in one reply */
#define VPDD_LONGEST_WAIT 30     /**< seconds that "changes" waits at most */
#define VPDD_KEPT_CHANGES 4096   /**< changes that the daemon remembers */

/* ---- The first reply word ------------------------------------------------------------------------------------------
 */

typedef enum VpddReply {
    VPDD_REPLY_OK = 0,
    VPDD_REPLY_UNKNOWN = 1,       /**< there is no such request */
    VPDD_REPLY_MALFORMED = 2,     /**< too long, or not printable */
    VPDD_REPLY_NOT_PERMITTED = 3, /**< only for root and the daemon's own user */
    VPDD_REPLY_NOT_FOUND = 4,     /**< no such component, record or image */
    VPDD_REPLY_NO_ROOM = 5,       /**< `expected_size` is less than one record */
    VPDD_REPLY_NOT_READY = 6,     /**< the first inventory is not complete yet */
    VPDD_REPLY_TOO_LATE = 7       /**< it took too long */
} VpddReply;

/* ---- Changes -------------------------------------------------------------------------------------------------------
 */

typedef enum VpddChangeEvent {
    VPDD_CHANGE_INSTALLED = 1,
    VPDD_CHANGE_REMOVED = 2,
    VPDD_CHANGE_REPLACED = 3,
    VPDD_CHANGE_DATA = 4,      /**< the same part with other data */
    VPDD_CHANGE_NO_SENSOR = 5, /**< its presence sensor is missing */
    VPDD_CHANGE_MACHINE = 6,   /**< the machine's record; no component */
    VPDD_CHANGE_REBUILT = 7    /**< the SDR repository has other components: read them all again */
} VpddChangeEvent;

/** One change, 208 bytes. Texts end with a NUL. */
typedef struct VpddChangeEntry {
    uint64_t sequence; /**< counts on by one for each change, from 1 */
    int64_t time;      /**< when the daemon noticed it, seconds since the Unix epoch */
    uint32_t event;    /**< VpddChangeEvent */
    uint8_t fru_id;
    uint8_t entity_id;
    uint8_t entity_instance;
    uint8_t reserved;
    char name[88];
    char serial_number[32];          /**< of the part that is there now, or was last there */
    char previous_serial_number[32]; /**< VPDD_CHANGE_REPLACED only */
    char part_number[32];
} VpddChangeEntry;

/** What stands in front of the entries, 32 bytes. */
typedef struct VpddChanges {
    uint64_t daemon; /**< chosen at random at each start: with another one the sequence numbers begin anew */
    uint64_t newest; /**< sequence number of the newest change, 0 for none */
    uint32_t count;  /**< entries that follow */
    uint32_t is_gap; /**< 1: changes after the one asked for are not kept any more */
    uint64_t reserved;
} VpddChanges;

#ifdef __cplusplus
}
static_assert(sizeof(VpddChangeEntry) == 208);
static_assert(sizeof(VpddChanges) == 32);
#endif

#endif
