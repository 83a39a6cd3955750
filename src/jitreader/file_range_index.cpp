// The jit RVA range of each catalogued file by the path that names it, found without taking the name apart.
#include "jitreader/file_range_index.h"

#include <boost/filesystem/path.hpp>

namespace korvane_3_10 {

namespace {

// Two paths compare equal when their elements do, whatever separators stand between them.
std::string elementsOf(const std::string& path) {
    std::string key;
    const boost::filesystem::path parsed(path);
    for (const boost::filesystem::path& element : parsed) {
        key += element.string();
        key += '\0';
    }
    return key;
}

} // namespace

std::size_t FileRangeIndex::TailHash::operator()(std::string_view path) const {
    const std::size_t tail = 24;
    const std::string_view last = path.size() > tail ? path.substr(path.size() - tail) : path;
    return std::hash<std::string_view>()(last) ^ path.size();
}

void FileRangeIndex::add(const std::string& path, u64_t start, u64_t end) {
    const Bounds first = m_byElements.emplace(elementsOf(path), Bounds(start, end)).first->second;
    m_spellings.push_back(path);
    m_bySpelling.emplace(std::string_view(m_spellings.back()), first);
}

bool FileRangeIndex::find(const char* path, u64_t& start, u64_t& end) const {
    const auto found = m_bySpelling.find(std::string_view(path));
    if (found == m_bySpelling.end())
        return false;
    start = found->second.first;
    end = found->second.second;
    return true;
}

} // namespace korvane_3_10
