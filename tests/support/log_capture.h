// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Collects what the library logs while it lives; one at a time.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zam::test {

class LogCapture {
public:
    struct Line {
        int level;
        std::string text; // as handed to the output function: "[WRONG] text\n"
        bool operator==(const Line &) const = default;
    };

    explicit LogCapture(int level = 7);
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    const std::vector<Line> &lines() const;
    void clear();

    // How often exactly this message was logged at this level; `message` without the level's name and the newline.
    int count(int level, std::string_view message) const;
    bool has(int level, std::string_view message) const { return count(level, message) > 0; }
    // Whether any message holds the text, at any level.
    bool mentions(std::string_view part) const;
    std::string all() const;

private:
    int old_level_;
};

} // namespace zam::test
