// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <array>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>
#include <zamc/message.h>

#include "wire/message_build_fixture.h"
#include "wire/message_build_internal.h"

namespace {

using namespace zam::test;
using namespace zam::wire;

TEST(EditName, EachOperationHasItsName) {
    EXPECT_STREQ(zam_xlate_edit_enum2str(0), "merge");
    EXPECT_STREQ(zam_xlate_edit_enum2str(1), "replace");
    EXPECT_STREQ(zam_xlate_edit_enum2str(2), "create");
    EXPECT_STREQ(zam_xlate_edit_enum2str(3), "remove");
    EXPECT_STREQ(zam_xlate_edit_enum2str(4), "delete");
}

TEST(EditName, OtherNumbersAreUnknown) {
    for (const int32_t number : {5, -1, INT32_MAX, INT32_MIN})
        EXPECT_STREQ(zam_xlate_edit_enum2str(number), "unknown") << number;
}

using BuildSteps = MessageBuild;

TEST_F(BuildSteps, OnlyAFailureIsReported) {
    EXPECT_TRUE(is_made(true, "/a"));
    EXPECT_EQ(log.all(), "");
    EXPECT_FALSE(is_made(false, "/a"));
    EXPECT_EQ(log.all(), "[WRONG] Create node '/a' unsuccessful.\n");
}

TEST_F(BuildSteps, LeavesAreMadeInOrderUntilOneFails) {
    const Tree root{new_root(ctx, "/test-main:top").release()};
    ASSERT_TRUE(root);
    const std::array steps{leaf_step{"text", "t", "1"}, leaf_step{"number", nullptr, "2"}, leaf_step{"big", "1", "3"}};
    EXPECT_FALSE(add_leaves(root.get(), steps));
    EXPECT_EQ(to_json(root), R"({"test-main:top":{"text":"t"}})");
    EXPECT_EQ(log.all(), "[WRONG] Create node '2' unsuccessful.\n");
}

TEST_F(BuildSteps, AContainerThatTheSchemaLacksIsReported) {
    const Tree root{new_root(ctx, "/test-main:top").release()};
    EXPECT_NE(new_container(root.get(), "sub", "/s"), nullptr);
    EXPECT_EQ(new_container(root.get(), "nothing", "/n"), nullptr);
    EXPECT_EQ(log.count(3, "Create node '/n' unsuccessful."), 1);
}

TEST_F(BuildSteps, ANumberOutOfRangeIsReported) {
    const Tree root{new_root(ctx, "/test-main:top").release()};
    EXPECT_TRUE(add_number(root.get(), "number", 255, "/n"));
    EXPECT_FALSE(add_number(root.get(), "number", -1, "/n"));
    EXPECT_EQ(log.count(3, "Create node '/n' unsuccessful."), 1);
}

} // namespace
