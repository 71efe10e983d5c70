// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// What a client tells the server or its operators, and its answer to a publication.

#include <zamc/logger.h>

#include "wire/message_build_internal.h"

namespace zam::wire {
namespace {

constexpr const char *publish_data_path = "/orvel-zam-client:publish/data";

bool _add_stream(lyd_node *root, const char *name) {
    lyd_node *streams = new_container(root, "streams", "/orvel-zam-server:notify/streams");
    if (!streams) return false;
    lyd_node *stream = zam_lyd_new_list(streams, nullptr, "stream", nullptr);
    if (!is_made(stream != nullptr, "/orvel-zam-server:notify/.../stream")) return false;
    const leaf_step step{"name", name, "/orvel-zam-server:notify/.../name"};
    return add_leaves(stream, {&step, 1});
}

bool _add_empty_output(lyd_node *root) {
    const bool made = zam_lyd_new_output_any(root, nullptr, "data", nullptr, LYD_ANYDATA_DATATREE) != nullptr;
    return is_made(made, publish_data_path);
}

bool _add_output(lyd_node *root, const zamc_bytes *reply) {
    if (reply->format != ZAM_ENCODE_XML && reply->format != ZAM_ENCODE_JSON) return false;
    if (!reply->data) {
        zam_log_printf(ZAM_LOG_WRONG, "Parse rpc output/get result in format %d unsuccessful.\n",
                       static_cast<int>(reply->format));
        return false;
    }
    const lyd_node *data = reply->format == ZAM_ENCODE_JSON
                               ? yang::new_raw_json(root, nullptr, "data", reply->data, true)
                               : zam_lyd_new_output_any(root, nullptr, "data", reply->data, LYD_ANYDATA_XML);
    return is_made(data != nullptr, publish_data_path);
}

} // namespace
} // namespace zam::wire

using namespace zam::wire;
using zam::yang::owned_tree;

lyd_node *zam_message_build_notify(const char *name, const zamc_bytes *data, const ly_ctx *ctx) {
    owned_tree root = new_root(ctx, "/orvel-zam-server:notify");
    if (!root || !_add_stream(root.get(), name)) return nullptr;
    if (!data || (data->format != ZAM_ENCODE_XML && data->format != ZAM_ENCODE_JSON)) {
        zam_log_printf(ZAM_LOG_WRONG, "The encode type of  '/orvel-zam-server:notify/data' invalid.\n");
        return nullptr;
    }
    const bool has_data = add_content(root.get(), "data", data->format, data->data);
    return is_made(has_data, "/orvel-zam-server:notify/data") ? root.release() : nullptr;
}

lyd_node *zam_message_build_publish_output(const zamc_bytes *reply, const ly_ctx *ctx) {
    const lys_module *module = ctx ? zam_ly_ctx_get_module(ctx, "orvel-zam-client") : nullptr;
    owned_tree root{module ? zam_lyd_new_output_inner(nullptr, module, "publish") : nullptr};
    if (!is_made(root != nullptr, "/orvel-zam-client:publish")) return nullptr;
    const bool is_empty = !reply || reply->length == 0;
    const bool has_data = is_empty ? _add_empty_output(root.get()) : _add_output(root.get(), reply);
    return has_data ? root.release() : nullptr;
}

lyd_node *zam_message_build_appinfo(const char *text, const ly_ctx *ctx) {
    if (!text || !ctx) return nullptr;
    owned_tree root = new_root(ctx, "/orvel-zam-server:appinfo");
    if (!root || !zam_lyd_new_leaf(root.get(), nullptr, "data", text)) return nullptr;
    return root.release();
}
