// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Date-times, identifiers, the millisecond clock. Zones are written out, so that the machine's zone files do not
// matter.
#include <zamc/utils.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <optional>
#include <regex>
#include <string>
#include <sys/time.h>

#include <gtest/gtest.h>
#include <zamc/mem.h>

#include "support/heap.h"
#include "support/log_capture.h"

namespace {

using zam::test::fail_each_allocation;
using zam::test::Heap;
using zam::test::LogCapture;

// The process's time zone for a scope.
class Zone {
public:
    explicit Zone(const char *name) {
        if (const char *old = std::getenv("TZ")) old_ = old;
        setenv("TZ", name, 1);
        tzset();
    }
    ~Zone() {
        if (old_) {
            setenv("TZ", old_->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }
    Zone(const Zone &) = delete;
    Zone &operator=(const Zone &) = delete;

private:
    std::optional<std::string> old_;
};

constexpr const char *utc = "UTC";
constexpr const char *india = "IST-5:30";                             // 5 h 30 min ahead
constexpr const char *new_york = "EST5EDT,M3.2.0,M11.1.0";            // 5 h behind, 4 h in summer
constexpr const char *zones[] = {utc, india, new_york};               // the tests below hold in each
constexpr std::array<time_t, 3> standard_offset = {0, 19800, -18000}; // of those, in seconds ahead of UTC

constexpr time_t november = 1794729715; // 2026-11-15T08:01:55 in UTC
constexpr time_t july = 1784102515;     // 2026-07-15T08:01:55 in UTC
constexpr time_t untouched = 4711;

class Datetime : public testing::Test {
protected:
    // The result of a text that is accepted.
    static time_t _time(const char *text) {
        time_t time = untouched;
        EXPECT_EQ(zam_datetime2time(text, &time), 0) << text;
        return time;
    }
    // A text that is refused: nothing is written, and exactly this is logged, or nothing for null.
    void _expect_refused(const char *text, const char *message) {
        SCOPED_TRACE(text ? text : "null");
        time_t time = untouched;
        EXPECT_EQ(zam_datetime2time(text, &time), -1);
        EXPECT_EQ(time, untouched);
        EXPECT_EQ(log_.lines().size(), message ? 1u : 0u) << log_.all();
        if (message) {
            EXPECT_EQ(log_.count(3, message), 1) << log_.all();
        }
        log_.clear();
    }

    LogCapture log_;
};

TEST_F(Datetime, ATimeInUtcIsExactInAProcessThatRunsInUtc) {
    const Zone zone{utc};
    EXPECT_EQ(_time("2026-11-15T08:01:55Z"), november);
    EXPECT_EQ(_time("2026-11-15T08:01:55z"), november);
    EXPECT_EQ(_time("2026-07-15T08:01:55Z"), july);
    EXPECT_EQ(_time("1970-01-01T00:00:00Z"), 0);
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(Datetime, TheProcessesZoneIsTakenForUtc) {
    for (size_t i = 0; i < standard_offset.size(); i++) {
        const Zone zone{zones[i]};
        SCOPED_TRACE(zones[i]);
        EXPECT_EQ(_time("2026-11-15T08:01:55Z"), november - standard_offset[i]);
        EXPECT_EQ(_time("2026-11-15T08:01:55+02:00"), november - standard_offset[i] - 7200);
    }
}

TEST_F(Datetime, SummerTimeIsNotInForce) {
    const Zone zone{new_york};
    EXPECT_EQ(_time("2026-07-15T08:01:55Z"), july + 18000); // five hours behind, not four
}

TEST_F(Datetime, AFractionMakesNoDifference) {
    for (const char *name : zones) {
        const Zone zone{name};
        SCOPED_TRACE(name);
        const time_t time = _time("2026-11-15T08:01:55Z");
        EXPECT_EQ(_time("2026-11-15T08:01:55.123456Z"), time);
        EXPECT_EQ(_time("2026-11-15T08:01:55.9z"), time);
        EXPECT_EQ(_time("2026-11-15T08:01:55.Z"), time);
        EXPECT_EQ(_time("2026-11-15T08:01:55.5+02:00"), time - 7200);
    }
}

TEST_F(Datetime, AnOffsetIsSubtracted) {
    for (const char *name : zones) {
        const Zone zone{name};
        SCOPED_TRACE(name);
        const time_t time = _time("2026-11-15T08:01:55Z");
        EXPECT_EQ(_time("2026-11-15T08:01:55+02:00"), time - 2 * 3600);
        EXPECT_EQ(_time("2026-11-15T08:01:55+05:30"), time - (5 * 3600 + 30 * 60));
        EXPECT_EQ(_time("2026-11-15T08:01:55-05:30"), time + (5 * 3600 + 30 * 60));
        EXPECT_EQ(_time("2026-11-15T08:01:55+00:00"), time);
        EXPECT_EQ(_time("2026-11-15T08:01:55-00:00"), time);
        EXPECT_EQ(_time("2026-11-15T08:01:55+00:30"), time - 30 * 60);
    }
}

TEST_F(Datetime, TheSignOfTheOffsetIsTheOneOfItsHours) {
    for (const char *name : zones) {
        const Zone zone{name};
        SCOPED_TRACE(name);
        EXPECT_EQ(_time("2026-11-15T08:01:55-00:30"), _time("2026-11-15T08:01:55Z") - 30 * 60);
    }
}

TEST_F(Datetime, AnyCharacterMayStandBetweenDateAndTime) {
    const Zone zone{utc};
    EXPECT_EQ(_time("2026-11-15 08:01:55Z"), november);
    EXPECT_EQ(_time("2026-11-15t08:01:55Z"), november);
}

TEST_F(Datetime, ValuesOutOfRangeAreNormalised) {
    const Zone zone{utc};
    EXPECT_EQ(_time("2026-10-46T08:01:55Z"), november);
    EXPECT_EQ(_time("2025-23-15T08:01:55Z"), november);
    EXPECT_EQ(_time("2026-11-14T32:01:55Z"), november);
    EXPECT_EQ(_time("2026-11-15T07:61:55Z"), november);
    EXPECT_EQ(_time("2026-11-15T08:00:60Z"), november - 55);
    EXPECT_EQ(_time("2024-02-30T00:00:00Z"), _time("2024-03-01T00:00:00Z"));
}

TEST_F(Datetime, WhatFollowsTheZoneIsNotLookedAt) {
    const Zone zone{utc};
    EXPECT_EQ(_time("2026-11-15T08:01:55Z and more"), november);
}

TEST_F(Datetime, NullIsRefused) {
    _expect_refused(nullptr, "Input datetime invalid");
    EXPECT_EQ(zam_datetime2time("2026-11-15T08:01:55Z", nullptr), -1);
}

TEST_F(Datetime, ATextOf19CharactersIsTooShort) {
    _expect_refused("2026-11-15T08:01:55", "Wrong date time len.");
    _expect_refused("2026-11-15", "Wrong date time len.");
    _expect_refused("", "Wrong date time len.");
}

TEST_F(Datetime, SlashesInTheDateAreRefused) {
    _expect_refused("2026/11/15T08:01:55Z", "Wrong date time format.");
}

TEST_F(Datetime, EachSeparatorHasItsPlace) {
    _expect_refused("2026/11-15T08:01:55Z", "Wrong date time format.");
    _expect_refused("2026-11/15T08:01:55Z", "Wrong date time format.");
    _expect_refused("2026-11-15T08.01:55Z", "Wrong date time format.");
    _expect_refused("2026-11-15T08:01.55Z", "Wrong date time format.");
    _expect_refused("this is no date at all", "Wrong date time format.");
}

TEST_F(Datetime, AnOffsetWithoutAColonIsRefused) {
    _expect_refused("2026-11-15T08:01:55+0200", "Wrong date time offset format not compliant to RFC 3339.");
    _expect_refused("2026-11-15T08:01:55.5+0200", "Wrong date time offset format not compliant to RFC 3339.");
    _expect_refused("2026-11-15T08:01:55+2:00", "Wrong date time offset format not compliant to RFC 3339.");
}

TEST_F(Datetime, AnOffsetThatEndsBeforeItsColonIsRefused) {
    for (const char *text :
         {"2026-11-15T08:01:55+", "2026-11-15T08:01:55+0", "2026-11-15T08:01:55+02", "2026-11-15T08:01:55.",
          "2026-11-15T08:01:55.5", "2026-11-15T08:01:55.5+02", "2026-11-15T08:01:55 "}) {
        _expect_refused(text, "Wrong date time offset format not compliant to RFC 3339.");
    }
}

TEST_F(Datetime, TheSecondBeforeTheEpochFailsSilently) {
    const Zone zone{utc};
    _expect_refused("1969-12-31T23:59:59Z", nullptr); // mktime's own mark of failure
    _expect_refused("1969-12-31T23:59:59+02:00", nullptr);
    EXPECT_EQ(_time("1969-12-31T23:59:58Z"), -2);
}

TEST_F(Datetime, YearsThatNoCalendarHoldsDoNoHarm) {
    for (const char *name : zones) {
        const Zone zone{name};
        time_t time = untouched;
        zam_datetime2time("0000-00-00T00:00:00Z", &time);
        zam_datetime2time("9999-99-99T99:99:99+99:99", &time);
        zam_datetime2time("+999-+9-+9T+9:+9:+9+-9:99999999999999999999", &time);
        zam_datetime2time("-999--9--9T-9:-9:-9+-9:-9", &time);
    }
}

class TimeText : public testing::Test {
protected:
    // The text of a time that is accepted.
    static std::string _text(time_t time) {
        char *text = nullptr;
        EXPECT_EQ(zam_time2datetime(time, &text), 0) << time;
        const std::string copy = text ? text : "";
        zam_free(text);
        return copy;
    }

    Heap heap_;
    LogCapture log_;
};

TEST_F(TimeText, IsUtcInEveryZone) {
    for (const char *name : zones) {
        const Zone zone{name};
        SCOPED_TRACE(name);
        EXPECT_EQ(_text(0), "1970-01-01T00:00:00+00:00");
        EXPECT_EQ(_text(november), "2026-11-15T08:01:55+00:00");
        EXPECT_EQ(_text(july), "2026-07-15T08:01:55+00:00");
        EXPECT_EQ(_text(-1), "1969-12-31T23:59:59+00:00");
    }
    EXPECT_EQ(heap_.live(), 0u);
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(TimeText, YearsHaveAtLeastFourDigits) {
    EXPECT_EQ(_text(-62135596800), "0001-01-01T00:00:00+00:00");
    EXPECT_EQ(_text(253402300799), "9999-12-31T23:59:59+00:00");
    EXPECT_EQ(_text(253402300800), "10000-01-01T00:00:00+00:00");
}

TEST_F(TimeText, ReadsBackAsTheSameTimeInUtc) {
    const Zone zone{utc};
    for (const time_t time : {time_t{0}, november, july, time_t{951782400}, time_t{4102444800}}) {
        time_t back = untouched;
        EXPECT_EQ(zam_datetime2time(_text(time).c_str(), &back), 0);
        EXPECT_EQ(back, time);
    }
}

TEST_F(TimeText, ATimeWithoutACalendarDateFailsSilently) {
    char *text = nullptr;
    EXPECT_EQ(zam_time2datetime(std::numeric_limits<time_t>::max(), &text), -1);
    EXPECT_EQ(zam_time2datetime(std::numeric_limits<time_t>::min(), &text), -1);
    EXPECT_EQ(text, nullptr);
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(TimeText, TheLastYearsOfTheCalendarAreWritten) {
    EXPECT_EQ(_text(67768036191676799), "2147485547-12-31T23:59:59+00:00");
}

TEST_F(TimeText, WithoutMemoryForTheOffsetIsLogged) {
    heap_.fail_at(1);
    char *text = nullptr;
    EXPECT_EQ(zam_time2datetime(0, &text), -1);
    EXPECT_EQ(log_.count(3, "Set offset unsuccessful."), 1);
    EXPECT_EQ(text, nullptr);
}

TEST_F(TimeText, WithoutMemoryForTheTextIsLogged) {
    heap_.fail_at(2);
    char *text = nullptr;
    EXPECT_EQ(zam_time2datetime(0, &text), -1);
    EXPECT_EQ(log_.count(3, "Set datetime unsuccessful."), 1);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(heap_.live(), 0u);
}

TEST_F(TimeText, NowhereToPutItIsRefused) {
    EXPECT_EQ(zam_time2datetime(0, nullptr), -1);
    EXPECT_EQ(heap_.live(), 0u);
}

TEST(TimeTextHeap, LeavesNothingBehindWhenAnyAllocationFails) {
    const uint64_t failed = fail_each_allocation([](bool expect_failure) {
        char *text = nullptr;
        EXPECT_TRUE(zam_time2datetime(0, &text) == 0 || expect_failure);
        zam_free(text);
    });
    EXPECT_EQ(failed, 2u);
}

// The identifier of a seed, built the plain way.
std::string _identifier(unsigned int seed) {
    std::string text;
    std::array<char, 8> part{};
    for (int i = 0; i < 16; i++) {
        const auto byte = static_cast<unsigned int>(rand_r(&seed) % 255);
        if (i == 6) {
            std::snprintf(part.data(), part.size(), "4%x", byte % 15);
        } else if (i == 8) {
            std::snprintf(part.data(), part.size(), "%c%x", "89ab"[rand_r(&seed) & 3], byte % 15);
        } else {
            std::snprintf(part.data(), part.size(), "%02x", byte);
        }
        text += part.data();
        if (i == 3 || i == 5 || i == 7 || i == 9) text += '-';
    }
    return text;
}

// The first byte alone, to tell most seeds apart quickly.
std::string _first_byte(unsigned int seed) {
    std::array<char, 8> part{};
    std::snprintf(part.data(), part.size(), "%02x", static_cast<unsigned int>(rand_r(&seed) % 255));
    return part.data();
}

TEST(Uuid, HasTheFormOfAVersionFourIdentifier) {
    const std::regex form{"[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-e][0-9a-f]{2}-[89ab][0-9a-e][0-9a-f]{2}-[0-9a-f]{12}"};
    Heap heap;
    for (int i = 0; i < 200; i++) {
        char *text = zam_get_uuid();
        ASSERT_NE(text, nullptr);
        const std::string uuid = text;
        zam_free(text);
        EXPECT_EQ(uuid.size(), 36u);
        EXPECT_EQ(uuid[8], '-');
        EXPECT_EQ(uuid[13], '-');
        EXPECT_EQ(uuid[18], '-');
        EXPECT_EQ(uuid[23], '-');
        EXPECT_EQ(uuid[14], '4');
        EXPECT_NE(std::string{"89ab"}.find(uuid[19]), std::string::npos) << uuid;
        EXPECT_TRUE(std::regex_match(uuid, form)) << uuid;
    }
    EXPECT_EQ(heap.live(), 0u);
}

TEST(Uuid, ComesFromTheMicrosecondsOfNow) {
    timeval before = {};
    timeval after = {};
    gettimeofday(&before, nullptr);
    char *text = zam_get_uuid();
    gettimeofday(&after, nullptr);
    ASSERT_NE(text, nullptr);
    const std::string uuid = text;
    zam_free(text);
    constexpr int64_t second = 1000000;
    const int64_t start = before.tv_sec * second + before.tv_usec;
    const int64_t end = after.tv_sec * second + after.tv_usec;
    bool found = false;
    for (int64_t now = start; now <= end && !found; now++) {
        const auto seed = static_cast<unsigned int>(now % second);
        found = uuid.starts_with(_first_byte(seed)) && uuid == _identifier(seed);
    }
    EXPECT_TRUE(found) << uuid << " comes from no microsecond of the call";
}

TEST(Uuid, WithoutMemoryIsNull) {
    Heap heap;
    heap.fail_at(1);
    EXPECT_EQ(zam_get_uuid(), nullptr);
    EXPECT_EQ(heap.live(), 0u);
}

TEST(Milliseconds, AreTheWallClockIn32BitsSignExtended) {
    const auto clock = [] {
        timeval now = {};
        gettimeofday(&now, nullptr);
        return static_cast<uint32_t>(now.tv_sec * 1000 + now.tv_usec / 1000);
    };
    const uint32_t before = clock();
    const int64_t told = zam_get_ms();
    const uint32_t after = clock();
    EXPECT_EQ(told, static_cast<int64_t>(static_cast<int32_t>(told))) << "more than 32 bits";
    EXPECT_LE(static_cast<uint32_t>(told) - before, after - before); // also across the wrap
}

} // namespace
