// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// From a path to its schema node. The walk keeps the schema node reached, the module that names without prefix belong
// to, and which children it sees: choices and cases are steps of their own, and a step named "output" turns the walk to
// an operation's output for good.

#include <zamc/path.h>
#include <zamc/yang_module.h>
#include <zamc/yang_wrap.h>

#include <cstring>
#include <utility>

#include "yang/path_internal.h"
#include "yang/yang_internal.h"

namespace zam::yang {
namespace {

using runtime::system_text;

struct _walk {
    const char *at; // the text still to be read
    const lysc_node *reached;
    const lys_module *module;
    uint32_t options;
};

owned_path_node _next_segment(_walk &walk) {
    uint32_t length = 0;
    owned_path_node segment{zam_get_path_node(walk.at, &length)};
    walk.at += length;
    return segment;
}

// The steps into an operation stand for no schema child; "output" is remembered.
bool _is_operation_part(_walk &walk, const zam_path_node *segment) {
    bool output = std::strcmp(segment->name, "output") == 0;
    if (output) walk.options |= LYS_GETNEXT_OUTPUT;
    return output || std::strcmp(segment->name, "input") == 0;
}

const lysc_node *_find_step(const _walk &walk, const zam_path_node *segment) {
    const char *module = segment->prefix ? segment->prefix : walk.module->name;
    const lysc_node *node = nullptr;
    while ((node = zam_lys_getnext(node, walk.reached, walk.module, walk.options)))
        if (std::strcmp(node->name, segment->name) == 0 && std::strcmp(node->module->name, module) == 0) return node;
    return nullptr;
}

// Follows the path from its first segment on; what is behind the last step taken decides how the walk ends.
const lysc_node *_follow(_walk &walk, owned_path_node segment) {
    for (; segment; segment = _next_segment(walk)) {
        if (*walk.at != '/' && *walk.at != '\0') return walk.reached;
        if (!_is_operation_part(walk, segment.get())) {
            walk.reached = _find_step(walk, segment.get());
            if (!walk.reached) return nullptr;
            walk.module = walk.reached->module;
            if (walk.at[0] == '\0' || walk.at[1] == '\0') return walk.reached;
        }
        if (*walk.at == '/') walk.at++;
    }
    return nullptr;
}

} // namespace
} // namespace zam::yang

using namespace zam::yang;

const lysc_node *zam_find_schema_by_path(const ly_ctx *ctx, const lysc_node *start, const char *path) {
    if (!path || !*path || std::strcmp(path, "/") == 0 || (!ctx && !start)) return nullptr;
    _walk walk{path, start, start ? start->module : nullptr, LYS_GETNEXT_WITHCHOICE | LYS_GETNEXT_WITHCASE};
    if (!start) walk.at++;
    owned_path_node segment = _next_segment(walk);
    if (!segment) return nullptr;
    if (!start) {
        walk.module = segment->prefix ? zam_ly_ctx_get_module(ctx, segment->prefix) : nullptr;
        if (!walk.module) return nullptr;
    }
    return _follow(walk, std::move(segment));
}

char *zam_format_data2schema(const ly_ctx *ctx, const char *path) {
    if (!path) return nullptr;
    const lysc_node *node = zam_lys_find_path(ctx, nullptr, path, 0);
    if (!node) return nullptr;
    system_text text{zam_lys_data_path(node, LYSC_PATH_LOG)};
    return text ? zam_strdup(text.get()) : nullptr;
}
