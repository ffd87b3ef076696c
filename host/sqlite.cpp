// SPDX-License-Identifier: Apache-2.0
#include "host/sqlite.h"

#include <dlfcn.h>

#include <stdexcept>

namespace vpdd::host {

namespace {

constexpr const char* library_name = "libsqlite3.so.0";

[[noreturn]] void fail() { throw std::runtime_error(dlerror()); }

template <class Function>
void find(void* library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(dlsym(library, name));
    if (function == nullptr) fail();
}

/// The library stays as long as the process.
Sqlite load() {
    void* library = dlopen(library_name, RTLD_NOW);
    if (library == nullptr) fail();
    Sqlite functions{};
    find(library, "sqlite3_open", functions.open);
    find(library, "sqlite3_close", functions.close);
    find(library, "sqlite3_busy_handler", functions.busy_handler);
    find(library, "sqlite3_exec", functions.exec);
    find(library, "sqlite3_errmsg", functions.errmsg);
    find(library, "sqlite3_errstr", functions.errstr);
    find(library, "sqlite3_prepare_v3", functions.prepare);
    find(library, "sqlite3_finalize", functions.finalize);
    find(library, "sqlite3_bind_int64", functions.bind_int64);
    find(library, "sqlite3_bind_text64", functions.bind_text64);
    find(library, "sqlite3_bind_blob64", functions.bind_blob64);
    find(library, "sqlite3_step", functions.step);
    find(library, "sqlite3_reset", functions.reset);
    find(library, "sqlite3_clear_bindings", functions.clear_bindings);
    find(library, "sqlite3_column_int", functions.column_int);
    find(library, "sqlite3_column_int64", functions.column_int64);
    find(library, "sqlite3_column_text", functions.column_text);
    find(library, "sqlite3_column_blob", functions.column_blob);
    find(library, "sqlite3_column_bytes", functions.column_bytes);
    return functions;
}

}  // namespace

const Sqlite& sqlite() {
    static const Sqlite functions = load();
    return functions;
}

}  // namespace vpdd::host
