#include "platform/Text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <limits>
#include <string>
#include <string_view>

namespace {

LightweightString<wchar_t> widen(std::string_view ascii)
{
    return LightweightString<wchar_t>(std::wstring_view(std::wstring(ascii.begin(), ascii.end())));
}

std::string fixedText(double value, int decimals, bool keepTrailingZeros)
{
    if (std::isnan(value)) {
        return "nan";
    }
    // Room for every digit of the largest double, a sign, a point and the most decimals that a char can hold.
    std::array<char, std::numeric_limits<double>::max_exponent10 + 4 + std::numeric_limits<char>::max()>
        buffer;
    const std::to_chars_result end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value,
                                                   std::chars_format::fixed, decimals);
    std::string text(buffer.data(), end.ptr);
    if (!keepTrailingZeros && text.find('.') != std::string::npos) {
        text.erase(text.find_last_not_of('0') + 1);
        if (text.back() == '.') {
            text.pop_back();
        }
    }
    // For people, "-0" is 0.
    if (text.front() == '-' && text.find_first_not_of("-0.") == std::string::npos) {
        text.erase(0, 1);
    }
    return text;
}

struct ByteUnit
{
    const char* shortName;
    const char* longName;
};

constexpr ByteUnit byteUnits[] = {{"B", "byte"},       {"KiB", "kibibyte"}, {"MiB", "mebibyte"},
                                  {"GiB", "gibibyte"}, {"TiB", "tebibyte"}, {"PiB", "pebibyte"},
                                  {"EiB", "exbibyte"}};

} // namespace

LightweightString<wchar_t> bytesAsString(unsigned long bytes, bool shortUnits)
{
    std::size_t unit = 0;
    auto amount = static_cast<double>(bytes);
    // 1023.95 and more would round to "1024" of the smaller unit.
    while (amount >= (unit == 0 ? 1024.0 : 1023.95) && unit + 1 < std::size(byteUnits)) {
        amount /= 1024.0;
        ++unit;
    }
    std::string text = fixedText(amount, 1, false);
    const bool single = text == "1";
    text += ' ';
    text += shortUnits ? byteUnits[unit].shortName : byteUnits[unit].longName;
    if (!shortUnits && !single) {
        text += 's';
    }
    return widen(text);
}

namespace Qx {

LightweightString<wchar_t> WStringFromFloat(double value, char decimals, bool keepTrailingZeros)
{
    return widen(fixedText(value, std::max<int>(decimals, 0), keepTrailingZeros));
}

LightweightString<wchar_t> WStringFromInteger(long value)
{
    return widen(std::to_string(value));
}

} // namespace Qx
