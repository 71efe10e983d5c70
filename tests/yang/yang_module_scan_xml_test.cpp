// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "yang/yang_internal.h"

#include <gtest/gtest.h>

#include "yang/yang_module_scan_texts.h"

namespace zam::test {
namespace {

using yang::json_depth_max;
using yang::scan_xml;

using yang::json_depth_max;

std::string xml_fault_of(std::string_view xml) {
    const char *const fault = scan_xml(xml).what;
    return fault ? fault : "";
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

} // namespace
} // namespace zam::test
