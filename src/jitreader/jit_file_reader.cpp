// The loop that reads one .jit file into a data manager.
#include "jitreader/jit_file_reader.h"

#include "jitreader/jit_data_manager.h"
#include "jitreader/logging.h"

KORVANE_DEFINE_FILE_LOGGER()

namespace korvane_3_10 {

namespace {

typedef JitFileDecoder::Record Record;

// What the loop does after a record.
struct Step {
    enum Kind { Next, Finish, Stop } kind;
    korvane_error_t result;

    static Step next() { return Step{Next, meSuccess}; }
    static Step finish() { return Step{Finish, meSuccess}; }
    static Step stop(korvane_error_t result) { return Step{Stop, result}; }
    static Step stopOnFailure(korvane_error_t result) { return result == meSuccess ? next() : stop(result); }
};

// A load record of the width the caller doesn't want ends the file.
bool isOtherWidth(target_arch_t arch, const jittrace::RecordTypeInfo& info) {
    if (info.kind != jittrace::rkLoad)
        return false;
    const unsigned wanted = static_cast<unsigned>(arch);
    return (wanted > 1 && info.width == 32) || ((wanted & ~2u) != 0 && info.width == 64);
}

// When one file holds 32-bit and 64-bit code, the 64-bit modules get their own names.
void patchModuleName64(JitMethodStorage& methods) {
    for (const JitMethod::Ptr& method : methods) {
        KORVANE_ASSERT_TEXT(method, "method");
        if (!method)
            continue;
        BaseMethodInfo& info = *method->methodInfo();
        KORVANE_ASSERT_TEXT(info.m_module, "module");
        if (!info.m_module || info.m_module->getArchitecture() != arch_xa64)
            continue;
        const char* path = info.m_module->getFilePath();
        KORVANE_ASSERT_TEXT(path, "path");
        info.m_module.reset(new Module(std::string(path ? path : "") + " (64)", info.m_module->isBogus(),
                                       info.m_module->getArchitecture()));
    }
}

// The state of one pass over a file: the decoder, the manager and what has
// been given to it so far.
class FileReading {
public:
    FileReading(JitFileDecoder& decoder, target_arch_t arch, JitDataManager& manager)
        : m_decoder(decoder), m_arch(arch), m_manager(manager), m_isInlined(0) {}

    korvane_error_t run();

private:
    Step dispatch(const Record& record);
    Step load(const Record& record);
    Step functionUpdate(const Record& record);
    Step updateV2(const Record& record);
    Step inlineLoad(const Record& record);
    Step loadOrInline(JitMethod::Ptr& method);
    korvane_error_t finish();

    JitFileDecoder& m_decoder;
    target_arch_t m_arch;
    JitDataManager& m_manager;
    JitMethodStorage m_methods;
    // Written by every V3 record and by nothing else: an older record behind
    // an inlined V3 record takes the inline road as well.
    korvane_bool_t m_isInlined;
};

korvane_error_t FileReading::run() {
    m_manager.setCollectorType(0);
    // One record at a time, its buffer kept from one to the next.
    Record record;
    for (;;) {
        const korvane_error_t result = m_decoder.getNextRecord(record);
        if (result == meEndOfFile)
            return finish();
        if (result != meSuccess)
            return result;
        const Step step = dispatch(record);
        if (step.kind == Step::Finish)
            return finish();
        if (step.kind == Step::Stop)
            return step.result;
    }
}

Step FileReading::dispatch(const Record& record) {
    const jittrace::RecordTypeInfo* info = jittrace::findRecordType(record.type);
    if (!info)
        return Step::stop(meMalformedRecord);
    if (isOtherWidth(m_arch, *info))
        return Step::finish();
    switch (info->kind) {
    case jittrace::rkMagic:
        // A second Magic starts another trace that this file doesn't own.
        return record.offset == 0 ? Step::next() : Step::finish();
    case jittrace::rkCollectorType:
        m_manager.setCollectorType(m_decoder.collectorType());
        return Step::next();
    case jittrace::rkLoad:
        return load(record);
    case jittrace::rkUpdate:
        return functionUpdate(record);
    case jittrace::rkUpdateV2:
        return updateV2(record);
    case jittrace::rkInlineLoad:
        return inlineLoad(record);
    }
    return Step::stop(meMalformedRecord);
}

Step FileReading::load(const Record& record) {
    JitMethod::Ptr method(new JitMethod());
    if (!m_decoder.decodeCodeRecord(record, method, &m_isInlined))
        return Step::next();
    return loadOrInline(method);
}

Step FileReading::loadOrInline(JitMethod::Ptr& method) {
    if (m_isInlined == 1)
        return Step::stopOnFailure(
            m_manager.processMethodInlineLoadRecord(m_decoder.pid(), m_decoder.hostId(), method));
    const korvane_error_t result = m_manager.processMethodLoadRecord(m_decoder.pid(), m_decoder.hostId(), method);
    m_methods.push_back(method);
    return Step::stopOnFailure(result);
}

Step FileReading::functionUpdate(const Record& record) {
    JitMethod::Ptr method(new JitMethod());
    const bool decoded = m_decoder.decodeCodeRecord(record, method, &m_isInlined);
    // Applying updates needs the code bytes, which only the full mode keeps.
    if (decoded && m_decoder.decodingMode() == dmFull)
        m_manager.processMethodUpdateRecord(m_decoder.pid(), m_decoder.hostId(), method);
    return Step::next();
}

Step FileReading::updateV2(const Record& record) {
    JitMethod::Ptr method(new JitMethod());
    if (!m_decoder.decodeCodeRecord(record, method, &m_isInlined)) {
        KORVANE_LOG_ERROR("Failed to decode a UPDATE_V2 record");
        return Step::next();
    }
    // An updated method enters the domains like a newly loaded one.
    if (m_manager.processMethodLoadRecord(m_decoder.pid(), m_decoder.hostId(), method) != meSuccess)
        KORVANE_LOG_ERROR("Failed to process a UPDATE_V2 record");
    return Step::next();
}

Step FileReading::inlineLoad(const Record& record) {
    JitMethod::Ptr method(new JitMethod());
    if (!m_decoder.decodeCodeRecord(record, method, &m_isInlined))
        return Step::next();
    if (m_manager.processMethodInlineLoadRecord(m_decoder.pid(), m_decoder.hostId(), method) != meSuccess)
        return Step::stop(meMalformedRecord);
    return Step::next();
}

korvane_error_t FileReading::finish() {
    if (m_manager.getCollectorType() == ctJitProfiler && m_decoder.has32BitModule() && m_decoder.has64BitModule() &&
        !m_methods.empty())
        patchModuleName64(m_methods);
    m_manager.finalize();
    return meSuccess;
}

} // namespace

korvane_error_t JitFileReader::readJitFile(JitFileDecoder& decoder, target_arch_t arch, JitDataManager& manager) {
    KORVANE_TRACE_SCOPE();
    return FileReading(decoder, arch, manager).run();
}

} // namespace korvane_3_10
