// Read-only text that copies share, freed with its last holder.
#include "jitreader/shared_text.h"

#include "jitreader/terminated_text.h"

#include <new>

namespace korvane_3_10 {

SharedText::Ptr SharedText::create(std::string_view first, std::string_view second) {
    void* block = ::operator new(sizeof(SharedText) + first.size() + second.size() + 2);
    SharedText* made = new (block) SharedText(static_cast<u32_t>(first.size()), static_cast<u32_t>(second.size()));
    appendTerminated(appendTerminated(reinterpret_cast<char*>(made + 1), first), second);
    return Ptr(made);
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
