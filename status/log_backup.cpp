// SPDX-License-Identifier: Apache-2.0
#include "status/log_backup.h"

#include <fcntl.h>
#include <sys/stat.h>
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

/// After a loss of power the names in a folder are those of its last flush.
void flush_folder() {
    const vpdd::ScopedFd folder(open(vpdd::log_folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.get() >= 0) fsync(folder.get());
}

/// Also false when there is no backup, whatever the shell has reported.
bool flush_backup() {
    const vpdd::ScopedFd backup(open(vpdd::activity_log_backup, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    return backup.get() >= 0 && fstat(backup.get(), &status) == 0 && S_ISREG(status.st_mode) &&
           fsync(backup.get()) == 0;
}

bool write_backup(const StatusList& list) {
    const vpdd::File file(std::fopen(vpdd::activity_log_backup, "w"));
    if (file == nullptr) return false;
    for (const StatusNode* node = list.head; node != nullptr; node = node->next) {
        log_write_node(file.get(), &node->entry);
    }
    return std::fflush(file.get()) == 0 && vpdd::flushed_is_on_device(file.get());
}

}  // namespace

namespace vpdd {

// A backup that cannot be asked for may hold the only whole log.
bool backup_exists() { return access(activity_log_backup, F_OK) == 0 || (errno != ENOENT && errno != ENOTDIR); }

// The backup and its name must be on the device before the log is truncated.
bool make_backup(const StatusList& list) {
    if ((log_handle(copy_log) == 0 && flush_backup()) || write_backup(list)) {
        flush_folder();
        return true;
    }
    ::unlink(activity_log_backup);  // a part of a backup only takes room
    return false;
}

bool put_backup_back() {
    const bool is_back =
        (log_handle(move_back) == 0 && !backup_exists()) || std::rename(activity_log_backup, activity_log) == 0;
    flush_folder();
    return is_back;
}

void discard_backup() {
    log_handle(remove_backup);
    // One that cannot be removed must not be taken for the better log later.
    if (backup_exists() && ::unlink(activity_log_backup) != 0) {
        const ScopedFd emptied(open(activity_log_backup, O_WRONLY | O_TRUNC | O_NONBLOCK | O_CLOEXEC));
    }
    flush_folder();
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
