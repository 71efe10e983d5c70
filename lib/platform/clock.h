// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Time for deadlines, which no change of the date moves.
#ifndef ZAMC_PLATFORM_CLOCK_H
#define ZAMC_PLATFORM_CLOCK_H

#include <cstdint>
#include <ctime>

namespace zam::platform {

inline int64_t monotonic_ms() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

} // namespace zam::platform

#endif
