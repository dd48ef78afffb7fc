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
/// The key of an entry is the effect's path and every byte of its text, the definitions, the include
/// directories if they mattered, the versions of the compiler's libraries and of the format, and the driver.
/// An entry is valid as long as each included file has the same bytes, and no file has appeared where the
/// compilation found none. It includes the warnings.
///
/// Failed compilations are not kept: their authors are about to change them. Thread-safe. Throws
/// std::bad_alloc only.
class EffectCache
{
public:
    /// `driver` identifies the device and its driver: each accepts other shaders.
    EffectCache(std::shared_ptr<Cache::FileStore> store, std::string driver)
        : store_(std::move(store)), driver_(std::move(driver))
    {
    }

    /// Returns the result that compileEffect() would have now, if there is a valid entry.
    std::optional<EffectCompilation> find(const std::filesystem::path& file,
                                          const EffectCompilerOptions& options) const;

    /// Stores a successful compilation of that file with those options; ignores a failed one.
    void keep(const std::filesystem::path& file, const EffectCompilerOptions& options,
              const EffectCompilation& compilation) const;

private:
    Cache::Digest keyOf(const std::filesystem::path& file, const Cache::Digest& content,
                        const EffectCompilerOptions& options, bool needsDirectories) const;

    std::shared_ptr<Cache::FileStore> store_;
    std::string driver_;
};

} // namespace Qx::Host
