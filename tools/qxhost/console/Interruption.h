#pragma once

#include <functional>
#include <memory>

namespace Qx::Program {

/// What happens on Ctrl-C, and on the signals that ask a process to end.
///
/// While an Interruption lives, the first such signal calls `stop` on a thread of its own, so that the work
/// can end cleanly; a second one removes the unfinished files and
/// ends the process at once. Without one, the signals end the process as usual.
/// One at a time.
class Interruption
{
public:
    explicit Interruption(std::function<void()> stop);
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace Qx::Program
