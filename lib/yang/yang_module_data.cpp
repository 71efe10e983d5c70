// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The libyang access layer: searching, freeing and printing data trees, opaque nodes and metadata.

#include <zamc/yang_module.h>

#include <cstdlib>

#include <zamc/logger.h>
#include <zamc/mem.h>

#include "runtime/mem_internal.h"
#include "yang/yang_internal.h"
#include "yang/yang_module_internal.h"

using namespace zam::yang;

namespace {

using zam::runtime::owned_text;
using zam::runtime::system_text;

const lyd_node_opaq *_opaque(const lyd_node *node) {
    return reinterpret_cast<const lyd_node_opaq *>(node);
}

bool _is_opaque(const lyd_node *node) {
    return node != nullptr && node->schema == nullptr;
}

LY_ERR _print_mem(char **text, const lyd_node *tree, LYD_FORMAT format, uint32_t options) {
    if (format != LYD_JSON) return lyd_print_mem(text, tree, format, options);
    const json_escapes escapes{tree, (options & LYD_PRINT_WITHSIBLINGS) != 0};
    return escapes.complete ? lyd_print_mem(text, tree, format, options) : LY_EMEM;
}

LY_ERR _print_file(FILE *stream, const lyd_node *tree, LYD_FORMAT format, uint32_t options) {
    if (format != LYD_JSON) return lyd_print_file(stream, tree, format, options);
    const json_escapes escapes{tree, (options & LYD_PRINT_WITHSIBLINGS) != 0};
    return escapes.complete ? lyd_print_file(stream, tree, format, options) : LY_EMEM;
}

LY_ERR _new_attr(lyd_node *node, const char *module_name, const char *name, const char *value) {
    if (name == nullptr) return LY_EINVAL;
    if (module_name == nullptr) return lyd_new_attr(node, nullptr, name, value, nullptr);
    // An attribute without a prefix of its own would lose its namespace in XML.
    char *text = nullptr;
    if (zam_asprintf(&text, "%s:%s", module_name, name) < 0) return LY_EMEM;
    const owned_text qualified{text};
    return lyd_new_attr(node, module_name, qualified.get(), value, nullptr);
}

const lys_module *_nearest_module(const lyd_node *node) {
    for (; node != nullptr; node = &node->parent->node) {
        if (node->schema != nullptr) return node->schema->module;
        if (node->parent == nullptr) return nullptr;
    }
    return nullptr;
}

} // namespace

struct ly_set *zam_lyd_find_instance(const struct lyd_node *tree, const struct lysc_node *schema) {
    const system_text path{schema != nullptr ? lysc_path(schema, LYSC_PATH_DATA, nullptr, 0) : nullptr};
    if (!path) {
        zam_log_printf(ZAM_LOG_WRONG, "[libyang]Get path by schema node for set unsuccessful.\n");
        return nullptr;
    }
    ly_set *set = nullptr;
    const LY_ERR result = tree != nullptr ? lyd_find_xpath(tree, path.get(), &set) : LY_EINVAL;
    if (result == LY_SUCCESS) return set;
    zam_log_printf(ZAM_LOG_WRONG, "[libyang]Find set unsuccessful ret : %u.\n", result);
    return nullptr;
}

struct lyd_node *zam_lyd_first_sibling(const struct lyd_node *node) {
    return node != nullptr ? lyd_first_sibling(node) : nullptr;
}

void zam_lyd_unlink(struct lyd_node *node) {
    if (node != nullptr) lyd_unlink_tree(node);
}

void zam_lyd_free(struct lyd_node *node) {
    lyd_free_tree(node);
}

void zam_lyd_free_meta_siblings(struct lyd_meta *meta) {
    lyd_free_meta_siblings(meta);
}

LY_ERR zam_lyd_print_mem(char **text, const struct lyd_node *tree, LYD_FORMAT format, uint32_t options) {
    if (text == nullptr) return LY_EINVAL;
    *text = nullptr;
    // libyang would print the frame of a document for no tree at all.
    const LY_ERR result = tree != nullptr ? _print_mem(text, tree, format, options | LYD_PRINT_SHRINK) : LY_SUCCESS;
    if (result == LY_SUCCESS && *text != nullptr) return LY_SUCCESS;
    std::free(*text); // the part that was printed before the failure
    *text = nullptr;
    zam_log_printf(ZAM_LOG_WRONG, "[libyang]Print mem unsuccessful, ret : %u\n", result);
    return result;
}

LY_ERR zam_lyd_print_file(FILE *stream, const struct lyd_node *tree, LYD_FORMAT format, uint32_t options) {
    const LY_ERR result = _print_file(stream, tree, format, options);
    if (result != LY_SUCCESS) zam_log_printf(ZAM_LOG_WRONG, "[libyang]Print file unsuccessful, ret : %u\n", result);
    return result;
}

struct lyd_node *zam_lyd_new_opaq(struct lyd_node *parent, const struct ly_ctx *ctx, const char *name,
                                  const char *value, const char *module_name) {
    lyd_node *node = nullptr;
    // Without a module libyang asks the parent for its own, and an opaque parent has none. Under a node that holds no
    // children it would write the child over the parent's value.
    const bool refused = (module_name == nullptr && _is_opaque(parent)) || (parent && !child_slot(parent));
    const LY_ERR result = refused ? LY_EINVAL : lyd_new_opaq(parent, ctx, name, value, nullptr, module_name, &node);
    if (result == LY_SUCCESS) return node;
    zam_log_printf(ZAM_LOG_WRONG, "[libyang]New opaq unsuccessful, name : %s, value : %s, module : %s, ret : %u\n",
                   _shown(name), _shown(value), _shown(module_name), result);
    return nullptr;
}

LY_ERR zam_lyd_new_meta(struct lyd_node *node, const char *attr_module, const char *attr_name, const char *name,
                        const char *value) {
    if (node == nullptr) return LY_EINVAL;
    const bool opaque = node->schema == nullptr;
    zam_log_printf(ZAM_LOG_DEBUG,
                   "[libyang]New meta, node_name: %s, attr_module: %s, attr_name: %s, name: %s, val_str: %s\n",
                   opaque ? _opaque(node)->name.name : node->schema->name, _shown(attr_module), _shown(attr_name),
                   _shown(name), _shown(value));
    if (opaque) {
        const LY_ERR result = _new_attr(node, attr_module, attr_name, value);
        if (result != LY_SUCCESS) {
            zam_log_printf(ZAM_LOG_WRONG, "[libyang]New attr unsuccessful, name: %s, value: %s, ret : %u\n",
                           _shown(attr_name), _shown(value), result);
        }
        return result;
    }
    const LY_ERR result = lyd_new_meta(nullptr, node, nullptr, name, value, 0, nullptr);
    if (result != LY_SUCCESS) {
        zam_log_printf(ZAM_LOG_WRONG, "[libyang]New meta unsuccessful, name: %s, value: %s, ret : %u\n", _shown(name),
                       _shown(value), result);
    }
    return result;
}

const struct lys_module *zam_lyd_node_module(const struct lyd_node *node) {
    if (node == nullptr) return nullptr;
    if (node->schema != nullptr) return node->schema->module;
    const lyd_node_opaq *const opaque = _opaque(node);
    if (opaque->name.module_name == nullptr) return _nearest_module(node);
    switch (opaque->format) {
    case LY_VALUE_XML: return ly_ctx_get_module_implemented_ns(opaque->ctx, opaque->name.module_ns);
    case LY_VALUE_JSON: return ly_ctx_get_module_implemented(opaque->ctx, opaque->name.module_name);
    default:
        zam_log_printf(ZAM_LOG_WRONG, "Get module name unsuccessful , unknown format(%u).\n", opaque->format);
        return nullptr;
    }
}
