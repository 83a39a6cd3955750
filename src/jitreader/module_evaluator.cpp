// Judges by its path alone whether a module holds precompiled or JIT code.
#include "jitreader/module_evaluator.h"

namespace korvane_3_10 {

namespace {

// Tested in this order; the backslash paths match Windows separators only.
const ustring g_globalAssemblyCache = "assembly\\GAC";
const ustring g_nativeImages = "assembly\\NativeImages";
const ustring g_dalvikJitCodeCache = "dalvik-jit-code-cache";
const ustring g_anonHugePage = "anon_hugepage";

} // namespace

ModuleEvaluator::ModuleEvaluator(const char* modulePath) : m_modulePath(modulePath ? modulePath : "") {}

korvane_error_t ModuleEvaluator::isNativeImage() const { return korvane_3_10::isNativeImage(m_modulePath); }

korvane_error_t isNativeImage(const ustring& modulePath) {
    for (const ustring* marker : {&g_globalAssemblyCache, &g_nativeImages, &g_dalvikJitCodeCache, &g_anonHugePage}) {
        if (modulePath.find(*marker) != ustring::npos)
            return meSuccess;
    }
    return meNotFound;
}

} // namespace korvane_3_10
