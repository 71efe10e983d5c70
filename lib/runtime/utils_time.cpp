// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Date-times of YANG (RFC 3339), identifiers, and a clock for short differences.
#include <zamc/utils.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/time.h>

#include <zamc/logger.h>
#include <zamc/mem.h>

#include "platform/bounded.h"
#include "runtime/mem_internal.h"

using zam::runtime::owned_text;

namespace {

// Where the parts of "2026-11-15T08:01:55Z" stand.
constexpr size_t year_at = 0;
constexpr size_t month_at = 5;
constexpr size_t day_at = 8;
constexpr size_t hour_at = 11;
constexpr size_t minute_at = 14;
constexpr size_t second_at = 17;
constexpr size_t zone_at = 19; // or the fraction
constexpr size_t datetime_min = 20;

// Where the parts of "+02:00" stand.
constexpr size_t offset_colon = 3;
constexpr size_t offset_minute = 4;

constexpr size_t uuid_size = 37;

bool _has_datetime_form(const char *text) {
    return text[4] == '-' && text[7] == '-' && text[13] == ':' && text[16] == ':';
}

int _number_at(const char *text, size_t position) {
    return static_cast<int>(strtol(text + position, nullptr, 10));
}

// mktime puts values out of range right, so none is tested here.
tm _broken_down(const char *text) {
    tm parts = {};
    parts.tm_year = _number_at(text, year_at) - 1900;
    parts.tm_mon = _number_at(text, month_at) - 1;
    parts.tm_mday = _number_at(text, day_at);
    parts.tm_hour = _number_at(text, hour_at);
    parts.tm_min = _number_at(text, minute_at);
    parts.tm_sec = _number_at(text, second_at);
    return parts;
}

const char *_zone_designator(const char *text) {
    const char *zone = text + zone_at;
    if (*zone != '.') return zone;
    do
        zone++;
    while (isdigit(static_cast<unsigned char>(*zone)));
    return zone;
}

// The offset from UTC in seconds. Its sign is the one of the hours: "-00:30" counts as half an hour ahead.
bool _zone_offset(const char *zone, int64_t &offset) {
    const bool has_colon = strnlen(zone, offset_minute) == offset_minute && zone[offset_colon] == ':';
    const long minutes = has_colon ? strtol(zone + offset_minute, nullptr, 10) : 0;
    if (!has_colon || minutes > INT32_MAX || minutes < INT32_MIN) {
        zam_log_printf(ZAM_LOG_WRONG, "Wrong date time offset format not compliant to RFC 3339.\n");
        return false;
    }
    const int64_t hours = int64_t{3600} * strtol(zone, nullptr, 10);
    offset = hours < 0 ? hours - int64_t{60} * minutes : hours + int64_t{60} * minutes;
    return true;
}

// "+00:00" of a broken-down time; null has been logged.
owned_text _offset_text(const tm &parts) {
    const long offset = parts.tm_gmtoff + (parts.tm_isdst > 0 ? 3600 : 0);
    const char *sign = offset < 0 ? "-" : "+";
    char *text = nullptr;
    const int hours = static_cast<int>(offset / 3600);
    const int minutes = static_cast<int>(offset / 60 % 60);
    if (zam_asprintf(&text, "%s%02d:%02d", sign, hours, minutes) < 0) {
        zam_log_printf(ZAM_LOG_WRONG, "Set offset unsuccessful.\n");
    }
    return owned_text{text};
}

// Microseconds of the current second.
uint32_t _get_us_time() {
    timeval now = {};
    gettimeofday(&now, nullptr);
    return static_cast<uint32_t>(now.tv_usec);
}

// Writes byte `i` of an identifier: in the places of version and variant, that digit and one random one.
int _put_uuid_byte(char *at, size_t room, int i, unsigned int &seed) {
    const int byte = rand_r(&seed) % 255; // a byte is never 0xff, nor a digit below never 0xf
    if (i == 6) return sprintf_s(at, room, "4%x", static_cast<unsigned int>(byte % 15));
    if (i != 8) return sprintf_s(at, room, "%02x", static_cast<unsigned int>(byte));
    const char variant = "89ab"[rand_r(&seed) & 3];
    return sprintf_s(at, room, "%c%x", variant, static_cast<unsigned int>(byte % 15));
}

} // namespace

int32_t zam_datetime2time(const char *text, time_t *time) {
    if (!text || !time) {
        zam_log_printf(ZAM_LOG_WRONG, "Input datetime invalid\n");
        return -1;
    }
    if (strnlen(text, datetime_min) < datetime_min) {
        zam_log_printf(ZAM_LOG_WRONG, "Wrong date time len.\n");
        return -1;
    }
    if (!_has_datetime_form(text)) {
        zam_log_printf(ZAM_LOG_WRONG, "Wrong date time format.\n");
        return -1;
    }
    const char *zone = _zone_designator(text);
    int64_t offset = 0;
    if (*zone != 'Z' && *zone != 'z' && !_zone_offset(zone, offset)) return -1;
    tm parts = _broken_down(text);
    const time_t seconds = mktime(&parts);
    if (seconds == -1) return -1;
    *time = seconds - static_cast<time_t>(offset);
    return 0;
}

int32_t zam_time2datetime(time_t time, char **text) {
    tm parts = {};
    if (!text || !gmtime_r(&time, &parts)) return -1;
    const owned_text offset = _offset_text(parts);
    if (!offset) return -1;
    char *datetime = nullptr;
    const long year = parts.tm_year + 1900L; // the last years of time_t do not fit an int
    if (zam_asprintf(&datetime, "%04ld-%02d-%02dT%02d:%02d:%02d%s", year, parts.tm_mon + 1, parts.tm_mday,
                     parts.tm_hour, parts.tm_min, parts.tm_sec, offset.get()) < 0) {
        zam_log_printf(ZAM_LOG_WRONG, "Set datetime unsuccessful.\n");
        return -1;
    }
    *text = datetime;
    return 0;
}

char *zam_get_uuid(void) {
    unsigned int seed = _get_us_time();
    char text[uuid_size] = {};
    size_t used = 0;
    for (int i = 0; i < 16; i++) {
        int written = _put_uuid_byte(text + used, uuid_size - used, i, seed);
        if (written < 0) return nullptr;
        used += static_cast<size_t>(written);
        if (i != 3 && i != 5 && i != 7 && i != 9) continue;
        written = sprintf_s(text + used, uuid_size - used, "-");
        if (written < 0) return nullptr;
        used += static_cast<size_t>(written);
    }
    return zam_strdup(text);
}

int64_t zam_get_ms(void) {
    timeval now = {};
    gettimeofday(&now, nullptr);
    const uint32_t seconds = static_cast<uint32_t>(now.tv_sec);
    const uint32_t milliseconds = seconds * 1000U + static_cast<uint32_t>(now.tv_usec / 1000);
    return static_cast<int32_t>(milliseconds); // callers take differences, which survive the wrap
}
