// Jitdump files, written here or by Node.js, imported and read back through the library.
#include "jitdump_writer.h"
#include "test_support.h"
#include "trace_builder.h"

#include "jitdump/jitdump_import.h"

#include "command_registry.h"

#include <boost/filesystem/operations.hpp>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {

using namespace korvane_3_10;
using korvane_jitdump::JitdumpImport;
using korvane_jitdump::JitdumpReader;
using korvane_test::JitdumpWriter;
using korvane_test::TempDir;
typedef JitdumpReader::Ending Ending;

const char kHost[] = "node.host";

// Imports the file into dir under kHost and returns the import, failing the test if it can't.
std::unique_ptr<JitdumpImport> importInto(const TempDir& dir, const JitdumpWriter& jitdump) {
    std::string problem;
    std::unique_ptr<JitdumpImport> import = JitdumpImport::create(jitdump.writeTo(dir.file("jit.dump")), problem);
    EXPECT_TRUE(import) << problem;
    if (import && !import->writeTo(dir.file(import->traceFileName(kHost)), problem))
        ADD_FAILURE() << problem;
    return import;
}

class JitdumpByteOrderTest : public ::testing::TestWithParam<bool> {};

TEST_P(JitdumpByteOrderTest, EveryRecordKindBecomesLoadsWithNamesLinesAndMoves) {
    TempDir dir;
    JitdumpWriter jitdump(GetParam(), 4711, 48);
    // Entries out of address order are sorted into the table.
    jitdump.debugInfo(90, 0x10000, {{0x10010, 13, "/srv/app.js"}, {0x10000, 12, "\xff"}, {0x10030, 15, "\xff"}})
        .codeLoad(100, 0x10000, "JS:*walk /srv/app.js:12:5", 0x40, 1)
        .record(4, 101, JitdumpWriter::Bytes(40, 0))
        .codeLoad(110, 0x20000, "JS:~ node:internal/util:598:30", 0x20, 2)
        .record(77, 111, JitdumpWriter::Bytes(5, 1))
        .codeLoad(120, 0x30000, "com.acme.Main.run(I)V", 0x10, 3)
        .codeMove(200, 0x10000, 0x50000, 0x40, 1)
        .record(3, 300, {})
        .codeLoad(310, 0x60000, "behind the close", 0x10, 4);
    const std::unique_ptr<JitdumpImport> import = importInto(dir, jitdump);
    ASSERT_TRUE(import);
    EXPECT_EQ("8 records, 3 loads, 1 move, 3 line entries, 2 skipped; closed, 89 bytes not read", import->summary());

    const auto resolver = korvane_test::resolverOver({dir.str()});
    ASSERT_TRUE(resolver);
    auto symbols = korvane_test::symbolsByName(*resolver);
    ASSERT_EQ(3u, symbols.size());
    const ISymbol::Ptr walk = symbols["walk"];
    EXPECT_STREQ("/srv/app.js", walk->getSourceFile()->getSourceFileName());
    EXPECT_STREQ("node:internal/util", symbols["<anonymous>"]->getSourceFile()->getSourceFileName());
    EXPECT_STREQ("com::acme::Main::run(I)V", symbols["com::acme::Main::run"]->getQualifiedMethodName());
    EXPECT_FALSE(symbols["com::acme::Main::run"]->getSourceFile());

    const auto loader = korvane_test::loaderOver({dir.str()});
    u32_t hostId = 0;
    ASSERT_EQ(meSuccess, loader->getHostIdByName(kHost, &hostId));
    struct Sample {
        u64_t time;
        address_t ip;
        korvane_error_t result;
        u32_t line;
    };
    for (const Sample& sample : {Sample{150, 0x10020, meSuccess, 13}, Sample{250, 0x50031, meSuccess, 15},
                                 Sample{250, 0x5000f, meSuccess, 12}, Sample{150, 0x50020, meNotFound, 0},
                                 Sample{99, 0x10020, meNotFound, 0}}) {
        SCOPED_TRACE(sample.ip);
        jit_rva_t rva = 0;
        IModule::Ptr module;
        ASSERT_EQ(sample.result, loader->resolveJitPoint(sample.time, sample.ip, 4711, hostId, &rva, module));
        if (sample.result != meSuccess)
            continue;
        const ISymbol::Ptr symbol = resolver->getSymbol(rva);
        ASSERT_EQ(walk, symbol);
        ASSERT_TRUE(symbol->getSourceLocation(rva));
        EXPECT_EQ(sample.line, symbol->getSourceLocation(rva)->getLine());
    }
}

INSTANTIATE_TEST_SUITE_P(ByteOrders, JitdumpByteOrderTest, ::testing::Bool());

struct BrokenCase {
    std::string name;
    JitdumpWriter jitdump;
    std::uint64_t loads;
    std::uint64_t lineEntries;
    std::uint64_t skipped;
    Ending ending;
};

void PrintTo(const BrokenCase& broken, std::ostream* out) { *out << broken.name; }

JitdumpWriter twoLoads(bool bigEndian) {
    return JitdumpWriter(bigEndian, 9).codeLoad(1, 0x1000, "first", 0x10, 1).codeLoad(2, 0x2000, "second", 0x10, 2);
}

std::vector<BrokenCase> brokenCases() {
    const std::uint64_t huge = std::uint64_t(1) << 60;
    return {
        {"last record cut off", twoLoads(true).cutOff(3), 1, 0, 0, Ending::CutOff},
        {"record larger than the file", twoLoads(false).record(0, 3, {1, 2, 3}, 0xfffffff0u), 2, 0, 0, Ending::CutOff},
        {"record shorter than its header", JitdumpWriter(false, 9).record(77, 1, {}, 8).codeLoad(2, 0x1, "x", 1, 1),
         0, 0, 0, Ending::Damaged},
        {"code longer than its record", JitdumpWriter(false, 9).codeLoad(1, 0x1000, "x", 0x10, 1, huge), 0, 0, 1,
         Ending::EndOfFile},
        {"empty code", JitdumpWriter(false, 9).codeLoad(1, 0x1000, "x", 0, 1), 0, 0, 1, Ending::EndOfFile},
        {"name without its end", JitdumpWriter(false, 9).record(0, 1, JitdumpWriter::Bytes(40, 0)), 0, 0, 1,
         Ending::EndOfFile},
        {"more debug entries than the record holds",
         JitdumpWriter(false, 9).debugInfo(1, 0x1000, {{0x1000, 3, "a.js"}}, huge).codeLoad(2, 0x1000, "x", 0x10, 1),
         1, 0, 1, Ending::EndOfFile},
        {"debug entries outside their code",
         JitdumpWriter(false, 9)
             .debugInfo(1, 0x1000, {{0x1000, 3, "a.js"}, {0x1010, 4, "a.js"}})
             .codeLoad(2, 0x1000, "x", 0x10, 1),
         1, 0, 1, Ending::EndOfFile},
        {"debug info of code never loaded", JitdumpWriter(false, 9).debugInfo(1, 0x1000, {{0x1000, 3, "a.js"}}), 0, 0,
         1, Ending::EndOfFile},
        {"move of unknown code", twoLoads(false).codeMove(3, 0x1000, 0x3000, 0x10, 7), 2, 0, 1, Ending::EndOfFile},
        {"move that changes the size", twoLoads(false).codeMove(3, 0x1000, 0x3000, 0x11, 1), 2, 0, 1,
         Ending::EndOfFile},
        {"header larger than the file", JitdumpWriter(false, 9, 4096), 0, 0, 0, Ending::EndOfFile},
    };
}

class JitdumpBrokenTest : public ::testing::TestWithParam<BrokenCase> {};

TEST_P(JitdumpBrokenTest, ReadsWhatCanBeReadAndSaysWhatWasLeft) {
    const BrokenCase& broken = GetParam();
    TempDir dir;
    const std::unique_ptr<JitdumpImport> import = importInto(dir, broken.jitdump);
    ASSERT_TRUE(import);
    EXPECT_EQ(broken.loads, import->counts().loads);
    EXPECT_EQ(broken.lineEntries, import->counts().lineEntries);
    EXPECT_EQ(broken.skipped, import->counts().skipped);
    EXPECT_EQ(broken.ending, import->outcome().ending);
    const auto resolver = korvane_test::resolverOver({dir.str()});
    ASSERT_TRUE(resolver);
    EXPECT_EQ(broken.loads, korvane_test::symbolsByName(*resolver).size());
}

INSTANTIATE_TEST_SUITE_P(Files, JitdumpBrokenTest, ::testing::ValuesIn(brokenCases()));

TEST(JitdumpImportTest, FilesThatAreNoJitdumpAreRefusedWithTheReason) {
    TempDir dir;
    JitdumpWriter::Bytes noMagic = JitdumpWriter(false, 9).bytes();
    noMagic[0] = 'X';
    JitdumpWriter::Bytes smallHeader = JitdumpWriter(false, 9).bytes();
    smallHeader[8] = 39;
    const std::vector<std::pair<JitdumpWriter::Bytes, std::string> > cases = {
        {JitdumpWriter::Bytes(), "shorter than a jitdump header (0 bytes)"},
        {JitdumpWriter::Bytes(39, 0), "shorter than a jitdump header (39 bytes)"},
        {noMagic, "no jitdump magic word"},
        {smallHeader, "header size 39 is below 40"},
    };
    for (const auto& c : cases) {
        std::ofstream(dir.file("bad.dump"), std::ios::binary)
            .write(reinterpret_cast<const char*>(c.first.data()), static_cast<std::streamsize>(c.first.size()));
        std::string problem;
        EXPECT_FALSE(JitdumpImport::create(dir.file("bad.dump"), problem));
        EXPECT_EQ(c.second, problem);
    }
    std::string problem;
    EXPECT_FALSE(JitdumpImport::create(dir.file("missing.dump"), problem));
    EXPECT_EQ("cannot open the file", problem);
    EXPECT_FALSE(JitdumpImport::create(dir.str(), problem));
    EXPECT_EQ("is not a regular file", problem);
}

int runImport(const std::vector<std::string>& args, std::string& out, std::string& err) {
    for (const korvane_tool::Command& command : korvane_tool::commands()) {
        if (command.name != "import-jitdump")
            continue;
        std::ostringstream outText, errText;
        const int code = command.run(args, outText, errText);
        out = outText.str();
        err = errText.str();
        return code;
    }
    return -1;
}

TEST(JitdumpImportTest, CommandWritesOneTracePerFileAndKeepsExistingOnes) {
    TempDir dir;
    const std::string dump = twoLoads(false).writeTo(dir.file("jit-9.dump"));
    const std::string output = dir.file("out");
    const std::string trace = output + "/h.9.jit";
    struct Run {
        std::vector<std::string> args;
        int exitCode;
        std::string out;
        std::string err;
    };
    const std::string summary = dump + ": 2 records, 2 loads, 0 moves, 0 line entries, 0 skipped -> " + trace + "\n";
    const std::vector<Run> runs = {
        {{dump, "-o", output, "--host", "h"}, 0, summary, ""},
        {{dump, "-o", output, "--host", "h"}, 1, "", "korvane-jit: " + trace + " exists; --force overwrites it\n"},
        {{dir.file("none.dump"), dump, "--force", "--output", output, "--host=h"}, 1, summary,
         "korvane-jit: " + dir.file("none.dump") + ": cannot open the file\n"},
        {{dump, "--host", "h"}, 2, "", "Usage: korvane-jit import-jitdump FILE... -o DIR [--host NAME] [--force]\n"},
    };
    for (const Run& run : runs) {
        SCOPED_TRACE(run.args.size());
        std::string out, err;
        EXPECT_EQ(run.exitCode, runImport(run.args, out, err));
        EXPECT_EQ(run.out, out);
        EXPECT_EQ(run.err, err);
    }
    const auto resolver = korvane_test::resolverOver({output});
    ASSERT_TRUE(resolver);
    EXPECT_EQ(2u, korvane_test::symbolsByName(*resolver).size());
}

// A real file: Node.js with --perf-prof writes jit-PID.dump into its working directory.
TEST(JitdumpImportTest, NodePerfProfFileReadsBack) {
    TempDir dir;
    std::ofstream(dir.file("app.js"))
        << "function fib(n) { return n < 2 ? n : fib(n - 1) + fib(n - 2); }\n"
           "const parts = [];\n"
           "for (let i = 0; i < 50; i++) parts.push(new Function('x', 'let s = ' + i + ';\\n'\n"
           "  + 'for (let j = 0; j < x; j++) s = (s * 31 + j) | 0;\\nreturn s;'));\n"
           "let total = 0;\n"
           "for (let round = 0; round < 2000; round++) for (const f of parts) total += f(20);\n"
           "const end = Date.now() + 300;\n"
           "while (Date.now() < end) total += fib(20);\n"
           "console.log(total !== 0);\n";
    const std::string command = "cd '" + dir.str() + "' && node --perf-prof app.js > node.out 2>&1";
    ASSERT_EQ(0, std::system(command.c_str())) << "node --perf-prof failed (is the nodejs package installed?)";
    std::string dump;
    for (const auto& entry : boost::filesystem::directory_iterator(dir.path())) {
        if (entry.path().filename().string().compare(0, 4, "jit-") == 0)
            dump = entry.path().string();
    }
    ASSERT_FALSE(dump.empty()) << "node wrote no jit-PID.dump";
    std::string problem;
    const std::unique_ptr<JitdumpImport> import = JitdumpImport::create(dump, problem);
    ASSERT_TRUE(import) << problem;
    const std::string trace = dir.mkdir("trace");
    ASSERT_TRUE(import->writeTo(trace + "/" + import->traceFileName(kHost), problem)) << problem;
    EXPECT_EQ(Ending::EndOfFile, import->outcome().ending);
    EXPECT_GT(import->counts().loads, 1000u);
    EXPECT_GT(import->counts().lineEntries, 0u);

    const auto resolver = korvane_test::resolverOver({trace});
    ASSERT_TRUE(resolver);
    std::size_t symbols = 0;
    std::size_t withLines = 0;
    ISymbol::Ptr fib;
    for (auto walk = resolver->getSymbols(); !walk.at_end(); walk.next()) {
        const ISymbol::Ptr symbol = walk.current();
        ++symbols;
        u32_t count = 0;
        withLines += symbol->getLineNumberInfo(ltNativeToSource, nullptr, &count, 0) == meSuccess && count > 0;
        if (std::string(symbol->getMethodName()) == "fib")
            fib = symbol;
    }
    EXPECT_EQ(import->counts().loads, symbols);
    EXPECT_GT(withLines, 0u);
    ASSERT_TRUE(fib) << "no method fib among " << symbols;
    EXPECT_EQ(dir.file("app.js"), fib->getSourceFile()->getSourceFileName());
}

} // namespace
