// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <array>
#include <cstdarg>
#include <memory>
#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <zamc/yang_module.h>
#include <zamc/yang_wrap.h>

#include "support/heap.h"
#include "support/log_capture.h"
#include "support/test_schema.h"
#include "yang/yang_wrap_internal.h"

namespace {

using namespace zam::test;
using zam::yang::_create_error_entry;
using zam::yang::_get_ly_error;

using Context = std::unique_ptr<ly_ctx, decltype([](ly_ctx *ctx) { zam_ly_ctx_destroy(ctx); })>;

int32_t add_entry(lyd_node *error, const char *app_tag, const char *path, const char *format, ...) ZAM_PRINTF(4, 5);
int32_t add_entry(lyd_node *error, const char *app_tag, const char *path, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int32_t result = _create_error_entry(error, "rpc", "t", app_tag, path, format, args);
    va_end(args);
    return result;
}

class ErrorTree : public testing::Test {
protected:
    // The names of the leaves in the order in which they stand.
    static std::string names_of(const Tree &error) {
        std::string names;
        for (const lyd_node *leaf = zam_lyd_child(error.get()); leaf; leaf = leaf->next)
            names += (names.empty() ? "" : " ") + std::string{leaf->schema->name};
        return names;
    }

    ly_ctx *ctx = test_context();
    LogCapture log;
};

TEST_F(ErrorTree, TypeAndTagAreEnough) {
    const Tree error{zam_create_error(ctx, "rpc", "operation-failed", nullptr, nullptr, nullptr)};
    EXPECT_EQ(to_json(error), R"({"ietf-netconf:rpc-error":{"error-type":"rpc","error-tag":"operation-failed"}})");
    EXPECT_EQ(names_of(error), "error-type error-tag");
    EXPECT_EQ(log.all(), "");
}

TEST_F(ErrorTree, AFailedServiceIsTypeTagCodeAndMessageInThatOrder) {
    const Tree error{zam_create_error(ctx, "application", "operation-failed", "4294967293", nullptr, "%s",
                                      "Service process failed")};
    EXPECT_EQ(names_of(error), "error-type error-tag error-app-tag error-message");
    EXPECT_EQ(to_json(error), R"({"ietf-netconf:rpc-error":{"error-type":"application","error-tag":"operation-failed",)"
                              R"("error-app-tag":"4294967293","error-message":"Service process failed"}})");
    EXPECT_EQ(to_xml(error),
              R"(<rpc-error xmlns="urn:ietf:params:xml:ns:netconf:base:1.0"><error-type>application</error-type>)"
              R"(<error-tag>operation-failed</error-tag><error-app-tag>4294967293</error-app-tag>)"
              R"(<error-message>Service process failed</error-message></rpc-error>)");
}

TEST_F(ErrorTree, EveryLeafIsPrintedInTheOrderOfTheTemplate) {
    const Tree error{zam_create_error(ctx, "protocol", "invalid-value", "7", "/m:a/b[c='1']", "%d of %s", 3, "x")};
    EXPECT_EQ(to_json(error), R"({"ietf-netconf:rpc-error":{"error-type":"protocol","error-tag":"invalid-value",)"
                              R"("error-app-tag":"7","error-path":"/m:a/b[c='1']","error-message":"3 of x"}})");
}

TEST_F(ErrorTree, EveryTypeOfTheTemplateIsAccepted) {
    for (const char *type : {"transport", "rpc", "protocol", "application"})
        EXPECT_TRUE(Tree{zam_create_error(ctx, type, "t", nullptr, nullptr, nullptr)}) << type;
}

TEST_F(ErrorTree, EmptyTextsAreLeavesToo) {
    const Tree error{zam_create_error(ctx, "rpc", "", "", "", "%s", "")};
    EXPECT_EQ(names_of(error), "error-type error-tag error-app-tag error-path error-message");
}

TEST_F(ErrorTree, AnUnknownTypeFails) {
    EXPECT_EQ(zam_create_error(ctx, "bogus", "t", nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(log.count(3, "Create 'error-type' data node unsuccessful."), 1);
    EXPECT_EQ(zam_create_error(ctx, nullptr, "t", nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(log.count(3, "Create 'error-type' data node unsuccessful."), 2);
}

TEST_F(ErrorTree, AMissingTagFails) {
    EXPECT_EQ(zam_create_error(ctx, "rpc", nullptr, nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(log.all(), "[WRONG] Create 'error-tag' data node unsuccessful.\n");
}

// The template's texts take any value; containers that have only some of the leaves refuse the others.
TEST_F(ErrorTree, ALeafThatCannotBeMadeIsNamed) {
    const LogCapture::Line tag{3, "[WRONG] Create 'error-tag' data node unsuccessful.\n"};
    const Tree no_tag = parse_json(R"({"test-extra:rpc-error":{}})");
    EXPECT_EQ(add_entry(no_tag.get(), nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(log.lines().back(), tag);

    const LogCapture::Line path{3, "[WRONG] Create 'error-path' data node unsuccessful.\n"};
    const LogCapture::Line app_tag{3, "[WRONG] Create 'error-app-tag' data node unsuccessful.\n"};
    const LogCapture::Line message{3, "[WRONG] Create 'error-message' data node unsuccessful.\n"};
    const auto made = [] { return parse_json(R"({"test-extra:short-error":{}})"); };
    EXPECT_EQ(add_entry(made().get(), nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(add_entry(made().get(), "1", "/p", "m"), -1);
    EXPECT_EQ(log.lines().back(), path);
    EXPECT_EQ(add_entry(made().get(), "1", nullptr, "m"), -1);
    EXPECT_EQ(log.lines().back(), app_tag);
    EXPECT_EQ(add_entry(made().get(), nullptr, nullptr, "m"), -1);
    EXPECT_EQ(log.lines().back(), message);
}

TEST_F(ErrorTree, TheMessageIsFormatted) {
    const Tree error{zam_lyd_new_yangdata(zam_ly_ctx_get_module(ctx, "ietf-netconf"), "yang-errors", "rpc-error")};
    ASSERT_TRUE(error);
    EXPECT_EQ(add_entry(error.get(), nullptr, nullptr, "%s %05.1f%%", "q\"", 2.5), 0);
    EXPECT_EQ(to_json(error), R"({"ietf-netconf:rpc-error":{"error-type":"rpc","error-tag":"t",)"
                              R"("error-message":"q\" 002.5%"}})");
}

TEST_F(ErrorTree, AContextWithoutTheModuleFails) {
    const Context bare{zam_ly_ctx_new(nullptr, LY_CTX_NO_YANGLIBRARY)};
    ASSERT_TRUE(bare);
    EXPECT_EQ(zam_create_error(bare.get(), "rpc", "t", nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(log.count(3, "Get 'ietf-restconf' module unsuccessful."), 1);
}

TEST_F(ErrorTree, AModuleWithoutTheTemplateFails) {
    const Context bare{zam_ly_ctx_new(nullptr, LY_CTX_NO_YANGLIBRARY)};
    ASSERT_TRUE(bare);
    ASSERT_NE(zam_lys_parse_mem(bare.get(),
                                R"(module ietf-netconf { namespace "urn:x"; prefix nc; leaf a {type empty;}})",
                                LYS_IN_YANG),
              nullptr);
    EXPECT_EQ(zam_create_error(bare.get(), "rpc", "t", nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(log.count(3, "Create 'yang-errors' yang-data node unsuccessful."), 1);
}

TEST_F(ErrorTree, ANullContextFails) {
    EXPECT_EQ(zam_create_error(nullptr, "rpc", "t", nullptr, nullptr, nullptr), nullptr);
}

TEST_F(ErrorTree, NoMemoryAtAnyPointMakesNone) {
    const auto failures = fail_each_allocation([&](bool may_fail) {
        const Tree error{zam_create_error(ctx, "rpc", "t", "1", "/p", "%s", "message")};
        EXPECT_TRUE(error || may_fail);
    });
    EXPECT_GE(failures, 1u);
}

TEST(ErrorTag, EachCodeHasItsTag) {
    const std::array<std::pair<int, const char *>, 12> tags{{{0, "operation-failed"},
                                                             {1, "syntax"},
                                                             {2, "syntax"},
                                                             {3, "syntax"},
                                                             {4, "invalid-value"},
                                                             {5, "invalid-value"},
                                                             {6, "semantic"},
                                                             {7, "syntax"},
                                                             {8, "syntax"},
                                                             {9, "invalid-value"},
                                                             {10, "operation-failed"},
                                                             {11, "operation-failed"}}};
    for (const auto &[code, tag] : tags)
        EXPECT_STREQ(_get_ly_error(static_cast<LY_VECODE>(code)), tag) << code;
}

class LibyangError : public ErrorTree {
protected:
    void SetUp() override { zam_ly_err_clean(ctx); }
    void TearDown() override { zam_ly_err_clean(ctx); }

    // Leaves libyang with the error that this text causes.
    void provoke(const std::string &json) {
        lyd_node *tree = nullptr;
        EXPECT_NE(lyd_parse_data_mem(ctx, json.c_str(), LYD_JSON, LYD_PARSE_STRICT, LYD_VALIDATE_PRESENT, &tree),
                  LY_SUCCESS);
        EXPECT_EQ(tree, nullptr);
    }
    static const char *leaf_of(const Tree &error, const char *name) { return zam_leaf_get_raw(error.get(), name); }
};

TEST_F(LibyangError, ItsCodeAndMessageMakeAProtocolError) {
    provoke(R"({"test-main:top":{"number":"x"}})");
    const std::string message = zam_ly_errmsg(ctx);
    const Tree error{zam_get_ly_error(ctx)};
    ASSERT_TRUE(error);
    EXPECT_STREQ(leaf_of(error, "error-type"), "protocol");
    EXPECT_STREQ(leaf_of(error, "error-tag"), "invalid-value");
    EXPECT_EQ(leaf_of(error, "error-message"), message);
    EXPECT_NE(message, "");
}

TEST_F(LibyangError, ASyntaxErrorHasTheTagSyntax) {
    provoke("{]");
    const Tree error{zam_get_ly_error(ctx)};
    ASSERT_TRUE(error);
    EXPECT_STREQ(leaf_of(error, "error-tag"), "syntax");
}

TEST_F(LibyangError, ItIsGoneAfterwards) {
    provoke(R"({"test-main:top":{"number":"x"}})");
    const Tree first{zam_get_ly_error(ctx)};
    EXPECT_EQ(zam_ly_errmsg(ctx), nullptr);
    EXPECT_EQ(zam_ly_vecode(ctx), LYVE_SUCCESS);
    const Tree second{zam_get_ly_error(ctx)};
    EXPECT_EQ(to_json(second),
              R"({"ietf-netconf:rpc-error":{"error-type":"protocol","error-tag":"operation-failed"}})");
}

TEST_F(LibyangError, AConversionThatItsMessageQuotesStandsAsItIs) {
    provoke(R"({"test-main:top":{"number":"%s%n%%"}})");
    const std::string message = zam_ly_errmsg(ctx);
    ASSERT_NE(message.find("%s%n%%"), std::string::npos);
    const Tree error{zam_get_ly_error(ctx)};
    ASSERT_TRUE(error);
    EXPECT_EQ(leaf_of(error, "error-message"), message);
}

TEST_F(LibyangError, TwoPercentSignsInItsMessageBecomeOne) {
    provoke(R"({"test-main:top":{"number":"5%%"}})");
    std::string message = zam_ly_errmsg(ctx);
    ASSERT_NE(message.find("5%%"), std::string::npos);
    message.erase(message.find("%%"), 1);
    const Tree error{zam_get_ly_error(ctx)};
    ASSERT_TRUE(error);
    EXPECT_EQ(leaf_of(error, "error-message"), message);
}

TEST_F(LibyangError, AnAppTagGoesAlong) {
    provoke(R"({"test-extra:pair":["a","b","c"]})");
    const Tree error{zam_get_ly_error(ctx)};
    ASSERT_TRUE(error);
    EXPECT_STREQ(leaf_of(error, "error-app-tag"), "too-many-elements");
}

TEST_F(LibyangError, NoPathIsKeptForIt) {
    provoke(R"({"test-main:top":{"number":"x"}})");
    const Tree error{zam_get_ly_error(ctx)};
    ASSERT_TRUE(error);
    EXPECT_EQ(zam_lyd_find_path(error.get(), "error-path"), nullptr);
}

TEST_F(LibyangError, NoMemoryMakesNoneAndClearsTheError) {
    provoke(R"({"test-main:top":{"number":"x"}})");
    Heap heap;
    heap.fail_at(1, true);
    EXPECT_EQ(zam_get_ly_error(ctx), nullptr);
    EXPECT_TRUE(heap.failed());
    heap.fail_at(0);
    EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
    EXPECT_EQ(zam_ly_errmsg(ctx), nullptr);
}

TEST_F(LibyangError, ANullContextHasNone) {
    EXPECT_EQ(zam_get_ly_error(nullptr), nullptr);
}

class ErrorMerge : public ErrorTree {
protected:
    Tree error(const char *tag) { return Tree{zam_create_error(ctx, "rpc", tag, nullptr, nullptr, nullptr)}; }
    // The tags of the siblings from the first one on, checked in both directions.
    static std::string tags_of(const Tree &tree) {
        std::string tags;
        const lyd_node *last = nullptr;
        for (lyd_node *node = tree.get(); node; node = node->next) {
            tags += zam_leaf_get_raw(node, "error-tag");
            if (last) {
                EXPECT_EQ(node->prev, last);
            }
            last = node;
        }
        EXPECT_EQ(tree->prev, last);
        return tags;
    }
};

TEST_F(ErrorMerge, TwoErrorsStandSideBySideTheFirstOneFirst) {
    const Tree first = error("a");
    EXPECT_EQ(zam_merge_error(first.get(), error("b").release()), 0);
    EXPECT_EQ(tags_of(first), "ab");
    EXPECT_EQ(to_xml(first),
              R"(<rpc-error xmlns="urn:ietf:params:xml:ns:netconf:base:1.0"><error-type>rpc</error-type>)"
              R"(<error-tag>a</error-tag></rpc-error>)"
              R"(<rpc-error xmlns="urn:ietf:params:xml:ns:netconf:base:1.0"><error-type>rpc</error-type>)"
              R"(<error-tag>b</error-tag></rpc-error>)");
}

TEST_F(ErrorMerge, TheSiblingsOfBothComeAlong) {
    const Tree first = error("a");
    ASSERT_EQ(zam_merge_error(first.get(), error("b").release()), 0);
    Tree other = error("c");
    ASSERT_EQ(zam_merge_error(other.get(), error("d").release()), 0);
    EXPECT_EQ(zam_merge_error(first.get(), other.release()), 0);
    EXPECT_EQ(tags_of(first), "abcd");
}

TEST_F(ErrorMerge, AnErrorGoesBehindTheLastSiblingWhicheverIsGiven) {
    const Tree first = error("a");
    ASSERT_EQ(zam_merge_error(first.get(), error("b").release()), 0);
    EXPECT_EQ(zam_merge_error(first->next, error("c").release()), 0);
    EXPECT_EQ(tags_of(first), "abc");
}

TEST_F(ErrorMerge, NullArgumentsAreRefused) {
    const Tree first = error("a");
    EXPECT_EQ(zam_merge_error(nullptr, first.get()), -1);
    EXPECT_EQ(zam_merge_error(first.get(), nullptr), -1);
    EXPECT_EQ(zam_merge_error(nullptr, nullptr), -1);
    EXPECT_EQ(tags_of(first), "a");
}

TEST_F(ErrorMerge, AListIsNotAppendedToItself) {
    const Tree first = error("a");
    ASSERT_EQ(zam_merge_error(first.get(), error("b").release()), 0);
    EXPECT_EQ(zam_merge_error(first.get(), first.get()), -1);
    EXPECT_EQ(zam_merge_error(first.get(), first->next), -1);
    EXPECT_EQ(tags_of(first), "ab");
}

TEST_F(ErrorMerge, AnErrorBelowAnotherNodeIsRefused) {
    const Tree first = error("a");
    const Tree top = parse_json(R"({"test-extra:rpc-error":{"error-type":"x"}})");
    EXPECT_EQ(zam_merge_error(first.get(), zam_lyd_child(top.get())), -1);
    EXPECT_EQ(tags_of(first), "a");
}

TEST_F(ErrorTree, AnErrorNodeIsRecognised) {
    const Tree error{zam_create_error(ctx, "rpc", "t", nullptr, nullptr, nullptr)};
    EXPECT_EQ(zam_is_rpc_error_node(error.get()), 1);
    EXPECT_EQ(zam_is_rpc_error_node(zam_lyd_child(error.get())), 0);
}

TEST_F(ErrorTree, AnErrorNodeOfAnotherModuleIsNone) {
    const Tree other = parse_json(R"({"test-extra:rpc-error":{"error-type":"x"}})");
    EXPECT_EQ(zam_is_rpc_error_node(other.get()), 0);
}

TEST_F(ErrorTree, AnotherNodeOfTheModuleIsNone) {
    const Tree hello{zam_lyd_new_yangdata(zam_ly_ctx_get_module(ctx, "ietf-netconf"), "hello", "hello")};
    ASSERT_TRUE(hello);
    EXPECT_EQ(zam_is_rpc_error_node(hello.get()), 0);
    EXPECT_EQ(zam_is_rpc_error_node(nullptr), 0);
}

TEST_F(ErrorTree, AnOpaqueErrorNodeIsRecognised) {
    const Tree opaque{zam_lyd_new_opaq(nullptr, ctx, "rpc-error", nullptr, "ietf-netconf")};
    ASSERT_TRUE(opaque);
    EXPECT_EQ(zam_is_rpc_error_node(opaque.get()), 1);
}

} // namespace
