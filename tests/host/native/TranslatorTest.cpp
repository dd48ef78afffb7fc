// Native code of small shaders beside what C++ computes, and shaders that are refused.

#include "tests/effects/BrokenModules.h"
#include "tests/effects/PackedDrawing.h"
#include "tests/host/native/GuardedBytes.h"
#include "tests/host/native/NativeFrames.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>

namespace Qx::Host::Tests {
namespace {

constexpr std::uint32_t columns = 61;

/// The uniforms: a flag, a number, two floats, and an array of four numbers, 16 bytes apart.
struct SmallUniforms
{
    std::int32_t flag = 0;
    std::int32_t number = 5;
    float half = 0.5F;
    float many = 1000.0F;
    std::array<std::array<std::int32_t, 4>, 4> list{{{10}, {20}, {30}, {40}}};
};

/// A shader whose code computes the word %w from %x, the column, %u, the texel of the column, a whole number
/// without a sign, and %flag, %number, %half and %many. It draws the word's four bytes. `types` are declared
/// before the functions, `variables` at the beginning of the function.
std::string textOf(const std::string& code, const std::string& types, const std::string& variables)
{
    return R"(
OpCapability Shader
OpCapability SampledBuffer
%glsl = OpExtInstImport "GLSL.std.450"
OpMemoryModel Logical GLSL450
OpEntryPoint Fragment %main "main" %position %colour
OpExecutionMode %main OriginUpperLeft
OpDecorate %position BuiltIn FragCoord
OpDecorate %colour Location 0
OpDecorate %buffer DescriptorSet 0
OpDecorate %buffer Binding 1
OpDecorate %uniforms DescriptorSet 0
OpDecorate %uniforms Binding 0
OpDecorate %Uniforms Block
OpDecorate %list ArrayStride 16
OpMemberDecorate %Uniforms 0 Offset 0
OpMemberDecorate %Uniforms 1 Offset 4
OpMemberDecorate %Uniforms 2 Offset 8
OpMemberDecorate %Uniforms 3 Offset 12
OpMemberDecorate %Uniforms 4 Offset 16
%void = OpTypeVoid
%void_f = OpTypeFunction %void
%bool = OpTypeBool
%float = OpTypeFloat 32
%int = OpTypeInt 32 1
%uint = OpTypeInt 32 0
%v4float = OpTypeVector %float 4
%v4uint = OpTypeVector %uint 4
%v4int = OpTypeVector %int 4
%ptr_v4float = OpTypePointer Input %v4float
%ptr_float = OpTypePointer Input %float
%ptr_v4uint = OpTypePointer Output %v4uint
%image = OpTypeImage %uint Buffer 0 0 0 1 Unknown
%ptr_image = OpTypePointer UniformConstant %image
%int_0 = OpConstant %int 0
%int_1 = OpConstant %int 1
%int_2 = OpConstant %int 2
%int_3 = OpConstant %int 3
%int_4 = OpConstant %int 4
%int_7 = OpConstant %int 7
%int_30 = OpConstant %int 30
%uint_0 = OpConstant %uint 0
%uint_1 = OpConstant %uint 1
%uint_4 = OpConstant %uint 4
%uint_8 = OpConstant %uint 8
%uint_16 = OpConstant %uint 16
%uint_24 = OpConstant %uint 24
%uint_255 = OpConstant %uint 255
%float_0 = OpConstant %float 0
%float_1 = OpConstant %float 1
%float_20 = OpConstant %float 20
%list = OpTypeArray %int %uint_4
%Uniforms = OpTypeStruct %int %int %float %float %list
%ptr_Uniforms = OpTypePointer Uniform %Uniforms
%ptr_uint = OpTypePointer Uniform %int
%ptr_ufloat = OpTypePointer Uniform %float
%position = OpVariable %ptr_v4float Input
%colour = OpVariable %ptr_v4uint Output
%buffer = OpVariable %ptr_image UniformConstant
%uniforms = OpVariable %ptr_Uniforms Uniform
)" + types +
           R"(
%main = OpFunction %void None %void_f
%entry = OpLabel
)" + variables +
           R"(
%xp = OpAccessChain %ptr_float %position %uint_0
%xf = OpLoad %float %xp
%x = OpConvertFToS %int %xf
%loaded = OpLoad %image %buffer
%texel = OpImageFetch %v4uint %loaded %x
%u0 = OpCompositeExtract %uint %texel 0
%u1 = OpCompositeExtract %uint %texel 1
%u1s = OpShiftLeftLogical %uint %u1 %uint_8
%u = OpBitwiseOr %uint %u0 %u1s
%flagp = OpAccessChain %ptr_uint %uniforms %int_0
%flag = OpLoad %int %flagp
%numberp = OpAccessChain %ptr_uint %uniforms %int_1
%number = OpLoad %int %numberp
%halfp = OpAccessChain %ptr_ufloat %uniforms %int_2
%half = OpLoad %float %halfp
%manyp = OpAccessChain %ptr_ufloat %uniforms %int_3
%many = OpLoad %float %manyp
)" + code + R"(
%w1 = OpShiftRightLogical %uint %w %uint_8
%w2 = OpShiftRightLogical %uint %w %uint_16
%w3 = OpShiftRightLogical %uint %w %uint_24
%b0 = OpBitwiseAnd %uint %w %uint_255
%b1 = OpBitwiseAnd %uint %w1 %uint_255
%b2 = OpBitwiseAnd %uint %w2 %uint_255
%bytes = OpCompositeConstruct %v4uint %b0 %b1 %b2 %w3
OpStore %colour %bytes
OpReturn
OpFunctionEnd
)";
}

struct SmallShader
{
    std::vector<std::uint32_t> spirv;
    std::vector<Native::Texels> texels{{4, 8}};
    SmallUniforms usual{};

    explicit SmallShader(const std::string& code, const std::string& types = "",
                         const std::string& variables = "")
        : spirv(assembled(textOf(code, types, variables)))
    {
        EXPECT_EQ(problemsOf(spirv), "") << code;
    }

    Native::Made made(const Native::Options& options = {}) const
    {
        return nativeLibrary().make({spirv, texels, 8, std::as_bytes(std::span(&usual, 1)), columns},
                                    options);
    }

    std::unique_ptr<Native::Code> code(const Native::Options& options = {}) const
    {
        const Native::Made all = made(options);
        std::string problem = all.problem;
        auto loaded = problem.empty() ? nativeLibrary().load(all.object, problem) : nullptr;
        EXPECT_EQ(problem, "");
        return loaded;
    }
};

/// The low 16 bits of a texel are its number.
std::uint32_t texelAt(std::uint32_t x)
{
    return x * 1009 % 65536;
}

std::vector<std::uint32_t> drawnWords(const Native::Code& code, const SmallUniforms& uniforms,
                                      std::size_t texels = columns)
{
    std::vector<std::uint32_t> source;
    for (std::uint32_t x = 0; x < texels; ++x) {
        source.push_back(texelAt(x));
    }
    std::vector<std::uint32_t> words(columns);
    for (const GuardedBytes::At at : {GuardedBytes::At::Begin, GuardedBytes::At::End}) {
        const GuardedBytes guarded(std::as_bytes(std::span(source)), at);
        const GuardedBytes numbers(std::as_bytes(std::span(&uniforms, 1)), at);
        Native::Frame frame;
        frame.buffers[0] = {guarded.data(), texels};
        frame.uniforms = numbers.data();
        frame.target = reinterpret_cast<std::byte*>(words.data());
        frame.pitch = words.size() * sizeof(std::uint32_t);
        frame.width = columns;
        code.draw(frame, 0, 1);
    }
    return words;
}

/// What the shader should draw in a column whose texel is `u`.
using Word = std::function<std::uint32_t(std::int32_t x, std::uint32_t u)>;

const Native::Options allOptions[] = {
    {8, 1, false, false, 0}, {8, 3, false, false, 0}, {16, 1, false, false, 0}, {8, 2, false, false, 2}};

void expectWords(const SmallShader& shader, const Word& word, const SmallUniforms& uniforms = {})
{
    std::vector<std::uint32_t> expected;
    for (std::uint32_t x = 0; x < columns; ++x) {
        expected.push_back(word(static_cast<std::int32_t>(x), texelAt(x)));
    }
    for (const Native::Options& options : allOptions) {
        const auto code = shader.code(options);
        ASSERT_NE(code, nullptr);
        EXPECT_EQ(drawnWords(*code, uniforms), expected) << options.lanes << " lanes of " << options.period;
    }
}

std::uint32_t wordOf(float value)
{
    return std::bit_cast<std::uint32_t>(value);
}

std::uint32_t wordOf(std::int32_t value)
{
    return static_cast<std::uint32_t>(value);
}

/// %f is a float of both signs with a fraction, often exactly a half.
const std::string someFloat = R"(
%uf = OpConvertUToF %float %u
%uh = OpFMul %float %uf %half
%f0 = OpFSub %float %uh %many
%f = OpFDiv %float %f0 %float_20
)";

float floatOf(std::uint32_t u)
{
    return (static_cast<float>(u) * 0.5F - 1000.0F) / 20.0F;
}

TEST(NativeTranslator, RoundsAsDriversDo)
{
    const auto function = [](const std::string& name) {
        return SmallShader(someFloat + "%r = OpExtInst %float %glsl " + name +
                           " %f\n%w = OpBitcast %uint %r\n");
    };
    const auto expectFunction = [&](const char* name, float (*of)(float)) {
        SCOPED_TRACE(name);
        expectWords(function(name), [&](auto, std::uint32_t u) { return wordOf(of(floatOf(u))); });
    };
    expectFunction("Round", [](float f) { return std::nearbyint(f); });
    expectFunction("RoundEven", [](float f) { return std::nearbyint(f); });
    expectFunction("Trunc", [](float f) { return std::trunc(f); });
    expectFunction("Ceil", [](float f) { return std::ceil(f); });
    expectFunction("Floor", [](float f) { return std::floor(f); });
    expectFunction("Fract", [](float f) { return f - std::floor(f); });
    expectFunction("FSign", [](float f) { return f == 0 ? 0.0F : f < 0 ? -1.0F : 1.0F; });
    expectFunction("FAbs", [](float f) { return std::abs(f); });
    const SmallShader root(someFloat + "%a = OpExtInst %float %glsl FAbs %f\n"
                                       "%r = OpExtInst %float %glsl Sqrt %a\n%w = OpBitcast %uint %r\n");
    expectWords(root, [](auto, std::uint32_t u) { return wordOf(std::sqrt(std::abs(floatOf(u)))); });
}

TEST(NativeTranslator, SignsOfWholeNumbersAreWhole)
{
    const SmallShader sign("%a = OpISub %int %x %int_30\n%s = OpExtInst %int %glsl SSign %a\n"
                           "%w = OpBitcast %uint %s\n");
    expectWords(sign, [](std::int32_t x, auto) { return wordOf(x < 30 ? -1 : x > 30 ? 1 : 0); });
    const SmallShader absolute("%a = OpISub %int %x %int_30\n%s = OpExtInst %int %glsl SAbs %a\n"
                               "%w = OpBitcast %uint %s\n");
    expectWords(absolute, [](std::int32_t x, auto) { return wordOf(std::abs(x - 30)); });
}

TEST(NativeTranslator, DividesAsDriversDoAndFaultsNowhere)
{
    // The divisor is 0 in each third column, the dividend the smallest number there is in the first.
    const std::string operands = R"(
%third = OpSRem %int %x %int_3
%d = OpISub %int %third %int_1
%n0 = OpBitcast %int %u
%n = OpISub %int %n0 %smallest
)";
    const auto quotient = [&](const std::string& op, bool isSigned) {
        return SmallShader(operands + (isSigned ? "%q = " + op + " %int %n %d\n%w = OpBitcast %uint %q\n"
                                                : "%a = OpBitcast %uint %n\n%b = OpBitcast %uint %d\n%w = " +
                                                      op + " %uint %a %b\n"),
                           "%smallest = OpConstant %int -2147483648\n");
    };
    const auto expectQuotient = [&](const std::string& op, bool isSigned, auto of) {
        SCOPED_TRACE(op);
        expectWords(quotient(op, isSigned), [&](std::int32_t x, std::uint32_t u) {
            return of(std::int64_t{static_cast<std::int32_t>(u + 0x80000000U)}, std::int64_t{x % 3 - 1});
        });
    };
    expectQuotient("OpSDiv", true, [](std::int64_t n, std::int64_t d) {
        return static_cast<std::uint32_t>(d == 0 ? 0 : n / d);
    });
    expectQuotient("OpSRem", true, [](std::int64_t n, std::int64_t d) {
        return static_cast<std::uint32_t>(d == 0 ? -1 : n % d);
    });
    expectQuotient("OpUDiv", false, [](std::int64_t n, std::int64_t d) {
        return d == 0 ? 0xFFFFFFFFU : static_cast<std::uint32_t>(n) / static_cast<std::uint32_t>(d);
    });
    expectQuotient("OpUMod", false, [](std::int64_t n, std::int64_t d) {
        return d == 0 ? 0xFFFFFFFFU : static_cast<std::uint32_t>(n) % static_cast<std::uint32_t>(d);
    });
}

TEST(NativeTranslator, ShiftsByTheLowestFiveBits)
{
    const SmallShader shader("%by = OpBitcast %uint %x\n%w = OpShiftLeftLogical %uint %u %by\n");
    expectWords(shader, [](std::int32_t x, std::uint32_t u) { return u << (x & 31); });
}

/// Constants 3, 10, 17, ... as an array.
std::string arrayOf(std::uint32_t count)
{
    std::string constants;
    std::string list;
    for (std::uint32_t k = 0; k < count; ++k) {
        const std::string name = "%element_" + std::to_string(k);
        constants += name + " = OpConstant %uint " + std::to_string(3 + 7 * k) + "\n";
        list += " " + name;
    }
    return constants + "%length = OpConstant %uint " + std::to_string(count) +
           "\n%array = OpTypeArray %uint %length\n%ptr_array = OpTypePointer Function %array\n"
           "%ptr_element = OpTypePointer Function %uint\n%all = OpConstantComposite %array" +
           list + "\n";
}

TEST(NativeTranslator, ConstantArraysAreReadAtComputedIndicesWithinThem)
{
    for (const std::uint32_t count : {5U, 40U}) {
        const SmallShader byLane("%i = OpISub %int %x %int_7\n%p = OpAccessChain %ptr_element %table %i\n"
                                 "%w = OpLoad %uint %p\n",
                                 arrayOf(count), "%table = OpVariable %ptr_array Function %all");
        const auto clamped = [&](std::int32_t i) {
            return static_cast<std::uint32_t>(std::clamp(i, 0, static_cast<std::int32_t>(count) - 1));
        };
        expectWords(byLane, [&](std::int32_t x, auto) { return 3 + 7 * clamped(x - 7); });
        const SmallShader byUniform("%p = OpAccessChain %ptr_element %table %number\n%w = OpLoad %uint %p\n",
                                    arrayOf(count), "%table = OpVariable %ptr_array Function %all");
        for (const std::int32_t number : {-100, 0, 3, 39, 2000000000}) {
            SmallUniforms uniforms;
            uniforms.number = number;
            expectWords(
                byUniform, [&](auto, auto) { return 3 + 7 * clamped(number); }, uniforms);
        }
    }
}

TEST(NativeTranslator, VariablesHoldWhatWasStoredForEachLane)
{
    const SmallShader shader(R"(
%p0 = OpAccessChain %ptr_element %table %int_0
OpStore %p0 %u
%isMany = OpSGreaterThan %bool %x %int_30
OpSelectionMerge %after None
OpBranchConditional %isMany %then %after
%then = OpLabel
%i = OpBitwiseAnd %int %x %int_3
%p1 = OpAccessChain %ptr_element %table %i
OpStore %p1 %uint_255
OpBranch %after
%after = OpLabel
%first = OpLoad %uint %p0
%p2 = OpAccessChain %ptr_element %table %int_2
%third = OpLoad %uint %p2
%high = OpShiftLeftLogical %uint %third %uint_16
%w = OpBitwiseOr %uint %first %high
)",
                             arrayOf(5), "%table = OpVariable %ptr_array Function %all");
    expectWords(shader, [](std::int32_t x, std::uint32_t u) {
        const std::uint32_t first = x > 30 && x % 4 == 0 ? 255 : u;
        const std::uint32_t third = x > 30 && x % 4 == 2 ? 255 : 17;
        return first | third << 16U;
    });
}

TEST(NativeTranslator, UniformArraysAreReadWithinThem)
{
    for (const char* index : {"%x", "%number"}) {
        const SmallShader shader("%p = OpAccessChain %ptr_uint %uniforms %int_4 " + std::string(index) +
                                 "\n%v = OpLoad %int %p\n%w = OpBitcast %uint %v\n");
        for (const std::int32_t number : {-5, 0, 1, 2, 3, 4, 2147483647}) {
            SmallUniforms uniforms;
            uniforms.number = number;
            expectWords(
                shader,
                [&](std::int32_t x, auto) {
                    return wordOf(10 + 10 * std::clamp(index[1] == 'x' ? x : number, 0, 3));
                },
                uniforms);
        }
    }
}

TEST(NativeTranslator, PartsOfVectorsAreTakenAndPutAtComputedIndices)
{
    const SmallShader shader(R"(
%i = OpBitwiseAnd %int %x %int_3
%v = OpCompositeConstruct %v4uint %uint_1 %uint_4 %uint_8 %uint_16
%j = OpExtInst %int %glsl SMin %number %int_2
%changed = OpVectorInsertDynamic %v4uint %v %u %j
%w = OpVectorExtractDynamic %uint %changed %i
)");
    expectWords(shader, [](std::int32_t x, std::uint32_t u) {
        return std::array<std::uint32_t, 4>{1, 4, u, 16}.at(static_cast<std::size_t>(x & 3));
    });
}

TEST(NativeTranslator, LoopsOfKnownRoundsAreWrittenOut)
{
    const SmallShader shader(R"(
OpBranch %head
%head = OpLabel
%i = OpPhi %int %int_0 %entry %next %continue
%a = OpPhi %int %int_0 %entry %b %continue
%b = OpPhi %int %x %entry %sum %continue
OpLoopMerge %after %continue None
OpBranch %test
%test = OpLabel
%goesOn = OpSLessThan %bool %i %int_7
OpBranchConditional %goesOn %body %after
%body = OpLabel
%isOdd = OpSGreaterThan %bool %b %int_30
OpSelectionMerge %joined None
OpBranchConditional %isOdd %less %joined
%less = OpLabel
%smaller = OpISub %int %b %int_30
OpBranch %joined
%joined = OpLabel
%kept = OpPhi %int %b %body %smaller %less
%sum = OpIAdd %int %a %kept
OpBranch %continue
%continue = OpLabel
%next = OpIAdd %int %i %int_1
OpBranch %head
%after = OpLabel
%w = OpBitcast %uint %a
)");
    expectWords(shader, [](std::int32_t x, auto) {
        std::int32_t a = 0;
        std::int32_t b = x;
        for (int i = 0; i < 7; ++i) {
            const std::int32_t sum = a + (b > 30 ? b - 30 : b);
            a = b;
            b = sum;
        }
        return wordOf(a);
    });
}

TEST(NativeTranslator, LoopsWhoseRoundsAreComputedAreRefused)
{
    for (const char* most : {"%number", "%x"}) {
        const SmallShader shader("OpBranch %head\n%head = OpLabel\n"
                                 "%i = OpPhi %int %int_0 %entry %next %continue\n"
                                 "OpLoopMerge %after %continue None\nOpBranch %test\n%test = OpLabel\n"
                                 "%goesOn = OpSLessThan %bool %i " +
                                 std::string(most) +
                                 "\nOpBranchConditional %goesOn %continue %after\n%continue = OpLabel\n"
                                 "%next = OpIAdd %int %i %int_1\nOpBranch %head\n%after = OpLabel\n"
                                 "%w = OpBitcast %uint %i\n");
        EXPECT_EQ(shader.made().problem, "it has a loop whose rounds depend on what it computes");
    }
    const SmallShader endless("OpBranch %head\n%head = OpLabel\nOpLoopMerge %after %continue None\n"
                              "OpBranchConditional %yes %continue %after\n%continue = OpLabel\n"
                              "OpBranch %head\n%after = OpLabel\n%w = OpBitcast %uint %x\n",
                              "%yes = OpConstantTrue %bool\n");
    EXPECT_EQ(endless.made().problem, "its loops take more than 20000 steps");
}

TEST(NativeTranslator, UniformsLeadRoundWhatDriversApproximate)
{
    const SmallShader chosen(R"(
%uf = OpConvertUToF %float %u
%power = OpExtInst %float %glsl Pow %uf %half
%isPlain = OpIEqual %bool %flag %int_0
%r = OpSelect %float %isPlain %uf %power
%w = OpBitcast %uint %r
)");
    const SmallShader branched(R"(
%uf = OpConvertUToF %float %u
%isPlain = OpIEqual %bool %flag %int_0
OpSelectionMerge %after None
OpBranchConditional %isPlain %after %powers
%powers = OpLabel
%power = OpExtInst %float %glsl Pow %uf %half
OpBranch %after
%after = OpLabel
%r = OpPhi %float %uf %entry %power %powers
%w = OpBitcast %uint %r
)");
    for (const SmallShader* const shader : {&chosen, &branched}) {
        expectWords(*shader, [](auto, std::uint32_t u) { return wordOf(static_cast<float>(u)); });
        const auto code = shader->code();
        ASSERT_NE(code, nullptr);
        for (const std::int32_t flag : {0, 1, -1, 0}) {
            SmallUniforms uniforms;
            uniforms.flag = flag;
            EXPECT_EQ(code->draws(reinterpret_cast<const std::byte*>(&uniforms)), flag == 0) << flag;
        }
    }
}

TEST(NativeTranslator, WhatOnlyTexelsLeadRoundIsRefused)
{
    const SmallShader shader(R"(
%uf = OpConvertUToF %float %u
%power = OpExtInst %float %glsl Pow %uf %half
%isPlain = OpIEqual %bool %u %uint_0
%r = OpSelect %float %isPlain %uf %power
%w = OpBitcast %uint %r
)");
    EXPECT_EQ(shader.made().problem, "it has powers, which drivers approximate");
}

TEST(NativeTranslator, WhatIsNotUsedMayBeUnknown)
{
    const SmallShader shader("%uf = OpConvertUToF %float %u\n%s = OpExtInst %float %glsl Sin %uf\n"
                             "%w = OpBitcast %uint %x\n");
    expectWords(shader, [](std::int32_t x, auto) { return wordOf(x); });
}

TEST(NativeTranslator, BindingsWithoutTexelsAreRefused)
{
    SmallShader shader("%w = OpCopyObject %uint %u\n");
    shader.texels = {{}};
    EXPECT_EQ(shader.made().problem, "it reads binding 1, which has no texels");
    shader.texels = {};
    EXPECT_EQ(shader.made().problem, "it reads binding 1, which has no texels");
    shader.texels = {{4, 16}};
    EXPECT_NE(shader.made().problem, "");
    shader.texels.assign(9, {4, 8});
    EXPECT_EQ(shader.made().problem, "it has more than 8 bindings");
}

TEST(NativeTranslator, BuffersWithoutTexelsAreReadAsZeros)
{
    const SmallShader shader("%y = OpIMul %int %x %x\n%scattered = OpImageFetch %v4uint %loaded %y\n"
                             "%s = OpCompositeExtract %uint %scattered 0\n"
                             "%same = OpImageFetch %v4uint %loaded %number\n"
                             "%t = OpCompositeExtract %uint %same 0\n"
                             "%st = OpBitwiseOr %uint %s %t\n%w = OpBitwiseOr %uint %st %u\n");
    for (const Native::Options& options : allOptions) {
        const auto code = shader.code(options);
        ASSERT_NE(code, nullptr);
        EXPECT_EQ(drawnWords(*code, {}, 0), std::vector<std::uint32_t>(columns));
    }
}

/// What a comparison of floats gives, by its name.
bool compared(const std::string& name, float a, float b)
{
    const bool isOrdered = name.find("FOrd") != std::string::npos;
    const std::string what = name.substr(name.find("rd") + 2);
    if (std::isnan(a) || std::isnan(b)) {
        return !isOrdered;
    }
    return what == "Equal"           ? a == b
           : what == "NotEqual"      ? a != b
           : what == "LessThan"      ? a < b
           : what == "GreaterThan"   ? a > b
           : what == "LessThanEqual" ? a <= b
                                     : a >= b;
}

TEST(NativeTranslator, ComparisonsOfColumnsHoldForAllOfThem)
{
    constexpr float infinity = std::numeric_limits<float>::infinity();
    for (const char* kind : {"FOrd", "FUnord"}) {
        for (const char* what :
             {"Equal", "NotEqual", "LessThan", "GreaterThan", "LessThanEqual", "GreaterThanEqual"}) {
            for (const bool isFirst : {true, false}) {
                const std::string name = std::string("Op") + kind + what;
                const SmallShader shader("%column = OpConvertSToF %float %x\n%is = " + name + " %bool " +
                                         (isFirst ? "%column %many" : "%many %column") +
                                         "\n%w = OpSelect %uint %is %uint_1 %u\n");
                const auto code = shader.code({8, 1, false, false, 0});
                ASSERT_NE(code, nullptr);
                for (const float many : {1000.0F, 30.0F, 30.5F, 0.0F, -0.5F, 60.0F, 61.0F, -7.0F, 1e30F,
                                         -1e30F, infinity, -infinity, std::nanf("")}) {
                    SmallUniforms uniforms;
                    uniforms.many = many;
                    std::vector<std::uint32_t> expected;
                    for (std::uint32_t x = 0; x < columns; ++x) {
                        const auto column = static_cast<float>(x);
                        const bool is = isFirst ? compared(name, column, many) : compared(name, many, column);
                        expected.push_back(is ? 1 : texelAt(x));
                    }
                    EXPECT_EQ(drawnWords(*code, uniforms), expected) << name << " and " << many;
                }
            }
        }
    }
}

TEST(NativeTranslator, ComparisonsOfWholeColumnsHoldForAllOfThem)
{
    for (const char* op : {"OpSLessThan", "OpSGreaterThan", "OpSLessThanEqual", "OpSGreaterThanEqual"}) {
        for (const std::int32_t usual : {-1, 1000}) {
            SmallShader shader("%twice = OpIMul %int %x %int_2\n%is = " + std::string(op) +
                               " %bool %twice %number\n%w = OpSelect %uint %is %uint_1 %u\n");
            shader.usual.number = usual;
            const auto code = shader.code({8, 1, false, false, 0});
            ASSERT_NE(code, nullptr);
            for (const std::int32_t number : {-2147483647 - 1, -1, 0, 1, 29, 30, 31, 120, 121, 2147483647}) {
                SmallUniforms uniforms;
                uniforms.number = number;
                std::vector<std::uint32_t> expected;
                for (std::uint32_t x = 0; x < columns; ++x) {
                    const std::int64_t twice = 2 * std::int64_t{x};
                    const std::string name = op;
                    const bool isLess =
                        name.find("Less") != std::string::npos ? twice < number : twice > number;
                    const bool orEqual = name.find("Equal") != std::string::npos && twice == number;
                    expected.push_back(isLess || orEqual ? 1 : texelAt(x));
                }
                EXPECT_EQ(drawnWords(*code, uniforms), expected) << op << " and " << number;
            }
        }
    }
}

TEST(NativeTranslator, ReadsAreWithinBuffersOfAnySize)
{
    // A run, places in a row, scattered ones, one for all, and all of them outside.
    for (const char* index : {"%x", "OpIMul %int %x %int_3", "OpIMul %int %x %x", "%number",
                              "OpISub %int %x %int_30", "OpISub %int %number %x", "OpNot %int %x"}) {
        const std::string name = index[0] == '%' ? "OpCopyObject %int " + std::string(index) : index;
        const SmallShader shader("%y = " + name + "\n%other = OpImageFetch %v4uint %loaded %y\n" +
                                 "%s = OpCompositeExtract %uint %other 0\n%w = OpBitwiseOr %uint %s %u\n");
        for (const Native::Options& options : allOptions) {
            const auto code = shader.code(options);
            ASSERT_NE(code, nullptr);
            for (const std::size_t texels : {0U, 1U, 2U, 7U, 16U, 60U, 61U, 200U}) {
                drawnWords(*code, {}, texels); // reads beside them end the test
            }
        }
    }
}

TEST(NativeTranslator, UniformsThatAreCutOffAreRefused)
{
    const SmallShader shader("%w = OpBitcast %uint %number\n");
    const std::vector<std::byte> few(6);
    const Native::Made made = nativeLibrary().make({shader.spirv, shader.texels, 8, few, columns}, {});
    EXPECT_EQ(made.problem, "it reads uniforms at byte 4 of 6");
}

TEST(NativeTranslator, OptionsThatAreNotPossibleAreRefused)
{
    const SmallShader shader("%w = OpCopyObject %uint %u\n");
    for (const Native::Options& options :
         {Native::Options{4, 1}, Native::Options{0, 1}, Native::Options{8, 0}, Native::Options{8, 65}}) {
        EXPECT_NE(shader.made(options).problem.find("8 or 16 lanes"), std::string::npos);
    }
    const SmallUniforms usual;
    const auto uniforms = std::as_bytes(std::span(&usual, 1));
    EXPECT_NE(nativeLibrary().make({shader.spirv, shader.texels, 10, uniforms, 1}, {}).problem, "");
}

TEST(NativeTranslator, WhatIsTooLargeIsRefused)
{
    const SmallShader shader("%w = OpCopyObject %uint %u\n",
                             "%length = OpConstant %uint 1000000000\n%array = OpTypeArray %uint %length\n"
                             "%nested = OpTypeArray %array %length\n%p = OpTypePointer Function %nested\n",
                             "%table = OpVariable %p Function");
    EXPECT_EQ(shader.made().problem, "it has a value of more than 4096 numbers");
}

/// With branches, functions and reads of all kinds.
SmallShader variedShader()
{
    return SmallShader(someFloat + R"(
%i = OpBitwiseAnd %int %x %int_3
%p = OpAccessChain %ptr_uint %uniforms %int_4 %i
%v = OpLoad %int %p
%q = OpAccessChain %ptr_element %table %x
%e = OpLoad %uint %q
%isMany = OpFOrdLessThan %bool %f %half
OpSelectionMerge %after None
OpBranchConditional %isMany %then %after
%then = OpLabel
%r = OpExtInst %float %glsl Round %f
%ri = OpConvertFToS %int %r
OpStore %q %u
OpBranch %after
%after = OpLabel
%either = OpPhi %int %v %entry %ri %then
%ei = OpBitcast %uint %either
%w = OpIAdd %uint %ei %e
)",
                       arrayOf(5), "%table = OpVariable %ptr_array Function %all");
}

/// Makes code of a broken module, which must give code or a sentence. Returns whether it gave code.
bool isMade(const std::vector<std::uint32_t>& spirv)
{
    static const std::vector<Native::Texels> texels{{4, 8}};
    const SmallUniforms usual;
    const Native::Made made =
        nativeLibrary().make({spirv, texels, 8, std::as_bytes(std::span(&usual, 1)), columns}, {});
    const std::string& problem = made.problem;
    EXPECT_NE(problem.empty(), made.object.empty());
    EXPECT_TRUE(problem.empty() || problem.find("it ") == 0 || problem.find("its ") == 0 ||
                problem.find("the shader") == 0)
        << problem;
    return problem.empty();
}

TEST(NativeTranslator, BrokenModulesAreRefusedWithASentence)
{
    const std::vector<std::uint32_t> spirv = variedShader().spirv;
    ASSERT_TRUE(isMade(spirv));
    std::size_t refused = 0;
    const auto tried = [&](auto& broken) {
        refused += isMade(broken) ? 0U : 1U;
        return false;
    };
    expectCutModulesLeftAlone(spirv, tried);
    expectChangedModulesSurvived(spirv, tried);
    EXPECT_GT(refused, spirv.size());
    EXPECT_FALSE(isMade({}));
    EXPECT_FALSE(isMade(std::vector<std::uint32_t>(1000, 0xFFFFFFFF)));
}

TEST(NativeTranslator, ModulesThatMeanSomethingElseAreTranslatedOrRefused)
{
    const std::vector<std::uint32_t> spirv = variedShader().spirv;
    std::size_t made = 0;
    for (std::size_t word = Effects::Spirv::headerWords; word < spirv.size(); ++word) {
        for (const std::uint32_t by : {1U, 0xFFFFFFFFU, 7U}) { // mostly other numbers of the module
            std::vector<std::uint32_t> other = spirv;
            other[word] += by;
            made += isMade(other) ? 1U : 0U;
        }
    }
    EXPECT_GT(made, 50U); // others of them are valid and are refused by the translator alone
}

} // namespace
} // namespace Qx::Host::Tests
