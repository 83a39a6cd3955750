// Names, source file and line table of Java methods, asked of the JVM once each.
#ifndef KORVANE_AGENTS_JVM_METHOD_CATALOGUE_H
#define KORVANE_AGENTS_JVM_METHOD_CATALOGUE_H

#include <jvmti.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace korvane_jvmagent {

struct MethodFacts {
    std::string className;  // class signature, with type parameters where the class has them
    std::string methodName; // name and signature, the generic one where the method has it
    std::string sourceFile;
    std::string plainName;  // pkg.Cls.method, the JVM's view for the tests
    std::vector<std::pair<std::int64_t, std::uint32_t>> lines; // (first bci, line), by bci

    // The source line of a bytecode index; 0 if none is known.
    std::uint32_t lineAt(std::int32_t bci) const;
};

// Thread-safe; facts stay where they are once asked for, as long as the catalogue.
class MethodCatalogue {
public:
    explicit MethodCatalogue(jvmtiEnv* jvmti) : m_jvmti(jvmti) {}

    // Throws std::runtime_error where the JVM can't name the method.
    const MethodFacts& facts(jmethodID method);

private:
    MethodFacts ask(jmethodID method) const;
    void askClass(jclass declaring, MethodFacts& facts) const;
    void askLines(jmethodID method, MethodFacts& facts) const;

    jvmtiEnv* m_jvmti;
    std::mutex m_mutex;
    std::unordered_map<jmethodID, MethodFacts> m_facts;
};

} // namespace korvane_jvmagent

#endif
