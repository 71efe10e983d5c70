// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "timers.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace zamd {

Timers::Id Timers::after(std::chrono::milliseconds delay, std::function<void()> action) {
    const Id id = ++last_id_;
    by_id_[id] = queue_.emplace(Clock::now() + delay, Timer{id, std::move(action)});
    return id;
}

void Timers::cancel(Id &id) {
    const auto found = by_id_.find(std::exchange(id, 0));
    if (found == by_id_.end()) return;
    queue_.erase(found->second);
    by_id_.erase(found);
}

int Timers::wait_ms() const {
    if (queue_.empty()) return -1;
    // Rounded up: a wait that ends a fraction early would spin until the deadline.
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(queue_.begin()->first - Clock::now()).count();
    return static_cast<int>(std::clamp<int64_t>(left, 0, std::numeric_limits<int>::max()));
}

void Timers::run_due() {
    if (queue_.empty()) return;
    const auto now = Clock::now();
    while (!queue_.empty() && queue_.begin()->first <= now) {
        const Timer timer = std::move(queue_.begin()->second);
        queue_.erase(queue_.begin());
        by_id_.erase(timer.id);
        timer.action();
    }
}

} // namespace zamd
