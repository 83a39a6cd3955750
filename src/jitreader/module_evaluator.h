// Judges by its path alone whether a module holds precompiled or JIT code.
#ifndef KORVANE_JITREADER_MODULE_EVALUATOR_H
#define KORVANE_JITREADER_MODULE_EVALUATOR_H

#include <korvane/interfaces.h>

namespace korvane_3_10 {

class ModuleEvaluator : public IModuleEvaluator {
public:
    explicit ModuleEvaluator(const char* modulePath);
    korvane_error_t isNativeImage() const override;

private:
    ustring m_modulePath;
};

} // namespace korvane_3_10

#endif
