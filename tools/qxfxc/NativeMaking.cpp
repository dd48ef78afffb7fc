#include "tools/qxfxc/NativeMaking.h"

#include "host/native/NativeCode.h"
#include "host/native/Periods.h"
#include "tools/qxfxc/TestAid.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <filesystem>
#include <random>
#include <system_error>

namespace Qx::Host::Worker {

namespace {

using PackedShader = CompiledEffect::PackedShader;

constexpr std::uint32_t entryBytes = 16; // of a volume

std::vector<Native::Texels> texelsOf(const CompiledEffect& effect, const PackedShader& shader)
{
    std::vector<Native::Texels> texels(effect.samplers.size());
    for (const std::uint32_t sampler : shader.samplers) {
        const bool isVolume = effect.samplers[sampler].dimensions == 3;
        texels[sampler] = isVolume ? Native::Texels{entryBytes, 32}
                                   : Native::Texels{shader.depths.source / 2, shader.depths.source};
    }
    return texels;
}

/// What a frame reads and draws, in memory of its own.
struct TrialFrame
{
    Native::Frame frame;
    std::vector<std::vector<std::byte>> buffers;
    std::vector<std::byte> target;
    std::uint32_t rows;

    TrialFrame(const Native::Shader& shader, std::uint32_t width, std::uint32_t height) : rows(height)
    {
        const std::size_t pitch = (std::size_t{width} * shader.targetBits / 2 + 15) / 16 * 16;
        target.resize(pitch * height);
        frame.uniforms = shader.usual.data();
        frame.target = target.data();
        frame.pitch = pitch;
        frame.width = width;
    }

    void addBuffer(std::size_t binding, const Native::Texels& texels, std::size_t count)
    {
        buffers.emplace_back(count * texels.bytes);
        fill(buffers.back(), texels.componentBits == 32);
        frame.buffers[binding] = {buffers.back().data(), count};
    }

private:
    /// With noise, of floats from 0 to 1.
    static void fill(std::vector<std::byte>& bytes, bool floats)
    {
        constexpr std::size_t most = std::size_t{4} << 20U;
        std::minstd_rand random; // the same each time
        for (std::size_t i = 0; i + sizeof(float) <= std::min(bytes.size(), most); i += sizeof(float)) {
            const auto number = static_cast<std::uint32_t>(random());
            const float part = static_cast<float>(number & 0xFFFFU) / 65535.0F;
            const std::uint32_t word = floats ? std::bit_cast<std::uint32_t>(part) : number ^ number << 16U;
            std::memcpy(bytes.data() + i, &word, sizeof word);
        }
    }
};

/// Draws a small picture, odd in width, from buffers of a few texels: every read must be within them.
void tryOut(const Native::Code& code, const Native::Shader& shader)
{
    constexpr std::size_t texelsRead = 1000;
    TrialFrame trial(shader, 67, 5);
    for (std::size_t i = 0; i < shader.texels.size(); ++i) {
        if (shader.texels[i].bytes != 0) {
            trial.addBuffer(i, shader.texels[i], texelsRead);
        }
    }
    code.draw(trial.frame, 0, trial.rows);
}

/// How many texels a usual frame reads of a texture, as far as its uniforms say.
std::size_t texelsOfUsual(const CompiledEffect& effect, const CompiledEffect::Sampler& sampler,
                          const Native::Texels& texels, const NativeWish& wish)
{
    constexpr double mostBytes = std::size_t{32} << 20U;
    CompiledEffect::TextureUniforms texture;
    std::memcpy(&texture, wish.usual.data() + effect.textureUniforms + sampler.texture * sizeof texture,
                sizeof texture);
    const double layers = sampler.dimensions == 3 ? texture.size[0] : 1.0;
    const double rows = sampler.dimensions == 3 ? texture.maxCode : texture.size[1];
    const double bytes = double{texture.rowPacked} * entryBytes * rows * layers;
    return static_cast<std::size_t>(bytes >= texels.bytes ? std::min(bytes, mostBytes) : texels.bytes) /
           texels.bytes;
}

/// Some rows of a frame like the usual one.
TrialFrame usualFrame(const CompiledEffect& effect, const PackedShader& packed, const Native::Shader& shader,
                      const NativeWish& wish)
{
    constexpr std::uint32_t rows = 64;
    constexpr std::uint32_t widest = 1U << 14U;
    TrialFrame trial(shader, std::clamp(wish.usualWidth, 1U, widest), rows);
    for (const std::uint32_t sampler : packed.samplers) {
        const Native::Texels& texels = shader.texels[sampler];
        trial.addBuffer(sampler, texels, texelsOfUsual(effect, effect.samplers[sampler], texels, wish));
    }
    return trial;
}

void make(const Native::Library& library, const CompiledEffect& effect, const NativeWish& wish,
          PackedShader& shader)
{
    const std::vector<Native::Texels> texels = texelsOf(effect, shader);
    if (texels.size() > Native::Frame::mostBuffers) {
        shader.codeProblem = "it has too many samplers";
        return;
    }
    const std::vector<std::uint32_t> spirv = mistaken(shader.spirv);
    const Native::Shader source{spirv, texels, shader.depths.target, wish.usual, wish.usualWidth};
    const TrialFrame trial = usualFrame(effect, shader, source, wish);
    const Native::Options options{library.lanes(), 1, false, library.lanes() > 8, 0};
    Native::Made made = Native::makeFastest(library, source, options, trial.frame, trial.rows).made;
    shader.codeProblem = made.problem;
    if (!made.problem.empty()) {
        return;
    }
    if (const auto code = library.load(made.object, shader.codeProblem)) {
        tryOut(*code, source);
        shader.code = std::move(made.object);
    }
}

} // namespace

void makeNativeCode(EffectCompilation& compilation, const NativeWish& wish)
{
    if (compilation.effect == nullptr) {
        return;
    }
    const auto effect = std::make_shared<CompiledEffect>(*compilation.effect);
    compilation.effect = effect;
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    std::string problem =
        wish.usual.size() >= effect->uniformBytes ? "" : "the uniforms of a usual frame are cut off";
    const Native::Library* const library =
        problem.empty() ? Native::library(self.parent_path(), problem) : nullptr;
    for (CompiledEffect::Technique& technique : effect->techniques) {
        for (CompiledEffect::Pass& pass : technique.passes) {
            for (PackedShader& shader : pass.packed) {
                if (library == nullptr || library->target() != wish.target) {
                    shader.codeProblem =
                        library == nullptr ? problem : "it is wanted for another processor or LLVM";
                } else {
                    make(*library, *effect, wish, shader);
                }
            }
        }
    }
}

} // namespace Qx::Host::Worker
