/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */

/** @file
 * List: an intrusive doubly linked list.
 *
 * The node is the first member of each element, so a node pointer is an element pointer. Lists allocate nothing, own
 * nothing and do not lock. Both records are open: read them to walk a list, and let the functions write them.
 */
#ifndef ZAMC_DLIST_H
#define ZAMC_DLIST_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A list, see below. */
typedef struct zam_dlist zam_dlist;
/** What an element begins with, see below. */
typedef struct zam_dlist_node zam_dlist_node;

/** A list. All zero is an empty one. */
struct zam_dlist {
    uint32_t count;       /**< number of nodes */
    zam_dlist_node *head; /**< first node, or null */
    zam_dlist_node *tail; /**< last node, or null */
};

/** What an element begins with. All zero is a node on no list. */
struct zam_dlist_node {
    zam_dlist *list;      /**< the list that the node is on, or null */
    zam_dlist_node *prev; /**< the node before, or null for the first */
    zam_dlist_node *next; /**< the node behind, or null for the last */
};

/** Releases the element of a node. It may release its memory, and must leave the other nodes of the list alone. */
typedef void (*zam_dlist_free_fn)(zam_dlist_node *node);

/**
 * Makes a list empty, whatever was in it. A null list is logged at level 3.
 *
 * @param list  the caller's record
 */
void zam_dlist_init(zam_dlist *list);

/**
 * Adds a node at the end. Its former content is not looked at: remove it from another list first.
 *
 * @param list  where to
 * @param node  the element's; it stays the caller's
 * @return 0, or -1 for a null argument, which is logged at level 3
 */
int32_t zam_dlist_append(zam_dlist *list, zam_dlist_node *node);

/**
 * Adds a node before another one.
 *
 * @param list    where to
 * @param before  a node of this list; null adds at the end
 * @param node    the element's; it stays the caller's
 * @return 0; -1 for a null list or node or a `before` that is not on this list, which is logged at level 3
 */
int32_t zam_dlist_insert(zam_dlist *list, zam_dlist_node *before, zam_dlist_node *node);

/**
 * Takes a node off the list and clears it. A node that is not on this list stays as it is.
 *
 * @param list  null does nothing
 * @param node  on the list; null does nothing
 */
void zam_dlist_remove(zam_dlist *list, zam_dlist_node *node);

/**
 * Calls the function for every node from head to tail, then makes the list empty. The list itself is the caller's.
 *
 * @param list           null is logged at level 3
 * @param free_function  may be null: then the nodes are cleared
 */
void zam_dlist_free(zam_dlist *list, zam_dlist_free_fn free_function);

#ifdef __cplusplus
}
#endif

#endif
