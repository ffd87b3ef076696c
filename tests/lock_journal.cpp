// SPDX-License-Identifier: Apache-2.0
#include "lock_journal.h"

#include <dlfcn.h>

#include <atomic>

#include "fake_platform.h"

namespace {

struct NamedMutex {
    const pthread_mutex_t* mutex;
    const char* name;
};

const NamedMutex named_mutexes[] = {
    {&compvpd_access_mutex, "compvpd_access_mutex"},
    {&g_list_access_mutex, "g_list_access_mutex"},
    {&compvpd_readonly_mutex, "compvpd_readonly_mutex"},
    {&compvpd_kiva_readonly_mutex, "compvpd_kiva_readonly_mutex"},
    {&g_fru_changed_flag_mutex, "g_fru_changed_flag_mutex"},
    {&compvpd_getproperty_mutex, "compvpd_getproperty_mutex"},
    {&compvpd_getstringproperty_mutex, "compvpd_getstringproperty_mutex"},
    {&compvpd_getbyteproperty_mutex, "compvpd_getbyteproperty_mutex"},
    {&fwvpd_access_mutex, "fwvpd_access_mutex"},
};

std::atomic<bool> noting{false};
std::function<void(std::string_view)> line_hook;  // changes only while nothing is noted

void note(const char* what, const pthread_mutex_t* mutex) {
    if (!noting) return;
    for (const NamedMutex& named : named_mutexes) {
        if (named.mutex != mutex) continue;
        const std::string line = std::string(what) + ' ' + named.name;
        vpdd::test::FakePlatform::instance().note(line);
        if (line_hook) line_hook(line);
    }
}

using MutexFunction = int (*)(pthread_mutex_t*);

MutexFunction c_library(const char* name) { return reinterpret_cast<MutexFunction>(dlsym(RTLD_NEXT, name)); }

}  // namespace

namespace vpdd::test {

LockJournal::LockJournal(std::function<void(std::string_view)> hook) {
    line_hook = std::move(hook);
    noting = true;
}
LockJournal::~LockJournal() { noting = false; }

}  // namespace vpdd::test

// Stand in front of the C library's functions.
extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    static const MutexFunction lock = c_library("pthread_mutex_lock");
    const int result = lock(mutex);
    note("lock", mutex);
    return result;
}

extern "C" int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    static const MutexFunction unlock = c_library("pthread_mutex_unlock");
    note("unlock", mutex);
    return unlock(mutex);
}
