#include "bench/peers/DrawingJob.h"
#include "bench/peers/OurFrames.h"
#include "bench/peers/Ours.h"
#include "host/gpu/GPUService.h"
#include "image/TechniqueApplication.h"
#include "platform/GPUService.h"
#include "platform/OS.h"
#include "platform/Text.h"

#include <array>
#include <cstring>

namespace Qx::Bench {
namespace {

using namespace Image;

constexpr std::size_t buffersInTurn = 3;

/// memcpy of RGB frames, between as many buffers as there are frames in flight elsewhere.
class MemoryCopy : public Job
{
public:
    explicit MemoryCopy(std::size_t bytes) : bytes_(bytes)
    {
        for (std::size_t i = 0; i < buffersInTurn; ++i) {
            sources_.at(i).assign(bytes, static_cast<char>(i + 1));
            targets_.at(i).assign(bytes, 0);
        }
    }

    int frames() override
    {
        constexpr int count = 16;
        for (int i = 0; i < count; ++i) {
            const std::size_t place = next_++ % buffersInTurn;
            std::memcpy(targets_.at(place).data(), sources_.at(place).data(), bytes_);
            __asm__ volatile(""
                             :
                             : "r"(targets_.at(place).data())
                             : "memory"); // keeps the copy from being optimised away
        }
        return count;
    }

private:
    std::size_t bytes_;
    std::size_t next_ = 0;
    std::array<std::vector<char>, buffersInTurn> sources_;
    std::array<std::vector<char>, buffersInTurn> targets_;
};

class Upload : public Job
{
public:
    explicit Upload(unsigned depth)
    {
        for (Qx::Ptr<iHostImage>& image : images_) {
            image = OS().gpu().createHostImage({frameWidth, frameHeight}, texelsOf(depth));
            if (image) {
                std::memset(image->map(iHostImage::Write), 1, frameBytes(FrameLayout::Colour, depth));
            }
        }
    }

    int frames() override
    {
        const int count = framesAtOnce();
        for (int i = 0; i < count; ++i) {
            if (!OS().gpu().uploadImage(images_.at(next_++ % buffersInTurn), 0)) {
                return 0;
            }
        }
        for (const Qx::Ptr<iHostImage>& image : images_) {
            if (image->map(iHostImage::Write) == nullptr) { // blocks until it has been read
                return 0;
            }
        }
        return count;
    }

private:
    std::array<Qx::Ptr<iHostImage>, buffersInTurn> images_;
    std::size_t next_ = 0;
};

class Download : public Job
{
public:
    explicit Download(unsigned depth)
    {
        for (Qx::Ptr<iGPUImage>& image : images_) {
            image = OS().gpu().createGPUImage({frameWidth, frameHeight}, texelsOf(depth));
        }
    }

    int frames() override
    {
        std::array<Qx::Ptr<iHostImage>, buffersInTurn> results;
        const int count = framesAtOnce();
        for (int i = 0; i < count; ++i) {
            const std::size_t place = next_++ % buffersInTurn;
            if (results.at(place) && results.at(place)->map(iHostImage::Read) == nullptr) {
                return 0;
            }
            results.at(place).reset(); // a result that is still held would force a copy
            results.at(place) = OS().gpu().downloadImage(images_.at(place));
        }
        for (const Qx::Ptr<iHostImage>& image : results) {
            if (!image || image->map(iHostImage::Read) == nullptr) {
                return 0;
            }
        }
        return count;
    }

private:
    std::array<Qx::Ptr<iGPUImage>, buffersInTurn> images_;
    std::size_t next_ = 0;
};

/// The device's own copy.
class DeviceCopy : public Job
{
public:
    DeviceCopy(XY<int> size, iGPUImage::eFormat format) : source_(OS().gpu().createGPUImage(size, format))
    {
        for (Qx::Ptr<iGPUImage>& target : targets_) {
            target = OS().gpu().createGPUImage(size, format);
        }
    }

    int frames() override
    {
        const int count = framesAtOnce();
        for (int i = 0; i < count; ++i) {
            if (!Host::gpuService().copyImage(source_,
                                              targets_.at(static_cast<std::size_t>(i) % targets_.size()))) {
                return 0;
            }
        }
        finish();
        return count;
    }

private:
    Qx::Ptr<iGPUImage> source_;
    std::array<Qx::Ptr<iGPUImage>, targetsInTurn> targets_;
};

/// A technique of an effect on images of these sizes.
class Pass : public DrawingJob
{
public:
    Pass(Qx::Ptr<iShaderEffect> effect, const char* technique, Surface source,
         std::array<Surface, targetsInTurn> targets)
        : effect_(std::move(effect)),
          technique_(technique),
          source_(std::move(source)),
          targets_(std::move(targets))
    {
    }

    int frames() override
    {
        const int count = framesAtOnce();
        for (int i = 0; i < count; ++i) {
            if (!applyTechnique(effect_, source_, targets_.at(static_cast<std::size_t>(i) % targets_.size()),
                                technique_, frameWidth)) {
                return 0;
            }
        }
        finish();
        return count;
    }

private:
    Qx::Ptr<iShaderEffect> effect_;
    const char* technique_;
    Surface source_;
    std::array<Surface, targetsInTurn> targets_;
};

/// The pass that only moves the bytes of that work.
const char* passThrough(WorkKind kind)
{
    switch (kind) {
    case WorkKind::Decode:
        return "Spread";
    case WorkKind::Encode:
        return "Gather";
    case WorkKind::FromV210:
        return "FourToThree";
    case WorkKind::ToV210:
        return "ThreeToFour";
    case WorkKind::V210ToRGB:
        return "TwoToThree";
    case WorkKind::Look:
    case WorkKind::Grade:
        break;
    }
    return "Same";
}

std::unique_ptr<Job> makePassThrough(const Work& work)
{
    const LightweightString<wchar_t> file = fromUTF8(QX_PASSES_FILE);
    return std::make_unique<Pass>(
        OS().gpu().loadEffectFile(file, {}), passThrough(work.kind), makeSource(work).uploadToGPU(),
        std::array<Surface, targetsInTurn>{makeTarget(work), makeTarget(work), makeTarget(work)});
}

/// Two texels: only the cost of the request remains.
std::unique_ptr<Job> makeEmptyDraw()
{
    const auto image = [] { return makeWrapper(OS().gpu().createGPUImage({2, 1}, iGPUImage::eARGB8)); };
    return std::make_unique<Pass>(getShader(L"null.fx"), "Null", image(),
                                  std::array<Surface, targetsInTurn>{image(), image(), image()});
}

} // namespace

void offerLimits(std::vector<Offer>& offers)
{
    for (const Work& work : allWorks()) {
        if (work.place == Place::Device && work.content == Content::Scattered) {
            offers.push_back({work.key(), "pass-through", "bytes moved, nothing computed",
                              [work] { return makePassThrough(work); }});
        }
    }
    for (const unsigned depth : {8U, 16U}) {
        const std::size_t bytes = frameBytes(FrameLayout::Colour, depth);
        const std::string bits = std::to_string(depth);
        offers.push_back(
            {"frame" + bits, "memcpy", "", [bytes] { return std::make_unique<MemoryCopy>(bytes); }});
        offers.push_back({"frame" + bits, "upload", "", [depth] { return std::make_unique<Upload>(depth); }});
        offers.push_back(
            {"frame" + bits, "download", "", [depth] { return std::make_unique<Download>(depth); }});
        offers.push_back(
            {"frame" + bits, "device copy", "", [depth] {
                 return std::make_unique<DeviceCopy>(XY<int>{frameWidth, frameHeight}, texelsOf(depth));
             }});
    }
    offers.push_back(
        {"frame2160", "device copy", "", [] {
             return std::make_unique<DeviceCopy>(XY<int>{2 * frameWidth, 2 * frameHeight}, iGPUImage::eARGB8);
         }});
    offers.push_back({"draw", "empty", "", makeEmptyDraw});
}

} // namespace Qx::Bench
