// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "fuzz.h"

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int LLVMFuzzerInitialize(int *, char ***) {
    zam::fuzz::silence_log();
    zam::fuzz::start();
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    zam::fuzz::run({reinterpret_cast<const char *>(data), size});
    return 0;
}
