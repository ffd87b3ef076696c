// SPDX-License-Identifier: Apache-2.0
#undef _FORTIFY_SOURCE  // the interposed functions are defined here under their plain names
#include "watched_files.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <mutex>

namespace vpdd::test {

namespace {

struct Watched {
    std::mutex mutex;
    bool active = false;
    WatchedFiles::OpenPredicate fails_open;
    WatchedFiles::LockPredicate fails_lock;
    int lock_error = ENOLCK;
    WatchedFiles::ClosePredicate fails_close;
    std::vector<std::string> opened;
    std::vector<std::string> inherited;
    std::vector<LockRequest> requests;
    std::vector<std::string> events;
};

Watched& watched() {
    static auto* const instance = new Watched;  // also there for calls after main()
    return *instance;
}

/// Whether the call is to fail.
bool note_open(const char* path, int flags) {
    Watched& files = watched();
    const std::lock_guard lock(files.mutex);
    if (!files.active) return false;
    files.opened.emplace_back(path);
    if ((flags & O_CLOEXEC) == 0) files.inherited.emplace_back(path);
    files.events.push_back(std::string("open ") + path);
    return files.fails_open && files.fails_open(path);
}

/// Whether the call is to fail.
bool note_close(int fd) {
    Watched& files = watched();
    const std::lock_guard lock(files.mutex);
    if (!files.active || !files.fails_close) return false;
    char path[PATH_MAX] = {};
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    return readlink(link.c_str(), path, sizeof path - 1) > 0 && files.fails_close(path);
}

void note_rename(const char* path) {
    Watched& files = watched();
    const std::lock_guard lock(files.mutex);
    if (files.active) files.events.push_back(std::string("rename ") + path);
}

bool note_request(const LockRequest& request) {
    Watched& files = watched();
    const std::lock_guard lock(files.mutex);
    if (!files.active) return false;
    files.requests.push_back(request);
    files.events.emplace_back(request.is_unlock() ? "unlock" : "lock");
    const bool fails = files.fails_lock && files.fails_lock(request);
    if (fails) errno = files.lock_error;
    return fails;
}

template <class Function>
Function* real(const char* large_file_name, const char* name) {
    void* found = dlsym(RTLD_NEXT, large_file_name);
    return reinterpret_cast<Function*>(found != nullptr ? found : dlsym(RTLD_NEXT, name));
}

}  // namespace

WatchedFiles::WatchedFiles() {
    const std::lock_guard lock(watched().mutex);
    watched().active = true;
}

WatchedFiles::~WatchedFiles() {
    Watched& files = watched();
    const std::lock_guard lock(files.mutex);
    files.active = false;
    files.fails_open = nullptr;
    files.fails_lock = nullptr;
    files.fails_close = nullptr;
    files.opened.clear();
    files.inherited.clear();
    files.requests.clear();
    files.events.clear();
}

void WatchedFiles::fail_open(OpenPredicate fails) {
    const std::lock_guard lock(watched().mutex);
    watched().fails_open = std::move(fails);
}

void WatchedFiles::fail_lock(LockPredicate fails, int error) {
    const std::lock_guard lock(watched().mutex);
    watched().fails_lock = std::move(fails);
    watched().lock_error = error;
}

void WatchedFiles::fail_close(ClosePredicate fails) {
    const std::lock_guard lock(watched().mutex);
    watched().fails_close = std::move(fails);
}

std::vector<std::string> WatchedFiles::opened() const {
    const std::lock_guard lock(watched().mutex);
    return watched().opened;
}

std::vector<std::string> WatchedFiles::inherited() const {
    const std::lock_guard lock(watched().mutex);
    return watched().inherited;
}

std::vector<LockRequest> WatchedFiles::requests() const {
    const std::lock_guard lock(watched().mutex);
    return watched().requests;
}

std::vector<std::string> WatchedFiles::events() const {
    const std::lock_guard lock(watched().mutex);
    return watched().events;
}

}  // namespace vpdd::test

// ---- interposed functions of the C library; with large files they are linked under their 64-bit names

using namespace vpdd::test;

extern "C" {

int open(const char* path, int flags, ...) {
    static auto* const real_open = real<int(const char*, int, ...)>("open64", "open");
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : mode_t{0};
    va_end(arguments);
    if (note_open(path, flags)) {
        errno = EACCES;
        return -1;
    }
    return real_open(path, flags, mode);
}

// What a caller built with _FORTIFY_SOURCE calls instead, when the compiler does not see the flags.
int __open64_2(const char* path, int flags) { return open(path, flags); }

int fcntl(int fd, int command, ...) {
    static auto* const real_fcntl = real<int(int, int, ...)>("fcntl64", "fcntl");
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    const bool is_lock = command == F_SETLK || command == F_SETLKW;
    if (is_lock && note_request({command, *static_cast<struct flock*>(argument)})) return -1;
    return real_fcntl(fd, command, argument);
}

int close(int fd) {
    static auto* const real_close = real<int(int)>("close", "close");
    const bool fails = note_close(fd);
    const int result = real_close(fd);
    if (!fails) return result;
    errno = EIO;
    return -1;
}

int rename(const char* from, const char* to) noexcept {
    static auto* const real_rename = real<int(const char*, const char*)>("rename", "rename");
    note_rename(to);
    return real_rename(from, to);
}

}  // extern "C"
