// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// vsscanf_s: text directives carry the size of their destination.
#include "platform/bounded.h"

#include <array>
#include <cstdarg>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>

namespace {

int _scan(const char *text, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int assigned = vsscanf_s(text, format, args);
    va_end(args);
    return assigned;
}

// A destination with a fence behind its size.
class Place {
public:
    Place() { bytes_.fill('.'); }
    char *data() { return bytes_.data(); }
    // Every byte up to the last that was touched, '|' for NUL.
    std::string shown() const {
        std::string text{bytes_.begin(), bytes_.end()};
        text.erase(text.find_last_not_of('.') + 1);
        for (char &c : text)
            c = c == '\0' ? '|' : c;
        return text;
    }

private:
    std::array<char, 32> bytes_;
};

struct TextCase {
    const char *name;
    const char *text;
    const char *format; // one text directive and nothing else that assigns
    unsigned int size;
    int assigned;
    const char *place;
};

void _check(const TextCase &row) {
    SCOPED_TRACE(row.name);
    Place place;
    EXPECT_EQ(_scan(row.text, row.format, place.data(), row.size), row.assigned);
    EXPECT_EQ(place.shown(), row.place);
}

TEST(BoundedScan, AStringDirectiveStopsAtItsSize) {
    for (const TextCase &row : {
             TextCase{"exact fit", "hello", "%s", 6, 1, "hello|"},
             TextCase{"one short", "hello", "%s", 5, 0, "|"},
             TextCase{"room to spare", "hello", "%s", 32, 1, "hello|"},
             TextCase{"zero room", "hello", "%s", 0, 0, ""},
             TextCase{"blanks before, a word behind", " \t hello world", "%s", 6, 1, "hello|"},
             TextCase{"width below the text", "hello", "%3s", 4, 1, "hel|"},
             TextCase{"width one above the size", "hello", "%4s", 4, 0, "|"},
             TextCase{"nothing there", "", "%s", 6, -1, ""},
             TextCase{"only blanks", "   ", "%s", 6, -1, ""},
         }) {
        _check(row);
    }
}

TEST(BoundedScan, ACharacterDirectiveFillsItsSizeWithoutATerminator) {
    for (const TextCase &row : {
             TextCase{"exact fit of one", "xy", "%c", 1, 1, "x"},
             TextCase{"exact fit of three", "abcd", "%3c", 3, 1, "abc"},
             TextCase{"one short", "abcd", "%3c", 2, 0, "|"},
             TextCase{"zero room", "xy", "%c", 0, 0, ""},
             TextCase{"a blank counts", " x", "%c", 1, 1, " "},
             TextCase{"nothing there", "", "%c", 1, -1, ""},
         }) {
        _check(row);
    }
}

TEST(BoundedScan, ASetDirectiveStopsAtItsSize) {
    for (const TextCase &row : {
             TextCase{"exact fit", "abc1", "%[a-z]", 4, 1, "abc|"},
             TextCase{"one short", "abc1", "%[a-z]", 3, 0, "|"},
             TextCase{"zero room", "abc1", "%[a-z]", 0, 0, ""},
             TextCase{"up to a colon", "host:80", "%[^:]", 5, 1, "host|"},
             TextCase{"a bracket in the set", "]]x", "%[]]", 3, 1, "]]|"},
             TextCase{"all but a bracket", "a]b", "%[^]]", 2, 1, "a|"},
             TextCase{"a dash at the end", "a-b", "%[a-]", 3, 1, "a-|"},
             TextCase{"width below the text", "abc", "%2[a-z]", 3, 1, "ab|"},
             TextCase{"blanks are not skipped", " abc", "%[a-z]", 8, 0, ""},
             TextCase{"no character of the set", "123", "%[a-z]", 8, 0, ""},
             TextCase{"nothing there", "", "%[a-z]", 8, -1, ""},
             TextCase{"bytes above 0x7f", "\xc3\xa4;", "%[^;]", 3, 1, "\xc3\xa4|"},
         }) {
        _check(row);
    }
}

TEST(BoundedScan, ATextThatDoesNotFitEndsTheScanAtThatDirective) {
    Place name;
    int port = -5;
    EXPECT_EQ(_scan("7 hostname 80", "%d %s %d", &port, name.data(), 4u, &port), 1);
    EXPECT_EQ(port, 7);
    EXPECT_EQ(name.shown(), "|");
}

TEST(BoundedScan, SizesAreReadAsThirtyTwoBits) {
    Place first;
    Place second;
    EXPECT_EQ(_scan("ab cd", "%s %s", first.data(), 3, second.data(), 3u), 2);
    EXPECT_EQ(first.shown() + second.shown(), "ab|cd|");
    Place third;
    Place fourth;
    EXPECT_EQ(_scan("ab cd", "%s %s", third.data(), size_t{3}, fourth.data(), size_t{3}), 2);
    EXPECT_EQ(third.shown() + fourth.shown(), "ab|cd|");
}

TEST(BoundedScan, AnOffsetCountsTheCharactersReadSoFarAndIsNoAssignment) {
    Place name;
    int end = -1;
    EXPECT_EQ(_scan("key=value;rest", "key=%[^;];%n", name.data(), 8u, &end), 1);
    EXPECT_EQ(name.shown(), "value|");
    EXPECT_EQ(end, 10);
}

TEST(BoundedScan, AnOffsetBehindAFailureIsNotWritten) {
    Place name;
    int end = -1;
    EXPECT_EQ(_scan("key=value", "key=%[^;];%n", name.data(), 8u, &end), 1);
    EXPECT_EQ(end, -1);
}

TEST(BoundedScan, AnOffsetMayStandFirst) {
    int end = -1;
    EXPECT_EQ(_scan("", "%n", &end), 0);
    EXPECT_EQ(end, 0);
}

TEST(BoundedScan, AnOffsetHasTheWidthThatItsLengthNames) {
    struct {
        signed char tiny = -1;
        short small = -1;
        long large = -1;
        long long huge = -1;
        size_t size = 99;
    } at;
    EXPECT_EQ(_scan("abcde", "a%hhnb%hnc%lnd%llne%zn", &at.tiny, &at.small, &at.large, &at.huge, &at.size), 0);
    EXPECT_EQ(at.tiny, 1);
    EXPECT_EQ(at.small, 2);
    EXPECT_EQ(at.large, 3);
    EXPECT_EQ(at.huge, 4);
    EXPECT_EQ(at.size, 5u);
}

TEST(BoundedScan, NumbersTakeNoSize) {
    int decimal = 0;
    unsigned int hex = 0;
    unsigned char octet = 0;
    int64_t wide = 0;
    double real = 0;
    EXPECT_EQ(_scan("-12 ff 255 9000000000 2.5", "%d %x %hhu %ld %lf", &decimal, &hex, &octet, &wide, &real), 5);
    EXPECT_EQ(decimal, -12);
    EXPECT_EQ(hex, 255u);
    EXPECT_EQ(octet, 255);
    EXPECT_EQ(wide, 9000000000);
    EXPECT_DOUBLE_EQ(real, 2.5);
}

TEST(BoundedScan, ANumberHasItsWidth) {
    int year = 0;
    int month = 0;
    EXPECT_EQ(_scan("202611", "%4d%2d", &year, &month), 2);
    EXPECT_EQ(year, 2026);
    EXPECT_EQ(month, 11);
}

TEST(BoundedScan, ATextThatIsNoNumberIsAFailedConversion) {
    int number = 7;
    EXPECT_EQ(_scan("abc", "%d", &number), 0);
    EXPECT_EQ(number, 7);
    EXPECT_EQ(_scan("", "%d", &number), -1);
    EXPECT_EQ(_scan("5", "%d %d", &number, &number), 1);
}

TEST(BoundedScan, ASuppressedDirectiveTakesNoArgument) {
    Place name;
    int port = 0;
    EXPECT_EQ(_scan("tcp 42 xy host 80", "%*s %*d %*2c %s %d", name.data(), 5u, &port), 2);
    EXPECT_EQ(name.shown(), "host|");
    EXPECT_EQ(port, 80);
    EXPECT_EQ(_scan("aab9", "%*[ab]%d", &port), 1);
    EXPECT_EQ(port, 9);
}

TEST(BoundedScan, LiteralsHaveToMatchAndBlanksMatchAnyNumberOfBlanks) {
    int number = 0;
    EXPECT_EQ(_scan("unix:7", "unix:%d", &number), 1);
    EXPECT_EQ(_scan("unix;7", "unix:%d", &number), 0);
    EXPECT_EQ(_scan("a  \t 8", "a %d", &number), 1);
    EXPECT_EQ(number, 8);
    EXPECT_EQ(_scan("50%", "%d%%", &number), 1);
    EXPECT_EQ(number, 50);
}

TEST(BoundedScan, ATextThatEndsInALiteralBeforeAnyAssignmentGivesMinusOne) {
    int number = 0;
    EXPECT_EQ(_scan("un", "unix:%d", &number), -1);
}

TEST(BoundedScan, NullPointersAreRefused) {
    int number = 3;
    EXPECT_EQ(_scan(nullptr, "%d", &number), -1);
    EXPECT_EQ(_scan("5", nullptr, &number), -1);
    EXPECT_EQ(number, 3);
    EXPECT_EQ(_scan("word", "%s", static_cast<char *>(nullptr), 8u), 0);
    EXPECT_EQ(_scan("word", "%c", static_cast<char *>(nullptr), 8u), 0);
    EXPECT_EQ(_scan("word", "%[a-z]", static_cast<char *>(nullptr), 8u), 0);
    EXPECT_EQ(_scan("5", "%d", static_cast<int *>(nullptr)), 0);
    EXPECT_EQ(_scan("5", "%n", static_cast<int *>(nullptr)), 0);
}

TEST(BoundedScan, ADirectiveThatAllocatesOrIsWideOrUnfinishedIsAFailedConversion) {
    Place place;
    for (const char *format : {"%ms", "%ls", "%lc", "%l[a]", "%1$s", "%[abc", "%", "%y", "%0s", "%99999999999s"}) {
        SCOPED_TRACE(format);
        EXPECT_EQ(_scan("abc", format, place.data(), 8u, place.data(), 8u), 0);
        EXPECT_EQ(place.shown(), "");
    }
}

struct OverlapCase {
    const char *name;
    const char *format;
    size_t dst; // in the arena, as the text that is read
    size_t text;
    unsigned int size;
    int assigned;
    const char *arena; // afterwards; "....abc ef|...." before
};

TEST(BoundedScan, ADestinationOverTheTextIsAFailedConversion) {
    for (const OverlapCase &row : {
             OverlapCase{"onto itself", "%s", 4, 4, 8, 0, "....|bc ef|...."},
             OverlapCase{"behind its start", "%s", 5, 4, 8, 0, "....a|c ef|...."},
             OverlapCase{"ahead of its start", "%s", 1, 4, 8, 0, ".|..abc ef|...."},
             OverlapCase{"over its end", "%3c", 9, 4, 3, 0, "....abc e||...."},
             OverlapCase{"in the part that was read", "abc %[ef]", 4, 4, 8, 0, "....|bc ef|...."},
             OverlapCase{"right before it", "%s", 0, 4, 4, 1, "abc|abc ef|...."},
             OverlapCase{"right behind it", "%s", 11, 4, 4, 1, "....abc ef|abc|"},
         }) {
        SCOPED_TRACE(row.name);
        std::string arena = "....abc ef|....";
        for (char &c : arena)
            c = c == '|' ? '\0' : c;
        EXPECT_EQ(_scan(arena.data() + row.text, row.format, arena.data() + row.dst, row.size), row.assigned);
        for (char &c : arena)
            c = c == '\0' ? '|' : c;
        EXPECT_EQ(arena, row.arena);
    }
}

} // namespace
