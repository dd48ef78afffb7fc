#pragma once

#include "host/gpu/drawing/Pipelines.h"

#include <mutex>

namespace Qx::Host::Vulkan {

/// The pipelines of the service's own drawing: gradients, images and levels of textures. Created with the
/// device and constant afterwards, but for those that few need, which are created for the first drawing:
/// those of levels, and all for targets of floats.
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
        std::array<float, 4> largest{};       ///< codes of the target
        std::array<std::int32_t, 2> corner{}; ///< the target's pixel that the copy of it begins with
        float weight;
        std::int32_t byAlpha;
    };

    /// Push constants of a level.
    struct Level
    {
        std::array<float, 4> largest;     ///< codes of the components in memory; 0 for half floats
        std::array<std::int32_t, 2> last; ///< column and row of the level above
    };

    /// What an image does with the target's contents.
    enum class Over
    {
        Replace,
        Mix, ///< it is mixed with a copy of them, which the second binding has
    };

    enum class Sampling
    {
        Filtered,
        Unfiltered, ///< the one texel that a pixel's centre falls on
    };

    explicit PrimitivePipelines(Device& device);

    bool create();
    void destroy();

    VkDescriptorSetLayout setLayout() const { return setLayout_; }
    VkPipelineLayout layout() const { return layout_; }

    // Null if the device refuses or cannot draw into the format. Thread-safe.
    VkPipeline gradient(VkFormat format) { return pipelineOf(gradient_, format); }
    VkPipeline image(VkFormat format, Sampling sampling, Over over);
    VkPipeline level(VkFormat format);

private:
    /// A fragment shader with its pipelines.
    struct Shader
    {
        std::span<const std::uint32_t> spirv;
        FormatPipelines pipelines{};
        FormatPipelines ofFloats{}; ///< guarded by the mutex
    };

    bool createLayouts();
    VkPipeline pipelineOf(Shader& shader, VkFormat format);
    std::array<Shader*, 5> shaders() { return {&gradient_, &image_, &imageOver_, &texels_, &texelsOver_}; }
    bool createPipelinesOf(std::span<const std::uint32_t> spirv, FormatPipelines& pipelines,
                           std::span<const VkFormat> formats = callersFormats);

    Device& device_;
    VkDescriptorSetLayout setLayout_ = nullptr;
    VkPipelineLayout layout_ = nullptr;
    Shader gradient_;
    Shader image_;
    Shader imageOver_;
    Shader texels_;
    Shader texelsOver_;
    std::mutex mutex_;
    bool hasLevels_ = false; // guarded by the mutex, as the next
    FormatPipelines levels_{};
};

} // namespace Qx::Host::Vulkan
