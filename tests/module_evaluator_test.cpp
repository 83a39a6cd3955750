// Native image and JIT cache paths, told by the path text alone.
#include "jitreader/jit_loader.h"
#include "jitreader/module_evaluator.h"

#include <gtest/gtest.h>

namespace {

using namespace korvane_3_10;

TEST(ModuleEvaluatorTest, PathsAreJudgedByTheirMarkers) {
    struct Case {
        const char* path;
        korvane_error_t result;
    };
    const std::vector<Case> cases = {
        {"c:\\windows\\assembly\\GAC\\x\\x.dll", meSuccess},
        {"c:\\windows\\assembly\\NativeImages_v4\\x.ni.dll", meSuccess},
        {"/dev/ashmem/dalvik-jit-code-cache (deleted)", meSuccess},
        {"/anon_hugepage", meSuccess},
        {"/windows/assembly/GAC/x.dll", meNotFound},
        {"ASSEMBLY\\GAC", meNotFound},
        {"/usr/lib/libc.so.6", meNotFound},
        {"", meNotFound},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(c.result, ModuleEvaluator(c.path).isNativeImage());
        EXPECT_EQ(c.result, isNativeImage(c.path));
    }
    EXPECT_EQ(meNotFound, ModuleEvaluator(nullptr).isNativeImage());
}

TEST(ModuleEvaluatorTest, LoaderHandsOutEvaluatorsForAnyText) {
    JitLoader loader;
    EXPECT_FALSE(loader.getModuleEvaluator(nullptr));
    const boost::intrusive_ptr<IModuleEvaluator> empty = loader.getModuleEvaluator("");
    ASSERT_TRUE(empty);
    EXPECT_EQ(meNotFound, empty->isNativeImage());
    EXPECT_EQ(meSuccess, loader.getModuleEvaluator("/anon_hugepage")->isNativeImage());
}

} // namespace
