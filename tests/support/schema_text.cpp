// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "support/schema_text.h"

#include <map>
#include <span>
#include <type_traits>

namespace zam::test {
namespace {

// One of libyang's arrays; its macro wants a pointer to what can be changed.
template <typename T>
std::span<T> elements(T *array) {
    auto *const writable = const_cast<std::remove_const_t<T> *>(array);
    return {array, static_cast<size_t>(LY_ARRAY_COUNT(writable))};
}

const std::map<LY_DATA_TYPE, std::string> plain_types{
    {LY_TYPE_BINARY, "binary"}, {LY_TYPE_UINT8, "uint8"},
    {LY_TYPE_UINT16, "uint16"}, {LY_TYPE_UINT32, "uint32"},
    {LY_TYPE_UINT64, "uint64"}, {LY_TYPE_STRING, "string"},
    {LY_TYPE_BOOL, "boolean"},  {LY_TYPE_DEC64, "decimal64"},
    {LY_TYPE_EMPTY, "empty"},   {LY_TYPE_INST, "instance-identifier"},
    {LY_TYPE_INT8, "int8"},     {LY_TYPE_INT16, "int16"},
    {LY_TYPE_INT32, "int32"},   {LY_TYPE_INT64, "int64"},
};

const std::map<uint16_t, std::string> kinds{
    {LYS_CONTAINER, "container"}, {LYS_CHOICE, "choice"},      {LYS_LEAF, "leaf"},
    {LYS_LEAFLIST, "leaf-list"},  {LYS_LIST, "list"},          {LYS_ANYXML, "anyxml"},
    {LYS_ANYDATA, "anydata"},     {LYS_CASE, "case"},          {LYS_RPC, "rpc"},
    {LYS_ACTION, "action"},       {LYS_NOTIF, "notification"},
};

std::string _range(const lysc_range *range, bool is_signed) {
    if (!range) return {};
    std::string text;
    for (const auto &part : elements(range->parts)) {
        const std::string low = is_signed ? std::to_string(part.min_64) : std::to_string(part.min_u64);
        const std::string high = is_signed ? std::to_string(part.max_64) : std::to_string(part.max_u64);
        text += (text.empty() ? "[" : "|") + (low == high ? low : low + ".." + high);
    }
    return text + "]";
}

std::string _items(const lysc_type_bitenum_item *items, bool bits) {
    std::string text;
    for (const auto &item : elements(items)) {
        if (!text.empty()) text += " ";
        text += item.name + (bits ? "@" + std::to_string(item.position) : "=" + std::to_string(item.value));
    }
    return "{" + text + "}";
}

std::string _string_type(const lysc_type_str *type) {
    std::string text = "string" + _range(type->length, false);
    for (const lysc_pattern *pattern : elements(type->patterns))
        text += "~" + std::string{pattern->expr};
    return text;
}

std::string _identityref(const lysc_type_identityref *type) {
    std::string text;
    for (const lysc_ident *base : elements(type->bases))
        text += (text.empty() ? "" : " ") + std::string{base->module->name} + ":" + base->name;
    return "identityref(" + text + ")";
}

std::string _union(const lysc_type_union *type) {
    std::string text;
    for (const lysc_type *member : elements(type->types))
        text += (text.empty() ? "" : " ") + type_text(member);
    return "union(" + text + ")";
}

const char *_canonical(const lysc_node *node, const lyd_value *value) {
    return lyd_value_get_canonical(node->module->ctx, value);
}

std::string _leaf_text(const lysc_node_leaf *leaf) {
    std::string text = " " + type_text(leaf->type);
    if (leaf->dflt) text += " = " + std::string{_canonical(&leaf->node, leaf->dflt)};
    if (leaf->units) text += " in " + std::string{leaf->units};
    return text;
}

std::string _leaf_list_text(const lysc_node_leaflist *list) {
    std::string text = " " + type_text(list->type);
    for (const lyd_value *value : elements(list->dflts))
        text += " = " + std::string{_canonical(&list->node, value)};
    if (list->min) text += " at least " + std::to_string(list->min);
    if (list->max != UINT32_MAX) text += " at most " + std::to_string(list->max);
    return text;
}

std::string _list_text(const lysc_node_list *list) {
    std::string text;
    for (const lysc_node *child = list->child; child && (child->flags & LYS_KEY); child = child->next)
        text += (text.empty() ? "" : " ") + std::string{child->name};
    text = text.empty() ? " keyless" : " by " + text;
    if (list->min) text += " at least " + std::to_string(list->min);
    if (list->max != UINT32_MAX) text += " at most " + std::to_string(list->max);
    return text;
}

std::string _conditions(const lysc_node *node) {
    std::string text;
    if (lysc_when *const *whens = lysc_node_when(node)) {
        for (const lysc_when *when : elements(whens))
            text += " when " + std::string{lyxp_get_expr(when->cond)};
    }
    if (const lysc_must *musts = lysc_node_musts(node)) {
        for (const lysc_must &must : elements(musts))
            text += " must " + std::string{lyxp_get_expr(must.cond)};
    }
    return text;
}

std::string _flags(const lysc_node *node) {
    std::string text;
    const bool can_be_mandatory = node->nodetype & (LYS_CHOICE | LYS_LEAF | LYS_ANYDATA);
    if (can_be_mandatory && (node->flags & LYS_MAND_TRUE) && !(node->flags & LYS_KEY)) text += " mandatory";
    if (node->nodetype == LYS_CONTAINER && (node->flags & LYS_PRESENCE)) text += " presence";
    const bool keyless = node->nodetype == LYS_LIST && (node->flags & LYS_KEYLESS); // these keep their order anyway
    if (lysc_is_userordered(node) && !keyless) text += " ordered-by user";
    const bool parent_is_state = node->parent && (node->parent->flags & LYS_CONFIG_R);
    if ((node->flags & LYS_CONFIG_R) && !parent_is_state) text += " config false";
    if (node->flags & LYS_STATUS_DEPRC) text += " deprecated";
    if (node->flags & LYS_STATUS_OBSLT) text += " obsolete";
    return text;
}

std::string _line(const lysc_node *node) {
    std::string text = kinds.at(node->nodetype) + " " + node->name;
    if (node->nodetype == LYS_LEAF) text += _leaf_text(reinterpret_cast<const lysc_node_leaf *>(node));
    if (node->nodetype == LYS_LEAFLIST) text += _leaf_list_text(reinterpret_cast<const lysc_node_leaflist *>(node));
    if (node->nodetype == LYS_LIST) text += _list_text(reinterpret_cast<const lysc_node_list *>(node));
    if (node->nodetype == LYS_CHOICE) {
        const lysc_node_case *standard = reinterpret_cast<const lysc_node_choice *>(node)->dflt;
        if (standard) text += " = " + std::string{standard->name};
    }
    return text + _flags(node) + _conditions(node);
}

std::string _all(const lysc_node *first, const std::string &indent);

std::string _operation(const lysc_node_action *operation, const std::string &indent) {
    std::string text;
    if (operation->input.child) text += indent + "input\n" + _all(operation->input.child, indent + "  ");
    if (operation->output.child) text += indent + "output\n" + _all(operation->output.child, indent + "  ");
    return text;
}

std::string _below(const lysc_node *node, const std::string &indent) {
    if (node->nodetype & (LYS_RPC | LYS_ACTION))
        return _operation(reinterpret_cast<const lysc_node_action *>(node), indent);
    std::string text = _all(lysc_node_child(node), indent);
    for (const lysc_node_action *action = lysc_node_actions(node); action; action = action->next)
        text += indent + _line(&action->node) + "\n" + _operation(action, indent + "  ");
    return text;
}

std::string _all(const lysc_node *first, const std::string &indent) {
    std::string text;
    for (const lysc_node *node = first; node; node = node->next)
        text += indent + _line(node) + "\n" + _below(node, indent + "  ");
    return text;
}

} // namespace

std::string type_text(const lysc_type *type) {
    switch (type->basetype) {
    case LY_TYPE_ENUM: return "enum" + _items(reinterpret_cast<const lysc_type_enum *>(type)->enums, false);
    case LY_TYPE_BITS: return "bits" + _items(reinterpret_cast<const lysc_type_bits *>(type)->bits, true);
    case LY_TYPE_STRING: return _string_type(reinterpret_cast<const lysc_type_str *>(type));
    case LY_TYPE_IDENT: return _identityref(reinterpret_cast<const lysc_type_identityref *>(type));
    case LY_TYPE_UNION: return _union(reinterpret_cast<const lysc_type_union *>(type));
    case LY_TYPE_LEAFREF: {
        const auto *leafref = reinterpret_cast<const lysc_type_leafref *>(type);
        const std::string text = "leafref(" + std::string{lyxp_get_expr(leafref->path)} + ")";
        return leafref->require_instance ? text : text + " of any value";
    }
    case LY_TYPE_INT8:
    case LY_TYPE_INT16:
    case LY_TYPE_INT32:
    case LY_TYPE_INT64:
        return plain_types.at(type->basetype) + _range(reinterpret_cast<const lysc_type_num *>(type)->range, true);
    case LY_TYPE_UINT8:
    case LY_TYPE_UINT16:
    case LY_TYPE_UINT32:
    case LY_TYPE_UINT64:
        return plain_types.at(type->basetype) + _range(reinterpret_cast<const lysc_type_num *>(type)->range, false);
    default: return plain_types.at(type->basetype);
    }
}

std::string schema_text(const lysc_node *node) {
    return _line(node) + "\n" + _below(node, "  ");
}

std::string schema_text(const lysc_ext_instance *yang_data) {
    return _all(lys_getnext_ext(nullptr, nullptr, yang_data, LYS_GETNEXT_WITHCHOICE), {});
}

std::string schema_text(const lys_module *module) {
    const lysc_module *const compiled = module->compiled;
    std::string text = _all(compiled->data, {});
    for (const lysc_node_action *rpc = compiled->rpcs; rpc; rpc = rpc->next)
        text += schema_text(&rpc->node);
    for (const lysc_node_notif *notification = compiled->notifs; notification; notification = notification->next)
        text += schema_text(&notification->node);
    return text;
}

} // namespace zam::test
