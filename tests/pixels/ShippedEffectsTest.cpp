#include "host/effects/EffectCompiler.h"
#include "host/effects/Supplies.h"
#include "host/effects/spirv/SpirvModule.h"
#include "tests/pixels/Reference.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <vector>

namespace Qx::Pixels {
namespace {

Host::EffectCompilation compileShipped(const std::string& name,
                                       const Host::EffectCompilerOptions& options = {})
{
    return Host::compileEffect(std::filesystem::path(QX_SHADERS_FOLDER) / name, options);
}

TEST(ShippedEffects, CompileWithoutAWordWithAndWithoutTheDefinitionsOfTheStart)
{
    Host::EffectCompilerOptions defined;
    for (const char* name : {"_OUTPUTWIDTH", "_OUTPUTHEIGHT", "_OUTPUTASPECTRATIO", "_PROGRESS", "_OUTPUTFPS",
                             "_LENGTH", "_LENGTHFRAMES"})
        defined.definitions.emplace_back(name, "1");
    for (const auto& entry : std::filesystem::directory_iterator(QX_SHADERS_FOLDER)) {
        if (entry.path().extension() != ".fx")
            continue;
        for (const auto& options : {Host::EffectCompilerOptions{}, defined}) {
            const auto compilation = compileShipped(entry.path().filename(), options);
            EXPECT_TRUE(compilation.effect) << entry.path();
            EXPECT_EQ(compilation.messages, "") << entry.path();
        }
    }
}

/// Variables of a shader's own that are arrays: they are left where an array is indexed by a computed number.
std::size_t arraysInMemory(const std::vector<std::uint32_t>& spirv)
{
    std::set<std::uint32_t> arrays;
    std::set<std::uint32_t> toArrays;
    std::size_t count = 0;
    Host::Effects::Spirv::forEach(spirv, [&](const Host::Effects::Spirv::Instruction& i) {
        if (i.op() == spv::OpTypeArray) {
            arrays.insert(i[1]);
        } else if (i.op() == spv::OpTypePointer && arrays.contains(i[3])) {
            toArrays.insert(i[1]);
        } else if (i.op() == spv::OpVariable && toArrays.contains(i[1])) {
            count += i[3] == spv::StorageClassFunction || i[3] == spv::StorageClassPrivate ? 1U : 0U;
        }
    });
    return count;
}

TEST(ShippedEffects, KeepNoArraysInMemory)
{
    for (const auto& entry : std::filesystem::directory_iterator(QX_SHADERS_FOLDER)) {
        if (entry.path().extension() != ".fx")
            continue;
        const auto compilation = compileShipped(entry.path().filename());
        ASSERT_TRUE(compilation.effect) << compilation.messages;
        for (const auto& technique : compilation.effect->techniques)
            for (const auto& pass : technique.passes)
                EXPECT_EQ(arraysInMemory(pass.spirv), 0U) << entry.path() << " " << technique.name;
    }
}

std::set<std::string> techniquesOf(const Host::CompiledEffect& effect)
{
    std::set<std::string> names;
    for (const auto& technique : effect.techniques)
        EXPECT_TRUE(names.insert(technique.name).second) << technique.name << " twice";
    return names;
}

TEST(ShippedEffects, HaveTheTechniqueOfEveryConversion)
{
    const auto usual = compileShipped("ColourConvert.fx");
    const auto wide = compileShipped("ColourConvert2020.fx");
    ASSERT_TRUE(usual.effect && wide.effect) << usual.messages << wide.messages;
    const std::set<std::string> usualNames = techniquesOf(*usual.effect);
    const std::set<std::string> wideNames = techniquesOf(*wide.effect);
    for (const Conversion& conversion : allConversions())
        EXPECT_TRUE(
            (conversion.matrix == Matrix::Bt2020 ? wideNames : usualNames).contains(conversion.technique()))
            << conversion.technique();
}

TEST(ShippedEffects, ColourConvertHasTheTechniquesAndParametersOfPackedTenBits)
{
    const auto compilation = compileShipped("ColourConvert.fx");
    ASSERT_TRUE(compilation.effect) << compilation.messages;
    const auto names = techniquesOf(*compilation.effect);
    for (const char* name :
         {"UnpackDvs10Bit_BaseOnly", "UnpackMatrox10Bit", "UnpackMatrox10Bit_BaseOnly", "PackMatrox10Bit"})
        EXPECT_TRUE(names.contains(name)) << name;
    std::set<std::string> parameters;
    for (const auto& parameter : compilation.effect->parameters)
        parameters.insert(parameter.name);
    for (const char* name : {"pSourceImageTotalWidthInDWORDs", "DestImageWidth"})
        EXPECT_TRUE(parameters.contains(name)) << name;
}

/// How many different texels the packed shaders of a technique read, the most of all depths.
std::size_t texelsReadBy(const Host::CompiledEffect& effect, const std::string& technique)
{
    std::size_t most = 0;
    for (const auto& each : effect.techniques) {
        for (const auto& shader : each.passes.front().packed) {
            std::set<std::pair<std::uint32_t, std::uint32_t>> places;
            Host::Effects::Spirv::forEach(shader.spirv, [&](const Host::Effects::Spirv::Instruction& i) {
                if (i.op() == spv::OpImageFetch)
                    places.emplace(i[3], i[4]);
            });
            most = each.name == technique ? std::max(most, places.size()) : most;
        }
    }
    return most;
}

TEST(ShippedEffects, NeighbouringWordsOfM101ShareWhatTheyRead)
{
    Host::EffectCompilerOptions options;
    options.packed = true;
    const auto compilation = compileShipped("ColourConvert.fx", options);
    ASSERT_TRUE(compilation.effect) << compilation.messages;
    EXPECT_EQ(texelsReadBy(*compilation.effect, "PackMatrox10Bit"), 7U)
        << "two pairs at a time: eight of a block, four more, and the last of the row";
}

TEST(ShippedEffects, NullHasEveryTechniqueThatPicturesAreRearrangedBy)
{
    const auto compilation = compileShipped("null.fx");
    ASSERT_TRUE(compilation.effect) << compilation.messages;
    const auto names = techniquesOf(*compilation.effect);
    for (const char* name : {"Null",
                             "YV12toYUYV",
                             "YVYUtoYUYV",
                             "ReverseComponentOrder",
                             "UYVYtoYUYV",
                             "YUYVtoYUYV",
                             "V210toYUYV",
                             "FlipVertical",
                             "RotateLeft",
                             "ABGRtoARGB",
                             "RGBPlanartoARGB",
                             "RGBtoARGB",
                             "RGBtoARGB_FlipVertical",
                             "RGB16toABGR",
                             "BGRtoARGB",
                             "BGRtoARGB_FlipVertical",
                             "BGRAtoARGB",
                             "ARGBtoRGB",
                             "ARGBtoBGR",
                             "ARGBtoBGRA",
                             "ChannelExpand",
                             "ARGBtoRGBA",
                             "ARGBtoRGBPlanar",
                             "YUYVtoV210",
                             "YUYVtoYV12",
                             "VideoRange",
                             "FullRangeYUYV"})
        EXPECT_TRUE(names.contains(name)) << name;
    EXPECT_EQ(compilation.effect->techniques.front().name, "Null") << "what is drawn when no name is known";
}

TEST(ShippedEffects, ColourConvertTakesEveryInputThatConversionsBind)
{
    const auto compilation = compileShipped("ColourConvert.fx");
    ASSERT_TRUE(compilation.effect) << compilation.messages;
    std::set<std::string> names;
    for (const auto& texture : compilation.effect->textures)
        names.insert(texture.name);
    for (const std::string name : {"gSourceImage", "gSourceImage2", "gSourceImage3", "gSourceImage4",
                                   "gSourceImage5", "gSourceImage6", "gIterHelp2Step"})
        EXPECT_TRUE(names.contains(name)) << name;
}

std::vector<std::string> starterEffects()
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(QX_SHADERS_FOLDER)) {
        const std::string name = entry.path().filename();
        if (name.starts_with("qx-"))
            names.push_back(name);
    }
    return names;
}

bool hasAnnotation(const std::vector<Host::CompiledEffect::Annotation>& annotations, const std::string& name)
{
    return std::any_of(annotations.begin(), annotations.end(),
                       [&](const Host::CompiledEffect::Annotation& each) { return each.name == name; });
}

TEST(StarterEffects, HaveLabelsForAllThatAUserSetsAndRangesWithSteps)
{
    EXPECT_EQ(starterEffects().size(), 17U);
    for (const std::string& name : starterEffects()) {
        const auto compilation = compileShipped(name);
        ASSERT_TRUE(compilation.effect) << compilation.messages;
        for (const auto& parameter : compilation.effect->parameters) {
            const bool isFilled = parameter.semantic != Host::CompiledEffect::Semantic::None ||
                                  Host::supplyOf(parameter) != Host::Supply::None;
            if (isFilled)
                continue;
            std::vector<std::string> wanted{"Label"};
            if (parameter.type != Host::CompiledEffect::ScalarType::Bool)
                wanted.insert(wanted.end(), {"Min", "Max"});
            if (parameter.type == Host::CompiledEffect::ScalarType::Float)
                wanted.emplace_back("Step");
            for (const std::string& annotation : wanted)
                EXPECT_TRUE(hasAnnotation(parameter.annotations, annotation))
                    << name << ", " << parameter.name << ": " << annotation;
            EXPECT_EQ(Host::unansweredBy(parameter), "") << name << ", " << parameter.name;
        }
    }
}

TEST(StarterEffects, AreOnTheirPageWithAPicture)
{
    std::ifstream file(QX_STARTER_EFFECTS_PAGE);
    const std::string page(std::istreambuf_iterator<char>(file), {});
    for (const std::string& name : starterEffects()) {
        const std::string stem = std::filesystem::path(name).stem();
        EXPECT_NE(page.find("| ![](images/effects/" + stem + ".png) | `" + name + "` |"), std::string::npos)
            << name;
    }
}

TEST(ShippedEffects, EveryControlOfTheGradeHasALabelAndARangeAroundItsDefault)
{
    const auto compilation = compileShipped("cc3.fx");
    ASSERT_TRUE(compilation.effect) << compilation.messages;
    EXPECT_EQ(compilation.effect->techniques.front().name, "ThreeWay");
    EXPECT_EQ(compilation.effect->parameters.size(), 13U);
    for (const auto& parameter : compilation.effect->parameters) {
        const auto annotation = [&](const std::string& name) -> std::string {
            const auto found =
                std::find_if(parameter.annotations.begin(), parameter.annotations.end(),
                             [&](const Host::CompiledEffect::Annotation& a) { return a.name == name; });
            return found == parameter.annotations.end() ? "" : found->value;
        };
        EXPECT_NE(annotation("Label"), "") << parameter.name;
        ASSERT_NE(annotation("Min"), "") << parameter.name;
        ASSERT_NE(annotation("Max"), "") << parameter.name;
        EXPECT_NE(annotation("Step"), "") << parameter.name;
        ASSERT_EQ(parameter.defaultValue.size(), sizeof(float)) << parameter.name;
        float value = -100.0F;
        std::copy(parameter.defaultValue.begin(), parameter.defaultValue.end(),
                  reinterpret_cast<std::byte*>(&value));
        EXPECT_LE(std::stof(annotation("Min")), value) << parameter.name;
        EXPECT_GE(std::stof(annotation("Max")), value) << parameter.name;
    }
}

} // namespace
} // namespace Qx::Pixels
