// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// A scripted server: a thread that listens on a unix socket, answers frames as the test says, and keeps what it got.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "support/files.h"
#include "support/frames.h"

namespace zam::test {

class Peer {
public:
    // The frames to send back for one that arrived. Runs on the peer's thread.
    using Answer = std::function<std::vector<Frame>(const Frame &)>;

    Peer(); // answers as `obliging` does until told otherwise
    ~Peer();
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    const std::string &url() const { return url_; }
    void answer_with(Answer answer);

    // To the connection that is open; waits for one.
    void send(const Frame &frame) { send_raw(encode(frame)); }
    void send_raw(const std::string &bytes);
    void drop_connection(); // closes it; the peer goes on listening
    void stop_listening();  // later connects are refused

    // The first frame, received earlier or by the deadline, for which the predicate holds; each is returned once.
    std::optional<Frame> wait_for(const std::function<bool(const Frame &)> &wanted,
                                  std::chrono::milliseconds deadline = std::chrono::seconds{10});
    std::optional<Frame> wait_for_request(std::string_view holding);
    std::optional<Frame> wait_for_reply(uint32_t seq);
    std::vector<Frame> received() const; // everything so far, in order
    int connections() const { return connections_; }

    // register: session id 7; other requests: an empty reply; rewake: echoed; everything else: nothing.
    static std::vector<Frame> obliging(const Frame &frame);
    static Frame reply_to(const Frame &request, std::string payload = {});

private:
    void run();
    bool serve(int fd, Decoder &decoder);
    void wake();

    TempDir dir_;
    std::string url_;
    int listen_fd_ = -1;
    int wake_fd_ = -1;
    std::atomic<int> connections_ = 0;
    std::atomic<bool> stopping_ = false;
    std::atomic<bool> drop_ = false;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    Answer answer_ = obliging;
    int fd_ = -1;
    std::vector<Frame> frames_;
    std::vector<bool> taken_;
    std::thread thread_;
};

} // namespace zam::test
