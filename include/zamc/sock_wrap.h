/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
#ifndef ZAMC_SOCK_WRAP_H
#define ZAMC_SOCK_WRAP_H

/**
 * @file
 * Sockets by URL. An endpoint is named in one of these forms:
 *
 *     unix://PATH              a unix stream socket; PATH has at most 107 characters and no ":"
 *     unix://PATH:MODE         the same for listening; MODE is the file mode in octal, such as 660
 *     [tcp://]A.B.C.D:PORT     an IPv4 address and a decimal port
 *     [tcp://][IPV6]:PORT      an IPv6 address in brackets and a decimal port
 *     [tcp://]NAME:PORT        a name and port that the system's resolver understands
 *
 * Of the schemes only "unix" is looked at. Only the low 16 bits of a port number count. The resolver's answers are
 * tried from the last to the first.
 *
 * The calls may be used from any thread. Failures are logged where the description does not say otherwise.
 */

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Opens a listening socket with a backlog of 10. On a unix URL a file that is in the way is removed first, and the
 * socket's file gets the URL's mode; at no moment is it accessible to more users than the mode says.
 *
 * @param url Needs a port, or a mode with a unix path.
 * @return The descriptor, blocking and inherited by child processes, to be closed by the caller; -1 on failure, without
 *         a message when the URL has no address (such as an over-long path). errno tells why, or stays as it was, or is
 *         0 for a name that nobody knows.
 */
int32_t zam_socket_listen(const char *url);

/**
 * Removes the socket file of a unix URL; other URLs have nothing to remove. The listening socket is not closed.
 *
 * @param url The one that was listened on.
 */
void zam_socket_listen_release(const char *url);

/**
 * Connects, blocking, to the first address of the URL that answers. A signal does not end the attempt.
 *
 * @param url Needs a port, unless it is a unix path; a mode is ignored.
 * @return The descriptor, blocking and inherited by child processes, to be closed by the caller; -1 when the URL is
 *         wrong or, without a message, when it has no address or nobody answers.
 */
int32_t zam_socket_connect(const char *url);

/**
 * accept() as the system has it.
 * @param fd A listening socket.
 * @return The new descriptor, or -1 with errno set; nothing is logged.
 */
int32_t zam_socket_accept(int32_t fd);

/**
 * Makes a descriptor blocking, or non-blocking with `blocking` 0.
 *
 * @param fd Any descriptor.
 * @param blocking 0 or not 0.
 * @return 0 on success. On failure, what the logger returned for the message, which may be 0 as well: the log alone
 *         tells.
 */
int32_t zam_socket_block(int32_t fd, int32_t blocking);

/**
 * Sets the close-on-exec bit among the file status flags, where the system ignores it: descriptors stay inherited,
 * which programs that hand their connection to a helper count on. Use fcntl(fd, F_SETFD, FD_CLOEXEC) to change it.
 *
 * @param fd Any descriptor.
 * @return As zam_socket_block.
 */
int32_t zam_socket_cloexec(int32_t fd);

#ifdef __cplusplus
}
#endif

#endif
