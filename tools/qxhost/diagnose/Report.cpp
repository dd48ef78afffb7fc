#include "tools/qxhost/diagnose/Report.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

namespace Qx::Diagnosis {

namespace {

constexpr std::size_t fewestSamples = 8;

double medianOf(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// Each sample's place among all when sorted.
std::vector<double> ranks(const std::vector<double>& samples)
{
    std::vector<std::size_t> order(samples.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return samples[a] < samples[b]; });
    std::vector<double> places(samples.size());
    for (std::size_t i = 0; i < order.size(); ++i) {
        places[order[i]] = static_cast<double>(i);
    }
    return places;
}

/// Spearman's rank correlation of the samples with time: 1 when each is above the one before.
double riseOverTime(const std::vector<double>& samples)
{
    const std::vector<double> places = ranks(samples);
    double squares = 0;
    for (std::size_t i = 0; i < places.size(); ++i) {
        const double distance = places[i] - static_cast<double>(i);
        squares += distance * distance;
    }
    const auto n = static_cast<double>(samples.size());
    return 1.0 - 6.0 * squares / (n * (n * n - 1.0));
}

} // namespace

const std::vector<Group>& groups()
{
    static const std::vector<Group> all{
        {"suite", "The suite's rates: how fast orders are taken, which the device may fall behind"},
        {"copies", "What a plain copy makes on this machine"},
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
