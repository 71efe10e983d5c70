// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The log file under threads: they write numbered lines over rotations, while the file is moved and deleted from
// outside, in a folder that takes no new file, and on a disk that is full for a time. Afterwards every line is looked
// for in all the files there are: it has to be there once and whole, and behind the one that its thread wrote before.
//
// With ZAMC_PLANT the output loses a line, doubles one and tears one.
#include <algorithm>
#include <array>
#include <atomic>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zamc/logger.h>

#include "fuzz/fuzz.h"
#include "runtime/logger_internal.h"
#include "support/files.h"

namespace zam::torture {
namespace {

namespace fs = std::filesystem;

constexpr unsigned threads = 8;
constexpr size_t stamp_length = 23;
constexpr off_t usual_size = 200 * 1024 * 1024;

struct Tally {
    uint64_t lines = 0;
    uint64_t failures = 0;
};
Tally tally;

void fail(const std::string &scene, const std::string &what) {
    if (++tally.failures <= 10) std::printf("%s: %s\n", scene.c_str(), what.c_str());
}

// A line tells who wrote it, its number and its own length, so that a torn one is seen whatever it lacks.
std::string text_of(unsigned thread, uint64_t number) {
    const size_t padding = number * 31 % (number % 97 == 0 ? 900 : 120);
    std::string text = "t" + std::to_string(thread) + " n" + std::to_string(number) + " " + std::string(padding, '.');
    return text + " " + std::to_string(text.size());
}

int faulty(int level, const char *format, ...) ZAM_PRINTF(2, 3);
int faulty(int level, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const std::string line = va_arg(args, const char *);
    va_end(args);
    if (line.find("t0 n77 ") != line.npos) return 0;
    if (line.find("t1 n77 ") != line.npos) zam_write_log_file(level, "%s", line.c_str());
    if (line.find("t2 n77 ") != line.npos) return zam_write_log_file(level, "%s", line.substr(0, 12).c_str());
    return zam_write_log_file(level, "%s", line.c_str());
}

void write_lines(unsigned thread, uint64_t from, uint64_t count) {
    for (uint64_t number = from; number < from + count; ++number)
        zam_log_printf(ZAM_LOG_INFO, "%s\n", text_of(thread, number).c_str());
}

// What was found in the files of a scene.
class Findings {
public:
    explicit Findings(std::string scene) : scene_{std::move(scene)} {}

    // Files in the order in which they were written.
    void read(const std::string &path) {
        const std::string all = test::read_file(path);
        size_t from = 0;
        while (from < all.size()) {
            const size_t end = all.find('\n', from);
            if (end == all.npos) {
                broken(all.substr(from));
                break;
            }
            line(all.substr(from, end - from));
            from = end + 1;
        }
    }

    // Every number from `from` on, of every thread.
    void expect_all(uint64_t from, uint64_t count) {
        for (unsigned thread = 0; thread < threads; ++thread) {
            auto &numbers = numbers_[thread];
            if (!std::is_sorted(numbers.begin(), numbers.end()))
                fail(scene_, "lines of thread " + std::to_string(thread) + " are out of order");
            std::sort(numbers.begin(), numbers.end());
            tally.lines += numbers.size();
            const auto twice = std::adjacent_find(numbers.begin(), numbers.end());
            if (twice != numbers.end())
                fail(scene_, "doubled: t" + std::to_string(thread) + " n" + std::to_string(*twice));
            for (uint64_t number = from; number < from + count; ++number)
                if (!std::binary_search(numbers.begin(), numbers.end(), number)) {
                    fail(scene_, "lost: t" + std::to_string(thread) + " n" + std::to_string(number));
                    break;
                }
        }
    }
    void expect_whole() {
        if (torn_ > 0) fail(scene_, std::to_string(torn_) + " torn, such as \"" + example_ + "\"");
    }
    uint64_t torn() const { return torn_; }
    uint64_t seen(unsigned thread) const { return numbers_[thread].size(); }
    uint64_t first(unsigned thread) const { return numbers_[thread].empty() ? 0 : numbers_[thread].front(); }

private:
    void line(const std::string &text) {
        unsigned thread = 0;
        uint64_t number = 0;
        const std::string rest = text.size() > stamp_length ? text.substr(stamp_length) : std::string{};
        if (std::sscanf(rest.c_str(), "[INFO] t%u n%" SCNu64 " ", &thread, &number) != 2 || thread >= threads ||
            rest.substr(7) != text_of(thread, number) || text[4] != '-' || text[19] != '.')
            return broken(text);
        numbers_[thread].push_back(number);
    }
    void broken(const std::string &text) {
        if (torn_++ == 0) example_ = text.substr(0, 160);
    }

    std::string scene_;
    std::array<std::vector<uint64_t>, threads> numbers_;
    uint64_t torn_ = 0;
    std::string example_;
};

template <typename F>
void with_threads(F work) {
    std::vector<std::thread> all;
    for (unsigned thread = 0; thread < threads; ++thread)
        all.emplace_back([=] { work(thread); });
    for (std::thread &one : all)
        one.join();
}

std::string rotated(const std::string &path, int number) {
    return path + "_" + std::to_string(number) + ".log";
}

// The ring is wide enough: all lines are there. 90 bytes is about what a line has on average.
void rotations(uint64_t count) {
    const test::TempDir dir;
    const std::string path = dir.path("log");
    runtime::log_file_size_max = static_cast<off_t>(std::max<uint64_t>(count * threads * 110 / 40, 4096));
    zam_open_log_file(path.c_str());
    with_threads([&](unsigned thread) { write_lines(thread, 0, count); });
    zam_close_log_file();
    Findings findings{"rotations"};
    int files = 0;
    for (int number = 1; number <= 50 && fs::exists(rotated(path, number)); ++number, ++files)
        findings.read(rotated(path, number));
    findings.read(path);
    if (files < 20 || files > 49) fail("rotations", std::to_string(files) + " rotated files");
    findings.expect_whole();
    findings.expect_all(0, count);
}

// The ring goes round: what is left are the last lines, one behind the other without a gap.
void ring(uint64_t count) {
    const test::TempDir dir;
    const std::string path = dir.path("log");
    runtime::log_file_size_max = 8192;
    zam_open_log_file(path.c_str());
    with_threads([&](unsigned thread) { write_lines(thread, 0, count); });
    zam_close_log_file();
    Findings findings{"ring"};
    std::vector<std::string> files;
    for (int number = 1; number <= 50; ++number)
        if (fs::exists(rotated(path, number))) files.push_back(rotated(path, number));
    if (files.size() != 49) fail("ring", std::to_string(files.size()) + " rotated files");
    std::stable_sort(files.begin(), files.end(),
                     [](const auto &a, const auto &b) { return fs::last_write_time(a) < fs::last_write_time(b); });
    for (const std::string &file : files)
        findings.read(file);
    findings.read(path);
    findings.expect_whole();
    tally.lines += count * threads;
    for (unsigned thread = 0; thread < threads; ++thread)
        if (findings.seen(thread) > 0 && findings.first(thread) + findings.seen(thread) != count)
            fail("ring", "a gap in the lines of thread " + std::to_string(thread));
}

// The file is moved, or deleted, again and again by somebody else, who keeps what there was.
void taken_away(uint64_t count, bool deleted) {
    const test::TempDir dir;
    const std::string path = dir.path("log");
    const std::string scene = deleted ? "deleted" : "moved";
    runtime::log_file_size_max = usual_size;
    zam_open_log_file(path.c_str());
    std::atomic<bool> stop = false;
    int taken = 0;
    std::thread other{[&] {
        for (; !stop && taken < 5000; usleep(500)) {
            const std::string kept = dir.path("kept" + std::to_string(taken));
            const int result = deleted ? link(path.c_str(), kept.c_str()) : rename(path.c_str(), kept.c_str());
            if (result != 0) continue;
            if (deleted) unlink(path.c_str());
            ++taken;
        }
    }};
    with_threads([&](unsigned thread) { write_lines(thread, 0, count); });
    stop = true;
    other.join();
    zam_close_log_file();
    Findings findings{scene};
    for (int number = 0; number < taken; ++number)
        findings.read(dir.path("kept" + std::to_string(number)));
    if (fs::exists(path)) findings.read(path);
    if (taken < 2) fail(scene, "was not taken away");
    findings.expect_whole();
    findings.expect_all(0, count);
}

// Runs `body` in a process of its own, which may give up rights; its failures are ours. 77: not possible here.
template <typename F>
bool apart(const char *scene, F body) {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        tally = {};
        const bool possible = body();
        std::fflush(stdout);
        _exit(possible ? static_cast<int>(std::min<uint64_t>(tally.failures, 50)) : 77);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77) return false;
    if (!WIFEXITED(status)) fail(scene, "died of signal " + std::to_string(WTERMSIG(status)));
    if (WIFEXITED(status)) tally.failures += static_cast<uint64_t>(WEXITSTATUS(status));
    return true;
}

// The folder takes no new file and lets none go: the file is not rotated, and no line is lost.
void unwritable_folder(uint64_t count) {
    const test::TempDir dir;
    const std::string path = dir.path("log");
    constexpr uid_t nobody = 65534;
    if (geteuid() == 0 && chown(dir.path().c_str(), nobody, nobody) != 0) return;
    const bool possible = apart("unwritable", [&] {
        if (geteuid() == 0 && (setegid(nobody) != 0 || seteuid(nobody) != 0)) return false;
        runtime::log_file_size_max = 8192;
        zam_open_log_file(path.c_str());
        if (chmod(dir.path().c_str(), 0500) != 0) return false;
        with_threads([&](unsigned thread) { write_lines(thread, 0, count); });
        Findings before{"unwritable"};
        before.read(path);
        before.expect_whole();
        before.expect_all(0, count);
        // Not even the file is there for a time: lines are lost then, and none afterwards.
        if (chmod(dir.path().c_str(), 0700) != 0 || rename(path.c_str(), dir.path("old").c_str()) != 0) return false;
        if (chmod(dir.path().c_str(), 0500) != 0) return false;
        with_threads([&](unsigned thread) { write_lines(thread, count, 10); });
        if (chmod(dir.path().c_str(), 0700) != 0) return false;
        runtime::log_file_size_max = usual_size;
        with_threads([&](unsigned thread) { write_lines(thread, count + 10, count); });
        zam_close_log_file();
        Findings after{"writable again"};
        after.read(path);
        after.expect_whole();
        after.expect_all(count + 10, count);
        return true;
    });
    if (possible) tally.lines += 2 * count * threads;
    if (!possible) std::printf("unwritable: skipped, this user may write everywhere\n");
}

void fill(const std::string &path) {
    std::FILE *const file = std::fopen(path.c_str(), "a");
    std::setvbuf(file, nullptr, _IONBF, 0);
    static const std::string block(512, 'x');
    while (std::fwrite(block.data(), 1, block.size(), file) == block.size()) {
    }
    std::fclose(file);
}

// The disk is full, has room again, is full …: while it is full lines are lost, and of each such time one may be torn;
// what is written with room is whole. No call takes long.
void full_disk(uint64_t count) {
    const test::TempDir dir;
    const bool possible = apart("full disk", [&] {
        const int user = geteuid() == 0 ? 0 : CLONE_NEWUSER;
        if (unshare(CLONE_NEWNS | user) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            return false;
        if (mount("none", dir.path().c_str(), "tmpfs", 0, "size=4m") != 0) return false;
        alarm(300); // whoever blocks is killed, which counts
        const std::string path = dir.path("log");
        runtime::log_file_size_max = usual_size;
        zam_open_log_file(path.c_str());
        constexpr uint64_t rounds = 5, with_room = 200;
        for (uint64_t round = 0; round < rounds; ++round) {
            const uint64_t from = round * (with_room + count);
            with_threads([&](unsigned thread) { write_lines(thread, from, with_room); });
            fill(dir.path("filler"));
            with_threads([&](unsigned thread) { write_lines(thread, from + with_room, count); });
            if (fs::file_size(dir.path("filler")) == 0) fail("full disk", "is not full");
            unlink(dir.path("filler").c_str());
        }
        with_threads([&](unsigned thread) { write_lines(thread, rounds * (with_room + count), with_room); });
        zam_close_log_file();
        Findings findings{"full disk"};
        findings.read(path);
        for (uint64_t round = 0; round <= rounds; ++round)
            findings.expect_all(round * (with_room + count), with_room);
        if (findings.torn() > rounds) findings.expect_whole();
        return true;
    });
    if (possible) tally.lines += 5 * count * threads;
    if (!possible) std::printf("full disk: skipped, no file system may be mounted here\n");
    // The device that is always full is there for everybody.
    const std::string link = dir.path("full");
    if (symlink("/dev/full", link.c_str()) != 0) return;
    zam_open_log_file(link.c_str());
    with_threads([&](unsigned thread) { write_lines(thread, 0, count); });
    zam_close_log_file();
    tally.lines += count * threads;
}

} // namespace
} // namespace zam::torture

// The one argument is the number of lines of each thread.
int main(int argc, char **argv) {
    using namespace zam;
    const uint64_t count = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 100000;
    zam_log_config(ZAM_LOG_INFO, fuzz::planted() ? torture::faulty : zam_write_log_file);
    torture::rotations(count);
    torture::ring(count / 4);
    torture::taken_away(count / 2, false);
    torture::taken_away(count / 2, true);
    torture::unwritable_folder(count / 20);
    torture::full_disk(count / 20);
    std::printf("logger: %" PRIu64 " points, %" PRIu64 " failures\n", torture::tally.lines, torture::tally.failures);
    return torture::tally.failures == 0 ? 0 : 1;
}
