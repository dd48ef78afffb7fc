#pragma once

#include "host/gpu/images/Images.h"
#include "platform/GraphicPrimitives.h"

namespace Qx::Host::Vulkan {

/// Draws rectangles and images into one image.
///
/// Blending is "over" with straight alpha: colours are mixed by the source's alpha (times its weight), and
/// the target's alpha becomes a + d (1 - a). A rectangle without area, or outside the target, draws nothing
/// and succeeds.
class PrimitivesRenderer final : public iGraphicPrimitivesRenderer
{
public:
    explicit PrimitivesRenderer(Qx::Ptr<GPUImage> target) : target_(std::move(target)) {}

    /// Replaces the target's contents, alpha included.
    bool draw(const RectDescription& description, int layer) override;
    bool draw(const ImageDescription& description, int layer) override;
    bool draw(const ImageDescriptionEx& description, int layer) override;

private:
    struct ImageDraw
    {
        Picture& image;
        Picture& target;
        RectangleOf<float> source;
        RectangleOf<float> destination;
        bool byAlpha = false;
        float weight = 1.0F;
        bool everySecondLine = false;
    };

    using Sampling = PrimitivePipelines::Sampling;

    /// The mapping from pixels of the target to texels.
    struct Mapping
    {
        float x = 0.0F; ///< the source position of the target's corner; for y, of its first whole line
        float y = 0.0F;
        PrimitivePipelines::Image constants{};
        Sampling sampling = Sampling::Filtered;
    };

    static Mapping mappingOf(const ImageDraw& draw);
    bool recordImage(const ImageDraw& draw, const VkRect2D& pixels, const Mapping& mapping);
    bool drawRectangles(const std::vector<VkRect2D>& areas, const RectDescription& description);
    bool drawImage(const ImageDraw& draw);
    bool drawThroughEffect(const ImageDescriptionEx& description, GPUImage& image);
    Context& context() const { return target_->context(); }
    bool mayDraw() const;

    const Qx::Ptr<GPUImage> target_;
};

} // namespace Qx::Host::Vulkan
