// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// A map from text or 32-bit numbers to pointers, on a hash table of its own.
//
// The table's functions see a key record instead of the bare key, because it carries the key's type. A node is one
// allocation: list node, key record, value and, for a text key, the characters. Keys are unique, entries come in bucket
// order and within a bucket in the order in which they were added.
#include <zamc/ptrmap.h>

#include <cstddef>
#include <cstring>
#include <span>
#include <utility>

#include <zamc/logger.h>

#include "platform/bounded.h"
#include "runtime/hash_internal.h"
#include "runtime/mem_internal.h"

using zam::runtime::mem_new;
using zam::runtime::owned;
using zam::runtime::owned_block;

struct zam_ptrmap {
    uint32_t key_type;
    zam_ptrmap_free_fn value_free;
    zam_hash *hash;
};

namespace {

struct map_key {
    uint32_t type;
    union {
        uint32_t integer;
        const char *text;
    };
};

// A text key's characters follow behind.
struct map_node {
    zam_dlist_node link;
    map_key key;
    void *value;
};
static_assert(offsetof(map_node, link) == 0);

constexpr uint32_t free_value_flag = 1;

map_node *_node_of(zam_dlist_node *link) {
    return reinterpret_cast<map_node *>(link);
}

map_key _make_key(const zam_ptrmap *map, const void *key) {
    map_key made = {map->key_type, {}};
    if (made.type == ZAM_PTRMAP_KEY_INTEGER) {
        memcpy(&made.integer, key, sizeof made.integer); // the caller's number may stand anywhere
    } else {
        made.text = static_cast<const char *>(key);
    }
    return made;
}

uint32_t _map_index(const void *key, uint32_t bucket_count) {
    if (bucket_count == 0) return 0;
    const auto *sought = static_cast<const map_key *>(key);
    const uint32_t hash = sought->type == ZAM_PTRMAP_KEY_INTEGER ? sought->integer : zam_str_hash(sought->text);
    return hash % bucket_count;
}

int32_t _map_compare(const zam_dlist_node *link, const void *key) {
    const auto *node = reinterpret_cast<const map_node *>(link);
    const auto *sought = static_cast<const map_key *>(key);
    if (sought->type != ZAM_PTRMAP_KEY_INTEGER) return strcmp(node->key.text, sought->text);
    return static_cast<int32_t>(node->key.integer - sought->integer);
}

std::span<zam_dlist> _buckets(const zam_ptrmap *map) {
    return {map->hash->buckets, map->hash->bucket_count};
}

map_node *_find_node(zam_ptrmap *map, const void *key) {
    if (!map || !key) return nullptr;
    const map_key sought = _make_key(map, key);
    return _node_of(zam_hash_find(map->hash, &sought));
}

map_node *_new_node(const map_key &key, void *value) {
    const bool is_text = key.type != ZAM_PTRMAP_KEY_INTEGER;
    const size_t tail = is_text ? strlen(key.text) + 1 : 0;
    owned_block<map_node> node{mem_new<map_node>(tail)};
    if (!node) return nullptr;
    node->key = key;
    node->value = value;
    if (is_text) {
        char *text = reinterpret_cast<char *>(node.get() + 1);
        if (strcpy_s(text, tail, key.text) != 0) {
            zam_log_printf(ZAM_LOG_WRONG, "ptrmap:Wrong to strcpy_s for new node\n");
            return nullptr;
        }
        node->key.text = text;
    }
    return node.release();
}

// The entry leaves the map first, so the value's free function may use the map.
void _free_node(zam_ptrmap *map, map_node *node, uint32_t free_value) {
    const owned_block<map_node> owner{node};
    zam_hash_remove(map->hash, &node->link, &node->key);
    if ((free_value & free_value_flag) && map->value_free) map->value_free(std::exchange(node->value, nullptr));
}

} // namespace

zam_ptrmap *zam_ptrmap_create(uint32_t bucket_count, uint32_t key_type, zam_ptrmap_free_fn value_free) {
    owned<zam_ptrmap, zam_ptrmap_destroy> map{mem_new<zam_ptrmap>()};
    if (!map) {
        zam_log_printf(ZAM_LOG_WRONG, "Alloc ptrmap unsuccessful.\n");
        return nullptr;
    }
    map->key_type = key_type;
    map->value_free = value_free;
    if (key_type <= ZAM_PTRMAP_KEY_INTEGER) map->hash = zam_hash_create(bucket_count, _map_index, _map_compare);
    if (!map->hash) {
        zam_log_printf(ZAM_LOG_WRONG, "Create hash unsuccessful.\n");
        return nullptr;
    }
    return map.release();
}

int32_t zam_ptrmap_add(zam_ptrmap *map, const void *key, void *value) {
    if (!map || !key) return -1;
    const map_key sought = _make_key(map, key);
    if (zam_hash_find(map->hash, &sought)) {
        zam_log_printf(ZAM_LOG_WRONG, "ptrmap: exist key-value map in the hash table\n");
        return -1;
    }
    owned_block<map_node> node{_new_node(sought, value)};
    if (!node || zam_hash_append(map->hash, &node->link, &node->key) != 0) return -1;
    node.release();
    return 0;
}

void *zam_ptrmap_find(zam_ptrmap *map, const void *key) {
    const map_node *node = _find_node(map, key);
    return node ? node->value : nullptr;
}

void zam_ptrmap_del(zam_ptrmap *map, const void *key, uint32_t free_value) {
    map_node *node = _find_node(map, key);
    if (node) _free_node(map, node, free_value);
}

uint32_t zam_ptrmap_size(const zam_ptrmap *map) {
    return map ? zam_hash_num(map->hash) : 0;
}

void *zam_ptrmap_getnext(zam_ptrmap *map, const void *key) {
    if (!map) return nullptr;
    uint32_t bucket = 0;
    if (key) {
        const map_node *node = _find_node(map, key);
        if (node && node->link.next) return _node_of(node->link.next)->value;
        const map_key sought = _make_key(map, key);
        bucket = _map_index(&sought, map->hash->bucket_count) + 1;
    }
    for (const zam_dlist &list : _buckets(map).subspan(bucket)) {
        if (list.head) return _node_of(list.head)->value;
    }
    return nullptr;
}

int32_t zam_ptrmap_foreach(zam_ptrmap *map, zam_ptrmap_visit_fn visit, void *arg) {
    if (!map || !visit) return 0;
    int32_t result = 0;
    for (const zam_dlist &list : _buckets(map)) {
        zam_dlist_node *next;
        for (zam_dlist_node *link = list.head; link; link = next) {
            next = link->next; // the function may delete the entry that it is called with
            const int32_t visited = visit(_node_of(link)->value, arg);
            if (result == 0) result = visited;
        }
    }
    return result;
}

void zam_ptrmap_clear(zam_ptrmap *map) {
    if (!map || !map->hash) return;
    for (zam_dlist &list : _buckets(map)) {
        while (list.head)
            _free_node(map, _node_of(list.head), free_value_flag);
    }
}

void zam_ptrmap_destroy(zam_ptrmap *map) {
    if (!map) return;
    zam_ptrmap_clear(map);
    zam_hash_free(map->hash, nullptr);
    zam_free(map);
}
