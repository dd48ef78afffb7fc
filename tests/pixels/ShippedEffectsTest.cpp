#include "host/effects/EffectCompiler.h"
#include "tests/pixels/Reference.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>

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

TEST(ShippedEffects, ColourConvertHasTheTechniqueOfEveryConversion)
{
    const auto compilation = compileShipped("ColourConvert.fx");
    ASSERT_TRUE(compilation.effect) << compilation.messages;
    std::set<std::string> names;
    for (const auto& technique : compilation.effect->techniques)
        EXPECT_TRUE(names.insert(technique.name).second) << technique.name << " twice";
    for (const Conversion& conversion : allConversions())
        EXPECT_TRUE(names.contains(conversion.technique())) << conversion.technique();
}

std::set<std::string> techniquesOf(const Host::CompiledEffect& effect)
{
    std::set<std::string> names;
    for (const auto& technique : effect.techniques)
        EXPECT_TRUE(names.insert(technique.name).second) << technique.name << " twice";
    return names;
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
