// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// What the two programs that start have in common: each does its start once and prints one number.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "measure.h"

namespace zam::bench {

// Memory that only this process has and that no file holds as well, in KiB: it would come free with the process. Unlike
// clean pages it does not depend on who else runs the same files.
inline long private_kib() {
    FILE *file = std::fopen("/proc/self/smaps_rollup", "r");
    require(file, "no /proc/self/smaps_rollup");
    long dirty = -1;
    char line[256];
    while (dirty < 0 && std::fgets(line, sizeof line, file))
        if (std::sscanf(line, "Private_Dirty: %ld kB", &dirty) != 1) dirty = -1;
    std::fclose(file);
    return dirty;
}

} // namespace zam::bench
