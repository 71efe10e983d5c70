// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <zamc/logger.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <functional>
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

using zam::test::DescriptorCheck;
using zam::test::Heap;
using zam::test::LogState;
using zam::test::read_file;
using zam::test::TempDir;

const zam_log_cfg config_at_start = *LogState::config();

struct Line {
    int level;
    std::string format;
    std::string text;
};

std::vector<Line> lines;

// An output function as an application writes one: it formats what it is given.
ZAM_PRINTF(2, 3) int _keep(int level, const char *format, ...) {
    std::array<char, 4096> text{};
    va_list args;
    va_start(args, format);
    std::vsnprintf(text.data(), text.size(), format, args);
    va_end(args);
    lines.push_back({level, format, text.data()});
    return 4711;
}

ZAM_PRINTF(2, 3) int _other(int, const char *, ...) {
    return 1;
}

ZAM_PRINTF(2, 3) int _disturb_errno(int, const char *, ...) {
    errno = EIO;
    return 1;
}

// What a body writes to standard output.
std::string _stdout_of(const std::function<void()> &body) {
    const TempDir dir;
    std::fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    FILE *file = std::fopen(dir.path("out").c_str(), "w");
    dup2(fileno(file), STDOUT_FILENO);
    body();
    std::fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    std::fclose(file);
    close(saved);
    return read_file(dir.path("out"));
}

constexpr const char *stamp_pattern = "\\d{4}-\\d{2}-\\d{2} \\d{2}:\\d{2}:\\d{2}\\.\\d{3}";

int (*const plain_log)(int, const char *, ...) = zam_log_printf; // takes a null format unseen

class Logger : public testing::Test {
protected:
    Logger() { lines.clear(); }
    LogState state_;
};

TEST_F(Logger, IsSilentAtLevelZeroUntilConfigured) {
    EXPECT_EQ(config_at_start.level, 0);
    EXPECT_EQ(config_at_start.output, nullptr);
}

TEST_F(Logger, WithoutAnOutputFunctionNothingIsPrintedAtAnyLevel) {
    const std::string printed = _stdout_of([] {
        for (int level = 0; level < 8; level++)
            EXPECT_EQ(zam_log_printf(level, "text\n"), 0);
    });
    EXPECT_EQ(printed, "");
}

TEST_F(Logger, ConfigReturnsTheOneRecordOfTheProcess) {
    zam_log_cfg *config = zam_log_config(5, _keep);
    ASSERT_NE(config, nullptr);
    EXPECT_EQ(config->level, 5);
    EXPECT_EQ(config->output, _keep);
    EXPECT_EQ(zam_log_config(6, nullptr), config);
}

TEST_F(Logger, ALevelOutOfRangeKeepsTheOldOneButInstallsTheOutput) {
    zam_log_config(4, _other);
    EXPECT_EQ(zam_log_config(9, _keep)->level, 4);
    EXPECT_EQ(LogState::config()->output, _keep);
    zam_log_config(8, nullptr);
    EXPECT_EQ(zam_get_log_level(), 4);
    zam_log_config(-1, nullptr);
    EXPECT_EQ(zam_get_log_level(), 4);
    zam_log_config(INT32_MIN, nullptr);
    EXPECT_EQ(zam_get_log_level(), 4);
}

TEST_F(Logger, ANullOutputChangesTheLevelOnly) {
    zam_log_config(2, _keep);
    EXPECT_EQ(zam_log_config(5, nullptr)->level, 5);
    EXPECT_EQ(LogState::config()->output, _keep);
    EXPECT_EQ(zam_get_log_level(), 5);
}

TEST_F(Logger, EveryLevelPrintsItsName) {
    zam_log_config(7, _keep);
    for (int level = 0; level < 8; level++)
        zam_log_printf(level, "x\n");
    const char *names[] = {"EMERG", "ALERT", "CRIT", "WRONG", "WARN", "NOTICE", "INFO", "DEBUG"};
    ASSERT_EQ(lines.size(), 8u);
    for (size_t level = 0; level < 8; level++) {
        EXPECT_EQ(lines[level].text, "[" + std::string{names[level]} + "] x\n");
        EXPECT_EQ(lines[level].level, static_cast<int>(level));
    }
}

TEST_F(Logger, MessagesAboveTheConfiguredLevelAreDropped) {
    zam_log_config(4, _keep);
    EXPECT_EQ(zam_log_printf(5, "dropped\n"), 0);
    EXPECT_EQ(zam_log_printf(4, "kept\n"), 4711);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].text, "[WARN] kept\n");
}

TEST_F(Logger, LevelsOutsideTheTableCannotBreakIt) {
    zam_log_config(7, _keep);
    zam_log_printf(-1, "x\n");
    zam_log_printf(INT_MIN, "x\n");
    zam_log_printf(8, "x\n");
    zam_log_printf(INT_MAX, "x\n");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].text, "[EMERG] x\n");
    EXPECT_EQ(lines[1].text, "[EMERG] x\n");
    LogState::config()->level = 100; // the record is the application's to edit
    zam_log_printf(50, "x\n");
    EXPECT_EQ(lines.back().text, "[DEBUG] x\n");
}

TEST_F(Logger, TheOutputGetsPercentSAndTheLineAndItsResultIsReturned) {
    zam_log_config(7, _keep);
    EXPECT_EQ(zam_log_printf(3, "%s %d%%\n", "disk", 90), 4711);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].format, "%s");
    EXPECT_EQ(lines[0].text, "[WRONG] disk 90%\n");
}

TEST_F(Logger, NoNewlineIsAdded) {
    zam_log_config(7, _keep);
    zam_log_printf(6, "bare");
    EXPECT_EQ(lines.at(0).text, "[INFO] bare");
}

TEST_F(Logger, AMessageIsCutAt1023CharactersWithItsPrefix) {
    zam_log_config(7, _keep);
    const std::string fits(1023 - 8, 'x'); // "[DEBUG] " counts towards the limit
    zam_log_printf(7, "%s", fits.c_str());
    zam_log_printf(7, "%s", (fits + "y").c_str());
    zam_log_printf(4, "%s", (fits + "yz").c_str());
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].text, "[DEBUG] " + fits);
    EXPECT_EQ(lines[1].text, "[DEBUG] " + fits);
    EXPECT_EQ(lines[2].text, "[WARN] " + fits + "y");
    EXPECT_EQ(lines[2].text.size(), 1023u);
}

TEST_F(Logger, ANullFormatPrintsNothing) {
    zam_log_config(7, _keep);
    EXPECT_EQ(plain_log(3, nullptr), 0);
    EXPECT_TRUE(lines.empty());
}

TEST_F(Logger, ErrnoSurvivesALogLine) {
    zam_log_config(7, _disturb_errno);
    errno = ENOENT;
    EXPECT_EQ(zam_log_printf(3, "x\n"), 1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(Logger, StandardOutputGetsTimeStampAndLineWithoutASeparator) {
    zam_log_config(7, zam_log_printf);
    const DescriptorCheck descriptors;
    const std::string printed = _stdout_of([] { EXPECT_GE(zam_log_printf(3, "Malloc %d bytes\n", 12), 0); });
    const std::regex shape{std::string{stamp_pattern} + "\\[WRONG\\] Malloc 12 bytes\n"};
    EXPECT_TRUE(std::regex_match(printed, shape)) << printed;
}

TEST_F(Logger, ATextWithConversionsReachesStandardOutputAsItStands) {
    zam_log_config(7, zam_log_printf);
    const std::string printed = _stdout_of([] { zam_log_printf(3, "%s\n", "100%s%n"); });
    EXPECT_NE(printed.find("[WRONG] 100%s%n\n"), std::string::npos) << printed;
}

TEST_F(Logger, ALineForStandardOutputAllocatesNothing) {
    Heap heap;
    zam_log_config(7, zam_log_printf);
    _stdout_of([] { zam_log_printf(3, "x\n"); });
    EXPECT_EQ(heap.allocations(), 0u);
}

TEST_F(Logger, AFailedAllocationIsLoggedToStandardOutputOnce) {
    Heap heap;
    zam_log_config(7, zam_log_printf);
    const std::string printed = _stdout_of([&] {
        heap.fail_at(1, true);
        EXPECT_EQ(zam_malloc_f(12, "place.c", 1), nullptr);
        heap.fail_at(0);
    });
    const std::regex shape{std::string{stamp_pattern} + "\\[WRONG\\] Malloc 12 bytes unsuccessful\\.\n"};
    EXPECT_TRUE(std::regex_match(printed, shape)) << printed;
}

TEST_F(Logger, ManyThreadsMayLogAtOnce) {
    zam_log_config(7, _other); // reads nothing, so only the logger itself is at work
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++) {
        threads.emplace_back([i] {
            for (int n = 0; n < 200; n++)
                EXPECT_EQ(zam_log_printf(3, "%d %d\n", i, n), 1);
        });
    }
    for (std::thread &thread : threads)
        thread.join();
}

TEST(LocalTime, HasDateTimeAndThreeDigitsOfMilliseconds) {
    Heap heap;
    char *text = zam_get_local_time();
    ASSERT_NE(text, nullptr);
    EXPECT_TRUE(std::regex_match(text, std::regex{stamp_pattern})) << text;
    zam_free(text);
    EXPECT_EQ(heap.live(), 0u);
}

TEST(LocalTime, IsTheTimeOfNowInTheLocalZone) {
    const time_t before = std::time(nullptr);
    char *text = zam_get_local_time();
    const time_t after = std::time(nullptr);
    ASSERT_NE(text, nullptr);
    tm parts = {};
    ASSERT_NE(strptime(text, "%Y-%m-%d %H:%M:%S", &parts), nullptr);
    zam_free(text);
    parts.tm_isdst = -1;
    const time_t told = mktime(&parts);
    EXPECT_LE(before, told);
    EXPECT_LE(told, after);
}

TEST(LocalTime, WithoutMemoryIsNull) {
    Heap heap;
    heap.fail_at(1);
    EXPECT_EQ(zam_get_local_time(), nullptr);
    EXPECT_TRUE(heap.failed());
    EXPECT_EQ(heap.live(), 0u);
}

} // namespace
