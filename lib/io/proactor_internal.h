// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// What the other files of the engine need of the proactor beyond its public face.
#ifndef ZAMC_IO_PROACTOR_INTERNAL_H
#define ZAMC_IO_PROACTOR_INTERNAL_H

#include <cstdint>

#include <zamc/dlist.h>
#include <zamc/proactor.h>

namespace zam::io {

using proactor_gone_fn = void (*)(zam_proactor *proactor);

// Frees every queued event whose parameter is `para`, running its release function: an object that goes must not be
// named by an event that is still to be dispatched.
void drop_events_of(zam_proactor *proactor, const void *para);

// Frees every queued event `id` and hands its parameter to `release`, for events pushed without a release function.
void drop_events_by_id(zam_proactor *proactor, uint32_t id, zam_event_release_fn release);

// `gone` is called at the start of zam_proactor_free, while the queue is still whole; null takes it back.
void on_proactor_gone(zam_proactor *proactor, proactor_gone_fn gone);

} // namespace zam::io

struct zam_proactor {
    int32_t epoll_fd;
    zam_registry *registry; // not owned; null until set
    zam_dlist events;       // of zam_event, oldest first
    zam_dlist triggers;     // every trigger armed here that still exists
    uint8_t lost_trigger;   // a trigger armed here has been freed
    zam::io::proactor_gone_fn gone;
};

struct zam_event {
    zam_dlist_node link; // first, so that the node's address is the event's
    uint32_t id;
    void *para;
    zam_event_release_fn release;
};

#endif
