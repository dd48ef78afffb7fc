#pragma once

#include "Qx/Ptr.h"
#include "Qx/XY.h"
#include "Qx/iObject.h"
#include "platform/Api.h"

#include <array>
#include <cstddef>
#include <cstdint>

class iGraphicPrimitivesRenderer;

/// Anything on the GPU that a shader can read.
class QX_PLATFORM_API iGPUResource : public iObject
{
};

/// A two-dimensional image on the GPU. A texel has four components c0 c1 c2 c3 in memory order; a shader sees
/// them as a, r, g, b, so that an image whose memory order is A R G B is plain RGBA to it.
///
/// Operations on images may be called from any thread. An image that outlives the GPU service stays safe to
/// hold and release; what is asked of it then fails.
class QX_PLATFORM_API iGPUImage : public iGPUResource
{
public:
    enum eFormat
    {
        eARGB8 = 0,        ///< 8 bits a component
        eARGB16 = 1,       ///< 16 bits a component
        eARGB10 = 2101010, ///< one little-endian word a texel: 2 bits alpha on top, then 10 each of r, g, b
    };

    virtual XY<int> getSize() const = 0; ///< in texels
    virtual eFormat getFormat() const = 0;
    virtual unsigned getBitsPerTexel() const = 0; ///< 32 or 64

    /// What draws into this image; empty when it cannot be drawn into. `layer` is 1: the image itself.
    virtual Qx::Ptr<iGraphicPrimitivesRenderer> getPrimitivesRenderer(int layer) = 0;
};

/// An image in host memory that the device reads and writes directly. Rows follow each other without padding:
/// a row has the width in texels of four components.
class QX_PLATFORM_API iHostImage : public iObject
{
public:
    enum eAccess
    {
        Read,  ///< waits for the device to finish writing this image
        Write, ///< waits for the device to finish reading and writing it
    };

    virtual XY<int> getSize() const = 0; ///< in texels
    virtual iGPUImage::eFormat getFormat() const = 0;
    virtual std::size_t getPitch() const = 0; ///< bytes of a row

    /// The first row's first byte, or null when the device is lost. Valid as long as the image lives. Call it
    /// again before touching the memory after the image was uploaded or downloaded into.
    virtual void* map(eAccess access) = 0;
};

/// The colours that a three-dimensional table covers: an axis runs from `min` at the first entry to `max` at
/// the last. Colours outside are held to it.
struct TableDomain
{
    std::array<float, 3> min{0.0F, 0.0F, 0.0F}; ///< red, green, blue
    std::array<float, 3> max{1.0F, 1.0F, 1.0F}; ///< each above its min
};

/// A three-dimensional image: a table of size x size x size entries, red running fastest, four floats an
/// entry.
class QX_PLATFORM_API iHostImage3D : public iObject
{
public:
    virtual int getSize() const = 0; ///< entries along an edge
    virtual const float* getData() const = 0;
    virtual float* getData() = 0;

    /// What the table's first and last entries stand for. 0 to 1 unless the maker says otherwise.
    virtual TableDomain getDomain() const { return {}; }
};

class QX_PLATFORM_API iGPUImage3D : public iGPUResource
{
public:
    virtual int getSize() const = 0;

    /// That of the host image it was made from. Whoever applies a table gives it to the effect: a shader sees
    /// the entries alone.
    virtual TableDomain getDomain() const { return {}; }
};

/// A context for compute work on the GPU.
class QX_PLATFORM_API iGPUComputeContext : public iObject
{
};
