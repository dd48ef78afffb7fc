#pragma once

#include "Qx/XY.h"
#include "host/Host.h"

#include <functional>
#include <memory>
#include <string>

namespace Qx::Host::Text {

class TextShaper;

/// Sizes of fonts, in pixels.
constexpr int smallestFont = 1;
constexpr int largestFont = 2048;

/// Empty if a typeface or font file is available in that size; otherwise the reason. `remark` then describes
/// the substitute, if there is one. Thread-safe.
QX_HOST_API std::string whyNoTypeface(const std::string& typeface, int size, std::string& remark);

/// The file that draws a typeface as it is: its first face, in no style that is made up. Empty if there is no
/// such file. Thread-safe.
QX_HOST_API std::string fileOfTypeface(const std::string& typeface);

/// Draws text on the processor. Not thread-safe.
class QX_HOST_API TextPainter
{
public:
    /// Null, with a line in the log, if there is no typeface. `style` is a combination of iFont::eStyle.
    static std::unique_ptr<TextPainter> open(const std::string& typeface, int size, int style);
    ~TextPainter();
    TextPainter(const TextPainter&) = delete;
    TextPainter& operator=(const TextPainter&) = delete;

    /// The width and height of a line, as iFont::measure() returns them.
    XY<int> measure(const std::string& text) const;

    /// The text (UTF-8), truncated with an ellipsis if it does not fit into that width.
    std::string fitted(const std::string& text, int width) const;

    /// Calls `cover` for each pixel of each glyph with its coverage, 0 to 1.
    void paint(const std::string& text, XY<int> corner,
               const std::function<void(int x, int y, float coverage)>& cover) const;

private:
    explicit TextPainter(std::shared_ptr<TextShaper> shaper);

    const std::shared_ptr<TextShaper> shaper_;
};

} // namespace Qx::Host::Text
