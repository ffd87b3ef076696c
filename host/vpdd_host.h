/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file vpdd_host.h
 * @brief libvpdd_host.so: the firmware's other libraries on a development machine.
 *
 * Conventions
 * -----------
 * The library answers every platform function of liborva_vpdd.so (platform/ *.h) from the description of a server, a
 * JSON file; another library may give it a BMC that answers what a BMC is asked. A process has one open server at most,
 * because the platform functions name none. With no server open every platform function fails.
 *
 * Linking. `sleep`, `usleep` and `syslog` with its relatives are interposed: a program links libvpdd_host.so directly,
 * so that it stands before the C library.
 *
 * Result codes. 0 for success, -1 for a failure; the failure's text goes to the caller's buffer.
 *
 * Threads. The platform functions may run on any thread at once. Callbacks run on the thread that caused them, never
 * with a lock of this library held; they may call any function here but those that open or close a server.
 *
 * Texts are UTF-8 and end with a NUL. Those that a callback receives live until it returns.
 */
#ifndef ORVA_VPDD_HOST_H
#define ORVA_VPDD_HOST_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

typedef enum VpddHostMessageKind {
    VPDD_HOST_SYSLOG,  /**< what went to `syslog` */
    VPDD_HOST_TRACE,   /**< a line of the debug trace */
    VPDD_HOST_PLATFORM /**< from the platform itself: its BMC does not answer */
} VpddHostMessageKind;

/**
 * @brief Receives one message.
 * @param level the priority given to `syslog` (facility and severity), or the level of the trace line; of a message
 * from the platform a severity of `syslog`
 * @param text without a line end
 */
typedef void (*VpddHostMessageSink)(void* context, VpddHostMessageKind kind, int level, const char* text);

/**
 * @brief A FRU is being read: called at the first Read FRU Data of each FRU id since the server was opened.
 * @param number position of the FRU's locator among the FRU locators of the SDR repository, from 1
 * @param total number of FRU locators
 */
typedef void (*VpddHostProgress)(void* context, uint8_t fru_id, uint32_t number, uint32_t total);

/** All zero is a good choice: nothing is kept, nobody sleeps, messages go to the process-wide sink. */
typedef struct VpddHostOptions {
    const char*
        state_directory; /**< what is kept; created if missing; null: in memory, or where the environment says */
    double sleep_factor; /**< sleeps last this many times what was asked for: 0 not at all, 1 real time */
    VpddHostMessageSink message; /**< null: the sink of vpdd_host_set_message_sink() */
    void* message_context;
    VpddHostProgress progress; /**< may be null */
    void* progress_context;
} VpddHostOptions;

/**
 * @brief Open the server that a file describes; an open server is closed first.
 * @param options null: all zero
 * @param error receives the reason of a failure: "FILE: line L, column C: ..." for a JSON syntax error,
 *        "FILE: /json/pointer: ..." for a value that a server cannot have; may be null
 * @return 0 or -1, and then no server is open
 */
int vpdd_host_open_file(const char* path, const VpddHostOptions* options, char* error, size_t error_size);

/**
 * @brief Open the server that a JSON text describes.
 * @param folder where the files stand that the description names; null: the working directory
 */
int vpdd_host_open_text(const char* text, size_t length, const char* folder, const VpddHostOptions* options,
                        char* error, size_t error_size);

/**
 * @brief Open a server whose only part is a memory module: FRU 1, "DIMM 1". It has no machine VPD, no SMBIOS table and
 * no properties, and drops what is published; there is no cheaper way to a module's record.
 * @param image what its EEPROM holds, copied; at most 65535 bytes
 * @param options null: all zero; the state directory does not matter
 */
int vpdd_host_open_module(const uint8_t* image, size_t size, const VpddHostOptions* options, char* error,
                          size_t error_size);

/** @brief Close the server; none open is fine. */
void vpdd_host_close(void);

/* ---- A BMC outside this library --------------------------------------------------------------------------------- */

/** What a sensor says. */
typedef struct VpddHostSensor {
    const char* name;
    uint16_t state;   /**< event bits */
    const char* text; /**< the state in words; "Unavailable" where the BMC does not know it */
} VpddHostSensor;

typedef void (*VpddHostSensorVisitor)(void* context, const VpddHostSensor* sensor);

/** Answers in the place of a description. Its functions may be called on any thread; 0 is success for each. */
typedef struct VpddHostBmc {
    void* context;
    /**
     * @brief Carry out one command on the controller at an IPMB address.
     * @param response completion code and data
     * @param response_length in: room in `response`; out: bytes in it
     */
    int (*command)(void* context, uint8_t address, uint8_t netfn, uint8_t lun, uint8_t cmd, const uint8_t* request,
                   uint32_t request_length, uint8_t* response, uint32_t* response_length);
    /**
     * @brief Read an SDR record; id 0 is the first one.
     * @param length in: room in `buffer`; out: bytes in it
     * @param next_record_id out: 0xFFFF behind the last record
     */
    int (*sdr_record)(void* context, uint16_t record_id, uint16_t* next_record_id, uint8_t* buffer, uint32_t* length);
    /** @brief Visit the sensors of an IPMI sensor type that can be read, in the order of the SDR repository. */
    int (*each_sensor)(void* context, uint8_t type, VpddHostSensorVisitor visitor, void* visitor_context);
    /** @brief Called when the server is closed; may be null. */
    void (*release)(void* context);
} VpddHostBmc;

/**
 * @brief Open a server whose BMC answers for itself; everything else comes from a description without FRUs.
 * @param bmc released at vpdd_host_close() and after a failure
 * @param text the description, as of vpdd_host_open_text(); without "smbios" there is no SMBIOS table
 */
int vpdd_host_open_bmc(const VpddHostBmc* bmc, const char* text, size_t length, const char* folder,
                       const VpddHostOptions* options, char* error, size_t error_size);

/** @brief Give the sink a message of the kind VPDD_HOST_PLATFORM. */
void vpdd_host_report(int level, const char* text);

/* ---- What happens to the open server ---------------------------------------------------------------------------- */

typedef enum VpddHostChange {
    VPDD_HOST_PULL,   /**< the FRU answers 0xCB from now on; a processor's sensor no longer detects its presence */
    VPDD_HOST_INSERT, /**< what was pulled comes back */
    VPDD_HOST_SWAP    /**< another part of the same kind, with a serial number of its own */
} VpddHostChange;

/** The FRU that was changed. Serial numbers are empty where there is none. */
typedef struct VpddHostChangedFru {
    uint8_t fru_id;
    char name[17];
    char old_serial_number[64]; /**< of the part that is gone */
    char new_serial_number[64]; /**< of the part that is there now */
} VpddHostChangedFru;

/**
 * @brief Change the open server: its state directory keeps the change, and it applies whenever a description is opened
 *        with that directory. The server is opened anew, so that writes to its system VPD are lost.
 * @param fru the FRU's id in decimal, or its name
 * @param serial_number of the part that VPDD_HOST_SWAP brings; null: the one that follows the present one
 * @param changed out: may be null
 * @return 0; -1 for a failure; -2 when there is no such FRU, or it is not in the state for this change
 */
int vpdd_host_change_fru(VpddHostChange change, const char* fru, const char* serial_number, VpddHostChangedFru* changed,
                         char* error, size_t error_size);

/**
 * @brief Give this process /flash and /tmp of its own, for good: the library keeps files at fixed paths there.
 *
 * Both are directories of the state directory, in a mount namespace that the process moves into; all other paths stay
 * as they are. Call it before the process starts threads, as root or as an ordinary user.
 * @param state_directory created if missing, and still found at its path; null: both are empty and in memory
 * @return 0; -1 where the machine allows no namespaces, or when the directory cannot be used
 */
int vpdd_host_enter_private_root(const char* state_directory, char* error, size_t error_size);

/** @brief Where messages go that no open server's own sink takes. Null, as at the start: nowhere. */
void vpdd_host_set_message_sink(VpddHostMessageSink sink, void* context);

/** @brief The folder of the server descriptions that came with this library. */
const char* vpdd_host_server_folder(void);

/* ---- What the library published --------------------------------------------------------------------------------- */

typedef enum VpddHostVariableKind { VPDD_HOST_INTEGER, VPDD_HOST_TEXT } VpddHostVariableKind;

/** One variable of the configuration store. */
typedef struct VpddHostVariable {
    const char* name;
    VpddHostVariableKind kind;
    int32_t integer;  /**< VPDD_HOST_INTEGER only */
    const char* text; /**< the value as text, of either kind */
    int32_t flag;     /**< as the setter was called with */
    int64_t changed;  /**< when it was last set, seconds since the Unix epoch */
} VpddHostVariable;

/** @return non-zero ends the walk. */
typedef int (*VpddHostVariableVisitor)(void* context, const VpddHostVariable* variable);

/** @brief Visit the variables in the order of their names. @return 0; -1 with no server open. */
int vpdd_host_each_variable(VpddHostVariableVisitor visitor, void* context);

/** One event: of the configuration store, or a software event. */
typedef struct VpddHostEvent {
    const char* name; /**< empty for a software event */
    int32_t type;     /**< event type, or the software event's message number */
    int32_t argument0;
    int32_t argument1;
    int64_t occurred; /**< seconds since the Unix epoch */
} VpddHostEvent;

/** @return non-zero ends the walk. */
typedef int (*VpddHostEventVisitor)(void* context, const VpddHostEvent* event);

/** @brief Visit the events, oldest first. @return 0; -1 with no server open. */
int vpdd_host_each_event(VpddHostEventVisitor visitor, void* context);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
