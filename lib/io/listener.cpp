// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// A listening socket. Readiness becomes "EVENT_CONNECT_REQ"; accepting is left to the event's handler. An error event
// closes the listener: its owner hears "EVENT_LISTENER_CLOSE", and the done stage of the same round frees it, unless a
// handler has done so before.

#include <cstdint>

#include <sys/epoll.h>
#include <unistd.h>

#include <zamc/listener.h>
#include <zamc/logger.h>

#include "io/proactor_internal.h"
#include "runtime/mem_internal.h"

using zam::runtime::mem_new;
using zam::runtime::owned;

struct zam_listener {
    int32_t fd; // owned
    zam_proactor *proactor;
    zam_trigger *trigger; // owned
    uint8_t closed;
};

namespace {

constexpr uint32_t ready_events = EPOLLIN | EPOLLPRI;
constexpr uint32_t gone_events = EPOLLERR | EPOLLHUP | EPOLLRDHUP;

void _wake_listener(zam_proactor *proactor, void *arg, uint32_t events) {
    auto *listener = static_cast<zam_listener *>(arg);
    if (listener->closed) {
        zam_log_printf(ZAM_LOG_DEBUG, "Listener %d has been closed.\n", listener->fd);
    } else if (events & gone_events) {
        zam_log_printf(ZAM_LOG_WRONG, "Listener %d occurred some error event(0x%x).\n", listener->fd, events);
        zam_event_push(proactor, EVENT_LISTENER_CLOSE, listener, nullptr);
        listener->closed = 1;
    } else if (events & ready_events) {
        // The number, not the listener: the handler has nothing to do but accept.
        zam_event_push(proactor, EVENT_CONNECT_REQ, reinterpret_cast<void *>(static_cast<intptr_t>(listener->fd)),
                       nullptr);
    }
}

void _done_listener(zam_proactor *, void *arg) {
    auto *listener = static_cast<zam_listener *>(arg);
    if (listener->closed) zam_listener_free(listener);
}

// Everything of a listener, half-built ones included, but its socket.
void _discard_listener(zam_listener *listener) {
    zam_trigger_free(listener->trigger);
    zam_free(listener);
}

using half_built = owned<zam_listener, _discard_listener>;

} // namespace

zam_listener *zam_listener_new(zam_proactor *proactor, int32_t fd) {
    half_built listener{mem_new<zam_listener>()};
    if (!listener) {
        zam_log_printf(ZAM_LOG_EMERG, "Allocate memory for listener %d failed.\n", fd);
        return nullptr;
    }
    listener->fd = fd;
    listener->proactor = proactor;
    listener->trigger = zam_trigger_new(fd, listener.get(), _wake_listener, _done_listener);
    if (!listener->trigger || zam_trigger_arm(proactor, listener->trigger, EPOLLIN) != 0) {
        zam_log_printf(ZAM_LOG_WRONG, "Create listener %d failed.\n", fd);
        return nullptr;
    }
    zam_log_printf(ZAM_LOG_DEBUG, "Create listener %d success.\n", fd);
    return listener.release();
}

void zam_listener_free(zam_listener *listener) {
    if (!listener) return;
    const int32_t fd = listener->fd;
    zam_trigger_unarm(listener->proactor, listener->trigger);
    zam::io::drop_events_of(listener->proactor, listener);
    _discard_listener(listener);
    close(fd);
}
