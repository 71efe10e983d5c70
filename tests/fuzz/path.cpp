// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// A path read segment by segment, and resolved.
#include <zamc/path.h>
#include <zamc/yang_wrap.h>

#include "fuzz.h"
#include "support/test_schema.h"

namespace zam::fuzz {
namespace {

ly_ctx *ctx = nullptr;

void read_segments(const std::string &path) {
    uint32_t position = 0;
    int segments = 0, keys = 0;
    while (position < path.size()) {
        const uint32_t before = position;
        zam_path_node *node = zam_get_path_node(path.c_str() + position, &position);
        FUZZ_EXPECT(node != nullptr || position == before);
        if (!node) break;
        FUZZ_EXPECT(position > before && position <= path.size());
        FUZZ_EXPECT(node->name && *node->name);
        keys += node->keys ? static_cast<int>(zam_vector_used(node->keys)) : 0;
        ++segments;
        zam_free_path_node(&node);
        FUZZ_EXPECT(node == nullptr);
        if (position < path.size() && path[position] == '/') ++position;
    }
    if (planted() && segments == 3 && keys == 2 && path.find("\\\"") != std::string::npos) planted_fault();
}

} // namespace

void start() {
    ctx = test::test_context();
}

void run(std::string_view input) {
    const std::string path{input.substr(0, input.find('\0'))};
    read_segments(path);
    const lysc_node *node = zam_find_schema_by_path(ctx, nullptr, path.c_str());
    if (node) FUZZ_EXPECT(node->name && node->module);
    const Text schema{zam_format_data2schema(ctx, path.c_str())};
    if (schema) FUZZ_EXPECT(zam_find_schema_by_path(ctx, nullptr, schema.get()) != nullptr);
}

} // namespace zam::fuzz
