#pragma once

#include "Qx/HostAllocator.h"
#include "Qx/LightweightString.h"
#include "Qx/Ptr.h"
#include "Qx/XY.h"
#include "platform/Api.h"
#include "platform/Font.h"
#include "platform/GPUImage.h"
#include "platform/ShaderEffect.h"

/// The host's GPU service. Thread-safe.
///
/// Functions that create something return an empty pointer on failure: out of memory, a size that the device
/// does not support, a lost device. They do not throw.
class QX_PLATFORM_API iGPUService
{
public:
    using Definitions = Qx::Vector<iShaderEffect::CompilerDefinition>; ///< macros for the compiler, in order

    /// Compiles all techniques of an effect file. Blocks until the compilation has finished. Returns an empty
    /// pointer if any of them fails to compile, and at once for an empty path, which names no file: the
    /// library passes it for every effect that it does not know, and would hand out what it receives under
    /// all those names.
    virtual Qx::Ptr<iShaderEffect> loadEffectFile(const LightweightString<wchar_t>& path,
                                                  const Definitions& definitions) = 0;

    /// As loadEffectFile(), but also returns the compiler's messages.
    virtual EffectCompileResult compileEffectFile(const LightweightString<wchar_t>& path,
                                                  const Definitions& definitions) = 0;

    /// Creates a compute context. `kind` must be 0: a context on the device that draws.
    virtual Qx::Ptr<iGPUComputeContext> createComputeContext(int kind) = 0;

    /// Creates a GPU image of `size` texels. The contents are undefined.
    virtual Qx::Ptr<iGPUImage> createGPUImage(XY<int> size, iGPUImage::eFormat format) = 0;

    /// Creates an image of `size` texels in host memory that the device reads and writes directly. The
    /// contents are undefined.
    virtual Qx::Ptr<iHostImage> createHostImage(XY<int> size,
                                                iGPUImage::eFormat format = iGPUImage::eARGB8) = 0;

    /// Creates a GPU image and records a copy of the host image's bytes into it. Returns without waiting for
    /// the device. The device reads the host image later, so the host image must not be written before the
    /// copy has finished; map() for writing blocks until then. `options` is reserved and must be 0.
    virtual Qx::Ptr<iGPUImage> uploadImage(Qx::Ptr<iHostImage> image, int options) = 0;

    /// Creates a host image and records a copy of the GPU image's bytes into it. Returns without waiting for
    /// the device; map() for reading blocks until this copy has finished.
    virtual Qx::Ptr<iHostImage> downloadImage(Qx::Ptr<iGPUImage> image) = 0;

    /// Creates a 3D table of size x size x size entries in host memory. Returns an empty pointer if `size` is
    /// less than 2 or exceeds the device's limit.
    virtual Qx::Ptr<iHostImage3D> createHostImage3D(int size) = 0;

    /// Copies a 3D table to the GPU in single precision. Returns an empty pointer for an empty pointer.
    virtual Qx::Ptr<iGPUImage3D> upload3DImage(Qx::Ptr<iHostImage3D> image) = 0;

    /// Creates a font. `typeface` is the name of a typeface, or the path of a font file if it contains '/'.
    /// `size` is the em size in pixels. `style` is a combination of iFont::eStyle. A missing typeface is
    /// replaced by another one, with a line in the log. Returns an empty pointer, with the reason in the log,
    /// if there is no font at all, the name is empty, the size is not positive or too large, or the file is
    /// not a font.
    virtual Qx::Ptr<iFont> createFont(const LightweightString<wchar_t>& typeface, int size, int style) = 0;

protected:
    ~iGPUService() = default;
};
