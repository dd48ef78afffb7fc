#include "tests/contract/recording/Journal.h"

#include <algorithm>
#include <chrono>

namespace Qx::Test {

void Journal::record(std::string line)
{
    {
        const std::lock_guard guard(lock_);
        lines_.push_back(std::move(line));
    }
    grown_.notify_all();
}

void Journal::clear()
{
    const std::lock_guard guard(lock_);
    lines_.clear();
}

std::vector<std::string> Journal::lines() const
{
    const std::lock_guard guard(lock_);
    return lines_;
}

std::vector<std::string> Journal::linesOf(std::initializer_list<std::string_view> beginnings) const
{
    const std::lock_guard guard(lock_);
    std::vector<std::string> found;
    for (const std::string& line : lines_) {
        if (std::any_of(beginnings.begin(), beginnings.end(),
                        [&](std::string_view beginning) { return line.starts_with(beginning); })) {
            found.push_back(line);
        }
    }
    return found;
}

bool Journal::waitFor(std::string_view beginning, std::size_t times) const
{
    std::unique_lock guard(lock_);
    return grown_.wait_for(guard, std::chrono::minutes(1), [&] { return countLocked(beginning) >= times; });
}

std::size_t Journal::countLocked(std::string_view beginning) const
{
    return static_cast<std::size_t>(std::count_if(
        lines_.begin(), lines_.end(), [&](const std::string& line) { return line.starts_with(beginning); }));
}

std::string inQuotes(std::string_view text)
{
    std::string result = "\"";
    for (const char c : text) {
        if (c == '\n') {
            result += "\\n";
            continue;
        }
        if (c == '"' || c == '\\') {
            result += '\\';
        }
        result += c;
    }
    return result + '"';
}

} // namespace Qx::Test
