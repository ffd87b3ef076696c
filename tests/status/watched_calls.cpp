// SPDX-License-Identifier: Apache-2.0
#undef _FORTIFY_SOURCE  // the interposed functions are defined here under their plain names
#include "watched_calls.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <map>

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

std::size_t unwatched_fwrite(const void* bytes, std::size_t size, FILE* stream) {
    static auto* const function = real<decltype(fwrite)>("fwrite");
    return function(bytes, 1, size, stream);
}

}  // namespace vpdd::test

using namespace vpdd::test;

extern "C" {

FILE* fopen(const char* path, const char* mode) {
    static auto* const function = real<decltype(fopen)>("fopen", "fopen64");
    WatchedCall call;
    call.text = std::string(" ") + mode;
    return note("fopen", name_of(path), call) ? nullptr : function(path, mode);
}

int fclose(FILE* stream) {
    static auto* const function = real<decltype(fclose)>("fclose");
    note("fclose", watched_name(stream));
    return function(stream);
}

int fseek(FILE* stream, long offset, int whence) {
    static auto* const function = real<decltype(fseek)>("fseek");
    return note("fseek", watched_name(stream)) ? -1 : function(stream, offset, whence);
}

size_t fwrite(const void* bytes, size_t size, size_t count, FILE* stream) {
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
    if (stream != nullptr && note("fflush", watched_name(stream))) return EOF;
    return function(stream);
}

int fsync(int fd) {
    static auto* const function = real<decltype(fsync)>("fsync");
    return note("fsync", watched_name(fd)) ? -1 : function(fd);
}

int open(const char* path, int flags, ...) {
    static auto* const function = real<int(const char*, int, ...)>("open", "open64");
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : mode_t{0};
    va_end(arguments);
    return note("open", name_of(path)) ? -1 : function(path, flags, mode);
}

int close(int fd) {
    static auto* const function = real<decltype(close)>("close");
    const bool fails = note("close", watched_name(fd));
    const int result = function(fd);
    return fails ? -1 : result;
}

int fcntl(int fd, int command, ...) {
    static auto* const function = real<int(int, int, ...)>("fcntl", "fcntl64");
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (watch().active && (command == F_SETLK || command == F_SETLKW)) {
        WatchedCall call;
        call.lock = static_cast<struct flock*>(argument);
        watch().lock_requests.push_back(*call.lock);
        if (note(call.lock->l_type == F_UNLCK ? "unlock" : "lock", name_of(fd), call)) return -1;
    }
    return function(fd, command, argument);
}

}  // extern "C"
