// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Loading the module of one file, names of module files, and directories of module directories.
#include "yang/yang_module_internal.h"

#include <array>
#include <cstdlib>

#include <unistd.h>

#include <zamc/mem.h>

#include "support/heap.h"
#include "yang/yang_module_files.h"

namespace {

using namespace zam::test;
using namespace zam::test::layer;
using testing::IsEmpty;
using zam::yang::_get_module_name;
using zam::yang::_is_yang;
using zam::yang::_is_yin;

class ModuleFile : public ModuleFileTest {
protected:
    int32_t load(const char *name, LYS_INFORMAT format = LYS_IN_YANG) const {
        return zam_load_module(ctx_.get(), dir_.path().c_str(), name, format);
    }
};

TEST_F(ModuleFile, YangIsLoadedButNotCompiled) {
    dir_.write("m.yang", yang_text("m"));
    const DescriptorCheck descriptors;
    LogCapture log;
    EXPECT_EQ(load("m.yang"), 0);
    EXPECT_TRUE(has("m"));
    EXPECT_FALSE(compiled("m"));
    EXPECT_EQ(log.count(7, "[_load_files] module_name : m.yang zam_lys_parse_mem end"), 1);
    EXPECT_FALSE(log.mentions("unsuccessful"));
}

TEST_F(ModuleFile, YinIsLoadedWithItsFormat) {
    dir_.write("m.yin", yin_text("m"));
    EXPECT_EQ(load("m.yin", LYS_IN_YIN), 0);
    EXPECT_TRUE(has("m"));
}

TEST_F(ModuleFile, TheNameOfTheFileNeedNotBeThatOfTheModule) {
    dir_.write("m@2020-01-01.yang", yang_text("m", "revision 2020-01-01;"));
    EXPECT_EQ(load("m@2020-01-01.yang"), 0);
    EXPECT_TRUE(has("m"));
}

TEST_F(ModuleFile, AllFeaturesAreEnabled) {
    dir_.write("m.yang", yang_text("m", "feature f; feature g; leaf l { if-feature f; if-feature g; type string; }"));
    ASSERT_EQ(load("m.yang"), 0);
    ASSERT_EQ(zam_ly_ctx_compile(ctx_.get()), LY_SUCCESS);
    const lys_module *const module = ly_ctx_get_module_implemented(ctx_.get(), "m");
    ASSERT_TRUE(module);
    EXPECT_EQ(lys_feature_value(module, "f"), LY_SUCCESS);
    EXPECT_EQ(lys_feature_value(module, "g"), LY_SUCCESS);
    EXPECT_TRUE(lys_find_path(ctx_.get(), nullptr, "/m:l", 0));
}

TEST_F(ModuleFile, TheModuleIsImplementedInAPlainContextToo) {
    const Context plain{zam_ly_ctx_new(nullptr, LY_CTX_NO_YANGLIBRARY)};
    dir_.write("m.yang", yang_text("m", "leaf l { type string; }"));
    EXPECT_EQ(zam_load_module(plain.get(), dir_.path().c_str(), "m.yang", LYS_IN_YANG), 0);
    EXPECT_TRUE(ly_ctx_get_module_implemented(plain.get(), "m"));
}

TEST_F(ModuleFile, ATextThatFillsItsPagesIsReadToItsEnd) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    for (const size_t pages : {1u, 2u, 5u}) {
        const std::string name = "m" + std::to_string(pages);
        dir_.write(name + ".yang", padded(yang_text(name), pages * page));
        LogCapture log;
        EXPECT_EQ(load((name + ".yang").c_str()), 0) << pages;
        EXPECT_FALSE(log.mentions("unsuccessful")) << log.all();
    }
}

// The closing brace is the very last byte of the page.
TEST_F(ModuleFile, ATextMayEndWithItsPage) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const std::string end = "}";
    dir_.write("m.yang", padded("module m { namespace 'urn:m'; prefix p; ", page - end.size()) + end);
    EXPECT_EQ(load("m.yang"), 0);
    dir_.write("n.yin", padded(yin_text("n").substr(0, yin_text("n").size() - 9), page - 9) + "</module>");
    EXPECT_EQ(load("n.yin", LYS_IN_YIN), 0);
}

TEST_F(ModuleFile, AMissingFileFails) {
    const DescriptorCheck descriptors;
    LogCapture log;
    EXPECT_EQ(load("none.yang"), -1);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count(3, cannot_access(file("none.yang"))), 1);
}

TEST_F(ModuleFile, AnEmptyFileFails) {
    dir_.write("m.yang", "");
    LogCapture log;
    EXPECT_EQ(load("m.yang"), -1);
    EXPECT_TRUE(log.mentions("Failed to mmap for path:" + file("m.yang")));
}

TEST_F(ModuleFile, ATextThatDoesNotParseIsNamed) {
    dir_.write("broken.yang", broken_text);
    const DescriptorCheck descriptors;
    LogCapture log;
    EXPECT_EQ(load("broken.yang"), -1);
    EXPECT_EQ(log.count(3, "[libyang]Parse mem unsuccessful, format : 1."), 1);
    EXPECT_EQ(log.count(3, "Parse file 'broken.yang' unsuccessful."), 1);
    EXPECT_FALSE(log.mentions("zam_lys_parse_mem end"));
}

TEST_F(ModuleFile, AMissingImportFails) {
    dir_.write("m.yang", yang_importing("m", "no-such-module"));
    LogCapture log;
    EXPECT_EQ(load("m.yang"), -1);
    EXPECT_EQ(log.count(3, "Parse file 'm.yang' unsuccessful."), 1);
    EXPECT_FALSE(has("m"));
}

TEST_F(ModuleFile, ASubmoduleIsSkipped) {
    dir_.write("s.yang", "submodule s { belongs-to m { prefix p; } }");
    const DescriptorCheck descriptors;
    LogCapture log;
    EXPECT_EQ(load("s.yang"), 0);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count(6, "Submodule(s.yang) not parse"), 1);
}

TEST_F(ModuleFile, AModuleThatMentionsBothWordsIsSkippedToo) {
    dir_.write("m.yang", yang_text("m", "description 'A submodule is told by its belongs-to statement.';"));
    LogCapture log;
    EXPECT_EQ(load("m.yang"), 0);
    EXPECT_EQ(log.count(6, "Submodule(m.yang) not parse"), 1);
    EXPECT_FALSE(has("m"));
}

TEST_F(ModuleFile, OneOfTheWordsAloneDoesNotSkip) {
    dir_.write("a.yang", yang_text("a", "description 'A submodule is something else.';"));
    dir_.write("b.yang", yang_text("b", "description 'What belongs-to something.';"));
    dir_.write("c.yang", yang_text("c", "description 'submodule. belongs-to.';"));
    EXPECT_EQ(load("a.yang"), 0);
    EXPECT_EQ(load("b.yang"), 0);
    EXPECT_EQ(load("c.yang"), 0);
    EXPECT_TRUE(has("a") && has("b") && has("c"));
}

TEST_F(ModuleFile, NullArgumentsFail) {
    dir_.write("m.yang", yang_text("m"));
    EXPECT_LT(zam_load_module(nullptr, dir_.path().c_str(), "m.yang", LYS_IN_YANG), 0);
    EXPECT_LT(zam_load_module(ctx_.get(), nullptr, "m.yang", LYS_IN_YANG), 0);
    EXPECT_LT(zam_load_module(ctx_.get(), dir_.path().c_str(), nullptr, LYS_IN_YANG), 0);
}

TEST_F(ModuleFile, APathThatCannotBeBuiltIsNamed) {
    dir_.write("m.yang", yang_text("m"));
    Heap heap;
    heap.fail_at(1);
    LogCapture log;
    EXPECT_LT(load("m.yang"), 0);
    EXPECT_EQ(log.count(3, "Build path '" + dir_.path() + "/m.yang' unsuccessful"), 1);
    EXPECT_FALSE(has("m"));
}

TEST_F(ModuleFile, AnyFailedAllocationFailsTheLoadAndLeavesNothingBehind) {
    dir_.write("m.yang", yang_text("m"));
    const DescriptorCheck descriptors;
    const uint64_t failures = fail_each_allocation([this](bool expect_failure) {
        LogCapture log;
        const Context ctx = new_context();
        const int32_t result = zam_load_module(ctx.get(), dir_.path().c_str(), "m.yang", LYS_IN_YANG);
        if (!expect_failure) {
            EXPECT_EQ(result, 0);
        }
        EXPECT_EQ(result == 0, ly_ctx_get_module_implemented(ctx.get(), "m") != nullptr);
    });
    EXPECT_GE(failures, 1u);
}

// Names

TEST(ModuleName, EndsBeforeTheFirstDotOrAt) {
    constexpr std::array<std::pair<const char *, const char *>, 9> names{{
        {"m.yang", "m"},
        {"m@2020-01-01.yang", "m"},
        {"ietf-ip.yang", "ietf-ip"},
        {"m.x@2020.yang", "m"},
        {"m", "m"},
        {".yang", ""},
        {"@2020.yang", ""},
        {"", ""},
        {"m_1-2.yin", "m_1-2"},
    }};
    for (const auto &[file_name, expected] : names) {
        char *const name = _get_module_name(file_name);
        EXPECT_STREQ(name, expected) << file_name;
        zam_free(name);
    }
    EXPECT_FALSE(_get_module_name(nullptr));
}

TEST(ModuleName, ComesFromTheHooks) {
    const Heap heap;
    char *const name = _get_module_name("m.yang");
    EXPECT_EQ(heap.live(), 1u);
    zam_free(name);
    EXPECT_EQ(heap.live(), 0u);
}

dirent entry_named(const std::string &name, unsigned char type = DT_REG) {
    dirent entry{};
    name.copy(entry.d_name, sizeof entry.d_name - 1);
    entry.d_type = type;
    return entry;
}

TEST(DirectoryFilter, TakesOnlyTheLastExtension) {
    struct Case {
        const char *name;
        int yang;
        int yin;
    };
    for (const Case &c : {Case{"a.yang", 1, 0}, Case{"a.yin", 0, 1}, Case{"a.yang.bak", 0, 0}, Case{"a.bak.yang", 1, 0},
                          Case{"a@2020-01-01.yang", 1, 0}, Case{".yang", 1, 0}, Case{"yang", 0, 0},
                          Case{"a.YANG", 0, 0}, Case{"a.yang2", 0, 0}, Case{"a.yan", 0, 0}, Case{"a.yang~", 0, 0},
                          Case{"a.", 0, 0}, Case{"", 0, 0}, Case{"a.yin.yang", 1, 0}}) {
        const dirent entry = entry_named(c.name);
        EXPECT_EQ(_is_yang(&entry), c.yang) << c.name;
        EXPECT_EQ(_is_yin(&entry), c.yin) << c.name;
    }
}

TEST(DirectoryFilter, RefusesNull) {
    EXPECT_EQ(_is_yang(nullptr), 0);
    EXPECT_EQ(_is_yin(nullptr), 0);
    EXPECT_EQ(nyb_is_directory(nullptr), 0);
}

TEST(DirectoryFilter, ADirectoryIsOneOtherThanItselfAndItsParent) {
    const auto is_directory = [](const char *name, unsigned char type) {
        const dirent entry = entry_named(name, type);
        return nyb_is_directory(&entry);
    };
    EXPECT_EQ(is_directory("sub", DT_DIR), 1);
    EXPECT_EQ(is_directory("...", DT_DIR), 1);
    EXPECT_EQ(is_directory(".hidden", DT_DIR), 1);
    EXPECT_EQ(is_directory(".", DT_DIR), 0);
    EXPECT_EQ(is_directory("..", DT_DIR), 0);
    EXPECT_EQ(is_directory("sub", DT_REG), 0);
    EXPECT_EQ(is_directory("sub", DT_LNK), 0);
    EXPECT_EQ(is_directory("sub", DT_UNKNOWN), 0);
}

dirent **new_list(size_t count) {
    auto **const list = static_cast<dirent **>(std::calloc(count ? count : 1, sizeof(dirent *)));
    for (size_t i = 0; i < count; ++i)
        list[i] = static_cast<dirent *>(std::calloc(1, sizeof(dirent)));
    return list;
}

// A leak or a second release ends the run of a leak checker.
TEST(FileList, IsReleasedWithItsEntries) {
    const Heap heap;
    nyb_free_file_list(new_list(3), 3);
    EXPECT_EQ(heap.allocations(), 0u) << "the memory is that of the system";
}

TEST(FileList, WithoutEntriesOnlyTheArrayIsReleased) {
    nyb_free_file_list(new_list(0), 0);
    nyb_free_file_list(new_list(0), -1);
    nyb_free_file_list(nullptr, 0);
    nyb_free_file_list(nullptr, 3);
}

TEST(FileList, EntriesBeyondTheCountAreLeftAlone) {
    dirent **const list = new_list(2);
    dirent *const second = list[1];
    nyb_free_file_list(list, 1);
    second->d_name[0] = 'x';
    std::free(second);
}

// Directories of directories

class SubSchemas : public ModuleFileTest {
protected:
    void write(const std::string &sub, const std::string &name, const std::string &text) const {
        std::filesystem::create_directories(dir_.path(sub));
        dir_.write(sub + "/" + name, text);
    }
    std::string loading(const char *sub) const { return "[yang-schema]load sub schema path=" + dir_.path(sub) + "."; }
};

TEST_F(SubSchemas, EveryDirectoryIsLoadedInTheOrderOfTheNames) {
    write("b", "mb.yang", yang_text("mb"));
    write("a", "ma.yang", yang_text("ma"));
    write("c", "mc.yin", yin_text("mc"));
    const DescriptorCheck descriptors;
    LogCapture log;
    EXPECT_EQ(nyb_load_sub_schema_ctx(ctx_.get(), dir_.path().c_str()), 0);
    EXPECT_TRUE(compiled("ma") && compiled("mb") && compiled("mc"));
    std::string order;
    for (const auto &line : log.lines()) {
        if (line.text.find("load sub schema") != std::string::npos) order += line.text;
    }
    EXPECT_EQ(order, "[DEBUG] " + loading("a") + "\n[DEBUG] " + loading("b") + "\n[DEBUG] " + loading("c") + "\n");
}

TEST_F(SubSchemas, FilesBesideTheDirectoriesAreLeftOut) {
    write("a", "ma.yang", yang_text("ma"));
    dir_.write("top.yang", yang_text("top"));
    EXPECT_EQ(nyb_load_sub_schema_ctx(ctx_.get(), dir_.path().c_str()), 0);
    EXPECT_TRUE(has("ma"));
    EXPECT_FALSE(has("top"));
}

TEST_F(SubSchemas, ADirectoryThatFailsDoesNotCount) {
    write("a", "broken.yang", broken_text);
    write("b", "mb.yang", yang_text("mb"));
    LogCapture log;
    EXPECT_EQ(nyb_load_sub_schema_ctx(ctx_.get(), dir_.path().c_str()), 0);
    EXPECT_EQ(log.count(3, "Parse file 'broken.yang' unsuccessful."), 1);
    EXPECT_TRUE(compiled("mb"));
}

TEST_F(SubSchemas, NothingToReadIsNoFailure) {
    LogCapture log;
    EXPECT_EQ(nyb_load_sub_schema_ctx(ctx_.get(), dir_.path().c_str()), 0);
    EXPECT_EQ(nyb_load_sub_schema_ctx(ctx_.get(), "/no/such/directory"), 0);
    EXPECT_EQ(nyb_load_sub_schema_ctx(nullptr, dir_.path().c_str()), 0);
    EXPECT_EQ(nyb_load_sub_schema_ctx(ctx_.get(), nullptr), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(SubSchemas, APathThatCannotBeBuiltFails) {
    write("a", "ma.yang", yang_text("ma"));
    const DescriptorCheck descriptors;
    Heap heap;
    heap.fail_at(1);
    LogCapture log;
    EXPECT_EQ(nyb_load_sub_schema_ctx(ctx_.get(), dir_.path().c_str()), -1);
    EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
    EXPECT_FALSE(has("ma"));
}

} // namespace
