#pragma once

#include "host/effects/CompiledEffect.h"

#include <vulkan/vulkan_core.h>

#include <memory>
#include <vector>

namespace Qx::Host::Vulkan {

class CompanionViews;
class Context;
class Device;
class TechniqueDrawing;
struct PhysicalDevice;
struct TextureKey;

/// A second, faster way of drawing techniques that one kind of device has. The rest of the service draws by
/// it through this interface, CompanionViews and TechniqueDrawing.
///
/// On such a device images lie in memory that the host sees, so that they may share it with host images.
///
/// Immutable; any thread.
class DrawingPath
{
public:
    virtual ~DrawingPath() = default;

    /// How the texels of such an image are arranged in memory.
    virtual VkImageTiling tilingOf(const TextureKey& key) const = 0;

    /// Whether such an image may lie in memory exactly as a host image does. Texture::inHostMemory tells of
    /// one whether it does.
    virtual bool mayLieAsHostImage(const TextureKey& key) const = 0;

    /// Creates the path's views of an image, not bound to memory yet, and raises `requirements` to what image
    /// and views need together. Null if the image can only be drawn the usual way.
    virtual std::unique_ptr<CompanionViews> createViews(Device& device, const TextureKey& key, VkImage image,
                                                        VkMemoryRequirements& requirements) const = 0;

    /// Records what a command buffer must begin with.
    virtual void beginCommands(VkCommandBuffer commands) const = 0;

    /// Appends the technique's drawings by this path, none if it has no shaders for it. Their pipelines are
    /// still to be created. Returns false if the device refuses a shader.
    virtual bool createDrawings(Context& context, const CompiledEffect& effect,
                                const CompiledEffect::Technique& technique,
                                std::vector<std::unique_ptr<TechniqueDrawing>>& drawings) const = 0;
};

/// The drawing path for that device; null if it has none.
std::unique_ptr<const DrawingPath> createDrawingPath(const PhysicalDevice& device);

} // namespace Qx::Host::Vulkan
