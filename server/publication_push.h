// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_PUBLICATION_PUSH_H
#define ZAMD_PUBLICATION_PUSH_H

#include <map>
#include <optional>
#include <vector>

#include "publication.h"
#include "publication_queue.h"
#include "reply.h"

namespace zamd {

// A push: its change is made, told to those whom it concerns, and committed
// when all have agreed or taken back when one has not.
class PushTransaction : public Transaction {
public:
    PushTransaction(Server &server, Caller caller, PushRequest request);

    void start() override;
    uint32_t pusher() const override { return caller_.session; }
    std::optional<Standing> standing(uint32_t session) const override;
    bool waits_for(uint32_t session) const override { return round_.waits_for(session); }
    size_t size() const override { return request_.content.size(); }
    void refuse(const Error &error) override;

private:
    enum class Phase { preparing, publishing, committing, rolling_back, settled };
    enum class Part { forward, back }; // what a session that was told of the change is asked to do
    using Step = Phase (PushTransaction::*)();

    void go(Phase phase);
    Phase prepare();
    Phase publish();
    Phase commit();
    Phase roll_back();
    Phase settle();

    void collect();
    void on_verdict(Publication &publication, const Answer &answer, bool last);
    void on_undone(Publication &publication, const Answer &answer, bool last);
    void tell(Publication &publication, Scene scene);
    void undo_unawaited(uint32_t silent_session);

    Server &server_;
    Caller caller_;
    PushRequest request_;
    Phase phase_ = Phase::preparing;
    std::optional<Change> change_;
    std::vector<Publication> publications_; // in the order of priority
    std::map<uint32_t, Part> parts_;        // by session
    std::optional<Error> failure_;
    Round round_;
};

} // namespace zamd

#endif
