#pragma once

#include <functional>
#include <memory>

namespace Qx::Program {

/// Handles Ctrl-C and the signals that ask a process to end.
///
/// While an Interruption lives, the first such signal calls `stop` on a separate thread, so that the work can
/// end cleanly. A second one calls `abandon` in the signal handler, where little is allowed
/// (signal-safety(7)), and ends the process at once. Without an Interruption, the signals end the process as
/// usual. Only one may exist at a time.
class Interruption
{
public:
    /// `abandon` removes what must not be left behind; null for nothing.
    explicit Interruption(std::function<void()> stop, void (*abandon)() = nullptr);
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace Qx::Program
