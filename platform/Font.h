#pragma once

#include "Qx/LightweightString.h"
#include "Qx/Ptr.h"
#include "Qx/XY.h"
#include "Qx/iObject.h"
#include "platform/Api.h"
#include "platform/GPUImage.h"
#include "platform/GraphicPrimitives.h"

/// A typeface at one size and style, ready to draw on the GPU. Thread-safe.
///
/// Text is Unicode, in any script and direction. Characters that the typeface lacks are taken from other
/// typefaces. Text is a single line: control characters are drawn as spaces, invalid code points as U+FFFD. A
/// font that outlives the GPU service remains safe to hold and to release; it still measures, and draw()
/// fails.
class QX_PLATFORM_API iFont : public iObject
{
public:
    /// Flags of createFont(). They may be combined.
    enum eStyle
    {
        Bold = 1,
        Italic = 2
    };

    /// How the colours of a translucent target relate to its alpha.
    enum eAlpha
    {
        Straight = 0,     ///< not multiplied by alpha
        Premultiplied = 1 ///< multiplied by alpha
    };

    /// Returns the width and height of a line of text in pixels: the advance of the pen and the line height
    /// of the typeface, which does not depend on the text. Glyphs may extend slightly beyond this rectangle.
    /// Returns (0, 0) for a text that draw() refuses.
    virtual XY<int> measure(const LightweightString<wchar_t>& text) = 0;

    /// Draws a line of text over the contents of the target. `position` is the top left corner of the
    /// rectangle that measure() describes, in pixels of the target. `colour` is straight and clamped to 0..1;
    /// colour glyphs keep their colours and use its alpha. Parts outside the target are clipped. Records the
    /// work and returns without waiting for the device.
    ///
    /// Returns false if there is no target, the device is lost, memory is exhausted, a component of `colour`
    /// is not finite, or the text exceeds the host's limit on the length of a line. The log has the reason,
    /// once per font and reason.
    virtual bool draw(Qx::Ptr<iGPUImage> target, const LightweightString<wchar_t>& text, XY<int> position,
                      const NormalisedRGB& colour, eAlpha alpha = Straight) = 0;
};
