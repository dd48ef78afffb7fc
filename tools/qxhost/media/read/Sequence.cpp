#include "tools/qxhost/media/read/Sequence.h"

#include "tools/qxhost/media/files/Names.h"
#include "tools/qxhost/media/files/NumberedNames.h"

#include <system_error>

namespace Qx::Media {

namespace fs = std::filesystem;

namespace {

std::string numbersText(long first, long last)
{
    return first == last ? "picture " + std::to_string(first) + " is"
                         : "pictures " + std::to_string(first) + " to " + std::to_string(last) + " are";
}

} // namespace

bool isPatternOfPictures(const fs::path& file)
{
    std::error_code error;
    return !fs::exists(file, error) && NumberedNames(file).isPattern();
}

Result<std::optional<Sequence>> sequenceOf(const fs::path& file, std::optional<std::int64_t> start,
                                           MissingPictures missing)
{
    if (!isPatternOfPictures(file)) {
        return std::optional<Sequence>();
    }
    const NumberedNames names(file);
    std::vector<long> numbers = names.existing();
    if (start) {
        const auto first = std::lower_bound(numbers.begin(), numbers.end(), *start);
        if (!numbers.empty() && (first == numbers.end() || *first != *start)) {
            return Error{"cannot read " + quoted(file) + ": there is no picture " + std::to_string(*start) +
                         "; they run from " + std::to_string(numbers.front()) + " to " +
                         std::to_string(numbers.back())};
        }
        numbers.erase(numbers.begin(), first);
    }
    const bool endsAtGap = missing == MissingPictures::end;
    if (!endsAtGap) {
        std::error_code error;
        std::erase_if(numbers, [&](long number) { return fs::file_size(names.name(number), error) == 0; });
    }
    if (numbers.empty()) {
        return std::optional<Sequence>();
    }
    Sequence sequence(numbers.front(), missing);
    for (const long number : numbers) {
        if (sequence.last() + 1 < number && endsAtGap) {
            sequence.endAtGap();
            break;
        }
        if (sequence.last() + 1 < number && missing == MissingPictures::fail) {
            return Error{"cannot read " + quoted(file) + ": " + numbersText(sequence.last() + 1, number - 1) +
                         " missing; --missing hold or black fills the gap"};
        }
        sequence.add(number);
    }
    return std::optional(sequence);
}

std::vector<std::string> remarksOn(const fs::path& file, const Sequence& sequence)
{
    std::vector<std::string> lines;
    const std::vector<Sequence::Run>& runs = sequence.runs();
    for (std::size_t i = 1; i < runs.size(); ++i) {
        lines.push_back(quoted(file) + ": " + numbersText(runs[i - 1].last + 1, runs[i].first - 1) +
                        " missing; " + (sequence.fillsWithBlack() ? "black" : "the picture before") +
                        " is put in");
    }
    return lines;
}

} // namespace Qx::Media
