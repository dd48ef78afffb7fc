#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Qx::Host {

struct ApplicationDevice;

/// Options of the GPU service. A number of zero stands for the default named here.
struct GPUOptions
{
    /// A device: its index in listDevices() or part of its name, ignoring case. Empty: the environment
    /// variable QX_DEVICE, and without it a GPU rather than a software device.
    std::string device;

    /// The origin of `device`, for the message that no device matches.
    std::string deviceSource = "the options";

    /// The application's Vulkan device, which the service then uses in the place of one of its own; see
    /// host/gpu/DeviceSharing.h. `device` and `validation` have no effect then. Null: a device of its own.
    std::shared_ptr<const ApplicationDevice> sharedDevice{};

    /// Enables Vulkan's validation layer, whose messages are logged and counted. The environment variable
    /// QX_VULKAN_VALIDATION=1 enables it too.
    bool validation = false;

    /// Bytes of images that recorded and submitted work may use before callers block. Default: the smaller of
    /// 512 MiB and a quarter of the device's largest heap.
    std::uint64_t inFlightBytes = 0;

    /// Bytes of released images that are kept for reuse, for host images and GPU images each. Default: as
    /// above.
    std::uint64_t poolBytes = 0;

    /// The directory for compiled effects and pipelines of earlier runs. Empty: nothing is kept.
    std::filesystem::path cacheDirectory{};

    /// The limit for all files in the directory, in bytes. Default: 256 MiB.
    std::uint64_t cacheBytes = 0;

    /// The time that shutdown() waits for callers and for the device.
    std::chrono::milliseconds shutdownLimit{10'000};

    /// A device that finishes nothing for this time while a caller waits counts as lost.
    std::chrono::milliseconds stallLimit{60'000};

    /// The program that compiles and tests effects in a process of its own. Default: the qxfxc of the
    /// installation or build that the host was loaded from.
    std::string worker{};

    /// The limit of processor time for one step of testing an effect: creating the pipelines of a pass, or
    /// the first draw of a technique. Compiling the file may take 6 times as long and everything together 30
    /// times; each may take 4 times its limit of wall-clock time. Default: 10 seconds.
    std::chrono::milliseconds workerStepLimit{0};

    /// The memory limit of a worker process, in bytes. Default: 2 GiB.
    std::uint64_t workerMemory = 0;

    /// The number of workers that compile in parallel while no caller waits for an effect. Default: one a
    /// processor core.
    unsigned workers = 0;

    /// Draw effects by packed texels on software devices, which is faster. If false, draw single texels.
    bool packedTexels = true;

    /// Let the processors draw in the place of software devices, where code of their own draws the same.
    bool nativeCode = true;

    /// Create all pipelines of an effect when it is loaded, and draw each technique once. If false, create
    /// each pipeline on its first draw.
    bool readyWhenLoaded = true;

    /// Compile the other effects of a directory in advance when loadEffectFile() loads the first.
    bool compileAhead = false;
};

/// One Vulkan device of this machine.
struct DeviceDescription
{
    std::string name;        ///< as the driver says it
    std::string type;        ///< "discrete GPU", "integrated GPU", "virtual GPU", "software" or "other"
    std::string driver;      ///< the driver's name and version
    std::uint32_t index = 0; ///< in GPUService::listDevices()
    std::uint32_t largestImage = 0; ///< the largest width and height of an image
    bool software = false;          ///< it runs on the processor
    bool chosen = false;            ///< the service uses it
    std::string unsupported;        ///< what the service needs and the device lacks; empty if usable
    bool hasTimer = false;          ///< it writes timestamps: see GPUService::startTimer()
    bool conformant = false;        ///< its driver has passed Vulkan's conformance tests

    /// Of the software device in use: what makes the code by which the processors draw in its place, or why
    /// nothing does. Empty for others.
    std::string nativeCode{};

    /// What the device lacks of what the service would use and what the service does instead, a sentence each
    /// for people. None of it makes the device unusable.
    std::vector<std::string> nextWays{};
};

/// The device's own time for a piece of work, without the time to submit it. A software device's time is
/// wall-clock time, the share of other programs included. Copies on queues of their own do not count.
struct GPUTime
{
    double busyMilliseconds = 0; ///< busy, without idle gaps
    double spanMilliseconds = 0; ///< from the beginning of the first work to the end of the last
    std::uint64_t batches = 0;   ///< submissions of the work; 0 if nothing was recorded
};

/// The device's time for a piece of work, and for each pass of the effects in it.
struct GPUPassTimes
{
    GPUTime whole;                    ///< everything that was recorded
    std::vector<double> milliseconds; ///< busy, of each pass in the order of drawing
};

/// Resources and counters of the service. A snapshot: other threads continue while it is taken.
struct GPUStatistics
{
    std::uint64_t inFlightBytes = 0;      ///< limited by GPUOptions::inFlightBytes
    std::uint64_t inFlightLimit = 0;      ///< the limit in effect
    std::uint64_t idleImageBytes = 0;     ///< released GPU images kept in the pool
    std::uint64_t idleHostBytes = 0;      ///< released host images kept in the pool
    std::uint64_t liveImageBytes = 0;     ///< GPU images in use, and host images in GPU images' memory
    std::uint64_t liveHostBytes = 0;      ///< host images in use, in memory of their own
    std::uint64_t imagesCreated = 0;      ///< GPU images that did not come from the pool
    std::uint64_t hostImagesCreated = 0;  ///< host images that did not come from the pool
    std::uint64_t memoryAllocations = 0;  ///< allocations of device memory since the start
    std::uint64_t batchesSubmitted = 0;   ///< submissions to the device's queue that draws
    std::uint64_t transferBatches = 0;    ///< submissions to its queues that only copy, where it has them
    std::uint64_t draws = 0;              ///< passes and primitives recorded
    std::uint64_t packedDraws = 0;        ///< of these, the passes drawn by packed texels
    std::uint64_t nativeDraws = 0;        ///< of these, the passes that the processors drew by native code
    std::uint64_t barriers = 0;           ///< image and buffer barriers recorded
    std::uint64_t sharedTransfers = 0;    ///< uploads and downloads that copied nothing
    std::uint64_t glyphPageBytes = 0;     ///< GPU images that hold glyphs
    std::uint64_t glyphsUploaded = 0;     ///< glyphs copied to the device since the start
    std::uint64_t validationMessages = 0; ///< warnings and errors of the validation layer
};

} // namespace Qx::Host
