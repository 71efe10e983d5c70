// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_SESSION_H
#define ZAMD_SESSION_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <unistd.h>

#include <zamc/proactor.h>

#include "frame.h"
#include "subscription.h"
#include "timers.h"

namespace zamd {

class Server;

class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    Descriptor(Descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() {
        if (fd_ >= 0) close(fd_);
    }
    int get() const { return fd_; }

private:
    int fd_;
};

struct TriggerDeleter {
    void operator()(zam_trigger *trigger) const { zam_trigger_free(trigger); }
};
using Trigger = std::unique_ptr<zam_trigger, TriggerDeleter>;

// What a client told of itself when it registered.
struct Profile {
    std::string name = "null";
    uint32_t encode = ZAM_ENCODE_JSON; // of what the server asks it: XML or JSON
    std::chrono::seconds deadline{0};  // how long it may be away before it counts as gone
    std::string api_version = "v2";
    std::vector<std::string> dependent_clients;
};

// What came of a request of the server's.
struct Answer {
    enum class Kind {
        agreed,    // empty or "<ok/>"
        output,    // anything else that is no error
        refused,   // an rpc-error
        timed_out, // said by the asker's timer, never by a session
        lost       // the connection ended first
    };

    Kind kind = Kind::agreed;
    std::string app_tag; // of a refusal
    std::string message;
    uint32_t encoding = ZAM_ENCODE_JSON;
    std::string_view payload; // only while the answer is being handled
};

using AnswerFn = std::function<void(const Answer &)>;

// One connection. It reads, hands whole frames on, and keeps what the peer has
// not taken yet. It dies at the end of the loop's round in which it was closed,
// so a handler may close any session, its own included.
class Session {
public:
    Session(Server &server, uint32_t id, Descriptor fd);
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    bool start();

    uint32_t id() const { return id_; }
    bool closed() const { return closed_; }
    bool registered() const { return profile_.has_value(); }
    const Profile &profile() const { return *profile_; }
    void set_profile(Profile profile) { profile_ = std::move(profile); }
    // How log lines and error messages name it.
    std::string label() const;
    // Who is at the other end, as far as the kernel knows.
    std::string peer() const;

    Subscriptions subscriptions;

    // Frames to the peer; they are written when the round ends.
    void send(uint32_t type, uint32_t seq, uint32_t encoding, Payload payload);
    // A request that the peer is to answer. `cause` is the session on whose behalf it is asked, 0 for none.
    uint32_t ask(std::string request, uint32_t cause, AnswerFn answer);
    // The asker waits no longer; a late answer is dropped.
    void forget(uint32_t seq) { asked_.erase(seq); }
    bool owes_answer() const { return !asked_.empty(); }
    // On whose behalf the peer is working, in the order of asking; nobody's for what the server asks for itself.
    std::vector<uint32_t> causes() const;

    // So much waits for it already that more could cost it its connection: nobody's request may do that.
    bool overloaded() const;
    // How much waits for the peer, and a call for when that is nothing.
    size_t waiting_bytes() const { return output_.bytes(); }
    void when_drained(std::function<void()> action) { when_drained_ = std::move(action); }

    // One bounded share of work: frames that are here already, then more of the socket.
    void turn();
    void flush();
    // Logs the reason and ends the connection; the server buries the session at the end of the round.
    void close(const char *reason);
    // Tells everyone who waits for an answer of this peer that none will come.
    void lose_asked();

private:
    struct Asked {
        uint32_t cause;
        AnswerFn answer;
    };

    static void on_wake(zam_proactor *proactor, void *arg, uint32_t events);
    void wake(uint32_t events);
    void work();
    bool handle_buffered(const Share &share);
    void handle(const Frame &frame);
    void handle_reply(const Frame &frame);
    void watch_output(bool on);

    Server &server_;
    uint32_t id_;
    Descriptor fd_;
    Trigger trigger_;
    bool armed_ = false;
    bool readable_ = false; // the socket may hold more
    bool hung_up_ = false;  // told with the same edge as the last bytes, never again
    bool ended_ = false;    // the peer will send no more
    bool closed_ = false;
    bool watching_output_ = false;
    InputBuffer input_;
    OutputQueue output_;
    std::function<void()> when_drained_;
    std::optional<Profile> profile_;
    uint32_t next_seq_ = 1;
    std::map<uint32_t, Asked> asked_; // in the order of asking, but for a wrapped sequence number
};

} // namespace zamd

#endif
