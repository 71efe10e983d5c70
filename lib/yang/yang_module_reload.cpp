// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The status of a schema reload: 0 until somebody notifies one, and 0 again after a reset. One thread notifies,
// another waits. Nothing in the library itself looks at it.

#include <zamc/yang_module.h>

#include <ctime>

#include <pthread.h>

namespace {

constexpr time_t wait_seconds = 60;

struct reload_status {
    pthread_mutex_t mutex;
    pthread_cond_t changed; // by the real-time clock, as its default attributes have it
    uint32_t value;
};

reload_status status = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER, 0};

} // namespace

int32_t zam_reload_schema_init(void) {
    pthread_mutex_init(&status.mutex, nullptr);
    status.value = 0;
    return pthread_cond_init(&status.changed, nullptr);
}

int32_t zam_notify_reload_schema_status(uint32_t value) {
    const int locked = pthread_mutex_lock(&status.mutex);
    if (locked != 0) return locked;
    status.value = value;
    pthread_cond_signal(&status.changed);
    return pthread_mutex_unlock(&status.mutex);
}

uint32_t zam_wait_reload_schema_status(void) {
    if (pthread_mutex_lock(&status.mutex) != 0) return 0;
    timespec deadline = {};
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += wait_seconds;
    while (status.value == 0) {
        if (pthread_cond_timedwait(&status.changed, &status.mutex, &deadline) != 0) break;
    }
    const uint32_t value = status.value;
    pthread_mutex_unlock(&status.mutex);
    return value;
}

int32_t zam_reset_schema_status(void) {
    const int locked = pthread_mutex_lock(&status.mutex);
    if (locked != 0) return locked;
    status.value = 0;
    return pthread_mutex_unlock(&status.mutex);
}
