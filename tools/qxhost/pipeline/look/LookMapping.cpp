#include "tools/qxhost/pipeline/look/LookMapping.h"

#include "host/core/Suggestion.h"

#include <algorithm>
#include <fmt/format.h>
#include <random>

namespace Qx::Program {

namespace {

using Host::Supply;

/// Whether another frame of the same picture has another value.
bool changesWithTime(Supply supply)
{
    switch (supply) {
    case Supply::Seconds:
    case Supply::Milliseconds:
    case Supply::SecondsBefore:
    case Supply::FrameNumber:
    case Supply::Date:
    case Supply::PlayerDate:
    case Supply::Random:
    case Supply::PingPong:
    case Supply::PlayerPicture:
        return true;
    case Supply::None:
    case Supply::FrameSeconds:
    case Supply::FrameMilliseconds:
    case Supply::FrameRate:
    case Supply::PictureSize:
    case Supply::TexelSize:
    case Supply::PictureWidth:
    case Supply::PictureHeight:
    case Supply::TexelWidth:
    case Supply::TexelHeight:
    case Supply::AspectRatio:
    case Supply::PointerPosition:
    case Supply::PointerPixel:
    case Supply::Rest:
    case Supply::PlayerTexel:
        break;
    }
    return false;
}

/// Colours of all kinds: corners, grey, and many others.
std::vector<DeepColour> manyColours(std::size_t count)
{
    std::vector<DeepColour> colours;
    for (unsigned corner = 0; corner < 8; ++corner) {
        const auto end = [&](unsigned c) { return static_cast<std::uint16_t>((corner >> c & 1U) * 0xFFFF); };
        colours.push_back({end(0), end(1), end(2)});
    }
    for (unsigned grey = 0; grey < 256; ++grey) {
        const auto code = static_cast<std::uint16_t>(grey * 257);
        colours.push_back({code, code, code});
    }
    std::mt19937 random(2);
    const auto code = [&random] { return static_cast<std::uint16_t>(random()); };
    while (colours.size() < count) {
        const std::uint16_t red = code();
        const std::uint16_t green = code();
        colours.push_back({red, green, code()});
    }
    return colours;
}

/// What the effect asks for that has other values in other frames; empty if nothing.
std::string timeAskedFor(const Host::CompiledEffect& effect, const LookLink& link)
{
    for (const Host::CompiledEffect::Parameter& parameter : effect.parameters) {
        const Supply supply = Host::supplyOf(parameter);
        if (changesWithTime(supply) && link.parameter(parameter.name) == nullptr) {
            return fmt::format("its parameter {} gets the {}", parameter.name, Host::meaningOf(supply));
        }
    }
    return {};
}

/// The steps that are on, with their numbers from 1.
std::vector<std::pair<std::size_t, const LookLink*>> stepsThatAreOn(const Look& look)
{
    std::vector<std::pair<std::size_t, const LookLink*>> steps;
    for (std::size_t i = 0; i < look.links.size(); ++i) {
        if (look.links[i].on) {
            steps.emplace_back(i + 1, &look.links[i]);
        }
    }
    return steps;
}

std::string nameOfStep(const std::pair<std::size_t, const LookLink*>& step)
{
    return fmt::format("step {}, {}", step.first,
                       std::filesystem::path(step.second->file).filename().string());
}

/// What is known without a drawing.
std::string knownObstacle(const Look& look, const EffectChain& effects)
{
    const auto steps = stepsThatAreOn(look);
    for (const auto& step : steps) {
        const auto& parameters = step.second->parameters;
        const auto keyed = std::find_if(parameters.begin(), parameters.end(),
                                        [](const LookParameter& each) { return each.keys.size() > 1; });
        if (keyed != parameters.end()) {
            return fmt::format("{}: {} has key frames", nameOfStep(step), keyed->name);
        }
    }
    for (std::size_t n = 0; n < steps.size(); ++n) {
        if (const std::string asked = timeAskedFor(effects.compiled(n), *steps[n].second); !asked.empty()) {
            return fmt::format("{}: {}", nameOfStep(steps[n]), asked);
        }
    }
    if (effects.framesBefore() > 0 || !effects.recursiveEffect().empty()) {
        return "an effect reads the frame before";
    }
    return {};
}

/// A way to draw the same colours, and what it has that the first has not.
struct OtherDrawing
{
    ColourPlaces places;
    const char* differs;
};

const ColourPlaces firstPlaces{.width = 128, .seed = 0, .facts = {}};

std::vector<OtherDrawing> otherDrawings()
{
    // One thing after the other, so that the message names the one that matters.
    return {{{.width = 128, .seed = 0, .facts = {.seconds = 7.4, .frameSeconds = 0.04, .number = 185}},
             "in another frame"},
            {{.width = 128, .seed = 11, .facts = {}}, "at another place, among other neighbours"},
            {{.width = 333, .seed = 12, .facts = {.seconds = 61.5, .frameSeconds = 0.02, .number = 3075}},
             "in a picture of another size"}};
}

struct Difference
{
    int codes = 0;
    const char* where = "";
};

Difference differenceOf(ColourDrawing& drawing, const std::vector<DeepColour>& colours)
{
    const std::vector<DeepColour> first = drawing.draw(colours, firstPlaces);
    Difference largest;
    for (const OtherDrawing& other : otherDrawings()) {
        const int codes = largestDifference(first, drawing.draw(colours, other.places));
        if (codes > roundingOfDrawings) {
            return {codes, other.differs};
        }
        largest.codes = std::max(largest.codes, codes);
    }
    return largest;
}

/// The first step that makes the difference: the chain up to it is drawn.
std::string culprit(const Look& look, const std::vector<DeepColour>& colours)
{
    const auto steps = stepsThatAreOn(look);
    std::vector<EffectRequest> requests;
    for (const auto& step : steps) {
        requests.push_back(effectRequest(*step.second));
        ColourDrawing drawing(requests);
        if (differenceOf(drawing, colours).codes > roundingOfDrawings) {
            return nameOfStep(step);
        }
    }
    return nameOfStep(steps.back());
}

} // namespace

MappingVerdict examineMapping(const Look& look, const std::filesystem::path& file)
{
    constexpr std::size_t tried = 16'000;
    std::vector<EffectRequest> requests = effectRequests(look);
    for (EffectRequest& request : requests) {
        request.look = file;
    }
    ColourDrawing drawing(requests);
    MappingVerdict verdict;
    verdict.obstacle = knownObstacle(look, drawing.effects());
    if (!verdict.isMapping()) {
        return verdict;
    }
    const std::vector<DeepColour> colours = manyColours(tried);
    const Difference difference = differenceOf(drawing, colours);
    verdict.difference = difference.codes / 65535.0;
    if (difference.codes > roundingOfDrawings) {
        verdict.obstacle =
            fmt::format("{}: the same colour comes out up to {:.3g} apart {}, where black is 0 "
                        "and white is 1",
                        culprit(look, colours), verdict.difference, difference.where);
    } else if (drawing.hasMadeAlpha()) {
        verdict.obstacle = "it makes pixels transparent";
    }
    return verdict;
}

} // namespace Qx::Program
