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
/// A value: copies have a description of their own and share the pixels. A surface holds a host image, a GPU
/// image, or neither. Operations that make pixels answer failure with a surface that holds none.
class QX_PLATFORM_API Surface
{
public:
    Surface() = default;

    /// A surface in host memory. `bitsPerPixel` 0 is filled in from the format and `rowPitch` 0 from the
    /// width.
    Surface(unsigned width, unsigned height, Format format, bool bottomUp, unsigned short bitsPerComponent,
            unsigned short bitsPerPixel, unsigned short rowPitch);

    /// Describes the surface anew and lets go of its pixels; both records go back to their defaults.
    void init(unsigned width, unsigned height, Format format, bool bottomUp, unsigned short bitsPerComponent,
              unsigned short bitsPerPixel, unsigned short rowPitch);

    std::uint32_t getWidth() const { return data_.width; }
    std::uint32_t getHeight() const { return data_.height; }
    Format getDataFormat() const { return data_.format; }
    std::uint16_t getBitsPerComponent() const { return data_.bitsPerComponent; }
    std::uint16_t getBitsPerPixel() const { return data_.bitsPerPixel; }
    std::uint32_t getRowPitch() const { return data_.rowPitch; } ///< bytes from a row to the next
    bool isTopDown() const { return data_.topDown != 0; }

    void setWidth(std::uint32_t v) { data_.width = v; }
    void setHeight(std::uint32_t v) { data_.height = v; }
    void setDataFormat(Format v) { data_.format = v; }
    void setBitsPerComponent(std::uint16_t v) { data_.bitsPerComponent = v; }
    void setBitsPerPixel(std::uint16_t v) { data_.bitsPerPixel = v; }
    void setRowPitch(std::uint32_t v) { data_.rowPitch = v; }
    void setTopDown(bool v) { data_.topDown = v ? 1 : 0; }

    const Core::Data& getData() const { return data_; }
    void setData(const Core::Data& data) { data_ = data; }

    FrameDescription& frame() { return descriptions_.frame; }
    const FrameDescription& frame() const { return descriptions_.frame; }
    SignalDescription& signal() { return descriptions_.signal; }
    const SignalDescription& signal() const { return descriptions_.signal; }
    const ImageDescriptions& getDescriptions() const { return descriptions_; }
    void setDescriptions(const ImageDescriptions& descriptions) { descriptions_ = descriptions; }

    ColourSpace getColourSpace() const { return descriptions_.signal.getColourSpace(); }
    void setColourSpace(ColourSpace v) { descriptions_.signal.setColourSpace(v); }
    GamutScaling getGamutScaling() const { return descriptions_.signal.getGamutScaling(); }
    void setGamutScaling(GamutScaling v) { descriptions_.signal.setGamutScaling(v); }
    Polarity getPolarity() const { return descriptions_.signal.getPolarity(); }
    void setPolarity(Polarity v) { descriptions_.signal.setPolarity(v); }
    TransparencyType getTransparency() const { return descriptions_.frame.getTransparency(); }
    void setTransparency(TransparencyType v) { descriptions_.frame.setTransparency(v); }

    /// The surface's GPU image; empty when it has none.
    Qx::Ptr<iGPUImage> getGPUSurface() const { return gpuImage_; }
    void setGPUSurface(Qx::Ptr<iGPUImage> image) { gpuImage_ = std::move(image); }

    Qx::Ptr<iHostImage> getHostImage() const { return hostImage_; }
    void setHostImage(Qx::Ptr<iHostImage> image) { hostImage_ = std::move(image); }

    /// Gives a surface in host memory its memory: the description's rows, in texels of four components. False
    /// when there is none to be had, or the description makes no sense.
    bool allocateHost();

    /// A surface of the same description whose GPU image will hold this host surface's rows as they lie in
    /// memory, padding included. Without pixels when there is no host image or the device refuses.
    Surface uploadToGPU() const;

    /// A surface in host memory of the same description, holding the bytes of this surface's GPU image row by
    /// row. A row that the description makes longer than the image's is cut to it, and the log says so. A
    /// surface without a GPU image gives a copy of itself.
    Surface copyToHost() const;

    /// A surface of the same size and descriptions with a new GPU image: ARGB, one texel a pixel.
    Surface createDestARGBGPUSurface(iGPUImage::eFormat format) const;

    /// The same in YUY2, one texel a pixel pair (the last of an odd width is half used).
    Surface createDestYUY2GPUSurface(iGPUImage::eFormat format) const;

private:
    Core::Data data_;
    ImageDescriptions descriptions_;
    Qx::Ptr<iGPUImage> gpuImage_;
    Qx::Ptr<iHostImage> hostImage_;
};

/// A surface around a GPU image: its size, ARGB, its depth, top-down. An empty pointer gives an empty
/// surface.
QX_PLATFORM_API Surface makeWrapper(Qx::Ptr<iGPUImage> image);

} // namespace Qx::Image
