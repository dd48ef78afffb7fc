#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace Qx::Media {

/// The names of a numbered sequence.
class NumberedNames
{
public:
    /// A pattern has one "%d" or "%0Nd" in its last part, and "%%" for a percent sign; a name without a
    /// number gets "_%05d" before its extension.
    explicit NumberedNames(const std::filesystem::path& pattern);

    bool isPattern() const { return isPattern_; }
    std::filesystem::path name(long number) const;

    /// The numbers whose files exist, ascending.
    std::vector<long> existing() const;

private:
    std::filesystem::path directory_;
    std::string before_;
    std::string after_;
    int digits_ = 5;
    bool isPattern_ = false;
};

} // namespace Qx::Media
