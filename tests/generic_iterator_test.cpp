// The generic iterator, as a caller uses it.
#include "platform/debug.h"

#include <korvane/jitreader.h>

#include <gtest/gtest.h>

#include <vector>

namespace {

using skeinkit2::generic_iterator_t;

typedef skeinkit2::iterutil::stl_iterator_impl_t<int, std::vector<int>::const_iterator> IntWalk;

// A handler that keeps the base class's answers on capabilities.
class DefaultsHandler : public skeinkit2::iterator_impl_base_t<int, DefaultsHandler> {
public:
    bool at_end() const override { return true; }
    int current() const override { return 0; }
    void next() override {}
};

TEST(GenericIteratorTest, NullHandlerIsAtEndAndCurrentReportsAndGivesDefault) {
    generic_iterator_t<const char*> paths;
    const unsigned long before = TOBREK_2_18::debug::assertionReportCount();
    EXPECT_TRUE(paths.at_end());
    EXPECT_EQ(nullptr, paths.current());
    EXPECT_EQ(before + 1, TOBREK_2_18::debug::assertionReportCount());
    const std::vector<int> none;
    generic_iterator_t<int> empty{IntWalk(none.begin(), none.end())};
    empty.next();
    EXPECT_TRUE(empty.at_end());
}

// Past either end the walk wraps around; copies walk on their own.
TEST(GenericIteratorTest, WalkWrapsAroundAndCopiesWalkIndependently) {
    const std::vector<int> values = {1, 2, 3};
    generic_iterator_t<int> walk{IntWalk(values.begin(), values.end())};
    const generic_iterator_t<int> copy(walk);
    std::vector<int> seen;
    for (; !walk.at_end(); walk.next())
        seen.push_back(walk.current());
    EXPECT_EQ(values, seen);
    EXPECT_EQ(1, copy.current());
    walk.next();
    ASSERT_FALSE(walk.at_end());
    EXPECT_EQ(1, walk.current());
    walk.prev();
    EXPECT_TRUE(walk.at_end());
    EXPECT_TRUE(walk.supports(3) && !walk.supports(4));
    walk.next();
    EXPECT_TRUE(walk.reset());
    EXPECT_EQ(1, walk.current());

    generic_iterator_t<int> defaults{DefaultsHandler()};
    EXPECT_TRUE(defaults.supports(0));
    EXPECT_FALSE(defaults.supports(1) || defaults.reset());
}

} // namespace
