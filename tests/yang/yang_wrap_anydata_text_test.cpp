// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <array>
#include <string>

#include <gtest/gtest.h>

#include "support/heap.h"
#include "support/log_capture.h"
#include "support/test_schema.h"
#include "yang/yang_wrap_internal.h"

namespace {

using namespace zam::test;
using namespace zam::yang;

// A pull reply as the server prints it, with this `data` object.
std::string reply(const std::string &data) {
    return R"({"orvel-zam-server:pull":{"entity":"/m:a","data":)" + data + "}}";
}

std::string value_of(const std::string &data, const char *path = "/m:a/b") {
    return take(zam_get_value(path, reply(data).c_str()));
}

std::string unescaped(const char *body) {
    std::array<char, 64> text{};
    _escape_json_str(text.data(), body);
    return text.data();
}

std::string utf8_of(const char *hex) {
    std::array<char, 5> bytes{};
    const uint32_t length = _unicode_to_utf8(bytes.data(), hex);
    EXPECT_LE(length, 4u);
    return {bytes.data(), length};
}

std::string name_of(const char *path) {
    return take(_find_name(path));
}

std::string named(const char *path, const char *content) {
    return take(zam_add_name(path, content));
}

TEST(ReplyValue, AScalarIsGivenAsPrinted) {
    EXPECT_EQ(value_of(R"({"m:b":5})"), "5");
    EXPECT_EQ(value_of(R"({"m:b":true})"), "true");
    EXPECT_EQ(value_of(R"({"m:b":[null]})"), "[null]");
}

TEST(ReplyValue, AnObjectOrArrayIsGivenAsPrinted) {
    EXPECT_EQ(value_of(R"({"m:b":{"c":1,"d":{"e":"\u00e9"}}})"), R"({"c":1,"d":{"e":"\u00e9"}})");
    EXPECT_EQ(value_of(R"({"m:b":[{"k":"1"},{"k":"2"}]})"), R"([{"k":"1"},{"k":"2"}])");
    EXPECT_EQ(value_of(R"({"m:b":{}})"), "{}");
}

TEST(ReplyValue, AStringIsUnescaped) {
    EXPECT_EQ(value_of(R"({"m:b":"st"})"), "st");
    EXPECT_EQ(value_of(R"({"m:b":"q\"w\\e\/\n"})"), "q\"w\\e/\n");
    EXPECT_EQ(value_of(R"({"m:b":"\u00e9"})"), "\xC3\xA9");
    EXPECT_EQ(value_of(R"({"m:b":""})"), "");
}

TEST(ReplyValue, ASlashTakesTheWholeData) {
    EXPECT_EQ(value_of(R"({"m:a":{"b":5},"m:c":"x"})", "/"), R"({"m:a":{"b":5},"m:c":"x"})");
    EXPECT_EQ(value_of(R"({"m:c":"\u00e9"})", "/"), R"({"m:c":"\u00e9"})");
}

TEST(ReplyValue, EmptyDataIsNone) {
    EXPECT_EQ(value_of("{}"), "(null)");
    EXPECT_EQ(value_of("{}", "/"), "(null)");
}

TEST(ReplyValue, AReplyWithoutDataHasNone) {
    EXPECT_EQ(zam_get_value("/m:a", R"({"orvel-zam-server:pull":{"entity":"/m:a"}})"), nullptr);
    EXPECT_EQ(zam_get_value("/m:a", ""), nullptr);
}

TEST(ReplyValue, DataWithoutAMemberHasNone) {
    EXPECT_EQ(value_of("[]"), "(null)");
    EXPECT_EQ(value_of("[]", "/"), "[]");
}

TEST(ReplyValue, AReplyThatEndsEarlyIsHandled) {
    const std::string whole = reply(R"({"m:b":"\u00e9"})");
    for (size_t length = 0; length < whole.size(); ++length) {
        const Text bare{zam_get_value("/m:b", whole.substr(0, length).c_str())};
        const Text all{zam_get_value("/", whole.substr(0, length).c_str())};
    }
    EXPECT_EQ(zam_get_value("/m:b", R"({"data":)"), nullptr);
    EXPECT_EQ(zam_get_value("/m:b", R"({"data":})"), nullptr);
    EXPECT_EQ(zam_get_value("/m:b", R"({"data":{"m:b":}})"), nullptr);
}

TEST(ReplyValue, TheCallersTextIsNotChanged) {
    const std::string text = reply(R"({"m:b":"x"})");
    const std::string copy = text;
    const Text value{zam_get_value("/m:b", text.c_str())};
    EXPECT_STREQ(value.get(), "x");
    EXPECT_EQ(text, copy);
}

TEST(ReplyValue, NullArgumentsHaveNone) {
    EXPECT_EQ(zam_get_value("/m:b", nullptr), nullptr);
    EXPECT_EQ(zam_get_value(nullptr, reply(R"({"m:b":5})").c_str()), nullptr);
}

TEST(ReplyValue, NoDataAndNoMemoryAreToldApart) {
    char *value = nullptr;
    EXPECT_EQ(get_value("/m:b", reply("{}").c_str(), &value), 0);
    EXPECT_EQ(value, nullptr);
    for (const char *data : {R"({"m:b":5})", R"({"m:b":"x"})"}) {
        const auto failures = fail_each_allocation([&](bool may_fail) {
            char *text = nullptr;
            const int32_t result = get_value("/m:b", reply(data).c_str(), &text);
            EXPECT_EQ(result, text ? 0 : -1);
            EXPECT_TRUE(text || may_fail);
            zam_free(text);
        });
        EXPECT_EQ(failures, 1u);
    }
}

TEST(PullWithoutData, AnEmptyObjectStandsInItsPlace) {
    EXPECT_EQ(take(without_pull_data(reply(R"({"m:b":[{"k":"}}"},{"k":"2"}]})").c_str())), reply("{}"));
    EXPECT_EQ(take(without_pull_data(reply(R"({"data":{"data":{}}})").c_str())), reply("{}"));
}

TEST(PullWithoutData, AReplyOfAnotherShapeIsLeftToTheParser) {
    for (const std::string &text : {
             reply("{}"),
             reply("[1]"),
             reply("7"),
             reply(R"({"m:b":)"),
             reply(R"({"m:b":1},"more":{"m:c":2})"),
             reply(R"({"m:b":1})") + " ",
             reply(R"({"m:b":1})") + "}",
             std::string{R"({"orvel-zam-server:pull":{"entity":"/m:a"}})"},
             std::string{R"({"orvel-zam-server:pull":{"x":{"data":{"m:b":1}}}})"},
             std::string{R"({"orvel-zam-server:push":{"data":{"m:b":1}}})"},
             std::string{},
         })
        EXPECT_EQ(without_pull_data(text.c_str()), nullptr) << text;
}

TEST(PullWithoutData, DataThatLibyangMustNotBeGivenIsLeftToTheGuards) {
    EXPECT_EQ(without_pull_data(reply(R"({"m:b":[[1]]})").c_str()), nullptr);
    EXPECT_EQ(without_pull_data(reply(R"({"m:b":1e9999})").c_str()), nullptr);
}

TEST(JsonString, EscapesAreUndone) {
    EXPECT_EQ(unescaped(R"(a\bb\fc\nd\re\tf)"), "a\bb\fc\nd\re\tf");
    EXPECT_EQ(unescaped(R"(\"\\\/)"), "\"\\/");
    EXPECT_EQ(unescaped(R"(\x\')"), "x'");
    EXPECT_EQ(unescaped(R"(\u0041\u00e9\u20AC!)"), "A\xC3\xA9\xE2\x82\xAC!");
}

TEST(JsonString, ItEndsAtTheFirstUnescapedQuote) {
    EXPECT_EQ(unescaped(R"(ab"cd)"), "ab");
    EXPECT_EQ(unescaped(R"(a\"b"c)"), "a\"b");
}

TEST(JsonString, NothingIsWrittenForAnEmptyOne) {
    std::array<char, 4> text{'?', '?', '?', '?'};
    _escape_json_str(text.data(), "");
    _escape_json_str(text.data(), "\"abc");
    EXPECT_EQ(text[0], '?');
}

TEST(JsonString, NoTerminatorIsWritten) {
    std::array<char, 4> text{'?', '?', '?', '?'};
    _escape_json_str(text.data(), "ab\"");
    EXPECT_EQ(std::string(text.data(), 4), "ab??");
}

TEST(JsonString, HalvesOfASurrogatePairAreDecodedEachByItself) {
    EXPECT_EQ(unescaped(R"(\uD83D\uDE00)"), "\xED\xA0\xBD\xED\xB8\x80");
}

TEST(JsonString, AnEscapeThatIsCutEndsTheText) {
    EXPECT_EQ(unescaped(R"(ab\)"), "ab");
    EXPECT_EQ(unescaped(R"(ab\u)"), "ab");
    EXPECT_EQ(unescaped(R"(ab\u41)"), "abA");
}

TEST(UnicodeEscape, EachRangeHasItsNumberOfBytes) {
    EXPECT_EQ(utf8_of("0041"), "A");
    EXPECT_EQ(utf8_of("007f"), "\x7F");
    EXPECT_EQ(utf8_of("0080"), "\xC2\x80");
    EXPECT_EQ(utf8_of("07FF"), "\xDF\xBF");
    EXPECT_EQ(utf8_of("0800"), "\xE0\xA0\x80");
    EXPECT_EQ(utf8_of("fffd"), "\xEF\xBF\xBD");
}

TEST(UnicodeEscape, TheLastTwoCodesTakeFourBytes) {
    EXPECT_EQ(utf8_of("FFFE"), "\xF0\x8F\xBF\xBE");
    EXPECT_EQ(utf8_of("FFFF"), "\xF0\x8F\xBF\xBF");
}

TEST(UnicodeEscape, ZeroIsOneByte) {
    EXPECT_EQ(utf8_of("0000"), std::string(1, '\0'));
}

TEST(UnicodeEscape, OtherCharactersThanDigitsAreSkipped) {
    EXPECT_EQ(utf8_of("12G4"), utf8_of("0124"));
    EXPECT_EQ(utf8_of("12G4"), "\xC4\xA4");
    EXPECT_EQ(utf8_of("zzz5"), "\x05");
}

TEST(UnicodeEscape, OnlyFourCharactersAreRead) {
    EXPECT_EQ(utf8_of("00419"), "A");
}

TEST(LastName, ItIsTheTextAfterTheLastSlash) {
    EXPECT_EQ(name_of("/m:a/b"), "b");
    EXPECT_EQ(name_of("/m:a"), "m:a");
    EXPECT_EQ(name_of("/m:a/n:c"), "n:c");
    EXPECT_EQ(name_of("b"), "b");
}

TEST(LastName, PredicatesAreCut) {
    EXPECT_EQ(name_of("/m:a/c[name='x']"), "c");
    EXPECT_EQ(name_of(R"(/m:a/c[k="1"][j="2"])"), "c");
    EXPECT_EQ(name_of(R"(/m:a/ll[.="x"])"), "ll");
    EXPECT_EQ(name_of(R"(/m:a/c[k="1"]/d)"), "d");
    EXPECT_EQ(name_of("c[k=1]"), "c");
}

TEST(LastName, BracketsAndSlashesInDoubleQuotesDoNotCount) {
    EXPECT_EQ(name_of(R"(/m:a/c[k="x[1]/y"])"), "c");
    EXPECT_EQ(name_of(R"(/m:a/c[k="]["][j="a/b"])"), "c");
    EXPECT_EQ(name_of(R"(/m:a/c[k="q\"[/"])"), "c");
}

TEST(LastName, OddPathsAreHandled) {
    EXPECT_EQ(name_of(""), "");
    EXPECT_EQ(name_of("/"), "");
    EXPECT_EQ(name_of("]"), "]");
    EXPECT_EQ(name_of("\"]"), "\"]");
    EXPECT_EQ(name_of("[k=\"1\"]"), "[k=\"1\"]");
    EXPECT_EQ(_find_name(nullptr), nullptr);
}

TEST(AddName, AScalarIsPutBetweenQuotes) {
    EXPECT_EQ(named("/m:a/b", "5"), R"({"b":"5"})");
    EXPECT_EQ(named("/m:a/b", "text"), R"({"b":"text"})");
    EXPECT_EQ(named("/m:a/b", ""), R"({"b":""})");
    EXPECT_EQ(named("/m:a/b", "q\"w"), R"({"b":"q"w"})");
}

TEST(AddName, AnObjectOrArrayStandsAsItIs) {
    EXPECT_EQ(named("/m:a/b", R"({"k":1})"), R"({"b":{"k":1}})");
    EXPECT_EQ(named("/a:b/c[name='x']", "[1,2]"), R"({"c":[1,2]})");
    EXPECT_EQ(named("/m:a", "{}"), R"({"m:a":{}})");
}

TEST(AddName, ASlashAddsNone) {
    EXPECT_EQ(named("/", R"({"m:a":1})"), R"({"m:a":1})");
    EXPECT_EQ(named("/", "5"), "5");
}

TEST(AddName, NullContentIsAnEmptyString) {
    EXPECT_EQ(named("/m:a/b", nullptr), "\"\"");
    EXPECT_EQ(named("/", nullptr), "\"\"");
    EXPECT_EQ(named(nullptr, nullptr), "\"\"");
}

TEST(AddName, ANullPathGivesNothing) {
    EXPECT_EQ(zam_add_name(nullptr, "5"), nullptr);
}

TEST(AddName, NoMemoryGivesNothing) {
    const auto failures = fail_each_allocation([&](bool may_fail) {
        const std::string text = named("/m:a/b", "5");
        EXPECT_TRUE(text == R"({"b":"5"})" || (may_fail && text == "(null)"));
    });
    EXPECT_GE(failures, 2u);
}

} // namespace
