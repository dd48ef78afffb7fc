#include "plugins/mlt/Plans.h"

#include "host/core/Suggestion.h"
#include "host/fonts/TextPainter.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Wording.h"
#include "tools/qxhost/media/Matrices.h"
#include "tools/qxhost/pipeline/burnin/BurnInPosition.h"

#include <charconv>
#include <string_view>

namespace Qx::Mlt {

namespace {

using Program::EffectRequest;
using Program::ExitCode;
using Program::Failure;

std::string textOf(mlt_properties properties, const char* name, const char* otherwise = "")
{
    const char* const text = mlt_properties_get(properties, name);
    return text != nullptr ? text : otherwise;
}

/// The properties "texture.NAME".
std::vector<Program::TextureFile> texturesOf(mlt_properties properties)
{
    constexpr std::string_view prefix = "texture.";
    std::vector<Program::TextureFile> textures;
    for (int i = 0; i < mlt_properties_count(properties); ++i) {
        const std::string name = mlt_properties_get_name(properties, i);
        const char* const file = mlt_properties_get_value(properties, i);
        if (name.starts_with(prefix) && file != nullptr && *file != '\0') {
            textures.push_back({name.substr(prefix.size()), file});
        }
    }
    return textures;
}

EffectRequest requestOf(mlt_properties properties)
{
    EffectRequest request;
    request.file = textOf(properties, "effect");
    if (request.file.empty()) {
        throw Failure(ExitCode::effect,
                      "effect: is not set: expected the name of an effect or its file, as in "
                      "effect=cc3.fx");
    }
    request.technique = textOf(properties, "technique");
    request.textures = texturesOf(properties);
    return request;
}

bool readNumber(std::string_view text, int& number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

std::variant<Program::BurnInAnchor, Program::BurnInPlace> positionOf(const std::string& text)
{
    const auto position = Program::positionNamed(text);
    if (!position) {
        const std::vector<std::string> words = Program::positionWords();
        throw Failure(ExitCode::usage, "place: invalid value \"" + text + "\"" +
                                           Host::didYouMean(text, words) + ": expected " +
                                           Program::listed(words, "or") + ", or X,Y in pixels");
    }
    return *position;
}

} // namespace

Service::Plan effectPlan(mlt_properties properties)
{
    Service::Plan plan;
    plan.steps.effects.push_back(requestOf(properties));
    plan.known = {"effect", "technique", "device"};
    return plan;
}

Service::Plan lutPlan(mlt_properties properties)
{
    Service::Plan plan;
    EffectRequest request;
    request.file = Program::tableEffect;
    request.lut = textOf(properties, "lut");
    if (request.lut.empty()) {
        throw Failure(ExitCode::effect, "lut: is not set: expected a LUT file, as in lut=film.cube");
    }
    plan.steps.effects.push_back(std::move(request));
    plan.known = {"lut", "device"};
    return plan;
}

Service::Plan textPlan(mlt_properties properties)
{
    Service::Plan plan;
    plan.steps.text.text = textOf(properties, "text", "{timecode}");
    plan.steps.text.font = textOf(properties, "font");
    const std::string size = textOf(properties, "size", "0");
    const bool isNumber = readNumber(size, plan.steps.text.size);
    const bool isGiven = size != "0";
    if (!isNumber || (isGiven && (plan.steps.text.size < Host::Text::smallestFont ||
                                  plan.steps.text.size > Host::Text::largestFont))) {
        throw Failure(ExitCode::usage, "size: invalid value \"" + size + "\": expected " +
                                           std::to_string(Host::Text::smallestFont) + " to " +
                                           std::to_string(Host::Text::largestFont) +
                                           " pixels, or 0 for a size by the picture's height");
    }
    plan.steps.text.position = positionOf(textOf(properties, "place", "bottom"));
    plan.steps.clip = textOf(properties, "clip");
    plan.steps.timeCode = textOf(properties, "timecode");
    return plan;
}

Service::Plan convertPlan(mlt_properties properties)
{
    Service::Plan plan;
    const std::string matrix = textOf(properties, "matrix");
    std::vector<std::string> words;
    for (const Media::MatrixInfo& info : Media::matrices()) {
        if (matrix == info.word) {
            plan.toMatrix = info.matrix;
        }
        words.emplace_back(info.word);
    }
    if (!plan.toMatrix && !matrix.empty()) {
        throw Failure(ExitCode::usage,
                      "matrix: invalid value \"" + matrix + "\": expected " + Program::listed(words, "or"));
    }
    return plan;
}

Service::Plan transitionPlan(mlt_properties properties)
{
    Service::Plan plan;
    EffectRequest request = requestOf(properties);
    plan.steps.effects.push_back(std::move(request));
    plan.readsSecond = true;
    plan.second = textOf(properties, "input");
    plan.progress = textOf(properties, "progress", "amount");
    plan.known = {"effect", "technique", "device", "input", "progress"};
    return plan;
}

} // namespace Qx::Mlt
