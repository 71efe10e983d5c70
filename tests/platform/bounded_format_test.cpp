// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Bounded formats: sprintf_s, snprintf_s, vsnprintf_s.
#include "platform/bounded.h"

#include <cstdarg>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>

namespace {

constexpr size_t stray = SIZE_MAX / 2 + 1;

// Called through plain pointers: the compiler would refuse the null formats and foresee the cuts that are meant here.
int (*const plain_sprintf)(char *, size_t, const char *, ...) = sprintf_s;
int (*const plain_snprintf)(char *, size_t, size_t, const char *, ...) = snprintf_s;
int (*const plain_vsnprintf)(char *, size_t, size_t, const char *, va_list) = vsnprintf_s;

int _through_list(char *dst, size_t size, size_t count, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int result = plain_vsnprintf(dst, size, count, format, args);
    va_end(args);
    return result;
}

std::string _shown(std::string text) {
    for (char &c : text)
        c = c == '\0' ? '|' : c;
    return text;
}

struct CountCase {
    const char *name;
    size_t size;
    size_t count;
    const char *text;
    int result;
    const char *arena; // afterwards; "........" before
};

constexpr CountCase count_cases[] = {
    {"exact fit of size and count", 6, 5, "hello", 5, "hello|.."},
    {"room to spare", 8, 7, "hello", 5, "hello|.."},
    {"count above the size, text fits", 6, 100, "hello", 5, "hello|.."},
    {"size one short", 5, 5, "hello", -1, "hell|..."},
    {"count one short", 8, 4, "hello", -1, "hell|..."},
    {"a count of zero cuts everything", 8, 0, "hello", -1, "|......."},
    {"a count of zero for an empty text", 8, 0, "", 0, "|......."},
    {"room for the terminator only", 1, 0, "", 0, "|......."},
    {"zero room", 0, 5, "hello", -1, "........"},
    {"stray size", stray, 5, "hello", -1, "........"},
    {"a count beyond all sizes", 6, SIZE_MAX, "hello", 5, "hello|.."},
};

TEST(BoundedFormat, SnprintfKeepsTheCutTextAndSaysMinusOne) {
    for (const auto &row : count_cases) {
        SCOPED_TRACE(row.name);
        std::string arena = "........";
        EXPECT_EQ(plain_snprintf(arena.data(), row.size, row.count, "%s", row.text), row.result);
        EXPECT_EQ(_shown(arena), row.arena);
    }
}

TEST(BoundedFormat, VsnprintfKeepsTheCutTextAndSaysMinusOne) {
    for (const auto &row : count_cases) {
        SCOPED_TRACE(row.name);
        std::string arena = "........";
        EXPECT_EQ(_through_list(arena.data(), row.size, row.count, "%s", row.text), row.result);
        EXPECT_EQ(_shown(arena), row.arena);
    }
}

TEST(BoundedFormat, SnprintfRefusesNullPointers) {
    std::string arena = "........";
    EXPECT_EQ(plain_snprintf(nullptr, 8, 7, "%s", "hello"), -1);
    EXPECT_EQ(plain_snprintf(arena.data(), 8, 7, nullptr), -1);
    EXPECT_EQ(_shown(arena), "|.......");
}

TEST(BoundedFormat, VsnprintfRefusesNullPointers) {
    std::string arena = "........";
    EXPECT_EQ(_through_list(nullptr, 8, 7, "%s", "hello"), -1);
    EXPECT_EQ(_through_list(arena.data(), 8, 7, nullptr), -1);
    EXPECT_EQ(_shown(arena), "|.......");
}

TEST(BoundedFormat, SprintfTakesOnlyATextThatFits) {
    const struct {
        const char *name;
        size_t size;
        const char *text;
        bool fits;
        const char *arena_start;
    } cases[] = {
        {"exact fit", 6, "hello", true, "hello|.."},  {"room to spare", 8, "hello", true, "hello|.."},
        {"empty text", 1, "", true, "|......."},      {"one short", 5, "hello", false, "|"},
        {"zero room", 0, "hello", false, "........"}, {"stray size", stray, "hello", false, "........"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.name);
        std::string arena = "........";
        const int length = plain_sprintf(arena.data(), row.size, "%s", row.text);
        EXPECT_EQ(length, row.fits ? static_cast<int>(std::string{row.text}.size()) : -1);
        EXPECT_EQ(_shown(arena).substr(0, std::string{row.arena_start}.size()), row.arena_start);
    }
}

TEST(BoundedFormat, SprintfWritesNothingBehindItsSize) {
    std::string arena = "........";
    EXPECT_EQ(plain_sprintf(arena.data(), 5, "%s", "hello world"), -1);
    EXPECT_EQ(arena.substr(5), "...");
}

TEST(BoundedFormat, SprintfRefusesNullPointers) {
    std::string arena = "........";
    EXPECT_EQ(plain_sprintf(nullptr, 8, "%s", "hello"), -1);
    EXPECT_EQ(plain_sprintf(arena.data(), 8, nullptr), -1);
    EXPECT_EQ(_shown(arena), "|.......");
}

TEST(BoundedFormat, ConversionsOfAllKindsGoThrough) {
    std::string arena(64, '.');
    const int length = sprintf_s(arena.data(), arena.size(), "[%s] %d %u %lx %.2f%%", "WRONG", -7, 7u, 255ul, 2.5);
    EXPECT_EQ(std::string{arena.c_str()}, "[WRONG] -7 7 ff 2.50%");
    EXPECT_EQ(length, 21);
}

} // namespace
