#include "tools/qxhost/Suggestion.h"

#include <algorithm>
#include <numeric>

namespace Qx::Program {

namespace {

char folded(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

/// Letters to insert, drop, replace or swap with their neighbour to turn one word into the other.
std::size_t distance(std::string_view a, std::string_view b)
{
    std::vector<std::size_t> beforeLast(b.size() + 1);
    std::vector<std::size_t> last(b.size() + 1);
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(last.begin(), last.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const bool same = folded(a[i - 1]) == folded(b[j - 1]);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (same ? 0U : 1U)});
            if (i > 1 && j > 1 && folded(a[i - 1]) == folded(b[j - 2]) &&
                folded(a[i - 2]) == folded(b[j - 1])) {
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
            }
        }
        beforeLast.swap(last);
        last.swap(row);
    }
    return last[b.size()];
}

} // namespace

std::string closest(std::string_view word, const std::vector<std::string>& candidates)
{
    std::string best;
    std::size_t bestDistance = 1 + std::max<std::size_t>(1, word.size() / 3);
    for (const std::string& candidate : candidates) {
        const std::size_t d = distance(word, candidate);
        if (d < bestDistance) {
            bestDistance = d;
            best = candidate;
        }
    }
    return best;
}

std::string didYouMean(std::string_view word, const std::vector<std::string>& candidates)
{
    const std::string best = closest(word, candidates);
    return best.empty() ? std::string() : " (did you mean " + best + "?)";
}

std::string listed(const std::vector<std::string>& words)
{
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        text += i == 0 ? "" : i + 1 == words.size() ? " and " : ", ";
        text += words[i];
    }
    return text;
}

} // namespace Qx::Program
