// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Reading configuration: what comes back for every kind of node, in either encoding.
#include <ostream>

#include <gmock/gmock.h>

#include "e2e/app.h"

namespace {

using namespace zam::test;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char radio[] = R"({"radio:radio":{
  "name":"kitchen","motto":"say \"h\u00e9\"\n\\ & <go>","volume":3,"night":false,"serial":"18446744073709551615",
  "gain":"1.5","colour":"pale blue","band":"radio:fm","muted":[null],"logo":"aGk=","antenna":{},
  "preset":[{"name":"one","frequency":98},{"name":"a 'b'","frequency":7}],
  "genre":["jazz","folk"],"favourite":["z","a"]},
 "radio:room":[{"name":"hall","size":9},{"name":"den"}]})";

Server::Options radio_server(std::string startup = radio) {
    return {.startup = std::move(startup), .modules = real_models_and_radio()};
}

size_t count(const std::string &text, const std::string &part) {
    size_t found = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
        ++found;
    return found;
}

// How a pull that has no text ends.
struct Ending {
    int32_t result;
    bool output;
    bool operator==(const Ending &other) const = default;
};
std::ostream &operator<<(std::ostream &out, const Ending &ending) {
    return out << ending.result << (ending.output ? " with" : " without") << " output";
}

Ending pull_ending(zamc_client *client, const std::string &path, int32_t depth = -1, int32_t version = 0) {
    zamc_bytes *bytes = nullptr;
    const int32_t result = zamc_pull(client, version, path.c_str(), depth, &bytes);
    const Ending ending{result, bytes != nullptr};
    zamc_free_bytes(bytes);
    return ending;
}

constexpr Ending nothing{0, false};
constexpr Ending refused{-1, false};
constexpr Ending invalid{-3, false};

struct Row {
    const char *name;
    const char *path;
    const char *json;
    const char *xml;
};
std::ostream &operator<<(std::ostream &out, const Row &row) {
    return out << row.path;
}

#define R_NS R"(xmlns="urn:zamc:test:radio")"

class PulledNode : public testing::TestWithParam<Row> {
protected:
    DescriptorCheck descriptors;
    Server server{radio_server()};
};

TEST_P(PulledNode, IsItsValueInJson) {
    Operator op{server.url(), ZAM_ENCODE_JSON};
    EXPECT_EQ(op.pull(GetParam().path), GetParam().json);
}

TEST_P(PulledNode, IsItsElementsInXml) {
    Operator op{server.url(), ZAM_ENCODE_XML};
    EXPECT_EQ(op.pull(GetParam().path), GetParam().xml);
}

constexpr Row rows[] = {
    {"String", "/radio:radio/motto", "say \"h\xC3\xA9\"\n\\ & <go>",
     "<motto " R_NS ">say \"h\xC3\xA9\"\n\\ &amp; &lt;go&gt;</motto>"},
    {"Number", "/radio:radio/volume", "3", "<volume " R_NS ">3</volume>"},
    {"LongNumber", "/radio:radio/serial", "18446744073709551615", "<serial " R_NS ">18446744073709551615</serial>"},
    {"Decimal", "/radio:radio/gain", "1.5", "<gain " R_NS ">1.5</gain>"},
    {"Boolean", "/radio:radio/night", "false", "<night " R_NS ">false</night>"},
    {"Enumeration", "/radio:radio/colour", "pale blue", "<colour " R_NS ">pale blue</colour>"},
    {"Identity", "/radio:radio/band", "radio:fm", "<band " R_NS R"( xmlns:r="urn:zamc:test:radio">r:fm</band>)"},
    {"Empty", "/radio:radio/muted", "[null]", "<muted " R_NS "/>"},
    {"Binary", "/radio:radio/logo", "aGk=", "<logo " R_NS ">aGk=</logo>"},
    {"PresenceContainer", "/radio:radio/antenna", "{}", "<antenna " R_NS "/>"},
    {"Entry", "/radio:radio/preset[name='one']", R"([{"name":"one","frequency":98}])",
     "<preset " R_NS "><name>one</name><frequency>98</frequency></preset>"},
    {"EntryWithQuotesInItsKey", R"(/radio:radio/preset[name="a 'b'"])", R"([{"name":"a 'b'","frequency":7}])",
     "<preset " R_NS "><name>a 'b'</name><frequency>7</frequency></preset>"},
    {"LeafOfAnEntry", "/radio:radio/preset[name='one']/frequency", "98", "<frequency " R_NS ">98</frequency>"},
    {"KeyOfAnEntry", "/radio:radio/preset[name='one']/name", "one", "<name " R_NS ">one</name>"},
    {"WholeList", "/radio:radio/preset", R"([{"name":"one","frequency":98},{"name":"a 'b'","frequency":7}])",
     "<preset " R_NS "><name>one</name><frequency>98</frequency></preset>"
     "<preset " R_NS "><name>a 'b'</name><frequency>7</frequency></preset>"},
    {"TopLevelList", "/radio:room", R"([{"name":"hall","size":9},{"name":"den"}])",
     "<room " R_NS "><name>hall</name><size>9</size></room><room " R_NS "><name>den</name></room>"},
    {"LeafList", "/radio:radio/genre", R"(["jazz","folk"])",
     "<genre " R_NS ">jazz</genre><genre " R_NS ">folk</genre>"},
    {"UserOrderedLeafList", "/radio:radio/favourite", R"(["z","a"])",
     "<favourite " R_NS ">z</favourite><favourite " R_NS ">a</favourite>"},
    {"ValueOfALeafList", "/radio:radio/genre[.='folk']", R"(["folk"])", "<genre " R_NS ">folk</genre>"},
    {"Container", "/radio:radio",
     R"({"name":"kitchen","motto":"say \"hé\"\u000A\\ & <go>","volume":3,"night":false,)"
     R"("serial":"18446744073709551615","gain":"1.5","colour":"pale blue","band":"radio:fm","muted":[null],)"
     R"("logo":"aGk=","antenna":{},"preset":[{"name":"one","frequency":98},{"name":"a 'b'","frequency":7}],)"
     R"("genre":["jazz","folk"],"favourite":["z","a"]})",
     "<radio " R_NS "><name>kitchen</name><motto>say \"hé\"\n\\ &amp; &lt;go&gt;</motto><volume>3</volume>"
     "<night>false</night><serial>18446744073709551615</serial><gain>1.5</gain><colour>pale blue</colour>"
     R"(<band xmlns:r="urn:zamc:test:radio">r:fm</band>)"
     "<muted/><logo>aGk=</logo><antenna/>"
     "<preset><name>one</name><frequency>98</frequency></preset>"
     "<preset><name>a 'b'</name><frequency>7</frequency></preset>"
     "<genre>jazz</genre><genre>folk</genre><favourite>z</favourite><favourite>a</favourite></radio>"},
};
INSTANTIATE_TEST_SUITE_P(, PulledNode, testing::ValuesIn(rows), [](const auto &row) { return row.param.name; });

class Pull : public testing::TestWithParam<uint32_t> {
protected:
    bool json() const { return GetParam() == ZAM_ENCODE_JSON; }

    DescriptorCheck descriptors;
    Server server{radio_server()};
};
INSTANTIATE_TEST_SUITE_P(, Pull, testing::Values(uint32_t{ZAM_ENCODE_JSON}, uint32_t{ZAM_ENCODE_XML}),
                         [](const auto &encode) { return encode.param == ZAM_ENCODE_JSON ? "Json" : "Xml"; });

TEST_P(Pull, TheRootIsAllTopNodes) {
    Server small{radio_server(R"({"radio:radio":{"volume":4},"radio:room":[{"name":"den"}],
                                  "ietf-system:system":{"contact":"me"}})")};
    Operator op{small.url(), GetParam()};
    const std::string text = op.pull("/");
    EXPECT_THAT(text,
                HasSubstr(json() ? R"("radio:radio":{"volume":4})" : "<radio " R_NS "><volume>4</volume></radio>"));
    EXPECT_THAT(text,
                HasSubstr(json() ? R"("radio:room":[{"name":"den"}])" : "<room " R_NS "><name>den</name></room>"));
    EXPECT_THAT(text, HasSubstr(json() ? R"("ietf-system:system":{"contact":"me"})" : "<contact>me</contact>"));
    EXPECT_EQ(text.front(), json() ? '{' : '<');
    EXPECT_EQ(text.back(), json() ? '}' : '>');
}

TEST_P(Pull, TheRootOfAnEmptyDatastoreHasNoOutput) {
    Server empty{{.modules = real_models_and_radio()}};
    Operator op{empty.url(), GetParam()};
    EXPECT_EQ(pull_ending(op.client(), "/"), nothing);
}

TEST_P(Pull, WhatHasNoDataHasNoOutput) {
    Operator op{server.url(), GetParam()};
    for (const char *path : {"/radio:radio/tape", "/radio:radio/state", "/radio:radio/alarm",
                             "/radio:radio/preset[name='three']", "/radio:radio/preset[name='three']/frequency",
                             "/radio:radio/genre[.='polka']", "/ietf-interfaces:interfaces"})
        EXPECT_EQ(pull_ending(op.client(), path), nothing) << path;
}

TEST_P(Pull, ADefaultThatNobodySetHasNoOutput) {
    Server small{radio_server(R"({"radio:radio":{"volume":4}})")};
    Operator op{small.url(), GetParam()};
    EXPECT_EQ(pull_ending(op.client(), "/radio:radio/night"), nothing);
}

TEST_P(Pull, AnUnknownNodeIsRefused) {
    Operator op{server.url(), GetParam()};
    for (const char *path :
         {"", "radio", "/radio:radio/wings", "/radio:tv", "/nobody:radio", "/radio:radio/preset[wings='1']",
          "/radio:radio/volume/deeper", "/radio:radio/preset[name='one']/wings"})
        EXPECT_EQ(pull_ending(op.client(), path), refused) << path;
    EXPECT_EQ(pull_ending(op.client(), "/radio:radio/volume"), (Ending{0, true})) << "the session goes on";
}

TEST_P(Pull, APathThatIsNoneIsInvalid) {
    Operator op{server.url(), GetParam()};
    for (const char *path : {"/radio:radio/preset[name='one'", "/radio:radio/preset[name='one]"})
        EXPECT_EQ(pull_ending(op.client(), path), invalid) << path;
}

TEST_P(Pull, AnEntryBelowAListThatNamesNoneIsRefused) {
    Operator op{server.url(), GetParam()};
    EXPECT_EQ(pull_ending(op.client(), "/radio:radio/preset/frequency"), refused);
}

TEST_P(Pull, AMissingArgumentIsInvalid) {
    Operator op{server.url(), GetParam()};
    zamc_bytes *bytes = nullptr;
    EXPECT_EQ(zamc_pull(nullptr, 0, "/radio:radio", -1, &bytes), -3);
    EXPECT_EQ(zamc_pull(op.client(), 0, nullptr, -1, &bytes), -3);
    EXPECT_EQ(zamc_pull(op.client(), 0, "/radio:radio", -1, nullptr), -3);
    EXPECT_EQ(bytes, nullptr);
}

TEST_P(Pull, NoLevelsAtAllAreRefused) {
    Operator op{server.url(), GetParam()};
    EXPECT_EQ(pull_ending(op.client(), "/radio:radio", 0), refused);
    EXPECT_EQ(pull_ending(op.client(), "/radio:radio", -2), refused);
    EXPECT_EQ(pull_ending(op.client(), "/radio:radio", 65536), refused);
}

constexpr char two_levels[] = R"({"radio:radio":{"volume":3,"preset":[{"name":"one","frequency":98}]},
                                  "radio:room":[{"name":"hall","size":9}]})";

TEST_P(Pull, OneLevelIsTheNodeAndItsChildrenWithTheKeysOfEntries) {
    Server small{radio_server(two_levels)};
    Operator op{small.url(), GetParam()};
    EXPECT_EQ(op.pull("/radio:radio", 1), json() ? R"({"volume":3,"preset":[{"name":"one"}]})"
                                                 : "<radio " R_NS "><volume>3</volume>"
                                                   "<preset><name>one</name></preset></radio>");
}

TEST_P(Pull, TwoLevelsReachTheGrandchildren) {
    Server small{radio_server(two_levels)};
    Operator op{small.url(), GetParam()};
    EXPECT_EQ(op.pull("/radio:radio", 2), json()
                                              ? R"({"volume":3,"preset":[{"name":"one","frequency":98}]})"
                                              : "<radio " R_NS "><volume>3</volume>"
                                                "<preset><name>one</name><frequency>98</frequency></preset></radio>");
}

TEST_P(Pull, OneLevelOfAnEntryIsItsLeaves) {
    Operator op{server.url(), GetParam()};
    EXPECT_EQ(op.pull("/radio:room[name='hall']", 1),
              json() ? R"([{"name":"hall","size":9}])" : "<room " R_NS "><name>hall</name><size>9</size></room>");
}

TEST_P(Pull, OneLevelOfTheRootIsTheTopNodes) {
    Server small{radio_server(two_levels)};
    Operator op{small.url(), GetParam()};
    EXPECT_EQ(op.pull("/", 1), json() ? R"({"radio:radio":{},"radio:room":[{"name":"hall"}]})"
                                      : "<radio " R_NS "/><room " R_NS "><name>hall</name></room>");
}

TEST_P(Pull, MoreLevelsThanThereAreGiveEverything) {
    Operator op{server.url(), GetParam()};
    EXPECT_EQ(op.pull("/radio:radio", 65535), op.pull("/radio:radio", -1));
}

TEST_P(Pull, OutsideAChangeTheLastVersionIsTheCurrentOne) {
    Operator op{server.url(), GetParam()};
    EXPECT_EQ(op.push("/radio:radio/volume", ZAMC_PUSH_MERGE, "5"), 0);
    const std::string five = json() ? "5" : "<volume " R_NS ">5</volume>";
    EXPECT_EQ(op.pull("/radio:radio/volume", -1, 0), five);
    EXPECT_EQ(op.pull("/radio:radio/volume", -1, 1), five);
    EXPECT_EQ(op.pull("/radio:radio/volume", -1, 2), five);
}

TEST_P(Pull, WhoHasNoPartInAChangeSeesWhatIsCommittedInBothVersions) {
    Journal journal;
    App app{
        server.url(), journal, {{.target = "/radio:radio", .behaviour = [](zamc_client *, const Call &, zamc_bytes **) {
                                     return int32_t{ZAMC_REPLY_LATER};
                                 }}}};
    auto pushed = std::async(std::launch::async, [this] {
        return Operator{server.url()}.push("/radio:radio/volume", ZAMC_PUSH_MERGE, "5");
    });
    ASSERT_TRUE(journal.wait_for([](const Call &call) { return call.kind == Call::config; }));
    Operator reader{server.url(), GetParam()};
    const std::string three = json() ? "3" : "<volume " R_NS ">3</volume>";
    EXPECT_EQ(reader.pull("/radio:radio/volume", -1, 0), three);
    EXPECT_EQ(reader.pull("/radio:radio/volume", -1, 1), three);
    EXPECT_EQ(app.on_thread([](zamc_client *client) { return zamc_reply_asyn(client, 0, nullptr); }), 0);
    EXPECT_EQ(pushed.get(), 0);
}

TEST_P(Pull, WhoIsAskedSeesBothVersionsOfANodeThatComes) {
    Ending last{};
    std::string current;
    Journal journal;
    App app{server.url(),
            journal,
            {{.target = "/radio:room",
              .behaviour =
                  [&](zamc_client *client, const Call &, zamc_bytes **) {
                      last = pull_ending(client, "/radio:room[name='loft']", -1, 1);
                      zamc_bytes *bytes = nullptr;
                      EXPECT_EQ(zamc_pull(client, 0, "/radio:room[name='loft']/size", -1, &bytes), 0);
                      if (bytes) current = bytes->data;
                      zamc_free_bytes(bytes);
                      return 0;
                  }}},
            {.encode = GetParam()}};
    Operator op{server.url()};
    EXPECT_EQ(op.push("/radio:room[name='loft']", ZAMC_PUSH_CREATE, R"([{"name":"loft","size":2}])"), 0);
    EXPECT_EQ(last, nothing);
    EXPECT_EQ(current, json() ? "2" : "<size " R_NS ">2</size>");
}

TEST_P(Pull, TheStartupDatastoreStaysWhatItWasAtTheStart) {
    Operator op{server.url(), GetParam()};
    EXPECT_EQ(op.push("/radio:radio/volume", ZAMC_PUSH_MERGE, "5"), 0);
    op.datastore("ietf-datastores:startup");
    EXPECT_EQ(op.pull("/radio:radio/volume"), json() ? "3" : "<volume " R_NS ">3</volume>");
}

TEST_P(Pull, AnUnknownDatastoreIsRefused) {
    Operator op{server.url(), GetParam()};
    op.datastore("ietf-datastores:candidate");
    EXPECT_EQ(pull_ending(op.client(), "/radio:radio"), refused);
}

TEST_P(Pull, TenThousandEntriesComeBackWholeAndInTheirOrder) {
    constexpr size_t entries = 10000;
    std::string startup = R"({"radio:room":[)";
    for (size_t i = 0; i < entries; ++i)
        startup += (i ? R"(,{"name":"room )" : R"({"name":"room )") + std::to_string(i) + R"(","size":7})";
    Server large{radio_server(startup + "]}")};
    Operator op{large.url(), GetParam()};
    const uint32_t limit = 10000; // ms; also under sanitizers no more than a part of it
    EXPECT_EQ(zamc_set_attr(op.client(), ZAMC_ATTR_SYNC_TIMEOUT, &limit, sizeof limit), 0);

    for (const char *path : {"/radio:room", "/"}) {
        const std::string text = op.pull(path);
        EXPECT_EQ(count(text, "room "), json() ? entries : 2 * entries) << path; // in XML also that of the start tag
        EXPECT_EQ(count(text, json() ? R"("size":7})" : "<size>7</size></room>"), entries) << path;
        EXPECT_LT(text.find("room 41"), text.find("room 9998")) << path;
    }
    const std::string one = op.pull("/radio:room[name='room 9999']");
    EXPECT_EQ(one, json() ? R"([{"name":"room 9999","size":7}])"
                          : "<room " R_NS "><name>room 9999</name><size>7</size></room>");
}

TEST(PullReply, HoldsTheEntityAsAskedAndTheNodeByItsQualifiedName) {
    Server server{radio_server()};
    Operator op{server.url()};
    EXPECT_EQ(op.exchange(R"({"orvel-zam-server:pull":{"entity":"/radio:radio/volume"}})"),
              R"({"orvel-zam-server:pull":{"entity":"/radio:radio/volume","data":{"radio:volume":3}}})");
    EXPECT_EQ(op.exchange(R"(<pull xmlns="urn:orvel:params:xml:ns:yang:orvel-zam-server">)"
                          "<entity>/radio:radio/volume</entity></pull>",
                          ZAM_ENCODE_XML),
              R"(<pull xmlns="urn:orvel:params:xml:ns:yang:orvel-zam-server"><entity>/radio:radio/volume</entity>)"
              "<data><volume " R_NS ">3</volume></data></pull>");
}

TEST(PullReply, WithoutDataHoldsAnEmptyOne) {
    Server server{radio_server()};
    Operator op{server.url()};
    EXPECT_EQ(op.exchange(R"({"orvel-zam-server:pull":{"entity":"/radio:radio/tape"}})"),
              R"({"orvel-zam-server:pull":{"entity":"/radio:radio/tape","data":{}}})");
    EXPECT_EQ(op.exchange(R"(<pull xmlns="urn:orvel:params:xml:ns:yang:orvel-zam-server">)"
                          "<entity>/radio:radio/tape</entity></pull>",
                          ZAM_ENCODE_XML),
              R"(<pull xmlns="urn:orvel:params:xml:ns:yang:orvel-zam-server"><entity>/radio:radio/tape</entity>)"
              "<data></data></pull>");
}

TEST(PullReply, NamesTheNodeThatNobodyKnows) {
    Server server{radio_server()};
    Operator op{server.url()};
    EXPECT_THAT(op.exchange(R"({"orvel-zam-server:pull":{"entity":"/radio:radio/wings"}})"),
                AllOf(StartsWith(R"({"ietf-netconf:rpc-error":{)"), HasSubstr("wings"), HasSubstr("error-message"),
                      HasSubstr("error-tag")));
    EXPECT_THAT(op.exchange(R"(<pull xmlns="urn:orvel:params:xml:ns:yang:orvel-zam-server">)"
                            "<entity>/radio:radio/wings</entity></pull>",
                            ZAM_ENCODE_XML),
                AllOf(StartsWith("<rpc-error "), HasSubstr("wings"), Not(HasSubstr("<data>"))));
}

TEST(PullReply, NamesTheDatastoreThatIsNoneOfThree) {
    Server server{radio_server()};
    Operator op{server.url()};
    EXPECT_THAT(op.exchange(R"({"orvel-zam-server:pull":{"datastore":"ietf-datastores:candidate",)"
                            R"("entity":"/radio:radio"}})"),
                AllOf(HasSubstr(R"("error-tag":"invalid-value")"), HasSubstr("candidate")));
}

} // namespace
