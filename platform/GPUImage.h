#pragma once

#include "Qx/Ptr.h"
#include "Qx/XY.h"
#include "Qx/iObject.h"
#include "platform/Api.h"

#include <array>
#include <cstddef>
#include <cstdint>

class iGraphicPrimitivesRenderer;

/// A resource on the GPU that a shader can read.
class QX_PLATFORM_API iGPUResource : public iObject
{
};

/// A two-dimensional image on the GPU. A texel has four components c0 c1 c2 c3 in memory order; a shader sees
/// them as a, r, g, b, so an image with the memory order A R G B is plain RGBA to a shader.
///
/// Thread-safe. An image that outlives the GPU service remains safe to hold and to release; operations on it
/// fail.
class QX_PLATFORM_API iGPUImage : public iGPUResource
{
public:
    /// The depth of an image.
    enum eFormat
    {
        eARGB8 = 0,        ///< 8 bits per component
        eARGB16 = 1,       ///< 16 bits per component
        eARGB10 = 2101010, ///< one little-endian 32-bit word per texel: 2 bits of alpha on top, then 10 bits
                           ///< each of r, g, b
    };

    virtual XY<int> getSize() const = 0;          ///< in texels
    virtual eFormat getFormat() const = 0;        ///< as created
    virtual unsigned getBitsPerTexel() const = 0; ///< 32 or 64

    /// Returns a renderer that draws into this image, or an empty pointer if the image is not a render
    /// target. `layer` must be 1: the image itself.
    virtual Qx::Ptr<iGraphicPrimitivesRenderer> getPrimitivesRenderer(int layer) = 0;
};

/// An image in host memory that the device reads and writes directly. Rows have no padding: a row is the
/// width in texels times the size of a texel.
class QX_PLATFORM_API iHostImage : public iObject
{
public:
    /// What map() is for.
    enum eAccess
    {
        Read,  ///< blocks until the device has finished writing this image
        Write, ///< blocks until the device has finished reading and writing it
    };

    virtual XY<int> getSize() const = 0;              ///< in texels
    virtual iGPUImage::eFormat getFormat() const = 0; ///< as created
    virtual std::size_t getPitch() const = 0;         ///< bytes per row

    /// Blocks as `access` says and returns the address of the first row, or null if the device is lost. The
    /// address is valid for the lifetime of the image. Call map() again before accessing the memory after the
    /// image was uploaded or was the target of a download.
    virtual void* map(eAccess access) = 0;
};

/// The colours that a 3D table covers: an axis runs from `min` at the first entry to `max` at the last.
/// Colours outside are clamped.
struct TableDomain
{
    std::array<float, 3> min{0.0F, 0.0F, 0.0F}; ///< red, green, blue
    std::array<float, 3> max{1.0F, 1.0F, 1.0F}; ///< each greater than its min
};

/// A 3D table of size x size x size entries in host memory. Red varies fastest; an entry is four floats.
class QX_PLATFORM_API iHostImage3D : public iObject
{
public:
    virtual int getSize() const = 0;          ///< entries along each axis
    virtual const float* getData() const = 0; ///< the first entry; valid as long as the image
    virtual float* getData() = 0;             ///< the first entry; valid as long as the image

    /// Returns the colours of the first and last entries. The default is 0 to 1.
    virtual TableDomain getDomain() const { return {}; }
};

/// A 3D table on the GPU.
class QX_PLATFORM_API iGPUImage3D : public iGPUResource
{
public:
    virtual int getSize() const = 0; ///< entries along each axis

    /// Returns the domain of the host image that this image was uploaded from. Shaders see the entries only,
    /// so the caller passes the domain to the effect.
    virtual TableDomain getDomain() const { return {}; }
};

/// A context for compute work on the GPU.
class QX_PLATFORM_API iGPUComputeContext : public iObject
{
};
