// Names, source file and line table of Java methods, asked of the JVM once each.
#include "method_catalogue.h"

#include <algorithm>
#include <stdexcept>

namespace korvane_jvmagent {

namespace {

// A string the JVM allocated, given back when done with.
class JvmString {
public:
    explicit JvmString(jvmtiEnv* jvmti) : m_jvmti(jvmti) {}
    ~JvmString() { m_jvmti->Deallocate(reinterpret_cast<unsigned char*>(m_text)); }
    JvmString(const JvmString&) = delete;
    JvmString& operator=(const JvmString&) = delete;

    char** out() { return &m_text; }
    std::string text() const { return m_text ? m_text : ""; }

private:
    jvmtiEnv* m_jvmti;
    char* m_text = nullptr;
};

// Moves past one field type signature starting at pos.
std::size_t skipType(const std::string& signature, std::size_t pos) {
    while (pos < signature.size() && signature[pos] == '[')
        ++pos;
    if (pos >= signature.size() || (signature[pos] != 'L' && signature[pos] != 'T'))
        return pos + 1;
    int depth = 0;
    for (; pos < signature.size(); ++pos) {
        depth += signature[pos] == '<' ? 1 : signature[pos] == '>' ? -1 : 0;
        if (signature[pos] == ';' && depth == 0)
            return pos + 1;
    }
    return pos;
}

// "<K:Ljava/lang/Object;V::Ljava/lang/Runnable;>..." gives "<TK;TV;>", the
// form in which the class name carries its type parameters.
std::string typeParameters(const std::string& generic) {
    if (generic.empty() || generic[0] != '<')
        return std::string();
    std::string out = "<";
    std::size_t pos = 1;
    while (pos < generic.size() && generic[pos] != '>') {
        const std::size_t colon = generic.find(':', pos);
        if (colon == std::string::npos)
            return std::string();
        out += "T" + generic.substr(pos, colon - pos) + ";";
        pos = colon;
        while (pos < generic.size() && generic[pos] == ':')
            pos = generic[pos + 1] == ':' ? pos + 1 : skipType(generic, pos + 1);
    }
    return out + ">";
}

// A method's own type parameters stand before "(" and would end up in its name.
std::string withoutTypeParameters(const std::string& signature) {
    if (signature.empty() || signature[0] != '<')
        return signature;
    const std::size_t open = signature.find('(');
    return open == std::string::npos ? signature : signature.substr(open);
}

// Hidden classes have a "." in their signature; the reader takes a name with
// a dot for readable already, so it is written with "/" like the rest.
std::string classSignature(std::string signature) {
    std::replace(signature.begin(), signature.end(), '.', '/');
    return signature;
}

std::string plainClassName(const std::string& signature) {
    std::string name = signature.size() > 2 ? signature.substr(1, signature.size() - 2) : signature;
    std::replace(name.begin(), name.end(), '/', '.');
    return name;
}

} // namespace

std::uint32_t MethodFacts::lineAt(std::int32_t bci) const {
    if (bci < 0)
        return 0;
    const auto after = std::upper_bound(lines.begin(), lines.end(), std::make_pair(std::int64_t(bci), UINT32_MAX));
    return after == lines.begin() ? 0 : std::prev(after)->second;
}

const MethodFacts& MethodCatalogue::facts(jmethodID method) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto found = m_facts.find(method);
        if (found != m_facts.end())
            return found->second;
    }
    MethodFacts asked = ask(method);
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_facts.emplace(method, std::move(asked)).first->second;
}

// The JVM goes on compiling and reporting code after its death, when it
// names no method any more: a method it can't name is left out rather than
// written nameless, and is not remembered, so that a later asking tries again.
MethodFacts MethodCatalogue::ask(jmethodID method) const {
    MethodFacts facts;
    JvmString name(m_jvmti), signature(m_jvmti), generic(m_jvmti);
    jclass declaring = nullptr;
    if (m_jvmti->GetMethodName(method, name.out(), signature.out(), generic.out()) != JVMTI_ERROR_NONE ||
        m_jvmti->GetMethodDeclaringClass(method, &declaring) != JVMTI_ERROR_NONE)
        throw std::runtime_error("the JVM names the method no more (it is shutting down, or the class is gone)");
    facts.methodName = name.text() + withoutTypeParameters(generic.text().empty() ? signature.text() : generic.text());
    askClass(declaring, facts);
    facts.plainName += "." + name.text();
    askLines(method, facts);
    return facts;
}

void MethodCatalogue::askClass(jclass declaring, MethodFacts& facts) const {
    JvmString signature(m_jvmti), generic(m_jvmti), source(m_jvmti);
    if (m_jvmti->GetClassSignature(declaring, signature.out(), generic.out()) != JVMTI_ERROR_NONE)
        throw std::runtime_error("the JVM names the class of a method no more");
    const std::string plain = classSignature(signature.text());
    const std::string parameters = typeParameters(generic.text());
    facts.className =
        parameters.empty() || plain.size() < 2 ? plain : plain.substr(0, plain.size() - 1) + parameters + ";";
    facts.plainName = plainClassName(plain);
    if (m_jvmti->GetSourceFileName(declaring, source.out()) == JVMTI_ERROR_NONE)
        facts.sourceFile = source.text();
}

void MethodCatalogue::askLines(jmethodID method, MethodFacts& facts) const {
    jint count = 0;
    jvmtiLineNumberEntry* table = nullptr;
    if (m_jvmti->GetLineNumberTable(method, &count, &table) != JVMTI_ERROR_NONE)
        return;
    for (jint i = 0; i < count; ++i)
        facts.lines.emplace_back(table[i].start_location, static_cast<std::uint32_t>(table[i].line_number));
    m_jvmti->Deallocate(reinterpret_cast<unsigned char*>(table));
    std::sort(facts.lines.begin(), facts.lines.end());
}

} // namespace korvane_jvmagent
