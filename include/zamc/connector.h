/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
#ifndef ZAMC_CONNECTOR_H
#define ZAMC_CONNECTOR_H

/**
 * @file
 * A connected, non-blocking stream socket with a buffer in each direction.
 *
 * When the socket is ready its wake handler moves bytes and queues events on the proactor: EVENT_MESSAGE_RECV after
 * each drained read, also when it brought nothing new, and EVENT_CONNECT_CLOSE once, when the peer is gone or a
 * transfer fails. Transfer errors have no other way to the owner. What the owner writes leaves in the done stage of
 * the round, with zam_connector_flush, or with the wake that zam_connector_wake_io asks for. Writing to a peer that is
 * gone raises no signal.
 *
 * The input grows with what the peer sends; there is no limit below that of the buffer, 4 GiB. A connector is used by
 * one thread at a time: the one that runs its proactor's rounds, or one that holds a lock of the owner's.
 */

#include <stdint.h>

#include <zamc/proactor.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A socket with its buffers. */
typedef struct zam_connector zam_connector;

/** Called in the done stage of a closed connector that is not read-busy, once per stage. It may free the connector. */
typedef void (*zam_connector_close_fn)(zam_connector *connector);

/**
 * Makes a connector and arms it for reading and writing.
 *
 * @param proactor Not owned; has to outlive the connector.
 * @param fd       A connected, non-blocking stream socket; other stream descriptors work, too. Owned on success, still
 *                 the caller's on failure.
 * @param context  The owner's pointer, never looked into.
 * @return A connector to be freed with zam_connector_free; null on failure.
 */
zam_connector *zam_connector_new(zam_proactor *proactor, int32_t fd, void *context);

/**
 * Closes the socket and frees the connector together with its buffers and with every queued event whose parameter it
 * is. Allowed in handlers; the round's done stage then passes it over. The close callback is not called. Null is
 * ignored.
 *
 * @param connector Not to be used any more.
 */
void zam_connector_free(zam_connector *connector);

/**
 * Appends `length` bytes to the output; nothing is sent yet.
 *
 * @param connector Where to.
 * @param data Copied.
 * @param length In bytes.
 * @return 0, or -1 when memory is short or an argument is null.
 */
int32_t zam_connector_write(zam_connector *connector, const void *data, uint32_t length);

/**
 * Takes the last `length` bytes of the output back, or all that is left of it.
 *
 * @param connector Null is ignored.
 * @param length In bytes.
 */
void zam_connector_recall(zam_connector *connector, uint32_t length);

/**
 * Has the proactor report the socket's current readiness again, so that output is written and input read by the next
 * wake.
 *
 * @param connector Null does nothing.
 * @return 0, also for null, or -1.
 */
int32_t zam_connector_wake_io(zam_connector *connector);

/**
 * Writes the output now. Stops silently when the socket is full or fails; the rest stays and leaves with a later wake,
 * where an error shows.
 *
 * @param connector Null is ignored.
 */
void zam_connector_flush(zam_connector *connector);

/**
 * Shows what has been read and not been consumed.
 * @param connector Null has no input.
 * @param length Takes the number of unread bytes; may be null.
 * @return The unread input, followed by a NUL, or null when there is none. Valid until the input changes: the next
 *         consume, re-entry or wake, or the connector's end. The bytes may be changed in place.
 */
char *zam_connector_readbuf(zam_connector *connector, uint32_t *length);

/**
 * Drops `length` bytes from the front of the input, or all. The pointer of zam_connector_readbuf ends with it.
 *
 * @param connector Null is ignored.
 * @param length In bytes.
 */
void zam_connector_consume(zam_connector *connector, uint32_t length);

/**
 * Appends bytes to the unread input, to be read again. The receive event is not pushed by this; zam_connector_wake_io
 * brings one.
 *
 * @param connector Where to.
 * @param data Not in the connector's own input, which may move.
 * @param length In bytes.
 * @return 0, or -1 when memory is short or an argument is null.
 */
int32_t zam_connector_reentry(zam_connector *connector, const void *data, uint32_t length);

/**
 * Reads the pointer that zam_connector_new was given.
 * @param connector May be null.
 * @return The owner's pointer; null for null.
 */
void *zam_connector_context(const zam_connector *connector);

/**
 * Replaces the owner's pointer.
 *
 * @param connector Null is ignored.
 * @param context Never looked into; may be null.
 */
void zam_connector_set_context(zam_connector *connector, void *context);

/**
 * Tells whether the connection is over.
 * @param connector May be null.
 * @return 1 once the connector is closed, else 0; a null connector counts as closed.
 */
uint8_t zam_connector_closed(const zam_connector *connector);

/**
 * Marks the connector as closed, for good. Its wakes do nothing from now on and no close event is queued; the close
 * callback runs in the next done stage.
 *
 * @param connector Null is ignored.
 */
void zam_connector_set_closed(zam_connector *connector);

/**
 * Tells whether the owner still works on the input.
 * @param connector May be null.
 * @return The read-busy flag; 0 for null.
 */
uint8_t zam_connector_rbusy(const zam_connector *connector);

/**
 * Sets or clears the read-busy flag, which holds a closed connector's close callback back while the owner still works
 * on its input. Clearing it, set or not, queues EVENT_CONNECT_READ_IDLE.
 *
 * @param connector Null is ignored.
 * @param busy Not 0 to set the flag.
 */
void zam_connector_set_rbusy(zam_connector *connector, uint8_t busy);

/**
 * Sets the close callback, or none with null.
 *
 * @param connector Null is ignored.
 * @param callback Replaces the one before.
 */
void zam_connector_reg_close_cb(zam_connector *connector, zam_connector_close_fn callback);

#ifdef __cplusplus
}
#endif

#endif
