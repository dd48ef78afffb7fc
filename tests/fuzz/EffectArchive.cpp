#include "host/effects/archive/EffectArchive.h"

#include "tests/fuzz/Targets.h"

#include <algorithm>

namespace Qx::Fuzz {
namespace {

void checkUse(const Host::CompiledEffect& effect)
{
    promise(!effect.techniques.empty(), "an effect without techniques");
    for (const auto& parameter : effect.parameters) {
        promise(parameter.offset + std::uint64_t{parameter.bytes} <= effect.uniformBytes &&
                    parameter.defaultValue.size() == parameter.bytes,
                "a parameter lies outside the buffer");
    }
    for (const auto& sampler : effect.samplers) {
        promise(sampler.texture < effect.textures.size(), "a sampler without texture");
    }
    for (const auto& technique : effect.techniques) {
        promise(!technique.passes.empty(), "a technique without passes");
        for (const auto& pass : technique.passes) {
            promise(std::all_of(pass.samplers.begin(), pass.samplers.end(),
                                [&](std::uint32_t each) { return each < effect.samplers.size(); }),
                    "a pass without its sampler");
        }
    }
}

} // namespace

void effectArchive(Input input)
{
    const std::span<const std::byte> bytes = std::as_bytes(input);
    const auto compilation = Host::readEffectArchive(bytes);
    if (!compilation) {
        return;
    }
    if (compilation->effect != nullptr) {
        checkUse(*compilation->effect);
    }
    const std::vector<std::byte> written = Host::writeEffectArchive(*compilation);
    promise(std::equal(written.begin(), written.end(), bytes.begin(), bytes.end()),
            "an archive comes back as other bytes");
}

} // namespace Qx::Fuzz
