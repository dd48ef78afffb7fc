#pragma once

#include "Qx/LightweightString.h"
#include "platform/Api.h"

/// Text services. All independent of the process's locale; any thread.

/// UTF-8 to wide and back. What is not valid UTF-8 is kept: each stray byte b becomes the code unit 0xDC00 +
/// b, and toUTF8 turns it into that byte again, so that every file name survives the round trip.
QX_PLATFORM_API LightweightString<char> toUTF8(const LightweightString<wchar_t>& text);
QX_PLATFORM_API LightweightString<wchar_t> fromUTF8(const LightweightString<char>& text);

/// A byte count for people: "512 B", "1.5 GiB". With `shortUnits` false the unit is spelt out ("gibibytes").
QX_PLATFORM_API LightweightString<wchar_t> bytesAsString(unsigned long bytes, bool shortUnits);

/// The text of a string resource; empty for an unknown number.
QX_PLATFORM_API LightweightString<wchar_t> resourceStrW(int resource);

namespace Qx {

/// A number with that many decimals ('.' separates them). `keepTrailingZeros` false cuts zeros at the end.
/// NaN and infinities read "nan", "inf" and "-inf".
QX_PLATFORM_API LightweightString<wchar_t> WStringFromFloat(double value, char decimals,
                                                            bool keepTrailingZeros);
QX_PLATFORM_API LightweightString<wchar_t> WStringFromInteger(long value);

} // namespace Qx
