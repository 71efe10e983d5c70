// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Loading all module files of a directory.
#include "yang/yang_module_internal.h"

#include <atomic>
#include <thread>
#include <vector>

#include <unistd.h>

#include "support/heap.h"
#include "yang/yang_module_files.h"

namespace {

using namespace zam::test;
using namespace zam::test::layer;
using testing::HasSubstr;
using testing::IsEmpty;
using zam::yang::_load_files;

class ModuleDirectory : public ModuleFileTest {
protected:
    int32_t load() const { return zam_load_directory(ctx_.get(), dir_.path().c_str()); }
    int32_t pass(LYS_INFORMAT format) const { return _load_files(ctx_.get(), dir_.path().c_str(), format); }
    static std::string parsed(const char *name) {
        return "[_load_files] module_name : " + std::string{name} + " zam_lys_parse_mem end";
    }
};

// The lines of the loader itself, each with its newline.
std::string loader_lines(const LogCapture &log) {
    std::string text;
    for (const auto &line : log.lines()) {
        if (line.text.starts_with("[DEBUG] [_load_files] ")) text += line.text.substr(22);
    }
    return text;
}

TEST_F(ModuleDirectory, YangAndYinFilesAreLoadedAndCompiled) {
    dir_.write("a.yang", yang_text("a"));
    dir_.write("b.yin", yin_text("b"));
    dir_.write("notes.txt", "not a module");
    dir_.write("c.yang.bak", "not a module");
    const DescriptorCheck descriptors;
    LogCapture log;
    EXPECT_EQ(load(), 0);
    EXPECT_TRUE(compiled("a") && compiled("b"));
    EXPECT_FALSE(log.mentions("notes") || log.mentions("module_name : c"));
}

TEST_F(ModuleDirectory, EachStepIsLogged) {
    dir_.write("a.yang", yang_text("a"));
    LogCapture log;
    ASSERT_EQ(load(), 0);
    EXPECT_EQ(loader_lines(log), "module_name : a start\n"
                                 "module_name : a.yang zam_lys_parse_mem end\n"
                                 "module_name : a.yang loaded end, ret = 0\n");
    EXPECT_EQ(log.count(7, "[libyang]Get module unsuccessful, name : a."), 1);
    log.clear();
    ASSERT_EQ(load(), 0);
    EXPECT_EQ(loader_lines(log), "module_name : a start\nmodule_name : a is loaded\n");
}

TEST_F(ModuleDirectory, FilesAreTakenInTheOrderOfTheirNames) {
    for (const char *name : {"c", "a", "b"})
        dir_.write(name + std::string{".yang"}, yang_text(name));
    LogCapture log;
    ASSERT_EQ(load(), 0);
    const std::string lines = loader_lines(log);
    EXPECT_LT(lines.find("a start"), lines.find("b start"));
    EXPECT_LT(lines.find("b start"), lines.find("c start"));
}

TEST_F(ModuleDirectory, WithoutYangFilesTheContextIsStillCompiled) {
    ASSERT_TRUE(zam_lys_parse_mem(ctx_.get(), yang_text("waiting").c_str(), LYS_IN_YANG));
    ASSERT_FALSE(compiled("waiting"));
    LogCapture log;
    EXPECT_EQ(pass(LYS_IN_YANG), 0);
    EXPECT_TRUE(compiled("waiting"));
    EXPECT_EQ(loader_lines(log), "");
}

TEST_F(ModuleDirectory, WithoutFilesAContextThatDoesNotCompileFails) {
    ASSERT_TRUE(zam_lys_parse_mem(ctx_.get(), dangling_text("dangling").c_str(), LYS_IN_YANG));
    LogCapture log;
    EXPECT_EQ(pass(LYS_IN_YANG), -1);
    EXPECT_EQ(log.count(3, "[libyang]Compile ly ctx unsuccessful, ret = 7."), 1);
}

TEST_F(ModuleDirectory, ThatDoesNotExistFailsInBothPassesWithoutALine) {
    const DescriptorCheck descriptors;
    LogCapture log;
    EXPECT_EQ(_load_files(ctx_.get(), "/no/such/directory", LYS_IN_YANG), -1);
    EXPECT_EQ(_load_files(ctx_.get(), "/no/such/directory", LYS_IN_YIN), -1);
    EXPECT_EQ(zam_load_directory(ctx_.get(), "/no/such/directory"), -2);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ModuleDirectory, NullArgumentsFailAtOnce) {
    LogCapture log;
    EXPECT_EQ(zam_load_directory(nullptr, dir_.path().c_str()), -1);
    EXPECT_EQ(zam_load_directory(ctx_.get(), nullptr), -1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ModuleDirectory, AFileThatFailsIsTriedOnceAndWhatItTookOutIsLoadedAgain) {
    dir_.write("a.yang", yang_text("a"));
    dir_.write("b.yang", broken_text);
    dir_.write("c.yang", yang_text("c"));
    const DescriptorCheck descriptors;
    LogCapture log;
    EXPECT_EQ(load(), -1);
    EXPECT_EQ(log.count(3, "Parse file 'b.yang' unsuccessful."), 1);
    EXPECT_EQ(log.count(7, parsed("a.yang")), 2);
    EXPECT_EQ(log.count(7, parsed("c.yang")), 1);
    EXPECT_TRUE(compiled("a") && compiled("c"));
    EXPECT_EQ(loader_lines(log), "module_name : a start\n"
                                 "module_name : a.yang zam_lys_parse_mem end\n"
                                 "module_name : a.yang loaded end, ret = 0\n"
                                 "module_name : b start\n"
                                 "module_name : b.yang loaded end, ret = -1\n"
                                 "module_name : c start\n"
                                 "module_name : c.yang zam_lys_parse_mem end\n"
                                 "module_name : c.yang loaded end, ret = -1\n"
                                 "module_name : a start\n"
                                 "module_name : a.yang zam_lys_parse_mem end\n"
                                 "module_name : a.yang loaded end, ret = 0\n"
                                 "module_name : c start\n"
                                 "module_name : c is loaded\n");
}

TEST_F(ModuleDirectory, SeveralFilesThatFailAreEachTriedOnce) {
    for (const char *name : {"a", "c", "e"})
        dir_.write(name + std::string{".yang"}, broken_text);
    for (const char *name : {"b", "d"})
        dir_.write(name + std::string{".yang"}, yang_text(name));
    LogCapture log;
    EXPECT_EQ(load(), -1);
    for (const char *name : {"a", "c", "e"})
        EXPECT_EQ(log.count(3, "Parse file '" + std::string{name} + ".yang' unsuccessful."), 1) << name;
    EXPECT_TRUE(compiled("b") && compiled("d"));
}

TEST_F(ModuleDirectory, AFailureOfEachKindOfFileGivesMinusTwo) {
    dir_.write("a.yang", broken_text);
    dir_.write("b.yin", broken_text);
    dir_.write("c.yang", yang_text("c"));
    dir_.write("d.yin", yin_text("d"));
    LogCapture log;
    EXPECT_EQ(load(), -2);
    EXPECT_TRUE(compiled("c") && compiled("d"));
}

TEST_F(ModuleDirectory, AFailureOfOneKindOfFileGivesMinusOne) {
    dir_.write("b.yin", broken_text);
    dir_.write("c.yang", yang_text("c"));
    LogCapture log;
    EXPECT_EQ(load(), -1);
    EXPECT_TRUE(compiled("c"));
}

TEST_F(ModuleDirectory, AFileThatCannotBeReadFails) {
    ASSERT_EQ(symlink("/no/such/file", file("a.yang").c_str()), 0);
    dir_.write("b.yang", yang_text("b"));
    LogCapture log;
    EXPECT_EQ(load(), -1);
    EXPECT_EQ(log.count(3, cannot_access(file("a.yang"))), 1);
    EXPECT_TRUE(compiled("b"));
}

TEST_F(ModuleDirectory, AFailedCompilationEndsThePass) {
    dir_.write("a.yang", dangling_text("a"));
    dir_.write("b.yang", broken_text);
    LogCapture log;
    EXPECT_EQ(pass(LYS_IN_YANG), -1);
    // The broken file takes the other out, so that it is parsed again, and only then compiled.
    EXPECT_EQ(log.count(7, parsed("a.yang")), 2);
    EXPECT_EQ(log.count(3, "[libyang]Compile ly ctx unsuccessful, ret = 7."), 1);
    EXPECT_FALSE(has("a"));
}

TEST_F(ModuleDirectory, AModuleThatDoesNotCompileGivesMinusOne) {
    dir_.write("a.yang", dangling_text("a"));
    LogCapture log;
    EXPECT_EQ(load(), -1);
    EXPECT_EQ(log.count(7, parsed("a.yang")), 1) << "not tried again";
    EXPECT_FALSE(has("a"));
}

TEST_F(ModuleDirectory, LaterModulesFindThoseThatFailedToCompileGone) {
    dir_.write("good.yang", yang_text("good"));
    ASSERT_EQ(load(), 0);
    dir_.write("bad.yang", dangling_text("bad"));
    LogCapture log;
    EXPECT_EQ(load(), -1);
    EXPECT_TRUE(compiled("good")) << "what was compiled before stays";
    EXPECT_EQ(zam_ly_ctx_compile(ctx_.get()), LY_SUCCESS);
}

TEST_F(ModuleDirectory, ModulesOfTheContextAreNotLoadedAgain) {
    ASSERT_TRUE(zam_lys_parse_mem(ctx_.get(), yang_text("a").c_str(), LYS_IN_YANG));
    dir_.write("a.yang", broken_text);
    LogCapture log;
    EXPECT_EQ(load(), 0);
    EXPECT_EQ(log.count(7, "[_load_files] module_name : a is loaded"), 1);
}

TEST_F(ModuleDirectory, ASubmoduleIsSkippedAndFoundLaterThroughItsModule) {
    dir_.write("m.yang", yang_text("m", "include m-sub;"));
    dir_.write("m-sub.yang",
               "submodule m-sub { yang-version 1.1; belongs-to m { prefix p; } leaf l { type string; } }");
    LogCapture log;
    EXPECT_EQ(load(), 0);
    EXPECT_EQ(log.count(6, "Submodule(m-sub.yang) not parse"), 1);
    EXPECT_THAT(log.all(), HasSubstr("Load mmap path " + file("m-sub.yang") + ", size:"));
    EXPECT_TRUE(lys_find_path(ctx_.get(), nullptr, "/m:l", 0));
}

TEST_F(ModuleDirectory, ImportsAreFoundBesideTheirModules) {
    dir_.write("a-user.yang", yang_importing("a-user", "z-base"));
    dir_.write("z-base.yang", yang_text("z-base"));
    LogCapture log;
    EXPECT_EQ(load(), 0);
    EXPECT_TRUE(compiled("a-user") && compiled("z-base"));
    EXPECT_THAT(log.all(), HasSubstr("Load mmap path " + file("z-base.yang") + ", size:"));
    EXPECT_EQ(log.count(7, "[_load_files] module_name : z-base is loaded"), 1);
}

TEST_F(ModuleDirectory, ChainsOfImportsAreFollowed) {
    dir_.write("a.yang", yang_importing("a", "b"));
    dir_.write("b.yang", yang_importing("b", "c"));
    dir_.write("c.yang", yang_text("c"));
    EXPECT_EQ(load(), 0);
    EXPECT_TRUE(compiled("a") && compiled("b") && compiled("c"));
}

TEST_F(ModuleDirectory, AnImportWhoseFileFillsItsPagesIsRead) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    dir_.write("a-user.yang", yang_importing("a-user", "z-base"));
    dir_.write("z-base.yang", padded(yang_text("z-base"), 2 * page));
    EXPECT_EQ(load(), 0);
    EXPECT_TRUE(compiled("a-user") && compiled("z-base"));
}

TEST_F(ModuleDirectory, AMissingImportFailsItsModuleOnly) {
    dir_.write("a.yang", yang_importing("a", "no-such-module"));
    dir_.write("b.yang", yang_text("b"));
    LogCapture log;
    EXPECT_EQ(load(), -1);
    EXPECT_EQ(log.count(3, cannot_access(file("no-such-module.yang"))), 1);
    EXPECT_EQ(log.count(3, cannot_access(std::string{system_modules} + "/no-such-module.yang")), 1);
    EXPECT_TRUE(compiled("b"));
    EXPECT_FALSE(has("a"));
}

TEST_F(ModuleDirectory, AnImportOfYinIsLookedForAsYinOnly) {
    dir_.write("user.yin", yin_importing("user", "base"));
    dir_.write("base.yang", yang_text("base"));
    LogCapture log;
    EXPECT_EQ(pass(LYS_IN_YIN), -1);
    EXPECT_EQ(log.count(3, cannot_access(file("base.yin"))), 1);
    EXPECT_EQ(log.count(3, cannot_access(std::string{system_modules} + "/base.yin")), 1);
    EXPECT_FALSE(log.mentions("base.yang"));
    dir_.write("base.yin", yin_text("base"));
    EXPECT_EQ(pass(LYS_IN_YIN), 0);
    EXPECT_TRUE(compiled("user") && compiled("base"));
}

TEST_F(ModuleDirectory, AFileWithARevisionInItsNameIsLoadedUnderTheBareName) {
    dir_.write("base@2020-01-01.yang", yang_text("base", "revision 2020-01-01;"));
    dir_.write("user.yang", yang_importing("user", "base"));
    LogCapture log;
    EXPECT_EQ(load(), 0);
    EXPECT_EQ(log.count(7, "[_load_files] module_name : base start"), 1);
    EXPECT_EQ(log.count(7, "[_load_files] module_name : base@2020-01-01.yang loaded end, ret = 0"), 1);
    EXPECT_TRUE(compiled("base") && compiled("user"));
    log.clear();
    EXPECT_EQ(load(), 0);
    EXPECT_EQ(log.count(7, "[_load_files] module_name : base is loaded"), 1);
}

TEST_F(ModuleDirectory, AFileWithARevisionInItsNameIsNotFoundAsAnImport) {
    dir_.write("a-user.yang", yang_importing("a-user", "z-base"));
    dir_.write("z-base@2020-01-01.yang", yang_text("z-base", "revision 2020-01-01;"));
    LogCapture log;
    EXPECT_EQ(load(), -1);
    EXPECT_EQ(log.count(3, cannot_access(file("z-base.yang"))), 1);
    EXPECT_TRUE(compiled("z-base"));
    EXPECT_FALSE(has("a-user"));
}

TEST_F(ModuleDirectory, AllFeaturesAreEnabled) {
    dir_.write("a.yang", yang_text("a", "feature f; leaf l { if-feature f; type string; }"));
    EXPECT_EQ(load(), 0);
    EXPECT_TRUE(lys_find_path(ctx_.get(), nullptr, "/a:l", 0));
}

TEST_F(ModuleDirectory, TheImportCallbackIsGoneAfterwards) {
    dir_.write("a.yang", yang_text("a"));
    for (const std::string &dir : {dir_.path(), std::string{"/no/such/directory"}}) {
        zam_load_directory(ctx_.get(), dir.c_str());
        void *data = this;
        EXPECT_EQ(ly_ctx_get_module_imp_clb(ctx_.get(), &data), nullptr);
        EXPECT_EQ(data, nullptr);
    }
}

TEST_F(ModuleDirectory, TextsOfImportsAreKeptForOtherContexts) {
    dir_.write("a-user.yang", yang_importing("a-user", "z-base"));
    dir_.write("z-base.yang", yang_text("z-base"));
    const Context other = new_context();
    LogCapture log;
    EXPECT_EQ(load(), 0);
    EXPECT_EQ(zam_load_directory(other.get(), dir_.path().c_str()), 0);
    const std::string size = std::to_string(yang_text("z-base").size());
    EXPECT_EQ(log.count(7, "Load mmap path " + file("z-base.yang") + ", size:" + size + "."), 1);
    log.clear();
    zam_free_module_map();
    EXPECT_EQ(log.count(7, "Free submode:" + file("z-base.yang") + " , size:" + size + "."), 1);
    EXPECT_TRUE(compiled("z-base")) << "contexts keep nothing of the text";
}

TEST_F(ModuleDirectory, AnyFailedAllocationLeavesNothingBehind) {
    dir_.write("a-user.yang", yang_importing("a-user", "z-base"));
    dir_.write("b.yang", broken_text);
    dir_.write("z-base.yang", yang_text("z-base"));
    const DescriptorCheck descriptors;
    for (const bool from_then_on : {false, true}) {
        const uint64_t failures = fail_each_allocation(
            [this](bool expect_failure) {
                LogCapture log{3};
                const Context ctx = new_context();
                const int32_t result = zam_load_directory(ctx.get(), dir_.path().c_str());
                EXPECT_GE(result, -2);
                EXPECT_LE(result, -1);
                if (!expect_failure) {
                    EXPECT_EQ(result, -1);
                    EXPECT_TRUE(ly_ctx_get_module_implemented(ctx.get(), "a-user"));
                }
                zam_free_module_map();
            },
            from_then_on);
        EXPECT_GE(failures, 5u);
    }
}

TEST_F(ModuleDirectory, ThreadsLoadIntoTheirOwnContexts) {
    dir_.write("a-user.yang", yang_importing("a-user", "z-base"));
    dir_.write("z-base.yang", yang_text("z-base"));
    LogCapture log{3};
    std::atomic<int> failed = 0;
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            const Context ctx = new_context();
            if (zam_load_directory(ctx.get(), dir_.path().c_str()) != 0) ++failed;
            if (!ly_ctx_get_module_implemented(ctx.get(), "a-user")) ++failed;
        });
    }
    threads.clear();
    EXPECT_EQ(failed, 0) << log.all();
}

} // namespace
