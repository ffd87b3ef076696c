// SPDX-License-Identifier: Apache-2.0
#include "status/log_backup.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "base/log_line.h"
#include "platform/messages.h"
#include "status/activity_log.h"

namespace {

enum HandleFlag : int { copy_log = 0, remove_backup = 1, move_back = 2 };

int run(const char* command) {
    vpdd::log_line(vpdd::log_info, "log_handle", "Run command:%s.\n", command);
    return proc_system(command);
}

/// The backup must be on the device before the log is truncated. Deliberate: a shell that reports success without a
/// backup is believed.
bool flush_backup() {
    const vpdd::ScopedFd fd(open(vpdd::activity_log_backup, O_RDONLY | O_CLOEXEC));
    return fd.get() < 0 ? errno == ENOENT : fsync(fd.get()) == 0;
}

bool write_backup(const StatusList& list) {
    const vpdd::File file(std::fopen(vpdd::activity_log_backup, "w"));
    if (file == nullptr) return false;
    for (const StatusNode* node = list.head; node != nullptr; node = node->next) {
        log_write_node(file.get(), &node->entry);
    }
    return vpdd::is_on_device(file.get());
}

}  // namespace

namespace vpdd {

// A backup that cannot be asked for may hold the only whole log.
bool backup_exists() { return access(activity_log_backup, F_OK) == 0 || (errno != ENOENT && errno != ENOTDIR); }

bool make_backup(const StatusList& list) {
    if (log_handle(copy_log) == 0 && flush_backup()) return true;
    if (write_backup(list)) return true;
    ::unlink(activity_log_backup);  // a part of a backup only takes room
    return false;
}

bool put_backup_back() { return log_handle(move_back) == 0 || std::rename(activity_log_backup, activity_log) == 0; }

void discard_backup() {
    if (log_handle(remove_backup) != 0) ::unlink(activity_log_backup);
}

}  // namespace vpdd

extern "C" int log_handle(int flag) {
    std::array<char, 256> command{};
    switch (flag) {
        case copy_log:
            std::snprintf(command.data(), command.size(), "/bin/cp -f %s %s", vpdd::activity_log,
                          vpdd::activity_log_backup);
            break;
        case remove_backup:
            std::snprintf(command.data(), command.size(), "/bin/rm -f %s", vpdd::activity_log_backup);
            break;
        case move_back:
            if (!vpdd::backup_exists()) {
                vpdd::log_line(vpdd::log_info, __func__, "There is no backup hardware activity log.");
                return -1;
            }
            vpdd::log_line(vpdd::log_info, __func__, "INFO:Recover hardware activity log(%s).\n", vpdd::activity_log);
            std::snprintf(command.data(), command.size(), "/bin/mv %s %s", vpdd::activity_log_backup,
                          vpdd::activity_log);
            break;
        default:
            return -1;
    }
    return run(command.data());
}
