#include "tools/qxhost/commands/contact/ContactSheet.h"

#include "host/gpu/FloatImages.h"
#include "platform/Font.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/pipeline/effects/EffectChain.h"
#include "tools/qxhost/pipeline/effects/PictureSteps.h"
#include "tools/qxhost/pipeline/formats/PixelFormat.h"
#include "tools/qxhost/pipeline/input/FrameUpload.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

constexpr int gapOfCells = 16;
constexpr int labelSize = 15;
constexpr int labelHeight = 26; ///< below each picture
constexpr int headingHeight = 56;
constexpr int lastLineHeight = 40;
constexpr std::int64_t usualColumns = 5;
constexpr std::int64_t largestSheet = 16384;

iGPUImage::eFormat gpuFormat(const HeldFrame& frame)
{
    return frame.isOfFloats                     ? Host::floatTexels
           : frame.depth == Media::Depth::bits8 ? iGPUImage::eARGB8
                                                : iGPUImage::eARGB16;
}

Media::FramePacker::Target sourceOf(const HeldFrame& frame)
{
    return {.depth = frame.depth, .range = frame.range, .matrix = Media::Matrix::bt709, .bits = 0};
}

PixelFormat formatOf(const HeldFrame& frame)
{
    return parsePixelFormat("", frame.depth == Media::Depth::bits8 ? "argb" : "argb:16");
}

/// A component of 8 bits; of floats the nearest one, which clips them.
std::uint8_t eightBits(const std::byte* row, std::size_t i, iGPUImage::eFormat texels)
{
    if (texels == Host::floatTexels) {
        float number = 0;
        std::memcpy(&number, row + sizeof number * i, sizeof number);
        return static_cast<std::uint8_t>(std::lround(number > 0 ? std::min(number, 1.0F) * 255 : 0.0F));
    }
    if (texels == iGPUImage::eARGB8) {
        return static_cast<std::uint8_t>(row[i]);
    }
    std::uint16_t code = 0;
    std::memcpy(&code, row + 2 * i, sizeof code);
    return static_cast<std::uint8_t>((code * 255U + 32767U) / 65535U);
}

MemoryPicture readBack(const Image::Surface& picture)
{
    const Image::Surface onHost = picture.copyToHost();
    const Qx::Ptr<iHostImage> image = onHost.getHostImage();
    const void* const rows = image ? image->map(iHostImage::Read) : nullptr;
    if (rows == nullptr) {
        failOnDevice(picture);
    }
    MemoryPicture made{static_cast<int>(picture.getWidth()), static_cast<int>(picture.getHeight()), {}};
    const std::size_t components = std::size_t{4} * static_cast<std::size_t>(made.width);
    for (int y = 0; y < made.height; ++y) {
        const auto* const row =
            static_cast<const std::byte*>(rows) + y * static_cast<std::ptrdiff_t>(image->getPitch());
        for (std::size_t i = 0; i < components; ++i) {
            made.bytes.push_back(eightBits(row, i, image->getFormat()));
        }
    }
    return made;
}

/// The largest size of the frame's shape within the layout's, and never more than its own.
ShrinkPicture cellOf(const HeldFrame& frame, const ContactLayout& layout)
{
    ConvertOptions options;
    options.step = ShrinkPicture{.width = layout.width, .height = layout.height};
    Media::StreamInfo info;
    info.width = frame.width;
    info.height = frame.height;
    info.sampleAspect = {1, 1};
    const Media::StreamInfo after = afterStep(options, info);
    return {.width = static_cast<unsigned>(after.width), .height = static_cast<unsigned>(after.height)};
}

} // namespace

std::string labelOf(const EffectRequest& request)
{
    const std::string& file = request.lut.empty() ? request.file : request.lut;
    return std::filesystem::path(file).filename().string() +
           (request.technique.empty() ? "" : ": " + request.technique);
}

ContactDrawing::ContactDrawing(HeldFrame frame, const ContactLayout& layout)
    : frame_(std::move(frame)), cell_(cellOf(frame_, layout))
{
}

Image::Surface ContactDrawing::uploaded() const
{
    if (frame_.isOfFloats) {
        const Qx::Ptr<iHostImage> image = makeFloatImage(frame_.width, frame_.height);
        fill(image);
        return uploadFloats(image);
    }
    const FrameUpload upload(describeFrame(formatOf(frame_), static_cast<unsigned>(frame_.width),
                                           static_cast<unsigned>(frame_.height)),
                             sourceOf(frame_));
    const Qx::Ptr<iHostImage> image = upload.makeHostImage();
    fill(image);
    return upload.upload(image, {}, gpuFormat(frame_));
}

/// Copies the frame into a host image; fails if there is none.
void ContactDrawing::fill(const Qx::Ptr<iHostImage>& image) const
{
    auto* const rows = image ? static_cast<std::byte*>(image->map(iHostImage::Write)) : nullptr;
    if (rows == nullptr) {
        failOnDevice(frame_.width, frame_.height);
    }
    const std::size_t rowBytes = frame_.rowBytes();
    for (int y = 0; y < frame_.height; ++y) {
        std::memcpy(rows + y * static_cast<std::ptrdiff_t>(image->getPitch()),
                    &frame_.bytes[rowBytes * static_cast<std::size_t>(y)], rowBytes);
    }
}

MemoryPicture ContactDrawing::draw(const std::vector<EffectRequest>& effects) const
{
    EffectChain chain(effects, {}, EffectChain::Parameters::shared,
                      frame_.isOfFloats ? Host::LUTInput::Floats : Host::LUTInput::Codes);
    const Image::Surface drawn = chain.apply(uploaded(), gpuFormat(frame_), frame_.facts);
    MemoryPicture made;
    runStep(cell_, drawn, {},
            [&](const Image::Surface& picture, const Media::FrameTime&) { made = readBack(picture); });
    return made;
}

MemoryPicture drawSheet(const std::vector<ContactCell>& cells, const ContactLayout& layout,
                        const std::string& heading, const std::string& lastLine)
{
    const auto count = static_cast<std::int64_t>(cells.size());
    const std::int64_t columns =
        std::max<std::int64_t>(1, std::min(layout.columns > 0 ? layout.columns : usualColumns, count));
    const std::int64_t rows = (count + columns - 1) / columns;
    const int cellWidth = cells.front().picture.width;
    const int cellHeight = cells.front().picture.height + labelHeight;
    const std::int64_t width = columns * (cellWidth + gapOfCells) + gapOfCells;
    const std::int64_t height =
        headingHeight + rows * (cellHeight + gapOfCells) + (lastLine.empty() ? 0 : lastLineHeight);
    if (width > largestSheet || height > largestSheet) {
        throw Failure(ExitCode::usage,
                      fmt::format("the sheet would have {} x {} pixels: expected at most {} each way; give "
                                  "other --columns, or a smaller --size",
                                  width, height, largestSheet));
    }
    Canvas canvas(static_cast<int>(width), static_cast<int>(height));
    const int textWidth = static_cast<int>(width) - 2 * gapOfCells;
    CanvasWriter(canvas, 22, iFont::Bold).write(heading, gapOfCells, 16, brightText, textWidth);
    CanvasWriter label(canvas, labelSize, 0);
    for (std::int64_t i = 0; i < count; ++i) {
        const ContactCell& cell = cells[static_cast<std::size_t>(i)];
        const int x = gapOfCells + static_cast<int>(i % columns) * (cellWidth + gapOfCells);
        const int y = headingHeight + static_cast<int>(i / columns) * (cellHeight + gapOfCells);
        canvas.put(cell.picture, x, y);
        label.write(cell.label, x, y + cell.picture.height + 5, brightText, cellWidth);
    }
    label.write(lastLine, gapOfCells, static_cast<int>(height) - lastLineHeight + 4, plainText, textWidth);
    return canvas.take();
}

} // namespace Qx::Program
