// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <zamc/message.h>
#include <zamc/suber.h>
#include <zamc/vector.h>

#include "wire/message_build_fixture.h"
#include "wire/message_build_internal.h"

namespace {

using namespace zam::test;
using namespace zam::wire;

constexpr uint32_t to_subscribe = 0x101;
constexpr uint32_t to_unsubscribe = 0x201;

using Vector = std::unique_ptr<zam_vector, decltype([](zam_vector *vector) { zam_vector_free(vector, nullptr); })>;

class BuildSubscribe : public MessageBuild {
protected:
    zam_suber record(int32_t type, uint32_t mask = 0x1, uint32_t priority = 7, uint32_t status = to_subscribe) {
        zam_suber made{};
        made.target = target.data();
        made.type = type;
        made.priority = priority;
        made.filter_mask = mask;
        made.status = status;
        return made;
    }

    static Vector vector_of(std::vector<zam_suber> &records) {
        zam_vector *vector = zam_vector_init(8);
        for (zam_suber &one : records)
            EXPECT_EQ(zam_vector_add(&vector, &one, nullptr), 0);
        return Vector{vector};
    }

    Tree subscribe(std::vector<zam_suber> records) {
        const Vector vector = vector_of(records);
        return Tree{zam_message_build_subscribe(vector.get(), ctx)};
    }
    Tree unsubscribe(std::vector<zam_suber> records) {
        const Vector vector = vector_of(records);
        return Tree{zam_message_build_unsubscribe(vector.get(), ctx)};
    }

    static std::string json(const std::string &operation, const std::string &entries) {
        return server_json(operation, R"("subscriptions":{"subscription":[)" + entries + "]}");
    }
    static std::string entry(const std::string &members) { return R"({"target":"/m:a",)" + members + "}"; }
    static std::string xml(const std::string &operation, const std::string &leaves) {
        return server_xml(operation, "<subscriptions><subscription><target>/m:a</target>" + leaves +
                                         "</subscription></subscriptions>");
    }

    std::string target = "/m:a";
};

TEST_F(BuildSubscribe, AConfigChangeHasPriorityAndMask) {
    const Tree tree = subscribe({record(0, 0x3)});
    EXPECT_EQ(to_json(tree),
              json("subscribe", entry(R"("sub-type":"config-change","priority":7,)"
                                      R"("filter-mask":"config-create config-delete","priv-data":"0")")));
    EXPECT_EQ(to_xml(tree),
              xml("subscribe", "<sub-type>config-change</sub-type><priority>7</priority>"
                               "<filter-mask>config-create config-delete</filter-mask><priv-data>0</priv-data>"));
    EXPECT_EQ(log.all(), "");
}

TEST_F(BuildSubscribe, ABriefConfigChangeIsTheSameOnTheWire) {
    EXPECT_EQ(to_json(subscribe({record(3, 0x3)})), to_json(subscribe({record(0, 0x3)})));
}

TEST_F(BuildSubscribe, AStatusQueryHasNeitherPriorityNorMask) {
    const Tree tree = subscribe({record(1, 0x3)});
    EXPECT_EQ(to_json(tree), json("subscribe", entry(R"("sub-type":"status-query","priv-data":"0")")));
    EXPECT_EQ(to_xml(tree), xml("subscribe", "<sub-type>status-query</sub-type><priv-data>0</priv-data>"));
}

TEST_F(BuildSubscribe, AnOperationHasNeitherPriorityNorMask) {
    const Tree tree = subscribe({record(2, 0x3)});
    EXPECT_EQ(to_json(tree), json("subscribe", entry(R"("sub-type":"operation","priv-data":"0")")));
    EXPECT_EQ(to_xml(tree), xml("subscribe", "<sub-type>operation</sub-type><priv-data>0</priv-data>"));
}

TEST_F(BuildSubscribe, WithoutAPendingRecordTheSubscriptionsAreEmpty) {
    for (const uint32_t status : {0x001u, 0x008u, 0x100u, 0x102u, 0x104u, 0x108u, 0x201u, 0x301u, 0x1101u}) {
        const Tree tree = subscribe({record(0, 0x1, 7, status)});
        EXPECT_EQ(to_json(tree), server_json("subscribe", R"("subscriptions":{})")) << status;
        EXPECT_EQ(to_xml(tree), server_xml("subscribe", "<subscriptions/>"));
    }
    EXPECT_EQ(to_json(subscribe({})), server_json("subscribe", R"("subscriptions":{})"));
    EXPECT_EQ(log.all(), "");
}

TEST_F(BuildSubscribe, ANullVectorIsAnEmptyOne) {
    EXPECT_EQ(to_json(Tree{zam_message_build_subscribe(nullptr, ctx)}),
              server_json("subscribe", R"("subscriptions":{})"));
    EXPECT_EQ(to_json(Tree{zam_message_build_unsubscribe(nullptr, ctx)}),
              server_json("unsubscribe", R"("subscriptions":{})"));
}

TEST_F(BuildSubscribe, ThePrivateDataIsTheIndexInTheVector) {
    const Tree tree = subscribe({record(1), record(1, 0, 0, 0x008), record(2)});
    EXPECT_EQ(to_json(tree), json("subscribe", entry(R"("sub-type":"status-query","priv-data":"0")") + "," +
                                                   entry(R"("sub-type":"operation","priv-data":"2")")));
}

TEST_F(BuildSubscribe, FreeSlotsAreSkipped) {
    std::vector<zam_suber> records{record(1), record(1), record(2)};
    const Vector vector = vector_of(records);
    zam_vector_remove(vector.get(), 1, nullptr);
    const Tree tree{zam_message_build_subscribe(vector.get(), ctx)};
    EXPECT_EQ(to_json(tree), json("subscribe", entry(R"("sub-type":"status-query","priv-data":"0")") + "," +
                                                   entry(R"("sub-type":"operation","priv-data":"2")")));
}

TEST_F(BuildSubscribe, RecordsBeyondAGrowthOfTheVectorCount) {
    std::vector<zam_suber> records(40, record(1, 0, 0, 0x008));
    records.back().status = to_subscribe;
    const Vector vector = vector_of(records);
    EXPECT_EQ(to_json(Tree{zam_message_build_subscribe(vector.get(), ctx)}),
              json("subscribe", entry(R"("sub-type":"status-query","priv-data":"39")")));
}

TEST_F(BuildSubscribe, PrioritiesUpToTheLargestSignedNumberAreSent) {
    for (const uint32_t priority : {0u, 1u, 2147483647u}) {
        EXPECT_EQ(to_json(subscribe({record(0, 0x1, priority)})),
                  json("subscribe", entry(R"("sub-type":"config-change","priority":)" + std::to_string(priority) +
                                          R"(,"filter-mask":"config-create","priv-data":"0")")));
    }
}

TEST_F(BuildSubscribe, AHigherPriorityIsRefused) {
    EXPECT_FALSE(subscribe({record(0, 0x1, 2147483648u)}));
    EXPECT_EQ(log.count(3, "Create node '/orvel-zam-server:subscribe/.../priority' unsuccessful."), 1);
    EXPECT_EQ(log.count(3, "Create node '/orvel-zam-server:subscribe/.../subscription' unsuccessful."), 1);
}

TEST_F(BuildSubscribe, AMaskWithoutAKnownBitIsRefused) {
    for (const uint32_t mask : {0x40u, 0x400u, 0u, 0xFFFFFC40u}) {
        log.clear();
        EXPECT_FALSE(subscribe({record(0, mask)})) << mask;
        EXPECT_EQ(log.all(), "[WRONG] Convert filter-mask bits to string failed.\n"
                             "[WRONG] Create node '/orvel-zam-server:subscribe/.../subscription' unsuccessful.\n");
    }
}

TEST_F(BuildSubscribe, UnknownBitsBesideKnownOnesAreIgnored) {
    EXPECT_EQ(to_json(subscribe({record(0, 0x444)})),
              json("subscribe", entry(R"("sub-type":"config-change","priority":7,"filter-mask":"config-update",)"
                                      R"("priv-data":"0")")));
}

TEST_F(BuildSubscribe, AnUnknownTypeIsRefused) {
    for (const int32_t type : {4, -1}) {
        log.clear();
        EXPECT_FALSE(subscribe({record(type)}));
        EXPECT_EQ(log.count(3, "Create node '.../subscription/sub-type' unsuccessful."), 1);
    }
}

TEST_F(BuildSubscribe, ARecordWithoutATargetIsRefused) {
    zam_suber nameless = record(1);
    nameless.target = nullptr;
    EXPECT_FALSE(subscribe({record(1), nameless}));
    EXPECT_EQ(log.all(), "[WRONG] Create node '.../subscription/target' unsuccessful.\n"
                         "[WRONG] Create node '/orvel-zam-server:subscribe/.../subscription' unsuccessful.\n");
}

TEST_F(BuildSubscribe, EveryNodeThatCannotBeMadeIsNamed) {
    std::vector<zam_suber> records{record(0)};
    const Vector vector = vector_of(records);
    const auto build = [&](const ly_ctx *cut) { return zam_message_build_subscribe(vector.get(), cut); };
    expect_root_message("/orvel-zam-server:subscribe", build);
    expect_messages("orvel-zam-server", "",
                    {{"rpc subscribe;", "Create node '/orvel-zam-server:subscribe' unsuccessful."},
                     {"", "Create node '/orvel-zam-server:subscribe/subscriptions' unsuccessful."}},
                    "", build);
    expect_messages("orvel-zam-server", "rpc subscribe { input { container subscriptions {",
                    {{"", "Create node '.../subscription' unsuccessful."}}, "} } }", build);
    EXPECT_EQ(log.count(3, "Create node '/orvel-zam-server:subscribe/.../subscription' unsuccessful."), 1);
    expect_messages(
        "orvel-zam-server", "rpc subscribe { input { container subscriptions { list subscription {",
        {{"leaf target { type string; }", "Create node '.../subscription/target' unsuccessful."},
         {"leaf sub-type { type string; }", "Create node '.../subscription/sub-type' unsuccessful."},
         {"leaf priority { type int32; }", "Create node '/orvel-zam-server:subscribe/.../priority' unsuccessful."},
         {"leaf filter-mask { type string; }",
          "Create node '/orvel-zam-server:subscribe/.../filter-mask' unsuccessful."},
         {"", "Create node '/orvel-zam-server:subscribe/.../priv-data' unsuccessful."}},
        "} } } }", build);
}

TEST_F(BuildSubscribe, NoMemoryAtAnyPointMakesNone) {
    std::vector<zam_suber> records{record(0, 0x3AF), record(1)};
    const Vector vector = vector_of(records);
    expect_all_or_nothing([&](const ly_ctx *given) { return zam_message_build_subscribe(vector.get(), given); });
}

TEST_F(BuildSubscribe, AnEntryIsMadeAlone) {
    const Tree root{zam_lyd_new_path(nullptr, ctx, "/orvel-zam-server:subscribe/subscriptions", nullptr)};
    ASSERT_TRUE(root);
    const zam_suber one = record(1);
    const lyd_node *made = _build_subscription(zam_lyd_child(root.get()), &one);
    ASSERT_NE(made, nullptr);
    EXPECT_STREQ(made->schema->name, "subscription");
    EXPECT_EQ(to_json(root), json("subscribe", entry(R"("sub-type":"status-query")")));
}

TEST_F(BuildSubscribe, PriorityAndMaskAreSetAlone) {
    const Tree root{zam_lyd_new_path(nullptr, ctx, "/orvel-zam-server:subscribe/subscriptions/subscription", nullptr)};
    ASSERT_TRUE(root);
    lyd_node *made = zam_lyd_child(zam_lyd_child(root.get()));
    zam_suber one = record(0, 0x8F, 1);
    EXPECT_EQ(_set_suber_cfg(made, &one), 0);
    EXPECT_EQ(to_json(root), json("subscribe", R"({"priority":1,"filter-mask":"config-create config-delete )"
                                               R"(config-update config-move scene-normal"})"));
    one.filter_mask = 0x40;
    EXPECT_EQ(_set_suber_cfg(made, &one), -1);
}

using BuildUnsubscribe = BuildSubscribe;

TEST_F(BuildUnsubscribe, AnEntryHasNoPrivateData) {
    const Tree tree = unsubscribe({record(0, 0x200, 7, to_unsubscribe)});
    EXPECT_EQ(to_json(tree), json("unsubscribe", entry(R"("sub-type":"config-change","priority":7,)"
                                                       R"("filter-mask":"scene-rollback")")));
    EXPECT_EQ(to_xml(tree), xml("unsubscribe", "<sub-type>config-change</sub-type><priority>7</priority>"
                                               "<filter-mask>scene-rollback</filter-mask>"));
    EXPECT_EQ(log.all(), "");
}

TEST_F(BuildUnsubscribe, OnlyRecordsThatAreToGoAreSent) {
    const Tree tree = unsubscribe({record(1), record(2, 0, 0, to_unsubscribe), record(1, 0, 0, 0x202),
                                   record(1, 0, 0, 0x204), record(1, 0, 0, 0x008)});
    EXPECT_EQ(to_json(tree), json("unsubscribe", entry(R"("sub-type":"operation")")));
    EXPECT_EQ(to_xml(tree), xml("unsubscribe", "<sub-type>operation</sub-type>"));
}

TEST_F(BuildUnsubscribe, WithoutAPendingRecordTheSubscriptionsAreEmpty) {
    const Tree tree = unsubscribe({record(0)});
    EXPECT_EQ(to_json(tree), server_json("unsubscribe", R"("subscriptions":{})"));
    EXPECT_EQ(to_xml(tree), server_xml("unsubscribe", "<subscriptions/>"));
}

TEST_F(BuildUnsubscribe, EveryNodeThatCannotBeMadeIsNamed) {
    std::vector<zam_suber> records{record(0, 0x1, 7, to_unsubscribe)};
    const Vector vector = vector_of(records);
    const auto build = [&](const ly_ctx *cut) { return zam_message_build_unsubscribe(vector.get(), cut); };
    expect_root_message("/orvel-zam-server:unsubscribe", build);
    expect_messages("orvel-zam-server", "",
                    {{"rpc unsubscribe;", "Create node '/orvel-zam-server:unsubscribe' unsuccessful."},
                     {"", "Create node '/orvel-zam-server:unsubscribe/subscriptions' unsuccessful."}},
                    "", build);
    expect_messages("orvel-zam-server", "rpc unsubscribe { input { container subscriptions {",
                    {{"", "Create node '.../subscription' unsuccessful."}}, "} } }", build);
    EXPECT_EQ(log.count(3, "Create node '/orvel-zam-server:unsubscribe/.../subscription' unsuccessful."), 1);
    expect_messages(
        "orvel-zam-server", "rpc unsubscribe { input { container subscriptions { list subscription {",
        {{"leaf target { type string; }", "Create node '.../subscription/target' unsuccessful."},
         {"leaf sub-type { type string; }", "Create node '.../subscription/sub-type' unsuccessful."},
         {"leaf priority { type int32; }", "Create node '/orvel-zam-server:subscribe/.../priority' unsuccessful."},
         {"", "Create node '/orvel-zam-server:subscribe/.../filter-mask' unsuccessful."}},
        "} } } }", build);
}

TEST(SubscriptionType, EachNameHasItsNumber) {
    EXPECT_EQ(zam_xlate_subtype_str2enum("config-change"), 0);
    EXPECT_EQ(zam_xlate_subtype_str2enum("status-query"), 1);
    EXPECT_EQ(zam_xlate_subtype_str2enum("operation"), 2);
}

TEST(SubscriptionType, OtherTextsHaveNone) {
    for (const char *text : {"Operation", "operation ", "config", "config-change-brief", "unknown", ""})
        EXPECT_EQ(zam_xlate_subtype_str2enum(text), -1) << text;
    EXPECT_EQ(zam_xlate_subtype_str2enum(nullptr), -1);
}

TEST(SubscriptionType, EachNumberHasItsName) {
    EXPECT_STREQ(_xlate_subtype_enum2str(0), "config-change");
    EXPECT_STREQ(_xlate_subtype_enum2str(1), "status-query");
    EXPECT_STREQ(_xlate_subtype_enum2str(2), "operation");
    EXPECT_STREQ(_xlate_subtype_enum2str(3), "config-change");
    EXPECT_STREQ(_xlate_subtype_enum2str(4), "unknown");
    EXPECT_STREQ(_xlate_subtype_enum2str(-1), "unknown");
}

TEST(FilterMask, NineBitsHaveANameInTheirOrder) {
    const std::vector<std::pair<uint32_t, std::string>> wanted{
        {0x1, "config-create"}, {0x2, "config-delete"}, {0x4, "config-update"},
        {0x8, "config-move"},   {0x10, "curb-delete"},  {0x20, "curb-create"},
        {0x80, "scene-normal"}, {0x100, "scene-cfgr"},  {0x200, "scene-rollback"}};
    ASSERT_EQ(filter_bits.size(), wanted.size());
    for (size_t i = 0; i < wanted.size(); ++i) {
        EXPECT_EQ(filter_bits[i].value, wanted[i].first);
        EXPECT_EQ(filter_bits[i].name, wanted[i].second);
        EXPECT_EQ(take(_xlate_oper_bits2str(wanted[i].first)), wanted[i].second);
    }
}

TEST(FilterMask, NamesAreSeparatedByOneBlank) {
    EXPECT_EQ(take(_xlate_oper_bits2str(0x8F)), "config-create config-delete config-update config-move scene-normal");
    EXPECT_EQ(take(_xlate_oper_bits2str(UINT32_MAX)),
              "config-create config-delete config-update config-move curb-delete curb-create scene-normal scene-cfgr "
              "scene-rollback");
}

TEST(FilterMask, BitsWithoutANameAreIgnored) {
    const LogCapture log;
    EXPECT_EQ(take(_xlate_oper_bits2str(0x444)), "config-update");
    for (const uint32_t mask : {0u, 0x40u, 0x400u, 0x80000000u})
        EXPECT_EQ(_xlate_oper_bits2str(mask), nullptr);
    EXPECT_EQ(log.all(), "");
}

TEST(FilterMask, NoMemoryIsAnEmergency) {
    const LogCapture log;
    Heap heap;
    heap.fail_at(1);
    EXPECT_EQ(_xlate_oper_bits2str(0x1), nullptr);
    EXPECT_EQ(log.count(0, "Allocate memory for bits str unsuccessful."), 1);
    heap.fail_at(0);
    EXPECT_EQ(heap.live(), 0u);
}

} // namespace
