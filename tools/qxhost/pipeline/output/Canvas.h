#pragma once

#include "Qx/XY.h"
#include "tools/qxhost/media/files/FileSet.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Qx::Host::Text {
class TextPainter;
}

namespace Qx::Program {

/// A picture in memory order A R G B, 8 bits, rows without padding.
struct MemoryPicture
{
    int width = 0; ///< pixels
    int height = 0;
    std::vector<std::uint8_t> bytes;
};

/// Red, green and blue, where black is 0 and white is 1.
using CanvasColour = std::array<float, 3>;

// The colours of pictures that the program draws itself.
constexpr CanvasColour background{0.102F, 0.106F, 0.118F};
constexpr CanvasColour brightText{0.93F, 0.935F, 0.945F};
constexpr CanvasColour plainText{0.66F, 0.67F, 0.70F};

struct Box
{
    int x;
    int y;
    int width;
    int height;
};

/// A picture to draw on, opaque and of the background's colour at first. What lies outside is left out.
class Canvas
{
public:
    Canvas(int width, int height);

    void blend(int x, int y, const CanvasColour& colour, float alpha);
    void fill(const Box& box, const CanvasColour& colour);

    /// Puts a picture there, without its alpha.
    void put(const MemoryPicture& picture, int x, int y);

    MemoryPicture take() { return std::move(picture_); }

private:
    MemoryPicture picture_;
};

/// Writes on a canvas; does nothing if there is no typeface. The host must have started.
class CanvasWriter
{
public:
    /// `size` in pixels; `style` as of TextPainter::open().
    CanvasWriter(Canvas& canvas, int size, int style);
    ~CanvasWriter();
    CanvasWriter(const CanvasWriter&) = delete;
    CanvasWriter& operator=(const CanvasWriter&) = delete;

    XY<int> measure(const std::string& text) const;

    /// Writes the text, cut to that width, and returns where it ends.
    int write(const std::string& text, int x, int y, const CanvasColour& colour, int mostWidth);

private:
    Canvas& canvas_;
    std::unique_ptr<Host::Text::TextPainter> painter_;
};

/// Writes a picture to a file, in the format that the name's ending says. `kept` are files not to be
/// replaced. Throws Failure (output).
void writePicture(const MemoryPicture& picture, const std::filesystem::path& output, bool replace,
                  const std::shared_ptr<const Media::FileSet>& kept);

} // namespace Qx::Program
