// Framing of .jit trace files and decoding of their record payloads.
#ifndef KORVANE_JITREADER_JIT_FILE_DECODER_H
#define KORVANE_JITREADER_JIT_FILE_DECODER_H

#include "jitreader/file_window.h"
#include "jitreader/jit_method.h"
#include "jitreader/jit_trace_format.h"
#include "jitreader/load_record_fields.h"
#include "jitreader/md5_hash_generator.h"
#include "jitreader/module_cache.h"
#include "jitreader/region.h"
#include "jitreader/search_region_callback.h"

#include <vector>

namespace korvane_3_10 {

class JitFileDecoder {
public:
    // A record above this size is malformed, like one cut short: no method comes near it.
    static const u32_t kMaxRecordSize = 64u << 20;

    // One framed record: where it starts, its type and its payload (or value bytes).
    struct Record {
        u64_t offset = 0;
        u32_t type = 0;
        std::vector<char> data;
    };

    // Never fails: a file that can't be opened shows at the first getNextRecord.
    JitFileDecoder(const ustring& path, u32_t pid, u32_t hostId, jit_rva_t startJitRva, decoding_mode_t mode);
    JitFileDecoder(const JitFileDecoder&) = delete;
    JitFileDecoder& operator=(const JitFileDecoder&) = delete;

    korvane_error_t getNextRecord(Record& record);

    // Decodes a code record with the operation of its type; false for any other record.
    // isInlined is written by V3 loads and FunctionUpdate records only.
    bool decodeCodeRecord(const Record& record, JitMethod::Ptr& method, korvane_bool_t* isInlined);
    bool decodeMethodLoadRecordV3(const Record& record, JitMethod::Ptr& method, korvane_bool_t* isInlined);
    bool decodeMethodInlineLoadRecord(const Record& record, JitMethod::Ptr& method) const;
    bool decodeMethodUpdateRecordV2(const Record& record, JitMethod::Ptr& method) const;

    void setSearchCallback(const SearchRegionCallback* callback) { m_searchCallback = callback; }
    u32_t pid() const { return m_pid; }
    u32_t hostId() const { return m_hostId; }
    decoding_mode_t decodingMode() const { return m_decodingMode; }
    u32_t collectorType() const { return m_collectorType; }
    jit_rva_t nextJitRva() const { return m_nextJitRva; }
    bool has32BitModule() const { return m_has32BitModule; }
    bool has64BitModule() const { return m_has64BitModule; }

private:
    bool readExactly(char* target, u32_t count);
    bool readWord(u32_t& word);
    bool readPayload(std::vector<char>& data, u32_t size);
    korvane_error_t readValueRecord(Record& record, const char* failure);
    korvane_error_t readSizedRecord(Record& record, const jittrace::RecordTypeInfo* info);
    bool decodeOlderLoadRecord(const Record& record, JitMethod::Ptr& method, LoadRecordFields::Version version);
    // Returns the first region made, null when none.
    Region::Ptr addCodeRegions(const LoadRecordFields& fields, bool inlined, JitMethod& method) const;
    void addLineTables(const LoadRecordFields& fields, const Region::Ptr& firstRegion, JitMethod& method) const;
    void storeNamesAndModule(const NameFields& names, u32_t languageType, JitMethod& method) const;
    boost::shared_ptr<IByteBuffer> keptBytes(const char* code, u32_t codeSize) const;
    Region::Ptr newRegion(address_t startAddress, u32_t length, u64_t loadTime, jit_rva_t startJitRva,
                          const boost::shared_ptr<IByteBuffer>& bytes) const;
    // The file's one module object of that name, kind and architecture; "[Dynamic code]" for no name.
    Module::Ptr module(const std::string& moduleName, korvane_error_t isBogus, std::uint16_t architecture) const;
    void storeMethodId(u32_t rawId, JitMethod::Ptr& method) const;
    bool findUpdatedRegion(address_t startAddress, u64_t loadTime, u32_t length, Region::Ptr& region,
                           JitMethod::Ptr& method) const;
    Region::Ptr updatedRegion(const Region::Ptr& found, address_t startAddress, u32_t length, u64_t loadTime,
                              const boost::shared_ptr<IByteBuffer>& bytes, korvane_segment_type_t segmentType,
                              const ustring& rangeName) const;

    // Records are copied out of a window over the file, each from its own offset.
    FileWindow m_file;
    u64_t m_filePosition;
    decoding_mode_t m_decodingMode;
    u32_t m_hostId;
    u32_t m_pid;
    u32_t m_collectorType;
    mutable jit_rva_t m_nextJitRva;
    Md5HashGenerator m_hashGenerator;
    const SearchRegionCallback* m_searchCallback;
    bool m_has32BitModule;
    bool m_has64BitModule;
    mutable ModuleCache m_modules;
    // The fields of the load record being decoded; its texts and tables keep their room for the next.
    LoadRecordFields m_loadFields;
};

} // namespace korvane_3_10

#endif
