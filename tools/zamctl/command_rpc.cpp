// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// rpc: an operation as it stands
#include "connection.h"
#include "output.h"

namespace zamctl {

int rpc(const Options &options) {
    const std::string payload = read_argument(options.content);
    if (payload.empty()) throw Failure{exit_usage, "an operation is needed, such as '{\"module:operation\":{}}'"};
    const uint32_t encoding = payload.front() == '<' ? uint32_t{ZAM_ENCODE_XML} : options.encoding;
    Connection connection{options, "zamctl"};
    print_data(connection.exchange(payload, encoding), encoding);
    return exit_done;
}

} // namespace zamctl
