/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
#ifndef ZAMC_CLIENT_H
#define ZAMC_CLIENT_H

/**
 * @file
 * What an application calls: clients, their attributes, requests, subscriptions and data.
 */

#include <pthread.h>
#include <stdbool.h>
#include <stdint.h>

#include <libyang/libyang.h>
#include <zamc/attributes.h>
#include <zamc/format.h>
#include <zamc/message.h>
#include <zamc/suber.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @name The schema context that all clients of a process share
 *
 * It holds the modules of the protocol, which come with the library, and those that the application loads. It is built
 * once and lives as long as the process. After that it is read without a lock.
 * @{
 */

/** Serialises zamc_initialize() between threads; ready without any call. Nothing else takes it. */
extern pthread_mutex_t g_client_ctx_mutex;

/**
 * Builds the shared schema context, unless there is one already.
 *
 * zamc_client_new() calls this too. It may be called from any thread, and again after a failure. Every call, also one
 * that finds the context built, sets zam_libyang_log() as libyang's log handler for the whole process.
 *
 * The context holds ietf-restconf (RFC 8040), ietf-netconf (RFC 6241), ietf-yang-patch (RFC 8072), ietf-datastores
 * (RFC 8342), ietf-yang-library (RFC 8525), orvel-zam-server and orvel-zam-client. To ietf-netconf the library adds
 * the yang-data templates "yang-errors" and "hello", in a submodule; of edit-config it keeps the test-option "set" and
 * the error-options "continue-on-error" and "rollback-on-error" (the default). ietf-datastores has the further
 * identities "temporary-operational" and "yang-library". No feature of these modules is enabled.
 *
 * @return 0 with the context there, -1 on failure (logged), with none.
 */
int32_t zamc_initialize(void);

/**
 * Adds modules of the application to the shared schema context.
 *
 * libyang rebuilds the compiled form of modules that are there already. So this is for the time before the application
 * starts its work: no data tree and no document may be alive, no other thread may use the context, and schema nodes
 * looked up before are void afterwards.
 *
 * @param dir Directory of the module files. libyang searches it for imports from then on, together with the directories
 * of earlier calls; giving one of those again is fine.
 * @param name Name of one module, in the file "name.yang" or, failing that, "name.yin"; a name that ends in ".yang" or
 * ".yin" is the file's name as it is. The module is compiled with all its features; one that does not compile counts
 * as not loaded. Null loads every module of the directory, see zam_load_directory(); modules whose name is in the
 * context already, the library's own included, are skipped.
 * @return 0; -1 when there is no context yet or something did not load, although of a directory the good modules are
 * in the context then; -3 when `dir` is null or no directory that can be read.
 */
int32_t zamc_load_module(const char *dir, const char *name);

/** Does nothing: the context, and what applications may still hold of it, stays until the process ends. */
void zamc_finalize(void);

/**
 * Gives access to the shared schema context.
 *
 * @return The context, of the library and not to be destroyed; null before zamc_initialize() succeeded.
 */
struct ly_ctx *zam_clients_schema_ctx(void);

/**
 * Tells whether documents can be made.
 *
 * @return 1 once a zamc_load_module() succeeded, 0 before.
 */
uint8_t zam_module_load(void);

/** @} */

/**
 * @name Clients and their attributes
 *
 * A client is one connection to a datastore server, with the subscriptions and the requests that belong to it. It is
 * used by one thread at a time; nothing in it is locked. Different clients may be used by different threads.
 *
 * The application's handlers and callbacks run on the thread that is inside zamc_run(), and only there: no synchronous
 * call runs any. A handler or callback may do everything with its client: send, make synchronous calls, call zamc_run()
 * again, disconnect, connect anew, and free the client, after which it must not use it any more. What it is handed is
 * valid until it returns.
 *
 * However a connection ends, three things end with it: the requests of the server on it count as answered, since their
 * numbers would mean others on a new connection; the server's activations are gone, so zamc_activate() has to be called
 * on the next one; and requests of the client that are still without a reply are lost, of which their callbacks learn
 * in the next zamc_run().
 * @{
 */

/**
 * The attributes of a client, with the type and the value that a new client has. A text is taken with the length that
 * the setter names; it always ends in a NUL when the library reads it.
 *
 * A change of DEADLINE, ENCODE, DEP_CLIENTS or API_VERSION while connected is announced to the server at once. One that
 * is made after the connection was seen to end is told by the next zamc_connect().
 */
enum zamc_attr {
    ZAMC_ATTR_DEADLINE = 0,     /**< int32_t, s; 0. How long the server waits before it gives the client up for gone. */
    ZAMC_ATTR_ENCODE = 1,       /**< uint32_t, a #zam_encode; as zamc_client_new() was told. 0 works as JSON. */
    ZAMC_ATTR_TARGET_DS = 2,    /**< Text; "ietf-datastores:running". The datastore of the data operations. */
    ZAMC_ATTR_SYNC_TIMEOUT = 3, /**< uint32_t, ms; 300000. For synchronous calls without a time-out of their own. */
    ZAMC_ATTR_RPC_BYPASS = 4,   /**< uint8_t; 0. Not 0: the message callback gets all frames, see zamc_run(). */
    ZAMC_ATTR_DEP_CLIENTS = 5,  /**< Text; not set. Names, parted by blanks, of clients to be replayed before us. */
    ZAMC_ATTR_SUB_OPER = 6,     /**< uint32_t; 0xF. Operations of a subscription that names none. */
    ZAMC_ATTR_SUB_SCENE = 7,    /**< uint32_t; 0x80. Scenes of a subscription that names none. */
    ZAMC_ATTR_SESSION_ID = 8,   /**< uint32_t, read-only; 0. What the server gave us at the last registration. */
    ZAMC_ATTR_PEER_SESSION_ID = 9, /**< uint32_t, read-only; 0. Whose change the last publication was about. */
    ZAMC_ATTR_API_VERSION = 10     /**< uint32_t; 1. 1 announces "v2", anything else "v1". */
};

/**
 * Receives frames that no other handler takes: types 2 and 3, in bypass mode all of them. Runs inside zamc_run().
 *
 * @param client The client that received it.
 * @param type The frame's type, a #zam_message_kind.
 * @param message Never null; its data ends in a NUL behind its length. zam_message_seq() and the other functions for
 * received frames work on it. Valid during the call.
 * @param arg As given to zamc_set_message_recv_cb().
 * @return Not used.
 */
typedef int32_t (*zamc_message_recv_fn)(zamc_client *client, uint32_t type, const zam_message *message, void *arg);

/**
 * Receives the reply to a zamc_send_rpc_asyn(), exactly once, unless the client is freed before. Runs inside
 * zamc_run().
 *
 * @param client The client that sent the request.
 * @param reply Null when the reply is empty, when memory for it is short, or when the request is lost: a later request
 * was answered first, or the connection ended. Else its data ends in a NUL behind its length. Valid during the call.
 * @param arg As given to zamc_send_rpc_asyn().
 * @return Not used.
 */
typedef int32_t (*zamc_reply_fn)(zamc_client *client, const zam_message *reply, void *arg);

/**
 * Learns that an activation has finished: the server has replayed what it had to, and publishes from now on. Runs
 * inside zamc_run(), as the handler of a request of the server.
 *
 * @param client The client that is active now.
 * @param finished 1.
 * @param user As given to zamc_activate().
 * @param reserved 0.
 * @return 0, #ZAMC_REPLY_LATER, or another value to tell the server of a failure, as for the handlers in
 * <zamc/suber.h>.
 */
typedef int32_t (*zamc_activate_fn)(zamc_client *client, int32_t finished, void *user, int32_t reserved);

/**
 * Makes a client, not yet connected. Builds the shared schema context when nobody has, see zamc_initialize().
 *
 * @param name How the server knows the client, copied; null makes it "null".
 * @param encode The encoding of what the client sends, a #zam_encode; 0 works as JSON.
 * @return The client, for zamc_client_free(); null on failure, logged.
 */
zamc_client *zamc_client_new(const char *name, uint32_t encode);

/**
 * Closes the connection and frees the client with all that it holds. Callbacks of requests still without a reply are
 * not called. Inside a handler or callback of the client the connection is closed at once and no further handler or
 * callback runs; the rest is freed when the outermost zamc_run() returns, which is then -1. Null is ignored.
 *
 * @param client Not to be used any more.
 */
void zamc_client_free(zamc_client *client);

/**
 * Connects to a server and registers with it, which takes one synchronous exchange. A connection that is there is
 * dropped first. Every subscription counts as not yet sent afterwards, also one marked for removal.
 *
 * @param client Connected or not.
 * @param url As zam_socket_connect() takes it, "unix:///run/zamd.sock" or "127.0.0.1:830".
 * @return The socket's descriptor, 0 or greater, which stays the client's; -1 when nobody listens there or the
 * registration failed, and the client is disconnected then; -3 for a null argument.
 */
int32_t zamc_connect(zamc_client *client, const char *url);

/**
 * Closes the connection, without a word to the server. The client can connect again. Null is ignored.
 *
 * @param client Connected or not.
 */
void zamc_disconnect(zamc_client *client);

/**
 * Sets an attribute.
 *
 * @param client May be connected; then the server may be told.
 * @param id A #zamc_attr, not a read-only one.
 * @param value Of the attribute's type, copied.
 * @param length Its size in bytes: exactly that of the type, or for a text what the caller wants to keep, NUL included.
 * @return 0; -1 when the server did not take it, -2 when memory is short, -3 for a null argument, an unknown or
 * read-only id or a wrong length. The old value stays in force unless the result is 0.
 */
int32_t zamc_set_attr(zamc_client *client, uint32_t id, const void *value, uint32_t length);

/**
 * Copies an attribute out.
 *
 * @param client Connected or not.
 * @param id A #zamc_attr.
 * @param buffer Receives the value, of the type that #zamc_attr gives.
 * @param length In: room in `buffer`, in bytes. Out, with result 0 only: the size of the value, as it was set.
 * @return 0; -1 when no value was ever set, -2 when copying failed, -3 for a null argument, an unknown id or too little
 * room.
 */
int32_t zamc_get_attr(zamc_client *client, uint32_t id, void *buffer, uint32_t *length);

/**
 * Asks the server for a sign of life and waits for it, 3 s after the last thing that arrived at most. What else arrives
 * is kept, in its order, for the next zamc_run().
 *
 * @param client A connected one.
 * @return 0 when the answer came; -1 when not, or without a connection, or for a null client.
 */
int32_t zamc_send_heartbeat(zamc_client *client);

/**
 * Asks the server whether all that the client has subscribed to was published to it and agreed.
 *
 * @param client A connected one.
 * @param consistent Receives the answer; false with any other result than 0, and when the answer is empty.
 * @return 0; -1 on any failure.
 */
int32_t zamc_consistency_check(zamc_client *client, bool *consistent);

/** @} */

/**
 * @name Requests to the server
 *
 * A request is an RPC, printed by the caller in JSON or XML, sent as a frame with a number of its own. Replies are
 * taken to come in the order of the requests: an asynchronous request that is still open when the reply to a later
 * asynchronous one arrives counts as lost. A server that goes on reading while a push or an operation waits for others
 * answers out of that order, so let the callback of such a request run before you send the next asynchronous one.
 *
 * A payload is read during the call only. One whose length is negative, or whose data is null although its length is
 * not 0, is refused with -3. Its format goes onto the wire as it is and need not be the client's encoding.
 *
 * A synchronous call waits without running any handler. What arrives meanwhile and is not the reply is kept, in its
 * order, and the server is asked for an echo, so that the next zamc_run() wakes up for it. The time-out counts from the
 * last thing that arrived: a server that keeps the connection busy can hold the caller for longer. The call ends at
 * once when the connection is closed, and goes on after a signal.
 * @{
 */

/**
 * Sends a request and waits for its reply.
 *
 * @param client A connected one.
 * @param payload The request as text; read during the call.
 * @param reply Receives the reply, for zamc_free_bytes(); null when it is empty, and on failure. Its data ends in a NUL
 * behind its length. An error that the server reports is a reply as well.
 * @param timeout_ms In ms, see above; -1 waits without limit.
 * @return 0; -1 when it could not be sent or no reply came; -3 for a null or invalid argument.
 */
int32_t zamc_send_rpc_sync(zamc_client *client, const zamc_bytes *payload, zamc_bytes **reply, int32_t timeout_ms);

/**
 * Sends a request and returns. The reply comes through zamc_run().
 *
 * @param client A connected one.
 * @param payload The request as text; read during the call.
 * @param callback Null when the reply does not matter.
 * @param arg Handed to the callback; kept by the caller until then.
 * @return 0; -1 when it could not be queued, and the callback is not called then; -3 for a null client or a null or
 * invalid payload.
 */
int32_t zamc_send_rpc_asyn(zamc_client *client, const zamc_bytes *payload, zamc_reply_fn callback, void *arg);

/**
 * Sends one frame.
 *
 * @param client A connected one.
 * @param type 0: a request whose reply is dropped; 3 or 5: see #zam_message_kind, sent with number 0.
 * @param payload Read during the call.
 * @return 0; -1 when it could not be queued, and for any other type; -3 for a null client, or for a null or invalid
 * payload, except with type 1, which gives -1 whatever the payload.
 */
int32_t zamc_send_message(zamc_client *client, uint32_t type, const zamc_bytes *payload);

/**
 * Sets the callback for frames that no other handler takes. Without one they are dropped, in bypass mode left waiting.
 *
 * @param client Connected or not.
 * @param callback Stays in force until another one is set.
 * @param arg Handed to the callback.
 * @return 0; -1 for a null client or callback.
 */
int32_t zamc_set_message_recv_cb(zamc_client *client, zamc_message_recv_fn callback, void *arg);

/** @} */

/**
 * @name Requests of the server
 *
 * The server asks the client with RPCs of the module orvel-zam-client: `publish`, which goes to the handler of one of
 * the subscriptions, and the two notices that an activation or deactivation has finished. Each request is owed one
 * answer, which the handler's result decides: 0 success, #ZAMC_REPLY_LATER an answer by zamc_reply_asyn() later, at any
 * time while the connection lasts; anything else failure.
 *
 * An error answer is an `rpc-error` with type "application", tag "operation-failed", the code as an unsigned decimal in
 * error-app-tag and the text in error-message. The handler sets both with zamc_error_set(); else they are 4294967293
 * (-3), "Service process failed". The library's own are -1 "System error" (memory), -2 "Message error" (a request that
 * does not parse, lacks something or is not supported) and -4 "Message is not processed" (no such subscriber, or one
 * without handler). A publication of an unknown type, and an operation whose content cannot be printed, stay
 * unanswered.
 *
 * While an answer is owed, replies to the client's own requests overtake requests of the server that arrived earlier:
 * the answer may depend on them.
 * @{
 */

/**
 * Waits for what the server sends and hands it to handlers and callbacks, until nothing has come for a whole time-out.
 * First of all it tells the callbacks of requests whose connection has ended, and then handles what has arrived
 * already.
 *
 * In bypass mode (#ZAMC_ATTR_RPC_BYPASS) the message callback gets every frame as it came: a request with type 0, owed
 * an answer by zamc_reply_asyn(), a reply with type 1, and types 2, 3 and 5.
 *
 * May be called again by a handler or callback: frames behind the one that is being handled are then handled inside
 * that call, and not once more later. When more than 32 calls are inside each other, the innermost leaves frames that
 * have arrived before it to the others.
 *
 * @param client A connected one; it may be freed by what is called here.
 * @param timeout_ms In ms; 0 handles what is there, -1 waits without limit.
 * @return 0 after an idle time-out; -1 when there is no connection, or no longer; -3 for a null client.
 */
int32_t zamc_run(zamc_client *client, int32_t timeout_ms);

/**
 * Records the error that answers the current request, or that of the next zamc_reply_asyn(), in place of the result and
 * of an earlier record. It is taken by the next error answer, whichever request that belongs to; so it is best set
 * right before returning or replying.
 *
 * @param client Null is ignored.
 * @param code The code, sent as unsigned 32-bit; 0 takes the record back.
 * @param format printf format of the text for people; null for none. Without memory for it there is none either.
 */
void zamc_error_set(zamc_client *client, int32_t code, const char *format, ...) ZAM_PRINTF(3, 4);

/**
 * Tells which request of the server is being handled. A handler that returns #ZAMC_REPLY_LATER keeps the number for
 * zamc_reply_asyn(). A server that counts from 0 has a request 0 as well, which zamc_reply_asyn() can only reach as the
 * oldest.
 *
 * @param client Null gives 0.
 * @return The number of the request whose handler is running, or in bypass mode whose message callback is; 0 outside.
 */
uint32_t zamc_request_seq(const zamc_client *client);

/**
 * Answers a request whose handler returned #ZAMC_REPLY_LATER.
 *
 * The answer is the recorded error when zamc_error_set() left one; else `output` as the result of `publish`, in bypass
 * mode unchanged as the payload; else success without output. Output that cannot be printed makes an error answer. A
 * handler may answer its own request in this way; its result then sends nothing more.
 *
 * @param client The one whose handler has returned #ZAMC_REPLY_LATER.
 * @param seq The request's number; 0 takes the oldest that is owed an answer. While any is owed, a number that is not
 * is sent an answer as well, and it is the server's to make sense of that.
 * @param output Read during the call; may be null.
 * @return 0; -1 when no answer is owed; -3 for a null client or output with a negative length or without its data.
 */
int32_t zamc_reply_asyn(zamc_client *client, uint32_t seq, const zamc_bytes *output);

/** @} */

/**
 * @name Subscriptions
 *
 * They are collected locally; zamc_activate() sends what changed since the last time. While an activation waits for its
 * finish, records that take part in it cannot be changed. A new connection starts from nothing: after zamc_connect()
 * every subscription is sent again by the next zamc_activate().
 * @{
 */

/**
 * Adds a subscription, or gives an existing one of the same target, type, mask and priority a new handler and user
 * data. The target is stored in its normal form; an incomplete filter mask is completed from attributes 6 and 7.
 * @param client  connected or not
 * @param node    read during the call
 * @return 0; -3 for a null argument, an unknown type, a mask with bits outside #zamc_filter_mask, a path that does not
 *         parse, or when memory for the record is short; -2 when memory for the list is short; -1 when the matching
 *         record is being activated
 */
int32_t zamc_subscribe(zamc_client *client, const zamc_sub_node *node);
/**
 * Marks the subscription of the same target, type, mask and priority for removal. It goes with the finish of the next
 * activation, and its slot (the `priv-data` on the wire) is then used again.
 * @param client  connected or not
 * @param node    read during the call; its handler and user data do not matter
 * @return 0, also when there is none; -3 as for zamc_subscribe(); -1 when the matching record is being activated
 */
int32_t zamc_unsubscribe(zamc_client *client, const zamc_sub_node *node);
/**
 * Sends new and removed subscriptions, in JSON whatever the client's encoding, then asks the server to publish.
 * @param client    a connected one
 * @param replay    non-zero: the data that exists is published to the newly active config-change subscriptions first
 * @param callback  called when the server reports the end of the activation; may be null
 * @param user      for the callback
 * @return 0 when the server accepted; -3 for a null client; else -1, also while another activation or deactivation
 * waits for its finish: the subscriptions have been sent then. When the connection is lost in between, the client waits
 *         until the next successful zamc_connect().
 */
int32_t zamc_activate(zamc_client *client, int32_t replay, zamc_activate_fn callback, void *user);
/**
 * Asks the server to stop publishing. The subscriptions stay known to it: the next zamc_activate() takes them up again.
 * @param client  a connected one
 * @return 0 when the server accepted; -3 for a null client; else -1
 */
int32_t zamc_deactivate(zamc_client *client);

/** @} */

/**
 * @name Data operations
 *
 * One synchronous exchange each, in the datastore of attribute 2, for at most the time of attribute 3 between two signs
 * of life of the connection. They return 0 for success, -3 for an invalid argument or path and when there is no memory
 * to read the path, -1 for any other failure: no connection, no answer, or an error of the server. Results are the
 * caller's to free with zamc_free_bytes(); the output is set to null first and stays null when there is no data.
 * @{
 */

/** What zamc_push() does with its content (RFC 6241, 7.2). */
enum zamc_push_operation {
    ZAMC_PUSH_MERGE = 0,   /**< adds the content to what is there */
    ZAMC_PUSH_REPLACE = 1, /**< puts it in the place of what is there */
    ZAMC_PUSH_CREATE = 2,  /**< fails when there is something */
    ZAMC_PUSH_REMOVE = 3,  /**< takes away what there may be */
    ZAMC_PUSH_DELETE = 4   /**< fails when there is nothing */
};

/**
 * Reads a subtree.
 * @param client   a connected one
 * @param version  1: as it was before the change that is being published; any other value: as it is now
 * @param path     data path; a list without keys gives all its entries, "/" everything
 * @param depth    levels below the node, 1 to 65535; -1 all. 0 is sent as it is, and refused by the server
 * @param out      JSON: the node's value, a string without its quotes and escapes; for "/" the object of all nodes.
 *                 XML: the elements
 * @return 0; -3 for an invalid argument or path; -1 for any other failure: no connection, no answer, or an error of
 *         the server
 */
int32_t zamc_pull(zamc_client *client, int32_t version, const char *path, int32_t depth, zamc_bytes **out);
/**
 * Changes the subtree at `path`.
 * @param client     a connected one
 * @param path       data path of what is changed; "/" when the content is a whole document
 * @param operation  one of #zamc_push_operation; any other number is refused
 * @param content    JSON: the node's value: an object or array, or a scalar without quotes around it but with JSON's
 *                   escapes inside; what would not give well-formed JSON is refused. XML: the node's element. Of length
 *                   0 for delete and remove. Its format is that of the request
 * @return 0; -3 for an invalid argument or path; -1 for any other failure: no connection, no answer, or an error of
 *         the server
 */
int32_t zamc_push(zamc_client *client, const char *path, int32_t operation, const zamc_bytes *content);
/**
 * Inside a config-change handler: the change that is being published, at and below `path`, as a document from the root
 * (zamc_parse_bytes() at "/") in which each node carries `ietf-netconf:operation` and, where they apply,
 * `orvel-zam-server:origin-value` and `orvel-zam-server:origin-position`.
 * @param client  the one whose handler is running
 * @param path    data path, often the target that the handler was told
 * @param depth   levels below the node; 0 and -1 all
 * @param out     the document as text; null when nothing changes there
 * @return 0; -3 for an invalid argument or path; -1 for any other failure: no connection, no answer, or an error of
 *         the server
 */
int32_t zamc_diff(zamc_client *client, const char *path, int32_t depth, zamc_bytes **out);
/**
 * The neighbours of an entry of a user-ordered list or leaf-list.
 * @param client   a connected one
 * @param version  0: after the change that is being published; any other value: before it
 * @param path     data path of the entry
 * @param out      the leaves prev-entity and post-entity, printed in the client's encoding; without a neighbour on one
 *                 side only the other leaf, without any no output
 * @return 0; -3 for an invalid argument or path; -1 for any other failure: no connection, no answer, or an error of
 *         the server
 */
int32_t zamc_locate(zamc_client *client, int32_t version, const char *path, zamc_bytes **out);
/**
 * Sends a notification on a stream.
 * @param client  a connected one
 * @param name    the stream's name
 * @param data    the notification, JSON or XML; its format is that of the request
 * @return 0; -3 for an invalid argument or path; -1 for any other failure: no connection, no answer, or an error of
 *         the server
 */
int32_t zamc_notify(zamc_client *client, const char *name, const zamc_bytes *data);

/** @} */

/**
 * @name The operator's terminal
 * @{
 */

/**
 * Shows text at the operator's command line that caused the publication being handled: an `appinfo` notification on the
 * stream "APPINFO".
 * @param client  the one whose handler is running
 * @param format  printf format of the text
 * @return 0; -3 for a null client; -2 when the text cannot be formatted; -1 when it cannot be built or sent
 */
int32_t zamc_cli_printf(zamc_client *client, const char *format, ...) ZAM_PRINTF(2, 3);
/**
 * Connects to the terminal service of a command-line instance, unix:///run/palmet/termdN.sock for instance N.
 * @param instance  number of the command-line instance
 * @return the connected descriptor, the caller's until zamc_return_tty(); -1 when there is none
 */
int32_t zamc_borrow_tty(uint32_t instance);
/**
 * Closes a borrowed descriptor; 0 and negative numbers are ignored, so descriptor 0 is never closed.
 *
 * @param fd  as zamc_borrow_tty() gave it
 */
void zamc_return_tty(int32_t fd);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
