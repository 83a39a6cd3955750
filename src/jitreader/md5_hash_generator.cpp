// The 128-bit method id, an MD5 digest of a text that stands for the method.
#include "jitreader/md5_hash_generator.h"

#include "platform/md5.h"

#include <charconv>
#include <string>

namespace korvane_3_10 {

namespace {

u64_t bigEndianWord(const skeinkit2::md5_t::digest_t& digest, std::size_t offset) {
    u64_t word = 0;
    for (std::size_t index = 0; index < 8; ++index)
        word = (word << 8) | digest[offset + index];
    return word;
}

void appendNumber(std::string& text, u32_t number) {
    char digits[10];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof(digits), number);
    text.append(digits, end.ptr);
}

} // namespace

BaseMethodId Md5HashGenerator::getHashValue(u32_t rawId, const JitMethod::Ptr& method) const {
    writeHashText(rawId, method, m_text);
    skeinkit2::md5_t md5;
    md5.update(m_text);
    const skeinkit2::md5_t::digest_t digest = md5.get_digest();
    // Digest bytes 0..7 fill the first word and 8..15 the second, each read
    // big-endian, so that the ids order like the printed digests.
    return BaseMethodId{bigEndianWord(digest, 0), bigEndianWord(digest, 8)};
}

std::string Md5HashGenerator::hashText(u32_t rawId, const JitMethod::Ptr& method) const {
    std::string text;
    writeHashText(rawId, method, text);
    return text;
}

void Md5HashGenerator::writeHashText(u32_t rawId, const JitMethod::Ptr& method, std::string& text) const {
    text.clear();
    if (!method)
        return;
    const Module::Ptr& module = method->methodInfo()->m_module;
    if (rawId != 0) {
        const JitMethod::Regions& regions = method->codeRegions();
        appendNumber(text, rawId);
        text += '.';
        appendNumber(text, regions.empty() ? 0 : regions.front()->hostId());
        text += '.';
        appendNumber(text, regions.empty() ? 0 : regions.front()->processId());
    } else {
        appendNumber(text, method->getMethodToken());
        text += method->getQualifiedMethodName();
        text += method->getClassName();
        if (module)
            text += module->getFilePath();
    }
    // Without a module there is no architecture to tell.
    if (module)
        appendNumber(text, static_cast<u32_t>(module->getArchitecture()));
}

} // namespace korvane_3_10
