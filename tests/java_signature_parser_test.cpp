// JavaSignatureParser: internal Java names and signatures to readable text, odd results included.
#include "jitreader/java_signature_parser.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using korvane_3_10::JavaSignatureParser;

typedef std::pair<std::string, std::string> Translation;

TEST(JavaSignatureParserTest, ClassNames) {
    const Translation names[] = {
        {"", ""}, {"java.lang.String", "java.lang.String"}, {"Ljava/lang/String;", "java.lang.String"},
        {"Ljava/lang/String", "java.lang.String"}, {"foo;", ""}, {"I;", "int"},
        {"[Ljava/lang/Object;", "java.lang.Object[]"}, {"LOuter$Inner;", "Outer$Inner"},
        {"Ljava/util/Map<Ljava/lang/String;I>;", "java.util.Map<java.lang.String,int>"},
        {"Ljava/util/Map<Ljava/lang/String;", "java.util.Map<java.lang.String"}};
    for (const Translation& name : names)
        EXPECT_EQ(name.second, JavaSignatureParser::parseClassName(name.first)) << name.first;
}

TEST(JavaSignatureParserTest, MethodNames) {
    const Translation names[] = {
        {"", ""}, {"run", "run"}, {"charAt(I)C", "charAt(int)"}, {"f()V", "f()"}, {"(I)V", "(int)"},
        {"f(I[JLjava/lang/Object;)V", "f(int, long[], java.lang.Object)"},
        {"<init>(Ljava/util/List<*>;)V", "<init>(java.util.List<?>)"},
        {"f(Ljava/util/List<+Ljava/lang/Number;>;)V", "f(java.util.List<? extends java.lang.Number>)"},
        {"f(Ljava/util/List<-TT;>;)V", "f(java.util.List<? super T>)"}, {"f([[I)V", "f(int[][])"},
        {"f(ZBSCDF)V", "f(boolean, byte, short, char, double, float)"}, {"f(TT;)V", "f(T)"},
        // Bounds: a second bound, a bound of an interface, and one with no character before the ":".
        {"f(TT;:Ljava/lang/Object;)V", "f(T,  & java.lang.Object)"},
        {"f(::Ljava/lang/Runnable;)V", "f( extends java.lang.Runnable)"},
        {"f(:Ljava/lang/Object;)V", "f(java.lang.Object)"},
        // Readable already: any "." or "," or a type word behind "(".
        {"a.b(I)V", "a.b(I)V"}, {"f(I,J)", "f(I,J)"}, {"f(int)", "f(int)"},
        // A readable name that escapes the test is translated letter by letter.
        {"f(Foo)", "f(float, , )"}, {"f(Q)V", "f()"},
        // No closing parenthesis, or one before the opening one.
        {"f(I", "f(I"}, {"a)b(I", "a)b()"},
        // Running off the end inside a parameter stops cleanly.
        {"f(Ljava/lang/Str)", "f(java.lang.Str))"}, {"f([)", "f([])"}, {"f(Ljava/util/List<)", "f(java.util.List<)"}};
    for (const Translation& name : names)
        EXPECT_EQ(name.second, JavaSignatureParser::parseMethodName(name.first)) << name.first;
    for (const char* word : {"byte", "char", "double", "float", "int", "long", "short", "boolean", "void"})
        EXPECT_EQ(std::string("f(") + word + ")", JavaSignatureParser::parseMethodName(std::string("f(") + word + ")"));
}

TEST(JavaSignatureParserTest, DeepNestingEndsWithoutExhaustingTheStack) {
    const std::string text = JavaSignatureParser::parseMethodName("f(" + std::string(200000, '[') + "I)V");
    EXPECT_EQ("f(", text.substr(0, 2));
    EXPECT_EQ(')', text.back());
    std::string generic = "L";
    for (int level = 0; level < 100000; ++level)
        generic += "a<L";
    EXPECT_EQ("a<a<a<", JavaSignatureParser::parseClassName(generic).substr(0, 6));
}

} // namespace
