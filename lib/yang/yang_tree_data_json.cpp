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

#include <array>
#include <cstring>

#include "yang/yang_internal.h"

namespace zam::yang {
namespace {

using runtime::owned_text;

bool _is_digit(char c) {
    return c >= '0' && c <= '9';
}

bool _is_hex(char c) {
    return _is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

struct _utf8_form {
    unsigned char mask, lead;
    uint32_t length, least; // bytes, and the smallest code point that needs them
};
constexpr _utf8_form utf8_forms[] = {{0xE0, 0xC0, 2, 0x80}, {0xF0, 0xE0, 3, 0x800}, {0xF8, 0xF0, 4, 0x10000}};

// The length of the UTF-8 character at `at`, 0 when it is malformed, overlong or a surrogate (RFC 3629).
size_t _utf8_length(const char *at, const char *end) {
    auto first = static_cast<unsigned char>(*at);
    if (first < 0x80) return 1;
    for (const _utf8_form &form : utf8_forms) {
        if ((first & form.mask) != form.lead) continue;
        if (static_cast<size_t>(end - at) < form.length) return 0;
        uint32_t code = first & static_cast<unsigned char>(~form.mask);
        for (uint32_t i = 1; i < form.length; i++) {
            auto byte = static_cast<unsigned char>(at[i]);
            if ((byte & 0xC0) != 0x80) return 0;
            code = code << 6 | (byte & 0x3F);
        }
        bool valid = code >= form.least && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
        return valid ? form.length : 0;
    }
    return 0;
}

// Walks a text once, without recursion: the open brackets stand in `open`.
class _scanner {
public:
    explicit _scanner(std::string_view text) : begin{text.data()}, at{begin}, end{begin + text.size()} {}

    json_scan run() {
        bool well_formed = _values() && at == end;
        return {well_formed, nested_arrays, static_cast<size_t>(at - begin)};
    }

private:
    // One value with everything inside it, and the blanks around it (RFC 8259).
    bool _values() {
        do {
            if (!_value_begins()) return false;
            if (opened) continue;
            if (!_value_ends()) return false;
        } while (depth > 0);
        return true;
    }

    // Up to the end of a scalar or of an empty array or object, or to the place of the first value inside.
    bool _value_begins() {
        opened = false;
        _skip_blanks();
        if (at == end) return false;
        switch (*at) {
        case '{': return _open('}');
        case '[': return _open(']');
        case '"': return _string();
        case 't': return _literal("true");
        case 'f': return _literal("false");
        case 'n': return _literal("null");
        default: return _number();
        }
    }

    // After a value: closes what ends here, and steps over a comma to the place of the next value.
    bool _value_ends() {
        for (;;) {
            _skip_blanks();
            if (depth == 0) return true;
            if (at == end) return false;
            if (*at == ',') {
                at++;
                return open[depth - 1] == ']' || _member_name();
            }
            if (*at != open[depth - 1]) return false;
            at++;
            depth--;
        }
    }

    bool _open(char closer) {
        if (depth == open.size()) return false;
        if (closer == ']' && depth > 0 && open[depth - 1] == ']') nested_arrays = true;
        at++;
        _skip_blanks();
        if (at != end && *at == closer) {
            at++;
            return true;
        }
        open[depth++] = closer;
        opened = true;
        return closer == ']' || _member_name();
    }

    bool _member_name() {
        _skip_blanks();
        if (at == end || *at != '"' || !_string()) return false;
        _skip_blanks();
        if (at == end || *at != ':') return false;
        at++;
        return true;
    }

    bool _string() {
        for (at++; at != end;) {
            if (*at == '"') {
                at++;
                return true;
            }
            size_t length = *at == '\\' ? _escape_length() : _utf8_length(at, end);
            if (length == 0 || static_cast<unsigned char>(*at) < 0x20) return false;
            at += length;
        }
        return false;
    }

    size_t _escape_length() const {
        if (end - at < 2) return 0;
        if (at[1] != 'u') return std::string_view{"\"\\/bfnrt"}.find(at[1]) != std::string_view::npos ? 2 : 0;
        if (end - at < 6) return 0;
        return _is_hex(at[2]) && _is_hex(at[3]) && _is_hex(at[4]) && _is_hex(at[5]) ? 6 : 0;
    }

    bool _literal(std::string_view word) {
        if (!starts_with({at, static_cast<size_t>(end - at)}, word)) return false;
        at += word.size();
        return true;
    }

    bool _digits() {
        const char *start = at;
        while (at != end && _is_digit(*at))
            at++;
        return at != start;
    }

    bool _number() {
        if (*at == '-') at++;
        if (at != end && *at == '0') {
            at++; // a zero stands alone
        } else if (!_digits()) {
            return false;
        }
        if (at != end && *at == '.') {
            at++;
            if (!_digits()) return false;
        }
        if (at != end && (*at == 'e' || *at == 'E')) {
            at++;
            if (at != end && (*at == '+' || *at == '-')) at++;
            if (!_digits()) return false;
        }
        return true;
    }

    void _skip_blanks() {
        while (at != end && (*at == ' ' || *at == '\t' || *at == '\n' || *at == '\r'))
            at++;
    }

    const char *begin;
    const char *at;
    const char *end;
    std::array<char, json_depth_max> open; // the closers awaited
    size_t depth = 0;
    bool opened = false;
    bool nested_arrays = false;
};

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

json_scan scan_json(std::string_view text) {
    return _scanner{text}.run();
}

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
