// Texts kept once each and named by a small number; number 0 is the empty text.
#include "string_table.h"

namespace korvane_report {

StringTable::StringTable() { intern(std::string_view()); }

std::uint32_t StringTable::intern(std::string_view text) {
    const auto inserted = m_ids.emplace(std::string(text), size());
    if (inserted.second)
        m_texts.push_back(&inserted.first->first);
    return inserted.first->second;
}

} // namespace korvane_report
