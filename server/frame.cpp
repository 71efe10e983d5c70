// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Input: bytes arrive behind end_, frames leave at begin_, and the rest moves to
// the front only when the room behind it is used up, so that a buffer full of
// small frames is handled in time linear in their number.
//
// Invariants: capacity_ >= end_ + 1 whenever a frame is out (its terminator may
// cover the byte at end_); a peek never looks at a length before the whole
// header is there; the header at begin_ starts with the magic when a frame or
// a length is reported.
//
// Output: a frame is queued whole or not at all; only the first one may be out
// in part.
#include "frame.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

namespace zamd {
namespace {

constexpr std::array<char, 4> magic{0, '\xFB', '\xBF', 0};
constexpr size_t first_room = 16U << 10;              // a typical request fits at once
constexpr size_t most_room = (1U << 20) - (4U << 10); // held ahead of what was received
constexpr size_t idle_capacity = 64U << 10;           // kept by a connection that has nothing to say
constexpr size_t gathered = 32;                       // frames that one write takes along
constexpr size_t parts_of_frame = 4;                  // header; head, body and tail of the payload

void _store32(char *to, uint32_t value) {
    to[0] = static_cast<char>(value >> 24);
    to[1] = static_cast<char>(value >> 16);
    to[2] = static_cast<char>(value >> 8);
    to[3] = static_cast<char>(value);
}

uint32_t _load32(const char *from) {
    uint32_t value = 0;
    for (int i = 0; i < 4; i++)
        value = value << 8 | static_cast<unsigned char>(from[i]);
    return value;
}

std::array<char, ZAM_MESSAGE_HEADER_SIZE> _header(uint32_t type, uint32_t seq, uint32_t encoding, uint32_t length) {
    std::array<char, ZAM_MESSAGE_HEADER_SIZE> header{};
    std::copy(magic.begin(), magic.end(), header.begin());
    header[4] = static_cast<char>(encoding & 0xFU);
    if (type == ZAM_MESSAGE_REWAKE)
        header[5] = 1;
    else
        header[4] = static_cast<char>(header[4] | 0x10 << type);
    _store32(&header[8], seq);
    _store32(&header[12], length);
    return header;
}

} // namespace

void InputBuffer::compact() {
    if (begin_ == end_) {
        begin_ = end_ = 0;
        if (capacity_ > idle_capacity) {
            data_.reset();
            capacity_ = 0;
        }
        return;
    }
    if (begin_ == 0) return;
    std::memmove(data_.get(), data_.get() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
}

bool InputBuffer::make_room() {
    if (begin_ == end_ || end_ + 1 >= capacity_) compact();
    if (end_ + 1 < capacity_) return true;
    const size_t wanted = end_ + std::clamp(end_, first_room, most_room);
    char *grown = static_cast<char *>(std::realloc(data_.get(), wanted));
    if (grown == nullptr) return false;
    static_cast<void>(data_.release());
    data_.reset(grown);
    capacity_ = wanted;
    return true;
}

InputBuffer::Fill InputBuffer::read_from(int fd) {
    if (!make_room()) return Fill::failed;
    const size_t room = capacity_ - end_ - 1;
    ssize_t count;
    do {
        count = read(fd, data_.get() + end_, room);
    } while (count < 0 && errno == EINTR);
    if (count == 0) return Fill::ended;
    if (count < 0) return errno == EAGAIN || errno == EWOULDBLOCK ? Fill::drained : Fill::failed;
    end_ += static_cast<size_t>(count);
    // A read that gives less than it could has emptied the socket.
    return static_cast<size_t>(count) < room ? Fill::drained : Fill::more;
}

void InputBuffer::resync() {
    const std::string_view unread{data_.get() + begin_, end_ - begin_};
    const std::string_view start{magic.data(), magic.size()};
    size_t keep_from = unread.find(start);
    if (keep_from == std::string_view::npos) {
        // The end of what has arrived may be the beginning of a magic.
        keep_from = unread.size() - std::min(unread.size(), start.size() - 1);
        while (!start.starts_with(unread.substr(keep_from)))
            keep_from++;
    }
    dropped_ = keep_from;
    begin_ += keep_from;
}

InputBuffer::Peek InputBuffer::peek(Frame &frame, uint32_t longest) {
    dropped_ = 0;
    if (begin_ == end_) return Peek::nothing;
    resync();
    const size_t size = end_ - begin_;
    if (size < ZAM_MESSAGE_HEADER_SIZE) return Peek::nothing;
    char *front = data_.get() + begin_;
    announced_ = _load32(front + 12);
    if (announced_ > longest) return Peek::too_long;

    zam_message message{};
    // Not more than the frame itself, as the buffer may hold more than 32 bits count.
    const uint64_t whole = uint64_t{ZAM_MESSAGE_HEADER_SIZE} + announced_;
    if (whole > UINT32_MAX || size < whole) return Peek::nothing;
    if (zam_message_peek(front, static_cast<uint32_t>(whole), &message) != 1) return Peek::nothing;
    frame = {zam_message_type(&message), zam_message_seq(&message), message.encoding, {message.data, message.length}};
    frame_size_ = whole;
    covered_ = front[whole];
    front[whole] = '\0';
    return Peek::frame;
}

void InputBuffer::take() {
    data_.get()[begin_ + frame_size_] = covered_;
    begin_ += frame_size_;
    frame_size_ = 0;
}

void OutputQueue::push(uint32_t type, uint32_t seq, uint32_t encoding, Payload payload) {
    Entry entry{_header(type, seq, encoding, static_cast<uint32_t>(payload.size())), std::move(payload)};
    bytes_ += entry.size();
    frames_.push_back(std::move(entry));
}

// The unsent parts of the frames at the front; returns their bytes.
size_t OutputQueue::gather(std::span<iovec> parts, size_t &used) const {
    size_t skip = front_sent_;
    size_t total = 0;
    for (auto entry = frames_.begin(); entry != frames_.end() && used + parts_of_frame <= parts.size(); ++entry) {
        const Payload &payload = entry->payload;
        for (const std::string_view part :
             {std::string_view{entry->header.data(), entry->header.size()}, std::string_view{payload.head},
              payload.body.view(), std::string_view{payload.tail}}) {
            const size_t passed = std::min(skip, part.size());
            skip -= passed;
            if (passed == part.size()) continue;
            parts[used++] = {const_cast<char *>(part.data()) + passed, part.size() - passed};
            total += part.size() - passed;
        }
    }
    return total;
}

OutputQueue::Flush OutputQueue::flush(int fd) {
    while (!frames_.empty()) {
        std::array<iovec, gathered * parts_of_frame> parts;
        msghdr message{};
        message.msg_iov = parts.data();
        const size_t offered = gather(parts, message.msg_iovlen);
        const ssize_t count = sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return errno == EAGAIN || errno == EWOULDBLOCK ? Flush::blocked : Flush::failed;
        sent(static_cast<size_t>(count));
        if (static_cast<size_t>(count) < offered) return Flush::blocked;
    }
    return Flush::done;
}

void OutputQueue::sent(size_t count) {
    bytes_ -= count;
    front_sent_ += count;
    while (!frames_.empty() && front_sent_ >= frames_.front().size()) {
        front_sent_ -= frames_.front().size();
        frames_.pop_front();
    }
}

} // namespace zamd
