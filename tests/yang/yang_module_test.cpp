// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Contexts and modules of the libyang access layer.
#include <zamc/yang_module.h>

#include <set>

#include "support/files.h"
#include "yang/yang_module_fixture.h"

namespace {

using namespace zam::test;
using namespace zam::test::layer;
using testing::IsEmpty;
using testing::StrEq;

constexpr uint16_t bare = LY_CTX_NO_YANGLIBRARY;
constexpr uint16_t explicit_compile = LY_CTX_NO_YANGLIBRARY | LY_CTX_ALL_IMPLEMENTED | LY_CTX_EXPLICIT_COMPILE;
constexpr const char *tiny_module = "module tiny { namespace 'urn:tiny'; prefix t; leaf l { type string; } }";
// Parses, but its leafref leads nowhere.
constexpr const char *dangling_module =
    "module dangling { namespace 'urn:dangling'; prefix d; leaf l { type leafref { path '/d:none'; } } }";

using LibyangContext = YangTest;
using LibyangSchema = SampleTest;

TEST_F(LibyangContext, NewWithoutADirectoryGivesAContext) {
    LogCapture log;
    const Context ctx{zam_ly_ctx_new(nullptr, 0)};
    EXPECT_TRUE(ctx);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LibyangContext, NewSearchesTheGivenDirectory) {
    const TempDir dir;
    const Context ctx{zam_ly_ctx_new(dir.path().c_str(), 0)};
    ASSERT_TRUE(ctx);
    EXPECT_THAT(ly_ctx_get_searchdirs(ctx.get())[0], StrEq(dir.path()));
}

TEST_F(LibyangContext, NewForcesNoOptionOfItsOwn) {
    const Context plain{zam_ly_ctx_new(nullptr, 0)};
    const Context chosen{zam_ly_ctx_new(nullptr, 133)};
    EXPECT_EQ(ly_ctx_get_options(plain.get()), 0);
    EXPECT_EQ(ly_ctx_get_options(chosen.get()), 133);
    EXPECT_TRUE(ly_ctx_get_module_implemented(plain.get(), "ietf-yang-library"));
    EXPECT_FALSE(ly_ctx_get_module_implemented(chosen.get(), "ietf-yang-library"));
}

TEST_F(LibyangContext, NewWithAMissingDirectoryFails) {
    LogCapture log;
    EXPECT_FALSE(zam_ly_ctx_new("/no/such/directory", 0));
    EXPECT_EQ(log.count(3, "[libyang]New ctx unsuccessful, dir : /no/such/directory, ret : 3."), 1);
}

TEST_F(LibyangContext, SetSearchdirAddsADirectory) {
    const TempDir dir;
    const Context ctx{zam_ly_ctx_new(nullptr, bare)};
    LogCapture log;
    EXPECT_EQ(zam_ly_ctx_set_searchdir(ctx.get(), dir.path().c_str()), LY_SUCCESS);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_THAT(ly_ctx_get_searchdirs(ctx.get())[0], StrEq(dir.path()));
}

TEST_F(LibyangContext, SetSearchdirRefusesADirectoryThatIsSetAlready) {
    const TempDir dir;
    const Context ctx{zam_ly_ctx_new(dir.path().c_str(), bare)};
    LogCapture log;
    EXPECT_EQ(zam_ly_ctx_set_searchdir(ctx.get(), dir.path().c_str()), LY_EEXIST);
    EXPECT_EQ(log.count(3, "[libyang]Set ctx searchdir unsuccessful, dir : " + dir.path() + ", ret : 4."), 1);
}

TEST_F(LibyangContext, SetSearchdirRefusesAMissingDirectory) {
    const Context ctx{zam_ly_ctx_new(nullptr, bare)};
    LogCapture log;
    EXPECT_EQ(zam_ly_ctx_set_searchdir(ctx.get(), "/no/such/directory"), LY_EINVAL);
    EXPECT_EQ(log.count(3, "[libyang]Set ctx searchdir unsuccessful, dir : /no/such/directory, ret : 3."), 1);
}

TEST_F(LibyangContext, SetSearchdirRefusesAFile) {
    const TempDir dir;
    dir.write("file", "text");
    const Context ctx{zam_ly_ctx_new(nullptr, bare)};
    LogCapture log;
    EXPECT_EQ(zam_ly_ctx_set_searchdir(ctx.get(), dir.path("file").c_str()), LY_EINVAL);
    EXPECT_EQ(log.count(3, "[libyang]Set ctx searchdir unsuccessful, dir : " + dir.path("file") + ", ret : 3."), 1);
}

TEST_F(LibyangContext, YangLibraryIsIdentifiedByTheChangeCount) {
    const Context ctx{zam_ly_ctx_new(nullptr, 0)};
    ASSERT_TRUE(zam_lys_parse_mem(ctx.get(), tiny_module, LYS_IN_YANG));
    LogCapture log;
    const Tree tree{zam_ly_ctx_get_yanglib_data(ctx.get())};
    ASSERT_TRUE(tree);
    lyd_node *id = nullptr;
    ASSERT_EQ(lyd_find_path(tree.get(), "/ietf-yang-library:yang-library/content-id", 0, &id), LY_SUCCESS);
    EXPECT_EQ(lyd_get_value(id), std::to_string(ly_ctx_get_change_count(ctx.get())));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LibyangContext, YangLibraryNeedsItsModule) {
    const Context ctx{zam_ly_ctx_new(nullptr, bare)};
    LogCapture log;
    EXPECT_FALSE(zam_ly_ctx_get_yanglib_data(ctx.get()));
    EXPECT_EQ(log.count(3, "[libyang]Get yang-library unsuccessful, ret : 3."), 1);
}

TEST_F(LibyangContext, CompileMakesParsedModulesUsable) {
    const Context ctx{zam_ly_ctx_new(nullptr, explicit_compile)};
    const lys_module *const module = zam_lys_parse_mem(ctx.get(), tiny_module, LYS_IN_YANG);
    ASSERT_TRUE(module);
    ASSERT_FALSE(module->compiled);
    LogCapture log;
    EXPECT_EQ(zam_ly_ctx_compile(ctx.get()), LY_SUCCESS);
    EXPECT_TRUE(module->compiled);
    EXPECT_EQ(log.count(3, "[libyang]Compile ly ctx unsuccessful, ret = 0."), 0);
}

TEST_F(LibyangContext, CompileFailsWithAModuleThatCannotBeCompiled) {
    const Context ctx{zam_ly_ctx_new(nullptr, explicit_compile)};
    ASSERT_TRUE(zam_lys_parse_mem(ctx.get(), dangling_module, LYS_IN_YANG));
    LogCapture log;
    EXPECT_EQ(zam_ly_ctx_compile(ctx.get()), LY_EVALID);
    EXPECT_EQ(log.count(3, "[libyang]Compile ly ctx unsuccessful, ret = 7."), 1);
}

TEST_F(LibyangContext, AFailedCompileTakesOutWhatWasParsedSinceTheLast) {
    const Context ctx{zam_ly_ctx_new(nullptr, explicit_compile)};
    ASSERT_TRUE(zam_lys_parse_mem(ctx.get(), tiny_module, LYS_IN_YANG));
    ASSERT_EQ(zam_ly_ctx_compile(ctx.get()), LY_SUCCESS);
    ASSERT_TRUE(zam_lys_parse_mem(ctx.get(), dangling_module, LYS_IN_YANG));
    ASSERT_NE(zam_ly_ctx_compile(ctx.get()), LY_SUCCESS);
    EXPECT_EQ(zam_ly_ctx_compile(ctx.get()), LY_SUCCESS);
    EXPECT_TRUE(zam_ly_ctx_get_module(ctx.get(), "tiny"));
    EXPECT_FALSE(zam_ly_ctx_get_module(ctx.get(), "dangling"));
}

struct Asked {
    int times = 0;
    std::string module;
};

LY_ERR serve_tiny(const char *module, const char *, const char *, const char *, void *user_data, LYS_INFORMAT *format,
                  const char **text, ly_module_imp_data_free_clb *release) {
    Asked *const asked = static_cast<Asked *>(user_data);
    ++asked->times;
    asked->module = module;
    *format = LYS_IN_YANG;
    *text = tiny_module;
    *release = nullptr;
    return LY_SUCCESS;
}

constexpr const char *importing_module =
    "module importing { namespace 'urn:importing'; prefix i; import tiny { prefix t; } }";

TEST_F(LibyangContext, TheImportCallbackIsAskedWithItsData) {
    const Context ctx{zam_ly_ctx_new(nullptr, bare)};
    Asked asked;
    zam_ly_ctx_set_module_imp_clb(ctx.get(), serve_tiny, &asked);
    EXPECT_TRUE(zam_lys_parse_mem(ctx.get(), importing_module, LYS_IN_YANG));
    EXPECT_EQ(asked.times, 1);
    EXPECT_EQ(asked.module, "tiny");
}

TEST_F(LibyangContext, ANullImportCallbackRemovesTheOneBefore) {
    const Context ctx{zam_ly_ctx_new(nullptr, bare)};
    Asked asked;
    zam_ly_ctx_set_module_imp_clb(ctx.get(), serve_tiny, &asked);
    zam_ly_ctx_set_module_imp_clb(ctx.get(), nullptr, nullptr);
    LogCapture log;
    EXPECT_FALSE(zam_lys_parse_mem(ctx.get(), importing_module, LYS_IN_YANG));
    EXPECT_EQ(asked.times, 0);
}

TEST_F(LibyangContext, IterationGivesEveryModuleAndThenNull) {
    const Context ctx{zam_ly_ctx_new(nullptr, bare)};
    ASSERT_TRUE(zam_lys_parse_mem(ctx.get(), tiny_module, LYS_IN_YANG));
    LogCapture log;
    std::set<std::string> names;
    uint32_t index = 0;
    while (const lys_module *module = zam_ly_ctx_get_module_iter(ctx.get(), &index)) {
        EXPECT_FALSE(log.mentions("The last module was already returned."));
        EXPECT_TRUE(names.insert(module->name).second) << module->name;
    }
    EXPECT_TRUE(names.contains("tiny"));
    EXPECT_TRUE(names.contains("ietf-yang-types"));
    EXPECT_EQ(log.count(7, "[libyang]The last module was already returned."), 1);
}

TEST_F(LibyangContext, GetModuleWithANullNameGivesNullWithoutAnyLogLine) {
    const Context ctx{zam_ly_ctx_new(nullptr, bare)};
    LogCapture log;
    EXPECT_FALSE(zam_ly_ctx_get_module(ctx.get(), nullptr));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LibyangContext, GetModuleFindsAnImplementedModuleSilently) {
    const Context ctx{zam_ly_ctx_new(nullptr, bare)};
    const lys_module *const module = zam_lys_parse_mem(ctx.get(), tiny_module, LYS_IN_YANG);
    LogCapture log;
    EXPECT_EQ(zam_ly_ctx_get_module(ctx.get(), "tiny"), module);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LibyangContext, GetModuleLogsAMissingOneAtDebugLevelOnly) {
    const Context ctx{zam_ly_ctx_new(nullptr, bare)};
    LogCapture log;
    EXPECT_FALSE(zam_ly_ctx_get_module(ctx.get(), "tiny"));
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count(7, "[libyang]Get module unsuccessful, name : tiny."), 1);
}

TEST_F(LibyangContext, GetModulePassesOverOneThatIsOnlyImported) {
    const Context ctx{zam_ly_ctx_new(nullptr, bare)};
    ASSERT_TRUE(ly_ctx_get_module_latest(ctx.get(), "ietf-inet-types"));
    EXPECT_FALSE(zam_ly_ctx_get_module(ctx.get(), "ietf-inet-types"));
}

TEST_F(LibyangContext, ParseMemGivesTheModule) {
    const Context ctx{zam_ly_ctx_new(nullptr, bare)};
    LogCapture log;
    const lys_module *const module = zam_lys_parse_mem(ctx.get(), tiny_module, LYS_IN_YANG);
    ASSERT_TRUE(module);
    EXPECT_STREQ(module->name, "tiny");
    EXPECT_FALSE(log.mentions("unsuccessful"));
}

TEST_F(LibyangContext, ParseMemReadsYin) {
    const Context ctx{zam_ly_ctx_new(nullptr, bare)};
    EXPECT_TRUE(zam_lys_parse_mem(ctx.get(),
                                  "<module name='tiny' xmlns='urn:ietf:params:xml:ns:yang:yin:1' xmlns:t='urn:tiny'>"
                                  "<namespace uri='urn:tiny'/><prefix value='t'/></module>",
                                  LYS_IN_YIN));
}

TEST_F(LibyangContext, ParseMemNamesTheFormatOfABadText) {
    const Context ctx{zam_ly_ctx_new(nullptr, bare)};
    LogCapture log;
    EXPECT_FALSE(zam_lys_parse_mem(ctx.get(), "module {", LYS_IN_YANG));
    EXPECT_EQ(log.count(3, "[libyang]Parse mem unsuccessful, format : 1."), 1);
    EXPECT_FALSE(zam_lys_parse_mem(ctx.get(), tiny_module, LYS_IN_YIN));
    EXPECT_EQ(log.count(3, "[libyang]Parse mem unsuccessful, format : 3."), 1);
}

TEST_F(LibyangContext, ParsePathGivesTheModule) {
    const TempDir dir;
    dir.write("tiny.yang", tiny_module);
    const Context ctx{zam_ly_ctx_new(nullptr, bare)};
    LogCapture log;
    const lys_module *const module = zam_lys_parse_path(ctx.get(), dir.path("tiny.yang").c_str(), LYS_IN_YANG);
    ASSERT_TRUE(module);
    EXPECT_STREQ(module->name, "tiny");
    EXPECT_FALSE(log.mentions("unsuccessful"));
}

TEST_F(LibyangContext, ParsePathNamesTheFileThatFails) {
    const DescriptorCheck descriptors;
    const TempDir dir;
    dir.write("bad.yang", "module {");
    const std::string path = dir.path("bad.yang");
    const Context ctx{zam_ly_ctx_new(nullptr, bare)};
    LogCapture log;
    EXPECT_FALSE(zam_lys_parse_path(ctx.get(), path.c_str(), LYS_IN_YANG));
    EXPECT_EQ(log.count(3, "[libyang]Parse path unsuccessful, path : " + path + ", format : 1."), 1);
    EXPECT_FALSE(zam_lys_parse_path(ctx.get(), "/no/such/file", LYS_IN_YIN));
    EXPECT_EQ(log.count(3, "[libyang]Parse path unsuccessful, path : /no/such/file, format : 3."), 1);
}

TEST_F(LibyangContext, NullArgumentsFailAndDoNotCrash) {
    const Context ctx{zam_ly_ctx_new(nullptr, bare)};
    uint32_t index = 0;
    LogCapture log;
    EXPECT_EQ(zam_ly_ctx_set_searchdir(nullptr, "/tmp"), LY_EINVAL);
    EXPECT_FALSE(zam_ly_ctx_get_yanglib_data(nullptr));
    zam_ly_ctx_destroy(nullptr);
    EXPECT_EQ(zam_ly_ctx_compile(nullptr), LY_EINVAL);
    EXPECT_EQ(log.count(3, "[libyang]Compile ly ctx unsuccessful, ret = 3."), 1);
    zam_ly_ctx_set_module_imp_clb(nullptr, serve_tiny, nullptr);
    EXPECT_FALSE(zam_ly_ctx_get_module_iter(nullptr, &index));
    EXPECT_FALSE(zam_ly_ctx_get_module_iter(ctx.get(), nullptr));
    EXPECT_FALSE(zam_ly_ctx_get_module(nullptr, "tiny"));
    EXPECT_FALSE(zam_lys_parse_mem(nullptr, tiny_module, LYS_IN_YANG));
    EXPECT_FALSE(zam_lys_parse_mem(ctx.get(), nullptr, LYS_IN_YANG));
    EXPECT_FALSE(zam_lys_parse_path(nullptr, "/tmp/tiny.yang", LYS_IN_YANG));
    EXPECT_FALSE(zam_lys_parse_path(ctx.get(), nullptr, LYS_IN_YANG));
    EXPECT_EQ(zam_ly_ctx_set_searchdir(ctx.get(), nullptr), LY_SUCCESS) << "libyang takes this for nothing to add";
}

TEST_F(LibyangSchema, SetImplementedEnablesTheNamedFeatures) {
    ASSERT_EQ(lys_feature_value(module(), "extra"), LY_ENOT);
    const char *features[] = {"extra", nullptr};
    LogCapture log;
    EXPECT_EQ(zam_lys_set_implemented(module(), features), LY_SUCCESS);
    EXPECT_EQ(lys_feature_value(module(), "extra"), LY_SUCCESS);
    EXPECT_FALSE(log.mentions("Set implemented unsuccessful"));
}

TEST_F(LibyangSchema, SetImplementedRefusesAnUnknownFeature) {
    const char *features[] = {"no-such-feature", nullptr};
    LogCapture log;
    const LY_ERR result = zam_lys_set_implemented(module(), features);
    EXPECT_NE(result, LY_SUCCESS);
    EXPECT_EQ(log.count(3, "[libyang]Set implemented unsuccessful, ret = " + std::to_string(result) + "."), 1);
}

TEST_F(LibyangSchema, SetImplementedRefusesNull) {
    const char *features[] = {"*", nullptr};
    LogCapture log;
    EXPECT_EQ(zam_lys_set_implemented(nullptr, features), LY_EINVAL);
    EXPECT_EQ(log.count(3, "[libyang]Set implemented unsuccessful, ret = 3."), 1);
}

TEST_F(LibyangSchema, GetnextWalksOverTheTopNodesOfAModule) {
    LogCapture log;
    std::string names;
    for (const lysc_node *node = nullptr; (node = zam_lys_getnext(node, nullptr, module(), 0));)
        names += std::string{node->name} + " ";
    EXPECT_EQ(names, "top second run ");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LibyangSchema, GetnextWalksOverTheChildrenOfAParentWhateverTheModule) {
    const lysc_node *const parent = schema("/sample:second");
    const lysc_node *const child = zam_lys_getnext(nullptr, parent, nullptr, 0);
    ASSERT_TRUE(child);
    EXPECT_STREQ(child->name, "note");
    EXPECT_FALSE(zam_lys_getnext(child, parent, module(), 0));
}

TEST_F(LibyangSchema, GetnextPassesItsOptionsOn) {
    const lysc_node *const top = schema("/sample:top");
    std::string names;
    for (const lysc_node *node = nullptr; (node = zam_lys_getnext(node, top, module(), LYS_GETNEXT_WITHCHOICE));)
        names += std::string{node->name} + " ";
    EXPECT_EQ(names, "note size checked item empty blob either ");
}

TEST_F(LibyangSchema, GetnextGivesNothingForNoModuleAndNoParent) {
    LogCapture log;
    EXPECT_FALSE(zam_lys_getnext(nullptr, nullptr, nullptr, 0));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LibyangSchema, GetnextGivesNothingForAModuleThatIsNotCompiled) {
    const Context ctx{zam_ly_ctx_new(nullptr, explicit_compile)};
    const lys_module *const waiting = zam_lys_parse_mem(ctx.get(), tiny_module, LYS_IN_YANG);
    ASSERT_TRUE(waiting);
    LogCapture log;
    EXPECT_FALSE(zam_lys_getnext(nullptr, nullptr, waiting, 0));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LibyangSchema, DataPathLeavesOutWhatDataDoesNotShow) {
    const lysc_node *const speed = schema("/sample:run/speed");
    ASSERT_TRUE(speed);
    const Text data{zam_lys_data_path(speed, LYSC_PATH_DATA)};
    const Text full{zam_lys_data_path(speed, LYSC_PATH_LOG)};
    EXPECT_STREQ(data.get(), "/sample:run/speed");
    EXPECT_STREQ(full.get(), "/sample:run/input/speed");
}

TEST_F(LibyangSchema, DataPathOfNullFails) {
    LogCapture log;
    EXPECT_FALSE(zam_lys_data_path(nullptr, LYSC_PATH_DATA));
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count(3, "[libyang]Get datapath by schema node unsuccessful."), 1);
}

} // namespace
