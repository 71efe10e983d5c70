// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// What the readers of JSON and XML texts share: a look at a text before libyang gets it.
#ifndef ZAMC_YANG_YANG_MODULE_SCAN_INTERNAL_H
#define ZAMC_YANG_YANG_MODULE_SCAN_INTERNAL_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "runtime/mem_internal.h"

namespace zam::yang {

constexpr const char *too_deep = "too many levels";
constexpr const char *too_many_equal = "a value that stands too often in one place";

// Counts equal values of one place, such as an array, without keeping them: libyang takes quadratic time over those of
// a leaf-list. Values of different places never count together, but by a rare chance that the limit allows for.
class equal_values {
public:
    // Whether the value may stand there once more.
    bool count(size_t place, std::string_view value);

private:
    runtime::owned_block<uint16_t> counters; // from the first value that could be too many on
    size_t total = 0;
};

} // namespace zam::yang

#endif
