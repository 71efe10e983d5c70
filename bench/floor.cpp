// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Everything here exits with a line on stderr when it meets what it does not expect: a floor that goes on after an
// error would measure something else.
#include "floor.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <libyang/libyang.h>

#include <zamc/client.h>
#include <zamc/logger.h>

#include "measure.h"
#include "processes.h"

namespace zam::bench {
namespace {

constexpr uint8_t request_json = 0x12; // type bit and encoding, as in a frame's fifth byte
constexpr uint8_t reply_json = 0x22;
constexpr uint8_t reply_bit = 0x20;

struct Header {
    std::array<unsigned char, 4> magic{0x00, 0xFB, 0xBF, 0x00};
    uint8_t type = 0;
    std::array<uint8_t, 3> rest{};
    uint32_t seq = 0; // this one and the next in network byte order
    uint32_t length = 0;
};
static_assert(sizeof(Header) == 16);

constexpr size_t first_buffer = 64 * 1024; // a small exchange never needs a second read

using TreeHolder = std::unique_ptr<lyd_node, decltype(&lyd_free_all)>;

ly_ctx *_ctx() {
    return zam_clients_schema_ctx();
}

std::string _print(const lyd_node *tree) {
    char *text = nullptr;
    require(lyd_print_mem(&text, tree, LYD_JSON, LYD_PRINT_SHRINK) == LY_SUCCESS && text, "floor: cannot print");
    std::string result{text};
    free(text);
    return result;
}

// A request of the server's module, built by libyang and printed.
std::string _request(const char *name, std::initializer_list<std::pair<const char *, const char *>> leaves) {
    lyd_node *tree = nullptr;
    const lys_module *module = ly_ctx_get_module_implemented(_ctx(), "orvel-zam-server");
    require(lyd_new_inner(nullptr, module, name, 0, &tree) == LY_SUCCESS, "floor: cannot build a request");
    const TreeHolder holder{tree, lyd_free_all};
    for (const auto &[leaf, value] : leaves)
        require(lyd_new_term(tree, module, leaf, value, 0, nullptr) == LY_SUCCESS, "floor: cannot build a leaf");
    return _print(tree);
}

struct Operation {
    TreeHolder tree{nullptr, lyd_free_all};
    lyd_node *node = nullptr;
};

Operation _parse(std::string_view text, lyd_type type) {
    lyd_node *tree = nullptr;
    lyd_node *node = nullptr;
    ly_in *input = nullptr;
    require(ly_in_new_memory(text.data(), &input) == LY_SUCCESS, "floor: no input");
    const LY_ERR result = lyd_parse_op(_ctx(), nullptr, input, LYD_JSON, type, &tree, &node);
    ly_in_free(input, 0);
    require(result == LY_SUCCESS && node, "floor: cannot parse " + std::string{text.substr(0, 200)});
    return {TreeHolder{tree, lyd_free_all}, node};
}

const lyd_node *_child(const lyd_node *parent, std::string_view name) {
    const lyd_node *node = nullptr;
    LY_LIST_FOR(lyd_child(parent), node) {
        if (node->schema->name == name) return node;
    }
    fail("floor: no node " + std::string{name});
}

const char *_leaf(const lyd_node *parent, std::string_view name) {
    return lyd_get_value(_child(parent, name));
}

// What follows the name of the anydata that ends a reply, up to the braces that close reply and document.
std::string_view _last_member(std::string_view text, std::string_view name) {
    const size_t at = text.find(name);
    require(at != std::string_view::npos && text.size() >= at + name.size() + 2, "floor: no " + std::string{name});
    return text.substr(at + name.size(), text.size() - at - name.size() - 2);
}

// The server process.
class Server {
public:
    Server(const std::string &startup, int client, int subscriber) {
        require(lyd_parse_data_mem(_ctx(), startup.c_str(), LYD_JSON, LYD_PARSE_STRICT, LYD_VALIDATE_NO_STATE,
                                   &running_) == LY_SUCCESS,
                "floor: cannot parse the startup data");
        epoll_ = epoll_create1(EPOLL_CLOEXEC);
        watch(client);
        if (subscriber >= 0) watch(subscriber);
    }

    void run() {
        client().send(reply_json, 0, {}); // ready
        for (;;) {
            epoll_event ready{};
            if (epoll_wait(epoll_, &ready, 1, -1) < 1) continue;
            FloorChannel &channel = *channels_[ready.data.u32];
            do {
                FloorFrame frame{};
                if (!channel.receive(frame)) return;
                serve(frame);
            } while (channel.has_input());
        }
    }

private:
    FloorChannel &client() { return *channels_[0]; }
    FloorChannel &subscriber() { return *channels_[1]; }

    void watch(int fd) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u32 = static_cast<uint32_t>(channels_.size());
        channels_.push_back(std::make_unique<FloorChannel>(fd));
        epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event);
    }

    void serve(const FloorFrame &frame) {
        const bool answer = (frame.type & reply_bit) != 0;
        const Operation operation = _parse(frame.payload, answer ? LYD_TYPE_REPLY_YANG : LYD_TYPE_RPC_YANG);
        const std::string_view name = operation.node->schema->name;
        if (answer) return client().send(reply_json, pushed_seq_, {});
        if (name == "verify-configuration") return verify(frame);
        if (name == "pull") return pull(frame, operation.node);
        if (name == "push") return push(frame, operation.node);
        fail("floor: unknown request");
    }

    void verify(const FloorFrame &frame) {
        client().send(reply_json, frame.seq,
                      {R"({"orvel-zam-server:verify-configuration":{"consistent":"consistent"}})"});
    }

    void pull(const FloorFrame &frame, const lyd_node *operation) {
        const std::string_view entity = _leaf(operation, "entity");
        lyd_node *node = find(std::string{entity});
        const bool all_entries = node->schema->nodetype == LYS_LIST && !entity.ends_with(']');
        char *text = nullptr;
        require(lyd_print_mem(&text, node, LYD_JSON, LYD_PRINT_SHRINK | (all_entries ? LYD_PRINT_WITHSIBLINGS : 0)) ==
                    LY_SUCCESS,
                "floor: cannot print");
        client().send(
            reply_json, frame.seq,
            {R"({"orvel-zam-server:pull":{"entity":")", _leaf(operation, "entity"), R"(","data":)", text, "}}"});
        free(text);
    }

    void push(const FloorFrame &frame, const lyd_node *operation) {
        const auto *content = reinterpret_cast<const lyd_node_any *>(_child(operation, "content"));
        const char *entity = _leaf(operation, "entity");
        lyd_node *edit = nullptr;
        require(lyd_new_path(nullptr, _ctx(), entity, lyd_get_value(content->value.tree), 0, &edit) == LY_SUCCESS,
                "floor: cannot build the edit");
        require(lyd_merge_siblings(&running_, edit, LYD_MERGE_DESTRUCT) == LY_SUCCESS, "floor: cannot merge");
        require(lyd_validate_all(&running_, _ctx(), LYD_VALIDATE_NO_STATE, nullptr) == LY_SUCCESS, "floor: not valid");
        pushed_seq_ = frame.seq;
        subscriber().send(
            request_json, frame.seq,
            {R"({"orvel-zam-client:publish":{"pub-type":"config-change","from-session":1,"scene":"normal",)"
             R"("publications":{"publication":[{"target":")",
             entity, R"(","priv-data":"0","priority":100,"modify-type":4,"list-more":false}]}}})"});
    }

    // For lists without keys the first entry.
    lyd_node *find(const std::string &path) {
        const size_t end = path.ends_with(']') ? std::string::npos : path.rfind('/');
        lyd_node *above = nullptr;
        if (end == 0 || end == std::string::npos) {
            require(lyd_find_path(running_, path.c_str(), 0, &above) == LY_SUCCESS, "floor: cannot find " + path);
            return above;
        }
        require(lyd_find_path(running_, path.substr(0, end).c_str(), 0, &above) == LY_SUCCESS,
                "floor: cannot find " + path);
        lyd_node *node = nullptr;
        LY_LIST_FOR(lyd_child(above), node) {
            if (path.compare(end + 1, std::string::npos, node->schema->name) == 0) return node;
        }
        fail("floor: cannot find " + path);
    }

    int epoll_ = -1;
    std::vector<std::unique_ptr<FloorChannel>> channels_;
    lyd_node *running_ = nullptr;
    uint32_t pushed_seq_ = 0;
};

void _subscriber(int fd) {
    FloorChannel channel{fd};
    FloorFrame frame{};
    while (channel.receive(frame)) {
        const Operation publish = _parse(frame.payload, LYD_TYPE_RPC_YANG);
        const lyd_node *publication = lyd_child(_child(publish.node, "publications"));
        require(publication && *_leaf(publication, "target") == '/', "floor: no publication");
        channel.send(reply_json, frame.seq, {R"({"orvel-zam-client:publish":{"data":{}}})"});
    }
}

void _load_schema() {
    zam_log_config(ZAM_LOG_WRONG, nullptr);
    require(zamc_initialize() == 0 && zamc_load_module(modules_path().c_str(), "warehouse") == 0,
            "floor: cannot load the schema");
}

std::array<int, 2> _socket_pair() {
    std::array<int, 2> ends{};
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0, "socketpair failed");
    return ends;
}

// Runs `work` in a child that holds the schema and, of the given descriptors, only its own ends.
template <typename F>
pid_t _child_process(std::initializer_list<int> others, F &&work) {
    const pid_t pid = fork();
    require(pid >= 0, "fork failed");
    if (pid > 0) return pid;
    for (const int fd : others)
        if (fd >= 0) close(fd);
    _load_schema();
    work();
    _exit(0);
}

} // namespace

FloorChannel::FloorChannel(int fd) : fd_{fd}, buffer_(first_buffer) {}

void FloorChannel::send(uint8_t type, uint32_t seq, std::initializer_list<std::string_view> parts) {
    Header header;
    header.type = type;
    header.seq = htonl(seq);
    std::array<iovec, 8> vector{};
    size_t count = 1;
    size_t length = 0;
    for (const std::string_view part : parts) {
        vector[count++] = {const_cast<char *>(part.data()), part.size()};
        length += part.size();
    }
    header.length = htonl(static_cast<uint32_t>(length));
    vector[0] = {&header, sizeof header};
    msghdr message{};
    message.msg_iov = vector.data();
    message.msg_iovlen = count;
    while (message.msg_iovlen > 0) {
        ssize_t sent = sendmsg(fd_, &message, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent < 0) return;
        for (auto left = static_cast<size_t>(sent); message.msg_iovlen > 0;) {
            iovec &first = *message.msg_iov;
            if (left < first.iov_len) {
                first = {static_cast<char *>(first.iov_base) + left, first.iov_len - left};
                break;
            }
            left -= first.iov_len;
            message.msg_iov++;
            message.msg_iovlen--;
        }
    }
}

bool FloorChannel::fill(size_t wanted) {
    if (begin_ == end_) begin_ = end_ = 0;
    // One byte more than the frame, for the NUL.
    if (begin_ + wanted + 1 > buffer_.size()) {
        std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
        if (wanted + 1 > buffer_.size()) buffer_.resize(wanted + 1);
    }
    while (end_ - begin_ < wanted) {
        const ssize_t got = recv(fd_, buffer_.data() + end_, buffer_.size() - 1 - end_, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        end_ += static_cast<size_t>(got);
    }
    return true;
}

bool FloorChannel::receive(FloorFrame &frame) {
    if (terminated_ != 0) buffer_[std::exchange(terminated_, 0)] = covered_;
    if (!fill(sizeof(Header))) return false;
    Header header;
    std::memcpy(&header, buffer_.data() + begin_, sizeof header);
    require(header.magic == Header{}.magic, "floor: no frame");
    const size_t length = ntohl(header.length);
    if (!fill(sizeof header + length)) return false;
    const size_t payload = begin_ + sizeof header;
    begin_ = payload + length;
    terminated_ = begin_;
    covered_ = std::exchange(buffer_[begin_], '\0');
    frame = {header.type, ntohl(header.seq), {buffer_.data() + payload, length}};
    return true;
}

Floor::Floor(const std::string &startup, bool with_subscriber) {
    const auto [here, there] = _socket_pair();
    const auto [publisher, subscriber] = with_subscriber ? _socket_pair() : std::array<int, 2>{-1, -1};
    const int server_end = there;
    const int publisher_end = publisher;
    const int subscriber_end = subscriber;
    pids_.push_back(_child_process({here, subscriber_end}, [&] { Server{startup, server_end, publisher_end}.run(); }));
    if (with_subscriber)
        pids_.push_back(_child_process({here, there, publisher_end}, [&] { _subscriber(subscriber_end); }));
    close(there);
    if (with_subscriber) {
        close(publisher);
        close(subscriber);
    }
    channel_ = std::make_unique<FloorChannel>(here);
    FloorFrame ready{};
    require(channel_->receive(ready), "floor: the server did not start");
}

Floor::~Floor() {
    close(channel_->fd());
    for (const pid_t pid : pids_)
        reap(pid, "a floor process");
}

std::string_view Floor::exchange(const std::string &request) {
    channel_->send(request_json, ++seq_, {request});
    FloorFrame reply{};
    require(channel_->receive(reply) && reply.seq == seq_, "floor: no reply");
    return reply.payload;
}

void Floor::verify() {
    const Operation reply =
        _parse(exchange(_request("verify-configuration", {{"name", "bench"}})), LYD_TYPE_REPLY_YANG);
    require(std::string_view{_leaf(reply.node, "consistent")} == "consistent", "floor: not consistent");
}

std::string Floor::pull(const std::string &entity) {
    const std::string_view text = exchange(_request("pull", {{"datastore", "ietf-datastores:running"},
                                                             {"entity", entity.c_str()},
                                                             {"depth", "-1"},
                                                             {"version", "current"}}));
    return std::string{_last_member(text, R"("data":)")};
}

void Floor::pull_tree(const std::string &entity) {
    const std::string text = pull(entity);
    lyd_node *tree = nullptr;
    require(lyd_parse_data_mem(_ctx(), text.c_str(), LYD_JSON, LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0, &tree) ==
                LY_SUCCESS,
            "floor: cannot parse the data");
    lyd_free_all(tree);
}

void Floor::push(const std::string &entity, const std::string &name, const std::string &value) {
    std::string request = _request(
        "push", {{"datastore", "ietf-datastores:running"}, {"entity", entity.c_str()}, {"operation", "merge"}});
    request.resize(request.size() - 2); // the braces that close the request and the document
    request += R"(,"content":{")" + name + R"(":")" + value + R"("}}})";
    require(exchange(request).empty(), "floor: the push failed");
}

} // namespace zam::bench
