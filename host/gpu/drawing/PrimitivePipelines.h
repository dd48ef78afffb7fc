#pragma once

#include "host/gpu/drawing/Pipelines.h"

namespace Qx::Host::Vulkan {

/// The pipelines of the service's own drawing: gradients and images. Created with the device, constant
/// afterwards.
class PrimitivePipelines
{
public:
    /// Push constants of the gradient.
    struct Gradient
    {
        std::array<float, 4> top;
        std::array<float, 4> bottom;
        float y0;
        float perPixel;
    };

    /// Push constants of the image.
    struct Image
    {
        std::array<float, 4> mapping; ///< source = (x, y) + pixel * (z, w), in texels
        std::array<std::int32_t, 4> readable;
        float weight;
        std::int32_t byAlpha;
    };

    enum class Sampling
    {
        Filtered,
        Unfiltered, ///< the one texel that a pixel's centre falls on
    };

    explicit PrimitivePipelines(Device& device) : device_(device) {}

    bool create();
    void destroy();

    VkDescriptorSetLayout setLayout() const { return setLayout_; }
    VkPipelineLayout layout() const { return layout_; }
    VkPipeline gradient(VkFormat format) const { return pipelineFor(gradient_, format); }
    VkPipeline image(VkFormat format, Sampling sampling, Blending blending) const;

private:
    bool createLayouts();
    bool createPipelinesOf(std::span<const std::uint32_t> spirv, Blending blending,
                           FormatPipelines& pipelines);

    Device& device_;
    VkDescriptorSetLayout setLayout_ = nullptr;
    VkPipelineLayout layout_ = nullptr;
    FormatPipelines gradient_{};
    FormatPipelines image_{};
    FormatPipelines imageOver_{};
    FormatPipelines texels_{};
    FormatPipelines texelsOver_{};
};

} // namespace Qx::Host::Vulkan
