// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "support/frames.h"

#include <array>

#include <gtest/gtest.h>

namespace zam::test {
namespace {

constexpr size_t header_size = 16;
constexpr std::string_view magic{"\x00\xFB\xBF\x00", 4};

void _put32(std::string &out, uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(static_cast<char>(value >> shift & 0xFF));
}

uint32_t _get32(std::string_view bytes) {
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i)
        value = value << 8 | static_cast<unsigned char>(bytes[i]);
    return value;
}

Kind _kind(unsigned char bits, unsigned char rewake) {
    if (bits & 0x10) return Kind::request;
    if (bits & 0x20) return Kind::reply;
    if (bits & 0x40) return Kind::other2;
    if (bits & 0x80) return Kind::other3;
    return rewake & 1 ? Kind::rewake : Kind::untyped;
}

} // namespace

std::string encode(const Frame &frame) {
    constexpr std::array<unsigned char, 6> bits{0x10, 0x20, 0x40, 0x80, 0, 0};
    std::string out{magic};
    out.push_back(static_cast<char>(bits.at(static_cast<size_t>(frame.kind)) | (frame.encoding & 15)));
    out.push_back(frame.kind == Kind::rewake ? 1 : 0);
    out.append(2, '\0');
    _put32(out, frame.seq);
    _put32(out, static_cast<uint32_t>(frame.payload.size()));
    return out + frame.payload;
}

std::optional<Frame> Decoder::next() {
    if (buffer_.size() < header_size) return std::nullopt;
    const std::string_view header{buffer_.data(), header_size};
    if (header.substr(0, 4) != magic) {
        ADD_FAILURE() << "no magic number where a frame should start";
        buffer_.clear();
        return std::nullopt;
    }
    const uint32_t length = _get32(header.substr(12));
    if (buffer_.size() < header_size + length) return std::nullopt;
    const auto bits = static_cast<unsigned char>(header[4]);
    Frame frame{_kind(bits, static_cast<unsigned char>(header[5])), _get32(header.substr(8)), bits & 15u,
                buffer_.substr(header_size, length)};
    buffer_.erase(0, header_size + length);
    return frame;
}

} // namespace zam::test
