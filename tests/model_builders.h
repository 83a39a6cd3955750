// Small builders of regions and methods for the tests and benchmarks of the method model.
#ifndef KORVANE_TESTS_MODEL_BUILDERS_H
#define KORVANE_TESTS_MODEL_BUILDERS_H

#include "jitreader/jit_method.h"
#include "jitreader/region.h"

#include <string>
#include <vector>

namespace korvane_test {

using korvane_3_10::JitMethod;
using korvane_3_10::Region;

inline boost::shared_ptr<korvane_3_10::IByteBuffer> makeBuffer(const std::vector<unsigned char>& bytes) {
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

inline Region::Ptr makeRegion(korvane_3_10::address_t address, korvane_3_10::u32_t length,
                              korvane_3_10::jit_rva_t jitRva = 0, korvane_3_10::u32_t processId = 1,
                              korvane_3_10::u32_t hostId = 1) {
    Region::Ptr region(new Region());
    region->setStartAddress(address);
    region->setLength(length);
    region->setStartJitRva(jitRva);
    region->setProcessId(processId);
    region->setHostId(hostId);
    region->setLoadTime(0x10);
    return region;
}

inline JitMethod::Ptr makeMethod(korvane_3_10::u32_t rawId, const std::string& className = std::string(),
                                 const std::string& methodName = std::string()) {
    JitMethod::Ptr method(new JitMethod());
    method->setRawMethodId(rawId);
    method->methodInfo()->setClassName(className);
    method->methodInfo()->setMethodName(methodName);
    return method;
}

inline korvane_line_number_entry entry(korvane_3_10::u32_t start, korvane_3_10::u32_t end, korvane_3_10::u32_t line) {
    return korvane_line_number_entry{start, end, line};
}

} // namespace korvane_test

#endif
