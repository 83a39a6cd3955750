// Md5HashGenerator: the texts that stand for a method and the ids made from them.
#include "jitreader/md5_hash_generator.h"
#include "model_builders.h"

#include <gtest/gtest.h>

namespace {

using namespace korvane_test;
using korvane_3_10::BaseMethodId;
using korvane_3_10::Md5HashGenerator;
using korvane_3_10::Module;
using korvane_3_10::u32_t;

JitMethod::Ptr methodIn(u32_t hostId, u32_t processId, korvane_arch arch, korvane_3_10::address_t address = 0x1000) {
    JitMethod::Ptr method = makeMethod(7, "A", "f(int)");
    method->methodInfo()->m_methodToken = 100;
    method->methodInfo()->m_module = Module::Ptr(new Module("/x/y.so", meNotFound, arch));
    method->addCodeRegion(makeRegion(address, 0x10, 0x500, processId, hostId));
    return method;
}

struct HashCase {
    const char* name;
    u32_t rawId;
    u32_t hostId;
    u32_t processId;
    korvane_arch arch;
    std::string text;
    BaseMethodId id; // the digest of the text, bytes 0..7 and 8..15 read big-endian
};

const HashCase g_cases[] = {
    {"RawIdOnHostAndProcess", 1234, 1, 5678, arch_xa64, "1234.1.56781", {0xdc27968aca26c86eull, 0x5da23faea1a3ffe2ull}},
    {"OtherHost", 1234, 2, 5678, arch_xa64, "1234.2.56781", {0x7ceb0d03064b2de4ull, 0x04f590dcf6385779ull}},
    {"OtherProcess", 1234, 1, 5679, arch_xa64, "1234.1.56791", {0x71ebe4f98e6fbd95ull, 0x0e6f678fcc7074b1ull}},
    {"ArchitectureZeroStillAppends",
     1234,
     1,
     5678,
     arch_xa32,
     "1234.1.56780",
     {0xf7c30e135b844cdbull, 0xf30b6c55337373f4ull}},
    {"NamesWithoutRawId",
     0,
     1,
     5678,
     arch_xa32,
     "100A::f(int)A/x/y.so0",
     {0xdf95e5198a52da12ull, 0x5476614f02e8134aull}},
    {"NamesOnAnotherArchitecture",
     0,
     9,
     9,
     arch_xa64,
     "100A::f(int)A/x/y.so1",
     {0xef1d90a436bd34c6ull, 0x0aaec83d1679ded2ull}},
};

class MethodIdHashTest : public ::testing::TestWithParam<HashCase> {};

TEST_P(MethodIdHashTest, TextAndDigest) {
    const HashCase& hash = GetParam();
    const JitMethod::Ptr method = methodIn(hash.hostId, hash.processId, hash.arch);
    const Md5HashGenerator generator;
    EXPECT_EQ(hash.text, generator.hashText(hash.rawId, method));
    const BaseMethodId id = generator.getHashValue(hash.rawId, method);
    EXPECT_EQ(hash.id.m_first, id.m_first);
    EXPECT_EQ(hash.id.m_second, id.m_second);
}

INSTANTIATE_TEST_SUITE_P(Texts, MethodIdHashTest, ::testing::ValuesIn(g_cases),
                         [](const ::testing::TestParamInfo<HashCase>& info) { return info.param.name; });

TEST(MethodIdHashTest, RawIdIgnoresNamesAndAddresses) {
    const JitMethod::Ptr first = methodIn(1, 5678, arch_xa64, 0x1000);
    const JitMethod::Ptr second = methodIn(1, 5678, arch_xa64, 0x9000);
    second->methodInfo()->setClassName("Other");
    second->methodInfo()->setMethodName("g");
    const Md5HashGenerator generator;
    EXPECT_EQ(generator.getHashValue(1234, first), generator.getHashValue(1234, second));
}

TEST(MethodIdHashTest, NamesIgnoreAddresses) {
    const Md5HashGenerator generator;
    EXPECT_EQ(generator.getHashValue(0, methodIn(1, 5, arch_xa64, 0x1000)),
              generator.getHashValue(0, methodIn(1, 5, arch_xa64, 0x2000)));
}

TEST(MethodIdHashTest, MethodWithoutRegionHashesAsHostAndProcessZero) {
    JitMethod::Ptr method = makeMethod(1);
    method->methodInfo()->m_module = Module::Ptr(new Module("/m", meNotFound, arch_xa64));
    EXPECT_EQ("1234.0.01", Md5HashGenerator().hashText(1234, method));
}

} // namespace
