// SPDX-License-Identifier: Apache-2.0
// SQLite's functions, loaded with the first database: to load them takes longer than to decode a memory module, which
// needs no database.
#pragma once

#include <sqlite3.h>

namespace vpdd::host {

struct Sqlite {
    decltype(&sqlite3_open) open;
    decltype(&sqlite3_close) close;
    decltype(&sqlite3_busy_handler) busy_handler;
    decltype(&sqlite3_exec) exec;
    decltype(&sqlite3_errmsg) errmsg;
    decltype(&sqlite3_errstr) errstr;
    decltype(&sqlite3_prepare_v3) prepare;
    decltype(&sqlite3_finalize) finalize;
    decltype(&sqlite3_bind_int64) bind_int64;
    decltype(&sqlite3_bind_text64) bind_text64;
    decltype(&sqlite3_bind_blob64) bind_blob64;
    decltype(&sqlite3_step) step;
    decltype(&sqlite3_reset) reset;
    decltype(&sqlite3_clear_bindings) clear_bindings;
    decltype(&sqlite3_column_int) column_int;
    decltype(&sqlite3_column_int64) column_int64;
    decltype(&sqlite3_column_text) column_text;
    decltype(&sqlite3_column_blob) column_blob;
    decltype(&sqlite3_column_bytes) column_bytes;
};

/// @throws std::runtime_error when SQLite cannot be loaded
const Sqlite& sqlite();

}  // namespace vpdd::host
