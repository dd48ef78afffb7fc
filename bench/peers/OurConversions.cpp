#include "QxFxResources/GPUColourConverter.h"
#include "bench/Grade.h"
#include "bench/Look.h"
#include "bench/peers/DrawingJob.h"
#include "bench/peers/OurFrames.h"
#include "bench/peers/Ours.h"
#include "image/TechniqueApplication.h"
#include "platform/GPUService.h"
#include "platform/OS.h"

#include <array>
#include <cstdlib>
#include <deque>

namespace Qx::Bench {
namespace {

using namespace Image;

Filter filterOf(ChromaFilter filter)
{
    switch (filter) {
    case ChromaFilter::CatmullRom:
        return Filter::CatmullRom;
    case ChromaFilter::Mitchell:
        return Filter::Mitchell;
    case ChromaFilter::Lanczos:
        return Filter::Lanczos;
    case ChromaFilter::Point:
    case ChromaFilter::None:
        break;
    }
    return Filter::Point;
}

bool rearrange(const Surface& source, Surface& target, const char* technique)
{
    return applyTechnique(source, target, technique, static_cast<float>(frameWidth), iGPUImage::eARGB8);
}

/// Runs the work on the device.
class Converter
{
public:
    explicit Converter(const Work& work) : work_(work)
    {
        if (work.kind == WorkKind::Look) {
            const char* const file = std::getenv(lookVariable);
            look_ = std::make_unique<Look>(file != nullptr ? file : "");
        } else if (work.kind == WorkKind::Grade) {
            grade_ = std::make_unique<Grade>();
        }
    }

    bool draw(const Surface& source, Surface& target) const
    {
        switch (work_.kind) {
        case WorkKind::Decode:
            return ColourConversion::convertYCrCb422ToRGB(source, target, GamutScaling::Unscaled,
                                                          filterOf(work_.filter));
        case WorkKind::Encode:
            return ColourConversion::convertRGBToYCrCb422(source, target, filterOf(work_.filter));
        case WorkKind::FromV210:
            return rearrange(source, target, "V210toYUYV");
        case WorkKind::ToV210:
            return rearrange(source, target, "YUYVtoV210");
        case WorkKind::V210ToRGB:
            return unpackAndDecode(source, target);
        case WorkKind::Grade:
            return grade_->draw(source.getGPUSurface(), target.getGPUSurface());
        case WorkKind::Look:
            break;
        }
        return look_->draw(source.getGPUSurface(), target.getGPUSurface());
    }

private:
    bool unpackAndDecode(const Surface& source, Surface& target) const
    {
        Surface between = source.createDestYUY2GPUSurface(iGPUImage::eARGB16);
        return rearrange(source, between, "V210toYUYV") &&
               ColourConversion::convertYCrCb422ToRGB(between, target, GamutScaling::Unscaled,
                                                      filterOf(work_.filter));
    }

    Work work_;
    std::unique_ptr<Look> look_;
    std::unique_ptr<Grade> grade_;
};

class OnDevice : public DrawingJob
{
public:
    explicit OnDevice(const Work& work)
        : work_(work), converter_(work), source_(makeSource(work).uploadToGPU())
    {
        for (Surface& target : targets_) {
            target = makeTarget(work);
        }
    }

    int frames() override
    {
        const int count = framesAtOnce();
        for (int i = 0; i < count; ++i) {
            Surface& target = targets_.at(static_cast<std::size_t>(i) % targets_.size());
            if (!source_.getGPUSurface() || !target.getGPUSurface() || !converter_.draw(source_, target)) {
                return 0;
            }
        }
        finish();
        return count;
    }

    std::vector<std::byte> result() override
    {
        return frameOf(targets_.front().getGPUSurface(), resultLayout(work_.kind), work_.depth);
    }

private:
    Work work_;
    Converter converter_;
    Surface source_;
    std::array<Surface, targetsInTurn> targets_;
};

/// Uploads, converts and reads back, with three frames in flight.
class ThereAndBack : public DrawingJob
{
public:
    explicit ThereAndBack(const Work& work) : work_(work), converter_(work)
    {
        for (std::size_t i = 0; i < underWay; ++i) {
            sources_.push_back(makeSource(work));
        }
    }

    int frames() override
    {
        if (results_.size() == underWay && !awaitOldest()) {
            return 0;
        }
        results_.push_back(start());
        return 1;
    }

    bool settle() override
    {
        bool done = true;
        while (!results_.empty()) {
            done = awaitOldest() && done;
        }
        return done;
    }

    std::vector<std::byte> result() override
    {
        const Surface source = sources_.front().uploadToGPU();
        Surface target = makeTarget(work_);
        if (!converter_.draw(source, target)) {
            return {};
        }
        return frameOf(target.getGPUSurface(), resultLayout(work_.kind), work_.depth);
    }

private:
    static constexpr std::size_t underWay = 3;

    bool awaitOldest()
    {
        const Qx::Ptr<iHostImage> oldest = results_.front();
        results_.pop_front();
        return oldest && oldest->map(iHostImage::Read) != nullptr;
    }

    Qx::Ptr<iHostImage> start()
    {
        const Surface source = sources_[next_++ % sources_.size()].uploadToGPU();
        Surface target = makeTarget(work_);
        const bool drawn = source.getGPUSurface() && converter_.draw(source, target);
        return drawn ? OS().gpu().downloadImage(target.getGPUSurface()) : Qx::Ptr<iHostImage>();
    }

    Work work_;
    Converter converter_;
    std::vector<Surface> sources_;
    std::deque<Qx::Ptr<iHostImage>> results_;
    std::size_t next_ = 0;
};

} // namespace

void offerConversions(std::vector<Offer>& offers)
{
    for (const Work& work : allWorks()) {
        offers.push_back({work.key(), "ours", "", [work]() -> std::unique_ptr<Job> {
                              if (work.place == Place::Device) {
                                  return std::make_unique<OnDevice>(work);
                              }
                              return std::make_unique<ThereAndBack>(work);
                          }});
    }
}

} // namespace Qx::Bench
