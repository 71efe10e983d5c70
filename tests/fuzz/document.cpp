// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// A payload as a document: walked, edited, printed, and what was printed is read again.
#include <array>
#include <cstdio>
#include <cstring>
#include <memory>

#include <zamc/client.h>
#include <zamc/format.h>
#include <zamc/utils.h>

#include "fuzz.h"
#include "support/test_schema.h"

namespace zam::fuzz {
namespace {

using Document = std::unique_ptr<zamc_doc, decltype([](zamc_doc *doc) { zamc_free_doc(doc); })>;
using Bytes = std::unique_ptr<zamc_bytes, decltype([](zamc_bytes *bytes) { zamc_free_bytes(bytes); })>;

constexpr int longest_walk = 50; // steps; a document may be wide

void look(zamc_doc *doc) {
    std::array<char, 16> text{};
    zamc_node_content(doc, nullptr);
    zamc_node_attr(doc, nullptr, "operation");
    zamc_parse_node(doc, nullptr, "%s", text.data(), static_cast<uint32_t>(text.size()));
    const Bytes bytes{zamc_format_node(doc, nullptr, ZAM_ENCODE_JSON)};
}

void walk(zamc_doc *doc) {
    for (int step = 0; step < longest_walk; ++step) {
        look(doc);
        if (zamc_iter_doc(doc, ZAMC_DIRECTION_CHILD)) continue;
        while (!zamc_iter_doc(doc, ZAMC_DIRECTION_NEXT))
            if (!zamc_iter_doc(doc, ZAMC_DIRECTION_PARENT)) return;
    }
}

Bytes print(zamc_doc *doc, uint32_t format) {
    return Bytes{zamc_format_doc(doc, format)};
}

// The planted fault: a part whose row is the greater number.
bool below_the_diagonal(const char *json) {
    constexpr char part[] = R"("part":[{"row":%d,"column":%d)";
    const char *at = std::strstr(json, R"("part")");
    int row = 0, column = 0;
    return at && std::sscanf(at, part, &row, &column) == 2 && row > column;
}

} // namespace

void start() {
    test::test_context();
}

// The format, the path up to a separator, a path to edit and its value, the payload.
void run(std::string_view input) {
    Input in{input};
    const uint32_t format = in.byte() % 2 == 0 ? ZAM_ENCODE_JSON : ZAM_ENCODE_XML;
    const std::string path = in.until(record_separator), edited = in.until(record_separator),
                      value = in.until(record_separator), payload = in.rest();
    const Bytes bytes{zamc_new_bytes(payload.data(), static_cast<int32_t>(payload.size()), format)};
    Document doc{zamc_parse_bytes(bytes.get(), path.c_str())};
    if (doc) {
        walk(doc.get());
        const Bytes json = print(doc.get(), ZAM_ENCODE_JSON);
        if (json && planted() && below_the_diagonal(json->data)) planted_fault();
        const Bytes xml = print(doc.get(), ZAM_ENCODE_XML);
    } else {
        doc.reset(zamc_new_doc(format));
    }
    zamc_change_dir(doc.get(), path.c_str());
    zamc_new_node(doc.get(), edited.c_str(), "%s", value.c_str());
    zamc_del_node(doc.get(), edited.c_str());
    zamc_node_is_present(doc.get(), edited.c_str());
    const Bytes again = print(doc.get(), format);
}

} // namespace zam::fuzz
