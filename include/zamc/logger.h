/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */

/** @file
 * Logger.
 *
 * One levelled, printf-style entry, and an output function that the application chooses: standard output, a rotating
 * file, or one of its own. Until zam_log_config() names one, nothing is formatted and nothing is printed.
 *
 * A line reads
 *
 *     2026-11-15 08:01:55.042[WRONG] Malloc 12 bytes unsuccessful.
 *
 * with the local time and no blank behind it; an output function of the application's own gets the line from the
 * bracket on. The library's messages end in one newline, the logger adds none.
 *
 * The configuration is plain process-wide data: set it before threads start. Logging itself is safe from any thread.
 */
#ifndef ZAMC_LOGGER_H
#define ZAMC_LOGGER_H

#include <stdint.h>

#include <zamc/attributes.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Levels, the most urgent first; each with the name that a line shows. */
enum zam_log_level {
    ZAM_LOG_EMERG = 0,  /**< "EMERG": the core's own records cannot be allocated */
    ZAM_LOG_ALERT = 1,  /**< "ALERT" */
    ZAM_LOG_CRIT = 2,   /**< "CRIT" */
    ZAM_LOG_WRONG = 3,  /**< "WRONG": failures. The name is part of the line format that log readers look for. */
    ZAM_LOG_WARN = 4,   /**< "WARN": oddities */
    ZAM_LOG_NOTICE = 5, /**< "NOTICE" */
    ZAM_LOG_INFO = 6,   /**< "INFO": notable events */
    ZAM_LOG_DEBUG = 7   /**< "DEBUG": traces */
};

/**
 * Takes one message: the logger calls it with `format` "%s" and one text, the line without its time stamp, which lives
 * only during the call. It runs on the thread that logs, possibly on several at once, and inside failing allocations:
 * it should neither log nor allocate through the memory hooks. Its result becomes that of zam_log_printf().
 */
typedef int (*zam_log_output)(int level, const char *format, ...);

/** The configuration of the process. */
typedef struct zam_log_cfg {
    int32_t level;         /**< 0 to 7; messages of a numerically greater level are dropped. At first 0. */
    zam_log_output output; /**< at first null: no output */
} zam_log_cfg;

/**
 * Sets level and output function.
 *
 * Pass zam_log_printf itself for standard output and zam_write_log_file for the file.
 *
 * @param level   0 to 7; any other value leaves the level as it is
 * @param output  null leaves the output as it is, so output cannot be switched off again through this call
 * @return the configuration, which lives as long as the process
 */
zam_log_cfg *zam_log_config(int32_t level, zam_log_output output);

/**
 * Reads the level.
 *
 * @return 0 to 7, as configured
 */
int32_t zam_get_log_level(void);

/**
 * Logs one message.
 *
 * The line is at most 1023 bytes long, the level's name included; the rest is cut. Nothing is allocated and errno stays
 * as it is. A negative level is always logged, under the name of level 0.
 *
 * @param level   of enum zam_log_level
 * @param format  printf format of the message, which ends in one newline
 * @return the output function's result, that of fputs() for standard output, or 0 for a message that is dropped
 */
int zam_log_printf(int level, const char *format, ...) ZAM_PRINTF(2, 3);

/**
 * The local time of now, as "2026-11-15 08:01:55.042".
 *
 * @return a new text, to be released with zam_free(), or null when the system cannot tell or there is no memory
 */
char *zam_get_local_time(void);

/**
 * Opens the log file for appending, and creates it if it does not exist; its directory must exist.
 *
 * The file that is open already stays open if it has the same path, and is closed if it has another one. When the file
 * cannot be opened, none is open afterwards. Not to be called while other threads log.
 *
 * When the file has 200 MiB (209715200 bytes) it is moved to "<path>_<number>.log", the suffix behind the whole path,
 * and begun anew. Numbers go from 1 to 50 and round again; the file of the next number is deleted right after a
 * rotation, so one slot of the ring is always free. The first number is the lowest whose file does not exist when the
 * log is opened. If all fifty exist the number stays what it was, which at the start of a process is 0: the next
 * rotation then writes
 * "_0" and goes on with 1.
 *
 * @param path  copied; null does nothing
 */
void zam_open_log_file(const char *path);

/**
 * Appends one line to the log file: the output function for zam_log_config().
 *
 * Writes the time stamp and the formatted text, and flushes. A file that was deleted or moved away is created anew
 * first. Without an open file nothing is written; if the path is set but could not be opened, it is tried again. Safe
 * from any thread; nothing in here logs.
 *
 * Made for the logger, which passes "%s": the format is applied a second time, to the text that it gave. With a format
 * that holds more than one plain "%s" the text is written as it stands. A text of more than 1024 bytes is left out;
 * only its time stamp is written.
 *
 * @param level   not used, the text names it
 * @param format  "%s" for the text that follows
 * @return 0, or the error number of the mutex
 */
int zam_write_log_file(int level, const char *format, ...) ZAM_PRINTF(2, 3);

/**
 * Closes the log file. Call it last, when no thread logs any more.
 *
 * @return 0, also when none is open, or the error number of the mutex
 */
int zam_close_log_file(void);

#ifdef __cplusplus
}
#endif

#endif
