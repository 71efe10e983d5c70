// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "text.h"

#include <algorithm>

#include "text_internal.h"

namespace zamd {
namespace {

int32_t _join(int32_t high, int32_t low) {
    return 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00);
}

void _append_utf8(std::string &out, int32_t code) {
    auto put = [&out](int32_t byte) { out.push_back(static_cast<char>(byte)); };
    if (code < 0x80) {
        put(code);
    } else if (code < 0x800) {
        put(0xC0 | code >> 6);
        put(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        put(0xE0 | code >> 12);
        put(0x80 | (code >> 6 & 0x3F));
        put(0x80 | (code & 0x3F));
    } else {
        put(0xF0 | code >> 18);
        put(0x80 | (code >> 12 & 0x3F));
        put(0x80 | (code >> 6 & 0x3F));
        put(0x80 | (code & 0x3F));
    }
}

// The end of the string that begins at `at` (its opening quote), one past the closing quote.
std::size_t _string_end(std::string_view text, std::size_t at) {
    for (++at; at < text.size(); ++at) {
        if (text[at] == '\\')
            ++at;
        else if (text[at] == '"')
            return at + 1;
    }
    return text.size();
}

// The end of the checked value that begins at `at`.
std::size_t _value_end(std::string_view text, std::size_t at) {
    int depth = 0;
    while (at < text.size()) {
        char c = text[at];
        if (c == '"') {
            at = _string_end(text, at);
            if (depth == 0) return at;
            continue;
        }
        if (c == '{' || c == '[') ++depth;
        if (c == '}' || c == ']') {
            if (depth == 0) return at; // a bare word or number ended by its container
            if (--depth == 0) return at + 1;
        }
        if (depth == 0 && (c == ',' || is_blank(c))) return at;
        ++at;
    }
    return at;
}

std::size_t _skip(std::string_view text, std::size_t at) {
    while (at < text.size() && (is_blank(text[at]) || text[at] == ',' || text[at] == ':'))
        ++at;
    return at;
}

} // namespace

std::size_t line_of(std::string_view text, std::size_t at) {
    return 1 + static_cast<std::size_t>(std::count(
                   text.begin(), text.begin() + static_cast<std::ptrdiff_t>(std::min(at, text.size())), '\n'));
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && is_blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back()))
        text.remove_suffix(1);
    return text;
}

std::vector<JsonMember> json_members(std::string_view object) {
    std::vector<JsonMember> members;
    object = trim(object);
    if (object.empty() || object.front() != '{') return members;
    for (std::size_t at = _skip(object, 1); at < object.size() && object[at] == '"'; at = _skip(object, at)) {
        std::size_t name_end = _string_end(object, at);
        std::string_view name = object.substr(at + 1, name_end - at - 2);
        std::size_t from = _skip(object, name_end);
        at = _value_end(object, from);
        members.push_back({name, object.substr(from, at - from)});
    }
    return members;
}

std::vector<std::string_view> json_elements(std::string_view array) {
    std::vector<std::string_view> elements;
    array = trim(array);
    if (array.empty() || array.front() != '[') return elements;
    for (std::size_t at = _skip(array, 1); at < array.size() && array[at] != ']'; at = _skip(array, at)) {
        std::size_t from = at;
        at = _value_end(array, from);
        elements.push_back(array.substr(from, at - from));
    }
    return elements;
}

std::optional<std::string_view> json_member(std::string_view object, std::string_view name) {
    for (const JsonMember &member : json_members(object)) {
        if (member.name == name) return member.value;
    }
    return std::nullopt;
}

std::string json_unescape(std::string_view body) {
    constexpr std::string_view letters = "bfnrt";
    constexpr std::string_view meanings = "\b\f\n\r\t";
    std::string out;
    out.reserve(body.size());
    for (std::size_t at = 0; at < body.size(); ++at) {
        if (body[at] != '\\' || at + 1 == body.size()) {
            out.push_back(body[at]);
            continue;
        }
        char c = body[++at];
        if (c != 'u') {
            std::size_t which = letters.find(c);
            out.push_back(which == std::string_view::npos ? c : meanings[which]);
            continue;
        }
        int32_t unit = hex_quad(body, at + 1);
        if (unit < 0) continue; // not reached with checked text
        at += 4;
        if (is_high_surrogate(unit)) {
            int32_t low = hex_quad(body, at + 3);
            if (is_low_surrogate(low)) {
                unit = _join(unit, low);
                at += 6;
            }
        }
        _append_utf8(out, unit);
    }
    return out;
}

std::string json_quote(std::string_view text) {
    constexpr std::string_view hex = "0123456789abcdef";
    std::string out = "\"";
    for (char c : text) {
        unsigned char byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out.push_back('\\');
            out.push_back(c);
        } else if (byte < 0x20 || byte == 0x7F) {
            out += "\\u00";
            out.push_back(hex[byte >> 4]);
            out.push_back(hex[byte & 0xF]);
        } else {
            out.push_back(c);
        }
    }
    out.push_back('"');
    return out;
}

std::string json_join_surrogates(std::string_view text) {
    std::string out;
    std::size_t done = 0;
    for (std::size_t at = text.find('\\'); at != std::string_view::npos; at = text.find('\\', at)) {
        int32_t high = text.substr(at, 2) == "\\u" ? hex_quad(text, at + 2) : -1;
        if (!is_high_surrogate(high)) {
            at += 2;
            continue;
        }
        out.append(text, done, at - done);
        _append_utf8(out, _join(high, hex_quad(text, at + 8)));
        done = at += 12;
    }
    return out.append(text, done);
}

} // namespace zamd
