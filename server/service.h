// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// What the service manager that started zamd hears of it; nothing where there is none, or none was built in.
#ifndef ZAMD_SERVICE_H
#define ZAMD_SERVICE_H

namespace zamd {

void tell_ready();
void tell_stopping();

} // namespace zamd

#endif
