// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <variant>

#include <zamc/client.h>
#include <zamc/logger.h>

#include "modules.h"
#include "options.h"
#include "server.h"
#include "service.h"
#include "store.h"

namespace {

int _fail(const std::string &why, int code) {
    std::fflush(stdout);
    std::string line = why;
    for (char &c : line)
        if (c == '\n') c = ' ';
    std::fprintf(stderr, "zamd: %s\n", line.c_str());
    return code;
}

bool _open_log(const zamd::Options &options) {
    if (options.log == "stdout") {
        zam_log_config(options.log_level, zam_log_printf);
        return true;
    }
    std::FILE *probe = std::fopen(options.log.c_str(), "a");
    if (probe == nullptr) return false;
    std::fclose(probe);
    zam_open_log_file(options.log.c_str());
    zam_log_config(options.log_level, zam_write_log_file);
    return true;
}

// From here on they arrive through the loop; before, they end the process as ever, since nothing is up yet.
void _block_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
}

void _say_ready(const std::vector<std::string> &urls) {
    std::string line = "zamd: ready on";
    for (const std::string &url : urls)
        line += " " + url;
    std::puts(line.c_str());
    std::fflush(stdout);
}

} // namespace

int main(int argc, char **argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // log lines are read while the server runs
    const std::variant<zamd::Options, int> parsed = zamd::parse_options(argc, argv);
    if (const int *code = std::get_if<int>(&parsed); code != nullptr) return *code;
    const auto &options = std::get<zamd::Options>(parsed);

    if (!_open_log(options))
        return _fail("cannot write the log file " + options.log + ": " + std::strerror(errno), zamd::exit_bad_start);
    if (auto loaded = zamd::load_modules(options.modules); !loaded)
        return _fail(loaded.error().message, zamd::exit_bad_start);

    ly_ctx *ctx = zam_clients_schema_ctx();
    zamd::Store store{ctx};
    if (!options.startup.empty())
        if (auto loaded = store.load(options.startup, options.save); !loaded)
            return _fail(loaded.error().message, zamd::exit_bad_start);

    _block_signals();
    zamd::Server server{ctx, store, options.limits};
    if (auto listening = server.listen(options.listen); !listening)
        return _fail(listening.error().message, zamd::exit_bad_start);
    _say_ready(options.listen);
    zamd::tell_ready();
    auto served = server.run();
    zamd::tell_stopping();
    if (!served) return _fail(served.error().message, zamd::exit_failed);
    return zamd::exit_clean;
}
