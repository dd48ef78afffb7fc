#include "tools/qxhost/pipeline/look/LookDecision.h"

#include "host/luts/LUTReader.h"
#include "tools/qxhost/pipeline/look/LookTable.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>
#include <numbers>
#include <optional>

namespace Qx::Program {

namespace {

using Colour = std::array<double, 3>;

const ColourPlaces placesOfDecisions{.width = 1024, .seed = 0, .facts = {}};

/// A colour and what the look draws of it.
struct Sample
{
    Colour in{};
    Colour out{};
};

/// ITU-R BT.709-6, item 3.2, as the list of decisions has it.
double lumaOf(const Colour& colour)
{
    return 0.2126 * colour[0] + 0.7152 * colour[1] + 0.0722 * colour[2];
}

Colour doubles(const DeepColour& code)
{
    return {code[0] / 65535.0, code[1] / 65535.0, code[2] / 65535.0};
}

bool isClipped(const Colour& colour)
{
    constexpr double margin = 0.004;
    return std::any_of(colour.begin(), colour.end(),
                       [](double each) { return each < margin || each > 1 - margin; });
}

/// What the look draws, without what it clips.
std::vector<Sample> samplesOf(ColourDrawing& drawing, const std::vector<DeepColour>& colours)
{
    const std::vector<DeepColour> drawn = drawing.draw(colours, placesOfDecisions);
    std::vector<Sample> samples;
    for (std::size_t i = 0; i < colours.size(); ++i) {
        if (const Colour out = doubles(drawn[i]); !isClipped(out)) {
            samples.push_back({doubles(colours[i]), out});
        }
    }
    return samples;
}

/// Colours that share each channel's value with many others.
std::vector<DeepColour> coloursOfGrid()
{
    constexpr int levels = 12;
    std::vector<DeepColour> colours;
    const auto code = [](int i) { return static_cast<std::uint16_t>(65535 * (i + 1) / (levels + 1)); };
    for (int i = 0; i < levels * levels * levels; ++i) {
        colours.push_back({code(i % levels), code(i / levels % levels), code(i / levels / levels)});
    }
    return colours;
}

std::vector<DeepColour> greys()
{
    std::vector<DeepColour> colours;
    for (unsigned code = 0; code <= 0xFFFF; code += 32) {
        const auto grey = static_cast<std::uint16_t>(code);
        colours.push_back({grey, grey, grey});
    }
    return colours;
}

/// Before it is saturated, a channel depends on its own value alone: what two colours with the same value
/// differ by in it is the luma's difference, taken with the saturation.
std::optional<double> saturationOf(const std::vector<Sample>& samples)
{
    double products = 0;
    double squares = 0;
    for (std::size_t c = 0; c < 3; ++c) {
        std::vector<Sample> sorted = samples;
        std::stable_sort(sorted.begin(), sorted.end(),
                         [c](const Sample& a, const Sample& b) { return a.in[c] < b.in[c]; });
        for (std::size_t i = 1; i < sorted.size(); ++i) {
            const Sample& one = sorted[i - 1];
            const Sample& other = sorted[i];
            if (one.in[c] == other.in[c]) {
                const double luma = lumaOf(other.out) - lumaOf(one.out);
                const double distance = other.out[c] - one.out[c] - luma;
                products += luma * distance;
                squares += luma * luma;
            }
        }
    }
    constexpr double fewest = 1e-6;
    return squares > fewest ? std::optional(-products / squares) : std::nullopt;
}

/// The line through (x, y) with weights, as slope and offset.
std::pair<double, double> lineThrough(const std::vector<std::array<double, 3>>& points)
{
    double weights = 0;
    double x = 0;
    double y = 0;
    for (const auto& [px, py, weight] : points) {
        weights += weight;
        x += weight * px;
        y += weight * py;
    }
    x /= weights;
    y /= weights;
    double products = 0;
    double squares = 0;
    for (const auto& [px, py, weight] : points) {
        products += weight * (px - x) * (py - y);
        squares += weight * (px - x) * (px - x);
    }
    const double slope = squares > 0 ? products / squares : 0;
    return {slope, y - slope * x};
}

/// A channel's values before it is saturated.
using Curve = std::vector<std::pair<double, double>>;

struct CurveFit
{
    double slope = 1;
    double offset = 0;
    double power = 1;
    double error = 0; ///< sum of squares
};

CurveFit withPower(const Curve& curve, double power)
{
    std::vector<std::array<double, 3>> points;
    for (const auto& [x, f] : curve) {
        const double speed = power * std::pow(f, 1 - 1 / power); // of f with the line's value
        points.push_back({x, std::pow(f, 1 / power), speed * speed});
    }
    CurveFit fit;
    std::tie(fit.slope, fit.offset) = lineThrough(points);
    fit.power = power;
    for (const auto& [x, f] : curve) {
        const double made = std::pow(std::max(fit.slope * x + fit.offset, 0.0), power);
        fit.error += (made - f) * (made - f);
    }
    return fit;
}

/// The best power, by golden sections of its logarithm.
CurveFit fitOf(const Curve& curve)
{
    constexpr double share = 1 / std::numbers::phi;
    double low = std::log(0.05);
    double high = std::log(20.0);
    const auto at = [&](double logarithm) { return withPower(curve, std::exp(logarithm)); };
    for (int i = 0; i < 60; ++i) {
        const double left = high - share * (high - low);
        const double right = low + share * (high - low);
        (at(left).error < at(right).error ? high : low) = at(left).error < at(right).error ? right : left;
    }
    return at((low + high) / 2);
}

double errorOf(const Host::ColourDecision& decision, Host::DecisionStyle style,
               const std::vector<std::array<float, 3>>& colours, const std::vector<DeepColour>& drawn)
{
    float largest = 0;
    const std::vector<std::array<float, 3>> made = Host::apply(decision, style, colours);
    for (std::size_t i = 0; i < made.size(); ++i) {
        const std::array<float, 3> expected = sharesOf(drawn[i]);
        for (std::size_t c = 0; c < 3; ++c) {
            largest = std::max(largest, std::abs(std::clamp(made[i][c], 0.0F, 1.0F) - expected[c]));
        }
    }
    return static_cast<double>(largest);
}

/// Holds corrections against what the look draws.
class Judge
{
public:
    explicit Judge(ColourDrawing& drawing) : drawn_(drawing.draw(coloursBetween(), placesOfDecisions))
    {
        for (const DeepColour& colour : coloursBetween()) {
            colours_.push_back(sharesOf(colour));
        }
    }

    DecisionFit judge(const Host::ColourDecision& decision) const
    {
        return {.obstacle = {},
                .decision = decision,
                .clampedError = errorOf(decision, Host::DecisionStyle::clamps, colours_, drawn_),
                .unclampedError = errorOf(decision, Host::DecisionStyle::keeps, colours_, drawn_)};
    }

private:
    std::vector<DeepColour> drawn_;
    std::vector<std::array<float, 3>> colours_;
};

double bestError(const DecisionFit& fit)
{
    return std::min(fit.clampedError, fit.unclampedError);
}

Host::ColourDecision rounded(Host::ColourDecision decision, double decimals)
{
    const auto round = [decimals](double& number) { number = std::round(number * decimals) / decimals; };
    for (auto* const numbers : {&decision.slope, &decision.offset, &decision.power}) {
        std::for_each(numbers->begin(), numbers->end(), round);
    }
    round(decision.saturation);
    return decision;
}

/// With as few decimals as are no worse: what a person has set is found again.
DecisionFit inRoundNumbers(const Judge& judge, const Host::ColourDecision& decision)
{
    const DecisionFit exact = judge.judge(decision);
    constexpr double loss = 0.05 / 1023;
    for (const double decimals : {100.0, 1000.0, 10000.0, 100000.0}) {
        Host::ColourDecision fewer = rounded(decision, decimals);
        const bool hasPower =
            std::all_of(fewer.power.begin(), fewer.power.end(), [](double p) { return p > 0; });
        if (!hasPower) {
            continue;
        }
        if (DecisionFit fit = judge.judge(fewer); bestError(fit) <= bestError(exact) + loss) {
            return fit;
        }
    }
    return exact;
}

std::optional<Host::ColourDecision> foundDecision(ColourDrawing& drawing)
{
    constexpr double leastSaturation = 0.01;
    constexpr std::size_t fewest = 20;
    const std::optional<double> saturation = saturationOf(samplesOf(drawing, coloursOfGrid()));
    if (!saturation || *saturation < leastSaturation) {
        return {};
    }
    const std::vector<Sample> samples = samplesOf(drawing, greys());
    Host::ColourDecision decision;
    decision.saturation = *saturation;
    for (std::size_t c = 0; c < 3; ++c) {
        Curve curve;
        for (const Sample& sample : samples) {
            const double luma = lumaOf(sample.out);
            const double f = luma + (sample.out[c] - luma) / *saturation;
            if (f > 0.001 && f < 1) {
                curve.emplace_back(sample.in[c], f);
            }
        }
        if (curve.size() < fewest) {
            return {};
        }
        const CurveFit fit = fitOf(curve);
        decision.slope[c] = fit.slope;
        decision.offset[c] = fit.offset;
        decision.power[c] = fit.power;
        if (!(fit.slope >= 0) || !(fit.power > 0)) {
            return {};
        }
    }
    return decision;
}

} // namespace

DecisionFit decisionOf(const Look& look)
{
    ColourDrawing drawing(effectRequests(look));
    DecisionFit none;
    const std::optional<Host::ColourDecision> found = foundDecision(drawing);
    if (!found) {
        none.obstacle = "it is no slope, offset, power and saturation";
        return none;
    }
    const Judge judge(drawing);
    DecisionFit fit = inRoundNumbers(judge, *found);
    if (bestError(fit) > largestDecisionError) {
        none.obstacle = fmt::format("the nearest slope, offset, power and saturation are off by {}",
                                    Host::lutErrorInCodes(bestError(fit)));
        return none;
    }
    return fit;
}

} // namespace Qx::Program
