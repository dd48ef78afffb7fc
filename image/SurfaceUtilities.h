#pragma once

#include "Qx/Ptr.h"
#include "Qx/XY.h"
#include "platform/Api.h"
#include "platform/GPUImage.h"
#include "platform/ImageFormat.h"
#include "platform/Surface.h"

/// Functions that create, resize and prepare surfaces. They hold no state and take no locks: call them on a
/// thread on which the host allows GPU images to be created and drawn. All drawing is done by the host's
/// graphic-primitives renderer. They do not throw and do not wait for the device.
namespace Qx::Image {

/// Returns the library's size for black GPU surfaces, in texels: (2, 1).
QX_API XY<int> getBlackGPUSurfaceSize() noexcept;

/// Creates a black GPU surface of `size` texels, 8 bits per component: opaque if `transparency` is Opaque,
/// otherwise fully transparent. If the allocation fails, the surface has no pixels.
QX_API Surface createBlackGPUSurface(XY<int> size, TransparencyType transparency) noexcept;

/// Converts a v210 surface in host memory to a layout that a shader can read: 8-bit YUY2 for eARGB8, 16-bit
/// Y216 for any other format. Replaces `surface` and returns a copy of it. Surfaces of other formats, and one
/// whose conversion fails, are returned unchanged.
QX_API Surface prepareForGPU(Surface& surface, iGPUImage::eFormat format) noexcept;

/// Returns a copy of an image scaled to `size` texels, even if the size is unchanged. Returns an empty
/// pointer if `source` is empty. If the allocation fails, returns `source` itself and writes a line to the
/// host's log.
QX_API Qx::Ptr<iGPUImage> createResizedSurface(Qx::Ptr<iGPUImage> source, const XY<int>& size,
                                               iGPUImage::eFormat format) noexcept;

/// Returns an image reduced to `size` texels in steps that at most halve it. Returns `source` itself if it
/// has that size; an empty pointer if it is empty, if `size` is not positive, or if `size` exceeds it in
/// either direction. A step whose image cannot be allocated is skipped; the result may then be larger than
/// requested.
QX_API Qx::Ptr<iGPUImage> shrink(Qx::Ptr<iGPUImage> source, const XY<int>& size,
                                 iGPUImage::eFormat format) noexcept;

/// Draws `source` into `dest` with its top left corner at `position` (in texels of `dest`), as a whole or as
/// one field: every second line of the source over half as many lines of the destination. Clipped at the left
/// and right edges of the destination but not at the top and bottom. `blend` is passed on to the renderer.
/// Does nothing if either image is empty.
QX_API void interlaceCopy(Qx::Ptr<iGPUImage> source, Qx::Ptr<iGPUImage> dest, const XY<int>& position,
                          Raster raster, bool blend) noexcept;

} // namespace Qx::Image
