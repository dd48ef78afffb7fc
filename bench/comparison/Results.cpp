#include "bench/comparison/Results.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace Qx::Bench {
namespace {

double medianOf(const std::vector<Pair>& pairs, double Pair::*side)
{
    std::vector<double> rates;
    for (const Pair& pair : pairs) {
        rates.push_back(pair.*side);
    }
    const auto spread = spreadOf(std::move(rates));
    return spread ? spread->median : 0.0;
}

std::string digits(double value)
{
    // Without exponents, which are hard to read in a table.
    const double size = std::abs(value);
    const int decimals = size >= 100 ? 0 : size >= 10 ? 1 : size >= 0.1 ? 2 : 3;
    return fmt::format("{:.{}f}", value, decimals);
}

bool liesBetweenQuartiles(double value, const Spread& spread)
{
    return value >= spread.lowerQuartile && value <= spread.upperQuartile;
}

} // namespace

double Result::ourMedian() const
{
    return medianOf(pairs, &Pair::ours);
}

double Result::theirMedian() const
{
    return medianOf(pairs, &Pair::theirs);
}

std::string Result::otherwise() const
{
    if (!comparison.remark.empty()) {
        return comparison.remark;
    }
    if (comparison.work && difference && !isSameResult(*comparison.work, *difference)) {
        return fmt::format("another result, up to {} codes apart", difference->largest);
    }
    return comparison.work && !difference ? "its result was not seen" : "";
}

std::string textOf(const Spread& spread)
{
    return digits(spread.median) + " (" + digits(spread.lowerQuartile) + " to " +
           digits(spread.upperQuartile) + ')';
}

Bar judge(const std::string& text, double least, const std::vector<Result>& results,
          const std::function<bool(const Result&)>& holds)
{
    Bar bar{text, "", Bar::NotMeasured, ""};
    const Result* worst = nullptr;
    std::size_t all = 0;
    std::size_t reached = 0;
    bool otherwise = false;
    for (const Result& result : results) {
        if (!result.ratio || !holds(result)) {
            continue;
        }
        ++all;
        reached += result.ratio->median >= least ? 1U : 0U;
        otherwise = otherwise || !result.otherwise().empty();
        if (worst == nullptr || result.ratio->median < worst->ratio->median) {
            worst = &result;
        }
    }
    if (worst == nullptr) {
        return bar;
    }
    bar.verdict = reached == all ? Bar::Reached : Bar::NotReached;
    bar.measured = textOf(*worst->ratio);
    if (all > 1) {
        bar.measured += fmt::format(": {}, against {}", worst->comparison.title, worst->comparison.against);
        bar.remark = fmt::format("{} of {}", reached, all);
    }
    const auto remark = [&bar](const char* more) {
        bar.remark += (bar.remark.empty() ? "" : "; ") + std::string(more);
    };
    if (liesBetweenQuartiles(least, *worst->ratio)) {
        remark("within the spread");
    }
    if (otherwise) {
        remark("not all of it the same work: see the table");
    }
    return bar;
}

Bar judgeAtMost(const std::string& text, double most, const std::optional<Spread>& samples,
                const std::string& unit)
{
    if (!samples) {
        return {text, "", Bar::NotMeasured, ""};
    }
    return {text, textOf(*samples) + unit, samples->median <= most ? Bar::Reached : Bar::NotReached,
            liesBetweenQuartiles(most, *samples) && samples->smallest < samples->largest ? "within the spread"
                                                                                         : ""};
}

} // namespace Qx::Bench
