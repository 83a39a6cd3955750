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
}

TEST(JavaSignatureParserTest, UnmangleWritesAndMovesThePosition) {
    const struct {
        std::string signature;
        std::size_t start;
        std::string output;
        std::size_t end;
    } cases[] = {
        {"TT;", 0, "T", 2}, {"I", 0, "int", 0}, {"Q", 0, "", 0}, {"*", 0, "?", 0}, {"+", 0, "? extends ", 1},
        {"X;:Ljava/lang/Object;", 2, " & java.lang.Object", 20},
        {"::Ljava/lang/Runnable;", 0, " extends java.lang.Runnable", 21},
        {"T:Ljava/lang/Object;", 1, "java.lang.Object", 19},
        {":Ljava/lang/Object;", 0, "", 1}, // no character before the first ":"
        {"", 0, "", 0}, {"[", 0, "[]", 1}, {"I", 5, "", 5}};
    for (const auto& unmangled : cases) {
        std::size_t pos = unmangled.start;
        std::string out = "|";
        JavaSignatureParser::unmangle(unmangled.signature, pos, out);
        EXPECT_EQ("|" + unmangled.output, out) << unmangled.signature;
        EXPECT_EQ(unmangled.end, pos) << unmangled.signature;
    }
    for (const char* name : {"a/b;c", "a/b"}) {
        std::size_t pos = 0;
        std::string out;
        JavaSignatureParser::unmangleName(name, pos, out);
        EXPECT_EQ("a.b", out);
        EXPECT_EQ(3u, pos) << "stops on the semicolon or the end";
    }
}

TEST(JavaSignatureParserTest, IsParsedNameMarks) {
    for (const char* readable : {"a,b", "a.b", "x[]", "f(byte", "f(char", "f(double", "f(float", "f(int", "f(long",
                                 "f(short", "f(boolean", "f(void"})
        EXPECT_TRUE(JavaSignatureParser::isParsedName(readable)) << readable;
    for (const char* mangled : {"f(I)V", "f(String)", "", "f([I)V"})
        EXPECT_FALSE(JavaSignatureParser::isParsedName(mangled)) << mangled;
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
