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

/// The gaps in a sequence, for people: the first ones, and how many more there are. Of a gap, pictures whose
/// files are there but empty are told apart.
class GapList
{
public:
    void add(long first, long last, const std::vector<long>& empty)
    {
        auto next = std::lower_bound(empty.begin(), empty.end(), first);
        while (first <= last) {
            const bool isEmpty = next != empty.end() && *next == first;
            long end = first;
            if (!isEmpty) {
                end = next != empty.end() && *next <= last ? *next - 1 : last;
            } else {
                while (++next != empty.end() && *next == end + 1 && end < last) {
                    ++end;
                }
            }
            addOne(numbersText(first, end) + (isEmpty ? " empty" : " missing"));
            first = end + 1;
        }
    }

    bool any() const { return count_ > 0; }

    std::string text() const
    {
        return count_ <= most ? text_
                              : text_ + ", and " + std::to_string(count_ - most) + " more gap" +
                                    (count_ - most == 1 ? "" : "s");
    }

private:
    static constexpr std::size_t most = 10;

    void addOne(const std::string& gap)
    {
        if (++count_ <= most) {
            text_ += (text_.empty() ? "" : ", ") + gap;
        }
    }

    std::string text_;
    std::size_t count_ = 0;
};

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
    std::vector<long> empty; // files without a byte
    const bool endsAtGap = missing == MissingPictures::end;
    if (!endsAtGap) {
        std::error_code error;
        std::erase_if(numbers, [&](long number) {
            const bool isEmpty = fs::file_size(names.name(number), error) == 0;
            if (isEmpty) {
                empty.push_back(number);
            }
            return isEmpty;
        });
    }
    if (numbers.empty()) {
        return std::optional<Sequence>();
    }
    Sequence sequence(numbers.front(), missing);
    GapList gaps;
    for (const long number : numbers) {
        if (sequence.last() + 1 < number && endsAtGap) {
            sequence.endAtGap();
            break;
        }
        if (sequence.last() + 1 < number) {
            gaps.add(sequence.last() + 1, number - 1, empty);
        }
        sequence.add(number);
    }
    if (missing == MissingPictures::fail && gaps.any()) {
        return Error{"cannot read " + quoted(file) + ": " + gaps.text() +
                     "; --missing hold or black fills the gaps"};
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
