// Which shaders of shipped effects have no native code, and why.

#include "tests/host/native/NativeFrames.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace Qx::Host::Tests {
namespace {

const char* const between = "it reads between texels, which drivers do";
const char* const loops = "it has a loop whose rounds depend on what it computes";
const char* const mixtures = "it has mixtures, whose terms each driver adds in its own way";
const char* const powers = "it has powers, which drivers approximate";

/// By effect and technique: the shader that reads anywhere, and the one that reads the texel at its own place
/// ("own"). Those of 8 and of 16 bits are alike.
const std::map<std::string, std::string> refusals = {
    {"LUT Curves", loops},
    {"LUT Curves own", loops},
    {"LUT CurvesTable", loops},
    {"LUT CurvesTable own", loops},
    {"LUT LUT", between},
    {"LUT Matrix", between},
    {"LUT Steps", "its loops take more than 20000 steps"},
    {"cc3 ThreeWay", between},
    {"qx-blur Horizontal", loops},
    {"qx-blur Vertical", loops},
    {"qx-chroma-key Key", between},
    {"qx-chroma-key Matte", between},
    {"qx-chroma-key OverPicture", between},
    {"qx-colour-wheels ColourWheels", between},
    {"qx-crop Crop", between},
    {"qx-crop Crop own", mixtures},
    {"qx-curves Curves", between},
    {"qx-dissolve Dissolve", between},
    {"qx-grain Grain", between},
    {"qx-guides Guides", between},
    {"qx-guides Guides own", mixtures},
    {"qx-scopes Overlay", loops},
    {"qx-scopes Parade", loops},
    {"qx-scopes Waveform", loops},
    {"qx-tone-map BT2390", between},
    {"qx-tone-map BT2390 own", powers},
    {"qx-tone-map BT2446A", between},
    {"qx-tone-map BT2446A own", powers},
    {"qx-tone-map Gamut", between},
    {"qx-tone-map Gamut own", powers},
    {"qx-transform Transform", loops},
    {"qx-vignette Vignette", between},
    {"qx-white-balance WhiteBalance", between},
    {"qx-wipe Clock", "it has trigonometric functions, which drivers approximate"},
    {"qx-wipe Iris", "it has lengths of vectors, which drivers approximate"},
    {"qx-wipe Wipe", between},
};

std::string problemOf(const CompiledEffect& effect, const CompiledEffect::PackedShader& shader)
{
    const std::vector<Native::Texels> texels = texelsOf(effect, shader);
    const std::vector<std::byte> usual(effect.uniformBytes);
    return nativeLibrary().make({shader.spirv, texels, shader.depths.target, usual, 1920}, {}).problem;
}

TEST(NativeCode, IsMadeOfAllShippedShadersButThese)
{
    std::map<std::string, std::string> found;
    std::size_t made = 0;
    for (const std::string& file : shippedFiles()) {
        const CompiledEffect& effect = shippedEffect(file);
        for (const CompiledEffect::Technique& technique : effect.techniques) {
            for (const CompiledEffect::Pass& pass : technique.passes) {
                for (const CompiledEffect::PackedShader& shader : pass.packed) {
                    const std::string problem = problemOf(effect, shader);
                    made += problem.empty() ? 1U : 0U;
                    if (!problem.empty()) {
                        found[file + " " + technique.name + (shader.places.empty() ? "" : " own")] = problem;
                    }
                }
            }
        }
    }
    EXPECT_EQ(found, refusals);
    EXPECT_GT(made, 200U);
}

} // namespace
} // namespace Qx::Host::Tests
