#include "host/luts/ColourSpaces.h"

#include "host/core/Printable.h"
#include "host/core/Suggestion.h"
#include "host/files/SystemError.h"
#include "host/luts/CLFText.h"
#include "host/luts/ColourIOSource.h"
#include "host/luts/StepBuilding.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <fmt/format.h>
#include <stdexcept>
#include <sys/stat.h>

namespace Qx::Host {

namespace {

using namespace Luts;

constexpr off_t mostConfigBytes = off_t{16} << 20U;
constexpr std::size_t mostNamed = 40; // names in a message

std::string firstLine(const char* text)
{
    const std::string_view all = text == nullptr ? "" : text;
    const std::size_t begin = std::min(all.find_first_not_of(" \t\r\n"), all.size());
    return printable(std::string(all.substr(begin, all.find('\n', begin) - begin)));
}

std::string listedNames(const std::vector<std::string>& names)
{
    std::string all;
    for (std::size_t i = 0; i < names.size() && i < mostNamed; ++i) {
        all += (i == 0 ? "" : ", ") + names[i];
    }
    return names.size() > mostNamed ? all + fmt::format(" and {} more", names.size() - mostNamed) : all;
}

/// OpenColorIO would wait for a pipe, and read a device without end.
OCIO::ConstConfigRcPtr openConfig(const std::filesystem::path& file)
{
    struct stat status = {};
    if (file.empty() || ::stat(file.c_str(), &status) != 0) {
        throw std::runtime_error(file.empty() || errno == ENOENT ? "there is no such file"
                                                                 : systemProblem(errno));
    }
    if (!S_ISREG(status.st_mode)) {
        throw std::runtime_error("is not a file; give the configuration's .ocio file");
    }
    if (status.st_size > mostConfigBytes) {
        throw std::runtime_error(
            fmt::format("has {} bytes: expected an OpenColorIO configuration of at most {}", status.st_size,
                        mostConfigBytes));
    }
    static_cast<void>(plainConfig()); // sends warnings to the log
    const OCIO::ConfigRcPtr config = OCIO::Config::CreateFromFile(file.c_str())->createEditableCopy();
    config->setProcessorCacheFlags(OCIO::PROCESSOR_CACHE_OFF);
    return config;
}

std::vector<std::string> spacesOf(const OCIO::ConstConfigRcPtr& config)
{
    std::vector<std::string> names;
    for (int i = 0; i < config->getNumColorSpaces(); ++i) {
        names.emplace_back(config->getColorSpaceNameByIndex(i));
    }
    return names;
}

std::vector<std::string> rolesOf(const OCIO::ConstConfigRcPtr& config)
{
    std::vector<std::string> names;
    for (int i = 0; i < config->getNumRoles(); ++i) {
        names.emplace_back(config->getRoleName(i));
    }
    return names;
}

std::vector<std::string> displaysOf(const OCIO::ConstConfigRcPtr& config)
{
    std::vector<std::string> names;
    for (int i = 0; i < config->getNumDisplays(); ++i) {
        names.emplace_back(config->getDisplay(i));
    }
    return names;
}

std::vector<std::string> viewsOf(const OCIO::ConstConfigRcPtr& config, const std::string& display)
{
    std::vector<std::string> names;
    for (int i = 0; i < config->getNumViews(display.c_str()); ++i) {
        names.emplace_back(config->getView(display.c_str(), i));
    }
    return names;
}

void requireSpace(const OCIO::ConstConfigRcPtr& config, const std::string& name)
{
    if (config->getColorSpace(name.c_str()) == nullptr) {
        std::vector<std::string> known = spacesOf(config);
        const std::string named = listedNames(known);
        const std::vector<std::string> roles = rolesOf(config);
        known.insert(known.end(), roles.begin(), roles.end());
        throw std::runtime_error(fmt::format("there is no colour space \"{}\"{}; there are {}", name,
                                             didYouMean(name, known), named));
    }
}

/// The view's name, in which an empty one is the default.
std::string requireView(const OCIO::ConstConfigRcPtr& config, const ColourSpaceChange& change)
{
    const std::vector<std::string> displays = displaysOf(config);
    if (std::find(displays.begin(), displays.end(), change.display) == displays.end()) {
        throw std::runtime_error(fmt::format("there is no display \"{}\"{}; there are {}", change.display,
                                             didYouMean(change.display, displays), listedNames(displays)));
    }
    if (change.view.empty()) {
        return config->getDefaultView(change.display.c_str());
    }
    const std::vector<std::string> views = viewsOf(config, change.display);
    if (std::find(views.begin(), views.end(), change.view) == views.end()) {
        throw std::runtime_error(fmt::format("the display \"{}\" has no view \"{}\"{}; it has {}",
                                             change.display, change.view, didYouMean(change.view, views),
                                             listedNames(views)));
    }
    return change.view;
}

OCIO::ConstProcessorRcPtr processorFor(const OCIO::ConstConfigRcPtr& config, const ColourSpaceChange& change)
{
    for (const std::string& space : {change.from, change.to}) {
        if (!space.empty()) {
            requireSpace(config, space);
        }
    }
    if (change.display.empty()) {
        return config->getProcessor(change.from.c_str(), change.to.c_str());
    }
    const bool toDisplay = change.to.empty();
    return config->getProcessor(toDisplay ? change.from.c_str() : change.to.c_str(), change.display.c_str(),
                                requireView(config, change).c_str(),
                                toDisplay ? OCIO::TRANSFORM_DIR_FORWARD : OCIO::TRANSFORM_DIR_INVERSE);
}

constexpr std::string_view effectBeginning = R"(texture Input;

sampler InputSampler = sampler_state
{
    Texture = <Input>;
    MinFilter = Point;
    MagFilter = Point;
    AddressU = Clamp;
    AddressV = Clamp;
};

float amount = 1.0;
float targetMax : TARGETMAXCODE;
)";

constexpr std::string_view effectEnd = R"(
float4 change(float2 uv : TEXCOORD0) : COLORCODE
{
    float4 pixel = tex2D(InputSampler, uv);
    float3 changed = changedColour(float4(pixel.rgb, 1.0)).rgb;
    float3 colour = changed * amount + pixel.rgb * (1.0 - amount);
    return float4(colour, pixel.a) * targetMax + 0.5;
}

technique Change < bool Packed = false; >
{
    pass P0
    {
        PixelShader = compile ps_3_0 change();
    }
}
)";

/// OpenColorIO's own shader as an effect. Empty if it reads tables: devices' filters have only 256 steps
/// between two entries.
std::string effectOf(const OCIO::ConstProcessorRcPtr& processor)
{
    OCIO::GpuShaderDescRcPtr shader = OCIO::GpuShaderDesc::CreateShaderDesc();
    shader->setLanguage(OCIO::GPU_LANGUAGE_HLSL_DX11);
    shader->setFunctionName("changedColour");
    shader->setResourcePrefix("qx_");
    processor->getOptimizedGPUProcessor(OCIO::OPTIMIZATION_LOSSLESS)->extractGpuShaderInfo(shader);
    if (shader->getNumTextures() + shader->getNum3DTextures() + shader->getNumUniforms() > 0) {
        return {};
    }
    std::string text = shader->getShaderText();
    // Before OpenColorIO 2.3, the operands of HLSL's atan2 were taken to be the other way round: a is x here,
    // b is y.
    text = replaced(text, "atan2(a, b)", "atan2(b, a)");
    // Constants that are no parameters: a curve that is not used then costs nothing.
    text = replaced(text, "\nconst ", "\nstatic const ");
    return std::string(effectBeginning) + text + std::string(effectEnd);
}

std::string inOneLine(std::string text)
{
    std::replace(text.begin(), text.end(), '\n', ' ');
    return printable(text);
}

std::string failureOf(const std::filesystem::path& config, const std::string& cause)
{
    return printable(config.native()) + ": " + inOneLine(cause);
}

} // namespace

ColourSpaceReading readColourSpaceChange(const ColourSpaceChange& change, LUTInput input)
{
    ColourSpaceReading reading;
    try {
        Refusal refusal;
        const OCIO::ConstConfigRcPtr config = openConfig(change.config);
        const OCIO::ConstProcessorRcPtr processor = processorFor(config, change);
        const std::optional<Source> source = sourceOf(processor, Wanted::Steps, refusal);
        std::optional<LUTReading> steps =
            source ? readingOf(*source, {largestViewError, input}, refusal) : std::nullopt;
        if (steps && steps->error <= largestLUTError) {
            reading.steps = *std::move(steps);
            return reading;
        }
        reading.effect = source ? effectOf(processor) : std::string();
        if (!reading.effect.empty()) {
            reading.steps.facts = source->facts;
        } else if (steps) {
            reading.steps = *std::move(steps);
        } else {
            reading.steps.failure = failureOf(change.config, refusal.cause);
        }
    } catch (const std::bad_alloc&) {
        reading.steps.failure = "out of memory"; // short enough to need none itself
    } catch (const std::exception& failure) {
        reading.steps.failure = failureOf(change.config, failure.what());
    }
    return reading;
}

ColourSpaceReading readColourSpaceChange(const ColourSpaceChange& change)
{
    return readColourSpaceChange(change, LUTInput::Codes);
}

ColourSpaceList listColourSpaces(const std::filesystem::path& config)
{
    ColourSpaceList list;
    try {
        const OCIO::ConstConfigRcPtr opened = openConfig(config);
        list.description = firstLine(opened->getDescription());
        for (const std::string& name : spacesOf(opened)) {
            const OCIO::ConstColorSpaceRcPtr space = opened->getColorSpace(name.c_str());
            list.spaces.push_back({name, space->getFamily(), firstLine(space->getDescription())});
        }
        for (const std::string& role : rolesOf(opened)) {
            const OCIO::ConstColorSpaceRcPtr space = opened->getColorSpace(role.c_str());
            list.roles.push_back(role + (space ? ": " + std::string(space->getName()) : ""));
        }
        for (const std::string& display : displaysOf(opened)) {
            list.displays.push_back({display, viewsOf(opened, display)});
        }
    } catch (const std::exception& failure) {
        list = {};
        list.failure = failureOf(config, failure.what());
    }
    return list;
}

} // namespace Qx::Host
