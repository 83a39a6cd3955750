// Framing of .jit trace files and decoding of their record payloads.
#include "jitreader/jit_file_decoder.h"

#include "jitreader/byte_buffer.h"
#include "jitreader/inline_record_fields.h"
#include "jitreader/java_signature_parser.h"
#include "jitreader/logging.h"
#include "jitreader/method_report.h"
#include "jitreader/payload_reader.h"
#include "jitreader/update_record_fields.h"

KORVANE_DEFINE_FILE_LOGGER()

namespace korvane_3_10 {

namespace {

typedef LoadRecordFields::Version Version;

const char* const kDynamicCode = "[Dynamic code]";
const char* const kCompiledJavaCode = "[Compiled Java code]";

// The older load records are refused as a whole when they run past their
// payload, so their fields need no report of their own.
class IgnoredFields : public FieldReader::Check {
public:
    void operator()(const PayloadReader&, bool) override {}
};

// The checks of one record's fields against its size. Only the first field that
// leaves no room is reported: the fields behind it lie further out, and a record
// that claims more than it holds reports it once, whatever it claims.
class SizeCheck : public FieldReader::Check {
public:
    void operator()(const PayloadReader& in, bool mayEnd) override {
        if (m_reported)
            return;
        const bool fits = mayEnd ? in.position() <= in.size() : in.position() < in.size();
        if (fits)
            return;
        m_reported = true;
        if (mayEnd)
            KORVANE_ASSERT_TEXT(fits, "bytesRead <= traceSize");
        else
            KORVANE_ASSERT_TEXT(fits, "bytesRead < traceSize");
    }

private:
    bool m_reported = false;
};

// The same for the update records, whose payload may not end after any field.
class LengthCheck : public FieldReader::Check {
public:
    void operator()(const PayloadReader& in, bool) override {
        if (m_reported || in.position() < in.size())
            return;
        m_reported = true;
        KORVANE_ASSERT_TEXT(in.position() < in.size(), "bytesRead < traceLen");
    }
    bool reported() const { return m_reported; }

private:
    bool m_reported = false;
};

// Logs the refusal of a field, if there is one.
bool isRefused(const FieldRefusal& refusal) {
    if (!refusal.refused())
        return false;
    KORVANE_LOG_ERROR(refusal.message << hex(refusal.value));
    return true;
}

// Reads the fields of a record with its size check; false, with the refusal
// logged, when a field holds a value the record may not.
template <typename Fields>
bool readFields(const JitFileDecoder::Record& record, FieldReader::Check& check, Fields& fields) {
    PayloadReader payload(record.data);
    FieldReader in(payload, check);
    fields = Fields::read(in);
    return !isRefused(fields.refusal);
}

bool isJavaClassShape(const std::string& className) {
    return !className.empty() && className.front() == 'L' && className.back() == ';';
}

const std::string& dynamicCode() {
    static const std::string name(kDynamicCode);
    return name;
}

const std::string& compiledJavaCode() {
    static const std::string name(kCompiledJavaCode);
    return name;
}

bool isDefaultModuleName(const std::string& moduleName) {
    return moduleName.empty() || moduleName == kDynamicCode || moduleName == kCompiledJavaCode;
}

void ensureMethod(JitMethod::Ptr& method) {
    if (!method)
        method.reset(new JitMethod());
}

void setNames(BaseMethodInfo& info, const std::string& className, const std::string& methodName) {
    // The class goes first: the method names are built on it.
    if (!className.empty())
        info.setClassName(className);
    if (!methodName.empty())
        info.setMethodName(methodName);
}

void addLineTable(JitMethod& method, korvane_line_info_type type,
                  const std::vector<korvane_line_number_entry>& entries, const Range& range) {
    if (!entries.empty())
        method.addLineNumberInfo(type, entries, range);
}

void logRawData(JitMethod& method) {
    if (!KORVANE_INFO_ENABLED())
        return;
    KORVANE_LOG_INFO("Raw JIT file data:\n" << method);
}

} // namespace

JitFileDecoder::JitFileDecoder(const ustring& path, u32_t pid, u32_t hostId, jit_rva_t startJitRva,
                               decoding_mode_t mode)
    : m_filePosition(0), m_decodingMode(mode), m_hostId(hostId), m_pid(pid), m_collectorType(0),
      m_nextJitRva(startJitRva), m_searchCallback(nullptr), m_has32BitModule(false), m_has64BitModule(false) {
    KORVANE_LOG_TRACE("\njitPath: " << path << "\npid: " << pid << "\nhostId: " << hostId);
    m_file.open(path);
}

korvane_error_t JitFileDecoder::getNextRecord(Record& record) {
    KORVANE_TRACE_SCOPE();
    if (!m_file.isOpen()) {
        KORVANE_LOG_ERROR("Couldn't open the jit file");
        return meFileNotOpen;
    }
    record.offset = m_filePosition;
    if (!readWord(record.type))
        return meEndOfFile;
    m_filePosition += 4;

    const jittrace::RecordTypeInfo* info = jittrace::findRecordType(record.type);
    if (!info || info->framing == jittrace::rfSized)
        return readSizedRecord(record, info);
    KORVANE_LOG_TRACE(info->logText);
    if (info->kind == jittrace::rkMagic)
        return readValueRecord(record, "Couldn't process the magic trace");
    const korvane_error_t result = readValueRecord(record, "Couldn't process the collector type trace");
    if (result != meSuccess)
        return result;
    m_collectorType = static_cast<u32_t>(littleEndian(record.data.data(), 4));
    KORVANE_LOG_TRACE("Value: " << m_collectorType);
    return meSuccess;
}

// Every read starts at the position of what it reads, never where the last one stopped.
bool JitFileDecoder::readExactly(char* target, u32_t count) {
    return m_file.readAt(m_filePosition, target, count) == count;
}

bool JitFileDecoder::readWord(u32_t& word) {
    char bytes[4] = {0, 0, 0, 0};
    if (!readExactly(bytes, 4))
        return false;
    word = static_cast<u32_t>(littleEndian(bytes, 4));
    return true;
}

bool JitFileDecoder::readPayload(std::vector<char>& data, u32_t size) {
    data.resize(size);
    return readExactly(data.data(), size);
}

korvane_error_t JitFileDecoder::readValueRecord(Record& record, const char* failure) {
    if (!readPayload(record.data, 4)) {
        KORVANE_LOG_ERROR(failure);
        return meMalformedRecord;
    }
    m_filePosition += 4;
    return meSuccess;
}

korvane_error_t JitFileDecoder::readSizedRecord(Record& record, const jittrace::RecordTypeInfo* info) {
    if (!info) {
        KORVANE_LOG_ERROR("Couldn't recognize type of the jit trace");
        return meMalformedRecord;
    }
    KORVANE_LOG_INFO(info->logText);
    u32_t size = 0;
    if (!readWord(size)) {
        KORVANE_LOG_ERROR("Couldn't read size of the jit trace");
        return meMalformedRecord;
    }
    m_filePosition += 4;
    const u64_t remaining = m_file.size() > m_filePosition ? m_file.size() - m_filePosition : 0;
    // A size beyond the end of the file is a cut-off payload, and one above the
    // limit is malformed the same way: both are refused before anything is
    // allocated for them.
    if (size == 0 || size > remaining) {
        KORVANE_LOG_ERROR("Couldn't read content of the jit trace");
        return meMalformedRecord;
    }
    if (size > kMaxRecordSize) {
        KORVANE_LOG_ERROR("Couldn't read content of the jit trace because its size "
                          << hex(size) << " is above the limit of " << hex(kMaxRecordSize) << " bytes");
        return meMalformedRecord;
    }
    if (!readPayload(record.data, size)) {
        KORVANE_LOG_ERROR("Couldn't read content of the jit trace");
        return meMalformedRecord;
    }
    m_filePosition += size;
    return meSuccess;
}

bool JitFileDecoder::decodeCodeRecord(const Record& record, JitMethod::Ptr& method, korvane_bool_t* isInlined) {
    const jittrace::RecordTypeInfo* info = jittrace::findRecordType(record.type);
    if (!info)
        return false;
    switch (info->kind) {
    case jittrace::rkLoad:
        // The table's version numbers 0 to 3 are the versions of the layout.
        if (info->version < 3)
            return decodeOlderLoadRecord(record, method, static_cast<Version>(info->version));
        return decodeMethodLoadRecordV3(record, method, isInlined);
    case jittrace::rkUpdate:
        return decodeMethodLoadRecordV3(record, method, isInlined);
    case jittrace::rkInlineLoad:
        return decodeMethodInlineLoadRecord(record, method);
    case jittrace::rkUpdateV2:
        return decodeMethodUpdateRecordV2(record, method);
    default:
        return false;
    }
}

bool JitFileDecoder::decodeOlderLoadRecord(const Record& record, JitMethod::Ptr& method, Version version) {
    const bool modulesOnly = version != Version::V2 && (m_decodingMode & dmModulesOnly) != 0;
    PayloadReader payload(record.data);
    IgnoredFields ignoreField;
    FieldReader in(payload, ignoreField);
    LoadRecordFields::read(in, version, modulesOnly, m_loadFields);
    const LoadRecordFields& fields = m_loadFields;
    // Everything is checked before anything is built, so that a refused
    // record leaves neither the method nor the jit RVA counter touched.
    if (in.overrun())
        return false;
    if (fields.rangeCount != 0 && fields.ranges.empty())
        return false;
    if (fields.ranges.empty() && fields.hasLineTables())
        return false;

    ensureMethod(method);
    BaseMethodInfo& info = *method->methodInfo();
    method->setStartJitRva(m_nextJitRva);
    method->setLoadTime(fields.loadTime);
    info.m_methodToken = fields.methodToken;
    const Region::Ptr firstRegion = addCodeRegions(fields, false, *method);
    if (version != Version::V2) {
        info.m_module = module(fields.names.moduleName, meNotFound, fields.names.architecture);
        if (modulesOnly)
            return true;
    }
    setNames(info, fields.names.className, fields.names.methodName);
    info.m_sourceFile =
        SourceFileInfo(fields.names.sourceFileName, fields.checksum, fields.checksumType, fields.languageType);
    if (version == Version::V2) {
        const bool javaWithoutModule = fields.languageType == kLanguageJava && fields.names.moduleName.empty();
        const std::string moduleName = javaWithoutModule ? kCompiledJavaCode : fields.names.moduleName;
        info.m_module =
            module(moduleName, isDefaultModuleName(moduleName) ? meSuccess : meNotFound, fields.names.architecture);
    }
    if (firstRegion)
        addLineTables(fields, firstRegion, *method);
    storeMethodId(version == Version::V2 ? fields.methodId : 0, method);
    return true;
}

bool JitFileDecoder::decodeMethodLoadRecordV3(const Record& record, JitMethod::Ptr& method,
                                              korvane_bool_t* isInlined) {
    KORVANE_TRACE_SCOPE();
    KORVANE_ASSERT_TEXT(!record.data.empty(), "traceSize");
    PayloadReader payload(record.data);
    SizeCheck checkTraceSize;
    FieldReader in(payload, checkTraceSize);
    LoadRecordFields::read(in, Version::V3, false, m_loadFields);
    const LoadRecordFields& fields = m_loadFields;
    if (isInlined)
        *isInlined = fields.isInlined;
    const bool inlined = fields.isInlined != 0;

    ensureMethod(method);
    BaseMethodInfo& info = *method->methodInfo();
    method->setRawMethodId(fields.methodId);
    method->setStartJitRva(inlined ? 0 : m_nextJitRva);
    method->setLoadTime(fields.loadTime);
    info.m_methodToken = fields.methodToken;
    if (fields.rangeCount != 0 && fields.ranges.empty()) {
        KORVANE_LOG_ERROR("The bytes of the code are not supplied");
        return false;
    }
    if (fields.ranges.empty() && fields.hasLineTables()) {
        KORVANE_LOG_ERROR("Line number info is supplied without a code range");
        return false;
    }
    const Region::Ptr firstRegion = addCodeRegions(fields, inlined, *method);
    if (fields.names.architecture == arch_xa32)
        m_has32BitModule = true;
    else if (fields.names.architecture == arch_xa64)
        m_has64BitModule = true;
    info.m_sourceFile =
        SourceFileInfo(fields.names.sourceFileName, fields.checksum, fields.checksumType, fields.languageType);
    storeNamesAndModule(fields.names, fields.languageType, *method);
    if (firstRegion)
        addLineTables(fields, firstRegion, *method);
    storeMethodId(fields.methodId, method);
    logRawData(*method);
    method->validateSymbolicInfo();
    return true;
}

bool JitFileDecoder::decodeMethodInlineLoadRecord(const Record& record, JitMethod::Ptr& method) const {
    KORVANE_TRACE_SCOPE();
    KORVANE_ASSERT(record.type == KORVANE3_TRACE_JITTRACE(FunctionInlineLoad32) ||
                   record.type == KORVANE3_TRACE_JITTRACE(FunctionInlineLoad64));
    KORVANE_ASSERT_TEXT(!record.data.empty(), "traceSize");
    ensureMethod(method);
    SizeCheck checkTraceSize;
    InlineRecordFields fields;
    if (!readFields(record, checkTraceSize, fields))
        return false;

    const CodeRangeFields& range = fields.range;
    method->setRawMethodId(fields.methodId);
    method->setRawParentId(fields.parentId);
    method->setStartJitRva(0);
    method->setLoadTime(fields.loadTime);
    method->addCodeRegion(
        newRegion(range.startAddress, range.length, fields.loadTime, 0, keptBytes(fields.code, range.codeSize)));
    method->methodInfo()->m_sourceFile = SourceFileInfo(fields.names.sourceFileName, std::string(), 0, fields.languageType);
    storeNamesAndModule(fields.names, fields.languageType, *method);
    addLineTable(*method, ltNativeToSource, fields.nativeToSource, Range{0, range.length});
    storeMethodId(fields.methodId, method);
    method->methodInfo()->m_baseParentId = m_hashGenerator.getHashValue(fields.parentId, method);
    logRawData(*method);
    method->validateSymbolicInfo();
    return true;
}

bool JitFileDecoder::decodeMethodUpdateRecordV2(const Record& record, JitMethod::Ptr& method) const {
    KORVANE_TRACE_SCOPE();
    KORVANE_ASSERT(record.type == KORVANE3_TRACE_JITTRACE(FunctionUpdate_v2));
    ensureMethod(method);
    KORVANE_ASSERT_TEXT(!record.data.empty(), "traceLen");
    LengthCheck checkTraceLen;
    UpdateRecordFields fields;
    if (!readFields(record, checkTraceLen, fields))
        return false;

    const CodeRangeFields& range = fields.range;
    KORVANE_LOG_INFO("Update range: " << hex(range.startAddress) << "-" << hex(range.startAddress + range.length)
                                      << ", loadTime = " << hex(fields.loadTime));
    Region::Ptr found;
    JitMethod::Ptr foundMethod;
    if (m_searchCallback && !findUpdatedRegion(range.startAddress, fields.loadTime, range.length, found, foundMethod))
        return false;
    const boost::shared_ptr<IByteBuffer> bytes = keptBytes(fields.code, range.codeSize);
    if (!checkTraceLen.reported())
        KORVANE_ASSERT_TEXT(fields.codeEndsPayload, "bytesRead == traceLen");

    method->setStartJitRva(m_nextJitRva);
    method->setLoadTime(fields.loadTime);
    method->methodInfo()->m_module = module(kDynamicCode, meSuccess, fields.architecture);
    if (foundMethod)
        method->setRawMethodId(foundMethod->getRawMethodId());
    const Region::Ptr region = updatedRegion(found, range.startAddress, range.length, fields.loadTime, bytes,
                                             static_cast<korvane_segment_type_t>(fields.segmentType), fields.rangeName);
    if (!region)
        return false;
    method->addCodeRegion(region);
    storeMethodId(method->getRawMethodId(), method);
    logRawData(*method);
    return true;
}

bool JitFileDecoder::findUpdatedRegion(address_t startAddress, u64_t loadTime, u32_t length, Region::Ptr& region,
                                       JitMethod::Ptr& method) const {
    const korvane_error_t result = m_searchCallback->findRegion(startAddress, loadTime, m_pid, m_hostId, region, method);
    if (result != meSuccess || !region || !method) {
        KORVANE_LOG_ERROR("Couldn't find a range to be updated");
        return false;
    }
    KORVANE_ASSERT_TEXT(method->getRawMethodId() != 0, "updMethod->getRawMethodId()");
    KORVANE_ASSERT_TEXT(region->length() != 0, "updRegion->length()");
    if (length > region->length()) {
        KORVANE_LOG_ERROR("Couldn't update the detected range (" << hex(region->startAddress()) << "-"
                                                                  << hex(region->endAddress())
                                                                  << ") because it's size is small");
        return false;
    }
    return true;
}

Region::Ptr JitFileDecoder::updatedRegion(const Region::Ptr& found, address_t startAddress, u32_t length,
                                          u64_t loadTime, const boost::shared_ptr<IByteBuffer>& bytes,
                                          korvane_segment_type_t segmentType, const ustring& rangeName) const {
    if (!found)
        return newRegion(startAddress, length, loadTime, 0, bytes);
    // The update owns a new jit RVA range as long as the whole region it changes.
    const jit_rva_t startJitRva = m_nextJitRva;
    m_nextJitRva += found->length();
    if ((m_decodingMode & dmFull) == 0)
        return newRegion(found->startAddress(), found->length(), loadTime, startJitRva,
                         boost::shared_ptr<IByteBuffer>());
    Region::Ptr copy(new Region(*found));
    copy->setStartJitRva(startJitRva);
    copy->setLoadTime(loadTime);
    if (copy->addBytesUpdate(startAddress, length, bytes, segmentType, rangeName) == meNotFound)
        return Region::Ptr();
    return copy;
}

Region::Ptr JitFileDecoder::addCodeRegions(const LoadRecordFields& fields, bool inlined, JitMethod& method) const {
    Region::Ptr firstRegion;
    for (const LoadRecordFields::CodeRange& range : fields.ranges) {
        // An inline's regions get their jit RVA from the parent later; until
        // then they hold their index in the record.
        jit_rva_t startJitRva = range.index;
        if (!inlined) {
            startJitRva = m_nextJitRva;
            m_nextJitRva += range.length;
        }
        const Region::Ptr region = newRegion(range.startAddress, range.length, fields.loadTime, startJitRva,
                                             keptBytes(range.code, range.codeSize));
        method.addCodeRegion(region);
        if (!firstRegion)
            firstRegion = region;
    }
    return firstRegion;
}

void JitFileDecoder::addLineTables(const LoadRecordFields& fields, const Region::Ptr& firstRegion,
                                   JitMethod& method) const {
    // All tables of a record describe its first region, however many it has.
    const Range range{firstRegion->startJitRva(), firstRegion->length()};
    addLineTable(method, ltManagedToSource, fields.managedToSource, range);
    addLineTable(method, ltNativeToManaged, fields.nativeToManaged, range);
    addLineTable(method, ltNativeToSource, fields.nativeToSource, range);
}

void JitFileDecoder::storeNamesAndModule(const NameFields& names, u32_t languageType, JitMethod& method) const {
    // The names are copied only where the Java forms are rewritten: every record passes here.
    const std::string* moduleName = &names.moduleName;
    const std::string* methodName = &names.methodName;
    const std::string* className = &names.className;
    bool javaNames = false;
    if (languageType == kLanguageJava) {
        javaNames = true;
        if (moduleName->empty())
            moduleName = &compiledJavaCode();
    } else if (isJavaClassShape(*className)) {
        javaNames = true;
        if (moduleName->empty())
            moduleName = &dynamicCode();
    }
    std::string javaMethodName;
    std::string javaClassName;
    if (javaNames && !methodName->empty()) {
        javaMethodName = JavaSignatureParser::parseMethodName(*methodName);
        methodName = &javaMethodName;
    }
    if (javaNames && !className->empty()) {
        javaClassName = JavaSignatureParser::parseClassName(*className);
        className = &javaClassName;
    }

    BaseMethodInfo& info = *method.methodInfo();
    setNames(info, *className, *methodName);
    const bool bogus = isDefaultModuleName(*moduleName) || m_collectorType == ctJitProfiler;
    info.m_module = module(*moduleName, bogus ? meSuccess : meNotFound, names.architecture);
}

boost::shared_ptr<IByteBuffer> JitFileDecoder::keptBytes(const char* code, u32_t codeSize) const {
    if (!code || codeSize == 0 || (m_decodingMode & dmFull) == 0)
        return boost::shared_ptr<IByteBuffer>();
    return ByteBuffer::copyOf(code, codeSize);
}

Region::Ptr JitFileDecoder::newRegion(address_t startAddress, u32_t length, u64_t loadTime, jit_rva_t startJitRva,
                                      const boost::shared_ptr<IByteBuffer>& bytes) const {
    const Region::Ptr region(new Region());
    region->setStartJitRva(startJitRva);
    region->setHostId(m_hostId);
    region->setProcessId(m_pid);
    region->setLoadTime(loadTime);
    region->setUnloadTime(0);
    region->setStartAddress(startAddress);
    region->setLength(length);
    region->setContent(bytes);
    return region;
}

Module::Ptr JitFileDecoder::module(const std::string& moduleName, korvane_error_t isBogus,
                                   std::uint16_t architecture) const {
    return m_modules.get(moduleName.empty() ? kDynamicCode : moduleName, isBogus,
                         static_cast<korvane_arch>(architecture));
}

void JitFileDecoder::storeMethodId(u32_t rawId, JitMethod::Ptr& method) const {
    method->methodInfo()->m_baseMethodId = m_hashGenerator.getHashValue(rawId, method);
}

} // namespace korvane_3_10
