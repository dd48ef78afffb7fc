#include "host/effects/archive/EffectCache.h"

#include "host/cache/Bytes.h"
#include "host/effects/archive/EffectArchive.h"
#include "host/effects/framework/Limits.h"
#include "host/effects/hlsl/ShaderCompiler.h"
#include "host/files/ReadFile.h"

#include <algorithm>
#include <system_error>

namespace Qx::Host {
namespace {

using Cache::Digest;

std::optional<Digest> digestOfFile(const std::filesystem::path& file)
{
    const auto bytes = readFile(file, Effects::Limits::fileBytes);
    return bytes ? std::optional(Cache::digestOf(*bytes)) : std::nullopt;
}

/// Whether the include directories mattered. If each include was found at the first place, below the effect's
/// own directory, other directories would have had the same result.
bool needsDirectories(const std::filesystem::path& file, const EffectCompilation& compilation)
{
    return std::any_of(compilation.inputs.begin(), compilation.inputs.end(), [&](const EffectInput& input) {
        const auto below =
            input.path.lexically_normal().lexically_relative(file.parent_path().lexically_normal());
        return !input.content || below.empty() || *below.begin() == "..";
    });
}

} // namespace

Digest EffectCache::keyOf(const std::filesystem::path& file, const Digest& content,
                          const EffectCompilerOptions& options, bool needsDirectories) const
{
    Cache::ByteWriter to;
    to.number(effectArchiveVersion);
    to.text(Effects::shaderCompilerVersion());
    to.text(driver_);
    // Messages repeat the path as it was given. A relative path, and the includes beside it, depend on the
    // working directory.
    std::error_code error;
    to.text(file.native());
    to.text(std::filesystem::absolute(file, error).native());
    to.raw(content);
    to.count(options.definitions.size());
    for (const auto& [name, value] : options.definitions) {
        to.text(name);
        to.text(value);
    }
    to.number(static_cast<std::uint8_t>(needsDirectories ? 1 : 0));
    if (needsDirectories) {
        to.count(options.includeDirectories.size());
        for (const std::filesystem::path& directory : options.includeDirectories) {
            to.text(directory.native());
        }
    }
    to.number(static_cast<std::uint8_t>(options.packed ? 1 : 0));
    if (options.native) {
        const NativeWish& wish = *options.native;
        to.text(wish.target);
        to.text(wish.technique);
        to.number(wish.depths.source);
        to.number(wish.depths.target);
        to.number(static_cast<std::uint8_t>(wish.isOwnPlace ? 1 : 0));
        to.number(wish.usualWidth);
        to.count(wish.usual.size());
        to.raw(wish.usual);
    }
    return Cache::digestOf(to.bytes());
}

std::optional<EffectCompilation> EffectCache::find(const std::filesystem::path& file,
                                                   const EffectCompilerOptions& options) const
{
    const std::optional<Digest> content = digestOfFile(file);
    if (!content) {
        return std::nullopt;
    }
    for (const bool needed : {false, true}) {
        const auto bytes = store_->load(Cache::Kind::Effect, keyOf(file, *content, options, needed));
        std::optional<EffectCompilation> known = bytes ? readEffectArchive(*bytes) : std::nullopt;
        if (known && known->effect != nullptr && !known->inputs.empty() &&
            std::all_of(known->inputs.begin(), known->inputs.end(),
                        [](const EffectInput& input) { return isUnchanged(input, {}); })) {
            return known;
        }
    }
    return std::nullopt;
}

void EffectCache::keep(const std::filesystem::path& file, const EffectCompilerOptions& options,
                       const EffectCompilation& compilation) const
{
    if (compilation.effect == nullptr || compilation.inputs.empty() || !compilation.inputs[0].content) {
        return;
    }
    // The compiled text is the key: the file may have been saved again meanwhile.
    const Digest key =
        keyOf(file, *compilation.inputs[0].content, options, needsDirectories(file, compilation));
    store_->store(Cache::Kind::Effect, key, writeEffectArchive(compilation));
}

} // namespace Qx::Host
