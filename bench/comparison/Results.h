#pragma once

#include "bench/comparison/Difference.h"
#include "bench/comparison/Statistics.h"
#include "bench/peers/Works.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Qx::Bench {

/// A request to a participant.
struct Contender
{
    std::string program; ///< the participant's short name: "ours", "placebo"
    std::string work;
    std::string method;
};

/// Two contenders that are measured alternately. Rates are multiplied by the weights, to compare by pixels or
/// bytes instead of frames.
struct Comparison
{
    std::string part;  ///< part of the comparison, as for --only
    std::string title; ///< the work, for people
    std::string against;
    Contender ours;
    Contender theirs;
    double ourWeight = 1;
    double theirWeight = 1;
    std::string remark = {};       ///< why it is not the same work; empty if it is
    std::optional<Work> work = {}; ///< set if its frame can be compared
};

/// The result of a comparison.
struct Result
{
    Comparison comparison;
    std::vector<Pair> pairs;
    std::optional<Spread> ratio;          ///< ours to theirs; above 1 if ours is faster
    std::optional<Difference> difference; ///< between their results for the test frame
    std::string failure;                  ///< why there is no ratio

    double ourMedian() const;
    double theirMedian() const;

    /// Returns why their work differs from ours, from the remark and the measurement; empty if it is the
    /// same.
    std::string otherwise() const;
};

/// A cost without a comparison.
struct Cost
{
    std::string title;
    std::string unit;
    Spread spread;
    std::string note;
};

/// A requirement on speed.
struct Bar
{
    enum Verdict
    {
        Reached,
        NotReached,
        NotMeasured,
    };

    std::string text;
    std::string measured; ///< with its spread; of the worst if several
    Verdict verdict = NotMeasured;
    std::string remark;
};

/// A bar for all results selected by `holds`: each median ratio is at least `least`.
Bar judge(const std::string& text, double least, const std::vector<Result>& results,
          const std::function<bool(const Result&)>& holds);

/// A bar for one spread of samples: its median is at most `most`. `unit` follows the numbers.
Bar judgeAtMost(const std::string& text, double most, const std::optional<Spread>& samples,
                const std::string& unit);

/// Formats the median and the quartiles with three significant digits: "1.23 (1.20 to 1.31)".
std::string textOf(const Spread& spread);

} // namespace Qx::Bench
