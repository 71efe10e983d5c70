// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// A client with a scripted server as its peer, and handlers that note what they were called with.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <zamc/client.h>
#include <zamc/connector.h>

#include "client/client_internal.h"
#include "support/files.h"
#include "support/frames.h"
#include "support/heap.h"
#include "support/log_capture.h"
#include "support/peer.h"
#include "support/test_schema.h"

namespace zam::test {

constexpr const char *server_xmlns = "urn:orvel:params:xml:ns:yang:orvel-zam-server";
constexpr const char *client_xmlns = "urn:orvel:params:xml:ns:yang:orvel-zam-client";
constexpr int32_t idle_ms = 10; // of one zamc_run in a loop that waits for something
constexpr auto patience = std::chrono::seconds{10};

inline Frame request(uint32_t seq, std::string payload, uint32_t encoding = 2) {
    return {Kind::request, seq, encoding, std::move(payload)};
}
inline Frame reply(uint32_t seq, std::string payload = {}, uint32_t encoding = 2) {
    return {Kind::reply, seq, encoding, std::move(payload)};
}
inline Frame rewake(uint32_t encoding = 2) {
    return {Kind::rewake, 0, encoding, {}};
}
inline std::string encode_all(const std::vector<Frame> &frames) {
    std::string bytes;
    for (const Frame &frame : frames)
        bytes += encode(frame);
    return bytes;
}

// The payload of an error reply.
inline std::string error_json(const std::string &code, const std::string &message) {
    return R"({"ietf-netconf:rpc-error":{"error-type":"application","error-tag":"operation-failed","error-app-tag":")" +
           code + R"(","error-message":")" + message + R"("}})";
}
inline const std::string system_error = error_json("4294967295", "System error");
inline const std::string message_error = error_json("4294967294", "Message error");
inline const std::string service_error = error_json("4294967293", "Service process failed");
inline const std::string unprocessed_error = error_json("4294967292", "Message is not processed");

inline const std::string finish_json = R"({"orvel-zam-client:notify-activate-finish":{}})";
inline const std::string deactivate_finish_json = R"({"orvel-zam-client:notify-deactivate-finish":{}})";

// A publish request; a field that is empty is left out. `list_more` and the numbers are JSON as it stands.
struct Publication {
    std::string pub_type = "config-change";
    std::string from_session = "9";
    std::string scene = "normal";
    std::string target = "/test-main:top/text";
    std::string priv_data = "0";
    std::string priority = "5";
    std::string modify_type = "1";
    std::string list_more = {};
    std::string content = {};
    bool empty = false; // no publication at all

    std::string json() const {
        std::string entry;
        const auto add = [](std::string &members, const char *name, const std::string &value, const char *quote) {
            if (value.empty()) return;
            if (!members.empty()) members += ",";
            members += '"' + std::string{name} + "\":" + quote + value + quote;
        };
        add(entry, "target", target, "\"");
        add(entry, "priv-data", priv_data, "\"");
        add(entry, "priority", priority, "");
        add(entry, "modify-type", modify_type, "");
        add(entry, "list-more", list_more, "");
        add(entry, "content", content, "");
        std::string members;
        add(members, "pub-type", pub_type, "\"");
        add(members, "from-session", from_session, "");
        add(members, "scene", scene, "\"");
        add(members, "publications", empty ? "{}" : "{\"publication\":[{" + entry + "}]}", "");
        return "{\"orvel-zam-client:publish\":{" + members + "}}";
    }
};

// Handlers and callbacks of every kind. Each call leaves a line; `act` does what the test wants and gives the result.
struct Handler {
    std::vector<std::string> calls;
    std::function<int32_t(zamc_client *)> act = [](zamc_client *) { return 0; };
    std::optional<std::string> output = std::nullopt; // of a status or operation handler
    uint32_t output_format = 2;

    static int32_t config(zamc_client *client, uint32_t mask, uint32_t priority, int32_t list_more, const char *target,
                          void *user) {
        return self(user).note(client, "config " + std::to_string(mask) + " " + std::to_string(priority) + " " +
                                           std::to_string(list_more) + " " + target);
    }
    static int32_t brief(zamc_client *client, uint32_t mask, uint32_t priority, const char *target, void *user) {
        return self(user).note(client, "brief " + std::to_string(mask) + " " + std::to_string(priority) + " " + target);
    }
    static int32_t status(zamc_client *client, const char *target, void *reserved, zamc_bytes **out, void *user) {
        EXPECT_EQ(reserved, nullptr);
        return self(user).answer(client, out, std::string{"status "} + target);
    }
    static int32_t operation(zamc_client *client, const zamc_bytes *input, zamc_bytes **out, void *user) {
        EXPECT_EQ(input->data[input->length], '\0');
        return self(user).answer(client, out,
                                 "operation " + std::to_string(input->format) + " " +
                                     std::string(input->data, static_cast<size_t>(input->length)));
    }
    static int32_t finish(zamc_client *client, int32_t finished, void *user, int32_t reserved) {
        return self(user).note(client, "finish " + std::to_string(finished) + " " + std::to_string(reserved));
    }
    static int32_t message(zamc_client *client, uint32_t type, const zam_message *message, void *arg) {
        return self(arg).note(client, "message " + std::to_string(type) + " " + std::to_string(message->encoding) +
                                          " " + text_of(message));
    }
    static int32_t replied(zamc_client *client, const zam_message *reply, void *arg) {
        return self(arg).note(client, reply ? "reply " + std::to_string(reply->encoding) + " " + text_of(reply)
                                            : std::string{"no reply"});
    }

    static Handler &self(void *user) { return *static_cast<Handler *>(user); }

private:
    static std::string text_of(const zam_message *message) { return {message->data, message->length}; }
    int32_t note(zamc_client *client, std::string line) {
        calls.push_back(std::move(line));
        return act(client);
    }
    int32_t answer(zamc_client *client, zamc_bytes **out, std::string line) {
        EXPECT_EQ(*out, nullptr);
        if (output) *out = zamc_new_bytes(output->data(), static_cast<int32_t>(output->size()), output_format);
        return note(client, std::move(line));
    }
};

// Subscription descriptions.
inline zamc_sub_node config_sub(const char *target, uint32_t priority, uint32_t mask, Handler *handler) {
    zamc_sub_node node{};
    node.target = target;
    node.type = ZAMC_SUB_CONFIG_CHANGE;
    node.priority = priority;
    node.filter_mask = mask;
    node.config = Handler::config;
    node.user = handler;
    return node;
}
inline zamc_sub_node brief_sub(const char *target, uint32_t priority, uint32_t mask, Handler *handler) {
    zamc_sub_node node = config_sub(target, priority, mask, handler);
    node.type = ZAMC_SUB_CONFIG_CHANGE_BRIEF;
    node.config_brief = Handler::brief;
    return node;
}
inline zamc_sub_node status_sub(const char *target, Handler *handler) {
    zamc_sub_node node{};
    node.target = target;
    node.type = ZAMC_SUB_STATUS_QUERY;
    node.status = Handler::status;
    node.user = handler;
    return node;
}
inline zamc_sub_node operation_sub(const char *target, Handler *handler) {
    zamc_sub_node node{};
    node.target = target;
    node.type = ZAMC_SUB_OPERATION;
    node.operation = Handler::operation;
    node.user = handler;
    return node;
}

inline zam_suber *suber_at(const zamc_client *client, uint32_t index) {
    return static_cast<zam_suber *>(zam_vector_get(client->subers, index));
}
// The status of each slot in use, by its index.
inline std::map<uint32_t, uint32_t> statuses(const zamc_client *client) {
    std::map<uint32_t, uint32_t> found;
    for (uint32_t i = 0; i < zam_vector_size(client->subers); ++i) {
        if (const zam_suber *suber = suber_at(client, i)) found[i] = suber->status;
    }
    return found;
}
using Statuses = std::map<uint32_t, uint32_t>;

// The text of a bytes object that the library handed out, which is released; "(null)" for null.
inline std::string take_bytes(zamc_bytes *bytes) {
    if (!bytes) return "(null)";
    const std::string text{bytes->data ? bytes->data : "", static_cast<size_t>(bytes->length)};
    zamc_free_bytes(bytes);
    return text;
}

// A payload that lives as long as the object.
class Payload {
public:
    explicit Payload(std::string_view text, uint32_t format = 2)
        : bytes_{zamc_new_bytes(text.data(), static_cast<int32_t>(text.size()), format)} {}
    ~Payload() { zamc_free_bytes(bytes_); }
    Payload(const Payload &) = delete;
    Payload &operator=(const Payload &) = delete;
    operator const zamc_bytes *() const { return bytes_; }
    zamc_bytes *get() const { return bytes_; }

private:
    zamc_bytes *bytes_;
};

// A client that is not connected. After it is freed no block of the library and no descriptor may be left.
class ClientTest : public testing::Test {
protected:
    static void SetUpTestSuite() { test_context(); }

    void SetUp() override {
        client = zamc_client_new("tester", 2);
        ASSERT_NE(client, nullptr);
    }
    void TearDown() override {
        zamc_client_free(client);
        EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
    }

    void connect() {
        ASSERT_GE(zamc_connect(client, peer.url().c_str()), 0);
        ASSERT_TRUE(peer.wait_for_request("register"));
    }

    // Runs the client until the condition holds; fails the test at the deadline.
    void run_until(const std::function<bool()> &done) {
        const auto deadline = std::chrono::steady_clock::now() + patience;
        while (!done()) {
            if (std::chrono::steady_clock::now() > deadline) {
                ADD_FAILURE() << "waited in vain";
                return;
            }
            zamc_run(client, idle_ms);
        }
    }
    void run_until_calls(const Handler &handler, size_t count) {
        run_until([&] { return handler.calls.size() >= count; });
    }
    void run_until_closed() {
        run_until([this] { return zam_connector_closed(client->connector) != 0; });
    }

    // What the peer gets until it has been sent everything so far, without the registration and without rewakes.
    std::vector<Frame> sent_so_far() {
        const Payload marker{"marker"};
        zamc_send_message(client, ZAM_MESSAGE_OTHER_3, marker);
        EXPECT_TRUE(peer.wait_for([](const Frame &frame) { return frame.kind == Kind::other3; }));
        std::vector<Frame> frames;
        for (const Frame &frame : peer.received()) {
            const bool registration = frame.payload.find("register") != std::string::npos;
            if (!registration && frame.kind != Kind::other3 && frame.kind != Kind::rewake) frames.push_back(frame);
        }
        return frames;
    }
    int rewakes_so_far() {
        sent_so_far();
        int count = 0;
        for (const Frame &frame : peer.received())
            count += frame.kind == Kind::rewake;
        return count;
    }

    template <typename T>
    T attr(uint32_t id) {
        T value{};
        uint32_t length = sizeof value;
        EXPECT_EQ(zamc_get_attr(client, id, &value, &length), 0);
        EXPECT_EQ(length, sizeof value);
        return value;
    }
    template <typename T>
    int32_t set_attr(uint32_t id, T value) {
        return zamc_set_attr(client, id, &value, sizeof value);
    }

    DescriptorCheck descriptors;
    LogCapture log;
    Heap heap;
    Peer peer;
    zamc_client *client = nullptr;
};

// The same, connected; the registration has used number 0.
class ConnectedTest : public ClientTest {
protected:
    void SetUp() override {
        ClientTest::SetUp();
        connect();
    }
};

} // namespace zam::test
