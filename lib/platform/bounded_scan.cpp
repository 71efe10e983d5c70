// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// vsscanf_s, one directive of the format at a time.
//
// Handing the whole format to the C library would let %s and %[ write past their destination, so the text directives
// are done here, against the size that follows each destination. A number goes to the C library as a format of its own
// with "%n" behind it, which tells where the next directive goes on. A cursor holds the two places and the arguments;
// every step says whether the walk goes on, and why it ended decides between the count and -1.
#include "platform/bounded.h"

#ifndef ZAMC_PLATFORM_BOUNDED_HEADER

#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>

namespace {

enum class step { done, no_match, no_input };

struct cursor {
    const char *start; // of the text, for %n
    const char *text;
    const char *format;
    int assigned;
    va_list args;
};

// One conversion of the format, taken apart.
struct directive {
    const char *begin; // of the width, behind "%" and "*"
    const char *set;   // of a %[ the characters between the brackets
    const char *set_end;
    const char *end; // behind the conversion
    size_t width;    // 0: none given
    char length[3];  // "hh", "h", "l", "ll", "j", "z", "t", "L", "q" or ""
    char conversion;
    bool suppressed;
    bool negated; // %[^
};

constexpr size_t number_format_max = 32; // "%", width, length, conversion, "%n": a longer width is nobody's intention

bool _is_space(char c) {
    return isspace(static_cast<unsigned char>(c)) != 0;
}

void _skip_space(cursor &at) {
    while (_is_space(*at.text))
        at.text++;
}

bool _parse_set(const char *at, directive &what) {
    what.negated = *at == '^';
    if (what.negated) at++;
    what.set = at;
    if (*at == ']') at++; // a bracket that opens the set is one of its characters
    while (*at != '\0' && *at != ']')
        at++;
    what.set_end = at;
    what.end = at + 1;
    return *at == ']';
}

// Takes the conversion behind "%" apart; false for one that we do not do.
bool _parse_directive(const char *at, directive &what) {
    what.suppressed = *at == '*';
    if (what.suppressed) at++;
    what.begin = at;
    if (*at == '0') return false;
    for (; *at >= '0' && *at <= '9'; at++) {
        if (what.width > INT32_MAX / 10) return false;
        what.width = what.width * 10 + static_cast<size_t>(*at - '0');
    }
    for (size_t i = 0; i < 2 && *at != '\0' && strchr("hljztLq", *at); i++)
        what.length[i] = *at++;
    what.conversion = *at;
    what.end = at + 1;
    if (*at == '\0') return false;
    if (strchr("cs[", *at) && what.length[0] != '\0') return false;
    if (*at == '[') return _parse_set(at + 1, what);
    return strchr("diouxXpaAeEfFgGcsn", *at) != nullptr;
}

bool _in_set(const directive &what, char c) {
    for (const char *at = what.set; at < what.set_end; at++) {
        const bool range = what.set_end - at > 2 && at[1] == '-';
        const auto low = static_cast<unsigned char>(*at);
        const auto high = static_cast<unsigned char>(range ? at[2] : *at);
        const auto sought = static_cast<unsigned char>(c);
        if (sought >= low && sought <= high) return true;
        if (range) at += 2;
    }
    return false;
}

// How many characters at the cursor the text directive takes; 0: none.
size_t _match_text(const cursor &at, const directive &what) {
    if (what.conversion == 'c') {
        const size_t wanted = what.width ? what.width : 1;
        return strnlen(at.text, wanted) == wanted ? wanted : 0;
    }
    const size_t limit = what.width ? what.width : SIZE_MAX;
    size_t length = 0;
    for (; length < limit && at.text[length] != '\0'; length++) {
        const char c = at.text[length];
        if (what.conversion == 's' ? _is_space(c) : _in_set(what, c) == what.negated) break;
    }
    return length;
}

// Whether a destination lies over the text that is being read: writing there could take its end away.
bool _overlaps_text(const cursor &at, const char *dst, size_t needed) {
    const auto text = reinterpret_cast<uintptr_t>(at.start);
    const auto place = reinterpret_cast<uintptr_t>(dst);
    const size_t whole = static_cast<size_t>(at.text - at.start) + strlen(at.text) + 1;
    return place >= text ? place - text < whole : text - place < needed;
}

step _scan_text(cursor &at, const directive &what) {
    char *dst = what.suppressed ? nullptr : va_arg(at.args, char *);
    const size_t size = what.suppressed ? 0 : va_arg(at.args, uint32_t);
    if (what.conversion == 's') _skip_space(at);
    if (*at.text == '\0') return step::no_input;
    const size_t length = _match_text(at, what);
    if (length == 0) return step::no_match;
    if (!what.suppressed) {
        // %c fills its destination to the last byte; the others end what they write.
        const size_t needed = what.conversion == 'c' ? length : length + 1;
        if (!dst || needed > size || _overlaps_text(at, dst, needed)) {
            zam::platform::refuse_text(dst, size, ERANGE);
            return step::no_match;
        }
        memcpy(dst, at.text, length);
        if (what.conversion != 'c') dst[length] = '\0';
        at.assigned++;
    }
    at.text += length;
    return step::done;
}

template <typename Integer>
void _store(void *dst, ptrdiff_t offset) {
    *static_cast<Integer *>(dst) = static_cast<Integer>(offset);
}

step _store_offset(cursor &at, const directive &what) {
    if (what.suppressed) return step::done;
    void *dst = va_arg(at.args, void *);
    if (!dst) return step::no_match;
    const ptrdiff_t offset = at.text - at.start;
    const bool twice = what.length[1] != '\0';
    switch (what.length[0]) {
    case 'h': twice ? _store<signed char>(dst, offset) : _store<short>(dst, offset); break;
    case 'l': twice ? _store<long long>(dst, offset) : _store<long>(dst, offset); break;
    case 'j': _store<intmax_t>(dst, offset); break;
    case 'z':
    case 't': _store<ptrdiff_t>(dst, offset); break;
    case 'L':
    case 'q': _store<long long>(dst, offset); break;
    default: _store<int>(dst, offset); break;
    }
    return step::done;
}

// The format is put together from a directive that was taken apart above, with the one argument that it asks for.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
step _scan_number(cursor &at, const directive &what) {
    std::array<char, number_format_max> format;
    const auto length = static_cast<int>(what.end - what.begin);
    const char *star = what.suppressed ? "*" : "";
    if (sprintf_s(format.data(), format.size(), "%%%s%.*s%%n", star, length, what.begin) < 0) return step::no_match;
    int used = -1;
    int result;
    if (what.suppressed) {
        result = sscanf(at.text, format.data(), &used);
    } else {
        void *dst = va_arg(at.args, void *);
        if (!dst) return step::no_match;
        result = sscanf(at.text, format.data(), dst, &used);
    }
    if (result == EOF) return step::no_input;
    if (used < 0) return step::no_match;
    if (!what.suppressed) at.assigned++;
    at.text += used;
    return step::done;
}
#pragma GCC diagnostic pop

step _match_literal(cursor &at, char wanted) {
    if (*at.text == '\0') return step::no_input;
    if (*at.text != wanted) return step::no_match;
    at.text++;
    return step::done;
}

step _scan_conversion(cursor &at) {
    directive what = {};
    if (!_parse_directive(at.format, what)) return step::no_match;
    at.format = what.end;
    switch (what.conversion) {
    case 'c':
    case 's':
    case '[': return _scan_text(at, what);
    case 'n': return _store_offset(at, what);
    default: return _scan_number(at, what);
    }
}

step _scan_next(cursor &at) {
    const char c = *at.format++;
    if (_is_space(c)) {
        _skip_space(at);
        return step::done;
    }
    if (c != '%') return _match_literal(at, c);
    if (*at.format != '%') return _scan_conversion(at);
    at.format++;
    _skip_space(at); // "%%" skips blanks as every conversion but %c, %[ and %n does
    return _match_literal(at, '%');
}

} // namespace

int vsscanf_s(const char *text, const char *format, va_list args) {
    if (!text || !format) return EOF;
    cursor at = {text, text, format, 0, {}};
    va_copy(at.args, args);
    step result = step::done;
    while (result == step::done && *at.format != '\0')
        result = _scan_next(at);
    va_end(at.args);
    return result == step::no_input && at.assigned == 0 ? EOF : at.assigned;
}

#endif
