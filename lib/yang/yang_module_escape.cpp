// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Escaping what libyang 2.1 prints as it is in JSON: names and values of opaque nodes.
//
// A node's pointers are swapped for escaped copies, each kept in a record together with the place and the pointer that
// was there; the records are walked newest first to put everything back. A value that goes out bare because of its
// hints stays as it is when it came as JSON: it was a number or a boolean there, or it is a ready-made piece of JSON
// that a builder has put in. From XML, libyang guesses the hints by the first character ("t" for a boolean), so there
// the value goes out in quotes unless it really is a JSON number or boolean.

#include <cstddef>
#include <string_view>

#include "runtime/mem_internal.h"
#include "yang/yang_module_internal.h"

namespace zam::yang {

struct json_escapes::swap {
    swap *next;
    const char **slot;
    const char *original;

    char *text() { return reinterpret_cast<char *>(this + 1); }
};

namespace {

constexpr std::string_view hex_digits = "0123456789abcdef";

lyd_node_opaq *_opaque(lyd_node *node) {
    return reinterpret_cast<lyd_node_opaq *>(node);
}

// The letter of the short form, or 0.
char _short_escape(char c) {
    switch (c) {
    case '"': return '"';
    case '\\': return '\\';
    case '\b': return 'b';
    case '\f': return 'f';
    case '\n': return 'n';
    case '\r': return 'r';
    case '\t': return 't';
    default: return 0;
    }
}

bool _is_control(char c) {
    return static_cast<unsigned char>(c) < 0x20;
}

size_t _escaped_length(std::string_view text) {
    size_t length = 0;
    for (const char c : text) {
        length += _short_escape(c) != 0 ? 2 : _is_control(c) ? 6 : 1;
    }
    return length;
}

char *_write_escaped(char *out, std::string_view text) {
    for (const char c : text) {
        if (const char letter = _short_escape(c); letter != 0) {
            *out++ = '\\';
            *out++ = letter;
        } else if (_is_control(c)) {
            for (const char u : std::string_view{"\\u00"})
                *out++ = u;
            *out++ = hex_digits[static_cast<size_t>(c) >> 4];
            *out++ = hex_digits[static_cast<size_t>(c) & 0xf];
        } else {
            *out++ = c;
        }
    }
    return out;
}

size_t _digits(std::string_view text) {
    size_t count = 0;
    while (count < text.size() && text[count] >= '0' && text[count] <= '9')
        ++count;
    return count;
}

// As RFC 8259 has it, without an exponent; libyang makes none from XML.
bool _is_json_number(std::string_view text) {
    if (text.starts_with('-')) text.remove_prefix(1);
    const size_t whole = _digits(text);
    if (whole == 0 || (whole > 1 && text.front() == '0')) return false;
    text.remove_prefix(whole);
    if (text.empty()) return true;
    if (text.front() != '.') return false;
    text.remove_prefix(1);
    return !text.empty() && _digits(text) == text.size();
}

// Whether libyang prints the value without quotes.
bool _prints_bare(uint32_t hints) {
    return (hints & (LYD_VALHINT_BOOLEAN | LYD_VALHINT_DECNUM)) != 0 && (hints & LYD_VALHINT_NUM64) == 0;
}

bool _needs_quotes(const lyd_node_opaq *node) {
    if (node->format != LY_VALUE_XML) return false;
    const std::string_view value{node->value};
    return value != "true" && value != "false" && !_is_json_number(value);
}

// Puts `text` in the slot, and remembers what was there; null when memory ran out. `extra` bytes of the record are for
// a text of its own.
json_escapes::swap *_replace(json_escapes &escapes, const char **slot, const char *text, size_t extra = 0) {
    json_escapes::swap *const made = runtime::mem_new<json_escapes::swap>(static_cast<uint32_t>(extra));
    if (made == nullptr) {
        escapes.complete = false;
        return nullptr;
    }
    *made = {escapes.swaps, slot, *slot};
    escapes.swaps = made;
    *slot = text;
    return made;
}

// Points the slot at an escaped copy, if it takes one.
void _escape(json_escapes &escapes, const char **slot, bool quoted) {
    if (*slot == nullptr) return;
    const std::string_view text{*slot};
    const size_t length = _escaped_length(text);
    if (length == text.size() && !quoted) return;
    constexpr size_t room = 3; // two quotes and the NUL
    if (length >= UINT32_MAX - sizeof(json_escapes::swap) - room) {
        escapes.complete = false;
        return;
    }
    json_escapes::swap *const made = _replace(escapes, slot, nullptr, length + room);
    if (made == nullptr) return;
    char *out = made->text();
    *slot = out;
    if (quoted) *out++ = '"';
    out = _write_escaped(out, text);
    if (quoted) *out++ = '"';
    *out = '\0';
}

void _escape_values(json_escapes &escapes, lyd_node_opaq *node) {
    if (node->format == LY_VALUE_JSON) _escape(escapes, &node->name.module_name, false);
    if (node->child != nullptr) return; // has no value to print
    if (!_prints_bare(node->hints)) {
        _escape(escapes, &node->value, false);
    } else if (_needs_quotes(node)) {
        _escape(escapes, &node->value, true);
    }
}

void _escape_siblings(json_escapes &escapes, lyd_node *first);

// As deep as the tree: no deeper than libyang's own printer goes.
void _escape_tree(json_escapes &escapes, lyd_node *node) {
    if (node->schema == nullptr) {
        _escape_values(escapes, _opaque(node));
        _escape_siblings(escapes, _opaque(node)->child);
    } else if ((node->schema->nodetype & LYD_NODE_ANY) != 0) {
        const lyd_node_any *const any = reinterpret_cast<lyd_node_any *>(node);
        if (any->value_type == LYD_ANYDATA_DATATREE) _escape_siblings(escapes, any->value.tree);
    } else {
        _escape_siblings(escapes, lyd_child(node));
    }
}

// libyang tells the entries of one array by the address of their name, so neighbours of one name share its copy.
void _escape_siblings(json_escapes &escapes, lyd_node *first) {
    const char *previous = nullptr; // name of the node before, as it was
    const char *copy = nullptr;     // and as it is now
    for (lyd_node *node = first; node != nullptr && escapes.complete; node = node->next) {
        if (node->schema != nullptr) {
            previous = nullptr;
            if ((node->schema->nodetype & LYD_NODE_TERM) != 0) continue; // nearly all of a large tree
        } else {
            const char **const slot = &_opaque(node)->name.name;
            const char *const name = *slot;
            if (name != previous) {
                _escape(escapes, slot, false);
            } else if (copy != name) {
                _replace(escapes, slot, copy);
            }
            previous = name;
            copy = *slot;
        }
        _escape_tree(escapes, node);
    }
}

} // namespace

json_escapes::json_escapes(const lyd_node *tree, bool with_siblings) {
    // The tree is the caller's to change; printing it only promises to leave it as it was.
    lyd_node *const first = const_cast<lyd_node *>(tree);
    if (first == nullptr) return;
    if (with_siblings) {
        _escape_siblings(*this, lyd_first_sibling(first));
        return;
    }
    if (first->schema == nullptr) _escape(*this, &_opaque(first)->name.name, false);
    _escape_tree(*this, first);
}

json_escapes::~json_escapes() {
    while (swaps != nullptr) {
        swap *const last = swaps;
        *last->slot = last->original;
        swaps = last->next;
        zam_free(last);
    }
}

} // namespace zam::yang
