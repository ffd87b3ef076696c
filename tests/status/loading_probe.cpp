// SPDX-License-Identifier: Apache-2.0
// Loads and unloads the library as its arguments say, in order, and prints what became of the change-history library.
//     open, unload           the library itself
//     load, close            its functions for the change-history library; prints their results
//     state                  prints whether the change-history library is in this process
//     log                    prints what was logged
#include <dlfcn.h>

#include <cstdio>
#include <string_view>

#include "fake_platform.h"

namespace {

void* library = nullptr;

int call(const char* function) { return reinterpret_cast<int (*)()>(dlsym(library, function))(); }

bool is_chghist_loaded() {
    void* const handle = dlopen("liborvadb_chghist.so", RTLD_LAZY | RTLD_NOLOAD);
    if (handle != nullptr) dlclose(handle);
    return handle != nullptr;
}

void print_log() {
    for (const auto& line : vpdd::test::FakePlatform::instance().log()) {
        std::printf("%d %s", line.priority, line.text.c_str());
    }
}

bool carry_out(std::string_view action) {
    if (action == "open") return (library = dlopen(VPDD_LIBRARY, RTLD_NOW)) != nullptr;
    if (action == "unload") return dlclose(library) == 0;
    if (action == "load") return std::printf("%d\n", call("vpdd_load_chghist_lib")) > 0;
    if (action == "close") return std::printf("%d\n", call("vpdd_close_chghist_lib")) > 0;
    if (action == "state") return std::puts(is_chghist_loaded() ? "loaded" : "not loaded") >= 0;
    if (action == "log") return print_log(), true;
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (!carry_out(argv[i])) return 1;
    }
    return 0;
}
