// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Walks a JSON text (RFC 8259) once, without recursion. Besides its form it notes what libyang 2.1.30 cannot bear:
// - it recurses once for each level;
// - it dies of arrays directly inside arrays of an anydata or anyxml;
// - it dies of metadata of a leaf-list ("@name") that goes on after the last value of "name";
// - it writes out a number with all the zeros that its exponent asks for;
// - it looks names up after their escapes are resolved, so that a name may hide from whoever reads the text;
// - it takes quadratic time over equal values of one array, and over equal names of one object.

#include <array>

#include "yang/yang_internal.h"
#include "yang/yang_module_scan_internal.h"

namespace zam::yang {
namespace {

constexpr size_t longest_exponent = 3; // no type holds more digits than that

bool _is_digit(char c) {
    return c >= '0' && c <= '9';
}

bool _is_hex(char c) {
    return _is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

uint32_t _hex_value(char c) {
    return static_cast<uint32_t>(_is_digit(c) ? c - '0' : (c | 0x20) - 'a' + 10);
}

// A character of a qualified name, or the sign of metadata.
bool _is_name_character(uint32_t c) {
    return (c >= '0' && c <= ':') || (c >= '@' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == '-' ||
           c == '.';
}

// Whether a name of a member hides one of its characters in an escape. For valid strings only.
bool _hides_a_character(std::string_view name) {
    for (size_t at = name.find('\\'); at != std::string_view::npos; at = name.find('\\', at + 2)) {
        if (name[at + 1] != 'u') continue;
        uint32_t code = 0;
        for (const char digit : text_before(text_from(name, at + 2), 4))
            code = code << 4 | _hex_value(digit);
        if (_is_name_character(code)) return true;
    }
    return false;
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

// What stands for itself in a string, with one byte.
constexpr std::array<bool, 256> plain_characters = [] {
    std::array<bool, 256> plain{};
    for (size_t c = 0x20; c < 0x80; c++)
        plain[c] = c != '"' && c != '\\';
    return plain;
}();

enum class kind : char { object, array, null, scalar };

// A part of the text, for records that there are many of.
struct part {
    uint32_t at, length;
};

// An open object or array. Without initial values: there is an array of them, most of which is never used.
struct level {
    char closer;
    bool annotates; // of an array: nothing but objects and nulls yet, as metadata has
    uint32_t start;
    uint32_t elements;   // of an array
    uint32_t members;    // of an object
    part name;           // of an object: the member being read,
    part array;          // the one before it, if that is an array,
    uint32_t array_size; // and the elements of that one
};

// A complete value.
struct value {
    kind what;
    uint32_t elements = 0;
    bool annotates = false;
};

class _scanner {
public:
    explicit _scanner(std::string_view text) : begin{text.data()}, at{begin}, end{begin + text.size()} {}

    json_scan run() {
        const bool whole = static_cast<size_t>(end - begin) < UINT32_MAX && _values() && at == end;
        size_t offset = _offset(at);
        if (whole && nested_arrays) offset = nested_at;
        if (harm) offset = harm_at;
        return {whole, nested_arrays, offset, harm};
    }

private:
    // One value with everything inside it, and the blanks around it.
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
        const char *const start = at;
        switch (*at) {
        case '{': return _open('}');
        case '[': return _open(']');
        case '"': return _string() && _scalar_ends(start);
        case 't': return _literal("true") && _scalar_ends(start);
        case 'f': return _literal("false") && _scalar_ends(start);
        case 'n': return _literal("null") && _ended({kind::null});
        default: return _number() && _scalar_ends(start);
        }
    }

    // After a value: closes what ends here, and steps over a comma to the place of the next value.
    bool _value_ends() {
        for (;;) {
            _skip_blanks();
            if (depth == 0) return true;
            if (at == end) return false;
            const char closer = levels[depth - 1].closer;
            if (*at == ',') {
                at++;
                return closer == ']' || _member_name();
            }
            if (*at != closer) return false;
            _close();
        }
    }

    bool _open(char closer) {
        if (depth == levels.size()) return _note(too_deep) && false;
        if (closer == ']' && depth > 0 && levels[depth - 1].closer == ']' && !nested_arrays) {
            nested_arrays = true;
            nested_at = _offset(at);
        }
        levels[depth] = {closer, true, static_cast<uint32_t>(_offset(at)), 0, 0, {}, {}, 0};
        depth++;
        at++;
        _skip_blanks();
        if (at != end && *at == closer) return _close();
        opened = true;
        return closer == ']' || _member_name();
    }

    bool _close() {
        at++;
        const level &inner = levels[--depth];
        if (inner.closer == '}') return _ended({kind::object});
        return _ended({kind::array, inner.elements, inner.annotates});
    }

    bool _scalar_ends(const char *start) {
        if (depth > 0 && levels[depth - 1].closer == ']' &&
            !values.count(levels[depth - 1].start, {start, static_cast<size_t>(at - start)})) {
            _note(too_many_equal);
        }
        return _ended({kind::scalar});
    }

    // A value is complete: what it is in keeps what matters of it.
    bool _ended(const value &ended) {
        if (depth == 0) return true;
        level &outer = levels[depth - 1];
        if (outer.closer == ']') {
            outer.elements++;
            if (ended.what == kind::scalar || ended.what == kind::array) outer.annotates = false;
            return true;
        }
        const std::string_view name = _text(outer.name);
        if (starts_with(name, "@")) {
            if (ended.what != kind::object && !_annotates(ended, outer)) _note(unfit_metadata);
            return true;
        }
        outer.array = ended.what == kind::array ? outer.name : part{};
        outer.array_size = ended.elements;
        return true;
    }

    // Whether a value is the metadata of the array right before it: an object or null for each element from the first.
    bool _annotates(const value &ended, const level &outer) const {
        return ended.what == kind::array && ended.annotates && ended.elements <= outer.array_size &&
               outer.array.length > 0 && _text(outer.array) == text_from(_text(outer.name), 1);
    }

    bool _member_name() {
        _skip_blanks();
        const char *const start = at;
        if (at == end || *at != '"' || !_string()) return false;
        level &object = levels[depth - 1];
        object.name = {static_cast<uint32_t>(_offset(start) + 1), static_cast<uint32_t>(at - start - 2)};
        const std::string_view name = _text(object.name);
        if (_hides_a_character(name)) _note("a name that hides a character in an escape");
        if (++object.members > most_equal && !values.count(object.start, name))
            _note("a name that stands too often in one object");
        _skip_blanks();
        if (at == end || *at != ':') return false;
        at++;
        return true;
    }

    bool _string() {
        for (at++; at != end;) {
            if (plain_characters[static_cast<unsigned char>(*at)]) {
                at++; // nearly all of a long text
                continue;
            }
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
            const char *const exponent = at;
            if (!_digits()) return false;
            if (at - exponent > static_cast<ptrdiff_t>(longest_exponent)) _note("an excessive exponent");
        }
        return true;
    }

    void _skip_blanks() {
        while (at != end && (*at == ' ' || *at == '\t' || *at == '\n' || *at == '\r'))
            at++;
    }

    // Keeps the first harm; the walk goes on, for the form of the text.
    bool _note(const char *what) {
        if (!harm) {
            harm = what;
            harm_at = _offset(at);
        }
        return true;
    }

    size_t _offset(const char *place) const { return static_cast<size_t>(place - begin); }
    std::string_view _text(part of) const { return {begin + of.at, of.length}; }

    const char *begin;
    const char *at;
    const char *end;
    std::array<level, json_depth_max> levels; // those that are open, of `depth`
    size_t depth = 0;
    bool opened = false;
    bool nested_arrays = false;
    size_t nested_at = 0;
    const char *harm = nullptr;
    size_t harm_at = 0;
    equal_values values;
};

} // namespace

json_scan scan_json(std::string_view text) {
    return _scanner{text}.run();
}

} // namespace zam::yang
