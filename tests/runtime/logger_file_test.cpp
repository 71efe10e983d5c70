// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The log file. Large files are sparse: truncate makes 200 MiB that take no room.
#include <zamc/logger.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <zamc/mem.h>

#include "log_state.h"
#include "support/files.h"
#include "support/heap.h"

namespace {

namespace fs = std::filesystem;
using zam::test::DescriptorCheck;
using zam::test::Heap;
using zam::test::LogState;
using zam::test::open_descriptors;
using zam::test::read_file;
using zam::test::TempDir;

constexpr uintmax_t full_size = 209715200;
const std::string stamp = "\\d{4}-\\d{2}-\\d{2} \\d{2}:\\d{2}:\\d{2}\\.\\d{3}";

int (*const plain_write)(int, const char *, ...) = zam_write_log_file; // takes formats that mean no good

class LogFile : public testing::Test {
protected:
    ~LogFile() override { zam_close_log_file(); }

    std::string _path() const { return dir_.path("app.log"); }
    std::string _rotated(int number) const { return _path() + "_" + std::to_string(number) + ".log"; }
    void _make_rotated(int first, int last) const {
        for (int number = first; number <= last; number++)
            dir_.write("app.log_" + std::to_string(number) + ".log", "old");
    }
    void _open() const { zam_open_log_file(_path().c_str()); }
    // Makes the open file look full, and writes once, so that it is rotated.
    void _rotate() const {
        fs::resize_file(_path(), full_size);
        EXPECT_EQ(zam_write_log_file(3, "%s", "after\n"), 0);
    }
    // The names of all files but the log itself, in alphabetical order.
    std::vector<std::string> _others() const {
        std::vector<std::string> names;
        for (const auto &entry : fs::directory_iterator{dir_.path()})
            if (entry.path().filename() != "app.log") names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
    static bool _matches(const std::string &text, const std::string &pattern) {
        return std::regex_match(text, std::regex{pattern});
    }

    DescriptorCheck descriptors_;
    LogState state_;
    TempDir dir_;
};

TEST_F(LogFile, ALineHasTheTimeStampAndTheText) {
    _open();
    EXPECT_EQ(zam_write_log_file(3, "%s", "[WRONG] text\n"), 0);
    EXPECT_TRUE(_matches(read_file(_path()), stamp + "\\[WRONG\\] text\n")) << read_file(_path());
}

TEST_F(LogFile, TheLoggerWritesThroughIt) {
    _open();
    zam_log_config(6, zam_write_log_file);
    EXPECT_EQ(zam_log_printf(6, "%d started\n", 7), 0);
    EXPECT_EQ(zam_log_printf(7, "dropped\n"), 0);
    EXPECT_EQ(zam_log_printf(3, "%s\n", "100%s"), 0);
    const std::string pattern = stamp + "\\[INFO\\] 7 started\n" + stamp + "\\[WRONG\\] 100%s\n";
    EXPECT_TRUE(_matches(read_file(_path()), pattern)) << read_file(_path());
}

TEST_F(LogFile, AnExistingFileIsAppendedTo) {
    dir_.write("app.log", "before\n");
    _open();
    zam_write_log_file(3, "%s", "x\n");
    EXPECT_TRUE(_matches(read_file(_path()), "before\n" + stamp + "x\n")) << read_file(_path());
}

TEST_F(LogFile, TheFormatIsAppliedASecondTimeToItsOwnText) {
    _open();
    zam_write_log_file(3, "<%s>", "x");
    EXPECT_TRUE(_matches(read_file(_path()), stamp + "<<x>>")) << read_file(_path());
}

TEST_F(LogFile, AFormatThatReadsMoreThanOneTextIsNotAppliedAgain) {
    _open();
    zam_write_log_file(3, "%s is %d\n", "x", 7);
    zam_write_log_file(3, "%s%s\n", "a", "b");
    zam_write_log_file(3, "100%%\n");
    EXPECT_TRUE(_matches(read_file(_path()), stamp + "x is 7\n" + stamp + "ab\n" + stamp + "100%\n"))
        << read_file(_path());
}

TEST_F(LogFile, ATextOf1024CharactersIsWrittenAndALongerOneLeavesOnlyItsStamp) {
    _open();
    const std::string longest(1024, 'x');
    zam_write_log_file(3, "%s", longest.c_str());
    EXPECT_TRUE(_matches(read_file(_path()), stamp + "x{1024}"));
    zam_write_log_file(3, "%s", (longest + "y").c_str());
    zam_close_log_file(); // a lone stamp waits for the next flush
    EXPECT_TRUE(_matches(read_file(_path()), stamp + "x{1024}" + stamp));
}

TEST_F(LogFile, WithoutAnOpenFileNothingIsWrittenAndNothingBreaks) {
    EXPECT_EQ(zam_write_log_file(3, "%s", "x\n"), 0);
    EXPECT_TRUE(fs::is_empty(dir_.path()));
}

TEST_F(LogFile, NullArgumentsDoNothing) {
    zam_open_log_file(nullptr);
    EXPECT_EQ(plain_write(3, nullptr), 0);
    _open();
    zam_open_log_file(nullptr); // and the open one stays open
    EXPECT_EQ(plain_write(3, nullptr), 0);
    EXPECT_EQ(zam_write_log_file(3, "%s", "x\n"), 0);
    EXPECT_TRUE(_matches(read_file(_path()), stamp + "x\n"));
}

TEST_F(LogFile, ClosingWithNothingOpenIsHarmless) {
    EXPECT_EQ(zam_close_log_file(), 0);
    _open();
    EXPECT_EQ(zam_close_log_file(), 0);
    EXPECT_EQ(zam_close_log_file(), 0);
}

TEST_F(LogFile, AfterClosingNothingIsWritten) {
    _open();
    zam_close_log_file();
    EXPECT_EQ(zam_write_log_file(3, "%s", "x\n"), 0);
    EXPECT_EQ(read_file(_path()), "");
}

TEST_F(LogFile, OpeningTheSamePathAgainKeepsTheFile) {
    _open();
    const int open = open_descriptors();
    fs::rename(_path(), dir_.path("moved"));
    _open();
    EXPECT_FALSE(fs::exists(_path())) << "the file was opened again";
    EXPECT_EQ(open_descriptors(), open);
}

TEST_F(LogFile, OpeningAnotherPathClosesTheFirst) {
    _open();
    const int open = open_descriptors();
    zam_open_log_file(dir_.path("other.log").c_str());
    EXPECT_EQ(open_descriptors(), open);
    zam_write_log_file(3, "%s", "x\n");
    EXPECT_EQ(read_file(_path()), "");
    EXPECT_TRUE(_matches(read_file(dir_.path("other.log")), stamp + "x\n"));
}

TEST_F(LogFile, APathThatCannotBeOpenedLeavesNothingOpen) {
    _open();
    zam_open_log_file(dir_.path("missing/app.log").c_str());
    EXPECT_EQ(zam_write_log_file(3, "%s", "x\n"), 0);
    EXPECT_EQ(read_file(_path()), "");
    EXPECT_EQ(zam_close_log_file(), 0);
}

TEST_F(LogFile, ADeletedFileIsMadeAnewByTheNextWrite) {
    _open();
    zam_write_log_file(3, "%s", "first\n");
    fs::remove(_path());
    zam_write_log_file(3, "%s", "second\n");
    EXPECT_TRUE(_matches(read_file(_path()), stamp + "second\n")) << read_file(_path());
}

TEST_F(LogFile, AFileMovedAwayIsLeftToItsNewPlace) {
    _open();
    zam_write_log_file(3, "%s", "first\n");
    fs::rename(_path(), dir_.path("moved"));
    zam_write_log_file(3, "%s", "second\n");
    EXPECT_TRUE(_matches(read_file(dir_.path("moved")), stamp + "first\n"));
    EXPECT_TRUE(_matches(read_file(_path()), stamp + "second\n"));
}

TEST_F(LogFile, AFolderThatGoesTurnsTheFileOffUntilItIsBack) {
    const std::string path = dir_.path("sub/app.log");
    fs::create_directory(dir_.path("sub"));
    zam_open_log_file(path.c_str());
    fs::remove_all(dir_.path("sub"));
    EXPECT_EQ(zam_write_log_file(3, "%s", "lost\n"), 0);
    EXPECT_EQ(zam_write_log_file(3, "%s", "lost\n"), 0);
    fs::create_directory(dir_.path("sub"));
    EXPECT_EQ(zam_write_log_file(3, "%s", "kept\n"), 0);
    EXPECT_TRUE(_matches(read_file(path), stamp + "kept\n")) << read_file(path);
}

TEST_F(LogFile, AtFullSizeItIsMovedAndBegunAnew) {
    _open();
    zam_write_log_file(3, "%s", "first\n");
    _rotate();
    EXPECT_EQ(fs::file_size(_rotated(1)), full_size);
    EXPECT_TRUE(_matches(read_file(_path()), stamp + "after\n")) << read_file(_path());
}

TEST_F(LogFile, OneByteBelowFullSizeItStays) {
    _open();
    fs::resize_file(_path(), full_size - 1);
    zam_write_log_file(3, "%s", "x");
    EXPECT_TRUE(_others().empty());
    EXPECT_GT(fs::file_size(_path()), full_size);
}

TEST_F(LogFile, RotationsGoUpByOneNumber) {
    _open();
    _rotate();
    _rotate();
    EXPECT_EQ(_others(), (std::vector<std::string>{"app.log_1.log", "app.log_2.log"}));
}

TEST_F(LogFile, TheFirstNumberIsTheLowestThatIsFree) {
    _make_rotated(1, 2);
    _make_rotated(5, 5);
    _open();
    _rotate();
    EXPECT_EQ(fs::file_size(_rotated(3)), full_size);
    EXPECT_EQ(_others(),
              (std::vector<std::string>{"app.log_1.log", "app.log_2.log", "app.log_3.log", "app.log_5.log"}));
}

TEST_F(LogFile, ARotationDeletesTheFileOfTheNextNumber) {
    _make_rotated(1, 1);
    _make_rotated(3, 4);
    _open();
    _rotate();
    EXPECT_EQ(_others(), (std::vector<std::string>{"app.log_1.log", "app.log_2.log", "app.log_4.log"}));
}

TEST_F(LogFile, AfterFiftyTheNumberIsOneAgain) {
    _make_rotated(1, 49);
    _open();
    _rotate();
    EXPECT_EQ(fs::file_size(_rotated(50)), full_size);
    EXPECT_FALSE(fs::exists(_rotated(1)));
    EXPECT_TRUE(fs::exists(_rotated(2)));
    _rotate();
    EXPECT_EQ(fs::file_size(_rotated(1)), full_size);
    EXPECT_FALSE(fs::exists(_rotated(2)));
    EXPECT_EQ(_others().size(), 49u) << "one slot of the ring is always empty";
}

TEST_F(LogFile, WhenAllFiftyExistTheNumberStaysWhatItWas) {
    zam_open_log_file(dir_.path("other.log").c_str());
    for (int number = 1; number <= 6; number++)
        dir_.write("next.log_" + std::to_string(number) + ".log", "old");
    zam_open_log_file(dir_.path("next.log").c_str()); // 7 now
    _make_rotated(1, 50);
    _open();
    _rotate();
    EXPECT_EQ(fs::file_size(_rotated(7)), full_size);
    EXPECT_FALSE(fs::exists(_rotated(8)));
}

// Runs in a process that has never opened a log: true if all fifty names taken lead to "_0" and then to 1.
bool _fresh_process_begins_at_zero() {
    const TempDir dir;
    const std::string path = dir.path("app.log");
    const auto rotated = [&](int number) { return path + "_" + std::to_string(number) + ".log"; };
    for (int number = 1; number <= 50; number++)
        dir.write("app.log_" + std::to_string(number) + ".log", "old");
    zam_open_log_file(path.c_str());
    fs::resize_file(path, full_size);
    zam_write_log_file(3, "%s", "x\n");
    const bool first = fs::exists(rotated(0)) && fs::file_size(rotated(0)) == full_size && !fs::exists(rotated(1));
    fs::resize_file(path, full_size);
    zam_write_log_file(3, "%s", "x\n");
    const bool second = fs::file_size(rotated(1)) == full_size && !fs::exists(rotated(2));
    return zam_close_log_file() == 0 && first && second;
}

TEST(LogFileDeathTest, WhenAllFiftyExistAtTheStartOfAProcessTheFirstRotationWritesZero) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // starts the program anew, with the state that it has after load
    EXPECT_EXIT(std::exit(_fresh_process_begins_at_zero() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST_F(LogFile, WritingRotatingAndClosingAllocateNothing) {
    Heap heap;
    _open();
    EXPECT_EQ(heap.live(), 1u) << heap.live_sites(); // the path
    heap.reset_count();
    zam_write_log_file(3, "%s", "x\n");
    _rotate();
    fs::remove(_path());
    zam_write_log_file(3, "%s", "x\n");
    EXPECT_EQ(heap.allocations(), 0u);
    EXPECT_EQ(zam_close_log_file(), 0);
    EXPECT_EQ(heap.live(), 0u);
}

TEST_F(LogFile, AFailedAllocationIsLoggedToARotatingFileWithoutADeadlock) {
    Heap heap;
    _open();
    zam_log_config(7, zam_write_log_file);
    fs::resize_file(_path(), full_size);
    heap.fail_at(1, true);
    EXPECT_EQ(zam_malloc_f(12, "place.c", 1), nullptr);
    heap.fail_at(0);
    EXPECT_TRUE(fs::exists(_rotated(1)));
    EXPECT_TRUE(_matches(read_file(_path()), stamp + "\\[WRONG\\] Malloc 12 bytes unsuccessful\\.\n"))
        << read_file(_path());
    zam_close_log_file();
    EXPECT_EQ(heap.live(), 0u);
}

TEST_F(LogFile, OpeningWithoutMemoryLeavesNothingOpen) {
    Heap heap;
    const int open = open_descriptors();
    heap.fail_at(1);
    _open();
    heap.fail_at(0);
    EXPECT_EQ(open_descriptors(), open);
    EXPECT_EQ(heap.live(), 0u);
    EXPECT_EQ(zam_write_log_file(3, "%s", "x\n"), 0);
}

TEST_F(LogFile, LinesOfSeveralThreadsStayWhole) {
    _open();
    zam_log_config(7, zam_write_log_file);
    constexpr int per_thread = 100;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++) {
        threads.emplace_back([i] {
            for (int n = 0; n < per_thread; n++)
                zam_log_printf(3, "thread %d line %03d\n", i, n);
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    const std::string text = read_file(_path());
    const std::regex line{stamp + "\\[WRONG\\] thread \\d line \\d{3}\n"};
    const auto found = std::distance(std::sregex_iterator{text.begin(), text.end(), line}, std::sregex_iterator{});
    EXPECT_EQ(found, 4 * per_thread);
    EXPECT_EQ(text.size(), static_cast<size_t>(4 * per_thread) * (23 + 26)) << "nothing stands between the lines";
}

} // namespace
