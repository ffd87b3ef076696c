// SPDX-License-Identifier: Apache-2.0
#include "base/linked_list.h"
#include "ipmi/ppin_dump.h"
#include "orva_vpdd.h"

extern "C" ComponentVpdList* insert_vpd_node_back(ComponentVpdList* list, ComponentVpdNode* at,
                                                  ComponentVpdNode* node) {
    return vpdd::insert_behind(list, at, node);
}

extern "C" void insert_vpd_node(ComponentVpdList* list, ComponentVpdNode* at, ComponentVpdNode* node) {
    vpdd::insert_before(list, at, node);
}

extern "C" ComponentVpdList* insert_vpd_node_last(ComponentVpdList* list, ComponentVpdNode* node) {
    return vpdd::append(list, node);
}

extern "C" void remove_vpd_node(ComponentVpdList* list, ComponentVpdNode* node) {
    if (list == nullptr || node == nullptr) return;
    vpdd::unlink(list, node);
    vpdd::take_ppin_dump(&node->record);
    free(node);
}
