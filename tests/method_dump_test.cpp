// The method report, the list of live regions and the tree of inlines, to the character.
#include "trace_builder.h"
#include "trace_decoding_support.h"

#include <korvane/jitreader.h>

#include <log4cplus/loglevel.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace {

using namespace korvane_test;
using korvane_3_10::Module;
using korvane_tracewriter::LoadRecord;
using korvane_tracewriter::TraceWriter;

// The one INFO message that begins with the text, without that text; or "none".
std::string messageAfter(const LogCapture& log, const std::string& start) {
    for (const std::string& message : log.messages(log4cplus::INFO_LOG_LEVEL))
        if (message.compare(0, start.size(), start) == 0)
            return message.substr(start.size());
    return "none";
}

// The report the decoder logs for the record.
std::string reportOf(const LoadRecord& load) {
    LogCapture log(log4cplus::INFO_LOG_LEVEL);
    EXPECT_TRUE(decodeLast(TraceWriter().loadV3(load)).accepted);
    return messageAfter(log, "Raw JIT file data:\n");
}

const std::string g_emptyTables = "Managed to source map: (ILOffset, lineNo)\nnumber of lines: 0\n"
                                  "Native to managed map: (nativeStartOffset-nativeEndOffset, ILOffset)\n"
                                  "number of lines: 0\n"
                                  "Native to source map: (nativeStartOffset-nativeEndOffset, LineNo)\nnumber of lines: 0";

LoadRecord javaMethod() {
    LoadRecord load;
    load.methodId = 0x21;
    load.methodToken = 0x600002a;
    load.loadTime = 0x40;
    load.moduleName = "/opt/jdk/lib/server/libjvm.so";
    load.className = "Ljava/lang/String;";
    load.methodName = "charAt(I)C";
    load.sourceFileName = "String.java";
    load.checksumType = 0x1a;
    load.checksum = "abc";
    load.languageType = 0x1c;
    return load;
}

const std::string g_header = "Method id:       0x21\n"
                             "Parent id:       0x0\n"
                             "Metadata token:  0x600002a\n"
                             "Load time:       0x40\n"
                             "Name:            java::lang::String::charAt\n"
                             "Full name:       java::lang::String::charAt(int)\n"
                             "Class:           java::lang::String\n"
                             "Module:          /opt/jdk/lib/server/libjvm.so\n"
                             "Module arch:     xa64\n"
                             "Source file:     String.java\n"
                             "Checksum type:   1a\n"
                             "Checksum:        abc\n"
                             "Language type:   1c\n"
                             "Code info:\n";

TEST(MethodReportTest, MethodWithoutRegionsEndsWithTheCount) {
    EXPECT_EQ(g_header + "number of code regions: 0\n", reportOf(javaMethod()));
}

// The tables follow the region whose key holds them; the next region goes on in the last table line,
// and bytes shorter than their region are not overrun.
TEST(MethodReportTest, RegionsWithBytesAndLineTables) {
    LoadRecord load = javaMethod();
    load.ranges = {{0x7f1000, 3, {0x31, 0xC0, 0xC3}}, {0x7f2000, 0x40, {0xC3}}};
    load.nativeToSource = {{0, 2, 658}, {2, 3, 660}};
    load.managedToSource = {{0, 3, 255}};
    load.nativeToManaged = {{0, 2, 0}};
    EXPECT_EQ(g_header + "number of code regions: 2\n"
                         "  Code region:   1\n"
                         "  JitRVA range:  0x1000-0x1003\n"
                         "  startAddr:     0x7f1000\n"
                         "  size:          0x3\n"
                         "  IP range:      0x7f1000-0x7f1003\n"
                         "  Disassembly:\n"
                         "  XDIS 7f1000:    LOGICAL  BASE                 31C0  xor eax, eax\n"
                         "  XDIS 7f1002:        RET  BASE                   C3  ret\n"
                         "Managed to source map: (ILOffset, lineNo)\nnumber of lines: 1\n    0-3  255\n"
                         "Native to managed map: (nativeStartOffset-nativeEndOffset, ILOffset)\n"
                         "number of lines: 1\n    0-2  0\n"
                         "Native to source map: (nativeStartOffset-nativeEndOffset, LineNo)\n"
                         "number of lines: 2\n    0-2  658\n    2-3  660"
                         "  Code region:   2\n"
                         "  JitRVA range:  0x1003-0x1043\n"
                         "  startAddr:     0x7f2000\n"
                         "  size:          0x40\n"
                         "  IP range:      0x7f2000-0x7f2040\n"
                         "  Disassembly:\n"
                         "  XDIS 7f2000:        RET  BASE                   C3  ret\n" +
                  g_emptyTables,
              reportOf(load));
}

JitMethod::Ptr methodIn(korvane_arch arch) {
    const JitMethod::Ptr method = makeMethod(0x12, "A", "f(int)");
    method->methodInfo()->m_module = Module::Ptr(new Module("/x/y.so", meNotFound, arch));
    const Region::Ptr region = makeRegion(0x10, 1, 0x500);
    region->setContent(makeBuffer({0xC3}));
    method->addCodeRegion(region);
    return method;
}

TEST(MethodReportTest, ArchitectureNameAndDisassembly) {
    const std::string ret = "  XDIS 10:        RET  BASE                   C3  ret\n";
    const std::string wrong = "  wrong architecture of code\n";
    const std::pair<korvane_arch, std::string> cases[] = {{arch_xa32, "xa32\n"},
                                                          {arch_xa64, "xa64\n"},
                                                          {arch_wa64, "wa64\n"},
                                                          {arch_cc64, "cc64\n"},
                                                          {static_cast<korvane_arch>(4), "UNKNOWN\n"}};
    for (const auto& arch : cases) {
        std::ostringstream stream;
        stream << *methodIn(arch.first);
        const std::string disassembly = arch.first == arch_cc64 || arch.first == 4 ? wrong : ret;
        EXPECT_NE(std::string::npos, stream.str().find("Module arch:     " + arch.second)) << stream.str();
        EXPECT_NE(std::string::npos, stream.str().find("  Disassembly:\n" + disassembly)) << stream.str();
    }
}

TEST(MethodReportTest, FlagsComeBackAndTheFillStaysZero) {
    std::ostringstream stream;
    stream << std::uppercase << std::showbase << *methodIn(arch_xa64);
    EXPECT_EQ('0', stream.fill());
    EXPECT_TRUE(stream.flags() & std::ios_base::uppercase);
    stream << std::hex << 255;
    EXPECT_EQ(0u, stream.str().find("Method id:       0x12\n"));
    EXPECT_EQ("0XFF", stream.str().substr(stream.str().size() - 4));
    std::ostringstream none;
    none << *makeMethod(1);
    EXPECT_EQ("", none.str()) << "a method without module is not dumped";
}

TEST(DumpRegionsTest, RegionListAfterAnInlineArrives) {
    TempDir dir;
    dir.write("host.7.jit", profilerTrace()
                                .loadV3(methodAt(1, 0x10000, 0x40, 10, "outer"))
                                .inlineLoad(inlineAt(50, 1, 0x10010, 0x10, 10, 77))
                                .inlineLoad(inlineAt(51, 50, 0x10014, 0x4, 10, 78)));
    LogCapture log(log4cplus::INFO_LOG_LEVEL);
    PathList list({dir.str()});
    boost::intrusive_ptr<korvane_3_10::ISymbolFileLocator> noLocator;
    ASSERT_TRUE(korvane_3_10::ISymbolResolver::create(list.iterator(), noLocator));
    EXPECT_EQ("\nCode region #1 (ip range = 0x10000-0x10040)"
              "\n   #1 App::inlined50 (method id = 0x32, ip range = 0x10010-0x10020)",
              messageAfter(log, "Updated method's state (method id = 0x1, name = App::outer, load time = 0xa)"));
    EXPECT_EQ("\nCode region #1 (ip range = 0x10010-0x10020)"
              "\n   #1 App::inlined51 (method id = 0x33, ip range = 0x10014-0x10018)",
              messageAfter(log, "Updated method's state (method id = 0x32, name = App::inlined50, load time = 0xa)"));
}

TEST(DumpRegionsTest, TreeOfInlinesWithUnloadedRegionsKeepingTheirNumber) {
    const JitMethod::Ptr method = makeMethod(1);
    const Region::Ptr region = makeRegion(0x7f00, 0x40, 0x500);
    const Region::Ptr inner = makeRegion(0x7f10, 0x10);
    inner->addChildRegion(makeRegion(0x7f14, 4), makeMethod(0x13, "", "deeper"));
    region->addChildRegion(inner, makeMethod(0x12, "", "inner"));
    region->addChildRegion(makeRegion(0x7f30, 8), makeMethod(0x14, "", "other"));
    const Region::Ptr gone = makeRegion(0x2000, 0x10, 0x600);
    gone->setUnloadTime(0x40);
    method->addCodeRegion(gone);
    method->addCodeRegion(region);
    EXPECT_EQ("\nCode region #2 (ip range = 0x7f00-0x7f40)"
              "\n   #1 inner (method id = 0x12, ip range = 0x7f10-0x7f20)"
              "\n       #1 deeper (method id = 0x13, ip range = 0x7f14-0x7f18)"
              "\n   #2 other (method id = 0x14, ip range = 0x7f30-0x7f38)",
              method->dumpRegions());
}

TEST(DumpRegionsTest, NestingBeyondSixtyFourLevelsIsCut) {
    const Region::Ptr top = makeRegion(0x1000, 0x100, 0x500);
    Region::Ptr parent = top;
    for (int level = 0; level < 100; ++level) {
        const Region::Ptr child = makeRegion(0x1000, 0x100);
        parent->addChildRegion(child, makeMethod(1, "", "m"));
        parent = child;
    }
    korvane_3_10::ustringstream stream;
    top->dumpInlines(stream, 4);
    const std::string text = stream.str();
    EXPECT_EQ(64, std::count(text.begin(), text.end(), '#'));
}

} // namespace
