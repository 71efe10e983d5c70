// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// What an application learns, inside its handler, of the change that it is asked about.
#include <ostream>

#include <gmock/gmock.h>

#include "e2e/app.h"
#include "e2e/difference.h"

namespace {

using namespace zam::test;
using testing::Combine;
using testing::HasSubstr;
using testing::Values;
using testing::ValuesIn;

constexpr char radio[] = R"({"radio:radio":{"motto":"old \"one\"","volume":3,
   "preset":[{"name":"one","frequency":1},{"name":"two","frequency":2},{"name":"three"}],
   "alarm":[{"day":"mon","hour":6},{"day":"tue","hour":7,"tone":"ding"}],
   "genre":["jazz","folk"],"favourite":["z","a","m"]}})";
constexpr uint32_t json = ZAM_ENCODE_JSON;
constexpr uint32_t xml = ZAM_ENCODE_XML;

struct Fact {
    const char *path;
    const char *attribute; // null: the value
    const char *value;
};

struct Change {
    const char *name;
    const char *entity;
    int32_t operation;
    const char *content;
    std::vector<Fact> facts;
    const char *text; // in JSON
};
std::ostream &operator<<(std::ostream &out, const Change &change) {
    return out << change.name;
}

#define OP(word) R"("@":{"ietf-netconf:operation":")" word R"("})"
#define LEAF_OP(name, word) R"("@)" name R"(":{"ietf-netconf:operation":")" word R"("})"
#define IN_RADIO(text) R"({"radio:radio":{)" OP("merge") "," text "}}"

const Change changes[] = {
    {"ALeafThatComes",
     "/radio:radio/night",
     ZAMC_PUSH_MERGE,
     "true",
     {{"/radio:radio", "operation", "merge"},
      {"/radio:radio/night", "operation", "create"},
      {"/radio:radio/night", "origin-value", "(none)"},
      {"/radio:radio/night", nullptr, "true"}},
     IN_RADIO(R"("night":true,)" LEAF_OP("night", "create"))},
    {"ALeafWithAnotherValue",
     "/radio:radio/motto",
     ZAMC_PUSH_MERGE,
     "new",
     {{"/radio:radio/motto", "operation", "replace"},
      {"/radio:radio/motto", "origin-value", "old \"one\""},
      {"/radio:radio/motto", nullptr, "new"}},
     IN_RADIO(R"("motto":"new","@motto":{"ietf-netconf:operation":"replace",)"
              R"("orvel-zam-server:origin-value":"old \"one\""})")},
    {"ALeafThatGoes",
     "/radio:radio/volume",
     ZAMC_PUSH_DELETE,
     "",
     {{"/radio:radio/volume", "operation", "delete"}, {"/radio:radio/volume", nullptr, "3"}},
     IN_RADIO(R"("volume":3,)" LEAF_OP("volume", "delete"))},
    {"AnEntryThatComes",
     "/radio:radio/preset[name='four']",
     ZAMC_PUSH_CREATE,
     R"([{"name":"four","frequency":4}])",
     {{"/radio:radio/preset[name='four']", "operation", "create"},
      {"/radio:radio/preset[name='four']/frequency", "operation", "create"},
      {"/radio:radio/preset[name='four']/frequency", nullptr, "4"}},
     IN_RADIO(R"("preset":[{)" OP("create") R"(,"name":"four","frequency":4,)" LEAF_OP("frequency", "create") "}]")},
    {"AnEntryThatChangesInside",
     "/radio:radio/preset[name='two']/frequency",
     ZAMC_PUSH_MERGE,
     "20",
     {{"/radio:radio/preset[name='two']", "operation", "merge"},
      {"/radio:radio/preset[name='two']", "origin-position", "(none)"},
      {"/radio:radio/preset[name='two']/frequency", "operation", "replace"},
      {"/radio:radio/preset[name='two']/frequency", "origin-value", "2"}},
     IN_RADIO(
         R"("preset":[{)" OP("merge") R"(,"name":"two","frequency":20,"@frequency":{)"
                                      R"("ietf-netconf:operation":"replace","orvel-zam-server:origin-value":"2"}}])")},
    {"TheFirstEntryThatGoes",
     "/radio:radio/preset[name='one']",
     ZAMC_PUSH_DELETE,
     "",
     {{"/radio:radio/preset[name='one']", "operation", "delete"},
      {"/radio:radio/preset[name='one']", "origin-position", "first"},
      {"/radio:radio/preset[name='one']/frequency", "operation", "delete"},
      {"/radio:radio/preset[name='one']/frequency", nullptr, "1"}},
     IN_RADIO(R"("preset":[{"@":{"ietf-netconf:operation":"delete","orvel-zam-server:origin-position":"first"},)"
              R"("name":"one","frequency":1,)" LEAF_OP("frequency", "delete") "}]")},
    {"AnEntryThatMovesToTheFront",
     "/radio:radio/preset[name='three']",
     ZAMC_PUSH_MERGE,
     R"([{"@":{"yang:insert":"first"},"name":"three"}])",
     {{"/radio:radio/preset[name='three']", "operation", "merge"},
      {"/radio:radio/preset[name='three']", "origin-position", "after:[name=two]"}},
     IN_RADIO(R"("preset":[{"@":{"ietf-netconf:operation":"merge",)"
              R"("orvel-zam-server:origin-position":"after:[name=two]"},"name":"three"}])")},
    {"AnEntryThatMovesBehindAnother",
     "/radio:radio/preset[name='one']",
     ZAMC_PUSH_MERGE,
     R"([{"@":{"yang:insert":"after","yang:key":"[name='two']"},"name":"one"}])",
     {{"/radio:radio/preset[name='one']", "origin-position", "first"}},
     IN_RADIO(R"("preset":[{"@":{"ietf-netconf:operation":"merge",)"
              R"("orvel-zam-server:origin-position":"first"},"name":"one"}])")},
    {"AnEntryOfTwoKeysThatMoves",
     "/radio:radio/alarm[day='tue'][hour='7']",
     ZAMC_PUSH_MERGE,
     R"([{"@":{"yang:insert":"first"},"day":"tue","hour":7}])",
     {{"/radio:radio/alarm[day='tue'][hour='7']", "operation", "merge"},
      {"/radio:radio/alarm[day='tue'][hour='7']", "origin-position", "after:[day=mon][hour=6]"},
      {"/radio:radio/alarm[day='tue'][hour='7']/tone", nullptr, "(none)"}},
     IN_RADIO(R"("alarm":[{"@":{"ietf-netconf:operation":"merge",)"
              R"("orvel-zam-server:origin-position":"after:[day=mon][hour=6]"},"day":"tue","hour":7}])")},
    {"AValueOfALeafListThatComes",
     "/radio:radio/genre",
     ZAMC_PUSH_MERGE,
     R"(["rock"])",
     {{"/radio:radio/genre[.='rock']", "operation", "create"}},
     IN_RADIO(R"("genre":["rock"],"@genre":[{"ietf-netconf:operation":"create"}])")},
    {"AValueOfALeafListThatGoes",
     "/radio:radio/favourite[.='a']",
     ZAMC_PUSH_DELETE,
     "",
     {{"/radio:radio/favourite[.='a']", "operation", "delete"},
      {"/radio:radio/favourite[.='a']", "origin-position", "after:z"}},
     IN_RADIO(R"("favourite":["a"],"@favourite":[{"ietf-netconf:operation":"delete",)"
              R"("orvel-zam-server:origin-position":"after:z"}])")},
    {"AContainerThatComesEmpty",
     "/radio:radio/antenna",
     ZAMC_PUSH_CREATE,
     "{}",
     {{"/radio:radio/antenna", "operation", "create"}},
     IN_RADIO(R"("antenna":{)" OP("create") "}")},
};

class DiffOf : public testing::TestWithParam<std::tuple<Change, uint32_t>> {
protected:
    DescriptorCheck descriptors;
    Server server{{.startup = radio, .modules = real_models_and_radio()}};
    Journal journal;
};
INSTANTIATE_TEST_SUITE_P(, DiffOf, Combine(ValuesIn(changes), Values(json, xml)), [](const auto &both) {
    return std::string{std::get<0>(both.param).name} + (std::get<1>(both.param) == json ? "InJson" : "InXml");
});

TEST_P(DiffOf, MarksWhatHappenedToEachNode) {
    const auto &[change, encode] = GetParam();
    Seen seen;
    App app{server.url(),
            journal,
            {{.target = "/radio:radio",
              .behaviour =
                  [&](zamc_client *client, const Call &, zamc_bytes **) {
                      seen = look(client, "/");
                      return 0;
                  }}},
            {.encode = encode}};
    ASSERT_EQ(Operator{server.url()}.push(change.entity, change.operation, change.content), 0);

    ASSERT_EQ(seen.result, 0);
    ASSERT_TRUE(seen.output);
    EXPECT_EQ(seen.format, encode);
    if (encode == json) {
        EXPECT_EQ(seen.text, change.text);
    }
    const Document document{seen};
    for (const Fact &fact : change.facts) {
        EXPECT_TRUE(document.has(fact.path) || std::string{fact.value} == "(none)") << fact.path;
        const std::string found =
            fact.attribute ? document.attribute(fact.path, fact.attribute) : document.content(fact.path);
        EXPECT_EQ(found, fact.value) << fact.path << " " << seen.text;
    }
}

class Diff : public testing::TestWithParam<uint32_t> {
protected:
    // What an application that is asked about a push to `entity` sees of it.
    Seen seen_in_handler(const std::string &path, int32_t depth, const std::string &entity, const std::string &content,
                         const std::string &target = "/radio:radio") {
        Seen seen;
        App app{server.url(),
                journal,
                {{.target = target,
                  .behaviour =
                      [&](zamc_client *client, const Call &, zamc_bytes **) {
                          seen = look(client, path, depth);
                          return 0;
                      }}},
                {.encode = GetParam()}};
        EXPECT_EQ(Operator{server.url()}.push(entity, ZAMC_PUSH_MERGE, content), 0);
        return seen;
    }
    void expect_nothing(const Seen &seen) {
        EXPECT_EQ(seen.result, 0);
        EXPECT_FALSE(seen.output) << seen.text;
    }

    DescriptorCheck descriptors;
    Server server{{.startup = radio, .modules = real_models_and_radio()}};
    Journal journal;
};
INSTANTIATE_TEST_SUITE_P(, Diff, Values(json, xml),
                         [](const auto &encode) { return encode.param == json ? "Json" : "Xml"; });

TEST_P(Diff, ALeafComesWithTheNodesAboveIt) {
    const Seen seen = seen_in_handler("/radio:radio/volume", -1, "/radio:radio", R"({"volume":5,"motto":"x"})");
    ASSERT_TRUE(seen.output);
    const Document document{seen};
    EXPECT_EQ(document.attribute("/radio:radio/volume", "operation"), "replace");
    EXPECT_EQ(document.attribute("/radio:radio/volume", "origin-value"), "3");
    EXPECT_EQ(document.content("/radio:radio/volume"), "5");
    EXPECT_FALSE(document.has("/radio:radio/motto"));
}

TEST_P(Diff, ALeafThatDidNotChangeHasNoOutput) {
    expect_nothing(seen_in_handler("/radio:radio/volume", -1, "/radio:radio/motto", "x"));
}

TEST_P(Diff, AnEntryComesWithoutTheOthersThatChanged) {
    const Seen seen = seen_in_handler(
        "/radio:radio/preset[name='two']", -1, "/radio:radio",
        R"({"preset":[{"name":"one","frequency":10},{"name":"two","frequency":20},{"name":"three","frequency":30}]})");
    ASSERT_TRUE(seen.output);
    const Document document{seen};
    EXPECT_EQ(document.attribute("/radio:radio/preset[name='two']/frequency", "origin-value"), "2");
    EXPECT_FALSE(document.has("/radio:radio/preset[name='one']"));
    EXPECT_FALSE(document.has("/radio:radio/preset[name='three']"));
}

TEST_P(Diff, AListWithoutKeysComesWithAllThatChangedInIt) {
    const Seen seen = seen_in_handler("/radio:radio/preset", -1, "/radio:radio",
                                      R"({"volume":5,"preset":[{"name":"one","frequency":10},{"name":"four"}]})");
    ASSERT_TRUE(seen.output);
    const Document document{seen};
    EXPECT_EQ(document.attribute("/radio:radio/preset[name='one']/frequency", "origin-value"), "1");
    EXPECT_EQ(document.attribute("/radio:radio/preset[name='four']", "operation"), "create");
    EXPECT_FALSE(document.has("/radio:radio/preset[name='two']"));
    EXPECT_FALSE(document.has("/radio:radio/volume"));
}

TEST_P(Diff, TheLevelsBelowThePathCanBeCounted) {
    const std::string content = R"({"volume":5,"preset":[{"name":"one","frequency":10}]})";
    const Seen seen = seen_in_handler("/radio:radio", 1, "/radio:radio", content);
    ASSERT_TRUE(seen.output);
    const Document document{seen};
    EXPECT_EQ(document.content("/radio:radio/volume"), "5");
    EXPECT_TRUE(document.has("/radio:radio/preset[name='one']"));
    EXPECT_FALSE(document.has("/radio:radio/preset[name='one']/frequency"));
}

TEST_P(Diff, NoLevelsMeanAll) {
    const std::string content = R"({"volume":5,"preset":[{"name":"one","frequency":10}]})";
    const Seen seen = seen_in_handler("/radio:radio", 0, "/radio:radio", content);
    ASSERT_TRUE(seen.output);
    EXPECT_EQ(Document{seen}.content("/radio:radio/preset[name='one']/frequency"), "10");
}

TEST_P(Diff, OutsideAPublicationHasNoOutput) {
    Operator op{server.url(), GetParam()};
    expect_nothing(look(op.client(), "/"));
    EXPECT_EQ(op.push("/radio:radio/volume", ZAMC_PUSH_MERGE, "5"), 0);
    expect_nothing(look(op.client(), "/"));
    expect_nothing(look(op.client(), "/radio:radio/volume"));
}

TEST_P(Diff, WhoHasNoPartInThePublicationSeesNothing) {
    App app{
        server.url(), journal, {{.target = "/radio:radio", .behaviour = [](zamc_client *, const Call &, zamc_bytes **) {
                                     return int32_t{ZAMC_REPLY_LATER};
                                 }}}};
    auto pushed = std::async(std::launch::async, [this] {
        return Operator{server.url()}.push("/radio:radio/volume", ZAMC_PUSH_MERGE, "5");
    });
    ASSERT_TRUE(journal.wait_for([](const Call &call) { return call.kind == Call::config; }));
    Operator reader{server.url(), GetParam()};
    expect_nothing(look(reader.client(), "/"));
    EXPECT_EQ(app.on_thread([](zamc_client *client) {
        const Seen seen = look(client, "/radio:radio/volume");
        EXPECT_TRUE(seen.output) << "the publication goes on until it is answered";
        return zamc_reply_asyn(client, 0, nullptr);
    }),
              0);
    EXPECT_EQ(pushed.get(), 0);
}

TEST_P(Diff, ARollbackShowsTheChangeTheOtherWayRound) {
    std::vector<Seen> seen;
    App first{server.url(),
              journal,
              {{.target = "/radio:radio",
                .priority = 1,
                .behaviour =
                    [&](zamc_client *client, const Call &, zamc_bytes **) {
                        seen.push_back(look(client, "/"));
                        return 0;
                    }}},
              {.name = "first", .encode = GetParam()}};
    App second{server.url(),
               journal,
               {{.target = "/radio:radio",
                 .priority = 2,
                 .behaviour = [](zamc_client *, const Call &, zamc_bytes **) { return 1; }}},
               {.name = "second"}};
    EXPECT_EQ(Operator{server.url()}.push("/radio:radio", ZAMC_PUSH_MERGE, R"({"volume":5,"night":true})"), -1);
    ASSERT_TRUE(journal.wait_for([](const Call &call) { return (call.mask & ZAMC_SCENE_ROLLBACK) != 0; }));
    ASSERT_EQ(seen.size(), 2u);
    ASSERT_TRUE(seen[1].output);
    const Document document{seen[1]};
    EXPECT_EQ(document.attribute("/radio:radio/volume", "operation"), "replace");
    EXPECT_EQ(document.attribute("/radio:radio/volume", "origin-value"), "5");
    EXPECT_EQ(document.content("/radio:radio/volume"), "3");
    EXPECT_EQ(document.attribute("/radio:radio/night", "operation"), "delete");
}

TEST_P(Diff, AnotherDatastoreHasNotChanged) {
    Seen seen;
    App app{server.url(),
            journal,
            {{.target = "/radio:radio",
              .behaviour =
                  [&](zamc_client *client, const Call &, zamc_bytes **) {
                      constexpr char startup[] = "ietf-datastores:startup";
                      EXPECT_EQ(zamc_set_attr(client, ZAMC_ATTR_TARGET_DS, startup, sizeof startup), 0);
                      seen = look(client, "/");
                      return 0;
                  }}},
            {.encode = GetParam()}};
    EXPECT_EQ(Operator{server.url()}.push("/radio:radio/volume", ZAMC_PUSH_MERGE, "5"), 0);
    expect_nothing(seen);
}

TEST_P(Diff, AnUnknownNodeIsRefusedAndABrokenPathIsInvalid) {
    const Seen seen = seen_in_handler("/radio:radio/wings", -1, "/radio:radio/volume", "5");
    EXPECT_EQ(seen.result, -1);
    EXPECT_FALSE(seen.output);
    Operator op{server.url(), GetParam()};
    EXPECT_EQ(look(op.client(), "/radio:radio/preset[name='one").result, -3);
    zamc_bytes *bytes = nullptr;
    EXPECT_EQ(zamc_diff(nullptr, "/", -1, &bytes), -3);
    EXPECT_EQ(zamc_diff(op.client(), nullptr, -1, &bytes), -3);
    EXPECT_EQ(zamc_diff(op.client(), "/", -1, nullptr), -3);
}

TEST_P(Diff, AChangeOfSeveralModulesIsOneDocument) {
    const Seen seen = seen_in_handler("/", -1, "/", R"({"radio:radio":{"volume":5},"radio:room":[{"name":"loft"}],
                                                        "ietf-system:system":{"contact":"me"}})");
    ASSERT_TRUE(seen.output);
    const Document document{seen};
    EXPECT_EQ(document.attribute("/radio:radio/volume", "operation"), "replace");
    EXPECT_EQ(document.attribute("/radio:room[name='loft']", "operation"), "create");
    EXPECT_EQ(document.content("/ietf-system:system/contact"), "me");
}

TEST(DiffReply, HoldsOneEditWithItsValueLast) {
    Server server{{.startup = radio, .modules = real_models_and_radio()}};
    Operator op{server.url()};
    EXPECT_EQ(op.exchange(R"({"orvel-zam-server:diff":{"entity":"/radio:radio/volume"}})"),
              R"({"orvel-zam-server:diff":{"entity":"/radio:radio/volume","yang-patch":{"patch-id":"1","edit":[)"
              R"({"edit-id":"1","operation":"merge","target":"/","value":{}}]}}})");
    EXPECT_EQ(op.exchange(R"(<diff xmlns="urn:orvel:params:xml:ns:yang:orvel-zam-server">)"
                          "<entity>/radio:radio/volume</entity></diff>",
                          xml),
              R"(<diff xmlns="urn:orvel:params:xml:ns:yang:orvel-zam-server"><entity>/radio:radio/volume</entity>)"
              "<yang-patch><patch-id>1</patch-id><edit><edit-id>1</edit-id><operation>merge</operation>"
              "<target>/</target><value></value></edit></yang-patch></diff>");
}

} // namespace
