// SPDX-License-Identifier: Apache-2.0
#include <cstring>

#include "orva_vpdd.h"
#include "platform/change_history.h"
#include "status/loaded_list.h"

namespace {

constexpr uint32_t pci_table = 86564;  // table code of the change-history database
constexpr std::size_t record_size = sizeof(PciNode::record);

void release_records(uint8_t* records) {
    if (chghist_release_pci != nullptr) chghist_release_pci(records);
}

/// In the database's order, up to the first record for which there is no memory.
void append_records(PciList& list, const uint8_t* records, int count) {
    for (int i = 0; i < count; ++i, records += record_size) {
        auto node = vpdd::allocate_zeroed<PciNode>();
        if (node == nullptr) return;
        std::memcpy(node->record, records, record_size);
        insert_pci_node_last(&list, node.release());
    }
}

int read_log(const char* function, PciList** handle) {
    if (handle == nullptr || chghist_read_pci == nullptr) return -1;
    uint8_t* records = nullptr;
    const int count = chghist_read_pci(&records, pci_table, 0);
    auto list = count > 0 && records != nullptr ? vpdd::allocate_zeroed<PciList>() : nullptr;
    if (list == nullptr) {
        release_records(records);
        return -1;
    }
    append_records(*list, records, count);
    vpdd::hand_out(function, std::move(list), handle);
    release_records(records);
    return 0;
}

}  // namespace

extern "C" int access_pci_log(int operation, PciList** handle) {
    switch (operation) {
        case vpdd::operation_read:
            return read_log(__func__, handle);
        case vpdd::operation_reserved:
            return 0;
        case vpdd::operation_free:
            return vpdd::release(__func__, handle);
        default:
            return vpdd::unknown_operation;
    }
}

// The PCI log's read side is switched off.
extern "C" int vpdd_pci_readlog(PciList** handle_out) {
    if (handle_out != nullptr) *handle_out = nullptr;
    return -1;
}

extern "C" int vpdd_pci_freelog(PciList** handle_inout) { return access_pci_log(vpdd::operation_free, handle_inout); }
