// korvane-jit resolve, which resolves samples in address order and writes them in their own,
// against each sample resolved on its own through the public API and the report's inline chain.
#include "command_registry.h"
#include "text_output.h"

#include "report/inline_chain.h"
#include "test_support.h"
#include "trace_builder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

namespace {

using namespace korvane_3_10;
using korvane_test::TempDir;

const u64_t kBase = 0x7f0000001000;
const u32_t kLength = 0x100;
// Deeper than the frames the command keeps per sample between resolving and writing.
const u32_t kDepth = 7;

struct Sample {
    u64_t timestamp;
    u64_t ip;
    u32_t pid;
    std::string host;
};

// Inline k (1..kDepth) covers [kBase + 8k, kBase + kLength - 8k) inside inline k - 1.
korvane_tracewriter::TraceWriter nestedTrace() {
    korvane_tracewriter::TraceWriter trace = korvane_test::profilerTrace();
    trace.loadV3(korvane_test::methodAt(1, kBase, kLength, 10, "outer"));
    for (u32_t k = 1; k <= kDepth; ++k)
        trace.inlineLoad(korvane_test::inlineAt(100 + k, k == 1 ? 1 : 100 + k - 1, kBase + 8 * k, kLength - 16 * k, 10, k));
    // Code that a later method takes over at the same address.
    trace.loadV3(korvane_test::methodAt(2, kBase + 0x200, 0x40, 10, "early"));
    trace.loadV3(korvane_test::methodAt(3, kBase + 0x200, 0x40, 500, "late, \"quoted\""));
    return trace.loadV3(korvane_test::methodAt(4, kBase + 0x300, 0x20, 10, ""));
}

// Every fourth byte of the code and some native addresses, at two times, on three hosts,
// shuffled and each twice.
std::vector<Sample> samples() {
    std::vector<Sample> samples;
    for (const char* host : {"shop.example.net", "web", "nowhere"}) {
        for (const u64_t timestamp : {u64_t(200), u64_t(600)}) {
            for (u64_t ip = kBase - 8; ip < kBase + 0x328; ip += 4)
                samples.push_back({timestamp, ip, 42, host});
        }
    }
    std::vector<Sample> shuffled;
    u64_t state = 7;
    for (int round = 0; round < 2; ++round) {
        for (std::size_t i = 0; i < samples.size(); ++i) {
            state = state * 6364136223846793005ull + 1442695040888963407ull;
            std::swap(samples[i], samples[i + (state >> 33) % (samples.size() - i)]);
        }
        shuffled.insert(shuffled.end(), samples.begin(), samples.end());
    }
    return shuffled;
}

// The rows of one sample, resolved by itself.
std::string expectedRows(ISymbolResolver& resolver, const Sample& sample) {
    u32_t hostId = 0;
    getHostIdByName(resolver, sample.host.c_str(), &hostId);
    jit_rva_t jitRva = 0;
    ISymbol::Ptr symbol;
    const korvane_error_t result = resolveJitPoint(resolver, sample.timestamp, sample.ip, sample.pid, hostId, &jitRva, symbol);
    std::ostringstream head;
    head << sample.timestamp << "," << korvane_tool::hexText(sample.ip) << "," << sample.pid << ","
         << korvane_tool::csvField(sample.host) << ",";
    if (result != meSuccess)
        return head.str() + "outside JIT code,,,,,,\n";
    std::vector<korvane_report::SourceFrame> frames;
    korvane_report::InlineChain::collect(*symbol, jitRva, frames);
    std::ostringstream rows;
    for (std::size_t depth = 0; depth < frames.size(); ++depth) {
        rows << head.str() << "jit," << korvane_tool::hexText(jitRva) << "," << korvane_tool::csvField(frames[0].module)
             << "," << depth << "," << korvane_tool::csvField(frames[depth].method) << ","
             << korvane_tool::csvField(frames[depth].sourceFile) << ",";
        if (frames[depth].line)
            rows << frames[depth].line;
        rows << "\n";
    }
    return rows.str();
}

TEST(ResolveCommandTest, AnswersEverySampleAsAloneInItsOwnOrder) {
    TempDir traces;
    traces.write("shop.example.net.42.jit", nestedTrace());
    traces.write("web.42.jit", korvane_test::profilerTrace().loadV3(korvane_test::methodAt(1, kBase + 0x20, 0x10, 10, "web")));
    const std::vector<Sample> all = samples();
    TempDir inputs;
    std::ofstream csv(inputs.file("samples.csv"));
    csv << "timestamp,ip,pid,host\n";
    for (const Sample& sample : all)
        csv << sample.timestamp << "," << korvane_tool::hexText(sample.ip) << "," << sample.pid << "," << sample.host << "\n";
    csv.close();

    const boost::intrusive_ptr<ISymbolResolver> resolver = korvane_test::resolverOver({traces.str()});
    ASSERT_TRUE(resolver);
    std::string expected = "timestamp,ip,pid,host,result,jit_rva,module,depth,method,source_file,line\n";
    std::size_t deepest = 0;
    for (const Sample& sample : all) {
        const std::string rows = expectedRows(*resolver, sample);
        deepest = std::max(deepest, static_cast<std::size_t>(std::count(rows.begin(), rows.end(), '\n')));
        expected += rows;
    }
    EXPECT_EQ(kDepth + 1, deepest);

    for (const korvane_tool::Command& command : korvane_tool::commands()) {
        if (command.name != "resolve")
            continue;
        std::ostringstream out;
        std::ostringstream err;
        EXPECT_EQ(0, command.run({traces.str(), "--samples", inputs.file("samples.csv")}, out, err)) << err.str();
        EXPECT_EQ(expected, out.str());
        EXPECT_EQ("", err.str());
    }
}

} // namespace
