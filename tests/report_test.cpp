// Reports over the example traces from captured perf script text: counts, views,
// the pprof file read back, the sample CSV, and what a report does with bad input.
#include "example_set.h"
#include "test_support.h"
#include "trace_builder.h"

#include "report/folded_stacks.h"
#include "report/pprof_profile.h"
#include "report/report.h"
#include "report/top_table.h"

#include <gtest/gtest.h>

#include <zlib.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>

namespace {

using namespace korvane_report;
using korvane_test::TempDir;

const char kHost[] = "alpha.example.net";
const char kAddItem[] = "com::example::shop::Cart::addItem(com::example::shop::Item, int)";
const char kGetPrice[] = "com::example::shop::Item::getPrice()";
const char kHashCode[] = "java::lang::String::hashCode()";

std::string captured(const std::string& name) { return std::string(KORVANE_TEST_DATA) + "/report/" + name; }

std::string gunzip(const std::string& path) {
    std::string text;
    gzFile file = gzopen(path.c_str(), "rb");
    char buffer[4096];
    for (int read = 0; file && (read = gzread(file, buffer, sizeof(buffer))) > 0;)
        text.append(buffer, static_cast<std::size_t>(read));
    if (file)
        gzclose(file);
    return text;
}

struct Read {
    std::unique_ptr<Report> profile;
    bool read;
    std::string err;
};

class ReportTest : public ::testing::Test {
protected:
    void SetUp() override { korvane_examples::ExampleSet(m_dir.path()).write(); }

    // A fresh report that has read the text, or the file of that name; err gets what it says.
    Read read(const std::string& text, bool isFile = true, bool strict = false) const {
        const std::vector<std::string> dirs = {m_dir.file("session-1"), m_dir.file("session-2")};
        Read result{Report::create(korvane_test::loaderOver(dirs), korvane_test::resolverOver(dirs), kHost), false, ""};
        std::ostringstream err;
        std::ifstream file(isFile ? text : std::string(), std::ios::binary);
        std::istringstream in(text);
        result.read = result.profile->read(isFile ? static_cast<std::istream&>(file) : in, isFile ? text : "text",
                                           strict, err);
        result.err = err.str();
        return result;
    }

    TempDir m_dir;
};

std::map<std::string, std::uint64_t> foldedOf(const Report& report) {
    std::ostringstream text;
    FoldedStacks(report).write(text);
    std::map<std::string, std::uint64_t> lines;
    std::istringstream in(text.str());
    for (std::string line; std::getline(in, line);)
        lines[line.substr(0, line.rfind(' '))] += std::stoull(line.substr(line.rfind(' ') + 1));
    return lines;
}

struct Capture {
    const char* file;
    SampleCounts counts;
    std::vector<std::pair<std::string, std::uint64_t>> folded;
};

class CaptureTest : public ReportTest, public ::testing::WithParamInterface<Capture> {};

TEST_P(CaptureTest, CountsAndFoldsTheCapturedSamples) {
    const Read file = read(captured(GetParam().file));
    ASSERT_TRUE(file.read) << file.err;
    EXPECT_EQ(file.err, "");
    const Report& profile = *file.profile;
    const SampleCounts counts = profile.counts();
    const SampleCounts& expected = GetParam().counts;
    EXPECT_EQ(std::vector<std::uint64_t>({counts.samples, counts.inJit, counts.resolved, counts.outside,
                                          counts.untraced, counts.frames, counts.jitFrames, counts.resolvedFrames}),
              std::vector<std::uint64_t>({expected.samples, expected.inJit, expected.resolved, expected.outside,
                                          expected.untraced, expected.frames, expected.jitFrames,
                                          expected.resolvedFrames}));
    const std::map<std::string, std::uint64_t> folded = foldedOf(profile);
    std::uint64_t total = 0;
    for (const auto& line : folded)
        total += line.second;
    EXPECT_EQ(total, counts.samples);
    for (const auto& line : GetParam().folded) {
        const auto found = folded.find(line.first);
        ASSERT_NE(found, folded.end()) << line.first;
        EXPECT_EQ(found->second, line.second) << line.first;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Captures, CaptureTest,
    ::testing::Values(
        // The JIT frame inside the chain holds a return address: the call before it is in an inline.
        Capture{"callchains_us.perf",
                {6, 2, 2, 4, 1, 25, 4, 4},
                {{std::string("__libc_start_call_main;main;") + kAddItem + "_[j];" + kGetPrice + "_[i];leaf", 2},
                 {"__libc_start_call_main;main;[perf-999.map]", 1},
                 {std::string("__libc_start_call_main;main;com::example::util::Cache<K,V>::putAll(java::util::Map<? "
                              "extends java::lang::String,? extends java::util::List<java::lang::Integer>>)_[j];"
                              "java::util::HashMap::putVal(int, java::lang::Object, java::lang::Object, boolean, "
                              "boolean)_[i];") + kHashCode + "_[i]",
                  2}}},
        // One address before and after new code took its place; a method sampled before its load.
        Capture{"flat_ns.perf",
                {6, 3, 3, 3, 0, 6, 3, 3},
                {{"com::example::shop::Cart::total()_[j]", 1},
                 {"com::example::util::Cache<K,V>::get(java::lang::Object)_[j]", 1},
                 {"[perf-4711.map]", 1},
                 {"alloc_fd_[k]", 1}}}),
    [](const ::testing::TestParamInfo<Capture>& info) {
        return std::string(info.param.file).substr(0, std::string(info.param.file).find('.'));
    });

TEST_F(ReportTest, PprofHoldsInlinesAsLinesOfOneLocation) {
    std::string problem;
    ASSERT_TRUE(PprofProfile::write(*read(captured("callchains_us.perf")).profile, m_dir.file("cpu.pb.gz"), problem))
        << problem;

    perftools::profiles::Profile pprof;
    ASSERT_TRUE(pprof.ParseFromString(gunzip(m_dir.file("cpu.pb.gz"))));
    const auto& strings = pprof.string_table();
    ASSERT_EQ(pprof.sample_type_size(), 2);
    EXPECT_EQ(strings[pprof.sample_type(1).type()] + "/" + strings[pprof.sample_type(1).unit()], "cpu/nanoseconds");
    std::int64_t samples = 0;
    std::int64_t nanoseconds = 0;
    for (const auto& sample : pprof.sample()) {
        samples += sample.value(0);
        nanoseconds += sample.value(1);
    }
    EXPECT_EQ(samples, 6);
    EXPECT_EQ(nanoseconds, 6 * 250000);

    std::map<std::uint64_t, std::string> functions;
    for (const auto& function : pprof.function())
        functions[function.id()] = strings[function.name()] + " " + strings[function.filename()];
    std::vector<std::vector<std::string>> inlined;
    for (const auto& location : pprof.location()) {
        std::vector<std::string> lines;
        for (const auto& line : location.line())
            lines.push_back(functions[line.function_id()] + ":" + std::to_string(line.line()));
        if (lines.size() > 1)
            inlined.push_back(lines);
    }
    const std::vector<std::vector<std::string>> expected = {
        {std::string(kGetPrice) + " Item.java:17", std::string(kAddItem) + " Cart.java:43"},
        {std::string(kHashCode) + " String.java:1502",
         "java::util::HashMap::putVal(int, java::lang::Object, java::lang::Object, boolean, boolean) HashMap.java:625",
         "com::example::util::Cache<K,V>::putAll(java::util::Map<? extends java::lang::String,? extends "
         "java::util::List<java::lang::Integer>>) Cache.java:74"}};
    EXPECT_EQ(inlined, expected);
}

TEST_F(ReportTest, TopTableMarksInlinesAndSharesSelfAndTotal) {
    const TopTable table(*read(captured("callchains_us.perf")).profile);
    std::map<std::string, std::string> methods;
    for (const TopTable::Row& row : table.methods())
        methods[row.label] = row.kind + " " + std::to_string(row.self) + "/" + std::to_string(row.total);
    EXPECT_EQ(methods[kHashCode], "inline 2/2");
    EXPECT_EQ(methods[kAddItem], "jit 0/2");
    EXPECT_EQ(methods["main  (/tmp/rp/jitspin)"], "native 0/5");
    EXPECT_EQ(table.lines().front().label, std::string("String.java:1502  ") + kHashCode);

    std::ostringstream text;
    table.write(text, 3);
    EXPECT_EQ(text.str().substr(0, text.str().find('\n')),
              "samples: 6 total, 2 in JIT code, 2 resolved, 4 outside JIT code (1 in processes without traces)");
    EXPECT_NE(text.str().find("methods (3 of 17)"), std::string::npos);
}

TEST_F(ReportTest, ResolvesEachAddressOncePerSpanOfUnchangedCode) {
    // Cart.total's place: twice before Cache.get took it over at 1003000, twice after;
    // code elsewhere in the process changing at 1003500 makes no new span here.
    const std::unique_ptr<Report> profile = read(" 4711/4711 0.001002100: 7f3a1c004020 a (b)\n"
                                                 " 4711/4711 0.001002900: 7f3a1c004020 a (b)\n"
                                                 " 4711/4711 0.001003000: 7f3a1c004020 a (b)\n"
                                                 " 4711/4711 0.002000000: 7f3a1c004020 a (b)\n",
                                                 false)
                                                .profile;
    ASSERT_EQ(profile->locations().size(), 2u);
    EXPECT_EQ(profile->strings().text(profile->locations()[1].frames[0].name),
              "com::example::util::Cache<K,V>::get(java::lang::Object)");
    EXPECT_EQ(profile->stacks().stack(1).samples, 2u);
}

TEST_F(ReportTest, ReadsTheSampleCsvWithTheHostOfEachRow) {
    const Read file = read(m_dir.file("samples.csv"));
    ASSERT_TRUE(file.read) << file.err;
    const SampleCounts counts = file.profile->counts();
    EXPECT_EQ(counts.samples, 37u);
    EXPECT_EQ(counts.untraced, 2u); // process 999, and host omega
    EXPECT_EQ(foldedOf(*file.profile)["Harbor::Billing::Invoice::Total_[j];Harbor::Billing::LineItem::get_Amount_[i]"], 1u);
}

TEST_F(ReportTest, BadInputIsCountedAndNamedOnce) {
    const Read some = read("junk\n 4711/4711 0.001500: 7f3a1c001014 a (b)\nmore junk\n", false);
    EXPECT_TRUE(some.read);
    EXPECT_EQ(some.profile->counts().samples, 1u);
    EXPECT_EQ(some.err, "text:1: not a line of perf script -F pid,tid,time,period,ip,sym,dso (2 such lines "
                        "skipped, this the first): junk\n");

    const Read none = read("junk\n", false);
    EXPECT_FALSE(none.profile->counts().samples);
    EXPECT_FALSE(none.read);
    EXPECT_NE(none.err.find("text: no samples"), std::string::npos);

    const Read stopped = read(" 4711/4711 0.001500: 7f3a1c001014 a (b)\njunk\n", false, true);
    EXPECT_FALSE(stopped.read);
    EXPECT_NE(stopped.err.find("text:2: "), std::string::npos);
}

// This machine's perf, as it prints today: every line read, in both time forms.
TEST_F(ReportTest, ReadsWhatThisMachinesPerfPrints) {
    const std::string data = m_dir.file("perf.data");
    const std::string record = "perf record -q -e cpu-clock -k mono -g -o " + data +
                               " -- sh -c 'i=0; while [ $i -lt 100000 ]; do i=$((i+1)); done' >/dev/null 2>&1";
    if (std::system(record.c_str()) != 0)
        GTEST_SKIP() << "perf record is not permitted here (perf_event_open refused or perf missing)";
    for (const std::string& times : {std::string(), std::string(" --ns")}) {
        const std::string text = m_dir.file("perf.txt");
        const std::string script =
            "perf script -F pid,tid,time,period,ip,sym,dso" + times + " -i " + data + " > " + text + " 2>/dev/null";
        ASSERT_EQ(std::system(script.c_str()), 0);
        const Read file = read(text);
        EXPECT_TRUE(file.read);
        EXPECT_EQ(file.err, "") << times;
        EXPECT_GT(file.profile->counts().frames, file.profile->counts().samples) << times;
        EXPECT_TRUE(file.profile->hasPeriods()) << times;
    }
}

TEST(ReportHostTest, DefaultsToTheOnlyHostOfTheTraces) {
    const TempDir dir;
    dir.write("only.example.org.42.jit",
              korvane_test::profilerTrace().loadV3(korvane_test::methodAt(1, 0x1000, 0x40, 10, "m")));
    EXPECT_EQ(FrameResolver::defaultHost(*korvane_test::resolverOver({dir.str()})), "only.example.org");
    dir.write("other.42.jit", korvane_test::profilerTrace());
    EXPECT_NE(FrameResolver::defaultHost(*korvane_test::resolverOver({dir.str()})), "only.example.org");
}

} // namespace
