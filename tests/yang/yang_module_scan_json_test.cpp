// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "yang/yang_internal.h"

#include <gtest/gtest.h>

#include "yang/yang_module_scan_texts.h"

namespace zam::test {
namespace {

using yang::json_depth_max;
using yang::json_scan;
using yang::scan_json;

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
    EXPECT_EQ(scan_json(R"({"a":[1,[],[]]})").offset, 8u);
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

TEST(ScanJson, NotesANameThatStandsThousandsOfTimesInOneObject) {
    const std::string entry = R"({"name":"x","value":1})";
    EXPECT_EQ(harm_of("[" + repeated(entry + ",", 20'000) + entry + "]"), "") << "each object has its own";
    EXPECT_EQ(harm_of("{" + repeated(R"("a":{},)", 1'500) + R"("b":1})"), "");
    EXPECT_EQ(harm_of("{" + repeated(R"("a":{},)", 4'000) + R"("b":1})"), "a name that stands too often in one object");
    std::string different = "{";
    for (int i = 0; i < 100'000; i++)
        different += "\"a" + std::to_string(i) + "\":1,";
    EXPECT_EQ(harm_of(different + R"("b":1})"), "");
}

constexpr const char *hidden = "a name that hides a character in an escape";

std::string with_name(const std::string &name) {
    return "{\"" + name + "\":1}";
}

TEST(ScanJson, NotesNamesThatHideACharacterOfASchemasNames) {
    for (const char *escape : {"\\u0061", "\\u007a", "\\u0041", "\\u005a", "\\u0030", "\\u0039", "\\u003a", "\\u0040",
                               "\\u005f", "\\u002d", "\\u002e"})
        EXPECT_EQ(harm_of(with_name(escape)), hidden) << escape;
}

TEST(ScanJson, ReadsTheDigitsOfEscapesInNamesInEitherCase) {
    EXPECT_EQ(harm_of(with_name("\\u003A")), hidden);
    EXPECT_EQ(harm_of(with_name("\\u005F")), hidden);
    EXPECT_EQ(harm_of(with_name("\\u006f")), hidden);
    EXPECT_EQ(harm_of(with_name("\\u006F")), hidden);
    EXPECT_EQ(harm_of(with_name("\\u00AA")), "");
    EXPECT_EQ(harm_of(with_name("\\uD83D\\uDE00")), "");
}

TEST(ScanJson, NotesHiddenCharactersWhereverTheyStandInAName) {
    for (const char *name : {"\\u0061bc", "a\\u0062c", "ab\\u0063", "m\\u003Aname", "\\u0040m:name", "\\u00e9\\u0061",
                             "\\\"\\u0061", "\\\\\\u0061", "\\\\\\\\\\u0061", "\\n\\u0061"})
        EXPECT_EQ(harm_of(with_name(name)), hidden) << name;
}

TEST(ScanJson, NotesNamesThatHideACharacterInWhateverTheyStand) {
    EXPECT_EQ(harm_of(R"({"a":{"b":[{"c":1,"\u0064":2}]}})"), hidden);
    EXPECT_EQ(harm_of(R"([{"a":1},{"\u0061":{}}])"), hidden);
    EXPECT_EQ(harm_of(R"({"a":1,"@\u0061":{"x:y":"1"}})"), hidden);
    EXPECT_EQ(harm_of(R"({"a":1,"@a":{"x\u003ay":"1"}})"), hidden);
}

TEST(ScanJson, TellsWhereAHiddenCharacterIs) {
    const json_scan scan = scan_json(R"({"ab":{"\u0061":1}})");
    EXPECT_TRUE(scan.harm);
    EXPECT_EQ(scan.offset, 15u); // one past the name
}

TEST(ScanJson, TakesNamesWithEscapesThatHideNothing) {
    for (const char *name : {"\\u00e9", "\\u0022", "\\\"",    "\\\\",    "\\/",     "\\b\\f\\n\\r\\t", "\\u000a",
                             "\\u0020", "\\u002f", "\\u003b", "\\u003f", "\\u005b", "\\u005e",         "\\u0060",
                             "\\u007b", "\\u002c", "\\u0161", "\\u6100", "\\u0141", "\\u0100"})
        EXPECT_EQ(harm_of(with_name(name)), "") << name;
}

// An escaped backslash and what looks like the rest of an escape.
TEST(ScanJson, TakesNamesWithABackslashInFrontOfAnEscapesLetters) {
    EXPECT_EQ(harm_of(with_name("\\\\u0041")), "");
    EXPECT_EQ(harm_of(with_name("a\\\\u0041b\\\\\\\\u0061")), "");
}

TEST(ScanJson, TakesAnyEscapeInAValue) {
    EXPECT_EQ(harm_of(R"({"a":"\u0061\u003a\u0040","b":["\u0061",{"c":"\u005F"}]})"), "");
    EXPECT_EQ(harm_of(R"(["\u0061","\u0061"])"), "");
    EXPECT_EQ(harm_of(R"("\u0061")"), "");
}

TEST(ScanJson, NotesDepthWhateverComesBehind) {
    EXPECT_EQ(harm_of(repeated("[", json_depth_max + 1)), "too many levels");
    EXPECT_EQ(scan_json(repeated("[", json_depth_max + 1)).offset, json_depth_max);
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

} // namespace
} // namespace zam::test
