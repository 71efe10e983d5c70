// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Building the schema context that all clients of a process share.
#include "client/client_ctx_internal.h"

#include <array>
#include <atomic>
#include <string_view>
#include <thread>
#include <vector>

#include <dlfcn.h>

#include "client/client_ctx_fixture.h"
#include "support/files.h"
#include "support/heap.h"

namespace {

// Which call of a libyang function fails next, counted down; 0 is none.
std::atomic<int> fail_ctx_new = 0;
std::atomic<int> fail_parse = 0;
std::atomic<int> fail_compile = 0;
std::atomic<int> contexts_made = 0;

bool now(std::atomic<int> &countdown) {
    return countdown > 0 && --countdown == 0;
}

template <typename Function>
Function next_of(Function, const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

// These stand before libyang's own in this program.
extern "C" {

LY_ERR ly_ctx_new(const char *dir, uint16_t options, ly_ctx **ctx) {
    static const auto real = next_of(&ly_ctx_new, "ly_ctx_new");
    ++contexts_made;
    return now(fail_ctx_new) ? LY_EMEM : real(dir, options, ctx);
}

LY_ERR lys_parse_mem(ly_ctx *ctx, const char *text, LYS_INFORMAT format, lys_module **module) {
    static const auto real = next_of(&lys_parse_mem, "lys_parse_mem");
    return now(fail_parse) ? LY_EVALID : real(ctx, text, format, module);
}

LY_ERR ly_ctx_compile(ly_ctx *ctx) {
    static const auto real = next_of(&ly_ctx_compile, "ly_ctx_compile");
    return now(fail_compile) ? LY_EINT : real(ctx);
}

} // extern "C"

namespace {

using namespace zam::test;
using testing::IsEmpty;
using zam::client::_build_ctx;
using zam::client::_builtin_modules;
using zam::client::_clients_ctx;
using zam::client::builtin_module;

constexpr std::string_view building = "Init client global yang context.";

using SharedContext = FreshProcess;

TEST_F(SharedContext, IsAbsentBeforeTheFirstInitialisation) {
    EXPECT_EQ(zam_clients_schema_ctx(), nullptr);
    EXPECT_EQ(zam_module_load(), 0);
}

TEST_F(SharedContext, InitializeBuildsIt) {
    const DescriptorCheck descriptors;
    LogCapture log;
    EXPECT_EQ(zamc_initialize(), 0);
    ASSERT_TRUE(zam_clients_schema_ctx());
    EXPECT_EQ(zam_module_load(), 0);
    EXPECT_EQ(log.count(6, building), 1);
    for (const auto &line : log.lines())
        EXPECT_GT(line.level, 3) << line.text;
}

TEST_F(SharedContext, AccessorsReadTheOneRecord) {
    ASSERT_EQ(zamc_initialize(), 0);
    EXPECT_EQ(_clients_ctx()->context, zam_clients_schema_ctx());
    _clients_ctx()->modules_loaded = 1;
    EXPECT_EQ(zam_module_load(), 1);
}

TEST_F(SharedContext, HasTheSevenModulesCompiled) {
    ASSERT_EQ(zamc_initialize(), 0);
    for (const char *name : {"ietf-restconf", "ietf-netconf", "ietf-yang-patch", "ietf-datastores", "ietf-yang-library",
                             "orvel-zam-server", "orvel-zam-client"})
        EXPECT_TRUE(usable(name)) << name;
}

TEST_F(SharedContext, ImplementsAllLeavesTheYangLibraryToUsAndCompilesOnlyWhenTold) {
    ASSERT_EQ(zamc_initialize(), 0);
    EXPECT_EQ(ly_ctx_get_options(ctx()), 133);
    EXPECT_EQ(ly_ctx_get_options(ctx()), LY_CTX_ALL_IMPLEMENTED | LY_CTX_NO_YANGLIBRARY | LY_CTX_EXPLICIT_COMPILE);
    EXPECT_FALSE(*ly_ctx_get_searchdirs(ctx()));
}

TEST_F(SharedContext, KeepsNoImportCallback) {
    ASSERT_EQ(zamc_initialize(), 0);
    void *data = nullptr;
    EXPECT_EQ(ly_ctx_get_module_imp_clb(ctx(), &data), nullptr);
}

TEST_F(SharedContext, DescribesItself) {
    ASSERT_EQ(zamc_initialize(), 0);
    lyd_node *const tree = zam_ly_ctx_get_yanglib_data(ctx());
    ASSERT_TRUE(tree);
    lyd_node *id = nullptr;
    ASSERT_EQ(lyd_find_path(tree, "/ietf-yang-library:yang-library/content-id", 0, &id), LY_SUCCESS);
    EXPECT_EQ(lyd_get_value(id), std::to_string(ly_ctx_get_change_count(ctx())));
    lyd_free_all(tree);
}

TEST_F(SharedContext, InstallsTheLogHandlerWithoutPaths) {
    zam_ly_set_log_clb(nullptr, 1);
    ASSERT_EQ(zamc_initialize(), 0);
    EXPECT_EQ(ly_get_log_clb(), zam_libyang_log);
    LogCapture log;
    EXPECT_FALSE(zam_lyd_parse_op(ctx(), R"({"orvel-zam-server:pull":{"depth":0}})", LYD_JSON, LYD_TYPE_RPC_YANG));
    EXPECT_TRUE(log.mentions("libyang[0]: "));
    EXPECT_TRUE(zam_ly_errmsg(ctx()));
    EXPECT_FALSE(zam_ly_errpath(ctx()));
}

TEST_F(SharedContext, ASecondInitializeOnlyInstallsTheLogHandlerAgain) {
    ASSERT_EQ(zamc_initialize(), 0);
    const ly_ctx *const before = ctx();
    const uint16_t changes = ly_ctx_get_change_count(ctx());
    contexts_made = 0;
    zam_ly_set_log_clb(nullptr, 0);
    LogCapture log;
    EXPECT_EQ(zamc_initialize(), 0);
    EXPECT_EQ(ctx(), before);
    EXPECT_EQ(ly_ctx_get_change_count(ctx()), changes);
    EXPECT_EQ(contexts_made, 0);
    EXPECT_EQ(ly_get_log_clb(), zam_libyang_log);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count(6, building), 1);
}

TEST_F(SharedContext, FinalizeLeavesEverythingAsItIs) {
    ASSERT_EQ(zamc_initialize(), 0);
    _clients_ctx()->modules_loaded = 1;
    const ly_ctx *const before = ctx();
    LogCapture log;
    zamc_finalize();
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(ctx(), before);
    EXPECT_EQ(zam_module_load(), 1);
    contexts_made = 0;
    EXPECT_EQ(zamc_initialize(), 0);
    EXPECT_EQ(ctx(), before);
    EXPECT_EQ(contexts_made, 0);
}

TEST_F(SharedContext, FinalizeBeforeInitialisationIsHarmless) {
    zamc_finalize();
    EXPECT_EQ(ctx(), nullptr);
}

TEST_F(SharedContext, WithoutAContextOfLibyangInitializeFails) {
    LogCapture log;
    fail_ctx_new = 1;
    EXPECT_EQ(zamc_initialize(), -1);
    EXPECT_EQ(ctx(), nullptr);
    EXPECT_EQ(log.count(6, building), 1);
    EXPECT_EQ(log.count(3, "[libyang]New ctx unsuccessful, dir : (null), ret : 1."), 1);
    EXPECT_EQ(log.count(3, "Allocate memory for client yang-ctxt not successful."), 1);
}

TEST_F(SharedContext, AModuleThatDoesNotParseIsNamedAndEndsTheBuild) {
    int position = 0;
    for (const builtin_module &builtin : _builtin_modules()) {
        ++position;
        LogCapture log;
        fail_parse = position;
        EXPECT_EQ(zamc_initialize(), -1);
        EXPECT_EQ(ctx(), nullptr);
        EXPECT_EQ(log.count(3, "Parse " + std::string{builtin.file_name} + " not successful."), 1);
        EXPECT_EQ(log.count(3, "[libyang]Parse mem unsuccessful, format : 1."), 1) << "the first failure ends it";
    }
    EXPECT_EQ(position, 7);
}

TEST_F(SharedContext, AFailedCompilationHasNoMessageOfItsOwn) {
    LogCapture log;
    fail_compile = 1;
    EXPECT_EQ(zamc_initialize(), -1);
    EXPECT_EQ(ctx(), nullptr);
    ASSERT_EQ(log.lines().size(), 2u);
    EXPECT_EQ(log.count(6, building), 1);
    EXPECT_EQ(log.count(3, "[libyang]Compile ly ctx unsuccessful, ret = " + std::to_string(LY_EINT) + "."), 1);
}

TEST_F(SharedContext, AfterAFailedBuildTheNextInitializeTriesAgain) {
    {
        LogCapture log;
        fail_parse = 3;
        ASSERT_EQ(zamc_initialize(), -1);
        ASSERT_EQ(zam_clients_schema_ctx(), nullptr);
    }
    EXPECT_EQ(zamc_initialize(), 0);
    EXPECT_TRUE(usable("orvel-zam-client"));
}

TEST_F(SharedContext, AMutexThatCannotBeLockedFailsAtTheHighestLevel) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
    ASSERT_EQ(pthread_mutex_destroy(&g_client_ctx_mutex), 0);
    ASSERT_EQ(pthread_mutex_init(&g_client_ctx_mutex, &attributes), 0);
    pthread_mutexattr_destroy(&attributes);
    pthread_mutex_lock(&g_client_ctx_mutex); // a second lock of this thread is an error now
    {
        LogCapture log;
        EXPECT_EQ(zamc_initialize(), -1);
        EXPECT_EQ(ctx(), nullptr);
        ASSERT_EQ(log.lines().size(), 1u);
        EXPECT_EQ(log.count(0, "Lock unsuccessful when initialize."), 1);
    }
    pthread_mutex_unlock(&g_client_ctx_mutex);
    pthread_mutex_destroy(&g_client_ctx_mutex);
    g_client_ctx_mutex = PTHREAD_MUTEX_INITIALIZER;
    EXPECT_EQ(zamc_initialize(), 0);
}

TEST_F(SharedContext, TheMutexIsFreeAfterSuccessAndFailure) {
    ASSERT_EQ(zamc_initialize(), 0);
    ASSERT_EQ(pthread_mutex_trylock(&g_client_ctx_mutex), 0);
    pthread_mutex_unlock(&g_client_ctx_mutex);
}

TEST_F(SharedContext, TheMutexIsFreeAfterAFailure) {
    LogCapture log;
    fail_ctx_new = 1;
    ASSERT_EQ(zamc_initialize(), -1);
    ASSERT_EQ(pthread_mutex_trylock(&g_client_ctx_mutex), 0);
    pthread_mutex_unlock(&g_client_ctx_mutex);
}

TEST_F(SharedContext, IsBuiltOnceByThreadsThatStartTogether) {
    contexts_made = 0;
    std::atomic<int> ready = 0;
    std::atomic<int> failed = 0;
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            ++ready;
            while (ready < 4)
                std::this_thread::yield();
            if (zamc_initialize() != 0 || !zam_clients_schema_ctx()) ++failed;
        });
    }
    threads.clear();
    EXPECT_EQ(failed, 0);
    EXPECT_EQ(contexts_made, 1);
}

TEST_F(SharedContext, NeedsNoMemoryOfTheHooks) {
    Heap heap;
    heap.fail_at(1, true);
    EXPECT_EQ(zamc_initialize(), 0);
    EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
}

// The table and the build from it

TEST(BuiltinModules, AreSevenInTheOrderOfTheirImports) {
    std::vector<std::string> names;
    for (const builtin_module &builtin : _builtin_modules()) {
        names.emplace_back(builtin.file_name);
        EXPECT_NE(std::string_view{builtin.text}.find("module "), std::string_view::npos);
    }
    EXPECT_THAT(names, testing::ElementsAre("ietf-restconf.yang", "ietf-netconf.yang", "ietf-yang-patch.yang",
                                            "ietf-datastores.yang", "ietf-yang-library.yang", "orvel-zam-server.yang",
                                            "orvel-zam-client.yang"));
}

TEST(BuiltinModules, EachNeedsOnlyThoseBeforeIt) {
    zam_ly_set_log_clb(zam_libyang_log, 0);
    for (size_t count = 1; count <= _builtin_modules().size(); ++count) {
        ly_ctx *const ctx = _build_ctx(_builtin_modules().first(count));
        EXPECT_TRUE(ctx) << count;
        zam_ly_ctx_destroy(ctx);
    }
}

TEST(BuiltinModules, ABadTextFailsTheBuildUnderItsName) {
    zam_ly_set_log_clb(zam_libyang_log, 0);
    const std::array<builtin_module, 2> table{
        {{"good.yang", "module good { namespace 'urn:good'; prefix g; }"}, {"bad.yang", "module bad {"}}};
    LogCapture log;
    EXPECT_FALSE(_build_ctx(table));
    EXPECT_EQ(log.count(3, "Parse bad.yang not successful."), 1);
    EXPECT_FALSE(log.mentions("good.yang"));
}

TEST(BuiltinModules, ATextThatDoesNotCompileFailsTheBuild) {
    zam_ly_set_log_clb(zam_libyang_log, 0);
    const std::array<builtin_module, 1> table{
        {{"dangling.yang",
          "module dangling { namespace 'urn:d'; prefix d; leaf l { type leafref { path '/d:x'; } } }"}}};
    LogCapture log;
    EXPECT_FALSE(_build_ctx(table));
    EXPECT_FALSE(log.mentions("Parse dangling.yang not successful."));
}

TEST(BuiltinModules, OnlyTheirOwnSubmoduleIsServed) {
    zam_ly_set_log_clb(zam_libyang_log, 0);
    const std::array<builtin_module, 1> table{
        {{"other.yang", "module other { namespace 'urn:o'; prefix o; include no-such-submodule; }"}}};
    LogCapture log;
    EXPECT_FALSE(_build_ctx(table));
    EXPECT_EQ(log.count(3, "Parse other.yang not successful."), 1);
}

} // namespace
