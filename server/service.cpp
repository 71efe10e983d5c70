// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "service.h"

#if ZAMD_WITH_SYSTEMD
#include <systemd/sd-daemon.h>

#include <zamc/logger.h>
#endif

namespace zamd {
namespace {

#if ZAMD_WITH_SYSTEMD
// Its result is negative when somebody listens who cannot be told: then the manager gives up on us in time, and the
// journal should know why.
void _tell(const char *state) {
    if (const int told = sd_notify(0, state); told < 0)
        zam_log_printf(ZAM_LOG_WARN, "The service manager does not hear \"%s\": error %d.\n", state, -told);
}
#else
void _tell(const char *) {}
#endif

} // namespace

void tell_ready() {
    _tell("READY=1");
}

void tell_stopping() {
    _tell("STOPPING=1");
}

} // namespace zamd
