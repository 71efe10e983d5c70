// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// JSON text that leaves byte for byte. libyang keeps no text in an anydata: it parses what it is given, and what its
// schemas do not know comes out changed (escapes lost, empty objects as strings) or is refused. Its JSON printer does,
// however, print the value of an opaque leaf as it stands when the node's hints call it a number:
//  - {"name":rest} becomes an anydata that holds the opaque leaf `name` with the value `rest`, members that follow
//    included, so that readers find an anydata where the schema has one;
//  - every other text (arrays, scalars, objects with blanks where the printer writes none, first names with escapes)
//    becomes an opaque leaf in the anydata's own place, with the whole text as value.
// Both print exactly the text. As nobody parses it again before the peer does, it is checked here to be one JSON value:
// anything less would break the frame around it.

#include <zamc/logger.h>
#include <zamc/yang_module.h>
#include <zamc/yang_tree_data.h>

#include "yang/yang_internal.h"

namespace zam::yang {
namespace {

using runtime::owned_text;

void _mark_as_number(lyd_node *leaf) {
    reinterpret_cast<lyd_node_opaq *>(leaf)->hints = LYD_VALHINT_DECNUM;
}

// The end of the first name of an object that the printer writes back exactly, or 0.
size_t _plain_first_name(std::string_view text) {
    if (!starts_with(text, "{\"") || !text.ends_with('}')) return 0;
    size_t quote = text.find_first_of("\"\\", 2);
    bool plain = quote > 2 && quote + 1 < text.size() && text[quote] == '"' && text[quote + 1] == ':';
    return plain ? quote : 0;
}

// An opaque leaf without a parent. Its name goes out as written, whatever prefix it carries, so it keeps no module.
lyd_node *_new_member(const lys_module *module, std::string_view text, size_t name_end) {
    owned_text copy{zam_strndup(text.data(), static_cast<uint32_t>(text.size()))};
    if (!copy) return nullptr;
    char *name = copy.get() + 2;
    char *rest = copy.get() + name_end + 2;
    copy.get()[name_end] = '\0';
    copy.get()[text.size() - 1] = '\0';
    lyd_node *leaf = zam_lyd_new_opaq(nullptr, module->ctx, name, rest, module->name);
    if (!leaf) return nullptr;
    auto *opaque = reinterpret_cast<lyd_node_opaq *>(leaf);
    lydict_remove(module->ctx, opaque->name.module_name);
    opaque->name.module_name = nullptr;
    _mark_as_number(leaf);
    return leaf;
}

lyd_node *_new_any_with_tree(lyd_node *parent, const lys_module *module, const char *name, owned_tree tree,
                             bool output) {
    lyd_node *any = output ? zam_lyd_new_output_any(parent, module, name, tree.get(), LYD_ANYDATA_DATATREE)
                           : zam_lyd_new_any(parent, module, name, tree.get(), LYD_ANYDATA_DATATREE);
    if (any) static_cast<void>(tree.release()); // the anydata took it over
    return any;
}

lyd_node *_new_whole_leaf(lyd_node *parent, const lys_module *module, const char *name, const char *text) {
    lyd_node *leaf = zam_lyd_new_opaq(parent, module->ctx, name, text, module->name);
    if (leaf) _mark_as_number(leaf);
    return leaf;
}

bool _is_one_value(const char *name, std::string_view text) {
    json_scan scan = scan_json(text);
    if (scan.well_formed && text.size() < UINT32_MAX) return true;
    zam_log_printf(ZAM_LOG_WRONG, "The JSON content of '%s' is not one well-formed value, offset : %zu.\n", name,
                   scan.offset);
    return false;
}

} // namespace

lyd_node *new_raw_json(lyd_node *parent, const lys_module *module, const char *name, const char *text, bool output) {
    if (!parent || !parent->schema || !name || !text) return nullptr;
    if (!module) module = parent->schema->module;
    if (!lys_find_child(parent->schema, module, name, 0, LYS_ANYDATA, output ? LYS_GETNEXT_OUTPUT : 0)) {
        zam_log_printf(ZAM_LOG_WRONG, "No anydata '%s' to attach JSON content to.\n", name);
        return nullptr;
    }
    std::string_view content{text};
    if (!_is_one_value(name, content)) return nullptr;
    if (content == "{}") return _new_any_with_tree(parent, module, name, nullptr, output);

    size_t name_end = _plain_first_name(content);
    if (name_end == 0) return _new_whole_leaf(parent, module, name, text);
    owned_tree member{_new_member(module, content, name_end)};
    return member ? _new_any_with_tree(parent, module, name, std::move(member), output) : nullptr;
}

} // namespace zam::yang
