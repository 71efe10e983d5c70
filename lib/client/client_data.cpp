// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Data operations. Each is one synchronous exchange: normalise the path, build the request, send it, and for the
// reading ones cut the wanted value out of the answer. JSON answers are cut as text, so that numbers and strings reach
// the application the way the server wrote them; XML answers go through the parsed tree.

#include <cstring>

#include <zamc/logger.h>
#include <zamc/message.h>
#include <zamc/path.h>
#include <zamc/utils.h>

#include "client/client_internal.h"
#include "yang/yang_wrap_internal.h"

namespace zam::client {
namespace {

using runtime::owned_text;

bool _is_no_data(const char *value, uint32_t length) {
    return length == 0 || (length == 2 && memcmp(value, "{}", 2) == 0);
}

// Hands `value` to the application; 0, or -1 when the copy failed.
int32_t _give(void *out, uint32_t format, const char *value, uint32_t length) {
    zamc_bytes *bytes = _dup_rpc_reply(format, length, value);
    *static_cast<zamc_bytes **>(out) = bytes;
    return bytes ? 0 : -1;
}

// The text of an anydata node. No text is no failure, unless the node holds something that could not be printed.
int32_t _dump_anydata(const lyd_node *node, uint32_t format, owned_text &text, uint32_t &length) {
    length = 0;
    text.reset(zam_anydata_dump(node, static_cast<LYD_FORMAT>(zam_ownfmt2lydfmt(format)), &length));
    if (text) return 0;
    return reinterpret_cast<const lyd_node_any *>(node)->value.tree ? -1 : 0;
}

int32_t _pull_value(const zamc_bytes *raw, lyd_node *tree, const char *path, owned_text &value, uint32_t &length) {
    if (raw->format == ZAM_ENCODE_JSON) {
        char *text = nullptr;
        if (yang::get_value(path, raw->data, &text) != 0) return -1;
        value.reset(text);
        length = text ? static_cast<uint32_t>(strlen(text)) : 0;
        return 0;
    }
    const lyd_node *data = zam_lyd_find_path(tree, "/orvel-zam-server:pull/data");
    return data ? _dump_anydata(data, ZAM_ENCODE_XML, value, length) : -1;
}

// `arg` is the path as the application gave it.
int32_t _parse_pull_rsp(lyd_node *tree, const zamc_bytes *raw, void *out, const void *arg) {
    owned_text value;
    uint32_t length = 0;
    if (_pull_value(raw, tree, static_cast<const char *>(arg), value, length) != 0) return -1;
    if (length == 0) return 0;
    zam_log_printf(ZAM_LOG_DEBUG, "[Client] pull data:%s.\n", value.get());
    return _give(out, raw->format, value.get(), length);
}

// The first edit's value runs from its name to the five brackets that close edit, list, patch, reply and document.
int32_t _parse_diff_json(const zamc_bytes *raw, void *out) {
    constexpr char name[] = "\"value\":";
    constexpr size_t closing = 5;
    const char *value = strstr(raw->data, name);
    if (!value) return -1;
    value += sizeof name - 1;
    const size_t rest = strlen(value);
    if (rest < closing) return -1;
    const auto length = static_cast<uint32_t>(rest - closing);
    return _is_no_data(value, length) ? 0 : _give(out, raw->format, value, length);
}

int32_t _parse_diff_rsp(lyd_node *tree, const zamc_bytes *raw, void *out, const void *) {
    if (raw->format == ZAM_ENCODE_JSON) return _parse_diff_json(raw, out);
    const lyd_node *node = zam_lyd_find_path(tree, "/orvel-zam-server:diff/yang-patch/edit/value");
    if (!node) return -1;
    owned_text value;
    uint32_t length = 0;
    if (_dump_anydata(node, raw->format, value, length) != 0) return -1;
    return _is_no_data(value.get(), length) ? 0 : _give(out, raw->format, value.get(), length);
}

bool _is_empty(const lyd_node *leaf) {
    const char *value = zam_lyd_value_string(leaf);
    return !value || *value == '\0';
}

void _remove_leaf(lyd_node *leaf) {
    zam_lyd_unlink(leaf);
    zam_lyd_free(leaf);
}

// The server names both neighbours and leaves the missing one empty; the application gets those that exist.
int32_t _parse_locate_rsp(lyd_node *tree, const zamc_bytes *raw, void *out, const void *) {
    lyd_node *before = zam_lyd_find_path(tree, "/orvel-zam-server:locate/prev-entity");
    lyd_node *after = zam_lyd_find_path(tree, "/orvel-zam-server:locate/post-entity");
    if (!before || !after) return -1;
    const bool no_before = _is_empty(before);
    const bool no_after = _is_empty(after);
    if (no_before) _remove_leaf(before);
    if (no_after) _remove_leaf(after);
    if (no_before && no_after) return 0;

    const auto format = static_cast<LYD_FORMAT>(zam_ownfmt2lydfmt(raw->format));
    uint32_t length = 0;
    const runtime::system_text text{zam_lyd_tree_dump(no_before ? after : before, format, &length)};
    if (!text) {
        zam_log_printf(ZAM_LOG_WRONG, "Dump locate not successful.\n");
        return -1;
    }
    if (length == 0) return 0;
    zam_log_printf(ZAM_LOG_DEBUG, "[Client] locate data:%s.\n", text.get());
    return _give(out, raw->format, text.get(), length);
}

int32_t _exchange(zamc_client *client, lyd_node *tree, zamc_bytes **out, reply_parser parser, const char *path) {
    const yang::owned_tree request{tree};
    return _exec_complex_rpc(client, request.get(), out, parser, path);
}

} // namespace
} // namespace zam::client

using namespace zam;
using namespace zam::client;

int32_t zamc_pull(zamc_client *client, int32_t version, const char *path, int32_t depth, zamc_bytes **out) {
    if (!client || !path || !out) return -3;
    *out = nullptr;
    const runtime::owned_text entity{zam_format_path(path)};
    if (!entity) {
        zam_log_printf(ZAM_LOG_WRONG, "Format pull path not successful, path : %s.\n", path);
        return -3;
    }
    const ly_ctx *ctx = zam_clients_schema_ctx();
    if (!ctx) return -1;
    lyd_node *request = zam_message_build_pull(_get_target_ds_name(client), version, entity.get(), depth, ctx);
    return request ? _exchange(client, request, out, _parse_pull_rsp, path) : -1;
}

int32_t zamc_diff(zamc_client *client, const char *path, int32_t depth, zamc_bytes **out) {
    if (!client || !path || !out) return -3;
    *out = nullptr;
    const runtime::owned_text entity{zam_format_path(path)};
    if (!entity) {
        zam_log_printf(ZAM_LOG_WRONG, "Format diff path not successful, path : %s.\n", path);
        return -3;
    }
    const ly_ctx *ctx = zam_clients_schema_ctx();
    if (!ctx) return -1;
    lyd_node *request = zam_message_build_diff(_get_target_ds_name(client), entity.get(), depth, ctx);
    if (!request) {
        zam_log_printf(ZAM_LOG_WRONG, "Build diff rpc not successful.\n");
        return -1;
    }
    return _exchange(client, request, out, _parse_diff_rsp, path);
}

int32_t zamc_locate(zamc_client *client, int32_t version, const char *path, zamc_bytes **out) {
    if (!client || !path || !out) return -3;
    *out = nullptr;
    const runtime::owned_text entity{zam_format_path(path)};
    if (!entity) {
        zam_log_printf(ZAM_LOG_WRONG, "Format locate path not successful, path : %s.\n", path);
        return -3;
    }
    const ly_ctx *ctx = zam_clients_schema_ctx();
    if (!ctx) return -1;
    lyd_node *request = zam_message_build_locate(_get_target_ds_name(client), version, entity.get(), ctx);
    if (!request) {
        zam_log_printf(ZAM_LOG_WRONG, "Build locate rpc not successful.\n");
        return -1;
    }
    return _exchange(client, request, out, _parse_locate_rsp, path);
}

int32_t zamc_push(zamc_client *client, const char *path, int32_t operation, const zamc_bytes *content) {
    if (!client || !path || !content) return -3;
    const runtime::owned_text entity{zam_format_path(path)};
    if (!entity) {
        zam_log_printf(ZAM_LOG_WRONG, "Format push path not successful, path : %s.\n", path);
        return -3;
    }
    const ly_ctx *ctx = zam_clients_schema_ctx();
    if (!ctx) return -1;
    const yang::owned_tree request{zam_message_build_push(_get_target_ds_name(client), entity.get(),
                                                          zam_xlate_edit_enum2str(operation), content, ctx)};
    return request ? _exec_simple_rpc(client, request.get(), content->format) : -1;
}

int32_t zamc_notify(zamc_client *client, const char *name, const zamc_bytes *data) {
    if (!client || !name || !data) return -3;
    const ly_ctx *ctx = zam_clients_schema_ctx();
    if (!ctx) return -1;
    const yang::owned_tree request{zam_message_build_notify(name, data, ctx)};
    return request ? _exec_simple_rpc(client, request.get(), data->format) : -1;
}
