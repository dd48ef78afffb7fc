#pragma once

#include "platform/Api.h"
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

} // namespace ColourConversion

} // namespace Qx::Image
