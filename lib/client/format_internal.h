// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Documents: the record, and what its files share.
#ifndef ZAMC_CLIENT_FORMAT_INTERNAL_H
#define ZAMC_CLIENT_FORMAT_INTERNAL_H

#include <cstdint>

#include <zamc/client.h>
#include <zamc/format.h>
#include <zamc/utils.h>

#include "yang/yang_internal.h"

struct zamc_doc {
    uint32_t format;
    lyd_node *tree; // the first top-level node, owned; null while empty
    char *dir;      // absolute data path, owned; null until set
};

namespace zam::client {

// Where a relative path leads: plain joining, without a meaning for "." and "..". Null when memory runs out.
char *_build_full_path(const char *dir, const char *path);

// The node at `path` as seen from the document's directory. 0, -3 when no path can be built, -5 when there is no node.
int32_t _get_current_node(const zamc_doc *doc, const char *path, lyd_node **out);

// Without a path a document's directory stands for the node; without either there is nothing to look at, which is
// logged.
bool has_place(const zamc_doc *doc, const char *path);

inline LYD_FORMAT lyd_format(uint32_t format) {
    return static_cast<LYD_FORMAT>(zam_ownfmt2lydfmt(format));
}

// The type of a node's schema, of an opaque node's too. 0 when there is none.
inline uint16_t schema_type(const lyd_node *node) {
    return zam_lys_nodetype(zam_lyd_get_schema(node, nullptr));
}

inline bool is_leaf(const lyd_node *node) {
    return (schema_type(node) & (LYS_LEAF | LYS_LEAFLIST)) != 0;
}

} // namespace zam::client

#endif
