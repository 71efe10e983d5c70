// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Fragments put at their path, against libyang reading the document written out in full: both take the text and hold
// the same data then, or both refuse it.
#include <array>

#include <libyang/libyang.h>
#include <zamc/yang_module.h>
#include <zamc/yang_wrap.h>

#include "fuzz.h"
#include "support/test_schema.h"

namespace zam::fuzz {
namespace {

ly_ctx *ctx = nullptr;

struct Place {
    const char *path;
    LYD_FORMAT format;
    const char *before; // what stands around the fragment in the whole document
    const char *after;
};

constexpr std::array places{
    Place{"/test-main:top/sub", LYD_JSON, R"({"test-main:top":{"sub":)", "}}"},
    Place{"/test-main:top/item", LYD_JSON, R"({"test-main:top":{"item":)", "}}"},
    Place{"/test-main:top/tag", LYD_JSON, R"({"test-main:top":{"tag":)", "}}"},
    Place{"/test-main:top", LYD_JSON, R"({"test-main:top":)", "}"},
    Place{"/test-main:top/sub", LYD_XML, R"(<top xmlns="urn:test:main">)", "</top>"},
    Place{"/test-main:top/item", LYD_XML, R"(<top xmlns="urn:test:main">)", "</top>"},
    Place{"/test-main:top/tag", LYD_XML, R"(<top xmlns="urn:test:main">)", "</top>"},
};

constexpr uint32_t options = LYD_PARSE_ONLY | LYD_PARSE_STRICT;

test::Tree plainly(const Place &place, const std::string &fragment) {
    const std::string text = place.before + fragment + place.after;
    return test::Tree{zam_lyd_parse_data_mem(ctx, text.c_str(), place.format, options, 0)};
}

// The kind of text that the place takes; of others only that nothing breaks is wanted. Elements without content are
// not compared: an empty one stands for what the path says.
bool has_the_shape(const Place &place, const std::string &fragment) {
    const std::string name{std::string_view{place.path}.substr(std::string_view{place.path}.rfind('/') + 1)};
    if (place.format == LYD_XML) {
        return fragment.starts_with("<" + name + ">") && fragment.ends_with("</" + name + ">") &&
               fragment.find("/>") == std::string::npos && fragment.find("></") == std::string::npos;
    }
    const bool array = name == "item" || name == "tag";
    return fragment.size() >= 2 && fragment.front() == (array ? '[' : '{') && fragment.back() == (array ? ']' : '}');
}

// What the planted fault looks at; 0 where there is none.
int value_of_b(const std::string &json) {
    constexpr std::string_view name = R"("b":)";
    const size_t at = json.find(name);
    return at == std::string::npos ? 0 : std::atoi(json.c_str() + at + name.size());
}

} // namespace

void start() {
    ctx = test::test_context();
}

void run(std::string_view input) {
    Input in{input};
    const Place &place = places[in.byte() % places.size()];
    const std::string fragment = in.until('\0');
    const zam_mem_doc doc{place.path, fragment.c_str(), place.format};
    const test::Tree spliced{zam_parse_mem(ctx, &doc, options, 1, 0)};
    const zam_mem_doc wrapped{place.path, fragment.c_str(), place.format};
    const test::Tree other{zam_parse_mem(ctx, &wrapped, options, 0, 0)};
    if (!has_the_shape(place, fragment)) return;
    const test::Tree whole = plainly(place, fragment);
    if (!whole || !spliced) return;
    FUZZ_EXPECT(test::to_json(whole) == test::to_json(spliced));
    if (planted() && value_of_b(test::to_json(whole)) > 7) planted_fault();
}

} // namespace zam::fuzz
