// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Date-times: what is read is written and read again as the same second.
#include <ctime>

#include <zamc/utils.h>

#include "fuzz.h"

namespace zam::fuzz {
namespace {

// The planted fault.
bool is_midnight_of_a_leap_day(time_t time) {
    tm parts{};
    if (!gmtime_r(&time, &parts)) return false;
    return parts.tm_mon == 1 && parts.tm_mday == 29 && parts.tm_hour == 0 && parts.tm_min == 0 && parts.tm_sec == 0;
}

} // namespace

void start() {
    setenv("TZ", "UTC", 1); // a time without a zone of its own is local; elsewhere the written one would differ
}

void run(std::string_view input) {
    const std::string text{input.substr(0, input.find('\0'))};
    constexpr time_t untouched = 4711;
    time_t time = untouched;
    const int32_t result = zam_datetime2time(text.c_str(), &time);
    FUZZ_EXPECT(result == 0 || (result == -1 && time == untouched));
    if (result != 0) return;
    char *written = nullptr;
    if (zam_time2datetime(time, &written) != 0) return; // beyond the years that a calendar has
    const Text owned{written};
    time_t again = untouched;
    if (planted() && is_midnight_of_a_leap_day(time)) planted_fault();
    // mktime reads four digits of a year, and gives -1 for the last second of 1969
    if (time < 0 || std::string_view{written}.size() != std::string_view{"1970-01-01T00:00:00+00:00"}.size()) return;
    FUZZ_EXPECT(zam_datetime2time(written, &again) == 0);
    FUZZ_EXPECT(again == time);
}

} // namespace zam::fuzz
