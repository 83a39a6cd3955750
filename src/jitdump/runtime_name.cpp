// A runtime's name for a piece of code, split into function and source file where it holds both.
#include "jitdump/runtime_name.h"

#include <utility>

namespace korvane_jitdump {

namespace {

const std::string kNodeFunction = "JS:";
// V8 marks the tier that compiled the code: interpreted, baseline, mid-tier, optimised.
const std::string kTierMarks = "~^+*";
const std::string kAnonymous = "<anonymous>";

bool isNumber(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// The file of "FILE:LINE:COLUMN"; false for anything else.
bool fileOfLocation(const std::string& location, std::string& file) {
    const std::size_t columnColon = location.rfind(':');
    if (columnColon == std::string::npos || columnColon == 0 || !isNumber(location.substr(columnColon + 1)))
        return false;
    const std::size_t lineColon = location.rfind(':', columnColon - 1);
    if (lineColon == std::string::npos || lineColon == 0 ||
        !isNumber(location.substr(lineColon + 1, columnColon - lineColon - 1)))
        return false;
    file = location.substr(0, lineColon);
    return true;
}

} // namespace

RuntimeName::RuntimeName(std::string method, std::string sourceFile)
    : m_method(std::move(method)), m_sourceFile(std::move(sourceFile)) {}

RuntimeName RuntimeName::create(const std::string& written) {
    const RuntimeName asWritten(written, std::string());
    if (written.compare(0, kNodeFunction.size(), kNodeFunction) != 0)
        return asWritten;
    std::size_t start = kNodeFunction.size();
    if (start < written.size() && kTierMarks.find(written[start]) != std::string::npos)
        ++start;
    // Function names may hold blanks ("get size"), file names rarely do.
    const std::size_t blank = written.rfind(' ');
    if (blank == std::string::npos || blank < start)
        return asWritten;
    std::string file;
    if (!fileOfLocation(written.substr(blank + 1), file))
        return asWritten;
    const std::string function = written.substr(start, blank - start);
    return RuntimeName(function.empty() ? kAnonymous : function, file);
}

} // namespace korvane_jitdump
