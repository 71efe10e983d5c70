// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_SERVER_H
#define ZAMD_SERVER_H

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <zamc/proactor.h>

#include "acceptor.h"
#include "activation.h"
#include "dispatch.h"
#include "operation.h"
#include "options.h"
#include "publication_queue.h"
#include "query.h"
#include "reply.h"
#include "session.h"
#include "store.h"
#include "timers.h"

namespace zamd {

// The loop and what lives in it: one thread, one round after the other. A round
// waits for one wake, gives every session with work left its share, runs the
// timers that are due, then writes what was queued, buries closed sessions and
// takes the next transaction, until none of these has anything to do.
class Server {
public:
    Server(ly_ctx *ctx, Store &store, const Limits &limits);
    ~Server();

    // Nothing listens when one of the addresses is refused: the error names it.
    Result<void> listen(const std::vector<std::string> &urls);
    // Until SIGTERM or SIGINT, which main() has blocked.
    Result<void> run();
    // One turn of the loop that run() is; waits for something to do, at most so long, or without limit when negative.
    void round(int longest_ms);

    ly_ctx *context() const { return ctx_; }
    Store &store() { return store_; }
    const Limits &limits() const { return limits_; }
    zam_proactor *proactor() const { return proactor_.get(); }
    Timers &timers() { return timers_; }
    Dispatch &dispatch() { return dispatch_; }
    PublicationQueue &publications() { return publications_; }
    Activations &activations() { return activations_; }
    Queries &queries() { return queries_; }
    Operations &operations() { return operations_; }

    void welcome(Descriptor fd);
    // Null for a session that is gone or closed.
    Session *session(uint32_t id) const;
    // A client's name for messages, also while its closed session is being buried.
    std::string name_of(uint32_t session) const;
    // No answer to this request is wanted any more, also of a session that is closed already.
    void forget(uint32_t session, uint32_t seq);
    // Registered sessions in the order in which they came.
    std::vector<Session *> sessions() const;

    void reply(const Caller &caller, Payload payload);
    void reply_error(const Caller &caller, const Error &error);

    // What sessions ask of the round.
    void schedule(const Session &session) { ready_.push_back(session.id()); }
    void flush_later(const Session &session);
    void bury_later(const Session &session) { closed_.push_back(session.id()); }

private:
    struct ProactorDeleter {
        void operator()(zam_proactor *proactor) const { zam_proactor_free(proactor); }
    };
    using Sessions = std::map<uint32_t, std::unique_ptr<Session>>;

    void settle();
    void flush_sessions();
    void bury_sessions();

    ly_ctx *ctx_;
    Store &store_;
    Limits limits_;
    std::unique_ptr<zam_proactor, ProactorDeleter> proactor_;
    Timers timers_;
    Dispatch dispatch_{*this};
    Sessions sessions_;
    PublicationQueue publications_{*this};
    Activations activations_{*this};
    Queries queries_{*this};
    Operations operations_{*this};
    std::vector<std::unique_ptr<Acceptor>> acceptors_;
    std::vector<uint32_t> ready_;
    std::vector<uint32_t> unflushed_;
    std::vector<uint32_t> closed_;
    uint32_t last_session_ = 0;
    bool stopping_ = false;
};

} // namespace zamd

#endif
