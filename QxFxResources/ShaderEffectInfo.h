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
/// A copy shares the lock and holds its own references to the rest.
struct QX_API ShaderEffectInfo
{
    /// Guards the lazy load of `effect`.
    CriticalSection lock;

    /// Empty until the first load that succeeds. Loading fills it in a record that is otherwise constant.
    mutable Qx::Ptr<iShaderEffect> effect;

    LightweightString<wchar_t> name; ///< the file name as listed, extension included: the catalogue's key
    LightweightString<wchar_t> directory; ///< where it was found, with its trailing separator
    std::uint64_t timeStamp = 0;          ///< compared for equality, to notice that the file changed

    LightweightString<wchar_t> getFullPath() const noexcept;

    /// Compiles the file unless that has been done. Any thread; of several at once one compiles and the
    /// others wait for it. After a failure `effect` stays empty and the next call tries again.
    void load(const Qx::Vector<iShaderEffect::CompilerDefinition>& definitions) const noexcept;

    /// The compiled effect, loading it through the manager when it is not there yet; empty when that fails.
    /// Any thread.
    Qx::Ptr<iShaderEffect> getShader() const noexcept;
};

} // namespace Qx::FxResources
