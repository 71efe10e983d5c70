// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <zamc/path.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "support/heap.h"
#include "support/log_capture.h"

namespace zam::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

struct FreeNode {
    void operator()(zam_path_node *node) const { zam_free_path_node(&node); }
};
using Node = std::unique_ptr<zam_path_node, FreeNode>;

struct Segment {
    std::optional<std::string> prefix;
    std::string name;
    std::vector<std::pair<std::string, std::string>> keys;
    uint32_t length;
};

// A segment as values; nothing when the text is refused.
std::optional<Segment> read(const std::string &text) {
    uint32_t position = 100;
    const Node node{zam_get_path_node(text.c_str(), &position)};
    if (!node) {
        EXPECT_EQ(position, 100u) << "a counter that failed stays";
        return std::nullopt;
    }
    Segment segment{node->prefix ? std::optional<std::string>{node->prefix} : std::nullopt, node->name, {}, 0};
    segment.length = position - 100;
    EXPECT_EQ(node->keys != nullptr, text.find('[') < segment.length);
    for (uint32_t i = 0; node->keys && i < zam_vector_used(node->keys); ++i) {
        const auto *key = static_cast<const zam_path_key *>(zam_vector_get(node->keys, i));
        segment.keys.emplace_back(key->name, key->value);
    }
    return segment;
}

std::vector<std::pair<std::string, std::string>> keys(const std::string &text) {
    const std::optional<Segment> segment = read(text);
    EXPECT_TRUE(segment) << text;
    if (segment) {
        EXPECT_EQ(segment->length, text.size()) << text;
    }
    return segment ? segment->keys : std::vector<std::pair<std::string, std::string>>{};
}

TEST(Path, ASegmentIsAName) {
    const auto segment = read("name");
    ASSERT_TRUE(segment);
    EXPECT_EQ(segment->prefix, std::nullopt);
    EXPECT_EQ(segment->name, "name");
    EXPECT_THAT(segment->keys, IsEmpty());
    EXPECT_EQ(segment->length, 4u);
}

TEST(Path, ASegmentMayHaveAPrefix) {
    const auto segment = read("module:name/rest");
    ASSERT_TRUE(segment);
    EXPECT_EQ(segment->prefix, "module");
    EXPECT_EQ(segment->name, "name");
    EXPECT_EQ(segment->length, 11u);
}

TEST(Path, AnIdentifierTakesLettersDigitsAndThreeSigns) {
    const auto segment = read("_a-b.c_D9:Z..--__0");
    ASSERT_TRUE(segment);
    EXPECT_EQ(segment->prefix, "_a-b.c_D9");
    EXPECT_EQ(segment->name, "Z..--__0");
}

TEST(Path, TheCharacterBehindASegmentIsNotLookedAt) {
    for (const char *text : {"name/x", "name x", "name]", "name:x:y", "name*", "name\xC3\xA9"}) {
        const auto segment = read(text);
        ASSERT_TRUE(segment) << text;
        EXPECT_EQ(segment->length, std::string_view{text}.starts_with("name:") ? 6u : 4u) << text;
    }
}

TEST(Path, TheCounterIsAddedTo) {
    uint32_t position = 7;
    const Node node{zam_get_path_node("ab:cd[k='v']/x", &position)};
    ASSERT_TRUE(node);
    EXPECT_EQ(position, 7u + 12u);
}

TEST(Path, ACounterIsNotNeeded) {
    const Node node{zam_get_path_node("a", nullptr)};
    EXPECT_TRUE(node);
}

TEST(Path, NothingIsReadFromNull) {
    const LogCapture log;
    uint32_t position = 3;
    EXPECT_EQ(zam_get_path_node(nullptr, &position), nullptr);
    EXPECT_EQ(position, 3u);
    EXPECT_EQ(log.all(), "");
}

TEST(Path, KeysKeepTheirOrder) {
    EXPECT_THAT(keys("l[b='1'][a=\"2\"][c=3]"), ElementsAre(Pair("b", "1"), Pair("a", "2"), Pair("c", "3")));
}

TEST(Path, KeysLoseTheirPrefix) {
    EXPECT_THAT(keys("m:l[m:k='v'][n:j=w]"), ElementsAre(Pair("k", "v"), Pair("j", "w")));
}

TEST(Path, ADotSelectsALeafListEntry) {
    EXPECT_THAT(keys("ll[.='5']"), ElementsAre(Pair(".", "5")));
    EXPECT_THAT(keys("ll[.=5]"), ElementsAre(Pair(".", "5")));
}

TEST(Path, InDoubleQuotesABackslashTakesTheNextCharacter) {
    EXPECT_THAT(keys(R"(l[k="a\"b\\c\n\]"])"), ElementsAre(Pair("k", R"(a"b\cn])")));
    EXPECT_THAT(keys(R"(l[k="it's [x]/y"])"), ElementsAre(Pair("k", "it's [x]/y")));
}

TEST(Path, InSingleQuotesNothingIsEscaped) {
    EXPECT_THAT(keys(R"(l[k='a\"b\\c'])"), ElementsAre(Pair("k", R"(a\"b\\c)")));
    EXPECT_THAT(keys(R"(l[k='\'])"), ElementsAre(Pair("k", R"(\)")));
}

TEST(Path, WithoutQuotesTheValueGoesUpToTheFirstBracket) {
    EXPECT_THAT(keys(R"(l[k=a/b"c'd[e\ f])"), ElementsAre(Pair("k", R"(a/b"c'd[e\ f)")));
}

TEST(Path, AQuotedValueMayBeEmpty) {
    EXPECT_THAT(keys("l[k='']"), ElementsAre(Pair("k", "")));
    EXPECT_THAT(keys("l[k=\"\"]"), ElementsAre(Pair("k", "")));
}

TEST(Path, ValuesMayHoldAnyBytes) {
    EXPECT_THAT(keys("l[k='\xC3\xA9\x01\xFF']"), ElementsAre(Pair("k", "\xC3\xA9\x01\xFF")));
}

TEST(Path, AnythingButABracketEndsThePredicates) {
    const auto segment = read("l[a=1][b=2] [c=3]");
    ASSERT_TRUE(segment);
    EXPECT_THAT(segment->keys, ElementsAre(Pair("a", "1"), Pair("b", "2")));
    EXPECT_EQ(segment->length, 11u);
}

TEST(Path, MoreThanEightKeysAreTaken) {
    std::string text = "l";
    for (int i = 0; i < 20; ++i)
        text += "[k" + std::to_string(i) + "='" + std::to_string(i) + "']";
    const auto found = keys(text);
    ASSERT_EQ(found.size(), 20u);
    EXPECT_THAT(found.at(19), Pair("k19", "19"));
}

TEST(Path, MoreKeysThanAnyListHasAreRefused) {
    std::string text = "l";
    for (int i = 0; i < 256; ++i)
        text += "[k=v]";
    EXPECT_EQ(keys(text).size(), 256u);
    text += "[k=v]";
    const LogCapture log;
    EXPECT_FALSE(read(text));
    EXPECT_TRUE(log.mentions("Key format incorrect in path("));
}

// What a refused segment logs, all lines at the error level.
std::vector<std::string> refusal(const std::string &text) {
    const LogCapture log;
    EXPECT_FALSE(read(text)) << text;
    std::vector<std::string> lines;
    for (const LogCapture::Line &line : log.lines()) {
        EXPECT_EQ(line.level, 3);
        lines.push_back(line.text);
    }
    return lines;
}

TEST(Path, ASegmentWithoutAnIdentifierIsRefusedFromTheCharacterOn) {
    EXPECT_THAT(refusal("1abc/d"), ElementsAre("[WRONG] Get identifier from path(1abc/d) unsuccessful.\n"));
    EXPECT_THAT(refusal("m:1abc"), ElementsAre("[WRONG] Get identifier from path(1abc) unsuccessful.\n"));
    EXPECT_THAT(refusal("m:/x"), ElementsAre("[WRONG] Get identifier from path(/x) unsuccessful.\n"));
    EXPECT_THAT(refusal(""), ElementsAre("[WRONG] Get identifier from path() unsuccessful.\n"));
    for (const char *text : {" a", "-a", ".a", "[k=v]", ":a", "/a", "*", "\xC3\xA9"})
        EXPECT_EQ(refusal(text).size(), 1u) << text;
}

TEST(Path, AKeyWithoutANameIsRefused) {
    EXPECT_THAT(refusal("m:l[1='x']/y"), ElementsAre("[WRONG] Get identifier from path(1='x']/y) unsuccessful.\n",
                                                     "[WRONG] Get key name from path(m:l[1='x']/y) unsuccessful.\n"));
    for (const char *text : {"l[]", "l[=x]", "l[ k=x]", "l[..=x]", "l[.k=x]", "l[.]", "l[p:=x]", "l[", "l[k=1][]"}) {
        const auto lines = refusal(text);
        ASSERT_EQ(lines.size(), 2u) << text;
        EXPECT_EQ(lines.at(1), "[WRONG] Get key name from path(" + std::string{text} + ") unsuccessful.\n");
    }
}

TEST(Path, AKeyWithoutAValueIsRefused) {
    for (const char *text : {"m:l[k=]", "l[k]", "l[k", "l[k ='x']", "l[k=", "l[.=]", "l[k='x'y]", "l[k=\"x\" ]",
                             "l[k=\"x\\", "l[a=1][b=]", "l[k='x'[j='y']", "l[a:b:c=1]"}) {
        EXPECT_THAT(refusal(text),
                    ElementsAre("[WRONG] Get key value from path(" + std::string{text} + ") unsuccessful.\n"));
    }
}

TEST(Path, APredicateThatDoesNotEndIsRefused) {
    for (const char *text :
         {"m:l[k='x'", "l[k=\"x\"", "l[k='x", "l[k=\"x", "l[k='", "l[k=\"x\\\"]", "l[k=x", "l[.='5'"}) {
        EXPECT_THAT(refusal(text), ElementsAre("[WRONG] Key format incorrect in path(" + std::string{text} + ").\n"));
    }
}

TEST(Path, ReleaseClearsTheCallersPointer) {
    const Heap heap;
    zam_path_node *node = zam_get_path_node("m:l[a='1'][b=2]", nullptr);
    ASSERT_TRUE(node);
    zam_free_path_node(&node);
    EXPECT_EQ(node, nullptr);
    EXPECT_EQ(heap.live(), 0u);
    zam_free_path_node(&node);
    zam_free_path_node(nullptr);
}

TEST(Path, ARefusedSegmentLeavesNothingBehind) {
    const Heap heap;
    for (const char *text : {"1", "m:1", "l[a='1'][b", "l[a='1'][b=", "l[a='1'][b='2'", "l[a='1'][", "l[a=\"\\"})
        EXPECT_EQ(zam_get_path_node(text, nullptr), nullptr) << text;
    EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
}

TEST(Path, WithoutMemoryASegmentIsRefused) {
    uint64_t refused = 0;
    const uint64_t failed = fail_each_allocation([&refused](bool) {
        uint32_t position = 0;
        const Node node{zam_get_path_node(R"(m:l[a='1'][b="2\""][c=3])", &position)};
        if (!node) ++refused;
        EXPECT_EQ(position, node ? 24u : 0u);
    });
    EXPECT_EQ(refused, failed);
    EXPECT_GE(failed, 3u * 3 + 3);
}

TEST(Path, WithoutMemoryForMoreKeysThanUsualASegmentIsRefused) {
    std::string text = "l";
    for (int i = 0; i < 9; ++i)
        text += "[k" + std::to_string(i) + "=1]";
    uint64_t refused = 0;
    const uint64_t failed = fail_each_allocation([&](bool) {
        const Node node{zam_get_path_node(text.c_str(), nullptr)};
        if (!node) ++refused;
    });
    EXPECT_EQ(refused, failed);
}

TEST(Path, ALongPathIsReadInLinearTime) {
    std::string text = "l[k='" + std::string(4'000'000, '[') + "']";
    const auto segment = read(text);
    ASSERT_TRUE(segment);
    EXPECT_EQ(segment->length, text.size());
    EXPECT_EQ(segment->keys.at(0).second.size(), 4'000'000u);
}

} // namespace
} // namespace zam::test
