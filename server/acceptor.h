// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_ACCEPTOR_H
#define ZAMD_ACCEPTOR_H

#include <memory>
#include <string>

#include "error.h"
#include "session.h"
#include "timers.h"

namespace zamd {

class Server;

// One address that is listened on, until its end removes the socket's file.
class Acceptor {
public:
    static Result<std::unique_ptr<Acceptor>> open(Server &server, const std::string &url);
    ~Acceptor();
    Acceptor(const Acceptor &) = delete;
    Acceptor &operator=(const Acceptor &) = delete;

    const std::string &url() const { return url_; }

private:
    Acceptor(Server &server, std::string url, Descriptor fd);

    static void on_wake(zam_proactor *proactor, void *arg, uint32_t events);
    void accept_some();
    void pause();

    Server &server_;
    std::string url_;
    Descriptor fd_;
    Trigger trigger_;
    Timers::Id pause_ = 0;
};

} // namespace zamd

#endif
