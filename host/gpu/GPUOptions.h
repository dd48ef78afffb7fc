#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>

namespace Qx::Host {

/// How the GPU service starts. Zero numbers stand for the defaults that are named here.
struct GPUOptions
{
    /// Part of a device's name, letter case aside, or its index in listDevices(). Empty: what the environment
    /// variable QX_DEVICE says, and without it a GPU before a software device.
    std::string device;

    /// Where `device` comes from, for the message that there is none such.
    std::string deviceSource = "the options";

    /// Vulkan's validation layer watches every call; its messages go to the log and are counted. The
    /// environment variable QX_VULKAN_VALIDATION=1 turns it on too.
    bool validation = false;

    /// Bytes of images that recorded and submitted work may touch before callers wait for the device.
    /// Default: the smaller of 512 MiB and a quarter of the device's largest heap.
    std::uint64_t inFlightBytes = 0;

    /// Bytes of released images that are kept for the next ones, host and GPU memory each. Default: as above.
    std::uint64_t poolBytes = 0;

    /// Where compiled effects and pipelines are kept between runs. Empty: nowhere.
    std::filesystem::path cacheDirectory{};

    /// Bytes that the files there may have. Default: 256 MiB.
    std::uint64_t cacheBytes = 0;

    /// How long shutdown() waits for callers and for the device.
    std::chrono::milliseconds shutdownLimit{10'000};

    /// A device on which nothing finishes for so long while somebody waits for it counts as lost.
    std::chrono::milliseconds stallLimit{60'000};

    /// The program of the process that compiles effects and tries them out. Default: qxfxc of the
    /// installation or build that the host was loaded from.
    std::string worker{};

    /// Processor time that one step of trying an effect out may take: making a pass's pipelines, a
    /// technique's first draw. Compiling the file may take 6 times as long, everything together 30 times, and
    /// by the clock each 4 times its limit. Default: 10 seconds.
    std::chrono::milliseconds workerStepLimit{0};

    /// Bytes of memory that a worker process may hold. Default: 2 GiB.
    std::uint64_t workerMemory = 0;

    /// Workers that are busy at once as long as nobody waits for an effect. Default: one a processor core.
    unsigned workers = 0;

    /// Software devices draw effects by packed texels, which is faster; off, texel by texel.
    bool packedTexels = true;

    /// Effects are made ready for their first frame when they are loaded: the driver's work that would hold
    /// it up is done. Off, for who draws few techniques of many, a technique is made ready when it is drawn.
    bool readyWhenLoaded = true;

    /// With the first effect that loadEffectFile() loads from a directory, the others there are compiled
    /// ahead.
    bool compileAhead = false;
};

/// One Vulkan device of this machine.
struct DeviceDescription
{
    std::string name;
    std::string type;   ///< "discrete GPU", "integrated GPU", "virtual GPU", "software" or "other"
    std::string driver; ///< the driver's name and version
    std::uint32_t index = 0;
    std::uint32_t largestImage = 0; ///< pixels that an image may have a side
    bool software = false;          ///< it computes on the processor
    bool chosen = false;            ///< the one that the service runs on
    std::string unsupported; ///< what the service needs and the device lacks; empty when it can be used
    bool hasTimer = false;   ///< it stamps its work with the time: see GPUService::startTimer()
};

/// The device's own time for a piece of work: what it took, not what it took to ask for it. A software
/// device's is that of the processor's clock, other programs' share included.
struct GPUTime
{
    double busyMilliseconds = 0; ///< at work; the gaps in which it had nothing to do are left out
    double spanMilliseconds = 0; ///< from the first of the work to the end of the last
    std::uint64_t batches = 0;   ///< in which the work came; 0 when nothing was recorded
};

/// What the service holds and has done. A snapshot: other threads go on while it is taken.
struct GPUStatistics
{
    std::uint64_t inFlightBytes = 0;      ///< counted against GPUOptions::inFlightBytes
    std::uint64_t inFlightLimit = 0;      ///< the bound in force
    std::uint64_t idleImageBytes = 0;     ///< released GPU images kept in the pool
    std::uint64_t idleHostBytes = 0;      ///< released host images kept in the pool
    std::uint64_t liveImageBytes = 0;     ///< GPU images in use, and host images in such memory
    std::uint64_t liveHostBytes = 0;      ///< host images in use, in memory of their own
    std::uint64_t imagesCreated = 0;      ///< GPU images that did not come from the pool
    std::uint64_t hostImagesCreated = 0;  ///< host images that did not come from the pool
    std::uint64_t memoryAllocations = 0;  ///< allocations of device memory since the start
    std::uint64_t batchesSubmitted = 0;   ///< submissions to the device's queue
    std::uint64_t draws = 0;              ///< passes and primitives recorded
    std::uint64_t packedDraws = 0;        ///< those of them that drew packed texels
    std::uint64_t barriers = 0;           ///< image and buffer barriers recorded
    std::uint64_t sharedTransfers = 0;    ///< uploads and downloads that copied nothing
    std::uint64_t glyphPageBytes = 0;     ///< GPU images that hold the pictures of glyphs
    std::uint64_t glyphsUploaded = 0;     ///< pictures of glyphs copied to the device since the start
    std::uint64_t validationMessages = 0; ///< warnings and errors of the validation layer
};

} // namespace Qx::Host
