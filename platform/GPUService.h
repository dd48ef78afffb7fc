#pragma once

#include "Qx/HostAllocator.h"
#include "Qx/LightweightString.h"
#include "Qx/Ptr.h"
#include "Qx/XY.h"
#include "platform/Api.h"
#include "platform/Font.h"
#include "platform/GPUImage.h"
#include "platform/ShaderEffect.h"

/// The host's GPU service.
///
/// Any thread may call it. Creating operations answer failure (memory exhausted, a size that the device does
/// not support, a device that is lost) with an empty pointer; nothing is thrown.
class QX_PLATFORM_API iGPUService
{
public:
    using Definitions = Qx::Vector<iShaderEffect::CompilerDefinition>;

    /// Compiles every technique of an effect file; empty when any of it fails.
    virtual Qx::Ptr<iShaderEffect> loadEffectFile(const LightweightString<wchar_t>& path,
                                                  const Definitions& definitions) = 0;

    /// The same, with the compiler's messages.
    virtual EffectCompileResult compileEffectFile(const LightweightString<wchar_t>& path,
                                                  const Definitions& definitions) = 0;

    /// `kind` is 0: a context on the device that draws.
    virtual Qx::Ptr<iGPUComputeContext> createComputeContext(int kind) = 0;

    /// A GPU image of that size in texels; what it holds is undefined.
    virtual Qx::Ptr<iGPUImage> createGPUImage(XY<int> size, iGPUImage::eFormat format) = 0;

    /// An image of that size in texels in memory that the device reads and writes directly.
    virtual Qx::Ptr<iHostImage> createHostImage(XY<int> size,
                                                iGPUImage::eFormat format = iGPUImage::eARGB8) = 0;

    /// A new GPU image that will hold the host image's bytes. It returns at once and reads the host image
    /// when the device gets there, so the host image must not be written before then; map() for writing waits
    /// for it. `options` has no meaning yet and is 0.
    virtual Qx::Ptr<iGPUImage> uploadImage(Qx::Ptr<iHostImage> image, int options) = 0;

    /// A new host image that will hold the GPU image's bytes. It returns at once; map() for reading waits for
    /// this image alone.
    virtual Qx::Ptr<iHostImage> downloadImage(Qx::Ptr<iGPUImage> image) = 0;

    /// An empty table of size x size x size entries; empty pointer for a size below 2 or beyond the device's
    /// limit.
    virtual Qx::Ptr<iHostImage3D> createHostImage3D(int size) = 0;

    /// The table on the GPU in single precision; empty for an empty pointer.
    virtual Qx::Ptr<iGPUImage3D> upload3DImage(Qx::Ptr<iHostImage3D> image) = 0;

    /// A font of a typeface, by its name or, when there is a '/' in it, by its file; the size of the em
    /// square in pixels; and a combination of iFont::eStyle. Another typeface stands in for one that is not
    /// there, and the log says so. Empty when there is none at all, for an empty name, a size that is not
    /// positive or too large, and a file that is no font; the log says why.
    virtual Qx::Ptr<iFont> createFont(const LightweightString<wchar_t>& typeface, int size, int style) = 0;

protected:
    ~iGPUService() = default;
};
