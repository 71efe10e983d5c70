// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "log.h"

namespace zamd {
namespace {

constexpr std::size_t longest = 400;

} // namespace

std::string log_text(std::string_view text) {
    std::string line{text.substr(0, longest)};
    for (char &c : line)
        if (static_cast<unsigned char>(c) < ' ' || c == '\x7F') c = ' ';
    if (text.size() > longest) line += "...";
    return line;
}

} // namespace zamd
