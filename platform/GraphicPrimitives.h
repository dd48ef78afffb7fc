#pragma once

#include "Qx/HostAllocator.h"
#include "Qx/Ptr.h"
#include "Qx/iObject.h"
#include "platform/Api.h"
#include "platform/GPUImage.h"
#include "platform/ShaderEffect.h"

/// A colour with alpha, each component 0 to 1.
struct NormalisedRGB
{
    float red = 0.0F;   ///< share of red
    float green = 0.0F; ///< share of green
    float blue = 0.0F;  ///< share of blue
    float alpha = 1.0F; ///< 1 is opaque
};

template <class T>
/// A rectangle. x1 and y1 are exclusive.
struct RectangleOf
{
    T x0{}; ///< left
    T y0{}; ///< top
    T x1{}; ///< right, exclusive
    T y1{}; ///< bottom, exclusive

    /// Compares all members.
    friend bool operator==(const RectangleOf&, const RectangleOf&) = default;
};

/// A filled or outlined rectangle with a vertical gradient.
struct RectDescription
{
    RectangleOf<int> area; ///< in pixels of the target
    NormalisedRGB colour;  ///< at the top
    NormalisedRGB colour2; ///< at the bottom
    int border = 0;        ///< width of the outline in pixels; 0 fills the rectangle
};

/// An image stretched over a rectangle.
struct ImageDescription
{
    Qx::Ptr<iGPUImage> image;     ///< what is drawn; not empty
    RectangleOf<int> destination; ///< in pixels of the target
    RectangleOf<int> source;      ///< in texels of the image
    bool blend = false;           ///< blend over the target by the image's alpha
    float weight = 1.0F;          ///< 0 to 1: opacity of the image
};

/// An image stretched over a rectangle, optionally drawn through an effect.
struct ImageDescriptionEx
{
    /// Which lines of the source are taken.
    enum eMode
    {
        Stretched = 0,
        EverySecondLine =
            1, ///< takes every second line of the source, unfiltered, one for a line of the target
    };

    Qx::Ptr<iGPUImage> image;                     ///< what is drawn; not empty
    Qx::Ptr<iShaderEffect> effect;                ///< may be empty; its first texture is the image
    RectangleOf<float> source;                    ///< in texels of the image
    RectangleOf<float> destination;               ///< in pixels of the target
    bool blend = true;                            ///< blend over the target by alpha
    int mode = Stretched;                         ///< an eMode
    Qx::Vector<Qx::Ptr<iGPUImage>> furtherImages; ///< the effect's other textures, in declaration order
};

/// Draws into one image. Each draw records the work and returns without waiting for the device. Returns false
/// if the work could not be recorded. `layer` must be 1.
class QX_PLATFORM_API iGraphicPrimitivesRenderer : public iObject
{
public:
    ///@{
    /// Draws over the contents of the image. See above.
    virtual bool draw(const RectDescription& description, int layer) = 0;
    virtual bool draw(const ImageDescription& description, int layer) = 0;
    virtual bool draw(const ImageDescriptionEx& description, int layer) = 0;
    ///@}
};
