// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Small helpers without state of their own, but for the one thread-local text of zam_get_str_error.
#include <zamc/utils.h>

#include <cstring>
#include <iterator>

#include <zamc/logger.h>

namespace {

// libyang's data formats; spelled out here because this layer does not know libyang.
enum : uint32_t { LYD_FORMAT_UNKNOWN = 0, LYD_FORMAT_XML = 1, LYD_FORMAT_JSON = 2 };

// Both tables start at the value 1: zero is "unknown" on either side.
constexpr uint32_t encode_of_format[] = {ZAM_ENCODE_XML, ZAM_ENCODE_JSON, ZAM_ENCODE_UNKNOWN /* LYB */};
constexpr uint32_t format_of_encode[] = {LYD_FORMAT_XML, LYD_FORMAT_JSON, LYD_FORMAT_UNKNOWN /* gpb */};

template <size_t Size>
uint32_t _translate(const uint32_t (&table)[Size], uint32_t value) {
    return value >= 1 && value <= Size ? table[value - 1] : 0;
}

constexpr size_t error_text_size = 256;
thread_local char error_text[error_text_size];

} // namespace

const char *zam_get_str_error(int32_t errnum) {
    const char *text = strerror_r(errnum, error_text, error_text_size - 1);
    if (text) return text;
    zam_log_printf(ZAM_LOG_WRONG, "Get error string from errno(%d) failed.\n", errnum);
    return "";
}

uint64_t zam_uint64_safe_add(uint64_t a, uint64_t b) {
    return b >= ~a ? UINT64_MAX : a + b;
}

uint32_t zam_lydfmt2ownfmt(uint32_t format) {
    return _translate(encode_of_format, format);
}

uint32_t zam_ownfmt2lydfmt(uint32_t encode) {
    return _translate(format_of_encode, encode);
}
