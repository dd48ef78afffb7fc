#pragma once

#include "Qx/HostAllocator.h"
#include "Qx/LightweightString.h"
#include "Qx/Ptr.h"
#include "platform/Api.h"
#include "platform/CriticalSection.h"
#include "platform/ShaderEffect.h"

#include <cstdint>

namespace Qx::FxResources {

/// One effect file of the catalogue, compiled on first use.
///
/// A copy shares the lock and holds its own references to the effect and the strings. A record may be copied
/// while another thread loads its effect: the copy has the effect or none.
struct QX_API ShaderEffectInfo
{
    ShaderEffectInfo() = default;
    /// Shares the lock, and takes references to the effect and the strings.
    ShaderEffectInfo(const ShaderEffectInfo& other) noexcept;
    /// As the copy constructor. The lock becomes that of `other`.
    ShaderEffectInfo& operator=(const ShaderEffectInfo& other) noexcept;
    ~ShaderEffectInfo() = default;

    /// Guards the lazy load of `effect`.
    CriticalSection lock;

    /// Empty until the first successful load, by any thread: read it through getShader() or a copy of the
    /// record. Mutable because loading fills it in an otherwise constant record.
    mutable Qx::Ptr<iShaderEffect> effect;

    LightweightString<wchar_t> name;      ///< file name as listed, with its extension: the catalogue's key
    LightweightString<wchar_t> directory; ///< directory with its trailing separator
    std::uint64_t timeStamp = 0;          ///< compared for equality to detect changes of the file

    /// Returns `directory` followed by `name`.
    LightweightString<wchar_t> getFullPath() const noexcept;

    /// Compiles the file unless `effect` is set. Thread-safe: of concurrent callers one compiles and the
    /// others block until it has finished. After a failure `effect` remains empty and the next call tries
    /// again.
    void load(const Qx::Vector<iShaderEffect::CompilerDefinition>& definitions) const noexcept;

    /// Returns the compiled effect, loading it through the manager if necessary, or an empty pointer on
    /// failure. Thread-safe. Does not block if the effect is loaded.
    Qx::Ptr<iShaderEffect> getShader() const noexcept;
};

} // namespace Qx::FxResources
