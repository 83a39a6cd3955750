// Ranges as interval keys, method ids, byte buffers, source locations and the byte copies.
#include "jitreader/base_method_id.h"
#include "jitreader/byte_buffer.h"
#include "jitreader/range.h"
#include "jitreader/source_location.h"

#include <korvane/convert.h>

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace {

using korvane_3_10::BaseMethodId;
using korvane_3_10::IByteBuffer;
using korvane_3_10::Range;
using korvane_3_10::u32_t;
using korvane_3_10::u64_t;

struct RangeOrder {
    Range a;
    Range b;
    bool aBeforeB;
    bool bBeforeA;
};

std::ostream& operator<<(std::ostream& out, const RangeOrder& order) {
    return out << "[" << order.a.m_start << "+" << order.a.m_length << "] vs [" << order.b.m_start << "+"
               << order.b.m_length << "]";
}

class RangeComparatorTest : public ::testing::TestWithParam<RangeOrder> {};

TEST_P(RangeComparatorTest, OverlappingRangesAreEquivalent) {
    const RangeOrder& order = GetParam();
    const Range::Comparator before;
    EXPECT_EQ(order.aBeforeB, before(order.a, order.b));
    EXPECT_EQ(order.bBeforeA, before(order.b, order.a));
}

const u64_t kTop = ~u64_t(0);

INSTANTIATE_TEST_SUITE_P(
    Pairs, RangeComparatorTest,
    ::testing::Values(RangeOrder{{100, 10}, {110, 1}, true, false},   // touching: strictly before
                      RangeOrder{{100, 10}, {109, 1}, false, false},  // last byte
                      RangeOrder{{100, 10}, {95, 100}, false, false}, // one holds the other
                      RangeOrder{{100, 10}, {99, 1}, false, true},
                      RangeOrder{{100, 0}, {100, 5}, true, false}, // empty range comes first
                      RangeOrder{{100, 10}, {100, 10}, false, false},
                      // The end is a 64-bit sum of start and the widened length.
                      RangeOrder{{0xffffffff, 0xffffffff}, {0x1fffffffd, 1}, false, false},
                      RangeOrder{{0xffffffff, 0xffffffff}, {0x1fffffffe, 1}, true, false},
                      RangeOrder{{kTop - 10, 5}, {kTop - 5, 5}, true, false}));

TEST(RangeMapTest, WorksAsAnIntervalTable) {
    std::map<Range, std::string, Range::Comparator> table;
    ASSERT_TRUE(table.insert({Range{100, 10}, "a"}).second);
    ASSERT_TRUE(table.insert({Range{200, 20}, "b"}).second);
    EXPECT_FALSE(table.insert({Range{105, 20}, "overlap"}).second);
    EXPECT_FALSE(table.insert({Range{50, 300}, "covers both"}).second);
    ASSERT_TRUE(table.insert({Range{110, 90}, "gap"}).second);

    struct Probe {
        u64_t address;
        const char* found;
    };
    const std::vector<Probe> probes = {{99, nullptr}, {100, "a"}, {109, "a"}, {110, "gap"}, {199, "gap"},
                                       {200, "b"},    {219, "b"}, {220, nullptr}};
    for (const Probe& probe : probes) {
        const auto hit = table.find(Range{probe.address, 1});
        if (!probe.found)
            EXPECT_EQ(table.end(), hit) << probe.address;
        else if (hit == table.end())
            ADD_FAILURE() << "nothing at " << probe.address;
        else
            EXPECT_EQ(probe.found, hit->second) << probe.address;
    }
}

TEST(BaseMethodIdTest, OrdersByFirstThenSecondWord) {
    const BaseMethodId::Comparator before;
    EXPECT_TRUE(before(BaseMethodId{1, 5}, BaseMethodId{2, 0}));
    EXPECT_FALSE(before(BaseMethodId{2, 0}, BaseMethodId{1, 5}));
    EXPECT_TRUE(before(BaseMethodId{1, 4}, BaseMethodId{1, 5}));
    EXPECT_FALSE(before(BaseMethodId{1, 5}, BaseMethodId{1, 5}));
    // Unsigned: the high bit doesn't make a word negative.
    EXPECT_TRUE(before(BaseMethodId{1, 0}, BaseMethodId{0x8000000000000000, 0}));
    EXPECT_TRUE(before(BaseMethodId{1, 1}, BaseMethodId{1, 0x8000000000000000}));
    EXPECT_TRUE((BaseMethodId{0, 0}).isEmpty());
    EXPECT_FALSE((BaseMethodId{0, 1}).isEmpty());
    EXPECT_FALSE((BaseMethodId{1, 0}).isEmpty());
}

std::vector<unsigned char> pattern(std::size_t size, unsigned char seed) {
    std::vector<unsigned char> bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<unsigned char>(seed + i);
    return bytes;
}

TEST(ByteBufferTest, StartsEmpty) {
    const boost::shared_ptr<IByteBuffer> buffer = IByteBuffer::create();
    ASSERT_TRUE(buffer);
    EXPECT_EQ(0u, buffer->size());
    EXPECT_EQ(nullptr, buffer->data());
}

TEST(ByteBufferTest, NullOrEmptySourceEmptiesTheBuffer) {
    const std::vector<unsigned char> bytes = pattern(16, 1);
    const boost::shared_ptr<IByteBuffer> buffer = IByteBuffer::create();
    for (int way = 0; way < 2; ++way) {
        buffer->assign(bytes.data(), 16);
        ASSERT_EQ(16u, buffer->size());
        if (way == 0)
            buffer->assign(bytes.data(), 0);
        else
            buffer->assign(nullptr, 10);
        EXPECT_EQ(0u, buffer->size());
        EXPECT_EQ(nullptr, buffer->data());
    }
}

TEST(ByteBufferTest, GrowsForLargeCodeAndKeepsItsStorage) {
    const std::vector<unsigned char> large = pattern(600, 3);
    const std::vector<unsigned char> small = pattern(10, 200);
    const boost::shared_ptr<IByteBuffer> buffer = IByteBuffer::create();
    buffer->assign(large.data(), 600);
    ASSERT_EQ(600u, buffer->size());
    EXPECT_EQ(0, std::memcmp(large.data(), buffer->data(), 600));
    const void* storage = buffer->data();

    buffer->assign(small.data(), 10);
    EXPECT_EQ(10u, buffer->size());
    EXPECT_EQ(storage, buffer->data()) << "a shorter copy reuses the storage";
    EXPECT_EQ(0, std::memcmp(small.data(), buffer->data(), 10));

    buffer->assign(large.data(), 600);
    EXPECT_EQ(storage, buffer->data());
    EXPECT_EQ(0, std::memcmp(large.data(), buffer->data(), 600));
}

TEST(ByteBufferTest, CopiesTheBytesRatherThanPointingAtThem) {
    std::vector<unsigned char> bytes = pattern(32, 9);
    const boost::shared_ptr<IByteBuffer> buffer = IByteBuffer::create();
    buffer->assign(bytes.data(), 32);
    bytes.assign(32, 0);
    EXPECT_EQ(9, static_cast<const unsigned char*>(buffer->data())[0]);
    EXPECT_EQ(9 + 31, static_cast<const unsigned char*>(buffer->data())[31]);
}

TEST(SourceLocationTest, HandsOutAFreshCopyOfItsFile) {
    const korvane_3_10::SourceFile file("Cart.java", "abc", 2, 5);
    const korvane_3_10::SourceLocation location(42, file);
    EXPECT_EQ(42u, location.getLine());
    const korvane_3_10::ISourceFile::Ptr first = location.getSourceFile();
    const korvane_3_10::ISourceFile::Ptr second = location.getSourceFile();
    ASSERT_TRUE(first);
    EXPECT_NE(first.get(), second.get());
    EXPECT_STREQ("Cart.java", first->getSourceFileName());
    EXPECT_STREQ("abc", first->getChecksum());
    EXPECT_EQ(2u, first->getChecksumType());
    EXPECT_EQ(5u, first->getLanguageType());
    EXPECT_EQ(0u, first->getTime());
    EXPECT_EQ(0u, first->getSize());
}

TEST(SourceLocationTest, EmptyNameStillGivesAFileAndTextsStopAtZeroBytes) {
    const korvane_3_10::SourceLocation empty(1, korvane_3_10::SourceFile());
    const korvane_3_10::ISourceFile::Ptr file = empty.getSourceFile();
    ASSERT_TRUE(file);
    EXPECT_STREQ("", file->getSourceFileName());

    const korvane_3_10::SourceLocation cut(1, korvane_3_10::SourceFile(std::string("A.java\0tail", 11),
                                                                       std::string("ck\0sum", 6), 0, 0));
    EXPECT_EQ(std::string("A.java"), cut.getSourceFile()->getSourceFileName());
    EXPECT_EQ(std::string("ck"), cut.getSourceFile()->getChecksum());
}

struct CopyCase {
    unsigned long sourceSize;
    unsigned long targetSize;
    unsigned long copied;
};

std::ostream& operator<<(std::ostream& out, const CopyCase& copy) {
    return out << "source " << copy.sourceSize << ", target " << copy.targetSize;
}

class ConvertTest : public ::testing::TestWithParam<CopyCase> {};

TEST_P(ConvertTest, BothDirectionsCopyTheSmallerCount) {
    const CopyCase& copy = GetParam();
    const std::string source = "0123456789";
    for (int direction = 0; direction < 2; ++direction) {
        char target[16];
        std::memset(target, '.', sizeof target);
        unsigned long targetSize = copy.targetSize;
        std::string writable = source;
        if (direction == 0)
            korvane_3_10::WcharToUtf8().convert(source.c_str(), copy.sourceSize, target, targetSize);
        else
            korvane_3_10::Utf8ToWchar().convert(&writable[0], copy.sourceSize, target, targetSize);
        EXPECT_EQ(copy.copied, targetSize);
        EXPECT_EQ(source.substr(0, copy.copied), std::string(target, copy.copied));
        EXPECT_EQ('.', target[copy.copied]) << "nothing beyond the count is written";
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, ConvertTest,
                         ::testing::Values(CopyCase{10, 4, 4}, CopyCase{3, 4, 3}, CopyCase{0, 8, 0},
                                           CopyCase{8, 0, 0}, CopyCase{10, 10, 10}));

} // namespace
