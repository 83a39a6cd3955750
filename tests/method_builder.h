// Hand-built methods and regions, and a data manager fed with them directly.
#ifndef KORVANE_TESTS_METHOD_BUILDER_H
#define KORVANE_TESTS_METHOD_BUILDER_H

#include "jitreader/byte_buffer.h"
#include "jitreader/jit_data_manager.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace korvane_test {

using namespace korvane_3_10;

const u32_t kPid = 7;
const u32_t kHost = 1;

inline Region::Ptr makeRegion(u64_t start, u32_t length, jit_rva_t jitRva, u64_t loadTime) {
    Region::Ptr region(new Region());
    region->setStartAddress(start);
    region->setLength(length);
    region->setStartJitRva(jitRva);
    region->setLoadTime(loadTime);
    region->setProcessId(kPid);
    region->setHostId(kHost);
    return region;
}

inline boost::shared_ptr<IByteBuffer> makeBytes(const std::vector<unsigned char>& bytes) {
    boost::shared_ptr<IByteBuffer> buffer = IByteBuffer::create();
    buffer->assign(bytes.data(), static_cast<u32_t>(bytes.size()));
    return buffer;
}

inline std::vector<unsigned char> bytesOf(const Region& region) {
    const unsigned char* data = static_cast<const unsigned char*>(region.content()->data());
    return std::vector<unsigned char>(data, data + region.content()->size());
}

// A method whose 128-bit id is made from its raw id alone, as the hash does per process.
inline JitMethod::Ptr makeMethod(u32_t rawId, u64_t loadTime, const std::vector<Region::Ptr>& regions,
                                 u32_t rawParentId = 0) {
    JitMethod::Ptr method(new JitMethod());
    method->setRawMethodId(rawId);
    method->setRawParentId(rawParentId);
    method->setLoadTime(loadTime);
    method->methodInfo()->m_baseMethodId = BaseMethodId{rawId, 0x5eed};
    if (rawParentId != 0)
        method->methodInfo()->m_baseParentId = BaseMethodId{rawParentId, 0x5eed};
    method->methodInfo()->setMethodName("m" + std::to_string(rawId));
    for (const Region::Ptr& region : regions)
        method->addCodeRegion(region);
    if (!regions.empty())
        method->setStartJitRva(regions.front()->startJitRva());
    return method;
}

// An inline record's method: one region without jit RVA.
inline JitMethod::Ptr makeInline(u32_t rawId, u32_t rawParentId, u64_t start, u32_t length, u64_t loadTime = 50) {
    return makeMethod(rawId, loadTime, {makeRegion(start, length, 0, loadTime)}, rawParentId);
}

// A data manager and the calls that feed it records of process kPid on host kHost.
struct Store {
    explicit Store(u32_t collectorType = 0) { manager.setCollectorType(collectorType); }

    korvane_error_t load(JitMethod::Ptr method) { return manager.processMethodLoadRecord(kPid, kHost, method); }
    korvane_error_t loadInline(JitMethod::Ptr method) {
        return manager.processMethodInlineLoadRecord(kPid, kHost, method);
    }
    // Loads a method of one region, which must succeed.
    JitMethod::Ptr loadCode(u32_t id, u64_t start, u32_t length, jit_rva_t jitRva, u64_t loadTime) {
        const JitMethod::Ptr method = makeMethod(id, loadTime, {makeRegion(start, length, jitRva, loadTime)});
        EXPECT_EQ(meSuccess, load(method));
        return method;
    }

    JitDataManager manager;
};

} // namespace korvane_test

#endif
