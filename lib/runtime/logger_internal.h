// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// What the logger's two sources share.
#ifndef ZAMC_RUNTIME_LOGGER_INTERNAL_H
#define ZAMC_RUNTIME_LOGGER_INTERNAL_H

#include <sys/types.h>

namespace zam::runtime {

// The size at which the log file is rotated. Only tests set it, before anything is logged.
extern off_t log_file_size_max;

// The time stamp of a log line in a place of its own. It allocates nothing: a stamp that had to report a failed
// allocation would start the next log line from within this one, under the log file's mutex.
struct log_stamp {
    char text[64];
};

// The local time of now as "2026-11-15 08:01:55.042"; false when the system cannot tell.
bool log_stamp_now(log_stamp &stamp);

} // namespace zam::runtime

#endif
