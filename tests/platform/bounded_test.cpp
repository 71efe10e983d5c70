// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Copies and fills. Each function meets one table: exact fit, one short, zero, overlap, null.
#include "platform/bounded.h"

#include <cerrno>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

constexpr size_t stray = SIZE_MAX / 2 + 1; // what a negative number looks like as a size
constexpr int none = -1;                   // a null pointer in the tables below

// One place in the arena, or null.
char *_at(std::string &arena, int offset) {
    return offset == none ? nullptr : arena.data() + offset;
}

struct CopyCase {
    const char *name;
    int dst;
    size_t size;
    int src;
    size_t count;
    int result;
    const char *arena; // afterwards
};

// A test's name is the sentence; the row's name says which one failed.
void _check_copies(int (*copy)(void *, size_t, const void *, size_t), const std::vector<CopyCase> &cases) {
    for (const auto &row : cases) {
        SCOPED_TRACE(row.name);
        std::string arena = "abcdefghij";
        EXPECT_EQ(copy(_at(arena, row.dst), row.size, _at(arena, row.src), row.count), row.result);
        EXPECT_EQ(arena, row.arena);
    }
}

TEST(Bounded, MemcpyCopiesWhatFitsAndRefusesTheRestUntouched) {
    _check_copies(memcpy_s, {
                                {"exact fit", 0, 4, 5, 4, 0, "fghiefghij"},
                                {"room to spare", 0, 5, 5, 4, 0, "fghiefghij"},
                                {"neighbours do not overlap", 4, 4, 0, 4, 0, "abcdabcdij"},
                                {"one short", 0, 3, 5, 4, ERANGE, "abcdefghij"},
                                {"zero bytes", 0, 4, 5, 0, 0, "abcdefghij"},
                                {"zero bytes into zero", 0, 0, 5, 0, 0, "abcdefghij"},
                                {"zero bytes of nothing", none, 0, none, 0, 0, "abcdefghij"},
                                {"zero room", 0, 0, 5, 1, ERANGE, "abcdefghij"},
                                {"overlap ahead", 0, 4, 3, 4, EINVAL, "abcdefghij"},
                                {"overlap behind", 3, 4, 0, 4, EINVAL, "abcdefghij"},
                                {"onto itself", 2, 4, 2, 4, EINVAL, "abcdefghij"},
                                {"null destination", none, 4, 0, 4, EINVAL, "abcdefghij"},
                                {"null source", 0, 4, none, 4, EINVAL, "abcdefghij"},
                                {"stray size", 0, stray, 5, 4, EINVAL, "abcdefghij"},
                                {"stray count", 0, 4, 5, stray, ERANGE, "abcdefghij"},
                            });
}

TEST(Bounded, MemmoveCopiesOverlappingBlocksToo) {
    _check_copies(memmove_s, {
                                 {"exact fit", 0, 4, 5, 4, 0, "fghiefghij"},
                                 {"one short", 0, 3, 5, 4, ERANGE, "abcdefghij"},
                                 {"zero bytes", 0, 4, 5, 0, 0, "abcdefghij"},
                                 {"zero bytes of nothing", none, 0, none, 0, 0, "abcdefghij"},
                                 {"zero room", 0, 0, 5, 1, ERANGE, "abcdefghij"},
                                 {"overlap ahead", 0, 6, 2, 6, 0, "cdefghghij"},
                                 {"overlap behind", 2, 6, 0, 6, 0, "ababcdefij"},
                                 {"onto itself", 2, 4, 2, 4, 0, "abcdefghij"},
                                 {"null destination", none, 4, 0, 4, EINVAL, "abcdefghij"},
                                 {"null source", 0, 4, none, 4, EINVAL, "abcdefghij"},
                                 {"stray size", 0, stray, 5, 4, EINVAL, "abcdefghij"},
                                 {"stray count", 0, 4, 5, stray, ERANGE, "abcdefghij"},
                             });
}

TEST(Bounded, MemsetFillsWhatFits) {
    const struct {
        const char *name;
        int dst;
        size_t size;
        size_t count;
        int result;
        const char *arena;
    } cases[] = {
        {"exact fit", 0, 3, 3, 0, "***de"},
        {"room to spare", 1, 4, 2, 0, "a**de"},
        {"one short", 0, 2, 3, ERANGE, "abcde"},
        {"zero bytes", 0, 3, 0, 0, "abcde"},
        {"zero bytes of nothing", none, 0, 0, 0, "abcde"},
        {"zero room", 0, 0, 1, ERANGE, "abcde"},
        {"null destination", none, 3, 3, EINVAL, "abcde"},
        {"stray size", 0, stray, 3, EINVAL, "abcde"},
        {"stray count", 0, 3, stray, ERANGE, "abcde"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.name);
        std::string arena = "abcde";
        EXPECT_EQ(memset_s(_at(arena, row.dst), row.size, '*', row.count), row.result);
        EXPECT_EQ(arena, row.arena);
    }
}

// Texts stand in an arena of ten characters, '|' for NUL, so that a row shows every byte.
std::string _arena(std::string text) {
    for (char &c : text)
        c = c == '|' ? '\0' : c;
    return text;
}

std::string _shown(std::string arena) {
    for (char &c : arena)
        c = c == '\0' ? '|' : c;
    return arena;
}

struct TextCase {
    const char *name;
    int dst;
    size_t size;
    int src;
    int result;
    const char *arena; // afterwards; "....abc|xy" before
};

TEST(Bounded, StrcpyCopiesATextWithItsEnd) {
    const TextCase cases[] = {
        {"exact fit", 0, 4, 4, 0, "abc|abc|xy"},           {"one short", 0, 3, 4, ERANGE, "|...abc|xy"},
        {"empty text", 0, 1, 7, 0, "|...abc|xy"},          {"zero room", 0, 0, 4, EINVAL, "....abc|xy"},
        {"overlap ahead", 3, 4, 4, EINVAL, "...|abc|xy"},  {"overlap behind", 5, 5, 4, EINVAL, "....a|c|xy"},
        {"onto itself", 4, 4, 4, EINVAL, "....|bc|xy"},    {"null destination", none, 4, 4, EINVAL, "....abc|xy"},
        {"null source", 0, 4, none, EINVAL, "|...abc|xy"}, {"stray size", 0, stray, 4, EINVAL, "....abc|xy"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.name);
        std::string arena = _arena("....abc|xy");
        EXPECT_EQ(strcpy_s(_at(arena, row.dst), row.size, _at(arena, row.src)), row.result);
        EXPECT_EQ(_shown(arena), row.arena);
    }
}

TEST(Bounded, StrncpyCopiesAtMostTheCountAndEndsTheText) {
    const struct {
        const char *name;
        int dst;
        size_t size;
        int src;
        size_t count;
        int result;
        const char *arena;
    } cases[] = {
        {"exact fit of the whole text", 0, 4, 4, 3, 0, "abc|abc|xy"},
        {"exact fit of a part", 0, 3, 4, 2, 0, "ab|.abc|xy"},
        {"a text shorter than the count", 0, 4, 4, 100, 0, "abc|abc|xy"},
        {"no terminator within the count", 0, 3, 8, 2, 0, "xy|.abc|xy"},
        {"one short for the count", 0, 2, 4, 2, ERANGE, "|...abc|xy"},
        {"one short for the text", 0, 3, 4, 100, ERANGE, "|...abc|xy"},
        {"zero characters", 0, 4, 4, 0, 0, "|...abc|xy"},
        {"zero room", 0, 0, 4, 2, EINVAL, "....abc|xy"},
        {"overlap ahead", 3, 4, 4, 2, EINVAL, "...|abc|xy"},
        {"overlap behind", 5, 4, 4, 2, EINVAL, "....a|c|xy"},
        {"null destination", none, 4, 4, 2, EINVAL, "....abc|xy"},
        {"null source", 0, 4, none, 2, EINVAL, "|...abc|xy"},
        {"stray size", 0, stray, 4, 2, EINVAL, "....abc|xy"},
        {"a count beyond all sizes", 0, 4, 4, SIZE_MAX, 0, "abc|abc|xy"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.name);
        std::string arena = _arena("....abc|xy");
        EXPECT_EQ(strncpy_s(_at(arena, row.dst), row.size, _at(arena, row.src), row.count), row.result);
        EXPECT_EQ(_shown(arena), row.arena);
    }
}

TEST(Bounded, StrcatAppendsATextWithItsEnd) {
    const TextCase cases[] = {
        {"exact fit", 0, 5, 5, 0, "pqab|ab|xy"},
        {"one short", 0, 4, 5, ERANGE, "|q|..ab|xy"},
        {"empty text", 0, 3, 7, 0, "pq|..ab|xy"},
        {"zero room", 0, 0, 5, EINVAL, "pq|..ab|xy"},
        {"a destination that does not end", 0, 2, 5, EINVAL, "|q|..ab|xy"},
        {"overlap", 0, 9, 1, EINVAL, "|q|..ab|xy"},
        {"null destination", none, 5, 5, EINVAL, "pq|..ab|xy"},
        {"null source", 0, 5, none, EINVAL, "|q|..ab|xy"},
        {"stray size", 0, stray, 5, EINVAL, "pq|..ab|xy"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.name);
        std::string arena = _arena("pq|..ab|xy");
        EXPECT_EQ(strcat_s(_at(arena, row.dst), row.size, _at(arena, row.src)), row.result);
        EXPECT_EQ(_shown(arena), row.arena);
    }
}

TEST(Bounded, SizesFarAboveTheCapOfPackagedLibrariesWork) {
    constexpr size_t size = 300u << 20;
    const std::unique_ptr<char[]> block{new char[size]}; // untouched pages cost nothing
    EXPECT_EQ(strcpy_s(block.get(), size, "text"), 0);
    EXPECT_EQ(strcat_s(block.get(), size, "+more"), 0);
    EXPECT_STREQ(block.get(), "text+more");
    EXPECT_EQ(memcpy_s(block.get() + 16, size - 16, block.get(), 10), 0);
    EXPECT_STREQ(block.get() + 16, "text+more");
    EXPECT_EQ(snprintf_s(block.get(), size, size - 1, "%d", 42), 2);
    EXPECT_STREQ(block.get(), "42");
}

TEST(Bounded, ATextLongerThanThePackagedCapIsCopiedWhole) {
    const std::string text(100000, 'x');
    std::vector<char> copy(text.size() + 1, '!');
    EXPECT_EQ(strcpy_s(copy.data(), copy.size(), text.c_str()), 0);
    EXPECT_EQ(text, copy.data());
}

} // namespace
