#pragma once

#include <condition_variable>
#include <cstddef>
#include <initializer_list>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Test {

/// The calls to the recording host, in order, one line each: "operation(arguments)". Thread-safe.
class Journal
{
public:
    void record(std::string line);
    void clear();

    std::vector<std::string> lines() const;

    /// Returns the lines that begin with one of these.
    std::vector<std::string> linesOf(std::initializer_list<std::string_view> beginnings) const;
    std::size_t count(std::string_view beginning) const { return linesOf({beginning}).size(); }

    /// Blocks until `times` lines begin so. Returns false after a minute.
    bool waitFor(std::string_view beginning, std::size_t times = 1) const;

private:
    std::size_t countLocked(std::string_view beginning) const;

    mutable std::mutex lock_;
    mutable std::condition_variable grown_;
    std::vector<std::string> lines_;
};

/// Returns the text in quotes, with line ends, quotes and backslashes escaped.
std::string inQuotes(std::string_view text);

} // namespace Qx::Test
