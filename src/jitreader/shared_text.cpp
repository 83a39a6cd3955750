// Read-only texts in one block that copies share, freed with its last holder.
#include "jitreader/shared_text.h"

#include <cstring>
#include <new>

namespace korvane_3_10 {

SharedText::Ptr SharedText::create(std::string_view first, std::string_view second, std::string_view third) {
    const std::string_view texts[kTexts] = {first, second, third};
    void* block = ::operator new(sizeof(SharedText) + first.size() + second.size() + third.size() + kTexts);
    SharedText* made = new (block) SharedText();
    char* out = reinterpret_cast<char*>(made + 1);
    for (unsigned index = 0; index < kTexts; ++index) {
        const std::string_view text = texts[index];
        if (!text.empty())
            std::memcpy(out, text.data(), text.size());
        out[text.size()] = '\0';
        out += text.size() + 1;
        made->m_lengths[index] = static_cast<u32_t>(text.size());
    }
    return Ptr(made);
}

std::size_t SharedText::start(unsigned index) const {
    std::size_t offset = 0;
    for (unsigned before = 0; before < index; ++before)
        offset += std::size_t(m_lengths[before]) + 1;
    return offset;
}

void intrusive_ptr_add_ref(const SharedText* text) {
    text->m_references.fetch_add(1, std::memory_order_relaxed);
}

void intrusive_ptr_release(const SharedText* text) {
    if (text->m_references.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    text->~SharedText();
    ::operator delete(const_cast<SharedText*>(text));
}

} // namespace korvane_3_10
