// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "support/files.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace zam::test {

int open_descriptors() {
    // The listing itself holds one descriptor while it runs.
    return static_cast<int>(std::distance(fs::directory_iterator{"/proc/self/fd"}, fs::directory_iterator{})) - 1;
}

DescriptorCheck::DescriptorCheck() : before_{open_descriptors()} {}

DescriptorCheck::~DescriptorCheck() {
    EXPECT_EQ(open_descriptors(), before_) << "descriptors leaked or closed twice";
}

TempDir::TempDir() {
    std::string pattern = (fs::temp_directory_path() / "zamc-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error{"mkdtemp"};
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::string TempDir::path(std::string_view name) const {
    return name.empty() ? path_.string() : (path_ / name).string();
}

void TempDir::write(std::string_view name, std::string_view text) const {
    std::ofstream file{path(name), std::ios::binary};
    file << text;
    if (!file.flush()) throw std::runtime_error{"write " + path(name)};
}

std::string read_file(const std::string &path) {
    std::ifstream file{path, std::ios::binary};
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

} // namespace zam::test
