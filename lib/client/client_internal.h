// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The client object, and what its files share.
#ifndef ZAMC_CLIENT_CLIENT_INTERNAL_H
#define ZAMC_CLIENT_CLIENT_INTERNAL_H

#include <cstdint>
#include <cstring>

#include <zamc/client.h>
#include <zamc/dlist.h>
#include <zamc/proactor.h>
#include <zamc/utils.h>

#include "runtime/mem_internal.h"
#include "yang/yang_internal.h"

namespace zam::client {

constexpr uint32_t attr_count = 11;

struct attr {
    uint32_t length;
    void *value; // owned; null while never set
};

// What arrived and is not dispatched yet lies in the connector's read buffer as
//
//     [ passed | gap | rest ]
//
// passed: whole frames, no reply among them, that the search for a reply has gone over
// gap:    replies taken out from behind them; always empty when nothing is passed
// rest:   not looked at yet
//
// A frame passed moves down over the gap, a reply taken out widens it, so that any number of replies overtakes any
// number of requests at the cost of one move for each frame.
struct input_mark {
    uint32_t passed;
    uint32_t gap;
};

} // namespace zam::client

struct zamc_client {
    zam_proactor *proactor;
    zam_registry *registry;
    char *name;
    zam_connector *connector; // null while disconnected
    zam_vector *subers;       // of zam_suber; null until the first subscription
    uint8_t activation_busy;
    zamc_activate_fn activate_callback;
    void *activate_arg;
    zamc_message_recv_fn recv_callback;
    void *recv_arg;
    int32_t error_code;
    char *error_message;
    uint32_t send_seq;
    zam_dlist wait_replies; // requests of the server that we still owe an answer
    zam_dlist send_queue;   // our requests that the server still owes an answer
    zam::client::attr attrs[zam::client::attr_count];
    uint32_t request_seq;        // of the request whose handler runs, for zamc_request_seq
    uint32_t request_connection; // the connection that this request came on
    uint32_t connection;         // goes up as a connection begins and ends: an address alone could be a successor's
    zam_dlist lost_requests;     // whose connection has ended; the next zamc_run tells their callbacks
    zam::client::input_mark input;
    uint32_t run_depth;   // calls of zamc_run on the stack
    uint8_t free_wanted;  // zamc_client_free was called inside zamc_run, which does it as it returns
    uint8_t rewake_asked; // this receive pass has sent its rewake request
};

namespace zam::client {

// A request of ours, from its push until its reply is taken or given up.
struct rpc_meta {
    zam_dlist_node node; // first: the list holds records by it
    uint32_t seq;
    zamc_reply_fn callback; // null: nobody is called
    void *arg;
};

// A request of the server that we owe an answer.
struct rpc_wait {
    zam_dlist_node node; // first, as above
    uint32_t seq;
};

// The library's own answers to a request that failed.
struct rpc_failure {
    int32_t code;
    const char *text;
};
constexpr rpc_failure system_failure{-1, "System error"};
constexpr rpc_failure message_failure{-2, "Message error"};
constexpr rpc_failure service_failure{-3, "Service process failed"};
constexpr rpc_failure unprocessed_failure{-4, "Message is not processed"};

// A frame of its own: header and payload, ended by a NUL, with `message` describing it as in a read buffer. The block
// is null when memory ran out.
struct frame {
    runtime::owned_block<char> block;
    zam_message message;
};

// The waits of one call, each for a whole time-out: anything that happens on the connection begins it anew, except
// wakes that only repeat themselves for want of memory.
class idle_wait {
public:
    explicit idle_wait(int32_t timeout_ms) : timeout_ms_{timeout_ms} {}
    // What woke the client, or null after the time-out.
    zam_trigger *next(const zamc_client *client);

private:
    int64_t starved_since_ = -1; // ms; -1 while there is memory
    int32_t timeout_ms_;
};

inline bool valid_bytes(const zamc_bytes *bytes) {
    return bytes->length >= 0 && (bytes->data != nullptr || bytes->length == 0);
}
inline zam_message to_message(const zamc_bytes *bytes) {
    return {bytes->format, static_cast<uint32_t>(bytes->length), bytes->data};
}
inline LYD_FORMAT to_lyd_format(uint32_t encode) {
    return static_cast<LYD_FORMAT>(zam_ownfmt2lydfmt(encode));
}

// client.cpp
int32_t _exec_register(zamc_client *client);
void destroy_client(zamc_client *client);

// client_input.cpp: the frames that have arrived.
bool next_frame(zamc_client *client, zam_message *message);
bool next_reply(zamc_client *client, zam_message *message);
void pop_frame(zamc_client *client, const zam_message *message);
frame take_frame(zamc_client *client, const zam_message *message);
void join_input(zamc_client *client);
bool frame_start_remains(const zamc_client *client);
void _cache_other_msg(zam_rw_bytes **aside, const zam_message *message);
void put_back(zamc_client *client, zam_rw_bytes *aside);

// Reads a reply: the parsed tree, the raw reply, where the result goes, and the caller's argument. 0 or -1.
using reply_parser = int32_t (*)(lyd_node *tree, const zamc_bytes *raw, void *out, const void *arg);

// client_rpc.cpp: requests of ours.
int32_t _exec_simple_rpc(zamc_client *client, const lyd_node *tree, uint32_t format);
int32_t _exec_complex_rpc(zamc_client *client, const lyd_node *tree, void *out, reply_parser parser, const void *arg);
zamc_bytes *_dup_rpc_reply(uint32_t format, uint32_t length, const char *text);
bool _handle_reply(zamc_client *client, const zam_message *message);
void call_lost_requests(zamc_client *client);
void end_exchanges(zamc_client *client);
int32_t _cache_rewake_req(zamc_client *client);
int32_t _send_rewake_req(zamc_client *client);

// client_reply.cpp: answers of ours to requests of the server.
int32_t _append_rpc_seq(zam_dlist *list, uint32_t seq);
void _remove_rpc_seq(zam_dlist *list, uint32_t seq);
void record_failure(zamc_client *client, const rpc_failure &failure);
void clear_error(zamc_client *client);
bool answer_is_due(const zamc_client *client);
int32_t _cache_reply_ok(zamc_client *client, uint32_t seq);
int32_t _send_reply_ok(zamc_client *client, uint32_t seq);
int32_t _cache_reply_error(zamc_client *client, uint32_t seq);
int32_t _send_reply_error(zamc_client *client, uint32_t seq);
int32_t _cache_reply_tree(zamc_client *client, const lyd_node *tree, uint32_t format, uint32_t seq);
int32_t _cache_reply_output(zamc_client *client, uint32_t seq, const zamc_bytes *output);
void _exec_simple_rpc_reply(zamc_client *client, uint32_t seq, int32_t result);
void _exec_publish_reply(zamc_client *client, uint32_t seq, int32_t result, const zamc_bytes *output);

// client_dispatch.cpp
int32_t _on_message_receive(zam_proactor *proactor, uint32_t id, void *para);

// client_publish.cpp
void _handle_publish_req(zamc_client *client, uint32_t seq, lyd_node *tree);

// client_attr.cpp
int32_t _init_client_attrs(zamc_client *client, uint32_t encode);
void _free_client_attrs(zamc_client *client);
int32_t zamc_set_attr_internal(zamc_client *client, uint32_t id, const void *value, uint32_t length);
int32_t _get_deadline(const zamc_client *client);
uint32_t _get_encode(const zamc_client *client);
const char *_get_target_ds_name(const zamc_client *client);
uint32_t _get_sync_timeout(const zamc_client *client);
uint8_t _get_rpc_bypass_flag(const zamc_client *client);
const char *_get_dep_clients(const zamc_client *client);
uint32_t _get_sub_oper(const zamc_client *client);
uint32_t _get_sub_scene(const zamc_client *client);
uint32_t _get_api_version(const zamc_client *client);

// suber.cpp
void zam_reset_subers_bits(zam_vector *subers);
void _activate_finish(zamc_client *client, uint32_t seq, const lyd_node *tree);
void _deactivate_finish(zamc_client *client, uint32_t seq, const lyd_node *tree);

// As much of a payload as a log line shows, terminated: payloads of peers and callers need not be.
struct log_text {
    char chars[1024]; // what the logger formats at most

    log_text(const char *data, uint32_t length) {
        const uint32_t kept = length < sizeof chars ? length : static_cast<uint32_t>(sizeof chars) - 1;
        if (kept > 0) std::memcpy(chars, data, kept);
        chars[kept] = '\0';
    }
};

} // namespace zam::client

#endif
