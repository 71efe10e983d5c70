/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
#ifndef ZAMC_MESSAGE_H
#define ZAMC_MESSAGE_H

/**
 * @file
 * Frames, and the builders of requests and answers.
 */

#include <stdint.h>

#include <libyang/libyang.h>
#include <zamc/connector.h>
#include <zamc/format.h>
#include <zamc/vector.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @name Frames
 *
 * Everything between a client and the server travels in frames: a header of 16 bytes with numbers in network byte
 * order, then the payload.
 *
 *     0   magic 0x00FBBF00
 *     4   bits 0-3: encoding of the payload (enum zam_encode); bit 4 request, 5 reply, 6 type 2, 7 type 3
 *     5   bit 0: rewake; the rest 0
 *     6   reserved, 0 when sent and ignored when received
 *     8   sequence number
 *     12  payload length, not counting the header
 *
 * The functions keep no state and log nothing. They work on the connector's buffers under the connector's rules.
 * @{
 */

/** Types of frames. A received frame with several type bits has the type of the first, in the order of this list. */
enum zam_message_kind {
    ZAM_MESSAGE_REQUEST = 0, /**< An RPC that expects a reply; carries a fresh sequence number. */
    ZAM_MESSAGE_REPLY = 1,   /**< Answers the request with the same sequence number. */
    ZAM_MESSAGE_OTHER_2 = 2, /**< Left to the applications. */
    ZAM_MESSAGE_OTHER_3 = 3, /**< Left to the applications; sent with sequence number 0. */
    ZAM_MESSAGE_UNTYPED = 4, /**< A received frame without a type; it cannot be sent. */
    ZAM_MESSAGE_REWAKE = 5   /**< Keep-alive and its echo: sequence number 0, no payload. */
};

enum { ZAM_MESSAGE_HEADER_SIZE = 16 /**< Bytes of a header. */ };

/** A payload to send, or a frame found in a connector's input. */
typedef struct zam_message {
    uint32_t encoding; /**< enum zam_encode; only the low four bits are sent. */
    uint32_t length;   /**< Bytes of payload. */
    char *data;        /**< The payload, not ended by a NUL. Of a found frame: in the input, right behind its header. */
} zam_message;

/**
 * Queues a frame on the connector's output, whole or not at all. It is not sent: flush or wake the connector.
 *
 * @param connector Where to.
 * @param type    One of zam_message_kind but ZAM_MESSAGE_UNTYPED.
 * @param seq The sequence number.
 * @param message Borrowed for the call. Without length the data may be null.
 * @return 0, or -1 for any other type, a null argument or when memory is short.
 */
int32_t zam_message_push(zam_connector *connector, uint32_t type, uint32_t seq, const zam_message *message);

/**
 * Queues a reply to the request `seq`.
 * @param connector Where to.
 * @param seq The request's number.
 * @param message Borrowed for the call.
 * @return As zam_message_push.
 */
int32_t zam_send_reply(zam_connector *connector, uint32_t seq, const zam_message *message);

/**
 * Looks for a whole frame at the front of a connector's unread input.
 *
 * Bytes before the first magic number are skipped by moving the rest to the front of the area. The input keeps its
 * length, so as many bytes at its end stay behind and are looked at again as input; a peer that frames properly never
 * causes this.
 *
 * @param data    As zam_connector_readbuf returns it.
 * @param length  Bytes of input.
 * @param message Filled when a frame is found; its data is valid as long as `data` is.
 * @return 1 when there is a whole frame, 0 when there is none yet.
 */
int32_t zam_message_peek(char *data, uint32_t length, zam_message *message);

/**
 * Consumes the frame that zam_message_peek found at the front of the connector's input. The message's data is gone.
 *
 * @param connector Whose input it is at the front of.
 * @param message As zam_message_peek has filled it.
 */
void zam_message_pop(zam_connector *connector, const zam_message *message);

/**
 * Reads the number in the header in front of the payload.
 * @param message As zam_message_peek has filled it.
 * @return The sequence number of a found frame; 0 for null.
 */
uint32_t zam_message_seq(const zam_message *message);

/**
 * Reads the type in the header in front of the payload.
 * @param message As zam_message_peek has filled it.
 * @return The type of a found frame, one of zam_message_kind; ZAM_MESSAGE_UNTYPED for null.
 */
uint32_t zam_message_type(const zam_message *message);

/**
 * Tells whether a frame answers a request.
 * @param message As zam_message_peek has filled it.
 * @param seq The request's number.
 * @return 1 when a found frame has the reply bit and the sequence number `seq`, else 0.
 */
int32_t zam_message_is_reply(const zam_message *message, uint32_t seq);

/** @} */

/**
 * @name Requests and answers as trees
 *
 * One builder for each request of the modules orvel-zam-server and orvel-zam-client. `ctx` is the schema context that
 * holds both (zam_clients_schema_ctx). A builder returns a new tree whose root is the operation, to release with
 * zam_lyd_tree_destroy, or null: then it has logged the node that it could not make, and the step inside it that failed
 * has logged why. Arguments are copied; null for a text that a request needs is such a failure. Builders keep no state
 * and run on any thread.
 * @{
 */

/** What a client says about itself when it registers. */
typedef struct zam_register_attrs {
    int32_t encode;                /**< enum zam_encode: how the server is to encode what it sends */
    int32_t deadline;              /**< seconds until the server takes a silent client for offline; 0 is the default */
    const char *dependent_clients; /**< names separated by one blank, borrowed; null and "" send none */
    uint32_t api_version;          /**< 1 sends "v2", any other number "v1" */
} zam_register_attrs;

/**
 * The number of a subscription type. Letters must match exactly.
 *
 * @param text May be null.
 * @return 0 for "config-change", 1 for "status-query", 2 for "operation"; -1 for null and any other text.
 */
int32_t zam_xlate_subtype_str2enum(const char *text);

/**
 * The name of a push operation.
 *
 * @param operation 0 to 4.
 * @return "merge", "replace", "create", "remove", "delete" for 0 to 4; "unknown" for any other number. The text is a
 * constant.
 */
const char *zam_xlate_edit_enum2str(int32_t operation);

/**
 * The request that opens a session.
 *
 * @param name The client's.
 * @param attrs An encode number that the schema does not name fails.
 * @param ctx Holds both modules.
 * @return The tree, or null, see above.
 */
struct lyd_node *zam_message_build_register(const char *name, const zam_register_attrs *attrs,
                                            const struct ly_ctx *ctx);

/**
 * The request to subscribe: one entry for each record (zam_suber) of the vector whose status is exactly 0x101, in
 * vector order. Its priv-data is the record's index in the vector, which the server echoes with each publication. Only
 * the two config-change types send a priority, which must stay below 2^31, and a filter mask, which must hold at least
 * one bit of enum zamc_filter_mask; other bits are ignored. The vector is read without locking.
 *
 * @param subers Of zam_suber; null holds none.
 * @param ctx Holds both modules.
 * @return the tree, also when no record waits: then its container `subscriptions` is empty.
 */
struct lyd_node *zam_message_build_subscribe(const zam_vector *subers, const struct ly_ctx *ctx);

/**
 * As zam_message_build_subscribe, for the records whose status is exactly 0x201, without priv-data.
 *
 * @param subers Of zam_suber; null holds none.
 * @param ctx Holds both modules.
 * @return As zam_message_build_subscribe.
 */
struct lyd_node *zam_message_build_unsubscribe(const zam_vector *subers, const struct ly_ctx *ctx);

/**
 * The request to start publications.
 *
 * @param replay Not 0: mode "replay"; 0: "direct".
 * @param ctx Holds both modules.
 * @return The tree, or null, see above.
 */
struct lyd_node *zam_message_build_activate(int32_t replay, const struct ly_ctx *ctx);

/**
 * The request to stop publications.
 *
 * @param ctx Holds both modules.
 * @return The tree, or null, see above.
 */
struct lyd_node *zam_message_build_deactivate(const struct ly_ctx *ctx);

/**
 * The request to read a subtree.
 *
 * @param datastore an identity such as "ietf-datastores:startup"; null means "ietf-datastores:running".
 * @param version 1 asks for the "last" version, any other number for the "current" one.
 * @param entity the path of the subtree.
 * @param depth levels below the entity, 1 to 65535; -1 for all. 0 is sent as 0, outside the schema's range, for the
 *        server to judge.
 * @param ctx Holds both modules.
 * @return The tree, or null, see above.
 */
struct lyd_node *zam_message_build_pull(const char *datastore, int32_t version, const char *entity, int32_t depth,
                                        const struct ly_ctx *ctx);

/**
 * The request to change a subtree.
 *
 * XML content is one or more elements, parsed and printed again by libyang. JSON content goes out byte for byte,
 * wrapped as an object that names it after the entity's last node (zam_add_name); without text it is the empty string.
 * It can only be printed in JSON.
 *
 * @param datastore as for pull: null means running here too, not the schema's default.
 * @param entity The path of the subtree.
 * @param operation a name from zam_xlate_edit_enum2str.
 * @param content of format ZAM_ENCODE_XML or ZAM_ENCODE_JSON; null and any other format are refused.
 * @param ctx Holds both modules.
 * @return The tree, or null, see above.
 */
struct lyd_node *zam_message_build_push(const char *datastore, const char *entity, const char *operation,
                                        const zamc_bytes *content, const struct ly_ctx *ctx);

/**
 * The request for the change that is being published.
 *
 * @param datastore An identity as for pull; null means running.
 * @param entity The path of the subtree.
 * @param depth Levels below the entity; -1 for all, and 0 is sent as -1.
 * @param ctx Holds both modules.
 * @return The tree, or null, see above.
 */
struct lyd_node *zam_message_build_diff(const char *datastore, const char *entity, int32_t depth,
                                        const struct ly_ctx *ctx);

/**
 * The request for the neighbours of an entry of a user-ordered list.
 *
 * @param datastore An identity as for pull; null means running.
 * @param version 0 asks for the "current" version, any other number for the "last" one.
 * @param entity The entry's path.
 * @param ctx Holds both modules.
 * @return The tree, or null, see above.
 */
struct lyd_node *zam_message_build_locate(const char *datastore, int32_t version, const char *entity,
                                          const struct ly_ctx *ctx);

/**
 * The request that passes a notification on. The data stands beside the stream, directly in the operation.
 *
 * @param name Of the stream.
 * @param data Of format ZAM_ENCODE_XML or ZAM_ENCODE_JSON. JSON goes out byte for byte, without a wrapper.
 * @param ctx Holds both modules.
 * @return The tree, or null, see above.
 */
struct lyd_node *zam_message_build_notify(const char *name, const zamc_bytes *data, const struct ly_ctx *ctx);

/**
 * The answer to a publication.
 *
 * @param reply Becomes the content of its `data`, XML through libyang, JSON byte for byte; null and one of length 0
 * make an empty `data`.
 * @param ctx Holds both modules.
 * @return The tree, or null as above, and without a line for a format other than XML and JSON.
 */
struct lyd_node *zam_message_build_publish_output(const zamc_bytes *reply, const struct ly_ctx *ctx);

/**
 * The notification with a text to display.
 *
 * @param text For the operator.
 * @param ctx Holds both modules.
 * @return The tree, or null as above, and without a line when the text or the context is null.
 */
struct lyd_node *zam_message_build_appinfo(const char *text, const struct ly_ctx *ctx);

/**
 * The request whether all that a client subscribed to has reached it.
 *
 * @param name The client's.
 * @param ctx Holds both modules.
 * @return The tree, or null, see above.
 */
struct lyd_node *zam_message_build_verify_cfg(const char *name, const struct ly_ctx *ctx);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
