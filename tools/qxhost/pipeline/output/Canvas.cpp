#include "tools/qxhost/pipeline/output/Canvas.h"

#include "host/fonts/TextPainter.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/media/write/FrameWriter.h"

#include <algorithm>
#include <cmath>

namespace Qx::Program {

Canvas::Canvas(int width, int height)
    : picture_{width, height,
               std::vector<std::uint8_t>(
                   std::size_t{4} * static_cast<std::size_t>(width) * static_cast<std::size_t>(height), 255)}
{
    fill({0, 0, width, height}, background);
}

void Canvas::blend(int x, int y, const CanvasColour& colour, float alpha)
{
    if (x < 0 || y < 0 || x >= picture_.width || y >= picture_.height || alpha <= 0.0F) {
        return;
    }
    std::uint8_t* texel =
        &picture_.bytes[4 * (static_cast<std::size_t>(y) * static_cast<std::size_t>(picture_.width) +
                             static_cast<std::size_t>(x))];
    for (std::size_t c = 0; c < 3; ++c) {
        const float old = static_cast<float>(texel[c + 1]) / 255.0F;
        const float mixed = old + std::min(alpha, 1.0F) * (std::clamp(colour[c], 0.0F, 1.0F) - old);
        texel[c + 1] = static_cast<std::uint8_t>(std::lround(mixed * 255.0F));
    }
}

void Canvas::fill(const Box& box, const CanvasColour& colour)
{
    for (int y = box.y; y < box.y + box.height; ++y) {
        for (int x = box.x; x < box.x + box.width; ++x) {
            blend(x, y, colour, 1.0F);
        }
    }
}

void Canvas::put(const MemoryPicture& picture, int x, int y)
{
    for (int row = 0; row < picture.height; ++row) {
        for (int column = 0; column < picture.width; ++column) {
            const std::uint8_t* const texel =
                &picture.bytes[4 * (static_cast<std::size_t>(row) * static_cast<std::size_t>(picture.width) +
                                    static_cast<std::size_t>(column))];
            const auto share = [texel](std::size_t c) { return static_cast<float>(texel[c]) / 255.0F; };
            blend(x + column, y + row, {share(1), share(2), share(3)}, 1.0F);
        }
    }
}

CanvasWriter::CanvasWriter(Canvas& canvas, int size, int style)
    : canvas_(canvas), painter_(Host::Text::TextPainter::open("sans", size, style))
{
}

CanvasWriter::~CanvasWriter() = default;

XY<int> CanvasWriter::measure(const std::string& text) const
{
    return painter_ == nullptr ? XY<int>{0, 0} : painter_->measure(text);
}

int CanvasWriter::write(const std::string& text, int x, int y, const CanvasColour& colour, int mostWidth)
{
    if (painter_ == nullptr) {
        return x;
    }
    const std::string seen = painter_->fitted(text, mostWidth);
    painter_->paint(seen, {x, y},
                    [&](int px, int py, float coverage) { canvas_.blend(px, py, colour, coverage); });
    return x + painter_->measure(seen).x;
}

void writePicture(const MemoryPicture& picture, const std::filesystem::path& output, bool replace,
                  const std::shared_ptr<const Media::FileSet>& kept)
{
    Media::OutputSettings settings;
    settings.width = picture.width;
    settings.height = picture.height;
    settings.force = replace;
    settings.kept = kept;
    settings.expectedFrames = 1;
    auto writer = Media::openWriter(output, settings);
    if (!writer) {
        throw Failure(ExitCode::output, writer.text());
    }
    Media::Status status =
        writer.value()->write(picture.bytes.data(), std::ptrdiff_t{4} * picture.width, {0, 1, {}});
    if (status) {
        status = writer.value()->finish();
    }
    if (!status) {
        throw Failure(ExitCode::output, status.text());
    }
}

} // namespace Qx::Program
