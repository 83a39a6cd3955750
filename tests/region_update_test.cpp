// Region::addBytesUpdate: how updates of code and data fold into the byte image.
#include "model_builders.h"
#include "test_support.h"

#include <log4cplus/loglevel.h>

#include <gtest/gtest.h>

namespace {

using namespace korvane_test;
using korvane_3_10::u32_t;
using korvane_3_10::u64_t;

typedef std::vector<unsigned char> Bytes;

struct Step {
    u64_t address;
    u32_t length;
    Bytes bytes; // empty: no buffer at all
    u32_t segType;
    korvane_error_t result;
};

struct UpdateCase {
    const char* name;
    std::vector<Step> steps;
    Bytes image;         // expected bytes after all steps
    std::string message; // expected somewhere in the log, if not empty
};

const Bytes g_original = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
const Bytes g_patch = {0xAA, 0xBB, 0xCC, 0xDD};
const Bytes g_other = {0x11, 0x22, 0x33, 0x44};

Bytes withBytesAt(Bytes image, std::size_t offset, const Bytes& bytes) {
    std::copy(bytes.begin(), bytes.end(), image.begin() + static_cast<long>(offset));
    return image;
}

const Bytes g_nops = {0x90, 0x90, 0x90, 0x90};

const UpdateCase g_cases[] = {
    {"CodeInTheMiddle",
     {{0x1004, 4, g_patch, stCode, meSuccess}},
     withBytesAt(g_original, 4, g_patch),
     "Updated code region (ip range = 0x1000-0x2010 successfully"},
    {"DataFillsWithNoOperations", {{0x1004, 4, g_patch, stData, meSuccess}}, withBytesAt(g_original, 4, g_nops), ""},
    {"CodeAtTheHead", {{0x1000, 4, g_patch, stCode, meSuccess}}, withBytesAt(g_original, 0, g_patch), ""},
    {"CodeAtTheTail", {{0x100C, 4, g_patch, stCode, meSuccess}}, withBytesAt(g_original, 12, g_patch), ""},
    {"WholeRegion", {{0x1000, 16, Bytes(16, 0x77), stCode, meSuccess}}, Bytes(16, 0x77), ""},
    {"WholeRegionFromShortSourceZeroesTheTail",
     {{0x1000, 16, g_patch, stCode, meSuccess}},
     withBytesAt(Bytes(16, 0), 0, g_patch),
     ""},
    {"PastTheEnd",
     {{0x100C, 8, Bytes(8, 1), stCode, meNotFound}},
     g_original,
     "Couldn't accept update (ip range = 0x100c-0x1014) because it overlaps parent's ip range 0x1000-0x1010, at "
     "file: "},
    {"BeforeTheStart",
     {{0x0FFF, 2, Bytes(2, 1), stCode, meNotFound}},
     g_original,
     "Couldn't accept update (ip range = 0xfff-0x1001) because it overlaps parent's ip range 0x1000-0x1010"},
    {"PartialOverlapOfMarkup",
     {{0x1004, 4, g_patch, stCode, meSuccess}, {0x1006, 4, g_other, stCode, meNotFound}},
     withBytesAt(g_original, 4, g_patch),
     "Couldn't accept update (ip range = 0x1006-0x100a) because it overlaps an existing markup range 0x1004-0x1008 "
     "with segType = 0x1"},
    {"AdjacentRanges",
     {{0x1004, 4, g_patch, stCode, meSuccess}, {0x1008, 4, g_other, stCode, meSuccess}},
     withBytesAt(withBytesAt(g_original, 4, g_patch), 8, g_other),
     ""},
    {"CodeThenDataFillsAndTellsTheChange",
     {{0x1004, 4, g_patch, stCode, meSuccess}, {0x1004, 4, g_other, stData, meSuccess}},
     withBytesAt(g_original, 4, g_nops),
     "Changed a type of markup range (ip range = 0x1004-0x1008) from 0x1  to 0x2"},
    {"DataThenKeep",
     {{0x1004, 4, g_patch, stData, meSuccess}, {0x1004, 4, g_other, stKeep, meSuccess}},
     withBytesAt(g_original, 4, g_nops),
     ""},
    {"DataThenCodeThenKeepStillFills",
     {{0x1004, 4, g_patch, stData, meSuccess},
      {0x1004, 4, g_other, stCode, meSuccess},
      {0x1004, 4, g_patch, stKeep, meSuccess}},
     withBytesAt(g_original, 4, g_nops),
     "Changed a type of markup range (ip range = 0x1004-0x1008) from 0x2  to 0x1"},
    {"KeepOnNewRangeUsesTheBytesTwice",
     {{0x1004, 4, g_patch, stKeep, meSuccess}, {0x1004, 4, g_other, stKeep, meSuccess}},
     withBytesAt(g_original, 4, g_other),
     ""},
    {"SecondCodeUpdateWins",
     {{0x1004, 4, g_patch, stCode, meSuccess}, {0x1004, 4, g_other, stCode, meSuccess}},
     withBytesAt(g_original, 4, g_other),
     ""},
    {"NullAddress",
     {{0, 4, g_patch, stCode, meNotFound}},
     g_original,
     "Couldn't update because the input range is invalid: codeAddr = 0, codeLen = 0x4"},
    {"ZeroLength",
     {{0x1004, 0, g_patch, stCode, meNotFound}},
     g_original,
     "Couldn't update because the input range is invalid: codeAddr = 0x1004, codeLen = 0"},
    {"NoBuffer",
     {{0x1004, 4, Bytes(), stCode, meNotFound}},
     g_original,
     "Couldn't update because the input content is empty"},
    {"BadAddressIsToldBeforeMissingBuffer",
     {{0, 4, Bytes(), stCode, meNotFound}},
     g_original,
     "Couldn't update because the input range is invalid:"},
    {"UnknownSegmentType",
     {{0x1004, 4, g_patch, 4, meNotFound}},
     g_original,
     "Couldn't update because the input segment type =0x4 is not recognized"},
    {"SegmentTypeZero",
     {{0x1004, 4, g_patch, 0, meNotFound}},
     g_original,
     "Couldn't update because the input segment type =0 is not recognized"},
};

class AddBytesUpdateTest : public ::testing::TestWithParam<UpdateCase> {};

TEST_P(AddBytesUpdateTest, ImageAndLog) {
    const UpdateCase& update = GetParam();
    Region::Ptr region = makeRegion(0x1000, 0x10, 0x500);
    region->setContent(makeBuffer(g_original));
    const korvane_3_10::IByteBuffer* buffer = region->getBytes().get();
    LogCapture log;
    for (const Step& step : update.steps) {
        const boost::shared_ptr<korvane_3_10::IByteBuffer> bytes =
            step.bytes.empty() ? boost::shared_ptr<korvane_3_10::IByteBuffer>() : makeBuffer(step.bytes);
        EXPECT_EQ(step.result, region->addBytesUpdate(step.address, step.length, bytes,
                                                      static_cast<korvane_segment_type_t>(step.segType), "r"));
    }
    EXPECT_EQ(buffer, region->getBytes().get());
    EXPECT_EQ(update.image, bytesOf(region->getBytes()));
    if (!update.message.empty()) {
        EXPECT_TRUE(log.contains(update.message)) << update.message;
    }
}

INSTANTIATE_TEST_SUITE_P(Updates, AddBytesUpdateTest, ::testing::ValuesIn(g_cases),
                         [](const ::testing::TestParamInfo<UpdateCase>& info) { return info.param.name; });

TEST(AddBytesUpdateTest, MarkupKeepsTheTypeItFirstHeld) {
    Region::Ptr region = makeRegion(0x1000, 0x10, 0x500);
    region->setContent(makeBuffer(g_original));
    region->addBytesUpdate(0x1004, 4, makeBuffer(g_patch), stData, "first");
    region->addBytesUpdate(0x1004, 4, makeBuffer(g_patch), stCode, "second");
    ASSERT_EQ(1u, region->markupRanges().size());
    EXPECT_EQ(stData, region->markupRanges().begin()->second.segType);
    EXPECT_EQ("first", region->markupRanges().begin()->second.rangeName);
}

TEST(AddBytesUpdateTest, RegionWithoutBytesIsReportedAndRefused) {
    Region::Ptr region = makeRegion(0x1000, 0x10, 0x500);
    LogCapture log;
    EXPECT_EQ(meNotFound, region->addBytesUpdate(0x1004, 4, makeBuffer(g_patch), stCode, ""));
    EXPECT_TRUE(log.contains("Assertion failed: m_content"));
    EXPECT_FALSE(region->getBytes());
}

} // namespace
