// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Bytes as a stream of frames: what is found is what a plain reading of the bytes finds, nothing is read twice.
#include <cstring>
#include <vector>

#include <zamc/message.h>

#include "fuzz.h"

namespace zam::fuzz {
namespace {

constexpr uint32_t header_size = ZAM_MESSAGE_HEADER_SIZE;

uint32_t word(const std::vector<char> &bytes, size_t at) {
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i)
        value = value << 8 | static_cast<uint8_t>(bytes[at + i]);
    return value;
}

void check_frame(const std::vector<char> &area, const zam_message &message) {
    FUZZ_EXPECT(message.data >= area.data() + header_size);
    const auto offset = static_cast<size_t>(message.data - area.data());
    FUZZ_EXPECT(offset + message.length <= area.size());
    FUZZ_EXPECT(word(area, offset - 4) == message.length);
    FUZZ_EXPECT(word(area, offset - 8) == zam_message_seq(&message));
    const uint32_t type = zam_message_type(&message);
    FUZZ_EXPECT(type <= ZAM_MESSAGE_REWAKE);
    const bool reply_bit = (static_cast<uint8_t>(area[offset - 12]) & 0x20) != 0;
    FUZZ_EXPECT(zam_message_is_reply(&message, zam_message_seq(&message)) == (reply_bit ? 1 : 0));
    if (planted() && type == ZAM_MESSAGE_REPLY && message.length == 5 && zam_message_seq(&message) == 0x01020304)
        planted_fault();
}

} // namespace

void start() {}

void run(std::string_view input) {
    std::vector<char> area{input.begin(), input.end()};
    size_t rounds = 0;
    while (!area.empty()) {
        zam_message message{};
        const int32_t found = zam_message_peek(area.data(), static_cast<uint32_t>(area.size()), &message);
        FUZZ_EXPECT(found == 0 || found == 1);
        if (found == 0) break;
        check_frame(area, message);
        const auto end = static_cast<ptrdiff_t>(message.data - area.data() + message.length);
        area.erase(area.begin(), area.begin() + end);
        FUZZ_EXPECT(++rounds <= input.size() / header_size);
    }
    zam_message none{};
    FUZZ_EXPECT(zam_message_peek(nullptr, 0, &none) == 0);
}

} // namespace zam::fuzz
