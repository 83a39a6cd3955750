// The 128-bit identity by which records of one method find each other.
#ifndef KORVANE_JITREADER_BASE_METHOD_ID_H
#define KORVANE_JITREADER_BASE_METHOD_ID_H

#include <korvane/types.h>

#include <cstddef>

namespace korvane_3_10 {

struct BaseMethodId {
    u64_t m_first;
    u64_t m_second;

    bool isEmpty() const { return m_first == 0 && m_second == 0; }
    bool operator==(const BaseMethodId& other) const {
        return m_first == other.m_first && m_second == other.m_second;
    }
    bool operator!=(const BaseMethodId& other) const { return !(*this == other); }

    // The digest's bits are spread evenly already; both words go in for ids that aren't digests.
    // Cheap and noexcept, so that hash tables recompute it instead of keeping it in every node.
    struct Hash {
        std::size_t operator()(const BaseMethodId& id) const noexcept {
            return static_cast<std::size_t>(id.m_first ^ (id.m_second * 0x9e3779b97f4a7c15ull));
        }
    };

    struct Comparator {
        bool operator()(const BaseMethodId& a, const BaseMethodId& b) const {
            return a.m_first != b.m_first ? a.m_first < b.m_first : a.m_second < b.m_second;
        }
    };
};

} // namespace korvane_3_10

#endif
