// Native code of every shipped technique beside the device's drawing of it.

#include "tests/host/gpu/GpuFixture.h"
#include "tests/host/native/NativeFrames.h"

#include "platform/Text.h"

#include <algorithm>
#include <cstring>

namespace Qx::GpuTests {
namespace {

using namespace Host::Tests;
using Host::CompiledEffect;
namespace Native = Host::Native;

constexpr std::uint32_t height = 3;

/// From one texel to more than 16 lanes of 20 texels.
constexpr std::uint32_t widths[] = {1, 2, 3, 5, 8, 17, 33, 67, 401};

iGPUImage::eFormat formatOf(std::uint32_t bits)
{
    return bits == 8 ? iGPUImage::eARGB8 : iGPUImage::eARGB16;
}

/// Numbers that callers set.
std::vector<const CompiledEffect::Parameter*> numbersOf(const CompiledEffect& effect)
{
    std::vector<const CompiledEffect::Parameter*> numbers;
    for (const CompiledEffect::Parameter& p : effect.parameters) {
        if (p.semantic == CompiledEffect::Semantic::None && p.type == CompiledEffect::ScalarType::Float &&
            p.rows * p.columns == 1 && p.elements == 0) {
            numbers.push_back(&p);
        }
    }
    return numbers;
}

/// Sizes, which have to be within the pictures, are those of the target; other numbers are the defaults, or
/// others.
std::map<std::string, float> settingsFor(const CompiledEffect& effect, std::uint32_t width, bool hasOthers)
{
    std::map<std::string, float> settings;
    for (const CompiledEffect::Parameter* const p : numbersOf(effect)) {
        float value = 0;
        std::memcpy(&value, p->defaultValue.data(), std::min(p->defaultValue.size(), sizeof value));
        const bool isSize = p->name.find("Width") != std::string::npos;
        // qx-white-balance.fx changes pictures by default, which takes powers.
        value = p->name == "temperature" ? 6504.0F : value;
        settings[p->name] = p->name == "_Height" ? static_cast<float>(height)
                            : isSize             ? static_cast<float>(width)
                            : hasOthers          ? value * 0.75F + 0.125F
                                                 : value;
    }
    return settings;
}

class NativeBesideDriver : public GpuTest, public testing::WithParamInterface<std::string>
{
protected:
    void SetUp() override
    {
        GpuTest::SetUp();
        effect_ = gpu().loadEffectFile(fromUTF8(shippedFile(GetParam()).c_str()), {});
        ASSERT_TRUE(effect_);
    }

    NativeDraw drawOf(const CompiledEffect::PackedShader& shader, std::uint32_t width, bool hasOthers) const
    {
        const CompiledEffect& compiled = shippedEffect(GetParam());
        NativeDraw draw{compiled, shader, {}, {}, width, height};
        for (std::size_t i = 0; i < compiled.textures.size(); ++i) {
            const bool isTable =
                std::any_of(compiled.samplers.begin(), compiled.samplers.end(),
                            [&](const auto& s) { return s.texture == i && s.dimensions == 3; });
            // Techniques that do not keep the size read elsewhere; none of them reads outside of this.
            const bool isSame = !shader.places.empty();
            const auto seed = static_cast<std::uint32_t>(7 * i + width);
            draw.pictures.push_back(
                isTable  ? NativePicture::table(5)
                : isSame ? NativePicture::noise(width, height, shader.depths.source, seed)
                         : NativePicture::noise(4 * width + 8, 3 * height, shader.depths.source, seed));
        }
        draw.settings = settingsFor(compiled, width, hasOthers);
        return draw;
    }

    Qx::Ptr<iGPUResource> uploaded(const NativePicture& picture)
    {
        if (picture.depth > 0) {
            const Qx::Ptr<iHostImage3D> host = gpu().createHostImage3D(static_cast<int>(picture.depth));
            std::memcpy(host->getData(), picture.bytes.data(), picture.bytes.size());
            return gpu().upload3DImage(host);
        }
        Bytes bytes(picture.bytes.size());
        std::memcpy(bytes.data(), picture.bytes.data(), bytes.size());
        return upload({static_cast<int>(picture.width), static_cast<int>(picture.height)},
                      formatOf(picture.bits), bytes);
    }

    std::vector<std::byte> byDevice(const std::string& technique, const NativeDraw& draw)
    {
        EXPECT_TRUE(effect_->setTechnique(technique.c_str()));
        for (const auto& [name, value] : draw.settings) {
            EXPECT_TRUE(effect_->setFloat(name.c_str(), value)) << name;
        }
        Qx::Vector<iShaderEffect::Source> sources;
        for (std::size_t i = 0; i < draw.pictures.size(); ++i) {
            sources.emplace_back(draw.effect.textures[i].name.c_str(), uploaded(draw.pictures[i]));
        }
        const Qx::Ptr<iGPUImage> target =
            gpu().createGPUImage({static_cast<int>(draw.width), static_cast<int>(draw.height)},
                                 formatOf(draw.shader.depths.target));
        EXPECT_TRUE(effect_->render(target, sources)) << technique << takeLog();
        const Bytes bytes = download(target);
        const auto all = std::as_bytes(std::span(bytes));
        return {all.begin(), all.end()};
    }

    /// Compares all widths, with the parameters' defaults and with other values. Returns how many pictures
    /// were compared.
    int compare(const std::string& technique, const CompiledEffect::PackedShader& shader,
                const Native::Options& options)
    {
        const CompiledEffect& compiled = shippedEffect(GetParam());
        const std::vector<Native::Texels> texels = texelsOf(compiled, shader);
        const std::vector<std::byte> usual = uniformsOf(drawOf(shader, 401, false));
        const Native::Made made =
            nativeLibrary().make({shader.spirv, texels, shader.depths.target, usual, 401}, options);
        std::string problem;
        const auto code = made.problem.empty() ? nativeLibrary().load(made.object, problem) : nullptr;
        EXPECT_EQ(problem, "");
        int compared = 0;
        for (const std::uint32_t width : widths) {
            for (const bool hasOthers : {false, true}) {
                const NativeDraw draw = drawOf(shader, width, hasOthers);
                if (code == nullptr || !code->draws(uniformsOf(draw).data())) {
                    continue;
                }
                ++compared;
                EXPECT_TRUE(drawnBy(*code, draw) == byDevice(technique, draw))
                    << technique << ", " << shader.depths.source << " to " << shader.depths.target
                    << " bits, " << width << " texels wide, " << (hasOthers ? "other settings, " : "")
                    << (shader.places.empty() ? "anywhere, " : "own place, ") << options.lanes << " lanes of "
                    << options.period << " texels";
            }
        }
        return compared;
    }

private:
    Qx::Ptr<iShaderEffect> effect_;
};

INSTANTIATE_TEST_SUITE_P(Shipped, NativeBesideDriver, testing::ValuesIn(shippedFiles()),
                         [](const auto& file) {
                             std::string name = file.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

} // namespace

TEST_P(NativeBesideDriver, DrawsTheSameBytes)
{
    const CompiledEffect& compiled = shippedEffect(GetParam());
    for (const CompiledEffect::Technique& technique : compiled.techniques) {
        if (technique.passes.size() != 1) {
            continue;
        }
        for (const CompiledEffect::PackedShader& shader : technique.passes[0].packed) {
            const std::vector<Native::Texels> texels = texelsOf(compiled, shader);
            const std::uint32_t lanes = nativeLibrary().lanes();
            const std::vector<std::byte> usual = uniformsOf(drawOf(shader, 401, false));
            const Native::Made made = nativeLibrary().make(
                {shader.spirv, texels, shader.depths.target, usual, 401}, {lanes, 1, false, lanes > 8, 0});
            if (!made.problem.empty()) {
                continue; // tests/host/native/RefusalTest.cpp lists them
            }
            EXPECT_GT(compare(technique.name, shader, {lanes, 1, false, lanes > 8, 0}), 0) << technique.name;
            const std::uint32_t period = made.repetitions.empty() ? 1 : made.repetitions.back();
            compare(technique.name, shader, {8, period, false, false, 0});
        }
    }
}

} // namespace Qx::GpuTests
