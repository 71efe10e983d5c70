// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The string builder: short texts stay in the caller's record, longer ones move to the heap. `text` is null before the
// first use, points to the inline storage while capacity is 128, and to a block from the hooks afterwards.
#include <zamc/utils.h>

#include <algorithm>

#include <zamc/logger.h>

#include "platform/bounded.h"
#include "runtime/mem_internal.h"

using zam::runtime::mem_zeroed;
using zam::runtime::owned_text;

namespace {

void _release_text(zam_string *string) {
    if (string->text != string->inline_text) zam_free(string->text);
}

bool _copy_text(char *dst, size_t room, const char *src, uint32_t length) {
    const int error = memmove_s(dst, room, src, length);
    if (error != 0) zam_log_printf(ZAM_LOG_WRONG, "Wrong to memmove_s,errcode:%d.\n", error);
    return error == 0;
}

// `data` need not end in a NUL, and no log line shows more than the part that is copied here.
void _report_no_memory(const char *data, uint32_t length) {
    char shown[1024];
    strncpy_s(shown, sizeof shown, data, std::min<size_t>(length, sizeof shown - 1));
    zam_log_printf(ZAM_LOG_WRONG, "Allocate memory for put string '%s' unsuccessful.\n", shown);
}

// Moves to a block that holds `length` more characters and puts them there. The old block goes last: the new
// characters may come from it.
bool _grow_and_put(zam_string *string, const char *data, uint32_t length) {
    const uint64_t capacity = string->capacity + std::max<uint64_t>(string->capacity, uint64_t{length} + 1);
    owned_text block{static_cast<char *>(mem_zeroed(capacity))};
    if (!block) {
        _report_no_memory(data, length);
        return false;
    }
    if (!_copy_text(block.get(), capacity, string->text, string->length)) return false;
    if (!_copy_text(block.get() + string->length, capacity - string->length, data, length)) return false;
    _release_text(string);
    string->text = block.release();
    string->capacity = static_cast<uint32_t>(capacity);
    return true;
}

} // namespace

void zam_init_string(zam_string *string) {
    if (!string) return;
    string->text = string->inline_text;
    string->length = 0;
    string->capacity = ZAM_STRING_INLINE;
    string->inline_text[0] = '\0';
}

void zam_reset_string(zam_string *string) {
    if (!string) return;
    _release_text(string);
    zam_init_string(string);
}

char *zam_put_string(zam_string *string, const char *data, uint32_t length) {
    if (!string) return nullptr;
    if (!string->text) zam_init_string(string);
    if (!data || length == 0) return string->text;
    if (uint64_t{string->length} + length >= string->capacity) {
        if (!_grow_and_put(string, data, length)) return nullptr;
    } else if (!_copy_text(string->text + string->length, string->capacity - string->length, data, length)) {
        return nullptr;
    }
    string->length += length;
    string->text[string->length] = '\0';
    return string->text;
}
