// JavaSignatureParser: internal Java names and signatures to readable text, odd results included.
#include "jitreader/java_signature_parser.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using korvane_3_10::JavaSignatureParser;

struct NameCase {
    std::string input;
    std::string output;
};

class ParseClassNameTest : public ::testing::TestWithParam<NameCase> {};

TEST_P(ParseClassNameTest, Readable) {
    EXPECT_EQ(GetParam().output, JavaSignatureParser::parseClassName(GetParam().input));
}

INSTANTIATE_TEST_SUITE_P(
    Names, ParseClassNameTest,
    ::testing::Values(NameCase{"", ""}, NameCase{"java.lang.String", "java.lang.String"}, NameCase{"Foo", "Foo"},
                      NameCase{"Ljava/lang/String;", "java.lang.String"},
                      NameCase{"Ljava/lang/String", "java.lang.String"}, // ends with the text
                      NameCase{"foo;", ""}, NameCase{"I;", "int"},
                      NameCase{"[Ljava/lang/Object;", "java.lang.Object[]"},
                      NameCase{"Ljava/util/Map<Ljava/lang/String;I>;", "java.util.Map<java.lang.String,int>"},
                      NameCase{"Ljava/util/Map<Ljava/lang/String;", "java.util.Map<java.lang.String"},
                      NameCase{"LOuter$Inner;", "Outer$Inner"}));

class ParseMethodNameTest : public ::testing::TestWithParam<NameCase> {};

TEST_P(ParseMethodNameTest, Readable) {
    EXPECT_EQ(GetParam().output, JavaSignatureParser::parseMethodName(GetParam().input));
}

INSTANTIATE_TEST_SUITE_P(
    Signatures, ParseMethodNameTest,
    ::testing::Values(
        NameCase{"", ""}, NameCase{"run", "run"}, NameCase{"charAt(I)C", "charAt(int)"},
        NameCase{"f(I[JLjava/lang/Object;)V", "f(int, long[], java.lang.Object)"}, NameCase{"f()V", "f()"},
        NameCase{"(I)V", "(int)"}, NameCase{"<init>(Ljava/util/List<*>;)V", "<init>(java.util.List<?>)"},
        NameCase{"f(Ljava/util/List<+Ljava/lang/Number;>;)V", "f(java.util.List<? extends java.lang.Number>)"},
        NameCase{"f(Ljava/util/List<-TT;>;)V", "f(java.util.List<? super T>)"}, NameCase{"f([[I)V", "f(int[][])"},
        NameCase{"f(ZBSCDF)V", "f(boolean, byte, short, char, double, float)"}, NameCase{"f(TT;)V", "f(T)"},
        // Readable already: any "." or "," or a type word behind "(".
        NameCase{"a.b(I)V", "a.b(I)V"}, NameCase{"f(I,J)", "f(I,J)"}, NameCase{"f(int)", "f(int)"},
        NameCase{"g(String[])", "g(String[])"},
        // A readable name that escapes the test is translated letter by letter.
        NameCase{"f(Foo)", "f(float, , )"}, NameCase{"f(Q)V", "f()"},
        // No closing parenthesis, or one before the opening one.
        NameCase{"f(I", "f(I"}, NameCase{"a)b(I", "a)b()"},
        // Running off the end inside a parameter stops cleanly.
        NameCase{"f(Ljava/lang/Str)", "f(java.lang.Str))"}, NameCase{"f([)", "f([])"},
        NameCase{"f(Ljava/util/List<)", "f(java.util.List<)"}));

struct UnmangleCase {
    std::string signature;
    std::size_t start;
    std::string output;
    std::size_t end;
};

class UnmangleTest : public ::testing::TestWithParam<UnmangleCase> {};

TEST_P(UnmangleTest, OutputAndPosition) {
    std::size_t pos = GetParam().start;
    std::string out = "|";
    JavaSignatureParser::unmangle(GetParam().signature, pos, out);
    EXPECT_EQ("|" + GetParam().output, out);
    EXPECT_EQ(GetParam().end, pos);
}

INSTANTIATE_TEST_SUITE_P(
    Types, UnmangleTest,
    ::testing::Values(UnmangleCase{"TT;", 0, "T", 2}, UnmangleCase{"I", 0, "int", 0}, UnmangleCase{"Q", 0, "", 0},
                      UnmangleCase{"*", 0, "?", 0}, UnmangleCase{"X;:Ljava/lang/Object;", 2, " & java.lang.Object", 20},
                      UnmangleCase{"::Ljava/lang/Runnable;", 0, " extends java.lang.Runnable", 21},
                      UnmangleCase{"T:Ljava/lang/Object;", 1, "java.lang.Object", 19},
                      UnmangleCase{":Ljava/lang/Object;", 0, "", 1}, // no character before the first ":"
                      UnmangleCase{"", 0, "", 0}, UnmangleCase{"[", 0, "[]", 1}, UnmangleCase{"I", 5, "", 5},
                      UnmangleCase{"+", 0, "? extends ", 1}));

TEST(UnmangleNameTest, StopsOnTheSemicolonOrTheEnd) {
    std::size_t pos = 0;
    std::string out;
    JavaSignatureParser::unmangleName("a/b;c", pos, out);
    EXPECT_EQ("a.b", out);
    EXPECT_EQ(3u, pos);
    pos = 0;
    out.clear();
    JavaSignatureParser::unmangleName("a/b", pos, out);
    EXPECT_EQ("a.b", out);
    EXPECT_EQ(3u, pos);
}

TEST(JavaSignatureParserTest, IsParsedNameMarks) {
    for (const char* readable : {"a,b", "a.b", "x[]", "f(byte", "f(char", "f(double", "f(float", "f(int", "f(long",
                                 "f(short", "f(boolean", "f(void"})
        EXPECT_TRUE(JavaSignatureParser::isParsedName(readable)) << readable;
    for (const char* mangled : {"f(I)V", "f(String)", "", "f([I)V"})
        EXPECT_FALSE(JavaSignatureParser::isParsedName(mangled)) << mangled;
}

TEST(JavaSignatureParserTest, DeepNestingEndsWithoutExhaustingTheStack) {
    const std::string deep = "f(" + std::string(200000, '[') + "I)V";
    const std::string text = JavaSignatureParser::parseMethodName(deep);
    EXPECT_EQ("f(", text.substr(0, 2));
    EXPECT_EQ(')', text.back());
    std::string generic = "L";
    for (int level = 0; level < 100000; ++level)
        generic += "a<L";
    EXPECT_EQ("a<a<a<", JavaSignatureParser::parseClassName(generic).substr(0, 6));
}

} // namespace
