// SPDX-License-Identifier: Apache-2.0
#include "status/activity_log.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "base/heap.h"
#include "base/log_line.h"
#include "status/log_backup.h"

namespace {

constexpr int most_entries = 250;
constexpr int not_loaded = -1;
constexpr int no_memory = -6;
constexpr int seek_failed = -32;

constexpr int writer_attempts = 300;
constexpr useconds_t writer_pause = 100000;  // microseconds

/// False for an entry that was damaged on flash.
bool has_right_crc(const ComponentVpdRecord& entry) {
    const uint32_t crc = vpdd::crc_of(entry);
    if (crc == entry.crc) return true;
    vpdd::log_line(vpdd::log_warning, "log_inventory", "Invalid CRC(FRU ID=0x%X, crc=%u), current crc=%u. Drop.\n",
                   entry.fru_id, entry.crc, crc);
    return false;
}

/// Where a load ended.
struct LoadEnd {
    int result;     // the entries loaded, or why there are none
    bool is_whole;  // all that the file holds was looked at; a missing file and a folder hold nothing
};

LoadEnd load(const char* path, StatusList& list) {
    vpdd::LogBuffer buffer;
    const vpdd::File file(std::fopen(path, "r"));
    if (file == nullptr) return {not_loaded, errno == ENOENT};
    std::setvbuf(file.get(), buffer.data(), _IOFBF, buffer.size());
    if (std::fseek(file.get(), 0, SEEK_SET) != 0) {
        vpdd::log_line(vpdd::log_warning, "log_inventory", "fseek failed\n");
        return {seek_failed, false};
    }
    int count = 0;
    // What opens but cannot be read, a folder for one, ends the load too. A partial entry at the end is ignored.
    while (std::feof(file.get()) == 0 && std::ferror(file.get()) == 0) {
        ComponentVpdRecord entry;
        if (std::fread(&entry, 1, sizeof entry, file.get()) < sizeof entry) continue;
        if (!has_right_crc(entry)) continue;
        auto node = vpdd::allocate_zeroed<StatusNode>();
        if (node == nullptr) return {no_memory, false};
        node->entry = entry;
        insert_status_node_last(&list, node.release());
        ++count;
    }
    return {count, std::ferror(file.get()) == 0 || errno == EISDIR};
}

LoadEnd count_valid_entries(const char* path) {
    vpdd::LoadedLog list;
    return load(path, list);
}

enum class CutRewrite { keep_log, keep_backup, cannot_be_told };

/// Whichever has more valid entries is kept, once both can be read.
CutRewrite compare_with_backup() {
    const LoadEnd backup = count_valid_entries(vpdd::activity_log_backup);
    const LoadEnd log = count_valid_entries(vpdd::activity_log);
    if (!backup.is_whole || !log.is_whole) {
        vpdd::log_line(vpdd::log_warning, "log_inventory", "ERROR:Fail to read log file(%s) or its backup.\n",
                       vpdd::activity_log);
        return CutRewrite::cannot_be_told;
    }
    return backup.result > log.result ? CutRewrite::keep_backup : CutRewrite::keep_log;
}

void note_incomplete(const ComponentVpdRecord& entry) {
    vpdd::log_line(vpdd::log_warning, "log_write_node", "Incompleted component data(Name=%s, ID=%x).\n",
                   vpdd::Terminated(entry.name).c_str(), entry.fru_id);
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

SoleWriter::SoleWriter() : folder_(open(log_folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    for (int attempt = 0; folder_.get() >= 0 && attempt < writer_attempts; ++attempt) {
        if (flock(folder_.get(), LOCK_EX | LOCK_NB) == 0 || (errno != EWOULDBLOCK && errno != EINTR)) return;
        usleep(writer_pause);
    }
    is_sole_ = folder_.get() < 0;
}

SoleWriter::~SoleWriter() {
    // By itself, since a child that was forked meanwhile keeps the descriptor.
    if (folder_.get() >= 0) flock(folder_.get(), LOCK_UN);
}

bool LogRewrite::load(StatusList& list) {
    // Another rewrite may have truncated the log: what it holds now must neither be backed up nor be written again.
    if (!sole_writer_.is_sole()) {
        log_line(log_info, function_, "ERROR:Fail to operate file lock.\n");
        return false;
    }
    // The backup of a rewrite that was cut short must not be overwritten before it has been put back.
    if (backup_exists()) {
        const CutRewrite cut = compare_with_backup();
        if (cut == CutRewrite::cannot_be_told) return false;
        if (cut == CutRewrite::keep_backup && !put_backup_back()) return false;
    }
    const LoadEnd end = ::load(activity_log, list);
    loaded_ = end.result;
    return end.result >= 0 && end.is_whole;
}

bool LogRewrite::begin(StatusList& list) {
    if (!make_backup(list)) {
        log_line(log_info, function_, "ERROR:Fail to back up log file(%s).\n", activity_log);
        return false;
    }
    file_.reset(std::fopen(activity_log, "w+"));
    if (file_ == nullptr) {
        log_line(log_info, function_, "ERROR:Fail to create/open log file(%s).\n", activity_log);
        put_backup_back();
        return false;
    }
    std::setvbuf(file_.get(), buffer_.data(), _IOFBF, buffer_.size());
    for (; loaded_ >= most_entries; --loaded_) remove_status_node(&list, list.head);

    // Deliberate: the lock is taken only now that the file has been truncated.
    if (lock_.take()) return true;
    log_line(log_info, function_, "ERROR:Fail to operate file lock.\n");
    file_.reset();
    put_backup_back();
    return false;
}

void LogRewrite::write(const StatusList& list) {
    for (const StatusNode* node = list.head; node != nullptr; node = node->next) write(node->entry);
}

bool LogRewrite::end(const ComponentVpdRecord* last) {
    const bool is_flushed = std::fflush(file_.get()) == 0;
    if (!is_flushed && last != nullptr) note_incomplete(*last);
    const bool is_written = is_flushed && flushed_is_on_device(file_.get());
    file_.reset();
    lock_.release();
    if (is_written) {
        discard_backup();
    } else {
        put_backup_back();
    }
    return is_written;
}

bool flushed_is_on_device(FILE* file) {
    // A flush that failed while the entries were written shows only in the stream's error flag.
    return std::ferror(file) == 0 && fsync(fileno(file)) == 0;
}

bool rewrite_was_cut() { return backup_exists(); }

void recover_cut_rewrite() {
    const SoleWriter writer;
    if (!writer.is_sole() || !backup_exists()) return;
    switch (compare_with_backup()) {
        case CutRewrite::keep_backup:
            put_backup_back();
            break;
        case CutRewrite::keep_log:
            discard_backup();
            break;
        case CutRewrite::cannot_be_told:
            break;  // both stay for the next restore
    }
}

}  // namespace vpdd

extern "C" int log_inventory(StatusList* list) {
    if (list == nullptr) return not_loaded;
    return load(vpdd::activity_log, *list).result;
}

extern "C" void log_write_node(FILE* stream, const ComponentVpdRecord* record) {
    if (stream == nullptr || record == nullptr) return;
    if (std::fwrite(record, 1, sizeof *record, stream) < sizeof *record) note_incomplete(*record);
}

extern "C" void log_update(const ComponentVpdRecord* record, int mode) {
    if (record == nullptr) return;
    vpdd::LoadedLog list;
    vpdd::LogRewrite rewrite(__func__);
    if (!rewrite.load(list) || !rewrite.begin(list)) return;
    rewrite.write(list);
    if (mode == 1) {
        write_replacement(rewrite, list, *record);
    } else {
        rewrite.write(*record);
    }
    rewrite.end(record);
}
