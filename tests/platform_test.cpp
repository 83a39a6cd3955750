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

std::string digestOf(const std::vector<std::string>& pieces) {
    skeinkit2::md5_t md5;
    for (const std::string& piece : pieces)
        md5.update(piece);
    std::string text;
    char pair[3];
    for (unsigned char byte : md5.get_digest()) {
        std::snprintf(pair, sizeof pair, "%02x", byte);
        text += pair;
    }
    return text;
}

TEST(Md5Test, KnownDigestsWholeOrInPieces) {
    EXPECT_EQ("d41d8cd98f00b204e9800998ecf8427e", digestOf({""}));
    EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", digestOf({"abc"}));
    EXPECT_EQ("f96b697d7cb7938d525a2f31aaf161d0", digestOf({"message ", "digest"}));
    EXPECT_EQ("57edf4a22be3c955ac49da2e2107b67a",
              digestOf({"12345678901234567890123456789012345678901234567890123456789012345678901234567890"}));
    EXPECT_NE(digestOf({"a"}), digestOf({std::string("a\0b", 3)})) << "zero bytes are hashed too";
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
