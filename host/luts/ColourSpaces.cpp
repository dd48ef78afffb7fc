#include "host/luts/ColourSpaces.h"

#include "host/core/Printable.h"
#include "host/core/Suggestion.h"
#include "host/files/SystemError.h"
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

LUTReading readColourSpaceChange(const ColourSpaceChange& change)
{
    LUTReading reading;
    try {
        Refusal refusal;
        const OCIO::ConstConfigRcPtr config = openConfig(change.config);
        const std::optional<Source> source = sourceOf(processorFor(config, change), Wanted::Steps, refusal);
        std::optional<LUTReading> found =
            source ? readingOf(*source, largestChangeError, refusal) : std::nullopt;
        if (found) {
            return *std::move(found);
        }
        reading.failure = failureOf(change.config, refusal.cause);
    } catch (const std::bad_alloc&) {
        reading.failure = "out of memory"; // short enough to need none itself
    } catch (const std::exception& failure) {
        reading.failure = failureOf(change.config, failure.what());
    }
    return reading;
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
