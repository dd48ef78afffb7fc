#pragma once

#include "Qx/Ptr.h"
#include "Qx/XY.h"
#include "platform/Api.h"
#include "platform/GPUImage.h"
#include "platform/ImageFormat.h"
#include "platform/Surface.h"

/// Makes, resizes and prepares surfaces. Nothing here holds state or takes a lock: call it where the host
/// allows GPU images to be made and drawn. All drawing is done by the host's graphic-primitives renderer.
namespace Qx::Image {

/// The size that this library uses for black GPU surfaces, in texels: (2, 1).
QX_API XY<int> getBlackGPUSurfaceSize() noexcept;

/// A GPU surface of that size in texels, 8 bits a component, black: opaque when `transparency` is Opaque, and
/// else fully transparent. When the image cannot be had, the surface has none.
QX_API Surface createBlackGPUSurface(XY<int> size, TransparencyType transparency) noexcept;

/// Brings a v210 surface in host memory to a layout that a shader can read: YUY2 with 8 bits for eARGB8, Y216
/// with 16 bits for any other format. Returns a copy of `surface`, which itself is changed. Other surfaces,
/// and one whose conversion fails, stay as they are.
QX_API Surface prepareForGPU(Surface& surface, iGPUImage::eFormat format) noexcept;

/// A copy of an image scaled to that size in texels, also when the size is the same. Empty for an empty
/// source; the source itself, and a line in the host's log, when the image cannot be had.
QX_API Qx::Ptr<iGPUImage> createResizedSurface(Qx::Ptr<iGPUImage> source, const XY<int>& size,
                                               iGPUImage::eFormat format) noexcept;

/// An image reduced to that size in texels in steps that at most halve it. The source itself when it has that
/// size; empty for an empty source, a size that is not positive, or one that exceeds the source in either
/// direction. Steps whose image cannot be had are passed over as in createResizedSurface, so that the result
/// may be too large.
QX_API Qx::Ptr<iGPUImage> shrink(Qx::Ptr<iGPUImage> source, const XY<int>& size,
                                 iGPUImage::eFormat format) noexcept;

/// Draws an image into another with its top left corner at `position`, whole or as one field: every second
/// line of the source over half as many lines of the destination. It is clipped at the destination's left and
/// right edges, and not at its top and bottom. `blend` is passed on to the renderer. Nothing happens when
/// either image is empty.
QX_API void interlaceCopy(Qx::Ptr<iGPUImage> source, Qx::Ptr<iGPUImage> dest, const XY<int>& position,
                          Raster raster, bool blend) noexcept;

} // namespace Qx::Image
