// Read-only texts in one block that copies share, freed with its last holder.
#ifndef KORVANE_JITREADER_SHARED_TEXT_H
#define KORVANE_JITREADER_SHARED_TEXT_H

#include <korvane/types.h>

#include <boost/intrusive_ptr.hpp>

#include <atomic>
#include <string_view>

namespace korvane_3_10 {

// Up to three texts, each followed by a NUL so that callers get C strings, in one block behind
// a reference count: every method keeps its names and its source file, mostly longer than a
// string keeps in place, and every source location a copy of the source file; a copy then
// costs no allocation.
class SharedText {
public:
    typedef boost::intrusive_ptr<const SharedText> Ptr;
    static const unsigned kTexts = 3;

    static Ptr create(std::string_view first, std::string_view second, std::string_view third = std::string_view());

    const char* text(unsigned index) const { return block() + start(index); }
    std::string_view view(unsigned index) const { return std::string_view(text(index), m_lengths[index]); }

    friend void intrusive_ptr_add_ref(const SharedText* text);
    friend void intrusive_ptr_release(const SharedText* text);

private:
    SharedText() : m_references(0), m_lengths{0, 0, 0} {}
    const char* block() const { return reinterpret_cast<const char*>(this + 1); }
    std::size_t start(unsigned index) const;

    mutable std::atomic<u32_t> m_references;
    u32_t m_lengths[kTexts];
};

} // namespace korvane_3_10

#endif
