#pragma once

#include "host/gpu/images/Picture.h"
#include "host/gpu/images/Resources.h"
#include "platform/GPUImage.h"

namespace Qx::Host::Vulkan {

/// A two-dimensional image on the device.
class GPUImage final : public iGPUImage
{
public:
    GPUImage(Pooled<Texture> texture, XY<int> size, eFormat format)
        : picture_(std::move(texture)), size_(size), format_(format)
    {
    }

    XY<int> getSize() const override { return size_; }
    eFormat getFormat() const override { return format_; }
    unsigned getBitsPerTexel() const override { return 8 * bytesPerTexel(vulkanFormat(format_)); }
    Qx::Ptr<iGraphicPrimitivesRenderer> getPrimitivesRenderer(int layer) override;

    Picture& picture() { return picture_; }
    Context& context() const { return picture_.context(); }

    /// Whether the application has the image: see sharing/SharedPictures.h.
    std::atomic<bool> given{false};

private:
    Picture picture_;
    const XY<int> size_;
    const eFormat format_;
};

/// An image in host memory.
class HostImage : public iHostImage
{
public:
    HostImage(XY<int> size, iGPUImage::eFormat format) : size_(size), format_(format) {}

    XY<int> getSize() const override { return size_; }
    iGPUImage::eFormat getFormat() const override { return format_; }
    std::size_t getPitch() const override;

    virtual Context& context() const = 0;

    /// Uploads the bytes. Empty on failure. Inside an Operation.
    virtual Qx::Ptr<GPUImage> upload() = 0;

private:
    const XY<int> size_;
    const iGPUImage::eFormat format_;
};

/// A table in plain memory.
class HostImage3D final : public iHostImage3D
{
public:
    /// Empty if memory is exhausted.
    static Qx::Ptr<HostImage3D> create(int size);
    int getSize() const override { return size_; }
    const float* getData() const override { return entries_.get(); }
    float* getData() override { return entries_.get(); }

private:
    struct Free
    {
        void operator()(float* entries) const noexcept;
    };
    using Entries = std::unique_ptr<float, Free>;

    HostImage3D(int size, Entries entries) : size_(size), entries_(std::move(entries)) {}

    const int size_;
    const Entries entries_;
};

/// A table on the device.
class GPUImage3D final : public iGPUImage3D
{
public:
    GPUImage3D(Pooled<Texture> texture, int size, const TableDomain& domain)
        : picture_(std::move(texture)), size_(size), domain_(domain)
    {
    }

    int getSize() const override { return size_; }
    TableDomain getDomain() const override { return domain_; }
    Picture& picture() { return picture_; }
    Context& context() const { return picture_.context(); }

private:
    Picture picture_;
    const int size_;
    const TableDomain domain_;
};

/// A context on the device.
class ComputeContext final : public iGPUComputeContext
{
public:
    explicit ComputeContext(std::shared_ptr<Context> context) : context_(std::move(context)) {}

private:
    const std::shared_ptr<Context> context_;
};

/// Create images of that size; empty on failure. Inside an Operation.
Qx::Ptr<GPUImage> makeGPUImage(Context& context, XY<int> size, iGPUImage::eFormat format);
Qx::Ptr<HostImage> makeHostImage(Context& context, XY<int> size, iGPUImage::eFormat format);

/// Record a copy and return; empty on failure. Inside an Operation.
Qx::Ptr<HostImage> download(Context& context, GPUImage& source);
Qx::Ptr<GPUImage3D> upload(Context& context, const iHostImage3D& source);

/// Records a copy of all texels between images of the same size and format. Returns false on failure.
bool copy(Context& context, GPUImage& source, GPUImage& target);

/// Whether a table of that size is supported.
bool isSupported3D(Context& context, int size);

/// The image, if it is one of that context and the application has not got it; else null, and the log says
/// so of the latter.
GPUImage* usableImage(Context& context, iGPUResource* resource);

/// The contents of a resource that a shader can read; null as usableImage().
Picture* pictureOf(Context& context, iGPUResource* resource);

} // namespace Qx::Host::Vulkan
