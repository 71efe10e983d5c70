// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The log file.
//
// closed -> open (zam_open_log_file) -> writing, now and then rotating -> closed (zam_close_log_file). While it is open
// `path` is set; `file` may be null for a time, when a reopen failed: every write tries again. A file that was moved
// away from outside is noticed by its name before each write and begun anew.
//
// Rotation moves the full file to "<path>_<number>.log" and deletes the file of the next number ahead of time, so the
// fifty names form a ring in which one slot is always empty and a rotation never has to wait for room.
//
// The mutex covers the size check, the rotation and the write. Nothing in here logs or calls a memory hook while it is
// held, since both could come back for the same mutex: names and stamps are made on the stack. While closed, the mutex
// is in its static initial state, so a write that comes too early or too late locks it, finds no path and does nothing.
#include <zamc/logger.h>

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <zamc/mem.h>

#include "platform/bounded.h"
#include "platform/vfs.h"
#include "runtime/logger_internal.h"
#include "runtime/mem_internal.h"

using zam::runtime::log_stamp;
using zam::runtime::log_stamp_now;
using zam::runtime::owned_text;

// 200 MiB; with fifty rotated files the log stays below 10 GiB
off_t zam::runtime::log_file_size_max = 0xC800000;

namespace {

using log_stream = decltype(ZRT_VFS_FOpen("", ""));

constexpr int32_t file_number_max = 50;
constexpr size_t line_size = 1025;
constexpr pthread_mutex_t idle_mutex = PTHREAD_MUTEX_INITIALIZER;

struct log_file {
    pthread_mutex_t mutex;
    log_stream file;
    int32_t number; // of the next rotated file; 0 before any scan
    char *path;
    bool failed; // the last line did not go out, or not as a whole, as on a full disk
};

// A path that the system accepts, with the suffix of a rotated file behind it.
struct rotated_name {
    char text[PATH_MAX + 16];
};

log_file *_get_log_file() {
    static log_file state = {PTHREAD_MUTEX_INITIALIZER, nullptr, 0, nullptr, false};
    return &state;
}

bool _build_name(rotated_name &name, const char *path, int32_t number) {
    return sprintf_s(name.text, sizeof name.text, "%s_%d.log", path, number) > 0;
}

bool _file_exists(const rotated_name &name) {
    return access(name.text, F_OK) == 0;
}

void _close_file(log_file *log) {
    if (log->file) ZRT_VFS_FClose(log->file);
    log->file = nullptr;
}

void _reopen_file(log_file *log) {
    _close_file(log);
    log->file = ZRT_VFS_FOpen(log->path, "a+");
}

// The first free number; when all fifty are taken the number stays as it was.
void _set_log_file_num(log_file *log) {
    rotated_name name;
    for (int32_t number = 1; number <= file_number_max; number++) {
        if (!_build_name(name, log->path, number)) return;
        if (!_file_exists(name)) {
            log->number = number;
            return;
        }
    }
}

// Rotates, and empties the slot of the rotation after this one.
void _file_check_num(log_file *log) {
    rotated_name name;
    if (!_build_name(name, log->path, log->number)) return;
    rename(log->path, name.text);
    _reopen_file(log);
    if (!log->file) return;
    log->number = log->number < file_number_max ? log->number + 1 : 1;
    if (!_build_name(name, log->path, log->number)) {
        _close_file(log);
    } else if (_file_exists(name)) {
        unlink(name.text);
    }
}

void _file_check_size(log_file *log) {
    if (!log->path) return;
    struct stat status = {};
    if (!log->file) {
        log->file = ZRT_VFS_FOpen(log->path, "a+");
    } else if (stat(log->path, &status) != 0) {
        _reopen_file(log);
    } else if (status.st_size >= zam::runtime::log_file_size_max) {
        _file_check_num(log);
    }
}

// Whether a format reads nothing but one text: then the formatted line may stand in for that text.
bool _reads_one_text(const char *format) {
    int texts = 0;
    for (const char *at = strchr(format, '%'); at; at = strchr(at + 1, '%')) {
        if (at[1] == '%') {
            at++;
            continue;
        }
        at += strspn(at + 1, "-.0123456789");
        if (at[1] != 's' || ++texts > 1) return false;
    }
    return true;
}

// The caller's format is applied to the line that it made: the logger always passes "%s", which gives the line itself,
// and files have shown the doubled text of other formats ever since. A format that would read more than that one text
// is not applied again.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
void _print_line(log_stream file, const char *format, const char *line) {
    ZRT_VFS_FPrintf(file, _reads_one_text(format) ? format : "%s", line);
}
#pragma GCC diagnostic pop

// Whether the next line would go on behind a part of another one.
bool _ends_inside_line(const char *path) {
    const int file = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0) return false;
    char last = '\n';
    const bool read_last = lseek(file, -1, SEEK_END) >= 0 && read(file, &last, 1) == 1;
    close(file);
    return read_last && last != '\n';
}

} // namespace

void zam_open_log_file(const char *path) {
    if (!path) return;
    log_file *log = _get_log_file();
    if (log->file && log->path && strcmp(log->path, path) == 0) return;
    owned_text copy{zam_strdup(path)}; // before closing: `path` may be the stored one
    if (log->path) zam_close_log_file();
    if (!copy) return;
    log_stream file = ZRT_VFS_FOpen(copy.get(), "a+");
    if (!file) return;
    if (pthread_mutex_init(&log->mutex, nullptr) != 0) {
        ZRT_VFS_FClose(file);
        return;
    }
    log->file = file;
    log->path = copy.release();
    _set_log_file_num(log);
}

int zam_write_log_file(int, const char *format, ...) {
    if (!format) return 0;
    char line[line_size];
    log_file *log = _get_log_file();
    const int locked = pthread_mutex_lock(&log->mutex);
    if (locked != 0) return locked;
    _file_check_size(log);
    if (log->file) {
        if (log->failed && _ends_inside_line(log->path)) ZRT_VFS_FPrintf(log->file, "\n");
        log_stamp stamp;
        if (log_stamp_now(stamp)) ZRT_VFS_FPrintf(log->file, "%s", stamp.text);
        va_list args;
        va_start(args, format);
        const int length = vsnprintf_s(line, line_size, line_size - 1, format, args);
        va_end(args);
        if (length != -1) _print_line(log->file, format, line);
        log->failed = ZRT_VFS_FFlush(log->file) != 0;
    }
    return pthread_mutex_unlock(&log->mutex);
}

int zam_close_log_file(void) {
    log_file *log = _get_log_file();
    if (!log->path) return 0;
    const int locked = pthread_mutex_lock(&log->mutex); // a thread may still be writing
    _close_file(log);
    const owned_text path{std::exchange(log->path, nullptr)}; // goes back to the hooks behind the unlock
    if (locked == 0) pthread_mutex_unlock(&log->mutex);
    const int result = pthread_mutex_destroy(&log->mutex);
    if (result == 0) log->mutex = idle_mutex;
    return result;
}
