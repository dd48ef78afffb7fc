#include "tools/qxhost/diagnose/StepEffects.h"

#include "host/Host.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/diagnose/Timing.h"
#include "tools/qxhost/pipeline/effects/EffectFile.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <set>
#include <string>

namespace Qx::Diagnosis {

namespace {

/// The text of the first error, without its place.
std::string firstError(const std::string& errors)
{
    constexpr std::string_view mark = " error: ";
    const std::string line = errors.substr(0, errors.find('\n'));
    const std::size_t at = line.find(mark);
    return at == std::string::npos ? line : line.substr(at + mark.size());
}

/// Returns why the effect is unavailable; empty if it is available.
std::string problemOf(const std::string& effect)
{
    if (!Program::isCatalogued(effect)) {
        const auto directories = Host::effectDirectories();
        return fmt::format("not in {}; install the program again, or correct the setting shaders_dir",
                           directories.empty() ? "the shaders directory" : directories.front().view());
    }
    try {
        Program::obtainEffect(effect);
    } catch (const Program::Failure& failure) {
        return firstError(failure.details());
    }
    return {};
}

/// The reason for each effect that is unavailable.
std::map<std::string, std::string> problemsOf(Probe& probe, const std::vector<Step>& chosen)
{
    std::set<std::string> tried;
    std::map<std::string, std::string> problems;
    for (const Step& step : chosen) {
        for (const char* effect : step.effects) {
            if (!tried.insert(effect).second) {
                continue;
            }
            probe.compiling(fmt::format("compiling {}", effect));
            if (std::string problem = problemOf(effect); !problem.empty()) {
                problems.emplace(effect, std::move(problem));
            }
        }
    }
    return problems;
}

/// Effects with the same problem are told together.
std::string sentenceOf(const std::map<std::string, std::string>& problems)
{
    std::map<std::string, std::string> effects; // by problem
    for (const auto& [effect, problem] : problems) {
        std::string& names = effects[problem];
        names += (names.empty() ? "" : ", ") + effect;
    }
    std::string text;
    for (const auto& [problem, names] : effects) {
        text += fmt::format("{}: {}; ", names, problem);
    }
    return text;
}

} // namespace

void compileEffects(Probe& probe, std::vector<Step>& chosen)
{
    const std::map<std::string, std::string> problems = problemsOf(probe, chosen);
    if (problems.empty()) {
        return;
    }
    std::string leftOut;
    std::erase_if(chosen, [&](const Step& step) {
        const bool lacks = std::any_of(step.effects.begin(), step.effects.end(),
                                       [&](const char* effect) { return problems.contains(effect); });
        if (lacks) {
            leftOut += fmt::format("{}{}", leftOut.empty() ? "" : ", ", step.name);
        }
        return lacks;
    });
    Figure figure = notMeasured(std::string(effectsFigure), "checks", "The effects to draw with", "",
                                fmt::format("{}left out for it: {}", sentenceOf(problems), leftOut));
    figure.failed = true;
    probe.send(figure);
}

} // namespace Qx::Diagnosis
