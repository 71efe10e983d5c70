// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// What a stream may do to the bytes of an exchange: a client gets recorded exchanges of a server byte by byte, cut
// in two and in three at every index, many at once, with garbage and frames of no known type between them. Whatever the
// delivery, handlers and callbacks are called as in the delivery in one piece, and the server gets the same answers.
// The server gets the requests of a client in the same way.
//
// With ZAMC_PLANT one cut loses a byte, as a reader with a mistake at one place would; the suite has to find it.
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <functional>
#include <malloc.h>
#include <random>
#include <string>
#include <vector>

#include <zamc/client.h>
#include <zamc/message.h>
#include <zamc/utils.h>

#include "client/client_internal.h"
#include "fuzz/fuzz.h"
#include "support/frames.h"
#include "support/test_schema.h"
#include "torture/stage.h"

namespace zam::torture {
namespace {

using test::Frame;
using test::Kind;

constexpr uint32_t json = ZAM_ENCODE_JSON;
constexpr uint32_t xml = ZAM_ENCODE_XML;
constexpr size_t header_size = 16;
constexpr const char *data_target = "/test-main:top";

struct Tally {
    uint64_t deliveries = 0;
    uint64_t differing = 0;
};

Tally tally;
// What the server sends in one exchange; asked anew for each delivery, as the client's requests are.
struct Exchange {
    const char *name;
    std::function<std::vector<Frame>(ClientStage &)> frames;
};

std::string publish(const std::string &rest) {
    return R"({"orvel-zam-client:publish":{)" + rest + "}}";
}

std::string change(const std::string &scene, const std::string &target, int kind, bool more = false,
                   const std::string &type = "config-change", int index = 0) {
    return R"("pub-type":")" + type + R"(","from-session":5,"scene":")" + scene +
           R"(","publications":{"publication":[{"target":")" + target + R"(","priv-data":")" + std::to_string(index) +
           R"(","priority":5,"modify-type":)" + std::to_string(kind) + R"(,"list-more":)" + (more ? "true" : "false");
}

std::vector<Frame> request(const std::string &payload, uint32_t encoding = json) {
    return {{Kind::request, 41, encoding, payload}};
}

Exchange asked(const char *name, const std::string &payload, uint32_t encoding = json) {
    return {name, [payload, encoding](ClientStage &) { return request(payload, encoding); }};
}

// Replies, in that order, to requests sent for the purpose; number 9 is a request that was never sent.
Exchange replied(const char *name, std::vector<int> order, const std::string &payload, uint32_t encoding = json) {
    return {name, [=](ClientStage &stage) {
                uint32_t seqs[4] = {};
                for (int number = 0; number < 4; ++number)
                    if (std::find(order.begin(), order.end(), number) != order.end())
                        seqs[number] = stage.request(number);
                std::vector<Frame> frames;
                for (const int number : order)
                    frames.push_back({Kind::reply, number == 9 ? 0xFFFF0000 : seqs[number], encoding, payload});
                return frames;
            }};
}

std::vector<Exchange> exchanges() {
    const std::string end = "}]}";
    const std::string error = R"({"ietf-netconf:rpc-error":{"error-type":"application","error-tag":"in-use",)"
                              R"("error-app-tag":"50","error-message":"not now"}})";
    const std::string xml_publish =
        R"(<publish xmlns="urn:orvel:params:xml:ns:yang:orvel-zam-client"><pub-type>operation</pub-type>)"
        R"(<publications><publication><target>/test-main:run</target><priv-data>2</priv-data><content>)"
        R"(<speed xmlns="urn:test:main">5</speed></content></publication></publications></publish>)";
    const auto item = [](const std::string &name) { return R"(/test-main:top/item[name=\")" + name + R"(\"])"; };
    return {
        asked("create", publish(change("normal", data_target, 1) + end)),
        asked("refused", publish(change("normal", "/test-main:top/text", 1) + end)),
        asked("delete", publish(change("normal", item("a"), 2) + end)),
        asked("update", publish(change("normal", item("ab"), 4) + end)),
        asked("more", publish(change("normal", item("a"), 1, true) + end)),
        asked("move", publish(change("normal", item("a]b"), 8) + end)),
        asked("replay", publish(change("replay", data_target, 1) + end)),
        asked("rollback", publish(change("rollback", item("\xC3\xA9"), 2) + end)),
        asked("unknown index", publish(change("normal", data_target, 1, false, "config-change", 77) + end)),
        asked("wrong type", publish(change("normal", data_target, 1, false, "operation", 0) + end)),
        asked("status", publish(change("normal", data_target, 0, false, "status-query", 1) + end)),
        asked("operation", publish(change("normal", "/test-main:run", 0, false, "operation", 2) +
                                   R"(,"content":{"speed":5})" + end)),
        asked("operation without input",
              publish(change("normal", "/test-main:run", 0, false, "operation", 2) + R"(,"content":{})" + end)),
        asked("operation in XML", xml_publish, xml),
        asked("activated", R"({"orvel-zam-client:notify-activate-finish":{}})"),
        asked("deactivated", R"({"orvel-zam-client:notify-deactivate-finish":{}})"),
        asked("stage", R"({"orvel-zam-client:notify-publish-stage":{"pub-type":"config-change",)"
                       R"("stage":"publish-start"}})"),
        asked("not for clients", R"({"orvel-zam-server:pull":{}})"),
        asked("malformed", "{"),
        asked("of length 0", ""),
        asked("of length 1", "<", xml),
        asked("magic in the payload",
              std::string("\0\xFB\xBF\0\x12\0\0\0\0\0\0\0\0\0\0\0", header_size) + "a header's length"),
        replied("reply", {0}, ""),
        replied("reply with output", {0}, R"({"orvel-zam-server:register":{"session-id":7}})"),
        replied("reply in XML", {0}, "<ok/>", xml),
        replied("error", {0}, error),
        replied("replies out of order", {2, 0, 1}, ""),
        replied("reply twice", {0, 0}, ""),
        replied("reply to nobody", {9, 0, 9}, ""),
        {"late reply",
         [](ClientStage &stage) {
             const uint32_t first = stage.request(0);
             const uint32_t second = stage.request(1);
             return std::vector<Frame>{{Kind::request, 41, json, publish(change("normal", data_target, 1) + "}]}")},
                                       {Kind::reply, second, json, ""},
                                       {Kind::request, 42, json, "{"},
                                       {Kind::reply, first, json, ""}};
         }},
        {"messages",
         [](ClientStage &) {
             return std::vector<Frame>{{Kind::other2, 0, json, R"({"orvel-zam-server:appinfo":{"data":"a"}})"},
                                       {Kind::other3, 0, 3, std::string("\0\1\2", 3)},
                                       {Kind::rewake, 0, 0, ""},
                                       {Kind::other2, 0, xml, "<a/>"}};
         }},
    };
}

std::string bytes_of(const std::vector<Frame> &frames) {
    std::string bytes;
    for (const Frame &frame : frames)
        bytes += test::encode(frame);
    return bytes;
}

// Frames of no type, or of several: dropped, whatever is in them. Of several types the lowest counts for a reader.
std::string frame_of_no_type(std::mt19937 &random) {
    std::string frame = test::encode({Kind::untyped, static_cast<uint32_t>(random()), json, "payload"});
    return frame;
}

// Bytes without the beginning of a magic.
std::string garbage(std::mt19937 &random, size_t length) {
    std::string bytes(length, ' ');
    for (char &byte : bytes)
        byte = static_cast<char>(1 + random() % 255);
    return bytes;
}

class Delivery {
public:
    explicit Delivery(uint64_t wanted) : wanted_{wanted} {}

    void run() {
        const std::vector<Exchange> all = exchanges();
        for (const Exchange &exchange : all)
            deliver(exchange, wanted_ / all.size());
    }

private:
    void deliver(const Exchange &exchange, uint64_t wanted) {
        exchange_ = &exchange;
        ClientStage stage;
        const std::string whole = bytes_of(exchange.frames(stage));
        // The second round counts: the first one's handlers and numbers are as good as any, but it sets the base.
        stage.write(whole);
        expected_ = stage.outcome();
        uint64_t before = tally.deliveries;
        const auto done = [&] { return tally.deliveries - before; };
        in_pieces(stage, {}, "whole");
        byte_by_byte(stage);
        for (size_t cut = 1; cut < whole.size() && done() < wanted; ++cut)
            in_pieces(stage, {cut}, "cut");
        for (int k = 0; k < 20 && done() < wanted; ++k)
            disturbed();
        for (size_t first = 1; first < whole.size() && done() < wanted; ++first)
            for (size_t step = 1 + random_() % 7, second = first + step; second < whole.size() && done() < wanted;
                 second += step)
                in_pieces(stage, {first, second}, "cut twice");
        while (done() < wanted)
            disturbed();
    }

    void expect(ClientStage &stage, const std::string &how) {
        const std::string got = stage.outcome();
        ++tally.deliveries;
        if (same(got)) return;
        if (++tally.differing > 5) return;
        std::printf("%s, delivered %s, differs:\n%s--- expected:\n%s\n", exchange_->name, how.c_str(), got.c_str(),
                    expected_.c_str());
    }

    bool same(const std::string &got) const { return got == expected_; }

    void in_pieces(ClientStage &stage, std::vector<size_t> cuts, const char *how) {
        std::string bytes = bytes_of(exchange_->frames(stage));
        if (fuzz::planted() && cuts == std::vector<size_t>{header_size + 3}) bytes.erase(cuts[0], 1);
        size_t from = 0;
        for (const size_t cut : cuts) {
            stage.write(std::string_view{bytes}.substr(from, cut - from));
            stage.run();
            from = cut;
        }
        stage.write(std::string_view{bytes}.substr(from));
        std::string at = how;
        for (const size_t cut : cuts)
            at += " " + std::to_string(cut);
        expect(stage, at);
        if (fuzz::planted() && tally.differing > 0) std::exit(1);
    }

    void byte_by_byte(ClientStage &stage) {
        for (const char byte : bytes_of(exchange_->frames(stage))) {
            stage.write({&byte, 1});
            stage.run();
        }
        expect(stage, "byte by byte");
    }

    // In one piece, with what is no frame, or none of a known type, around its frames. The client is one of its own:
    // a frame behind stray bytes leaves as many bytes behind, which a frame in pieces would count as its payload.
    void disturbed() {
        ClientStage stage;
        const std::vector<Frame> frames = exchange_->frames(stage);
        // So many bytes at the end of what has arrived are looked at again, and must hold no whole frame.
        size_t stray = header_size - 1;
        std::string bytes;
        for (const Frame &frame : frames) {
            if (random_() % 2) bytes += frame_of_no_type(random_);
            std::string noise = random_() % 2 ? garbage(random_, random_() % 40) : wrong_magic(frame);
            noise.resize(std::min(noise.size(), stray));
            stray -= noise.size();
            bytes += noise + test::encode(frame);
        }
        stage.write(bytes);
        expect(stage, "disturbed");
    }

    static std::string wrong_magic(const Frame &frame) {
        std::string bytes = test::encode({Kind::request, frame.seq, json, "{}"});
        bytes[1] = static_cast<char>(bytes[1] ^ 1);
        for (char &byte : bytes)
            if (byte == '\0') byte = '\1';
        return bytes;
    }

    uint64_t wanted_;
    std::mt19937 random_{7};
    const Exchange *exchange_ = nullptr;
    std::string expected_;
};

size_t in_use() {
    const auto info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

constexpr bool measures_memory =
#if defined(__SANITIZE_ADDRESS__)
    false;
#elif defined(__has_feature)
    !__has_feature(address_sanitizer);
#else
    true;
#endif

// Lengths that are announced and never kept take no more memory than what arrives and a mebibyte.
void announced_lengths() {
    constexpr size_t sent = 1u << 18;
    for (const uint32_t length : {1u << 20, 1u << 30, 1u << 31, 0xFFFFFFF0u, 0xFFFFFFFFu}) {
        ClientStage stage;
        const size_t before = in_use();
        std::string bytes = test::encode({Kind::request, 1, json, {}});
        for (size_t i = 0; i < 4; ++i)
            bytes[12 + i] = static_cast<char>(length >> (24 - 8 * i) & 0xFF);
        stage.write(bytes);
        for (size_t i = 0; i < sent; i += 4096) {
            stage.write(std::string(4096, 'x'));
            stage.run();
        }
        ++tally.deliveries;
        const size_t grown = in_use() > before ? in_use() - before : 0;
        if (measures_memory && grown > sent + (1u << 20)) {
            ++tally.differing;
            std::printf("an announced length of %" PRIu32 " takes %zu bytes\n", length, grown);
        }
        stage.outcome();
    }
}

// What the callback of a request was called with.
struct Outcome {
    uint32_t replies = 0;
    uint32_t losses = 0;
};

int32_t count_outcome(zamc_client *, const zam_message *reply, void *arg) {
    auto &outcome = *static_cast<Outcome *>(arg);
    ++(reply ? outcome.replies : outcome.losses);
    return 0;
}

// A thousand requests are open while the numbers pass their end. Each callback runs once: with its reply when they come
// in order, and, when they do not, with its reply or, once a later request is answered, with none.
void numbers_pass_their_end(bool in_order) {
    constexpr uint32_t pending = 1000;
    std::vector<Outcome> outcomes(pending);
    ClientStage stage;
    stage.client()->send_seq = 0xFFFFFF00;
    std::vector<uint32_t> seqs;
    for (Outcome &outcome : outcomes) {
        seqs.push_back(stage.client()->send_seq);
        zamc_bytes *bytes = zamc_new_bytes("{}", 2, ZAM_ENCODE_JSON);
        FUZZ_EXPECT(zamc_send_rpc_asyn(stage.client(), bytes, count_outcome, &outcome) == 0);
        zamc_free_bytes(bytes);
        stage.run();
    }
    stage.discard();
    std::mt19937 random{11};
    if (!in_order) std::shuffle(seqs.begin(), seqs.end(), random);
    for (const uint32_t seq : seqs) {
        stage.write(test::encode({Kind::reply, seq, json, "<ok/>"}));
        stage.outcome();
        ++tally.deliveries;
    }
    for (const Outcome &outcome : outcomes)
        if (outcome.replies + outcome.losses != 1 || (in_order && outcome.losses != 0)) ++tally.differing;
}

// The other way: what a client sends to the server.
std::vector<Frame> requests(std::initializer_list<const char *> texts) {
    std::vector<Frame> frames{
        {Kind::request, 1, json, R"({"orvel-zam-server:register":{"name":"c","attribute":{"encode":"json"}}})"}};
    for (const char *text : texts) {
        const uint32_t encoding = text[0] == '<' ? xml : json;
        frames.push_back({Kind::request, static_cast<uint32_t>(frames.size() + 1), encoding, text});
    }
    return frames;
}

void to_server(uint64_t wanted) {
    const std::vector<std::vector<Frame>> all{
        requests({R"({"orvel-zam-server:pull":{"entity":"/"}})"}),
        requests({R"(<pull xmlns="urn:orvel:params:xml:ns:yang:orvel-zam-server"><entity>/</entity></pull>)"}),
        requests({R"({"orvel-zam-server:push":{"datastore":"ietf-datastores:running","entity":"/test-main:top/text",)"
                  R"("operation":"merge","content":{"text":"x"}}})",
                  R"({"orvel-zam-server:pull":{"datastore":"ietf-datastores:running","entity":"/test-main:top"}})"}),
        requests({R"({"orvel-zam-server:verify-configuration":{"name":"c"}})", "{", "[[[]]]",
                  R"({"orvel-zam-server:notify":{"streams":{"stream":[{"name":"A"}]},"data":{"x":1}}})"}),
        {{Kind::rewake, 0, 0, ""}, {Kind::untyped, 3, 2, "x"}, {Kind::request, 4, 3, "{}"}},
    };
    std::mt19937 random{13};
    for (const auto &frames : all) {
        const std::string whole = bytes_of(frames);
        std::string expected;
        for (uint64_t i = 0; i < wanted / all.size(); ++i) {
            ServerStage stage;
            std::string bytes = i % 3 == 2 ? garbage(random, 1 + random() % 40) + whole : whole;
            size_t first = i == 0 ? bytes.size() : i % bytes.size();
            size_t second = i % 2 ? first : first + random() % (bytes.size() - first + 1);
            stage.write(std::string_view{bytes}.substr(0, first));
            stage.write(std::string_view{bytes}.substr(first, second - first));
            stage.write(std::string_view{bytes}.substr(second));
            const std::string got = stage.outcome();
            if (i == 0) expected = got;
            ++tally.deliveries;
            if (got == expected) continue;
            ++tally.differing;
            std::printf("the server answers differently when cut at %zu and %zu\n", first, second);
        }
    }
}

} // namespace
} // namespace zam::torture

// The one argument is the number of deliveries.
int main(int argc, char **argv) {
    using namespace zam;
    const uint64_t wanted = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 100000;
    fuzz::silence_log();
    test::test_context();
    torture::Delivery{wanted}.run();
    torture::announced_lengths();
    torture::numbers_pass_their_end(true);
    torture::numbers_pass_their_end(false);
    torture::to_server(wanted / 20);
    std::printf("delivery: %" PRIu64 " deliveries of %zu exchanges, %" PRIu64 " with other results\n",
                torture::tally.deliveries, torture::exchanges().size(), torture::tally.differing);
    return torture::tally.differing == 0 ? 0 : 1;
}
