// SPDX-License-Identifier: Apache-2.0
#include "daemon/loading.h"

#include <dlfcn.h>

namespace vpdd::daemon {

namespace {

/// Loaded for good, with its symbols in global scope.
void* load(const std::string& file) {
    void* library = dlopen(file.c_str(), RTLD_NOW | RTLD_GLOBAL | RTLD_NODELETE);
    if (library == nullptr) throw LoadError(dlerror());
    return library;
}

template <class Function>
Function* find(void* library, const char* name) {
    void* address = dlsym(library, name);
    if (address == nullptr) throw LoadError(dlerror());
    return reinterpret_cast<Function*>(address);
}

std::string platform_file(const std::string& name) {
    if (name.find('/') != std::string::npos) return name;
    return "libvpdd_" + name + ".so";
}

}  // namespace

const VpddPlatformLibrary& load_platform(const std::string& name) {
    void* library = load(platform_file(name));
    const VpddPlatformLibrary* platform = find<const VpddPlatformLibrary*()>(library, "vpdd_platform_library")();
    if (platform->version != VPDD_PLATFORM_VERSION) {
        throw LoadError(platform_file(name) + ": has version " + std::to_string(platform->version) +
                        " of the platform interface, " + std::to_string(VPDD_PLATFORM_VERSION) + " is needed");
    }
    return *platform;
}

Run& load_daemon() { return *find<Run>(load("libvpdd_daemon.so"), "vpdd_daemon_run"); }

}  // namespace vpdd::daemon
