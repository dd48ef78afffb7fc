#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace Qx::Program {

/// Handles Ctrl-C and the signals that ask a process to end.
///
/// While an Interruption lives, the first such signal calls `stop` on a separate thread, so that the work can
/// end cleanly. A second one calls `abandon` in the signal handler, where little is allowed
/// (signal-safety(7)), and ends the process at once. So does, if there is a `late`, work that goes on for
/// longer than `patience` after `stop`, such as a draw that the device cannot break off: `late` tells the
/// user first, on a separate thread. Without an Interruption, the signals end the process as usual. Only one
/// may exist at a time.
class Interruption
{
public:
    static constexpr std::chrono::milliseconds usualPatience{3000};

    /// `abandon` removes what must not be left behind; null for nothing.
    explicit Interruption(std::function<void()> stop, void (*abandon)() = nullptr,
                          std::function<void()> late = {},
                          std::chrono::milliseconds patience = usualPatience);
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace Qx::Program
