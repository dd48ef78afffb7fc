// What people and broken disks hand to an effect compiler, one file after the other in one host: each gets
// one clear answer, and the next effect compiles.

#include "host/gpu/GPUService.h"
#include "platform/Text.h"
#include "tests/TemporaryDirectory.h"
#include "tests/effects/ManyParts.h"
#include "tests/pixels/RunningHost.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <random>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Qx::Host::Tests {
namespace {

using Path = std::filesystem::path;

std::string effectWith(const std::string& body, const std::string& globals = {})
{
    return globals + "float4 f(float2 uv : TEXCOORD0) : COLOR { " + body +
           " }\ntechnique A { pass { PixelShader = compile ps_3_0 f(); } }\n";
}

struct Nasty
{
    const char* name;
    std::function<void(const Path& file)> make; ///< puts it, and what it needs, at that place
    const char* error;                          ///< part of the message; null for an effect that is good
    const char* fileName = "effect.fx";
};

std::function<void(const Path&)> holding(const std::function<std::string()>& text)
{
    return [text](const Path& file) { std::ofstream(file, std::ios::binary) << text(); };
}

std::function<void(const Path&)> holding(std::string text)
{
    return holding([text = std::move(text)] { return text; });
}

void writeRecursiveIncludes(const Path& file)
{
    std::ofstream(file) << "#include \"a.fxh\"\n";
    std::ofstream(file.parent_path() / "a.fxh") << "#include \"b.fxh\"\n";
    std::ofstream(file.parent_path() / "b.fxh") << "#include \"a.fxh\"\n";
}

void writeSparse(const Path& file)
{
    std::ofstream(file, std::ios::binary) << effectWith("return 1;");
    std::filesystem::resize_file(file, 1U << 30U);
}

std::string randomBytes()
{
    std::minstd_rand random(7);
    std::string bytes(100000, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random() >> 8U & 0xFFU);
    }
    return bytes;
}

std::string asUtf16(const std::string& text)
{
    std::string wide = "\xFF\xFE";
    for (const char c : text) {
        wide += c;
        wide += '\0';
    }
    return wide;
}

std::string withLineEnds(std::string text, const std::string& ends)
{
    for (std::size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + ends.size())) {
        text.replace(at, 1, ends);
    }
    return text;
}

const char* const page =
    "<!DOCTYPE html>\n<html><head><title>404 Not Found</title></head><body>Sorry</body></html>\n";

const std::vector<Nasty>& nastyFiles()
{
    static const std::vector<Nasty> list{
        {"Empty", holding(""), "no technique"},
        {"OpenComment", holding(effectWith("return 1;") + "/* and then"), "does not end"},
        {"OpenString", holding("texture T < string A = \"abc; >;\n"), "does not end"},
        {"OpenBlock", holding("float4 f() : COLOR { return 1; technique A {"), "'{'"},
        {"OpenCondition", holding("#if 1\n" + effectWith("return 1;")), "no #endif"},
        {"RecursiveInclude", writeRecursiveIncludes, "does a file include itself without a guard"},
        {"OwnInclude", holding("#include \"effect.fx\"\n"), "include itself without a guard"},
        {"MissingInclude", holding("#include \"nowhere.fxh\"\n" + effectWith("return 1;")),
         "cannot find the include file 'nowhere.fxh'"},
        {"AbsoluteInclude", holding("#include \"/etc/passwd\"\n"), "lies outside the directories of effects"},
        {"IncludeAbove", holding("#include \"../../../../../../../../etc/passwd\"\n"),
         "lies outside the directories of effects"},
        {"DeviceIncluded", holding("#include </dev/zero>\n"), "lies outside the directories of effects"},
        {"DirectoryIncluded", holding("#include \".\"\n"), "cannot find the include file"},
        {"MegabyteLine", holding([] { return effectWith("return " + repeated("1 + ", 300000) + "1;"); }),
         "16384 tokens"},
        {"MegabyteLineOfBlanks", holding([] { return std::string(3000000, ' ') + "@"; }),
         "unexpected character"},
        {"MillionBrackets", holding([] { return effectWith("return " + repeated("(", 1000000)); }),
         "nested more than 128"},
        {"MillionBlocks", holding([] { return effectWith(repeated("{", 1000000)); }), "nested more than 128"},
        {"MillionMinuses", holding([] { return "float a = " + repeated("- ", 1000000) + "1;"; }),
         "nested more than 128"},
        {"WebPage", holding(page), "web page"},
        {"RandomBytes", holding(randomBytes), ": error: "},
        {"ZeroBytes", holding(std::string(100000, '\0')), ": error: "},
        {"ZeroByteInside", holding(effectWith("return 1;") + std::string(1, '\0') + effectWith("return 2;")),
         ": error: "},
        {"Utf16", holding(asUtf16(effectWith("return 1;"))), "UTF-16"},
        {"ByteOrderMark", holding("\xEF\xBB\xBF" + effectWith("return 1;")), nullptr},
        {"CarriageReturns", holding(withLineEnds(effectWith("return\n 1;"), "\r\n")), nullptr},
        {"LoneCarriageReturns", holding(withLineEnds(effectWith("return\n 1;"), "\r")), nullptr},
        {"UnnamedParameter", holding("void main(int){}"), "the effect has no technique"},
        {"SamplerCall", holding("sampler a=o(0++"), "sampler_state"},
        {"ManyMatrixElements", holding(effectWith("return m._m00_m11.xyxy;", "float4x4 m;\n")), nullptr},
        {"SizeFromALocalConstant",
         holding(effectWith("const int n = 1000000; float a[n]; a[0] = uv.x; return a[0];")),
         "4096 elements at most"},
        {"TerabyteArray", holding(effectWith("float a[1000000][1000000]; return a[0][0];")),
         "4096 elements at most"},
        {"TerabyteParameter", holding("float a[1000000000000];\n" + effectWith("return 1;")),
         "whole number from 1 to 1024"},
        {"NegativeArray", holding("float a[-1];\n" + effectWith("return 1;")), "size of array"},
        {"ThousandsOfTechniques", holding([] {
             return "float4 f() : COLOR { return 1; }\n" + numbered(5000, [](const std::string& n) {
                        return "technique T" + n + " { pass { PixelShader = compile ps_3_0 f(); } }\n";
                    });
         }),
         "techniques at most"},
        {"ThousandsOfParameters", holding([] {
             return numbered(5000, [](const std::string& n) { return "float p" + n + ";\n"; }) +
                    effectWith("return p0;");
         }),
         "the limit is 16384"},
        {"SameTechniqueTwice", holding(effectWith("return 1;") + "technique A { pass { } }\n"),
         "already declared"},
        {"PassWithoutShader", holding("technique A { pass { AlphaBlendEnable = true; } }"),
         "no pixel shader"},
        {"TechniqueWithoutPass", holding("technique A { }"), "no pass"},
        {"DivisionByZero", holding("float a = 1 / 0;\n" + effectWith("return a;")), "division by zero"},
        {"DivisionByZeroInACondition", holding("#if 1 % 0\n#endif\n" + effectWith("return 1;")),
         "division by zero"},
        {"MacroOfItself", holding("#define A A B\n#define B A\n" + effectWith("return A;")), ": error: "},
        {"MacrosThatMultiply", holding([] {
             return "#define M0 x x\n" +
                    numbered(60,
                             [](const std::string& n) {
                                 const std::string above = std::to_string(std::stoi(n) + 1);
                                 return "#define M" + above + " M" + n + " M" + n + "\n";
                             }) +
                    "float a = M60;\n";
         }),
         "too large"},
        {"CallsInACircle",
         holding(effectWith("return g();",
                            "float4 h();\nfloat4 g() { return h(); }\nfloat4 h() { return g(); }\n")),
         "calls itself"},
        {"AwkwardNames",
         holding("texture \xF0\x9F\x98\x80;\ntechnique a%s%n { }\ntechnique \"quoted\" { }\ntechnique "
                 "\x1B[31m { }\n"),
         "is expected"},
        {"AwkwardTexts",
         holding("texture T < string A = \"%s%n%d \xF0\x9F\x98\x80 \x1B[31m ' \\ \x07\"; >;\n" +
                 effectWith("return 1;")),
         nullptr},
        {"AwkwardFileName", holding("technique"), "is expected",
         "a \"b\" 'c' %s%n $(x) ;&\n\x1B[31m \xF0\x9F\x98\x80.fx"},
        {"LongFileName", holding(effectWith("return 1;")), nullptr,
         "a_name_of_two_hundred_characters_"
         "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"
         "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx.fx"},
        {"Pipe", [](const Path& file) { ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0); }, "not a regular file"},
        {"Directory", [](const Path& file) { std::filesystem::create_directory(file); },
         "not a regular file"},
        {"Device", [](const Path& file) { std::filesystem::create_symlink("/dev/zero", file); },
         "not a regular file"},
        {"LinkToItself", [](const Path& file) { std::filesystem::create_symlink(file.filename(), file); },
         "cannot read"},
        {"LinkToNowhere", [](const Path& file) { std::filesystem::create_symlink("nowhere", file); },
         "cannot read"},
        {"Gigabyte", writeSparse, "4194304 at most"},
        {"NotThere", [](const Path&) {}, "cannot read"},
    };
    return list;
}

/// What a driver may not come back from. Mesa's software device leaves a loop after 65535 rounds, so that
/// these effects are good ones there.
const std::vector<Nasty>& deadlyFiles()
{
    static const std::vector<Nasty> list{
        {"EndlessLoop",
         holding(effectWith("float a = uv.x; for (;;) { a += 1; if (a < 0) break; } return a;")), nullptr},
        {"LoopToAParameter",
         holding(effectWith("float a = uv.x; for (int i = 0; i < n; ++i) { a = sin(a) * k + i; } return a;",
                            "int n = 2000000000;\nfloat k = 1.5;\n")),
         nullptr},
    };
    return list;
}

/// Ends the process when one file takes that long: whatever it waits for then, it hangs.
class HangGuard
{
public:
    HangGuard() { ::alarm(400); }
    ~HangGuard() { ::alarm(0); }
    HangGuard(const HangGuard&) = delete;
    HangGuard& operator=(const HangGuard&) = delete;
};

class NastyFiles : public testing::Test
{
protected:
    static void SetUpTestSuite() { host_.emplace(true); }
    static void TearDownTestSuite() { host_.reset(); }

    void SetUp() override { ASSERT_NE(host_->device(), "") << host_->failure(); }

    void TearDown() override { EXPECT_EQ(host_->validationMessages(), 0U); }

    static EffectCompileResult compile(const Path& file)
    {
        const HangGuard guard;
        return gpuService().compileEffectFile(fromUTF8(LightweightString<char>(file.c_str())), {});
    }

    /// `mayFail`: what would be good may also end in a message, as long as everything goes on.
    void giveAll(const std::vector<Nasty>& files, bool mayFail)
    {
        for (const Nasty& nasty : files) {
            SCOPED_TRACE(nasty.name);
            give(nasty, mayFail);
            if (HasFatalFailure()) {
                return;
            }
            compileGoodOne();
        }
        expectBoundedMemory();
    }

private:
    void give(const Nasty& nasty, bool mayFail)
    {
        const Path directory = root_ / nasty.name;
        std::filesystem::create_directory(directory);
        const Path file = directory / nasty.fileName;
        nasty.make(file);
        const EffectCompileResult result = compile(file);
        const std::string errors = result.errors.c_str();
        if (nasty.error == nullptr && (result.effect || !mayFail)) {
            EXPECT_TRUE(result.effect) << errors;
            return;
        }
        EXPECT_FALSE(result.effect);
        if (nasty.error != nullptr) {
            EXPECT_NE(errors.find(nasty.error), std::string::npos) << errors.substr(0, 2000);
        }
        EXPECT_NE(errors.find(": error: "), std::string::npos) << errors.substr(0, 2000);
        EXPECT_NE(errors.find(nasty.name), std::string::npos) << "names the file: " << errors.substr(0, 2000);
        EXPECT_LT(errors.size(), 1U << 17U);
        EXPECT_EQ(errors.find("root:"), std::string::npos) << "tells what another file holds";
        EXPECT_EQ(errors.find('\x1B'), std::string::npos) << "steers the terminal";
    }

    void compileGoodOne()
    {
        const Path file = root_ / "good.fx";
        std::ofstream(file) << effectWith("return " + std::to_string(++goodOnes_) + ";");
        const EffectCompileResult result = compile(file);
        EXPECT_TRUE(result.effect) << "the next effect: " << result.errors.c_str();
    }

    static void expectBoundedMemory()
    {
        rusage usage{};
        ASSERT_EQ(::getrusage(RUSAGE_SELF, &usage), 0);
        constexpr long mostKilobytes = 2L << 20U;
        EXPECT_LT(usage.ru_maxrss, mostKilobytes);
    }

    static std::optional<Pixels::RunningHost> host_;
    const Qx::Test::TemporaryDirectory root_;
    int goodOnes_ = 0;
};

std::optional<Pixels::RunningHost> NastyFiles::host_;

TEST_F(NastyFiles, getAnAnswerAndTheNextEffectCompiles)
{
    giveAll(nastyFiles(), false);
}

TEST_F(NastyFiles, thatDriversHangOnGetAnAnswerToo)
{
    giveAll(deadlyFiles(), true);
}

} // namespace
} // namespace Qx::Host::Tests
