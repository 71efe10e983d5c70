// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Modules of the application in the shared schema context.
#include "client/client_ctx_internal.h"

#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

#include <zamc/yang_tree_data.h>

#include "client/client_ctx_fixture.h"
#include "support/files.h"
#include "support/heap.h"
#include "support/server.h"

namespace {

using namespace zam::test;
using testing::HasSubstr;
using testing::IsEmpty;

std::string yang(const std::string &name, const std::string &body = "leaf l { type string; }") {
    return "module " + name + " { yang-version 1.1; namespace 'urn:" + name + "'; prefix p; " + body + " }";
}

std::string yin(const std::string &name) {
    return "<module name='" + name + "' xmlns='urn:ietf:params:xml:ns:yang:yin:1' xmlns:p='urn:" + name +
           "'><namespace uri='urn:" + name +
           "'/><prefix value='p'/><leaf name='l'><type name='string'/></leaf></module>";
}

std::string importing(const std::string &name, const std::string &import) {
    return yang(name, "import " + import + " { prefix i; } leaf l { type string; }");
}

std::string dangling(const std::string &name) {
    return yang(name, "leaf l { type leafref { path '/p:none'; } }");
}

std::string not_loaded(const std::string &name) {
    return "Load module " + name + " not successful.";
}

class LoadModule : public FreshProcess {
protected:
    void SetUp() override { ASSERT_EQ(zamc_initialize(), 0); }

    int32_t load(const char *name) const { return zamc_load_module(dir_.path().c_str(), name); }
    static bool has_leaf(const char *name) {
        return lys_find_path(ctx(), nullptr, ("/" + std::string{name} + ":l").c_str(), 0) != nullptr;
    }
    static bool builtins_are_usable() {
        return usable("ietf-restconf") && usable("ietf-netconf") && usable("ietf-yang-patch") &&
               usable("ietf-datastores") && usable("ietf-yang-library") && usable("orvel-zam-server") &&
               usable("orvel-zam-client") && lys_find_path(ctx(), nullptr, "/orvel-zam-server:register", 0) != nullptr;
    }

    TempDir dir_;
};

using LoadModuleEarly = FreshProcess;

TEST_F(LoadModuleEarly, BeforeInitialisationFailsSilently) {
    const TempDir dir;
    dir.write("m.yang", yang("m"));
    LogCapture log;
    EXPECT_EQ(zamc_load_module(dir.path().c_str(), "m"), -1);
    EXPECT_EQ(zamc_load_module(dir.path().c_str(), nullptr), -1);
    EXPECT_EQ(zamc_load_module(nullptr, "m"), -3) << "the directory is looked at first";
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(zam_module_load(), 0);
}

TEST_F(LoadModule, WithoutADirectoryIsRefusedAndLeavesTheContextAlone) {
    const uint16_t changes = ly_ctx_get_change_count(ctx());
    LogCapture log;
    EXPECT_EQ(zamc_load_module(nullptr, "m"), -3);
    EXPECT_EQ(zamc_load_module(nullptr, nullptr), -3);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(ly_ctx_get_change_count(ctx()), changes);
    EXPECT_FALSE(*ly_ctx_get_searchdirs(ctx()));
    EXPECT_EQ(zam_module_load(), 0);
}

TEST_F(LoadModule, FromADirectoryThatIsNotThereIsRefused) {
    LogCapture log;
    EXPECT_EQ(zamc_load_module("/no/such/directory", "m"), -3);
    EXPECT_EQ(log.count(3, "Set searchdir /no/such/directory not successful. Load module will result in failure to "
                           "cache local data."),
              1);
    EXPECT_EQ(log.count(3, "[libyang]Set ctx searchdir unsuccessful, dir : /no/such/directory, ret : 3."), 1);
    EXPECT_FALSE(log.mentions("Load module m not"));
    EXPECT_EQ(zam_module_load(), 0);
}

TEST_F(LoadModule, FromAFileIsRefused) {
    dir_.write("m.yang", yang("m"));
    LogCapture log;
    EXPECT_EQ(zamc_load_module(dir_.path("m.yang").c_str(), nullptr), -3);
}

TEST_F(LoadModule, ByNameMakesItUsable) {
    dir_.write("m.yang", yang("m"));
    const DescriptorCheck descriptors;
    LogCapture log;
    EXPECT_EQ(load("m"), 0);
    EXPECT_TRUE(has_leaf("m"));
    EXPECT_EQ(zam_module_load(), 1);
    for (const auto &line : log.lines())
        EXPECT_GT(line.level, 3) << line.text;
}

TEST_F(LoadModule, ByNameEnablesAllFeatures) {
    dir_.write("m.yang", yang("m", "feature f; leaf l { if-feature f; type string; }"));
    EXPECT_EQ(load("m"), 0);
    EXPECT_TRUE(has_leaf("m"));
}

TEST_F(LoadModule, ThatExistsOnlyAsYinIsFoundByTheSecondAttempt) {
    dir_.write("m.yin", yin("m"));
    LogCapture log;
    EXPECT_EQ(load("m"), 0);
    EXPECT_TRUE(has_leaf("m"));
    EXPECT_TRUE(log.mentions("Can't access to path " + dir_.path("m.yang") + " for mmap ("));
    EXPECT_FALSE(log.mentions("Load module m not"));
    EXPECT_EQ(zam_module_load(), 1);
}

TEST_F(LoadModule, ThatExistsAsBothIsReadAsYang) {
    dir_.write("m.yang", yang("m", "leaf l { type string; } leaf from-yang { type string; }"));
    dir_.write("m.yin", yin("m"));
    EXPECT_EQ(load("m"), 0);
    EXPECT_TRUE(lys_find_path(ctx(), nullptr, "/m:from-yang", 0));
}

TEST_F(LoadModule, WhoseYangDoesNotParseIsReadAsYin) {
    dir_.write("m.yang", "module m {");
    dir_.write("m.yin", yin("m"));
    LogCapture log;
    EXPECT_EQ(load("m"), 0);
    EXPECT_TRUE(has_leaf("m"));
    EXPECT_EQ(log.count(3, "Parse file 'm.yang' unsuccessful."), 1);
}

TEST_F(LoadModule, ANameWithItsExtensionIsTakenAsItIs) {
    dir_.write("a.yang", yang("a"));
    dir_.write("b.yin", yin("b"));
    LogCapture log;
    EXPECT_EQ(load("a.yang"), 0);
    EXPECT_EQ(load("b.yin"), 0);
    EXPECT_TRUE(has_leaf("a") && has_leaf("b"));
    EXPECT_FALSE(log.mentions("Can't access"));
}

TEST_F(LoadModule, ANameMayHaveARevision) {
    dir_.write("m@2020-01-01.yang", yang("m", "revision 2020-01-01; leaf l { type string; }"));
    EXPECT_EQ(load("m@2020-01-01"), 0);
    EXPECT_TRUE(has_leaf("m"));
}

TEST_F(LoadModule, ThatIsNotThereIsNamed) {
    LogCapture log;
    EXPECT_EQ(load("none"), -1);
    EXPECT_EQ(log.count(3, not_loaded("none")), 1);
    EXPECT_TRUE(log.mentions("Can't access to path " + dir_.path("none.yang") + " for mmap ("));
    EXPECT_TRUE(log.mentions("Can't access to path " + dir_.path("none.yin") + " for mmap ("));
    EXPECT_EQ(zam_module_load(), 0);
    EXPECT_EQ(load(""), -1);
}

TEST_F(LoadModule, ThatDoesNotParseLeavesTheContextAsItWas) {
    dir_.write("good.yang", yang("good"));
    dir_.write("bad.yang", "module bad { leaf");
    ASSERT_EQ(load("good"), 0);
    LogCapture log;
    EXPECT_EQ(load("bad"), -1);
    EXPECT_EQ(log.count(3, "Parse file 'bad.yang' unsuccessful."), 1);
    EXPECT_EQ(log.count(3, not_loaded("bad")), 1);
    EXPECT_FALSE(module("bad"));
    EXPECT_TRUE(has_leaf("good") && builtins_are_usable());
}

TEST_F(LoadModule, ThatDoesNotCompileIsNotLoaded) {
    dir_.write("good.yang", yang("good"));
    dir_.write("bad.yang", dangling("bad"));
    ASSERT_EQ(load("good"), 0);
    LogCapture log;
    EXPECT_EQ(load("bad"), -1);
    EXPECT_EQ(log.count(3, not_loaded("bad")), 1);
    EXPECT_FALSE(module("bad"));
    EXPECT_TRUE(has_leaf("good") && builtins_are_usable());
}

TEST_F(LoadModule, ThatFailsLeavesTheFlagAsItWas) {
    LogCapture log;
    ASSERT_EQ(load("none"), -1);
    EXPECT_EQ(zam_module_load(), 0);
    dir_.write("m.yang", yang("m"));
    ASSERT_EQ(load("m"), 0);
    ASSERT_EQ(zam_module_load(), 1);
    ASSERT_EQ(load("none"), -1);
    EXPECT_EQ(zam_module_load(), 1);
    zamc_finalize();
    EXPECT_EQ(zam_module_load(), 1);
}

TEST_F(LoadModule, AfterAFailureOthersLoad) {
    dir_.write("bad.yang", "module bad {");
    dir_.write("good.yang", yang("good"));
    LogCapture log;
    EXPECT_EQ(load("bad"), -1);
    EXPECT_EQ(load("good"), 0);
    EXPECT_TRUE(has_leaf("good"));
}

TEST_F(LoadModule, TwiceFromTheSameDirectoryIsFine) {
    dir_.write("a.yang", yang("a"));
    dir_.write("b.yang", yang("b"));
    LogCapture log;
    EXPECT_EQ(load("a"), 0);
    EXPECT_EQ(load("b"), 0);
    EXPECT_EQ(load(nullptr), 0);
    EXPECT_EQ(load("a"), 0);
    EXPECT_TRUE(has_leaf("a") && has_leaf("b"));
    EXPECT_FALSE(log.mentions("Load module will result in failure"));
}

TEST_F(LoadModule, ImportsAreSearchedInTheDirectory) {
    dir_.write("user.yang", importing("user", "base"));
    dir_.write("base.yang", yang("base"));
    EXPECT_EQ(load("user"), 0);
    EXPECT_TRUE(has_leaf("user") && has_leaf("base"));
}

TEST_F(LoadModule, ImportsOfANamedModuleMayHaveARevisionInTheirFileNames) {
    dir_.write("user.yang", importing("user", "base"));
    dir_.write("base@2020-01-01.yang", yang("base", "revision 2020-01-01; leaf l { type string; }"));
    EXPECT_EQ(load("user"), 0);
    EXPECT_TRUE(has_leaf("base"));
}

TEST_F(LoadModule, ImportsAreSearchedInEarlierDirectoriesToo) {
    const TempDir other;
    dir_.write("base.yang", yang("base"));
    dir_.write("first.yang", yang("first"));
    other.write("user.yang", importing("user", "base"));
    ASSERT_EQ(load("first"), 0);
    EXPECT_EQ(zamc_load_module(other.path().c_str(), "user"), 0);
    EXPECT_TRUE(has_leaf("user") && has_leaf("base"));
}

TEST_F(LoadModule, AMissingImportFails) {
    dir_.write("user.yang", importing("user", "no-such-module"));
    LogCapture log;
    EXPECT_EQ(load("user"), -1);
    EXPECT_EQ(log.count(3, not_loaded("user")), 1);
    EXPECT_FALSE(module("user"));
    EXPECT_TRUE(builtins_are_usable());
}

TEST_F(LoadModule, SubmodulesComeWithTheirModule) {
    dir_.write("m.yang", yang("m", "include m-sub;"));
    dir_.write("m-sub.yang",
               "submodule m-sub { yang-version 1.1; belongs-to m { prefix p; } leaf l { type string; } }");
    EXPECT_EQ(load("m"), 0);
    EXPECT_TRUE(has_leaf("m"));
}

TEST_F(LoadModule, ThatImportsTheProtocolRebuildsItAndLeavesItUsable) {
    dir_.write("user.yang", yang("user", "import orvel-zam-server { prefix s; } import ietf-netconf { prefix nc; }"
                                         "import ietf-datastores { prefix ds; }"
                                         "leaf l { type s:subpub-type; } leaf store { type ds:datastore-ref; }"
                                         "identity mine { base ds:datastore; }"));
    EXPECT_EQ(load("user"), 0);
    EXPECT_TRUE(has_leaf("user") && builtins_are_usable());
}

TEST_F(LoadModule, ATextThatFillsItsPagesIsLoaded) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    for (const size_t pages : {1u, 3u}) {
        const std::string name = "m" + std::to_string(pages);
        std::string text = yang(name);
        text.resize(pages * page, '\n');
        dir_.write(name + ".yang", text);
        EXPECT_EQ(load(name.c_str()), 0) << pages;
        EXPECT_TRUE(has_leaf(name.c_str()));
    }
}

TEST_F(LoadModule, WithoutANameLoadsEveryModuleOfTheDirectory) {
    dir_.write("a.yang", yang("a"));
    dir_.write("b.yin", yin("b"));
    dir_.write("c@2020-01-01.yang", yang("c", "revision 2020-01-01; leaf l { type string; }"));
    dir_.write("notes.txt", "no module");
    EXPECT_EQ(load(nullptr), 0);
    EXPECT_TRUE(has_leaf("a") && has_leaf("b") && has_leaf("c"));
    EXPECT_EQ(zam_module_load(), 1);
}

TEST_F(LoadModule, OfAnEmptyDirectorySucceeds) {
    EXPECT_EQ(load(nullptr), 0);
    EXPECT_EQ(zam_module_load(), 1);
}

TEST_F(LoadModule, OfADirectoryWithABadFileFailsButKeepsTheGoodOnes) {
    dir_.write("a.yang", yang("a"));
    dir_.write("b.yang", "module b {");
    dir_.write("c.yang", yang("c"));
    LogCapture log;
    EXPECT_EQ(load(nullptr), -1);
    EXPECT_EQ(log.count(3, not_loaded("(null)")), 1);
    EXPECT_EQ(log.count(3, "Parse file 'b.yang' unsuccessful."), 1);
    EXPECT_EQ(zam_module_load(), 0);
    EXPECT_TRUE(has_leaf("a") && has_leaf("c") && builtins_are_usable());
}

TEST_F(LoadModule, OfADirectoryNamesEachFileThatCannotBeReadAndWaitsForNone) {
    ASSERT_EQ(mkfifo(dir_.path("fifo.yang").c_str(), 0600), 0);
    std::filesystem::create_symlink("nowhere", dir_.path("link.yang"));
    std::filesystem::create_directory(dir_.path("folder.yang"));
    dir_.write("good.yang", yang("good"));
    const DescriptorCheck descriptors;
    LogCapture log;
    EXPECT_EQ(load(nullptr), -1);
    for (const char *name : {"fifo.yang", "link.yang", "folder.yang"})
        EXPECT_TRUE(log.mentions(dir_.path(name))) << log.all();
    EXPECT_EQ(log.count(3, not_loaded("(null)")), 1);
    EXPECT_TRUE(has_leaf("good") && builtins_are_usable());
    for (const char *name : {"fifo", "link", "folder"}) {
        EXPECT_EQ(load(name), -1);
        EXPECT_EQ(log.count(3, not_loaded(name)), 1);
    }
    EXPECT_TRUE(has_leaf("good") && builtins_are_usable());
}

TEST_F(LoadModule, OfADirectorySkipsTheModulesOfTheLibrary) {
    dir_.write("ietf-netconf.yang", yang("ietf-netconf"));
    dir_.write("orvel-zam-server@2030-01-01.yang", "module broken {");
    dir_.write("a.yang", yang("a"));
    LogCapture log;
    EXPECT_EQ(load(nullptr), 0);
    EXPECT_EQ(log.count(7, "[_load_files] module_name : ietf-netconf is loaded"), 1);
    EXPECT_EQ(log.count(7, "[_load_files] module_name : orvel-zam-server is loaded"), 1);
    EXPECT_TRUE(builtins_are_usable());
}

TEST_F(LoadModule, OfADirectoryLeavesNoImportCallback) {
    dir_.write("a.yang", yang("a"));
    ASSERT_EQ(load(nullptr), 0);
    void *data = nullptr;
    EXPECT_EQ(ly_ctx_get_module_imp_clb(ctx(), &data), nullptr);
}

TEST_F(LoadModule, WithoutMemoryFailsOrSucceedsWholly) {
    dir_.write("a-user.yang", importing("a-user", "base"));
    dir_.write("base.yang", yang("base"));
    for (const char *name : {"a-user", static_cast<const char *>(nullptr)}) {
        const DescriptorCheck descriptors;
        const uint64_t failures = fail_each_allocation([&](bool expect_failure) {
            LogCapture log{3};
            const int32_t result = load(name);
            if (expect_failure) {
                EXPECT_TRUE(result == 0 || result == -1) << result;
            } else {
                EXPECT_EQ(result, 0) << log.all();
            }
            if (result == 0) {
                EXPECT_TRUE(has_leaf("a-user") && has_leaf("base"));
            }
            zam_free_module_map();
        });
        EXPECT_GE(failures, 1u);
        EXPECT_TRUE(builtins_are_usable());
    }
}

// Models of the real world

using RealModels = LoadModule;

bool parses(const ly_ctx *ctx, const char *json) {
    lyd_node *const tree = zam_lyd_parse_data_mem(ctx, json, LYD_JSON, LYD_PARSE_STRICT, LYD_VALIDATE_PRESENT);
    lyd_free_all(tree);
    return tree != nullptr;
}

TEST_F(RealModels, LoadAsADirectory) {
    LogCapture log;
    ASSERT_EQ(zamc_load_module(models_path().c_str(), nullptr), 0);
    for (const char *name :
         {"ietf-interfaces", "iana-if-type", "ietf-ip", "ietf-system", "ietf-netconf-acm", "iana-crypt-hash"})
        EXPECT_TRUE(usable(name)) << name;
    EXPECT_TRUE(builtins_are_usable());
    for (const auto &line : log.lines())
        EXPECT_GT(line.level, 3) << line.text;
}

TEST_F(RealModels, LoadOneByOneInAnyOrder) {
    for (const char *name : {"ietf-ip", "ietf-system", "iana-if-type", "ietf-interfaces", "ietf-routing"})
        ASSERT_EQ(zamc_load_module(models_path().c_str(), name), 0) << name;
    EXPECT_TRUE(usable("ietf-ip") && usable("ietf-interfaces") && usable("ietf-routing"));
    EXPECT_TRUE(lys_find_path(ctx(), nullptr, "/ietf-interfaces:interfaces/interface/ietf-ip:ipv4/mtu", 0));
    EXPECT_TRUE(lys_find_path(ctx(), nullptr, "/ietf-system:set-current-datetime", 0));
}

TEST_F(RealModels, LoadAgainWithoutHarm) {
    ASSERT_EQ(zamc_load_module(models_path().c_str(), nullptr), 0);
    EXPECT_EQ(zamc_load_module(models_path().c_str(), nullptr), 0);
    EXPECT_EQ(zamc_load_module(models_path().c_str(), "ietf-interfaces"), 0);
    EXPECT_TRUE(usable("ietf-interfaces"));
}

TEST_F(RealModels, CheckData) {
    ASSERT_EQ(zamc_load_module(models_path().c_str(), nullptr), 0);
    const auto with_mtu = [](const char *mtu) {
        return R"({"ietf-interfaces:interfaces":{"interface":[{"name":"eth0","type":"iana-if-type:ethernetCsmacd",)"
               R"("ietf-ip:ipv4":{"mtu":)" +
               std::string{mtu} + "}}]}}";
    };
    LogCapture log;
    EXPECT_TRUE(parses(ctx(), with_mtu("1500").c_str()));
    EXPECT_FALSE(parses(ctx(), with_mtu("67").c_str()));
}

TEST_F(RealModels, OfWhichOneIsBrokenLeaveTheOthers) {
    std::filesystem::copy(models_path(), dir_.path(), std::filesystem::copy_options::recursive);
    std::filesystem::remove(dir_.path("ietf-ip.yang"));
    dir_.write("ietf-ip.yang", "module ietf-ip {");
    LogCapture log;
    EXPECT_EQ(load(nullptr), -1);
    EXPECT_EQ(log.count(3, "Parse file 'ietf-ip.yang' unsuccessful."), 1);
    EXPECT_TRUE(usable("ietf-interfaces") && usable("iana-if-type") && usable("ietf-system")) << log.all();
    EXPECT_FALSE(module("ietf-ip"));
}

} // namespace
