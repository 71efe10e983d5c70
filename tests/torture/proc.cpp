// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "torture/proc.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <unistd.h>

namespace zam::torture {

ProcessState state_of(pid_t pid) {
    const std::string folder = "/proc/" + std::to_string(pid);
    ProcessState state;
    std::ifstream status{folder + "/status"};
    for (std::string line; std::getline(status, line);) {
        std::istringstream words{line};
        std::string key;
        uint64_t value = 0;
        if (!(words >> key >> value)) continue;
        if (key == "VmRSS:") state.resident_kb = value;
        if (key == "Threads:") state.threads = value;
        if (key == "voluntary_ctxt_switches:" || key == "nonvoluntary_ctxt_switches:") state.switches += value;
    }
    std::error_code gone;
    for (std::filesystem::directory_iterator at{folder + "/fd", gone}, end; !gone && at != end; at.increment(gone))
        ++state.descriptors;
    // The 14th and 15th field, of which the second, the program's name, may hold blanks.
    std::ifstream stat{folder + "/stat"};
    std::string text;
    std::getline(stat, text);
    std::istringstream fields{text.substr(text.rfind(')') == std::string::npos ? text.size() : text.rfind(')') + 1)};
    std::string field;
    for (int number = 3; fields >> field; ++number)
        if (number == 14 || number == 15) state.cpu_s += std::stod(field) / static_cast<double>(sysconf(_SC_CLK_TCK));
    return state;
}

} // namespace zam::torture
