#pragma once

#include "Qx/Ptr.h"
#include "platform/Api.h"
#include "platform/GPUImage.h"
#include "platform/ImageDescription.h"
#include "platform/ImageFormat.h"

#include <cstddef>
#include <cstdint>
#include <utility>

namespace Qx::Image {

/// An image with its description, in host memory or on the GPU.
///
/// A value type: copies have their own description and share the pixels. A surface holds a host image, a GPU
/// image, or neither. Functions that create pixels return a surface without pixels on failure. Not
/// synchronised: one object must not be used by several threads at once; copies may be.
class QX_PLATFORM_API Surface
{
public:
    Surface() = default;

    /// Describes a surface; allocates no pixels. `bottomUp`: the first row in memory is the bottom line.
    /// `bitsPerPixel` 0 is derived from the format, `rowPitch` 0 (bytes) from the width.
    Surface(unsigned width, unsigned height, Format format, bool bottomUp, unsigned short bitsPerComponent,
            unsigned short bitsPerPixel, unsigned short rowPitch);

    /// Replaces the description and releases the pixels. Both records are reset to their defaults. Parameters
    /// as for the constructor.
    void init(unsigned width, unsigned height, Format format, bool bottomUp, unsigned short bitsPerComponent,
              unsigned short bitsPerPixel, unsigned short rowPitch);

    ///@{
    /// A number of the description.
    std::uint32_t getWidth() const { return data_.width; }
    std::uint32_t getHeight() const { return data_.height; }
    Format getDataFormat() const { return data_.format; }
    std::uint16_t getBitsPerComponent() const { return data_.bitsPerComponent; }
    std::uint16_t getBitsPerPixel() const { return data_.bitsPerPixel; }
    std::uint32_t getRowPitch() const { return data_.rowPitch; } ///< bytes from one row to the next
    bool isTopDown() const { return data_.topDown != 0; }
    ///@}

    ///@{
    /// Replaces a number of the description. Pixels that the surface has stay as they are.
    void setWidth(std::uint32_t v) { data_.width = v; }
    void setHeight(std::uint32_t v) { data_.height = v; }
    void setDataFormat(Format v) { data_.format = v; }
    void setBitsPerComponent(std::uint16_t v) { data_.bitsPerComponent = v; }
    void setBitsPerPixel(std::uint16_t v) { data_.bitsPerPixel = v; }
    void setRowPitch(std::uint32_t v) { data_.rowPitch = v; }
    void setTopDown(bool v) { data_.topDown = v ? 1 : 0; }
    ///@}

    ///@{
    /// The whole description, or a part of it. Pixels stay as they are.
    const Core::Data& getData() const { return data_; }
    void setData(const Core::Data& data) { data_ = data; }

    FrameDescription& frame() { return descriptions_.frame; }
    const FrameDescription& frame() const { return descriptions_.frame; }
    SignalDescription& signal() { return descriptions_.signal; }
    const SignalDescription& signal() const { return descriptions_.signal; }
    const ImageDescriptions& getDescriptions() const { return descriptions_; }
    void setDescriptions(const ImageDescriptions& descriptions) { descriptions_ = descriptions; }
    ///@}

    ///@{
    /// An attribute of the two records.
    ColourSpace getColourSpace() const { return descriptions_.signal.getColourSpace(); }
    void setColourSpace(ColourSpace v) { descriptions_.signal.setColourSpace(v); }
    GamutScaling getGamutScaling() const { return descriptions_.signal.getGamutScaling(); }
    void setGamutScaling(GamutScaling v) { descriptions_.signal.setGamutScaling(v); }
    Polarity getPolarity() const { return descriptions_.signal.getPolarity(); }
    void setPolarity(Polarity v) { descriptions_.signal.setPolarity(v); }
    TransparencyType getTransparency() const { return descriptions_.frame.getTransparency(); }
    void setTransparency(TransparencyType v) { descriptions_.frame.setTransparency(v); }
    ///@}

    /// Returns the GPU image, or an empty pointer.
    Qx::Ptr<iGPUImage> getGPUSurface() const { return gpuImage_; }
    /// Replaces the GPU image. The description stays as it is.
    void setGPUSurface(Qx::Ptr<iGPUImage> image) { gpuImage_ = std::move(image); }

    /// Returns the host image, or an empty pointer.
    Qx::Ptr<iHostImage> getHostImage() const { return hostImage_; }
    /// Replaces the host image. The description stays as it is.
    void setHostImage(Qx::Ptr<iHostImage> image) { hostImage_ = std::move(image); }

    /// Allocates host memory for the rows of the description and releases a GPU image. The contents are
    /// undefined. Returns false if out of memory or if the description is invalid; the pixels are then
    /// unchanged.
    bool allocateHost();

    /// Returns a surface of the same description with a GPU image that will hold this surface's rows as they
    /// are in memory, padding included. Does not wait for the device. The result has no pixels if there is no
    /// host image or the upload fails.
    Surface uploadToGPU() const;

    /// Returns a surface in host memory of the same description with the bytes of this surface's GPU image,
    /// row by row. A description that asks for more than the image has is clamped to the image, and the log
    /// says so. The result has no pixels if the download fails. A surface without a GPU image yields a copy
    /// of itself. Blocks until the pixels have arrived if the rows' pitch or number changes; otherwise map()
    /// on the result's host image blocks.
    Surface copyToHost() const;

    /// Returns a top-down ARGB surface of the same size and descriptions with a new GPU image, one texel per
    /// pixel.
    Surface createDestARGBGPUSurface(iGPUImage::eFormat format) const;

    /// Returns a top-down YUY2 surface of the same size and descriptions with a new GPU image, one texel per
    /// pixel pair; an odd width adds a half-used texel. The result has no pixels for eARGB10.
    Surface createDestYUY2GPUSurface(iGPUImage::eFormat format) const;

private:
    Core::Data data_;
    ImageDescriptions descriptions_;
    Qx::Ptr<iGPUImage> gpuImage_;
    Qx::Ptr<iHostImage> hostImage_;
};

/// Returns a surface that holds a GPU image: its size, ARGB (ARGB10 for eARGB10), its depth, top-down. An
/// empty pointer yields an empty surface.
QX_PLATFORM_API Surface makeWrapper(Qx::Ptr<iGPUImage> image);

} // namespace Qx::Image
