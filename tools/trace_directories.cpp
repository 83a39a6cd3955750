// The directories a command was given, as the library takes them, and what to
// say when scanning them fails.
#include "trace_directories.h"

#include <boost/filesystem/operations.hpp>

#include <set>
#include <utility>

namespace korvane_tool {

namespace fs = boost::filesystem;

namespace {

bool looksLikeTrace(const fs::directory_entry& entry) {
    const std::string name = entry.path().filename().string();
    boost::system::error_code ignored;
    return korvane_3_10::isTraceFileName(name) && !fs::is_directory(fs::status(entry.path(), ignored));
}

} // namespace

TraceDirectories::TraceDirectories(std::vector<std::string> directories) : m_directories(std::move(directories)) {
    for (const std::string& directory : m_directories)
        m_texts.push_back(directory.c_str());
}

skeinkit2::generic_iterator_t<const char*> TraceDirectories::iterator() const {
    typedef skeinkit2::iterutil::stl_iterator_impl_t<const char*, std::vector<const char*>::const_iterator> Walk;
    return skeinkit2::generic_iterator_t<const char*>(Walk(m_texts.begin(), m_texts.end()));
}

bool TraceDirectories::listFiles(std::vector<korvane_3_10::TraceFileEntry>& files, std::ostream& err) const {
    skeinkit2::generic_iterator_t<const char*> paths = iterator();
    const korvane_error_t result = korvane_3_10::listTraceFiles(paths, files);
    if (result == meSuccess)
        return true;
    explain(result, err);
    return false;
}

boost::intrusive_ptr<korvane_3_10::ISymbolResolver> TraceDirectories::resolver(std::ostream& err) const {
    skeinkit2::generic_iterator_t<const char*> paths = iterator();
    boost::intrusive_ptr<korvane_3_10::ISymbolFileLocator> noLocator;
    boost::intrusive_ptr<korvane_3_10::ISymbolResolver> result =
        korvane_3_10::ISymbolResolver::create(paths, noLocator);
    if (!result)
        explainFailure(err);
    return result;
}

boost::intrusive_ptr<korvane_3_10::ISymbolResolver> TraceDirectories::resolver(korvane_arch arch,
                                                                                std::ostream& err) const {
    skeinkit2::generic_iterator_t<const char*> paths = iterator();
    boost::intrusive_ptr<korvane_3_10::ISymbolFileLocator> noLocator;
    boost::intrusive_ptr<korvane_3_10::ISymbolResolver> result =
        korvane_3_10::ISymbolResolver::create(paths, noLocator, arch);
    if (!result)
        explainFailure(err);
    return result;
}

boost::intrusive_ptr<korvane_3_10::IJitLoader> TraceDirectories::loader(std::ostream& err) const {
    skeinkit2::generic_iterator_t<const char*> paths = iterator();
    boost::intrusive_ptr<korvane_3_10::IJitLoader> result = korvane_3_10::IJitLoader::create(paths);
    if (!result)
        explainFailure(err);
    return result;
}

bool TraceDirectories::frontEnds(boost::intrusive_ptr<korvane_3_10::IJitLoader>& loader,
                                 boost::intrusive_ptr<korvane_3_10::ISymbolResolver>& resolver,
                                 std::ostream& err) const {
    loader = this->loader(err);
    resolver = loader ? this->resolver(err) : nullptr;
    return resolver != nullptr;
}

void TraceDirectories::explainFailure(std::ostream& err) const {
    std::vector<korvane_3_10::TraceFileEntry> files;
    if (listFiles(files, err))
        err << "korvane-jit: the traces in these directories could not be read\n";
}

void TraceDirectories::explain(korvane_error_t result, std::ostream& err) const {
    if (result == meNotADirectory && explainBadDirectories(err))
        return;
    if (result == meNotFound && explainBadFileNames(err))
        return;
    err << "korvane-jit: scanning the directories failed with result code " << result << "\n";
}

bool TraceDirectories::explainBadDirectories(std::ostream& err) const {
    bool found = false;
    for (const std::string& directory : std::set<std::string>(m_directories.begin(), m_directories.end())) {
        boost::system::error_code error;
        const fs::file_status status = fs::status(directory, error);
        if (fs::is_directory(status))
            continue;
        err << "korvane-jit: " << directory << ": "
            << (fs::exists(status)                         ? "is not a directory"
                : status.type() == fs::file_not_found ? "no such directory"
                                                      : error.message())
            << "\n";
        found = true;
    }
    return found;
}

bool TraceDirectories::explainBadFileNames(std::ostream& err) const {
    bool found = false;
    for (const std::string& directory : std::set<std::string>(m_directories.begin(), m_directories.end())) {
        boost::system::error_code error;
        for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error)) {
            korvane_3_10::u32_t pid = 0;
            std::string host;
            if (!looksLikeTrace(*entry) ||
                korvane_3_10::parseTraceFileName(entry->path().filename().string(), pid, host) == meSuccess)
                continue;
            err << "korvane-jit: " << entry->path().string()
                << ": the file name does not say host and process; trace files are named HOST.PID.jit\n";
            found = true;
        }
        if (error) {
            err << "korvane-jit: " << directory << ": cannot be listed: " << error.message() << "\n";
            found = true;
        }
    }
    return found;
}

} // namespace korvane_tool
