// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The least that an exchange can cost: two processes, one unix socket, the same frames, and the work in libyang that
// nobody who understands the data can leave out. No sessions, no checks beyond libyang's, no time-outs, no queues, no
// log, no hooks. What each exchange holds stands at its declaration; README.md says how it is compared.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace zam::bench {

// A request or a reply; the payload ends in a NUL and lives until the next receive of its channel.
struct FloorFrame {
    uint8_t type;
    uint32_t seq;
    std::string_view payload;
};

// One end of a connection: blocking, one write a frame, one read where the kernel hands all of it over at once.
class FloorChannel {
public:
    explicit FloorChannel(int fd);
    int fd() const { return fd_; }
    // Gives up when the peer is gone, which the next receive tells.
    void send(uint8_t type, uint32_t seq, std::initializer_list<std::string_view> parts);
    bool receive(FloorFrame &frame); // false when the peer is gone
    bool has_input() const { return end_ > begin_; }

private:
    bool fill(size_t wanted); // reads until so many bytes are there

    int fd_;
    std::vector<char> buffer_;
    size_t begin_ = 0;
    size_t end_ = 0;
    size_t terminated_ = 0; // where a NUL stands in place of a byte of the next frame; 0: nowhere
    char covered_ = 0;
};

// The floor's server with its data in a process of its own, perhaps a subscriber in another one, and the client here,
// which needs the library's schema context with the benchmarks' module for its calls.
class Floor {
public:
    Floor(const std::string &startup, bool with_subscriber);
    ~Floor();
    Floor(const Floor &) = delete;
    Floor &operator=(const Floor &) = delete;
    const std::vector<pid_t> &pids() const { return pids_; }

    // verify-configuration. Client: request built and printed by libyang, reply parsed. Server: request parsed, reply
    // put together as text.
    void verify();
    // pull. Client: request built and printed, the data of the reply copied out. Server: request parsed, node found,
    // printed.
    std::string pull(const std::string &entity);
    // The same, and the client parses the data, without validation.
    void pull_tree(const std::string &entity);
    // push. Client: request built and printed. Server: request parsed, edit built, merged, and all validated; one
    // publication sent to the subscriber, its answer read; an empty reply. Subscriber: publication parsed, answered.
    void push(const std::string &entity, const std::string &name, const std::string &value);

private:
    std::string_view exchange(const std::string &request);

    std::unique_ptr<FloorChannel> channel_;
    std::vector<pid_t> pids_;
    uint32_t seq_ = 0;
};

} // namespace zam::bench
