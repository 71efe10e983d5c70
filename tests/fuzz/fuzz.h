// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// What a fuzz target defines, and what all of them use. A target is linked with libfuzzer_main.cpp to search, or with
// replay_main.cpp to run the inputs that are kept, which takes any compiler.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <zamc/mem.h>

namespace zam::fuzz {

// Once, before the first input.
void start();
// One input. Nothing may remain of it: each input behaves as if it were the first.
void run(std::string_view input);

// The log costs more than most targets do; its lines are formatted, so that their arguments are looked at, and dropped.
void silence_log();

// Whether ZAMC_PLANT asks the targets to fail on an input that is hard to find, which proves that the search reaches
// it. Ends the process with a line of its own, so that no other finding passes for it.
bool planted();
[[noreturn]] void planted_fault();

// What every target promises; ends the process, with the line, when it does not hold.
#define FUZZ_EXPECT(condition) ((condition) ? void() : ::zam::fuzz::broken(#condition, __FILE__, __LINE__))
[[noreturn]] void broken(const char *condition, const char *file, int line);

// Takes an input apart.
class Input {
public:
    explicit Input(std::string_view text) : text_{text} {}
    bool empty() const { return text_.empty(); }
    uint8_t byte() {
        if (text_.empty()) return 0;
        const auto value = static_cast<uint8_t>(text_.front());
        text_.remove_prefix(1);
        return value;
    }
    // Up to the separator, which is taken along, or the end.
    std::string until(char separator) {
        const std::string_view part = text_.substr(0, text_.find(separator));
        text_.remove_prefix(std::min(text_.size(), part.size() + 1));
        return std::string{part};
    }
    std::string rest() { return std::string{std::exchange(text_, {})}; }

private:
    std::string_view text_;
};

// Between the records of an input that holds several; no YANG text has it.
constexpr char record_separator = '\x1e';

using Text = std::unique_ptr<char, decltype([](char *text) { zam_free(text); })>;

} // namespace zam::fuzz
