// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Data goes to stdout, everything about it to stderr.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zamctl {

// A JSON text with a member or entry per line; what is no JSON comes out as it is.
std::string indented(std::string_view json);

void print_data(std::string_view text, uint32_t encoding);
void complain(std::string_view text);

// Keeps the library's last error line, for the reason of a failure that the library only reports as a number.
void capture_log(bool verbose);
std::string last_log_line();

} // namespace zamctl
