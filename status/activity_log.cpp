// SPDX-License-Identifier: Apache-2.0
#include "status/activity_log.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <ctime>

#include "base/heap.h"
#include "base/log_line.h"
#include "platform/messages.h"

namespace {

constexpr char backup_path[] = "/flash/data0/component_activity.log.backup";

constexpr int most_entries = 250;
constexpr int not_loaded = -1;
constexpr int no_memory = -6;
constexpr int seek_failed = -32;

enum HandleFlag : int { back_up = 0, discard_backup = 1, recover = 2 };

/// False for an entry that was damaged on flash.
bool has_right_crc(const ComponentVpdRecord& entry) {
    const uint32_t crc = vpdd::crc_of(entry);
    if (crc == entry.crc) return true;
    vpdd::log_line(vpdd::log_warning, "log_inventory", "Invalid CRC(FRU ID=0x%X, crc=%u), current crc=%u. Drop.\n",
                   entry.fru_id, entry.crc, crc);
    return false;
}

int load(const char* path, StatusList& list) {
    const vpdd::File file(std::fopen(path, "r"));
    if (file == nullptr) return not_loaded;
    if (std::fseek(file.get(), 0, SEEK_SET) != 0) {
        vpdd::log_line(vpdd::log_warning, "log_inventory", "fseek failed\n");
        return seek_failed;
    }
    int count = 0;
    // What opens but cannot be read, a folder for one, ends the load too. A partial entry at the end is ignored.
    while (std::feof(file.get()) == 0 && std::ferror(file.get()) == 0) {
        ComponentVpdRecord entry{};
        if (std::fread(&entry, 1, sizeof entry, file.get()) < sizeof entry) continue;
        if (!has_right_crc(entry)) continue;
        auto node = vpdd::allocate_zeroed<StatusNode>();
        if (node == nullptr) return no_memory;
        node->entry = entry;
        insert_status_node_last(&list, node.release());
        ++count;
    }
    return count;
}

int count_valid_entries(const char* path) {
    vpdd::LoadedLog list;
    return load(path, list);
}

int run(const char* command) {
    vpdd::log_line(vpdd::log_info, "log_handle", "Run command:%s.\n", command);
    return proc_system(command);
}

bool backup_exists() { return access(backup_path, F_OK) == 0; }

/// The backup must be on the device before the log is truncated.
void flush_backup() {
    const vpdd::ScopedFd fd(open(backup_path, O_RDONLY | O_CLOEXEC));
    if (fd.get() >= 0) fsync(fd.get());
}

const StatusNode* newest_open_entry(const StatusList& list, uint8_t fru_id) {
    const StatusNode* node = list.tail;
    while (node != nullptr && (node->entry.fru_id != fru_id || node->entry.status != 1)) node = node->prev;
    return node;
}

/// Writes the closed copy of the component's open entry and then the new one. The open entry stays in the log: the
/// history keeps both the installation and the removal. Without an open entry the new one is only appended.
void write_replacement(vpdd::LogRewrite& rewrite, const StatusList& list, ComponentVpdRecord record) {
    if (const StatusNode* const open_node = newest_open_entry(list, record.fru_id)) {
        ComponentVpdRecord closed = open_node->entry;
        closed.status = 0;
        closed.timestamp = time(nullptr);
        rewrite.write(closed);
        record.timestamp = closed.timestamp + 1;
    }
    rewrite.write(record);
}

}  // namespace

namespace vpdd {

bool LogRewrite::begin(StatusList& list, int loaded) {
    log_handle(back_up);
    flush_backup();
    file_.reset(std::fopen(activity_log, "w+"));
    if (file_ == nullptr) {
        log_line(log_info, function_, "ERROR:Fail to create/open log file(%s).\n", activity_log);
        log_handle(recover);
        return false;
    }
    for (; loaded >= most_entries; --loaded) remove_status_node(&list, list.head);

    // Deliberate: the lock is taken only now that the file has been truncated.
    if (vpdd_file_lock_wait(&lock_) >= 0) return true;
    log_line(log_info, function_, "ERROR:Fail to operate file lock.\n");
    file_.reset();
    log_handle(recover);
    return false;
}

void LogRewrite::write(const StatusList& list) {
    for (const StatusNode* node = list.head; node != nullptr; node = node->next) write(node->entry);
}

bool LogRewrite::end() {
    // A flush that failed while the entries were written shows only in the stream's error flag.
    FILE* const file = file_.get();
    const bool is_on_device = std::fflush(file) == 0 && std::ferror(file) == 0 && fsync(fileno(file)) == 0;
    file_.reset();
    vpdd_file_unlock(lock_);
    log_handle(is_on_device ? discard_backup : recover);
    return is_on_device;
}

bool rewrite_was_cut() { return backup_exists(); }

void recover_cut_rewrite() {
    if (!backup_exists()) return;
    const bool backup_has_more = count_valid_entries(backup_path) > count_valid_entries(activity_log);
    log_handle(backup_has_more ? recover : discard_backup);
}

}  // namespace vpdd

extern "C" int log_inventory(StatusList* list) {
    if (list == nullptr) return not_loaded;
    return load(vpdd::activity_log, *list);
}

extern "C" void log_write_node(FILE* stream, const ComponentVpdRecord* record) {
    if (stream == nullptr || record == nullptr) return;
    if (std::fwrite(record, 1, sizeof *record, stream) == sizeof *record) return;
    vpdd::log_line(vpdd::log_warning, __func__, "Incompleted component data(Name=%s, ID=%x).\n",
                   vpdd::Terminated(record->name).c_str(), record->fru_id);
}

extern "C" void log_update(const ComponentVpdRecord* record, int mode) {
    if (record == nullptr) return;
    vpdd::LoadedLog list;
    const int loaded = log_inventory(&list);
    if (loaded < 0) return;
    vpdd::LogRewrite rewrite(__func__);
    if (!rewrite.begin(list, loaded)) return;
    rewrite.write(list);
    if (mode == 1) {
        write_replacement(rewrite, list, *record);
    } else {
        rewrite.write(*record);
    }
    rewrite.end();
}

extern "C" int log_handle(int flag) {
    std::array<char, 256> command{};
    switch (flag) {
        case back_up:
            std::snprintf(command.data(), command.size(), "/bin/cp -f %s %s", vpdd::activity_log, backup_path);
            break;
        case discard_backup:
            std::snprintf(command.data(), command.size(), "/bin/rm -f %s", backup_path);
            break;
        case recover:
            if (!backup_exists()) {
                vpdd::log_line(vpdd::log_info, __func__, "There is no backup hardware activity log.");
                return -1;
            }
            vpdd::log_line(vpdd::log_info, __func__, "INFO:Recover hardware activity log(%s).\n", vpdd::activity_log);
            std::snprintf(command.data(), command.size(), "/bin/mv %s %s", backup_path, vpdd::activity_log);
            break;
        default:
            return -1;
    }
    return run(command.data());
}
