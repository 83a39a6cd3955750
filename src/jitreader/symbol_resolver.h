// The eager front end: reads everything at creation, then answers by jit RVA.
#ifndef KORVANE_JITREADER_SYMBOL_RESOLVER_H
#define KORVANE_JITREADER_SYMBOL_RESOLVER_H

#include "jitreader/jit_data_manager.h"
#include "jitreader/jit_files_manager.h"

namespace korvane_3_10 {

class SymbolResolver : public ISymbolResolver {
public:
    // Null when the directories can't be catalogued or read.
    static boost::intrusive_ptr<SymbolResolver> create(skeinkit2::generic_iterator_t<const char*>& paths,
                                                       boost::intrusive_ptr<ISymbolFileLocator>& locator,
                                                       target_arch_t arch);

    korvane_error_t getHostNameById(u32_t hostId, const char** hostName) const override;
    ISymbol::Ptr getSymbol(jit_rva_t jitRva) override;
    korvane_error_t getCalleeRegion(jit_rva_t callerJitRva, address_t target, jit_rva_t* calleeJitRva) override;
    skeinkit2::generic_iterator_t<ISymbol::Ptr> getSymbols() override;
    korvane_error_t translateToJitRva(u32_t jitId, address_t address, const char* jitFile,
                                      jit_rva_t* jitRva) const override;

    // What the loader answers for a sample, from the tables read in full.
    u32_t getHostIdByName(const char* hostName) const;
    korvane_error_t resolveJitPoint(u64_t timestamp, address_t address, u32_t pid, u32_t hostId,
                                    JitDataManager::JitPoint& point) const;

private:
    explicit SymbolResolver(boost::intrusive_ptr<ISymbolFileLocator>& locator);
    korvane_error_t initializeJitFiles(skeinkit2::generic_iterator_t<const char*>& paths, target_arch_t arch);

    // Declared in this order so that the locator goes first, then the catalogue.
    JitDataManager m_jitDataManager;
    JitFilesManager m_jitFilesManager;
    boost::intrusive_ptr<ISymbolFileLocator> m_symbolFileLocator;
    bool m_jitFilesInitialized;
};

} // namespace korvane_3_10

#endif
