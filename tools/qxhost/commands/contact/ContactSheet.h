#pragma once

#include "platform/Surface.h"
#include "tools/qxhost/commands/convert/Conversion.h"
#include "tools/qxhost/pipeline/options/ConvertOptions.h"
#include "tools/qxhost/pipeline/output/Canvas.h"

#include <functional>
#include <string>
#include <vector>

namespace Qx::Program {

/// A picture on a contact sheet.
struct ContactCell
{
    std::string label;
    MemoryPicture picture;
};

/// How a sheet is laid out.
struct ContactLayout
{
    unsigned width = 320; ///< of a cell's picture at most, in pixels
    unsigned height = 180;
    std::int64_t columns = 0; ///< 0: five, or as many as there are cells
};

/// What a request for one cell is called: "qx-blur.fx", "qx-blur.fx: Soft", "film.cube".
std::string labelOf(const EffectRequest& request);

/// Draws a frame through effects, each by itself, and makes small pictures of the results. One host must run,
/// and nobody else draw.
class ContactDrawing
{
public:
    /// Throws Failure (device).
    ContactDrawing(HeldFrame frame, const ContactLayout& layout);

    /// The frame through the effect or LUT; as it is without one. Throws Failure (effect, device).
    MemoryPicture draw(const std::vector<EffectRequest>& effects) const;

    int width() const { return static_cast<int>(cell_.width); }
    int height() const { return static_cast<int>(cell_.height); }

private:
    Image::Surface uploaded() const;
    void fill(const Qx::Ptr<iHostImage>& image) const;

    HeldFrame frame_;
    ShrinkPicture cell_; ///< of exactly the size of a cell's picture
};

/// The sheet: cells in rows with their labels below, under a heading, and over a last line. Throws Failure
/// (usage) if it would be too large for a picture.
MemoryPicture drawSheet(const std::vector<ContactCell>& cells, const ContactLayout& layout,
                        const std::string& heading, const std::string& lastLine);

} // namespace Qx::Program
