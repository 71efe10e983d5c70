// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <string>

#include <gtest/gtest.h>

#include "support/heap.h"
#include "support/log_capture.h"
#include "support/test_schema.h"
#include "yang/yang_wrap_internal.h"

namespace {

using namespace zam::test;
using namespace zam::yang;

class Splice : public testing::Test {
protected:
    static zam_mem_doc doc(const char *content, LYD_FORMAT format) { return {"/a", content, format}; }

    static std::string json_container(const char *skeleton, const char *content, int32_t bare = 1) {
        const zam_mem_doc json = doc(content, LYD_JSON);
        return take(_build_container(skeleton, &json, bare));
    }
    static std::string xml_container(const char *skeleton, const char *content, int32_t bare = 1) {
        const zam_mem_doc xml = doc(content, LYD_XML);
        return take(_build_container(skeleton, &xml, bare));
    }
    static std::string json_list(const char *skeleton, const char *content, int32_t bare = 1) {
        return take(_build_json_list(skeleton, content, bare));
    }
    static std::string xml_list(const char *skeleton, const char *content, const char *name) {
        return take(_build_xml_list(skeleton, content, name));
    }
    static std::string json_leaflist(const char *skeleton, const char *content, int32_t bare = 1) {
        const zam_mem_doc json = doc(content, LYD_JSON);
        return take(_build_leaflist(skeleton, &json, bare));
    }
    static std::string xml_leaflist(const char *skeleton, const char *content) {
        const zam_mem_doc xml = doc(content, LYD_XML);
        return take(_build_leaflist(skeleton, &xml, 1));
    }

    LogCapture log;
};

TEST_F(Splice, AJsonContainerTakesThePlaceOfTheBraces) {
    EXPECT_EQ(json_container(R"({"m:a":{"b":{}}})", R"({"x":1})"), R"({"m:a":{"b":{"x":1}}})");
    EXPECT_EQ(log.all(), "[DEBUG] Build container, complete:{\"m:a\":{\"b\":{\"x\":1}}}\n");
}

TEST_F(Splice, AWrappedJsonContainerLosesItsWrapper) {
    EXPECT_EQ(json_container(R"({"m:a":{}})", R"({"a":{"x":{"y":1}}})", 0), R"({"m:a":{"x":{"y":1}}})");
    EXPECT_EQ(json_container(R"({"m:a":{}})", R"({"x":1})", 0), "(null)");
}

TEST_F(Splice, AJsonSkeletonWithoutBracesFails) {
    EXPECT_EQ(json_container(R"({"m:a":{"b":1}})", R"({"x":1})"), "(null)");
    EXPECT_EQ(log.all(), "");
}

TEST_F(Splice, TheFirstBracesOfAJsonSkeletonCount) {
    EXPECT_EQ(json_container(R"({"a":{},"b":{}})", R"({"x":1})"), R"({"a":{"x":1},"b":{}})");
}

TEST_F(Splice, AnXmlContainerTakesThePlaceOfTheEmptyElement) {
    EXPECT_EQ(xml_container("<a><b/></a>", "<b><x>1</x></b>"), "<a><b><x>1</x></b></a>");
    EXPECT_EQ(xml_container(R"(<a xmlns="u"/>)", R"(<a xmlns="u"><x/></a>)", 0), R"(<a xmlns="u"><x/></a>)");
    EXPECT_EQ(log.count(7, "Build container, complete:<a><b><x>1</x></b></a>"), 1);
}

TEST_F(Splice, AnXmlSkeletonWithoutAnEmptyElementFails) {
    EXPECT_EQ(xml_container("<a><b></b></a>", "<b/>"), "(null)");
    EXPECT_EQ(xml_container("/>", "<b/>"), "(null)");
}

TEST_F(Splice, AJsonListTakesThePlaceOfTheEmptyArray) {
    EXPECT_EQ(json_list(R"({"m:a":{"l":[]}})", R"([{"k":"1"}])"), R"({"m:a":{"l":[{"k":"1"}]}})");
}

TEST_F(Splice, AJsonListTakesThePlaceOfTheEntryWithItsKeys) {
    EXPECT_EQ(json_list(R"({"m:a":{"l":[{"k":"1"}]}})", R"([{"k":"2","v":3}])"), R"({"m:a":{"l":[{"k":"2","v":3}]}})");
    EXPECT_EQ(json_list(R"({"m:a":{"l":[{}]}})", "[]"), R"({"m:a":{"l":[]}})");
}

TEST_F(Splice, OnlyTheInnermostJsonListIsReplaced) {
    EXPECT_EQ(json_list(R"({"l":[{"k":"1","n":[{"j":"2"}]}]})", R"([{"j":"3"}])"),
              R"({"l":[{"k":"1","n":[{"j":"3"}]}]})");
}

TEST_F(Splice, AJsonListStartsAtTheFirstBracketOfItsContent) {
    EXPECT_EQ(json_list(R"({"l":[]})", R"({"l":[{"k":"1"}]})", 0), R"({"l":[{"k":"1"}]})");
    EXPECT_EQ(json_list(R"({"l":[]})", R"( [1])"), R"({"l":[1]})");
}

TEST_F(Splice, AJsonListWithoutABracketFails) {
    EXPECT_EQ(json_list(R"({"l":[]})", R"({"k":"1"})"), "(null)");
    EXPECT_EQ(json_list(R"({"l":1})", "[]"), "(null)");
    EXPECT_EQ(json_list(R"({"l":1}])", "[]"), "(null)");
}

TEST_F(Splice, AnXmlListTakesThePlaceOfTheEmptyElement) {
    EXPECT_EQ(xml_list("<a><l/></a>", "<l><k>1</k></l><l><k>2</k></l>", "l"), "<a><l><k>1</k></l><l><k>2</k></l></a>");
}

TEST_F(Splice, AnXmlListWithItsOwnNamespaceIsReplacedToo) {
    EXPECT_EQ(xml_list(R"(<l xmlns="urn:a"/>)", "<l>1</l>", "l"), "<l>1</l>");
    EXPECT_EQ(xml_list(R"(<a><l xmlns="urn:a"><k>1</k></l></a>)", "<l>2</l>", "l"), "<a><l>2</l></a>");
}

TEST_F(Splice, AnXmlListTakesThePlaceOfTheEntryWithItsKeys) {
    EXPECT_EQ(xml_list("<a><l><k>1</k></l></a>", "<l><k>2</k></l>", "l"), "<a><l><k>2</k></l></a>");
    EXPECT_EQ(xml_list("<a><ll>x</ll><l><k>1</k></l></a>", "<l/>", "l"), "<a><ll>x</ll><l/></a>");
}

TEST_F(Splice, AnXmlListIsToldFromAKeyWhoseNameBeginsLikeIt) {
    EXPECT_EQ(xml_list("<a><l><l-id>1</l-id></l></a>", "<l/>", "l"), "<a><l/></a>");
}

TEST_F(Splice, AnXmlListWhoseNameIsNotThereFails) {
    EXPECT_EQ(xml_list("<a><l><k>1</k></l></a>", "<l/>", "longer-than-all-that-follows"), "(null)");
    EXPECT_EQ(xml_list("<a><l><k>1</k></l></a>", "<l/>", "m"), "(null)");
    EXPECT_EQ(xml_list("<a></l></a>", "<l/>", "l"), "(null)");
}

TEST_F(Splice, AListIsBuiltInTheFormatOfTheDocument) {
    const zam_mem_doc json = doc("[1]", LYD_JSON);
    EXPECT_EQ(take(_build_list(R"({"l":[]})", &json, "l", 1)), R"({"l":[1]})");
    const zam_mem_doc xml = doc("<l>1</l>", LYD_XML);
    EXPECT_EQ(take(_build_list("<a><l/></a>", &xml, "l", 1)), "<a><l>1</l></a>");
    EXPECT_EQ(log.all(), "[DEBUG] Build list, complete: {\"l\":[1]}\n"
                         "[DEBUG] Build list, complete: <a><l>1</l></a>\n");
}

TEST_F(Splice, AJsonLeafListTakesThePlaceOfTheArrayWithAnEmptyString) {
    EXPECT_EQ(json_leaflist(R"({"a":{"ll":[""]}})", R"(["1","2"])"), R"({"a":{"ll":["1","2"]}})");
    EXPECT_EQ(log.all(), "[DEBUG] Build leaflist, complete: {\"a\":{\"ll\":[\"1\",\"2\"]}}\n");
}

TEST_F(Splice, AWrappedJsonLeafListLosesItsWrapper) {
    EXPECT_EQ(json_leaflist(R"({"a":{"ll":[""]}})", R"({"ll":["1"]})", 0), R"({"a":{"ll":["1"]}})");
}

TEST_F(Splice, AJsonLeafListWithoutStringsFails) {
    EXPECT_EQ(json_leaflist(R"({"a":{"ll":[""]}})", "[1,2]"), "(null)");
    EXPECT_EQ(json_leaflist(R"({"a":{"ll":[""]}})", "[true]"), "(null)");
    EXPECT_EQ(json_leaflist(R"({"a":{"ll":[""]}})", "[]"), "(null)");
    EXPECT_EQ(json_leaflist(R"({"a":{"ll":[""]}})", "x"), "(null)");
    EXPECT_EQ(log.all(), "");
}

TEST_F(Splice, AJsonLeafListThatTheSkeletonHoldsIsTheSkeleton) {
    EXPECT_EQ(json_leaflist(R"({"ll":["1"]})", R"(["1"])"), R"({"ll":["1"]})");
    EXPECT_EQ(json_leaflist(R"({"ll":["1"]})", R"(["2"])"), "(null)");
}

TEST_F(Splice, AnEmptyXmlElementLeavesTheSkeleton) {
    EXPECT_EQ(xml_leaflist("<a><ll/></a>", "<ll></ll>"), "<a><ll/></a>");
    EXPECT_EQ(xml_leaflist("<a><ll>x</ll></a>", "<ll/>"), "<a><ll>x</ll></a>");
}

TEST_F(Splice, AnXmlLeafListTakesThePlaceOfTheEmptyElement) {
    EXPECT_EQ(xml_leaflist("<a><ll/></a>", "<ll>1</ll><ll>2</ll>"), "<a><ll>1</ll><ll>2</ll></a>");
    EXPECT_EQ(log.all(), "[DEBUG] Build leaflist, complete: <a><ll>1</ll><ll>2</ll></a>\n");
}

TEST_F(Splice, AnXmlLeafListThatTheSkeletonHoldsIsTheSkeleton) {
    EXPECT_EQ(xml_leaflist("<a><ll>1</ll></a>", "<ll>1</ll>"), "<a><ll>1</ll></a>");
    EXPECT_EQ(xml_leaflist("<a><ll>1</ll></a>", "<ll>2</ll>"), "(null)");
}

TEST_F(Splice, NullArgumentsFail) {
    const zam_mem_doc json = doc("{}", LYD_JSON);
    const zam_mem_doc nothing = doc(nullptr, LYD_JSON);
    for (const zam_mem_doc *given : {static_cast<const zam_mem_doc *>(nullptr), &nothing}) {
        EXPECT_EQ(_build_container("{}", given, 1), nullptr);
        EXPECT_EQ(_build_list("[]", given, "l", 1), nullptr);
        EXPECT_EQ(_build_leaflist("[\"\"]", given, 1), nullptr);
    }
    EXPECT_EQ(_build_container(nullptr, &json, 1), nullptr);
    EXPECT_EQ(_build_list(nullptr, &json, "l", 1), nullptr);
    EXPECT_EQ(_build_leaflist(nullptr, &json, 1), nullptr);
    EXPECT_EQ(_build_json_list(nullptr, "[]", 1), nullptr);
    EXPECT_EQ(_build_json_list("[]", nullptr, 1), nullptr);
    EXPECT_EQ(_build_xml_list(nullptr, "<l/>", "l"), nullptr);
    EXPECT_EQ(_build_xml_list("<l/>", nullptr, "l"), nullptr);
    EXPECT_EQ(_build_xml_list("<l/>", "<l/>", nullptr), nullptr);
}

TEST_F(Splice, EmptyTextsFail) {
    EXPECT_EQ(json_container("", "", 0), "(null)");
    EXPECT_EQ(json_list("", "", 0), "(null)");
    EXPECT_EQ(json_leaflist("", "", 0), "(null)");
    EXPECT_EQ(xml_container("", ""), "(null)");
    EXPECT_EQ(xml_list("", "", ""), "(null)");
}

TEST_F(Splice, AWrappedContentOfOneCharacterIsHandled) {
    EXPECT_EQ(json_list(R"({"l":[]})", "[", 0), R"({"l":})");
}

TEST_F(Splice, NoMemoryBuildsNothing) {
    const auto failures = fail_each_allocation([&](bool may_fail) {
        for (const std::string &text : {json_container("{}", "{\"x\":1}"), json_list("[]", "[1]"),
                                        json_leaflist("[\"\"]", "[\"1\"]"), xml_leaflist("<l>1</l>", "<l>1</l>")}) {
            EXPECT_TRUE(text != "(null)" || may_fail);
        }
    });
    EXPECT_EQ(failures, 4u);
}

} // namespace
