// The catalogue: file names, scan order, host ids, jit RVA ranges and failures, on real directories.
#include "jitreader/jit_files_manager.h"

#include "test_support.h"

#include <boost/filesystem/operations.hpp>

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace {

using korvane_3_10::JitFilesManager;
using korvane_3_10::u32_t;
using korvane_3_10::u64_t;
using korvane_test::PathList;
using korvane_test::TempDir;
using korvane_tracewriter::TraceWriter;

const u32_t kUntouched = 0xdeadbeef;

struct NameCase {
    const char* name;
    korvane_error_t result;
    u32_t pid;
    const char* host;
};

std::ostream& operator<<(std::ostream& out, const NameCase& nameCase) { return out << '"' << nameCase.name << '"'; }

class ParseJitFileNameTest : public ::testing::TestWithParam<NameCase> {};

TEST_P(ParseJitFileNameTest, SplitsHostAndProcess) {
    const NameCase& expected = GetParam();
    JitFilesManager manager;
    u32_t pid = kUntouched;
    std::string host = "untouched";
    EXPECT_EQ(expected.result, manager.parseJitFileName(expected.name, pid, host));
    EXPECT_EQ(expected.pid, pid);
    EXPECT_EQ(expected.host, host);
}

INSTANTIATE_TEST_SUITE_P(
    Names, ParseJitFileNameTest,
    ::testing::Values(
        NameCase{"", meNotFound, kUntouched, "untouched"}, NameCase{"jit", meNotFound, kUntouched, "untouched"},
        NameCase{"a.jit", meNotFound, kUntouched, "untouched"}, NameCase{".jit", meNotFound, kUntouched, "untouched"},
        NameCase{"4711.jit", meNotFound, kUntouched, "untouched"},
        NameCase{"..a..jit..", meNotFound, kUntouched, "untouched"},
        NameCase{"alpha.4711.jit", meSuccess, 4711, "alpha"},
        NameCase{"alpha.beta.4711-3.jit", meSuccess, 4711, "alpha.beta"},
        NameCase{"my.host.name.12345-0.jit", meSuccess, 12345, "my.host.name"},
        NameCase{"host.7.jit", meSuccess, 7, "host"}, NameCase{"host.7-1-2.jit", meSuccess, 7, "host"},
        NameCase{"host.-3.jit", meSuccess, 3, "host"}, NameCase{"host.12ab.jit", meSuccess, 12, "host"},
        NameCase{"a.b.c", meSuccess, 0, "a"},
        // No sub-token at all: the caller's value stays.
        NameCase{"host.---.jit", meSuccess, kUntouched, "host"},
        NameCase{"host.99999999999.jit", meSuccess, std::numeric_limits<u32_t>::max(), "host"},
        // Exactly two dots are counted in front of the last two tokens.
        NameCase{"alpha..4711.jit", meSuccess, 4711, "alpha."}, NameCase{"alpha.4711.jit.", meSuccess, 4711, "alpha."},
        NameCase{"x.y.1.jit", meSuccess, 1, "x.y"}));

// Writes a file of the given size in bytes into a directory.
std::string writeSized(const TempDir& dir, const std::string& name, std::size_t size) {
    return dir.write(name, TraceWriter().raw(korvane_tracewriter::Bytes(size, 0)));
}

struct Scan {
    JitFilesManager manager;
    korvane_error_t result;

    explicit Scan(std::vector<std::string> paths, korvane_3_10::target_arch_t arch = korvane_3_10::taAny) {
        PathList list(std::move(paths));
        result = manager.initialize(list.iterator(), arch);
    }

    std::vector<u32_t> pids() const {
        std::vector<u32_t> all;
        for (auto walk = manager.getJitPidArray(); !walk.at_end(); walk.next())
            all.push_back(walk.current());
        return all;
    }

    // Paths of a process's files in catalogue order.
    std::vector<std::string> paths(u32_t pid, const std::string& host) {
        std::vector<std::string> all;
        const JitFilesManager::ProcessJitInfo* process = manager.getProcessJitInfo(pid, manager.getHostID(host));
        if (process)
            for (const JitFilesManager::JitFileInfo& file : process->m_files)
                all.push_back(file.m_path);
        return all;
    }

    std::pair<u64_t, u64_t> range(const std::string& path) const {
        u64_t start = 0;
        u64_t end = 0;
        EXPECT_EQ(meSuccess, manager.getJitFileRange(path.c_str(), start, end)) << path;
        return std::make_pair(start, end);
    }
};

TEST(JitFilesManagerTest, AdjacentRangesStartAtOneInScanOrder) {
    TempDir dir;
    const std::string first = writeSized(dir, "h.1.jit", 100);
    const std::string empty = writeSized(dir, "h.2.jit", 0);
    const std::string second = writeSized(dir, "h.3.jit", 50);
    Scan scan({dir.str()});
    ASSERT_EQ(meSuccess, scan.result);
    EXPECT_EQ(std::make_pair(u64_t(1), u64_t(101)), scan.range(first));
    EXPECT_EQ(std::make_pair(u64_t(101), u64_t(101)), scan.range(empty));
    EXPECT_EQ(std::make_pair(u64_t(101), u64_t(151)), scan.range(second));
}

TEST(JitFilesManagerTest, NumbersRunOnAcrossDirectoriesInPathOrder) {
    TempDir root;
    const std::string b = root.mkdir("b");
    const std::string a = root.mkdir("a");
    const std::string inB = (boost::filesystem::path(b) / "h.1.jit").string();
    const std::string inA = (boost::filesystem::path(a) / "h.1.jit").string();
    TraceWriter().raw(korvane_tracewriter::Bytes(30, 0)).writeTo(inB);
    TraceWriter().raw(korvane_tracewriter::Bytes(20, 0)).writeTo(inA);
    Scan scan({b, a});
    ASSERT_EQ(meSuccess, scan.result);
    EXPECT_EQ(std::make_pair(u64_t(1), u64_t(21)), scan.range(inA));
    EXPECT_EQ(std::make_pair(u64_t(21), u64_t(51)), scan.range(inB));
    EXPECT_EQ((std::vector<std::string>{inA, inB}), scan.paths(1, "h"));
}

TEST(JitFilesManagerTest, FilesOfAProcessAreInByteOrderOfTheirNames) {
    TempDir dir;
    const std::string two = writeSized(dir, "h.1-2.jit", 1);
    const std::string ten = writeSized(dir, "h.1-10.jit", 1);
    const std::string plain = writeSized(dir, "h.1.jit", 1);
    Scan scan({dir.str()});
    ASSERT_EQ(meSuccess, scan.result);
    EXPECT_EQ((std::vector<std::string>{ten, two, plain}), scan.paths(1, "h"));
}

TEST(JitFilesManagerTest, HostIdsFollowFirstSightingInScanOrder) {
    TempDir root;
    const std::string early = root.mkdir("1");
    const std::string late = root.mkdir("2");
    TraceWriter().writeTo((boost::filesystem::path(early) / "b.5.jit").string());
    TraceWriter().writeTo((boost::filesystem::path(late) / "a.5.jit").string());
    TraceWriter().writeTo((boost::filesystem::path(late) / "b.6.jit").string());
    Scan scan({late, early});
    ASSERT_EQ(meSuccess, scan.result);
    EXPECT_EQ(1u, scan.manager.getHostID("b"));
    EXPECT_EQ(2u, scan.manager.getHostID("a"));
    EXPECT_EQ(0u, scan.manager.getHostID("c"));
    EXPECT_EQ(0u, scan.manager.getHostID(""));
    EXPECT_STREQ("b", scan.manager.getHostName(1));
    EXPECT_STREQ("a", scan.manager.getHostName(2));
    EXPECT_EQ(nullptr, scan.manager.getHostName(0));
    EXPECT_EQ(nullptr, scan.manager.getHostName(3));
    // Host ids first, then process ids: b has 5 and 6, a has 5.
    EXPECT_EQ((std::vector<u32_t>{5, 6, 5}), scan.pids());
}

TEST(JitFilesManagerTest, SameProcessOnTwoHostsIsListedTwice) {
    TempDir dir;
    writeSized(dir, "a.7.jit", 1);
    writeSized(dir, "b.7.jit", 1);
    Scan scan({dir.str()});
    ASSERT_EQ(meSuccess, scan.result);
    EXPECT_EQ((std::vector<u32_t>{7, 7}), scan.pids());
    EXPECT_NE(nullptr, scan.manager.getProcessJitInfo(7, 1));
    EXPECT_NE(nullptr, scan.manager.getProcessJitInfo(7, 2));
    EXPECT_EQ(nullptr, scan.manager.getProcessJitInfo(7, 3));
    EXPECT_EQ(nullptr, scan.manager.getProcessJitInfo(8, 1));
    EXPECT_EQ(nullptr, scan.manager.getProcessJitInfo(1, 7)) << "the process comes first";
}

TEST(JitFilesManagerTest, FilterKeepsOnlyPlainJitEntries) {
    TempDir dir;
    writeSized(dir, "h.1.jit", 4);
    writeSized(dir, ".jit", 4);
    writeSized(dir, "a.JIT", 4);
    writeSized(dir, "h.2.jit.bak", 4);
    writeSized(dir, "h.3.txt", 4);
    const std::string sub = dir.mkdir("x.4.jit");
    TraceWriter().writeTo((boost::filesystem::path(sub) / "h.5.jit").string());
    Scan scan({dir.str()});
    ASSERT_EQ(meSuccess, scan.result);
    EXPECT_EQ(std::vector<u32_t>{1}, scan.pids());
}

TEST(JitFilesManagerTest, DirectoryWithoutJitFilesAddsNothing) {
    TempDir dir;
    writeSized(dir, "notes.txt", 4);
    Scan scan({dir.str()});
    EXPECT_EQ(meSuccess, scan.result);
    EXPECT_TRUE(scan.pids().empty());
    EXPECT_EQ(nullptr, scan.manager.getHostName(1));
}

TEST(JitFilesManagerTest, EmptyOrNullListSucceeds) {
    Scan empty({});
    EXPECT_EQ(meSuccess, empty.result);
    EXPECT_TRUE(empty.pids().empty());
    EXPECT_EQ(nullptr, empty.manager.getHostName(1));

    JitFilesManager manager;
    skeinkit2::generic_iterator_t<const char*> none;
    EXPECT_EQ(meSuccess, manager.initialize(none, korvane_3_10::taAny));
}

TEST(JitFilesManagerTest, InitializeLeavesTheIteratorAtItsEnd) {
    TempDir dir;
    PathList list({dir.str()});
    JitFilesManager manager;
    ASSERT_EQ(meSuccess, manager.initialize(list.iterator(), korvane_3_10::taBits32));
    EXPECT_TRUE(list.iterator().at_end());
}

TEST(JitFilesManagerTest, DuplicatePathScannedOnceButOtherSpellingTwice) {
    TempDir dir;
    writeSized(dir, "h.1.jit", 10);
    Scan same({dir.str(), dir.str()});
    ASSERT_EQ(meSuccess, same.result);
    EXPECT_EQ(1u, same.paths(1, "h").size());

    const std::string spelled = (dir.path() / ".").string();
    Scan twice({dir.str(), spelled});
    ASSERT_EQ(meSuccess, twice.result);
    const std::vector<std::string> paths = twice.paths(1, "h");
    ASSERT_EQ(2u, paths.size());
    EXPECT_EQ(std::make_pair(u64_t(1), u64_t(11)), twice.range(paths[0]));
    EXPECT_EQ(std::make_pair(u64_t(11), u64_t(21)), twice.range(paths[1]));
}

TEST(JitFilesManagerTest, PathThatIsNoDirectoryFailsButKeepsEarlierDirectories) {
    TempDir root;
    const std::string good = root.mkdir("a");
    TraceWriter().writeTo((boost::filesystem::path(good) / "h.1.jit").string());
    const std::string file = writeSized(root, "plain", 1);
    const std::string missingBefore = root.file("0-missing");
    const std::string missingAfter = root.file("z-missing");

    Scan fileScan({file});
    EXPECT_EQ(meNotADirectory, fileScan.result);

    Scan late({good, missingAfter});
    EXPECT_EQ(meNotADirectory, late.result);
    EXPECT_EQ(std::vector<u32_t>{1}, late.pids());

    Scan early({good, missingBefore});
    EXPECT_EQ(meNotADirectory, early.result);
    EXPECT_TRUE(early.pids().empty());
}

TEST(JitFilesManagerTest, BadlyNamedFileEndsTheScanAndKeepsWhatCameBefore) {
    TempDir dir;
    writeSized(dir, "0.jit", 1);
    writeSized(dir, "h.1.jit", 1);
    Scan early({dir.str()});
    EXPECT_EQ(meNotFound, early.result);
    EXPECT_TRUE(early.pids().empty());

    TempDir other;
    writeSized(other, "a.1.jit", 1);
    writeSized(other, "z.jit", 1);
    Scan late({other.str()});
    EXPECT_EQ(meNotFound, late.result);
    EXPECT_EQ(std::vector<u32_t>{1}, late.pids());
}

TEST(JitFilesManagerTest, RangeOfAnUncataloguedFileLeavesResultsAlone) {
    TempDir dir;
    TempDir elsewhere;
    writeSized(dir, "h.1.jit", 10);
    Scan scan({dir.str()});
    ASSERT_EQ(meSuccess, scan.result);
    const std::vector<std::string> unknown = {elsewhere.file("h.1.jit"), dir.file("h.2.jit"), dir.file("g.1.jit"),
                                              dir.file("h.jit"), "h.1.jit"};
    for (const std::string& path : unknown) {
        u64_t start = 77;
        u64_t end = 88;
        EXPECT_EQ(meFileNotCatalogued, scan.manager.getJitFileRange(path.c_str(), start, end)) << path;
        EXPECT_EQ(77u, start);
        EXPECT_EQ(88u, end);
    }
}

TEST(JitFilesManagerTest, NewFileMarksAProcessUnread) {
    TempDir dir;
    const std::string path = writeSized(dir, "h.1.jit", 5);
    Scan scan({dir.str()});
    JitFilesManager::ProcessJitInfo* process = scan.manager.getProcessJitInfo(1, 1);
    ASSERT_NE(nullptr, process);
    process->m_isRead = true;
    u64_t next = 1000;
    ASSERT_EQ(meSuccess, scan.manager.addJitFileInfo(path, "h.1.jit", next));
    EXPECT_FALSE(process->m_isRead);
    EXPECT_EQ(1005u, next);
    ASSERT_EQ(2u, process->m_files.size());
    EXPECT_EQ(1000u, process->m_files.back().m_startJitRva);

    EXPECT_EQ(meNotFound, scan.manager.addJitFileInfo(path, "bad.jit", next));
    EXPECT_EQ(1005u, next);
    EXPECT_EQ(2u, process->m_files.size());
}

TEST(JitFilesManagerTest, HostNamesStayValidWhileHostsAreAdded) {
    TempDir dir;
    for (int host = 0; host < 40; ++host)
        writeSized(dir, "host" + std::to_string(100 + host) + ".1.jit", 1);
    Scan scan({dir.str()});
    ASSERT_EQ(meSuccess, scan.result);
    for (u32_t id = 1; id <= 40; ++id)
        EXPECT_EQ("host" + std::to_string(99 + id), scan.manager.getHostName(id));
    EXPECT_EQ(nullptr, scan.manager.getHostName(41));
}

struct ProcessesCase {
    const char* title;
    std::vector<std::string> files;
    bool created;
    std::vector<u32_t> pids;
};

class JitProcessesTest : public ::testing::TestWithParam<ProcessesCase> {};

TEST_P(JitProcessesTest, ListsProcessIdsOrIsNull) {
    const ProcessesCase& expected = GetParam();
    TempDir dir;
    for (const std::string& name : expected.files)
        writeSized(dir, name, 3);
    PathList list({dir.str()});
    const boost::intrusive_ptr<korvane_3_10::IJitProcesses> processes =
        korvane_3_10::IJitProcesses::create(list.iterator());
    ASSERT_EQ(expected.created, bool(processes));
    if (!processes)
        return;
    std::vector<u32_t> pids;
    for (auto walk = processes->getJitProcessId(); !walk.at_end(); walk.next())
        pids.push_back(walk.current());
    EXPECT_EQ(expected.pids, pids);
}

INSTANTIATE_TEST_SUITE_P(
    Directories, JitProcessesTest,
    ::testing::Values(ProcessesCase{"Empty", {}, true, {}},
                      ProcessesCase{"TwoHostsSamePid", {"b.9.jit", "a.9.jit", "a.3.jit"}, true, {3, 9, 9}},
                      ProcessesCase{"OnlyBadNames", {"bad.jit", "x.jit"}, false, {}},
                      ProcessesCase{"SeveralFilesOneProcess", {"h.4-1.jit", "h.4-2.jit"}, true, {4}}),
    [](const ::testing::TestParamInfo<ProcessesCase>& info) { return info.param.title; });

TEST(JitProcessesTest, MissingDirectoryGivesNull) {
    TempDir dir;
    PathList list({dir.file("missing")});
    EXPECT_FALSE(korvane_3_10::IJitProcesses::create(list.iterator()));
}

} // namespace
