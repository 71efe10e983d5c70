// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMC_IO_ERRNO_TEXT_H
#define ZAMC_IO_ERRNO_TEXT_H

#include <array>
#include <cstring>

namespace zam::io {

// The text of an errno value for one log line, in storage of its own: the thread's shared text buffer belongs to
// callers, who may be holding a result of theirs while we log. Works with either form of strerror_r: one answers a
// code and fills the buffer, the other answers the text itself.
class errno_text {
public:
    explicit errno_text(int error) { text_ = _pick(strerror_r(error, buffer_.data(), buffer_.size() - 1)); }
    errno_text(const errno_text &) = delete;
    errno_text &operator=(const errno_text &) = delete;

    const char *c_str() const { return text_; }

private:
    const char *_pick(int) const { return buffer_.data(); }
    const char *_pick(const char *text) const { return text ? text : buffer_.data(); }

    std::array<char, 80> buffer_{}; // no system text comes near it
    const char *text_ = nullptr;
};

} // namespace zam::io

#endif
