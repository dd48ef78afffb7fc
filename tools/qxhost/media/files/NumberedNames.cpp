#include "tools/qxhost/media/files/NumberedNames.h"

#include <algorithm>
#include <system_error>

namespace Qx::Media {

namespace {

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

} // namespace

NumberedNames::NumberedNames(const std::filesystem::path& pattern) : directory_(pattern.parent_path())
{
    const std::string name = pattern.filename().native();
    std::string* part = &before_;
    int numbers = 0;
    for (std::size_t at = 0; at < name.size(); ++at) {
        std::size_t end = at + 1;
        while (name[at] == '%' && end < name.size() && isDigit(name[end])) {
            ++end;
        }
        if (name[at] == '%' && end < name.size() && name[end] == 'd' && end - at <= 3) {
            digits_ = end > at + 1 ? std::stoi(name.substr(at + 1, end - at - 1)) : 1;
            part = &after_;
            ++numbers;
            at = end;
        } else if (name[at] == '%' && at + 1 < name.size() && name[at + 1] == '%') {
            *part += '%';
            ++at;
        } else {
            *part += name[at];
        }
    }
    isPattern_ = numbers == 1;
    if (!isPattern_) {
        before_ = pattern.stem().native() + "_";
        after_ = pattern.extension().native();
        digits_ = 5;
    }
}

std::filesystem::path NumberedNames::name(long number) const
{
    std::string digits = std::to_string(number);
    if (digits.size() < static_cast<std::size_t>(digits_)) {
        digits.insert(0, static_cast<std::size_t>(digits_) - digits.size(), '0');
    }
    return directory_ / (before_ + digits + after_);
}

std::vector<long> NumberedNames::existing() const
{
    // Longer numbers are no picture's, and would not fit.
    constexpr std::size_t mostDigits = 9;
    std::vector<long> numbers;
    std::error_code error;
    const std::filesystem::path place = directory_.empty() ? "." : directory_;
    for (std::filesystem::directory_iterator entry(place, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string text = entry->path().filename().native();
        if (text.size() <= before_.size() + after_.size() || text.rfind(before_, 0) != 0) {
            continue;
        }
        const std::string digits = text.substr(before_.size(), text.size() - before_.size() - after_.size());
        if (digits.size() > mostDigits || !std::all_of(digits.begin(), digits.end(), isDigit)) {
            continue;
        }
        const long number = std::stol(digits);
        if (name(number).filename() == text) {
            numbers.push_back(number);
        }
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

} // namespace Qx::Media
