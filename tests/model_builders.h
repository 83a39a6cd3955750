// Hand-built regions, methods and byte buffers, and a data manager fed with them, for the tests
// and benchmarks of the method model.
#ifndef KORVANE_TESTS_MODEL_BUILDERS_H
#define KORVANE_TESTS_MODEL_BUILDERS_H

#include "jitreader/byte_buffer.h"
#include "jitreader/jit_data_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace korvane_test {

using korvane_3_10::JitMethod;
using korvane_3_10::Region;

const korvane_3_10::u32_t kPid = 4242;
const korvane_3_10::u32_t kHost = 3;

inline boost::shared_ptr<korvane_3_10::IByteBuffer> bufferOf(const std::vector<unsigned char>& bytes) {
    boost::shared_ptr<korvane_3_10::IByteBuffer> buffer = korvane_3_10::IByteBuffer::create();
    buffer->assign(bytes.data(), static_cast<korvane_3_10::u32_t>(bytes.size()));
    return buffer;
}

// The bytes of a buffer; none when there is no buffer.
inline std::vector<unsigned char> bytesOf(const boost::shared_ptr<korvane_3_10::IByteBuffer>& buffer) {
    if (!buffer || !buffer->data())
        return std::vector<unsigned char>();
    const unsigned char* data = static_cast<const unsigned char*>(buffer->data());
    return std::vector<unsigned char>(data, data + buffer->size());
}

// A region at an address; what is not named is jit RVA 0, load time 0x10, process kPid on host kHost, no bytes.
struct RegionSpec {
    korvane_3_10::address_t start = 0;
    korvane_3_10::u32_t length = 0;
    korvane_3_10::jit_rva_t jitRva = 0;
    korvane_3_10::u64_t loadTime = 0x10;
    korvane_3_10::u32_t pid = kPid;
    korvane_3_10::u32_t host = kHost;

    RegionSpec& rva(korvane_3_10::jit_rva_t value) { jitRva = value; return *this; }
    RegionSpec& loaded(korvane_3_10::u64_t value) { loadTime = value; return *this; }
    RegionSpec& in(korvane_3_10::u32_t processId, korvane_3_10::u32_t hostId) {
        pid = processId;
        host = hostId;
        return *this;
    }
    operator Region::Ptr() const { return build(); }
    Region::Ptr build() const {
        Region::Ptr region(new Region());
        region->setStartAddress(start);
        region->setLength(length);
        region->setStartJitRva(jitRva);
        region->setLoadTime(loadTime);
        region->setProcessId(pid);
        region->setHostId(host);
        return region;
    }
};

inline RegionSpec regionAt(korvane_3_10::address_t start, korvane_3_10::u32_t length) {
    RegionSpec region;
    region.start = start;
    region.length = length;
    return region;
}

// A method of a raw id, whose 128-bit ids are made from the raw ids alone, as the hash does per process.
// Unless named, it is method "m<id>" of no class; its jit RVA is its first region's.
struct MethodSpec {
    korvane_3_10::u32_t rawId = 0;
    korvane_3_10::u32_t rawParentId = 0;
    korvane_3_10::u64_t loadTime = 0;
    bool isNamed = false;
    std::string className;
    std::string methodName;
    std::vector<Region::Ptr> regions;

    MethodSpec& parent(korvane_3_10::u32_t id) { rawParentId = id; return *this; }
    MethodSpec& loaded(korvane_3_10::u64_t value) { loadTime = value; return *this; }
    MethodSpec& named(const std::string& theClass, const std::string& method) {
        isNamed = true;
        className = theClass;
        methodName = method;
        return *this;
    }
    MethodSpec& with(const std::vector<Region::Ptr>& code) { regions = code; return *this; }
    operator JitMethod::Ptr() const { return build(); }
    JitMethod::Ptr build() const {
        JitMethod::Ptr method(new JitMethod());
        method->setRawMethodId(rawId);
        method->setRawParentId(rawParentId);
        method->setLoadTime(loadTime);
        method->methodInfo()->m_baseMethodId = korvane_3_10::BaseMethodId{rawId, 0x5eed};
        if (rawParentId != 0)
            method->methodInfo()->m_baseParentId = korvane_3_10::BaseMethodId{rawParentId, 0x5eed};
        method->methodInfo()->setClassName(className);
        method->methodInfo()->setMethodName(isNamed ? methodName : "m" + std::to_string(rawId));
        for (const Region::Ptr& region : regions)
            method->addCodeRegion(region);
        if (!regions.empty())
            method->setStartJitRva(regions.front()->startJitRva());
        return method;
    }
};

inline MethodSpec methodOf(korvane_3_10::u32_t rawId) {
    MethodSpec method;
    method.rawId = rawId;
    return method;
}

inline korvane_line_number_entry entry(korvane_3_10::u32_t start, korvane_3_10::u32_t end, korvane_3_10::u32_t line) {
    return korvane_line_number_entry{start, end, line};
}

// The names of the manager's methods, sorted.
inline std::vector<std::string> methodNames(const korvane_3_10::JitDataManager& manager) {
    std::vector<std::string> names;
    for (auto walk = manager.getJitMethods(); !walk.at_end(); walk.next())
        names.push_back(walk.current()->getMethodName());
    std::sort(names.begin(), names.end());
    return names;
}

// A data manager and the calls that feed it records of process kPid on host kHost.
struct Store {
    explicit Store(korvane_3_10::u32_t collectorType = 0) { manager.setCollectorType(collectorType); }

    korvane_error_t load(JitMethod::Ptr method) { return manager.processMethodLoadRecord(kPid, kHost, method); }
    korvane_error_t loadInline(JitMethod::Ptr method) {
        return manager.processMethodInlineLoadRecord(kPid, kHost, method);
    }
    // Loads a method of one region, which must succeed.
    JitMethod::Ptr loadCode(korvane_3_10::u32_t id, korvane_3_10::u64_t start, korvane_3_10::u32_t length,
                            korvane_3_10::jit_rva_t jitRva, korvane_3_10::u64_t loadTime) {
        const JitMethod::Ptr method =
            methodOf(id).loaded(loadTime).with({regionAt(start, length).rva(jitRva).loaded(loadTime)});
        EXPECT_EQ(meSuccess, load(method));
        return method;
    }

    korvane_3_10::JitDataManager manager;
};

} // namespace korvane_test

#endif
