// The module a method's code belongs to, as its record names it.
#ifndef KORVANE_JITREADER_MODULE_H
#define KORVANE_JITREADER_MODULE_H

#include <korvane/interfaces.h>

namespace korvane_3_10 {

class Module : public IModule {
public:
    typedef boost::intrusive_ptr<Module> Ptr;

    Module(const ustring& filePath, korvane_error_t isBogus, korvane_arch architecture)
        : m_filePath(filePath), m_isBogus(isBogus), m_architecture(architecture) {}

    const char* getFilePath() const override { return m_filePath.c_str(); }
    korvane_error_t isBogus() const override { return m_isBogus; }
    korvane_arch getArchitecture() const override { return m_architecture; }

private:
    ustring m_filePath;
    korvane_error_t m_isBogus;
    korvane_arch m_architecture;
};

} // namespace korvane_3_10

#endif
