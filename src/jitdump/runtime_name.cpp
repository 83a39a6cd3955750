// The name a runtime gave a piece of code, split into function and source file where the runtime
// put both in it (Node.js: "JS:*walk /srv/app.js:12:5").
#include "jitdump/runtime_name.h"

#include <utility>

namespace korvane_jitdump {

namespace {

const std::string kNodeFunction = "JS:";
// V8 marks the tier that compiled the code: interpreted, baseline, mid-tier, optimised.
const std::string kTierMarks = "~^+*";
const std::string kAnonymous = "<anonymous>";
const std::uint32_t kLargestLine = 0x7fffffff;

bool isNumber(const std::string& text) {
    return !text.empty() && text.size() < 10 && text.find_first_not_of("0123456789") == std::string::npos;
}

// "FILE:LINE:COLUMN" into FILE and LINE; false for anything else.
bool splitLocation(const std::string& location, std::string& file, std::uint32_t& line) {
    const std::size_t columnColon = location.rfind(':');
    if (columnColon == std::string::npos || columnColon == 0 || !isNumber(location.substr(columnColon + 1)))
        return false;
    const std::size_t lineColon = location.rfind(':', columnColon - 1);
    if (lineColon == std::string::npos || lineColon == 0)
        return false;
    const std::string lineText = location.substr(lineColon + 1, columnColon - lineColon - 1);
    if (!isNumber(lineText))
        return false;
    const unsigned long number = std::stoul(lineText);
    if (number > kLargestLine)
        return false;
    file = location.substr(0, lineColon);
    line = static_cast<std::uint32_t>(number);
    return true;
}

} // namespace

RuntimeName::RuntimeName(std::string method, std::string sourceFile, std::uint32_t line)
    : m_method(std::move(method)), m_sourceFile(std::move(sourceFile)), m_line(line) {}

RuntimeName RuntimeName::create(const std::string& written) {
    const RuntimeName asWritten(written, std::string(), 0);
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
    std::uint32_t line = 0;
    if (!splitLocation(written.substr(blank + 1), file, line))
        return asWritten;
    const std::string function = written.substr(start, blank - start);
    return RuntimeName(function.empty() ? kAnonymous : function, file, line);
}

} // namespace korvane_jitdump
