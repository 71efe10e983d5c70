/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
#ifndef ZAMC_PROACTOR_H
#define ZAMC_PROACTOR_H

/**
 * @file
 * The event engine: descriptors that become ready turn into named events in a queue.
 *
 * A proactor has an epoll instance, a registry of event handlers and a queue. A trigger binds one descriptor to a wake
 * handler. The owner runs rounds:
 *
 *     zam_trigger *trigger = zam_proactor_wait(proactor, timeout_ms);
 *     if (!trigger) return;
 *     for (zam_event *event; (event = zam_event_pop(proactor)); zam_event_free(event)) {
 *         zam_event_dispatch(proactor, event);
 *     }
 *     zam_proactor_done(proactor, trigger);
 *
 * A proactor, its triggers, its registry and its queue belong to one thread at a time; nothing is locked. Another
 * thread reaches a proactor only through a descriptor that it watches.
 */

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** An event engine. */
typedef struct zam_proactor zam_proactor;
/** A descriptor with its wake handler. */
typedef struct zam_trigger zam_trigger;
/** The handlers of events. */
typedef struct zam_registry zam_registry;
/** An event in or out of the queue. */
typedef struct zam_event zam_event;

/**
 * The list of events. The library raises 0 to 3, 19 and 22; the other numbers are kept for other users of the list and
 * neither raised nor handled here.
 */
enum zam_event_id {
    EVENT_LISTENER_CLOSE = 0, /**< A listener got an error event. Parameter: the listener. */
    EVENT_CONNECT_REQ = 1,    /**< A connection waits to be accepted. Parameter: the listening descriptor's number. */
    EVENT_CONNECT_CLOSE = 2,  /**< The peer is gone or a transfer failed. Parameter: the connector. */
    EVENT_MESSAGE_RECV = 3,   /**< The socket has been read until drained. Parameter: the connector. */
    EVENT_CLIENT_ONLINE = 4,
    EVENT_CLIENT_OFFLINE = 5,
    EVENT_PUB_RPC_REQ = 6,
    EVENT_PUB_RPC_RSP = 7,
    EVENT_PUB_RPC_END = 8,
    EVENT_PUB_CFG_REQ = 9,
    EVENT_PUB_CFG_RSP = 10,
    EVENT_PUB_CFG_END = 11,
    EVENT_PUB_GET_REQ = 12,
    EVENT_PUB_GET_RSP = 13,
    EVENT_PUB_GET_END = 14,
    EVENT_SET_STATE_DATA = 15,
    EVENT_CFG_RESTORE_REQ = 16,
    EVENT_CFG_RESTORE_END = 17,
    EVENT_SESSION_CLOSE = 18,
    EVENT_CONNECT_READ_IDLE = 19, /**< A connector's read-busy flag has been cleared. Parameter: the connector. */
    EVENT_NC_HELLO_REQ = 20,
    EVENT_NC_HELLO_RSP = 21,
    EVENT_NEW_JOB = 22 /**< A job was submitted without workers. Parameter: the job. */
};

/**
 * Called from zam_proactor_wait when the descriptor of a trigger is ready.
 *
 * `events` is the mask of ready events as epoll reports it. Readiness is reported once per change, so the handler
 * reads until the descriptor is drained, or re-arms the trigger. It may free the trigger, not the proactor.
 */
typedef void (*zam_wake_fn)(zam_proactor *proactor, void *arg, uint32_t events);

/** Called from zam_proactor_done, after the events of the round. It may free the trigger. */
typedef void (*zam_done_fn)(zam_proactor *proactor, void *arg);

/**
 * Handles an event, on the thread that dispatches. `para` is what was pushed; the event's release function runs after
 * the handler. The handler may push, pop, run rounds of its own and free triggers; its result is not used.
 */
typedef int32_t (*zam_event_fn)(zam_proactor *proactor, uint32_t id, void *para);

/** Releases the parameter of an event that is freed or could not be queued. */
typedef void (*zam_event_release_fn)(void *para);

/**
 * Makes a proactor.
 * @return A proactor with an empty queue and no registry, to be freed with zam_proactor_free; null on failure.
 */
zam_proactor *zam_proactor_new(void);

/**
 * Frees a proactor and every event still queued, running their release functions. The registry and the triggers are
 * not freed; triggers may be freed later, connectors and listeners have to be freed before. The epoll descriptor is
 * closed unless it is 0: a process that closed its standard input may count on that number. Null is ignored.
 *
 * @param proactor Not to be used any more.
 */
void zam_proactor_free(zam_proactor *proactor);

/**
 * Sets the registry that dispatches use, or none with null. It stays the caller's and has to outlive its use.
 *
 * @param proactor Null is ignored.
 * @param registry Replaces the one before.
 */
void zam_proactor_registry_set(zam_proactor *proactor, zam_registry *registry);

/**
 * Waits for one ready descriptor and runs its trigger's wake handler.
 *
 * @param proactor May be null.
 * @param timeout_ms Milliseconds to wait at most; 0 only looks, a negative number waits for ever. A signal that
 *                   interrupts the wait does not end it: it goes on for the rest of its time.
 * @return The trigger, for zam_proactor_done, also when its wake handler freed it. Null when the time is over, on an
 *         error and for a null proactor; callers need not tell these apart.
 */
zam_trigger *zam_proactor_wait(zam_proactor *proactor, int32_t timeout_ms);

/**
 * Ends a round: calls the trigger's done handler, if it has one. A trigger that a handler freed during the round is
 * recognised by its address alone, and nothing happens. Null arguments are ignored.
 *
 * @param proactor The one that was waited for.
 * @param trigger As zam_proactor_wait returned it; may be freed by now.
 */
void zam_proactor_done(zam_proactor *proactor, zam_trigger *trigger);

/**
 * Binds a descriptor to what is done when it is ready.
 * @param fd   The descriptor to watch. Not owned: freeing the trigger does not close it.
 * @param arg  Handed to both handlers.
 * @param wake Called when the descriptor is ready; with null, its readiness counts as a time-out of the wait.
 * @param done Called at the end of a round; may be null.
 * @return A trigger to be freed with zam_trigger_free, not armed yet; null when memory is short.
 */
zam_trigger *zam_trigger_new(int32_t fd, void *arg, zam_wake_fn wake, zam_done_fn done);

/**
 * Frees a trigger, nothing else: unarm it first, or close its descriptor. Null is ignored.
 *
 * @param trigger Not to be used any more.
 */
void zam_trigger_free(zam_trigger *trigger);

/**
 * Starts watching the trigger's descriptor for `events`, a mask of epoll events. Edge triggering and EPOLLRDHUP are
 * always added.
 *
 * @param proactor Who watches.
 * @param trigger Not armed yet.
 * @param events EPOLLIN, EPOLLOUT and others.
 * @return 0, or -1 when the proactor or the trigger is null or the system refuses.
 */
int32_t zam_trigger_arm(zam_proactor *proactor, zam_trigger *trigger, uint32_t events);

/**
 * Changes what an armed trigger is watched for, as zam_trigger_arm takes it. The current readiness is reported again,
 * also with an unchanged mask: this is how to be woken for what an earlier wake left undone.
 *
 * @param proactor Who watches.
 * @param trigger An armed one.
 * @param events EPOLLIN, EPOLLOUT and others.
 * @return 0, or -1.
 */
int32_t zam_trigger_rearm(zam_proactor *proactor, zam_trigger *trigger, uint32_t events);

/**
 * Stops watching. A failure is only traced: the descriptor may have been closed already, which stops the watch, too.
 *
 * @param proactor Who watches.
 * @param trigger An armed one.
 */
void zam_trigger_unarm(zam_proactor *proactor, zam_trigger *trigger);

/**
 * Makes an empty registry with the smallest power of two of slots, at least 2, that is not below `count`. The slot of
 * an event is given by the low bits of its id, and a slot holds one event: ids that differ only above those bits
 * exclude each other. 23 is enough for the whole list.
 *
 * @param count How many slots are wanted.
 * @return A registry to be freed with zam_registry_free; null when memory is short or there is no such power of two.
 */
zam_registry *zam_registry_new(uint32_t count);

/**
 * Frees a registry that no proactor uses any more. Null is ignored.
 *
 * @param registry Not to be used any more.
 */
void zam_registry_free(zam_registry *registry);

/**
 * Sets the handler of an event. An earlier handler of the same event is replaced; another event in the same slot is
 * replaced as well, with a warning. With a null handler the event is known and ignored.
 *
 * @param registry Null is ignored.
 * @param id Of enum zam_event_id.
 * @param handler Null to ignore the event.
 */
void zam_event_register(zam_registry *registry, uint32_t id, zam_event_fn handler);

/**
 * Takes an event out of the registry; one that is not in it changes nothing and is logged.
 *
 * @param registry Null is ignored.
 * @param id Of enum zam_event_id.
 */
void zam_event_unregister(zam_registry *registry, uint32_t id);

/**
 * Queues an event behind all others.
 *
 * @param proactor Whose queue it is.
 * @param id Of enum zam_event_id.
 * @param para    Handed to the handler.
 * @param release Called with `para` when the event is freed; may be null. When the event cannot be queued it is called
 *                at once, so the parameter is out of the caller's hands in any case.
 * @return 0, or -1 when memory is short or the proactor is null.
 */
int32_t zam_event_push(zam_proactor *proactor, uint32_t id, void *para, zam_event_release_fn release);

/**
 * Takes the oldest event out of the queue.
 * @param proactor Null has none.
 * @return The oldest queued event, now the caller's, to be freed with zam_event_free; null when there is none.
 */
zam_event *zam_event_pop(zam_proactor *proactor);

/**
 * Calls the event's handler. An event that is not registered is logged. The event stays the caller's.
 *
 * @param proactor Whose registry knows the handler.
 * @param event A popped one.
 */
void zam_event_dispatch(zam_proactor *proactor, zam_event *event);

/**
 * Reads an event.
 * @param event May be null.
 * @return The event's id, or 0xFFFFFFFF for null.
 */
uint32_t zam_event_id(const zam_event *event);

/**
 * Reads what came with an event.
 * @param event May be null.
 * @return The event's parameter, valid until the event is freed at least; null for a null event.
 */
void *zam_event_para(const zam_event *event);

/**
 * Frees a popped event, running its release function. Null is ignored.
 *
 * @param event Not to be used any more.
 */
void zam_event_free(zam_event *event);

/**
 * Names an event for the log.
 * @param id Of enum zam_event_id.
 * @return The constant name of an event, "UNKNOWN" for an id above the list.
 */
const char *zam_event_name(uint32_t id);

#ifdef __cplusplus
}
#endif

#endif
