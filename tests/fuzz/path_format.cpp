// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// The normal form of a path: reading it again gives the same segments, and it is its own normal form.
#include <vector>

#include <zamc/path.h>

#include "fuzz.h"

namespace zam::fuzz {
namespace {

using Segments = std::vector<std::string>;

Segments segments_of(const char *path) {
    Segments segments;
    const char *at = *path == '/' ? path + 1 : path;
    while (*at) {
        uint32_t length = 0;
        zam_path_node *node = zam_get_path_node(at, &length);
        FUZZ_EXPECT(node != nullptr); // it has a normal form
        segments.push_back(std::string{node->prefix ? node->prefix : "(none)"} + '\n' + node->name);
        for (uint32_t i = 0; node->keys && i < zam_vector_used(node->keys); ++i) {
            const auto *key = static_cast<const zam_path_key *>(zam_vector_get(node->keys, i));
            segments.push_back(std::string{key->name} + '\n' + key->value);
        }
        zam_free_path_node(&node);
        at += length;
        if (*at == '/') ++at;
    }
    return segments;
}

// What the planted fault looks at: how many characters of the values have to be escaped.
size_t escaped_characters(const Segments &segments) {
    size_t count = 0;
    for (const std::string &segment : segments)
        count += static_cast<size_t>(std::ranges::count_if(segment, [](char c) { return c == '"' || c == '\\'; }));
    return count;
}

} // namespace

void start() {}

void run(std::string_view input) {
    const std::string path{input.substr(0, input.find('\0'))};
    const Text once{zam_format_data_path(path.c_str(), 1)};
    const Text without_keys{zam_format_data_path(path.c_str(), 0)};
    FUZZ_EXPECT((once == nullptr) == (without_keys == nullptr));
    const Text loose{zam_format_path(path.c_str())};
    FUZZ_EXPECT(loose != nullptr || path.find('[') != std::string::npos);
    if (!once) return;
    const Text twice{zam_format_data_path(once.get(), 1)};
    FUZZ_EXPECT(twice && std::string_view{once.get()} == twice.get());
    const Segments segments = segments_of(path.c_str());
    FUZZ_EXPECT(segments == segments_of(once.get()));
    if (planted() && escaped_characters(segments) == 4) planted_fault();
}

} // namespace zam::fuzz
