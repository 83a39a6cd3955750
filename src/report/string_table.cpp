// Texts kept once each and named by a small number; number 0 is the empty text.
#include "string_table.h"

namespace korvane_report {

StringTable::StringTable() { intern(std::string_view()); }

std::uint32_t StringTable::intern(std::string_view text) {
    const auto found = m_ids.find(text);
    if (found != m_ids.end())
        return found->second;
    m_storage.emplace_back(text);
    m_texts.push_back(&m_storage.back());
    m_ids.emplace(m_storage.back(), size() - 1);
    return size() - 1;
}

} // namespace korvane_report
