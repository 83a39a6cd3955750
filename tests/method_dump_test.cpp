// The method report, the list of live regions, the tree of inlines and the code dump, to the character.
#include "jitreader/code_dump.h"
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

// The INFO message of that index among those that begin with the text, without that text; or "none".
std::string messageAfter(const LogCapture& log, const std::string& start, std::size_t index = 0) {
    for (const std::string& message : log.messages(log4cplus::INFO_LOG_LEVEL))
        if (message.compare(0, start.size(), start) == 0 && index-- == 0)
            return message.substr(start.size());
    return "none";
}

// A method without regions ends its report with the count. The tables follow the region whose key
// holds them; the next region goes on in the last table line; bytes shorter than a region are not overrun.
TEST(MethodReportTest, TheDecoderReportsEachMethodItRead) {
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
    TraceWriter trace;
    trace.loadV3(load);
    load.ranges = {{0x7f1000, 3, {0x31, 0xC0, 0xC3}}, {0x7f2000, 0x40, {0xC3}}};
    load.nativeToSource = {{0, 2, 658}, {2, 3, 660}};
    load.managedToSource = {{0, 3, 255}};
    load.nativeToManaged = {{0, 2, 0}};
    LogCapture log(log4cplus::INFO_LOG_LEVEL);
    decodeAll(trace.loadV3(load));
    const std::string header = "Method id:       0x21\n"
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
    EXPECT_EQ(header + "number of code regions: 0\n", messageAfter(log, "Raw JIT file data:\n"));
    EXPECT_EQ(header + "number of code regions: 2\n"
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
                       "  XDIS 7f2000:        RET  BASE                   C3  ret\n"
                       "Managed to source map: (ILOffset, lineNo)\nnumber of lines: 0\n"
                       "Native to managed map: (nativeStartOffset-nativeEndOffset, ILOffset)\nnumber of lines: 0\n"
                       "Native to source map: (nativeStartOffset-nativeEndOffset, LineNo)\nnumber of lines: 0",
              messageAfter(log, "Raw JIT file data:\n", 1));
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

TEST(CodeDumpTest, InstructionLinesAndFailures) {
    const struct {
        std::vector<unsigned char> code;
        std::uint64_t address;
        korvane_arch arch;
        std::string text;
    } dumps[] = {
        {{0x31, 0xC0}, 0x7f1000, arch_wa64, "  XDIS 7f1000:    LOGICAL  BASE                 31C0  xor eax, eax\n"},
        {{0x40}, 0x1000, arch_xa32, "  XDIS 1000:     BINARY  BASE                   40  inc eax\n"},
        {{0x31, 0xC0, 0x48}, 0x7f1000, arch_xa64,
         "  XDIS 7f1000:    LOGICAL  BASE                 31C0  xor eax, eax\n"
         "       7f1002: could not decode instruction. Error: 80200000\n"},
        {{0x06, 0x31, 0xC0}, 0x7f1000, arch_xa64, "       7f1000: could not decode instruction. Error: 80200001\n"},
        {{0xEB, 0x00, 0xC3}, 0x7f1000, arch_xa64,
         "  XDIS 7f1000:  UNCOND_BR  BASE                 EB00  jmp 0x00000000007F1002\n"
         "  XDIS 7f1002:        RET  BASE                   C3  ret\n"},
        {{0x31, 0xC0}, 0x7f1000, arch_cc64, "  wrong architecture of code\n"},
        {{0x31, 0xC0}, 0x7f1000, static_cast<korvane_arch>(9), "  wrong architecture of code\n"},
    };
    for (const auto& dump : dumps) {
        std::ostringstream stream;
        korvane_3_10::dumpCodeDisassembly(stream, dump.code.data(), static_cast<korvane_3_10::u32_t>(dump.code.size()),
                                          dump.address, dump.arch);
        EXPECT_EQ(dump.text, stream.str());
    }
    std::ostringstream stream;
    korvane_3_10::dumpCodeDisassembly(stream, nullptr, 2, 0x1000, arch_xa64);
    korvane_3_10::dumpCodeDisassembly(stream, dumps[0].code.data(), 0, 0x1000, arch_cc64);
    EXPECT_EQ("  no bytes\n  no bytes\n", stream.str());
}

} // namespace
