// The catalogue and its public listing: names, scan order, host ids, jit RVA ranges and failures, on real directories.
#include "jitreader/jit_files_manager.h"

#include "test_support.h"

#include <boost/filesystem/operations.hpp>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace korvane_3_10;
using korvane_test::PathList;
using korvane_test::TempDir;

const u32_t kUntouched = 0xdeadbeef;

TEST(JitFilesManagerTest, FileNamesSplitIntoHostAndProcess) {
    struct Case {
        const char* name;
        korvane_error_t result;
        u32_t pid;
        const char* host;
    };
    const std::vector<Case> cases = {
        {"", meNotFound, kUntouched, "untouched"},
        {"a.jit", meNotFound, kUntouched, "untouched"},
        {"4711.jit", meNotFound, kUntouched, "untouched"},
        {"..a..jit..", meNotFound, kUntouched, "untouched"},
        {"alpha.4711.jit", meSuccess, 4711, "alpha"},
        {"alpha.beta.4711-3.jit", meSuccess, 4711, "alpha.beta"},
        {"host.7-1-2.jit", meSuccess, 7, "host"},
        {"host.-3.jit", meSuccess, 3, "host"},
        {"host.12ab.jit", meSuccess, 12, "host"},
        {"a.b.c", meSuccess, 0, "a"},
        // No sub-token at all: the caller's value stays.
        {"host.---.jit", meSuccess, kUntouched, "host"},
        {"host.99999999999.jit", meSuccess, 0xffffffff, "host"},
        // Exactly two dots are counted in front of the last two tokens.
        {"alpha..4711.jit", meSuccess, 4711, "alpha."},
        {"alpha.4711.jit.", meSuccess, 4711, "alpha."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        u32_t pid = kUntouched;
        std::string host = "untouched";
        EXPECT_EQ(c.result, parseTraceFileName(c.name, pid, host));
        EXPECT_EQ(c.pid, pid);
        EXPECT_EQ(c.host, host);
    }
}

// Writes files of the given sizes under the root, in subdirectories where the name says so.
void writeFiles(const TempDir& root, const std::vector<std::pair<std::string, std::size_t>>& files) {
    for (const auto& file : files) {
        boost::filesystem::create_directories(boost::filesystem::path(root.file(file.first)).parent_path());
        root.write(file.first, korvane_tracewriter::TraceWriter().raw(korvane_tracewriter::Bytes(file.second, 0)));
    }
}

std::vector<u32_t> pidsOf(const JitFilesManager& manager) {
    std::vector<u32_t> pids;
    for (auto walk = manager.getJitPidArray(); !walk.at_end(); walk.next())
        pids.push_back(walk.current());
    return pids;
}

// Directories given as b, a: all files are numbered in the order of their full
// paths, from 1, back to back; only plain "*.jit" files directly inside count.
TEST(JitFilesManagerTest, CatalogueOrdersNumbersAndNamesWhatItFinds) {
    TempDir root;
    writeFiles(root, {{"a/y.1.jit", 20}, {"b/y.1-2.jit", 10}, {"b/y.1-10.jit", 0}, {"b/x.1.jit", 5},
                      {"b/y.1.jit", 30}, {"b/notes.txt", 1}, {"b/a.JIT", 1}, {"b/y.2.jit.bak", 1}, {"b/.jit", 1},
                      {"b/y.4.jit/y.5.jit", 1}});
    PathList paths({root.file("b"), root.file("a")});
    JitFilesManager manager;
    ASSERT_EQ(meSuccess, manager.initialize(paths.iterator(), taAny));
    EXPECT_TRUE(paths.iterator().at_end());

    const std::vector<std::pair<std::string, std::pair<u64_t, u64_t>>> ranges = {
        {"a/y.1.jit", {1, 21}},    {"b/x.1.jit", {21, 26}},   {"b/y.1-10.jit", {26, 26}},
        {"b/y.1-2.jit", {26, 36}}, {"b/y.1.jit", {36, 66}}};
    for (const auto& range : ranges) {
        u64_t start = 0;
        u64_t end = 0;
        EXPECT_EQ(meSuccess, manager.getJitFileRange(root.file(range.first).c_str(), start, end)) << range.first;
        EXPECT_EQ(range.second, std::make_pair(start, end)) << range.first;
    }
    // Hosts are numbered as first seen; pids are listed host by host, so twice here.
    EXPECT_EQ(1u, manager.getHostID("y"));
    EXPECT_EQ(2u, manager.getHostID("x"));
    EXPECT_EQ(0u, manager.getHostID("z"));
    EXPECT_STREQ("x", manager.getHostName(2));
    EXPECT_EQ(nullptr, manager.getHostName(0));
    EXPECT_EQ(nullptr, manager.getHostName(3));
    EXPECT_EQ(std::vector<u32_t>({1, 1}), pidsOf(manager));
    EXPECT_EQ(nullptr, manager.getProcessJitInfo(1, 3));
    EXPECT_EQ(nullptr, manager.getProcessJitInfo(2, 1)) << "the process comes first";
    std::vector<std::string> files;
    for (const JitFilesManager::JitFileInfo& file : manager.getProcessJitInfo(1, 1)->m_files)
        files.push_back(file.m_path);
    EXPECT_EQ(std::vector<std::string>({root.file("a/y.1.jit"), root.file("b/y.1-10.jit"), root.file("b/y.1-2.jit"),
                                        root.file("b/y.1.jit")}),
              files);

    // The public listing: host by host, process by process, each file with its range.
    PathList again({root.file("b"), root.file("a")});
    std::vector<TraceFileEntry> listed;
    ASSERT_EQ(meSuccess, listTraceFiles(again.iterator(), listed));
    std::vector<std::string> rows;
    for (const TraceFileEntry& file : listed)
        rows.push_back(std::to_string(file.hostId) + " " + file.hostName + " " + std::to_string(file.pid) + " " +
                       std::to_string(file.startJitRva) + "+" + std::to_string(file.size) + " " + file.path);
    EXPECT_EQ(std::vector<std::string>({"1 y 1 1+20 " + root.file("a/y.1.jit"),
                                        "1 y 1 26+0 " + root.file("b/y.1-10.jit"),
                                        "1 y 1 26+10 " + root.file("b/y.1-2.jit"),
                                        "1 y 1 36+30 " + root.file("b/y.1.jit"),
                                        "2 x 1 21+5 " + root.file("b/x.1.jit")}),
              rows);

    // Ranges of files the catalogue doesn't hold leave the caller's values alone.
    for (const std::string& path : {root.file("c/y.1.jit"), root.file("b/y.2.jit"), std::string("y.1.jit")}) {
        u64_t start = 77;
        u64_t end = 88;
        EXPECT_EQ(meFileNotCatalogued, manager.getJitFileRange(path.c_str(), start, end)) << path;
        EXPECT_EQ(std::make_pair(u64_t(77), u64_t(88)), std::make_pair(start, end));
    }
}

// The first path that is no directory, and the first badly named file, end the
// scan; what was catalogued before stays. Both front ends over the same paths agree.
TEST(JitFilesManagerTest, ScansEndAtTheFirstFailure) {
    struct Case {
        const char* name;
        std::vector<std::string> files;
        std::vector<std::string> paths;
        korvane_error_t result;
        std::vector<u32_t> pids;
    };
    const std::vector<Case> cases = {
        {"nothing", {}, {}, meSuccess, {}},
        {"no trace", {"d/notes.txt"}, {"d"}, meSuccess, {}},
        {"hosts of one pid", {"d/b.9.jit", "d/a.9.jit", "d/a.3.jit"}, {"d"}, meSuccess, {3, 9, 9}},
        {"a file", {"d/h.1.jit"}, {"d/h.1.jit"}, meNotADirectory, {}},
        {"missing after", {"d/h.1.jit"}, {"d", "z-missing"}, meNotADirectory, {1}},
        {"missing before", {"d/h.1.jit"}, {"d", "0-missing"}, meNotADirectory, {}},
        {"bad name first", {"d/0.jit", "d/h.1.jit"}, {"d"}, meNotFound, {}},
        {"bad name last", {"d/a.1.jit", "d/z.jit"}, {"d"}, meNotFound, {1}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir root;
        std::vector<std::string> paths;
        for (const std::string& file : c.files)
            writeFiles(root, {{file, 3}});
        for (const std::string& path : c.paths)
            paths.push_back(root.file(path));
        PathList list(paths);
        JitFilesManager manager;
        EXPECT_EQ(c.result, manager.initialize(list.iterator(), taAny));
        EXPECT_EQ(c.pids, pidsOf(manager));

        PathList forListing(paths);
        std::vector<TraceFileEntry> files(1);
        EXPECT_EQ(c.result, listTraceFiles(forListing.iterator(), files));
        std::vector<u32_t> filePids;
        for (const TraceFileEntry& file : files)
            filePids.push_back(file.pid);
        // Every case has one file a process; a failed scan lists nothing.
        EXPECT_EQ(c.result == meSuccess ? c.pids : std::vector<u32_t>(), filePids);

        PathList again(paths);
        const boost::intrusive_ptr<IJitProcesses> processes = IJitProcesses::create(again.iterator());
        ASSERT_EQ(c.result == meSuccess, static_cast<bool>(processes));
        if (!processes)
            continue;
        std::vector<u32_t> listed;
        for (auto walk = processes->getJitProcessId(); !walk.at_end(); walk.next())
            listed.push_back(walk.current());
        EXPECT_EQ(c.pids, listed);
    }
    skeinkit2::generic_iterator_t<const char*> none;
    EXPECT_EQ(meSuccess, JitFilesManager().initialize(none, taAny));
}

} // namespace
