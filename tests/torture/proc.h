// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// What the kernel says of another process.
#pragma once

#include <cstdint>

#include <sys/types.h>

namespace zam::torture {

struct ProcessState {
    uint64_t resident_kb = 0;
    uint64_t descriptors = 0;
    uint64_t threads = 0;
    uint64_t switches = 0; // times that it was put to sleep or had to make room
    double cpu_s = 0;
};

ProcessState state_of(pid_t pid);

} // namespace zam::torture
