// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

#include "yang/yang_module_scan_internal.h"

#include <limits>

namespace zam::yang {
namespace {

constexpr size_t counter_count = 65536;

// FNV-1a. Whoever makes values collide gets nothing but his own text refused.
size_t _hash(size_t place, std::string_view value) {
    uint64_t hash = 0xcbf29ce484222325 ^ (place * 0x9e3779b97f4a7c15);
    for (const char c : value)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    return static_cast<size_t>(hash ^ hash >> 32);
}

bool _is_blank(std::string_view text) {
    return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

text_fault _json_fault(std::string_view text) {
    if (_is_blank(text)) return {}; // no data, and no fault
    const json_scan scan = scan_json(text);
    if (scan.harm) return {scan.harm, scan.offset};
    if (!scan.well_formed) return {"not one well-formed value", scan.offset};
    if (scan.nested_arrays) return {"an array directly inside an array", scan.offset};
    return {};
}

} // namespace

bool equal_values::count(size_t place, std::string_view value) {
    if (++total <= most_equal) return true;
    if (!counters) counters.reset(static_cast<uint16_t *>(zam_calloc(counter_count, sizeof(uint16_t))));
    if (!counters) return true; // whoever reads the text will not get far either
    uint16_t &counter = counters.get()[_hash(place, value) % counter_count];
    if (counter < std::numeric_limits<uint16_t>::max()) counter++;
    // What different values add to one counter grows with their number.
    return counter <= most_equal + 4 * (total / counter_count);
}

text_fault find_text_fault(const char *text, LYD_FORMAT format) {
    if (!text) return {};
    if (format == LYD_JSON) return _json_fault(text);
    return format == LYD_XML ? scan_xml(text) : text_fault{};
}

} // namespace zam::yang
