// SPDX-License-Identifier: Apache-2.0
// The store of the host's SMBIOS table.
#include "platform/smbios_store.h"

#include <map>

#include "host/images/smbios_image.h"
#include "host/server.h"

namespace vpdd::host {

namespace {

using images::ParsedSmbiosTable;

std::mutex open_tables_mutex;
std::map<const SmbiosTable*, std::unique_ptr<ParsedSmbiosTable>> open_tables;

SmbiosTable* keep(std::unique_ptr<ParsedSmbiosTable> table) {
    SmbiosTable* handle = table->get();
    const std::scoped_lock lock(open_tables_mutex);
    open_tables[handle] = std::move(table);
    return handle;
}

/// A BMC's server has the table that its description names, and none made up.
std::span<const uint8_t> table_of(const Server& server) {
    if (server.bmc && !server.document.contains("smbios")) return {};
    return server.description.smbios;
}

bool release(const SmbiosTable* handle) {
    const std::scoped_lock lock(open_tables_mutex);
    return open_tables.erase(handle) != 0;
}

}  // namespace

}  // namespace vpdd::host

extern "C" int smbt_init(SmbiosTable** table, int, const char*, const char*) {
    const auto server = vpdd::host::current_server();
    if (!server || table == nullptr) return -1;
    auto parsed = vpdd::images::parse_smbios_table(vpdd::host::table_of(*server));
    if (parsed == nullptr) return -1;
    *table = vpdd::host::keep(std::move(parsed));
    return 0;
}

extern "C" int smbt_release(SmbiosTable* table) { return vpdd::host::release(table) ? 0 : -1; }
