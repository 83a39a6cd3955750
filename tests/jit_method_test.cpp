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
using korvane_3_10::Range;
using korvane_3_10::SourceFile;
using korvane_3_10::u32_t;

TEST(MethodNameTest, ClassFirstThenMethodWithDotsSplitAndColonsJoined) {
    const struct {
        const char* className;
        const char* methodName;
        const char* expectedClass;
        const char* expectedMethod;
        const char* expectedQualified;
    } names[] = {
        {"A.B", "m(x.Y, int)", "A::B", "A::B::m", "A::B::m(x::Y, int)"},
        {"", "free", "", "free", "free"},
        {"..a..b.", "", "a::b", "", ""},
        {"...", "f", "", "f", "f"},
        {"A", "..", "A", "A::", "A::"},
        {"", "f(a.b...)", "", "f", "f(a::b::)"},
        {"A(x", "m", "A(x", "A", "A(x::m"},
        {"java.util.Map<K, V>", "get", "java::util::Map<K, V>", "java::util::Map<K, V>::get",
         "java::util::Map<K, V>::get"},
    };
    for (const auto& name : names) {
        SCOPED_TRACE(std::string(name.className) + " " + name.methodName);
        const JitMethod::Ptr method = makeMethod(1, name.className, name.methodName);
        EXPECT_STREQ(name.expectedClass, method->getClassName());
        EXPECT_STREQ(name.expectedMethod, method->getMethodName());
        EXPECT_STREQ(name.expectedQualified, method->getQualifiedMethodName());
    }
    // Empty names keep the old ones.
    const JitMethod::Ptr method = makeMethod(1, "A", "f(int)");
    method->methodInfo()->setClassName("");
    method->methodInfo()->setMethodName("");
    EXPECT_STREQ("A::f(int)", method->getQualifiedMethodName());
}

TEST(MethodNameTest, SourceFileIsNullWithoutNameAndNewOnEachCall) {
    korvane_3_10::BaseMethodInfo info;
    info.m_sourceFile = SourceFile("", "abc", 3, 4);
    EXPECT_FALSE(info.getSourceFile());
    info.m_sourceFile = SourceFile("a.java", "abc", 3, 4);
    const korvane_3_10::ISourceFile::Ptr first = info.getSourceFile();
    ASSERT_TRUE(first);
    EXPECT_NE(first.get(), info.getSourceFile().get());
    EXPECT_STREQ("a.java", first->getSourceFileName());
    EXPECT_STREQ("abc", first->getChecksum());
    EXPECT_EQ(3u, first->getChecksumType());
    EXPECT_EQ(4u, first->getLanguageType());
}

TEST(JitMethodTest, VirtualAddressAndProcessOfAJitRva) {
    // Regions at jit RVA 0x100 (address 0x7000, process 11) and 0x200 (address 0x9000, process 22).
    const JitMethod::Ptr method = makeMethod(1);
    method->addCodeRegion(makeRegion(0x7000, 0x10, 0x100, 11));
    method->addCodeRegion(makeRegion(0x9000, 0x10, 0x200, 22));
    const std::pair<korvane_3_10::jit_rva_t, address_t> lookups[] = {
        {0x0FF, 0}, {0x100, 0x7000}, {0x10F, 0x700F}, {0x110, 0}, {0x205, 0x9005}, {0x210, 0}};
    for (const auto& lookup : lookups) {
        SCOPED_TRACE(lookup.first);
        address_t address = 0xDEAD;
        u32_t pid = 0xBEEF;
        const korvane_error_t result = method->getVirtualAddress(lookup.first, &address);
        EXPECT_EQ(result, method->getPid(lookup.first, pid));
        EXPECT_EQ(lookup.second == 0 ? meNotFound : meSuccess, result);
        EXPECT_EQ(lookup.second == 0 ? 0xDEAD : lookup.second, address);
        EXPECT_EQ(lookup.second == 0 ? 0xBEEF : lookup.second < 0x9000 ? 11u : 22u, pid);
    }
    address_t address = 0;
    EXPECT_EQ(meNotFound, makeMethod(1)->getVirtualAddress(0, &address));
}

TEST(JitMethodTest, CloneSharesNamesAndRegionsButNotLineTables) {
    const JitMethod::Ptr method = makeMethod(5, "C", "g");
    method->setRawParentId(6);
    method->setStartJitRva(0x100);
    method->setAttachedToParent(true);
    method->addCodeRegion(makeRegion(0x7000, 0x10, 0x100));
    method->addLineNumberInfo(ltNativeToSource, {entry(0, 0x10, 9)}, Range{0, 0x10});
    const JitMethod::Ptr copy = method->clone();
    EXPECT_EQ(6u, copy->getRawParentId());
    EXPECT_EQ(0x100u, copy->getStartJitRva());
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
    std::ostringstream text;
    text << korvane_3_10::label(*makeMethod(0x2A, "C", "g"));
    EXPECT_EQ("(method id = 0x2a, name = C::g, load time = 0)", text.str());
}

TEST(JitMethodTest, ValidationTellsTheFirstLinePastTheCode) {
    const std::pair<std::vector<korvane_line_number_entry>, std::string> cases[] = {
        {{entry(0, 8, 1), entry(8, 0x10, 2)}, ""},
        {{entry(0x20, 0x10, 2)}, ""}, // the start is not looked at
        {{entry(0, 4, 1), entry(0, 0x11, 5), entry(0, 0x40, 6)}, "(start offset = 0, end offset = 0x11, src line = 0x5)"},
    };
    for (const auto& validation : cases) {
        const JitMethod::Ptr method = makeMethod(1);
        method->addCodeRegion(makeRegion(0x1000, 0x10, 0x500));
        method->addLineNumberInfo(ltNativeToSource, validation.first, Range{0x500, 0x10});
        LogCapture log;
        method->validateSymbolicInfo();
        const std::vector<std::string> errors = log.messages(log4cplus::ERROR_LOG_LEVEL);
        ASSERT_EQ(validation.second.empty() ? 0u : 1u, errors.size()) << validation.second;
        if (!errors.empty()) {
            EXPECT_EQ("Detected line number " + validation.second +
                          " that does not match to code range (ip range = 0x1000-0x1010), at file: "
                          "src/jitreader/jit_method.cpp:",
                      errors[0].substr(0, errors[0].rfind(':') + 1));
        }
    }
    const unsigned long before = TOBREK_2_18::debug::assertionReportCount();
    makeMethod(1)->validateSymbolicInfo();
    EXPECT_EQ(before + 1, TOBREK_2_18::debug::assertionReportCount()) << "a method without region only asserts";
}

TEST(JitMethodTest, ComparisonTellsAboutTheSuppliedSourceFile) {
    const std::string ident = "(method id = 0x2, name = C::g, load time = 0x30)";
    const std::string noOwnFile =
        "Registred method has a null source file " + ident + ". Mapping to source file is not available.";
    const std::string otherFile = "Supplied source file for " + ident +
                                  " is differ from source file of the first code region (src name = a.java). Map "
                                  "to source file will be incorrect.";
    const struct {
        const char* ownFile;
        const char* newFile;
        std::string message; // empty: nothing is said
    } cases[] = {
        {"", "b.java", noOwnFile},
        {"a.java", "",
         "Supplied a null source file for " + ident +
             ". Line number table will be associated with the source file of the first code region (src name = "
             "a.java)"},
        {"a.java", "A.java", otherFile},
        {"a.java", "a.java", ""},
    };
    for (const auto& comparison : cases) {
        const JitMethod::Ptr registered = makeMethod(1, "C", "f");
        registered->methodInfo()->m_sourceFile = SourceFile(comparison.ownFile, "", 0, 0);
        const JitMethod::Ptr supplied = makeMethod(2, "C", "g");
        supplied->setLoadTime(0x30);
        supplied->methodInfo()->m_sourceFile = SourceFile(comparison.newFile, "", 0, 0);
        LogCapture log;
        registered->compareSymbolicInfoTo(supplied);
        const std::vector<std::string> expected =
            comparison.message.empty() ? std::vector<std::string>() : std::vector<std::string>{comparison.message};
        EXPECT_EQ(expected, log.messages(log4cplus::TRACE_LOG_LEVEL));
    }
}

} // namespace
