// A runtime's name for a piece of code, split into function and source file where it holds both.
#include "jitdump/runtime_name.h"

namespace korvane_jitdump {

namespace {

const std::string_view kNodeFunction = "JS:";
// V8 marks the tier that compiled the code: interpreted, baseline, mid-tier, optimised.
const std::string_view kTierMarks = "~^+*";
const char kAnonymous[] = "<anonymous>";

bool isNumber(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// The file of "FILE:LINE:COLUMN"; false for anything else. Views, so that a name is split
// without a copy of each piece.
bool fileOfLocation(std::string_view location, std::string_view& file) {
    const std::size_t columnColon = location.rfind(':');
    if (columnColon == std::string_view::npos || columnColon == 0 || !isNumber(location.substr(columnColon + 1)))
        return false;
    const std::size_t lineColon = location.rfind(':', columnColon - 1);
    if (lineColon == std::string_view::npos || lineColon == 0 ||
        !isNumber(location.substr(lineColon + 1, columnColon - lineColon - 1)))
        return false;
    file = location.substr(0, lineColon);
    return true;
}

} // namespace

RuntimeName::RuntimeName(std::string_view method, std::string_view sourceFile)
    : m_method(method), m_sourceFile(sourceFile) {}

RuntimeName RuntimeName::create(std::string_view text) {
    if (text.compare(0, kNodeFunction.size(), kNodeFunction) != 0)
        return RuntimeName(text, std::string_view());
    std::size_t start = kNodeFunction.size();
    if (start < text.size() && kTierMarks.find(text[start]) != std::string_view::npos)
        ++start;
    // Function names may hold blanks ("get size"), file names rarely do.
    const std::size_t blank = text.rfind(' ');
    std::string_view file;
    if (blank == std::string_view::npos || blank < start || !fileOfLocation(text.substr(blank + 1), file))
        return RuntimeName(text, std::string_view());
    const std::string_view function = text.substr(start, blank - start);
    return RuntimeName(function.empty() ? std::string_view(kAnonymous) : function, file);
}

} // namespace korvane_jitdump
