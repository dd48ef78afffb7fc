#include "tests/effects/FxTest.h"
#include "tests/effects/ManyParts.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <regex>
#include <thread>

#include <sys/stat.h>

namespace Qx::Host::Tests {
namespace {

std::string effectWith(const std::string& body)
{
    return "float4 f(float2 uv : TEXCOORD0) : COLOR { " + body +
           " }\ntechnique A { pass { PixelShader = compile ps_3_0 f(); } }\n";
}

/// Functions that each call the one before `calls` times.
std::string callChain(std::size_t functions, std::size_t calls)
{
    std::string text = "float4 g0(float2 x) { return x.xyxy; }\n";
    for (std::size_t i = 1; i < functions; ++i) {
        const std::string call = "g" + std::to_string(i - 1) + "(x)";
        text += "float4 g" + std::to_string(i) + "(float2 x) { return " + call;
        text += repeated(" + " + call, calls - 1) + "; }\n";
    }
    return text + effectWith("return g" + std::to_string(functions - 1) + "(uv);");
}

/// Macros that each repeat the one before `times` times.
std::string macroTower(std::size_t height, std::size_t times, const std::string& bottom)
{
    std::string text = "#define M0 " + bottom + "\n";
    for (std::size_t i = 1; i < height; ++i) {
        text += "#define M" + std::to_string(i) + repeated(" M" + std::to_string(i - 1), times) + "\n";
    }
    return text + "float a = M" + std::to_string(height - 1) + ";\n";
}

struct Hostile
{
    const char* name;
    std::function<std::string()> text;
    const char* error; ///< part of the message; null if the input is good
};

void PrintTo(const Hostile& hostile, std::ostream* stream)
{
    *stream << hostile.name;
}

EffectCompilation compileText(const std::string& text)
{
    const TemporaryDirectory directory;
    const std::filesystem::path file = directory.path() / "effect.fx";
    std::ofstream(file, std::ios::binary) << text;
    return compileEffect(file, {});
}

class HostileInputs : public testing::TestWithParam<Hostile>
{
};

TEST_P(HostileInputs, areAnswered)
{
    const EffectCompilation compilation = compileText(GetParam().text());
    if (GetParam().error == nullptr) {
        EXPECT_EQ(compilation.messages, "");
        EXPECT_NE(compilation.effect, nullptr);
        return;
    }
    EXPECT_EQ(compilation.effect, nullptr);
    EXPECT_NE(compilation.messages.find(GetParam().error), std::string::npos) << compilation.messages;
    const std::regex form(
        "([^:\\n]*/effect\\.fx:[1-9][0-9]*:[1-9][0-9]*: error: [^\\n]+\\n(  [^\\n]+\\n)*)+");
    EXPECT_TRUE(std::regex_match(compilation.messages, form)) << compilation.messages;
    EXPECT_LE(compilation.diagnostics.size(), 50U);
    EXPECT_LE(compilation.messages.size(), 50U * 4096U);
}

const std::vector<Hostile>& hostileInputs()
{
    static const std::vector<Hostile> inputs{
        {"Empty", [] { return std::string(); }, "no technique"},
        {"OnlyBlanks", [] { return repeated(" \n\t", 1000); }, "no technique"},
        {"Zeros", [] { return std::string(1000, '\0'); },
         "this is binary data, not an effect: byte 0 is zero"},
        {"Controls", [] { return repeated("a\1b\2", 100); }, "this is binary data, not an effect\n"},
        {"Utf16",
         [] {
             return std::string("\xFF\xFE"
                                "f\0x\0",
                                6);
         },
         "the file is UTF-16; save it as UTF-8"},
        {"Picture", [] { return "\x89PNG\r\n\x1A\n" + std::string(100, 'x'); }, "this is a picture"},
        {"CompiledEffect", [] { return "\x01\x09\xFF\xFE" + std::string(100, '\0'); },
         "its source is needed"},
        {"WebPage", [] { return std::string("\n <!DOCTYPE html>\n<html><body>404</body></html>"); },
         "this looks like a web page, not an effect"},
        {"ManyErrors", [] { return repeated("float4 = ;\n", 1000); }, "is expected"},
        {"ManyErrorsInDirectives", [] { return repeated("#foo\n", 1000); }, "unknown directive"},
        {"LongLine", [] { return std::string(1U << 20U, ' ') + "@" + std::string(1U << 20U, '/'); },
         "unexpected character '@'\n    ..."},
        {"ByteOrderMark", [] { return "\xEF\xBB\xBF" + effectWith("return 1;"); }, nullptr},
        {"NoUtf8", [] { return effectWith("return \xFF\xFE;"); }, "the byte 0xFF is not valid UTF-8"},
        {"LoneBackslash", [] { return effectWith("return 1;") + "\\"; }, "unexpected character"},
        {"OpenString", [] { return "texture T < string A = \"" + std::string(100000, 'x'); }, "does not end"},
        {"LongName", [] { return "float " + std::string(100000, 'x') + ";"; }, "4096 characters"},
        {"LongNameInFunction", [] { return effectWith("return " + std::string(100000, 'x') + ";"); },
         "4096 characters"},
        {"LongNumber", [] { return "float a = " + std::string(100000, '9') + ";"; }, "not a number"},
        {"LongText",
         [] {
             return "texture T < string A = " + repeated("\"" + std::string(4000, 'x') + "\" ", 9) + "; >;";
         },
         "4096 characters"},
        {"LargeFile", [] { return std::string((4U << 20U) + 1, ' '); }, "4194304 at most"},
        {"ManyTokens", [] { return repeated("; ", 1200000); }, "too large"},
        {"BracketsInFunction",
         [] { return effectWith("return " + repeated("(", 200000) + "1" + repeated(")", 200000) + ";"); },
         "nested more than 128"},
        {"OpenBracketsInFunction", [] { return effectWith("return " + repeated("[(", 60)); },
         "'}' does not close"},
        {"BlocksInFunction", [] { return effectWith(repeated("{", 100000)); }, "nested more than 128"},
        {"DeepBracketsThatAreAllowed",
         [] { return effectWith("return " + repeated("(", 120) + "1" + repeated(")", 120) + ";"); }, nullptr},
        {"BracketsInDefault", [] { return "float a = " + repeated("(", 120) + "1"; }, "has no ')'"},
        {"BracketsInDefaultAtTheLimit",
         [] { return "float a = " + repeated("(", 100) + "1" + repeated(")", 100) + ";"; },
         "nested more than 128"},
        {"SignsInDefault", [] { return "float a = " + repeated("- ", 100000) + "1;"; },
         "nested more than 128"},
        {"SignsInFunction", [] { return effectWith("return " + repeated("- ", 100000) + "1;"); },
         "consecutive operators"},
        {"NegationsInCondition", [] { return "#if " + repeated("!", 100000) + "1\n#endif\n"; },
         "nested more than 128"},
        {"BracesInDefault", [] { return "float a = " + repeated("{", 200) + "1" + repeated("}", 200) + ";"; },
         "nested more than 128"},
        {"LongSum", [] { return effectWith("float a = uv.x; return " + repeated("a + ", 20000) + "1;"); },
         "16384 tokens"},
        {"LongSumThatIsAllowed",
         [] { return effectWith("float a = uv.x; return " + repeated("a + ", 4000) + "1;"); }, nullptr},
        {"ChainOfElse",
         [] {
             return effectWith("float a = uv.x;" + repeated("if (a > 1) a *= 3; else ", 5000) +
                               "a = 2; return a;");
         },
         "branches or loops"},
        {"ChainOfChoices", [] { return effectWith("return " + repeated("uv.x > 1 ? 2 : ", 5000) + "1;"); },
         "branches or loops"},
        {"CallsThatMultiply", [] { return callChain(40, 2); }, "after inlining all that it calls"},
        {"CallsInALongChain", [] { return callChain(10000, 1); }, "after inlining all that it calls"},
        {"CallsInAChainThatIsAllowed", [] { return callChain(100, 1); }, nullptr},
        {"LoopThatAsksForUnrolling",
         [] {
             return effectWith(
                 "float a = 0; [unroll] for (int i = 0; i < 1000000000; ++i) a += uv.x; return a;");
         },
         nullptr},
        {"MacrosThatMultiply", [] { return macroTower(40, 2, "1 +"); }, "too large"},
        {"MacrosThatMultiplyToNothing", [] { return macroTower(60, 3, ""); }, "too large"},
        {"MacroThatMeansItself", [] { return "#define A A B\n#define B A\nfloat A = 1;\n"; }, "is expected"},
        {"MacroCallsInArguments",
         [] { return "#define I(x) x\nfloat a = " + repeated("I(", 5000) + "1" + repeated(")", 5000) + ";"; },
         "nested more than 64"},
        {"PastingThatGrows",
         [] {
             std::string text =
                 "#define J(a, b) a##b\n#define K(a) J(a, a)\n#define N0 " + std::string(1000, 'x') + "\n";
             for (int i = 1; i < 12; ++i) {
                 text += "#define N" + std::to_string(i) + " K(N" + std::to_string(i - 1) + ")\n";
             }
             return text + "float N11;\n";
         },
         "4096 characters"},
        {"ConditionsWithoutEnd", [] { return repeated("#if 1\n", 100000); }, "nested more than 128"},
        {"OnlyHashes", [] { return repeated("#\n", 100000); }, "no technique"},
        {"CommentInComment", [] { return "/* /* */ */" + effectWith("return 1;"); }, "is expected"},
        {"ManyTechniques",
         [] {
             std::string text = "float4 f() : COLOR { return 1; }\n";
             for (int i = 0; i < 4097; ++i) {
                 text +=
                     "technique T" + std::to_string(i) + " { pass { PixelShader = compile ps_3_0 f(); } }\n";
             }
             return text;
         },
         "4096 techniques"},
        {"AsManyTechniquesAsAllowed",
         [] {
             std::string text = "float4 f() : COLOR { return 1; }\n";
             for (int i = 0; i < 4096; ++i) {
                 text +=
                     "technique T" + std::to_string(i) + " { pass { PixelShader = compile ps_3_0 f(); } }\n";
             }
             return text;
         },
         nullptr},
        {"DivisionOfConstantsByZero",
         [] {
             return effectWith(
                 "int a = 1 / 0; int b = 5 % 0; int c = (-2147483647 - 1) / -1; return a + b + c;");
         },
         nullptr},
        {"ShiftsBeyondTheWidth", [] { return effectWith("int a = 1 << 40; int b = 1 >> -1; return a + b;"); },
         nullptr},
        {"ShiftsBeyondTheWidthInDefault",
         [] { return "int a = 1 << 100; int b = 7 >> -3;\n" + effectWith("return a + b;"); }, nullptr},
        {"HugeDefault", [] { return "int a = 99999999999999999999;\n" + effectWith("return a;"); }, nullptr},
        {"UnnamedParameter", [] { return std::string("void main(int){}"); }, "the effect has no technique"},
        {"InitializedSampler", [] { return std::string("sampler a=o(0++"); }, "sampler_state"},
        {"TechniqueInFunction", [] { return effectWith("technique B { pass { } }"); },
         "is not allowed inside"},
        {"EverythingCutOff", [] { return effectWith("return 1;").substr(0, 70); }, "is expected"},
    };
    return inputs;
}

INSTANTIATE_TEST_SUITE_P(Generated, HostileInputs, testing::ValuesIn(hostileInputs()),
                         [](const testing::TestParamInfo<Hostile>& test) {
                             return std::string(test.param.name);
                         });

/// The text of an effect with a piece removed anywhere: the result is a message or an effect, never a crash.
TEST(HostileInput, cutAnywhereIsAnswered)
{
    const std::string whole =
        "#define K(x) (x)\ntexture I < string L = \"a\"; >;\nsampler S = sampler_state { Texture "
        "= <I>; AddressU = Wrap; };\nfloat g[2] < float Min = 0; > = { 1, K(2) };\n" +
        effectWith("return tex2D(S, uv) * g[1];");
    for (std::size_t length = 0; length < whole.size() - 1; length += 3) {
        const EffectCompilation compilation = compileText(whole.substr(0, length));
        EXPECT_EQ(compilation.effect, nullptr) << whole.substr(0, length);
        EXPECT_NE(compilation.messages.find(": error: "), std::string::npos) << whole.substr(0, length);
    }
}

TEST(HostileInput, moreMessagesThanAnyoneReadsAreCounted)
{
    std::string text;
    for (int i = 0; i < 60; ++i) {
        text += "sampler S" + std::to_string(i) + " = sampler_state { Texture = <Missing>; };\n";
    }
    const EffectCompilation compilation = compileText(text + effectWith("return 1;"));
    ASSERT_EQ(compilation.diagnostics.size(), 50U);
    EXPECT_EQ(compilation.diagnostics.back().at.line, 50U);
    EXPECT_EQ(compilation.diagnostics.back().notes, std::vector<std::string>{"and 10 more messages"});
    EXPECT_TRUE(compilation.messages.ends_with("^\n  and 10 more messages\n")) << compilation.messages;
}

TEST(HostileInput, missingFileIsNamed)
{
    const EffectCompilation compilation = compileEffect("/nonexistent/effect.fx", {});
    EXPECT_EQ(compilation.effect, nullptr);
    EXPECT_EQ(
        compilation.messages.find("/nonexistent/effect.fx:1:1: error: cannot read '/nonexistent/effect.fx'"),
        0U)
        << compilation.messages;
    ASSERT_EQ(compilation.inputs.size(), 1U);
    EXPECT_EQ(compilation.inputs[0].path, "/nonexistent/effect.fx");
    EXPECT_FALSE(compilation.inputs[0].content);
}

TEST(HostileInput, pipeIsRefusedWithoutWaitingForIt)
{
    const TemporaryDirectory directory;
    const std::filesystem::path pipe = directory.path() / "effect.fx";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const EffectCompilation compilation = compileEffect(pipe, {});
    EXPECT_EQ(compilation.effect, nullptr);
    EXPECT_NE(compilation.messages.find("not a regular file"), std::string::npos) << compilation.messages;
}

TEST(HostileInput, includeDirectoriesAreSearchedInOrder)
{
    const TemporaryDirectory directory;
    for (const char* const name : {"own", "first", "second"}) {
        std::filesystem::create_directory(directory.path() / name);
    }
    std::ofstream(directory.path() / "second" / "a.fxh") << "float fromSecond;\n";
    std::ofstream(directory.path() / "own" / "effect.fx") << "#include \"a.fxh\"\n"
                                                          << effectWith("return 1;");
    const EffectCompilerOptions options{{{}, {directory.path() / "first", directory.path() / "second"}}};

    const EffectCompilation second = compileEffect(directory.path() / "own" / "effect.fx", options);
    ASSERT_NE(second.effect, nullptr) << second.messages;
    EXPECT_EQ(second.effect->parameters.at(0).name, "fromSecond");

    std::ofstream(directory.path() / "first" / "a.fxh") << "float fromFirst;\n";
    const EffectCompilation first = compileEffect(directory.path() / "own" / "effect.fx", options);
    ASSERT_NE(first.effect, nullptr) << first.messages;
    EXPECT_EQ(first.effect->parameters.at(0).name, "fromFirst");

    std::filesystem::remove(directory.path() / "first" / "a.fxh");
    std::filesystem::remove(directory.path() / "second" / "a.fxh");
    const EffectCompilation none = compileEffect(directory.path() / "own" / "effect.fx", options);
    for (const char* const name : {"own", "first", "second"}) {
        EXPECT_NE(none.messages.find((directory.path() / name).string()), std::string::npos) << none.messages;
    }
}

TEST(EffectCompiler, threadsCompileAtOnceWithTheSameResult)
{
    const std::string text = "float k = 2;\n" + effectWith("return uv.xyxy * k;");
    const EffectCompilation alone = compileText(text);
    ASSERT_NE(alone.effect, nullptr);
    std::vector<EffectCompilation> together(4);
    std::vector<std::thread> threads;
    for (EffectCompilation& compilation : together) {
        threads.emplace_back([&] { compilation = compileText(text); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const EffectCompilation& compilation : together) {
        ASSERT_NE(compilation.effect, nullptr) << compilation.messages;
        EXPECT_EQ(compilation.effect->techniques[0].passes[0].spirv,
                  alone.effect->techniques[0].passes[0].spirv);
    }
}

} // namespace
} // namespace Qx::Host::Tests
