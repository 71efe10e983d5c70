// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Texts that are too large to stand in a test.
#pragma once

#include <string>
#include <string_view>

namespace zam::test {

inline std::string repeated(std::string_view text, size_t times) {
    std::string all;
    while (times-- > 0)
        all += text;
    return all;
}

// An array of strings: the same one `times` over, or all of them different.
inline std::string strings(size_t times, bool equal) {
    std::string text = "[";
    for (size_t i = 0; i < times; i++)
        text += (i ? ",\"v" : "\"v") + std::to_string(equal ? 0 : i) + "\"";
    return text + "]";
}

} // namespace zam::test
