// SPDX-License-Identifier: Apache-2.0
#include <cstdlib>

#include "base/linked_list.h"
#include "orva_vpdd.h"

extern "C" StatusList* insert_status_node_back(StatusList* list, StatusNode* at, StatusNode* node) {
    return vpdd::insert_behind(list, at, node);
}

extern "C" void insert_status_node(StatusList* list, StatusNode* at, StatusNode* node) {
    vpdd::insert_before(list, at, node);
}

extern "C" StatusList* insert_status_node_last(StatusList* list, StatusNode* node) { return vpdd::append(list, node); }

extern "C" void remove_status_node(StatusList* list, StatusNode* node) { vpdd::remove_and_free(list, node); }

extern "C" PciList* insert_pci_node_back(PciList* list, PciNode* at, PciNode* node) {
    return vpdd::insert_behind(list, at, node);
}

extern "C" void insert_pci_node(PciList* list, PciNode* at, PciNode* node) { vpdd::insert_before(list, at, node); }

extern "C" PciList* insert_pci_node_last(PciList* list, PciNode* node) { return vpdd::append(list, node); }

extern "C" void remove_pci_node(PciList* list, PciNode* node) { vpdd::remove_and_free(list, node); }
