#include "host/effects/framework/ParameterRange.h"

#include "host/effects/framework/Lexer.h"

#include <locale>
#include <sstream>

namespace Qx::Host {
namespace {

/// The value of the first annotation with one of the names.
const std::string* find(const CompiledEffect::Parameter& parameter, std::string_view name,
                        std::string_view other)
{
    for (const CompiledEffect::Annotation& annotation : parameter.annotations) {
        if (Effects::equalIgnoringCase(annotation.name, name) ||
            Effects::equalIgnoringCase(annotation.name, other)) {
            return &annotation.value;
        }
    }
    return nullptr;
}

std::optional<double> number(const std::string* text)
{
    if (text == nullptr) {
        return std::nullopt;
    }
    const bool negative = text->starts_with('-');
    double value = 0.0;
    bool integer = false;
    if (!Effects::readNumber(std::string_view(*text).substr(negative ? 1 : 0), value, integer)) {
        return std::nullopt;
    }
    return negative ? -value : value;
}

} // namespace

std::string written(double number)
{
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << number;
    return text.str();
}

bool ParameterRange::holds(float value) const
{
    return !(least && value < static_cast<float>(*least)) && !(most && value > static_cast<float>(*most));
}

std::string ParameterRange::written() const
{
    if (least && most) {
        return "from " + Host::written(*least) + " to " + Host::written(*most);
    }
    return least ? "of at least " + Host::written(*least) : "of at most " + Host::written(*most);
}

ParameterRange rangeOf(const CompiledEffect::Parameter& parameter)
{
    const std::string* const label = find(parameter, "Label", "UIName");
    return {number(find(parameter, "Min", "UIMin")), number(find(parameter, "Max", "UIMax")),
            label == nullptr ? std::string() : *label};
}

} // namespace Qx::Host
