#include "host/fonts/Font.h"

#include <algorithm>
#include <cmath>

namespace Qx::Host::Text {

namespace {

bool isColour(const NormalisedRGB& colour)
{
    return std::isfinite(colour.red) && std::isfinite(colour.green) && std::isfinite(colour.blue) &&
           std::isfinite(colour.alpha);
}

NormalisedRGB held(const NormalisedRGB& colour)
{
    const auto unit = [](float value) { return std::clamp(value, 0.0F, 1.0F); };
    return {unit(colour.red), unit(colour.green), unit(colour.blue), unit(colour.alpha)};
}

} // namespace

bool Font::complain(unsigned kind, const std::string& what)
{
    const unsigned bit = 1U << kind;
    if ((complaints_.fetch_or(bit) & bit) == 0) {
        Vulkan::report("Fonts: " + what);
    }
    return false;
}

bool Font::isLine(const LightweightString<wchar_t>& text)
{
    return text.length() <= TextShaper::longestLine ||
           complain(0, "a text of " + std::to_string(text.length()) +
                           " characters is not drawn; a line has at most " +
                           std::to_string(TextShaper::longestLine));
}

XY<int> Font::measure(const LightweightString<wchar_t>& text)
{
    return Vulkan::guarded(XY<int>{0, 0}, [&]() -> XY<int> {
        if (!isLine(text)) {
            return {0, 0};
        }
        return {shaper_->shape(text.view()).width, shaper_->ascent() + shaper_->descent()};
    });
}

bool Font::draw(Qx::Ptr<iGPUImage> target, const LightweightString<wchar_t>& text, XY<int> position,
                const NormalisedRGB& colour, eAlpha alpha)
{
    return Vulkan::guarded(false, [&] {
        Vulkan::Context& context = renderer_->context();
        const Vulkan::Operation operation(context);
        if (!operation) {
            return false;
        }
        Vulkan::GPUImage* const image = Vulkan::usableImage(context, target.get());
        if (image == nullptr) {
            return complain(
                1, "text cannot be drawn: the target is missing, belongs to another device or is given away");
        }
        if (!isColour(colour)) {
            return complain(2, "text cannot be drawn: its colour is not a number");
        }
        if (!isLine(text)) {
            return false;
        }
        const std::int64_t baseline = std::int64_t{position.y} + shaper_->ascent();
        if (baseline > std::numeric_limits<int>::max()) {
            return true;
        }
        return renderer_->draw(image->picture(), shaper_->shape(text.view()),
                               {position.x, static_cast<int>(baseline)}, held(colour), alpha);
    });
}

} // namespace Qx::Host::Text
