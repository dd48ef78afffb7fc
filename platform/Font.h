#pragma once

#include "Qx/LightweightString.h"
#include "Qx/Ptr.h"
#include "Qx/XY.h"
#include "Qx/iObject.h"
#include "platform/Api.h"
#include "platform/GPUImage.h"
#include "platform/GraphicPrimitives.h"

/// A typeface at a size and style, ready to draw on the GPU.
class QX_PLATFORM_API iFont : public iObject
{
public:
    enum eStyle
    {
        Bold = 1,
        Italic = 2
    };

    /// Width and height of a line of text in pixels.
    virtual XY<int> measure(const LightweightString<wchar_t>& text) = 0;

    /// Draws a line of text with its top left corner there; false when it could not be drawn.
    virtual bool draw(Qx::Ptr<iGPUImage> target, const LightweightString<wchar_t>& text, XY<int> position,
                      const NormalisedRGB& colour) = 0;
};
