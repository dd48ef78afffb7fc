#pragma once

#include <filesystem>

namespace Qx::Diagnosis {

/// A directory for what is written meanwhile, gone at the end. What a process that was killed left behind
/// goes when the next one begins.
class Scratch
{
public:
    Scratch();
    ~Scratch();
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    /// Empty when it could not be made.
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
    int lock_ = -1; ///< held on the directory as long as somebody uses it
};

} // namespace Qx::Diagnosis
