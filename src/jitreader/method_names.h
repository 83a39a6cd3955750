// The three names of a method, kept in one block.
#ifndef KORVANE_JITREADER_METHOD_NAMES_H
#define KORVANE_JITREADER_METHOD_NAMES_H

#include <korvane/types.h>

#include <memory>
#include <string_view>

namespace korvane_3_10 {

// Every method read has its names, mostly longer than a string keeps in place: one block
// holds all three, each followed by a NUL so that callers get C strings, at the cost of one
// allocation and a fifth of the room of three strings.
class MethodNames {
public:
    MethodNames() : m_qualifiedLength(0), m_methodLength(0), m_classLength(0) {}
    MethodNames(const MethodNames& other) : MethodNames() { assign(other.qualified(), other.method(), other.className()); }
    MethodNames& operator=(const MethodNames& other);

    // The names given may be views into this block.
    void assign(std::string_view qualified, std::string_view method, std::string_view className);

    std::string_view qualified() const { return std::string_view(text(0), m_qualifiedLength); }
    std::string_view method() const { return std::string_view(text(methodStart()), m_methodLength); }
    std::string_view className() const { return std::string_view(text(classStart()), m_classLength); }
    const char* qualifiedText() const { return text(0); }
    const char* methodText() const { return text(methodStart()); }
    const char* classText() const { return text(classStart()); }

private:
    std::size_t methodStart() const { return std::size_t(m_qualifiedLength) + 1; }
    std::size_t classStart() const { return methodStart() + m_methodLength + 1; }
    const char* text(std::size_t start) const { return m_text ? m_text.get() + start : ""; }

    std::unique_ptr<char[]> m_text;
    u32_t m_qualifiedLength;
    u32_t m_methodLength;
    u32_t m_classLength;
};

} // namespace korvane_3_10

#endif
