// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Keeps the process-wide log configuration of one test away from the next.
#pragma once

#include <zamc/logger.h>

namespace zam::test {

// Starts the test silent at level 7 and puts the old configuration back.
class LogState {
public:
    LogState() : old_{*config()} { *config() = {ZAM_LOG_DEBUG, nullptr}; }
    ~LogState() { *config() = old_; }
    LogState(const LogState &) = delete;
    LogState &operator=(const LogState &) = delete;

    static zam_log_cfg *config() { return zam_log_config(-1, nullptr); } // changes nothing

private:
    zam_log_cfg old_;
};

} // namespace zam::test
