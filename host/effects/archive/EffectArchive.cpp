#include "host/effects/archive/EffectArchive.h"

#include "host/effects/archive/EffectFields.h"
#include "host/effects/archive/EffectSoundness.h"

#include <utility>

namespace Qx::Host {
namespace {

constexpr std::uint32_t archiveMark = 0x41665851; // "QXfA"

} // namespace

std::vector<std::byte> writeEffectArchive(const EffectCompilation& compilation)
{
    Cache::ByteWriter to;
    Archive::FieldWriter write(to);
    write(archiveMark, effectArchiveVersion, compilation.diagnostics, compilation.inputs);
    to.number(static_cast<std::uint8_t>(compilation.effect != nullptr ? 1 : 0));
    if (compilation.effect != nullptr) {
        write(*compilation.effect);
    }
    return to.take();
}

std::optional<EffectCompilation> readEffectArchive(std::span<const std::byte> bytes)
{
    Cache::ByteReader from(bytes);
    Archive::FieldReader read(from);
    from.require(from.number<std::uint32_t>() == archiveMark);
    from.require(from.number<std::uint32_t>() == effectArchiveVersion);
    EffectCompilation compilation;
    read(compilation.diagnostics, compilation.inputs);
    const auto present = from.number<std::uint8_t>();
    from.require(present <= 1);
    if (present == 1) {
        auto effect = std::make_shared<CompiledEffect>();
        read(*effect);
        from.require(isSound(*effect));
        compilation.effect = std::move(effect);
    }
    if (!from.finished()) {
        return std::nullopt;
    }
    compilation.messages = messageText(compilation.diagnostics);
    return compilation;
}

} // namespace Qx::Host
