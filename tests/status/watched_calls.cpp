// SPDX-License-Identifier: Apache-2.0
#undef _FORTIFY_SOURCE  // the interposed functions are defined here under their plain names
#include "watched_calls.h"

#include <dlfcn.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <map>

#include "library_code.h"
#include "log_world.h"

namespace vpdd::test {

namespace {

struct Watch {
    bool active = false;
    std::map<std::string, int> failing;
    std::function<void(const WatchedCall&)> before;
    std::vector<struct flock> lock_requests;
};

Watch& watch() {
    static auto* const instance = new Watch;  // also there for calls after main()
    return *instance;
}

/// Null for a file that is none of the log's.
const char* name_of(const std::string& path) {
    if (path == log_path) return "LOG";
    if (path == backup_path) return "BACKUP";
    if (path == lock_path) return "LOCK";
    return nullptr;
}

const char* name_of(int fd) {
    char path[PATH_MAX] = {};
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    return readlink(link.c_str(), path, sizeof path - 1) < 0 ? nullptr : name_of(path);
}

/// Of a file, or of the folder that the log's files are in.
const char* flushed_name(int fd) {
    char path[PATH_MAX] = {};
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const bool is_folder = readlink(link.c_str(), path, sizeof path - 1) > 0 && std::string(path) == "/flash/data0";
    return is_folder ? "FOLDER" : name_of(fd);
}

/// Whether the call is to fail.
bool note(const char* function, const char* file, WatchedCall call = {}) {
    if (!watch().active || file == nullptr) return false;
    call.text = std::string(function) + ' ' + file + call.text;
    FakePlatform::instance().note(call.text);
    if (watch().before) watch().before(call);
    const auto found = watch().failing.find(call.text);
    if (found == watch().failing.end() || found->second == 0) return false;
    if (found->second > 0) --found->second;
    errno = EIO;
    return true;
}

const char* watched_name(int fd) { return watch().active ? name_of(fd) : nullptr; }
const char* watched_name(FILE* stream) { return watch().active ? name_of(fileno(stream)) : nullptr; }

struct Numbered {
    bool active = false;
    CallFault fault;
    std::size_t count = 0;
    std::string failed;
};

Numbered& numbered() {
    static auto* const instance = new Numbered;
    return *instance;
}

bool take_number(const char* name) {
    Numbered& calls = numbered();
    if (!calls.active) return false;
    ++calls.count;
    const CallFault& fault = calls.fault;
    if (fault.number == 0 || calls.count < fault.number) return false;
    if (calls.count > fault.number && !fault.from_then_on) return false;
    if (calls.failed.empty()) calls.failed = name;
    errno = fault.error;
    return true;
}

ObjectCode library(library_file);

/// As the C library marks a stream on which a call has failed; what ferror() tells.
void mark_as_failed(FILE* stream) {
    constexpr int error_seen = 0x20;
    stream->_flags |= error_seen;
}

bool fails_halfway() { return numbered().fault.failure == CallFailure::half_written; }

/// With large files the functions are linked under their 64-bit names.
template <class Function>
Function* real(const char* name, const char* large_file_name = nullptr) {
    void* const found = large_file_name != nullptr ? dlsym(RTLD_NEXT, large_file_name) : nullptr;
    return reinterpret_cast<Function*>(found != nullptr ? found : dlsym(RTLD_NEXT, name));
}

}  // namespace

WatchedCalls::WatchedCalls() { watch().active = true; }

WatchedCalls::~WatchedCalls() { watch() = {}; }

void WatchedCalls::fail(const std::string& call, int times) { watch().failing[call] = times; }

void WatchedCalls::before(std::function<void(const WatchedCall&)> hook) { watch().before = std::move(hook); }

std::vector<struct flock> WatchedCalls::lock_requests() const { return watch().lock_requests; }

NumberedCalls::NumberedCalls(const CallFault& fault) {
    library.find();
    numbered().fault = fault;
    numbered().active = true;
}

NumberedCalls::~NumberedCalls() { numbered() = {}; }

bool NumberedCalls::take(const char* name) { return take_number(name); }

bool NumberedCalls::take(const char* name, const void* caller) {
    return numbered().active && library.holds(caller) && take_number(name);
}

std::string NumberedCalls::failed() const { return numbered().failed; }

std::size_t unwatched_fwrite(const void* bytes, std::size_t size, FILE* stream) {
    static auto* const function = real<decltype(fwrite)>("fwrite");
    return function(bytes, 1, size, stream);
}

}  // namespace vpdd::test

using namespace vpdd::test;

extern "C" {

FILE* fopen(const char* path, const char* mode) {
    static auto* const function = real<decltype(fopen)>("fopen", "fopen64");
    if (NumberedCalls::take("fopen", __builtin_return_address(0))) return nullptr;
    WatchedCall call;
    call.text = std::string(" ") + mode;
    return note("fopen", name_of(path), call) ? nullptr : function(path, mode);
}

FILE* fdopen(int fd, const char* mode) noexcept {
    static auto* const function = real<FILE*(int, const char*)>("fdopen");
    return NumberedCalls::take("fdopen", __builtin_return_address(0)) ? nullptr : function(fd, mode);
}

int fclose(FILE* stream) {
    static auto* const function = real<decltype(fclose)>("fclose");
    const bool fails_by_number = NumberedCalls::take("fclose", __builtin_return_address(0));
    note("fclose", watched_name(stream));
    const int result = function(stream);
    return fails_by_number ? EOF : result;
}

int fseek(FILE* stream, long offset, int whence) {
    static auto* const function = real<decltype(fseek)>("fseek");
    if (NumberedCalls::take("fseek", __builtin_return_address(0))) return -1;
    return note("fseek", watched_name(stream)) ? -1 : function(stream, offset, whence);
}

size_t fread(void* bytes, size_t size, size_t count, FILE* stream) {
    static auto* const function = real<decltype(fread)>("fread");
    if (!NumberedCalls::take("fread", __builtin_return_address(0))) return function(bytes, size, count, stream);
    mark_as_failed(stream);
    return 0;
}

size_t fwrite(const void* bytes, size_t size, size_t count, FILE* stream) {
    if (NumberedCalls::take("fwrite", __builtin_return_address(0))) {
        const size_t written = fails_halfway() ? unwatched_fwrite(bytes, size * count / 2, stream) : 0;
        mark_as_failed(stream);
        return written / size;
    }
    WatchedCall call;
    call.bytes = bytes;
    call.size = size * count;
    call.stream = stream;
    if (note("fwrite", watched_name(stream), call)) return 0;
    const size_t written = unwatched_fwrite(bytes, size * count, stream);
    return size == 0 ? 0 : written / size;
}

int fflush(FILE* stream) {
    static auto* const function = real<decltype(fflush)>("fflush");
    if (stream != nullptr && NumberedCalls::take("fflush", __builtin_return_address(0))) return EOF;
    if (stream != nullptr && note("fflush", watched_name(stream))) return EOF;
    return function(stream);
}

int fsync(int fd) {
    static auto* const function = real<decltype(fsync)>("fsync");
    if (NumberedCalls::take("fsync", __builtin_return_address(0))) return -1;
    return note("fsync", watch().active ? flushed_name(fd) : nullptr) ? -1 : function(fd);
}

ssize_t write(int fd, const void* bytes, size_t size) {
    static auto* const function = real<decltype(write)>("write");
    if (!NumberedCalls::take("write", __builtin_return_address(0))) return function(fd, bytes, size);
    return fails_halfway() ? function(fd, bytes, size / 2) : -1;
}

int open(const char* path, int flags, ...) {
    static auto* const function = real<int(const char*, int, ...)>("open", "open64");
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : mode_t{0};
    va_end(arguments);
    if (NumberedCalls::take("open", __builtin_return_address(0))) return -1;
    return note("open", name_of(path)) ? -1 : function(path, flags, mode);
}

// The name under which fortified callers open with flags that are not constant.
int __open64_2(const char* path, int flags) {
    static auto* const function = real<int(const char*, int)>("__open64_2");
    if (NumberedCalls::take("open", __builtin_return_address(0))) return -1;
    return note("open", name_of(path)) ? -1 : function(path, flags);
}

int close(int fd) {
    static auto* const function = real<decltype(close)>("close");
    const bool fails_by_number = NumberedCalls::take("close", __builtin_return_address(0));
    const bool fails_by_name = note("close", watched_name(fd));
    const int result = function(fd);
    return fails_by_number || fails_by_name ? -1 : result;
}

int fcntl(int fd, int command, ...) {
    static auto* const function = real<int(int, int, ...)>("fcntl", "fcntl64");
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (NumberedCalls::take("fcntl", __builtin_return_address(0))) return -1;
    if (watch().active && (command == F_SETLK || command == F_SETLKW)) {
        WatchedCall call;
        call.lock = static_cast<struct flock*>(argument);
        watch().lock_requests.push_back(*call.lock);
        if (note(call.lock->l_type == F_UNLCK ? "unlock" : "lock", name_of(fd), call)) return -1;
    }
    return function(fd, command, argument);
}

int flock(int fd, int operation) noexcept {
    static auto* const function = real<int(int, int)>("flock");
    return NumberedCalls::take("flock", __builtin_return_address(0)) ? -1 : function(fd, operation);
}

int fstat(int fd, struct stat* status) noexcept {
    static auto* const function = real<int(int, struct stat*)>("fstat", "fstat64");
    return NumberedCalls::take("fstat", __builtin_return_address(0)) ? -1 : function(fd, status);
}

int access(const char* path, int mode) noexcept {
    static auto* const function = real<int(const char*, int)>("access");
    return NumberedCalls::take("access", __builtin_return_address(0)) ? -1 : function(path, mode);
}

int rename(const char* from, const char* to) noexcept {
    static auto* const function = real<int(const char*, const char*)>("rename");
    return NumberedCalls::take("rename", __builtin_return_address(0)) ? -1 : function(from, to);
}

int unlink(const char* path) noexcept {
    static auto* const function = real<int(const char*)>("unlink");
    return NumberedCalls::take("unlink", __builtin_return_address(0)) ? -1 : function(path);
}

}  // extern "C"
