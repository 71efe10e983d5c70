// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// What an application learns, inside its handler, of the data that it is replayed: all of it has just been created.
#include <gmock/gmock.h>

#include "e2e/app.h"
#include "e2e/difference.h"

namespace {

using namespace zam::test;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Values;

constexpr uint32_t json = ZAM_ENCODE_JSON;
constexpr uint32_t xml = ZAM_ENCODE_XML;
constexpr char radio[] = R"({"radio:radio":{"motto":"quiet","antenna":{"height":3},
   "preset":[{"name":"one","frequency":1},{"name":"two"}],"favourite":["z","a"]},
   "ietf-system:system":{"contact":"me"}})";

// What a handler that was called for `target` saw.
struct Look {
    std::string target;
    Seen diff;
};

class DiffInReplay : public testing::TestWithParam<uint32_t> {
protected:
    // A subscription that looks at `path`, or at its own target when that is empty, whenever it is called.
    Subscription looking(const std::string &target, const std::string &path = {}, int32_t depth = -1) {
        return {.target = target, .behaviour = [this, path, depth](zamc_client *client, const Call &call, auto) {
                    EXPECT_EQ(call.mask, uint32_t{ZAMC_CONFIG_CREATE | ZAMC_SCENE_CFGR});
                    looks.push_back({call.target, look(client, path.empty() ? call.target : path, depth)});
                    return 0;
                }};
    }
    // The one thing that a replay at `target` shows.
    Seen replay(const std::string &target, const std::string &path = {}, int32_t depth = -1) {
        App app{server.url(), journal, {looking(target, path, depth)}, {.encode = GetParam(), .replay = true}};
        EXPECT_EQ(looks.size(), 1u);
        return looks.empty() ? Seen{} : looks.front().diff;
    }
    void expect_nothing(const Seen &seen) {
        EXPECT_EQ(seen.result, 0);
        EXPECT_FALSE(seen.output) << seen.text;
    }

    DescriptorCheck descriptors;
    Server server{{.startup = radio, .modules = real_models_and_radio()}};
    Journal journal;
    std::vector<Look> looks; // read once the application is active
};
INSTANTIATE_TEST_SUITE_P(, DiffInReplay, Values(json, xml),
                         [](const auto &encode) { return encode.param == json ? "Json" : "Xml"; });

TEST_P(DiffInReplay, AContainerIsCreatedWithAllThatIsInIt) {
    const Seen diff = replay("/radio:radio");
    EXPECT_EQ(diff.result, 0);
    ASSERT_TRUE(diff.output);
    EXPECT_EQ(diff.format, GetParam());
    const Document document{diff};
    for (const char *path :
         {"/radio:radio", "/radio:radio/motto", "/radio:radio/antenna", "/radio:radio/antenna/height",
          "/radio:radio/preset[name='one']", "/radio:radio/preset[name='one']/frequency",
          "/radio:radio/preset[name='two']", "/radio:radio/favourite[.='z']", "/radio:radio/favourite[.='a']"}) {
        EXPECT_EQ(document.attribute(path, "operation"), "create") << path;
    }
    EXPECT_EQ(document.content("/radio:radio/motto"), "quiet");
    EXPECT_EQ(document.content("/radio:radio/preset[name='one']/frequency"), "1");
    EXPECT_FALSE(document.has("/radio:radio/night")) << "a default that nobody set";
    EXPECT_FALSE(document.has("/ietf-system:system"));
    EXPECT_THAT(diff.text, Not(HasSubstr("origin-")));
}

TEST_P(DiffInReplay, EachEntryOfAListComesByItself) {
    App app{server.url(), journal, {looking("/radio:radio/preset")}, {.encode = GetParam(), .replay = true}};
    ASSERT_EQ(looks.size(), 2u);
    const Document one{looks[0].diff};
    EXPECT_EQ(looks[0].target, R"(/radio:radio/preset[name="one"])");
    EXPECT_EQ(one.attribute("/radio:radio/preset[name='one']", "operation"), "create");
    EXPECT_EQ(one.content("/radio:radio/preset[name='one']/frequency"), "1");
    EXPECT_FALSE(one.has("/radio:radio/preset[name='two']"));
    EXPECT_FALSE(one.has("/radio:radio/motto"));
    const Document two{looks[1].diff};
    EXPECT_EQ(looks[1].target, R"(/radio:radio/preset[name="two"])");
    EXPECT_EQ(two.attribute("/radio:radio/preset[name='two']", "operation"), "create");
    EXPECT_FALSE(two.has("/radio:radio/preset[name='one']"));
}

TEST_P(DiffInReplay, ALeafComesWithTheNodesAboveIt) {
    const Seen diff = replay("/radio:radio/motto");
    if (GetParam() == json) {
        EXPECT_EQ(diff.text, R"({"radio:radio":{"@":{"ietf-netconf:operation":"create"},"motto":"quiet",)"
                             R"("@motto":{"ietf-netconf:operation":"create"}}})");
    }
    const Document document{diff};
    EXPECT_EQ(document.attribute("/radio:radio", "operation"), "create");
    EXPECT_EQ(document.attribute("/radio:radio/motto", "operation"), "create");
    EXPECT_EQ(document.content("/radio:radio/motto"), "quiet");
}

TEST_P(DiffInReplay, ThePathMayLieBesideOrAboveTheTarget) {
    const Seen diff = replay("/radio:radio/motto", "/");
    const Document document{diff};
    EXPECT_EQ(document.attribute("/radio:radio/preset[name='one']", "operation"), "create");
    EXPECT_EQ(document.attribute("/ietf-system:system/contact", "operation"), "create");
    EXPECT_EQ(document.content("/ietf-system:system/contact"), "me");
}

TEST_P(DiffInReplay, TheLevelsBelowThePathCanBeCounted) {
    const Document document{replay("/radio:radio", "/radio:radio", 1)};
    EXPECT_EQ(document.content("/radio:radio/motto"), "quiet");
    EXPECT_TRUE(document.has("/radio:radio/preset[name='one']"));
    EXPECT_FALSE(document.has("/radio:radio/preset[name='one']/frequency"));
    EXPECT_FALSE(document.has("/radio:radio/antenna/height"));
}

TEST_P(DiffInReplay, APathWithoutDataHasNoOutput) {
    expect_nothing(replay("/radio:radio", "/radio:radio/volume"));
}

TEST_P(DiffInReplay, ADefaultThatNobodySetHasNoOutput) {
    expect_nothing(replay("/radio:radio", "/radio:radio/night"));
}

TEST_P(DiffInReplay, AnUnknownNodeIsRefused) {
    const Seen diff = replay("/radio:radio", "/radio:radio/wings");
    EXPECT_EQ(diff.result, -1);
    EXPECT_FALSE(diff.output);
}

TEST_P(DiffInReplay, AnEntryWithoutItsKeyAboveThePathIsRefused) {
    const Seen diff = replay("/radio:radio", "/radio:radio/preset/frequency");
    EXPECT_EQ(diff.result, -1);
    EXPECT_FALSE(diff.output);
}

TEST_P(DiffInReplay, AnotherDatastoreHasNotChanged) {
    App app{server.url(),
            journal,
            {{.target = "/radio:radio",
              .behaviour =
                  [&](zamc_client *client, const Call &call, zamc_bytes **) {
                      constexpr char startup[] = "ietf-datastores:startup";
                      EXPECT_EQ(zamc_set_attr(client, ZAMC_ATTR_TARGET_DS, startup, sizeof startup), 0);
                      looks.push_back({call.target, look(client, "/")});
                      return 0;
                  }}},
            {.encode = GetParam(), .replay = true}};
    ASSERT_EQ(looks.size(), 1u);
    expect_nothing(looks.front().diff);
}

TEST_P(DiffInReplay, NothingIsLeftOfItOnceTheReplayHasFinished) {
    App app{server.url(), journal, {looking("/radio:radio")}, {.encode = GetParam(), .replay = true}};
    ASSERT_EQ(looks.size(), 1u);
    EXPECT_TRUE(looks.front().diff.output);
    expect_nothing(app.on_thread([](zamc_client *client) { return look(client, "/radio:radio"); }));
}

TEST_P(DiffInReplay, ItHoldsUntilADeferredAnswer) {
    // Activates without waiting for the end, which only comes with the answer below.
    App app{server.url(), journal, {}, {.encode = GetParam()}};
    std::thread late{[&] {
        app.change_subscriptions(
            {{.target = "/radio:radio",
              .behaviour = [](zamc_client *, const Call &, zamc_bytes **) { return int32_t{ZAMC_REPLY_LATER}; }}},
            {}, true);
    }};
    ASSERT_TRUE(journal.wait_for([](const Call &call) { return call.kind == Call::config; }));
    Operator reader{server.url(), GetParam()};
    expect_nothing(look(reader.client(), "/")); // who is not replayed sees nothing of it
    const Seen diff = app.on_thread([](zamc_client *client) {
        Seen found = look(client, "/radio:radio/motto");
        EXPECT_EQ(zamc_reply_asyn(client, 0, nullptr), 0);
        return found;
    });
    late.join();
    ASSERT_TRUE(diff.output);
    EXPECT_EQ(Document{diff}.content("/radio:radio/motto"), "quiet");
}

TEST_P(DiffInReplay, ASubscriptionThatComesLaterIsShownTheDataToo) {
    App app{server.url(), journal, {}, {.encode = GetParam()}};
    EXPECT_EQ(Operator{server.url()}.push("/radio:radio/motto", ZAMC_PUSH_MERGE, "louder"), 0);
    EXPECT_EQ(app.change_subscriptions({looking("/radio:radio/motto")}, {}, true), 0);
    ASSERT_EQ(looks.size(), 1u);
    ASSERT_TRUE(looks.front().diff.output);
    const Document document{looks.front().diff};
    EXPECT_EQ(document.attribute("/radio:radio/motto", "operation"), "create");
    EXPECT_EQ(document.content("/radio:radio/motto"), "louder");
}

TEST_P(DiffInReplay, AnEmptyDatastoreReplaysNothing) {
    Server empty{{.modules = real_models_and_radio()}};
    App app{empty.url(), journal, {looking("/radio:radio")}, {.encode = GetParam(), .replay = true}};
    EXPECT_THAT(looks, IsEmpty());
}

} // namespace
