// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "output.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <iostream>

#include <zamc/attributes.h>
#include <zamc/logger.h>
#include <zamc/utils.h>

namespace zamctl {
namespace {

std::string last_line;
bool be_verbose = false;

int log_line(int level, const char *format, ...) ZAM_PRINTF(2, 3);
int log_line(int level, const char *format, ...) {
    std::array<char, 1024> text{};
    va_list args;
    va_start(args, format);
    std::vsnprintf(text.data(), text.size(), format, args);
    va_end(args);
    if (be_verbose) std::cerr << text.data();
    if (level > ZAM_LOG_WRONG) return 0;
    last_line = text.data();
    if (const size_t end = last_line.find("] "); end != std::string::npos) last_line.erase(0, end + 2);
    while (!last_line.empty() && last_line.back() == '\n')
        last_line.pop_back();
    return 0;
}

} // namespace

std::string indented(std::string_view json) {
    constexpr size_t step = 2;
    std::string out;
    size_t depth = 0;
    const auto new_line = [&] { out.append(1, '\n').append(depth * step, ' '); };
    bool in_string = false;
    for (size_t i = 0; i < json.size(); ++i) {
        const char c = json[i];
        if (in_string) {
            out.push_back(c);
            if (c == '\\' && i + 1 < json.size()) out.push_back(json[++i]);
            in_string = c != '"';
            continue;
        }
        const bool opens = c == '{' || c == '[';
        const bool closes = c == '}' || c == ']';
        const bool empty = opens && i + 1 < json.size() && (json[i + 1] == '}' || json[i + 1] == ']');
        if (empty) {
            out.append({c, json[++i]});
        } else if (opens) {
            out.push_back(c);
            ++depth;
            new_line();
        } else if (closes) {
            if (depth > 0) --depth;
            new_line();
            out.push_back(c);
        } else {
            out.push_back(c);
            if (c == ',') new_line();
            if (c == ':') out.push_back(' ');
            in_string = c == '"';
        }
    }
    return out;
}

void print_data(std::string_view text, uint32_t encoding) {
    if (text.empty()) return;
    const bool is_json = encoding == ZAM_ENCODE_JSON && (text.front() == '{' || text.front() == '[');
    std::cout << (is_json ? indented(text) : std::string{text});
    if (text.back() != '\n') std::cout << '\n';
    std::cout << std::flush;
}

void complain(std::string_view text) {
    std::cerr << "zamctl: " << text << '\n';
}

void capture_log(bool verbose) {
    be_verbose = verbose;
    zam_log_config(verbose ? ZAM_LOG_DEBUG : ZAM_LOG_WRONG, log_line);
}

std::string last_log_line() {
    return last_line;
}

} // namespace zamctl
