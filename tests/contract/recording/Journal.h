#pragma once

#include <condition_variable>
#include <cstddef>
#include <initializer_list>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Test {

/// What was asked of the recording host, in order, a line for each call: "operation(arguments)". Any thread.
class Journal
{
public:
    void record(std::string line);
    void clear();

    std::vector<std::string> lines() const;

    /// The lines that begin with one of these.
    std::vector<std::string> linesOf(std::initializer_list<std::string_view> beginnings) const;
    std::size_t count(std::string_view beginning) const { return linesOf({beginning}).size(); }

    /// Waits until that many lines begin so; false when that does not happen within a minute.
    bool waitFor(std::string_view beginning, std::size_t times = 1) const;

private:
    std::size_t countLocked(std::string_view beginning) const;

    mutable std::mutex lock_;
    mutable std::condition_variable grown_;
    std::vector<std::string> lines_;
};

/// The text between quotes, with line ends, quotes and backslashes escaped.
std::string quoted(std::string_view text);

} // namespace Qx::Test
