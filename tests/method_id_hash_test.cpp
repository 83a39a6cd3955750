// Md5HashGenerator: the texts that stand for a method and the ids made from them.
#include "jitreader/md5_hash_generator.h"
#include "model_builders.h"

#include <gtest/gtest.h>

namespace {

using namespace korvane_test;
using korvane_3_10::BaseMethodId;
using korvane_3_10::u32_t;

JitMethod::Ptr methodIn(u32_t hostId, u32_t processId, korvane_arch arch, bool withRegion = true) {
    const JitMethod::Ptr method = makeMethod(7, "A", "f(int)");
    method->methodInfo()->m_methodToken = 100;
    method->methodInfo()->m_module = korvane_3_10::Module::Ptr(new korvane_3_10::Module("/x/y.so", meNotFound, arch));
    if (withRegion)
        method->addCodeRegion(makeRegion(0x1000, 0x10, 0x500, processId, hostId));
    return method;
}

// A raw id stands with the host, the process and the architecture; without one, the names and the module do.
TEST(MethodIdHashTest, TextsAndTheirDigests) {
    const struct {
        u32_t rawId;
        JitMethod::Ptr method;
        std::string text;
    } cases[] = {
        {1234, methodIn(1, 5678, arch_xa64), "1234.1.56781"},
        {1234, methodIn(2, 5679, arch_xa32), "1234.2.56790"},
        {1234, methodIn(0, 0, arch_xa64, false), "1234.0.01"},
        {0, methodIn(1, 5678, arch_xa32), "100A::f(int)A/x/y.so0"},
        {0, methodIn(9, 9, arch_xa64), "100A::f(int)A/x/y.so1"},
    };
    const korvane_3_10::Md5HashGenerator generator;
    for (const auto& hash : cases)
        EXPECT_EQ(hash.text, generator.hashText(hash.rawId, hash.method));
    // The digest of the text, bytes 0..7 and 8..15 read big-endian.
    EXPECT_EQ((BaseMethodId{0xdc27968aca26c86eull, 0x5da23faea1a3ffe2ull}), generator.getHashValue(1234, cases[0].method));
    EXPECT_EQ((BaseMethodId{0xdf95e5198a52da12ull, 0x5476614f02e8134aull}), generator.getHashValue(0, cases[3].method));
}

TEST(MethodIdHashTest, AddressesAndNamesBesideARawIdDoNotCount) {
    const JitMethod::Ptr other = methodIn(1, 5678, arch_xa64);
    other->codeRegions()[0]->setStartAddress(0x9000);
    const korvane_3_10::Md5HashGenerator generator;
    EXPECT_EQ(generator.getHashValue(0, methodIn(1, 5678, arch_xa64)), generator.getHashValue(0, other));
    other->methodInfo()->setClassName("Other");
    EXPECT_EQ(generator.getHashValue(1234, methodIn(1, 5678, arch_xa64)), generator.getHashValue(1234, other));
}

} // namespace
