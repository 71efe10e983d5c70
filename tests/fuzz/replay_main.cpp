// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Runs a target on every file of the folders given: inputs that found something once, and seeds.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz.h"

int main(int argc, char **argv) {
    zam::fuzz::silence_log();
    zam::fuzz::start();
    int inputs = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto &entry : std::filesystem::directory_iterator{argv[i]}) {
            std::ifstream file{entry.path(), std::ios::binary};
            const std::string input{std::istreambuf_iterator<char>{file}, {}};
            std::printf("%s\n", entry.path().filename().c_str());
            std::fflush(stdout); // names the input when the run ends here
            zam::fuzz::run(input);
            ++inputs;
        }
    }
    std::printf("%d inputs\n", inputs);
    return inputs > 0 ? 0 : 1;
}
