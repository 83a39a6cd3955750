// Native image and JIT cache paths, told by the path text alone.
#include "jitreader/module_evaluator.h"
#include "trace_builder.h"

#include <gtest/gtest.h>

namespace {

using namespace korvane_3_10;

TEST(ModuleEvaluatorTest, PathsAreJudgedByTheirMarkers) {
    const std::vector<std::pair<const char*, korvane_error_t>> cases = {
        {"c:\\windows\\assembly\\GAC\\x\\x.dll", meSuccess},
        {"c:\\windows\\assembly\\NativeImages_v4\\x.ni.dll", meSuccess},
        {"/dev/ashmem/dalvik-jit-code-cache (deleted)", meSuccess},
        {"/anon_hugepage", meSuccess},
        {"/windows/assembly/GAC/x.dll", meNotFound},
        {"ASSEMBLY\\GAC", meNotFound},
        {"/usr/lib/libc.so.6", meNotFound},
        {"", meNotFound},
    };
    const korvane_test::TempDir dir;
    const boost::intrusive_ptr<IJitLoader> loader = korvane_test::loaderOver({dir.str()});
    ASSERT_TRUE(loader);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first);
        EXPECT_EQ(c.second, ModuleEvaluator(c.first).isNativeImage());
        EXPECT_EQ(c.second, isNativeImage(c.first));
        ASSERT_TRUE(loader->getModuleEvaluator(c.first));
        EXPECT_EQ(c.second, loader->getModuleEvaluator(c.first)->isNativeImage());
    }
    EXPECT_EQ(meNotFound, ModuleEvaluator(nullptr).isNativeImage());
    EXPECT_FALSE(loader->getModuleEvaluator(nullptr));
}

} // namespace
