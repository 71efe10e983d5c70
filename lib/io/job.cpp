// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Jobs: work away from the event loop, completion on the event loop's thread.
//
//     off --zam_job_init--> inline or pooled --zam_job_exit--> off
//
// Inline, a job travels as the parameter of a queued event and is worked and completed when that is dispatched. Pooled,
// it goes from the pending queue through a worker to the done queue; one mutex guards both and is held for a list
// operation only, never while a job's function runs.
//
// Wake-ups: each submission signals the work eventfd, each finished job the done eventfd. The workers share one epoll
// instance with an edge-triggered watch on the work eventfd, so one signal wakes one worker; it resets the counter and
// signals again if it leaves jobs behind. A worker takes jobs until none is pending, so no job waits without a signal
// or a busy worker ahead of it. A stop travels the same way, from worker to worker.
//
// `running` is a byte that the stopping thread clears while the worker reads it: both go through atomic_ref. The worker
// looks at it before each job, so that no job starts after the stop. The list of workers changes only while no worker
// has a job to run, before the first submission and after the last join; functions of jobs may therefore submit.

#include <atomic>
#include <cstdint>

#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <zamc/dlist.h>
#include <zamc/job.h>
#include <zamc/logger.h>

#include "io/proactor_internal.h"
#include "runtime/mem_internal.h"

using zam::runtime::mem_new;
using zam::runtime::owned_block;

namespace {

constexpr int stop_check_ms = 1000; // how long a worker sleeps at most without looking at its running flag
constexpr uint32_t edge_triggered = static_cast<uint32_t>(EPOLLIN) | static_cast<uint32_t>(EPOLLET);

struct job {
    zam_dlist_node link; // first, so that the node's address is the job's
    zam_job_fn work;
    zam_job_fn done;
    void *arg; // never freed here
};

struct workthread {
    zam_dlist_node link; // first, so that the node's address is the worker's
    uint8_t running;
    int32_t epoll_fd; // the workers' shared one
    pthread_t thread;
};

struct jobs_ctx {
    pthread_mutex_t mutex; // guards the two job queues
    zam_dlist pending;     // jobs that wait for a worker
    zam_dlist finished;    // jobs that wait for their done function
    int32_t work_fd;       // eventfds, -1 when absent
    int32_t done_fd;
    zam_proactor *proactor;    // not owned
    zam_trigger *done_trigger; // owned
    zam_registry *registry;    // not owned
    int32_t epoll_fd;          // the workers', -1 when absent
    zam_dlist workers;
    bool active; // between init and exit
};

constinit jobs_ctx jobs{.mutex = PTHREAD_MUTEX_INITIALIZER,
                        .pending = {},
                        .finished = {},
                        .work_fd = -1,
                        .done_fd = -1,
                        .proactor = nullptr,
                        .done_trigger = nullptr,
                        .registry = nullptr,
                        .epoll_fd = -1,
                        .workers = {},
                        .active = false};

jobs_ctx &_get_jobs_ctx() {
    return jobs;
}

class mutex_guard {
public:
    explicit mutex_guard(pthread_mutex_t &mutex) : mutex_{mutex} { pthread_mutex_lock(&mutex_); }
    ~mutex_guard() { pthread_mutex_unlock(&mutex_); }
    mutex_guard(const mutex_guard &) = delete;
    mutex_guard &operator=(const mutex_guard &) = delete;

private:
    pthread_mutex_t &mutex_;
};

void _queue_job(jobs_ctx &ctx, zam_dlist &queue, job *item) {
    const mutex_guard guard{ctx.mutex};
    zam_dlist_append(&queue, &item->link);
}

// The oldest job of a queue, or null; `left` takes how many remain.
job *_take_job(jobs_ctx &ctx, zam_dlist &queue, uint32_t *left = nullptr) {
    const mutex_guard guard{ctx.mutex};
    zam_dlist_node *node = queue.head;
    if (node) zam_dlist_remove(&queue, node);
    if (left) *left = queue.count;
    return reinterpret_cast<job *>(node);
}

bool _signal(int32_t event_fd) {
    const uint64_t one = 1;
    return write(event_fd, &one, sizeof(one)) == sizeof(one);
}

bool _read_signals(int32_t event_fd) {
    uint64_t count = 0;
    return read(event_fd, &count, sizeof(count)) == sizeof(count);
}

void _call(zam_job_fn function, void *arg) {
    if (function) function(arg);
}

void _free_job(zam_dlist_node *node) {
    zam_free(reinterpret_cast<job *>(node));
}

void _close(int32_t &fd) {
    if (fd != -1) close(fd);
    fd = -1;
}

// The worker's thread.

// Both sides are read-modify-writes where a load and a store would do: those are what every race detector knows to be
// atomic, and a worker looks once per job.
bool _is_running(workthread &worker) {
    uint8_t stopped = 0;
    return !std::atomic_ref<uint8_t>{worker.running}.compare_exchange_strong(stopped, 0);
}

void _stop(workthread &worker) {
    std::atomic_ref<uint8_t>{worker.running}.exchange(0);
}

void _finish_job(jobs_ctx &ctx, job *item) {
    _queue_job(ctx, ctx.finished, item);
    if (!_signal(ctx.done_fd)) zam_log_printf(ZAM_LOG_WARN, "Write event for job failed.\n");
}

void _work_off(jobs_ctx &ctx, workthread &worker) {
    if (!_read_signals(ctx.work_fd)) zam_log_printf(ZAM_LOG_WARN, "Read event for job failed.\n");
    if (!_is_running(worker)) return;
    uint32_t left = 0;
    job *item = _take_job(ctx, ctx.pending, &left);
    if (left > 0) _signal(ctx.work_fd);
    while (item) {
        _call(item->work, item->arg);
        _finish_job(ctx, item);
        item = _is_running(worker) ? _take_job(ctx, ctx.pending) : nullptr;
    }
}

void *_workthread_routine(void *arg) {
    auto &worker = *static_cast<workthread *>(arg);
    jobs_ctx &ctx = _get_jobs_ctx();
    while (_is_running(worker)) {
        epoll_event event{};
        if (epoll_wait(worker.epoll_fd, &event, 1, stop_check_ms) != 1) continue;
        if (event.events & EPOLLIN) _work_off(ctx, worker);
    }
    _signal(ctx.work_fd); // the next worker to stop
    return nullptr;
}

// The proactor's thread.

void _wake_job_done(zam_proactor *, void *, uint32_t) {
    jobs_ctx &ctx = _get_jobs_ctx();
    _read_signals(ctx.done_fd);
    // A done function may end the facility, whose queues are empty then.
    while (ctx.active) {
        job *item = _take_job(ctx, ctx.finished);
        if (!item) return;
        _call(item->done, item->arg);
        zam_free(item);
    }
}

// The job goes with its event, also when nobody handles that.
int32_t _recv_job_event(zam_proactor *, uint32_t, void *para) {
    const auto *item = static_cast<const job *>(para);
    if (!item) return 0;
    _call(item->work, item->arg);
    _call(item->done, item->arg);
    return 0;
}

int32_t _create_thread_trigger(jobs_ctx &ctx) {
    ctx.done_fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (ctx.done_fd < 0) return -1;
    ctx.done_trigger = zam_trigger_new(ctx.done_fd, &ctx, _wake_job_done, nullptr);
    if (ctx.done_trigger && zam_trigger_arm(ctx.proactor, ctx.done_trigger, edge_triggered) == 0) return 0;
    zam_trigger_free(ctx.done_trigger);
    ctx.done_trigger = nullptr;
    _close(ctx.done_fd);
    return -1;
}

int32_t _create_workthread(jobs_ctx &ctx) {
    owned_block<workthread> worker{mem_new<workthread>()};
    if (!worker) {
        zam_log_printf(ZAM_LOG_WRONG, "Alloc memory for workthread_t failed\n");
        return -1;
    }
    worker->running = 1;
    worker->epoll_fd = ctx.epoll_fd;
    if (pthread_create(&worker->thread, nullptr, _workthread_routine, worker.get()) != 0) {
        zam_log_printf(ZAM_LOG_WRONG, "Create workthread for job failed\n");
        return -1;
    }
    zam_dlist_append(&ctx.workers, &worker.release()->link);
    return 0;
}

int32_t _start_workthreads(jobs_ctx &ctx, uint32_t threads) {
    ctx.work_fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (ctx.work_fd < 0) return -1;
    ctx.epoll_fd = epoll_create(1);
    if (ctx.epoll_fd < 0) return -1;
    epoll_event event{};
    event.events = edge_triggered;
    event.data.fd = ctx.work_fd;
    if (epoll_ctl(ctx.epoll_fd, EPOLL_CTL_ADD, ctx.work_fd, &event) != 0) return -1;
    for (uint32_t i = 0; i < threads; ++i) {
        if (_create_workthread(ctx) != 0) return -1;
    }
    return 0;
}

void _free_workthread(zam_dlist_node *node) {
    auto *worker = reinterpret_cast<workthread *>(node);
    _stop(*worker);
    pthread_join(worker->thread, nullptr);
    zam_free(worker);
}

// All workers hear of the stop before the first is waited for: together they take as long as the slowest job.
void _stop_workthreads(jobs_ctx &ctx) {
    for (zam_dlist_node *node = ctx.workers.head; node; node = node->next)
        _stop(*reinterpret_cast<workthread *>(node));
    if (ctx.work_fd != -1) _signal(ctx.work_fd);
    zam_dlist_free(&ctx.workers, _free_workthread);
}

void _free_inline_job(void *para) {
    zam_free(para);
}

// Leaves nothing of ours with the proactor: not the inline jobs that wait there, not the trigger.
void _forget_proactor(jobs_ctx &ctx) {
    zam::io::drop_events_by_id(ctx.proactor, EVENT_NEW_JOB, _free_inline_job);
    if (ctx.done_trigger) zam_trigger_unarm(ctx.proactor, ctx.done_trigger);
    zam_trigger_free(ctx.done_trigger);
    ctx.done_trigger = nullptr;
    zam::io::on_proactor_gone(ctx.proactor, nullptr);
    ctx.proactor = nullptr;
}

// A proactor that is freed before the exit: jobs find no completion any more, and the exit frees them.
void _proactor_gone(zam_proactor *) {
    _forget_proactor(_get_jobs_ctx());
}

int32_t _start_pool(jobs_ctx &ctx, uint32_t threads) {
    if (_create_thread_trigger(ctx) != 0) {
        zam_log_printf(ZAM_LOG_WRONG, "Create job event triger failed.\n");
        return -1;
    }
    if (_start_workthreads(ctx, threads) != 0) {
        zam_log_printf(ZAM_LOG_WRONG, "Start workthreads failed.\n");
        return -1;
    }
    return 0;
}

} // namespace

int32_t zam_job_init(zam_proactor *proactor, zam_registry *registry, uint32_t threads) {
    jobs_ctx &ctx = _get_jobs_ctx();
    if (ctx.active) {
        zam_log_printf(ZAM_LOG_WRONG, "Job facility is in use.\n");
        return -1;
    }
    pthread_mutex_init(&ctx.mutex, nullptr);
    zam_dlist_init(&ctx.pending);
    zam_dlist_init(&ctx.finished);
    zam_dlist_init(&ctx.workers);
    ctx.work_fd = ctx.done_fd = ctx.epoll_fd = -1;
    ctx.proactor = proactor;
    ctx.registry = registry;
    ctx.active = true;
    zam::io::on_proactor_gone(proactor, _proactor_gone);
    if (threads == 0) {
        zam_event_register(registry, EVENT_NEW_JOB, _recv_job_event);
        return 0;
    }
    if (_start_pool(ctx, threads) != 0) {
        zam_job_exit();
        return -1;
    }
    return 0;
}

int32_t zam_new_job(void *arg, zam_job_fn work, zam_job_fn done) {
    jobs_ctx &ctx = _get_jobs_ctx();
    auto *item = mem_new<job>();
    if (!item) {
        zam_log_printf(ZAM_LOG_WRONG, "Alloc memory for job failed.\n");
        return -1;
    }
    item->work = work;
    item->done = done;
    item->arg = arg;
    if (ctx.workers.count > 0) {
        _queue_job(ctx, ctx.pending, item);
        _signal(ctx.work_fd);
    } else if (ctx.proactor) {
        // Without memory the queue logs that and drops the job; callers know only whether the job itself could be made.
        zam_event_push(ctx.proactor, EVENT_NEW_JOB, item, zam_free);
    } else {
        zam_free(item);
    }
    return 0;
}

void zam_job_exit(void) {
    jobs_ctx &ctx = _get_jobs_ctx();
    if (!ctx.active) return;
    ctx.active = false;
    zam_event_unregister(ctx.registry, EVENT_NEW_JOB);
    _forget_proactor(ctx);
    _stop_workthreads(ctx);
    zam_dlist_free(&ctx.pending, _free_job);
    zam_dlist_free(&ctx.finished, _free_job);
    pthread_mutex_destroy(&ctx.mutex);
    _close(ctx.work_fd);
    _close(ctx.done_fd);
    _close(ctx.epoll_fd);
    ctx.registry = nullptr;
}
