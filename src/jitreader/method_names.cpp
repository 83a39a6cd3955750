// The three names of a method, kept in one block.
#include "jitreader/method_names.h"

#include "jitreader/terminated_text.h"

namespace korvane_3_10 {

MethodNames& MethodNames::operator=(const MethodNames& other) {
    if (this != &other)
        assign(other.qualified(), other.method(), other.className());
    return *this;
}

void MethodNames::assign(std::string_view qualified, std::string_view method, std::string_view className) {
    if (qualified.empty() && method.empty() && className.empty()) {
        m_text.reset();
        m_qualifiedLength = m_methodLength = m_classLength = 0;
        return;
    }
    std::unique_ptr<char[]> text(new char[qualified.size() + method.size() + className.size() + 3]);
    appendTerminated(appendTerminated(appendTerminated(text.get(), qualified), method), className);
    m_text = std::move(text);
    m_qualifiedLength = static_cast<u32_t>(qualified.size());
    m_methodLength = static_cast<u32_t>(method.size());
    m_classLength = static_cast<u32_t>(className.size());
}

} // namespace korvane_3_10
