// JitMethod and BaseMethodInfo: names, address and process lookups, clones and self checks.
#include "model_builders.h"
#include "test_support.h"

#include "platform/debug.h"

#include <log4cplus/loglevel.h>

#include <gtest/gtest.h>

#include <sstream>

namespace {

using namespace korvane_test;
using korvane_3_10::address_t;
using korvane_3_10::BaseMethodInfo;
using korvane_3_10::ICodeRegion;
using korvane_3_10::Range;
using korvane_3_10::SourceFile;
using korvane_3_10::u32_t;

struct NameCase {
    const char* className;
    const char* methodName;
    const char* expectedClass;
    const char* expectedMethod;
    const char* expectedQualified;
};

const NameCase g_names[] = {
    {"A.B", "m(x.Y, int)", "A::B", "A::B::m", "A::B::m(x::Y, int)"},
    {"", "free", "", "free", "free"},
    {"C", "run", "C", "C::run", "C::run"},
    {"..a..b.", "", "a::b", "", ""},
    {"...", "f", "", "f", "f"},
    {"A", "..", "A", "A::", "A::"},
    {"", "f(a.b...)", "", "f", "f(a::b::)"},
    {"A(x", "m", "A(x", "A", "A(x::m"},
    {"java.util.Map<K, V>", "get", "java::util::Map<K, V>", "java::util::Map<K, V>::get", "java::util::Map<K, V>::get"},
};

class MethodNameTest : public ::testing::TestWithParam<NameCase> {};

TEST_P(MethodNameTest, ClassFirstThenMethod) {
    const NameCase& name = GetParam();
    const JitMethod::Ptr method = makeMethod(1, name.className, name.methodName);
    EXPECT_STREQ(name.expectedClass, method->getClassName());
    EXPECT_STREQ(name.expectedMethod, method->getMethodName());
    EXPECT_STREQ(name.expectedQualified, method->getQualifiedMethodName());
}

INSTANTIATE_TEST_SUITE_P(Names, MethodNameTest, ::testing::ValuesIn(g_names));

TEST(MethodNameTest, EmptyNamesKeepOldOnes) {
    BaseMethodInfo info;
    info.setClassName("A");
    info.setMethodName("f(int)");
    info.setClassName("");
    info.setMethodName("");
    EXPECT_EQ("A", info.m_className);
    EXPECT_EQ("A::f", info.m_methodName);
    EXPECT_EQ("A::f(int)", info.m_qualifiedMethodName);
}

TEST(MethodNameTest, SourceFileIsNullWithoutNameAndNewOnEachCall) {
    BaseMethodInfo info;
    info.m_sourceFile = SourceFile("", "abc", 3, 4);
    EXPECT_FALSE(info.getSourceFile());
    info.m_sourceFile = SourceFile("a.java", "abc", 3, 4);
    const korvane_3_10::ISourceFile::Ptr first = info.getSourceFile();
    const korvane_3_10::ISourceFile::Ptr second = info.getSourceFile();
    ASSERT_TRUE(first && second);
    EXPECT_NE(first.get(), second.get());
    EXPECT_STREQ("a.java", first->getSourceFileName());
    EXPECT_STREQ("abc", first->getChecksum());
    EXPECT_EQ(3u, first->getChecksumType());
    EXPECT_EQ(4u, first->getLanguageType());
}

// Regions at jit RVA 0x100 (address 0x7000, process 11) and 0x200 (address 0x9000, process 22).
class AddressLookupTest : public ::testing::TestWithParam<std::pair<korvane_3_10::jit_rva_t, address_t>> {
protected:
    void SetUp() override {
        m_method = makeMethod(1);
        m_method->addCodeRegion(makeRegion(0x7000, 0x10, 0x100, 11));
        m_method->addCodeRegion(makeRegion(0x9000, 0x10, 0x200, 22));
    }
    JitMethod::Ptr m_method;
};

TEST_P(AddressLookupTest, AddressAndProcess) {
    const address_t expected = GetParam().second;
    address_t address = 0xDEAD;
    u32_t pid = 0xBEEF;
    const korvane_error_t result = m_method->getVirtualAddress(GetParam().first, &address);
    EXPECT_EQ(result, m_method->getPid(GetParam().first, pid));
    if (expected == 0) {
        EXPECT_EQ(meNotFound, result);
        EXPECT_EQ(0xDEADu, address);
        EXPECT_EQ(0xBEEFu, pid);
        return;
    }
    EXPECT_EQ(meSuccess, result);
    EXPECT_EQ(expected, address);
    EXPECT_EQ(expected < 0x9000 ? 11u : 22u, pid);
}

INSTANTIATE_TEST_SUITE_P(Lookups, AddressLookupTest,
                         ::testing::Values(std::make_pair(0x0FF, 0), std::make_pair(0x100, 0x7000),
                                           std::make_pair(0x10F, 0x700F), std::make_pair(0x110, 0),
                                           std::make_pair(0x205, 0x9005), std::make_pair(0x210, 0)));

TEST(JitMethodTest, MethodWithoutRegionsFindsNothing) {
    const JitMethod::Ptr method = makeMethod(1);
    address_t address = 0;
    u32_t pid = 0;
    EXPECT_EQ(meNotFound, method->getVirtualAddress(0, &address));
    EXPECT_EQ(meNotFound, method->getPid(0, pid));
    EXPECT_TRUE(method->getRegions().at_end());
}

TEST(JitMethodTest, CloneSharesNamesAndRegionsButNotLineTables) {
    const JitMethod::Ptr method = makeMethod(5, "C", "g");
    method->setRawParentId(6);
    method->setStartJitRva(0x100);
    method->setLoadTime(0x30);
    method->setAttachedToParent(true);
    method->addCodeRegion(makeRegion(0x7000, 0x10, 0x100));
    method->addLineNumberInfo(ltNativeToSource, {entry(0, 0x10, 9)}, Range{0, 0x10});

    const JitMethod::Ptr copy = method->clone();
    EXPECT_EQ(method->getMethodName(), copy->getMethodName());
    EXPECT_EQ(5u, copy->getRawMethodId());
    EXPECT_EQ(6u, copy->getRawParentId());
    EXPECT_EQ(0x100u, copy->getStartJitRva());
    EXPECT_EQ(0x30u, copy->getLoadTime());
    EXPECT_TRUE(copy->attachedToParent());
    ASSERT_EQ(1u, copy->regionCount());
    EXPECT_EQ(method->codeRegions()[0], copy->codeRegions()[0]);

    copy->normalizeLineNumberInfoJitRvaRanges(0x500);
    EXPECT_EQ(0u, method->getLineNumberInfo().begin()->first.m_start);
    EXPECT_EQ(0x500u, copy->getLineNumberInfo().begin()->first.m_start);
    copy->addCodeRegion(makeRegion(0x8000, 0x10, 0x200));
    EXPECT_EQ(1u, method->regionCount());
    method->methodInfo()->setMethodName("h");
    EXPECT_STREQ("C::h", copy->getMethodName());
}

TEST(JitMethodTest, LabelPrintsHexWithZeroAsZero) {
    const JitMethod::Ptr method = makeMethod(0x2A, "C", "g");
    std::ostringstream text;
    text << korvane_3_10::label(*method);
    EXPECT_EQ("(method id = 0x2a, name = C::g, load time = 0)", text.str());
}

struct ValidateCase {
    const char* name;
    std::vector<korvane_line_number_entry> nativeToSource;
    std::string error; // the one message expected, or empty
};

const ValidateCase g_validateCases[] = {
    {"EndOnTheRegionEnd", {entry(0, 8, 1), entry(8, 0x10, 2)}, ""},
    {"StartIsNotLookedAt", {entry(0x20, 0x10, 2)}, ""},
    {"OneBytePastTheEnd", {entry(0, 0x11, 5)}, "(start offset = 0, end offset = 0x11, src line = 0x5)"},
    {"OnlyTheFirstOffenderIsTold",
     {entry(0, 4, 1), entry(0, 0x12, 5), entry(0, 0x40, 6)},
     "(start offset = 0, end offset = 0x12, src line = 0x5)"},
};

class ValidateSymbolicInfoTest : public ::testing::TestWithParam<ValidateCase> {};

TEST_P(ValidateSymbolicInfoTest, MessagesAboutLinesPastTheCode) {
    const JitMethod::Ptr method = makeMethod(1);
    method->addCodeRegion(makeRegion(0x1000, 0x10, 0x500));
    method->addLineNumberInfo(ltNativeToSource, GetParam().nativeToSource, Range{0x500, 0x10});
    LogCapture log;
    method->validateSymbolicInfo();
    const std::vector<std::string> errors = log.messages(log4cplus::ERROR_LOG_LEVEL);
    if (GetParam().error.empty()) {
        EXPECT_TRUE(errors.empty());
        return;
    }
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(
        "Detected line number " + GetParam().error +
            " that does not match to code range (ip range = 0x1000-0x1010), at file: src/jitreader/jit_method.cpp:",
        errors[0].substr(0, errors[0].rfind(':') + 1));
}

INSTANTIATE_TEST_SUITE_P(Lines, ValidateSymbolicInfoTest, ::testing::ValuesIn(g_validateCases),
                         [](const ::testing::TestParamInfo<ValidateCase>& info) { return info.param.name; });

TEST(ValidateSymbolicInfoTest, WithoutRegionOnlyAsserts) {
    const JitMethod::Ptr method = makeMethod(1);
    const unsigned long before = TOBREK_2_18::debug::assertionReportCount();
    method->validateSymbolicInfo();
    EXPECT_EQ(before + 1, TOBREK_2_18::debug::assertionReportCount());
}

struct CompareCase {
    const char* ownFile;
    const char* newFile;
    std::string message; // empty: nothing is said
};

const std::string g_ident = "(method id = 0x2, name = C::g, load time = 0x30)";
const std::string g_noOwnFile =
    "Registred method has a null source file " + g_ident + ". Mapping to source file is not available.";
const std::string g_noNewFile = "Supplied a null source file for " + g_ident +
                                ". Line number table will be associated with the source file of the first code "
                                "region (src name = a.java)";
const std::string g_otherFile = "Supplied source file for " + g_ident +
                                " is differ from source file of the first code region (src name = a.java). Map to "
                                "source file will be incorrect.";

const CompareCase g_compareCases[] = {
    {"", "", g_noOwnFile},
    {"", "b.java", g_noOwnFile},
    {"a.java", "", g_noNewFile},
    {"a.java", "b.java", g_otherFile},
    {"a.java", "A.java", g_otherFile},
    {"a.java", "a.java", ""},
};

class CompareSymbolicInfoTest : public ::testing::TestWithParam<CompareCase> {};

TEST_P(CompareSymbolicInfoTest, TellsAboutTheArgument) {
    const JitMethod::Ptr registered = makeMethod(1, "C", "f");
    registered->methodInfo()->m_sourceFile = SourceFile(GetParam().ownFile, "", 0, 0);
    const JitMethod::Ptr supplied = makeMethod(2, "C", "g");
    supplied->setLoadTime(0x30);
    supplied->methodInfo()->m_sourceFile = SourceFile(GetParam().newFile, "", 0, 0);
    LogCapture log;
    registered->compareSymbolicInfoTo(supplied);
    const std::vector<std::string> traces = log.messages(log4cplus::TRACE_LOG_LEVEL);
    if (GetParam().message.empty()) {
        EXPECT_TRUE(traces.empty());
        return;
    }
    ASSERT_EQ(1u, traces.size());
    EXPECT_EQ(GetParam().message, traces[0]);
}

INSTANTIATE_TEST_SUITE_P(Files, CompareSymbolicInfoTest, ::testing::ValuesIn(g_compareCases));

} // namespace
