// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Frames as bytes, made and read without the library, so that both sides of the wire are checked.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zam::test {

enum class Kind { request, reply, other2, other3, untyped, rewake };

struct Frame {
    Kind kind = Kind::request;
    uint32_t seq = 0;
    uint32_t encoding = 2; // JSON
    std::string payload;
    bool operator==(const Frame &) const = default;
};

std::string encode(const Frame &frame);

// Cuts a byte stream into frames; fails the test on a wrong magic.
class Decoder {
public:
    void feed(std::string_view bytes) { buffer_.append(bytes); }
    std::optional<Frame> next();
    size_t pending() const { return buffer_.size(); }

private:
    std::string buffer_;
};

} // namespace zam::test
