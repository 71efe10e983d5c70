// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// What the client needs of a connector beyond its public face.
#ifndef ZAMC_IO_CONNECTOR_INTERNAL_H
#define ZAMC_IO_CONNECTOR_INTERNAL_H

#include <zamc/connector.h>

namespace zam::io {

// Whether the last wake found no memory to read into, or none to tell of what it read. Such a wake repeats itself at
// once and for as long as that lasts.
bool is_starved(const zam_connector *connector);

} // namespace zam::io

#endif
