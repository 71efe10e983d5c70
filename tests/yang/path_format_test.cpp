// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <zamc/mem.h>
#include <zamc/path.h>

#include <string>

#include <gtest/gtest.h>

#include "support/heap.h"
#include "support/log_capture.h"
#include "support/test_schema.h"

namespace zam::test {
namespace {

std::string with_keys(const char *path) {
    return take(zam_format_data_path(path, 1));
}
std::string without_keys(const char *path) {
    return take(zam_format_data_path(path, 0));
}

TEST(PathFormat, APathWithoutKeysIsItsOwnNormalForm) {
    for (const char *path : {"/a:b/c", "a:b/c", "/m:c/", "c/", "", "/", "x", "/a:b/a:c/d.e-f"}) {
        EXPECT_EQ(with_keys(path), path);
        EXPECT_EQ(without_keys(path), path);
    }
}

TEST(PathFormat, KeysComeOutInDoubleQuotes) {
    EXPECT_EQ(with_keys("a:b[k='x']"), R"(a:b[k="x"])");
    EXPECT_EQ(with_keys("/a:b[k=x/y][j=\"z\"]/c"), R"(/a:b[k="x/y"][j="z"]/c)");
    EXPECT_EQ(with_keys("/m:ll[.='5']"), R"(/m:ll[.="5"])");
}

TEST(PathFormat, QuotesAndBackslashesInKeysAreEscaped) {
    EXPECT_EQ(with_keys(R"(/m:l[k='a"b\c'])"), R"(/m:l[k="a\"b\\c"])");
    EXPECT_EQ(with_keys(R"(/m:l[k=a"b\c])"), R"(/m:l[k="a\"b\\c"])");
    EXPECT_EQ(with_keys(R"(/m:l[k="a\"b\\c\d"])"), R"(/m:l[k="a\"b\\cd"])");
}

TEST(PathFormat, ASecondPassChangesNothing) {
    const std::string once = with_keys(R"(/m:l[m:k='a"b\c'][j=]x]/n[.="\\\""])");
    const std::string path = with_keys(R"(/m:l[m:k='a"b\c'][j=x]/n[.="\\\""]/)");
    EXPECT_EQ(once, "(null)");
    EXPECT_EQ(with_keys(path.c_str()), path);
}

TEST(PathFormat, KeysLoseTheirPrefixAndSegmentsKeepTheirs) {
    EXPECT_EQ(with_keys("/m:l[m:k=\"v\"]"), "/m:l[k=\"v\"]");
    EXPECT_EQ(with_keys("/m:l[m:k='v']/n:x/y"), "/m:l[k=\"v\"]/n:x/y");
}

TEST(PathFormat, AnEmptyValueStays) {
    EXPECT_EQ(with_keys("/m:l[k='']"), R"(/m:l[k=""])");
}

TEST(PathFormat, KeysAreLeftOutOnDemand) {
    EXPECT_EQ(without_keys("/m:l[k='x'][j='y']/n[.=5]/"), "/m:l/n/");
    EXPECT_EQ(without_keys("l[k='a/b']/c"), "l/c");
}

TEST(PathFormat, KeysThatAreLeftOutAreReadAllTheSame) {
    const LogCapture log;
    EXPECT_EQ(without_keys("/m:l[k=]"), "(null)");
    EXPECT_EQ(log.count(3, "Get key value from path(m:l[k=]) unsuccessful."), 1);
}

TEST(PathFormat, AnEmptyUnquotedValueFails) {
    const LogCapture log;
    EXPECT_EQ(with_keys("/m:l[k=]"), "(null)");
    EXPECT_EQ(log.count(3, "Get key value from path(m:l[k=]) unsuccessful."), 1);
}

TEST(PathFormat, AMissingBracketFails) {
    const LogCapture log;
    EXPECT_EQ(with_keys("/m:l[k='x'"), "(null)");
    EXPECT_EQ(log.count(3, "Key format incorrect in path(m:l[k='x')."), 1);
}

TEST(PathFormat, ANameThatIsNoneFails) {
    const LogCapture log;
    EXPECT_EQ(with_keys("/m:1abc"), "(null)");
    EXPECT_EQ(log.count(3, "Get identifier from path(1abc) unsuccessful."), 1);
}

TEST(PathFormat, SlashesDoNotDouble) {
    const LogCapture log;
    EXPECT_EQ(with_keys("//"), "(null)");
    EXPECT_EQ(log.count(3, "Get identifier from path(/) unsuccessful."), 1);
    EXPECT_EQ(with_keys("/a//b"), "(null)");
    EXPECT_EQ(with_keys("/a:b//"), "(null)");
}

TEST(PathFormat, ASegmentEndsWithASlashOrThePath) {
    for (const char *path : {"a b", "/a:b c", "/a:b[k='v']x", "a:b:c", "a*", " a", "a ", "/a:b\n", "a]"}) {
        EXPECT_EQ(with_keys(path), "(null)") << path;
        EXPECT_EQ(without_keys(path), "(null)") << path;
    }
}

TEST(PathFormat, NoPathHasNoForm) {
    EXPECT_EQ(zam_format_data_path(nullptr, 1), nullptr);
    EXPECT_EQ(zam_format_path(nullptr), nullptr);
}

TEST(PathFormat, APathWithoutABracketIsCopiedUnchecked) {
    for (const char *path : {"/", "/m:c", "", "//", "1 bad path!", "/m:c/"})
        EXPECT_EQ(take(zam_format_path(path)), path);
}

TEST(PathFormat, APathWithABracketIsNormalised) {
    EXPECT_EQ(take(zam_format_path("/m:l[m:k='v']/c")), R"(/m:l[k="v"]/c)");
    EXPECT_EQ(take(zam_format_path("1[k='v']")), "(null)");
}

TEST(PathFormat, ManyKeysThatGrowByEscapesFit) {
    std::string path = "/m:l";
    std::string expected = path;
    for (int i = 0; i < 200; ++i) {
        path += R"([k='""""\\\\'])";
        expected += R"([k="\"\"\"\"\\\\\\\\"])";
    }
    EXPECT_EQ(with_keys(path.c_str()), expected);
}

TEST(PathFormat, TheCopyIsTheCallers) {
    const Heap heap;
    char *path = zam_format_data_path("/m:l[k='v']", 1);
    EXPECT_EQ(heap.live(), 1u);
    zam_free(path);
    EXPECT_EQ(heap.live(), 0u);
}

TEST(PathFormat, AFailureLeavesNothingBehind) {
    const Heap heap;
    for (const char *path : {"/m:l[k='v']/1", "/m:l[k='v']x", "//", "/m:l[k='v'", "/a/b/c/[d"})
        EXPECT_EQ(zam_format_data_path(path, 1), nullptr) << path;
    EXPECT_EQ(heap.live(), 0u);
}

TEST(PathFormat, WithoutMemoryThereIsNoForm) {
    uint64_t refused = 0;
    const uint64_t failed = fail_each_allocation([&refused](bool) {
        const Text path{zam_format_data_path("/m:l[k='v'][j=\"w\"]/n", 1)};
        if (!path) ++refused;
    });
    EXPECT_EQ(refused, failed);
    EXPECT_GT(failed, 10u);
}

// Quotes lengthen the form, two bytes a key, so that its block has to grow at another place each time.
TEST(PathFormat, WithoutMemoryToGrowAnywhereThereIsNoForm) {
    for (const std::string end : {"r", "rr"}) {
        std::string path = "/m:l";
        std::string form = path;
        for (int keys = 1; keys <= 40; ++keys) {
            path += "[k=1]";
            form += "[k=\"1\"]";
            uint64_t refused = 0;
            const uint64_t failed = fail_each_allocation([&](bool) {
                const Text made{zam_format_data_path((path + "/n:o/p[q=2]/" + end).c_str(), 1)};
                if (!made) {
                    ++refused;
                } else {
                    EXPECT_EQ(made.get(), form + "/n:o/p[q=\"2\"]/" + end);
                }
            });
            EXPECT_EQ(refused, failed) << keys;
        }
    }
}

TEST(PathFormat, WithoutMemoryThereIsNoCopy) {
    uint64_t refused = 0;
    const uint64_t failed = fail_each_allocation([&refused](bool) {
        const Text path{zam_format_path("/m:c")};
        if (!path) ++refused;
    });
    EXPECT_EQ(refused, failed);
    EXPECT_EQ(failed, 1u);
}

TEST(PathFormat, AKeyThatCannotBeWrittenIsReported) {
    int reported = 0;
    fail_each_allocation([&](bool) {
        const LogCapture log;
        const Text path{zam_format_data_path("/m:c/l[k='v']", 1)};
        if (!log.mentions("Format path(")) return;
        ++reported;
        EXPECT_EQ(path, nullptr);
        EXPECT_EQ(log.count(3, "Format path(/m:c/l[k='v']) unsuccessful when add key node(l[k='v'])"), 1);
    });
    EXPECT_GE(reported, 1);
}

} // namespace
} // namespace zam::test
