// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include "status/activity_log.h"
#include "status/loaded_list.h"

namespace {

/// A log that cannot be read is an empty one.
int read_log(const char* function, StatusList** handle) {
    if (handle == nullptr) return -1;
    auto list = vpdd::allocate_zeroed<StatusList>();
    if (list == nullptr) return -1;
    log_inventory(list.get());
    return vpdd::hand_out(function, std::move(list), handle);
}

int clean_log() {
    const vpdd::File file(std::fopen(vpdd::activity_log, "w+"));
    if (file == nullptr) return -1;
    unlink(vpdd::activity_log_backup);  // one that was left over would bring all back
    return 0;
}

/// An operation under the log's lock; the result of unlocking.
int run_locked(int operation, StatusList** handle) {
    vpdd::ActivityLogLock lock;
    // Deliberate: cleaning and freeing share this text.
    if (!lock.take()) return std::fprintf(stderr, "vpdd_serv_freelog : fail to lock.\n");
    access_vpd_log(operation, handle);
    return lock.release();
}

}  // namespace

extern "C" int access_vpd_log(int operation, StatusList** handle) {
    switch (operation) {
        case vpdd::operation_read:
            return read_log(__func__, handle);
        case vpdd::operation_reserved:
            return 0;
        case vpdd::operation_free:
            return vpdd::release(__func__, handle);
        case vpdd::operation_clean:
            return clean_log();
        default:
            return vpdd::unknown_operation;
    }
}

extern "C" int vpdd_serv_readlog(StatusList** handle_out) {
    vpdd::ActivityLogLock lock;
    if (!lock.take()) {
        std::printf("vpdd_serv_readlog : fail to lock.");
        return -1;
    }
    return access_vpd_log(vpdd::operation_read, handle_out) == 0 ? 0 : -1;
}

extern "C" int vpdd_serv_freelog(StatusList** handle_inout) { return run_locked(vpdd::operation_free, handle_inout); }

extern "C" int vpdd_serv_cleanlog() { return run_locked(vpdd::operation_clean, nullptr); }
