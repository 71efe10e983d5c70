// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "fuzz.h"

#include <array>
#include <cstdarg>
#include <cstdio>

#include <libyang/libyang.h>
#include <zamc/attributes.h>
#include <zamc/logger.h>

namespace zam::fuzz {
namespace {

int drop(int level, const char *format, ...) ZAM_PRINTF(2, 3);
int drop(int, const char *format, ...) {
    std::array<char, 512> line{};
    va_list args;
    va_start(args, format);
    std::vsnprintf(line.data(), line.size(), format, args);
    va_end(args);
    return 0;
}

} // namespace

void silence_log() {
    zam_log_config(ZAM_LOG_DEBUG, drop);
}

bool planted() {
    static const bool wanted = std::getenv("ZAMC_PLANT") != nullptr;
    return wanted;
}

void planted_fault() {
    std::fputs("the planted fault\n", stderr);
    std::abort();
}

void broken(const char *condition, const char *file, int line) {
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
    std::abort();
}

} // namespace zam::fuzz
