#pragma once

#include "tools/qxhost/media/MediaTypes.h"

#include <memory>

struct AVFrame;

namespace Qx::Media {

/// One decoded frame as the decoder returned it. A cheap handle; copies share the picture, which is
/// immutable.
class Frame
{
public:
    Frame() = default;
    Frame(std::shared_ptr<const AVFrame> picture, const FrameTime& time, bool damaged,
          Range range = Range::video)
        : picture_(std::move(picture)), time_(time), damaged_(damaged), range_(range)
    {
    }

    bool empty() const { return !picture_; }
    const FrameTime& time() const { return time_; }
    /// The decoder met errors in this frame and patched them.
    bool damaged() const { return damaged_; }
    /// Of its codes, by its own tag or, if it has none, the first frame's.
    Range range() const { return range_; }
    /// For this folder's own use.
    const AVFrame* picture() const { return picture_.get(); }

private:
    std::shared_ptr<const AVFrame> picture_;
    FrameTime time_;
    bool damaged_ = false;
    Range range_ = Range::video;
};

} // namespace Qx::Media
