// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// A text fragment at a path becomes a tree. The path alone gives a skeleton, whose addressed node is empty; printed, it
// shows where the fragment belongs, and the complete text is parsed. A leaf needs no text round: its value is taken out
// of the fragment and put at the path.

#include <cstring>
#include <string_view>

#include <zamc/logger.h>

#include "yang/yang_wrap_internal.h"

namespace zam::yang {
namespace {

using runtime::owned_text;
using runtime::system_text;
using std::string_view;

struct skeleton {
    uint16_t nodetype = 0;
    owned_text name;
    system_text text; // stays null for a leaf
};

// An empty leaf-list, or one that holds an identity, is opaque; this hint makes the JSON printer write its array.
void _hint_array(lyd_node *target, uint16_t nodetype) {
    if (nodetype != LYS_LEAFLIST || target->schema) return;
    reinterpret_cast<lyd_node_opaq *>(target)->hints |= LYD_NODEHINT_LEAFLIST;
}

bool _print_skeleton(const lyd_node *tree, LYD_FORMAT format, skeleton &out) {
    char *text = nullptr;
    const LY_ERR result = zam_lyd_print_mem(&text, tree, format, LYD_PRINT_KEEPEMPTYCONT);
    out.text.reset(text);
    if (result == LY_SUCCESS && text) return true;
    zam_log_printf(ZAM_LOG_WRONG, "Generate string from node(%s) unsuccessful.\n", zam_lyd_get_schema_name(tree));
    return false;
}

bool _make_skeleton(const ly_ctx *ctx, const zam_mem_doc *doc, skeleton &out) {
    const owned_tree tree{zam_lyd_new_path(nullptr, ctx, doc->path, nullptr)};
    // A key value in another than its canonical form is not found again.
    lyd_node *target = zam_lyd_find_path(tree.get(), doc->path);
    if (!target) {
        zam_log_printf(ZAM_LOG_WRONG, "Parse path(%s) to node unsuccessful.\n", doc->path);
        return false;
    }
    out.nodetype = zam_lys_nodetype(zam_lyd_get_schema(target, nullptr));
    if (out.nodetype == LYS_LEAF) return true;
    out.name.reset(zam_strdup(zam_lyd_get_schema_name(target)));
    if (!out.name) return false;
    _hint_array(target, out.nodetype);
    return _print_skeleton(tree.get(), doc->format, out);
}

// The value between the tags of an element. False when there are none; an empty element has no value and leaves null.
bool _xml_leaf_value(string_view fragment, string_view &value) {
    if (fragment.find("></") != string_view::npos || fragment.find("/>") != string_view::npos) return true;
    const size_t begin = fragment.find('>');
    const size_t end = fragment.find("</");
    if (begin == string_view::npos || end == string_view::npos || end <= begin) return false;
    value = text_from(text_before(fragment, end), begin + 1);
    return true;
}

// The value of the only member of an object, as it stands between its quotes or after the colon.
bool _json_leaf_value(string_view fragment, string_view &value) {
    const size_t name_end = fragment.find("\":");
    if (name_end == string_view::npos) return false;
    string_view rest = text_from(fragment, name_end + 2);
    const bool quoted = starts_with(rest, "\"");
    if (quoted) rest.remove_prefix(1);
    const size_t tail = quoted ? 2 : 1; // the closing quote and brace, or the brace
    if (rest.size() < tail) return false;
    value = text_before(rest, rest.size() - tail);
    return true;
}

lyd_node *_leaf_tree(const ly_ctx *ctx, const zam_mem_doc *doc, int32_t bare) {
    string_view value;
    if (doc->format == LYD_JSON && bare) {
        value = doc->data;
    } else if (!(doc->format == LYD_XML ? _xml_leaf_value(doc->data, value) : _json_leaf_value(doc->data, value))) {
        return nullptr;
    }
    if (!value.data()) return zam_lyd_new_path(nullptr, ctx, doc->path, nullptr);
    const owned_text text{zam_strndup(value.data(), static_cast<uint32_t>(value.size()))};
    return text ? zam_lyd_new_path(nullptr, ctx, doc->path, text.get()) : nullptr;
}

char *_complete_text(const skeleton &skeleton, const zam_mem_doc *doc, int32_t bare) {
    switch (skeleton.nodetype) {
    case LYS_CONTAINER: return _build_container(skeleton.text.get(), doc, bare);
    case LYS_LIST: return _build_list(skeleton.text.get(), doc, skeleton.name.get(), bare);
    case LYS_LEAFLIST: return _build_leaflist(skeleton.text.get(), doc, bare);
    default: zam_log_printf(ZAM_LOG_WRONG, "Unknown node type : %d.\n", skeleton.nodetype); return nullptr;
    }
}

} // namespace
} // namespace zam::yang

using namespace zam::yang;

lyd_node *zam_parse_mem(const ly_ctx *ctx, const zam_mem_doc *doc, uint32_t options, int32_t bare,
                        uint8_t is_operation) {
    if (!ctx || !doc || !doc->path || (doc->format != LYD_XML && doc->format != LYD_JSON)) return nullptr;
    if (strcmp(doc->path, "/") == 0) return _lyd_parse(ctx, doc->data, doc->format, options, is_operation);
    if (!doc->data || *doc->data == '\0') return zam_lyd_new_path(nullptr, ctx, doc->path, nullptr);

    skeleton skeleton;
    if (!_make_skeleton(ctx, doc, skeleton)) return nullptr;
    if (skeleton.nodetype == LYS_LEAF) {
        lyd_node *tree = _leaf_tree(ctx, doc, bare);
        if (!tree) zam_log_printf(ZAM_LOG_WRONG, "Build complete message unsuccessful, path(%s).\n", doc->path);
        return tree;
    }
    const owned_text text{_complete_text(skeleton, doc, bare)};
    if (!text) {
        zam_log_printf(ZAM_LOG_WRONG, "Build complete message unsuccessful, path(%s).\n", doc->path);
        return nullptr;
    }
    return _lyd_parse(ctx, text.get(), doc->format, options, is_operation);
}
