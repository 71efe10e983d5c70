// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// The scenes that are played without memory. Each makes and releases all that it uses, and checks what it is told:
// until an allocation has failed everything has to succeed, afterwards also the failures that the headers name may
// come.
#pragma once

#include <cinttypes>
#include <cstdio>
#include <initializer_list>
#include <span>
#include <string>

#include "support/heap.h"

namespace zam::torture {

class Run {
public:
    explicit Run(const test::Heap &heap) : heap_{heap} {}

    bool failed() const { return heap_.failed(); }

    // A result code: 0, or, without memory, one of the others.
    int32_t code(const char *what, int32_t got, std::initializer_list<int32_t> failures = {-1}) {
        bool allowed = got == 0;
        if (failed())
            for (const int32_t failure : failures)
                allowed |= got == failure;
        if (!allowed) wrong(what, std::to_string(got));
        return got;
    }
    // An object: there, or, without memory, null.
    template <typename T>
    T *object(const char *what, T *got) {
        if (!got && !failed()) wrong(what, "null");
        return got;
    }
    // What holds with and without memory.
    void always(const char *what, bool holds) {
        if (!holds) wrong(what, "does not hold");
    }
    // What holds unless memory was short.
    void expect(const char *what, bool holds) { always(what, holds || failed()); }

    uint64_t failures() const { return failures_; }

private:
    void wrong(const char *what, const std::string &got) {
        if (++failures_ <= 3) std::printf("%s: %s%s\n", what, got.c_str(), failed() ? ", without memory" : "");
    }

    const test::Heap &heap_;
    uint64_t failures_ = 0;
};

struct Scene {
    const char *name;
    void (*play)(Run &run);
};

std::span<const Scene> runtime_scenes();
std::span<const Scene> yang_scenes();
std::span<const Scene> lookup_scenes();
std::span<const Scene> wire_scenes();
std::span<const Scene> client_scenes();
std::span<const Scene> server_scenes(); // with a zamd of its own process
void start_peer();                      // of the clients' scenes
void start_server();
void stop_server();

} // namespace zam::torture
