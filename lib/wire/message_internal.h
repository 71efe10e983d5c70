// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The frame on the wire: a 16-byte header, numbers in network byte order, then the payload.
#ifndef ZAMC_WIRE_MESSAGE_INTERNAL_H
#define ZAMC_WIRE_MESSAGE_INTERNAL_H

#include <array>
#include <cstdint>

#include <zamc/message.h>

namespace zam::wire {

constexpr std::array<char, 4> frame_magic = {'\x00', '\xFB', '\xBF', '\x00'};

// Offsets in the header.
constexpr uint32_t type_at = 4;   // encoding code in the low half, a bit for each of the types 0 to 3 in the high half
constexpr uint32_t rewake_at = 5; // the rewake bit; bytes 6 and 7 are reserved and zero
constexpr uint32_t seq_at = 8;
constexpr uint32_t length_at = 12;
static_assert(length_at + sizeof(uint32_t) == ZAM_MESSAGE_HEADER_SIZE);

constexpr uint8_t encoding_mask = 0x0F;

} // namespace zam::wire

#endif
