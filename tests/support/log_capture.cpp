// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "support/log_capture.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include <zamc/attributes.h>
#include <zamc/logger.h>

namespace zam::test {
namespace {

constexpr std::array<const char *, 8> level_names{"EMERG", "ALERT", "CRIT", "WRONG", "WARN", "NOTICE", "INFO", "DEBUG"};

std::mutex lines_mutex;
std::vector<LogCapture::Line> captured;
bool capturing = false;

// The configuration can switch an output in but not out again, so this one stays installed and drops lines between
// tests.
int capture(int level, const char *format, ...) ZAM_PRINTF(2, 3);
int capture(int level, const char *format, ...) {
    std::array<char, 2048> text{};
    va_list args;
    va_start(args, format);
    std::vsnprintf(text.data(), text.size(), format, args);
    va_end(args);
    std::lock_guard guard{lines_mutex};
    if (capturing) captured.push_back({level, text.data()});
    return 0;
}

} // namespace

LogCapture::LogCapture(int level) : old_level_{zam_get_log_level()} {
    std::lock_guard guard{lines_mutex};
    if (capturing) std::abort();
    capturing = true;
    captured.clear();
    zam_log_config(level, capture);
}

LogCapture::~LogCapture() {
    std::lock_guard guard{lines_mutex};
    capturing = false;
    zam_log_config(old_level_, capture);
}

const std::vector<LogCapture::Line> &LogCapture::lines() const {
    return captured;
}

void LogCapture::clear() {
    std::lock_guard guard{lines_mutex};
    captured.clear();
}

int LogCapture::count(int level, std::string_view message) const {
    std::lock_guard guard{lines_mutex};
    const std::string wanted =
        "[" + std::string{level_names.at(static_cast<size_t>(level))} + "] " + std::string{message} + "\n";
    int found = 0;
    for (const auto &line : captured) {
        if (line.level == level && line.text == wanted) ++found;
    }
    return found;
}

bool LogCapture::mentions(std::string_view part) const {
    std::lock_guard guard{lines_mutex};
    for (const auto &line : captured) {
        if (line.text.find(part) != std::string::npos) return true;
    }
    return false;
}

std::string LogCapture::all() const {
    std::lock_guard guard{lines_mutex};
    std::string text;
    for (const auto &line : captured)
        text += line.text;
    return text;
}

} // namespace zam::test
