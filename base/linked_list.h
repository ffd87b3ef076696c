// SPDX-License-Identifier: Apache-2.0
// The doubly linked lists of records. Each exported list operation is one of these; none of them takes a lock.
#pragma once

#include <cstdlib>

namespace vpdd {

template <class List, class Node>
List* insert_behind(List* list, Node* at, Node* node) {
    if (list == nullptr || at == nullptr || node == nullptr) return list;
    node->prev = at;
    node->next = at->next;
    (at->next != nullptr ? at->next->prev : list->tail) = node;
    at->next = node;
    return list;
}

template <class List, class Node>
void insert_before(List* list, Node* at, Node* node) {
    if (list == nullptr || at == nullptr || node == nullptr) return;
    node->next = at;
    node->prev = at->prev;
    (at->prev != nullptr ? at->prev->next : list->head) = node;
    at->prev = node;
}

/// The list; null when the node became its only element.
template <class List, class Node>
List* append(List* list, Node* node) {
    if (list == nullptr || node == nullptr) return list;
    if (list->tail != nullptr && list->head != nullptr) return insert_behind(list, list->tail, node);
    list->head = list->tail = node;
    node->prev = node->next = nullptr;
    return nullptr;
}

/// Takes the node out of the list; the caller frees it.
template <class List, class Node>
void unlink(List* list, Node* node) {
    (node->next != nullptr ? node->next->prev : list->tail) = node->prev;
    (node->prev != nullptr ? node->prev->next : list->head) = node->next;
}

template <class List, class Node>
void remove_and_free(List* list, Node* node) {
    if (list == nullptr || node == nullptr) return;
    unlink(list, node);
    std::free(node);
}

/// Frees every node; the list is empty afterwards.
template <class List>
void free_nodes(List& list) {
    for (auto* node = list.head; node != nullptr;) {
        auto* const next = node->next;
        std::free(node);
        node = next;
    }
    list.head = list.tail = nullptr;
}

/// A list whose nodes are freed with it.
template <class List>
struct OwnedList : List {
    OwnedList() { this->head = this->tail = nullptr; }
    ~OwnedList() { free_nodes<List>(*this); }
    OwnedList(const OwnedList&) = delete;
    OwnedList& operator=(const OwnedList&) = delete;

    /// The nodes are never freed.
    void leave_allocated_for_good() { this->head = this->tail = nullptr; }
};

}  // namespace vpdd
