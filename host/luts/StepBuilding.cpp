#include "host/luts/StepBuilding.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <limits>
#include <random>

namespace Qx::Host::Luts {

namespace {

constexpr std::size_t sampledPoints = 65536; // a code of 16 bits each
constexpr int mostRoots = 3;
constexpr float largest = 1e30F; // beyond, sums would overflow
constexpr double largestHalf = 65504;

/// The values that the channels can have between two steps.
struct Extent
{
    std::array<double, 3> low{0, 0, 0};
    std::array<double, 3> high{1, 1, 1};

    TableDomain domain() const
    {
        TableDomain result;
        for (std::size_t c = 0; c < 3; ++c) {
            result.min[c] = static_cast<float>(low[c]);
            result.max[c] = static_cast<float>(high[c]);
            if (!(result.max[c] > result.min[c])) {
                result.max[c] = result.min[c] + std::max(1.0F, std::abs(result.min[c]));
            }
        }
        return result;
    }
};

Extent extentOf(LUTInput input)
{
    Extent extent;
    if (input == LUTInput::Floats) {
        extent.low.fill(-largestHalf);
        extent.high.fill(largestHalf);
    }
    return extent;
}

Extent extentOf(const std::vector<Colour>& colours)
{
    Extent extent;
    for (std::size_t c = 0; c < 3; ++c) {
        extent.low[c] = std::numeric_limits<double>::max();
        extent.high[c] = std::numeric_limits<double>::lowest();
        for (const Colour& colour : colours) {
            extent.low[c] = std::min(extent.low[c], static_cast<double>(colour[c]));
            extent.high[c] = std::max(extent.high[c], static_cast<double>(colour[c]));
        }
    }
    return extent;
}

Extent after(const LUTCurves& curves, const Extent&)
{
    Extent extent = extentOf(curves.points);
    if (curves.keepsHue) {
        extent.low.fill(*std::min_element(extent.low.begin(), extent.low.end()));
        extent.high.fill(*std::max_element(extent.high.begin(), extent.high.end()));
    }
    return extent;
}

Extent after(const LUTMatrix& matrix, const Extent& before)
{
    Extent extent;
    for (std::size_t c = 0; c < 3; ++c) {
        extent.low[c] = extent.high[c] = matrix.rows[c][3];
        for (std::size_t i = 0; i < 3; ++i) {
            const double a = matrix.rows[c][i] * before.low[i];
            const double b = matrix.rows[c][i] * before.high[i];
            extent.low[c] += std::min(a, b);
            extent.high[c] += std::max(a, b);
        }
    }
    return extent;
}

Extent after(const LUTTable& step, const Extent&)
{
    const std::size_t count = entriesOf(step.table->getSize());
    std::vector<Colour> entries(count);
    for (std::size_t i = 0; i < count; ++i) {
        const float* from = step.table->getData() + 4 * i;
        entries[i] = {from[0], from[1], from[2]};
    }
    return extentOf(entries);
}

Extent after(const LUTInverse&, const Extent&)
{
    return {};
}

/// The number whose root is `root`: see LUTCurves::roots.
double unspread(double root, int roots)
{
    double x = std::abs(root);
    for (int i = 0; i < roots; ++i) {
        x *= x;
    }
    return std::copysign(x, root);
}

double spread(double x, int roots)
{
    return std::copysign(std::pow(std::abs(x), std::ldexp(1.0, -roots)), x);
}

LUTCurves sampled(const Formula& formula, const Extent& extent, int roots)
{
    LUTCurves curves;
    curves.domain = extent.domain();
    curves.roots = roots;
    curves.keepsHue = formula.keepsHue;
    curves.points.resize(sampledPoints);
    for (std::size_t c = 0; c < 3; ++c) {
        const double low = spread(static_cast<double>(curves.domain.min[c]), roots);
        const double high = spread(static_cast<double>(curves.domain.max[c]), roots);
        for (std::size_t i = 0; i < sampledPoints; ++i) {
            const double part = static_cast<double>(i) / static_cast<double>(sampledPoints - 1);
            curves.points[i][c] = static_cast<float>(unspread(low + part * (high - low), roots));
        }
    }
    formula.evaluate(curves.points.data(), curves.points.size());
    for (Colour& point : curves.points) {
        for (float& value : point) {
            value = std::clamp(value, -largest, largest); // what is no number stays so
        }
    }
    return curves;
}

/// A table of what has no better form.
LUTTable tabulated(const Formula& formula, const Extent& extent)
{
    const TableDomain domain = extent.domain();
    const Qx::Ptr<Table> table = Qx::makePtr<Table>(finestFormulaTable, domain);
    const auto edge = static_cast<std::size_t>(finestFormulaTable);
    std::vector<Colour> entries(entriesOf(finestFormulaTable));
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const std::array<std::size_t, 3> at{i % edge, i / edge % edge, i / edge / edge};
        for (std::size_t c = 0; c < 3; ++c) {
            const double part = static_cast<double>(at[c]) / static_cast<double>(edge - 1);
            const double low = static_cast<double>(domain.min[c]);
            entries[i][c] = static_cast<float>(low + part * (static_cast<double>(domain.max[c]) - low));
        }
    }
    formula.evaluate(entries.data(), entries.size());
    for (std::size_t i = 0; i < entries.size(); ++i) {
        table->set(i, entries[i]);
    }
    return {table, false};
}

LUTSteps stepsOf(const std::vector<Part>& parts, int roots, LUTInput input)
{
    LUTSteps steps;
    Extent extent = extentOf(input);
    const bool hasCodes = input == LUTInput::Codes;
    for (const Part& part : parts) {
        if (!part.isFormula()) {
            steps.push_back(part.step);
        } else if (part.formula.separable) {
            // The first curves get a point for every code; later ones as the distribution has it.
            steps.emplace_back(sampled(part.formula, extent, steps.empty() && hasCodes ? 0 : roots));
        } else {
            steps.emplace_back(tabulated(part.formula, extent));
        }
        extent = std::visit([&](const auto& known) { return after(known, extent); }, steps.back());
    }
    return steps;
}

/// Whether the distribution of points matters.
bool hasCurvesToDistribute(const std::vector<Part>& parts, LUTInput input)
{
    const bool isFirstFixed = !parts.empty() && input == LUTInput::Codes;
    return std::any_of(parts.begin() + (isFirstFixed ? 1 : 0), parts.end(),
                       [](const Part& part) { return part.isFormula() && part.formula.separable; });
}

/// Whether what is tried below is all that can be: every code of both depths in every channel.
bool areTriedWhole(const std::vector<Part>& parts)
{
    return std::all_of(parts.begin(), parts.end(), [](const Part& part) {
        const auto* curves = std::get_if<LUTCurves>(&part.step);
        return part.isFormula() ? part.formula.separable && !part.formula.keepsHue
                                : curves != nullptr && !curves->keepsHue;
    });
}

float codeOf(std::size_t code, std::size_t most)
{
    return static_cast<float>(static_cast<double>(code) / static_cast<double>(most));
}

/// The number of a half with these bits.
float half(unsigned bits)
{
    constexpr unsigned significant = 10;
    const unsigned exponent = bits >> significant & 0x1fU;
    const auto digits = static_cast<float>(bits & 0x3ffU);
    const float number = exponent == 0 ? std::ldexp(digits, -24)
                                       : std::ldexp(1024.0F + digits, static_cast<int>(exponent) - 25);
    return (bits & 0x8000U) != 0 ? -number : number;
}

/// Every number of a half as grey, or many of them, and other colours of such numbers: of one brightness, as
/// pictures have them, and of any.
std::vector<Colour> trialsOfFloats(bool whole)
{
    constexpr unsigned infinity = 0x7c00;
    constexpr unsigned negative = 0x8000;
    std::vector<Colour> result;
    for (unsigned bits = 0; bits < infinity; bits += whole ? 1 : 7) {
        for (const float number : {half(bits), half(bits | negative)}) {
            result.push_back({number, number, number});
        }
    }
    std::mt19937 random(1); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same colours are wanted every time
    constexpr std::size_t scattered = 8192;
    for (std::size_t i = 0; i < (whole ? 0 : scattered); ++i) {
        const auto any = [&] { return half(static_cast<unsigned>(random()) % 0x5c00U); }; // up to 256
        const auto share = [&] { return static_cast<float>(random() % 4096) / 2048.0F; };
        const float brightness = i % 2 == 0 ? any() : share();
        const float r = brightness * share();
        const float g = brightness * share();
        result.push_back({r, g, brightness * share()});
    }
    return result;
}

/// Codes of 10 and of 16 bits: every grey, channels alone and against the others, colours near grey, and
/// colours without a pattern, the same every time.
std::vector<Colour> trials(bool whole)
{
    constexpr std::size_t ten = 1023;
    constexpr std::size_t sixteen = 65535;
    std::vector<Colour> result;
    for (std::size_t i = 0; i <= sixteen; i += whole ? 1 : 15) {
        const float code = codeOf(i, sixteen);
        result.push_back({code, code, code});
    }
    for (std::size_t i = 0; i <= ten; ++i) {
        const float code = codeOf(i, ten);
        result.push_back({code, code, code});
        if (whole) {
            continue;
        }
        for (const float rest : {0.0F, 1.0F}) {
            result.push_back({code, rest, rest});
            result.push_back({rest, code, rest});
            result.push_back({rest, rest, code});
        }
    }
    std::mt19937 random(1); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same colours are wanted every time
    constexpr std::size_t scattered = 8192;
    for (std::size_t i = 0; i < (whole ? 0 : scattered); ++i) {
        const std::size_t most = i % 2 == 0 ? ten : sixteen;
        const auto any = [&] { return codeOf(random() % (most + 1), most); };
        const float r = any();
        const float g = any();
        result.push_back({r, g, any()});
        const std::size_t grey = random() % (ten - 15);
        const auto beside = [&] { return codeOf(grey + random() % 16, ten); };
        const float nearRed = beside();
        const float nearGreen = beside();
        result.push_back({nearRed, nearGreen, beside()});
    }
    return result;
}

/// As far as a surface shows it.
double shown(float value)
{
    return std::clamp(static_cast<double>(value), 0.0, 1.0); // leaves what is no number
}

double differenceOf(float got, float exact, LUTInput input)
{
    if (input == LUTInput::Codes) {
        return std::abs(shown(got) - shown(exact));
    }
    // What no half holds is not told apart.
    const double wanted = std::clamp(static_cast<double>(exact), -largestHalf, largestHalf);
    const double made = std::clamp(static_cast<double>(got), -largestHalf, largestHalf);
    return std::abs(made - wanted) / std::max(1.0, std::abs(wanted));
}

void compare(BuiltSteps& built, const std::vector<Colour>& places, const std::vector<Colour>& exact,
             LUTInput input)
{
    for (std::size_t i = 0; i < places.size(); ++i) {
        const Colour got = Host::apply(built.steps, places[i]);
        for (std::size_t c = 0; c < 3; ++c) {
            const double difference = differenceOf(got[c], exact[i][c], input);
            if (!(difference <= built.error)) {
                built.error =
                    std::isfinite(difference) ? difference : std::numeric_limits<double>::infinity();
                built.worst = places[i];
            }
        }
    }
}

/// The best steps for these parts.
BuiltSteps bestOf(const std::vector<Part>& parts, const Evaluation& evaluate, LUTInput input)
{
    const bool whole = areTriedWhole(parts);
    const std::vector<Colour> places = input == LUTInput::Codes ? trials(whole) : trialsOfFloats(whole);
    std::vector<Colour> exact = places;
    evaluate(exact.data(), exact.size());
    const double margin = whole ? 1.0 : untriedMargin;
    BuiltSteps best;
    best.error = std::numeric_limits<double>::infinity();
    const int most = hasCurvesToDistribute(parts, input) ? mostRoots : 0;
    for (int roots = 0; roots <= most && best.error > largestLUTError; ++roots) {
        BuiltSteps built{stepsOf(parts, roots, input), 0.0, Colour{}};
        compare(built, places, exact, input);
        built.error *= margin;
        if (built.error < best.error || best.steps.empty()) {
            best = std::move(built);
        }
    }
    return best;
}

} // namespace

BuiltSteps buildSteps(const Source& source, LUTInput input)
{
    if (!source.judged || source.parts.empty()) {
        return {stepsOf(source.parts, 0, input), 0.0, Colour{}};
    }
    // Curves alone are best merged: every code of them is tried.
    BuiltSteps merged;
    merged.error = std::numeric_limits<double>::infinity();
    if (!source.merged.empty() && areTriedWhole(source.merged)) {
        merged = bestOf(source.merged, source.evaluate, input);
        if (merged.error <= largestLUTError) {
            return merged;
        }
    }
    BuiltSteps apart = bestOf(source.parts, source.evaluate, input);
    return apart.error <= merged.error ? apart : merged;
}

std::optional<LUTReading> readingOf(const Source& source, const StepsWanted& wanted, Refusal& refusal)
{
    const double largestError = wanted.largestError;
    BuiltSteps built = buildSteps(source, wanted.input);
    if (!std::isfinite(built.error)) {
        refusal.cause = "some of its colours are not finite";
        return std::nullopt;
    }
    if (built.error > largestError) {
        refusal.cause = fmt::format(
            "it holds {}, which cannot be drawn to {} of 10 bits: the colour {:.4g} {:.4g} "
            "{:.4g} would be off by {}",
            source.facts.contents, largestError == largestLUTError ? "a quarter of a code" : "a code",
            built.worst[0], built.worst[1], built.worst[2], lutErrorInCodes(built.error));
        return std::nullopt;
    }
    LUTReading reading;
    reading.steps = std::move(built.steps);
    reading.facts = source.facts;
    reading.error = built.error;
    return reading;
}

} // namespace Qx::Host::Luts
