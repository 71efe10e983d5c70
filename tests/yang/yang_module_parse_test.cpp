// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// libyang's errors, input handles and the parsers of data and operations.
#include <zamc/yang_module.h>

#include <array>

#include <malloc.h>

#include "support/files.h"
#include "yang/yang_module_fixture.h"

namespace {

using namespace zam::test;
using namespace zam::test::layer;
using testing::HasSubstr;
using testing::IsEmpty;

using LibyangErrors = SampleTest;
using LibyangInput = SampleTest;
using LibyangParse = SampleTest;
using LibyangOperation = SampleTest;

constexpr const char *note = R"({"sample:top":{"note":"x"}})";
constexpr const char *bad_size = R"({"sample:top":{"note":"x","size":300}})";

TEST_F(LibyangErrors, AFailureLeavesItsCodeMessageAndTag) {
    LogCapture log;
    ASSERT_FALSE(parse(R"({"sample:top":{"checked":"wrong"}})"));
    EXPECT_EQ(zam_ly_vecode(ctx()), LYVE_DATA);
    EXPECT_STREQ(zam_ly_errmsg(ctx()), "Not that.");
    EXPECT_STREQ(zam_ly_errapptag(ctx()), "not-that");
}

TEST_F(LibyangErrors, WithoutPathLoggingThereIsNoPath) {
    LogCapture log;
    zam_ly_set_log_clb(zam_libyang_log, 0);
    ASSERT_FALSE(parse(bad_size));
    EXPECT_TRUE(zam_ly_errmsg(ctx()));
    EXPECT_FALSE(zam_ly_errpath(ctx()));
}

TEST_F(LibyangErrors, WithPathLoggingThePathNamesTheNode) {
    LogCapture log;
    zam_ly_set_log_clb(zam_libyang_log, 1);
    ASSERT_FALSE(parse(bad_size));
    ASSERT_TRUE(zam_ly_errpath(ctx()));
    EXPECT_THAT(zam_ly_errpath(ctx()), HasSubstr("/sample:top/size"));
    zam_ly_set_log_clb(zam_libyang_log, 0);
}

TEST_F(LibyangErrors, CleanForgetsThem) {
    LogCapture log;
    ASSERT_FALSE(parse(R"({"sample:top":{"checked":"wrong"}})"));
    zam_ly_err_clean(ctx());
    EXPECT_EQ(zam_ly_vecode(ctx()), LYVE_SUCCESS);
    EXPECT_FALSE(zam_ly_errmsg(ctx()));
    EXPECT_FALSE(zam_ly_errpath(ctx()));
    EXPECT_FALSE(zam_ly_errapptag(ctx()));
}

TEST_F(LibyangErrors, OnlyTheLastFailureIsKept) {
    LogCapture log;
    ASSERT_FALSE(parse(R"({"sample:top":{"checked":"wrong"}})"));
    ASSERT_FALSE(parse(bad_size));
    EXPECT_STRNE(zam_ly_errmsg(ctx()), "Not that.");
    EXPECT_FALSE(zam_ly_errapptag(ctx()));
}

TEST_F(LibyangErrors, NoContextHasNoErrors) {
    LogCapture log;
    EXPECT_EQ(zam_ly_vecode(nullptr), LYVE_SUCCESS);
    EXPECT_FALSE(zam_ly_errmsg(nullptr));
    EXPECT_FALSE(zam_ly_errpath(nullptr));
    EXPECT_FALSE(zam_ly_errapptag(nullptr));
    zam_ly_err_clean(nullptr);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LibyangErrors, ForwardsLogNothing) {
    LogCapture log;
    zam_ly_vecode(ctx());
    zam_ly_errmsg(ctx());
    zam_ly_errpath(ctx());
    zam_ly_errapptag(ctx());
    zam_ly_err_clean(ctx());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LibyangErrors, TheLogHandlerIsHandedToLibyang) {
    zam_ly_set_log_clb(nullptr, 0);
    EXPECT_FALSE(ly_get_log_clb());
    zam_ly_set_log_clb(zam_libyang_log, 0);
    EXPECT_EQ(ly_get_log_clb(), zam_libyang_log);
}

TEST_F(LibyangErrors, TheLogHandlerPutsErrorsAtLevelThreeAndAllElseAtSeven) {
    LogCapture log;
    zam_libyang_log(LY_LLERR, "broken", "/a/b");
    zam_libyang_log(LY_LLWRN, "odd", nullptr);
    zam_libyang_log(LY_LLVRB, "talk", "/c");
    zam_libyang_log(LY_LLDBG, "chatter", "/d");
    ASSERT_EQ(log.lines().size(), 4u);
    EXPECT_EQ(log.count(3, "libyang[0]: broken path:/a/b"), 1);
    EXPECT_EQ(log.count(7, "libyang[1]: odd path:null"), 1);
    EXPECT_EQ(log.count(7, "libyang[2]: talk path:/c"), 1);
    EXPECT_EQ(log.count(7, "libyang[3]: chatter path:/d"), 1);
}

TEST_F(LibyangErrors, TheLogHandlerDoesNotTakeAMessageForAFormat) {
    LogCapture log;
    zam_libyang_log(LY_LLERR, "value \"%s%n\"", nullptr);
    EXPECT_EQ(log.count(3, "libyang[0]: value \"%s%n\" path:null"), 1);
}

TEST_F(LibyangErrors, LibyangsOwnLinesReachTheLogger) {
    LogCapture log;
    ASSERT_FALSE(parse(R"({"sample:top":{"checked":"wrong"}})"));
    EXPECT_EQ(log.count(3, "libyang[0]: Not that. path:null"), 1);
}

TEST_F(LibyangInput, FilepathOpensTheWholeFileForParsing) {
    const DescriptorCheck descriptors;
    const TempDir dir;
    dir.write("data.json", note);
    LogCapture log;
    const Input in{zam_ly_in_new_filepath(dir.path("data.json").c_str())};
    ASSERT_TRUE(in);
    EXPECT_THAT(log.lines(), IsEmpty());
    lyd_node *tree = nullptr;
    ASSERT_EQ(lyd_parse_data(ctx(), nullptr, in.get(), LYD_JSON, LYD_PARSE_ONLY, 0, &tree), LY_SUCCESS);
    EXPECT_EQ(print_json(Tree{tree}.get()), note);
}

TEST_F(LibyangInput, FilepathNamesAFileThatIsNotThere) {
    const DescriptorCheck descriptors;
    LogCapture log;
    EXPECT_FALSE(zam_ly_in_new_filepath("/no/such/file"));
    EXPECT_EQ(log.count(3, "[libyang]New ly_in by filepath unsuccessful, filepath : /no/such/file"), 1);
    EXPECT_FALSE(zam_ly_in_new_filepath(nullptr));
    EXPECT_EQ(log.count(3, "[libyang]New ly_in by filepath unsuccessful, filepath : (null)"), 1);
}

TEST_F(LibyangInput, MemoryLogsTheWholeTextAndLeavesItToTheCaller) {
    const std::string text = note;
    LogCapture log;
    {
        const Input in{zam_ly_in_new_memory(text.c_str())};
        EXPECT_TRUE(in);
    }
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count(7, "[libyang]New ly_in by str : " + text), 1);
    EXPECT_EQ(text, note);
}

TEST_F(LibyangInput, MemoryFailsWithoutAText) {
    LogCapture log;
    EXPECT_FALSE(zam_ly_in_new_memory(nullptr));
    EXPECT_EQ(log.count(7, "[libyang]New ly_in by str : (null)"), 1);
    EXPECT_EQ(log.count(3, "[libyang]New ly_in by str unsuccessful, str : (null)"), 1);
}

TEST_F(LibyangInput, FreeingNothingIsHarmless) {
    zam_ly_in_free(nullptr);
    zam_ly_set_free(nullptr);
}

TEST_F(LibyangInput, FreeingASetLeavesWhatIsInIt) {
    const Tree tree = parse(note);
    ASSERT_TRUE(tree);
    ly_set *set = nullptr;
    ASSERT_EQ(ly_set_new(&set), LY_SUCCESS);
    ASSERT_EQ(ly_set_add(set, tree.get(), 1, nullptr), LY_SUCCESS);
    zam_ly_set_free(set);
    EXPECT_EQ(print_json(tree.get()), note);
}

TEST_F(LibyangParse, DataMemReadsJsonAndLogsTheTextFirst) {
    LogCapture log;
    const Tree tree{zam_lyd_parse_data_mem(ctx(), note, LYD_JSON, LYD_PARSE_STRICT, LYD_VALIDATE_PRESENT)};
    ASSERT_TRUE(tree);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count(7, std::string{"[libyang]Parse data mem, data : "} + note), 1);
    EXPECT_EQ(print_json(tree.get()), note);
}

TEST_F(LibyangParse, DataMemReadsXml) {
    const char *const text = R"(<top xmlns="urn:sample"><note>x</note></top>)";
    const Tree tree{zam_lyd_parse_data_mem(ctx(), text, LYD_XML, LYD_PARSE_STRICT, LYD_VALIDATE_PRESENT)};
    EXPECT_EQ(print_json(tree.get()), note);
}

TEST_F(LibyangParse, DataMemPassesTheParseOptionsOn) {
    LogCapture log;
    const char *const unknown = R"({"sample:top":{"no-such":1}})";
    EXPECT_FALSE(zam_lyd_parse_data_mem(ctx(), unknown, LYD_JSON, LYD_PARSE_STRICT, LYD_VALIDATE_PRESENT));
    EXPECT_TRUE(Tree{zam_lyd_parse_data_mem(ctx(), unknown, LYD_JSON, 0, LYD_VALIDATE_PRESENT)});
}

TEST_F(LibyangParse, DataMemPassesTheValidateOptionsOn) {
    const char *const text =
        "module must-have { namespace 'urn:m'; prefix m; leaf m { type string; mandatory true; } }";
    ASSERT_TRUE(zam_lys_parse_mem(ctx(), text, LYS_IN_YANG));
    LogCapture log;
    EXPECT_TRUE(Tree{zam_lyd_parse_data_mem(ctx(), note, LYD_JSON, 0, LYD_VALIDATE_PRESENT)});
    EXPECT_FALSE(zam_lyd_parse_data_mem(ctx(), note, LYD_JSON, 0, 0)) << "all modules count without that option";
}

TEST_F(LibyangParse, DataMemFailureLeavesNoTree) {
    LogCapture log;
    EXPECT_FALSE(zam_lyd_parse_data_mem(ctx(), bad_size, LYD_JSON, LYD_PARSE_STRICT, LYD_VALIDATE_PRESENT));
    EXPECT_EQ(log.count(3, "[libyang]Parse data mem unsuccessful, ret :7."), 1);
    EXPECT_EQ(log.lines().front().level, 7);
    EXPECT_THAT(log.lines().front().text, HasSubstr("Parse data mem, data : "));
}

TEST_F(LibyangParse, DataMemRefusesOperations) {
    LogCapture log;
    EXPECT_FALSE(
        zam_lyd_parse_data_mem(ctx(), R"({"sample:run":{}})", LYD_JSON, LYD_PARSE_STRICT, LYD_VALIDATE_PRESENT));
}

TEST_F(LibyangParse, ATextWithoutDataIsNoFailure) {
    for (const char *text : {"", "  ", "{}"}) {
        LogCapture log;
        EXPECT_FALSE(zam_lyd_parse_data_mem(ctx(), text, LYD_JSON, LYD_PARSE_STRICT, LYD_VALIDATE_PRESENT));
        EXPECT_FALSE(log.mentions("unsuccessful")) << text;
    }
}

TEST_F(LibyangParse, DataMemWithNullArgumentsFails) {
    LogCapture log;
    EXPECT_FALSE(zam_lyd_parse_data_mem(ctx(), nullptr, LYD_JSON, 0, LYD_VALIDATE_PRESENT));
    EXPECT_EQ(log.count(7, "[libyang]Parse data mem, data : (null)"), 1);
    EXPECT_EQ(log.count(3, "[libyang]Parse data mem unsuccessful, ret :3."), 1);
    EXPECT_FALSE(zam_lyd_parse_data_mem(nullptr, note, LYD_JSON, 0, LYD_VALIDATE_PRESENT));
    EXPECT_EQ(log.count(3, "[libyang]Parse data mem unsuccessful, ret :3."), 2);
}

TEST_F(LibyangParse, DataPathReadsAFile) {
    const DescriptorCheck descriptors;
    const TempDir dir;
    dir.write("data.json", note);
    LogCapture log;
    const Tree tree{zam_lyd_parse_data_path(ctx(), dir.path("data.json").c_str(), LYD_JSON, LYD_PARSE_STRICT,
                                            LYD_VALIDATE_PRESENT)};
    EXPECT_EQ(print_json(tree.get()), note);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LibyangParse, DataPathNamesTheFileThatFails) {
    const DescriptorCheck descriptors;
    const TempDir dir;
    dir.write("bad.json", bad_size);
    const std::string path = dir.path("bad.json");
    LogCapture log;
    EXPECT_FALSE(zam_lyd_parse_data_path(ctx(), path.c_str(), LYD_JSON, 0, LYD_VALIDATE_PRESENT));
    EXPECT_EQ(log.count(3, "[libyang]Parse data path(" + path + ") unsuccessful."), 1);
    EXPECT_FALSE(zam_lyd_parse_data_path(ctx(), "/no/such/file", LYD_JSON, 0, LYD_VALIDATE_PRESENT));
    EXPECT_EQ(log.count(3, "[libyang]Parse data path(/no/such/file) unsuccessful."), 1);
    EXPECT_FALSE(zam_lyd_parse_data_path(ctx(), nullptr, LYD_JSON, 0, LYD_VALIDATE_PRESENT));
    EXPECT_FALSE(zam_lyd_parse_data_path(nullptr, path.c_str(), LYD_JSON, 0, LYD_VALIDATE_PRESENT));
}

TEST_F(LibyangOperation, ARequestIsParsedToItsRoot) {
    LogCapture log;
    const Tree tree{zam_lyd_parse_op(ctx(), R"({"sample:run":{"speed":3}})", LYD_JSON, LYD_TYPE_RPC_YANG)};
    ASSERT_TRUE(tree);
    EXPECT_STREQ(tree->schema->name, "run");
    EXPECT_STREQ(lyd_get_value(lyd_child(tree.get())), "3");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LibyangOperation, AReplyHasTheOutputRightBelowTheOperation) {
    const Tree tree{zam_lyd_parse_op(ctx(), R"({"sample:run":{"distance":9}})", LYD_JSON, LYD_TYPE_REPLY_YANG)};
    ASSERT_TRUE(tree);
    EXPECT_STREQ(lyd_child(tree.get())->schema->name, "distance");
}

TEST_F(LibyangOperation, XmlIsReadToo) {
    const Tree tree{
        zam_lyd_parse_op(ctx(), R"(<run xmlns="urn:sample"><speed>3</speed></run>)", LYD_XML, LYD_TYPE_RPC_YANG)};
    ASSERT_TRUE(tree);
    EXPECT_STREQ(lyd_get_value(lyd_child(tree.get())), "3");
}

TEST_F(LibyangOperation, ATextThatIsNoOperationFailsAtDebugLevelOnly) {
    LogCapture log;
    EXPECT_FALSE(zam_lyd_parse_op(ctx(), R"({"sample:run":{"unknown":3}})", LYD_JSON, LYD_TYPE_RPC_YANG));
    EXPECT_EQ(log.count(7, "[libyang]Parse op unsuccessful, ret : 7."), 1);
    EXPECT_EQ(log.count(3, "[libyang]Parse op unsuccessful, ret : 7."), 0);
}

TEST_F(LibyangOperation, AReplyIsNoRequest) {
    LogCapture log;
    EXPECT_FALSE(zam_lyd_parse_op(ctx(), R"({"sample:run":{"distance":9}})", LYD_JSON, LYD_TYPE_RPC_YANG));
}

TEST_F(LibyangOperation, NoTextMakesNoInputHandle) {
    LogCapture log;
    EXPECT_FALSE(zam_lyd_parse_op(ctx(), nullptr, LYD_JSON, LYD_TYPE_RPC_YANG));
    EXPECT_EQ(log.count(3, "[libyang]Create ly_in for parse op unsuccessful, ret 3."), 1);
}

TEST_F(LibyangOperation, NoContextFails) {
    LogCapture log;
    EXPECT_FALSE(zam_lyd_parse_op(nullptr, "{}", LYD_JSON, LYD_TYPE_RPC_YANG));
    EXPECT_EQ(log.count(7, "[libyang]Parse op unsuccessful, ret : 3."), 1);
}

// A handle is a block of the system heap: kept, a thousand of them show in its size (and to a leak checker).
TEST_F(LibyangOperation, TheInputHandleIsFreedOnSuccessAndOnFailure) {
    LogCapture log{0};
    const auto both = [this] {
        EXPECT_TRUE(Tree{zam_lyd_parse_op(ctx(), R"({"sample:run":{"speed":3}})", LYD_JSON, LYD_TYPE_RPC_YANG)});
        EXPECT_FALSE(zam_lyd_parse_op(ctx(), R"({"sample:run":{"speed":"x"}})", LYD_JSON, LYD_TYPE_RPC_YANG));
    };
    both();
    const size_t before = mallinfo2().uordblks;
    for (int i = 0; i < 1000; ++i)
        both();
    EXPECT_LT(mallinfo2().uordblks, before + 1000 * sizeof(void *));
}

// yang-data

constexpr const char *template_module = R"(
module templates {
    yang-version 1.1;
    namespace "urn:templates";
    prefix t;
    import ietf-restconf { prefix rc; }
    extension other-data { argument name; }
    t:other-data "fault";
    rc:yang-data "first" { container first { leaf a { type string; } } }
    rc:yang-data "fault" {
        container fault { leaf code { type uint8; mandatory true; } leaf text { type string; } }
    }
}
)";

class LibyangTemplate : public YangTest {
protected:
    void SetUp() override {
        const std::string restconf = std::string{ZAMC_SOURCE_DIR} + "/yang/ietf-restconf.yang";
        ASSERT_TRUE(zam_lys_parse_path(ctx_.get(), restconf.c_str(), LYS_IN_YANG));
        ASSERT_TRUE(zam_lys_parse_mem(ctx_.get(), template_module, LYS_IN_YANG));
    }

    lyd_node *parse(const char *text, const char *module, const char *name, uint32_t options = LYD_PARSE_STRICT,
                    uint32_t validate = LYD_VALIDATE_PRESENT, LYD_FORMAT format = LYD_JSON) const {
        const Input in{zam_ly_in_new_memory(text)};
        return zam_lyd_parse_ext_data(ctx_.get(), module, in.get(), format, options, validate, name);
    }

    Context ctx_{zam_ly_ctx_new(nullptr, LY_CTX_NO_YANGLIBRARY)};
};

TEST_F(LibyangTemplate, TheTemplateIsFoundByExtensionAndArgument) {
    const Tree tree{parse(R"({"templates:fault":{"code":4}})", "templates", "fault")};
    ASSERT_TRUE(tree);
    EXPECT_EQ(print_json(tree.get()), R"({"templates:fault":{"code":4}})");
}

TEST_F(LibyangTemplate, XmlIsReadToo) {
    const Tree tree{parse(R"(<fault xmlns="urn:templates"><code>4</code></fault>)", "templates", "fault",
                          LYD_PARSE_STRICT, LYD_VALIDATE_PRESENT, LYD_XML)};
    ASSERT_TRUE(tree);
    EXPECT_STREQ(lyd_get_value(lyd_child(tree.get())), "4");
}

TEST_F(LibyangTemplate, AMissingModuleIsNamed) {
    LogCapture log{3};
    EXPECT_FALSE(parse("{}", "no-such-module", "fault"));
    EXPECT_EQ(log.count(3, "[libyang]Get module(no-such-module) for parse ext data unsuccessful."), 1);
    EXPECT_FALSE(parse("{}", nullptr, "fault"));
    EXPECT_EQ(log.count(3, "[libyang]Get module((null)) for parse ext data unsuccessful."), 1);
}

TEST_F(LibyangTemplate, AModuleWithoutThatTemplateFailsThroughLibyang) {
    LogCapture log;
    EXPECT_FALSE(parse(R"({"templates:fault":{"code":4}})", "templates", "no-such-template"));
    EXPECT_EQ(log.count(3, "[libyang]Parse ext data unsuccessful."), 1);
    EXPECT_FALSE(log.mentions("for parse ext data unsuccessful"));
}

TEST_F(LibyangTemplate, TheNameIsComparedExactly) {
    LogCapture log;
    for (const char *name : {"Fault", "faul", "fault ", ""}) {
        log.clear();
        EXPECT_FALSE(parse(R"({"templates:fault":{"code":4}})", "templates", name)) << name;
        EXPECT_EQ(log.count(3, "[libyang]Parse ext data unsuccessful."), 1) << name;
    }
}

TEST_F(LibyangTemplate, NullArgumentsFail) {
    LogCapture log;
    EXPECT_FALSE(parse(R"({"templates:fault":{"code":4}})", "templates", nullptr));
    EXPECT_FALSE(zam_lyd_parse_ext_data(ctx_.get(), "templates", nullptr, LYD_JSON, 0, 0, "fault"));
    EXPECT_EQ(log.count(3, "[libyang]Parse ext data unsuccessful."), 2);
    const Input in{zam_ly_in_new_memory("{}")};
    EXPECT_FALSE(zam_lyd_parse_ext_data(nullptr, "templates", in.get(), LYD_JSON, 0, 0, "fault"));
    EXPECT_EQ(log.count(3, "[libyang]Get module(templates) for parse ext data unsuccessful."), 1);
}

TEST_F(LibyangTemplate, ATextThatDoesNotParseLeavesNoTree) {
    LogCapture log;
    EXPECT_FALSE(parse(R"({"templates:fault":{"text":"x","code":400}})", "templates", "fault"));
    EXPECT_EQ(log.count(3, "[libyang]Parse ext data unsuccessful."), 1);
}

TEST_F(LibyangTemplate, SeveralTopNodesAreParsedInTheirOrder) {
    const char *const text =
        R"(<fault xmlns="urn:templates"><code>4</code></fault><fault xmlns="urn:templates"><code>5</code></fault>)";
    const Tree tree{parse(text, "templates", "fault", LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0, LYD_XML)};
    ASSERT_TRUE(tree);
    ASSERT_TRUE(tree->next);
    EXPECT_STREQ(lyd_get_value(lyd_child(tree.get())), "4");
    EXPECT_STREQ(lyd_get_value(lyd_child(tree->next)), "5");
}

TEST_F(LibyangTemplate, SeveralTopNodesDoNotValidateButReturn) {
    const char *const text =
        R"(<fault xmlns="urn:templates"><code>4</code></fault><fault xmlns="urn:templates"><code>5</code></fault>)";
    LogCapture log;
    EXPECT_FALSE(parse(text, "templates", "fault", LYD_PARSE_STRICT, LYD_VALIDATE_PRESENT, LYD_XML));
    EXPECT_EQ(log.count(3, "[libyang]Parse ext data unsuccessful."), 1);
}

} // namespace
