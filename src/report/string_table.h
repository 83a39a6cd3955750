// Texts kept once each and named by a small number; number 0 is the empty text.
#ifndef KORVANE_REPORT_STRING_TABLE_H
#define KORVANE_REPORT_STRING_TABLE_H

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace korvane_report {

class StringTable {
public:
    StringTable();
    StringTable(const StringTable&) = delete;
    StringTable& operator=(const StringTable&) = delete;

    std::uint32_t intern(std::string_view text);
    const std::string& text(std::uint32_t id) const { return *m_texts[id]; }
    std::uint32_t size() const { return static_cast<std::uint32_t>(m_texts.size()); }

private:
    // Keys are views of the texts the deque holds, which never move.
    std::deque<std::string> m_storage;
    std::unordered_map<std::string_view, std::uint32_t> m_ids;
    std::vector<const std::string*> m_texts;
};

} // namespace korvane_report

#endif
