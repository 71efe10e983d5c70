// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "torture/stage.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include <sys/socket.h>
#include <unistd.h>
#include <zamc/message.h>
#include <zamc/suber.h>
#include <zamc/utils.h>

#include "client/client_internal.h"
#include "fuzz/fuzz.h"
#include "support/frames.h"

namespace zam::torture {
namespace {

using test::Kind;

constexpr const char *data_target = "/test-main:top";

std::string journal; // what handlers and callbacks were called with, in their order

void note(const std::string &line) {
    journal += line + "\n";
}

int32_t on_config(zamc_client *client, uint32_t mask, uint32_t priority, int32_t more, const char *target, void *) {
    note("config " + std::to_string(mask) + " " + std::to_string(priority) + " " + std::to_string(more) + " " + target);
    if (std::strlen(target) % 2 == 1) return 0;
    zamc_error_set(client, 50, "not %s", target);
    return -1;
}

int32_t on_status(zamc_client *, const char *target, void *, zamc_bytes **output, void *) {
    note(std::string{"status "} + target);
    static constexpr char text[] = R"({"text":"up"})";
    *output = zamc_new_bytes(text, sizeof text - 1, ZAM_ENCODE_JSON);
    return 0;
}

int32_t on_operation(zamc_client *, const zamc_bytes *input, zamc_bytes **output, void *) {
    note("operation " + std::string{input->data, static_cast<size_t>(input->length)});
    static constexpr char text[] = R"({"test-main:result":"done"})";
    *output = zamc_new_bytes(text, sizeof text - 1, ZAM_ENCODE_JSON);
    return 0;
}

int32_t on_message(zamc_client *, uint32_t type, const zam_message *message, void *) {
    note("message " + std::to_string(type) + " " + std::string{message->data, static_cast<size_t>(message->length)});
    return 0;
}

int32_t on_reply(zamc_client *, const zam_message *reply, void *which) {
    note("reply " + std::to_string(*static_cast<int *>(which)) + " " +
         (reply ? std::string{reply->data, static_cast<size_t>(reply->length)} : "lost"));
    return 0;
}

std::span<const zamc_sub_node> subscriptions() {
    static const auto nodes = [] {
        std::array<zamc_sub_node, 3> made{};
        made[0].target = data_target;
        made[0].type = ZAMC_SUB_CONFIG_CHANGE;
        made[0].config = on_config;
        made[0].filter_mask = 0xF | ZAMC_SCENE_NORMAL | ZAMC_SCENE_CFGR | ZAMC_SCENE_ROLLBACK;
        made[1].target = data_target;
        made[1].type = ZAMC_SUB_STATUS_QUERY;
        made[1].status = on_status;
        made[2].target = "/test-main:run";
        made[2].type = ZAMC_SUB_OPERATION;
        made[2].operation = on_operation;
        return made;
    }();
    return nodes;
}

} // namespace

ClientStage::ClientStage() : link_{subscriptions()} {
    FUZZ_EXPECT(zamc_set_message_recv_cb(link_.client(), on_message, nullptr) == 0);
}

void ClientStage::write(std::string_view bytes) {
    for (bytes.remove_prefix(link_.write(bytes)); !bytes.empty() && zamc_run(client(), 0) == 0;)
        bytes.remove_prefix(link_.write(bytes));
}

uint32_t ClientStage::request(int number) {
    static constexpr char text[] = R"({"orvel-zam-server:deactivate":{}})";
    static int numbers[] = {0, 1, 2, 3};
    const uint32_t seq = client()->send_seq;
    zamc_bytes *bytes = zamc_new_bytes(text, sizeof text - 1, ZAM_ENCODE_JSON);
    FUZZ_EXPECT(zamc_send_rpc_asyn(client(), bytes, on_reply, &numbers[number]) == 0);
    zamc_free_bytes(bytes);
    link_.received();
    return seq;
}

std::string ClientStage::outcome() {
    std::string answers;
    for (int round = 0; round < 10; ++round) {
        while (zamc_run(client(), 0) > 0) {
        }
        test::Decoder decoder;
        decoder.feed(link_.received());
        bool rewake = false;
        while (const auto frame = decoder.next()) {
            if (frame->kind == Kind::rewake) {
                rewake = true;
                continue;
            }
            answers += "answer " + std::to_string(static_cast<int>(frame->kind)) + " " + std::to_string(frame->seq) +
                       " " + std::to_string(frame->encoding) + " " + frame->payload + "\n";
        }
        if (!rewake) break;
        write(test::encode({Kind::rewake, 0, 0, {}}));
    }
    return std::exchange(journal, {}) + answers;
}

ServerStage::ServerStage()
    : store_{zam_clients_schema_ctx()}, server_{zam_clients_schema_ctx(), store_, zamd::Limits{}} {
    int ends[2];
    FUZZ_EXPECT(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) == 0);
    fd_ = ends[0];
    server_.welcome(zamd::Descriptor{ends[1]});
}

ServerStage::~ServerStage() {
    close(fd_);
}

void ServerStage::write(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent > 0) bytes.remove_prefix(static_cast<size_t>(sent));
        server_.round(0);
        if (sent <= 0 && errno != EAGAIN) return;
    }
}

std::string ServerStage::outcome() {
    constexpr int enough = 8; // a transaction, and what it asks others
    for (int i = 0; i < enough; ++i)
        server_.round(0);
    std::string bytes;
    char block[65536];
    for (ssize_t count; (count = recv(fd_, block, sizeof block, MSG_DONTWAIT)) > 0;)
        bytes.append(block, static_cast<size_t>(count));
    return bytes;
}

} // namespace zam::torture
