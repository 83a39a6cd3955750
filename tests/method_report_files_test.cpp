// The method report and region list as the library logs them while it reads real trace files.
#include "test_support.h"
#include "trace_builder.h"

#include <log4cplus/loglevel.h>

#include <gtest/gtest.h>

#include <sstream>

namespace {

using namespace korvane_3_10;
using korvane_test::LogCapture;
using korvane_test::PathList;
using korvane_test::TempDir;
using korvane_tracewriter::LoadRecord;
using korvane_tracewriter::TraceWriter;

boost::intrusive_ptr<ISymbolResolver> readDirectory(const std::string& path) {
    PathList list({path});
    boost::intrusive_ptr<ISymbolFileLocator> noLocator;
    return ISymbolResolver::create(list.iterator(), noLocator);
}

std::string hexText(u64_t value) {
    std::ostringstream text;
    text << std::hex << value;
    return text.str();
}

// The one logged message that begins with the text, or empty.
std::string messageStartingWith(const LogCapture& log, const std::string& start) {
    for (const std::string& message : log.messages(log4cplus::INFO_LOG_LEVEL)) {
        if (message.compare(0, start.size(), start) == 0)
            return message;
    }
    return std::string();
}

TEST(MethodReportFilesTest, JavaMethodReportedAsDecoded) {
    LoadRecord load;
    load.methodId = 0x21;
    load.methodToken = 0x600002a;
    load.loadTime = 0x40;
    load.ranges = {{0x7f1000, 3, {0x31, 0xC0, 0xC3}}};
    load.moduleName = "/opt/jdk/lib/server/libjvm.so";
    load.architecture = 1;
    load.className = "Ljava/lang/String;";
    load.methodName = "charAt(I)C";
    load.sourceFileName = "String.java";
    load.languageType = 0x1c;
    load.nativeToSource = {{0, 2, 658}, {2, 3, 660}};
    TempDir dir;
    dir.write("host.7.jit", korvane_test::profilerTrace().loadV3(load));

    LogCapture log(log4cplus::INFO_LOG_LEVEL);
    const boost::intrusive_ptr<ISymbolResolver> resolver = readDirectory(dir.str());
    ASSERT_TRUE(resolver && !resolver->getSymbols().at_end());
    const jit_rva_t jitRva = resolver->getSymbols().current()->getStartJitRva();
    ASSERT_NE(0u, jitRva);

    EXPECT_EQ("Raw JIT file data:\n"
              "Method id:       0x21\n"
              "Parent id:       0x0\n"
              "Metadata token:  0x600002a\n"
              "Load time:       0x40\n"
              "Name:            java::lang::String::charAt\n"
              "Full name:       java::lang::String::charAt(int)\n"
              "Class:           java::lang::String\n"
              "Module:          /opt/jdk/lib/server/libjvm.so\n"
              "Module arch:     xa64\n"
              "Source file:     String.java\n"
              "Checksum type:   0\n"
              "Checksum:        \n"
              "Language type:   1c\n"
              "Code info:\n"
              "number of code regions: 1\n"
              "  Code region:   1\n"
              "  JitRVA range:  0x" +
                  hexText(jitRva) + "-0x" + hexText(jitRva + 3) +
                  "\n"
                  "  startAddr:     0x7f1000\n"
                  "  size:          0x3\n"
                  "  IP range:      0x7f1000-0x7f1003\n"
                  "  Disassembly:\n"
                  "  XDIS 7f1000:    LOGICAL  BASE                 31C0  xor eax, eax\n"
                  "  XDIS 7f1002:        RET  BASE                   C3  ret\n"
                  "Managed to source map: (ILOffset, lineNo)\n"
                  "number of lines: 0\n"
                  "Native to managed map: (nativeStartOffset-nativeEndOffset, ILOffset)\n"
                  "number of lines: 0\n"
                  "Native to source map: (nativeStartOffset-nativeEndOffset, LineNo)\n"
                  "number of lines: 2\n"
                  "    0-2  658\n"
                  "    2-3  660",
              messageStartingWith(log, "Raw JIT file data:"));
}

TEST(MethodReportFilesTest, RegionListAfterAnInlineArrives) {
    TempDir dir;
    dir.write("host.7.jit", korvane_test::profilerTrace()
                                .loadV3(korvane_test::methodAt(1, 0x10000, 0x40, 10, "outer"))
                                .inlineLoad(korvane_test::inlineAt(50, 1, 0x10010, 0x10, 10, 77))
                                .inlineLoad(korvane_test::inlineAt(51, 50, 0x10014, 0x4, 10, 78)));
    LogCapture log(log4cplus::INFO_LOG_LEVEL);
    ASSERT_TRUE(readDirectory(dir.str()));
    EXPECT_EQ("Updated method's state (method id = 0x1, name = App::outer, load time = 0xa)"
              "\nCode region #1 (ip range = 0x10000-0x10040)"
              "\n   #1 App::inlined50 (method id = 0x32, ip range = 0x10010-0x10020)",
              messageStartingWith(log, "Updated method's state (method id = 0x1,"));
    EXPECT_EQ("Updated method's state (method id = 0x32, name = App::inlined50, load time = 0xa)"
              "\nCode region #1 (ip range = 0x10010-0x10020)"
              "\n   #1 App::inlined51 (method id = 0x33, ip range = 0x10014-0x10018)",
              messageStartingWith(log, "Updated method's state (method id = 0x32,"));
}

} // namespace
