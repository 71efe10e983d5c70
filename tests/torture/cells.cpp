// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "torture/cells.h"

#include <poll.h>

namespace zam::torture {

bool eventually(const std::function<bool()> &holds, milliseconds deadline) {
    const auto until = Clock::now() + deadline;
    while (!holds()) {
        if (Clock::now() >= until) return false;
        poll(nullptr, 0, 1);
    }
    return true;
}

} // namespace zam::torture
