// Turns Java's internal class names and method signatures into readable text.
#include "jitreader/java_signature_parser.h"

#include <stdexcept>

namespace korvane_3_10 {

namespace {

// Nesting deeper than any real signature; beyond it a hostile name would only
// exhaust the stack, so the translation stops there as at the end of the text.
const unsigned g_maxNesting = 256;

const char* const g_readableMarks[] = {",",      ".",    "[]",    "(byte",  "(char",    "(double",
                                       "(float", "(int", "(long", "(short", "(boolean", "(void"};

const char* primitiveName(char letter) {
    switch (letter) {
    case 'B':
        return "byte";
    case 'C':
        return "char";
    case 'D':
        return "double";
    case 'F':
        return "float";
    case 'I':
        return "int";
    case 'J':
        return "long";
    case 'S':
        return "short";
    case 'V':
        return "void";
    case 'Z':
        return "boolean";
    case '*':
        return "?";
    default:
        return nullptr;
    }
}

void unmangleType(const std::string& signature, std::size_t& pos, std::string& out, unsigned depth);

// Reading past the end throws std::out_of_range, which ends the name quietly.
void unmangleClassName(const std::string& signature, std::size_t& pos, std::string& out, unsigned depth) {
    if (depth > g_maxNesting)
        return;
    try {
        for (;; ++pos) {
            const char current = signature.at(pos);
            if (current == ';')
                return;
            if (current == '/') {
                out += '.';
                continue;
            }
            if (current == '<') {
                out += '<';
                for (;;) {
                    ++pos;
                    if (signature.at(pos) == '>')
                        break;
                    // Type arguments are joined without a blank, unlike parameters.
                    if (signature.at(pos - 1) != '<')
                        out += ',';
                    unmangleType(signature, pos, out, depth + 1);
                }
            }
            out += signature.at(pos);
        }
    } catch (const std::out_of_range&) {
    }
}

void unmangleBound(const std::string& signature, std::size_t& pos, std::string& out, unsigned depth) {
    const std::size_t colon = pos;
    ++pos;
    if (signature.at(pos) == ':') {
        out += " extends ";
        ++pos;
    } else if (signature.at(colon - 1) == ';') {
        out += " & ";
    }
    unmangleType(signature, pos, out, depth + 1);
}

void unmangleType(const std::string& signature, std::size_t& pos, std::string& out, unsigned depth) {
    if (depth > g_maxNesting)
        return;
    try {
        const char current = signature.at(pos);
        if (const char* name = primitiveName(current)) {
            out += name;
            return;
        }
        switch (current) {
        case '+':
        case '-':
            out += current == '+' ? "? extends " : "? super ";
            ++pos;
            unmangleType(signature, pos, out, depth + 1);
            return;
        case 'L':
        case 'T':
            ++pos;
            unmangleClassName(signature, pos, out, depth + 1);
            return;
        case '[':
            ++pos;
            unmangleType(signature, pos, out, depth + 1);
            out += "[]";
            return;
        case ':':
            unmangleBound(signature, pos, out, depth);
            return;
        default:
            return;
        }
    } catch (const std::out_of_range&) {
    }
}

} // namespace

std::string JavaSignatureParser::parseClassName(const std::string& name) {
    if (name.empty() || name.find('.') != std::string::npos)
        return name;
    if (name.front() != 'L' && name.back() != ';')
        return name;
    std::size_t pos = 0;
    std::string out;
    unmangle(name, pos, out);
    return out;
}

std::string JavaSignatureParser::parseMethodName(const std::string& name) {
    if (name.empty() || isParsedName(name))
        return name;
    const std::size_t open = name.find('(');
    const std::size_t close = name.find(')');
    if (open == std::string::npos || close == std::string::npos)
        return name;
    // The parameter text is as long as the position of ")" in the whole name,
    // so it may reach past the ")" or stop short of it.
    const std::string parameters = name.substr(open, close);
    std::string out = name.substr(0, open) + "(";
    if (parameters.size() >= 2) {
        for (std::size_t pos = 1;;) {
            if (parameters[pos] == ')')
                break;
            if (pos != 1)
                out += ", ";
            unmangle(parameters, pos, out);
            ++pos;
            if (pos >= parameters.size())
                break;
        }
    }
    return out + ")";
}

bool JavaSignatureParser::isParsedName(const std::string& name) {
    for (const char* mark : g_readableMarks) {
        if (name.find(mark) != std::string::npos)
            return true;
    }
    return false;
}

void JavaSignatureParser::unmangle(const std::string& signature, std::size_t& pos, std::string& out) {
    unmangleType(signature, pos, out, 0);
}

void JavaSignatureParser::unmangleName(const std::string& signature, std::size_t& pos, std::string& out) {
    unmangleClassName(signature, pos, out, 0);
}

} // namespace korvane_3_10
