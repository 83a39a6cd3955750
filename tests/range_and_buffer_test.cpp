// Ranges as interval keys and the byte buffers that keep code.
#include "jitreader/byte_buffer.h"
#include "jitreader/range.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

using namespace korvane_3_10;

// Overlapping ranges are equivalent keys, so that a point finds the range holding it.
TEST(RangeTest, ComparatorOrdersOnlyDisjointRanges) {
    struct Case {
        Range a;
        Range b;
        bool aBeforeB;
        bool bBeforeA;
    };
    const u64_t top = ~u64_t(0);
    const std::vector<Case> cases = {
        {{100, 10}, {110, 1}, true, false},   // touching: strictly before
        {{100, 10}, {109, 1}, false, false},  // last byte
        {{100, 10}, {95, 100}, false, false}, // one holds the other
        {{100, 10}, {99, 1}, false, true},
        {{100, 0}, {100, 5}, true, false}, // an empty range comes first
        {{100, 10}, {100, 10}, false, false},
        // The end is a 64-bit sum of start and the widened length.
        {{0xffffffff, 0xffffffff}, {0x1fffffffd, 1}, false, false},
        {{0xffffffff, 0xffffffff}, {0x1fffffffe, 1}, true, false},
        {{top - 10, 5}, {top - 5, 5}, true, false},
    };
    const Range::Comparator before;
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.a.m_start << "+" << c.a.m_length << " vs " << c.b.m_start << "+"
                                          << c.b.m_length);
        EXPECT_EQ(c.aBeforeB, before(c.a, c.b));
        EXPECT_EQ(c.bBeforeA, before(c.b, c.a));
    }
}

// Copies, not pointers; storage grows for large code and is kept for smaller;
// a null or empty source empties the buffer.
TEST(ByteBufferTest, AssignCopiesIntoStorageItKeeps) {
    std::vector<unsigned char> large(600);
    for (std::size_t i = 0; i < large.size(); ++i)
        large[i] = static_cast<unsigned char>(i * 7);
    const std::vector<unsigned char> small(10, 0xab);
    const boost::shared_ptr<IByteBuffer> buffer = IByteBuffer::create();
    EXPECT_EQ(nullptr, buffer->data());
    buffer->assign(large.data(), 600);
    const std::vector<unsigned char> copy = large;
    large.assign(600, 0);
    ASSERT_EQ(600u, buffer->size());
    EXPECT_EQ(0, std::memcmp(copy.data(), buffer->data(), 600));
    const void* storage = buffer->data();
    buffer->assign(small.data(), 10);
    EXPECT_EQ(10u, buffer->size());
    EXPECT_EQ(storage, buffer->data());
    EXPECT_EQ(0, std::memcmp(small.data(), buffer->data(), 10));
    for (const unsigned char* source : {small.data(), static_cast<const unsigned char*>(nullptr)}) {
        buffer->assign(small.data(), 10);
        buffer->assign(source, source ? 0 : 10);
        EXPECT_EQ(0u, buffer->size());
        EXPECT_EQ(nullptr, buffer->data());
    }
}

} // namespace
