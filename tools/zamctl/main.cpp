// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// zamctl: reads, writes, calls and watches from the command line. Data on stdout, diagnostics on stderr.
#include <CLI/CLI.hpp>

#include <exception>

#include "connection.h"
#include "output.h"

namespace zamctl {
namespace {

constexpr char footer[] = "Exit codes: 0 done, 1 refused, 2 usage, 3 server unreachable.\n"
                          "The server may also be named by the environment variable ZAMD_SERVER.";

void add_common(CLI::App &command, Options &options) {
    command.add_option("--server", options.server, "URL of the server")->envname("ZAMD_SERVER")->capture_default_str();
    command.add_option("--modules", options.modules, "Folder of YANG modules to load as well (repeatable)")
        ->allow_extra_args(false); // the path that follows is none
    command.add_option("--timeout", options.timeout_s, "Seconds to wait for an answer")
        ->check(CLI::Range(1, 86400))
        ->capture_default_str();
    auto *json = command.add_flag_callback(
        "--json", [&options] { options.encoding = ZAM_ENCODE_JSON; }, "JSON (the default)");
    auto *xml = command.add_flag_callback(
        "--xml", [&options] { options.encoding = ZAM_ENCODE_XML; }, "XML");
    json->excludes(xml);
    command.add_flag("-v,--verbose", options.verbose, "Show what the library logs");
}

void add_datastore(CLI::App &command, Options &options) {
    command.add_option("--datastore", options.datastore, "running, startup or operational")->capture_default_str();
}

void add_commands(CLI::App &app, Options &options, int (*&chosen)(const Options &)) {
    auto *pull_command = app.add_subcommand("pull", "Read a subtree");
    pull_command->add_option("path", options.path, "Data path; / for everything")->required();
    pull_command->add_option("--depth", options.depth, "Levels below the node; -1 for all")
        ->check(CLI::Range(-1, 65535))
        ->capture_default_str();
    pull_command->add_flag("--last", options.last, "As it was before the change that is being published");
    add_datastore(*pull_command, options);
    pull_command->callback([&] { chosen = pull; });

    auto *push_command = app.add_subcommand("push", "Change a subtree");
    push_command->add_option("path", options.path, "Data path; / for everything")->required();
    push_command->add_option("content", options.content,
                             "The node's value (JSON) or element (XML); - for standard input");
    push_command->add_option("-o,--operation", options.operation, "merge, replace, create, remove or delete")
        ->check(CLI::IsMember({"merge", "replace", "create", "remove", "delete"}))
        ->capture_default_str();
    add_datastore(*push_command, options);
    push_command->callback([&] { chosen = push; });

    auto *rpc_command = app.add_subcommand("rpc", "Call an operation");
    rpc_command->add_option("operation", options.content, "The RPC or action as JSON or XML; - for standard input")
        ->required();
    rpc_command->callback([&] { chosen = rpc; });

    auto *watch_command = app.add_subcommand("watch", "Subscribe to changes and print them");
    watch_command->add_option("path", options.path, "Data path")->required();
    watch_command->add_option("--changes", options.mask, "create,delete,update,move or all")->capture_default_str();
    watch_command->add_option("--priority", options.priority, "Lower numbers are asked first")->capture_default_str();
    watch_command->add_flag("--replay", options.replay, "Print the data that exists first");
    watch_command->add_option("--count", options.count, "Stop after so many publications");
    watch_command->callback([&] { chosen = watch; });

    for (CLI::App *command : {pull_command, push_command, rpc_command, watch_command}) {
        add_common(*command, options);
        command->footer(footer);
    }
}

int run(int argc, char **argv) {
    Options options;
    int (*chosen)(const Options &) = nullptr;
    CLI::App app{"Command-line client of zamd"};
    app.require_subcommand(1);
    app.set_version_flag("--version", "zamctl " ZAMC_VERSION);
    app.footer(footer);
    add_commands(app, options, chosen);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? exit_done : exit_usage;
    }
    capture_log(options.verbose);
    try {
        return chosen(options);
    } catch (const Failure &failure) {
        complain(failure.what());
        return failure.code;
    }
}

} // namespace
} // namespace zamctl

int main(int argc, char **argv) {
    try {
        return zamctl::run(argc, argv);
    } catch (const std::exception &error) {
        zamctl::complain(error.what());
        return zamctl::exit_refused;
    }
}
