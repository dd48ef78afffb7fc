#pragma once

#include "Qx/Ptr.h"
#include "platform/GPUImage.h"
#include "platform/Surface.h"
#include "tools/qxhost/diagnose/LifeSign.h"
#include "tools/qxhost/diagnose/Messages.h"
#include "tools/qxhost/diagnose/TestAid.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

namespace Qx::Diagnosis {

/// What the steps measure with: every operation that they ask of the device goes through here, so that a
/// hang or a death can be told with what was asked for last.
class Probe
{
public:
    using Send = std::function<void(const Message&)>;

    /// `budget`: how long a figure may be measured. `scratch`: a directory for what a step writes; empty for
    /// none.
    Probe(LifeSign& life, std::chrono::milliseconds budget, std::filesystem::path scratch, Send send)
        : life_(life), budget_(budget), scratch_(std::move(scratch)), send_(std::move(send))
    {
    }

    std::chrono::milliseconds budget() const
    {
        return Clock::now() < hurryFrom_ ? budget_ : std::chrono::milliseconds(0);
    }

    /// From then on the budget is nothing, so that each figure has one sample: a slow machine is not to take
    /// minutes for a quick run.
    void hurryAfter(std::chrono::milliseconds time) { hurryFrom_ = Clock::now() + time; }
    const std::filesystem::path& scratch() const { return scratch_; }

    void beginStep(const std::string& name, const std::string& title);

    /// Says what the operations that follow are.
    void doing(std::string_view what) { life_.doing(what); }

    /// The same for what compiles effects. The host watches its compilers itself, and ends what takes too
    /// long.
    void compiling(std::string_view what)
    {
        constexpr std::uint32_t patience = 10;
        life_.doing(what, patience);
    }

    /// Announces an operation; false when it counts as refused. Any thread.
    bool operation();

    // Operations. Empty or false when the device refuses.
    Qx::Ptr<iGPUImage> upload(const Qx::Ptr<iHostImage>& image);
    Image::Surface upload(const Image::Surface& frame);
    Qx::Ptr<iHostImage> download(const Qx::Ptr<iGPUImage>& image);

    /// Waits until the device has done everything that was asked before.
    bool finish();

    void send(const Message& message) { send_(message); }

private:
    using Clock = std::chrono::steady_clock;

    LifeSign& life_;
    std::chrono::milliseconds budget_;
    std::filesystem::path scratch_;
    Clock::time_point hurryFrom_ = Clock::time_point::max();
    Send send_;
    TestAid aid_;
    std::string step_;
    std::atomic<std::uint64_t> operations_{0};
    Qx::Ptr<iGPUImage> last_; ///< drawn into to know that all before is done
};

} // namespace Qx::Diagnosis
