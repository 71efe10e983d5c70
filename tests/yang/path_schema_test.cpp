// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <zamc/path.h>

#include <string>

#include "yang/yang_tree_data_fixture.h"

namespace zam::test {
namespace {

class PathSchema : public SchemaTest {
protected:
    // The schema path of what a path leads to.
    static std::string found(const char *path, const lysc_node *start = nullptr) {
        const lysc_node *node = zam_find_schema_by_path(test_context(), start, path);
        if (!node) return "(null)";
        char *text = lysc_path(node, LYSC_PATH_LOG, nullptr, 0);
        const std::string copy = text;
        std::free(text);
        return copy;
    }
};

TEST_F(PathSchema, AnAbsolutePathStartsAtItsModule) {
    EXPECT_EQ(found("/test-main:top"), "/test-main:top");
    EXPECT_EQ(found("/test-main:top/sub/inner/c"), "/test-main:top/sub/inner/c");
    EXPECT_EQ(found("/test-main:entry/id"), "/test-main:entry/id");
}

TEST_F(PathSchema, AnAbsolutePathNeedsAKnownModule) {
    EXPECT_EQ(found("/top"), "(null)");
    EXPECT_EQ(found("/nowhere:top"), "(null)");
}

TEST_F(PathSchema, TheFirstCharacterOfAnAbsolutePathIsSkipped) {
    EXPECT_EQ(found("?test-main:top/text"), "/test-main:top/text");
}

TEST_F(PathSchema, ARelativePathStartsBelowItsNode) {
    const lysc_node *top = schema_at("/test-main:top");
    EXPECT_EQ(found("sub/a", top), "/test-main:top/sub/a");
    EXPECT_EQ(found("test-main:sub", top), "/test-main:top/sub");
    EXPECT_EQ(found("nothing", top), "(null)");
    EXPECT_EQ(found("a", top), "(null)");
}

TEST_F(PathSchema, ANameWithoutPrefixIsOfTheModuleOfTheNodeAbove) {
    EXPECT_EQ(found("/test-main:top/test-extra:more/x"), "/test-main:top/test-extra:more/x");
    EXPECT_EQ(found("/test-main:top/extra"), "(null)");
    EXPECT_EQ(found("/test-main:top/test-extra:more/test-main:x"), "(null)");
    EXPECT_EQ(found("/test-main:top/test-extra:text"), "(null)");
}

TEST_F(PathSchema, ChoicesAndCasesAreNamed) {
    EXPECT_EQ(found("/test-main:top/way"), "/test-main:top/way");
    EXPECT_EQ(found("/test-main:top/way/right/right/speed"), "/test-main:top/way/right/right/speed");
    EXPECT_EQ(found("/test-kinds:kinds/outer/deep/inner/deeper/buried"),
              "/test-kinds:kinds/outer/deep/inner/deeper/buried");
    EXPECT_EQ(found("/test-main:top/left"), "(null)") << "libyang's data path";
    EXPECT_EQ(found("/test-kinds:kinds/buried"), "(null)");
}

TEST_F(PathSchema, KeysAreIgnored) {
    EXPECT_EQ(found("/test-main:top/item[name='x']/part[row='1'][column='2']/label"), "/test-main:top/item/part/label");
    EXPECT_EQ(found("/test-main:top/item[bogus='x']/name"), "/test-main:top/item/name");
    EXPECT_EQ(found("/test-main:top/tag[.='a/b']"), "/test-main:top/tag");
}

TEST_F(PathSchema, InputIsASkippedStep) {
    EXPECT_EQ(found("/test-kinds:compute/input/p"), "/test-kinds:compute/input/p");
    EXPECT_EQ(found("/test-kinds:compute/p"), "/test-kinds:compute/input/p");
    EXPECT_EQ(found("/test-kinds:compute/input/how/fast/speed"), "/test-kinds:compute/input/how/fast/speed");
    EXPECT_EQ(found("/test-kinds:compute/input/result"), "(null)");
}

TEST_F(PathSchema, OutputIsASkippedStepThatTurnsToTheOutput) {
    EXPECT_EQ(found("/test-kinds:compute/output/result"), "/test-kinds:compute/output/result");
    EXPECT_EQ(found("/test-kinds:compute/output/what/answer/answer"), "/test-kinds:compute/output/what/answer/answer");
    EXPECT_EQ(found("/test-kinds:compute/output/row/id"), "/test-kinds:compute/output/row/id");
    EXPECT_EQ(found("/test-kinds:compute/output/p"), "(null)");
    EXPECT_EQ(found("/test-kinds:compute/result"), "(null)");
}

TEST_F(PathSchema, OutputStaysSetForTheRestOfThePath) {
    EXPECT_EQ(found("/test-kinds:compute/output/input/result"), "/test-kinds:compute/output/result");
    EXPECT_EQ(found("output/keyed/restart/before", schema_at("/test-kinds:kinds")),
              "/test-kinds:kinds/keyed/restart/output/before");
}

TEST_F(PathSchema, ActionsHaveInputAndOutputToo) {
    EXPECT_EQ(found("/test-main:top/item/reset/input/delay"), "/test-main:top/item/reset/input/delay");
    EXPECT_EQ(found("/test-main:top/item/reset/output/done"), "/test-main:top/item/reset/output/done");
}

TEST_F(PathSchema, NothingIsReadBehindInputOrOutput) {
    EXPECT_EQ(found("/test-kinds:compute/input"), "(null)");
    EXPECT_EQ(found("/test-kinds:compute/output"), "(null)");
    EXPECT_EQ(found("/test-kinds:compute/output/"), "(null)");
}

TEST_F(PathSchema, OperationsAndNotificationsAreTopNodes) {
    EXPECT_EQ(found("/test-kinds:compute"), "/test-kinds:compute");
    EXPECT_EQ(found("/test-kinds:event/what"), "/test-kinds:event/what");
}

TEST_F(PathSchema, ATrailingSlashIsTaken) {
    EXPECT_EQ(found("/test-main:top/"), "/test-main:top");
    EXPECT_EQ(found("sub/", schema_at("/test-main:top")), "/test-main:top/sub");
    EXPECT_EQ(found("/test-main:top//"), "(null)");
}

TEST_F(PathSchema, ALoneSlashLeadsNowhere) {
    EXPECT_EQ(found("/"), "(null)");
    EXPECT_EQ(found("/", schema_at("/test-main:top")), "(null)");
}

TEST_F(PathSchema, AStrangeCharacterEndsTheWalkWhereItIs) {
    const LogCapture log;
    EXPECT_EQ(found("/test-main:top/sub x"), "/test-main:top");
    EXPECT_EQ(found("/test-main:top x"), "(null)");
    EXPECT_EQ(found("sub x", schema_at("/test-main:top")), "/test-main:top");
    EXPECT_EQ(found("/test-main:top/item[name='x']y/name"), "/test-main:top");
    EXPECT_EQ(log.all(), "");
}

TEST_F(PathSchema, ASegmentThatCannotBeReadLeadsNowhere) {
    const LogCapture log;
    EXPECT_EQ(found("/test-main:top/1"), "(null)");
    EXPECT_EQ(log.count(3, "Get identifier from path(1) unsuccessful."), 1);
    EXPECT_EQ(found("/test-main:top/item[name=]"), "(null)");
    EXPECT_EQ(log.count(3, "Get key value from path(item[name=]) unsuccessful."), 1);
    EXPECT_EQ(found("//"), "(null)");
}

TEST_F(PathSchema, NothingIsBelowALeaf) {
    EXPECT_EQ(found("/test-main:top/text/x"), "(null)");
    EXPECT_EQ(found("x", schema_at("/test-main:top/text")), "(null)");
}

TEST_F(PathSchema, NoPathOrContextLeadsNowhere) {
    EXPECT_EQ(zam_find_schema_by_path(test_context(), nullptr, nullptr), nullptr);
    EXPECT_EQ(zam_find_schema_by_path(test_context(), nullptr, ""), nullptr);
    EXPECT_EQ(zam_find_schema_by_path(nullptr, nullptr, "/test-main:top"), nullptr);
    EXPECT_EQ(zam_find_schema_by_path(nullptr, schema_at("/test-main:top"), "sub"), schema_at("/test-main:top/sub"));
}

TEST_F(PathSchema, WithoutMemoryThePathLeadsNowhere) {
    const lysc_node *expected = schema_at("/test-main:top/item/name");
    uint64_t refused = 0;
    const uint64_t failed = fail_each_allocation([&](bool) {
        const lysc_node *node = zam_find_schema_by_path(test_context(), nullptr, "/test-main:top/item[name='x']/name");
        EXPECT_TRUE(!node || node == expected);
        if (!node) ++refused;
    });
    EXPECT_EQ(refused, failed);
    EXPECT_GT(failed, 5u);
}

class DataToSchema : public SchemaTest {
protected:
    static std::string schema_path(const char *path) { return take(zam_format_data2schema(test_context(), path)); }
};

TEST_F(DataToSchema, ADataPathBecomesASchemaPathWithItsChoices) {
    EXPECT_EQ(schema_path("/test-main:top/item[name='x']/value"), "/test-main:top/item/value");
    EXPECT_EQ(schema_path("/test-main:top/right/speed"), "/test-main:top/way/right/right/speed");
    EXPECT_EQ(schema_path("/test-kinds:kinds/buried"), "/test-kinds:kinds/outer/deep/inner/deeper/buried");
    EXPECT_EQ(schema_path("/test-main:top/test-extra:extra"), "/test-main:top/test-extra:extra");
}

TEST_F(DataToSchema, BelowAnOperationTheInputIsMeant) {
    EXPECT_EQ(schema_path("/test-kinds:compute/p"), "/test-kinds:compute/input/p");
    EXPECT_EQ(schema_path("/test-kinds:compute/result"), "(null)");
}

TEST_F(DataToSchema, ATrailingSlashIsTaken) {
    EXPECT_EQ(schema_path("/test-main:top/"), "/test-main:top");
}

TEST_F(DataToSchema, APathThatLeadsNowhereHasNone) {
    for (const char *path : {"/test-main:nothing", "/top", "", "/", "/test-main:top/1", "top"})
        EXPECT_EQ(schema_path(path), "(null)") << path;
    EXPECT_EQ(zam_format_data2schema(test_context(), nullptr), nullptr);
    EXPECT_EQ(zam_format_data2schema(nullptr, "/test-main:top"), nullptr);
}

TEST_F(DataToSchema, TheTextComesFromTheHooks) {
    uint64_t refused = 0;
    const uint64_t failed = fail_each_allocation([&refused](bool) {
        const Text path{zam_format_data2schema(test_context(), "/test-main:top/item")};
        if (!path) ++refused;
    });
    EXPECT_EQ(refused, failed);
    EXPECT_GT(failed, 2u);
}

} // namespace
} // namespace zam::test
