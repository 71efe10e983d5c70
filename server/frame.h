// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_FRAME_H
#define ZAMD_FRAME_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include <sys/uio.h>

#include <zamc/message.h>
#include <zamc/utils.h>

#include "tree.h"

namespace zamd {

// What lies in the input buffer; the payload is NUL-terminated there for as
// long as the frame is being handled.
struct Frame {
    uint32_t type = ZAM_MESSAGE_UNTYPED;
    uint32_t seq = 0;
    uint32_t encoding = ZAM_ENCODE_UNKNOWN;
    std::string_view payload;
};

// Bytes of a peer that are not handled yet. The room ahead of what has been
// received stays below 1 MiB, whatever length a frame announces.
class InputBuffer {
public:
    enum class Fill { drained, more, ended, failed };
    enum class Peek { nothing, frame, too_long };

    Fill read_from(int fd);
    // The frame at the front, after dropping what is no start of a frame;
    // take() ends its use.
    Peek peek(Frame &frame, uint32_t longest);
    void take();
    // What the last peek() dropped, and what a frame that is too long announced.
    size_t dropped() const { return dropped_; }
    uint32_t announced() const { return announced_; }

private:
    struct Free {
        void operator()(char *block) const { std::free(block); }
    };

    bool make_room();
    void compact();
    void resync();

    std::unique_ptr<char, Free> data_;
    size_t capacity_ = 0;
    size_t begin_ = 0; // unread bytes are [begin_, end_)
    size_t end_ = 0;
    size_t frame_size_ = 0; // of the frame that peek() gave out
    char covered_ = 0;      // the byte that its terminator covers
    size_t dropped_ = 0;
    uint32_t announced_ = 0;
};

// What a frame carries. A large text that libyang printed goes out from where it
// lies, between what stands before and behind it.
struct Payload {
    std::string head;
    Text body;
    std::string tail;

    size_t size() const { return head.size() + body.view().size() + tail.size(); }
};

// Frames that wait until the peer takes them.
class OutputQueue {
public:
    enum class Flush { done, blocked, failed };

    void push(uint32_t type, uint32_t seq, uint32_t encoding, Payload payload);
    // Writes as much as the socket takes: one system call for what waits, as a rule.
    Flush flush(int fd);
    size_t bytes() const { return bytes_; }
    bool empty() const { return frames_.empty(); }

private:
    struct Entry {
        std::array<char, ZAM_MESSAGE_HEADER_SIZE> header;
        Payload payload;
        size_t size() const { return header.size() + payload.size(); }
    };

    size_t gather(std::span<iovec> parts, size_t &used) const;
    void sent(size_t count);

    std::deque<Entry> frames_;
    size_t front_sent_ = 0; // bytes of the first frame that are out
    size_t bytes_ = 0;
};

} // namespace zamd

#endif
