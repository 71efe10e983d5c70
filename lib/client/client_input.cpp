// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The frames that have arrived and wait in the connector's read buffer. Everything of the client that looks at them or
// takes them out does so here, because the buffer may be in two pieces: while the application owes an answer, replies
// are taken out from behind other frames (see input_mark for the layout).
//
// Invariants:
//   - `passed` counts whole frames only, and no reply is among them; the gap is empty when it is 0.
//   - A frame is removed before its handler runs. Handlers send, wait, pump and reconnect, and after any of these the
//     bytes in the read buffer are others; so whoever needs the payload longer takes the frame out as a copy.
//   - Who needs the input in one piece (a synchronous wait, a heartbeat) joins it first.
#include <array>
#include <cstring>

#include <zamc/logger.h>

#include "client/client_internal.h"
#include "platform/bounded.h"

namespace zam::client {

namespace {

constexpr uint32_t header_size = ZAM_MESSAGE_HEADER_SIZE;
constexpr std::array<unsigned char, 4> frame_start{0x00, 0xFB, 0xBF, 0x00}; // the magic that opens a header
constexpr uint32_t aside_capacity = 128;                                    // a few small frames

uint32_t _frame_size(const zam_message *message) {
    return header_size + message->length;
}
char *_frame_begin(const zam_message *message) {
    return message->data - header_size;
}

} // namespace

// The frame that is dispatched next.
bool next_frame(zamc_client *client, zam_message *message) {
    uint32_t length = 0;
    char *data = zam_connector_readbuf(client->connector, &length);
    return zam_message_peek(data, client->input.passed ? client->input.passed : length, message) != 0;
}

// The first reply that is buffered whole. What lies ahead of it is passed over once, not again at the next call.
bool next_reply(zamc_client *client, zam_message *message) {
    uint32_t length = 0;
    char *data = zam_connector_readbuf(client->connector, &length);
    input_mark *input = &client->input;
    for (;;) {
        const uint32_t begin = input->passed + input->gap;
        if (begin >= length || zam_message_peek(data + begin, length - begin, message) == 0) return false;
        if (zam_message_type(message) == ZAM_MESSAGE_REPLY) return true;
        const uint32_t size = _frame_size(message);
        if (input->gap > 0 && memmove_s(data + input->passed, length - input->passed, data + begin, size) != 0) {
            return false;
        }
        input->passed += size;
    }
}

// Removes the frame that next_frame or next_reply found; its bytes are void afterwards.
void pop_frame(zamc_client *client, const zam_message *message) {
    uint32_t length = 0;
    const char *front = zam_connector_readbuf(client->connector, &length);
    input_mark *input = &client->input;
    const uint32_t size = _frame_size(message);
    if (_frame_begin(message) != front) {
        input->gap += size; // a reply, taken out from behind what was passed
        return;
    }
    zam_message_pop(client->connector, message);
    if (input->passed == 0) return;
    input->passed -= size;
    if (input->passed > 0) return;
    zam_connector_consume(client->connector, input->gap);
    input->gap = 0;
}

// The frame as a block of its own, removed from the input also when there is no memory for the copy.
frame take_frame(zamc_client *client, const zam_message *message) {
    frame taken{nullptr, *message};
    const uint32_t size = _frame_size(message);
    taken.block.reset(static_cast<char *>(zam_malloc(size + 1))); // the read buffer held it, so size + 1 is no overflow
    if (taken.block) {
        std::memcpy(taken.block.get(), _frame_begin(message), size);
        taken.block.get()[size] = '\0';
        taken.message.data = taken.block.get() + header_size;
    }
    pop_frame(client, message);
    return taken;
}

// Brings the input back into one piece, nothing passed.
void join_input(zamc_client *client) {
    const input_mark input = client->input;
    client->input = {};
    if (input.gap == 0) return;
    uint32_t length = 0;
    char *data = zam_connector_readbuf(client->connector, &length);
    std::memmove(data + input.gap, data, input.passed);
    zam_connector_consume(client->connector, input.gap);
}

// Whether the input still holds a frame or the beginning of one. Stray bytes alone do not count: nobody ever consumes
// them, and a rewake request for their sake would come back as an echo, find them again, and so on without end. Nor
// does a part of the magic: bytes that resynchronisation leaves behind end like the last frame, which for an echo is
// the byte that a magic begins with. When a frame does begin there, the arrival of its rest tells by itself.
bool frame_start_remains(const zamc_client *client) {
    if (client->input.passed > 0) return true;
    uint32_t length = 0;
    const char *data = zam_connector_readbuf(client->connector, &length);
    return data && memmem(data, length, frame_start.data(), frame_start.size()) != nullptr;
}

// Copies a frame that somebody else will want to `aside`, which is created for the first one.
void _cache_other_msg(zam_rw_bytes **aside, const zam_message *message) {
    if (!*aside) *aside = zam_rw_bytes_new(aside_capacity);
    if (!*aside) {
        zam_log_printf(ZAM_LOG_EMERG, "New buf for rpc-reply (not the waiting one) not successful.\n");
        return;
    }
    zam_rw_bytes_push(*aside, _frame_begin(message), _frame_size(message)); // it logs a failure itself
}

// Hands the frames set aside back, ahead of what is still unread.
void put_back(zamc_client *client, zam_rw_bytes *aside) {
    if (!aside || aside->length == 0 || !client->connector) return;
    uint32_t unread = 0;
    zam_connector_readbuf(client->connector, &unread);
    if (zam_connector_reentry(client->connector, aside->data, aside->length) != 0 || unread == 0) return;

    // The read buffer appends, and whole frames must not end up behind the beginning of one.
    uint32_t length = 0;
    char *data = zam_connector_readbuf(client->connector, &length);
    std::memmove(data + aside->length, data, unread);
    std::memcpy(data, aside->data, aside->length);
}

} // namespace zam::client
