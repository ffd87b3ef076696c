// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdio>

#include "base/file_handle.h"
#include "base/linked_list.h"
#include "base/text.h"
#include "orva_vpdd.h"
#include "status/activity_lock.h"

namespace vpdd {

inline constexpr char log_folder[] = "/flash/data0";
inline constexpr char activity_log[] = "/flash/data0/component_activity.log";
inline constexpr char activity_log_backup[] = "/flash/data0/component_activity.log.backup";

/// Bytes of an entry that its CRC covers: the component's identity.
inline constexpr uint32_t crc_covered = offsetof(ComponentVpdRecord, crc);

inline uint32_t crc_of(const ComponentVpdRecord& record) {
    return calc_crc(reinterpret_cast<const uint8_t*>(&record), crc_covered);
}

/// Of a stream that reads or writes a whole log: four times the usual size, a quarter of the system calls.
using LogBuffer = std::array<char, 16384>;

using LoadedLog = OwnedList<StatusList>;

/// Holds off every other rewrite of the log, of other processes and threads, while it lives: the lock of readers and
/// writers is taken only after a rewrite has loaded the log and truncated it. A wait of 30 seconds is given up: the
/// rewrite that is waited for may itself wait for that lock, which the waiting process holds.
class SoleWriter {
public:
    SoleWriter();
    ~SoleWriter();
    SoleWriter(const SoleWriter&) = delete;
    SoleWriter& operator=(const SoleWriter&) = delete;

    /// False when the wait was given up: log and backup are then those of a rewrite under way.
    bool is_sole() const { return is_sole_; }

private:
    ScopedFd folder_;
    bool is_sole_ = true;
};

/// One rewrite of the whole log: load, backup, truncation, lock, entries, and the end of the backup. A rewrite that
/// ends early puts the backup back.
class LogRewrite {
public:
    /// `function` is the operation that the messages name.
    explicit LogRewrite(const char* function) : function_(function) {}

    /// Loads what is to be rewritten. False when not all of it can be read, or another rewrite does not come to its
    /// end.
    bool load(StatusList& list);
    /// Makes room in `list` for one more entry, and the file ready. False when the log was left or put back as it was.
    bool begin(StatusList& list);
    void write(const ComponentVpdRecord& entry) { log_write_node(file_.get(), &entry); }
    void write(const StatusList& list);
    /// False when the entries did not reach the device and the log was put back as it was. `last` is what was written
    /// last; null when nothing was.
    bool end(const ComponentVpdRecord* last);

private:
    const char* function_;
    SoleWriter sole_writer_;
    int loaded_ = 0;
    ActivityLogLock lock_;
    LogBuffer buffer_;
    File file_;
};

/// Whether all that was written to a stream, which is flushed, reaches the device.
bool flushed_is_on_device(FILE* file);

/// Whether a backup is left from a rewrite that did not come to its end.
bool rewrite_was_cut();

/// Finishes a rewrite that a loss of power cut short: keeps whichever of log and backup has more valid entries. Leaves
/// both while one of them cannot be read.
void recover_cut_rewrite();

}  // namespace vpdd
