/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
#ifndef ZAMC_SUBER_H
#define ZAMC_SUBER_H

/**
 * @file
 * Subscriptions, and the handlers that they call.
 */

#include <stdint.h>

#include <zamc/format.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A client of the datastore server; see <zamc/client.h>. */
typedef struct zamc_client zamc_client;

/** What a subscription is called for. */
enum zamc_sub_type {
    ZAMC_SUB_CONFIG_CHANGE = 0,      /**< changes of the configuration, with the list-more flag */
    ZAMC_SUB_STATUS_QUERY = 1,       /**< queries of operational state */
    ZAMC_SUB_OPERATION = 2,          /**< an RPC or action */
    ZAMC_SUB_CONFIG_CHANGE_BRIEF = 3 /**< changes of the configuration, without the list-more flag */
};

/**
 * What of a config-change subscription is wanted, and in a handler's mask what happened. In a subscription, no
 * operation bit means the client's default operations, no scene bit its default scenes (attributes 6 and 7). A
 * handler's mask carries #ZAMC_SCENE_CFGR for a replay. The reference server asks about a change in the normal scene
 * only those who name that scene; who agreed to a change that is taken back is told so, and who asked for a replay gets
 * it, whatever the mask.
 */
enum zamc_filter_mask {
    ZAMC_CONFIG_CREATE = 0x1,   /**< the node comes about */
    ZAMC_CONFIG_DELETE = 0x2,   /**< it goes */
    ZAMC_CONFIG_UPDATE = 0x4,   /**< its value or what is below it changes */
    ZAMC_CONFIG_MOVE = 0x8,     /**< it has another place in a list that the user orders */
    ZAMC_CURB_DELETE = 0x10,    /**< carried to the server, which makes of it what it will */
    ZAMC_CURB_CREATE = 0x20,    /**< likewise */
    ZAMC_SCENE_NORMAL = 0x80,   /**< a change that is asked for now */
    ZAMC_SCENE_CFGR = 0x100,    /**< the replay of what is there already */
    ZAMC_SCENE_ROLLBACK = 0x200 /**< a change is taken back that this client had agreed to */
};

/** What a handler may return besides 0 and failures. */
enum { ZAMC_REPLY_LATER = 50000 /**< the answer comes later, through zamc_reply_asyn() */ };

/**
 * @name Handlers
 *
 * Handlers run on the thread that is inside zamc_run() of their client, and nowhere else. What they are handed is valid
 * during the call only. They may call the library for their client; <zamc/client.h> says what holds then. They return 0
 * for success, ZAMC_REPLY_LATER, or any other number for failure: the server is then told what zamc_error_set()
 * recorded during the call, else "Service process failed".
 * @{
 */

/**
 * The configuration below a subscription's target changes, and this client is asked to agree.
 * @param client     the client that subscribed
 * @param mask       what happens (operation bits) in which scene (scene bits), as #zamc_filter_mask
 * @param priority   the priority of the subscription
 * @param list_more  1 when further entries of the same list follow in publications of their own, else 0
 * @param target     instance path of the node that changes
 * @param user       as given with the subscription
 * @return 0 for success, #ZAMC_REPLY_LATER, or any other number for failure
 */
typedef int32_t (*zamc_config_fn)(zamc_client *client, uint32_t mask, uint32_t priority, int32_t list_more,
                                  const char *target, void *user);
/**
 * As zamc_config_fn, without the list-more flag.
 * @param client     the client that subscribed
 * @param mask       as there
 * @param priority   as there
 * @param target     as there
 * @param user       as there
 * @return 0 for success, #ZAMC_REPLY_LATER, or any other number for failure
 */
typedef int32_t (*zamc_config_brief_fn)(zamc_client *client, uint32_t mask, uint32_t priority, const char *target,
                                        void *user);
/**
 * The operational state below a target is wanted.
 * @param client    the client that subscribed
 * @param target    instance path of what is asked for
 * @param reserved  null
 * @param output    null on entry; receives the value at the target, made with zamc_new_bytes(), which the client frees.
 *                  Left null there is nothing to report. JSON: the value of the node (an object or array); XML: its
 *                  element.
 * @param user      as given with the subscription
 * @return 0 for success, #ZAMC_REPLY_LATER, or any other number for failure
 */
typedef int32_t (*zamc_status_fn)(zamc_client *client, const char *target, void *reserved, zamc_bytes **output,
                                  void *user);
/**
 * An operation is to be carried out.
 * @param client  the client that subscribed
 * @param input   its input parameters as an object (JSON) or as elements (XML); "{}" and an empty text when there are
 *                none
 * @param output  null on entry; receives the output parameters in the same form, made with zamc_new_bytes(), which the
 *                client frees; left null for an operation without output
 * @param user    as given with the subscription
 * @return 0 for success, #ZAMC_REPLY_LATER, or any other number for failure
 */
typedef int32_t (*zamc_operation_fn)(zamc_client *client, const zamc_bytes *input, zamc_bytes **output, void *user);

/** @} */

/** A subscription as the application describes it; read during the call only. */
typedef struct zamc_sub_node {
    const char *target; /**< data path or schema path */
    int32_t type;       /**< one of #zamc_sub_type */
    union {
        uint32_t priority;           /**< types 0 and 3: lower numbers are asked first */
        zamc_status_fn status;       /**< type 1 */
        zamc_operation_fn operation; /**< type 2 */
    };
    uint32_t filter_mask; /**< types 0 and 3: bits of #zamc_filter_mask */
    union {
        zamc_config_fn config;             /**< type 0 */
        zamc_config_brief_fn config_brief; /**< type 3 */
    };
    void *user; /**< handed to the handler untouched */
} zamc_sub_node;

/**
 * A subscription as the client keeps it: one block, the target's text behind the record. Its slot in the client's
 * vector is the `priv-data` that the server echoes. The request builders of <zamc/message.h> read it.
 */
typedef struct zam_suber {
    char *target; /**< normal form of the path */
    int32_t type; /**< one of #zamc_sub_type */
    union {
        uint32_t priority;                   /**< types 0 and 3 */
        zamc_status_fn status_handler;       /**< type 1 */
        zamc_operation_fn operation_handler; /**< type 2 */
    };
    uint32_t filter_mask; /**< types 0 and 3: bits of #zamc_filter_mask, complete */
    union {
        zamc_config_fn config_handler;             /**< type 0 */
        zamc_config_brief_fn config_brief_handler; /**< type 3 */
    };
    void *user;      /**< handed to the handler untouched */
    uint32_t status; /**< 0x101 to be subscribed, 0x201 to be unsubscribed, 0x102/0x202 sent, 0x104/0x204 activating,
                          0x008 active */
} zam_suber;

#ifdef __cplusplus
}
#endif

#endif
