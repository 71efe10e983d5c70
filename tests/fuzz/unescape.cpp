// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// The body of a JSON string unescaped in place of equal size: it never grows, and what comes out is what a plain
// reading of the escapes gives.
#include <cctype>
#include <vector>

#include "fuzz.h"
#include "yang/yang_wrap_internal.h"

namespace zam::fuzz {

void start() {}

void run(std::string_view input) {
    const std::string body{input.substr(0, input.find('\0'))};
    // Exactly as large as promised, so that a byte too many is seen.
    std::vector<char> out(body.size());
    yang::_escape_json_str(out.data(), body);
    if (body.find_first_of("\\\"") == std::string::npos)
        FUZZ_EXPECT((std::string_view{out.data(), out.size()} == body));

    std::vector<char> utf8(4);
    const std::string_view hex = std::string_view{body}.substr(0, 4);
    const uint32_t count = yang::_unicode_to_utf8(utf8.data(), hex);
    FUZZ_EXPECT(count <= 4);
    if (planted() && count == 3 && body.size() > 8 && body.substr(4, 2) == "\\u" && std::isxdigit(body[6]))
        planted_fault();
}

} // namespace zam::fuzz
