// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// What the library asks data nodes: names, modules, values, text forms, and the schema node that an opaque node would
// have. An opaque node names its module as its source did, by name (JSON) or by namespace (XML), and may leave it to
// its parent.

#include <zamc/logger.h>
#include <zamc/mem.h>
#include <zamc/yang_module.h>
#include <zamc/yang_tree_data.h>
#include <zamc/yang_wrap.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "yang/yang_internal.h"

namespace zam::yang {
namespace {

using runtime::owned_text;

constexpr std::array state_datastores = {"operational", "temporary-operational"};
constexpr std::array state_datastore_identities = {"ietf-datastores:operational",
                                                   "ietf-datastores:temporary-operational"};

const lyd_node_opaq *_opaque(const lyd_node *node) {
    return reinterpret_cast<const lyd_node_opaq *>(node);
}

const lyd_node *_parent(const lyd_node *node) {
    return reinterpret_cast<const lyd_node *>(node->parent);
}

const char *_stated_module_name(const lyd_node_opaq *node) {
    if (node->format == LY_VALUE_JSON) return node->name.module_name;
    if (node->format == LY_VALUE_XML) {
        const lys_module *module = ly_ctx_get_module_implemented_ns(node->ctx, node->name.module_ns);
        return module ? module->name : nullptr;
    }
    zam_log_printf(ZAM_LOG_WRONG, "Get module name unsuccessful , unknown format.\n");
    return nullptr;
}

char *_dump(const lyd_node *node, LYD_FORMAT format, uint32_t options, uint32_t *length) {
    char *text = nullptr;
    // Printing may succeed without a text.
    if (zam_lyd_print_mem(&text, node, format, options) != LY_SUCCESS || !text) {
        zam_log_printf(ZAM_LOG_WRONG, "Dump tree '%s:%s' unsuccessful.\n", shown(zam_lyd_get_module_name(node)),
                       shown(zam_lyd_get_schema_name(node)));
        if (length) *length = 0;
        return nullptr;
    }
    if (length) *length = static_cast<uint32_t>(std::strlen(text));
    return text;
}

const lysc_node *_find_either(const ly_ctx *ctx, const lysc_node *start, const char *path) {
    const lysc_node *node = zam_lys_find_path(ctx, start, path, 0);
    return node ? node : zam_lys_find_path(ctx, start, path, 1);
}

// A step of the path to an opaque node: its name, with its module's name where the level above is of another module.
struct _step {
    const char *module;
    const char *name;
};

// False when the step needs the name of a module that is not known.
bool _make_step(const lyd_node *node, const lys_module *above, _step &step) {
    const lys_module *module = zam_lyd_node_module(node);
    bool same = module && module == above;
    step = {same ? nullptr : zam_lyd_get_module_name(node), _opaque(node)->name.name};
    return same || step.module;
}

size_t _step_size(const _step &step) {
    return (step.module ? std::strlen(step.module) + 1 : 0) + std::strlen(step.name);
}

// Writes `text` so that it ends at `at`; the new beginning.
char *_write_before(char *at, const char *text) {
    std::string_view piece{text};
    at -= piece.size();
    std::ranges::copy(piece, at);
    return at;
}

char *_write_step_before(char *at, const _step &step) {
    at = _write_before(at, step.name);
    return step.module ? _write_before(_write_before(at, ":"), step.module) : at;
}

const lys_module *_module_above(const lyd_node *node) {
    return node->parent ? zam_lyd_node_module(_parent(node)) : nullptr;
}

// The path from the nearest ancestor with a schema node, or from the root with a leading slash, down to the node. Two
// ways up: one measures, one writes from the end.
owned_text _path_of_opaque(const lyd_node *node) {
    size_t size = 0; // with a slash before, or the terminator behind, each step
    _step step{};
    for (const lyd_node *level = node; level && !level->schema; level = _parent(level)) {
        if (!_make_step(level, _module_above(level), step)) return nullptr;
        size += _step_size(step) + 1;
        if (!level->parent) size++;
    }
    if (size > UINT32_MAX) return nullptr;

    owned_text path{static_cast<char *>(zam_malloc(static_cast<uint32_t>(size)))};
    if (!path) return nullptr;
    char *at = path.get() + size - 1;
    *at = '\0';
    for (const lyd_node *level = node; level && !level->schema; level = _parent(level)) {
        if (level != node) *--at = '/';
        static_cast<void>(_make_step(level, _module_above(level), step));
        at = _write_step_before(at, step);
        if (!level->parent) *--at = '/';
    }
    return path;
}

const lysc_node *_find_below(const lyd_node *node, const lysc_node *parent) {
    _step step{};
    if (!_make_step(node, parent->module, step)) return nullptr;
    if (!step.module) return _find_either(parent->module->ctx, parent, step.name);

    char *text = nullptr;
    if (zam_asprintf(&text, "%s:%s", step.module, step.name) < 0) return nullptr;
    owned_text path{text};
    return _find_either(parent->module->ctx, parent, path.get());
}

const lysc_node *_find_by_ancestors(const lyd_node *node) {
    owned_text path = _path_of_opaque(node);
    if (!path) return nullptr;
    const lyd_node *start = node;
    while (start && !start->schema)
        start = _parent(start);
    return _find_either(_opaque(node)->ctx, start ? start->schema : nullptr, path.get());
}

} // namespace
} // namespace zam::yang

using namespace zam::yang;

int32_t zam_is_config_datastore(const char *name) {
    if (!name) return 0;
    const auto &states = std::strchr(name, ':') ? state_datastore_identities : state_datastores;
    return std::ranges::none_of(states, [name](const char *state) { return std::strcmp(state, name) == 0; });
}

uint32_t zam_calc_parse_opt(const char *datastore, int32_t parse_only, int32_t kind) {
    if (!datastore) {
        zam_log_printf(ZAM_LOG_WRONG, "Missing datastore when calculate options.\n");
        return 0;
    }
    uint32_t options = LYD_PARSE_STRICT;
    if ((kind == 0 || kind == 2) && zam_is_config_datastore(datastore)) options |= LYD_PARSE_NO_STATE;
    if (parse_only) options |= LYD_PARSE_ONLY;
    return options;
}

const char *zam_lyd_get_schema_name(const lyd_node *node) {
    if (!node) return nullptr;
    return node->schema ? node->schema->name : _opaque(node)->name.name;
}

const char *zam_lyd_get_module_name(const lyd_node *node) {
    while (node && !node->schema && !_opaque(node)->name.module_name)
        node = _parent(node);
    if (!node) return nullptr;
    return node->schema ? node->schema->module->name : _stated_module_name(_opaque(node));
}

char *zam_lyd_tree_dump(const lyd_node *node, LYD_FORMAT format, uint32_t *length) {
    return _dump(node, format, LYD_PRINT_WITHSIBLINGS | LYD_PRINT_KEEPEMPTYCONT, length);
}

char *zam_lyd_tree_dump_nosibling(const lyd_node *node, LYD_FORMAT format, uint32_t *length) {
    return _dump(node, format, LYD_PRINT_KEEPEMPTYCONT, length);
}

const char *zam_get_leaf_value(const lyd_node *node) {
    const char *value = zam_lyd_value_string(node);
    if (!value || zam_lys_realtype(node->schema) != LY_TYPE_IDENT) return value;
    return without_own_prefix(value, node->schema->module);
}

const char *zam_get_node_meta_value(const lyd_node *node, const char *name) {
    if (!node || !name) return nullptr;
    if (node->schema) {
        for (const lyd_meta *meta = node->meta; meta; meta = meta->next)
            if (std::strcmp(meta->name, name) == 0) return zam_lyd_meta_value(meta);
        return nullptr;
    }
    for (const lyd_attr *attribute = _opaque(node)->attr; attribute; attribute = attribute->next)
        if (std::strcmp(attribute->name.name, name) == 0) return attribute->value;
    return nullptr;
}

const lysc_node *zam_lyd_get_schema(const lyd_node *node, const lysc_node *parent) {
    if (!node) return nullptr;
    if (node->schema) return node->schema;
    return parent ? _find_below(node, parent) : _find_by_ancestors(node);
}

uint16_t zam_lyd_get_nodetype(const lyd_node *node) {
    return node ? zam_lys_nodetype(node->schema) : LYS_UNKNOWN;
}

char *zam_add_escape_character(const char *text) {
    if (!text) return nullptr;
    size_t size = 2 * std::strlen(text) + 1;
    if (size > UINT32_MAX) return nullptr;
    char *escaped = static_cast<char *>(zam_malloc(static_cast<uint32_t>(size)));
    if (!escaped) return nullptr;
    char *to = escaped;
    for (; *text; text++) {
        if (*text == '\\' || *text == '"') *to++ = '\\';
        *to++ = *text;
    }
    *to = '\0';
    return escaped;
}

void zam_logout_lyd_tree(const lyd_node *node) {
    if (zam_get_log_level() < ZAM_LOG_DEBUG) return;
    for (; node; node = node->next)
        zam_log_printf(ZAM_LOG_DEBUG, "[Data]Schema name %s.\n", shown(zam_lyd_get_schema_name(node)));
}
