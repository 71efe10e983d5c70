// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Pushes of every kind, in JSON and XML, by the client's own call and as requests written by hand: what the datastore
// holds afterwards, and who is told.
#include <ostream>

#include <gmock/gmock.h>

#include "e2e/app.h"

namespace {

using namespace zam::test;
using testing::Combine;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Values;
using testing::ValuesIn;

constexpr uint32_t json = ZAM_ENCODE_JSON;
constexpr uint32_t xml = ZAM_ENCODE_XML;
constexpr char radio[] = R"({"radio:radio":{"motto":"quiet","volume":3,"tape":"side A",
   "preset":[{"name":"one","frequency":1},{"name":"two"}],"genre":["jazz","folk"],"favourite":["z","a"]}})";

#define NS R"( xmlns="urn:zamc:test:radio")"

struct Push {
    const char *name;
    int32_t operation;
    const char *entity;
    const char *json;   // as zamc_push() takes it
    const char *member; // of a request by hand: the name and the value of the entity's node
    const char *xml;
    const char *looked_at; // what is pulled afterwards …
    const char *found;     // … in JSON
};
std::ostream &operator<<(std::ostream &out, const Push &push) {
    return out << push.name;
}

const Push pushes[] = {
    {"MergeGivesALeafAnotherValue", ZAMC_PUSH_MERGE, "/radio:radio/motto", "loud", R"("motto":"loud")",
     "<motto" NS ">loud</motto>", "/radio:radio/motto", "loud"},
    {"MergeCreatesALeaf", ZAMC_PUSH_MERGE, "/radio:radio/name", "kitchen", R"("name":"kitchen")",
     "<name" NS ">kitchen</name>", "/radio:radio/name", "kitchen"},
    {"MergeIntoAContainerKeepsTheRest", ZAMC_PUSH_MERGE, "/radio:radio", R"({"volume":4,"night":true})",
     R"("radio":{"volume":4,"night":true})", "<radio" NS "><volume>4</volume><night>true</night></radio>",
     "/radio:radio",
     R"({"motto":"quiet","volume":4,"night":true,"preset":[{"name":"one","frequency":1},{"name":"two"}],)"
     R"("genre":["jazz","folk"],"favourite":["z","a"],"tape":"side A"})"},
    {"MergeAddsAnEntry", ZAMC_PUSH_MERGE, "/radio:radio/preset[name='three']", R"([{"name":"three","frequency":3}])",
     R"("preset":[{"name":"three","frequency":3}])",
     "<preset" NS "><name>three</name><frequency>3</frequency></preset>", "/radio:radio/preset",
     R"([{"name":"one","frequency":1},{"name":"two"},{"name":"three","frequency":3}])"},
    {"MergeReachesIntoAnEntry", ZAMC_PUSH_MERGE, "/radio:radio/preset[name='two']/frequency", "22",
     R"("frequency":"22")", "<frequency" NS ">22</frequency>", "/radio:radio/preset",
     R"([{"name":"one","frequency":1},{"name":"two","frequency":22}])"},
    {"MergeAddsValuesToALeafList", ZAMC_PUSH_MERGE, "/radio:radio/genre", R"(["rock","jazz"])",
     R"("genre":["rock","jazz"])", "<genre" NS ">rock</genre><genre" NS ">jazz</genre>", "/radio:radio/genre",
     R"(["jazz","folk","rock"])"},
    {"MergeOfAnotherCaseTakesTheFirstAway", ZAMC_PUSH_MERGE, "/radio:radio/line", "in", R"("line":"in")",
     "<line" NS ">in</line>", "/radio:radio/tape", ""},
    {"MergeAtTheTopTakesAWholeDocument", ZAMC_PUSH_MERGE, "/",
     R"({"radio:radio":{"volume":7},"radio:room":[{"name":"loft"}]})",
     R"("radio:radio":{"volume":7},"radio:room":[{"name":"loft"}])",
     "<radio" NS "><volume>7</volume></radio><room" NS "><name>loft</name></room>", "/radio:room",
     R"([{"name":"loft"}])"},
    {"ReplaceGivesALeafAnotherValue", ZAMC_PUSH_REPLACE, "/radio:radio/motto", "loud", R"("motto":"loud")",
     "<motto" NS ">loud</motto>", "/radio:radio/motto", "loud"},
    {"ReplaceCreatesWhatIsNotThere", ZAMC_PUSH_REPLACE, "/radio:radio/antenna", R"({"height":3})",
     R"("antenna":{"height":3})", "<antenna" NS "><height>3</height></antenna>", "/radio:radio/antenna",
     R"({"height":3})"},
    {"ReplaceTakesAwayWhatItDoesNotHold", ZAMC_PUSH_REPLACE, "/radio:radio", R"({"motto":"new"})",
     R"("radio":{"motto":"new"})", "<radio" NS "><motto>new</motto></radio>", "/radio:radio", R"({"motto":"new"})"},
    {"ReplaceOfAnEntryLeavesTheOthers", ZAMC_PUSH_REPLACE, "/radio:radio/preset[name='one']", R"([{"name":"one"}])",
     R"("preset":[{"name":"one"}])", "<preset" NS "><name>one</name></preset>", "/radio:radio/preset",
     R"([{"name":"one"},{"name":"two"}])"},
    {"ReplaceOfAListGivesItsOrderToo", ZAMC_PUSH_REPLACE, "/radio:radio/preset",
     R"([{"name":"two"},{"name":"zero"},{"name":"one"}])",
     R"("preset":[{"name":"two"},{"name":"zero"},{"name":"one"}])",
     "<preset" NS "><name>two</name></preset><preset" NS "><name>zero</name></preset><preset" NS
     "><name>one</name></preset>",
     "/radio:radio/preset", R"([{"name":"two"},{"name":"zero"},{"name":"one"}])"},
    {"ReplaceOfALeafListIsItsNewContent", ZAMC_PUSH_REPLACE, "/radio:radio/favourite", R"(["a","m"])",
     R"("favourite":["a","m"])", "<favourite" NS ">a</favourite><favourite" NS ">m</favourite>",
     "/radio:radio/favourite", R"(["a","m"])"},
    {"CreateMakesALeaf", ZAMC_PUSH_CREATE, "/radio:radio/name", "kitchen", R"("name":"kitchen")",
     "<name" NS ">kitchen</name>", "/radio:radio/name", "kitchen"},
    {"CreateMakesAnEntry", ZAMC_PUSH_CREATE, "/radio:radio/alarm[day='mon'][hour='6']",
     R"([{"day":"mon","hour":6,"tone":"ding"}])", R"("alarm":[{"day":"mon","hour":6,"tone":"ding"}])",
     "<alarm" NS "><day>mon</day><hour>6</hour><tone>ding</tone></alarm>", "/radio:radio/alarm",
     R"([{"day":"mon","hour":6,"tone":"ding"}])"},
    {"CreateMakesAContainerWithNothingInIt", ZAMC_PUSH_CREATE, "/radio:radio/antenna", "{}", R"("antenna":{})",
     "<antenna" NS "/>", "/radio:radio/antenna", "{}"},
    {"RemoveTakesALeafAway", ZAMC_PUSH_REMOVE, "/radio:radio/motto", "", nullptr, "", "/radio:radio/motto", ""},
    {"RemoveTakesAnEntryAway", ZAMC_PUSH_REMOVE, "/radio:radio/preset[name='one']", "", nullptr, "",
     "/radio:radio/preset", R"([{"name":"two"}])"},
    {"RemoveTakesAWholeListAway", ZAMC_PUSH_REMOVE, "/radio:radio/preset", "", nullptr, "", "/radio:radio/preset", ""},
    {"RemoveTakesEverythingAway", ZAMC_PUSH_REMOVE, "/", "", nullptr, "", "/radio:radio", ""},
    {"DeleteTakesALeafAway", ZAMC_PUSH_DELETE, "/radio:radio/motto", "", nullptr, "", "/radio:radio/motto", ""},
    {"DeleteTakesAContainerAway", ZAMC_PUSH_DELETE, "/radio:radio", "", nullptr, "", "/radio:radio", ""},
    {"DeleteTakesAnEntryAway", ZAMC_PUSH_DELETE, "/radio:radio/preset[name='one']", "", nullptr, "",
     "/radio:radio/preset", R"([{"name":"two"}])"},
    {"DeleteTakesAWholeListAway", ZAMC_PUSH_DELETE, "/radio:radio/preset", "", nullptr, "", "/radio:radio/preset", ""},
    {"DeleteTakesAValueOfALeafListAway", ZAMC_PUSH_DELETE, "/radio:radio/genre[.='jazz']", "", nullptr, "",
     "/radio:radio/genre", R"(["folk"])"},
    {"DeleteTakesAWholeLeafListAway", ZAMC_PUSH_DELETE, "/radio:radio/genre", "", nullptr, "", "/radio:radio/genre",
     ""},
};

// The request as somebody writes it who has no client library.
std::string by_hand(const Push &push, uint32_t encode) {
    const std::string operation = zam_xlate_edit_enum2str(push.operation);
    if (encode == json)
        return R"({"orvel-zam-server:push":{"datastore":"ietf-datastores:running","entity":")" +
               std::string{push.entity} + R"(","operation":")" + operation + "\"" +
               (push.member ? ",\"content\":{" + std::string{push.member} + "}" : "") + "}}";
    return R"(<push xmlns="urn:orvel:params:xml:ns:yang:orvel-zam-server">)"
           R"(<datastore xmlns:ds="urn:ietf:params:xml:ns:yang:ietf-datastores">ds:running</datastore><entity>)" +
           std::string{push.entity} + "</entity><operation>" + operation + "</operation>" +
           (*push.xml ? "<content>" + std::string{push.xml} + "</content>" : "") + "</push>";
}

class PushOf : public testing::TestWithParam<std::tuple<Push, uint32_t, bool>> {
protected:
    DescriptorCheck descriptors;
    Server server{{.startup = radio, .modules = real_models_and_radio()}};
};
INSTANTIATE_TEST_SUITE_P(, PushOf, Combine(ValuesIn(pushes), Values(json, xml), Values(false, true)),
                         [](const auto &all) {
                             return std::string{std::get<0>(all.param).name} +
                                    (std::get<1>(all.param) == json ? "InJson" : "InXml") +
                                    (std::get<2>(all.param) ? "ByHand" : "");
                         });

TEST_P(PushOf, ChangesTheDatastore) {
    const auto &[push, encode, hand] = GetParam();
    Operator op{server.url()};
    if (hand)
        EXPECT_EQ(op.exchange(by_hand(push, encode), encode), "");
    else
        EXPECT_EQ(op.push(push.entity, push.operation, encode == json ? push.json : push.xml, encode), 0);
    EXPECT_EQ(op.pull(push.looked_at), push.found);
}

class Pushes : public testing::Test {
protected:
    // "what target" for each config call.
    std::vector<std::string> told() const {
        std::vector<std::string> lines;
        for (const auto &call : journal.calls()) {
            if (call.kind == Call::config) lines.push_back(std::to_string(call.mask & 0xF) + " " + call.target);
        }
        return lines;
    }

    DescriptorCheck descriptors;
    Server server{{.startup = radio, .modules = real_models_and_radio()}};
    Journal journal;
};

TEST_F(Pushes, AnAgreeingApplicationIsToldAndTheChangeStands) {
    App app{server.url(), journal, {{.target = "/radio:radio/preset"}}};
    Operator op{server.url()};
    EXPECT_EQ(op.push("/radio:radio/preset[name='one']/frequency", ZAMC_PUSH_MERGE, "100"), 0);
    EXPECT_THAT(told(), ElementsAre(R"(4 /radio:radio/preset[name="one"])"));
    EXPECT_EQ(op.pull("/radio:radio/preset[name='one']/frequency"), "100");
}

TEST_F(Pushes, ThatChangeNothingSucceedAndArePublishedToNobody) {
    App app{server.url(), journal, {{.target = "/radio:radio"}}};
    Operator op{server.url()};
    EXPECT_EQ(op.push("/radio:radio/motto", ZAMC_PUSH_MERGE, "quiet"), 0);
    EXPECT_EQ(op.push("/radio:radio/motto", ZAMC_PUSH_REPLACE, "quiet"), 0);
    EXPECT_EQ(op.push("/radio:radio", ZAMC_PUSH_MERGE, "{}"), 0);
    EXPECT_EQ(op.push("/radio:radio/genre", ZAMC_PUSH_MERGE, R"(["folk"])"), 0);
    EXPECT_EQ(op.push("/radio:radio/preset[name='one']", ZAMC_PUSH_MERGE, R"([{"name":"one"}])"), 0);
    EXPECT_EQ(op.push("/radio:radio/name", ZAMC_PUSH_REMOVE, ""), 0);
    EXPECT_EQ(op.push("/radio:radio/preset[name='none']", ZAMC_PUSH_REMOVE, ""), 0);
    EXPECT_EQ(op.push("/", ZAMC_PUSH_MERGE, radio), 0);
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(Pushes, ADefaultThatIsSetExplicitlyIsAChange) {
    App app{server.url(), journal, {{.target = "/radio:radio/night"}}};
    Operator op{server.url()};
    EXPECT_EQ(op.push("/radio:radio/night", ZAMC_PUSH_CREATE, "false"), 0);
    EXPECT_EQ(op.push("/radio:radio/night", ZAMC_PUSH_DELETE, ""), 0);
    EXPECT_THAT(told(), ElementsAre("1 /radio:radio/night", "2 /radio:radio/night"));
}

TEST_F(Pushes, ADocumentCanMixOperationsNodeByNode) {
    App app{server.url(), journal, {{.target = "/radio:radio/motto"}, {.target = "/radio:radio/preset"}}};
    Operator op{server.url()};
    EXPECT_EQ(op.push("/radio:radio", ZAMC_PUSH_MERGE,
                      R"({"motto":"quiet","@motto":{"ietf-netconf:operation":"delete"},
                          "preset":[{"@":{"ietf-netconf:operation":"delete"},"name":"two"},
                                    {"@":{"ietf-netconf:operation":"create"},"name":"three"}],"volume":4})"),
              0);
    EXPECT_EQ(op.pull("/radio:radio/motto"), "");
    EXPECT_EQ(op.pull("/radio:radio/preset"), R"([{"name":"one","frequency":1},{"name":"three"}])");
    EXPECT_EQ(op.pull("/radio:radio/volume"), "4");
    EXPECT_THAT(told(), ElementsAre("2 /radio:radio/motto", R"(1 /radio:radio/preset[name="three"])",
                                    R"(2 /radio:radio/preset[name="two"])"));
}

TEST_F(Pushes, ALeafListGoesAsAWholeThroughAnEditDocumentInJson) {
    App app{server.url(), journal, {{.target = "/radio:radio/genre"}}};
    Operator op{server.url()};
    EXPECT_EQ(op.push("/radio:radio", ZAMC_PUSH_MERGE, R"({"genre":"","@genre":{"ietf-netconf:operation":"delete"}})"),
              0);
    EXPECT_EQ(op.pull("/radio:radio/genre"), "");
    EXPECT_THAT(told(), ElementsAre(R"(2 /radio:radio/genre[.="jazz"])", R"(2 /radio:radio/genre[.="folk"])"));
}

TEST_F(Pushes, ALeafListGoesAsAWholeThroughAnEditDocumentInXml) {
    Operator op{server.url()};
    EXPECT_EQ(op.push("/radio:radio", ZAMC_PUSH_MERGE,
                      "<radio" NS
                      R"(><genre xmlns:nc="urn:ietf:params:xml:ns:netconf:base:1.0" nc:operation="delete"/></radio>)",
                      xml),
              0);
    EXPECT_EQ(op.pull("/radio:radio/genre"), "");
}

TEST_F(Pushes, AnEmptyValueOfALeafListIsDeletedByItselfWhereThereIsOne) {
    Operator op{server.url()};
    EXPECT_EQ(op.push("/radio:radio/genre", ZAMC_PUSH_MERGE, R"([""])"), 0);
    EXPECT_EQ(op.pull("/radio:radio/genre"), R"(["jazz","folk",""])");
    EXPECT_EQ(
        op.push("/radio:radio", ZAMC_PUSH_MERGE, R"({"genre":[""],"@genre":[{"ietf-netconf:operation":"delete"}]})"),
        0);
    EXPECT_EQ(op.pull("/radio:radio/genre"), R"(["jazz","folk"])");
    EXPECT_EQ(
        op.push("/radio:radio", ZAMC_PUSH_MERGE, R"({"genre":[""],"@genre":[{"ietf-netconf:operation":"delete"}]})"),
        -1);
    EXPECT_EQ(op.pull("/radio:radio/genre"), R"(["jazz","folk"])");
}

TEST_F(Pushes, ALeafListGoesAsAWholeThroughADocumentThatTheLibraryBuilt) {
    for (const uint32_t encode : {json, xml}) {
        Operator op{server.url(), encode};
        EXPECT_EQ(op.push("/radio:radio/genre", ZAMC_PUSH_MERGE, R"(["jazz"])"), 0);
        zamc_doc *doc = zamc_new_doc(encode);
        ASSERT_NE(doc, nullptr);
        EXPECT_EQ(zamc_del_node(doc, "/radio:radio/genre"), 0);
        zamc_bytes *bytes = zamc_format_doc(doc, encode);
        zamc_free_doc(doc);
        ASSERT_NE(bytes, nullptr);
        EXPECT_EQ(zamc_push(op.client(), "/", ZAMC_PUSH_MERGE, bytes), 0)
            << std::string(bytes->data, static_cast<size_t>(bytes->length));
        zamc_free_bytes(bytes);
        EXPECT_EQ(Operator{server.url()}.pull("/radio:radio/genre"), "") << encode;
    }
}

TEST_F(Pushes, ScalarsByHandMayBeOfTheirOwnJsonType) {
    Operator op{server.url()};
    EXPECT_EQ(op.exchange(R"({"orvel-zam-server:push":{"datastore":"ietf-datastores:running",)"
                          R"("entity":"/radio:radio/volume","content":{"radio:volume":5}}})"),
              "");
    EXPECT_EQ(op.exchange(R"({"orvel-zam-server:push":{"datastore":"ietf-datastores:running",)"
                          R"("entity":"/radio:radio/night","content":{"night":true}}})"),
              "");
    EXPECT_EQ(op.pull("/radio:radio/night"), "true");
    EXPECT_EQ(op.pull("/radio:radio/volume"), "5");
}

} // namespace
