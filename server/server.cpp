// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "server.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <limits>
#include <utility>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>

#include <zamc/logger.h>
#include <zamc/sock_wrap.h>

#include "log.h"

namespace zamd {
namespace {

constexpr int wakes_before_busy = 64;
constexpr int no_limit = -1;

} // namespace

Server::Server(ly_ctx *ctx, Store &store, const Limits &limits)
    : ctx_(ctx), store_(store), limits_(limits), proactor_(zam_proactor_new()) {}

Server::~Server() = default;

Result<void> Server::listen(const std::vector<std::string> &urls) {
    if (!proactor_) return refusal("operation-failed", "cannot make an event loop");
    for (const std::string &url : urls) {
        Result<std::unique_ptr<Acceptor>> acceptor = Acceptor::open(*this, url);
        if (!acceptor) return acceptor.error();
        acceptors_.push_back(std::move(*acceptor));
    }
    return {};
}

Result<void> Server::run() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    const Descriptor fd{signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC)};
    const auto on_signal = [](zam_proactor *, void *arg, uint32_t) { static_cast<Server *>(arg)->stopping_ = true; };
    const Trigger trigger{zam_trigger_new(fd.get(), this, on_signal, nullptr)};
    if (fd.get() < 0 || !trigger || zam_trigger_arm(proactor(), trigger.get(), EPOLLIN) != 0)
        return refusal("operation-failed", std::string{"cannot watch for signals: "} + std::strerror(errno));

    while (!stopping_)
        round(no_limit);
    zam_trigger_unarm(proactor(), trigger.get());
    zam_log_printf(ZAM_LOG_NOTICE, "Stopping, %zu connections are open.\n", sessions_.size());
    acceptors_.clear(); // nobody new is let in, and the sockets' files go
    return {};
}

void Server::round(int longest_ms) {
    if (ready_.empty() && !publications_.can_advance()) {
        const int due_ms = timers_.wait_ms();
        const bool due_first = due_ms >= 0 && (longest_ms < 0 || due_ms < longest_ms);
        zam_proactor_wait(proactor(), due_first ? due_ms : longest_ms);
    } else {
        // Who has been waiting comes before the next share of those who are busy.
        for (int i = 0; i < wakes_before_busy && zam_proactor_wait(proactor(), 0) != nullptr; i++) {
        }
    }
    for (const uint32_t id : std::exchange(ready_, {}))
        if (Session *ready = session(id); ready != nullptr) ready->turn();
    timers_.run_due();
    settle();
}

// What is left of the transactions when their share is spent waits for the next round.
void Server::settle() {
    const Share share;
    do {
        if (!share.spent()) publications_.advance();
        flush_sessions();
        bury_sessions();
    } while (!unflushed_.empty() || !closed_.empty() || (publications_.can_advance() && !share.spent()));
}

void Server::flush_sessions() {
    for (const uint32_t id : std::exchange(unflushed_, {}))
        if (Session *waiting = session(id); waiting != nullptr) waiting->flush();
}

void Server::bury_sessions() {
    for (const uint32_t id : std::exchange(closed_, {})) {
        const auto found = sessions_.find(id);
        if (found == sessions_.end()) continue;
        Session &closed = *found->second;
        for (const SubscriptionPtr &subscription : closed.subscriptions.all())
            subscription->state = Subscription::State::idle; // a transaction may still hold it
        closed.lose_asked();
        activations_.session_closed(closed);
        sessions_.erase(id);
    }
}

void Server::welcome(Descriptor fd) {
    zam_socket_block(fd.get(), 0);
    fcntl(fd.get(), F_SETFD, FD_CLOEXEC);
    const int at_once = 1; // a unix socket refuses it and needs it not
    setsockopt(fd.get(), IPPROTO_TCP, TCP_NODELAY, &at_once, sizeof at_once);
    do {
        last_session_++;
    } while (last_session_ == 0 || sessions_.contains(last_session_));
    const uint32_t id = last_session_;
    auto session = std::make_unique<Session>(*this, id, std::move(fd));
    if (!session->start()) {
        zam_log_printf(ZAM_LOG_WARN, "A new connection cannot be watched and is dropped.\n");
        return;
    }
    zam_log_printf(ZAM_LOG_INFO, "Opened %s.\n", session->label().c_str());
    sessions_[id] = std::move(session);
}

Session *Server::session(uint32_t id) const {
    const auto found = sessions_.find(id);
    return found == sessions_.end() || found->second->closed() ? nullptr : found->second.get();
}

std::string Server::name_of(uint32_t id) const {
    const auto found = sessions_.find(id);
    if (found == sessions_.end() || !found->second->registered()) return "session " + std::to_string(id);
    return found->second->profile().name;
}

void Server::forget(uint32_t session, uint32_t seq) {
    if (const auto found = sessions_.find(session); found != sessions_.end()) found->second->forget(seq);
}

std::vector<Session *> Server::sessions() const {
    std::vector<Session *> registered;
    for (const auto &[id, session] : sessions_)
        if (!session->closed() && session->registered()) registered.push_back(session.get());
    return registered;
}

void Server::flush_later(const Session &session) {
    if (unflushed_.empty() || unflushed_.back() != session.id()) unflushed_.push_back(session.id());
}

void Server::reply(const Caller &caller, Payload payload) {
    Session *session = this->session(caller.session);
    if (session == nullptr) {
        zam_log_printf(ZAM_LOG_INFO, "Dropped the reply to request %u of session %u, which is gone.\n", caller.seq,
                       caller.session);
        return;
    }
    if (payload.size() > std::numeric_limits<uint32_t>::max())
        return reply_error(caller, refusal("too-big", "The answer is too long for one frame; ask for less at a time."));
    session->send(ZAM_MESSAGE_REPLY, caller.seq, caller.encoding, std::move(payload));
}

void Server::reply_error(const Caller &caller, const Error &error) {
    zam_log_printf(ZAM_LOG_INFO, "Request %u of session %u is refused, %s: %s\n", caller.seq, caller.session,
                   error.tag.c_str(), log_text(error.message).c_str());
    reply(caller, error_payload(ctx_, error, caller.encoding));
}

} // namespace zamd
