// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// What a JSON text holds in its anydata and anyxml nodes. libyang 2.1.30 leaks the nodes that it has built of such
// content when it refuses a later one of them, and any peer may send that without end. The same nodes as a document of
// their own are freed when one is refused; so each content is read as a document first. Of a single node nothing is
// built yet when it is refused, so that the content which is nearly all there is, one node of the data tree, is not
// read twice. Two kinds of metadata leak even alone, and are told by their names.

#include <algorithm>
#include <array>

#include "yang/yang_module_scan_internal.h"

namespace zam::yang {
namespace {

using std::string_view;

// Anydata inside one another: each is read once for each that it is in, and nobody needs more than two.
constexpr uint32_t any_depth_max = 8;

// At the top of a document names need a prefix, and this is the one of no module.
constexpr string_view no_module = "-:";

char *_append(char *out, string_view text) {
    return std::copy(text.begin(), text.end(), out);
}

// The content as a document; null without memory.
runtime::owned_text _as_document(string_view content) {
    size_t bare = 0;
    for (object_members members{content}; members.next();)
        bare += members.name().find(':') == string_view::npos ? 1 : 0;
    runtime::owned_text text{static_cast<char *>(runtime::mem_zeroed(content.size() + bare * no_module.size() + 1))};
    if (!text) return nullptr;
    char *out = text.get();
    for (object_members members{content}; members.next();) {
        if (members.name().find(':') != string_view::npos) continue;
        const auto before =
            static_cast<size_t>(members.name().data() - content.data()) + (starts_with(members.name(), "@") ? 1 : 0);
        out = _append(_append(out, text_before(content, before)), no_module);
        content = text_from(content, before);
    }
    _append(out, content);
    return text;
}

LY_ERR _parse(const text_use &use, const char *text, lyd_node **tree) {
    constexpr uint32_t options = LYD_PARSE_ONLY | LYD_PARSE_OPAQ;
    if (!use.ext) return lyd_parse_data_mem(use.ctx, text, LYD_JSON, options, 0, tree);
    ly_in *in = nullptr;
    if (ly_in_new_memory(text, &in) != LY_SUCCESS) return LY_EMEM;
    const runtime::owned<ly_in, zam_ly_in_free> handle{in};
    return lyd_parse_ext_data(use.ext, nullptr, in, LYD_JSON, options | LYD_PARSE_ORDERED, 0, tree);
}

// The error stays with the context, for the caller who reports it, and is not logged: the caller will.
bool _is_readable(const text_use &use, const char *text) {
    ly_err_clean(const_cast<ly_ctx *>(use.ctx), nullptr);
    uint32_t stored = LY_LOSTORE_LAST;
    ly_temp_log_options(&stored);
    lyd_node *tree = nullptr;
    const LY_ERR result = _parse(use, text, &tree);
    ly_temp_log_options(nullptr);
    lyd_free_all(tree);
    return result == LY_SUCCESS;
}

// What the names of members mean where they stand.
struct place {
    bool has_schema;       // else they are nobody's
    const lysc_node *node; // they are children of this one; null for nodes at the top of a document
};

// An open object or array. Without initial values: there is an array of them, most of which is never used.
struct level {
    place inside; // an array has the one of its elements
    bool is_object;
    bool is_any;    // the content of an anydata
    uint32_t nodes; // in the content of an anydata, directly
    const char *start;
    const char *name; // of the member being read,
    size_t name_size; // and its length
};

class _walk {
public:
    _walk(const text_use &how, string_view text) : use{how}, begin{text.data()}, at{begin}, end{begin + text.size()} {}

    any_content run() {
        for (; at != end && !result.fault.what; at++) {
            switch (*at) {
            case '"': _string(); break;
            case '{': _open(true); break;
            case '[': _open(false); break;
            case '}':
            case ']': _close(); break;
            case ',': _comma(); break;
            default: break;
            }
        }
        return result;
    }

private:
    void _string() {
        const string_view text{begin, static_cast<size_t>(end - begin)};
        const auto start = static_cast<size_t>(at - begin);
        const size_t quote = string_end(text, start);
        if (name_is_due) _name(text_before(text_from(text, start + 1), quote - start - 1));
        name_is_due = false;
        at = begin + quote;
    }

    void _name(string_view name) {
        level &object = levels[depth - 1];
        if (object.is_any && !_fits(name, _name_of(object))) _refuse(unfit_metadata);
        object.name = name.data();
        object.name_size = name.size();
        object.nodes++;
    }

    void _comma() {
        name_is_due = levels[depth - 1].is_object;
        // The elements of an array are nodes beside each other, like the members of the object that it is in.
        if (!name_is_due && depth > 1 && levels[depth - 2].is_any) levels[depth - 2].nodes++;
    }

    static string_view _name_of(const level &object) { return {object.name, object.name_size}; }

    // Metadata of metadata, and metadata of a node that is not right before it, leak in an anydata.
    static bool _fits(string_view name, string_view before) {
        if (!starts_with(name, "@")) return true;
        return !starts_with(name, "@@") && (name.find(':') == string_view::npos || text_from(name, 1) == before);
    }

    void _open(bool is_object) {
        level &inner = levels[depth];
        inner = {{true, nullptr}, is_object, false, 0, at, nullptr, 0};
        if (depth > 0) {
            const level &outer = levels[depth - 1];
            inner.inside = outer.is_object ? _child(outer.inside, _name_of(outer)) : outer.inside;
        }
        if (inner.inside.node && (inner.inside.node->nodetype & LYD_NODE_ANY)) _open_any(inner);
        depth++;
        name_is_due = is_object;
    }

    void _open_any(level &content) {
        content.inside = {content.is_object, nullptr}; // libyang keeps an array as the text that it is
        if (!content.is_object) return;
        content.is_any = true;
        if (++any_depth > any_depth_max) _refuse(too_deep);
    }

    void _close() {
        const level &inner = levels[--depth];
        name_is_due = false;
        if (!inner.is_any) return;
        any_depth--;
        if (inner.nodes < 2) return;
        result.has_several = true;
        const runtime::owned_text text{_as_document({inner.start, static_cast<size_t>(at + 1 - inner.start)})};
        if (!text || !_is_readable(use, text.get())) _fail("content of an anydata that does not parse", inner.start);
    }

    place _child(const place &parent, string_view name) const {
        if (!parent.has_schema) return {false, nullptr};
        const size_t colon = name.find(':');
        const bool qualified = colon != string_view::npos;
        const string_view local = qualified ? text_from(name, colon + 1) : name;
        const lys_module *module = nullptr;
        if (qualified) {
            module = find_module(use.ctx, text_before(name, colon));
        } else if (parent.node) {
            module = parent.node->module;
        }
        const lysc_node *node = parent.node || !use.ext
                                    ? find_child(parent.node, module, local, use.reply ? LYS_GETNEXT_OUTPUT : 0)
                                    : _child_of_template(module, local);
        return {node != nullptr, node};
    }

    const lysc_node *_child_of_template(const lys_module *module, string_view name) const {
        const lysc_node *node = nullptr;
        while ((node = lys_getnext_ext(node, nullptr, use.ext, 0)) != nullptr) {
            if (node->module == module && name == node->name) return node;
        }
        return nullptr;
    }

    void _refuse(const char *what) {
        ly_err_clean(const_cast<ly_ctx *>(use.ctx), nullptr); // its last error is about something else
        _fail(what, at);
    }

    void _fail(const char *what, const char *where) {
        if (!result.fault.what) result.fault = {what, static_cast<size_t>(where - begin)};
    }

    const text_use &use;
    const char *begin;
    const char *at;
    const char *end;
    std::array<level, json_depth_max> levels; // those that are open, of `depth`
    size_t depth = 0;
    uint32_t any_depth = 0;
    bool name_is_due = false;
    any_content result{};
};

} // namespace

any_content look_into_any(const text_use &use, string_view text) {
    return _walk{use, text}.run();
}

} // namespace zam::yang
