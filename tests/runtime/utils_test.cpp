// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <zamc/utils.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>

#include <gtest/gtest.h>

namespace {

// Numbers without a text of their own are written to the buffer; known errors may be constants of the C library.
constexpr int32_t unknown_error = 99991;
constexpr int32_t other_unknown_error = 99992;

TEST(StrError, TellsWhatTheSystemTells) {
    for (const int error : {0, ENOENT, EINVAL, EAGAIN, ECONNREFUSED})
        EXPECT_STREQ(zam_get_str_error(error), std::strerror(error));
}

TEST(StrError, AnUnknownNumberHasATextToo) {
    const std::string text = zam_get_str_error(unknown_error);
    EXPECT_NE(text.find("99991"), std::string::npos) << text;
    EXPECT_NE(zam_get_str_error(-1), nullptr);
    EXPECT_NE(zam_get_str_error(INT_MIN), nullptr);
}

TEST(StrError, TheTextStaysUntilTheSameThreadCallsAgain) {
    const char *mine = zam_get_str_error(unknown_error);
    const std::string before = mine;
    std::string theirs;
    std::thread{[&] { theirs = zam_get_str_error(other_unknown_error); }}.join();
    EXPECT_NE(theirs.find("99992"), std::string::npos);
    EXPECT_EQ(mine, before);
    zam_get_str_error(other_unknown_error);
    EXPECT_EQ(mine, theirs);
}

TEST(SafeAdd, AddsWhatFits) {
    EXPECT_EQ(zam_uint64_safe_add(0, 0), 0u);
    EXPECT_EQ(zam_uint64_safe_add(2, 3), 5u);
    EXPECT_EQ(zam_uint64_safe_add(UINT64_MAX, 0), UINT64_MAX);
    EXPECT_EQ(zam_uint64_safe_add(0, UINT64_MAX), UINT64_MAX);
    EXPECT_EQ(zam_uint64_safe_add(UINT64_MAX - 2, 1), UINT64_MAX - 1);
}

TEST(SafeAdd, GivesTheGreatestNumberWhenTheSumIsItOrDoesNotFit) {
    EXPECT_EQ(zam_uint64_safe_add(0xFFFFFFFFFFFFFFFE, 1), 0xFFFFFFFFFFFFFFFF);
    EXPECT_EQ(zam_uint64_safe_add(0xFFFFFFFFFFFFFFFE, 2), 0xFFFFFFFFFFFFFFFF);
    EXPECT_EQ(zam_uint64_safe_add(UINT64_MAX, UINT64_MAX), UINT64_MAX);
    EXPECT_EQ(zam_uint64_safe_add(1, UINT64_MAX), UINT64_MAX);
}

TEST(Format, LibyangsFormatsHaveTheirEncodings) {
    EXPECT_EQ(zam_lydfmt2ownfmt(0), ZAM_ENCODE_UNKNOWN + 0u);
    EXPECT_EQ(zam_lydfmt2ownfmt(1), ZAM_ENCODE_XML + 0u);
    EXPECT_EQ(zam_lydfmt2ownfmt(2), ZAM_ENCODE_JSON + 0u);
    EXPECT_EQ(zam_lydfmt2ownfmt(3), ZAM_ENCODE_UNKNOWN + 0u);
    EXPECT_EQ(zam_lydfmt2ownfmt(4), ZAM_ENCODE_UNKNOWN + 0u);
    EXPECT_EQ(zam_lydfmt2ownfmt(UINT32_MAX), ZAM_ENCODE_UNKNOWN + 0u);
}

TEST(Format, EncodingsHaveLibyangsFormats) {
    EXPECT_EQ(zam_ownfmt2lydfmt(ZAM_ENCODE_UNKNOWN), 0u);
    EXPECT_EQ(zam_ownfmt2lydfmt(ZAM_ENCODE_XML), 1u);
    EXPECT_EQ(zam_ownfmt2lydfmt(ZAM_ENCODE_JSON), 2u);
    EXPECT_EQ(zam_ownfmt2lydfmt(ZAM_ENCODE_GPB), 0u);
    EXPECT_EQ(zam_ownfmt2lydfmt(4), 0u);
    EXPECT_EQ(zam_ownfmt2lydfmt(UINT32_MAX), 0u);
}

} // namespace
