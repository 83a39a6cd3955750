// Read-only text that copies share, freed with its last holder.
#ifndef KORVANE_JITREADER_SHARED_TEXT_H
#define KORVANE_JITREADER_SHARED_TEXT_H

#include <korvane/types.h>

#include <boost/intrusive_ptr.hpp>

#include <atomic>
#include <string_view>

namespace korvane_3_10 {

// Two texts, each followed by a NUL, in one block behind a reference count: a source file
// is copied into every source location asked for, and a copy then costs no allocation.
class SharedText {
public:
    typedef boost::intrusive_ptr<const SharedText> Ptr;

    static Ptr create(std::string_view first, std::string_view second);

    const char* first() const { return text(); }
    const char* second() const { return text() + m_firstLength + 1; }
    std::string_view firstView() const { return std::string_view(first(), m_firstLength); }
    std::string_view secondView() const { return std::string_view(second(), m_secondLength); }

    friend void intrusive_ptr_add_ref(const SharedText* text);
    friend void intrusive_ptr_release(const SharedText* text);

private:
    SharedText(u32_t firstLength, u32_t secondLength)
        : m_references(0), m_firstLength(firstLength), m_secondLength(secondLength) {}
    const char* text() const { return reinterpret_cast<const char*>(this + 1); }

    mutable std::atomic<u32_t> m_references;
    const u32_t m_firstLength;
    const u32_t m_secondLength;
};

} // namespace korvane_3_10

#endif
