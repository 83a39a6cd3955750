// The platform layers: text copies, MD5 digests, assertion reports and silent default logging.
#include "platform/convert.h"
#include "platform/debug.h"
#include "platform/md5.h"

#include "jitreader/logging.h"

#include "test_support.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <stdexcept>
#include <string>

KORVANE_DEFINE_FILE_LOGGER()

namespace {

auto digestOf(const std::vector<std::string>& pieces) {
    skeinkit2::md5_t md5;
    for (const std::string& piece : pieces)
        md5.update(piece);
    return md5.get_digest();
}

// The digests themselves are the crypto library's (the method id tests pin some); ours is feeding it.
TEST(Md5Test, PiecesAndZeroBytesAreHashed) {
    EXPECT_EQ(digestOf({"message digest"}), digestOf({"message ", "digest"}));
    EXPECT_NE(digestOf({"a"}), digestOf({std::string("a\0b", 3)}));
}

// In a fresh process, as in a host that configured no logging at all.
TEST(LoggingDeathTest, LibraryIsSilentWhenTheHostConfiguredNothing) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            KORVANE_LOG_ERROR("an error nobody asked to see");
            KORVANE_ASSERT_TEXT(false, "an assertion nobody asked to see");
            std::fflush(stderr);
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "^$");
}

} // namespace
