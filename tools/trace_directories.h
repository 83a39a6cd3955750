// The directories a command was given, as the library takes them, and what to
// say when scanning them fails.
#ifndef KORVANE_TOOLS_TRACE_DIRECTORIES_H
#define KORVANE_TOOLS_TRACE_DIRECTORIES_H

#include <korvane/jitreader.h>

#include <ostream>
#include <string>
#include <vector>

namespace korvane_tool {

class TraceDirectories {
public:
    explicit TraceDirectories(std::vector<std::string> directories);
    TraceDirectories(const TraceDirectories&) = delete;
    TraceDirectories& operator=(const TraceDirectories&) = delete;

    const std::vector<std::string>& directories() const { return m_directories; }
    // A fresh iterator over the directories for each front end that is made.
    skeinkit2::generic_iterator_t<const char*> iterator() const;

    // The trace files as the front ends number them; on failure says on err what is wrong and where.
    bool listFiles(std::vector<korvane_3_10::TraceFileEntry>& files, std::ostream& err) const;
    // The front ends over the directories; null after saying on err what is wrong.
    boost::intrusive_ptr<korvane_3_10::ISymbolResolver> resolver(std::ostream& err) const;
    boost::intrusive_ptr<korvane_3_10::ISymbolResolver> resolver(korvane_arch arch, std::ostream& err) const;
    boost::intrusive_ptr<korvane_3_10::IJitLoader> loader(std::ostream& err) const;
    // The loader and then the resolver; false after saying on err what is wrong.
    bool frontEnds(boost::intrusive_ptr<korvane_3_10::IJitLoader>& loader,
                   boost::intrusive_ptr<korvane_3_10::ISymbolResolver>& resolver, std::ostream& err) const;

private:
    // Says what is wrong after a front end could not be made over the directories.
    void explainFailure(std::ostream& err) const;
    void explain(korvane_error_t result, std::ostream& err) const;
    bool explainBadDirectories(std::ostream& err) const;
    bool explainBadFileNames(std::ostream& err) const;

    std::vector<std::string> m_directories;
    std::vector<const char*> m_texts;
};

} // namespace korvane_tool

#endif
