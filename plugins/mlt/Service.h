#pragma once

#include "plugins/mlt/Frames.h"
#include "plugins/mlt/Parameters.h"
#include "tools/qxhost/pipeline/frames/FrameProcessor.h"

#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace Qx::Mlt {

/// What a filter or transition makes of a frame's image. Whatever fails costs a line in MLT's log, once, and
/// leaves the image as it is. Thread-safe: MLT asks for images on several threads.
class Service
{
public:
    /// What a service does, in its own words, made of its properties.
    struct Plan
    {
        Program::FrameSteps steps;
        bool readsSecond = false;       ///< the first effect's `second` gets another frame
        std::string second;             ///< a texture; empty: the one that nothing else gives a picture
        std::vector<std::string> known; ///< names of properties that are not the effect's
        std::optional<Media::Matrix> toMatrix; ///< of the result; empty: the frame's
        std::string progress;                  ///< parameter that gets the progress, unless it is set
    };
    using MakePlan = std::function<Plan(mlt_properties properties)>;

    /// A frame that comes in: its image, and whose colours it has.
    struct Input
    {
        Image image;
        mlt_frame frame = nullptr;
    };

    Service(mlt_service service, MakePlan makePlan);
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    /// Draws over the image of `first`, in place. `progress` is from 0 to 1.
    void draw(const Input& first, const Input* second, const Moment& moment, double progress);

    /// Says a line, with the service's name, if it is the first time.
    void complain(const std::string& text);

private:
    struct Made
    {
        std::string key; ///< what it was made of
        Plan plan;
        std::shared_ptr<Program::PicturesOfCaller> second;
        std::unique_ptr<Program::FrameProcessor> processor; ///< empty if that failed
    };

    std::shared_ptr<Made> obtain();
    std::shared_ptr<Made> make(std::string key, Plan plan);
    void takeSecond(Made& made) const;
    void process(Made& made, const Input& first, const Input* second, const Moment& moment, double progress);
    mlt_properties properties() const { return MLT_SERVICE_PROPERTIES(service_); }
    std::vector<Program::EffectSetting> settings(const Made& made, const Moment& moment, double progress);

    mlt_service service_;
    MakePlan makePlan_;
    std::mutex mutex_;
    std::shared_ptr<Made> made_;
    std::mutex saidMutex_;
    std::set<std::string> said_;
};

} // namespace Qx::Mlt
