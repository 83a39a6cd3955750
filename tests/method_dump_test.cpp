// The method report, the list of live regions and the tree of inlines, to the character.
#include "model_builders.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace {

using namespace korvane_test;
using korvane_3_10::Module;
using korvane_3_10::Range;
using korvane_3_10::SourceFile;

JitMethod::Ptr reportedMethod(korvane_arch arch = arch_xa64) {
    JitMethod::Ptr method = makeMethod(0x12, "A", "f(int)");
    method->setLoadTime(0x30);
    method->methodInfo()->m_methodToken = 0x6000001;
    method->methodInfo()->m_module = Module::Ptr(new Module("/x/y.so", meNotFound, arch));
    method->methodInfo()->m_sourceFile = SourceFile("A.java", "abc", 0x1a, 0xb);
    return method;
}

const std::string g_header = "Method id:       0x12\n"
                             "Parent id:       0x0\n"
                             "Metadata token:  0x6000001\n"
                             "Load time:       0x30\n"
                             "Name:            A::f\n"
                             "Full name:       A::f(int)\n"
                             "Class:           A\n"
                             "Module:          /x/y.so\n"
                             "Module arch:     xa64\n"
                             "Source file:     A.java\n"
                             "Checksum type:   1a\n"
                             "Checksum:        abc\n"
                             "Language type:   b\n"
                             "Code info:\n";

const std::string g_emptyTables = "Managed to source map: (ILOffset, lineNo)\n"
                                  "number of lines: 0\n"
                                  "Native to managed map: (nativeStartOffset-nativeEndOffset, ILOffset)\n"
                                  "number of lines: 0\n"
                                  "Native to source map: (nativeStartOffset-nativeEndOffset, LineNo)\n"
                                  "number of lines: 0";

std::string report(JitMethod& method) {
    std::ostringstream stream;
    stream << method;
    return stream.str();
}

TEST(MethodReportTest, MethodWithoutRegionsEndsWithTheCount) {
    JitMethod::Ptr method = reportedMethod();
    EXPECT_EQ(g_header + "number of code regions: 0\n", report(*method));
}

TEST(MethodReportTest, RegionWithBytesAndLineTables) {
    JitMethod::Ptr method = reportedMethod();
    Region::Ptr region = makeRegion(0x7f1000, 2, 0x500);
    region->setContent(makeBuffer({0x31, 0xC0}));
    method->addCodeRegion(region);
    method->addLineNumberInfo(ltNativeToSource, {entry(0, 1, 10), entry(1, 2, 11)}, Range{0x500, 2});
    method->addLineNumberInfo(ltManagedToSource, {entry(0, 3, 255)}, Range{0x500, 2});
    method->addLineNumberInfo(ltNativeToManaged, {entry(0, 2, 0)}, Range{0x500, 2});
    EXPECT_EQ(g_header + "number of code regions: 1\n"
                         "  Code region:   1\n"
                         "  JitRVA range:  0x500-0x502\n"
                         "  startAddr:     0x7f1000\n"
                         "  size:          0x2\n"
                         "  IP range:      0x7f1000-0x7f1002\n"
                         "  Disassembly:\n"
                         "  XDIS 7f1000:    LOGICAL  BASE                 31C0  xor eax, eax\n"
                         "Managed to source map: (ILOffset, lineNo)\n"
                         "number of lines: 1\n"
                         "    0-3  255\n"
                         "Native to managed map: (nativeStartOffset-nativeEndOffset, ILOffset)\n"
                         "number of lines: 1\n"
                         "    0-2  0\n"
                         "Native to source map: (nativeStartOffset-nativeEndOffset, LineNo)\n"
                         "number of lines: 2\n"
                         "    0-1  10\n"
                         "    1-2  11",
              report(*method));
}

TEST(MethodReportTest, NextRegionGoesOnInTheLastTablesLine) {
    JitMethod::Ptr method = reportedMethod();
    method->addCodeRegion(makeRegion(0x1000, 0x10, 0x500));
    method->addCodeRegion(makeRegion(0x2000, 0x10, 0x600));
    // Only the first region's key holds tables, so the second's counts are all 0.
    method->addLineNumberInfo(ltNativeToSource, {entry(0, 0x10, 7)}, Range{0x500, 0x10});
    const std::string text = report(*method);
    const std::string junction = "number of lines: 1\n    0-16  7  Code region:   2\n"
                                 "  JitRVA range:  0x600-0x610\n"
                                 "  startAddr:     0x2000\n"
                                 "  size:          0x10\n"
                                 "  IP range:      0x2000-0x2010\n"
                                 "  Disassembly:\n" +
                                 g_emptyTables;
    ASSERT_GE(text.size(), junction.size());
    EXPECT_EQ(junction, text.substr(text.size() - junction.size()));
}

struct ArchCase {
    korvane_arch arch;
    const char* name;
    const char* disassembly;
};

class MethodReportArchTest : public ::testing::TestWithParam<ArchCase> {};

TEST_P(MethodReportArchTest, NameAndDisassembly) {
    JitMethod::Ptr method = reportedMethod(GetParam().arch);
    Region::Ptr region = makeRegion(0x10, 1, 0x500);
    region->setContent(makeBuffer({0xC3}));
    method->addCodeRegion(region);
    const std::string text = report(*method);
    EXPECT_NE(std::string::npos, text.find(std::string("Module arch:     ") + GetParam().name + "\n")) << text;
    EXPECT_NE(std::string::npos, text.find(std::string("  Disassembly:\n") + GetParam().disassembly)) << text;
}

INSTANTIATE_TEST_SUITE_P(
    Architectures, MethodReportArchTest,
    ::testing::Values(ArchCase{arch_xa32, "xa32", "  XDIS 10:        RET  BASE                   C3  ret\n"},
                      ArchCase{arch_xa64, "xa64", "  XDIS 10:        RET  BASE                   C3  ret\n"},
                      ArchCase{arch_wa64, "wa64", "  XDIS 10:        RET  BASE                   C3  ret\n"},
                      ArchCase{arch_cc64, "cc64", "  wrong architecture of code\n"},
                      ArchCase{static_cast<korvane_arch>(4), "UNKNOWN", "  wrong architecture of code\n"}));

TEST(MethodReportTest, EmptyNamesLeaveTheLabelsBare) {
    JitMethod::Ptr method(new JitMethod());
    method->methodInfo()->m_module = Module::Ptr(new Module("", meSuccess, arch_xa32));
    const std::string text = report(*method);
    EXPECT_NE(std::string::npos,
              text.find("\nName:            \nFull name:       \nClass:           \nModule:          \n"));
    EXPECT_NE(std::string::npos, text.find("\nSource file:     \nChecksum type:   0\nChecksum:        \n"));
}

TEST(MethodReportTest, BytesShorterThanTheRegionAreNotOverrun) {
    JitMethod::Ptr method = reportedMethod();
    Region::Ptr region = makeRegion(0x10, 0x40, 0x500);
    region->setContent(makeBuffer({0xC3}));
    method->addCodeRegion(region);
    EXPECT_NE(std::string::npos, report(*method).find("  Disassembly:\n  XDIS 10:        RET  BASE                   "
                                                      "C3  ret\nManaged to source map"));
}

TEST(MethodReportTest, FlagsComeBackAndTheFillStaysZero) {
    JitMethod::Ptr method = reportedMethod();
    std::ostringstream stream;
    stream << std::uppercase << std::showbase;
    stream << *method;
    EXPECT_EQ('0', stream.fill());
    EXPECT_TRUE(stream.flags() & std::ios_base::uppercase);
    EXPECT_TRUE(stream.flags() & std::ios_base::dec);
    stream << std::hex << 255;
    EXPECT_NE(std::string::npos, stream.str().find("Method id:       0x12\n"));
    EXPECT_EQ("0XFF", stream.str().substr(stream.str().size() - 4));
}

TEST(MethodReportTest, MethodWithoutModuleIsNotDumped) {
    JitMethod::Ptr method = makeMethod(1);
    EXPECT_EQ("", report(*method));
}

TEST(DumpRegionsTest, TreeOfInlines) {
    JitMethod::Ptr method = makeMethod(1);
    Region::Ptr region = makeRegion(0x7f00, 0x40, 0x500);
    Region::Ptr inner = makeRegion(0x7f10, 0x10);
    inner->addChildRegion(makeRegion(0x7f14, 4), makeMethod(0x13, "", "deeper"));
    region->addChildRegion(inner, makeMethod(0x12, "", "inner"));
    region->addChildRegion(makeRegion(0x7f30, 8), makeMethod(0x14, "", "other"));
    method->addCodeRegion(region);
    EXPECT_EQ("\nCode region #1 (ip range = 0x7f00-0x7f40)"
              "\n   #1 inner (method id = 0x12, ip range = 0x7f10-0x7f20)"
              "\n       #1 deeper (method id = 0x13, ip range = 0x7f14-0x7f18)"
              "\n   #2 other (method id = 0x14, ip range = 0x7f30-0x7f38)",
              method->dumpRegions());
}

TEST(DumpRegionsTest, UnloadedRegionsKeepTheirNumber) {
    JitMethod::Ptr method = makeMethod(1);
    method->addCodeRegion(makeRegion(0x1000, 0x10, 0x500));
    Region::Ptr gone = makeRegion(0x2000, 0x10, 0x600);
    gone->setUnloadTime(0x40);
    method->addCodeRegion(gone);
    method->addCodeRegion(makeRegion(0x3000, 0x10, 0x700));
    EXPECT_EQ("\nCode region #1 (ip range = 0x1000-0x1010)\nCode region #3 (ip range = 0x3000-0x3010)",
              method->dumpRegions());
}

TEST(DumpInlinesTest, IndentPutsTheHashInItsColumn) {
    Region::Ptr region = makeRegion(0x1000, 0x10, 0x500);
    region->addChildRegion(makeRegion(0, 4), makeMethod(0, "", "z"));
    for (const int indent : {1, 4, 8}) {
        korvane_3_10::ustringstream stream;
        region->dumpInlines(stream, static_cast<korvane_3_10::u32_t>(indent));
        EXPECT_EQ("\n" + std::string(static_cast<std::size_t>(indent - 1), ' ') +
                      "#1 z (method id = 0x0, ip range = 0x0-0x4)",
                  stream.str());
    }
}

TEST(DumpInlinesTest, NestingBeyondSixtyFourLevelsIsCut) {
    Region::Ptr top = makeRegion(0x1000, 0x100, 0x500);
    Region::Ptr parent = top;
    for (int level = 0; level < 100; ++level) {
        Region::Ptr child = makeRegion(0x1000, 0x100);
        parent->addChildRegion(child, makeMethod(1, "", "m"));
        parent = child;
    }
    korvane_3_10::ustringstream stream;
    top->dumpInlines(stream, 4);
    const std::string text = stream.str();
    EXPECT_EQ(64, std::count(text.begin(), text.end(), '#'));
}

} // namespace
