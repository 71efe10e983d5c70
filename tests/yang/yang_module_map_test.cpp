// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Texts of module files, the import callback and the texts that it keeps.
#include "yang/yang_module_internal.h"

#include <atomic>
#include <cerrno>
#include <fstream>
#include <functional>
#include <optional>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/heap.h"
#include "yang/yang_module_files.h"

namespace {

// The descriptor whose status cannot be read while it is set.
thread_local bool fail_fstat = false;

} // namespace

// Stands before the C library's in this program.
extern "C" int fstat(int fd, struct stat *status) noexcept {
    if (fail_fstat) {
        errno = EIO;
        return -1;
    }
    return fstatat(fd, "", status, AT_EMPTY_PATH);
}

namespace {

using namespace zam::test;
using namespace zam::test::layer;
using testing::HasSubstr;
using testing::IsEmpty;
using zam::yang::_get_file_mmap_size;
using zam::yang::_search_module;
using zam::yang::file_text;
using zam::yang::import_search;

using FileText = ModuleFileTest;

std::string error_text(int error) {
    return zam_get_str_error(error);
}

bool is_mapped(const void *address) {
    unsigned char page = 0;
    return mincore(const_cast<void *>(address), 1, &page) == 0;
}

TEST_F(FileText, HasTheContentAndTheSizeOfTheFile) {
    const DescriptorCheck descriptors;
    dir_.write("f", "some text");
    LogCapture log;
    const file_text text = _get_file_mmap_size(file("f").c_str());
    ASSERT_TRUE(text);
    EXPECT_STREQ(text.address, "some text");
    EXPECT_EQ(text.size, 9u);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(FileText, EndsInANulWhateverTheSizeOfTheFile) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    for (const size_t size : {size_t{1}, page - 1, page, page + 1, 2 * page, 16 * page}) {
        const std::string content(size, 'x');
        dir_.write("f", content);
        const file_text text = _get_file_mmap_size(file("f").c_str());
        ASSERT_TRUE(text) << size;
        EXPECT_EQ(text.size, size);
        EXPECT_EQ(std::string{text.address}, content);
    }
}

TEST_F(FileText, IsUnmappedWithItsOwner) {
    dir_.write("f", "some text");
    const char *address = nullptr;
    {
        file_text text = _get_file_mmap_size(file("f").c_str());
        address = text.address;
        ASSERT_TRUE(is_mapped(address));
        const file_text moved = std::move(text);
        EXPECT_EQ(moved.address, address);
        EXPECT_FALSE(text.address);
    }
    EXPECT_FALSE(is_mapped(address));
}

TEST_F(FileText, OfAMissingFileFails) {
    const DescriptorCheck descriptors;
    LogCapture log;
    EXPECT_FALSE(_get_file_mmap_size(file("none").c_str()));
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count(3, cannot_access(file("none"))), 1);
}

// The link of an open descriptor leads to a file that has no name any more.
TEST_F(FileText, OfAPathThatCannotBeResolvedFails) {
    dir_.write("f", "some text");
    const int fd = open(file("f").c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(unlink(file("f").c_str()), 0);
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    {
        const DescriptorCheck descriptors;
        LogCapture log;
        EXPECT_FALSE(_get_file_mmap_size(path.c_str()));
        ASSERT_EQ(log.lines().size(), 1u);
        EXPECT_EQ(log.count(3, "Check path " + path + " unsuccess (" + error_text(ENOENT) + ")."), 1);
    }
    close(fd);
}

TEST_F(FileText, OfWhatCannotBeOpenedFails) {
    const std::string path = file("socket");
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(fd, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof address.sun_path);
    path.copy(address.sun_path, path.size());
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    {
        const DescriptorCheck descriptors;
        LogCapture log;
        EXPECT_FALSE(_get_file_mmap_size(path.c_str()));
        ASSERT_EQ(log.lines().size(), 1u);
        EXPECT_EQ(log.count(3, "Failed to open path " + path + " for mmap (" + error_text(ENXIO) + ")."), 1);
    }
    close(fd);
}

TEST_F(FileText, WithoutAStatusFailsAndClosesTheDescriptor) {
    dir_.write("f", "some text");
    const std::string path = file("f");
    const DescriptorCheck descriptors;
    LogCapture log;
    fail_fstat = true;
    const file_text text = _get_file_mmap_size(path.c_str());
    fail_fstat = false;
    EXPECT_FALSE(text);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count(3, "Failed to stat the file descriptor for mmap (" + error_text(EIO) + ")."), 1);
}

TEST_F(FileText, OfAnEmptyFileFails) {
    dir_.write("f", "");
    const DescriptorCheck descriptors;
    LogCapture log;
    EXPECT_FALSE(_get_file_mmap_size(file("f").c_str()));
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count(3, "Failed to mmap for path:" + file("f") + " (" + error_text(EINVAL) + ")."), 1);
}

TEST_F(FileText, OfADirectoryFails) {
    const DescriptorCheck descriptors;
    LogCapture log;
    EXPECT_FALSE(_get_file_mmap_size(dir_.path().c_str()));
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines().front().level, 3);
    EXPECT_THAT(log.lines().front().text, HasSubstr("Failed to mmap for path:" + dir_.path() + " ("));
}

TEST_F(FileText, OfAFifoDoesNotWaitForItsWriter) {
    ASSERT_EQ(mkfifo(file("fifo").c_str(), 0600), 0);
    const DescriptorCheck descriptors;
    LogCapture log;
    EXPECT_FALSE(_get_file_mmap_size(file("fifo").c_str()));
    EXPECT_EQ(log.count(3, "Failed to mmap for path:" + file("fifo") + " (" + error_text(EINVAL) + ")."), 1);
}

TEST_F(FileText, OfMoreThanASizeCanTellFails) {
    dir_.write("f", "");
    ASSERT_EQ(truncate(file("f").c_str(), off_t{1} << 32), 0);
    const DescriptorCheck descriptors;
    LogCapture log;
    EXPECT_FALSE(_get_file_mmap_size(file("f").c_str()));
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_THAT(log.lines().front().text, HasSubstr("Failed to mmap for path:" + file("f") + " ("));
}

// The import callback

struct Answer {
    LY_ERR result = LY_EINT;
    LYS_INFORMAT format = LYS_IN_UNKNOWN;
    const char *text = "untouched";
    ly_module_imp_data_free_clb release = [](void *, void *) {};
};

class ImportSearch : public ModuleFileTest {
protected:
    Answer search(const char *module, const char *submodule = nullptr, LYS_INFORMAT format = LYS_IN_YANG) {
        import_search data{format, dir_path_.c_str()};
        Answer answer;
        answer.result = _search_module(module, "2001-01-01", submodule, "2002-02-02", &data, &answer.format,
                                       &answer.text, &answer.release);
        return answer;
    }
    std::string loaded(const char *name, size_t size) const {
        return "Load mmap path " + file(name) + ", size:" + std::to_string(size) + ".";
    }

    const std::string dir_path_ = dir_.path();
};

TEST_F(ImportSearch, FindsAModuleByItsNameWhateverTheRevision) {
    dir_.write("m.yang", "text of m");
    const DescriptorCheck descriptors;
    LogCapture log;
    const Answer answer = search("m");
    EXPECT_EQ(answer.result, LY_SUCCESS);
    EXPECT_EQ(answer.format, LYS_IN_YANG);
    EXPECT_STREQ(answer.text, "text of m");
    EXPECT_FALSE(answer.release);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count(7, loaded("m.yang", 9)), 1);
}

TEST_F(ImportSearch, LooksForTheSubmoduleWhenThereIsOne) {
    dir_.write("m.yang", "text of m");
    dir_.write("s.yang", "text of s");
    EXPECT_STREQ(search("m", "s").text, "text of s");
    EXPECT_STREQ(search(nullptr, "s").text, "text of s");
}

TEST_F(ImportSearch, LooksForTheExtensionOfThePass) {
    dir_.write("m.yang", "as YANG");
    dir_.write("m.yin", "as YIN");
    const Answer answer = search("m", nullptr, LYS_IN_YIN);
    EXPECT_STREQ(answer.text, "as YIN");
    EXPECT_EQ(answer.format, LYS_IN_YIN);
}

TEST_F(ImportSearch, GivesSuccessWithoutATextWhenThereIsNone) {
    const DescriptorCheck descriptors;
    LogCapture log;
    const Answer answer = search("none-of-this-name");
    EXPECT_EQ(answer.result, LY_SUCCESS);
    EXPECT_EQ(answer.format, LYS_IN_YANG);
    EXPECT_FALSE(answer.text);
    EXPECT_FALSE(answer.release);
    ASSERT_EQ(log.lines().size(), 2u);
    EXPECT_EQ(log.lines()[0].text, "[WRONG] " + cannot_access(file("none-of-this-name.yang")) + "\n");
    EXPECT_EQ(log.lines()[1].text,
              "[WRONG] " + cannot_access(std::string{system_modules} + "/none-of-this-name.yang") + "\n");
}

TEST_F(ImportSearch, DoesNotFindAFileWithARevisionInItsName) {
    dir_.write("m@2020-01-01.yang", "text of m");
    LogCapture log;
    EXPECT_FALSE(search("m").text);
}

TEST_F(ImportSearch, RefusesNullNamesAndData) {
    import_search data{LYS_IN_YANG, dir_path_.c_str()};
    Answer answer;
    LogCapture log;
    EXPECT_EQ(_search_module(nullptr, nullptr, nullptr, nullptr, &data, &answer.format, &answer.text, &answer.release),
              LY_EINVAL);
    EXPECT_EQ(_search_module("m", nullptr, nullptr, nullptr, nullptr, &answer.format, &answer.text, &answer.release),
              LY_EINVAL);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ImportSearch, KeepsTheTextOfAPathForTheNextImport) {
    dir_.write("m.yang", "text of m");
    LogCapture log;
    const char *const first = search("m").text;
    EXPECT_EQ(search("m").text, first);
    EXPECT_EQ(log.count(7, loaded("m.yang", 9)), 1);
}

TEST_F(ImportSearch, KeptTextsAreReleasedInTheOrderOfMapping) {
    dir_.write("m.yang", "text of m");
    dir_.write("a.yang", "text of a!");
    const char *const text = search("m").text;
    ASSERT_TRUE(search("a").text);
    LogCapture log;
    zam_free_module_map();
    ASSERT_EQ(log.lines().size(), 2u);
    EXPECT_EQ(log.lines()[0].text, "[DEBUG] Free submode:" + file("m.yang") + " , size:9.\n");
    EXPECT_EQ(log.lines()[1].text, "[DEBUG] Free submode:" + file("a.yang") + " , size:10.\n");
    EXPECT_FALSE(is_mapped(text));
}

TEST_F(ImportSearch, AfterTheReleaseAFileIsReadAnew) {
    dir_.write("m.yang", "old text");
    ASSERT_STREQ(search("m").text, "old text");
    zam_free_module_map();
    dir_.write("m.yang", "new text");
    EXPECT_STREQ(search("m").text, "new text");
}

TEST_F(ImportSearch, ReleasingNothingIsSilent) {
    LogCapture log;
    zam_free_module_map();
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ImportSearch, ATextThatFillsItsPagesIsTerminated) {
    const std::string content(static_cast<size_t>(sysconf(_SC_PAGESIZE)) * 2, 'x');
    dir_.write("m.yang", content);
    EXPECT_EQ(std::string{search("m").text}, content);
}

TEST_F(ImportSearch, APathThatCannotBeBuiltIsNamed) {
    dir_.write("m.yang", "text of m");
    Heap heap;
    heap.fail_at(1);
    LogCapture log;
    const Answer answer = search("m");
    EXPECT_EQ(answer.result, LY_EMEM);
    EXPECT_EQ(log.count(3, "Failed to strdup submod path m."), 1);
    EXPECT_EQ(heap.live(), 0u);
}

TEST_F(ImportSearch, ATextThatCannotBeListedCountsAsNotFound) {
    dir_.write("m.yang", "text of m");
    const DescriptorCheck descriptors;
    Heap heap;
    heap.fail_at(2);
    LogCapture log;
    const Answer answer = search("m");
    ASSERT_TRUE(heap.failed());
    EXPECT_EQ(answer.result, LY_SUCCESS);
    EXPECT_FALSE(answer.text);
    EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
    EXPECT_EQ(log.count(3, cannot_access(std::string{system_modules} + "/m.yang")), 1);
}

TEST_F(ImportSearch, AnyFailedAllocationLeavesNothingBehind) {
    dir_.write("m.yang", "text of m");
    const DescriptorCheck descriptors;
    const uint64_t failures = fail_each_allocation([this](bool expect_failure) {
        LogCapture log;
        const Answer answer = search("m");
        if (!expect_failure) {
            EXPECT_STREQ(answer.text, "text of m");
        }
        zam_free_module_map();
    });
    EXPECT_EQ(failures, 2u);
}

TEST_F(ImportSearch, TheLockIsReadyAfterInitAndAlsoAfterExit) {
    dir_.write("m.yang", "text of m");
    dir_.write("n.yang", "text of n");
    EXPECT_EQ(zam_module_init(), 0);
    EXPECT_STREQ(search("m").text, "text of m");
    zam_free_module_map();
    EXPECT_EQ(zam_module_exit(), 0);
    EXPECT_STREQ(search("n").text, "text of n");
    LogCapture log;
    zam_free_module_map();
    EXPECT_TRUE(log.mentions("Free submode:" + file("n.yang")));
}

TEST_F(ImportSearch, ManyThreadsShareTheTexts) {
    for (int i = 0; i < 8; ++i)
        dir_.write("m" + std::to_string(i) + ".yang", "text " + std::to_string(i));
    LogCapture log;
    std::vector<std::jthread> threads;
    std::atomic<int> wrong = 0;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int round = 0; round < 50; ++round) {
                const int i = round % 8;
                const char *const text = search(("m" + std::to_string(i)).c_str()).text;
                if (!text || "text " + std::to_string(i) != text) ++wrong;
            }
        });
    }
    threads.clear();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(log.lines().size(), 8u) << "each file is mapped once";
}

// Runs `body` in a process that sees an empty /usr/local of its own. Its result, or nothing where the kernel does not
// let us.
std::optional<int> with_own_usr_local(const std::function<int()> &body) {
    constexpr int not_allowed = 77;
    const pid_t child = fork();
    if (child == 0) {
        const bool isolated = (unshare(CLONE_NEWNS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0) &&
                              mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0 &&
                              mount("none", "/usr/local", "tmpfs", 0, nullptr) == 0;
        _exit(isolated ? body() : not_allowed);
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
    if (WEXITSTATUS(status) == not_allowed) return std::nullopt;
    return WEXITSTATUS(status);
}

TEST_F(ImportSearch, TheSystemsModulesComeAfterThoseOfTheDirectory) {
    dir_.write("both.yang", "beside");
    const auto result = with_own_usr_local([this] {
        std::filesystem::create_directories(system_modules);
        const auto put = [](const std::string &name, const char *text) {
            std::ofstream{std::string{system_modules} + "/" + name} << text;
        };
        put("both.yang", "system");
        put("only.yang", "system");
        put("only.yin", "system as YIN");
        const char *const both = search("both").text;
        const char *const only = search("only").text;
        const char *const yin = search("only", nullptr, LYS_IN_YIN).text;
        if (!both || !only || !yin) return 1;
        const bool right = std::string{both} == "beside" && std::string{only} == "system" &&
                           std::string{yin} == "system as YIN" && search("only").text == only;
        return right ? 0 : 2;
    });
    if (!result) GTEST_SKIP() << "no mount namespace of our own here";
    EXPECT_EQ(*result, 0);
}

} // namespace
