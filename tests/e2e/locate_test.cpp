// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// The neighbours of an entry of a user-ordered list, before and after a change.
#include <ostream>

#include <gmock/gmock.h>

#include "e2e/app.h"

namespace {

using namespace zam::test;
using testing::AllOf;
using testing::HasSubstr;
using testing::Values;

constexpr char radio[] = R"({"radio:radio":{
   "preset":[{"name":"one"},{"name":"two"},{"name":"three"}],
   "alarm":[{"day":"mon","hour":6},{"day":"tue","hour":6},{"day":"tue","hour":7}],
   "genre":["jazz","folk"],"favourite":["z","it's","say \"a\""]},
  "radio:room":[{"name":"the \"big\" one"},{"name":"mum's"},{"name":"a]b/c"}]})";
constexpr uint32_t json = ZAM_ENCODE_JSON;

constexpr int32_t after_the_change = 0;
constexpr int32_t before_the_change = 1;

// The outcome of one zamc_locate(); an entity that is not in the output is "-".
struct Place {
    int32_t result = 1;
    std::string previous, next;
    bool operator==(const Place &other) const = default;
};
std::ostream &operator<<(std::ostream &out, const Place &place) {
    return out << place.result << " between " << place.previous << " and " << place.next;
}

// The leaves stand alone in the output, as the children of the operation's reply; put back into it they can be read.
std::string as_reply(const std::string &leaves, uint32_t format) {
    if (format == json) return R"({"orvel-zam-server:locate":)" + leaves + "}";
    return R"(<locate xmlns="urn:orvel:params:xml:ns:yang:orvel-zam-server">)" + leaves + "</locate>";
}

Place look(zamc_client *client, const std::string &path, int32_t version = after_the_change) {
    zamc_bytes *bytes = nullptr;
    Place place{zamc_locate(client, version, path.c_str(), &bytes), "-", "-"};
    if (bytes == nullptr) return place;
    const std::string reply = as_reply({bytes->data, static_cast<size_t>(bytes->length)}, bytes->format);
    const auto format = static_cast<LYD_FORMAT>(zam_ownfmt2lydfmt(bytes->format));
    lyd_node *tree = zam_lyd_parse_op(zam_clients_schema_ctx(), reply.c_str(), format, LYD_TYPE_REPLY_YANG);
    EXPECT_NE(tree, nullptr) << reply;
    for (const lyd_node *node = tree ? lyd_child(tree) : nullptr; node; node = node->next)
        (std::string{node->schema->name} == "prev-entity" ? place.previous : place.next) = lyd_get_value(node);
    zam_lyd_tree_destroy(tree);
    zamc_free_bytes(bytes);
    return place;
}

class Locate : public testing::TestWithParam<uint32_t> {
protected:
    // What an application sees while it is asked about the push of `content` to `entity`.
    struct Both {
        Place before, after;
    };
    Both during(const std::string &path, const std::string &entity, int32_t operation, const std::string &content) {
        Both both;
        App app{server.url(),
                journal,
                {{.target = "/radio:radio",
                  .behaviour =
                      [&](zamc_client *client, const Call &, zamc_bytes **) {
                          both = {look(client, path, before_the_change), look(client, path, after_the_change)};
                          return 0;
                      }}},
                {.encode = GetParam()}};
        EXPECT_EQ(Operator{server.url()}.push(entity, operation, content), 0);
        return both;
    }

    DescriptorCheck descriptors;
    Server server{{.startup = radio, .modules = real_models_and_radio()}};
    Journal journal;
};
INSTANTIATE_TEST_SUITE_P(, Locate, Values(json, uint32_t{ZAM_ENCODE_XML}),
                         [](const auto &encode) { return encode.param == json ? "Json" : "Xml"; });

constexpr char one[] = R"(/radio:radio/preset[name="one"])";
constexpr char two[] = R"(/radio:radio/preset[name="two"])";
constexpr char three[] = R"(/radio:radio/preset[name="three"])";

TEST_P(Locate, TheFirstEntryHasOnlyANextOne) {
    Operator op{server.url(), GetParam()};
    EXPECT_EQ(look(op.client(), one), (Place{0, "-", two}));
}

TEST_P(Locate, AMiddleEntryHasBothNeighbours) {
    Operator op{server.url(), GetParam()};
    EXPECT_EQ(look(op.client(), two), (Place{0, one, three}));
}

TEST_P(Locate, TheLastEntryHasOnlyAPreviousOne) {
    Operator op{server.url(), GetParam()};
    EXPECT_EQ(look(op.client(), three), (Place{0, two, "-"}));
}

TEST_P(Locate, TheOnlyEntryHasNoOutput) {
    Operator op{server.url(), GetParam()};
    EXPECT_EQ(op.push(two, ZAMC_PUSH_DELETE, ""), 0);
    EXPECT_EQ(op.push(three, ZAMC_PUSH_DELETE, ""), 0);
    zamc_bytes *bytes = nullptr;
    EXPECT_EQ(zamc_locate(op.client(), 0, one, &bytes), 0);
    EXPECT_EQ(bytes, nullptr);
}

TEST_P(Locate, OutsideAChangeBothVersionsAreTheSame) {
    Operator op{server.url(), GetParam()};
    EXPECT_EQ(look(op.client(), two, 0), look(op.client(), two, 1));
    EXPECT_EQ(look(op.client(), two, 0), look(op.client(), two, 2));
}

TEST_P(Locate, AnEntryOfSeveralKeysIsNamedByAllOfThem) {
    Operator op{server.url(), GetParam()};
    EXPECT_EQ(look(op.client(), "/radio:radio/alarm[day='tue'][hour='6']"),
              (Place{0, R"(/radio:radio/alarm[day="mon"][hour="6"])", R"(/radio:radio/alarm[day="tue"][hour="7"])"}));
    EXPECT_EQ(look(op.client(), "/radio:radio/alarm[hour='6'][day='tue']"),
              look(op.client(), "/radio:radio/alarm[day='tue'][hour='6']"))
        << "in whatever order";
}

TEST_P(Locate, KeysWithQuotesAndBracketsCanBeAskedForAndComeBack) {
    Operator op{server.url(), GetParam()};
    const std::string big = R"(/radio:room[name="the \"big\" one"])";
    const std::string mum = R"(/radio:room[name="mum's"])";
    const std::string odd = R"(/radio:room[name="a]b/c"])";
    EXPECT_EQ(look(op.client(), big), (Place{0, "-", mum}));
    EXPECT_EQ(look(op.client(), R"(/radio:room[name='the "big" one'])"), (Place{0, "-", mum})) << "in either quotes";
    EXPECT_EQ(look(op.client(), mum), (Place{0, big, odd}));
    EXPECT_EQ(look(op.client(), odd), (Place{0, mum, "-"}));
}

TEST_P(Locate, AValueOfALeafListHasNeighboursToo) {
    Operator op{server.url(), GetParam()};
    EXPECT_EQ(look(op.client(), R"(/radio:radio/favourite[.="it's"])"),
              (Place{0, R"(/radio:radio/favourite[.="z"])", R"(/radio:radio/favourite[.="say \"a\""])"}));
}

TEST_P(Locate, AnEntryThatIsNotThereIsRefused) {
    Operator op{server.url(), GetParam()};
    EXPECT_EQ(look(op.client(), "/radio:radio/preset[name='four']"), (Place{-1, "-", "-"}));
}

TEST_P(Locate, WhatIsNoEntryOfAUserOrderedListIsRefused) {
    Operator op{server.url(), GetParam()};
    for (const char *path : {"/", "/radio:radio", "/radio:radio/preset", "/radio:radio/volume",
                             "/radio:radio/preset[name='one']/frequency", "/radio:radio/genre[.='jazz']",
                             "/radio:radio/alarm[day='mon']", "/radio:radio/wings"})
        EXPECT_EQ(look(op.client(), path), (Place{-1, "-", "-"})) << path;
}

TEST_P(Locate, AMissingArgumentOrABrokenPathIsInvalid) {
    Operator op{server.url(), GetParam()};
    zamc_bytes *bytes = nullptr;
    EXPECT_EQ(zamc_locate(nullptr, 0, one, &bytes), -3);
    EXPECT_EQ(zamc_locate(op.client(), 0, nullptr, &bytes), -3);
    EXPECT_EQ(zamc_locate(op.client(), 0, one, nullptr), -3);
    EXPECT_EQ(zamc_locate(op.client(), 0, "/radio:radio/preset[name='one", &bytes), -3);
    EXPECT_EQ(bytes, nullptr);
}

TEST_P(Locate, AnEntryThatMovesHasOtherNeighboursBeforeAndAfter) {
    const Both both = during(three, three, ZAMC_PUSH_MERGE, R"([{"@":{"yang:insert":"first"},"name":"three"}])");
    EXPECT_EQ(both.before, (Place{0, two, "-"}));
    EXPECT_EQ(both.after, (Place{0, "-", one}));
}

TEST_P(Locate, ItsNeighboursSeeItGoAndCome) {
    const Both both = during(two, three, ZAMC_PUSH_MERGE, R"([{"@":{"yang:insert":"first"},"name":"three"}])");
    EXPECT_EQ(both.before, (Place{0, one, three}));
    EXPECT_EQ(both.after, (Place{0, one, "-"}));
}

TEST_P(Locate, AnEntryThatComesIsThereAfterTheChangeOnly) {
    const std::string four = R"(/radio:radio/preset[name="four"])";
    const Both both = during(four, four, ZAMC_PUSH_CREATE,
                             R"([{"@":{"yang:insert":"before","yang:key":"[name='two']"},"name":"four"}])");
    EXPECT_EQ(both.before, (Place{-1, "-", "-"}));
    EXPECT_EQ(both.after, (Place{0, one, two}));
}

TEST_P(Locate, AnEntryThatGoesIsThereBeforeTheChangeOnly) {
    const Both both = during(two, two, ZAMC_PUSH_DELETE, "");
    EXPECT_EQ(both.before, (Place{0, one, three}));
    EXPECT_EQ(both.after, (Place{-1, "-", "-"}));
}

TEST(LocateReply, HoldsBothLeavesEmptyWhereThereIsNoNeighbour) {
    Server server{{.startup = radio, .modules = real_models_and_radio()}};
    Operator op{server.url()};
    EXPECT_EQ(op.exchange(R"({"orvel-zam-server:locate":{"entity":"/radio:room[name='a]b/c']"}})"),
              R"({"orvel-zam-server:locate":{"prev-entity":"/radio:room[name=\"mum's\"]","post-entity":""}})");
    EXPECT_EQ(op.exchange(R"(<locate xmlns="urn:orvel:params:xml:ns:yang:orvel-zam-server">)"
                          "<entity>/radio:radio/favourite[.='z']</entity></locate>",
                          ZAM_ENCODE_XML),
              R"(<locate xmlns="urn:orvel:params:xml:ns:yang:orvel-zam-server"><prev-entity></prev-entity>)"
              R"(<post-entity>/radio:radio/favourite[.=&quot;it&apos;s&quot;]</post-entity></locate>)");
    EXPECT_THAT(op.exchange(R"({"orvel-zam-server:locate":{"entity":"/radio:radio/volume"}})"),
                AllOf(HasSubstr("rpc-error"), HasSubstr("/radio:radio/volume"), HasSubstr("user-ordered")));
}

} // namespace
