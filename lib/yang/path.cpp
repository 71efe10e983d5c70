// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// The path language, one segment at a time:
//
//     segment   = identifier [":" identifier] {predicate}
//     predicate = "[" key "=" value "]"
//     key       = "." | [identifier ":"] identifier
//     value     = double-quoted | single-quoted | characters up to "]"
//
// A segment is read left to right and no character twice: first the pieces are found in the text, then they are copied.
// Nothing here looks at the text behind the segment, so that a path of n characters takes time in the order of n.

#include <zamc/logger.h>
#include <zamc/mem.h>
#include <zamc/path.h>

#include <cctype>
#include <string_view>

#include "runtime/mem_internal.h"
#include "yang/path_internal.h"

namespace zam::yang {
namespace {

using runtime::mem_new;
using runtime::owned;

constexpr uint32_t keys_expected = 8; // room for the keys of any usual list
// More keys than any list has. A vector looks for a free slot from its beginning, so that their number must not grow
// with the length of the path.
constexpr uint32_t keys_max = 256;

void _free_key(void *item) {
    auto *key = static_cast<zam_path_key *>(item);
    zam_free(key->name);
    zam_free(key->value);
    zam_free(key);
}

void _free_key_record(zam_path_key *key) {
    _free_key(key);
}

using owned_key = owned<zam_path_key, _free_key_record>;

// A key value as it stands between its quotes; `quote` is zero for an unquoted one.
struct _raw_value {
    std::string_view text;
    char quote;
};

bool _begins_identifier(char c) {
    return std::isalpha(static_cast<unsigned char>(c)) || c == '_';
}

bool _continues_identifier(char c) {
    return _begins_identifier(c) || std::isdigit(static_cast<unsigned char>(c)) || c == '-' || c == '.';
}

bool _read_identifier(const char *&at, std::string_view &identifier) {
    if (!_begins_identifier(*at)) {
        zam_log_printf(ZAM_LOG_WRONG, "Get identifier from path(%s) unsuccessful.\n", at);
        return false;
    }
    const char *start = at;
    while (_continues_identifier(*at))
        at++;
    identifier = {start, static_cast<size_t>(at - start)};
    return true;
}

// One identifier, or two with a colon between; without the colon `prefix` stays empty.
bool _read_name(const char *&at, std::string_view &prefix, std::string_view &name) {
    if (!_read_identifier(at, name)) return false;
    if (*at != ':') return true;
    prefix = name;
    at++;
    return _read_identifier(at, name);
}

bool _read_key_name(const char *&at, std::string_view &name) {
    if (at[0] == '.' && at[1] == '=') {
        name = {at, 1};
        at++;
        return true;
    }
    std::string_view prefix; // keys belong to their list, whatever prefix they are written with
    return _read_name(at, prefix, name);
}

// Up to the closing quote or, for the caller to find fault with, the end of the text. Only double quotes know escapes.
bool _read_quoted(const char *&at, _raw_value &value) {
    value.quote = *at++;
    const char *start = at;
    while (*at && *at != value.quote) {
        if (*at == '\\' && value.quote == '"' && !*++at) return false;
        at++;
    }
    value.text = {start, static_cast<size_t>(at - start)};
    if (!*at) return true;
    at++;
    return *at == ']' || !*at;
}

bool _read_key_value(const char *&at, _raw_value &value) {
    if (*at != '=') return false;
    at++;
    if (*at == '"' || *at == '\'') return _read_quoted(at, value);
    const char *start = at;
    while (*at && *at != ']')
        at++;
    value = {{start, static_cast<size_t>(at - start)}, '\0'};
    return at != start;
}

char *_copy(std::string_view text) {
    return text.size() < UINT32_MAX ? zam_strndup(text.data(), static_cast<uint32_t>(text.size())) : nullptr;
}

char *_copy_value(const _raw_value &value) {
    char *copy = _copy(value.text);
    if (!copy || value.quote != '"') return copy;
    // Unescaping never lengthens a text: it is done in place.
    char *to = copy;
    for (const char *from = copy; *from; from++) {
        if (*from == '\\') from++;
        *to++ = *from;
    }
    *to = '\0';
    return copy;
}

bool _add_key(zam_vector *&keys, std::string_view name, const _raw_value &value) {
    owned_key key{mem_new<zam_path_key>()};
    if (!key) return false;
    key->name = _copy(name);
    key->value = _copy_value(value);
    if (!key->name || !key->value || zam_vector_add(&keys, key.get(), nullptr) != 0) return false;
    static_cast<void>(key.release());
    return true;
}

// One predicate, from its bracket to behind its closing bracket.
bool _read_predicate(const char *segment, const char *&at, zam_vector *&keys) {
    at++;
    std::string_view name;
    if (!_read_key_name(at, name)) {
        zam_log_printf(ZAM_LOG_WRONG, "Get key name from path(%s) unsuccessful.\n", segment);
        return false;
    }
    _raw_value value{};
    if (!_read_key_value(at, value)) {
        zam_log_printf(ZAM_LOG_WRONG, "Get key value from path(%s) unsuccessful.\n", segment);
        return false;
    }
    if (*at != ']' || zam_vector_used(keys) == keys_max) {
        zam_log_printf(ZAM_LOG_WRONG, "Key format incorrect in path(%s).\n", segment);
        return false;
    }
    at++;
    return _add_key(keys, name, value);
}

bool _read_predicates(const char *segment, const char *&at, zam_vector *&keys) {
    keys = zam_vector_init(keys_expected);
    if (!keys) return false;
    while (*at == '[')
        if (!_read_predicate(segment, at, keys)) return false;
    return true;
}

} // namespace
} // namespace zam::yang

using namespace zam::yang;

zam_path_node *zam_get_path_node(const char *text, uint32_t *position) {
    if (!text) return nullptr;
    owned_path_node node{mem_new<zam_path_node>()};
    if (!node) return nullptr;

    const char *at = text;
    std::string_view prefix;
    std::string_view name;
    if (!_read_name(at, prefix, name)) return nullptr;
    node->name = _copy(name);
    if (!node->name) return nullptr;
    if (!prefix.empty()) {
        node->prefix = _copy(prefix);
        if (!node->prefix) return nullptr;
    }
    if (*at == '[' && !_read_predicates(text, at, node->keys)) return nullptr;
    if (at - text >= UINT32_MAX) return nullptr; // more than a position counter can tell
    if (position) *position += static_cast<uint32_t>(at - text);
    return node.release();
}

void zam_free_path_node(zam_path_node **node) {
    if (!node || !*node) return;
    zam_free((*node)->prefix);
    zam_free((*node)->name);
    if ((*node)->keys) zam_vector_free((*node)->keys, _free_key);
    zam_free(*node);
    *node = nullptr;
}
