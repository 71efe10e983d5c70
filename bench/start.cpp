// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// start [ROUNDS]: zamc_initialize() against libyang alone, and the memory of a connected, idle client against that of a
// process which holds the same context only. The schema context is made once in a process, so each sample is a process
// of its own, ours and the floor's by turns:
//
//     start time          prints the microseconds of zamc_initialize()
//     start memory URL    connects, goes idle, prints the private memory of the process in KiB
#include <cstdlib>
#include <cstring>
#include <string>

#include <sys/wait.h>

#include <zamc/zamc.h>

#include "processes.h"
#include "start.h"

namespace zam::bench {
namespace {

double _time() {
    Samples samples;
    samples.time([] { require(zamc_initialize() == 0, "no schema context"); });
    return samples.median();
}

double _memory(const char *url) {
    zamc_client *client = zamc_client_new("idle", ZAM_ENCODE_JSON);
    require(client && zamc_connect(client, url) >= 0 && zamc_run(client, 0) == 0, "cannot connect");
    const long kib = private_kib();
    zamc_client_free(client);
    return static_cast<double>(kib);
}

double _output_of(const std::string &command) {
    FILE *pipe = popen(command.c_str(), "r");
    double value = 0;
    require(pipe && std::fscanf(pipe, "%lf", &value) == 1 && pclose(pipe) == 0, command + " fails");
    return value;
}

void _compare(const std::string &ours, int rounds) {
    const Zamd zamd{warehouse(0)};
    Samples initialize;
    Samples libyang;
    Samples client;
    Samples context;
    for (int round = 0; round < rounds; round++) {
        initialize.add(_output_of(ours + " time"));
        libyang.add(_output_of(ZAMC_START_FLOOR_PATH " time"));
        client.add(_output_of(ours + " memory " + zamd.url()));
        context.add(_output_of(ZAMC_START_FLOOR_PATH " memory"));
    }
    report("initialize", initialize, libyang);
    report("idle-client.kib", client.median());
    report("idle-client.floor-kib", context.median());
    report("idle-client", (client.median() - context.median()) / 1024);
}

} // namespace
} // namespace zam::bench

int main(int argc, char **argv) {
    using namespace zam::bench;
    zam_log_config(ZAM_LOG_WRONG, zam_log_printf);
    if (argc == 2 && std::strcmp(argv[1], "time") == 0)
        std::printf("%.3f\n", _time());
    else if (argc == 3 && std::strcmp(argv[1], "memory") == 0)
        std::printf("%.3f\n", _memory(argv[2]));
    else
        _compare(argv[0], argc > 1 ? std::atoi(argv[1]) : 40);
    return 0;
}
