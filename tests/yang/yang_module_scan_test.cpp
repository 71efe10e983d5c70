// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "yang/yang_internal.h"

#include "support/test_schema.h"
#include "yang/yang_module_fixture.h"

namespace zam::test {
namespace {

using yang::find_text_fault;
using yang::json_depth_max;
using yang::json_scan;
using yang::scan_json;
using yang::scan_xml;

std::string repeated(std::string_view text, size_t times) {
    std::string all;
    while (times-- > 0)
        all += text;
    return all;
}

TEST(ScanJson, TakesEveryKindOfValue) {
    for (const std::string text : {"{}",
                                   "[]",
                                   "\"\"",
                                   "true",
                                   "false",
                                   "null",
                                   "0",
                                   "-0",
                                   "-1",
                                   "10",
                                   "1.5",
                                   "1e3",
                                   "1E+3",
                                   "1.25e-10",
                                   R"({"a":1})",
                                   R"({"a":{"b":[1,"x",null,true,{}]},"c":[]})",
                                   R"(["\"\\\/\b\f\n\r\t\u00e9\uD83D\uDE00"])",
                                   " \t\r\n{ \"a\" : [ 1 , 2 ] , \"b\" : { } } \n",
                                   R"({"":""})",
                                   R"({"a":1,"a":2})",
                                   "\"\x7f\"",
                                   "\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF\""}) {
        const json_scan scan = scan_json(text);
        EXPECT_TRUE(scan.well_formed) << text;
        EXPECT_EQ(scan.offset, text.size()) << text;
    }
}

TEST(ScanJson, RefusesWhatIsNoValue) {
    for (const std::string text : {"",
                                   " ",
                                   "{",
                                   "}",
                                   "[",
                                   "]",
                                   "{]",
                                   "[}",
                                   "\"",
                                   "\"a",
                                   "tru",
                                   "True",
                                   "nul",
                                   "NaN",
                                   "Infinity",
                                   "+1",
                                   "-",
                                   "01",
                                   "-01",
                                   ".5",
                                   "1.",
                                   "1.e3",
                                   "1e",
                                   "1e+",
                                   "0x10",
                                   "1_0",
                                   "{,}",
                                   "[,]",
                                   "[1,]",
                                   "[1 2]",
                                   "{\"a\"}",
                                   "{\"a\":}",
                                   "{\"a\":1,}",
                                   "{a:1}",
                                   "{'a':1}",
                                   "{\"a\" 1}",
                                   "{\"a\":1 \"b\":2}",
                                   "{1:2}",
                                   "{\"a\":1,2}",
                                   "1 2",
                                   "{}{}",
                                   "{} x",
                                   "[1]]",
                                   "{\"a\":1}}",
                                   "'a'",
                                   "// c\n1",
                                   "<a/>"}) {
        EXPECT_FALSE(scan_json(text).well_formed) << text;
    }
}

TEST(ScanJson, RefusesBadEscapesAndControlCharacters) {
    for (const std::string text : {R"("\x")", R"("\u12")", R"("\u12g4")", R"("\U0041")", R"("\)", R"("\")", R"("\u)",
                                   "\"a\nb\"", "\"\t\"", "\"\x1f\""}) {
        EXPECT_FALSE(scan_json(text).well_formed) << text;
    }
    EXPECT_FALSE(scan_json(std::string_view{"\"a\0b\"", 5}).well_formed);
    EXPECT_FALSE(scan_json(std::string_view{"{}\0", 3}).well_formed);
}

TEST(ScanJson, RefusesTextThatIsNotUtf8) {
    for (const std::string text :
         {"\"\x80\"", "\"\xC3\"", "\"\xC3(\"", "\"\xC0\x80\"", "\"\xC1\xBF\"", "\"\xE0\x80\x80\"", "\"\xE2\x82\"",
          "\"\xED\xA0\x80\"", "\"\xED\xBF\xBF\"", "\"\xF0\x80\x80\x80\"", "\"\xF4\x90\x80\x80\"",
          "\"\xF5\x80\x80\x80\"", "\"\xF8\x88\x80\x80\x80\"", "\"\xFF\"", "\"\xFE\"", "\xEF\xBB\xBF{}"}) {
        EXPECT_FALSE(scan_json(text).well_formed) << testing::PrintToString(text);
    }
}

TEST(ScanJson, TellsWhereTheFaultIs) {
    EXPECT_EQ(scan_json("").offset, 0u);
    EXPECT_EQ(scan_json(R"({"a":x})").offset, 5u);
    EXPECT_EQ(scan_json(R"({"a":1}tail)").offset, 7u);
    EXPECT_EQ(scan_json(R"([1,2)").offset, 4u);
}

TEST(ScanJson, NoticesAnArrayDirectlyInAnArray) {
    EXPECT_TRUE(scan_json("[[1]]").nested_arrays);
    EXPECT_TRUE(scan_json(R"({"a":[1,[]]})").nested_arrays);
    EXPECT_FALSE(scan_json(R"([{"a":[1]},2])").nested_arrays);
    EXPECT_FALSE(scan_json(R"({"a":["[["]})").nested_arrays);
}

TEST(ScanJson, TakesBracketsUpToTheLimit) {
    const size_t limit = json_depth_max;
    EXPECT_TRUE(scan_json(repeated("[", limit) + repeated("]", limit)).well_formed);
    EXPECT_TRUE(scan_json(repeated(R"({"a":)", limit) + "1" + repeated("}", limit)).well_formed);
    EXPECT_FALSE(scan_json(repeated("[", limit + 2) + repeated("]", limit + 2)).well_formed);
    EXPECT_FALSE(scan_json(repeated(R"({"a":)", limit + 1) + "1" + repeated("}", limit + 1)).well_formed);
}

TEST(ScanJson, DoesNotRunOutOfStack) {
    EXPECT_FALSE(scan_json(repeated("[", 10'000'000)).well_formed);
}

std::string harm_of(std::string_view json) {
    const char *const harm = scan_json(json).harm;
    return harm ? harm : "";
}

std::string xml_fault_of(std::string_view xml) {
    const char *const fault = scan_xml(xml).what;
    return fault ? fault : "";
}

constexpr const char *unfit = "metadata that does not fit its member";

TEST(ScanJson, NotesMetadataThatGoesOnAfterItsLeafList) {
    EXPECT_EQ(harm_of(R"({"m:w":["a","b"],"@m:w":[null,{"x:y":"1"}]})"), "");
    EXPECT_EQ(harm_of(R"({"w":["a","b"],"@w":[{"x:y":"1"}]})"), "");
    EXPECT_EQ(harm_of(R"({"w":["a"],"@w":[null,{"x:y":"1"}]})"), unfit);
    EXPECT_EQ(harm_of(R"({"w":[],"@w":[null]})"), unfit);
    EXPECT_EQ(harm_of(R"({"w":["a"],"@v":[null]})"), unfit);
    EXPECT_EQ(harm_of(R"({"w":["a"],"v":1,"@w":[null]})"), unfit);
    EXPECT_EQ(harm_of(R"({"w":["a"],"@w":["b"]})"), unfit);
}

TEST(ScanJson, TakesObjectsAsMetadataAndNothingElse) {
    EXPECT_EQ(harm_of(R"({"@":{"x:y":"1"},"w":1,"@w":{"x:y":"1"}})"), "");
    for (const char *text : {R"({"@w":1})", R"({"@w":null})", R"({"@w":"x"})", R"({"@":[]})"})
        EXPECT_EQ(harm_of(text), unfit) << text;
}

TEST(ScanJson, NotesExponentsThatNoTypeHas) {
    EXPECT_EQ(harm_of("[1e999,1E-017]"), "");
    EXPECT_EQ(harm_of("[1e1000]"), "an excessive exponent");
    EXPECT_EQ(harm_of("[1e-99999999]"), "an excessive exponent");
}

TEST(ScanJson, NotesDepthWhateverComesBehind) {
    EXPECT_EQ(harm_of(repeated("[", json_depth_max + 1)), "too many levels");
    EXPECT_EQ(scan_json(repeated("[", json_depth_max + 1)).offset, json_depth_max);
}

// As an array of strings: the same one `times` over, or all of them different.
std::string strings(size_t times, bool equal) {
    std::string text = "[";
    for (size_t i = 0; i < times; i++)
        text += (i ? ",\"v" : "\"v") + std::to_string(equal ? 0 : i) + "\"";
    return text + "]";
}

TEST(ScanJson, NotesAValueThatAnArrayHoldsThousandsOfTimes) {
    EXPECT_EQ(harm_of(strings(1000, true)), "");
    EXPECT_EQ(harm_of(strings(40'000, true)), "a value that stands too often in one place");
    EXPECT_EQ(harm_of(strings(500'000, false)), "");
}

TEST(ScanJson, CountsValuesOfDifferentArraysApart) {
    std::string text = "[";
    for (int i = 0; i < 20'000; i++)
        text += std::string{i ? "," : ""} + R"({"tag":["a"],"on":true})";
    EXPECT_EQ(harm_of(text + "]"), "");
}

TEST(ScanXml, TakesElementsCommentsSectionsAndQuotedBrackets) {
    EXPECT_EQ(xml_fault_of(""), "");
    EXPECT_EQ(xml_fault_of("no markup"), "");
    EXPECT_EQ(xml_fault_of(R"(<?xml version="1.0"?><a x='>' y="/>"><!-- <b> --><b/><![CDATA[</a>]]></a><c>t</c>)"), "");
}

TEST(ScanXml, RefusesMarkupThatDoesNotEnd) {
    EXPECT_EQ(xml_fault_of("<a><!-- "), "markup without end");
    EXPECT_EQ(xml_fault_of("<a><![CDATA[ ]] >"), "markup without end");
    EXPECT_EQ(xml_fault_of("<a><?x"), "markup without end");
    EXPECT_EQ(xml_fault_of("<"), "a tag without end");
    EXPECT_EQ(xml_fault_of("<a x=\">"), "a tag without end");
    EXPECT_EQ(xml_fault_of("</a>"), "an end tag too many");
    EXPECT_EQ(xml_fault_of("<a/></a>"), "an end tag too many");
}

TEST(ScanXml, RefusesMoreLevelsThanItsLimit) {
    EXPECT_EQ(xml_fault_of(repeated("<a>", json_depth_max)), "");
    EXPECT_EQ(xml_fault_of(repeated("<a>", json_depth_max + 1)), "too many levels");
    EXPECT_EQ(xml_fault_of(repeated("<a>", 1'000'000)), "too many levels");
    EXPECT_EQ(xml_fault_of("<a>" + repeated("<b/>", 900) + "</a>"), "");
}

TEST(ScanXml, RefusesALeafThatStandsThousandsOfTimesInOnePlace) {
    EXPECT_EQ(xml_fault_of("<a>" + repeated("<b>x</b>", 1000) + "</a>"), "");
    EXPECT_EQ(xml_fault_of("<a>" + repeated("<b>x</b>", 40'000) + "</a>"),
              "a value that stands too often in one place");
    EXPECT_EQ(xml_fault_of(repeated("<b/>", 40'000)), "a value that stands too often in one place");
    EXPECT_EQ(xml_fault_of(repeated("<a><b>x</b></a>", 40'000)), "");
}

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

struct Harmful {
    const char *name;
    std::string text;
    LYD_FORMAT format;
};

class HarmfulText : public testing::TestWithParam<Harmful> {};

TEST_P(HarmfulText, IsRefusedWithALineBeforeItIsParsed) {
    const auto &[name, text, format] = GetParam();
    const LogCapture log;
    EXPECT_EQ(zam_lyd_parse_data_mem(test_context(), text.c_str(), format, LYD_PARSE_ONLY, 0), nullptr);
    EXPECT_TRUE(log.has(3, "[libyang]Parse data mem unsuccessful, ret :7."));
    EXPECT_TRUE(log.mentions("text is not parsed: "));
    EXPECT_EQ(zam_lyd_parse_op(test_context(), text.c_str(), format, LYD_TYPE_RPC_YANG), nullptr);
    EXPECT_EQ(zam_ly_errmsg(test_context()), nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, HarmfulText,
    testing::Values(Harmful{"NestedArrays", R"({"test-main:top":{"xml":[[[]]]}})", LYD_JSON},
                    Harmful{"NestedArraysInAnydata", R"({"test-main:top":{"any":{"x":[[{}]]}}})", LYD_JSON},
                    Harmful{"TextBehind", R"({"test-main:top":{"text":"x"}} more)", LYD_JSON},
                    Harmful{"CutShort", R"({"test-main:top":{"any":{"x":{)", LYD_JSON},
                    Harmful{"LongMetadata", R"({"test-main:top":{"tag":["a"],"@tag":[null,{"x:y":"1"}]}})", LYD_JSON},
                    Harmful{"HugeExponent", R"({"test-main:top":{"number":1e99999999}})", LYD_JSON},
                    Harmful{"EqualValues", R"({"test-main:top":{"tag":)" + strings(40'000, true) + "}}", LYD_JSON},
                    Harmful{"DeepObjects", R"({"test-main:top":{"any":)" + repeated(R"({"a":)", 1'000'000), LYD_JSON},
                    Harmful{"DeepElements", R"(<top xmlns="urn:test:main"><any>)" + repeated("<a>", 1'000'000),
                            LYD_XML},
                    Harmful{"EqualElements",
                            R"(<top xmlns="urn:test:main">)" + repeated("<tag>a</tag>", 40'000) + "</top>", LYD_XML}),
    [](const auto &harmful) { return harmful.param.name; });

TEST(HarmfulTemplate, IsRefusedToo) {
    const LogCapture log;
    const layer::Input in{zam_ly_in_new_memory(R"({"one":{"a":[[]]}})")};
    EXPECT_EQ(zam_lyd_parse_ext_data(test_context(), "test-kinds", in.get(), LYD_JSON, 0, 0, "first-data"), nullptr);
    EXPECT_TRUE(log.has(3, "The JSON text is not parsed: an array directly inside an array, offset : 18."));
}

} // namespace
} // namespace zam::test
