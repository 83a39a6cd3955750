// The reference-counted root and the abstract classes a caller works with.
#ifndef KORVANE_INTERFACES_H
#define KORVANE_INTERFACES_H

#include <korvane/export.h>
#include <korvane/generic_iterator.h>
#include <korvane/types.h>

#include <boost/intrusive_ptr.hpp>
#include <boost/shared_ptr.hpp>

#include <atomic>
#include <exception>
#include <ostream>
#include <vector>

namespace korvane_3_10 {

// Root of all shared objects. A new object has no owner until the first
// intrusive_ptr takes it; members and stack objects stay at 0 for ever.
class KORVANE_API BaseObject {
public:
    BaseObject() : m_refCount(0) {}
    BaseObject(const BaseObject&) : m_refCount(0) {}
    BaseObject& operator=(const BaseObject&) { return *this; }
    virtual ~BaseObject() {}

    u32_t addRef() const { return m_refCount.fetch_add(1, std::memory_order_relaxed) + 1; }
    u32_t release() const {
        const u32_t count = m_refCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (count == 0)
            delete this;
        return count;
    }

private:
    mutable std::atomic<u32_t> m_refCount;
};

inline void intrusive_ptr_add_ref(const BaseObject* object) { object->addRef(); }
inline void intrusive_ptr_release(const BaseObject* object) { object->release(); }

class KORVANE_API ISourceFile : public BaseObject {
public:
    typedef boost::intrusive_ptr<ISourceFile> Ptr;
    virtual const char* getSourceFileName() const = 0;
    virtual const char* getChecksum() const = 0;
    virtual u32_t getChecksumType() const = 0;
    virtual u64_t getTime() const = 0;
    virtual u64_t getSize() const = 0;
    virtual u32_t getLanguageType() const = 0;
};

class KORVANE_API ISourceLocation : public BaseObject {
public:
    typedef boost::intrusive_ptr<ISourceLocation> Ptr;
    virtual u32_t getLine() const = 0;
    virtual boost::intrusive_ptr<ISourceFile> getSourceFile() const = 0;
};

class KORVANE_API IModule : public BaseObject {
public:
    typedef boost::intrusive_ptr<IModule> Ptr;
    virtual const char* getFilePath() const = 0;
    // meSuccess: the module stands for no real file; meNotFound: a real one.
    virtual korvane_error_t isBogus() const = 0;
    virtual korvane_arch getArchitecture() const = 0;
};

// Code bytes; held by boost::shared_ptr and not reference counted itself.
class KORVANE_API IByteBuffer {
public:
    virtual u32_t size() const = 0;
    virtual const void* data() const = 0;
    virtual void assign(const void* source, u32_t length) = 0;

    static boost::shared_ptr<IByteBuffer> create();

protected:
    ~IByteBuffer() {}
};

class ISymbol;

class KORVANE_API ICodeRegion : public BaseObject {
public:
    typedef boost::intrusive_ptr<ICodeRegion> Ptr;
    virtual jit_rva_t getStartJitRva() const = 0;
    virtual u64_t getLoadTime() const = 0;
    virtual u64_t getUnloadTime() const = 0;
    virtual address_t getStartVirtualAddress() const = 0;
    virtual u32_t getLength() const = 0;
    virtual u32_t getProcessId() const = 0;
    virtual u32_t getHostID() const = 0;
    virtual boost::shared_ptr<IByteBuffer> getBytes() const = 0;
    virtual boost::intrusive_ptr<ISymbol> getInlinedSymbol(jit_rva_t jitRva) const = 0;
    virtual boost::intrusive_ptr<ICodeRegion> getInlinedCodeRegion(jit_rva_t jitRva) const = 0;
};

class KORVANE_API ISymbol : public BaseObject {
public:
    typedef boost::intrusive_ptr<ISymbol> Ptr;
    virtual u32_t getMethodToken() const = 0;
    virtual const char* getMethodName() const = 0;
    virtual const char* getQualifiedMethodName() const = 0;
    virtual const char* getClassName() const = 0;
    virtual boost::intrusive_ptr<IModule> getModule() const = 0;
    virtual boost::intrusive_ptr<ISourceFile> getSourceFile() const = 0;
    virtual skeinkit2::generic_iterator_t<boost::intrusive_ptr<ICodeRegion> > getRegions() const = 0;
    virtual korvane_error_t getVirtualAddress(jit_rva_t jitRva, address_t* address) const = 0;
    virtual korvane_error_t getPid(jit_rva_t jitRva, u32_t& pid) const = 0;
    virtual u64_t getLoadTime() const = 0;
    virtual u64_t getUnloadTime() const = 0;
    virtual korvane_error_t getLineNumberInfo(korvane_line_info_type type, korvane_line_number_entry* entries,
                                              u32_t* count, jit_rva_t jitRva) const = 0;
    virtual korvane_error_t getSourceRange(korvane_line_number_entry* first, korvane_line_number_entry* last,
                                           jit_rva_t jitRva) const = 0;
    virtual boost::intrusive_ptr<ISourceLocation> getSourceLocation(jit_rva_t jitRva) const = 0;
    virtual jit_rva_t getStartJitRva() const = 0;
};

// Implemented by callers; the library only holds a reference to it.
class KORVANE_API ISymbolFileLocator : public BaseObject {};

class KORVANE_API ISymbolResolver : public BaseObject {
public:
    virtual korvane_error_t getHostNameById(u32_t hostId, const char** hostName) const = 0;
    virtual boost::intrusive_ptr<ISymbol> getSymbol(jit_rva_t jitRva) = 0;
    virtual korvane_error_t getCalleeRegion(jit_rva_t callerJitRva, address_t target, jit_rva_t* calleeJitRva) = 0;
    virtual skeinkit2::generic_iterator_t<boost::intrusive_ptr<ISymbol> > getSymbols() = 0;
    virtual korvane_error_t translateToJitRva(u32_t jitId, address_t address, const char* jitFile,
                                              jit_rva_t* jitRva) const = 0;

    // Reads every .jit file of the directories with all detail before it returns.
    static boost::intrusive_ptr<ISymbolResolver> create(skeinkit2::generic_iterator_t<const char*>& paths,
                                                        boost::intrusive_ptr<ISymbolFileLocator>& locator);
    // As above, keeping only the load records of one word size: arch_xa32 selects 32-bit, any other 64-bit.
    static boost::intrusive_ptr<ISymbolResolver> create(skeinkit2::generic_iterator_t<const char*>& paths,
                                                        boost::intrusive_ptr<ISymbolFileLocator>& locator,
                                                        korvane_arch arch);
};

class KORVANE_API IJitProcesses : public BaseObject {
public:
    virtual skeinkit2::generic_iterator_t<u32_t> getJitProcessId() const = 0;

    static boost::intrusive_ptr<IJitProcesses> create(skeinkit2::generic_iterator_t<const char*>& paths);
};

class KORVANE_API IModuleEvaluator : public BaseObject {
public:
    // meSuccess: the path is a place of precompiled or JIT code; meNotFound: it is not.
    virtual korvane_error_t isNativeImage() const = 0;
};

class KORVANE_API IJitLoader : public BaseObject {
public:
    virtual korvane_error_t getHostIdByName(const char* hostName, u32_t* hostId) const = 0;
    virtual korvane_error_t resolveJitPoint(u64_t timestamp, address_t address, u32_t pid, u32_t hostId,
                                            jit_rva_t* jitRva, boost::intrusive_ptr<IModule>& module) = 0;
    virtual boost::intrusive_ptr<IModuleEvaluator> getModuleEvaluator(const char* modulePath) const = 0;

    // Scans the directories; each process is decoded at its first query.
    static boost::intrusive_ptr<IJitLoader> create(skeinkit2::generic_iterator_t<const char*>& paths);
};

// Tells by its path alone whether a module holds precompiled or JIT code.
KORVANE_API korvane_error_t isNativeImage(const ustring& modulePath);

// Our own addition: the full text report of a symbol that a front end gave, disassembly
// included. meNotFound, and nothing written, for a symbol without a module.
KORVANE_API korvane_error_t writeSymbolReport(const ISymbol& symbol, std::ostream& stream);

// Our own addition: the host id of a host name in a resolver's catalogue, as
// IJitLoader::getHostIdByName gives it; 0 for a name it does not know.
KORVANE_API korvane_error_t getHostIdByName(const ISymbolResolver& resolver, const char* hostName, u32_t* hostId);
// Our own addition: a sample answered by a resolver, which has read everything, as
// IJitLoader::resolveJitPoint answers it, and the symbol there besides, so that one front end
// serves both questions: meNotFound, and nothing written, when no JIT code held the address then.
KORVANE_API korvane_error_t resolveJitPoint(const ISymbolResolver& resolver, u64_t timestamp, address_t address,
                                            u32_t pid, u32_t hostId, jit_rva_t* jitRva,
                                            boost::intrusive_ptr<ISymbol>& symbol);
// Our own addition: as above, and the top-level code region that holds the jit RVA besides, so
// that a caller walks into its inlines without listing the method's regions.
KORVANE_API korvane_error_t resolveJitPoint(const ISymbolResolver& resolver, u64_t timestamp, address_t address,
                                            u32_t pid, u32_t hostId, jit_rva_t* jitRva,
                                            boost::intrusive_ptr<ISymbol>& symbol,
                                            boost::intrusive_ptr<ICodeRegion>& region);

// Our own addition: whether a file name ends in ".jit", as trace files do.
KORVANE_API bool isTraceFileName(const ustring& fileName);
// Our own addition: host and process of a trace file name HOST.PID.jit; meNotFound for
// a name of fewer than three dot-separated parts. A process part that holds no number leaves pid alone.
KORVANE_API korvane_error_t parseTraceFileName(const ustring& fileName, u32_t& pid, ustring& hostName);

// Our own addition: one trace file as the front ends number it.
struct TraceFileEntry {
    u32_t hostId;
    ustring hostName;
    u32_t pid;
    jit_rva_t startJitRva; // its jit RVAs run up to startJitRva + size
    u64_t size;
    ustring path;
};
// Our own addition: the trace files of the directories, by host id, process and file,
// as every front end over the same directories numbers them. On a failed scan, its
// result code and no files.
KORVANE_API korvane_error_t listTraceFiles(skeinkit2::generic_iterator_t<const char*>& paths,
                                           std::vector<TraceFileEntry>& files);

// For callers; the library itself never throws it.
class KORVANE_API Exception : public std::exception {
public:
    Exception(korvane_error_t code, const ustring& detail) : m_code(code), m_detail(detail) {}
    korvane_error_t getCode() const { return m_code; }
    ustring getDetail() const { return m_detail; }
    const char* what() const noexcept override { return nullptr; }

private:
    korvane_error_t m_code;
    ustring m_detail;
    ustring m_reserved;
};

} // namespace korvane_3_10

#endif
