// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>

#include "base/file_handle.h"
#include "base/linked_list.h"
#include "base/text.h"
#include "orva_vpdd.h"

namespace vpdd {

inline constexpr char activity_log[] = "/flash/data0/component_activity.log";

/// Bytes of an entry that its CRC covers: the component's identity.
inline constexpr uint32_t crc_covered = offsetof(ComponentVpdRecord, crc);

inline uint32_t crc_of(const ComponentVpdRecord& record) {
    return calc_crc(reinterpret_cast<const uint8_t*>(&record), crc_covered);
}

using LoadedLog = OwnedList<StatusList>;

/// One rewrite of the whole log: backup, truncation, lock, entries, and the end of the backup. A rewrite that ends
/// early puts the backup back.
class LogRewrite {
public:
    /// `function` is the operation that the messages name.
    explicit LogRewrite(const char* function) : function_(function) {}

    /// Makes room in `list` for one more entry, and the file ready. False when the log was put back as it was.
    bool begin(StatusList& list, int loaded);
    void write(const ComponentVpdRecord& entry) { log_write_node(file_.get(), &entry); }
    void write(const StatusList& list);
    /// False when the entries did not reach the device and the log was put back as it was.
    bool end();

private:
    const char* function_;
    File file_;
    int lock_ = -1;
};

/// Whether a backup is left from a rewrite that did not come to its end.
bool rewrite_was_cut();

/// Finishes a rewrite that a loss of power cut short: keeps whichever of log and backup has more valid entries.
void recover_cut_rewrite();

}  // namespace vpdd
