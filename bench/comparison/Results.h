#pragma once

#include "bench/comparison/Difference.h"
#include "bench/comparison/Statistics.h"
#include "bench/peers/Works.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Qx::Bench {

/// What a participant is asked to do.
struct Contender
{
    std::string program; ///< the participant's short name: "ours", "placebo"
    std::string work;
    std::string method;
};

/// Two that are measured in turn. Rates are multiplied with the weights, for what is not to be compared frame
/// by frame but by pixels or bytes.
struct Comparison
{
    std::string part;  ///< of the comparison, as people ask for it
    std::string title; ///< the work, for people
    std::string against;
    Contender ours;
    Contender theirs;
    double ourWeight = 1;
    double theirWeight = 1;
    std::string remark = {};       ///< why it is not the same work; empty when it is
    std::optional<Work> work = {}; ///< when it has a frame that can be compared
};

/// What came of one.
struct Result
{
    Comparison comparison;
    std::vector<Pair> pairs;
    std::optional<Spread> ratio;          ///< ours to theirs, above 1 when ours is faster
    std::optional<Difference> difference; ///< of what they made of the test frame
    std::string failure;                  ///< why there is no ratio

    double ourMedian() const;
    double theirMedian() const;

    /// Why their work is not ours, from the remark and from what was measured; empty when it is the same.
    std::string otherwise() const;
};

/// A cost without anyone to compare with.
struct Cost
{
    std::string title;
    std::string unit;
    Spread spread;
    std::string note;
};

/// Something that speed is held to.
struct Bar
{
    enum Verdict
    {
        Reached,
        NotReached,
        NotMeasured,
    };

    std::string text;
    std::string measured; ///< with the spread; for several, of the worst
    Verdict verdict = NotMeasured;
    std::string remark;
};

/// The bar for all results that `holds` picks: every one's median ratio is at least `least`.
Bar judge(const std::string& text, double least, const std::vector<Result>& results,
          const std::function<bool(const Result&)>& holds);

/// The bar for one spread of samples: its median is at most `most`. `unit` follows the numbers.
Bar judgeAtMost(const std::string& text, double most, const std::optional<Spread>& samples,
                const std::string& unit);

/// "1.23 (1.20 to 1.31)": the median and the quartiles, with three digits that matter.
std::string textOf(const Spread& spread);

} // namespace Qx::Bench
