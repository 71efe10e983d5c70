// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Everything without memory: scenes that call every public function and play every exchange are run with the first,
// the second … allocation failing, once and from then on. Each such run is a point. Nothing may crash or stay
// allocated or open, and what is reported has to be what the headers say. At the end stands which of the places in lib/
// that allocate were failed.
//
// With ZAMC_PLANT a scene forgets what it has when its second allocation fails, which the suite has to find.
#include "memory.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>
#include <zamc/mem.h>

#include "fuzz/fuzz.h"
#include "support/files.h"
#include "support/test_schema.h"

namespace zam::torture {
namespace {

struct Tally {
    uint64_t points = 0;
    uint64_t failures = 0;
};
Tally tally;

void forgetful(Run &run) {
    void *first = zam_malloc(8);
    void *second = zam_malloc(8);
    run.object("block", second);
    if (second) zam_free(first);
    zam_free(second);
}

void report(const Scene &scene, uint64_t n, bool from_then_on, const std::string &what) {
    if (++tally.failures > 20) return;
    std::printf("%s, allocation %" PRIu64 "%s: %s\n", scene.name, n, from_then_on ? " and all later ones" : "",
                what.c_str());
}

// Plays the scene once; whether an allocation was failed. 0 fails none.
bool play(const Scene &scene, uint64_t n, bool from_then_on, uint64_t *allocations = nullptr) {
    const int descriptors = test::open_descriptors();
    test::Heap heap;
    heap.fail_at(n, from_then_on);
    Run run{heap};
    scene.play(run);
    const bool failed = heap.failed();
    heap.fail_at(0);
    if (allocations) *allocations = heap.allocations();
    if (run.failures() > 0) report(scene, n, from_then_on, std::to_string(run.failures()) + " wrong results");
    if (heap.live() != 0) report(scene, n, from_then_on, "leaks " + heap.live_sites());
    // A peer may still be about to notice that the connection has ended; that of the scene before may have been
    // counted.
    bool closed = false;
    for (int i = 0; i < 10000 && !closed; ++i) {
        closed = test::open_descriptors() <= descriptors;
        if (!closed) usleep(100);
    }
    if (!closed) report(scene, n, from_then_on, "leaves descriptors open");
    return failed;
}

// At most `wanted` points for each of the two ways of failing, spread evenly.
void torture(const Scene &scene, uint64_t wanted) {
    play(scene, 0, false); // what is made once for all
    uint64_t allocations = 0;
    play(scene, 0, false, &allocations);
    if (allocations == 0) report(scene, 0, false, "allocates nothing");
    const uint64_t step = std::max<uint64_t>(1, (allocations + wanted - 1) / wanted);
    for (const bool from_then_on : {false, true})
        for (uint64_t n = 1; n <= allocations; n += step) {
            play(scene, n, from_then_on);
            ++tally.points;
        }
}

// Where lib/ allocates: "lib/…:line".
std::set<std::string> allocating_places() {
    static const std::regex call{R"(\b(zam_(malloc|calloc|strdup|strndup)(_f)?|mem_zeroed)\(|\bmem_new<)"};
    static const std::regex definition{R"(^(void|char|T) \*|, file, line|^ *//)"};
    std::set<std::string> places;
    const std::filesystem::path root{ZAMC_SOURCE_DIR};
    for (const auto &entry : std::filesystem::recursive_directory_iterator{root / "lib"}) {
        std::ifstream source{entry.path()};
        std::string line;
        for (int number = 1; std::getline(source, line); ++number)
            if (std::regex_search(line, call) && !std::regex_search(line, definition))
                places.insert(std::filesystem::relative(entry.path(), root).string() + ":" + std::to_string(number));
    }
    return places;
}

// The file names of the compiler may begin anywhere above lib/.
std::string from_lib(const std::string &site) {
    const size_t at = site.rfind("lib/");
    return at == site.npos ? site : site.substr(at);
}

void torture_helpers_failed() {
    if (!testing::UnitTest::GetInstance()->Failed()) return;
    ++tally.failures;
    std::printf("the hooks or the peers found something, see above\n");
}

void report_places(bool complete) {
    std::set<std::string> failed;
    for (const std::string &site : test::Heap::failed_sites())
        failed.insert(from_lib(site));
    const std::set<std::string> all = allocating_places();
    uint64_t reached = 0;
    for (const std::string &place : all) {
        reached += failed.contains(place);
        if (complete && !failed.contains(place)) std::printf("not reached: %s\n", place.c_str());
    }
    if (complete) tally.failures += all.size() - reached;
    std::printf("memory: %" PRIu64 " of %zu allocating places of lib/ were failed\n", reached, all.size());
}

} // namespace
} // namespace zam::torture

// The one argument is the number of points of each scene and way of failing; without it all of them are played, and all
// places have to be reached.
int main(int argc, char **argv) {
    using namespace zam::torture;
    const uint64_t wanted = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : UINT64_MAX / 2;
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    zam::fuzz::silence_log();
    zam::test::test_context();
    start_server();
    start_peer();
    if (zam::fuzz::planted()) torture({"planted", forgetful}, wanted);
    for (const auto scenes :
         {runtime_scenes(), yang_scenes(), lookup_scenes(), wire_scenes(), client_scenes(), server_scenes()})
        for (const Scene &scene : scenes)
            if (argc <= 2 || std::strstr(scene.name, argv[2])) torture(scene, wanted);
    stop_server();
    // Blocks released to the wrong heap, among others.
    torture_helpers_failed();
    report_places(argc <= 1);
    std::printf("memory: %" PRIu64 " points, %" PRIu64 " failures\n", tally.points, tally.failures);
    return tally.failures == 0 ? 0 : 1;
}
