// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The characters of JSON and XML, for the files that read them.
#ifndef ZAMD_TEXT_INTERNAL_H
#define ZAMD_TEXT_INTERNAL_H

#include <cstdint>
#include <string_view>

namespace zamd {

inline bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}
inline bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

inline int hex_digit(char c) {
    if (is_digit(c)) return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// The code unit of the four digits at `at`, or -1.
inline int32_t hex_quad(std::string_view text, std::size_t at) {
    if (at + 4 > text.size()) return -1;
    int32_t unit = 0;
    for (std::size_t i = at; i < at + 4; ++i) {
        int digit = hex_digit(text[i]);
        if (digit < 0) return -1;
        unit = unit * 16 + digit;
    }
    return unit;
}

inline bool is_high_surrogate(int32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
inline bool is_low_surrogate(int32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

} // namespace zamd

#endif
