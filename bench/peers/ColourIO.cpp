#include "bench/peers/Participant.h"
#include "bench/peers/Workers.h"

#include <OpenColorIO/OpenColorIO.h>

#include <cstdlib>
#include <string>

// The participant for OpenColorIO on the processor.

namespace Qx::Bench {
namespace {

namespace OCIO = OCIO_NAMESPACE;

class Looker : public Job
{
public:
    Looker(const Work& work, const char* lookFile, int threads)
        : bits_(work.depth == 8 ? OCIO::BIT_DEPTH_UINT8 : OCIO::BIT_DEPTH_UINT16),
          component_(work.depth / 8),
          source_(sourceFrame(work)),
          target_(source_.size()),
          workers_(threads, [this](int i) { rows(i); })
    {
        const auto transform = OCIO::FileTransform::Create();
        transform->setSrc(lookFile);
        transform->setInterpolation(OCIO::INTERP_TETRAHEDRAL);
        processor_ = OCIO::Config::CreateRaw()->getProcessor(transform)->getOptimizedCPUProcessor(
            bits_, bits_, OCIO::OPTIMIZATION_DEFAULT);
    }

    int frames() override
    {
        workers_.run();
        return 1;
    }

    std::vector<std::byte> result() override { return target_; }

private:
    void rows(int part)
    {
        const int first = frameHeight * part / workers_.count();
        const int end = frameHeight * (part + 1) / workers_.count();
        const std::ptrdiff_t row = 4 * component_ * frameWidth;
        const auto view = [&](std::vector<std::byte>& bytes) {
            return OCIO::PackedImageDesc(bytes.data() + first * row, frameWidth, end - first,
                                         OCIO::CHANNEL_ORDERING_RGBA, bits_, component_, 4 * component_, row);
        };
        const OCIO::PackedImageDesc from = view(source_);
        OCIO::PackedImageDesc to = view(target_);
        processor_->apply(from, to);
    }

    OCIO::BitDepth bits_;
    std::ptrdiff_t component_;
    std::vector<std::byte> source_;
    std::vector<std::byte> target_;
    OCIO::ConstCPUProcessorRcPtr processor_;
    Workers workers_;
};

std::unique_ptr<Job> makeJob(const Work& work, int threads)
{
    const char* const file = std::getenv(lookVariable);
    try {
        return std::make_unique<Looker>(work, file != nullptr ? file : "", threads);
    } catch (const OCIO::Exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return nullptr;
    }
}

} // namespace
} // namespace Qx::Bench

int main()
{
    using namespace Qx::Bench;
    Participant participant{std::string("OpenColorIO ") + OCIO::GetVersion(),
                            "processor",
                            "the processor, " + std::to_string(allCores()) + " cores",
                            {}};
    for (const Work& work : allWorks()) {
        if (work.kind != WorkKind::Look || work.place != Place::Memory) {
            continue;
        }
        for (const bool all : {true, false}) {
            participant.offers.push_back({work.key(), threadsText(all), "",
                                          [work, all] { return makeJob(work, all ? allCores() : 1); }});
        }
    }
    return serve(participant);
}
