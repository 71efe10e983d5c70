// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMC_IO_STREAM_BUFFER_H
#define ZAMC_IO_STREAM_BUFFER_H

#include <cstdint>

#include <zamc/utils.h>

namespace zam::io {

// One direction of a connector: a byte buffer that is filled at the end and emptied at the front. Emptying a byte
// buffer moves the rest each time, which is quadratic in the number of small frames that wait in it. Here the front
// moves instead, and the rest follows when at least as much is dropped as remains, so that each byte is moved a
// constant number of times; or when the buffer has become twice as large as its content, to give memory back.
class stream_buffer {
public:
    // False when memory is short. Released by reset, not by a destructor: the owner's record is plain memory.
    bool init(uint32_t capacity) {
        bytes_ = zam_rw_bytes_new(capacity);
        return bytes_ != nullptr;
    }
    void reset() {
        zam_rw_bytes_free(bytes_);
        bytes_ = nullptr;
        dropped_ = 0;
    }

    uint32_t size() const { return bytes_->length - dropped_; }
    bool empty() const { return size() == 0; }
    char *front() const { return bytes_->data + dropped_; }

    int32_t append(const void *data, uint32_t length) {
        if (uint64_t{bytes_->length} + length >= bytes_->capacity) compact();
        return zam_rw_bytes_push(bytes_, data, length);
    }
    void drop_front(uint32_t length) {
        dropped_ += length < size() ? length : size();
        if (dropped_ >= size() || is_oversized()) compact();
    }
    void drop_back(uint32_t length) { zam_rw_bytes_pop_back(bytes_, length < size() ? length : size()); }

    // More than half of the memory is unused, and there is enough of it to matter.
    bool is_oversized() const { return bytes_->capacity > oversize_floor && bytes_->capacity / 2 > size(); }

    // Moves the content to the start of the block, and returns the block for what needs it that way.
    zam_rw_bytes *compact() {
        if (dropped_ > 0) zam_rw_bytes_pop_front(bytes_, dropped_);
        dropped_ = 0;
        return bytes_;
    }

private:
    static constexpr uint32_t oversize_floor = 8192; // the smallest block that a byte buffer shrinks to

    zam_rw_bytes *bytes_;
    uint32_t dropped_; // bytes at the start of the block that are gone for everybody else
};

} // namespace zam::io

#endif
