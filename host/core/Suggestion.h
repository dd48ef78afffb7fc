#pragma once

#include "host/core/AsciiCase.h"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

// Suggestions for mistyped words. The case of ASCII letters is ignored.

namespace Qx::Host {

/// The number of letters to insert, drop, replace or swap with their neighbour to turn one word into the
/// other.
inline std::size_t editDistance(std::string_view a, std::string_view b)
{
    std::vector<std::size_t> beforeLast(b.size() + 1);
    std::vector<std::size_t> last(b.size() + 1);
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(last.begin(), last.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const bool same = asciiLower(a[i - 1]) == asciiLower(b[j - 1]);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (same ? 0U : 1U)});
            if (i > 1 && j > 1 && asciiLower(a[i - 1]) == asciiLower(b[j - 2]) &&
                asciiLower(a[i - 2]) == asciiLower(b[j - 1])) {
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
            }
        }
        beforeLast.swap(last);
        last.swap(row);
    }
    return last[b.size()];
}

/// The candidate closest to `word`, or an empty string. At most a third of the word's letters may differ, but
/// one always may. Words of more than 256 letters match nothing. `Candidates` is a range of strings or views.
template <typename Candidates>
std::string closest(std::string_view word, const Candidates& candidates)
{
    constexpr std::size_t longest = 256;
    std::string best;
    std::size_t bestDistance = 1 + std::max<std::size_t>(1, word.size() / 3);
    for (const std::string_view candidate : candidates) {
        const std::size_t longer = std::max(word.size(), candidate.size());
        if (candidate == word || longer > longest ||
            longer - std::min(word.size(), candidate.size()) >= bestDistance) {
            continue;
        }
        const std::size_t distance = editDistance(word, candidate);
        if (distance < std::min(bestDistance, longer)) {
            bestDistance = distance;
            best = candidate;
        }
    }
    return best;
}

/// " (did you mean X?)" with the closest candidate, or an empty string.
template <typename Candidates>
std::string didYouMean(std::string_view word, const Candidates& candidates)
{
    const std::string best = closest(word, candidates);
    return best.empty() ? std::string() : " (did you mean " + best + "?)";
}

} // namespace Qx::Host
