// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_REPLY_H
#define ZAMD_REPLY_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <libyang/libyang.h>

#include "error.h"
#include "frame.h"
#include "session.h"
#include "store.h"

namespace zamd {

// Where a reply goes: it outlives the session, which may be gone by then.
struct Caller {
    uint32_t session = 0;
    uint32_t seq = 0;
    uint32_t encoding = ZAM_ENCODE_JSON;
};

// The payloads of this server's answers, in the shapes that its clients cut apart: JSON without blanks, what a
// selection holds always last.
Payload error_payload(ly_ctx *ctx, const Error &error, uint32_t encoding);
Payload register_payload(uint32_t session_id, uint32_t encoding);
Payload pull_payload(std::string_view entity, Text data, uint32_t encoding);
Payload diff_payload(std::string_view entity, Text value, uint32_t encoding);
Payload locate_payload(const Neighbours &neighbours, uint32_t encoding);
Payload verify_payload(bool consistent, uint32_t encoding);

// libyang's last error in the context, which is forgotten there.
Error take_yang_error(ly_ctx *ctx);

// What a client replied.
Answer read_answer(ly_ctx *ctx, const Frame &frame);
// The text inside the `data` of an answer with output: "{}" or "" when it carries none.
Result<std::string> answer_data(const Answer &answer);

} // namespace zamd

#endif
