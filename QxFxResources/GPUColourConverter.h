#pragma once

#include "Qx/Ptr.h"
#include "platform/Api.h"
#include "platform/GPUImage.h"
#include "platform/ImageFormat.h"
#include "platform/Surface.h"

namespace Qx::Image {

/// Inverts the switch that has every YCrCb 4:2:2 side of a conversion taken as full range, and prints its new
/// state. The handler of the host command "_Toggle ForceUnscaledYCrCb". The switch starts as the setting
/// "ForceUnscaledYCrCbColourConversion" has it when the library is loaded.
QX_API void toggle_cfgForceUnscaledYCrCb() noexcept;

/// Conversions of frames between pixel formats on the GPU, by techniques of "ColourConvert.fx".
///
/// Any thread; they take turns. A conversion records its work and returns. False means that nothing was
/// drawn: the effect cannot be had, or it has no technique for this combination of values. True means that
/// the technique was there; whether the host could draw it is not told. Surfaces are not checked: one without
/// a GPU image draws nothing.
namespace ColourConversion {

/// Obtains the effect for the first time. True on the one call that succeeds; false ever after, and for good
/// when the first attempt failed.
QX_API bool init() noexcept;

/// Whether the call of init() that succeeded has been made.
QX_API bool isInitialised() noexcept;

/// Does nothing.
QX_API void deInit() noexcept;

/// Decodes a frame.
///
/// `source`: 4:2:2 in YUY2 order, its GPU image one texel a pixel pair and its row pitch and bits per pixel
/// saying how far a row is padded. `dest`: a GPU image of the picture's size. `gamut`: the range of the RGB
/// that is wanted; `dest` is labelled with it in every case. `filter`: how chroma is interpolated: Point,
/// CatmullRom or Mitchell.
QX_API bool convertYCrCb422ToRGB(const Surface& source, Surface& dest, GamutScaling gamut,
                                 Filter filter) noexcept;

/// Encodes a frame.
///
/// `source`: RGB, one texel a pixel. `dest`: a GPU image of one texel a pixel pair, to be written in YUY2
/// order by the range and colour space of `dest`. `filter`: how chroma is decimated: Point or Lanczos.
QX_API bool convertRGBToYCrCb422(const Surface& source, Surface& dest, Filter filter) noexcept;

/// Unpacks the DVS card's 10-bit layout, the upper eight bits of each component. `source`: a GPU image of one
/// texel a 32-bit word. `dest`: a GPU image of the unpacked size, described by the caller; it receives the
/// source's descriptions.
QX_API bool unpackDvs10BitFormat(const Surface& source, Surface& dest) noexcept;

/// Unpacks the 10-bit layout M101 to YUY2 order. `source`: a GPU image of one texel a 32-bit word. `dest`: a
/// GPU image of one texel a pixel pair; with 8 bits a component it receives the upper eight bits, else all
/// ten, at the top of 16. It is then described as YUY2 of its image's depth and receives the source's
/// descriptions.
QX_API bool unpackMatrox10BitFormat(const Surface& source, Surface& dest) noexcept;

/// Packs YUY2 order, 8 or 16 bits, to the 10-bit layout M101. `dest` is made anew, with a GPU image of one
/// texel a 32-bit word: (10 x width) / 16 a row, rounded down.
QX_API bool packMatrox10BitFormat(const Surface& source, Surface& dest) noexcept;

/// Brings any component order of 4:2:2 to YUY2, YUY2 to UYVY, and gives 16-bit YUY2 the name Y216 or v216.
/// The result is in `destFormat` where the source's format can be brought there; otherwise it is a copy of
/// the source, or what the source's order gives, and an assertion on standard output says so. A new image's
/// rows have no padding, and the rest of its description is the source's, bits per component and per pixel
/// included. `gpuFormat`: the depth that is wanted; 16 bits are kept only for a source of more than 8.
QX_API Surface reorderComponents(Surface& source, Format destFormat, iGPUImage::eFormat gpuFormat) noexcept;

/// Brings any order of RGB, and YUY2 or Y216, to ARGB on the GPU, top line first. The source itself when it
/// is ARGB already, or of a format that is not handled. `gpuFormat`: the depth that is wanted; 16 bits are
/// kept only for a source of 16, and 10 only for one of 10.
QX_API Surface convertToRGBA(Surface& source, iGPUImage::eFormat gpuFormat) noexcept;

/// An image four times as wide whose texel x shows component x mod 4 of the source's texel x / 4 as opaque
/// grey. Empty for an empty image or when there is no memory. `fmt` should be eARGB8.
QX_API Qx::Ptr<iGPUImage> channelExpand(const Qx::Ptr<iGPUImage>& image, iGPUImage::eFormat fmt) noexcept;

/// Converts a GPU surface to a host format and copies it to host memory, as RGB or as YCrCb by the format. A
/// failure shows in the result alone: a surface as far as the conversion got, or without pixels.
QX_API Surface copyToHostSurface(Surface source, const Core::Data& fmt, Polarity polarity) noexcept;

/// Full-range RGB to video-range YCrCb 4:2:2: BT.709 from a width of 721 on, BT.601 below. The result carries
/// `polarity`. In the format that was asked for leave YUY2, UYVY, and at 16 bits Y216 and v216; at 10 bits
/// M101. Any other leaves as YUY2, or at 10 bits YUY2 as M101; the result's description tells.
QX_API Surface copyToHostYUVSurface(Surface source, const Core::Data& fmt, Polarity polarity) noexcept;

/// To another order or depth of RGB: to b48r, 24BG and 16-bit b64a; to any other in the order of ARGB. The
/// result is described by `fmt`, by which its rows are laid out; one that needed no conversion, or for which
/// "null.fx" cannot be had, keeps its own description. `polarity` is not used.
QX_API Surface copyToHostRGBSurface(Surface source, const Core::Data& fmt, Polarity polarity) noexcept;

} // namespace ColourConversion

} // namespace Qx::Image
