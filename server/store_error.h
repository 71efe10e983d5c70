// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_STORE_ERROR_H
#define ZAMD_STORE_ERROR_H

#include <string>

#include <libyang/libyang.h>

#include "error.h"

namespace zamd {

// For as long as it lives libyang logs nothing and keeps its last error with the place it belongs to, so that a call
// that fails can be told as an Error. libyang keeps one error for each context: take it right after the call.
class LibyangErrors {
public:
    explicit LibyangErrors(const ly_ctx *ctx);
    ~LibyangErrors();
    LibyangErrors(const LibyangErrors &) = delete;
    LibyangErrors &operator=(const LibyangErrors &) = delete;

    // libyang's last error; `otherwise` is the message when libyang has none.
    Error take(const std::string &otherwise);
    // The last error as one line for a person, with libyang's own words for the place: `message (place)`.
    std::string take_line();

private:
    const ly_ctx *ctx_;
    uint32_t options_;
};

} // namespace zamd

#endif
