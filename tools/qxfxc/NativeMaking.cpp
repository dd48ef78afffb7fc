#include "tools/qxfxc/NativeMaking.h"

#include "host/native/NativeCode.h"

#include <algorithm>
#include <filesystem>
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

/// Draws a small picture, odd in width, from buffers of a few texels: every read must be within them.
void tryOut(const Native::Code& code, const Native::Shader& shader)
{
    constexpr std::uint32_t width = 67;
    constexpr std::uint32_t height = 5;
    constexpr std::size_t texelsRead = 1000;
    Native::Frame frame;
    std::vector<std::vector<std::byte>> buffers;
    for (std::size_t i = 0; i < shader.texels.size(); ++i) {
        if (shader.texels[i].bytes != 0) {
            buffers.emplace_back(texelsRead * shader.texels[i].bytes);
            frame.buffers[i] = {buffers.back().data(), texelsRead};
        }
    }
    const std::size_t pitch = (width * shader.targetBits / 2 + 15) / 16 * 16;
    std::vector<std::byte> target(pitch * height);
    frame.uniforms = shader.usual.data();
    frame.target = target.data();
    frame.pitch = pitch;
    frame.width = width;
    code.draw(frame, 0, height);
}

void make(const Native::Library& library, const CompiledEffect& effect, const NativeWish& wish,
          PackedShader& shader)
{
    const std::vector<Native::Texels> texels = texelsOf(effect, shader);
    if (texels.size() > Native::Frame::mostBuffers) {
        shader.codeProblem = "it has too many samplers";
        return;
    }
    const Native::Shader source{shader.spirv, texels, shader.depths.target, wish.usual, wish.usualWidth};
    Native::Made made = library.make(source, {library.lanes(), 1, false, library.lanes() > 8, 0});
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
    std::string problem = wish.usual.size() >= effect->uniformBytes ? "" : "the uniforms of a usual frame are cut off";
    const Native::Library* const library =
        problem.empty() ? Native::library(self.parent_path(), problem) : nullptr;
    for (CompiledEffect::Technique& technique : effect->techniques) {
        for (CompiledEffect::Pass& pass : technique.passes) {
            for (PackedShader& shader : pass.packed) {
                if (library == nullptr || library->target() != wish.target) {
                    shader.codeProblem = library == nullptr ? problem : "it is wanted for another processor or LLVM";
                } else {
                    make(*library, *effect, wish, shader);
                }
            }
        }
    }
}

} // namespace Qx::Host::Worker
