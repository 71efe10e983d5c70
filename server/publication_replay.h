// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_PUBLICATION_REPLAY_H
#define ZAMD_PUBLICATION_REPLAY_H

#include <functional>
#include <vector>

#include "publication.h"
#include "publication_queue.h"

namespace zamd {

// Tells a newly active session what exists at the targets that it subscribed
// to. It has a turn among the pushes, so that it neither misses nor repeats one.
class ReplayTransaction : public Transaction {
public:
    // `finished` is called once, whatever came of the replay.
    ReplayTransaction(Server &server, uint32_t session, std::function<void()> finished);

    void start() override;
    uint32_t pusher() const override { return 0; }
    std::optional<Standing> standing(uint32_t session) const override;
    bool waits_for(uint32_t session) const override { return round_.waits_for(session); }
    size_t size() const override { return 0; }
    void refuse(const Error &) override {}

private:
    void collect(Session &session);
    void next_group();
    void on_answer(Publication &publication, const Answer &answer, bool last);
    void finish();

    Server &server_;
    uint32_t session_;
    std::function<void()> finished_;
    std::vector<Publication> publications_; // in the order of priority
    Round round_;
};

} // namespace zamd

#endif
