#include "host/luts/Numbers.h"

#include "host/core/AsciiCase.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <string>
#include <system_error>

namespace Qx::Host::Luts {

namespace {

std::string_view withoutPlus(std::string_view word)
{
    const bool plus = word.size() > 1 && word[0] == '+' && word[1] != '-';
    return plus ? word.substr(1) : word;
}

/// "inf", "-nan(ind)", "1.#INF" and their like, as C libraries write them.
bool namesNoFinite(std::string_view word)
{
    const std::string lower = asciiLower(word);
    const std::string_view bare = lower.find_first_of("+-") == 0 ? std::string_view(lower).substr(1) : lower;
    return bare == "inf" || bare == "infinity" || bare.substr(0, 3) == "nan" || bare.substr(0, 4) == "1.#i" ||
           bare.substr(0, 4) == "1.#q" || bare.substr(0, 4) == "1.#s";
}

} // namespace

bool beginsNumber(std::string_view word)
{
    return (!word.empty() && std::string_view("+-.0123456789").find(word[0]) != std::string_view::npos) ||
           namesNoFinite(word);
}

std::optional<float> number(std::string_view word)
{
    const std::string_view text = withoutPlus(word);
    double value = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool isWhole = end == text.data() + text.size() && error != std::errc::invalid_argument;
    if (!isWhole || (error == std::errc() && !std::isfinite(value))) {
        return namesNoFinite(word) ? std::optional(std::numeric_limits<float>::quiet_NaN()) : std::nullopt;
    }
    if (error == std::errc::result_out_of_range) {
        const bool tiny =
            text.find("e-") != std::string_view::npos || text.find("E-") != std::string_view::npos;
        return tiny ? 0.0F : std::numeric_limits<float>::infinity();
    }
    const bool fits = std::abs(value) <= static_cast<double>(std::numeric_limits<float>::max());
    return fits ? static_cast<float>(value) : std::numeric_limits<float>::infinity();
}

std::optional<long> wholeNumber(std::string_view word)
{
    const std::string_view text = withoutPlus(word);
    long value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (end != text.data() + text.size() || error == std::errc::invalid_argument) {
        return std::nullopt;
    }
    return error == std::errc() ? value : std::numeric_limits<long>::max();
}

} // namespace Qx::Host::Luts
