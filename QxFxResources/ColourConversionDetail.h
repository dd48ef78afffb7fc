#pragma once

#include "Qx/Assert.h"
#include "Qx/Ptr.h"
#include "QxFxResources/Manager.h"
#include "image/DefaultEffect.h"
#include "platform/CriticalSection.h"
#include "platform/ShaderEffect.h"
#include "platform/Surface.h"

/// Shared by the source files of colour conversion.
namespace Qx::Image::ColourConversion {

inline constexpr const wchar_t* colourConvertEffect = L"ColourConvert.fx";
inline constexpr const wchar_t* nullEffect = L"null.fx";

inline const CriticalSection& gpuLock()
{
    return FxResources::Manager::instance().gpuLock();
}

// Steps of conversions, which get what the conversion has taken from the manager. `convert` may be empty.

/// convertRGBToYCrCb422(), within the lock.
QX_LOCAL bool encode(const Qx::Ptr<iShaderEffect>& convert, const Surface& source, Surface& dest,
                     Filter filter) noexcept;
/// packMatrox10BitFormat(), within the lock.
QX_LOCAL bool packMatrox(const Qx::Ptr<iShaderEffect>& convert, const Surface& source,
                         Surface& dest) noexcept;
/// Reorders YUY2 to UYVY at its own depth; a source narrower than two pixels is returned as a copy.
QX_LOCAL Surface toUYVY(const DefaultEffect& null, const Surface& source) noexcept;

} // namespace Qx::Image::ColourConversion

/// Checks a precondition of a conversion. The positions are fixed texts, part of the contract.
#define QX_CONVERTER_ASSERT(holds, condition, line)                                                          \
    Qx::assertThat(holds, condition, "QxFxResources/GPUColourConverter line " #line)
