#include "host/fonts/TextRenderer.h"

#include "host/gpu/shaders/glyph.frag.h"
#include "host/gpu/shaders/glyph.vert.h"
#include "host/gpu/shaders/textOver.frag.h"

#include <algorithm>
#include <cstring>

namespace Qx::Host::Text {

namespace {

using Vulkan::Batch;
using Vulkan::Context;
using Vulkan::Device;
using Vulkan::HostBuffer;
using Vulkan::Picture;
using Vulkan::Pooled;
using Vulkan::Texture;

constexpr VkImageLayout readLayout = VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL;
constexpr VkFormat pageFormat = VK_FORMAT_R8G8B8A8_UNORM;
constexpr VkFormat layerFormat = VK_FORMAT_R16G16B16A16_UNORM;

// 8 pages, 32 MiB: about a thousand glyphs of subtitles.
constexpr std::uint64_t atlasTexels = std::uint64_t{8} * GlyphAtlas::pageSide * GlyphAtlas::pageSide;

// 16 KiB, which every device supports.
constexpr std::size_t glyphsPerPass = 512;

// The limit of glyphs that wait to be copied.
constexpr std::size_t mostStagedBytes = std::size_t{16} << 20U;

struct GlyphParameters
{
    std::array<float, 4> colour;
    std::array<float, 2> layerSize;
};

struct LayerParameters
{
    std::array<float, 4> largest;
    std::array<std::int32_t, 2> corner;
    float opacity;
    std::int32_t premultiplied;
};

struct Area
{
    std::int64_t x0 = 0;
    std::int64_t y0 = 0;
    std::int64_t x1 = 0;
    std::int64_t y1 = 0;

    bool empty() const { return x0 >= x1 || y0 >= y1; }
    Area operator&(const Area& other) const
    {
        return {std::max(x0, other.x0), std::max(y0, other.y0), std::min(x1, other.x1),
                std::min(y1, other.y1)};
    }
    void include(const Area& other)
    {
        *this = empty() ? other
                        : Area{std::min(x0, other.x0), std::min(y0, other.y0), std::max(x1, other.x1),
                               std::max(y1, other.y1)};
    }
};

/// A rectangle of the target that contains a glyph's pixels.
Area areaOf(const PlacedGlyph& glyph, XY<int> baseline)
{
    const GlyphExtent extent = glyph.face->extentOf(glyph.glyph);
    const std::int64_t left = baseline.x + Face::penAt(glyph.x).pixel + extent.left;
    const std::int64_t top = std::int64_t{baseline.y} - glyph.y - extent.top;
    return {left, top, left + extent.width, top + extent.height};
}

Area wholeOf(const Picture& picture)
{
    return {0, 0, picture.key.width, picture.key.height};
}

VkDescriptorSetLayoutBinding binding(std::uint32_t number, VkDescriptorType type, VkShaderStageFlags stages)
{
    VkDescriptorSetLayoutBinding result{};
    result.binding = number;
    result.descriptorType = type;
    result.descriptorCount = 1;
    result.stageFlags = stages;
    return result;
}

VkResult createSetLayout(Device& device, std::span<const VkDescriptorSetLayoutBinding> bindings,
                         VkDescriptorSetLayout& layout)
{
    VkDescriptorSetLayoutCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_DESCRIPTOR_SET_LAYOUT_CREATE_INFO;
    info.bindingCount = static_cast<std::uint32_t>(bindings.size());
    info.pBindings = bindings.data();
    return vkCreateDescriptorSetLayout(device.handle(), &info, nullptr, &layout);
}

VkResult createLayout(Device& device, VkDescriptorSetLayout set, VkShaderStageFlags stages, std::size_t bytes,
                      VkPipelineLayout& layout)
{
    const VkPushConstantRange range{stages, 0, static_cast<std::uint32_t>(bytes)};
    VkPipelineLayoutCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_PIPELINE_LAYOUT_CREATE_INFO;
    info.setLayoutCount = 1;
    info.pSetLayouts = &set;
    info.pushConstantRangeCount = 1;
    info.pPushConstantRanges = &range;
    return vkCreatePipelineLayout(device.handle(), &info, nullptr, &layout);
}

VkWriteDescriptorSet writeImage(VkDescriptorSet set, std::uint32_t number, const VkDescriptorImageInfo& info)
{
    VkWriteDescriptorSet write{};
    write.sType = VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET;
    write.dstSet = set;
    write.dstBinding = number;
    write.descriptorCount = 1;
    write.descriptorType = VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
    write.pImageInfo = &info;
    return write;
}

VkSampler samplerOf(Context& context)
{
    return context.samplers().get(CompiledEffect::Filter::Point, CompiledEffect::Address::Clamp,
                                  CompiledEffect::Address::Clamp);
}

constexpr VkShaderStageFlags bothStages = VK_SHADER_STAGE_VERTEX_BIT | VK_SHADER_STAGE_FRAGMENT_BIT;

} // namespace

struct TextRenderer::Drawing
{
    Picture& target;
    const NormalisedRGB& colour;
    iFont::eAlpha alpha;
    Area area; ///< of the target, that the layer stands for
    Pooled<Texture> layer;
    Pooled<Texture> under;
    Segment segment;
    VkPipeline pipeline = nullptr; ///< draws the layer over the target

    VkRect2D onTarget() const
    {
        return {{static_cast<std::int32_t>(area.x0), static_cast<std::int32_t>(area.y0)}, size()};
    }
    VkExtent2D size() const
    {
        return {static_cast<std::uint32_t>(area.x1 - area.x0), static_cast<std::uint32_t>(area.y1 - area.y0)};
    }
};

TextRenderer::TextRenderer(std::shared_ptr<Context> context)
    : context_(std::move(context)), atlas_(atlasTexels)
{
}

std::shared_ptr<TextRenderer> TextRenderer::create(std::shared_ptr<Context> context)
{
    std::shared_ptr<TextRenderer> self(new TextRenderer(std::move(context)));
    self->context_->add(*self);
    return self->createLayouts() && self->createPipelines() ? self : nullptr;
}

TextRenderer::~TextRenderer()
{
    // The device may still be drawing with it, and this may be a static destructor.
    context_->retire(
        *this, [device = &context_->device(), objects = objects_]() mutable { destroy(*device, objects); });
}

void TextRenderer::destroyDeviceObjects(Device& device)
{
    destroy(device, objects_);
}

void TextRenderer::destroy(Device& device, Objects& objects)
{
    vkDestroyPipeline(device.handle(), objects.glyph, nullptr);
    Vulkan::destroyPipelines(device, objects.layer);
    Vulkan::destroyPipelines(device, objects.ofFloats);
    vkDestroyPipelineLayout(device.handle(), objects.glyphLayout, nullptr);
    vkDestroyPipelineLayout(device.handle(), objects.layerLayout, nullptr);
    vkDestroyDescriptorSetLayout(device.handle(), objects.glyphSet, nullptr);
    vkDestroyDescriptorSetLayout(device.handle(), objects.layerSet, nullptr);
    objects = {};
}

bool TextRenderer::createLayouts()
{
    Device& device = context_->device();
    constexpr auto image = VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
    const std::array glyphBindings{binding(0, VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER, VK_SHADER_STAGE_VERTEX_BIT),
                                   binding(1, image, VK_SHADER_STAGE_FRAGMENT_BIT)};
    const std::array layerBindings{binding(0, image, VK_SHADER_STAGE_FRAGMENT_BIT),
                                   binding(1, image, VK_SHADER_STAGE_FRAGMENT_BIT)};
    constexpr const char* what = "setting up text";
    return device.succeeded(createSetLayout(device, glyphBindings, objects_.glyphSet), what) &&
           device.succeeded(createSetLayout(device, layerBindings, objects_.layerSet), what) &&
           device.succeeded(createLayout(device, objects_.glyphSet, bothStages, sizeof(GlyphParameters),
                                         objects_.glyphLayout),
                            what) &&
           device.succeeded(createLayout(device, objects_.layerSet, VK_SHADER_STAGE_FRAGMENT_BIT,
                                         sizeof(LayerParameters), objects_.layerLayout),
                            what);
}

bool TextRenderer::createPipelines()
{
    Device& device = context_->device();
    VkShaderModule glyphVertex = nullptr;
    VkShaderModule glyph = nullptr;
    VkShaderModule layer = nullptr;
    VkResult result = Vulkan::createShaderModule(device, glyphVertexShader, glyphVertex);
    if (result == VK_SUCCESS) {
        result = Vulkan::createShaderModule(device, glyphFragmentShader, glyph);
    }
    if (result == VK_SUCCESS) {
        result = Vulkan::createShaderModule(device, textOverShader, layer);
    }
    if (result == VK_SUCCESS) {
        result = Vulkan::createPipeline(device, glyphVertex, glyph, objects_.glyphLayout,
                                        Vulkan::Blending::Premultiplied, layerFormat, objects_.glyph);
    }
    if (result == VK_SUCCESS) {
        result = Vulkan::createPipelines(device, layer, objects_.layerLayout, objects_.layer);
    }
    vkDestroyShaderModule(device.handle(), glyphVertex, nullptr);
    vkDestroyShaderModule(device.handle(), glyph, nullptr);
    vkDestroyShaderModule(device.handle(), layer, nullptr);
    return device.succeeded(result, "setting up text");
}

/// That draws layers over targets of the format; null if the device refuses. With the lock.
VkPipeline TextRenderer::layerPipeline(VkFormat format)
{
    if (format != Vulkan::floatFormat) {
        return Vulkan::pipelineFor(objects_.layer, format);
    }
    if (Vulkan::pipelineFor(objects_.ofFloats, format) == nullptr) {
        Device& device = context_->device();
        VkShaderModule layer = nullptr;
        VkResult result = Vulkan::createShaderModule(device, textOverShader, layer);
        if (result == VK_SUCCESS) {
            result = Vulkan::createPipelines(device, layer, objects_.layerLayout, objects_.ofFloats,
                                             Vulkan::floatFormats);
        }
        vkDestroyShaderModule(device.handle(), layer, nullptr);
        device.succeeded(result, "setting up text");
    }
    return Vulkan::pipelineFor(objects_.ofFloats, format);
}

bool TextRenderer::draw(Picture& target, const Line& line, XY<int> baseline, const NormalisedRGB& colour,
                        iFont::eAlpha alpha)
{
    Area area;
    for (const PlacedGlyph& glyph : line.glyphs) {
        if (const Area seen = areaOf(glyph, baseline) & wholeOf(target); !seen.empty()) {
            area.include(seen);
        }
    }
    if (area.empty()) {
        return true;
    }
    const VkExtent2D size{static_cast<std::uint32_t>(area.x1 - area.x0),
                          static_cast<std::uint32_t>(area.y1 - area.y0)};
    Drawing drawing{target,
                    colour,
                    alpha,
                    area,
                    Vulkan::acquireScratch(*context_, layerFormat, size),
                    Vulkan::acquireScratch(*context_, target.key.format, size),
                    {},
                    nullptr};
    if (!drawing.layer || !drawing.under) {
        return false;
    }
    const std::lock_guard lock(mutex_);
    drawing.pipeline = layerPipeline(target.key.format);
    if (drawing.pipeline == nullptr) {
        return false;
    }
    if (!drawLine(drawing, line, baseline)) {
        forgetGlyphs();
        return false;
    }
    return true;
}

bool TextRenderer::drawLine(Drawing& drawing, const Line& line, XY<int> baseline)
{
    atlas_.begin();
    for (const PlacedGlyph& glyph : line.glyphs) {
        if (!(areaOf(glyph, baseline) & drawing.area).empty() && !collect(drawing, glyph, baseline)) {
            return false;
        }
    }
    return record(drawing, true);
}

bool TextRenderer::collect(Drawing& drawing, const PlacedGlyph& glyph, XY<int> baseline)
{
    const Face::Pen pen = Face::penAt(glyph.x);
    const auto slot = slotOf(drawing, glyph, pen.phase);
    if (!slot) {
        return false;
    }
    const std::int64_t left = baseline.x + pen.pixel + slot->left - drawing.area.x0;
    const std::int64_t top = std::int64_t{baseline.y} - glyph.y - slot->top - drawing.area.y0;
    const Area whole{left, top, left + slot->width, top + slot->height};
    const Area seen = whole & Area{0, 0, drawing.size().width, drawing.size().height};
    if (seen.empty()) {
        return true;
    }
    const auto number = [](std::int64_t value) { return static_cast<std::int32_t>(value); };
    drawing.segment.glyphs.resize(std::max(drawing.segment.glyphs.size(), slot->page + 1));
    drawing.segment.glyphs[slot->page].push_back(
        {{number(seen.x0), number(seen.y0), number(seen.x1 - seen.x0), number(seen.y1 - seen.y0)},
         {number(slot->x + seen.x0 - left), number(slot->y + seen.y0 - top), slot->colour ? 1 : 0, 0}});
    return true;
}

std::optional<GlyphAtlas::Slot> TextRenderer::slotOf(Drawing& drawing, const PlacedGlyph& glyph,
                                                     unsigned phase)
{
    const GlyphAtlas::Key key{glyph.face->id(), glyph.glyph, phase};
    if (const GlyphAtlas::Slot* known = atlas_.find(key)) {
        return *known;
    }
    const GlyphBitmap bitmap = glyph.face->draw(glyph.glyph, phase);
    std::vector<std::size_t> given;
    if (drawing.segment.texels.size() + bitmap.texels.size() > mostStagedBytes && !record(drawing, false)) {
        return std::nullopt;
    }
    std::optional<GlyphAtlas::Slot> slot = atlas_.add(key, bitmap, given);
    if (!slot) {
        // All pages are in use by this line: record what was collected first.
        if (!record(drawing, false)) {
            return std::nullopt;
        }
        atlas_.begin();
        slot = atlas_.add(key, bitmap, given);
    }
    for (const std::size_t page : given) {
        pages_.at(page).reset();
    }
    if (!slot || (slot->width > 0 && !acquirePage(slot->page))) {
        return std::nullopt;
    }
    if (slot->width > 0) {
        VkBufferImageCopy region{};
        region.bufferOffset = drawing.segment.texels.size();
        region.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
        region.imageOffset = {slot->x, slot->y, 0};
        region.imageExtent = {static_cast<std::uint32_t>(slot->width),
                              static_cast<std::uint32_t>(slot->height), 1};
        drawing.segment.uploads.push_back({slot->page, region});
        drawing.segment.texels.insert(drawing.segment.texels.end(), bitmap.texels.begin(),
                                      bitmap.texels.end());
    }
    return slot;
}

bool TextRenderer::acquirePage(std::size_t page)
{
    if (page >= pages_.size()) {
        pages_.resize(page + 1);
    }
    if (!pages_[page]) {
        const GlyphAtlas::Size size = atlas_.sizeOf(page);
        Pooled<Texture> texture =
            Vulkan::acquireTexture(*context_, {pageFormat, static_cast<std::uint32_t>(size.width),
                                               static_cast<std::uint32_t>(size.height), 0});
        if (!texture) {
            return false;
        }
        pages_[page].emplace(std::move(texture));
    }
    return true;
}

bool TextRenderer::record(Drawing& drawing, bool last)
{
    Segment& segment = drawing.segment;
    std::optional<Pooled<HostBuffer>> staging;
    if (!segment.texels.empty()) {
        staging.emplace(Vulkan::acquireHostBuffer(*context_, segment.texels.size()));
        if (!*staging) {
            return false;
        }
        std::memcpy((*staging)->memory.mapped, segment.texels.data(), segment.texels.size());
    }
    const std::uint64_t bytes =
        segment.texels.size() + drawing.layer->key.bytes() + (last ? drawing.under->key.bytes() : 0);
    const bool recorded =
        context_->recorder().record(bytes, Vulkan::Recorder::Submit::WhenDue, [&](Batch& batch) {
            std::vector<GlyphPass> passes;
            VkDescriptorSet set = last ? describeLayer(batch, drawing) : nullptr;
            if (!prepareGlyphs(batch, segment, passes) || (last && set == nullptr)) {
                return false;
            }
            Texture* const target = last ? drawing.target.forWriting(batch, false) : nullptr;
            if (last && target == nullptr) {
                return false;
            }
            if (staging) {
                recordUploads(batch, segment, **staging);
            }
            recordGlyphs(batch, drawing, passes);
            if (last) {
                recordLayer(batch, drawing, *target, set);
            }
            ++context_->draws;
            return true;
        }) != 0;
    uploads_ += segment.uploads.size();
    segment = {};
    segment.first = false;
    return recorded;
}

bool TextRenderer::prepareGlyphs(Batch& batch, const Segment& segment, std::vector<GlyphPass>& passes)
{
    for (std::size_t page = 0; page < segment.glyphs.size(); ++page) {
        const std::span<const Instance> all(segment.glyphs[page]);
        for (std::size_t at = 0; at < all.size(); at += glyphsPerPass) {
            const auto part = all.subspan(at, std::min(glyphsPerPass, all.size() - at));
            // The block has the shader's size even if it holds fewer glyphs.
            std::vector<Instance> block(part.begin(), part.end());
            block.resize(glyphsPerPass);
            VkDescriptorBufferInfo buffer{};
            VkDescriptorSet set = batch.descriptorSet(objects_.glyphSet);
            if (set == nullptr || !batch.uniform(std::as_bytes(std::span(block)), buffer)) {
                return false;
            }
            const VkDescriptorImageInfo image{samplerOf(*context_), (*pages_[page])->sampled,
                                              (*pages_[page])->layoutFor(readLayout)};
            VkWriteDescriptorSet glyphs = writeImage(set, 0, image);
            glyphs.descriptorType = VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER;
            glyphs.pImageInfo = nullptr;
            glyphs.pBufferInfo = &buffer;
            const std::array writes{glyphs, writeImage(set, 1, image)};
            vkUpdateDescriptorSets(context_->device().handle(), writes.size(), writes.data(), 0, nullptr);
            passes.push_back({set, static_cast<std::uint32_t>(part.size()), page});
        }
    }
    return true;
}

VkDescriptorSet TextRenderer::describeLayer(Batch& batch, const Drawing& drawing)
{
    VkDescriptorSet set = batch.descriptorSet(objects_.layerSet);
    if (set != nullptr) {
        const VkSampler sampler = samplerOf(*context_);
        const VkDescriptorImageInfo layer{sampler, drawing.layer->target, // its components as they lie
                                          drawing.layer->layoutFor(readLayout)};
        const VkDescriptorImageInfo under{sampler, drawing.under->sampled,
                                          drawing.under->layoutFor(readLayout)};
        const std::array writes{writeImage(set, 0, layer), writeImage(set, 1, under)};
        vkUpdateDescriptorSets(context_->device().handle(), writes.size(), writes.data(), 0, nullptr);
    }
    return set;
}

void TextRenderer::recordUploads(Batch& batch, const Segment& segment, HostBuffer& staging)
{
    std::vector<std::vector<VkBufferImageCopy>> regions(pages_.size());
    for (const Upload& upload : segment.uploads) {
        regions[upload.page].push_back(upload.region);
    }
    batch.copyFrom(staging);
    for (std::size_t page = 0; page < regions.size(); ++page) {
        if (!regions[page].empty()) {
            batch.copyInto(**pages_[page]);
        }
    }
    batch.flush();
    for (std::size_t page = 0; page < regions.size(); ++page) {
        if (!regions[page].empty()) {
            vkCmdCopyBufferToImage(batch.commands(), staging.buffer, (*pages_[page])->image,
                                   (*pages_[page])->layoutFor(VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL),
                                   static_cast<std::uint32_t>(regions[page].size()), regions[page].data());
        }
    }
}

void TextRenderer::recordGlyphs(Batch& batch, const Drawing& drawing, const std::vector<GlyphPass>& passes)
{
    for (const GlyphPass& pass : passes) {
        batch.sample(**pages_[pass.page]);
    }
    batch.renderTo(*drawing.layer, drawing.segment.first);
    batch.flush();
    VkCommandBuffer commands = batch.commands();
    Vulkan::beginDrawing(commands, *drawing.layer, {{0, 0}, drawing.size()},
                         drawing.segment.first ? VK_ATTACHMENT_LOAD_OP_CLEAR : VK_ATTACHMENT_LOAD_OP_LOAD);
    vkCmdBindPipeline(commands, VK_PIPELINE_BIND_POINT_GRAPHICS, objects_.glyph);
    const GlyphParameters parameters{
        {drawing.colour.red, drawing.colour.green, drawing.colour.blue, 1.0F},
        {static_cast<float>(drawing.layer->key.width), static_cast<float>(drawing.layer->key.height)}};
    vkCmdPushConstants(commands, objects_.glyphLayout, bothStages, 0, sizeof parameters, &parameters);
    for (const GlyphPass& pass : passes) {
        vkCmdBindDescriptorSets(commands, VK_PIPELINE_BIND_POINT_GRAPHICS, objects_.glyphLayout, 0, 1,
                                &pass.set, 0, nullptr);
        vkCmdDraw(commands, 6, pass.count, 0, 0);
    }
    vkCmdEndRendering(commands);
}

void TextRenderer::recordLayer(Batch& batch, const Drawing& drawing, Texture& target, VkDescriptorSet set)
{
    VkCommandBuffer commands = batch.commands();
    const VkRect2D area = drawing.onTarget();
    Vulkan::recordCopy(batch, target, area, *drawing.under);
    batch.sample(*drawing.layer);
    batch.sample(*drawing.under);
    batch.renderTo(target, false);
    batch.flush();
    const VkFormat format = target.key.format;
    Vulkan::beginDrawing(commands, target, area, VK_ATTACHMENT_LOAD_OP_LOAD);
    vkCmdBindPipeline(commands, VK_PIPELINE_BIND_POINT_GRAPHICS, drawing.pipeline);
    vkCmdBindDescriptorSets(commands, VK_PIPELINE_BIND_POINT_GRAPHICS, objects_.layerLayout, 0, 1, &set, 0,
                            nullptr);
    const LayerParameters parameters{Vulkan::maxCodes(format),
                                     {area.offset.x, area.offset.y},
                                     drawing.colour.alpha,
                                     drawing.alpha == iFont::Premultiplied ? 1 : 0};
    vkCmdPushConstants(commands, objects_.layerLayout, VK_SHADER_STAGE_FRAGMENT_BIT, 0, sizeof parameters,
                       &parameters);
    vkCmdDraw(commands, 3, 1, 0, 0);
    vkCmdEndRendering(commands);
}

void TextRenderer::forgetGlyphs()
{
    // Some glyphs may not have reached their pages.
    atlas_.clear();
    pages_.clear();
}

TextRenderer::Statistics TextRenderer::statistics()
{
    const std::lock_guard lock(mutex_);
    return {atlas_.texels() * 4, uploads_};
}

} // namespace Qx::Host::Text
