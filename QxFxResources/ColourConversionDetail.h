#pragma once

#include "Qx/Assert.h"
#include "QxFxResources/Manager.h"
#include "platform/CriticalSection.h"

/// Shared by the source files of colour conversion.
namespace Qx::Image::ColourConversion {

inline constexpr const wchar_t* colourConvertEffect = L"ColourConvert.fx";
inline constexpr const wchar_t* nullEffect = L"null.fx";

inline const CriticalSection& gpuLock()
{
    return FxResources::Manager::instance().gpuLock();
}

} // namespace Qx::Image::ColourConversion

/// Checks a precondition of a conversion. The positions are fixed texts, part of the contract.
#define QX_CONVERTER_ASSERT(holds, condition, line)                                                          \
    Qx::assertThat(holds, condition, "QxFxResources/GPUColourConverter line " #line)
