// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The proactor: readiness of descriptors becomes queued, named events.
//
// One round of an owner's loop is wait, dispatch, done. wait reports one ready descriptor and runs the wake handler of
// its trigger, which pushes events; the owner pops and dispatches them; done ends the round with the trigger's done
// handler. Handlers run in the middle of that and free what they like, above all the connector that the round belongs
// to, so the trigger in the owner's hand may name memory that is gone when done is called.
//
// Invariants that make this safe:
//   - From its first arm until it is freed, a trigger is linked into `triggers` of the proactor that armed it last.
//   - Only armed triggers come out of wait. Once one of them has been freed (`lost_trigger`), done calls nothing for an
//     address that is not linked. It compares addresses and never looks into the record to find out.
//   - A freed proactor unlinks its triggers, so that freeing them afterwards touches nothing of it.

#include "io/proactor_internal.h"

#include <cerrno>
#include <cstddef>
#include <sys/epoll.h>
#include <unistd.h>

#include <zamc/logger.h>

#include "io/errno_text.h"
#include "platform/clock.h"
#include "runtime/mem_internal.h"

using zam::io::errno_text;
using zam::platform::monotonic_ms;
using zam::runtime::mem_new;
using zam::runtime::owned_block;

struct zam_trigger {
    int32_t fd; // not owned
    void *arg;
    zam_wake_fn wake;
    zam_done_fn done;
    zam_dlist_node link; // in the proactor that armed it last
};

namespace {

constexpr uint32_t always_armed = static_cast<uint32_t>(EPOLLET) | static_cast<uint32_t>(EPOLLRDHUP);

// epoll_wait for one event. A signal is none of the callers' business: their wait goes on for the rest of its time.
int _wait_for_one(int32_t epoll_fd, epoll_event *event, int32_t timeout_ms) {
    const int64_t deadline = timeout_ms > 0 ? monotonic_ms() + timeout_ms : 0;
    for (;;) {
        const int ready = epoll_wait(epoll_fd, event, 1, timeout_ms);
        if (ready >= 0 || errno != EINTR || timeout_ms == 0) return ready;
        if (timeout_ms < 0) continue;
        const int64_t left = deadline - monotonic_ms();
        if (left <= 0) return 0;
        timeout_ms = static_cast<int32_t>(left);
    }
}

bool _is_linked(const zam_proactor *proactor, const zam_trigger *trigger) {
    for (const zam_dlist_node *node = proactor->triggers.head; node; node = node->next) {
        if (node == &trigger->link) return true;
    }
    return false;
}

void _link_trigger(zam_proactor *proactor, zam_trigger *trigger) {
    if (trigger->link.list == &proactor->triggers) return;
    if (trigger->link.list) zam_dlist_remove(trigger->link.list, &trigger->link);
    zam_dlist_append(&proactor->triggers, &trigger->link);
}

void _unlink_trigger(zam_trigger *trigger) {
    zam_dlist *list = trigger->link.list;
    if (!list) return;
    auto *home = reinterpret_cast<zam_proactor *>(reinterpret_cast<char *>(list) - offsetof(zam_proactor, triggers));
    home->lost_trigger = 1;
    zam_dlist_remove(list, &trigger->link);
}

void _orphan_trigger(zam_dlist_node *node) {
    *node = {};
}

// One by one, since a release function may still push.
void _free_events(zam_proactor *proactor) {
    while (zam_dlist_node *node = proactor->events.head) {
        zam_dlist_remove(&proactor->events, node);
        zam_event_free(reinterpret_cast<zam_event *>(node));
    }
}

int _control(const zam_proactor *proactor, int operation, zam_trigger *trigger, uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.ptr = trigger;
    return epoll_ctl(proactor ? proactor->epoll_fd : -1, operation, trigger->fd, &event);
}

} // namespace

void zam::io::on_proactor_gone(zam_proactor *proactor, proactor_gone_fn gone) {
    if (proactor) proactor->gone = gone;
}

zam_proactor *zam_proactor_new(void) {
    owned_block<zam_proactor> proactor{mem_new<zam_proactor>()};
    if (!proactor) {
        zam_log_printf(ZAM_LOG_EMERG, "Allocate memory for proactor unsuccessful.\n");
        return nullptr;
    }
    proactor->epoll_fd = epoll_create(1);
    if (proactor->epoll_fd < 0) {
        zam_log_printf(ZAM_LOG_WRONG, "Create epoll fd for proactor failed(%s).\n", errno_text(errno).c_str());
        return nullptr;
    }
    zam_dlist_init(&proactor->events);
    zam_dlist_init(&proactor->triggers);
    zam_log_printf(ZAM_LOG_DEBUG, "Create a proactor %d success.\n", proactor->epoll_fd);
    return proactor.release();
}

void zam_proactor_free(zam_proactor *proactor) {
    if (!proactor) return;
    zam_log_printf(ZAM_LOG_DEBUG, "Free the proactor %d.\n", proactor->epoll_fd);
    if (proactor->gone) proactor->gone(proactor);
    // Descriptor 0 is left open: a process that closed its standard input may count on that number.
    if (proactor->epoll_fd > 0) close(proactor->epoll_fd);
    _free_events(proactor);
    zam_dlist_free(&proactor->triggers, _orphan_trigger);
    zam_free(proactor);
}

void zam_proactor_registry_set(zam_proactor *proactor, zam_registry *registry) {
    if (proactor) proactor->registry = registry;
}

zam_trigger *zam_proactor_wait(zam_proactor *proactor, int32_t timeout_ms) {
    if (!proactor) return nullptr;
    epoll_event event{};
    const int ready = _wait_for_one(proactor->epoll_fd, &event, timeout_ms);
    if (ready < 0) {
        if (errno != EAGAIN && errno != EINTR) {
            zam_log_printf(ZAM_LOG_WARN, "Proactor wait is interrupted(%s).\n", errno_text(errno).c_str());
        }
        return nullptr;
    }
    if (ready == 0) return nullptr;
    auto *trigger = static_cast<zam_trigger *>(event.data.ptr);
    if (!trigger || !trigger->wake) return nullptr;
    trigger->wake(proactor, trigger->arg, event.events);
    return trigger;
}

void zam_proactor_done(zam_proactor *proactor, zam_trigger *trigger) {
    if (!proactor || !trigger) return;
    if (proactor->lost_trigger && !_is_linked(proactor, trigger)) return;
    if (trigger->done) trigger->done(proactor, trigger->arg);
}

zam_trigger *zam_trigger_new(int32_t fd, void *arg, zam_wake_fn wake, zam_done_fn done) {
    auto *trigger = mem_new<zam_trigger>();
    if (!trigger) {
        zam_log_printf(ZAM_LOG_EMERG, "Allocate memory for trigger unsuccessful.\n");
        return nullptr;
    }
    trigger->fd = fd;
    trigger->arg = arg;
    trigger->wake = wake;
    trigger->done = done;
    zam_log_printf(ZAM_LOG_DEBUG, "Create a trigger %d success.\n", fd);
    return trigger;
}

void zam_trigger_free(zam_trigger *trigger) {
    if (!trigger) return;
    zam_log_printf(ZAM_LOG_DEBUG, "Free the trigger %d.\n", trigger->fd);
    _unlink_trigger(trigger);
    zam_free(trigger);
}

int32_t zam_trigger_arm(zam_proactor *proactor, zam_trigger *trigger, uint32_t events) {
    if (!proactor) {
        zam_log_printf(ZAM_LOG_WRONG, "Wrong to get proactor when arm trigger.\n");
        return -1;
    }
    if (!trigger) return -1;
    if (_control(proactor, EPOLL_CTL_ADD, trigger, events | always_armed) != 0) {
        zam_log_printf(ZAM_LOG_WRONG, "Proactor arm trigger %d unsuccessful(%s).\n", trigger->fd,
                       errno_text(errno).c_str());
        return -1;
    }
    _link_trigger(proactor, trigger);
    zam_log_printf(ZAM_LOG_DEBUG, "Proactor arm trigger %d success\n", trigger->fd);
    return 0;
}

int32_t zam_trigger_rearm(zam_proactor *proactor, zam_trigger *trigger, uint32_t events) {
    if (!trigger) return -1;
    // Without a proactor this fails like any closed descriptor does, and says so.
    if (_control(proactor, EPOLL_CTL_MOD, trigger, events | always_armed) != 0) {
        zam_log_printf(ZAM_LOG_WRONG, "Proactor rearm trigger %d unsuccessful(%s).\n", trigger->fd,
                       errno_text(errno).c_str());
        return -1;
    }
    zam_log_printf(ZAM_LOG_DEBUG, "Proactor rearm trigger %d success\n", trigger->fd);
    return 0;
}

void zam_trigger_unarm(zam_proactor *proactor, zam_trigger *trigger) {
    if (!proactor) {
        zam_log_printf(ZAM_LOG_WRONG, "Wrong to get proactor when unarm trigger.\n");
        return;
    }
    if (!trigger) return;
    if (_control(proactor, EPOLL_CTL_DEL, trigger, 0) != 0) {
        // Quiet on purpose: the descriptor is often closed already, and the kernel took it off the list then.
        zam_log_printf(ZAM_LOG_DEBUG, "Proactor unarm trigger %d unsuccessful(%s).\n", trigger->fd,
                       errno_text(errno).c_str());
        return;
    }
    zam_log_printf(ZAM_LOG_DEBUG, "Proactor unarm trigger %d success\n", trigger->fd);
}
