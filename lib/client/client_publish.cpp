// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Publications: what the server asks of a subscriber, a configuration change, a status query or an operation. The
// request names the subscriber by the slot index that its subscription carried; the handler found there is called, and
// its result becomes the answer. Whatever is wrong with the request is recorded as an error, which the dispatcher then
// sends.
//
// A handler may unsubscribe, and a nested run may free the record, so a record is not touched after its handler ran.
#include <array>
#include <cstring>

#include <zamc/logger.h>

#include "client/client_internal.h"

namespace zam::client {

namespace {

constexpr char target_path[] = "target";

struct scene_bit {
    const char *name;
    uint32_t bit;
};
constexpr std::array<scene_bit, 3> scene_bits{{
    {"normal", ZAMC_SCENE_NORMAL},
    {"replay", ZAMC_SCENE_CFGR},
    {"rollback", ZAMC_SCENE_ROLLBACK},
}};

// Keeps the session on whose behalf the server asks, for handlers that want to know it.
void _record_rpc_req_session(zamc_client *client, lyd_node *tree) {
    uint32_t session = 0;
    if (zam_leaf_getf(tree, "from-session", "%u", &session) != 1) {
        zam_log_printf(ZAM_LOG_WRONG, "Rpc get from-session leaf not successful.\n");
        return;
    }
    const int32_t result = zamc_set_attr_internal(client, ZAMC_ATTR_PEER_SESSION_ID, &session, sizeof(session));
    if (result != 0) zam_log_printf(ZAM_LOG_WRONG, "Rpc set peer session attr not successful(%d).\n", result);
}

lyd_node *_first_publication(lyd_node *tree) {
    return zam_lyd_find_path(tree, "publications/publication");
}

bool _takes(const zam_suber *suber, int32_t wanted) {
    if (wanted != ZAMC_SUB_CONFIG_CHANGE) return suber->type == wanted;
    return suber->type == ZAMC_SUB_CONFIG_CHANGE || suber->type == ZAMC_SUB_CONFIG_CHANGE_BRIEF;
}

const zam_suber *_find_publish_target(const zamc_client *client, int32_t wanted, lyd_node *publication) {
    unsigned long long index = 0;
    if (zam_leaf_getf(publication, "priv-data", "%llu", &index) != 1) {
        zam_log_printf(ZAM_LOG_WRONG, "Get publication's 'priv-data' node not successful.\n");
        return nullptr;
    }
    const auto *suber = static_cast<zam_suber *>(zam_vector_get(client->subers, static_cast<uint32_t>(index)));
    if (!suber) {
        zam_log_printf(ZAM_LOG_WRONG, "Get suber not successful by index (%llu).\n", index);
        return nullptr;
    }
    return _takes(suber, wanted) ? suber : nullptr;
}

uint32_t _calc_oper_mask(const char *scene, uint32_t modify_type) {
    constexpr uint32_t operations = ZAMC_CONFIG_CREATE | ZAMC_CONFIG_DELETE | ZAMC_CONFIG_UPDATE | ZAMC_CONFIG_MOVE;
    uint32_t mask = modify_type & operations;
    if (mask == 0) mask = ZAMC_CONFIG_UPDATE; // nothing happened to the node itself: its inside changed
    for (const scene_bit &entry : scene_bits) {
        if (scene && std::strcmp(scene, entry.name) == 0) mask |= entry.bit;
    }
    return mask;
}

// What a config-change handler is called with.
struct config_change {
    const char *target;
    uint32_t mask;
    uint32_t priority;
    int32_t list_more;
};

bool _read_config_change(lyd_node *tree, lyd_node *publication, config_change *change) {
    uint32_t modify_type = 0;
    change->target = zam_leaf_get_raw(publication, target_path);
    if (!change->target || zam_leaf_getf(publication, "modify-type", "%u", &modify_type) != 1 ||
        zam_leaf_getf(publication, "priority", "%u", &change->priority) != 1) {
        return false;
    }
    const char *list_more = zam_leaf_get_raw(publication, "list-more");
    change->list_more = list_more && std::strcmp(list_more, "true") == 0 ? 1 : 0;
    change->mask = _calc_oper_mask(zam_leaf_get_raw(tree, "scene"), modify_type);
    return true;
}

int32_t _call_config_handler(zamc_client *client, const zam_suber *suber, const config_change &change) {
    if (suber->type == ZAMC_SUB_CONFIG_CHANGE_BRIEF) {
        return suber->config_brief_handler(client, change.mask, change.priority, change.target, suber->user);
    }
    return suber->config_handler(client, change.mask, change.priority, change.list_more, change.target, suber->user);
}

bool _has_config_handler(const zam_suber *suber) {
    return suber->type == ZAMC_SUB_CONFIG_CHANGE_BRIEF ? suber->config_brief_handler != nullptr
                                                       : suber->config_handler != nullptr;
}

void _publish_config_change(zamc_client *client, uint32_t seq, lyd_node *tree) {
    lyd_node *publication = _first_publication(tree);
    if (!publication) return record_failure(client, message_failure);
    const zam_suber *suber = _find_publish_target(client, ZAMC_SUB_CONFIG_CHANGE, publication);
    if (!suber || !_has_config_handler(suber)) return record_failure(client, unprocessed_failure);
    config_change change{};
    if (!_read_config_change(tree, publication, &change)) return record_failure(client, message_failure);
    _exec_simple_rpc_reply(client, seq, _call_config_handler(client, suber, change));
}

void _publish_status_query(zamc_client *client, uint32_t seq, lyd_node *tree) {
    lyd_node *publication = _first_publication(tree);
    if (!publication) return record_failure(client, message_failure);
    const zam_suber *suber = _find_publish_target(client, ZAMC_SUB_STATUS_QUERY, publication);
    if (!suber || !suber->status_handler) return record_failure(client, unprocessed_failure);
    const char *target = zam_leaf_get_raw(publication, target_path);
    if (!target) return record_failure(client, message_failure);

    zamc_bytes *output = nullptr;
    const int32_t result = suber->status_handler(client, target, nullptr, &output, suber->user);
    _exec_publish_reply(client, seq, result, output);
    zamc_free_bytes(output);
}

// The content of an operation as its handler sees it.
struct operation_input {
    zamc_bytes bytes;
    runtime::system_text printed; // owns the text when it was printed for the handler
    char nothing[sizeof("{}")];   // the text when there is no content
};

bool _set_input(operation_input *input, uint32_t format, char *text) {
    const size_t length = std::strlen(text);
    if (length > INT32_MAX) return false;
    input->bytes = {format, static_cast<int32_t>(length), text};
    return true;
}

bool _set_empty_input(operation_input *input, uint32_t format) {
    if (format == ZAM_ENCODE_JSON) std::memcpy(input->nothing, "{}", sizeof(input->nothing));
    return _set_input(input, format, input->nothing);
}

bool _read_tree_input(const lyd_node *tree, uint32_t format, operation_input *input) {
    if (!tree) return _set_empty_input(input, format);
    char *text = nullptr;
    const LY_ERR result =
        zam_lyd_print_mem(&text, tree, to_lyd_format(format), LYD_PRINT_WITHSIBLINGS | LYD_PRINT_KEEPEMPTYCONT);
    input->printed.reset(text);
    return result == LY_SUCCESS && text && _set_input(input, format, text);
}

bool _read_text_input(const lyd_node_any *content, operation_input *input) {
    const uint32_t format = content->value_type == LYD_ANYDATA_XML ? ZAM_ENCODE_XML : ZAM_ENCODE_JSON;
    // A bytes object has no read-only text; the handler is told that the input is not its to change.
    char *text = const_cast<char *>(content->value.str);
    return text ? _set_input(input, format, text) : _set_empty_input(input, format);
}

bool _read_operation_input(const zamc_client *client, const lyd_node *node, operation_input *input) {
    const auto *content = reinterpret_cast<const lyd_node_any *>(node);
    switch (content->value_type) {
    case LYD_ANYDATA_DATATREE: return _read_tree_input(content->value.tree, _get_encode(client), input);
    case LYD_ANYDATA_STRING:
    case LYD_ANYDATA_JSON:
    case LYD_ANYDATA_XML: return _read_text_input(content, input);
    default: return false;
    }
}

void _publish_operation(zamc_client *client, uint32_t seq, lyd_node *tree) {
    lyd_node *publication = _first_publication(tree);
    if (!publication) return record_failure(client, message_failure);
    const zam_suber *suber = _find_publish_target(client, ZAMC_SUB_OPERATION, publication);
    if (!suber || !suber->operation_handler) return record_failure(client, unprocessed_failure);
    const lyd_node *content = zam_lyd_find_path(publication, "content");
    if (!content || (zam_lyd_get_nodetype(content) & LYD_NODE_ANY) == 0 || !content->schema) {
        return record_failure(client, message_failure);
    }
    operation_input input{};
    // An operation that cannot be shown to its handler stays unanswered: the server's time-out reports it.
    if (!_read_operation_input(client, content, &input)) return;

    zamc_bytes *output = nullptr;
    const int32_t result = suber->operation_handler(client, &input.bytes, &output, suber->user);
    _exec_publish_reply(client, seq, result, output);
    zamc_free_bytes(output);
}

using publish_handler = void (*)(zamc_client *client, uint32_t seq, lyd_node *tree);

constexpr std::array<publish_handler, 3> publish_handlers{
    _publish_config_change, // ZAMC_SUB_CONFIG_CHANGE
    _publish_status_query,  // ZAMC_SUB_STATUS_QUERY
    _publish_operation,     // ZAMC_SUB_OPERATION
};

} // namespace

void _handle_publish_req(zamc_client *client, uint32_t seq, lyd_node *tree) {
    _record_rpc_req_session(client, tree);
    const char *text = zam_leaf_get_raw(tree, "pub-type");
    const auto type = static_cast<uint32_t>(zam_xlate_subtype_str2enum(text));
    if (type < publish_handlers.size()) {
        publish_handlers[type](client, seq, tree);
        return;
    }
    // No answer either: the type is a newer server's, which knows by its time-out what to make of that.
    zam_log_printf(ZAM_LOG_WRONG, "Unknown publish type '%s'.\n", text ? text : "null");
}

} // namespace zam::client
