// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <zamc/mem.h>

#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "runtime/mem_internal.h"
#include "support/heap.h"
#include "support/log_capture.h"

#if defined(__SANITIZE_ADDRESS__)
#define ZAMC_TEST_OWN_MALLOC 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZAMC_TEST_OWN_MALLOC 1
#endif
#endif

namespace {

using zam::test::fail_each_allocation;
using zam::test::Heap;
using zam::test::LogCapture;

const zam_mem_funs funs_at_start = g_nyb_mem_funs; // before any test installs hooks

// Hooks that note their arguments; each block carries a mark so that a wrong release shows.
struct Call {
    std::string name;
    uint32_t count;
    uint32_t size;
    std::string file;
    uint32_t line;
};

std::vector<Call> calls;
bool refuse;

void *_malloc_hook(uint32_t size, const char *file, uint32_t line) {
    calls.push_back({"malloc", 1, size, file, line});
    if (refuse) return nullptr;
    void *block = std::malloc(size ? size : 1);
    std::memset(block, 0xa5, size); // nobody may rely on zeroes here
    return block;
}

void *_calloc_hook(uint32_t count, uint32_t size, const char *file, uint32_t line) {
    calls.push_back({"calloc", count, size, file, line});
    return refuse ? nullptr : std::calloc(count, size);
}

void _free_hook(void *block) {
    calls.push_back({"free", 0, 0, "", 0});
    std::free(block);
}

class Mem : public testing::Test {
protected:
    void SetUp() override {
        calls.clear();
        refuse = false;
        _install(nullptr, nullptr, nullptr);
    }
    void TearDown() override { _install(nullptr, nullptr, nullptr); }

    static void _install(zam_malloc_fn allocate, zam_calloc_fn zeroed, zam_free_fn release) {
        g_nyb_mem_funs = {allocate, zeroed, release};
    }
    static void _install_all() { _install(_malloc_hook, _calloc_hook, _free_hook); }
    static void _install_malloc() { _install(_malloc_hook, nullptr, _free_hook); }
    LogCapture log_;
};

int32_t _asprintf_through_list(char **out, const char *format, ...) ZAM_PRINTF(2, 3);
int32_t _asprintf_through_list(char **out, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int32_t result = zam_vasprintf(out, format, args);
    va_end(args);
    return result;
}

int32_t (*const plain_asprintf)(char **, const char *, ...) = zam_asprintf; // takes a null format unseen

TEST_F(Mem, TheTableIsAllNullAtTheStart) {
    EXPECT_EQ(funs_at_start.allocate, nullptr);
    EXPECT_EQ(funs_at_start.allocate_zeroed, nullptr);
    EXPECT_EQ(funs_at_start.release, nullptr);
}

TEST_F(Mem, InitCopiesAllThreeSlotsAtOnce) {
    const zam_mem_funs all = {_malloc_hook, _calloc_hook, _free_hook};
    EXPECT_EQ(zam_mem_init(&all), 0);
    EXPECT_EQ(g_nyb_mem_funs.allocate, _malloc_hook);
    EXPECT_EQ(g_nyb_mem_funs.allocate_zeroed, _calloc_hook);
    EXPECT_EQ(g_nyb_mem_funs.release, _free_hook);
    const zam_mem_funs zeroed_only = {nullptr, _calloc_hook, nullptr};
    EXPECT_EQ(zam_mem_init(&zeroed_only), 0);
    EXPECT_EQ(g_nyb_mem_funs.allocate, nullptr);
    EXPECT_EQ(g_nyb_mem_funs.allocate_zeroed, _calloc_hook);
    EXPECT_EQ(g_nyb_mem_funs.release, nullptr);
}

TEST_F(Mem, InitWithNullLeavesTheHooksAlone) {
    _install_all();
    EXPECT_EQ(zam_mem_init(nullptr), 0);
    EXPECT_EQ(g_nyb_mem_funs.allocate, _malloc_hook);
    EXPECT_EQ(g_nyb_mem_funs.allocate_zeroed, _calloc_hook);
    EXPECT_EQ(g_nyb_mem_funs.release, _free_hook);
}

TEST_F(Mem, InitSendsBlocksFrom128KiBOnToMmapOnEveryCall) {
#ifdef ZAMC_TEST_OWN_MALLOC
    GTEST_SKIP() << "the sanitizer brings an allocator of its own";
#else
    // How many of 64 blocks are mapped; the heap may have room left for a few of any size.
    const auto mapped_of_64 = [](size_t size) {
        malloc_trim(0);
        const size_t before = mallinfo2().hblks;
        std::vector<void *> blocks(64);
        for (void *&block : blocks)
            block = std::malloc(size);
        const size_t after = mallinfo2().hblks;
        for (void *block : blocks)
            std::free(block);
        return after - before;
    };
    for (int round = 0; round < 2; round++) {
        mallopt(M_MMAP_THRESHOLD, 16 << 20);
        EXPECT_EQ(mapped_of_64(0x20000), 0u);
        zam_mem_init(nullptr);
        EXPECT_GT(mapped_of_64(0x20000), 32u);
        EXPECT_EQ(mapped_of_64(0x20000 - 4096), 0u);
    }
#endif
}

TEST_F(Mem, MallocAsksTheHookWithTheCallersPlace) {
    _install_all();
    void *block = zam_malloc_f(12, "place.c", 34);
    ASSERT_NE(block, nullptr);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].name, "malloc");
    EXPECT_EQ(calls[0].size, 12u);
    EXPECT_EQ(calls[0].file, "place.c");
    EXPECT_EQ(calls[0].line, 34u);
    zam_free(block);
    EXPECT_EQ(calls.back().name, "free");
}

TEST_F(Mem, MallocWithoutHookUsesTheSystemLibrary) {
    void *block = zam_malloc_f(12, "place.c", 34);
    ASSERT_NE(block, nullptr);
    std::memset(block, 1, 12);
    std::free(block);
    EXPECT_TRUE(calls.empty());
}

TEST_F(Mem, MallocWithoutMemoryLogsTheSize) {
    _install_all();
    refuse = true;
    EXPECT_EQ(zam_malloc_f(12, "place.c", 34), nullptr);
    ASSERT_EQ(log_.lines().size(), 1u);
    EXPECT_EQ(log_.lines()[0], (LogCapture::Line{3, "[WRONG] Malloc 12 bytes unsuccessful.\n"}));
}

TEST_F(Mem, CallocAsksItsHookWithCountAndSize) {
    _install_all();
    void *block = zam_calloc_f(4, 8, "place.c", 34);
    ASSERT_NE(block, nullptr);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].name, "calloc");
    EXPECT_EQ(calls[0].count, 4u);
    EXPECT_EQ(calls[0].size, 8u);
    EXPECT_EQ(calls[0].file, "place.c");
    EXPECT_EQ(calls[0].line, 34u);
    zam_free(block);
}

TEST_F(Mem, CallocWithoutMemoryLogsTheElementSize) {
    _install_all();
    refuse = true;
    EXPECT_EQ(zam_calloc_f(4, 8, "place.c", 34), nullptr);
    ASSERT_EQ(log_.lines().size(), 1u);
    EXPECT_EQ(log_.lines()[0], (LogCapture::Line{3, "[WRONG] Calloc 8 bytes unsuccessful.\n"}));
}

TEST_F(Mem, CallocWithoutItsHookCallsTheMallocHookWithTheProductAndZeroesTheBlock) {
    _install_malloc();
    auto *block = static_cast<char *>(zam_calloc_f(4, 8, "place.c", 34));
    ASSERT_NE(block, nullptr);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].name, "malloc");
    EXPECT_EQ(calls[0].size, 32u);
    EXPECT_EQ(std::string(block, 32), std::string(32, '\0'));
    zam_free(block);
}

TEST_F(Mem, CallocWithoutItsHookNamesItsOwnPlaceNotTheCallers) {
    _install_malloc();
    zam_free(zam_calloc_f(4, 8, "place.c", 34));
    ASSERT_FALSE(calls.empty());
    EXPECT_NE(calls[0].file.find("mem.cpp"), std::string::npos) << calls[0].file;
    EXPECT_NE(calls[0].line, 34u);
}

TEST_F(Mem, CallocWithoutItsHookAndWithoutMemoryLogsTheWholeSizeOnce) {
    _install_malloc();
    refuse = true;
    EXPECT_EQ(zam_calloc_f(4, 8, "place.c", 34), nullptr);
    ASSERT_EQ(log_.lines().size(), 1u);
    EXPECT_EQ(log_.lines()[0], (LogCapture::Line{3, "[WRONG] Malloc 32 bytes unsuccessful.\n"}));
}

TEST_F(Mem, CallocWithoutHooksGivesZeroedSystemMemory) {
    auto *block = static_cast<char *>(zam_calloc_f(4, 8, "place.c", 34));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::string(block, 32), std::string(32, '\0'));
    std::free(block);
}

TEST_F(Mem, CallocOfAProductBeyond32BitsIsALackOfMemory) {
    EXPECT_EQ(zam_calloc_f(0x10000, 0x10001, "place.c", 34), nullptr);
    EXPECT_TRUE(log_.has(3, "Calloc 65537 bytes unsuccessful."));
    _install_malloc();
    EXPECT_EQ(zam_calloc_f(0x10000, 0x10001, "place.c", 34), nullptr);
    EXPECT_TRUE(calls.empty()) << "a shortened size reached the allocator";
}

TEST_F(Mem, FreeOfNullCallsNobody) {
    zam_free(nullptr);
    _install_all();
    zam_free(nullptr);
    EXPECT_TRUE(calls.empty());
}

TEST_F(Mem, FreeWithoutHookReleasesSystemMemory) {
    zam_free(std::malloc(5));
    EXPECT_TRUE(calls.empty());
}

TEST_F(Mem, StrdupCopiesThroughTheHook) {
    _install_all();
    char *copy = zam_strdup_f("hello", "place.c", 34);
    ASSERT_STREQ(copy, "hello");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].name, "malloc");
    EXPECT_EQ(calls[0].size, 6u);
    EXPECT_EQ(calls[0].file, "place.c");
    EXPECT_EQ(calls[0].line, 34u);
    zam_free(copy);
}

TEST_F(Mem, StrdupWithoutHookUsesTheSystemLibrary) {
    char *copy = zam_strdup_f("hello", "place.c", 34);
    EXPECT_STREQ(copy, "hello");
    std::free(copy);
}

TEST_F(Mem, StrdupOfNullIsNullWithAndWithoutHook) {
    EXPECT_EQ(zam_strdup_f(nullptr, "place.c", 34), nullptr);
    _install_all();
    EXPECT_EQ(zam_strdup_f(nullptr, "place.c", 34), nullptr);
    EXPECT_TRUE(calls.empty());
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(Mem, StrndupWithHookAllocatesTheWholeLengthForAShorterText) {
    _install_all();
    char *copy = zam_strndup_f("ab", 5, "place.c", 34);
    ASSERT_STREQ(copy, "ab");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].size, 6u);
    EXPECT_EQ(calls[0].file, "place.c");
    EXPECT_EQ(calls[0].line, 34u);
    EXPECT_EQ(copy[5], '\0');
    zam_free(copy);
}

TEST_F(Mem, StrndupWithHookCutsALongerTextThatNeedNotEnd) {
    _install_all();
    const char text[] = {'a', 'b', 'c', 'd'};
    char *copy = zam_strndup_f(text, 3, "place.c", 34);
    EXPECT_STREQ(copy, "abc");
    EXPECT_EQ(calls.at(0).size, 4u);
    zam_free(copy);
}

TEST_F(Mem, StrndupOfZeroCharactersIsAnEmptyText) {
    _install_all();
    char *copy = zam_strndup_f("ab", 0, "place.c", 34);
    EXPECT_STREQ(copy, "");
    EXPECT_EQ(calls.at(0).size, 1u);
    zam_free(copy);
}

TEST_F(Mem, StrndupWithoutHookUsesTheSystemLibrary) {
    char *copy = zam_strndup_f("abcd", 3, "place.c", 34);
    EXPECT_STREQ(copy, "abc");
    std::free(copy);
}

TEST_F(Mem, StrndupOfNullIsNullWithAndWithoutHook) {
    EXPECT_EQ(zam_strndup_f(nullptr, 3, "place.c", 34), nullptr);
    _install_all();
    EXPECT_EQ(zam_strndup_f(nullptr, 3, "place.c", 34), nullptr);
    EXPECT_TRUE(calls.empty());
}

TEST_F(Mem, StrndupOfTheGreatestLengthWithHookIsRefused) {
    _install_all();
    EXPECT_EQ(zam_strndup_f("ab", UINT32_MAX, "place.c", 34), nullptr);
    EXPECT_TRUE(calls.empty()) << "length + 1 wrapped to a block without room";
}

TEST_F(Mem, AsprintfPutsTheTextOnTheHookedHeap) {
    _install_all();
    char *text = nullptr;
    EXPECT_EQ(zam_asprintf(&text, "%s-%d", "a", 42), 4);
    ASSERT_STREQ(text, "a-42");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].name, "malloc");
    EXPECT_EQ(calls[0].size, 5u);
    zam_free(text);
}

TEST_F(Mem, AsprintfWithoutHookLeavesTheTextOnTheSystemHeap) {
    char *text = nullptr;
    EXPECT_EQ(zam_asprintf(&text, "%s-%d", "a", 42), 4);
    EXPECT_STREQ(text, "a-42");
    std::free(text);
}

TEST_F(Mem, VasprintfPutsTheTextOnTheHookedHeap) {
    _install_all();
    char *text = nullptr;
    EXPECT_EQ(_asprintf_through_list(&text, "%05d", 42), 5);
    EXPECT_STREQ(text, "00042");
    EXPECT_EQ(calls.size(), 1u);
    zam_free(text);
}

TEST_F(Mem, AsprintfWithoutMemoryGivesMinusOneAndNoText) {
    _install_all();
    refuse = true;
    char *text = nullptr;
    EXPECT_EQ(zam_asprintf(&text, "%d", 42), -1);
    EXPECT_EQ(text, nullptr);
    EXPECT_TRUE(log_.has(3, "Malloc 3 bytes unsuccessful."));
}

TEST_F(Mem, AsprintfRefusesNullArguments) {
    char *text = nullptr;
    EXPECT_EQ(plain_asprintf(nullptr, "text"), -1);
    EXPECT_EQ(plain_asprintf(&text, nullptr), -1);
    EXPECT_EQ(text, nullptr);
}

TEST_F(Mem, TheShortFormsNameTheLineThatCallsThem) {
    _install_all();
    const uint32_t line = __LINE__ + 1;
    void *blocks[] = {zam_malloc(1), zam_calloc(1, 1), zam_strdup("a"), zam_strndup("a", 1)};
    ASSERT_EQ(calls.size(), 4u);
    for (const Call &call : calls) {
        EXPECT_EQ(call.line, line);
        EXPECT_NE(call.file.find("mem_test.cpp"), std::string::npos);
    }
    for (void *block : blocks)
        zam_free(block);
}

TEST(MemHeap, CopiesAndFormatsLeaveNothingBehindWhenAnyAllocationFails) {
    const uint64_t failed = fail_each_allocation([](bool) {
        for (char *text : {zam_strdup("hello"), zam_strndup("hello", 3)})
            zam_free(text);
        char *text = nullptr;
        const int32_t length = zam_asprintf(&text, "%s", "hello");
        EXPECT_EQ(length, text ? 5 : -1);
        zam_free(text);
    });
    EXPECT_EQ(failed, 3u);
}

TEST(MemHeap, ARecordWithATailIsOneZeroedBlock) {
    struct record {
        uint64_t number;
    };
    Heap heap;
    auto *made = zam::runtime::mem_new<record>(8);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->number, 0u);
    EXPECT_EQ(heap.allocations(), 1u);
    EXPECT_NE(heap.live_sites().find("mem_test.cpp"), std::string::npos) << heap.live_sites();
    EXPECT_NE(heap.live_sites().find(" 16\n"), std::string::npos) << heap.live_sites();
    zam_free(made);
}

TEST(MemHeap, ASizeThatTheHooksCannotExpressIsALackOfMemory) {
    const LogCapture log;
    Heap heap;
    EXPECT_EQ(zam::runtime::mem_zeroed(uint64_t{UINT32_MAX} + 1), nullptr);
    EXPECT_EQ(zam::runtime::mem_new<uint64_t>(UINT64_MAX), nullptr);
    EXPECT_EQ(zam::runtime::mem_new<uint64_t>(UINT32_MAX), nullptr);
    EXPECT_EQ(heap.allocations(), 0u);
    EXPECT_EQ(log.lines().size(), 3u);
    EXPECT_TRUE(log.mentions("[WRONG] Calloc "));
}

} // namespace
