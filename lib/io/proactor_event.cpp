// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Events and the registry that finds their handlers.
//
// The queue belongs to the proactor; an event lives from push until its owner frees it after the dispatch. The
// registry is an array of a power of two of slots, the slot of an event being the low bits of its id. There is no
// chaining: an owner sizes the registry for the ids that it uses, and an id that lands on another's slot replaces it
// with a warning. An empty slot holds the first id above the list of events and no handler.

#include <bit>

#include <zamc/logger.h>

#include "io/proactor_internal.h"
#include "runtime/mem_internal.h"

using zam::runtime::mem_new;

struct zam_registry {
    struct slot {
        uint32_t id;
        zam_event_fn handler;
    };
    uint32_t count; // a power of two
    uint32_t mask;  // count - 1
    slot *slots;    // in the same block
};

namespace {

using registry_slot = zam_registry::slot;

constexpr uint32_t empty_slot = EVENT_NEW_JOB + 1;
constexpr uint32_t no_event = UINT32_MAX;
constexpr uint32_t least_slots = 2;
constexpr uint32_t most_slots = 1U << 31; // the largest power of two that the count can hold

constexpr const char *event_names[] = {
    "EVENT_LISTENER_CLOSE",  "EVENT_CONNECT_REQ",     "EVENT_CONNECT_CLOSE", "EVENT_MESSAGE_RECV",
    "EVENT_CLIENT_ONLINE",   "EVENT_CLIENT_OFFLINE",  "EVENT_PUB_RPC_REQ",   "EVENT_PUB_RPC_RSP",
    "EVENT_PUB_RPC_END",     "EVENT_PUB_CFG_REQ",     "EVENT_PUB_CFG_RSP",   "EVENT_PUB_CFG_END",
    "EVENT_PUB_GET_REQ",     "EVENT_PUB_GET_RSP",     "EVENT_PUB_GET_END",   "EVENT_SET_STATE_DATA",
    "EVENT_CFG_RESTORE_REQ", "EVENT_CFG_RESTORE_END", "EVENT_SESSION_CLOSE", "EVENT_CONNECT_READ_IDLE",
    "EVENT_NC_HELLO_REQ",    "EVENT_NC_HELLO_RSP",    "EVENT_NEW_JOB",
};
static_assert(sizeof(event_names) / sizeof(*event_names) == empty_slot);

registry_slot &_slot_of(zam_registry *registry, uint32_t id) {
    return registry->slots[id & registry->mask];
}

// Takes the events that `matches` names off the queue before the first of them is freed: their release functions meet
// a queue that is whole.
template <typename Match>
void _drop_events(zam_proactor *proactor, Match matches) {
    zam_dlist dropped{};
    zam_dlist_node *next = nullptr;
    for (zam_dlist_node *node = proactor->events.head; node; node = next) {
        next = node->next;
        if (!matches(*reinterpret_cast<zam_event *>(node))) continue;
        zam_dlist_remove(&proactor->events, node);
        zam_dlist_append(&dropped, node);
    }
    zam_dlist_free(&dropped, [](zam_dlist_node *node) { zam_event_free(reinterpret_cast<zam_event *>(node)); });
}

} // namespace

void zam::io::drop_events_of(zam_proactor *proactor, const void *para) {
    if (!proactor || !para) return;
    _drop_events(proactor, [para](const zam_event &event) { return event.para == para; });
}

void zam::io::drop_events_by_id(zam_proactor *proactor, uint32_t id, zam_event_release_fn release) {
    if (!proactor) return;
    _drop_events(proactor, [id, release](zam_event &event) {
        if (event.id != id) return false;
        event.release = release;
        return true;
    });
}

zam_registry *zam_registry_new(uint32_t count) {
    constexpr uint32_t most_fitting = (UINT32_MAX - sizeof(zam_registry)) / sizeof(registry_slot);
    const uint32_t slots = count <= least_slots ? least_slots : count > most_slots ? 0 : std::bit_ceil(count);
    zam_registry *registry = nullptr;
    if (slots != 0 && slots <= most_fitting) {
        registry = mem_new<zam_registry>(slots * static_cast<uint32_t>(sizeof(registry_slot)));
    }
    if (!registry) {
        zam_log_printf(ZAM_LOG_EMERG, "Allocate memory for event registry unsuccessful.\n");
        return nullptr;
    }
    registry->count = slots;
    registry->mask = slots - 1;
    registry->slots = reinterpret_cast<registry_slot *>(registry + 1);
    for (uint32_t i = 0; i < slots; ++i)
        registry->slots[i].id = empty_slot;
    return registry;
}

void zam_registry_free(zam_registry *registry) {
    zam_free(registry);
}

void zam_event_register(zam_registry *registry, uint32_t id, zam_event_fn handler) {
    if (!registry) return;
    registry_slot &slot = _slot_of(registry, id);
    if (slot.id != id && slot.id != empty_slot) {
        zam_log_printf(ZAM_LOG_WARN, "Replace registry of the event: %s(id = %d) with event: %s(id = %d).\n",
                       zam_event_name(slot.id), slot.id, zam_event_name(id), id);
    } else {
        zam_log_printf(ZAM_LOG_DEBUG, "Register the event: %s(id = %d).\n", zam_event_name(id), id);
    }
    slot = {id, handler};
}

void zam_event_unregister(zam_registry *registry, uint32_t id) {
    if (!registry) return;
    registry_slot &slot = _slot_of(registry, id);
    if (slot.id != id) {
        zam_log_printf(ZAM_LOG_WARN, "Event: %s(id = %d) is not registered.\n", zam_event_name(id), id);
        return;
    }
    zam_log_printf(ZAM_LOG_DEBUG, "Unregister event: %s(id = %d).\n", zam_event_name(id), id);
    slot = {empty_slot, nullptr};
}

int32_t zam_event_push(zam_proactor *proactor, uint32_t id, void *para, zam_event_release_fn release) {
    zam_log_printf(ZAM_LOG_DEBUG, "Push an event: %s.\n", zam_event_name(id));
    auto *event = proactor ? mem_new<zam_event>() : nullptr;
    if (!event) {
        if (proactor) {
            zam_log_printf(ZAM_LOG_EMERG, "Allocate memory for push event: %s unsuccessful.\n", zam_event_name(id));
        } else {
            zam_log_printf(ZAM_LOG_WRONG, "Wrong to get proactor when push event: %s.\n", zam_event_name(id));
        }
        if (release) release(para); // the caller has let go of it
        return -1;
    }
    event->id = id;
    event->para = para;
    event->release = release;
    zam_dlist_append(&proactor->events, &event->link);
    return 0;
}

zam_event *zam_event_pop(zam_proactor *proactor) {
    if (!proactor || !proactor->events.head) return nullptr;
    auto *event = reinterpret_cast<zam_event *>(proactor->events.head);
    zam_dlist_remove(&proactor->events, &event->link);
    zam_log_printf(ZAM_LOG_DEBUG, "Pop an event: %s.\n", zam_event_name(event->id));
    return event;
}

void zam_event_dispatch(zam_proactor *proactor, zam_event *event) {
    if (!proactor || !event || !proactor->registry) return;
    const registry_slot &slot = _slot_of(proactor->registry, event->id);
    if (slot.id != event->id) {
        zam_log_printf(ZAM_LOG_WRONG, "Event: %s(id = %d) is not registered.\n", zam_event_name(event->id), event->id);
        return;
    }
    if (slot.handler) slot.handler(proactor, event->id, event->para);
}

uint32_t zam_event_id(const zam_event *event) {
    return event ? event->id : no_event;
}

void *zam_event_para(const zam_event *event) {
    return event ? event->para : nullptr;
}

void zam_event_free(zam_event *event) {
    if (!event) return;
    if (event->release) event->release(event->para);
    zam_free(event);
}

const char *zam_event_name(uint32_t id) {
    return id < empty_slot ? event_names[id] : "UNKNOWN";
}
