// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "yang/yang_module_internal.h"

#include <string>

#include <gtest/gtest.h>

#include "support/test_schema.h"

namespace zam::test {
namespace {

bool may_be(const std::string &text) {
    return yang::may_be_json_operation(test_context(), text.c_str());
}

TEST(JsonOperation, IsOneRpcOrNotificationOfALoadedModule) {
    EXPECT_TRUE(may_be(R"({"test-main:run":{}})"));
    EXPECT_TRUE(may_be(R"( { "test-main:run" : {"speed":5,"content":{"a":[1,{"b":"}"}]}} } )"));
    EXPECT_TRUE(may_be(R"({"test-main:alarm":{"message":"\"},{\""}})"));
}

TEST(JsonOperation, IsAnActionInTheDataThatItBelongsTo) {
    EXPECT_TRUE(may_be(R"({"test-main:top":{"item":[{"name":"a","reset":{"delay":1}}]}})"));
}

TEST(JsonOperation, HasNothingBesideIt) {
    EXPECT_FALSE(may_be(R"({"test-main:run":{},"test-main:alarm":{}})"));
    EXPECT_FALSE(may_be(R"({"test-main:run":{},"@test-main:run":{}})"));
    EXPECT_FALSE(may_be(R"({"@test-main:run":{"speed":5}})"));
}

TEST(JsonOperation, IsNeitherDataNorUnknown) {
    EXPECT_FALSE(may_be(R"({"test-main:single":"x"})"));
    EXPECT_FALSE(may_be(R"({"test-main:top":{"text":"x"}})"));
    EXPECT_FALSE(may_be(R"({"test-main:nothing":{}})"));
    EXPECT_FALSE(may_be(R"({"nowhere:run":{}})"));
    EXPECT_FALSE(may_be(R"({"test-main:":{}})"));
    EXPECT_FALSE(may_be(R"({"test-mainx:run":{}})"));
}

TEST(JsonOperation, IsNoOtherText) {
    for (const char *text : {"{}", "[]", "null", "7", R"("test-main:run")", R"(["test-main:run"])"})
        EXPECT_FALSE(may_be(text)) << text;
}

} // namespace
} // namespace zam::test
