/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
#ifndef ZAMC_JOB_H
#define ZAMC_JOB_H

/**
 * @file
 * Jobs: a piece of work away from the event loop, and its completion on the event loop's thread.
 *
 * A process has one job facility. With workers, `work` runs on one of their threads and `done` on the thread that runs
 * the proactor's rounds, inside zam_proactor_wait. Without workers both run there when EVENT_NEW_JOB is dispatched, in
 * the order of submission.
 */

#include <stdint.h>

#include <zamc/proactor.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * A job's function. `arg` is the submitter's and is never freed here. It may submit jobs: with workers from any thread
 * and from both functions. A done function may end the facility, a work function that runs on a worker must not.
 */
typedef void (*zam_job_fn)(void *arg);

/**
 * Starts the facility.
 *
 * @param proactor Runs the completions. Not owned. Freeing it before zam_job_exit is harmless, but no job completes
 *                 from then on.
 * @param registry Takes the handler of EVENT_NEW_JOB when there are no workers. Not owned; has to live until
 *                 zam_job_exit.
 * @param threads  The number of workers; 0 for none.
 * @return 0; -1 when something could not be created, with nothing left behind, or when the facility is in use, which
 *         it remains.
 */
int32_t zam_job_init(zam_proactor *proactor, zam_registry *registry, uint32_t threads);

/**
 * Submits a job.
 *
 * @param arg Handed to both functions, the submitter's.
 * @param work Runs first; may be null.
 * @param done Runs after it, on the proactor's thread; may be null.
 * @return 0, or -1 when there is no memory for the job. Without workers a job whose event cannot be queued is dropped:
 *         the queue logs it, and the result is 0 all the same.
 */
int32_t zam_new_job(void *arg, zam_job_fn work, zam_job_fn done);

/**
 * Ends the facility: no job starts any more, the workers are joined, and jobs that have not been completed are freed
 * without their functions being called. It returns when the last worker has ended, which is as soon as the work
 * functions that are running return. To be called on the proactor's thread; harmless when nothing runs.
 */
void zam_job_exit(void);

#ifdef __cplusplus
}
#endif

#endif
