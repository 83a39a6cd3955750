// Shared helpers of the tests: temporary trace directories and log capture.
#ifndef KORVANE_TESTS_TEST_SUPPORT_H
#define KORVANE_TESTS_TEST_SUPPORT_H

#include "tracewriter/trace_writer.h"

#include <korvane/jitreader.h>

#include <boost/filesystem/path.hpp>

#include <string>
#include <vector>

namespace korvane_test {

// A fresh directory under the system's temporary directory, removed with the object.
class TempDir {
public:
    TempDir();
    // Under the given directory instead of the system's temporary directory.
    explicit TempDir(const boost::filesystem::path& base);
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const boost::filesystem::path& path() const { return m_path; }
    std::string str() const { return m_path.string(); }
    // Path of an entry in the directory, as a string.
    std::string file(const std::string& name) const { return (m_path / name).string(); }
    // Writes a trace under the name and returns its full path.
    std::string write(const std::string& name, const korvane_tracewriter::TraceWriter& trace) const;
    // Makes a subdirectory and returns its full path.
    std::string mkdir(const std::string& name) const;

private:
    boost::filesystem::path m_path;
};

// Makes a Unix domain socket at the path; false if it can't.
bool makeSocket(const std::string& path);

// An iterator over the caller's list of directories, as a user builds it.
class PathList {
public:
    explicit PathList(std::vector<std::string> paths);
    skeinkit2::generic_iterator_t<const char*>& iterator() { return m_iterator; }

private:
    std::vector<std::string> m_paths;
    std::vector<const char*> m_texts;
    skeinkit2::generic_iterator_t<const char*> m_iterator;
};

// Collects what the library logs under "korvane.jitreader" while it lives.
class LogCapture {
public:
    // TRACE captures everything; the logger's level is restored afterwards.
    explicit LogCapture(int level = 0);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> messages() const;
    // Messages logged at exactly the given log4cplus level.
    std::vector<std::string> messages(int level) const;
    bool contains(const std::string& text) const;
    std::size_t count(const std::string& text) const;
    void clear();

private:
    struct Impl;
    Impl* m_impl;
};

} // namespace korvane_test

#endif
