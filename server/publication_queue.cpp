// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "publication_queue.h"

#include <algorithm>
#include <utility>

#include "server.h"

namespace zamd {
namespace {

// A handler that asks for something whose handler asks for something, and so on: deeper chains run into time limits.
constexpr int most_hops = 8;

constexpr size_t most_waiting = 256; // pushes of one session; their contents together fit into one frame

} // namespace

void PublicationQueue::submit(std::unique_ptr<Transaction> transaction) {
    if (is_full_for(*transaction))
        return transaction->refuse(refusal("resource-denied", "Too many changes of this client wait already."));
    waiting_.push_back(std::move(transaction));
    if (!running_) advance();
}

bool PublicationQueue::is_full_for(const Transaction &transaction) const {
    if (transaction.pusher() == 0) return false;
    size_t count = 0;
    size_t bytes = transaction.size();
    for (const auto &waiting : waiting_) {
        if (waiting->pusher() != transaction.pusher()) continue;
        count++;
        bytes += waiting->size();
    }
    return count >= most_waiting || (count > 0 && bytes > server_.limits().frame);
}

void PublicationQueue::advance() {
    if (!can_advance()) return;
    running_.reset();
    if (waiting_.empty()) return;
    running_ = std::move(waiting_.front());
    waiting_.pop_front();
    running_->start();
}

Standing PublicationQueue::standing(uint32_t session) const {
    if (!running_ || running_->is_done()) return {};
    return running_->standing(session).value_or(Standing{});
}

bool PublicationQueue::holds_up(uint32_t session) const {
    return running_ && holds_up(session, most_hops);
}

bool PublicationQueue::holds_up(uint32_t id, int hops) const {
    if (id == 0 || hops == 0) return false;
    if (running_->waits_for(id)) return true;
    const Session *session = server_.session(id);
    if (session == nullptr) return false;
    const std::vector<uint32_t> causes = session->causes();
    return std::any_of(causes.begin(), causes.end(), [&](uint32_t cause) { return holds_up(cause, hops - 1); });
}

void PublicationQueue::refuse_waiting(uint32_t session, const Error &error) {
    const auto theirs = std::stable_partition(waiting_.begin(), waiting_.end(),
                                              [&](const auto &waiting) { return waiting->pusher() != session; });
    for (auto waiting = theirs; waiting != waiting_.end(); ++waiting)
        (*waiting)->refuse(error);
    waiting_.erase(theirs, waiting_.end());
}

} // namespace zamd
