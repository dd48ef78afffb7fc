#include "host/effects/framework/AnnotationNumbers.h"

#include <cctype>
#include <charconv>
#include <system_error>

namespace Qx::Host::Effects {

std::vector<double> numbersIn(std::string_view text)
{
    std::vector<double> numbers;
    bool divides = false;
    for (const char *at = text.data(), *const end = at + text.size(); at != end;) {
        double value = 0;
        if (std::isalpha(static_cast<unsigned char>(*at)) != 0) {
            while (at != end && std::isalnum(static_cast<unsigned char>(*at)) != 0) {
                ++at;
            }
            continue;
        }
        const auto [next, error] = std::from_chars(at, end, value);
        if (error != std::errc()) {
            divides = *at == '/' || (divides && *at == ' ');
            ++at;
            continue;
        }
        if (divides && !numbers.empty()) {
            numbers.back() /= value;
        } else {
            numbers.push_back(value);
        }
        divides = false;
        at = next;
    }
    return numbers;
}

} // namespace Qx::Host::Effects
