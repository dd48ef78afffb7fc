#include "Pixels.h"

#include <platform/GPUService.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Qx::HostTests {

namespace {

/// Techniques that show what they were given: the picture times a factor, or coordinates, or a definition.
constexpr const char* probeEffect = R"(
texture Input;
sampler InputSampler = sampler_state
{
    Texture = <Input>;
    MinFilter = Point;
    MagFilter = Point;
    AddressU = Clamp;
    AddressV = Clamp;
};
float factor = 1.0;
float4 tint = { 1.0, 1.0, 1.0, 1.0 };
#ifndef SHADE
#define SHADE 0.0
#endif

float4 scaled(float2 uv : TEXCOORD0) : COLOR
{
    return tex2D(InputSampler, uv) * tint * factor;
}
float4 coordinates(float2 first : TEXCOORD0, float2 second : TEXCOORD1) : COLOR
{
    return float4(first.x, first.y, second.x, 1.0);
}
float4 shade() : COLOR
{
    return float4(SHADE, SHADE, SHADE, 1.0);
}

technique Scaled { pass P { PixelShader = compile ps_3_0 scaled(); } }
technique Coordinates { pass P { PixelShader = compile ps_3_0 coordinates(); } }
technique Shade { pass P { PixelShader = compile ps_3_0 shade(); } }
)";

Ptr<iShaderEffect> loaded(const Kit& kit, const char* text = probeEffect,
                          const iGPUService::Definitions& definitions = {})
{
    const std::filesystem::path file = makeDirectory(kit, "effects") / "probe.fx";
    writeFile(file, text);
    const EffectCompileResult result =
        kit.services.os().gpu().compileEffectFile(asText(kit, file), definitions);
    EXPECT_TRUE(result.effect || text != probeEffect) << result.errors.c_str();
    return result.effect;
}

Ptr<iGPUImage> target(const Kit& kit, XY<int> size = {4, 1})
{
    return kit.services.os().gpu().createGPUImage(size, iGPUImage::eARGB8);
}

Vector<iShaderEffect::Source> inputs(const Ptr<iGPUImage>& image)
{
    Vector<iShaderEffect::Source> sources;
    sources.emplace_back("Input", image);
    return sources;
}

Ptr<iGPUImage> greyInput(const Kit& kit)
{
    std::vector<unsigned char> bytes;
    for (int i = 0; i < 4; ++i) {
        bytes.insert(bytes.end(), {200, 100, 60, 20}); // A R G B
    }
    return uploaded(kit, {4, 1}, bytes);
}

/// An effect under any name is what the library would hand out for all names that it does not know.
void theEmptyPathFails(const Kit& kit)
{
    EXPECT_TRUE(endsInTime(kit, [&services = kit.services] {
        EXPECT_FALSE(services.os().gpu().loadEffectFile({}, {})) << "loadEffectFile(\"\")";
        EXPECT_FALSE(services.os().gpu().compileEffectFile({}, {}).effect) << "compileEffectFile(\"\")";
    })) << "the empty path is not refused at once";
}

void missingFilesFail(const Kit& kit)
{
    const auto path = asText(kit, makeDirectory(kit, "effects") / "missing.fx");
    EXPECT_FALSE(kit.services.os().gpu().loadEffectFile(path, {}));
    const EffectCompileResult result = kit.services.os().gpu().compileEffectFile(path, {});
    EXPECT_FALSE(result.effect);
    EXPECT_FALSE(result.errors.empty()) << "there is no message";
}

void brokenFilesFailWithMessages(const Kit& kit)
{
    const std::filesystem::path file = makeDirectory(kit, "effects") / "broken.fx";
    writeFile(file, "technique T { pass P { PixelShader = compile ps_3_0 nowhere(); } }\n");
    const EffectCompileResult result = kit.services.os().gpu().compileEffectFile(asText(kit, file), {});
    EXPECT_FALSE(result.effect);
    EXPECT_FALSE(result.errors.empty()) << "there is no message";
    EXPECT_FALSE(kit.services.os().gpu().loadEffectFile(asText(kit, file), {}));
}

void oneBrokenTechniqueIsEnough(const Kit& kit)
{
    const std::string text = std::string(probeEffect) +
                             "float4 wrong() : COLOR { return missing(1.0); }\n"
                             "technique Wrong { pass P { PixelShader = compile ps_3_0 wrong(); } }\n";
    EXPECT_FALSE(loaded(kit, text.c_str()));
}

void techniquesAreInFileOrder(const Kit& kit)
{
    const Ptr<iShaderEffect> effect = loaded(kit);
    ASSERT_TRUE(effect);
    std::vector<std::string> names;
    for (const LightweightString<char>& name : effect->getTechniqueNames()) {
        names.emplace_back(name.view());
    }
    EXPECT_EQ(names, std::vector<std::string>({"Scaled", "Coordinates", "Shade"}));
}

void unknownTechniquesAreRefused(const Kit& kit)
{
    const Ptr<iShaderEffect> effect = loaded(kit);
    ASSERT_TRUE(effect);
    EXPECT_TRUE(effect->setTechnique("Shade"));
    EXPECT_FALSE(effect->setTechnique("NoSuchTechnique"));
    EXPECT_FALSE(effect->setTechnique("shade")) << "names are case-sensitive";
    const Ptr<iGPUImage> image = target(kit);
    ASSERT_TRUE(effect->render(image, inputs(greyInput(kit))));
    expectTexel(downloaded(kit, image), 0, {255, 0, 0, 0}, "the technique that was current is kept");
}

void theFirstTechniqueIsCurrent(const Kit& kit)
{
    const Ptr<iShaderEffect> effect = loaded(kit);
    const Ptr<iGPUImage> image = target(kit);
    ASSERT_TRUE(effect && effect->render(image, inputs(greyInput(kit))));
    expectTexel(downloaded(kit, image), 0, {200, 100, 60, 20}, "the first technique, with default values");
}

void parametersAreFound(const Kit& kit)
{
    const Ptr<iShaderEffect> effect = loaded(kit);
    ASSERT_TRUE(effect);
    EXPECT_FALSE(effect->getParam("noSuchParameter"));
    EXPECT_FALSE(effect->setFloat("noSuchParameter", 1.0F));
    const Ptr<iShaderParam> tint = effect->getParam("tint");
    ASSERT_TRUE(tint);
    EXPECT_EQ(tint->getComponentCount(), 4U);
    const std::array<float, 4> values{0.5F, 0.5F, 0.5F, 1.0F};
    EXPECT_TRUE(tint->setValues(values.data(), 4));
    EXPECT_FALSE(tint->setValues(values.data(), 3)) << "the parameter has four components";
}

void parametersReachTheShader(const Kit& kit)
{
    const Ptr<iShaderEffect> effect = loaded(kit);
    const Ptr<iGPUImage> image = target(kit);
    ASSERT_TRUE(effect);
    EXPECT_TRUE(effect->setFloat("factor", 0.5F));
    ASSERT_TRUE(effect->render(image, inputs(greyInput(kit))));
    expectTexel(downloaded(kit, image), 3, {100, 50, 30, 10}, "half of the input");
    const Ptr<iShaderParam> tint = effect->getParam("tint");
    const std::array<float, 4> red{1.0F, 0.0F, 0.0F, 1.0F};
    ASSERT_TRUE(tint && tint->setValues(red.data(), 4));
    ASSERT_TRUE(effect->render(image, inputs(greyInput(kit))));
    expectTexel(downloaded(kit, image), 3, {100, 50, 0, 0}, "values are in the order r, g, b, a");
}

void oneValueSetsAllComponents(const Kit& kit)
{
    const Ptr<iShaderEffect> effect = loaded(kit);
    const Ptr<iGPUImage> image = target(kit);
    ASSERT_TRUE(effect);
    EXPECT_TRUE(effect->setFloat("tint", 0.5F));
    ASSERT_TRUE(effect->render(image, inputs(greyInput(kit))));
    expectTexel(downloaded(kit, image), 0, {100, 50, 30, 10}, "all four components of tint are 0.5");
}

void techniquesShareParameters(const Kit& kit)
{
    const Ptr<iShaderEffect> effect = loaded(kit);
    const Ptr<iGPUImage> image = target(kit);
    ASSERT_TRUE(effect && effect->setTechnique("Shade"));
    const Ptr<iShaderParam> factor = effect->getParam("factor");
    ASSERT_TRUE(factor && factor->setValue(0.5F));
    ASSERT_TRUE(effect->setTechnique("Scaled") && effect->render(image, inputs(greyInput(kit))));
    expectTexel(downloaded(kit, image), 0, {100, 50, 30, 10}, "set while another technique was current");
    ASSERT_TRUE(factor->setValue(0.25F) && effect->render(image, inputs(greyInput(kit))));
    expectTexel(downloaded(kit, image), 0, {50, 25, 15, 5}, "the handle remains valid");
}

void theWholeTargetIsDrawn(const Kit& kit)
{
    const Ptr<iShaderEffect> effect = loaded(kit);
    const Ptr<iGPUImage> image = target(kit, {4, 3});
    const Ptr<iGPUImage> input = uploaded(kit, {2, 1}, {255, 40, 40, 40, 255, 240, 240, 240});
    ASSERT_TRUE(effect && effect->setTechnique("Scaled") && effect->render(image, inputs(input)));
    const std::vector<unsigned char> bytes = downloaded(kit, image);
    ASSERT_EQ(bytes.size(), 4U * 12U);
    for (std::size_t texel = 0; texel < 12; ++texel) {
        const int grey = texel % 4 < 2 ? 40 : 240;
        expectTexel(bytes, texel, {255, grey, grey, grey}, "the picture of 2 x 1 covers 4 x 3");
    }
}

void texturesAreNoNumbers(const Kit& kit)
{
    const Ptr<iShaderEffect> effect = loaded(kit);
    ASSERT_TRUE(effect);
    EXPECT_FALSE(effect->setFloat("Input", 1.0F));
}

void drawingNeedsATarget(const Kit& kit)
{
    const Ptr<iShaderEffect> effect = loaded(kit);
    ASSERT_TRUE(effect);
    EXPECT_FALSE(effect->render({}, inputs(greyInput(kit))));
}

void drawingNeedsTheTextures(const Kit& kit)
{
    const Ptr<iShaderEffect> effect = loaded(kit);
    ASSERT_TRUE(effect);
    EXPECT_FALSE(effect->render(target(kit), {})) << "nothing is bound";
    Vector<iShaderEffect::Source> other;
    other.emplace_back("Other", greyInput(kit));
    EXPECT_FALSE(effect->render(target(kit), other)) << "nothing is bound under the texture's name";
}

void sourcesSetCoordinates(const Kit& kit)
{
    const Ptr<iShaderEffect> effect = loaded(kit);
    const Ptr<iGPUImage> image = target(kit);
    ASSERT_TRUE(effect && effect->setTechnique("Coordinates"));
    Vector<iShaderEffect::Source> sources = inputs(greyInput(kit));
    sources.push_back(sources[0]);
    sources[1].texCoords = {0.25F, 0.0F, 0.75F, 1.0F};
    ASSERT_TRUE(effect->render(image, sources));
    const std::vector<unsigned char> bytes = downloaded(kit, image);
    expectTexel(bytes, 0, {255, 32, 128, 80}, "the first texel"); // centres: 1/8 and 1/2; 1/4 + 1/16
    expectTexel(bytes, 3, {255, 223, 128, 175}, "the last texel");
}

void definitionsAreDefined(const Kit& kit)
{
    iGPUService::Definitions definitions;
    definitions.push_back({"SHADE", "0.6"});
    const Ptr<iShaderEffect> effect = loaded(kit, probeEffect, definitions);
    const Ptr<iGPUImage> image = target(kit);
    ASSERT_TRUE(effect && effect->setTechnique("Shade") && effect->render(image, inputs(greyInput(kit))));
    expectTexel(downloaded(kit, image), 0, {255, 153, 153, 153}, "SHADE is 0.6");
}

} // namespace

Promises effectPromises()
{
    return {
        {"Effects",
         "FailForTheEmptyPath",
         theEmptyPathFails,
         "platform/GPUService.h: an empty pointer at once for an empty path, which names no file",
         {}},
        {"Effects", "FailForMissingFiles", missingFilesFail,
         "platform/GPUService.h: an empty pointer on failure; compileEffectFile() returns messages",
         Feature::EffectFiles},
        {"Effects", "FailForBrokenFiles", brokenFilesFailWithMessages,
         "platform/GPUService.h: an empty pointer on failure; compileEffectFile() returns messages",
         Feature::EffectFiles},
        {"Effects", "FailIfOneTechniqueDoes", oneBrokenTechniqueIsEnough,
         "platform/GPUService.h: an empty pointer if any of the techniques fails to compile",
         Feature::Effects},
        {"Effects", "HaveTechniquesInFileOrder", techniquesAreInFileOrder,
         "platform/ShaderEffect.h: techniques in file order", Feature::Effects},
        {"Effects", "RefuseUnknownTechniques", unknownTechniquesAreRefused,
         "platform/ShaderEffect.h: false if there is no such technique; the current one is then kept",
         Feature::Effects},
        {"Effects", "BeginWithTheFirstTechnique", theFirstTechniqueIsCurrent,
         "platform/ShaderEffect.h: the first is the initial current technique", Feature::Effects},
        {"Effects", "HaveParameters", parametersAreFound,
         "platform/ShaderEffect.h: getParam(), getComponentCount(), setValues()", Feature::Effects},
        {"Effects", "TakeParameters", parametersReachTheShader,
         "platform/ShaderEffect.h: setValue() and setValues()", Feature::Effects},
        {"Effects", "SetAllComponentsToOneValue", oneValueSetsAllComponents,
         "platform/ShaderEffect.h: setValue() sets all components to one value", Feature::Effects},
        {"Effects", "ShareParametersAmongTechniques", techniquesShareParameters,
         "platform/ShaderEffect.h: techniques, their shared parameters; a handle remains valid",
         Feature::Effects},
        {"Effects", "DrawOverTheWholeTarget", theWholeTargetIsDrawn,
         "platform/ShaderEffect.h: render() draws over the whole target", Feature::Effects},
        {"Effects", "TakeNoNumbersForTextures", texturesAreNoNumbers,
         "platform/ShaderEffect.h: false if the parameter is not numeric", Feature::Effects},
        {"Effects", "NeedATarget", drawingNeedsATarget,
         "platform/ShaderEffect.h: render() returns false: no target", Feature::Effects},
        {"Effects", "NeedTheirTextures", drawingNeedsTheTextures,
         "platform/ShaderEffect.h: render() returns false: a texture that the technique reads is not bound",
         Feature::Effects},
        {"Effects", "HaveACoordinateSetForEachSource", sourcesSetCoordinates,
         "platform/ShaderEffect.h: the i-th source sets the i-th texture coordinate", Feature::Effects},
        {"Effects", "HaveTheDefinitions", definitionsAreDefined,
         "platform/ShaderEffect.h: a macro that is defined before the first line", Feature::Effects},
    };
}

} // namespace Qx::HostTests
