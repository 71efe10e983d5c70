// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// The value of a printed pull reply, and a bare JSON value named after its path. The reply is the one that the server
// prints: shrunk, `data` last in its operation, nothing after the last brace. The searches rely on that shape; the cuts
// check that the text is long enough for them.

#include <cstring>
#include <string_view>

#include "yang/yang_wrap_internal.h"

namespace zam::yang {
namespace {

using runtime::owned_text;
using std::string_view;

struct code_range {
    uint32_t first_beyond; // the codes of this row lie below it
    uint32_t lead;         // the marker bits of the first byte
    uint32_t size;
};

// The last three-byte code is U+FFFD: the two noncharacters behind it take four bytes, as the peers write them.
constexpr code_range code_ranges[] = {
    {0x80, 0, 1},
    {0x800, 0xC0, 2},
    {0xFFFE, 0xE0, 3},
    {0x10FFFE, 0xF0, 4},
};

uint32_t _encode(char *dst, uint32_t code) {
    for (const code_range &range : code_ranges) {
        if (code >= range.first_beyond) continue;
        uint32_t shift = 6 * (range.size - 1);
        dst[0] = static_cast<char>(range.lead | (code >> shift));
        for (uint32_t i = 1; i < range.size; ++i) {
            shift -= 6;
            dst[i] = static_cast<char>(0x80 | ((code >> shift) & 0x3F));
        }
        return range.size;
    }
    return 0;
}

// Anything but a hexadecimal digit leaves the value as it is.
uint32_t _add_digit(uint32_t code, char digit) {
    if (digit >= '0' && digit <= '9') return (code << 4) | static_cast<uint32_t>(digit - '0');
    if (digit >= 'A' && digit <= 'F') return (code << 4) | static_cast<uint32_t>(digit - 'A' + 10);
    if (digit >= 'a' && digit <= 'f') return (code << 4) | static_cast<uint32_t>(digit - 'a' + 10);
    return code;
}

char _unescaped(char letter) {
    switch (letter) {
    case 'b': return '\b';
    case 'f': return '\f';
    case 'n': return '\n';
    case 'r': return '\r';
    case 't': return '\t';
    default: return letter;
    }
}

// Takes the last `count` characters off; false when there are not as many.
bool _cut(string_view &text, size_t count) {
    if (text.size() < count) return false;
    text.remove_suffix(count);
    return true;
}

// The value of the only member of an object. A string keeps its quotes.
bool _member_value(string_view object, string_view &value) {
    const size_t name_end = object.find("\":");
    if (name_end == string_view::npos) return false;
    value = text_from(object, name_end + 2);
    return starts_with(value, "\"") || _cut(value, 1);
}

// The `data` object of the reply; false when the reply has none, or an empty one.
bool _reply_data(string_view reply, string_view &data) {
    const string_view mark = "\"data\":";
    const size_t at = reply.find(mark);
    if (at == string_view::npos) return false;
    data = text_from(reply, at + mark.size());
    return _cut(data, 2) && data != "{}"; // without the braces of the operation and of the reply
}

bool _is_harmless_object(string_view text) {
    if (!starts_with(text, "{")) return false;
    const json_scan scan = scan_json(text);
    return scan.well_formed && !scan.nested_arrays && !scan.harm;
}

char *_unescaped_copy(string_view body) {
    auto *text = static_cast<char *>(zam_calloc(1, static_cast<uint32_t>(body.size()) + 1));
    if (text) _escape_json_str(text, body);
    return text;
}

bool _is_escaped(string_view text, size_t at) {
    const size_t before = text.find_last_not_of('\\', at - 1);
    const size_t backslashes = before == string_view::npos ? at : at - 1 - before;
    return backslashes % 2 == 1;
}

// The start of the trailing predicates, or the whole length.
size_t _name_end(string_view path) {
    if (path.empty() || path.back() != ']') return path.size();
    bool quoted = false;
    for (size_t at = path.size() - 1; at > 0; --at) {
        if (path[at] == '"' && !_is_escaped(path, at)) quoted = !quoted;
        if (path[at] == '[' && !quoted && path[at - 1] != ']') return at;
    }
    return path.size();
}

} // namespace

uint32_t _unicode_to_utf8(char *dst, string_view hex) {
    uint32_t code = 0;
    for (const char digit : text_before(hex, hex.size() < 4 ? hex.size() : 4))
        code = _add_digit(code, digit);
    return _encode(dst, code);
}

void _escape_json_str(char *dst, string_view src) {
    while (!src.empty() && src.front() != '"') {
        size_t used = 1;
        if (src.front() != '\\') {
            *dst++ = src.front();
        } else if (src.size() == 1) {
            return; // cut inside an escape
        } else if (src[1] == 'u') {
            dst += _unicode_to_utf8(dst, text_from(src, 2));
            used = 6;
        } else {
            *dst++ = _unescaped(src[1]);
            used = 2;
        }
        src.remove_prefix(used < src.size() ? used : src.size());
    }
}

int32_t get_value(const char *path, const char *json, char **value) {
    *value = nullptr;
    string_view found;
    if (!path || !json || !_reply_data(json, found)) return 0;
    const bool whole = strcmp(path, "/") == 0;
    if (!whole && !_member_value(found, found)) return 0;
    if (found.size() >= UINT32_MAX) return -1;
    *value = !whole && starts_with(found, "\"") ? _unescaped_copy(text_from(found, 1))
                                                : zam_strndup(found.data(), static_cast<uint32_t>(found.size()));
    return *value ? 0 : -1;
}

char *without_pull_data(const char *reply) {
    string_view data;
    if (!starts_with(reply, R"({"orvel-zam-server:pull":{)") || !_reply_data(reply, data)) return nullptr;
    const string_view rest = text_from(data, data.size());
    if (string_view{rest.data()} != "}}" || !_is_harmless_object(data)) return nullptr;
    char *text = nullptr;
    const int before = static_cast<int>(data.data() - reply);
    return zam_asprintf(&text, "%.*s{}}}", before, reply) < 0 ? nullptr : text;
}

char *_find_name(const char *path) {
    if (!path) return nullptr;
    const string_view text{path};
    const string_view steps = text_before(text, _name_end(text));
    const size_t slash = steps.rfind('/');
    const string_view name = slash == string_view::npos ? steps : text_from(steps, slash + 1);
    return zam_strndup(name.data(), static_cast<uint32_t>(name.size()));
}

} // namespace zam::yang

using namespace zam::yang;

char *zam_get_value(const char *path, const char *json) {
    char *value = nullptr;
    (void)get_value(path, json, &value);
    return value;
}

char *zam_add_name(const char *path, const char *content) {
    if (!content) return zam_strdup("\"\"");
    if (!path) return nullptr;
    if (strcmp(path, "/") == 0) return zam_strdup(content);
    const zam::runtime::owned_text name{_find_name(path)};
    if (!name) return nullptr;
    char *text = nullptr;
    const bool as_is = *content == '{' || *content == '[';
    const int32_t length = as_is ? zam_asprintf(&text, "{\"%s\":%s}", name.get(), content)
                                 : zam_asprintf(&text, "{\"%s\":\"%s\"}", name.get(), content);
    return length < 0 ? nullptr : text;
}
