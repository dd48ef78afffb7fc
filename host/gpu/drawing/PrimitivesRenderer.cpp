#include "host/gpu/drawing/PrimitivesRenderer.h"

#include "host/gpu/drawing/Areas.h"
#include "host/gpu/effects/ShaderEffect.h"

#include <algorithm>
#include <cmath>

namespace Qx::Host::Vulkan {

namespace {

std::array<float, 4> inMemoryOrder(const NormalisedRGB& c, VkFormat format)
{
    return isRotated(format) ? std::array<float, 4>{c.alpha, c.red, c.green, c.blue}
                             : std::array<float, 4>{c.red, c.green, c.blue, c.alpha};
}

VkClearColorValue clearValue(const NormalisedRGB& colour, VkFormat format)
{
    VkClearColorValue value{};
    std::ranges::copy(inMemoryOrder(colour, format), std::begin(value.float32));
    return value;
}

bool isFlat(const RectDescription& d)
{
    return d.colour.red == d.colour2.red && d.colour.green == d.colour2.green &&
           d.colour.blue == d.colour2.blue && d.colour.alpha == d.colour2.alpha;
}

/// The rectangle itself, or the four sides of its outline. No two of them overlap.
std::vector<RectangleOf<int>> partsOf(const RectDescription& d)
{
    const RectangleOf<int>& a = d.area;
    const auto width = static_cast<std::int64_t>(a.x1) - a.x0;
    const auto height = static_cast<std::int64_t>(a.y1) - a.y0;
    const int b = d.border;
    if (b <= 0 || 2LL * b >= width || 2LL * b >= height) {
        return {a};
    }
    return {{a.x0, a.y0, a.x1, a.y0 + b},
            {a.x0, a.y1 - b, a.x1, a.y1},
            {a.x0, a.y0 + b, a.x0 + b, a.y1 - b},
            {a.x1 - b, a.y0 + b, a.x1, a.y1 - b}};
}

template <class T>
RectangleOf<float> toFloat(const RectangleOf<T>& r)
{
    return {static_cast<float>(r.x0), static_cast<float>(r.y0), static_cast<float>(r.x1),
            static_cast<float>(r.y1)};
}

RectangleOf<float> wholeOf(const GPUImage& image)
{
    return {0.0F, 0.0F, static_cast<float>(image.getSize().x), static_cast<float>(image.getSize().y)};
}

bool hasArea(const RectangleOf<float>& r)
{
    return r.x0 != r.x1 && r.y0 != r.y1 && std::isfinite(r.x0) && std::isfinite(r.y0) &&
           std::isfinite(r.x1) && std::isfinite(r.y1);
}

/// First and last texel of an axis that a source interval may read.
std::array<std::int32_t, 2> readable(float a, float b, std::uint32_t size)
{
    const float last = static_cast<float>(size) - 1.0F;
    return {static_cast<std::int32_t>(std::clamp(std::floor(std::min(a, b)), 0.0F, last)),
            static_cast<std::int32_t>(std::clamp(std::ceil(std::max(a, b)) - 1.0F, 0.0F, last))};
}

/// Skips the rows of the target for which the image has no line.
void clipToLines(VkRect2D& pixels, float firstLine, std::uint32_t imageHeight)
{
    const float lines = static_cast<float>(imageHeight) - std::floor(firstLine);
    const float rows = std::clamp(std::ceil(lines / 2.0F), 0.0F, static_cast<float>(pixels.extent.height));
    pixels.extent.height = static_cast<std::uint32_t>(rows);
}

/// The destination without the rows for which the image has no line.
RectangleOf<float> rowsWithLines(const ImageDescriptionEx& d, const GPUImage& image)
{
    RectangleOf<float> destination = d.destination;
    if (d.mode == ImageDescriptionEx::EverySecondLine) {
        const float lines = static_cast<float>(image.getSize().y) - std::floor(d.source.y0);
        const float firstRow = std::ceil(destination.y0 - 0.5F);
        const float end = firstRow + std::max(std::ceil(lines / 2.0F), 0.0F);
        destination.y1 = std::max(std::min(destination.y1, end), destination.y0);
    }
    return destination;
}

/// The image for the first binding, and what is under it for the second. A shader that only replaces reads no
/// second one, but Mesa's software device (22.3) looks at every binding of the set.
VkDescriptorSet describeImage(Batch& batch, Context& context, const Texture& image, const Texture& under)
{
    const VkSampler sampler = context.samplers().get(
        CompiledEffect::Filter::Point, CompiledEffect::Address::Clamp, CompiledEffect::Address::Clamp);
    VkDescriptorSet set =
        sampler != nullptr ? batch.descriptorSet(context.primitives().setLayout()) : nullptr;
    if (set != nullptr) {
        constexpr VkImageLayout layout = VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL;
        const std::array<VkDescriptorImageInfo, 2> infos{{{sampler, image.sampled, image.layoutFor(layout)},
                                                          {sampler, under.sampled, under.layoutFor(layout)}}};
        VkWriteDescriptorSet write{};
        write.sType = VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET;
        write.dstSet = set;
        write.descriptorCount = static_cast<std::uint32_t>(infos.size()); // over both bindings
        write.descriptorType = VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
        write.pImageInfo = infos.data();
        vkUpdateDescriptorSets(context.device().handle(), 1, &write, 0, nullptr);
    }
    return set;
}

std::array<float, 4> normalised(const RectangleOf<float>& r, const GPUImage& image)
{
    const auto width = static_cast<float>(image.getSize().x);
    const auto height = static_cast<float>(image.getSize().y);
    return {r.x0 / width, r.y0 / height, r.x1 / width, r.y1 / height};
}

} // namespace

bool PrimitivesRenderer::mayDraw() const
{
    return usableImage(context(), target_.get()) != nullptr;
}

bool PrimitivesRenderer::draw(const RectDescription& description, int layer)
{
    return guarded(false, [&] {
        const Operation operation(context());
        if (!operation || layer != 1 || !mayDraw()) {
            return false;
        }
        std::vector<VkRect2D> areas;
        for (const RectangleOf<int>& part : partsOf(description)) {
            const VkRect2D pixels = pixelsInside(part, target_->picture().key);
            if (!isEmpty(pixels)) {
                areas.push_back(pixels);
            }
        }
        return areas.empty() || drawRectangles(areas, description);
    });
}

bool PrimitivesRenderer::drawRectangles(const std::vector<VkRect2D>& areas, const RectDescription& d)
{
    Picture& picture = target_->picture();
    const bool replacesAll = areas.size() == 1 && coversAll(areas.front(), picture.key);
    const bool flat = isFlat(d);
    PrimitivePipelines& pipelines = context().primitives();
    VkPipeline pipeline = flat ? nullptr : pipelines.gradient(picture.key.format);
    if (!flat && pipeline == nullptr) {
        return false;
    }
    const auto height = static_cast<float>(static_cast<std::int64_t>(d.area.y1) - d.area.y0);
    const PrimitivePipelines::Gradient gradient{
        {d.colour.red, d.colour.green, d.colour.blue, d.colour.alpha},
        {d.colour2.red, d.colour2.green, d.colour2.blue, d.colour2.alpha},
        static_cast<float>(d.area.y0),
        1.0F / height};
    return context().recorder().record(picture.key.bytes(), Recorder::Submit::WhenDue, [&](Batch& batch) {
        Texture* const texture = picture.forWriting(batch, replacesAll);
        if (texture == nullptr) {
            return false;
        }
        Texture& target = *texture;
        VkCommandBuffer commands = batch.commands();
        batch.renderTo(target, replacesAll);
        batch.flush();
        for (const VkRect2D& area : areas) {
            // Each area is a render area of its own, so that clearing it fills exactly that area.
            beginDrawing(commands, target, area,
                         flat          ? VK_ATTACHMENT_LOAD_OP_CLEAR
                         : replacesAll ? VK_ATTACHMENT_LOAD_OP_DONT_CARE
                                       : VK_ATTACHMENT_LOAD_OP_LOAD,
                         clearValue(d.colour, target.key.format));
            if (!flat) {
                vkCmdBindPipeline(commands, VK_PIPELINE_BIND_POINT_GRAPHICS, pipeline);
                vkCmdPushConstants(commands, pipelines.layout(), VK_SHADER_STAGE_FRAGMENT_BIT, 0,
                                   sizeof gradient, &gradient);
                vkCmdDraw(commands, 3, 1, 0, 0);
            }
            vkCmdEndRendering(commands);
        }
        ++context().draws;
        return true;
    }) != 0;
}

bool PrimitivesRenderer::draw(const ImageDescription& d, int layer)
{
    return guarded(false, [&] {
        const Operation operation(context());
        GPUImage* const image = usableImage(context(), d.image.get());
        if (!operation || layer != 1 || image == nullptr || !mayDraw()) {
            return false;
        }
        return drawImage({image->picture(), target_->picture(), toFloat(d.source), toFloat(d.destination),
                          d.blend, std::clamp(d.weight, 0.0F, 1.0F), false});
    });
}

bool PrimitivesRenderer::draw(const ImageDescriptionEx& d, int layer)
{
    return guarded(false, [&] {
        const Operation operation(context());
        GPUImage* const image = usableImage(context(), d.image.get());
        if (!operation || layer != 1 || image == nullptr || !mayDraw()) {
            return false;
        }
        if (d.effect) {
            return drawThroughEffect(d, *image);
        }
        return drawImage({image->picture(), target_->picture(), d.source, d.destination, d.blend, 1.0F,
                          d.mode == ImageDescriptionEx::EverySecondLine});
    });
}

PrimitivesRenderer::Mapping PrimitivesRenderer::mappingOf(const ImageDraw& d)
{
    const float scaleX = (d.source.x1 - d.source.x0) / (d.destination.x1 - d.destination.x0);
    const float scaleY = (d.source.y1 - d.source.y0) / (d.destination.y1 - d.destination.y0);
    const auto columns = readable(d.source.x0, d.source.x1, d.image.key.width);
    const auto rows = readable(d.source.y0, d.source.y1, d.image.key.height);
    Mapping mapping;
    mapping.x = d.source.x0 - d.destination.x0 * scaleX;
    mapping.y = d.source.y0 - d.destination.y0 * scaleY;
    mapping.constants = {{mapping.x, mapping.y, scaleX, scaleY},
                         {columns[0], rows[0], columns[1], rows[1]},
                         maxCodes(d.target.key.format),
                         {},
                         d.weight,
                         d.byAlpha ? 1 : 0};
    const bool ownSize = scaleX == 1.0F && scaleY == 1.0F && mapping.x == std::floor(mapping.x) &&
                         mapping.y == std::floor(mapping.y);
    if (ownSize) {
        mapping.sampling = Sampling::Unfiltered;
    }
    if (d.everySecondLine) {
        // A row's centre maps to the middle of its source line.
        const float firstRow = std::ceil(d.destination.y0 - 0.5F);
        mapping.y = std::floor(d.source.y0) - 2.0F * firstRow;
        mapping.constants.mapping = {mapping.x, mapping.y - 0.5F, scaleX, 2.0F};
        mapping.constants.readable[1] = 0;
        mapping.constants.readable[3] = static_cast<std::int32_t>(d.image.key.height) - 1;
        mapping.sampling = Sampling::Unfiltered;
    }
    return mapping;
}

bool PrimitivesRenderer::drawImage(const ImageDraw& d)
{
    if (&d.image == &d.target) {
        return false;
    }
    VkRect2D pixels = pixelsInside(d.destination, d.target.key);
    if (!hasArea(d.source) || !hasArea(d.destination) || isEmpty(pixels)) {
        return true;
    }
    const Mapping mapping = mappingOf(d);
    if (d.everySecondLine) {
        clipToLines(pixels, mapping.y + 2.0F * static_cast<float>(pixels.offset.y), d.image.key.height);
    }
    return isEmpty(pixels) || recordImage(d, pixels, mapping);
}

bool PrimitivesRenderer::recordImage(const ImageDraw& d, const VkRect2D& pixels, const Mapping& mapping)
{
    const bool replaces = !d.byAlpha && d.weight == 1.0F;
    const bool replacesAll = replaces && coversAll(pixels, d.target.key);
    PrimitivePipelines& pipelines = context().primitives();
    VkPipeline pipeline =
        pipelines.image(d.target.key.format, mapping.sampling,
                        replaces ? PrimitivePipelines::Over::Replace : PrimitivePipelines::Over::Mix);
    if (pipeline == nullptr) {
        return false;
    }
    // Mixed by the shader with a copy of what is there: the blending of devices has no way for an alpha that
    // is not the last component, and each rounds its own way.
    Pooled<Texture> under;
    if (!replaces) {
        under = acquireScratch(context(), d.target.key.format, pixels.extent);
        if (!under) {
            return false;
        }
    }
    PrimitivePipelines::Image constants = mapping.constants;
    constants.corner = {pixels.offset.x, pixels.offset.y};
    const std::uint64_t bytes = d.target.key.bytes() + (under ? under->key.bytes() : 0);
    return context().recorder().record(bytes, Recorder::Submit::WhenDue, [&](Batch& batch) {
        Texture& image = *d.image.texture();
        VkDescriptorSet set = describeImage(batch, context(), image, under ? *under : image);
        Texture* const target = set != nullptr ? d.target.forWriting(batch, replacesAll) : nullptr;
        if (target == nullptr) {
            return false;
        }
        if (under) {
            recordCopy(batch, *target, pixels, *under);
            batch.sample(*under);
        }
        batch.sample(image);
        batch.renderTo(*target, replacesAll);
        batch.flush();
        VkCommandBuffer commands = batch.commands();
        beginDrawing(commands, *target, pixels,
                     replacesAll ? VK_ATTACHMENT_LOAD_OP_DONT_CARE : VK_ATTACHMENT_LOAD_OP_LOAD);
        vkCmdBindPipeline(commands, VK_PIPELINE_BIND_POINT_GRAPHICS, pipeline);
        vkCmdBindDescriptorSets(commands, VK_PIPELINE_BIND_POINT_GRAPHICS, pipelines.layout(), 0, 1, &set, 0,
                                nullptr);
        vkCmdPushConstants(commands, pipelines.layout(), VK_SHADER_STAGE_FRAGMENT_BIT, 0, sizeof constants,
                           &constants);
        vkCmdDraw(commands, 3, 1, 0, 0);
        vkCmdEndRendering(commands);
        ++context().draws;
        return true;
    }) != 0;
}

bool PrimitivesRenderer::drawThroughEffect(const ImageDescriptionEx& d, GPUImage& original)
{
    auto* effect = dynamic_cast<ShaderEffect*>(d.effect.get());
    if (effect == nullptr || effect->compiled().textures.size() < 1 + d.furtherImages.size()) {
        return false;
    }
    const RectangleOf<float> destination = rowsWithLines(d, original);
    const VkRect2D pixels = pixelsInside(destination, target_->picture().key);
    if (!hasArea(d.source) || !hasArea(destination) || isEmpty(pixels)) {
        return true;
    }
    const XY<int> size{static_cast<int>(pixels.extent.width), static_cast<int>(pixels.extent.height)};
    // The destination relative to the corner of the drawn pixels.
    const auto left = static_cast<float>(pixels.offset.x);
    const auto top = static_cast<float>(pixels.offset.y);
    const RectangleOf<float> local{destination.x0 - left, destination.y0 - top, destination.x1 - left,
                                   destination.y1 - top};
    Qx::Ptr<iGPUImage> image = d.image;
    std::array<float, 4> coordinates = normalised(d.source, original);
    if (d.mode == ImageDescriptionEx::EverySecondLine) {
        const Qx::Ptr<GPUImage> lines = makeGPUImage(context(), size, original.getFormat());
        if (!lines ||
            !drawImage({original.picture(), lines->picture(), d.source, local, false, 1.0F, true})) {
            return false;
        }
        image = lines;
        // Over the destination, whose part inside the target is drawn.
        coordinates = normalised(local, *lines);
    }
    Qx::Vector<iShaderEffect::Source> sources;
    for (std::size_t i = 0; i <= d.furtherImages.size(); ++i) {
        sources.emplace_back(effect->compiled().textures[i].name.c_str(),
                             i == 0 ? image : d.furtherImages[i - 1]);
        sources.back().texCoords = coordinates;
    }
    if (!d.blend) {
        return effect->draw(*target_, destination, sources);
    }
    // An effect does not tell its coverage of the target, so its result is blended in a second step.
    const Qx::Ptr<GPUImage> result = makeGPUImage(context(), size, target_->getFormat());
    return result && effect->draw(*result, local, sources) &&
           drawImage({result->picture(),
                      target_->picture(),
                      wholeOf(*result),
                      {left, top, left + static_cast<float>(size.x), top + static_cast<float>(size.y)},
                      true,
                      1.0F,
                      false});
}

} // namespace Qx::Host::Vulkan
