#pragma once

#include "Qx/HostAllocator.h"
#include "Qx/Ptr.h"
#include "Qx/iObject.h"
#include "platform/Api.h"
#include "platform/GPUImage.h"
#include "platform/ShaderEffect.h"

struct NormalisedRGB
{
    float red = 0.0F;
    float green = 0.0F;
    float blue = 0.0F;
    float alpha = 1.0F;
};

template <class T>
struct RectangleOf
{
    T x0{};
    T y0{};
    T x1{};
    T y1{};

    friend bool operator==(const RectangleOf&, const RectangleOf&) = default;
};

/// A filled rectangle.
struct RectDescription
{
    RectangleOf<int> area; ///< in pixels of the target; x1, y1 lie outside
    NormalisedRGB colour;  ///< at the top
    NormalisedRGB colour2; ///< at the bottom
    int border = 0;        ///< width of an outline in pixels; 0 fills the rectangle
};

/// An image drawn over a rectangle, stretched to it.
struct ImageDescription
{
    Qx::Ptr<iGPUImage> image;
    RectangleOf<int> destination; ///< in pixels of the target
    RectangleOf<int> source;      ///< in texels of the image
    bool blend = false;           ///< true: over what is there, by the image's alpha
    float weight = 1.0F;          ///< 0 to 1: how much of the image replaces what is there
};

/// An image drawn over a rectangle, optionally through an effect.
struct ImageDescriptionEx
{
    enum eMode
    {
        Stretched = 0,
        EverySecondLine =
            1, ///< takes every second line of the source, unfiltered, one for a line of the target
    };

    Qx::Ptr<iGPUImage> image;
    Qx::Ptr<iShaderEffect> effect;  ///< its current technique reads the image as its first texture
    RectangleOf<float> source;      ///< in texels of the image
    RectangleOf<float> destination; ///< in pixels of the target
    bool blend = true;              ///< over what is there, by alpha
    int mode = Stretched;
    Qx::Vector<Qx::Ptr<iGPUImage>> furtherImages; ///< the effect's other textures, in their order
};

/// Draws into one image. Every draw records and returns; false when it could not be recorded. `layer` is 1.
class QX_PLATFORM_API iGraphicPrimitivesRenderer : public iObject
{
public:
    virtual bool draw(const RectDescription& description, int layer) = 0;
    virtual bool draw(const ImageDescription& description, int layer) = 0;
    virtual bool draw(const ImageDescriptionEx& description, int layer) = 0;
};
