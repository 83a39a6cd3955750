// The 128-bit method id, an MD5 digest of a text that stands for the method.
#include "jitreader/md5_hash_generator.h"

#include "platform/md5.h"

#include <string>

namespace korvane_3_10 {

namespace {

u64_t bigEndianWord(const skeinkit2::md5_t::digest_t& digest, std::size_t offset) {
    u64_t word = 0;
    for (std::size_t index = 0; index < 8; ++index)
        word = (word << 8) | digest[offset + index];
    return word;
}

} // namespace

BaseMethodId Md5HashGenerator::getHashValue(u32_t rawId, const JitMethod::Ptr& method) const {
    skeinkit2::md5_t md5;
    md5.update(hashText(rawId, method));
    const skeinkit2::md5_t::digest_t digest = md5.get_digest();
    // Digest bytes 0..7 fill the first word and 8..15 the second, each read
    // big-endian, so that the ids order like the printed digests.
    return BaseMethodId{bigEndianWord(digest, 0), bigEndianWord(digest, 8)};
}

std::string Md5HashGenerator::hashText(u32_t rawId, const JitMethod::Ptr& method) const {
    std::string text;
    if (!method)
        return text;
    const Module::Ptr& module = method->methodInfo()->m_module;
    if (rawId != 0) {
        const JitMethod::Regions& regions = method->codeRegions();
        const u32_t hostId = regions.empty() ? 0 : regions.front()->hostId();
        const u32_t processId = regions.empty() ? 0 : regions.front()->processId();
        text = std::to_string(rawId) + "." + std::to_string(hostId) + "." + std::to_string(processId);
    } else {
        text = std::to_string(method->getMethodToken()) + method->getQualifiedMethodName() + method->getClassName() +
               (module ? module->getFilePath() : "");
    }
    // Without a module there is no architecture to tell.
    if (module)
        text += std::to_string(static_cast<u32_t>(module->getArchitecture()));
    return text;
}

} // namespace korvane_3_10
