// Trace file names: HOST.PID.jit, the process id perhaps followed by "-N".
#include <korvane/interfaces.h>

#include <boost/tokenizer.hpp>

#include <sstream>

namespace korvane_3_10 {

namespace {

typedef boost::tokenizer<boost::char_separator<char> > Tokenizer;

const char kJitSuffix[] = ".jit";
const std::size_t kJitSuffixLength = sizeof(kJitSuffix) - 1;

// The process id is the first dash-separated part of the process token. A part
// that holds no number leaves pid alone; "12ab" gives 12.
void readProcessId(const ustring& processToken, u32_t& pid) {
    const boost::char_separator<char> dash("-");
    const Tokenizer parts(processToken, dash);
    if (parts.begin() == parts.end())
        return;
    std::stringstream stream(*parts.begin());
    stream >> pid;
}

} // namespace

bool isTraceFileName(const ustring& name) {
    return name.size() > kJitSuffixLength &&
           name.compare(name.size() - kJitSuffixLength, kJitSuffixLength, kJitSuffix) == 0;
}

korvane_error_t parseTraceFileName(const ustring& name, u32_t& pid, ustring& hostName) {
    if (name.empty())
        return meNotFound;
    const boost::char_separator<char> dot(".");
    const Tokenizer tokens(name, dot);
    Tokenizer::iterator processToken = tokens.begin();
    Tokenizer::iterator lookahead = tokens.begin();
    for (int step = 0; step < 2 && lookahead != tokens.end(); ++step)
        ++lookahead;
    if (lookahead == tokens.end())
        return meNotFound;
    for (; lookahead != tokens.end(); ++lookahead)
        ++processToken;

    const ustring process = *processToken;
    readProcessId(process, pid);
    ++processToken;
    const std::size_t lastTokenLength = processToken->size();
    // Counts exactly two dots before the two tokens: "alpha..4711.jit" keeps "alpha.".
    hostName.assign(name, 0, name.size() - 2 - process.size() - lastTokenLength);
    return meSuccess;
}

} // namespace korvane_3_10
