#pragma once

#include "host/gpu/drawing/Pipelines.h"
#include "host/gpu/effects/ShaderProgram.h"
#include "host/gpu/images/Picture.h"
#include "platform/GraphicPrimitives.h"
#include "platform/ShaderEffect.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <deque>
#include <memory>
#include <memory_resource>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Host::Vulkan {

/// Memory for the lists of one draw. It is on the stack as long as that suffices.
class DrawMemory
{
public:
    template <class T>
    std::pmr::vector<T> list(std::size_t size)
    {
        return std::pmr::vector<T>(size, &resource_);
    }

private:
    std::array<std::byte, 8192> buffer_; // a pass with all its inputs takes about a tenth of it
    std::pmr::monotonic_buffer_resource resource_{buffer_.data(), buffer_.size()};
};

/// One draw of a technique.
struct Draw
{
    const CompiledEffect& effect;
    std::span<Picture* const> textures; ///< by the effect's texture index; null if nothing is bound
    Picture& target;
    VkRect2D pixels; ///< of the target
    std::span<std::byte> uniforms;
    DrawMemory& memory;
    bool clears;                    ///< what the passes leave uncovered becomes 0
    const RectangleOf<float>& area; ///< that the coordinates run over
    const Qx::Vector<iShaderEffect::Source>& sources;

    bool coversTarget() const;

    /// Whether TEXCOORDn runs over the whole target, and over the whole of a texture of that size.
    bool isOwnPlace(std::size_t coordinate, const Picture& picture) const;

    /// What one of the effect's samplers reads, and what is bound to a texture of that name; null if nothing.
    const Picture* pictureOf(std::uint32_t sampler) const
    {
        return textures[effect.samplers[sampler].texture];
    }
    const Picture* pictureCalled(std::string_view name) const;

    /// The offset of a texture's CompiledEffect::TextureUniforms in `uniforms`.
    std::size_t textureUniforms(std::size_t texture) const
    {
        return effect.textureUniforms + texture * sizeof(CompiledEffect::TextureUniforms);
    }
};

class NativeDrawing;
class NativeMaker;

/// Some of the passes of a drawing, one after the other.
struct PassRange
{
    std::size_t first = 0;
    std::size_t end = 0;
};

/// The index of a texture of that name; the number of textures if the effect has none.
std::size_t textureIndex(const CompiledEffect& effect, std::string_view name);

/// One way to draw a technique, or those of its passes that draw into one target, on the device: its shaders
/// and pipelines, and how they are recorded.
///
/// As it stands it is the usual way, one fragment a texel, which draws everything. A DrawingPath derives its
/// own, which draw what canDraw() says.
class TechniqueDrawing
{
public:
    /// The first two must outlive every call but destroy(). `formats` are those of its targets.
    TechniqueDrawing(Context& context, const CompiledEffect& effect,
                     std::span<const VkFormat> formats = callersFormats)
        : context_(context), effect_(effect), formats_(formats)
    {
    }
    virtual ~TechniqueDrawing() = default;
    TechniqueDrawing(const TechniqueDrawing&) = delete;
    TechniqueDrawing& operator=(const TechniqueDrawing&) = delete;

    /// Destroys the Vulkan objects.
    void destroy(Device& device);

    /// Appends a pass, without its pipelines. The arguments' data must stay. Returns false if the device
    /// refuses the shader. Inside an Operation, before anything is drawn.
    bool addPass(std::span<const std::uint32_t> spirv, const std::vector<std::uint32_t>& samplers,
                 const VkPushConstantRange* pushConstants = nullptr);

    std::size_t passCount() const { return passes_.size(); }
    const ShaderProgram& program(std::size_t pass) const { return passes_[pass].program; }

    /// Creates the pipelines of one pass or of all, unless they exist. Returns false if the device refuses.
    /// Thread-safe; inside an Operation.
    bool createPipelines(std::size_t pass);
    bool createPipelines();

    /// As createPipelines(), for targets of that format, which may be that of floats.
    bool createPipelinesFor(VkFormat format);

    /// Whether that draw can be done this way.
    virtual bool canDraw(const Draw&) const { return true; }

    /// Whether this way is for sources of another depth than the target's.
    virtual bool mixesDepths() const { return false; }

    /// Lets the host's processors draw in the place of the device, where that is possible. Before any draw.
    virtual void useNative(const std::shared_ptr<NativeMaker>&, const std::string&) {}
    virtual NativeDrawing* native() const { return nullptr; }

    /// Records passes of a draw that canDraw() accepts and whose pipelines exist. Those from the first to the
    /// last are recorded, together or in parts. Returns false if memory is exhausted.
    virtual bool record(Batch& batch, const Draw& draw, PassRange passes) const;

protected:
    Context& context() const { return context_; }

    /// Creates a pass's pipelines for the target formats that it draws into.
    virtual VkResult createPipelines(std::size_t pass, VkShaderModule fragment,
                                     FormatPipelines& pipelines) const;

    /// Begins drawing into the target.
    virtual void begin(VkCommandBuffer commands, const Texture& target, const Draw& draw,
                       bool replacesAll) const;

    /// Fills in the descriptor of one of the pass's bindings, whose `image` may be used.
    virtual void bind(std::size_t pass, std::size_t binding, const Texture& texture,
                      VkWriteDescriptorSet& write, VkDescriptorImageInfo& image) const;

    virtual void pushConstants(VkCommandBuffer, std::size_t, const Draw&) const {}

private:
    struct Pass
    {
        std::span<const std::uint32_t> spirv;
        ShaderProgram program;
        FormatPipelines pipelines{};
        FormatPipelines ofFloats{};            // apart, since few targets have them
        std::atomic<bool> hasPipelines{false}; // so that a draw need not wait while others are created
        std::atomic<bool> hasOfFloats{false};
    };

    static VkPipeline pipelineOf(const Pass& pass, VkFormat format);
    template <class Create>
    bool createOnce(std::span<const std::uint32_t> spirv, FormatPipelines& pipelines,
                    std::atomic<bool>& exist, Create create);
    bool createMissing(std::size_t pass);
    bool createMissingOfFloats(std::size_t pass);
    VkDescriptorSet describe(Batch& batch, const Draw& draw, std::size_t pass,
                             const VkDescriptorBufferInfo& uniforms) const;
    void announce(Batch& batch, const Draw& draw, PassRange passes, Texture& target, bool replacesAll) const;

    Context& context_;
    const CompiledEffect& effect_;
    const std::span<const VkFormat> formats_; ///< of static lifetime
    std::deque<Pass> passes_;
    std::mutex creating_; // held while pipelines are created
};

} // namespace Qx::Host::Vulkan
