#include "tests/effects/FxTest.h"
#include "tests/effects/ManyParts.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <map>

#include <sys/resource.h>
#include <unistd.h>

// Effects whose text is small compared to the memory and time that they ask for. Each is refused before it
// takes more than a real effect.
namespace Qx::Host::Tests {
namespace {

using Files = std::map<std::string, std::string>;

/// A macro NAME that expands to `text`, `factor` times `factor` times.
std::string multiplied(const std::string& name, const std::string& text, std::size_t factor)
{
    return "#define " + name + "0 " + text + "\n#define " + name + "1 " + repeated(name + "0 ", factor) +
           "\n#define " + name + " " + repeated(name + "1 ", factor) + "\n";
}

const std::string entry = "float4 f() : COLOR { return 1; }\n";
const std::string technique = "technique A { pass { PixelShader = compile ps_3_0 f(); } }\n";

struct Bomb
{
    const char* name;
    std::function<Files()> files; ///< "effect.fx" and what it includes
    const char* error;            ///< part of the message
};

void PrintTo(const Bomb& bomb, std::ostream* stream)
{
    *stream << bomb.name;
}

Files effect(std::string text)
{
    return {{"effect.fx", std::move(text)}};
}

const std::vector<Bomb>& bombs()
{
    static const std::vector<Bomb> list{
        {"ArgumentMadeTextAgainAndAgain",
         [] {
             return effect("#define S(x) " + repeated("#x ", 10000) + "\nstring s = S(" +
                           repeated("a ", 900000) + ");\n");
         },
         "# makes a text of more than 4096 characters"},
        {"ShortTextsByTheThousand",
         [] {
             return effect(multiplied("M", "S(" + std::string(4000, 'x') + ")", 1000) +
                           "#define S(x) #x\nstring s = M;\n");
         },
         "preprocessing took more than"},
        {"NamesJoinedByTheThousand",
         [] {
             return effect(
                 "#define J(a, b) a##b\n" +
                 multiplied("M", "J(" + std::string(2000, 'x') + ", " + std::string(2000, 'y') + ")", 1000) +
                 "float a = M;\n");
         },
         "preprocessing took more than"},
        {"MacroOfManyParameters",
         [] {
             return effect("#define M(" + numbered(200000, [](auto& n) { return "a" + n + ","; }) + "z) " +
                           numbered(100000, [](auto& n) { return "b" + n + " "; }) + "\n");
         },
         "there are more than 256"},
        {"LongTextMultiplied",
         [] {
             return effect(multiplied("M", '"' + std::string(4000, 'x') + '"', 60) +
                           "texture T < string a = M; >;\n");
         },
         "4096 characters"},
        {"LongTokensMultiplied",
         [] { return effect(multiplied("M", std::string(4000, 'x') + " +", 90) + "float a = M 1;\n"); },
         "bytes after preprocessing"},
        {"BlanksIncludedAgainAndAgain",
         [] {
             return Files{{"effect.fx", repeated("#include \"blank.fxh\"\n", 4000) + entry + technique},
                          {"blank.fxh", std::string(4000000, ' ')}};
         },
         "too large with all that it includes"},
        {"LargeIncludesWithinEachOther",
         [] {
             Files files = effect("#include \"0.fxh\"\n");
             for (int i = 0; i < 30; ++i) {
                 files[std::to_string(i) + ".fxh"] =
                     "#include \"" + std::to_string(i + 1) + ".fxh\"\n" + repeated(";", 1000000);
             }
             files["30.fxh"] = ";";
             return files;
         },
         "too large with all that it includes"},
        {"IncludesThatMultiply",
         [] {
             Files files = effect("#include \"0.fxh\"\n" + entry + technique);
             for (int i = 0; i < 25; ++i) {
                 files[std::to_string(i) + ".fxh"] =
                     repeated("#include \"" + std::to_string(i + 1) + ".fxh\"\n", 2);
             }
             files["25.fxh"] = "";
             return files;
         },
         "more than 4096 inclusions"},
        {"IncludesInACircle",
         [] {
             return Files{{"effect.fx", "#include \"a.fxh\"\n"},
                          {"a.fxh", "#include \"b.fxh\"\n"},
                          {"b.fxh", "#include \"a.fxh\"\n"}};
         },
         "nested more than 32 deep"},
        {"LongChainOfMacros",
         [] {
             return effect(numbered(100000,
                                    [](auto& n) {
                                        return "#define M" + n + " M" + std::to_string(std::stoi(n) + 1) +
                                               "\n";
                                    }) +
                           repeated("M0 ", 1000));
         },
         "preprocessing took more than"},
        {"TexturesWithEveryState",
         [] {
             const std::string reads = numbered(200, [](auto& n) {
                 return numbered(200, [&](auto& m) { return "c += t" + n + ".Sample(s" + m + ", uv);"; });
             });
             return effect(numbered(200, [](auto& n) { return "Texture2D t" + n + ';'; }) +
                           numbered(200, [](auto& n) { return "SamplerState s" + n + ';'; }) +
                           "float4 g(float2 uv) { float4 c = 0;" + reads + "return c; }\n" + entry +
                           technique);
         },
         "textures and samplers at most"},
        {"ListsForLargeStructs",
         [] {
             return effect(
                 "float g() { return 1; }\nstruct S { float a[1000], b[1000], c[1000]; };\nvoid h() {" +
                 repeated("S s = { g() };", 20000) + "}\n" + entry + technique);
         },
         "tokens after inlining all that it calls"},
        {"StructsOfStructsOfStructs",
         [] {
             std::string text = "typedef float S0[1000];\n";
             for (int i = 1; i < 40; ++i) {
                 text += "struct S" + std::to_string(i) + " { S" + std::to_string(i - 1) + " a[1000]; };\n";
             }
             return effect(text + "static const S39 s = { 1 };\nfloat4 g() { return s; }\n" + entry +
                           technique);
         },
         "'S1' has more than 4096 numbers"},
        {"ChainsOfIndices",
         [] {
             return effect("float4 f() : COLOR { " + repeated("float a" + repeated("[1]", 5000) + ";", 60) +
                           " struct; }\n" + technique);
         },
         "is not allowed inside"},
        {"OverloadsThatCallEachOther",
         [] {
             return effect(numbered(10000, [](auto&) { return std::string("void g() { g; g; }\n"); }) +
                           entry + technique);
         },
         "more than 64 times"},
        {"PassesWithoutEnd",
         [] {
             return effect(entry + "technique A { " +
                           repeated("pass { PixelShader = compile ps_3_0 f(); } ", 60000) + "}\n");
         },
         "4096 passes at most"},
        {"LargeFunctionInEveryPass",
         [] {
             return effect("float4 f(uniform float k) : COLOR { float a = k;" + repeated("a=1;", 30000) +
                           "return a; }\n" + numbered(4000, [](auto& n) {
                               return "technique T" + n +
                                      " { pass { PixelShader = compile ps_3_0 f(1); } }\n";
                           }));
         },
         "bytes of text"},
        {"SamplersAndTextures",
         [] {
             return effect(numbered(40000, [](auto& n) { return "texture T" + n + ";\n"; }) +
                           numbered(20000, [](auto& n) {
                               return "sampler S" + n + " = sampler_state { Texture = <T39999>; };\n";
                           }));
         },
         "16384 functions, types, constants, textures and samplers at most"},
        {"FunctionOfManyParameters",
         [] {
             return effect("float4 f(" + repeated("float2 a : TEXCOORD0, ", 60000) +
                           "float b : TEXCOORD1) : COLOR { return b; }\n" + technique);
         },
         "256 parameters at most"},
        {"ArraysOfSamplers",
         [] {
             return effect("sampler s[16]" + numbered(200000, [](auto& n) { return ", s" + n + "[16]"; }) +
                           ";\n" + entry + technique);
         },
         "textures and samplers at most"},
        {"StructsAsParameters",
         [] {
             return effect("struct S {" + numbered(2000, [](auto& n) { return " float m" + n + ";"; }) +
                           " };\nS s" + numbered(200000, [](auto& n) { return ", s" + n; }) + ";\n" + entry +
                           technique);
         },
         "take more than 16384 bytes"},
        {"ResultsOfAVertexShader",
         [] {
             return effect("struct S { float4 at : POSITION;" +
                           numbered(4000, [](auto& n) { return " float m" + n + " : M" + n + "_;"; }) +
                           " };\nS v() { return (S)0; }\n" + entry + "technique A {" +
                           repeated(" pass { VertexShader = compile vs_3_0 v(); PixelShader = compile ps_3_0 "
                                    "f(); }",
                                    200) +
                           " }\n");
         },
         "32 results at most"},
        {"ElementsOfElementsOfMatrices",
         [] {
             return effect("float4x4 m;\nfloat4 f() : COLOR { return " + repeated("m[(", 60) + "0" +
                           repeated(")]._m00_m11_m22_m33.x", 60) + "; }\n" + technique);
         },
         "selects several elements of a matrix"},
        {"MistakeAfterMistake", [] { return effect(repeated("@\n", 300000)); }, "unexpected character"},
        {"MistakeInALongLine",
         [] { return effect(std::string(2000000, ' ') + "@" + std::string(2000000, 'x')); },
         "unexpected character"},
        {"WarningAfterWarning", [] { return effect(repeated("#define A 1\n#define A 2\n", 100000)); },
         "no technique"},
        {"NamesThatCannotBeGuessed",
         [] {
             return effect(
                 numbered(200, [](auto& n) { return std::string(4000, 'x') + n + " y" + n + ";\n"; }));
         },
         "cannot be the type"},
    };
    return list;
}

class Bombs : public testing::TestWithParam<Bomb>
{
};

TEST_P(Bombs, areRefused)
{
    const TemporaryDirectory directory;
    for (const auto& [name, text] : GetParam().files()) {
        std::ofstream(directory.path() / name, std::ios::binary) << text;
    }
    const EffectCompilation compilation = compileEffect(directory.path() / "effect.fx", {});
    EXPECT_EQ(compilation.effect, nullptr);
    EXPECT_NE(compilation.messages.find(GetParam().error), std::string::npos)
        << compilation.messages.substr(0, 4000);
    EXPECT_LT(compilation.messages.size(), 1U << 17U);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    rusage usage{};
    ASSERT_EQ(::getrusage(RUSAGE_SELF, &usage), 0);
    constexpr long mostKilobytes = 1L << 20U;
    EXPECT_LT(usage.ru_maxrss, mostKilobytes);
#endif
}

INSTANTIATE_TEST_SUITE_P(Generated, Bombs, testing::ValuesIn(bombs()),
                         [](const testing::TestParamInfo<Bomb>& test) {
                             return std::string(test.param.name);
                         });

/// Includes may not name files outside the directories of effects, so that no message reveals their content.
TEST(Includes, stayInTheDirectoriesOfEffects)
{
    const TemporaryDirectory directory;
    const std::filesystem::path root = directory.path();
    for (const char* name : {"own/below", "search/below", "outside"}) {
        std::filesystem::create_directories(root / name);
    }
    const std::string secret = "secret:x:1000\n";
    std::ofstream(root / "outside" / "a.fxh") << secret;
    std::ofstream(root / "own" / "near.fxh") << "float near;\n";
    std::ofstream(root / "own" / "below" / "up.fxh") << "#include \"../near.fxh\"\n";
    std::ofstream(root / "search" / "there.fxh") << "float there;\n";
    std::ofstream(root / "search" / "below" / "up.fxh") << "#include \"../there.fxh\"\n";
    const EffectCompilerOptions options{{{}, {root / "search", root / "search" / "below"}}};
    const auto compile = [&](const std::string& include) {
        std::ofstream(root / "own" / "effect.fx") << "#include \"" + include + "\"\n" << entry << technique;
        return compileEffect(root / "own" / "effect.fx", options);
    };
    for (const std::string& fine :
         {std::string("near.fxh"), std::string("./below/../near.fxh"), std::string("below/up.fxh"),
          std::string("../there.fxh"), (root / "own" / "near.fxh").string(),
          (root / "search" / "below" / "up.fxh").string()}) {
        const EffectCompilation compilation = compile(fine);
        EXPECT_NE(compilation.effect, nullptr) << fine << ": " << compilation.messages;
    }
    for (const std::string& outside :
         {std::string("../outside/a.fxh"), std::string("below/../../outside/a.fxh"),
          (root / "outside" / "a.fxh").string(), std::string("../search/../outside/a.fxh"),
          std::string("/etc/passwd"), std::string("../../../../../../../../etc/passwd")}) {
        const EffectCompilation compilation = compile(outside);
        EXPECT_EQ(compilation.effect, nullptr) << outside;
        EXPECT_NE(compilation.messages.find("lies outside the directories of effects"), std::string::npos)
            << outside << ": " << compilation.messages;
        EXPECT_NE(compilation.messages.find("effect.fx:1:"), std::string::npos) << compilation.messages;
        EXPECT_EQ(compilation.messages.find("secret"), std::string::npos) << compilation.messages;
        EXPECT_EQ(compilation.messages.find("root:"), std::string::npos) << compilation.messages;
    }
}

TEST(HostileFiles, unreadableIsAnError)
{
    const TemporaryDirectory directory;
    const std::filesystem::path file = directory.path() / "effect.fx";
    std::ofstream(file) << entry << technique;
    std::filesystem::permissions(file, std::filesystem::perms::none);
    std::filesystem::permissions(directory.path(), std::filesystem::perms::all);
    constexpr uid_t nobody = 65534;
    const bool root = ::geteuid() == 0; // root may read everything
    if (root && ::seteuid(nobody) != 0) {
        GTEST_SKIP() << "no other user is available";
    }
    const EffectCompilation compilation = compileEffect(file, {});
    if (root) {
        ASSERT_EQ(::seteuid(0), 0);
    }
    EXPECT_EQ(compilation.effect, nullptr);
    EXPECT_NE(compilation.messages.find("effect.fx:1:1: error: cannot read"), std::string::npos)
        << compilation.messages;
}

} // namespace
} // namespace Qx::Host::Tests
