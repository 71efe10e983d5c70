// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// What is pushed is what is pulled: every character that YANG allows, values of every type, in every pair of encodings.
#include <ostream>

#include <gmock/gmock.h>

#include "e2e/app.h"

namespace {

using namespace zam::test;
using testing::AllOf;
using testing::Combine;
using testing::EndsWith;
using testing::StartsWith;
using testing::Values;
using testing::ValuesIn;

constexpr uint32_t json = ZAM_ENCODE_JSON;
constexpr uint32_t xml = ZAM_ENCODE_XML;

// What goes inside a JSON string, in the escapes that the server prints.
std::string json_escaped(const std::string &text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\u000A"; break;
        case '\t': out += "\\u0009"; break;
        case '\r': out += "\\u000D"; break;
        default: out += c;
        }
    }
    return out;
}

// The same as zamc_push() takes a scalar: what begins like an object or an array would be taken for one.
std::string json_scalar(const std::string &text) {
    if (text.starts_with('{')) return "\\u007B" + json_escaped(text.substr(1));
    if (text.starts_with('[')) return "\\u005B" + json_escaped(text.substr(1));
    return json_escaped(text);
}

// What goes inside an element or an attribute.
std::string xml_escaped(const std::string &text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        case '\r': out += "&#xD;"; break;
        default: out += c;
        }
    }
    return out;
}

struct Text {
    const char *name;
    const char *text;
};
std::ostream &operator<<(std::ostream &out, const Text &text) {
    return out << text.name;
}

const Text texts[] = {
    {"Plain", "hello"},
    {"Quotes", R"(say "yes" or 'no')"},
    {"OneQuote", R"(")"},
    {"Backslashes", R"(C:\new\temp\\)"},
    {"BackslashAtTheEnd", R"(a\)"},
    {"WhatLooksLikeAnEscape", R"(\u0041 \n \")"},
    {"ControlCharacters", "tab\there\nnext line\rand back"},
    {"BlanksAtBothEnds", "  two before and after  "},
    {"Markup", "<b>bold</b> &amp; ]]> <!-- no -->"},
    {"Json", R"({"a":[1,"x",null],"b":{}})"},
    {"Brackets", "{}[]}]{[,:"},
    {"Latin", "Zürich, façade, ñandú"},
    {"ManyScripts", "Ελλάδα Москва 東京 العربية"},
    {"AboveTheFirstPlane", "\U0001F600 \U00010348"},
    {"WordsOfJson", "null"},
    {"LooksLikeANumber", "007"},
    {"Percent", "100%s %n %d"},
};

class TextOf : public testing::TestWithParam<std::tuple<Text, uint32_t, uint32_t>> {
protected:
    const std::string text = std::get<0>(GetParam()).text;
    const uint32_t pushed_as = std::get<1>(GetParam());
    const uint32_t pulled_as = std::get<2>(GetParam());
    DescriptorCheck descriptors;
    Server server{{.modules = real_models_and_radio()}};
};
INSTANTIATE_TEST_SUITE_P(, TextOf, Combine(ValuesIn(texts), Values(json, xml), Values(json, xml)), [](const auto &all) {
    return std::string{std::get<0>(all.param).name} + (std::get<1>(all.param) == json ? "FromJson" : "FromXml") +
           (std::get<2>(all.param) == json ? "ToJson" : "ToXml");
});

TEST_P(TextOf, ALeafSurvives) {
    const std::string content = pushed_as == json
                                    ? json_scalar(text)
                                    : R"(<motto xmlns="urn:zamc:test:radio">)" + xml_escaped(text) + "</motto>";
    EXPECT_EQ(Operator{server.url()}.push("/radio:radio/motto", ZAMC_PUSH_MERGE, content, pushed_as), 0);
    Operator reader{server.url(), pulled_as};
    const std::string found = reader.pull("/radio:radio/motto");
    if (pulled_as == json) {
        EXPECT_EQ(found, text);
        EXPECT_EQ(reader.pull("/radio:radio"), R"({"motto":")" + json_escaped(text) + "\"}");
        return;
    }
    EXPECT_THAT(found, AllOf(StartsWith(R"(<motto xmlns="urn:zamc:test:radio">)"), EndsWith("</motto>")));
    const std::string whole = reader.pull("/radio:radio");
    zamc_bytes *bytes = zamc_new_bytes(whole.data(), static_cast<int32_t>(whole.size()), xml);
    zamc_doc *doc = zamc_parse_bytes(bytes, "/radio:radio");
    ASSERT_NE(doc, nullptr) << whole;
    EXPECT_STREQ(zamc_node_content(doc, "/radio:radio/motto"), text.c_str());
    zamc_free_doc(doc);
    zamc_free_bytes(bytes);
}

TEST_P(TextOf, ALeafInsideAnObjectSurvives) {
    const std::string content =
        pushed_as == json ? R"({"motto":")" + json_escaped(text) + "\"}"
                          : R"(<radio xmlns="urn:zamc:test:radio"><motto>)" + xml_escaped(text) + "</motto></radio>";
    EXPECT_EQ(Operator{server.url()}.push("/radio:radio", ZAMC_PUSH_REPLACE, content, pushed_as), 0);
    EXPECT_EQ(Operator{server.url()}.pull("/radio:radio/motto"), text);
}

TEST_P(TextOf, ValuesOfALeafListSurvive) {
    const std::string content =
        pushed_as == json ? R"(["first",")" + json_escaped(text) + "\"]"
                          : R"(<genre xmlns="urn:zamc:test:radio">first</genre><genre xmlns="urn:zamc:test:radio">)" +
                                xml_escaped(text) + "</genre>";
    EXPECT_EQ(Operator{server.url()}.push("/radio:radio/genre", ZAMC_PUSH_MERGE, content, pushed_as), 0);
    EXPECT_EQ(Operator{server.url()}.pull("/radio:radio/genre"), R"(["first",")" + json_escaped(text) + "\"]");
}

TEST_P(TextOf, AKeySurvivesAndFindsItsEntryAgain) {
    const std::string content = pushed_as == json ? R"([{"name":")" + json_escaped(text) + R"(","frequency":7}])"
                                                  : R"(<preset xmlns="urn:zamc:test:radio"><name>)" +
                                                        xml_escaped(text) + "</name><frequency>7</frequency></preset>";
    EXPECT_EQ(Operator{server.url()}.push("/radio:radio/preset", ZAMC_PUSH_MERGE, content, pushed_as), 0);
    Operator reader{server.url(), pulled_as};
    std::string quoted; // as paths carry a value
    for (const char c : text) {
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += c;
    }
    const std::string found = reader.pull("/radio:radio/preset[name=\"" + quoted + "\"]/frequency");
    EXPECT_EQ(found, pulled_as == json ? "7" : R"(<frequency xmlns="urn:zamc:test:radio">7</frequency>)");
}

TEST_P(TextOf, ItReachesAnApplicationAsItWasPushed) {
    std::string seen;
    Journal journal;
    App app{server.url(),
            journal,
            {{.target = "/radio:radio/motto",
              .behaviour =
                  [&](zamc_client *client, const Call &, zamc_bytes **) {
                      zamc_bytes *bytes = nullptr;
                      EXPECT_EQ(zamc_diff(client, "/radio:radio/motto", -1, &bytes), 0);
                      zamc_doc *doc = bytes ? zamc_parse_bytes(bytes, "/") : nullptr;
                      const char *content = doc ? zamc_node_content(doc, "/radio:radio/motto") : nullptr;
                      seen = content ? content : "(none)";
                      zamc_free_doc(doc);
                      zamc_free_bytes(bytes);
                      return 0;
                  }}},
            {.encode = pulled_as}};
    const std::string content = pushed_as == json
                                    ? json_scalar(text)
                                    : R"(<motto xmlns="urn:zamc:test:radio">)" + xml_escaped(text) + "</motto>";
    EXPECT_EQ(Operator{server.url()}.push("/radio:radio/motto", ZAMC_PUSH_MERGE, content, pushed_as), 0);
    EXPECT_EQ(seen, text);
}

struct Value {
    const char *leaf;
    const char *json;      // as zamc_push() takes it
    const char *xml;       // inside the element
    const char *found;     // by zamc_pull()
    const char *in_object; // as its container prints it
};
std::ostream &operator<<(std::ostream &out, const Value &value) {
    return out << value.leaf << " " << value.json;
}

const Value values[] = {
    {"volume", "7", "7", "7", "7"},
    {"volume", "007", "007", "7", "7"},
    {"night", "true", "true", "true", "true"},
    {"serial", "18446744073709551615", "18446744073709551615", "18446744073709551615", "\"18446744073709551615\""},
    {"gain", "-1.50", "-1.50", "-1.5", "\"-1.5\""},
    {"colour", "pale blue", "pale blue", "pale blue", "\"pale blue\""},
    {"band", "radio:fm", R"(fm)", "radio:fm", "\"radio:fm\""},
    {"band", "am", R"(am)", "radio:am", "\"radio:am\""},
    {"muted", "[null]", "", "[null]", "[null]"},
    {"logo", "aGVsbG8=", "aGVsbG8=", "aGVsbG8=", "\"aGVsbG8=\""},
};

class ValueOf : public testing::TestWithParam<std::tuple<Value, uint32_t>> {
protected:
    Server server{{.modules = real_models_and_radio()}};
};
INSTANTIATE_TEST_SUITE_P(, ValueOf, Combine(ValuesIn(values), Values(json, xml)));

TEST_P(ValueOf, EachTypeSurvives) {
    const auto &[value, encode] = GetParam();
    const std::string leaf = value.leaf;
    const std::string path = "/radio:radio/" + leaf;
    Operator op{server.url()};
    const std::string content =
        encode == json ? value.json : "<" + leaf + R"( xmlns="urn:zamc:test:radio">)" + value.xml + "</" + leaf + ">";
    EXPECT_EQ(op.push(path, ZAMC_PUSH_CREATE, content, encode), 0);
    EXPECT_EQ(op.pull(path), value.found);
    EXPECT_EQ(op.pull("/radio:radio"), "{\"" + leaf + "\":" + value.in_object + "}");
}

TEST(Notes, OfSeveralMembersAreKept) {
    Server server{{.modules = real_models_and_radio()}};
    Operator op{server.url()};
    constexpr char notes[] = R"({"first":1,"second":["a",{"b":true}],"third":{"fourth":"x"}})";
    EXPECT_EQ(op.push("/radio:radio", ZAMC_PUSH_MERGE, std::string{R"({"notes":)"} + notes + "}"), 0);
    EXPECT_EQ(op.pull("/radio:radio/notes"), notes);
    constexpr char modelled[] = R"({"first":1,"radio:radio":{"motto":"quiet","preset":[{"name":"one"}]}})";
    EXPECT_EQ(op.push("/radio:radio", ZAMC_PUSH_MERGE, std::string{R"({"notes":)"} + modelled + "}"), 0);
    EXPECT_NE(op.pull("/radio:radio/notes").find(R"("preset":[{"name":"one"}])"), std::string::npos);
}

TEST(Characters, ThatXmlCannotHoldAreRefusedInJsonToo) {
    Server server{{.modules = real_models_and_radio()}};
    Operator op{server.url()};
    for (const char *content : {"a\\u0001b", "a\\u0000b", "a\\uD800b", "a\\uFFFEb", "a\\uFDD0b", "a\\bb", "\\f"}) {
        EXPECT_EQ(op.push("/radio:radio/motto", ZAMC_PUSH_MERGE, content), -1) << content;
    }
    EXPECT_EQ(op.push("/radio:radio", ZAMC_PUSH_MERGE, R"({"motto":"a\u0001b"})"), -1);
    EXPECT_EQ(op.push("/radio:radio/genre", ZAMC_PUSH_MERGE, R"(["a","\u001f"])"), -1);
    EXPECT_EQ(op.pull("/radio:radio"), "");
    EXPECT_EQ(op.push("/radio:radio/motto", ZAMC_PUSH_MERGE, "pair \\uD83D\\uDE00, \\u00e9\\/"), 0);
    EXPECT_EQ(op.pull("/radio:radio/motto"), "pair \U0001F600, \u00e9/");
}

TEST(Characters, OfATextThatIsNotUtf8AreRefused) {
    Server server{{.modules = real_models_and_radio()}};
    Operator op{server.url()};
    EXPECT_EQ(op.push("/radio:radio/motto", ZAMC_PUSH_MERGE, "caf\xe9"), -1);
    EXPECT_EQ(
        op.push("/radio:radio/motto", ZAMC_PUSH_MERGE, "<motto xmlns=\"urn:zamc:test:radio\">caf\xe9</motto>", xml),
        -1);
    EXPECT_EQ(op.pull("/radio:radio"), "");
}

TEST(Characters, NoneAtAllAreAValueWhereTheContentSaysSo) {
    Server server{{.modules = real_models_and_radio()}};
    Operator op{server.url()};
    const auto hand = [&](const std::string &content) {
        return op.exchange(R"({"orvel-zam-server:push":{"datastore":"ietf-datastores:running",)"
                           R"("entity":"/radio:radio/motto","operation":"replace","content":)" +
                           content + "}}");
    };
    EXPECT_EQ(hand(R"({"motto":""})"), "");
    EXPECT_EQ(op.pull("/radio:radio"), R"({"motto":""})");
    EXPECT_EQ(hand(R"({"motto":"x"})"), "");
    EXPECT_EQ(op.push("/radio:radio", ZAMC_PUSH_MERGE, R"({"motto":""})"), 0);
    EXPECT_EQ(op.pull("/radio:radio"), R"({"motto":""})");
    EXPECT_EQ(op.push("/radio:radio/motto", ZAMC_PUSH_MERGE, "<motto xmlns=\"urn:zamc:test:radio\">x</motto>", xml), 0);
    EXPECT_EQ(op.push("/radio:radio/motto", ZAMC_PUSH_MERGE, "<motto xmlns=\"urn:zamc:test:radio\"/>", xml), 0);
    EXPECT_EQ(op.pull("/radio:radio"), R"({"motto":""})");
    // Content of length 0 is no content.
    EXPECT_EQ(op.push("/radio:radio/motto", ZAMC_PUSH_MERGE, ""), -1);
}

TEST(Characters, OfALongTextSurvive) {
    Server server{{.modules = real_models_and_radio()}};
    Operator op{server.url()};
    std::string text;
    while (text.size() < 1'000'000)
        text += "0123456789 äöü ";
    EXPECT_EQ(op.push("/radio:radio/motto", ZAMC_PUSH_MERGE, text), 0);
    EXPECT_EQ(op.pull("/radio:radio/motto"), text);
}

} // namespace
