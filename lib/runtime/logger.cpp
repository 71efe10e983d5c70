// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The levelled log entry.
//
// One configuration for the process: silent until zam_log_config names an output function, configured from then on. It
// is set before threads start and read without a lock. A message is formatted on the stack and cut there, so a log line
// never allocates and may be written from any thread and from inside the allocator's failure path.
#include <zamc/logger.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <sys/time.h>

#include <zamc/mem.h>

#include "platform/bounded.h"
#include "runtime/logger_internal.h"
#include "runtime/mem_internal.h"

using zam::runtime::log_stamp;
using zam::runtime::log_stamp_now;
using zam::runtime::owned_text;

namespace {

constexpr const char *level_names[] = {"EMERG", "ALERT", "CRIT", "WRONG", "WARN", "NOTICE", "INFO", "DEBUG"};
constexpr int level_count = static_cast<int>(std::size(level_names));
constexpr size_t message_size = 1024; // of a whole line with its level and terminator; the rest is cut
constexpr uint32_t local_time_size = 128;

zam_log_cfg *_get_log_cfg() {
    static zam_log_cfg config = {};
    return &config;
}

// A negative level is as urgent as it gets, and the record that zam_log_config hands out may have been edited.
const char *_level_name(int level) {
    return level_names[std::clamp(level, 0, level_count - 1)];
}

int _write_stdout(const char *message) {
    log_stamp stamp;
    if (log_stamp_now(stamp)) fputs(stamp.text, stdout);
    return fputs(message, stdout);
}

int _write_message(const char *message, int level) {
    const zam_log_output output = _get_log_cfg()->output;
    return output == zam_log_printf ? _write_stdout(message) : output(level, "%s", message);
}

} // namespace

namespace zam::runtime {

bool log_stamp_now(log_stamp &stamp) {
    timeval now = {};
    tm local = {};
    gettimeofday(&now, nullptr);
    if (!localtime_r(&now.tv_sec, &local)) return false;
    char seconds[40];
    if (strftime(seconds, sizeof seconds, "%Y-%m-%d %H:%M:%S", &local) == 0) return false;
    const long milliseconds = static_cast<long>(now.tv_usec / 1000);
    return snprintf_s(stamp.text, sizeof stamp.text, sizeof stamp.text - 1, "%s.%03ld", seconds, milliseconds) > 0;
}

} // namespace zam::runtime

zam_log_cfg *zam_log_config(int32_t level, zam_log_output output) {
    zam_log_cfg *config = _get_log_cfg();
    if (level >= 0 && level < level_count) config->level = level;
    if (output) config->output = output;
    return config;
}

int32_t zam_get_log_level(void) {
    return _get_log_cfg()->level;
}

int zam_log_printf(int level, const char *format, ...) {
    const zam_log_cfg *config = _get_log_cfg();
    if (config->level < level || !config->output || !format) return 0;
    const int saved_errno = errno; // callers report first and look at their error afterwards
    char message[message_size];
    const int prefix = snprintf_s(message, message_size, message_size - 1, "[%s] ", _level_name(level));
    const size_t used = prefix > 0 ? static_cast<size_t>(prefix) : 0;
    va_list args;
    va_start(args, format);
    vsnprintf_s(message + used, message_size - used, message_size - 1 - used, format, args);
    va_end(args);
    const int result = _write_message(message, level);
    errno = saved_errno;
    return result;
}

char *zam_get_local_time(void) {
    log_stamp stamp;
    if (!log_stamp_now(stamp)) return nullptr;
    owned_text text{static_cast<char *>(zam_calloc(1, local_time_size))};
    if (!text) return nullptr;
    if (snprintf_s(text.get(), local_time_size, local_time_size - 1, "%s", stamp.text) <= 0) return nullptr;
    return text.release();
}
