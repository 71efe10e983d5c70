// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Bytes objects, and documents as a whole: making, printing, the current directory and walking from it. Reading and
// writing single nodes is format_node.cpp.

#include <cstring>

#include <zamc/logger.h>
#include <zamc/mem.h>
#include <zamc/utils.h>

#include "client/format_internal.h"
#include "platform/bounded.h"

namespace zam::client {
namespace {

using runtime::owned_text;
using owned_doc = runtime::owned<zamc_doc, zamc_free_doc>;

constexpr char no_modules[] = "The client does not load modules, please load modules.\n";
constexpr char no_document[] = "The document is invalid.\n";
constexpr char no_place[] = "The document has no directory, and no path is given.\n";
constexpr char no_path[] = "The path is invalid.\n";
constexpr char no_bytes[] = "The bytes are invalid.\n";

void _set_dir(zamc_doc *doc, char *dir) {
    zam_free(doc->dir);
    doc->dir = dir;
}

enum class step { moved_to, nowhere, refused };

step _step(uint32_t direction, const char *dir, lyd_node *from, lyd_node **to) {
    switch (direction) {
    case ZAMC_DIRECTION_PARENT: *to = reinterpret_cast<lyd_node *>(from->parent); break;
    case ZAMC_DIRECTION_CHILD:
        if (zam_is_edge_node(zam_lyd_get_schema(from, nullptr))) {
            zam_log_printf(ZAM_LOG_DEBUG, "The node [%s] is edge node.\n", dir);
            return step::refused;
        }
        *to = zam_lyd_child(from);
        break;
    case ZAMC_DIRECTION_PREVIOUS: *to = from->prev; break; // of the first sibling: the last one
    case ZAMC_DIRECTION_NEXT: *to = from->next; break;
    default: zam_log_printf(ZAM_LOG_WRONG, "The direction is invalid.\n"); return step::refused;
    }
    if (*to) return step::moved_to;
    zam_log_printf(ZAM_LOG_DEBUG, "Get node failed, curent path %s.\n", dir);
    return step::nowhere;
}

} // namespace

char *_build_full_path(const char *dir, const char *path) {
    if (!path) return zam_strdup(dir);
    if (!dir || *path == '/') return zam_strdup(path);
    const size_t length = strlen(dir);
    const bool has_slash = length > 0 && dir[length - 1] == '/';
    char *full = nullptr;
    return zam_asprintf(&full, has_slash ? "%s%s" : "%s/%s", dir, path) < 0 ? nullptr : full;
}

bool has_place(const zamc_doc *doc, const char *path) {
    if (doc && (path || doc->dir)) return true;
    zam_log_printf(ZAM_LOG_WRONG, doc ? no_place : no_document);
    return false;
}

int32_t _get_current_node(const zamc_doc *doc, const char *path, lyd_node **out) {
    *out = nullptr;
    const char *dir = doc->dir ? doc->dir : "null";
    const char *given = path ? path : "null";
    const owned_text full{_build_full_path(doc->dir, path)};
    if (!full) {
        zam_log_printf(ZAM_LOG_WRONG, "Build full path not successful. (cur: %s, new : %s).\n", dir, given);
        return -3;
    }
    *out = zam_lyd_find_path(doc->tree, full.get());
    if (*out) return 0;
    zam_log_printf(ZAM_LOG_DEBUG, "The node is not found.(cur: %s, new : %s)\n", dir, given);
    return -5;
}

} // namespace zam::client

using namespace zam;
using namespace zam::client;

zamc_bytes *zamc_new_bytes(const void *data, int32_t length, uint32_t format) {
    if (length < 0 || (length > 0 && !data)) {
        zam_log_printf(ZAM_LOG_WRONG, no_bytes);
        return nullptr;
    }
    const auto size = static_cast<uint32_t>(length);
    auto *bytes = runtime::mem_new<zamc_bytes>(size + 1);
    if (!bytes) return nullptr;
    bytes->format = format;
    bytes->length = length;
    if (length > 0) {
        bytes->data = reinterpret_cast<char *>(bytes + 1);
        memcpy(bytes->data, data, size); // the block was made this long
    }
    return bytes;
}

void zamc_free_bytes(zamc_bytes *bytes) {
    zam_free(bytes);
}

zamc_doc *zamc_new_doc(uint32_t format) {
    if (!zam_module_load()) {
        zam_log_printf(ZAM_LOG_WRONG, no_modules);
        return nullptr;
    }
    auto *doc = runtime::mem_new<zamc_doc>();
    if (doc) doc->format = format;
    return doc;
}

void zamc_free_doc(zamc_doc *doc) {
    if (!doc) return;
    zam_free(doc->dir);
    zam_lyd_tree_destroy(doc->tree);
    zam_free(doc);
}

zamc_doc *zamc_parse_bytes(const zamc_bytes *bytes, const char *path) {
    if (!bytes || !path) {
        zam_log_printf(ZAM_LOG_WRONG, bytes ? no_path : no_bytes);
        return nullptr;
    }
    if (!zam_module_load()) zam_log_printf(ZAM_LOG_INFO, no_modules);
    const ly_ctx *ctx = zam_clients_schema_ctx();
    const zam_mem_doc text{path, bytes->data, lyd_format(bytes->format)};
    yang::owned_tree tree{zam_parse_mem(ctx, &text, LYD_PARSE_ONLY, 1, 0)};
    if (!tree) tree.reset(zam_parse_mem(ctx, &text, 0, 0, 1)); // data failed: an operation, then
    if (!tree) {
        zam_log_printf(ZAM_LOG_WRONG, "Parse bytes not successful, path %s.\n", path);
        return nullptr;
    }

    owned_doc doc{runtime::mem_new<zamc_doc>()};
    if (!doc) return nullptr;
    doc->format = bytes->format;
    doc->tree = tree.release();
    doc->dir = zam_strdup(path);
    return doc->dir ? doc.release() : nullptr;
}

zamc_bytes *zamc_format_doc(zamc_doc *doc, uint32_t format) {
    if (!doc) zam_log_printf(ZAM_LOG_WRONG, no_document);
    if (!doc || !doc->tree) return nullptr;
    uint32_t length = 0;
    const runtime::system_text text{zam_lyd_tree_dump(doc->tree, lyd_format(format), &length)};
    if (!text) {
        zam_log_printf(ZAM_LOG_WRONG, "Parse client value not successful.\n");
        return nullptr;
    }
    return length > INT32_MAX ? nullptr : zamc_new_bytes(text.get(), static_cast<int32_t>(length), format);
}

int32_t zamc_change_dir(zamc_doc *doc, const char *path) {
    if (!doc || !path) {
        zam_log_printf(ZAM_LOG_WRONG, doc ? no_path : no_document);
        return -3;
    }
    char *dir = _build_full_path(doc->dir, path);
    if (!dir) return -2;
    _set_dir(doc, dir);
    return 0;
}

const char *zamc_current_dir(const zamc_doc *doc) {
    return doc ? doc->dir : nullptr;
}

const char *zamc_iter_doc(zamc_doc *doc, uint32_t direction) {
    if (!has_place(doc, nullptr) || !doc->tree) return nullptr;
    lyd_node *node = zam_lyd_find_path(doc->tree, doc->dir);
    if (!node) {
        zam_log_printf(ZAM_LOG_DEBUG, "The node [%s] does not exist.\n", doc->dir);
        return nullptr;
    }
    lyd_node *target = nullptr;
    if (_step(direction, doc->dir, node, &target) != step::moved_to) return nullptr;
    char *dir = zam_lyd_path(target);
    if (!dir) return nullptr;
    _set_dir(doc, dir);
    return zam_lyd_get_schema_name(target);
}
