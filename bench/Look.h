#pragma once

#include "bench/LookFile.h"
#include "platform/GPUImage.h"
#include "platform/ShaderEffect.h"

namespace Qx::Bench {

/// The effect that applies a LUT, with its table.
class Look
{
public:
    explicit Look(const std::filesystem::path& file);

    /// Records the pass. Returns false on failure.
    bool draw(const Qx::Ptr<iGPUImage>& source, const Qx::Ptr<iGPUImage>& target) const;

private:
    Qx::Ptr<iShaderEffect> effect_;
    Qx::Ptr<iGPUImage3D> table_;
};

} // namespace Qx::Bench
