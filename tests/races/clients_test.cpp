// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Threads that each have a client of their own share the schema context, the log and the memory hooks.
#include <algorithm>
#include <array>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <zamc/zamc.h>

#include "support/files.h"
#include "support/server.h"

namespace {

using namespace zam::test;

constexpr int thread_count = 4;
constexpr char interfaces[] = "/ietf-interfaces:interfaces";

int drop(int, const char *, ...) {
    return 0;
}

void run_in_threads(const std::function<void(int)> &body) {
    std::vector<std::thread> threads;
    for (int i = 0; i < thread_count; ++i)
        threads.emplace_back(body, i);
    for (auto &thread : threads)
        thread.join();
}

int32_t agree(zamc_client *, uint32_t, uint32_t, int32_t, const char *, void *told) {
    ++*static_cast<int *>(told);
    return 0;
}

// Builds, prints, parses and pushes a document, and reads it back.
void use_documents(zamc_client *client, const std::string &name) {
    const std::string path = std::string{interfaces} + "/interface[name='" + name + "']";
    for (const uint32_t format : {ZAM_ENCODE_JSON, ZAM_ENCODE_XML}) {
        zamc_doc *doc = zamc_new_doc(format);
        EXPECT_EQ(zamc_new_node(doc, (path + "/type").c_str(), "iana-if-type:ethernetCsmacd"),
                  format == ZAM_ENCODE_JSON ? 0 : -1); // in XML a value is an element
        zamc_bytes *bytes = zamc_format_doc(doc, format);
        zamc_doc *again = bytes ? zamc_parse_bytes(bytes, "/") : nullptr;
        zamc_free_doc(again);
        zamc_free_bytes(bytes);
        zamc_free_doc(doc);
    }
    static constexpr char type[] = "iana-if-type:ethernetCsmacd";
    zamc_bytes *content = zamc_new_bytes(type, sizeof type - 1, ZAM_ENCODE_JSON);
    EXPECT_EQ(zamc_push(client, (path + "/type").c_str(), ZAMC_PUSH_MERGE, content), 0);
    zamc_free_bytes(content);
    zamc_bytes *read = nullptr;
    EXPECT_EQ(zamc_pull(client, 0, path.c_str(), -1, &read), 0);
    EXPECT_NE(read, nullptr);
    zamc_free_bytes(read);
}

TEST(Races, NoneBetweenFourClientsThatShareTheSchema) {
    const Server server;
    ASSERT_EQ(zamc_initialize(), 0);
    ASSERT_EQ(zamc_load_module(models_path().c_str(), nullptr), 0) << "before there are threads";
    std::array<int, thread_count> told{};
    run_in_threads([&](int number) {
        const std::string name = "eth" + std::to_string(number);
        zamc_client *client = zamc_client_new(name.c_str(), number % 2 ? ZAM_ENCODE_XML : ZAM_ENCODE_JSON);
        const std::string target = std::string{interfaces} + "/interface[name='" + name + "']";
        zamc_sub_node node{};
        node.target = target.c_str();
        node.type = ZAMC_SUB_CONFIG_CHANGE;
        node.config = agree;
        node.user = &told[static_cast<size_t>(number)];
        EXPECT_EQ(zamc_subscribe(client, &node), 0);
        EXPECT_GE(zamc_connect(client, server.url().c_str()), 0);
        EXPECT_EQ(zamc_activate(client, 0, nullptr, nullptr), 0);
        for (int round = 0; round < 5; ++round) {
            use_documents(client, name);
            EXPECT_EQ(zamc_run(client, 10), 0);
        }
        zamc_client_free(client);
    });
    for (const int count : told)
        EXPECT_GE(count, 1);
}

TEST(Races, NoneInALogThatFourThreadsWriteTo) {
    const TempDir dir;
    zam_open_log_file(dir.path("log").c_str());
    zam_log_config(ZAM_LOG_INFO, zam_write_log_file);
    constexpr int lines = 500;
    run_in_threads([](int number) {
        for (int i = 0; i < lines; ++i)
            zam_log_printf(ZAM_LOG_INFO, "thread %d line %d\n", number, i);
    });
    zam_log_config(ZAM_LOG_EMERG, drop); // an output cannot be taken away
    zam_close_log_file();
    const std::string log = read_file(dir.path("log"));
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), lines * thread_count);
}

} // namespace
