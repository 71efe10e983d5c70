// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_LOG_H
#define ZAMD_LOG_H

#include <string>
#include <string_view>

namespace zamd {

// A peer's text fit for a log line: it can neither begin a line of its own nor fill the log.
std::string log_text(std::string_view text);

} // namespace zamd

#endif
