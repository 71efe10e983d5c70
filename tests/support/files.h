// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Descriptors, temporary folders and small files for tests.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace zam::test {

int open_descriptors();

// Fails the test if the scope leaves more or fewer descriptors open than it found.
class DescriptorCheck {
public:
    DescriptorCheck();
    ~DescriptorCheck();

private:
    int before_;
};

// A folder that goes with the object; its path is short enough for a unix socket.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    std::string path(std::string_view name = {}) const;
    void write(std::string_view name, std::string_view text) const;

private:
    std::filesystem::path path_;
};

std::string read_file(const std::string &path);

} // namespace zam::test
