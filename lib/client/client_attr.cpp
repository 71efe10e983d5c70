// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The attributes of a client: eleven entries of a length and an owned block, indexed by attribute id. Every block holds
// one byte more than its length, a NUL, so that a text stored without its terminator still ends. A getter answers with
// the default of its attribute while no value is stored.
//
// Four attributes are part of the registration. While the client is connected, a new value of one of them is announced
// at once; a server that does not take it leaves the old value in force.
#include <array>
#include <cstring>

#include <zamc/connector.h>

#include "client/client_internal.h"
#include "platform/bounded.h"

namespace zam::client {

namespace {

constexpr char default_datastore[] = "ietf-datastores:running";
constexpr uint32_t default_encode = ZAM_ENCODE_JSON;
constexpr uint32_t default_sync_timeout = 300000; // ms: a server that replays a large configuration takes minutes
constexpr uint32_t default_sub_oper = ZAMC_CONFIG_CREATE | ZAMC_CONFIG_DELETE | ZAMC_CONFIG_UPDATE | ZAMC_CONFIG_MOVE;
constexpr uint32_t default_sub_scene = ZAMC_SCENE_NORMAL;
constexpr uint32_t default_api_version = 1; // v2
constexpr uint32_t any_length = 0;

struct attr_kind {
    uint32_t length; // bytes; any_length for a text
    bool announced;  // the registration carries it
    bool read_only;  // for the application
};

constexpr std::array<attr_kind, attr_count> attr_kinds{{
    {4, true, false},           // ZAMC_ATTR_DEADLINE
    {4, true, false},           // ZAMC_ATTR_ENCODE
    {any_length, false, false}, // ZAMC_ATTR_TARGET_DS
    {4, false, false},          // ZAMC_ATTR_SYNC_TIMEOUT
    {1, false, false},          // ZAMC_ATTR_RPC_BYPASS
    {any_length, true, false},  // ZAMC_ATTR_DEP_CLIENTS
    {4, false, false},          // ZAMC_ATTR_SUB_OPER
    {4, false, false},          // ZAMC_ATTR_SUB_SCENE
    {4, false, true},           // ZAMC_ATTR_SESSION_ID
    {4, false, true},           // ZAMC_ATTR_PEER_SESSION_ID
    {4, true, false},           // ZAMC_ATTR_API_VERSION
}};

uint32_t _get_attr_len(uint32_t id) {
    return attr_kinds[id].length;
}

void _update_attr(attr *entry, uint32_t length, void *value) {
    entry->length = length;
    entry->value = value;
}

template <typename T>
T _value_or(const zamc_client *client, uint32_t id, T absent) {
    const attr &entry = client->attrs[id];
    if (!entry.value) return absent;
    T value;
    std::memcpy(&value, entry.value, sizeof(value)); // the setter has checked the length
    return value;
}

const char *_text_or(const zamc_client *client, uint32_t id, const char *absent) {
    const void *text = client->attrs[id].value;
    return text ? static_cast<const char *>(text) : absent;
}

// Tells the server of a new value. 0 as well when there is nothing, or nobody, to tell.
int32_t _update_remote_attr(zamc_client *client, uint32_t id) {
    return attr_kinds[id].announced && !zam_connector_closed(client->connector) ? _exec_register(client) : 0;
}

} // namespace

int32_t _init_client_attrs(zamc_client *client, uint32_t encode) {
    const int32_t deadline = 0;
    const uint8_t bypass = 0;
    const uint32_t session = 0;
    struct initial {
        uint32_t id;
        const void *value;
        uint32_t length;
    };
    const std::array<initial, 10> initials{{
        {ZAMC_ATTR_SYNC_TIMEOUT, &default_sync_timeout, sizeof(default_sync_timeout)},
        {ZAMC_ATTR_ENCODE, &encode, sizeof(encode)},
        {ZAMC_ATTR_DEADLINE, &deadline, sizeof(deadline)},
        {ZAMC_ATTR_TARGET_DS, default_datastore, sizeof(default_datastore)},
        {ZAMC_ATTR_RPC_BYPASS, &bypass, sizeof(bypass)},
        {ZAMC_ATTR_SUB_OPER, &default_sub_oper, sizeof(default_sub_oper)},
        {ZAMC_ATTR_SUB_SCENE, &default_sub_scene, sizeof(default_sub_scene)},
        {ZAMC_ATTR_SESSION_ID, &session, sizeof(session)},
        {ZAMC_ATTR_PEER_SESSION_ID, &session, sizeof(session)},
        {ZAMC_ATTR_API_VERSION, &default_api_version, sizeof(default_api_version)},
    }};
    for (const initial &entry : initials) {
        const int32_t result = zamc_set_attr_internal(client, entry.id, entry.value, entry.length);
        if (result != 0) return result;
    }
    return 0;
}

void _free_client_attrs(zamc_client *client) {
    for (attr &entry : client->attrs) {
        zam_free(entry.value);
        _update_attr(&entry, 0, nullptr);
    }
}

int32_t zamc_set_attr_internal(zamc_client *client, uint32_t id, const void *value, uint32_t length) {
    if (!client || !value || id >= attr_count) return -3;
    const uint32_t expected = _get_attr_len(id);
    if (expected != any_length && length != expected) return -3;
    if (length == UINT32_MAX) return -2; // no room for the NUL
    runtime::owned_text block{static_cast<char *>(zam_calloc(1, length + 1))};
    if (!block || memcpy_s(block.get(), length, value, length) != 0) return -2;

    attr *entry = &client->attrs[id];
    const attr previous = *entry;
    _update_attr(entry, length, block.get());
    if (_update_remote_attr(client, id) != 0) {
        *entry = previous; // callers rely on the old value staying in force
        return -1;
    }
    [[maybe_unused]] char *stored = block.release();
    zam_free(previous.value);
    return 0;
}

int32_t _get_deadline(const zamc_client *client) {
    return _value_or<int32_t>(client, ZAMC_ATTR_DEADLINE, 0);
}

uint32_t _get_encode(const zamc_client *client) {
    const auto encode = _value_or<uint32_t>(client, ZAMC_ATTR_ENCODE, ZAM_ENCODE_UNKNOWN);
    return encode == ZAM_ENCODE_UNKNOWN ? default_encode : encode;
}

const char *_get_target_ds_name(const zamc_client *client) {
    return _text_or(client, ZAMC_ATTR_TARGET_DS, default_datastore);
}

uint32_t _get_sync_timeout(const zamc_client *client) {
    return _value_or(client, ZAMC_ATTR_SYNC_TIMEOUT, default_sync_timeout);
}

uint8_t _get_rpc_bypass_flag(const zamc_client *client) {
    return _value_or<uint8_t>(client, ZAMC_ATTR_RPC_BYPASS, 0);
}

const char *_get_dep_clients(const zamc_client *client) {
    return _text_or(client, ZAMC_ATTR_DEP_CLIENTS, "");
}

uint32_t _get_sub_oper(const zamc_client *client) {
    return _value_or(client, ZAMC_ATTR_SUB_OPER, default_sub_oper);
}

uint32_t _get_sub_scene(const zamc_client *client) {
    return _value_or(client, ZAMC_ATTR_SUB_SCENE, default_sub_scene);
}

uint32_t _get_api_version(const zamc_client *client) {
    return _value_or(client, ZAMC_ATTR_API_VERSION, default_api_version);
}

} // namespace zam::client

using namespace zam::client;

int32_t zamc_set_attr(zamc_client *client, uint32_t id, const void *value, uint32_t length) {
    if (id < attr_count && attr_kinds[id].read_only) return -3;
    return zamc_set_attr_internal(client, id, value, length);
}

int32_t zamc_get_attr(zamc_client *client, uint32_t id, void *buffer, uint32_t *length) {
    if (!client || !buffer || !length || id >= attr_count) return -3;
    const attr &entry = client->attrs[id];
    if (!entry.value) return -1;
    if (entry.length > *length) return -3;
    if (memcpy_s(buffer, *length, entry.value, entry.length) != 0) return -2;
    *length = entry.length;
    return 0;
}
