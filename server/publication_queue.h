// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_PUBLICATION_QUEUE_H
#define ZAMD_PUBLICATION_QUEUE_H

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>

#include "session.h"
#include "store.h"

namespace zamd {

class Server;

// What a session that takes part in the running transaction reads.
struct Standing {
    View current = View::committed;
    View last = View::committed;
    const Diff *diff = nullptr;
    bool replay = false; // what is committed counts as created
};

// One transaction: a push or the replay of an activation. It runs from start()
// until it says done(), and is destroyed later in the same round.
class Transaction {
public:
    virtual ~Transaction() = default;

    virtual void start() = 0;
    virtual uint32_t pusher() const = 0; // the session that waits for its reply, 0 for none
    virtual std::optional<Standing> standing(uint32_t session) const = 0;
    // An answer of this session is needed to go on.
    virtual bool waits_for(uint32_t session) const = 0;
    // Bytes that it holds while it waits.
    virtual size_t size() const = 0;
    // Taken out of the queue before it started, or never let in.
    virtual void refuse(const Error &error) = 0;

    bool is_done() const { return done_; }

protected:
    void done() { done_ = true; }

private:
    bool done_ = false;
};

// One transaction at a time, in the order in which they came.
class PublicationQueue {
public:
    explicit PublicationQueue(Server &server) : server_(server) {}

    // A session that has too much in the queue is refused.
    void submit(std::unique_ptr<Transaction> transaction);
    // Goes on to the next transaction, when there is one and none is under way.
    void advance();
    bool can_advance() const { return running_ ? running_->is_done() : !waiting_.empty(); }

    // Where the session stands in the running transaction; committed data for everyone who takes no part.
    Standing standing(uint32_t session) const;
    // The running transaction cannot end before this session, or one that it is working for, has answered. What it
    // asks for itself must not wait for that end.
    bool holds_up(uint32_t session) const;
    // The session is about to be asked something: what it has in the queue could keep it from answering.
    void refuse_waiting(uint32_t session, const Error &error);

private:
    bool holds_up(uint32_t session, int hops) const;
    bool is_full_for(const Transaction &transaction) const;

    Server &server_;
    std::unique_ptr<Transaction> running_;
    std::deque<std::unique_ptr<Transaction>> waiting_;
};

} // namespace zamd

#endif
