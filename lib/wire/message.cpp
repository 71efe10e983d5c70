// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Frames: queued whole or not at all on a connector's output, and recognised at the front of its input.
//
// A received message points into the input, right behind its header, so that the header's fields are read from there
// and nothing is copied. What does not begin with the magic number is skipped up to the next one.

#include "wire/message_internal.h"

#include <cstring>

#include "platform/bounded.h"

using namespace zam::wire;

namespace {

using frame_header = std::array<char, ZAM_MESSAGE_HEADER_SIZE>;

// Where the type of a frame stands in its header. The order is the order of testing: of a peer that sets several bits
// the first one counts.
struct type_bit {
    uint32_t type;
    uint32_t at;
    uint8_t bit;
};
constexpr type_bit type_bits[] = {
    {ZAM_MESSAGE_REQUEST, type_at, 0x10}, {ZAM_MESSAGE_REPLY, type_at, 0x20},    {ZAM_MESSAGE_OTHER_2, type_at, 0x40},
    {ZAM_MESSAGE_OTHER_3, type_at, 0x80}, {ZAM_MESSAGE_REWAKE, rewake_at, 0x01},
};
constexpr uint8_t reply_bit = 0x20;

void _put_u32(char *at, uint32_t value) {
    at[0] = static_cast<char>(value >> 24);
    at[1] = static_cast<char>(value >> 16);
    at[2] = static_cast<char>(value >> 8);
    at[3] = static_cast<char>(value);
}

uint32_t _get_u8(const char *at) {
    return static_cast<unsigned char>(*at);
}

uint32_t _get_u32(const char *at) {
    return _get_u8(at) << 24 | _get_u8(at + 1) << 16 | _get_u8(at + 2) << 8 | _get_u8(at + 3);
}

// The header of a received message, or null for a message that is not one.
const char *_header_of(const zam_message *message) {
    return message && message->data ? message->data - ZAM_MESSAGE_HEADER_SIZE : nullptr;
}

// The first magic number in at least as many bytes as it has; nearly always they begin with it.
const char *_find_magic(const char *data, uint32_t length) {
    if (memcmp(data, frame_magic.data(), frame_magic.size()) == 0) return data;
    return static_cast<const char *>(memmem(data, length, frame_magic.data(), frame_magic.size()));
}

int32_t _connector_writer_msg(zam_connector *connector, const frame_header &header, const zam_message *message) {
    if (zam_connector_write(connector, header.data(), header.size()) != 0) return -1;
    if (message->length == 0) return 0;
    if (zam_connector_write(connector, message->data, message->length) == 0) return 0;
    zam_connector_recall(connector, header.size());
    return -1;
}

int32_t _send_message(zam_connector *connector, bool is_request, uint32_t seq, const zam_message *message) {
    return zam_message_push(connector, is_request ? ZAM_MESSAGE_REQUEST : ZAM_MESSAGE_REPLY, seq, message);
}

} // namespace

int32_t zam_message_push(zam_connector *connector, uint32_t type, uint32_t seq, const zam_message *message) {
    if (!message) return -1;
    for (const type_bit &known : type_bits) {
        if (known.type != type) continue;
        frame_header header{};
        memcpy(header.data(), frame_magic.data(), frame_magic.size());
        header[type_at] = static_cast<char>(message->encoding & encoding_mask);
        header[known.at] = static_cast<char>(header[known.at] | known.bit);
        _put_u32(&header[seq_at], seq);
        _put_u32(&header[length_at], message->length);
        return _connector_writer_msg(connector, header, message);
    }
    return -1;
}

int32_t zam_send_reply(zam_connector *connector, uint32_t seq, const zam_message *message) {
    return _send_message(connector, false, seq, message);
}

int32_t zam_message_peek(char *data, uint32_t length, zam_message *message) {
    if (!data || !message || length < ZAM_MESSAGE_HEADER_SIZE) return 0;
    const char *start = _find_magic(data, length);
    if (!start) return 0;
    const uint32_t skipped = static_cast<uint32_t>(start - data);
    if (length - skipped < ZAM_MESSAGE_HEADER_SIZE) return 0;
    // The input keeps its length: its last bytes stay as they were behind the moved ones and are scanned again. Peers
    // that frame properly never get here.
    if (skipped > 0 && memmove_s(data, length, start, length - skipped) != 0) return 0;
    const uint32_t payload = _get_u32(data + length_at);
    if (payload > length - skipped - ZAM_MESSAGE_HEADER_SIZE) return 0;
    message->data = data + ZAM_MESSAGE_HEADER_SIZE;
    message->encoding = _get_u8(data + type_at) & encoding_mask;
    message->length = payload;
    return 1;
}

void zam_message_pop(zam_connector *connector, const zam_message *message) {
    if (!message) return;
    const bool fits = message->length <= UINT32_MAX - ZAM_MESSAGE_HEADER_SIZE;
    zam_connector_consume(connector, fits ? ZAM_MESSAGE_HEADER_SIZE + message->length : UINT32_MAX);
}

uint32_t zam_message_seq(const zam_message *message) {
    const char *header = _header_of(message);
    return header ? _get_u32(header + seq_at) : 0;
}

uint32_t zam_message_type(const zam_message *message) {
    const char *header = _header_of(message);
    if (!header) return ZAM_MESSAGE_UNTYPED;
    for (const type_bit &known : type_bits) {
        if (_get_u8(header + known.at) & known.bit) return known.type;
    }
    return ZAM_MESSAGE_UNTYPED;
}

int32_t zam_message_is_reply(const zam_message *message, uint32_t seq) {
    const char *header = _header_of(message);
    return header && (_get_u8(header + type_at) & reply_bit) && _get_u32(header + seq_at) == seq;
}
