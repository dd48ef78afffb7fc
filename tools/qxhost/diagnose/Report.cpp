#include "tools/qxhost/diagnose/Report.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <fmt/format.h>

namespace Qx::Diagnosis {

namespace {

constexpr std::size_t fewestSamples = 12;

double medianOf(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// Each sample's place among all when sorted; equal ones share the mean of theirs.
std::vector<double> ranks(const std::vector<double>& samples)
{
    std::vector<double> sorted = samples;
    std::sort(sorted.begin(), sorted.end());
    std::vector<double> places;
    for (const double sample : samples) {
        const auto [first, end] = std::equal_range(sorted.begin(), sorted.end(), sample);
        places.push_back(static_cast<double>((first - sorted.begin()) + (end - sorted.begin()) - 1) / 2);
    }
    return places;
}

/// Spearman's rank correlation of the samples with time: 1 when each is above the one before.
double riseOverTime(const std::vector<double>& samples)
{
    const std::vector<double> places = ranks(samples);
    const double middle = static_cast<double>(samples.size() - 1) / 2; // of either kind of rank
    double together = 0;
    double ofPlaces = 0;
    double ofTimes = 0;
    for (std::size_t i = 0; i < places.size(); ++i) {
        const double place = places[i] - middle;
        const double time = static_cast<double>(i) - middle;
        together += place * time;
        ofPlaces += place * place;
        ofTimes += time * time;
    }
    return ofPlaces > 0 ? together / std::sqrt(ofPlaces * ofTimes) : 0;
}

} // namespace

const std::vector<Group>& groups()
{
    static const std::vector<Group> all{
        {"suite", "The suite's rates: how fast orders are taken, which the device may fall behind"},
        {"copies", "What a plain copy makes on this machine (in memory: one thread)"},
        {"transfers", "Moving frames to the device and back"},
        {"latency", "One small frame, there and back"},
        {"conversions", "Conversions on the device, 1920 x 1080"},
        {"looks", "Looks and text on the device, 1920 x 1080"},
        {"frames", "Whole frames: up, 4:2:2 to RGB, an effect, RGB to 4:2:2, and back"},
        {"streams", "Several streams of whole frames at once, 1920 x 1080"},
        {"compiling", "Compiling effects"},
        {"checks", "Is it right?"},
        {"memory", "Memory"},
    };
    return all;
}

bool wantsPacked(const Report& report, std::string_view group)
{
    const bool named = std::find(report.only.begin(), report.only.end(), group) != report.only.end();
    return report.only.empty() ? !(report.quick && group == "suite") : named;
}

const Figure* find(const Report& report, std::string_view id)
{
    const auto found = std::find_if(report.figures.begin(), report.figures.end(),
                                    [&](const Figure& figure) { return figure.id == id; });
    return found != report.figures.end() ? &*found : nullptr;
}

std::optional<double> valueOf(const Report& report, std::string_view id)
{
    const Figure* figure = find(report, id);
    return figure != nullptr ? figure->value : std::nullopt;
}

std::string busyness(const Machine& machine)
{
    if (!machine.load || machine.load->average < machine.load->processors / 2.0) {
        return {};
    }
    return fmt::format("a load of {:.1f} on {} {}", machine.load->average, machine.load->processors,
                       machine.load->processors == 1 ? "processor" : "processors");
}

std::string_view describe(Basis basis)
{
    switch (basis) {
    case Basis::device:
        return "by the device's clock";
    case Basis::waited:
        return "until the device was done";
    case Basis::submitted:
        return "submission only";
    case Basis::processor:
        return "on the processor";
    case Basis::counted:
        break;
    }
    return "";
}

std::optional<double> slowdown(const std::vector<double>& samples)
{
    constexpr double steady = 0.85;
    constexpr double notable = 1.5;
    if (samples.size() < fewestSamples || riseOverTime(samples) < steady) {
        return std::nullopt;
    }
    const auto quarter = static_cast<std::ptrdiff_t>(samples.size() / 4);
    const double first = medianOf({samples.begin(), samples.begin() + quarter});
    const double last = medianOf({samples.end() - quarter, samples.end()});
    return first > 0 && last >= notable * first ? std::optional(last / first) : std::nullopt;
}

} // namespace Qx::Diagnosis
