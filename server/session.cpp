// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// A connection's life: start() arms its descriptor, wakes bring frames in, and
// close() takes it out of service. Its descriptor stays open until the server
// buries it, so that no other connection gets the same number in the same round.
//
// Readiness is edge-triggered. readable_ remembers an edge until a read has
// emptied the socket (and, after a hang-up, until one has seen the end), and a session that spent its share with work
// left asks for another turn, so that one busy peer delays the others by one share at most. Room to write is watched
// only while something waits to be written.
//
// What a peer can make the server hold is bounded: input by the frame limit,
// output by the output limit, beyond which the connection is given up.
#include "session.h"

#include <cinttypes>
#include <new>

#include <sys/epoll.h>
#include <sys/socket.h>

#include <zamc/logger.h>

#include "dispatch.h"
#include "log.h"
#include "reply.h"
#include "server.h"

namespace zamd {
namespace {

// A peer that answers nothing must not make the server remember requests without end.
constexpr size_t most_asked = 1U << 20;

} // namespace

Session::Session(Server &server, uint32_t id, Descriptor fd) : server_(server), id_(id), fd_(std::move(fd)) {}

Session::~Session() {
    if (armed_) zam_trigger_unarm(server_.proactor(), trigger_.get());
}

bool Session::start() {
    trigger_.reset(zam_trigger_new(fd_.get(), this, on_wake, nullptr));
    armed_ = trigger_ && zam_trigger_arm(server_.proactor(), trigger_.get(), EPOLLIN) == 0;
    return armed_;
}

std::string Session::label() const {
    std::string label = "session " + std::to_string(id_);
    if (profile_) label += " (" + log_text(profile_->name) + ")";
    return label;
}

std::string Session::peer() const {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (getsockopt(fd_.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0 || credentials.pid <= 0)
        return "a remote peer";
    return "process " + std::to_string(credentials.pid) + " of user " + std::to_string(credentials.uid);
}

void Session::on_wake(zam_proactor *, void *arg, uint32_t events) {
    static_cast<Session *>(arg)->wake(events);
}

void Session::wake(uint32_t events) {
    if (closed_) return;
    if ((events & EPOLLOUT) != 0) flush();
    if ((events & ~uint32_t{EPOLLOUT}) == 0) return;
    readable_ = true;
    hung_up_ = hung_up_ || (events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0;
    turn();
}

void Session::turn() {
    try {
        work();
    } catch (const std::bad_alloc &) {
        close("there is not enough memory for what it asks");
    }
}

void Session::work() {
    const Share share;
    while (!closed_) {
        if (!handle_buffered(share)) break;
        if (ended_) {
            flush(); // it may have stopped sending and still read
            return close("the peer closed it");
        }
        if (!readable_) return;
        if (share.spent()) break;
        switch (input_.read_from(fd_.get())) {
        case InputBuffer::Fill::more: break;
        case InputBuffer::Fill::drained: readable_ = std::exchange(hung_up_, false); break;
        case InputBuffer::Fill::ended: ended_ = true; break;
        case InputBuffer::Fill::failed: return close("reading from it failed");
        }
    }
    if (!closed_) server_.schedule(*this);
}

// False when the share is spent with frames left.
bool Session::handle_buffered(const Share &share) {
    const Limits &limits = server_.limits();
    for (bool first = true; !closed_; first = false) {
        if (!first && share.spent()) return false;
        Frame frame;
        const InputBuffer::Peek found = input_.peek(frame, limits.frame);
        if (input_.dropped() > 0)
            zam_log_printf(ZAM_LOG_WARN, "Dropped %zu bytes of %s that are no frame.\n", input_.dropped(),
                           label().c_str());
        if (found == InputBuffer::Peek::nothing) return true;
        if (found == InputBuffer::Peek::too_long) {
            zam_log_printf(ZAM_LOG_WARN, "A frame of %s announces %u bytes, more than the limit of %u.\n",
                           label().c_str(), input_.announced(), limits.frame);
            close("its frame is too long");
            return true;
        }
        handle(frame);
        input_.take();
    }
    return true;
}

void Session::handle(const Frame &frame) {
    switch (frame.type) {
    case ZAM_MESSAGE_REQUEST: return server_.dispatch().request(*this, frame);
    case ZAM_MESSAGE_REPLY: return handle_reply(frame);
    case ZAM_MESSAGE_REWAKE: return send(ZAM_MESSAGE_REWAKE, 0, frame.encoding, {});
    default:
        zam_log_printf(ZAM_LOG_WARN, "Dropped a frame of %s with unknown type %u and %zu bytes.\n", label().c_str(),
                       frame.type, frame.payload.size());
    }
}

void Session::handle_reply(const Frame &frame) {
    const auto found = asked_.find(frame.seq);
    if (found == asked_.end()) {
        zam_log_printf(ZAM_LOG_INFO, "Dropped a reply of %s to request %u, which nobody waits for.\n", label().c_str(),
                       frame.seq);
        return;
    }
    const AnswerFn handler = std::move(found->second.answer);
    asked_.erase(found);
    handler(read_answer(server_.context(), frame));
}

void Session::send(uint32_t type, uint32_t seq, uint32_t encoding, Payload payload) {
    if (closed_) return;
    // What waits already decides: a single answer longer than the limit reaches a peer that reads.
    if (output_.bytes() > server_.limits().output) flush();
    if (closed_) return;
    if (output_.bytes() > server_.limits().output) {
        zam_log_printf(ZAM_LOG_WARN, "%zu bytes wait for %s, more than the limit of %" PRIu64 ".\n", output_.bytes(),
                       label().c_str(), server_.limits().output);
        return close("it does not read");
    }
    output_.push(type, seq, encoding, std::move(payload));
    server_.flush_later(*this);
}

bool Session::overloaded() const {
    return output_.bytes() > server_.limits().output / 2;
}

uint32_t Session::ask(std::string request, uint32_t cause, AnswerFn answer) {
    if (asked_.size() >= most_asked) close("it answers nothing");
    while (next_seq_ == 0 || asked_.contains(next_seq_))
        next_seq_++;
    const uint32_t seq = next_seq_++;
    asked_.emplace(seq, Asked{cause, std::move(answer)});
    send(ZAM_MESSAGE_REQUEST, seq, profile_ ? profile_->encode : uint32_t{ZAM_ENCODE_JSON},
         {std::move(request), {}, {}});
    return seq;
}

std::vector<uint32_t> Session::causes() const {
    std::vector<uint32_t> causes;
    for (const auto &[seq, asked] : asked_)
        if (asked.cause != 0) causes.push_back(asked.cause);
    return causes;
}

void Session::flush() {
    if (closed_) return;
    switch (output_.flush(fd_.get())) {
    case OutputQueue::Flush::blocked: return watch_output(true);
    case OutputQueue::Flush::failed: return close("writing to it failed");
    case OutputQueue::Flush::done: break;
    }
    watch_output(false);
    if (const auto action = std::exchange(when_drained_, nullptr)) action();
}

void Session::watch_output(bool on) {
    if (watching_output_ == on) return;
    watching_output_ = on;
    const uint32_t events = on ? EPOLLIN | EPOLLOUT : EPOLLIN;
    if (zam_trigger_rearm(server_.proactor(), trigger_.get(), events) != 0) close("its descriptor cannot be watched");
}

void Session::close(const char *reason) {
    if (closed_) return;
    zam_log_printf(ZAM_LOG_INFO, "Closed %s: %s.\n", label().c_str(), reason);
    closed_ = true;
    server_.bury_later(*this);
}

void Session::lose_asked() {
    for (auto &[seq, asked] : std::exchange(asked_, {}))
        asked.answer({Answer::Kind::lost, {}, {}, ZAM_ENCODE_JSON, {}});
}

} // namespace zamd
