#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <string>
#include <thread>

namespace Qx::Program::Studio {

/// Finds out on a thread of its own which effects of the catalogue can be drawn, compiling those that are not
/// in the cache.
class Survey
{
public:
    /// By the effects' files: why it cannot be drawn; empty if it can.
    using Result = std::map<std::string, std::string>;

    Survey() = default;
    /// Waits for the effect that is being compiled.
    ~Survey();
    Survey(const Survey&) = delete;
    Survey& operator=(const Survey&) = delete;

    /// Calls `found` on that thread after each effect, with those up to it. Does nothing if it has been
    /// started.
    void start(std::function<void(Result)> found);

private:
    std::atomic<bool> stops_{false};
    std::thread thread_;
};

} // namespace Qx::Program::Studio
