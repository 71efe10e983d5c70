// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// From a URL to the list of addresses, and the order in which these are tried.
#include <cstring>

#include <arpa/inet.h>
#include <dlfcn.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/un.h>

#include <zamc/sock_wrap.h>

#include "io/engine.h"
#include "io/sock_wrap_internal.h"
#include "support/files.h"
#include "support/heap.h"
#include "support/log_capture.h"

namespace {

using namespace zam::test;
using zam::io::_get_addrinfo;
using zam::io::_parse_url;
using zam::io::owned_addresses;
using zam::io::owned_url;

// A resolver that answers as told instead of asking the system, while it lives.
class ScriptedResolver {
public:
    ScriptedResolver() { current = this; }
    ~ScriptedResolver() { current = nullptr; }
    ScriptedResolver(const ScriptedResolver &) = delete;
    ScriptedResolver &operator=(const ScriptedResolver &) = delete;

    void answers_ipv4(const char *host, uint16_t port, int type = SOCK_STREAM) {
        sockaddr_in in{};
        in.sin_family = AF_INET;
        in.sin_port = htons(port);
        inet_pton(AF_INET, host, &in.sin_addr);
        add(AF_INET, type, &in, sizeof(in));
    }
    void answers_ipv6(const char *host, uint16_t port, int type = SOCK_STREAM) {
        sockaddr_in6 in6{};
        in6.sin6_family = AF_INET6;
        in6.sin6_port = htons(port);
        inet_pton(AF_INET6, host, &in6.sin6_addr);
        add(AF_INET6, type, &in6, sizeof(in6));
    }
    void answers_family(int family) {
        const sockaddr unknown{};
        add(family, SOCK_STREAM, &unknown, sizeof(unknown));
    }
    int answer(const char *host, const char *port, const addrinfo *given, addrinfo **found) {
        question = text(host, " ", port);
        hints = *given;
        if (error != 0) {
            errno = tried_in_vain;
            return error;
        }
        ++held;
        for (size_t i = 0; i < results.size(); ++i) {
            results[i].info.ai_addr = reinterpret_cast<sockaddr *>(&results[i].storage);
            results[i].info.ai_next = i + 1 < results.size() ? &results[i + 1].info : nullptr;
        }
        *found = &results.front().info;
        return 0;
    }

    int error = 0;
    int tried_in_vain = 0; // the errno beside `error`
    int held = 0;          // lists given out and not yet freed
    std::string question;
    addrinfo hints{};
    static inline ScriptedResolver *current = nullptr;

private:
    struct Result {
        addrinfo info;
        sockaddr_storage storage;
    };
    void add(int family, int type, const void *address, socklen_t length) {
        Result result{};
        result.info.ai_family = family;
        result.info.ai_socktype = type;
        result.info.ai_addrlen = length;
        std::memcpy(&result.storage, address, length);
        results.push_back(result);
    }
    std::vector<Result> results;
};

// "HOST:PORT" of each address, in the order of the list.
std::vector<std::string> listed(const zam::io::address *list) {
    std::vector<std::string> names;
    for (; list; list = list->next) {
        char host[INET6_ADDRSTRLEN] = {};
        if (list->family == AF_INET) {
            const auto *in = reinterpret_cast<const sockaddr_in *>(list->addr);
            inet_ntop(AF_INET, &in->sin_addr, host, sizeof(host));
            names.push_back(text(host, ":", ntohs(in->sin_port)));
        } else if (list->family == AF_INET6) {
            const auto *in6 = reinterpret_cast<const sockaddr_in6 *>(list->addr);
            inet_ntop(AF_INET6, &in6->sin6_addr, host, sizeof(host));
            names.push_back(text(host, ":", ntohs(in6->sin6_port)));
        } else {
            names.push_back(text("family ", list->family));
        }
    }
    return names;
}
using Names = std::vector<std::string>;

owned_addresses resolve(const char *url) {
    const owned_url parsed{_parse_url(url)};
    return owned_addresses{_get_addrinfo(parsed.get())};
}

struct Cut {
    const char *url, *scheme, *host, *port; // "-" is null
};
class ParseUrl : public testing::TestWithParam<Cut> {};

TEST_P(ParseUrl, CutsAtTheSeparators) {
    const Cut &cut = GetParam();
    Heap heap;
    {
        const owned_url parsed{_parse_url(cut.url)};
        ASSERT_TRUE(parsed);
        const auto part = [](const char *value) { return std::string{value ? value : "-"}; };
        EXPECT_EQ(part(parsed->scheme), cut.scheme);
        EXPECT_EQ(part(parsed->host), cut.host);
        EXPECT_EQ(part(parsed->port), cut.port);
        EXPECT_EQ(heap.live(), 1u) << "one block holds it all";
    }
    EXPECT_EQ(heap.live(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Urls, ParseUrl,
    testing::Values(Cut{"unix:///run/x.sock", "unix", "/run/x.sock", "-"},
                    Cut{"unix:///run/x.sock:660", "unix", "/run/x.sock", "660"}, Cut{"[::1]:830", "-", "::1", "830"},
                    Cut{"tcp://[fe80::1]:830", "tcp", "fe80::1", "830"}, Cut{"[::1]", "-", "::1", "-"},
                    Cut{"[::1]x:5", "-", "::1", "5"}, Cut{"[]:5", "-", "", "5"},
                    Cut{"127.0.0.1:830", "-", "127.0.0.1", "830"}, Cut{"127.0.0.1", "-", "127.0.0.1", "-"},
                    Cut{"tcp://host:1:2", "tcp", "host", "1:2"}, Cut{"://", "", "", "-"}, Cut{"", "-", "", "-"},
                    Cut{":", "-", "", ""}, Cut{"a://b://c", "a", "b", "//c"}, Cut{"UNIX:///x", "UNIX", "/x", "-"}));

TEST(ParseUrlFailure, OfABracketThatIsNotClosed) {
    LogCapture log;
    Heap heap;
    EXPECT_EQ(_parse_url("[::1:830"), nullptr);
    EXPECT_EQ(_parse_url("tcp://["), nullptr);
    EXPECT_EQ(_parse_url(nullptr), nullptr);
    EXPECT_EQ(log.all(), "");
    EXPECT_EQ(heap.live(), 0u);
}

TEST(ParseUrlFailure, WithoutMemoryIsLoggedAtLevelZero) {
    LogCapture log;
    Heap heap;
    heap.fail_at(1);
    EXPECT_EQ(_parse_url("127.0.0.1:830"), nullptr);
    EXPECT_TRUE(log.has(0, "Allocate memory for url-info unsuccessful."));
}

TEST(ParseUrlFailure, IsNoneForALongUrl) {
    const std::string host(100000, 'h');
    const owned_url parsed{_parse_url(("tcp://" + host + ":830").c_str())};
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->host, host);
    EXPECT_STREQ(parsed->port, "830");
}

TEST(GetAddrinfo, OfAUnixUrlIsOneStreamAddress) {
    const owned_addresses list = resolve("unix:///run/x.sock:660");
    ASSERT_TRUE(list);
    EXPECT_EQ(list->next, nullptr);
    EXPECT_EQ(list->family, AF_UNIX);
    EXPECT_EQ(list->type, SOCK_STREAM);
    EXPECT_EQ(list->length, 110u);
    const auto *un = reinterpret_cast<const sockaddr_un *>(list->addr);
    EXPECT_EQ(un->sun_family, AF_UNIX);
    EXPECT_STREQ(un->sun_path, "/run/x.sock");
}

TEST(GetAddrinfo, TakesUnixPathsOfUpTo107Characters) {
    LogCapture log;
    EXPECT_TRUE(resolve(("unix://" + std::string(107, 'p')).c_str()));
    EXPECT_FALSE(resolve(("unix://" + std::string(108, 'p')).c_str()));
    EXPECT_EQ(log.all(), "");
}

TEST(GetAddrinfo, OfAnIpv4LiteralIsOneStreamAddress) {
    const owned_addresses list = resolve("tcp://192.0.2.7:830");
    ASSERT_TRUE(list);
    EXPECT_EQ(list->family, AF_INET);
    EXPECT_EQ(list->type, SOCK_STREAM);
    EXPECT_EQ(list->length, 16u);
    EXPECT_EQ(reinterpret_cast<const sockaddr_in *>(list->addr)->sin_family, AF_INET);
    EXPECT_EQ(listed(list.get()), Names{"192.0.2.7:830"});
}

TEST(GetAddrinfo, OfAnIpv6LiteralIsOneStreamAddress) {
    const owned_addresses list = resolve("[2001:db8::7]:830");
    ASSERT_TRUE(list);
    EXPECT_EQ(list->family, AF_INET6);
    EXPECT_EQ(list->type, SOCK_STREAM);
    EXPECT_EQ(list->length, 28u);
    const auto *in6 = reinterpret_cast<const sockaddr_in6 *>(list->addr);
    EXPECT_EQ(in6->sin6_family, AF_INET6);
    EXPECT_EQ(in6->sin6_flowinfo, 0u);
    EXPECT_EQ(in6->sin6_scope_id, 0u);
    EXPECT_EQ(listed(list.get()), Names{"2001:db8::7:830"});
}

TEST(GetAddrinfo, KeepsTheLow16BitsOfAPort) {
    EXPECT_EQ(listed(resolve("127.0.0.1:70000").get()), Names{"127.0.0.1:4464"});
    EXPECT_EQ(listed(resolve("[::1]:70000").get()), Names{"::1:4464"});
    EXPECT_EQ(listed(resolve("127.0.0.1:-1").get()), Names{"127.0.0.1:65535"});
    EXPECT_EQ(listed(resolve("127.0.0.1:83x").get()), Names{"127.0.0.1:83"});
    EXPECT_EQ(listed(resolve("127.0.0.1:").get()), Names{"127.0.0.1:0"});
}

TEST(GetAddrinfo, WithoutPortIsEmptyAndSilent) {
    ScriptedResolver resolver;
    LogCapture log;
    EXPECT_FALSE(resolve("127.0.0.1"));
    EXPECT_FALSE(resolve("tcp://[::1]"));
    EXPECT_FALSE(resolve("localhost"));
    EXPECT_EQ(_get_addrinfo(nullptr), nullptr);
    EXPECT_EQ(log.all(), "");
    EXPECT_EQ(resolver.question, "");
}

TEST(GetAddrinfo, ComparesTheSchemeExactly) {
    ScriptedResolver resolver;
    resolver.error = EAI_NONAME;
    for (const char *url : {"UNIX:///run/x.sock:660", "unixx:///run/x.sock:660", "uni:///run/x.sock:660"}) {
        resolver.question.clear();
        EXPECT_FALSE(resolve(url)) << url;
        EXPECT_EQ(resolver.question, "/run/x.sock 660") << url;
    }
}

TEST(GetAddrinfo, AsksTheResolverForNamesWithTheProtocolAlone) {
    ScriptedResolver resolver;
    resolver.answers_ipv4("192.0.2.1", 830);
    EXPECT_TRUE(resolve("tcp://server.example:830"));
    EXPECT_EQ(resolver.question, "server.example 830");
    EXPECT_EQ(resolver.hints.ai_protocol, IPPROTO_TCP);
    EXPECT_EQ(resolver.hints.ai_family, AF_UNSPEC);
    EXPECT_EQ(resolver.hints.ai_socktype, 0);
    EXPECT_EQ(resolver.hints.ai_flags, 0);
}

TEST(GetAddrinfo, ListsTheResolversAnswersInReverse) {
    ScriptedResolver resolver;
    resolver.answers_ipv6("::1", 830, SOCK_STREAM);
    resolver.answers_ipv4("127.0.0.1", 830, SOCK_DGRAM);
    const owned_addresses list = resolve("localhost:830");
    EXPECT_EQ(listed(list.get()), (Names{"127.0.0.1:830", "::1:830"}));
    EXPECT_EQ(list->type, SOCK_DGRAM);
    EXPECT_EQ(list->length, sizeof(sockaddr_in));
    EXPECT_EQ(list->next->type, SOCK_STREAM);
    EXPECT_EQ(list->next->length, sizeof(sockaddr_in6));
    EXPECT_EQ(resolver.held, 0) << "the resolver's list was not freed";
}

TEST(GetAddrinfo, ReportsANameThatTheResolverDoesNotKnow) {
    ScriptedResolver resolver;
    resolver.error = EAI_NONAME;
    LogCapture log;
    EXPECT_FALSE(resolve("tcp://nowhere.example:830"));
    EXPECT_EQ(log.all(),
              text("[WRONG] Get address info for nowhere.example unsuccessful(", gai_strerror(EAI_NONAME), ").\n"));
}

TEST(GetAddrinfo, LeavesAnErrnoOnlyWhenTheSystemFailed) {
    ScriptedResolver resolver;
    resolver.tried_in_vain = ENOENT;
    resolver.error = EAI_NONAME;
    EXPECT_FALSE(resolve("tcp://nowhere.example:830"));
    EXPECT_EQ(errno, 0);
    resolver.error = EAI_SYSTEM;
    EXPECT_FALSE(resolve("tcp://nowhere.example:830"));
    EXPECT_EQ(errno, ENOENT);
}

TEST(GetAddrinfo, SkipsAnAnswerForWhichThereIsNoMemory) {
    ScriptedResolver resolver;
    resolver.answers_ipv4("192.0.2.1", 1);
    resolver.answers_ipv4("192.0.2.2", 2);
    resolver.answers_ipv4("192.0.2.3", 3);
    Heap heap;
    LogCapture log;
    heap.fail_at(3); // the URL, the first answer, the second
    EXPECT_EQ(listed(resolve("server.example:1").get()), (Names{"192.0.2.3:3", "192.0.2.1:1"}));
    EXPECT_TRUE(log.has(3, "Allocate memory for dns-address-info unsuccessful."));
    EXPECT_EQ(resolver.held, 0);
    EXPECT_EQ(heap.live(), 0u);
}

TEST(GetAddrinfo, WithoutMemoryForALiteralIsLoggedAtLevelZero) {
    const std::pair<const char *, const char *> cases[] = {
        {"unix:///x", "Allocate memory for unix-address-info unsuccessful."},
        {"127.0.0.1:1", "Allocate memory for ipv4-address-info unsuccessful."},
        {"[::1]:1", "Allocate memory for ipv6-address-info unsuccessful."}};
    for (const auto &[url, message] : cases) {
        Heap heap;
        LogCapture log;
        heap.fail_at(2);
        EXPECT_FALSE(resolve(url));
        EXPECT_TRUE(log.has(0, message)) << log.all();
        EXPECT_EQ(heap.live(), 0u);
    }
}

TEST(GetAddrinfo, SurvivesEachFailingAllocation) {
    ScriptedResolver resolver;
    resolver.answers_ipv4("192.0.2.1", 1);
    resolver.answers_ipv6("2001:db8::1", 1);
    EXPECT_EQ(fail_each_allocation([](bool) { resolve("server.example:1"); }), 3u);
    EXPECT_EQ(resolver.held, 0);
}

// A port of this machine, and one on which nobody listens.
class CandidateOrder : public testing::Test {
protected:
    CandidateOrder() : listening{zam_socket_listen("127.0.0.1:0")}, port{port_of(listening)} {
        const int closed = zam_socket_listen("127.0.0.1:0");
        dead_port = port_of(closed);
        close(closed);
    }
    ~CandidateOrder() override { close(listening); }
    static uint16_t port_of(int fd) {
        sockaddr_in in{};
        socklen_t length = sizeof(in);
        getsockname(fd, reinterpret_cast<sockaddr *>(&in), &length);
        return ntohs(in.sin_port);
    }

    DescriptorCheck descriptors;
    int listening;
    uint16_t port;
    uint16_t dead_port = 0;
};

TEST_F(CandidateOrder, ConnectTriesTheResolversLastAnswerFirst) {
    const int other = zam_socket_listen("127.0.0.1:0");
    ScriptedResolver resolver;
    resolver.answers_ipv4("127.0.0.1", port_of(other));
    resolver.answers_ipv4("127.0.0.1", port);
    const int client = zam_socket_connect("localhost:1");
    sockaddr_in in{};
    socklen_t length = sizeof(in);
    getpeername(client, reinterpret_cast<sockaddr *>(&in), &length);
    EXPECT_EQ(ntohs(in.sin_port), port);
    close(client);
    close(other);
}

TEST_F(CandidateOrder, ConnectGoesOnAfterARefusalWithoutMessage) {
    ScriptedResolver resolver;
    resolver.answers_ipv4("127.0.0.1", port);
    resolver.answers_ipv4("127.0.0.1", dead_port);
    LogCapture log;
    const int client = zam_socket_connect("localhost:1");
    EXPECT_GE(client, 0);
    EXPECT_EQ(log.all(), "");
    close(client);
}

TEST_F(CandidateOrder, ConnectGoesOnAfterASocketThatCannotBeMade) {
    ScriptedResolver resolver;
    resolver.answers_ipv4("127.0.0.1", port);
    resolver.answers_family(AF_MAX);
    LogCapture log;
    const int client = zam_socket_connect("localhost:1");
    EXPECT_GE(client, 0);
    EXPECT_EQ(log.all(), "[WRONG] Create conn_sock fd unsuccessful(Address family not supported by protocol).\n");
    close(client);
}

TEST_F(CandidateOrder, ConnectFailsWhenNoCandidateAnswers) {
    ScriptedResolver resolver;
    resolver.answers_ipv4("127.0.0.1", dead_port);
    resolver.answers_ipv4("127.0.0.1", dead_port);
    LogCapture log;
    EXPECT_EQ(zam_socket_connect("localhost:1"), -1);
    EXPECT_EQ(log.all(), "");
}

TEST_F(CandidateOrder, ListenGoesOnAfterAPortThatIsTaken) {
    ScriptedResolver resolver;
    resolver.answers_ipv4("127.0.0.1", 0);
    resolver.answers_ipv4("127.0.0.1", port);
    resolver.answers_family(AF_MAX);
    LogCapture log;
    const int fd = zam_socket_listen("localhost:1");
    EXPECT_GE(fd, 0);
    EXPECT_EQ(log.all(), "[WRONG] Create listen_sock fd unsuccessful(Address family not supported by protocol).\n"
                         "[WRONG] Listen for localhost:1 unsuccessful(Address already in use).\n");
    close(fd);
}

TEST_F(CandidateOrder, ListenFailsWhenNoCandidateWorks) {
    ScriptedResolver resolver;
    resolver.answers_ipv4("127.0.0.1", port);
    EXPECT_EQ(zam_socket_listen("localhost:1"), -1);
}

} // namespace

// These stand before the system's in this program. Without a script they ask the system.
extern "C" int getaddrinfo(const char *host, const char *port, const addrinfo *hints, addrinfo **found) {
    if (ScriptedResolver::current) return ScriptedResolver::current->answer(host, port, hints, found);
    static const auto system = reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
    return system(host, port, hints, found);
}

extern "C" void freeaddrinfo(addrinfo *list) noexcept {
    if (ScriptedResolver::current) {
        --ScriptedResolver::current->held;
        return;
    }
    static const auto system = reinterpret_cast<decltype(&freeaddrinfo)>(dlsym(RTLD_NEXT, "freeaddrinfo"));
    system(list);
}
