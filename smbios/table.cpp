// SPDX-License-Identifier: Apache-2.0
#include "base/log_line.h"
#include "orva_vpdd.h"
#include "platform/smbios_store.h"
#include "smbios/lookup_log.h"

using namespace vpdd;

namespace {

constexpr char store_directory[] = "/var/DS/";
constexpr char stored_table[] = "smbios-table";

}  // namespace

extern "C" int vpdd_load_smbios_table(SmbiosTable** table) {
    const int result = smbt_init(table, 0, stored_table, store_directory);
    if (result == 0) return 0;
    lookup_error(log_info, __func__, "smbt_init failed,ret=0x%02x\n", static_cast<unsigned>(result));
    return -1;
}

extern "C" void vpdd_free_smbios_table(SmbiosTable** table) {
    if (table == nullptr || *table == nullptr) return;
    smbt_release(*table);
    *table = nullptr;
}

extern "C" SmbiosTypeGroup* vpdd_get_the_smbios_info(SmbiosTable* table, uint8_t type) {
    if (table == nullptr) {
        lookup_debug(__func__, "pSMTSMBiosTable is NULL\n");
        return nullptr;
    }
    SmbiosTypeGroup* group = table->groups;
    while (group != nullptr && group->type != type) group = group->next;
    return group;
}
