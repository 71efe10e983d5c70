// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "platform/vfs.h"

#include <string>

#include <gtest/gtest.h>

#include "support/files.h"

namespace {

using zam::test::DescriptorCheck;
using zam::test::read_file;
using zam::test::TempDir;

TEST(Vfs, AFileOpenedForAppendingKeepsWhatItHolds) {
    const DescriptorCheck descriptors;
    const TempDir dir;
    dir.write("log", "old ");
    auto file = ZRT_VFS_FOpen(dir.path("log").c_str(), "a+");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(ZRT_VFS_FPrintf(file, "%s-%d", "new", 7), 5);
    EXPECT_EQ(ZRT_VFS_FClose(file), 0);
    EXPECT_EQ(read_file(dir.path("log")), "old new-7");
}

TEST(Vfs, AFlushMakesTheTextVisibleWhileTheFileStaysOpen) {
    const DescriptorCheck descriptors;
    const TempDir dir;
    auto file = ZRT_VFS_FOpen(dir.path("log").c_str(), "a+");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(ZRT_VFS_FPrintf(file, "%s", "text"), 4);
    EXPECT_EQ(ZRT_VFS_FFlush(file), 0);
    EXPECT_EQ(read_file(dir.path("log")), "text");
    EXPECT_EQ(ZRT_VFS_FClose(file), 0);
}

TEST(Vfs, AFileInAFolderThatDoesNotExistGivesNull) {
    const DescriptorCheck descriptors;
    const TempDir dir;
    EXPECT_EQ(ZRT_VFS_FOpen(dir.path("missing/log").c_str(), "a+"), nullptr);
}

} // namespace
