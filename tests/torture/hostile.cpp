// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Payloads that mean harm, to a server and to a client: each is answered once, in words where it is refused, within a
// second, and who comes next is served. The inputs are files of one line each (hostile_corpus tells the form); those
// too large to keep are made here.
//
// With ZAMC_PLANT the answers to payloads with an invalid byte get lost; the suite has to miss them.
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <zamc/message.h>

#include "fuzz/fuzz.h"
#include "support/frames.h"
#include "support/test_schema.h"
#include "torture/stage.h"

namespace zam::torture {
namespace {

using test::Frame;
using test::Kind;

struct Input {
    char to = 's';
    uint32_t encoding = ZAM_ENCODE_JSON;
    std::string payload;
};

constexpr uint32_t seq = 41;
constexpr size_t fresh_after = 50; // inputs that share a server or a client, so that one may harm the next

uint64_t inputs = 0;
uint64_t failures = 0;

void fail(const Input &input, const char *what) {
    if (++failures > 20) return;
    std::printf("%c %" PRIu32 " %.300s\n  %s\n", input.to, input.encoding, input.payload.c_str(), what);
}

std::string unescape(std::string_view text) {
    std::string bytes;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 3 >= text.size()) {
            bytes += text[i];
            continue;
        }
        bytes += static_cast<char>(std::stoi(std::string{text.substr(i + 2, 2)}, nullptr, 16));
        i += 3;
    }
    return bytes;
}

std::vector<Input> read_inputs(const char *path) {
    std::ifstream file{path};
    std::vector<Input> read;
    for (std::string line; std::getline(file, line);) {
        if (line.size() < 4) continue;
        const uint32_t encoding = line[2] == 'j'   ? uint32_t{ZAM_ENCODE_JSON}
                                  : line[2] == 'x' ? uint32_t{ZAM_ENCODE_XML}
                                                   : static_cast<uint32_t>(line[2] - '0');
        read.push_back({line[0], encoding, unescape(std::string_view{line}.substr(4))});
    }
    return read;
}

std::string repeated(std::string_view text, size_t count) {
    std::string all;
    for (size_t i = 0; i < count; ++i)
        all += text;
    return all;
}

// For each direction: nesting beyond any stack, equal values beyond any patience, and a path of a mebibyte.
std::vector<Input> large_inputs() {
    constexpr size_t levels = 200000;
    const std::string server_xml = R"(<pull xmlns="urn:orvel:params:xml:ns:yang:orvel-zam-server">)";
    const std::string push = R"({"orvel-zam-server:push":{"entity":"/test-main:top","content":)";
    const std::string publish = R"({"orvel-zam-client:publish":{"pub-type":"operation","publications":{"publication":)"
                                R"([{"target":"/test-main:run","priv-data":"2","content":)";
    const std::string objects = repeated(R"({"a":)", levels) + "1" + repeated("}", levels);
    const std::string arrays = repeated("[", levels) + repeated("]", levels);
    const std::string elements = repeated("<a>", levels) + repeated("</a>", levels);
    const std::string tags = R"({"tag":[)" + repeated(R"("t",)", 40000) + R"("t"]})";
    std::vector<Input> made;
    for (const char to : {'s', 'c', 'r'}) {
        for (const std::string &value : {objects, arrays, tags}) {
            made.push_back({to, ZAM_ENCODE_JSON, value});
            made.push_back({to, ZAM_ENCODE_JSON, push + value + "}}"});
            made.push_back({to, ZAM_ENCODE_JSON, publish + value + "}]}}}"});
            made.push_back({to, ZAM_ENCODE_JSON, value.substr(0, value.size() / 2)});
        }
        made.push_back({to, ZAM_ENCODE_XML, elements});
        made.push_back({to, ZAM_ENCODE_XML, server_xml + elements + "</pull>"});
        made.push_back({to, ZAM_ENCODE_XML, server_xml + repeated("<a>", levels)});
        made.push_back({to, ZAM_ENCODE_XML, repeated("<a ", levels)});
        made.push_back({to, ZAM_ENCODE_JSON,
                        R"({"orvel-zam-server:pull":{"entity":"/test-main:)" + std::string(1u << 20, 'a') + R"("}})"});
    }
    return made;
}

bool loses_answer(const Input &input) {
    return fuzz::planted() && input.payload.find('\xff') != std::string::npos;
}

int answers_to(uint32_t number, const std::string &bytes) {
    test::Decoder decoder;
    decoder.feed(bytes);
    int count = 0;
    while (const auto frame = decoder.next())
        count += frame->kind == Kind::reply && frame->seq == number;
    return count;
}

class ToServer {
public:
    ToServer() {
        stage_.write(test::encode(
            {Kind::request, 1, ZAM_ENCODE_JSON, R"({"orvel-zam-server:register":{"name":"h","attribute":{}}})"}));
        stage_.outcome();
    }
    void take(const Input &input) {
        stage_.write(test::encode({Kind::request, seq, input.encoding, input.payload}));
        const std::string said = loses_answer(input) ? std::string{} : stage_.outcome();
        if (answers_to(seq, said) != 1) fail(input, "is not answered once");
        stage_.write(test::encode(
            {Kind::request, seq + 1, ZAM_ENCODE_JSON, R"({"orvel-zam-server:verify-configuration":{"name":"h"}})"}));
        if (answers_to(seq + 1, stage_.outcome()) != 1) fail(input, "leaves the server without an answer to the next");
    }

private:
    ServerStage stage_;
};

class ToClient {
public:
    // A request that an application is asked.
    void take(const Input &input) {
        stage_.write(test::encode({Kind::request, seq, input.encoding, input.payload}));
        const std::string said = loses_answer(input) ? std::string{} : stage_.outcome();
        if (count(said, "answer 1 41 ") != 1) fail(input, "is not answered once");
        expect_service(input);
    }
    // A reply to one of its own.
    void take_reply(const Input &input) {
        const uint32_t number = stage_.request(0);
        stage_.write(test::encode({Kind::reply, number, input.encoding, input.payload}));
        const std::string said = loses_answer(input) ? std::string{} : stage_.outcome();
        if (count(said, "reply 0 ") != 1) fail(input, "does not reach its callback once");
        expect_service(input);
    }

private:
    static int count(const std::string &lines, const std::string &start) {
        int found = 0;
        for (size_t at = 0; at < lines.size(); at = lines.find('\n', at) + 1) {
            found += lines.compare(at, start.size(), start) == 0;
            if (lines.find('\n', at) == std::string::npos) break;
        }
        return found;
    }
    void expect_service(const Input &input) {
        stage_.write(test::encode({Kind::request, seq + 1, ZAM_ENCODE_JSON,
                                   R"({"orvel-zam-client:publish":{"pub-type":"status-query","publications":)"
                                   R"({"publication":[{"target":"/test-main:top","priv-data":"1"}]}}})"}));
        if (stage_.outcome().find(R"("text":"up")") == std::string::npos) fail(input, "leaves a client that is no use");
    }

    ClientStage stage_;
};

// The stages that inputs share for a while.
struct Stages {
    ToServer server;
    ToClient client;
};

void take(const std::vector<Input> &all) {
    std::unique_ptr<Stages> stages;
    for (const Input &input : all) {
        if (inputs++ % fresh_after == 0 || !stages) stages = std::make_unique<Stages>();
        const auto start = std::chrono::steady_clock::now();
        if (input.to == 's') stages->server.take(input);
        if (input.to == 'c') stages->client.take(input);
        if (input.to == 'r') stages->client.take_reply(input);
        if (std::chrono::steady_clock::now() - start > std::chrono::seconds{5}) fail(input, "takes longer than 5 s");
    }
}

} // namespace
} // namespace zam::torture

// The arguments are files of inputs.
int main(int argc, char **argv) {
    using namespace zam;
    fuzz::silence_log();
    test::test_context();
    for (int i = 1; i < argc; ++i)
        torture::take(torture::read_inputs(argv[i]));
    torture::take(torture::large_inputs());
    std::printf("hostile: %" PRIu64 " inputs, %" PRIu64 " failures\n", torture::inputs, torture::failures);
    return torture::failures == 0 ? 0 : 1;
}
