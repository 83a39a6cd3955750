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

std::string hexDigest(const skeinkit2::md5_t& md5) {
    std::string text;
    char pair[3];
    for (unsigned char byte : md5.get_digest()) {
        std::snprintf(pair, sizeof pair, "%02x", byte);
        text += pair;
    }
    return text;
}

struct Digest {
    const char* text;
    const char* md5;
};

std::ostream& operator<<(std::ostream& out, const Digest& digest) { return out << '"' << digest.text << '"'; }

class Md5Test : public ::testing::TestWithParam<Digest> {};

TEST_P(Md5Test, KnownDigests) {
    skeinkit2::md5_t md5;
    md5.update(GetParam().text);
    EXPECT_EQ(GetParam().md5, hexDigest(md5));
}

INSTANTIATE_TEST_SUITE_P(
    Texts, Md5Test,
    ::testing::Values(Digest{"", "d41d8cd98f00b204e9800998ecf8427e"}, Digest{"a", "0cc175b9c0f1b6a831c399e269772661"},
                      Digest{"abc", "900150983cd24fb0d6963f7d28e17f72"},
                      Digest{"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
                      Digest{"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
                      Digest{"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
                             "57edf4a22be3c955ac49da2e2107b67a"}));

TEST(Md5Test, PiecesHashLikeTheWholeAndTheDigestLeavesTheSumOpen) {
    skeinkit2::md5_t pieces;
    pieces.update("message ");
    skeinkit2::md5_t firstPiece;
    firstPiece.update("message ");
    EXPECT_EQ(hexDigest(firstPiece), hexDigest(pieces));
    pieces.update("digest");
    EXPECT_EQ("f96b697d7cb7938d525a2f31aaf161d0", hexDigest(pieces));
    EXPECT_EQ("f96b697d7cb7938d525a2f31aaf161d0", hexDigest(pieces)) << "asking twice gives the same";
}

TEST(Md5Test, TextWithZeroBytesIsHashedWhole) {
    skeinkit2::md5_t withZero;
    withZero.update(std::string("a\0b", 3));
    skeinkit2::md5_t cut;
    cut.update("a");
    EXPECT_NE(hexDigest(cut), hexDigest(withZero));
}

TEST(ToUstringTest, CopiesTextsAndRefusesNull) {
    using TOBREK_2_18::generic::convert::to_ustring;
    const char constant[] = "Cart.java";
    char writable[] = "Item.java";
    EXPECT_EQ("Cart.java", to_ustring(constant));
    EXPECT_EQ("Item.java", to_ustring(writable));
    EXPECT_EQ("", to_ustring(""));
    EXPECT_THROW(to_ustring(static_cast<const char*>(nullptr)), std::logic_error);
    EXPECT_THROW(to_ustring(static_cast<char*>(nullptr)), std::logic_error);
}

TEST(AssertionTest, ReportsCountAndLogAndReturn) {
    korvane_test::LogCapture log(log4cplus::ERROR_LOG_LEVEL);
    const unsigned long before = TOBREK_2_18::debug::assertionReportCount();
    bool ranOn = false;
    KORVANE_ASSERT(1 + 1 == 3);
    ranOn = true;
    KORVANE_ASSERT_TEXT(false, "traceSize");
    KORVANE_ASSERT(ranOn);
    EXPECT_TRUE(ranOn);
    EXPECT_EQ(before + 2, TOBREK_2_18::debug::assertionReportCount());
    ASSERT_EQ(2u, log.messages(log4cplus::ERROR_LOG_LEVEL).size());
    EXPECT_TRUE(log.contains("1 + 1 == 3"));
    EXPECT_TRUE(log.contains("traceSize"));
    EXPECT_TRUE(log.contains("platform_test.cpp"));
}

TEST(AssertionTest, NullTextsAreReportedToo) {
    const unsigned long before = TOBREK_2_18::debug::assertionReportCount();
    TOBREK_2_18::debug::_private::____________________ASSERT____________________(nullptr, nullptr, 0, nullptr);
    EXPECT_EQ(before + 1, TOBREK_2_18::debug::assertionReportCount());
}

TEST(LoggingTest, MessagesAreBuiltOnlyWhenTheLevelIsOn) {
    korvane_test::LogCapture log(log4cplus::WARN_LOG_LEVEL);
    int built = 0;
    auto costly = [&built]() {
        ++built;
        return "text";
    };
    KORVANE_LOG_INFO("info " << costly());
    KORVANE_LOG_TRACE("trace " << costly());
    EXPECT_EQ(0, built);
    KORVANE_LOG_ERROR("error " << costly() << " " << korvane_3_10::hex(0) << " " << korvane_3_10::hex(0x1f));
    EXPECT_EQ(1, built);
    const std::vector<std::string> errors = log.messages(log4cplus::ERROR_LOG_LEVEL);
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(0u, errors[0].find("error text 0 0x1f, at file: tests/platform_test.cpp:")) << errors[0];
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
