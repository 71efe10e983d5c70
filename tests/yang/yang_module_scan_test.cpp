// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "yang/yang_internal.h"

#include "support/test_schema.h"
#include "yang/yang_module_fixture.h"
#include "yang/yang_module_scan_texts.h"

namespace zam::test {
namespace {

using yang::find_text_fault;

TEST(TextFault, BlankTextsHaveNone) {
    for (const char *text : {"", " \t\r\n"}) {
        EXPECT_EQ(find_text_fault(text, LYD_JSON).what, nullptr);
        EXPECT_EQ(find_text_fault(text, LYD_XML).what, nullptr);
    }
    EXPECT_EQ(find_text_fault(nullptr, LYD_JSON).what, nullptr);
}

TEST(TextFault, JsonIsOneWellFormedValueWithoutArraysInArrays) {
    EXPECT_STREQ(find_text_fault("{} x", LYD_JSON).what, "not one well-formed value");
    EXPECT_EQ(find_text_fault("{} x", LYD_JSON).offset, 3u);
    EXPECT_STREQ(find_text_fault(R"({"a":[[]]})", LYD_JSON).what, "an array directly inside an array");
    EXPECT_EQ(find_text_fault(R"({"a":[[]]})", LYD_LYB).what, nullptr);
}

// The texts are made when their turn comes: the list is made whenever the program starts.
struct Harmful {
    const char *name;
    std::string (*make)();
    LYD_FORMAT format;
};

class HarmfulText : public testing::TestWithParam<Harmful> {};

TEST_P(HarmfulText, IsRefusedWithALineBeforeItIsParsed) {
    const auto [name, make, format] = GetParam();
    const std::string text = make();
    const LogCapture log;
    EXPECT_EQ(zam_lyd_parse_data_mem(test_context(), text.c_str(), format, LYD_PARSE_ONLY, 0), nullptr);
    EXPECT_TRUE(log.has(3, "[libyang]Parse data mem unsuccessful, ret :7."));
    EXPECT_TRUE(log.mentions("text is not parsed: "));
    EXPECT_EQ(zam_lyd_parse_op(test_context(), text.c_str(), format, LYD_TYPE_RPC_YANG), nullptr);
    EXPECT_EQ(zam_ly_errmsg(test_context()), nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, HarmfulText,
    testing::Values(
        Harmful{"NestedArrays", [] { return std::string{R"({"test-main:top":{"xml":[[[]]]}})"}; }, LYD_JSON},
        Harmful{"NestedArraysInAnydata", [] { return std::string{R"({"test-main:top":{"any":{"x":[[{}]]}}})"}; },
                LYD_JSON},
        Harmful{"TextBehind", [] { return std::string{R"({"test-main:top":{"text":"x"}} more)"}; }, LYD_JSON},
        Harmful{"CutShort", [] { return std::string{R"({"test-main:top":{"any":{"x":{)"}; }, LYD_JSON},
        Harmful{"LongMetadata",
                [] { return std::string{R"({"test-main:top":{"tag":["a"],"@tag":[null,{"x:y":"1"}]}})"}; }, LYD_JSON},
        Harmful{"HugeExponent", [] { return std::string{R"({"test-main:top":{"number":1e99999999}})"}; }, LYD_JSON},
        Harmful{"EqualValues", [] { return std::string{R"({"test-main:top":{"tag":)" + strings(40'000, true) + "}}"}; },
                LYD_JSON},
        Harmful{"DeepObjects",
                [] { return std::string{R"({"test-main:top":{"any":)" + repeated(R"({"a":)", 1'000'000)}; }, LYD_JSON},
        Harmful{"DeepElements",
                [] { return std::string{R"(<top xmlns="urn:test:main"><any>)" + repeated("<a>", 1'000'000)}; },
                LYD_XML},
        Harmful{
            "EqualElements",
            [] { return std::string{R"(<top xmlns="urn:test:main">)" + repeated("<tag>a</tag>", 40'000) + "</top>"}; },
            LYD_XML}),
    [](const auto &harmful) { return harmful.param.name; });

TEST(HarmfulTemplate, IsRefusedToo) {
    const LogCapture log;
    const layer::Input in{zam_ly_in_new_memory(R"({"one":{"a":[[]]}})")};
    EXPECT_EQ(zam_lyd_parse_ext_data(test_context(), "test-kinds", in.get(), LYD_JSON, 0, 0, "first-data"), nullptr);
    EXPECT_TRUE(log.has(3, "The JSON text is not parsed: an array directly inside an array, offset : 13."));
}

} // namespace
} // namespace zam::test
