// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// start_floor time|memory: the schema context of the clients, made by libyang alone from the same texts with one
// explicit compilation; prints how long that took in microseconds, or the private memory of the process that holds it,
// in KiB. Does not link the library.
#include <array>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <libyang/libyang.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "start.h"

namespace zam::bench {
namespace {

// Mapped, as the library's own texts are: memory that a file holds as well does not count. What follows the end of a
// file in its last page is NUL.
const char *_read(const std::string &name) {
    const int fd = open((ZAMC_YANG_PATH "/" + name + ".yang").c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status {};
    require(fd >= 0 && fstat(fd, &status) == 0 && status.st_size % sysconf(_SC_PAGESIZE) != 0,
            "a module's text cannot be mapped");
    void *text = mmap(nullptr, static_cast<size_t>(status.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
    require(text != MAP_FAILED, "a module's text cannot be mapped");
    close(fd);
    return static_cast<const char *>(text);
}

// The texts that the library has built in, in the order of its table; read before anything is measured.
const std::array<const char *, 7> &_modules() {
    static const std::array<const char *, 7> texts{
        _read("ietf-restconf"),     _read("ietf-netconf"),     _read("ietf-yang-patch"),  _read("ietf-datastores"),
        _read("ietf-yang-library"), _read("orvel-zam-server"), _read("orvel-zam-client"),
    };
    return texts;
}

const char *_submodule() {
    static const char *const text = _read("ietf-netconf-yang-data");
    return text;
}

LY_ERR _import(const char *, const char *, const char *name, const char *, void *, LYS_INFORMAT *format,
               const char **text, ly_module_imp_data_free_clb *release) {
    if (!name || std::strcmp(name, "ietf-netconf-yang-data") != 0) return LY_ENOTFOUND;
    *format = LYS_IN_YANG;
    *text = _submodule();
    *release = nullptr;
    return LY_SUCCESS;
}

void _build() {
    ly_ctx *ctx = nullptr;
    require(ly_ctx_new(nullptr, LY_CTX_ALL_IMPLEMENTED | LY_CTX_NO_YANGLIBRARY | LY_CTX_EXPLICIT_COMPILE, &ctx) ==
                LY_SUCCESS,
            "no context");
    ly_ctx_set_module_imp_clb(ctx, _import, nullptr);
    for (const char *text : _modules())
        require(lys_parse_mem(ctx, text, LYS_IN_YANG, nullptr) == LY_SUCCESS, "a module does not parse");
    ly_ctx_set_module_imp_clb(ctx, nullptr, nullptr);
    require(ly_ctx_compile(ctx) == LY_SUCCESS, "the modules do not compile");
}

double _time() {
    Samples samples;
    samples.time(_build);
    return samples.median();
}

double _memory() {
    _build();
    return static_cast<double>(private_kib());
}

} // namespace
} // namespace zam::bench

int main(int argc, char **argv) {
    using namespace zam::bench;
    require(argc == 2, "usage: start_floor time|memory");
    _modules(), _submodule();
    std::printf("%.3f\n", std::strcmp(argv[1], "time") == 0 ? _time() : _memory());
    return 0;
}
