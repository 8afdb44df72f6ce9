// Doubly linked lists with a head sentinel, shared by the label lists and the monitor and
// send lists: their records all have p_info_head / p_info_end and nodes with p_st_prev /
// p_st_next. The caller holds the list's lock around every call.
#pragma once

#include <cstdint>
#include <cstdlib>

namespace sdk {

// Allocates the sentinel and makes it the end. False when memory runs out.
template <class Node, class List>
bool dlist_init(List *p_list) {
    auto *p_head = static_cast<Node *>(calloc(1, sizeof(Node)));
    p_list->p_info_head = p_head;
    p_list->p_info_end = p_head;
    return p_head != nullptr;
}

template <class Node, class List>
void dlist_append(List *p_list, Node *p_node) {
    Node *p_prev = p_list->p_info_end;
    p_node->p_st_prev = p_prev;
    p_node->p_st_next = nullptr;
    p_prev->p_st_next = p_node;
    p_list->p_info_end = p_node;
}

// The node must be linked (p_st_prev not NULL). Clears its links.
template <class Node, class List>
void dlist_unlink(List *p_list, Node *p_node) {
    Node *p_prev = p_node->p_st_prev;
    Node *p_next = p_node->p_st_next;
    p_prev->p_st_next = p_next;
    if (p_next != nullptr) {
        p_next->p_st_prev = p_prev;
    } else {
        p_list->p_info_end = p_prev;
    }
    p_node->p_st_prev = nullptr;
    p_node->p_st_next = nullptr;
}

}  // namespace sdk
