// Texts kept once each and named by a small number; number 0 is the empty text.
#include "string_table.h"

namespace korvane_report {

StringTable::StringTable() { intern(std::string_view()); }

std::uint32_t StringTable::intern(std::string_view text) {
    m_probe.assign(text.data(), text.size());
    const auto found = m_ids.find(m_probe);
    if (found != m_ids.end())
        return found->second;
    const auto inserted = m_ids.emplace(m_probe, size());
    m_texts.push_back(&inserted.first->first);
    return inserted.first->second;
}

} // namespace korvane_report
