#pragma once

#include "Qx/Ptr.h"
#include "platform/Api.h"
#include "platform/GPUImage.h"
#include "platform/ImageFormat.h"
#include "platform/Surface.h"

namespace Qx::Image {

/// Inverts the switch that makes conversions treat every YCrCb 4:2:2 surface as full range, and prints the
/// new state. Handler of the host command "_Toggle ForceUnscaledYCrCb". The initial state is the setting
/// "ForceUnscaledYCrCbColourConversion" at the time the library is loaded. A conversion in progress is not
/// affected. Thread-safe.
QX_API void toggle_cfgForceUnscaledYCrCb() noexcept;

/// Conversions of frames between pixel formats on the GPU, with techniques of "ColourConvert.fx" and
/// "null.fx".
///
/// Thread-safe: conversions are serialised by the manager's gpuLock(). A conversion records its work and
/// returns without waiting for the device; the copyToHost functions end with Surface::copyToHost(). A call
/// blocks while an effect that it needs is being compiled.
///
/// Functions that return bool return false if nothing was drawn: the effect is unavailable, or it has no
/// technique for this combination of values. True means that the technique was selected, not that the host
/// could draw it. Formats, sizes and the presence of GPU images are not checked; a surface without a GPU
/// image is passed on to the effect as it is. No function throws. Failed assertions are printed on standard
/// output, and the conversion continues.
///
/// The range of a YCrCb surface is its gamut scaling, or full range while the switch above is on.
namespace ColourConversion {

/// Obtains "ColourConvert.fx". Returns true only for the call that obtains it. All other calls return false;
/// after a failed first attempt there is no second one.
QX_API bool init() noexcept;

/// Returns whether init() has obtained the effect.
QX_API bool isInitialised() noexcept;

/// Does nothing.
QX_API void deInit() noexcept;

/// Decodes a frame to RGB.
///
/// `source`: YCrCb 4:2:2 in YUY2 order; a GPU image of one texel per pixel pair. Its colour space and gamut
/// scaling select the matrix and range; its row pitch (bytes) and bits per pixel state how far a row is
/// padded. `dest`: a GPU image of one texel per pixel. `gamut`: the range of the RGB result. `filter`: the
/// chroma interpolation: Point, CatmullRom or Mitchell.
///
/// `dest` is labelled with `gamut` even if nothing was drawn.
QX_API bool convertYCrCb422ToRGB(const Surface& source, Surface& dest, GamutScaling gamut,
                                 Filter filter) noexcept;

/// Encodes a frame to YCrCb 4:2:2.
///
/// `source`: RGB, one texel per pixel; its gamut scaling is the range of the RGB. `dest`: a GPU image of one
/// texel per pixel pair, which receives YUY2 order; its colour space and gamut scaling select the matrix and
/// range. `filter`: the chroma decimation: Point or Lanczos.
QX_API bool convertRGBToYCrCb422(const Surface& source, Surface& dest, Filter filter) noexcept;

/// Unpacks the DVS 10-bit layout to YUY2 order. Only the upper eight bits of each component are kept.
/// `source`: a GPU image of one texel per 32-bit word. `dest`: a GPU image of the unpacked size, described by
/// the caller; it receives the source's descriptions.
QX_API bool unpackDvs10BitFormat(const Surface& source, Surface& dest) noexcept;

/// Unpacks the 10-bit layout M101 or M102 to YUY2 order. `source`: a GPU image of one texel per 32-bit word.
/// `dest`: a GPU image of one texel per pixel pair; at 8 bits per component it receives the upper eight bits,
/// otherwise all ten as the most significant bits of 16. On success `dest` is described as YUY2 of its
/// image's depth and receives the source's descriptions.
QX_API bool unpackMatrox10BitFormat(const Surface& source, Surface& dest) noexcept;

/// Packs YUY2 order, 8 or 16 bits, to the 10-bit layout M101. On success `dest` is re-initialised with a new
/// GPU image of one texel per 32-bit word, (10 x width) / 16 of them per row, rounded down. If the image
/// cannot be allocated, the result is still true and `dest` has no pixels.
QX_API bool packMatrox10BitFormat(const Surface& source, Surface& dest) noexcept;

/// Reorders YCrCb: YV12, YVYU, VYUY, UYVY and v210 to YUY2; YUY2 to UYVY; unpacks 10-bit M101 and M102 to
/// YUY2. 16-bit YUY2 is relabelled as Y216 or v216 without a copy. A source of any other format, or narrower
/// than two pixels, is returned as a copy.
///
/// A request that the source's format does not support prints an assertion. A reordered result is then still
/// in the order stated above, labelled `destFormat`; YUY2, M101 and M102 yield YUY2. v210 always prints one.
/// 8-bit YUY2 requested as M101 or M102, which have the same layout, is returned as YUY2.
///
/// A reordered result has a new image of width / 2 texels per row without padding; the rest of its
/// description is the source's, including bits per component and per pixel. If the allocation fails, it has
/// no pixels. If "null.fx" is unavailable, the image is undefined and described as ARGB. `gpuFormat`: the
/// requested depth; 16 bits are used only for a source of more than 8.
QX_API Surface reorderComponents(Surface& source, Format destFormat, iGPUImage::eFormat gpuFormat) noexcept;

/// Converts any order of RGB, and YUY2, Y216 and 8-bit M101 and M102, to ARGB on the GPU. YCrCb is decoded to
/// full-range RGB with point-sampled chroma.
///
/// The result is labelled top-down. The rows of a bottom-up source are flipped for ARGB, 35, BGR3, b48r, and
/// for " RGB" and 24BG at 8 bits. They are not flipped for BGRA, 32, RGBA, ABGR, 37, b64a, 16-bit " RGB" and
/// 24BG, and YCrCb: the result then has its bottom line first although it is labelled top-down.
///
/// Returns a copy of the source if it is top-down ARGB or 35, of any other format, or if "null.fx" is
/// unavailable for BGRA and 32. For the other formats the image is undefined if the effect is unavailable.
/// `gpuFormat`: the requested depth; 16 bits are used only for a source of 16, and 10 only for one of 10;
/// otherwise 8.
QX_API Surface convertToRGBA(Surface& source, iGPUImage::eFormat gpuFormat) noexcept;

/// Returns an image four times as wide whose texel x shows component x mod 4 of the source's texel x / 4 as
/// opaque grey. Returns an empty pointer if `image` is empty or the allocation fails. If "null.fx" is
/// unavailable, the contents are undefined. `fmt` should be eARGB8; others print an assertion.
QX_API Qx::Ptr<iGPUImage> channelExpand(const Qx::Ptr<iGPUImage>& image, iGPUImage::eFormat fmt) noexcept;

/// Converts a GPU surface to a host format and copies it to host memory, with copyToHostRGBSurface() or
/// copyToHostYUVSurface() depending on the format. There is no error result: on failure the returned surface
/// holds what the conversion reached, or no pixels.
QX_API Surface copyToHostSurface(Surface source, const Core::Data& fmt, Polarity polarity) noexcept;

/// Converts full-range RGB to video-range YCrCb 4:2:2 with point-sampled chroma, BT.709 for widths of 721 and
/// more and BT.601 below, and copies it to host memory. The result carries `polarity`.
///
/// YUY2 and UYVY are returned as requested; at 16 bits also Y216 and v216; at 10 bits only M101. 8-bit M101
/// and M102, which have the same layout, are returned as YUY2, and 10-bit YUY2 as M101. Other requests print
/// an assertion and return YUY2. The result's description states its format.
QX_API Surface copyToHostYUVSurface(Surface source, const Core::Data& fmt, Polarity polarity) noexcept;

/// Converts to another order or depth of RGB and copies it to host memory: to b48r, 24BG and 16-bit b64a; for
/// any other format the components stay in ARGB order under the requested label. The result is described by
/// `fmt`, which also determines its rows. A source that already has the format and depth, or that cannot be
/// converted because "null.fx" is unavailable, is copied with its own description. `polarity` is ignored.
QX_API Surface copyToHostRGBSurface(Surface source, const Core::Data& fmt, Polarity polarity) noexcept;

} // namespace ColourConversion

} // namespace Qx::Image
