#pragma once

#include "Qx/LightweightString.h"
#include "Qx/Ptr.h"
#include "Qx/XY.h"
#include "Qx/iObject.h"
#include "platform/Api.h"
#include "platform/GPUImage.h"
#include "platform/GraphicPrimitives.h"

/// A typeface at a size and style, ready to draw on the GPU. Any thread.
///
/// Text is Unicode, written in whichever directions its scripts are; characters that the typeface lacks come
/// from others. It is one line: control characters count as spaces, and what is no character is drawn as
/// U+FFFD. A font that outlives the GPU service stays safe to hold and release; it measures, and draws no
/// more.
class QX_PLATFORM_API iFont : public iObject
{
public:
    enum eStyle
    {
        Bold = 1,
        Italic = 2
    };

    /// What colours mean in a target that is not opaque.
    enum eAlpha
    {
        Straight = 0,     ///< they do not depend on alpha
        Premultiplied = 1 ///< they are multiplied by it
    };

    /// Width and height of a line of text in pixels: how far it moves the pen, and the typeface's own height,
    /// the same for every text. What is drawn may reach a little beyond. 0, 0 for a text that draw() refuses.
    virtual XY<int> measure(const LightweightString<wchar_t>& text) = 0;

    /// Draws a line of text over what is in the target, with the top left corner of what measure() says
    /// there. `colour` is straight, 0 to 1, and held to that; characters with colours of their own keep them,
    /// and take its alpha. It records and returns. What lies outside the target is left out.
    ///
    /// False when it could not be drawn: no target, a lost device, memory exhausted, a colour that is no
    /// number, a text beyond the host's bound on a line's length. The host's log says why, once for each
    /// font.
    virtual bool draw(Qx::Ptr<iGPUImage> target, const LightweightString<wchar_t>& text, XY<int> position,
                      const NormalisedRGB& colour, eAlpha alpha = Straight) = 0;
};
