// SPDX-License-Identifier: Apache-2.0
#undef _FORTIFY_SOURCE  // the interposed functions are defined here under their plain names
#include "watched_files.h"

#include <dlfcn.h>

#include <cerrno>
#include <cstdarg>
#include <mutex>

namespace vpdd::test {

namespace {

struct Watched {
    std::mutex mutex;
    bool active = false;
    WatchedFiles::OpenPredicate fails_open;
    WatchedFiles::LockPredicate fails_lock;
    std::vector<std::string> opened;
    std::vector<LockRequest> requests;
    std::vector<std::string> events;
};

Watched& watched() {
    static auto* const instance = new Watched;  // also there for calls after main()
    return *instance;
}

/// Whether the call is to fail.
bool note_open(const char* path) {
    Watched& files = watched();
    const std::lock_guard lock(files.mutex);
    if (!files.active) return false;
    files.opened.emplace_back(path);
    files.events.push_back(std::string("open ") + path);
    return files.fails_open && files.fails_open(path);
}

bool note_request(const LockRequest& request) {
    Watched& files = watched();
    const std::lock_guard lock(files.mutex);
    if (!files.active) return false;
    files.requests.push_back(request);
    files.events.emplace_back(request.is_unlock() ? "unlock" : "lock");
    return files.fails_lock && files.fails_lock(request);
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
    files.opened.clear();
    files.requests.clear();
    files.events.clear();
}

void WatchedFiles::fail_open(OpenPredicate fails) {
    const std::lock_guard lock(watched().mutex);
    watched().fails_open = std::move(fails);
}

void WatchedFiles::fail_lock(LockPredicate fails) {
    const std::lock_guard lock(watched().mutex);
    watched().fails_lock = std::move(fails);
}

std::vector<std::string> WatchedFiles::opened() const {
    const std::lock_guard lock(watched().mutex);
    return watched().opened;
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
    if (note_open(path)) {
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
    if (is_lock && note_request({command, *static_cast<struct flock*>(argument)})) {
        errno = ENOLCK;
        return -1;
    }
    return real_fcntl(fd, command, argument);
}

}  // extern "C"
