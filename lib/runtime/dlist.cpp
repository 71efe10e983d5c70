// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// An intrusive doubly linked list. A node knows its list, so a removal through the wrong list is noticed and changes
// nothing; a node on no list has three null pointers.
#include <zamc/dlist.h>

#include <zamc/logger.h>

namespace {

// Puts a node between two neighbours, either of which may be missing.
void _link(zam_dlist *list, zam_dlist_node *prev, zam_dlist_node *node, zam_dlist_node *next) {
    *node = {list, prev, next};
    (prev ? prev->next : list->head) = node;
    (next ? next->prev : list->tail) = node;
    list->count++;
}

} // namespace

void zam_dlist_init(zam_dlist *list) {
    if (!list) {
        zam_log_printf(ZAM_LOG_WRONG, "Wrong input parameter.\n");
        return;
    }
    *list = {};
}

int32_t zam_dlist_append(zam_dlist *list, zam_dlist_node *node) {
    if (!list || !node) {
        zam_log_printf(ZAM_LOG_WRONG, "Wrong input parameter when appending node.\n");
        return -1;
    }
    _link(list, list->tail, node, nullptr);
    return 0;
}

int32_t zam_dlist_insert(zam_dlist *list, zam_dlist_node *before, zam_dlist_node *node) {
    if (!list || !node || (before && before->list != list)) {
        zam_log_printf(ZAM_LOG_WRONG, "Wrong input parameter when inserting node.\n");
        return -1;
    }
    if (!before) return zam_dlist_append(list, node);
    _link(list, before->prev, node, before);
    return 0;
}

void zam_dlist_remove(zam_dlist *list, zam_dlist_node *node) {
    if (!list || !node || node->list != list) return;
    (node->prev ? node->prev->next : list->head) = node->next;
    (node->next ? node->next->prev : list->tail) = node->prev;
    *node = {};
    list->count--;
}

void zam_dlist_free(zam_dlist *list, zam_dlist_free_fn free_function) {
    if (!list) {
        zam_log_printf(ZAM_LOG_WRONG, "Wrong input parameter, list is null.\n");
        return;
    }
    zam_dlist_node *next;
    for (zam_dlist_node *node = list->head; node; node = next) {
        next = node->next; // the function may release the element that the node is part of
        if (free_function) {
            free_function(node);
        } else {
            *node = {};
        }
    }
    *list = {};
}
