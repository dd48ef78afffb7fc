#pragma once

#include "Qx/LightweightString.h"
#include "platform/Api.h"

/// Text services. Independent of the process's locale. Thread-safe.

/// Converts between UTF-8 and wide strings. An invalid byte b becomes the code unit 0xDC00 + b, which toUTF8
/// turns back into b, so every file name survives the round trip.
QX_PLATFORM_API LightweightString<char> toUTF8(const LightweightString<wchar_t>& text);
QX_PLATFORM_API LightweightString<wchar_t> fromUTF8(const LightweightString<char>& text);

/// Formats a byte count with a binary unit: "512 B", "1.5 GiB". If `shortUnits` is false the unit is spelt
/// out ("gibibytes").
QX_PLATFORM_API LightweightString<wchar_t> bytesAsString(unsigned long bytes, bool shortUnits);

/// Returns the text of a string resource, or an empty string for an unknown number.
QX_PLATFORM_API LightweightString<wchar_t> resourceStrW(int resource);

namespace Qx {

/// Formats a number with `decimals` digits after a '.'. If `keepTrailingZeros` is false, trailing zeros are
/// removed. NaN and infinities yield "nan", "inf" and "-inf".
QX_PLATFORM_API LightweightString<wchar_t> WStringFromFloat(double value, char decimals,
                                                            bool keepTrailingZeros);
QX_PLATFORM_API LightweightString<wchar_t> WStringFromInteger(long value);

} // namespace Qx
