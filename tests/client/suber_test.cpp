// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "client/suber_internal.h"

#include "client_fixture.h"

namespace zam::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char *text_path = "/test-main:top/text";

class Suber : public ClientTest {
protected:
    int32_t subscribe(const zamc_sub_node &node) { return zamc_subscribe(client, &node); }
    int32_t unsubscribe(const zamc_sub_node &node) { return zamc_unsubscribe(client, &node); }
    int32_t subscribe_mask(uint32_t mask) { return subscribe(config_sub(text_path, 5, mask, &handler)); }
    size_t count() const { return statuses(client).size(); }

    Handler handler, second;
};

TEST_F(Suber, ARecordHoldsTheSubscriptionInOneBlock) {
    EXPECT_EQ(subscribe_mask(0x81), 0);
    heap.reset_count();
    const uint64_t live = heap.live();
    EXPECT_EQ(subscribe(config_sub("/test-main:top/number", 7, 0x8F, &second)), 0);
    EXPECT_EQ(heap.live(), live + 1);
    const zam_suber *suber = suber_at(client, 1);
    EXPECT_STREQ(suber->target, "/test-main:top/number");
    EXPECT_EQ(static_cast<const void *>(suber->target), static_cast<const void *>(suber + 1));
    EXPECT_EQ(suber->type, 0);
    EXPECT_EQ(suber->priority, 7u);
    EXPECT_EQ(suber->filter_mask, 0x8Fu);
    EXPECT_EQ(suber->config_handler, &Handler::config);
    EXPECT_EQ(suber->user, &second);
    EXPECT_EQ(suber->status, 0x101u);
}

TEST_F(Suber, AStatusQueryOrOperationHasAHandlerInPlaceOfThePriority) {
    zamc_sub_node query = status_sub(text_path, &handler);
    query.filter_mask = 0x440; // means nothing here
    query.config = Handler::config;
    EXPECT_EQ(subscribe(query), 0);
    EXPECT_EQ(subscribe(operation_sub("/test-main:run", &handler)), 0);
    EXPECT_EQ(suber_at(client, 0)->status_handler, &Handler::status);
    EXPECT_EQ(suber_at(client, 1)->operation_handler, &Handler::operation);
    for (const uint32_t index : {0u, 1u}) {
        EXPECT_EQ(suber_at(client, index)->filter_mask, 0u);
        EXPECT_EQ(suber_at(client, index)->config_handler, nullptr);
        EXPECT_EQ(suber_at(client, index)->status, 0x101u);
    }
}

TEST_F(Suber, NothingIsSent) {
    connect();
    EXPECT_EQ(subscribe_mask(0), 0);
    EXPECT_EQ(unsubscribe(config_sub(text_path, 5, 0, &handler)), 0);
    EXPECT_THAT(sent_so_far(), IsEmpty());
}

TEST_F(Suber, NullArgumentsAreRefused) {
    const zamc_sub_node node = config_sub(text_path, 5, 0, &handler);
    EXPECT_EQ(zamc_subscribe(nullptr, &node), -3);
    EXPECT_EQ(zamc_subscribe(client, nullptr), -3);
    EXPECT_EQ(zamc_unsubscribe(nullptr, &node), -3);
    EXPECT_EQ(zamc_unsubscribe(client, nullptr), -3);
    EXPECT_EQ(client->subers, nullptr);
}

TEST_F(Suber, AnUnknownTypeIsRefusedWithALine) {
    for (const int32_t type : {-1, 4, 2147483647}) {
        zamc_sub_node node = config_sub(text_path, 5, 0, &handler);
        node.type = type;
        log.clear();
        EXPECT_EQ(subscribe(node), -3);
        EXPECT_EQ(unsubscribe(node), -3);
        EXPECT_EQ(log.count(3, "The subscriber type is unknown."), 2);
    }
}

TEST_F(Suber, APathThatDoesNotParseIsRefusedWithALine) {
    for (const char *path : {"/test-main:top/item[name=", "/test-main:top/item[name='a'", "/1[", "["}) {
        log.clear();
        EXPECT_EQ(subscribe(config_sub(path, 5, 0, &handler)), -3) << path;
        EXPECT_EQ(unsubscribe(status_sub(path, &handler)), -3) << path;
        EXPECT_EQ(log.count(3, std::string{"Format path not successful, path : "} + path + "."), 2) << log.all();
    }
    EXPECT_EQ(count(), 0u);
}

TEST_F(Suber, ANullPathIsRefused) {
    EXPECT_EQ(subscribe(config_sub(nullptr, 5, 0, &handler)), -3);
    EXPECT_EQ(unsubscribe(config_sub(nullptr, 5, 0, &handler)), -3);
    EXPECT_EQ(log.count(3, "Format path not successful, path : null."), 2);
}

TEST_F(Suber, APathWithoutPredicatesIsTakenAsItIs) {
    EXPECT_EQ(subscribe(config_sub("//", 5, 0, &handler)), 0);
    EXPECT_STREQ(suber_at(client, 0)->target, "//");
}

// The filter mask

TEST_F(Suber, AMaskWithBitsThatHaveNoNameIsRefusedWithoutALine) {
    log.clear();
    for (const uint32_t mask : {0x40u, 0x400u, 0x440u, 0xCFu, 0x800u, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(subscribe_mask(mask), -3) << mask;
        EXPECT_EQ(subscribe(brief_sub(text_path, 5, mask, &handler)), -3) << mask;
        EXPECT_EQ(unsubscribe(config_sub(text_path, 5, mask, &handler)), -3) << mask;
    }
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(count(), 0u);
}

TEST_F(Suber, AMaskIsCompletedByTheDefaultOperationsAndScenes) {
    const std::pair<uint32_t, uint32_t> cases[] = {{0x0, 0x8F},    {0x200, 0x20F}, {0x10, 0x9F},  {0x20, 0xAF},
                                                   {0x30, 0xBF},   {0x1, 0x81},    {0x81, 0x81},  {0x8, 0x88},
                                                   {0x100, 0x10F}, {0x380, 0x38F}, {0x3BF, 0x3BF}};
    for (const auto &[given, stored] : cases) {
        ASSERT_EQ(subscribe(config_sub(text_path, given, given, &handler)), 0); // a priority each, a record each
        EXPECT_EQ(suber_at(client, static_cast<uint32_t>(count()) - 1)->filter_mask, stored) << given;
    }
}

TEST_F(Suber, TheDefaultsAreTheClientsAttributes) {
    set_attr<uint32_t>(ZAMC_ATTR_SUB_OPER, 0x2);
    set_attr<uint32_t>(ZAMC_ATTR_SUB_SCENE, 0x300);
    EXPECT_EQ(subscribe_mask(0), 0);
    EXPECT_EQ(suber_at(client, 0)->filter_mask, 0x302u);
    EXPECT_EQ(client::_calc_cfg_sub_mask(client, 0x80), 0x82u);
    EXPECT_EQ(client::_calc_cfg_sub_mask(client, 0x4), 0x304u);
    client::_free_client_attrs(client);
    EXPECT_EQ(client::_calc_cfg_sub_mask(client, 0), 0x8Fu);
}

// The same subscription again

TEST_F(Suber, TheSameSubscriptionTwiceIsOneRecordWithTheNewHandlerAndUserData) {
    EXPECT_EQ(subscribe_mask(0), 0);
    suber_at(client, 0)->status = 0x008;
    zamc_sub_node again = config_sub(text_path, 5, 0x8F, &second); // what the default completes to
    const zamc_config_fn other = [](zamc_client *, uint32_t, uint32_t, int32_t, const char *, void *) { return 7; };
    again.config = other;
    EXPECT_EQ(subscribe(again), 0);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x101}}));
    EXPECT_EQ(suber_at(client, 0)->config_handler, other);
    EXPECT_EQ(suber_at(client, 0)->user, &second);
}

TEST_F(Suber, TheSameStatusQueryTwiceIsOneRecordWithTheNewHandler) {
    const zamc_status_fn other = [](zamc_client *, const char *, void *, zamc_bytes **, void *) { return 7; };
    zamc_sub_node node = status_sub(text_path, &handler);
    EXPECT_EQ(subscribe(node), 0);
    node.status = other;
    node.user = &second;
    node.filter_mask = 0x40;
    EXPECT_EQ(subscribe(node), 0);
    EXPECT_EQ(count(), 1u);
    EXPECT_EQ(suber_at(client, 0)->status_handler, other);
    EXPECT_EQ(suber_at(client, 0)->user, &second);
}

TEST_F(Suber, ADifferentPriorityMaskTypeOrTargetIsARecordOfItsOwn) {
    EXPECT_EQ(subscribe(config_sub(text_path, 5, 0, &handler)), 0);
    EXPECT_EQ(subscribe(config_sub(text_path, 6, 0, &handler)), 0);
    EXPECT_EQ(subscribe(config_sub(text_path, 5, 0x81, &handler)), 0);
    EXPECT_EQ(subscribe(brief_sub(text_path, 5, 0, &handler)), 0);
    EXPECT_EQ(subscribe(status_sub(text_path, &handler)), 0);
    EXPECT_EQ(subscribe(operation_sub(text_path, &handler)), 0);
    EXPECT_EQ(subscribe(config_sub("/test-main:top", 5, 0, &handler)), 0);
    EXPECT_EQ(count(), 7u);
}

TEST_F(Suber, TargetsAreComparedInTheirNormalForm) {
    for (const char *spelling : {"/test-main:top/item[name='a']", "/test-main:top/item[test-main:name=a]",
                                 "/test-main:top/item[name=\"a\"]"}) {
        EXPECT_EQ(subscribe(config_sub(spelling, 5, 0, &handler)), 0);
        EXPECT_STREQ(suber_at(client, 0)->target, "/test-main:top/item[name=\"a\"]");
    }
    EXPECT_EQ(count(), 1u);
}

TEST_F(Suber, ARecordThatIsActivatingCannotBeChanged) {
    EXPECT_EQ(subscribe_mask(0), 0);
    for (const uint32_t status : {0x104u, 0x204u}) {
        suber_at(client, 0)->status = status;
        log.clear();
        EXPECT_EQ(subscribe(config_sub(text_path, 5, 0, &second)), -1);
        EXPECT_EQ(unsubscribe(config_sub(text_path, 5, 0, &second)), -1);
        EXPECT_EQ(log.count(3, "The suber is waiting to be activated, cannot be modified."), 2);
        EXPECT_EQ(statuses(client), (Statuses{{0, status}}));
        EXPECT_EQ(suber_at(client, 0)->user, &handler);
    }
}

// Removal

TEST_F(Suber, UnsubscribingMarksTheRecord) {
    EXPECT_EQ(subscribe_mask(0), 0);
    EXPECT_EQ(subscribe(status_sub(text_path, &handler)), 0);
    EXPECT_EQ(unsubscribe(config_sub(text_path, 5, 0, nullptr)), 0);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x201}, {1, 0x101}}));
    EXPECT_EQ(unsubscribe(status_sub(text_path, nullptr)), 0);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x201}, {1, 0x201}}));
}

TEST_F(Suber, UnsubscribingWhatWasNeverSubscribedIsFine) {
    EXPECT_EQ(unsubscribe(config_sub(text_path, 5, 0, &handler)), 0);
    EXPECT_EQ(client->subers, nullptr);
    EXPECT_EQ(subscribe_mask(0), 0);
    EXPECT_EQ(unsubscribe(config_sub(text_path, 6, 0, &handler)), 0);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x101}}));
}

TEST_F(Suber, SubscribingAgainTakesTheRemovalBack) {
    EXPECT_EQ(subscribe_mask(0), 0);
    EXPECT_EQ(unsubscribe(config_sub(text_path, 5, 0, &handler)), 0);
    EXPECT_EQ(subscribe_mask(0), 0);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x101}}));
}

// Slots

TEST_F(Suber, SlotsAreStableAndTheLowestEmptyOneIsTakenNext) {
    for (uint32_t i = 0; i < 40; ++i)
        ASSERT_EQ(subscribe(config_sub(text_path, i, 0, &handler)), 0);
    EXPECT_EQ(zam_vector_size(client->subers) >= 40, true);
    for (uint32_t i = 0; i < 40; ++i)
        EXPECT_EQ(suber_at(client, i)->priority, i);
    zam_vector_remove(client->subers, 17, zam_free);
    zam_vector_remove(client->subers, 3, zam_free);
    EXPECT_EQ(subscribe(config_sub(text_path, 100, 0, &handler)), 0);
    EXPECT_EQ(suber_at(client, 3)->priority, 100u);
    EXPECT_EQ(subscribe(config_sub(text_path, 101, 0, &handler)), 0);
    EXPECT_EQ(suber_at(client, 17)->priority, 101u);
    EXPECT_EQ(subscribe(config_sub(text_path, 102, 0, &handler)), 0);
    EXPECT_EQ(suber_at(client, 40)->priority, 102u);
}

TEST_F(Suber, TheVectorStartsWithSixteenSlots) {
    EXPECT_EQ(subscribe_mask(0), 0);
    EXPECT_EQ(zam_vector_size(client->subers), 16u);
}

TEST_F(Suber, ARecordIsFoundByWhatMakesItTheSame) {
    EXPECT_EQ(subscribe(config_sub(text_path, 5, 0x81, &handler)), 0);
    EXPECT_EQ(subscribe(config_sub(text_path, 6, 0x81, &handler)), 0);
    EXPECT_EQ(subscribe(status_sub(text_path, &handler)), 0);
    zam_vector_remove(client->subers, 0, zam_free);
    zam_suber wanted = *suber_at(client, 1);
    EXPECT_EQ(client::zam_find_suber(client->subers, &wanted), 1);
    wanted.user = nullptr;
    wanted.config_handler = nullptr;
    wanted.status = 0;
    EXPECT_EQ(client::zam_find_suber(client->subers, &wanted), 1);
    wanted.filter_mask = 0x82;
    EXPECT_EQ(client::zam_find_suber(client->subers, &wanted), -1);
    EXPECT_EQ(client::zam_find_suber(client->subers, suber_at(client, 2)), 2);
    EXPECT_EQ(client::zam_find_suber(nullptr, &wanted), -1);
}

// Memory

TEST_F(Suber, WithoutMemoryForTheRecordThereIsNone) {
    ASSERT_EQ(subscribe_mask(0), 0);
    const zamc_sub_node node = config_sub("/test-main:top", 5, 0, &handler);
    bool logged = false;
    for (uint64_t n = 1;; ++n) {
        log.clear();
        heap.fail_at(n);
        const int32_t result = zamc_subscribe(client, &node);
        const bool failed = heap.failed();
        heap.fail_at(0);
        if (!failed) break;
        EXPECT_EQ(result, -3) << n;
        EXPECT_EQ(count(), 1u);
        logged |= log.count(0, "Allocate memory for suber not successful.") == 1;
        ASSERT_LT(n, 100u);
    }
    EXPECT_TRUE(logged);
    EXPECT_EQ(count(), 2u);
}

TEST_F(Suber, WithoutMemoryForTheVectorOrItsGrowthThereIsNoSubscription) {
    heap.fail_at(1);
    EXPECT_EQ(subscribe_mask(0), -2);
    heap.fail_at(0);
    for (uint32_t i = 0; i < 16; ++i)
        ASSERT_EQ(subscribe(config_sub(text_path, i, 0, &handler)), 0);
    const zamc_sub_node node = config_sub(text_path, 16, 0, &handler);
    int32_t result = -3;
    for (uint64_t n = 1; result == -3; ++n) { // the record's own allocations come first
        heap.fail_at(n);
        result = zamc_subscribe(client, &node);
    }
    heap.fail_at(0);
    EXPECT_EQ(result, -2);
    EXPECT_EQ(count(), 16u);
    EXPECT_EQ(zamc_subscribe(client, &node), 0);
    EXPECT_EQ(count(), 17u);
}

// Status bits

TEST_F(Suber, AStatusUpdateExchangesTheClearedBits) {
    for (uint32_t i = 0; i < 6; ++i)
        ASSERT_EQ(subscribe(config_sub(text_path, i, 0, &handler)), 0);
    zam_vector_remove(client->subers, 2, zam_free);
    const auto set = [this](const Statuses &wanted) {
        for (const auto &[index, status] : wanted)
            suber_at(client, index)->status = status;
    };
    const Statuses mixed{{0, 0x101}, {1, 0x201}, {3, 0x102}, {4, 0x008}, {5, 0x204}};
    set(mixed);
    client::zam_update_subers_status(client->subers, 0x1, 0x100, 0x2);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x102}, {1, 0x201}, {3, 0x102}, {4, 0x008}, {5, 0x204}}));
    set(mixed);
    client::zam_update_subers_status(client->subers, 0x3, 0, 0x4);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x104}, {1, 0x204}, {3, 0x104}, {4, 0x008}, {5, 0x204}}));
    set(mixed);
    client::zam_update_subers_bits(client->subers, 0xC, 0, 0x102);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x101}, {1, 0x201}, {3, 0x102}, {4, 0x102}, {5, 0x102}}));
    set(mixed);
    client::zam_update_subers_bits(client->subers, 0x5, 0x200, 0x77);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x101}, {1, 0x77}, {3, 0x102}, {4, 0x008}, {5, 0x77}}));
    client::zam_reset_subers_bits(client->subers);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x101}, {1, 0x101}, {3, 0x101}, {4, 0x101}, {5, 0x101}}));
}

TEST_F(Suber, AStatusUpdateOfNoVectorIsHarmless) {
    client::zam_update_subers_status(nullptr, 0x1, 0, 0x2);
    client::zam_update_subers_bits(nullptr, 0x1, 0, 0x2);
    client::zam_reset_subers_bits(nullptr);
}

} // namespace
} // namespace zam::test
