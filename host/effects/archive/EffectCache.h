#pragma once

#include "host/cache/FileStore.h"
#include "host/effects/EffectCompiler.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace Qx::Host {

/// Compiled effects on disk.
///
/// An entry is found by the effect's path and every byte of its text, the definitions, the include
/// directories if it needed them, the versions of the compiler's libraries and of the format, and the
/// driver. It holds with what the compilation looked for: it serves as long as each included file has the
/// same bytes, and no file has appeared where one was looked for in vain. Warnings come back with the effect.
///
/// What failed is not kept: its author is about to change it. Any thread, several at once; only
/// std::bad_alloc is thrown.
class EffectCache
{
public:
    /// `driver` tells the device and its driver from others: what one takes says nothing of another.
    EffectCache(std::shared_ptr<Cache::FileStore> store, std::string driver)
        : store_(std::move(store)), driver_(std::move(driver))
    {
    }

    /// What compileEffect() would answer now, if it is there.
    std::optional<EffectCompilation> find(const std::filesystem::path& file,
                                          const EffectCompilerOptions& options) const;

    /// Keeps a successful compilation of that file with those options; a failed one is passed over.
    void keep(const std::filesystem::path& file, const EffectCompilerOptions& options,
              const EffectCompilation& compilation) const;

private:
    Cache::Digest keyOf(const std::filesystem::path& file, const Cache::Digest& content,
                        const EffectCompilerOptions& options, bool needsDirectories) const;

    std::shared_ptr<Cache::FileStore> store_;
    std::string driver_;
};

} // namespace Qx::Host
