/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
#ifndef ZAMC_LISTENER_H
#define ZAMC_LISTENER_H

/**
 * @file
 * A listening socket on a proactor.
 *
 * Each readiness queues EVENT_CONNECT_REQ, whose parameter is the number of the listening descriptor (not a pointer);
 * the handler accepts. As readiness is reported once per change, it accepts until nothing waits any more. An error
 * event of the socket queues EVENT_LISTENER_CLOSE, whose parameter is the listener, and the done stage of that round
 * frees the listener.
 */

#include <stdint.h>

#include <zamc/proactor.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A listening socket that a proactor watches. */
typedef struct zam_listener zam_listener;

/**
 * Watches a listening socket.
 * @param proactor Not owned; has to outlive the listener.
 * @param fd       A listening socket, such as zam_socket_listen returns, made non-blocking. Owned on success, still the
 *                 caller's on failure.
 * @return A listener that frees itself after an error event, or is freed with zam_listener_free; null on failure.
 */
zam_listener *zam_listener_new(zam_proactor *proactor, int32_t fd);

/**
 * Frees a listener and its queued close event, and closes its socket. Allowed in handlers. Null is ignored.
 *
 * @param listener Not to be used any more.
 */
void zam_listener_free(zam_listener *listener);

#ifdef __cplusplus
}
#endif

#endif
