// The 128-bit method id, an MD5 digest of a text that stands for the method.
#ifndef KORVANE_JITREADER_MD5_HASH_GENERATOR_H
#define KORVANE_JITREADER_MD5_HASH_GENERATOR_H

#include "jitreader/base_method_id.h"
#include "jitreader/jit_method.h"

#include <string>

namespace korvane_3_10 {

class Md5HashGenerator {
public:
    // With a raw id: the id in its process on its host; without: the method's names and place.
    BaseMethodId getHashValue(u32_t rawId, const JitMethod::Ptr& method) const;
    // The text that is hashed, for tests and diagnostics.
    std::string hashText(u32_t rawId, const JitMethod::Ptr& method) const;

private:
    void writeHashText(u32_t rawId, const JitMethod::Ptr& method, std::string& text) const;

    // The text of the last digest: every method read is hashed, and its room serves the next.
    mutable std::string m_text;
};

} // namespace korvane_3_10

#endif
