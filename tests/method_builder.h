// Hand-built methods and regions for tests that feed the data manager directly.
#ifndef KORVANE_TESTS_METHOD_BUILDER_H
#define KORVANE_TESTS_METHOD_BUILDER_H

#include "jitreader/byte_buffer.h"
#include "jitreader/jit_data_manager.h"

#include <string>
#include <vector>

namespace korvane_test {

using korvane_3_10::JitMethod;
using korvane_3_10::Region;

const korvane_3_10::u32_t kPid = 7;
const korvane_3_10::u32_t kHost = 1;

inline Region::Ptr makeRegion(korvane_3_10::u64_t start, korvane_3_10::u32_t length, korvane_3_10::jit_rva_t jitRva,
                              korvane_3_10::u64_t loadTime, korvane_3_10::u32_t pid = kPid,
                              korvane_3_10::u32_t host = kHost) {
    Region::Ptr region(new Region());
    region->setStartAddress(start);
    region->setLength(length);
    region->setStartJitRva(jitRva);
    region->setLoadTime(loadTime);
    region->setProcessId(pid);
    region->setHostId(host);
    return region;
}

inline boost::shared_ptr<korvane_3_10::IByteBuffer> makeBytes(const std::vector<unsigned char>& bytes) {
    boost::shared_ptr<korvane_3_10::IByteBuffer> buffer = korvane_3_10::IByteBuffer::create();
    buffer->assign(bytes.data(), static_cast<korvane_3_10::u32_t>(bytes.size()));
    return buffer;
}

inline std::vector<unsigned char> bytesOf(const Region& region) {
    const unsigned char* data = static_cast<const unsigned char*>(region.content()->data());
    return std::vector<unsigned char>(data, data + region.content()->size());
}

// A method whose 128-bit id is made from its raw id alone, as the hash does per process.
inline JitMethod::Ptr makeMethod(korvane_3_10::u32_t rawId, korvane_3_10::u64_t loadTime,
                                 const std::vector<Region::Ptr>& regions, korvane_3_10::u32_t rawParentId = 0) {
    JitMethod::Ptr method(new JitMethod());
    method->setRawMethodId(rawId);
    method->setRawParentId(rawParentId);
    method->setLoadTime(loadTime);
    method->methodInfo()->m_baseMethodId = korvane_3_10::BaseMethodId{rawId, 0x5eed};
    if (rawParentId != 0)
        method->methodInfo()->m_baseParentId = korvane_3_10::BaseMethodId{rawParentId, 0x5eed};
    method->methodInfo()->setMethodName("m" + std::to_string(rawId));
    for (const Region::Ptr& region : regions)
        method->addCodeRegion(region);
    if (!regions.empty())
        method->setStartJitRva(regions.front()->startJitRva());
    return method;
}

// An inline record's method: one region without jit RVA.
inline JitMethod::Ptr makeInline(korvane_3_10::u32_t rawId, korvane_3_10::u32_t rawParentId,
                                 korvane_3_10::u64_t start, korvane_3_10::u32_t length,
                                 korvane_3_10::u64_t loadTime = 50) {
    return makeMethod(rawId, loadTime, {makeRegion(start, length, 0, loadTime)}, rawParentId);
}

} // namespace korvane_test

#endif
