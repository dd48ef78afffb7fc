#pragma once

#include "host/fonts/GlyphAtlas.h"
#include "host/fonts/TextShaper.h"
#include "host/gpu/images/Images.h"
#include "platform/Font.h"

namespace Qx::Host::Text {

/// Draws lines of text on a device. It caches the glyphs of all fonts there, within a limit.
///
/// A line is first drawn on a layer of its own, with 16 bits a component, and the layer is then drawn over
/// the target: overlapping letters do not show through each other, and the target is rounded once.
/// Thread-safe; one line at a time.
class TextRenderer final : public Vulkan::DeviceObject
{
public:
    /// Null if the device refuses. Inside an Operation.
    static std::shared_ptr<TextRenderer> create(std::shared_ptr<Vulkan::Context> context);
    ~TextRenderer();
    TextRenderer(const TextRenderer&) = delete;
    TextRenderer& operator=(const TextRenderer&) = delete;

    void destroyDeviceObjects(Vulkan::Device& device) override;

    Vulkan::Context& context() const { return *context_; }

    /// Draws a line whose baseline begins there. Inside an Operation.
    bool draw(Vulkan::Picture& target, const Line& line, XY<int> baseline, const NormalisedRGB& colour,
              iFont::eAlpha alpha);

    struct Statistics
    {
        std::uint64_t pageBytes = 0; ///< of all pages
        std::uint64_t uploads = 0;   ///< glyphs copied to the device so far
    };
    Statistics statistics();

private:
    /// A glyph on the layer, as the shader reads it.
    struct Instance
    {
        std::array<std::int32_t, 4> area;
        std::array<std::int32_t, 4> source;
    };
    /// The upload of a glyph to its page.
    struct Upload
    {
        std::size_t page;
        VkBufferImageCopy region;
    };
    /// The part of a line that is collected until it is recorded.
    struct Segment
    {
        std::vector<std::uint8_t> texels; ///< of the uploads
        std::vector<Upload> uploads;
        std::vector<std::vector<Instance>> glyphs; ///< by page
        bool first = true;                         ///< of the line
    };
    /// The line that is being drawn.
    struct Drawing;
    /// The resources of a pass, created before anything is recorded.
    struct GlyphPass
    {
        VkDescriptorSet set = nullptr;
        std::uint32_t count = 0;
        std::size_t page = 0;
    };

    explicit TextRenderer(std::shared_ptr<Vulkan::Context> context);
    bool createPipelines();
    bool createLayouts();
    VkPipeline layerPipeline(VkFormat format);

    bool drawLine(Drawing& drawing, const Line& line, XY<int> baseline);
    bool collect(Drawing& drawing, const PlacedGlyph& glyph, XY<int> baseline);
    std::optional<GlyphAtlas::Slot> slotOf(Drawing& drawing, const PlacedGlyph& glyph, unsigned phase);
    bool acquirePage(std::size_t page);
    bool record(Drawing& drawing, bool last);
    bool prepareGlyphs(Vulkan::Batch& batch, const Segment& segment, std::vector<GlyphPass>& passes);
    VkDescriptorSet describeLayer(Vulkan::Batch& batch, const Drawing& drawing);
    void recordUploads(Vulkan::Batch& batch, const Segment& segment, Vulkan::HostBuffer& staging);
    void recordGlyphs(Vulkan::Batch& batch, const Drawing& drawing, const std::vector<GlyphPass>& passes);
    void recordLayer(Vulkan::Batch& batch, const Drawing& drawing, Vulkan::Texture& target,
                     VkDescriptorSet set);
    void forgetGlyphs();

    const std::shared_ptr<Vulkan::Context> context_;
    struct Objects
    {
        VkDescriptorSetLayout glyphSet = nullptr;
        VkDescriptorSetLayout layerSet = nullptr;
        VkPipelineLayout glyphLayout = nullptr;
        VkPipelineLayout layerLayout = nullptr;
        VkPipeline glyph = nullptr; ///< draws on layers, whose components are not rotated
        Vulkan::FormatPipelines layer{};
        Vulkan::FormatPipelines ofFloats{}; ///< the same for targets of floats, once one is drawn on
    };
    static void destroy(Vulkan::Device& device, Objects& objects);
    Objects objects_; ///< constant once made, but for `ofFloats`

    std::mutex mutex_; // guards that and all below; held while a line is drawn
    GlyphAtlas atlas_;
    std::vector<std::optional<Vulkan::Pooled<Vulkan::Texture>>> pages_;
    std::uint64_t uploads_ = 0;
};

} // namespace Qx::Host::Text
