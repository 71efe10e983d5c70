// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// The normal form of a path: every key in double quotes with escapes, or without any keys. Segments are read one by one
// and written to a buffer that starts with room for the path as it came.

#include <zamc/logger.h>
#include <zamc/mem.h>
#include <zamc/path.h>
#include <zamc/utils.h>
#include <zamc/yang_wrap.h>

#include <cstring>
#include <string_view>
#include <utility>

#include "runtime/mem_internal.h"
#include "yang/path_internal.h"

namespace zam::yang {
namespace {

using runtime::owned;
using runtime::owned_text;

using owned_bytes = owned<zam_rw_bytes, zam_rw_bytes_free>;

constexpr uint32_t quoting_room = 16; // for the quotes and escapes of an ordinary path

bool _write(zam_rw_bytes *out, std::string_view text) {
    return zam_rw_bytes_push(out, text.data(), static_cast<uint32_t>(text.size())) == 0;
}

bool _write_name(zam_rw_bytes *out, const zam_path_node *node) {
    if (node->prefix && !(_write(out, node->prefix) && _write(out, ":"))) return false;
    return _write(out, node->name);
}

bool _write_key(zam_rw_bytes *out, const zam_path_key *key) {
    owned_text value{zam_add_escape_character(key->value)};
    return value && _write(out, "[") && _write(out, key->name) && _write(out, "=\"") && _write(out, value.get()) &&
           _write(out, "\"]");
}

bool _write_keys(zam_rw_bytes *out, const zam_vector *keys) {
    for (uint32_t i = 0; i < zam_vector_size(keys); i++) {
        const auto *key = static_cast<const zam_path_key *>(zam_vector_get(keys, i));
        if (key && !_write_key(out, key)) return false;
    }
    return true;
}

// Writes the segment at `at` and moves behind it.
bool _write_segment(zam_rw_bytes *out, const char *path, const char *&at, bool keep_keys) {
    uint32_t length = 0;
    owned_path_node node{zam_get_path_node(at, &length)};
    if (!node || (at[length] != '/' && at[length] != '\0')) return false;
    if (!_write_name(out, node.get())) return false;
    if (keep_keys && !_write_keys(out, node->keys)) {
        zam_log_printf(ZAM_LOG_WRONG, "Format path(%s) unsuccessful when add key node(%s)\n", path, at);
        return false;
    }
    at += length;
    return true;
}

bool _write_path(zam_rw_bytes *out, const char *path, bool keep_keys) {
    const char *at = path;
    if (*at == '/') {
        if (!_write(out, "/")) return false;
        at++;
    }
    while (*at) {
        if (!_write_segment(out, path, at, keep_keys)) return false;
        if (!*at) break;
        if (!_write(out, "/")) return false;
        at++;
    }
    return true;
}

} // namespace
} // namespace zam::yang

using namespace zam::yang;

char *zam_format_data_path(const char *path, int32_t keep_keys) {
    if (!path) return nullptr;
    size_t length = std::strlen(path);
    if (length >= UINT32_MAX - quoting_room) return nullptr;
    owned_bytes out{zam_rw_bytes_new(static_cast<uint32_t>(length) + quoting_room)};
    if (!out || !_write_path(out.get(), path, keep_keys != 0)) return nullptr;
    return std::exchange(out->data, nullptr);
}

char *zam_format_path(const char *path) {
    if (!path) return nullptr;
    // A path without predicates is in normal form already, and is passed on unchecked.
    if (std::strcmp(path, "/") == 0 || !std::strchr(path, '[')) return zam_strdup(path);
    return zam_format_data_path(path, 1);
}
