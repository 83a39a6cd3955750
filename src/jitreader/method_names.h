// The three names of a method, kept in one shared block.
#ifndef KORVANE_JITREADER_METHOD_NAMES_H
#define KORVANE_JITREADER_METHOD_NAMES_H

#include "jitreader/shared_text.h"

#include <string_view>

namespace korvane_3_10 {

// The qualified, method and class names, in that order, in one read-only block.
class MethodNames {
public:
    // The names given may be views into this block.
    void assign(std::string_view qualified, std::string_view method, std::string_view className) {
        m_text = SharedText::create(qualified, method, className);
    }

    std::string_view qualified() const { return view(kQualified); }
    std::string_view method() const { return view(kMethod); }
    std::string_view className() const { return view(kClass); }
    const char* qualifiedText() const { return text(kQualified); }
    const char* methodText() const { return text(kMethod); }
    const char* classText() const { return text(kClass); }

private:
    enum Part : unsigned { kQualified, kMethod, kClass };

    const char* text(Part part) const { return m_text ? m_text->text(part) : ""; }
    std::string_view view(Part part) const { return m_text ? m_text->view(part) : std::string_view(); }

    SharedText::Ptr m_text;
};

} // namespace korvane_3_10

#endif
