#include "tools/qxhost/pipeline/look/ColourDrawing.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <random>

namespace Qx::Program {

namespace {

constexpr std::uint16_t opaque = 0xFFFF;
constexpr std::size_t componentsOfPixel = 4; // A R G B

FrameForm formOfColours(unsigned width, std::size_t count)
{
    FrameForm form;
    form.format = parsePixelFormat("", "argb:16");
    form.width = width;
    form.height = static_cast<unsigned>((count + width - 1) / width);
    return form;
}

/// Which pixel each colour lies in.
std::vector<std::size_t> pixelsOf(std::size_t colours, std::size_t pixels, std::mt19937& random, bool inOrder)
{
    std::vector<std::size_t> all(pixels);
    std::iota(all.begin(), all.end(), std::size_t{0});
    for (std::size_t i = pixels; !inOrder && i > 1; --i) {
        std::swap(all[i - 1], all[random() % i]); // std::shuffle is not the same everywhere
    }
    all.resize(colours);
    return all;
}

FrameSteps stepsOfColours(const std::vector<EffectRequest>& effects)
{
    FrameSteps steps;
    steps.effects = effects;
    return steps;
}

} // namespace

ColourDrawing::ColourDrawing(const std::vector<EffectRequest>& effects) : processor_(stepsOfColours(effects))
{
}

std::vector<DeepColour> ColourDrawing::draw(const std::vector<DeepColour>& colours,
                                            const ColourPlaces& places)
{
    const FrameForm form = formOfColours(places.width, colours.size());
    const std::size_t width = form.width;
    const std::size_t pixels = width * form.height;
    std::mt19937 random(places.seed);
    const std::vector<std::size_t> place = pixelsOf(colours.size(), pixels, random, places.seed == 0);
    std::vector<std::uint16_t> picture(pixels * componentsOfPixel);
    for (std::size_t i = 0; i < picture.size(); ++i) {
        picture[i] = i % componentsOfPixel == 0 ? opaque : static_cast<std::uint16_t>(random());
    }
    for (std::size_t i = 0; i < colours.size(); ++i) {
        std::copy(colours[i].begin(), colours[i].end(), &picture[place[i] * componentsOfPixel + 1]);
    }
    const std::size_t rowBytes = width * componentsOfPixel * sizeof(std::uint16_t);
    std::vector<std::uint16_t> result(picture.size());
    const auto fill = [&](void* rows, std::ptrdiff_t pitch) {
        for (std::size_t y = 0; y < form.height; ++y) {
            std::memcpy(static_cast<std::byte*>(rows) + static_cast<std::ptrdiff_t>(y) * pitch,
                        &picture[y * width * componentsOfPixel], rowBytes);
        }
    };
    const auto take = [&](const void* rows, std::ptrdiff_t pitch) {
        for (std::size_t y = 0; y < form.height; ++y) {
            std::memcpy(&result[y * width * componentsOfPixel],
                        static_cast<const std::byte*>(rows) + static_cast<std::ptrdiff_t>(y) * pitch,
                        rowBytes);
        }
    };
    processor_.process({{form, fill}}, form, take, places.facts);
    std::vector<DeepColour> drawn(colours.size());
    for (std::size_t i = 0; i < colours.size(); ++i) {
        const std::uint16_t* const pixel = &result[place[i] * componentsOfPixel];
        hasMadeAlpha_ = hasMadeAlpha_ || pixel[0] != opaque;
        std::copy(pixel + 1, pixel + componentsOfPixel, drawn[i].begin());
    }
    return drawn;
}

int largestDifference(const std::vector<DeepColour>& a, const std::vector<DeepColour>& b)
{
    int largest = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        for (std::size_t c = 0; c < 3; ++c) {
            largest = std::max(largest, std::abs(int{a[i][c]} - int{b[i][c]}));
        }
    }
    return largest;
}

} // namespace Qx::Program
