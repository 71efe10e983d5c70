// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// Making data nodes. Three kinds of nodes stand side by side in the trees of this library:
//  - libyang's own nodes, for everything that libyang agrees to create;
//  - opaque nodes of libyang (no schema node), for leaves without a value, for identities, which are not validated
//    here, and for outgoing JSON;
//  - lightweight nodes, records with the layout of libyang's inner node that come from the memory hooks. They stand
//    for inner nodes that libyang refuses to make alone, such as a list entry whose keys are not known yet.
//
// Invariant: bit 0 of `priv` is set in a lightweight node and in no other. Everything in a fresh lightweight node but
// schema, parent, prev and that bit is zero; leaves and leaf-lists are never lightweight.

#include <zamc/logger.h>
#include <zamc/yang_module.h>
#include <zamc/yang_tree_data.h>
#include <zamc/yang_wrap.h>

#include <cstring>

#include "yang/yang_internal.h"

namespace zam::yang {
namespace {

using runtime::mem_new;
using runtime::owned_block;

// libyang finds the module of a null argument through the parent's schema node and reads through a null pointer when
// the parent is opaque.
bool _has_module(const lyd_node *parent, const lys_module *module) {
    return module || (parent && parent->schema);
}

// libyang turns text into a tree at once and refuses the empty one; no text makes an empty node.
const void *_any_value(const void *value, LYD_ANYDATA_VALUETYPE type) {
    if (type == LYD_ANYDATA_DATATREE || !value) return value;
    return *static_cast<const char *>(value) ? value : nullptr;
}

LY_ERR _new_any(lyd_node *parent, const lys_module *module, const char *name, const void *value,
                LYD_ANYDATA_VALUETYPE type, bool output, lyd_node **node) {
    if (!_has_module(parent, module)) return LY_EINVAL;
    bool take = type == LYD_ANYDATA_DATATREE;
    return lyd_new_any(parent, module, name, _any_value(value, type), take, type, output, node);
}

lyd_node *_new_lightweight(const lysc_node *schema, lyd_node *parent) {
    auto *record = mem_new<lyd_node_inner>();
    if (!record) return nullptr;
    lyd_node *node = &record->node;
    node->schema = schema;
    node->parent = reinterpret_cast<lyd_node_inner *>(parent);
    node->prev = node;
    node->priv = reinterpret_cast<void *>(lightweight_mark);
    zam_tree_add_child(parent, node);
    return node;
}

lyd_node *_new_opaque_leaf(const lysc_node *schema, lyd_node *parent, const char *value) {
    return zam_lyd_new_opaq(parent, schema->module->ctx, schema->name, value, schema->module->name);
}

// A leaf may be known to the input or to the output of an operation only.
lyd_node *_new_either_leaf(lyd_node *parent, const lysc_node *schema, const char *value) {
    lyd_node *leaf = zam_lyd_new_leaf(parent, schema->module, schema->name, value);
    return leaf ? leaf : zam_lyd_new_output_leaf(parent, schema->module, schema->name, value);
}

// libyang resolves a nested leaf below a parent only. The throw-away one holds a single child and thus never gets a
// hash table.
lyd_node *_new_detached_leaf(const lysc_node *schema, const lysc_node *data_parent, const char *value) {
    owned_block<lyd_node_inner> parent{mem_new<lyd_node_inner>()};
    if (!parent) return nullptr;
    parent->node.schema = data_parent;
    lyd_node *leaf = _new_either_leaf(&parent->node, schema, value);
    if (leaf) leaf->parent = nullptr;
    return leaf;
}

// A leaf or leaf-list node, always made by libyang.
lyd_node *_lyd_node_lightweight_new(const lysc_node *schema, lyd_node *parent, const char *value, uint32_t length) {
    LY_DATA_TYPE type = zam_lys_realtype(schema);
    if (type == LY_TYPE_EMPTY) {
        value = nullptr;
    } else if (!value || length == 0) {
        return _new_opaque_leaf(schema, parent, value);
    } else if (type == LY_TYPE_IDENT) {
        return _new_opaque_leaf(schema, parent, without_own_prefix(value, schema->module));
    }
    // The children of an operation hang below its input or output, which no data node stands for.
    const lysc_node *data_parent = lysc_data_parent(schema);
    if (!parent && data_parent) return _new_detached_leaf(schema, data_parent, value);
    return _new_either_leaf(parent, schema, value);
}

} // namespace

const char *without_own_prefix(const char *value, const lys_module *module) {
    size_t length = std::strlen(module->name);
    for (const char *at = value; (at = std::strstr(at, module->name)); at++)
        if (at[length] == ':') return std::strchr(value, ':') + 1;
    return value;
}

} // namespace zam::yang

using namespace zam::yang;

lyd_node *zam_lyd_new_inner(lyd_node *parent, const lys_module *module, const char *name) {
    lyd_node *node = nullptr;
    if (!_has_module(parent, module) || lyd_new_inner(parent, module, name, 0, &node) != LY_SUCCESS) {
        zam_log_printf(ZAM_LOG_WRONG, "[libyang]New input inner(%s) unsuccessful.\n", shown(name));
        return nullptr;
    }
    return node;
}

lyd_node *zam_lyd_new_list(lyd_node *parent, const lys_module *module, const char *name, const char *keys) {
    lyd_node *node = nullptr;
    if (!_has_module(parent, module) || lyd_new_list2(parent, module, name, keys, 0, &node) != LY_SUCCESS) {
        zam_log_printf(ZAM_LOG_WRONG, "[libyang]New input list(%s) unsuccessful, keys : %s.\n", shown(name),
                       shown(keys));
        return nullptr;
    }
    return node;
}

lyd_node *zam_lyd_new_leaf(lyd_node *parent, const lys_module *module, const char *name, const char *value) {
    lyd_node *node = nullptr;
    if (!_has_module(parent, module) || lyd_new_term(parent, module, name, value, 0, &node) != LY_SUCCESS) {
        zam_log_printf(ZAM_LOG_WRONG, "[libyang]New input leaf(%s) unsuccessful, value : %s\n", shown(name),
                       shown(value));
        return nullptr;
    }
    return node;
}

lyd_node *zam_lyd_new_any(lyd_node *parent, const lys_module *module, const char *name, const void *value,
                          LYD_ANYDATA_VALUETYPE type) {
    lyd_node *node = nullptr;
    LY_ERR ret = _new_any(parent, module, name, value, type, false, &node);
    if (ret != LY_SUCCESS) {
        zam_log_printf(ZAM_LOG_WRONG, "[libyang]New input any(%s) unsuccessful, ret : %u.\n", shown(name), ret);
        return nullptr;
    }
    return node;
}

lyd_node *zam_lyd_new_output_inner(lyd_node *parent, const lys_module *module, const char *name) {
    lyd_node *node = nullptr;
    if (!_has_module(parent, module) || lyd_new_inner(parent, module, name, 1, &node) != LY_SUCCESS) {
        zam_log_printf(ZAM_LOG_WRONG, "[libyang]New output inner(%s) unsuccessful.\n", shown(name));
        return nullptr;
    }
    return node;
}

lyd_node *zam_lyd_new_output_list(lyd_node *parent, const lys_module *module, const char *name, const char *keys) {
    lyd_node *node = nullptr;
    if (!_has_module(parent, module) || lyd_new_list2(parent, module, name, keys, 1, &node) != LY_SUCCESS) {
        zam_log_printf(ZAM_LOG_WRONG, "[libyang]New output list(%s) unsuccessful, keys : %s.\n", shown(name),
                       shown(keys));
        return nullptr;
    }
    return node;
}

lyd_node *zam_lyd_new_output_leaf(lyd_node *parent, const lys_module *module, const char *name, const char *value) {
    lyd_node *node = nullptr;
    if (!_has_module(parent, module) || lyd_new_term(parent, module, name, value, 1, &node) != LY_SUCCESS) {
        zam_log_printf(ZAM_LOG_WRONG, "[libyang]New output leaf(%s) unsuccessful, value : %s.\n", shown(name),
                       shown(value));
        return nullptr;
    }
    return node;
}

lyd_node *zam_lyd_new_output_any(lyd_node *parent, const lys_module *module, const char *name, const void *value,
                                 LYD_ANYDATA_VALUETYPE type) {
    lyd_node *node = nullptr;
    LY_ERR ret = _new_any(parent, module, name, value, type, true, &node);
    if (ret != LY_SUCCESS) {
        zam_log_printf(ZAM_LOG_WRONG, "[libyang]New output any(%s) unsuccessful, ret : %u.\n", shown(name), ret);
        return nullptr;
    }
    return node;
}

LY_ERR zam_lyd_change_leaf(lyd_node *node, const char *value) {
    LY_ERR ret = lyd_change_term(node, value);
    if (ret != LY_SUCCESS)
        zam_log_printf(ZAM_LOG_WRONG, "[libyang]Change leaf value unsuccessful, value : %s, ret : %u.\n", shown(value),
                       ret);
    return ret;
}

lyd_node *zam_lyd_dup(const lyd_node *node, uint32_t options) {
    lyd_node *copy = nullptr;
    LY_ERR ret = lyd_dup_single(node, nullptr, options, &copy);
    if (ret != LY_SUCCESS) {
        zam_log_printf(ZAM_LOG_WRONG, "[libyang]Dup unsuccessful, ret : %u.\n", ret);
        return nullptr;
    }
    return copy;
}

lyd_node *zam_lyd_new_yangdata(const lys_module *module, const char *yang_data_name, const char *name) {
    if (!module || !module->compiled) return nullptr;
    for (const lysc_ext_instance &instance : sized_array(module->compiled->exts)) {
        if (yang_data_name && std::strcmp(shown(instance.argument), yang_data_name) != 0) continue;

        lyd_node *node = nullptr;
        LY_ERR ret = lyd_new_ext_inner(&instance, name, &node);
        if (ret == LY_SUCCESS) return node;
        if (yang_data_name) {
            zam_log_printf(ZAM_LOG_WRONG, "[libyang]New yangdata(%s) unsuccessful, ret : %u.\n", shown(name), ret);
            return nullptr;
        }
        zam_log_printf(ZAM_LOG_WRONG, "[libyang]New yangdata(%s)(%s) unsuccessful, ret : %u.\n",
                       shown(instance.argument), shown(name), ret);
    }
    return nullptr;
}

lyd_node *zam_lyd_node_lightweight_new(const lysc_node *schema, lyd_node *parent, const char *value,
                                       uint32_t value_length) {
    if (!schema || (parent && !child_slot(parent))) return nullptr;
    if (schema->nodetype & (LYS_LEAF | LYS_LEAFLIST))
        return _lyd_node_lightweight_new(schema, parent, value, value_length);
    return _new_lightweight(schema, parent);
}

lyd_node *zam_lyd_node_lightweight_new_list(lyd_node *parent, const char *name) {
    if (!parent || !parent->schema || !name) return nullptr;
    for (const lysc_node *child = zam_lys_child(parent->schema); child; child = child->next)
        if (child->nodetype == LYS_LIST && std::strcmp(child->name, name) == 0)
            return zam_lyd_node_lightweight_new(child, parent, nullptr, 0);
    return nullptr;
}
